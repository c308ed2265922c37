// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

class QUndoStack;

namespace velor::qt {

/// What the user can take back, and do again: the last kMostSteps steps.
///
/// Whoever changes something registers how to take that back. While a step is taken
/// back, what is registered says how to do it again, and so on: an operation and its
/// inverse that each register the other need nothing else. All that is registered while
/// one step is undone or redone is one step; a step for which nothing was registered is
/// gone with it.
///
/// A step that throws stays what it was, to be tried again, unless it had registered its
/// inverse by then: that takes its place. A step of several that is half done can be
/// undone. The exception reaches the caller of `undo` or `redo`.
///
/// Needs neither an application object nor a display. One thread at a time: the main
/// one. Realtime-safe: no.
class UndoManager {
 public:
  /// A controller that locates all night must not fill the memory.
  static constexpr int kMostSteps = 1000;

  UndoManager();
  ~UndoManager();
  UndoManager(const UndoManager&) = delete;
  UndoManager& operator=(const UndoManager&) = delete;

  /// How to take back what is being done. What could have been redone is gone, unless
  /// this is called in an undo or a redo. The step may not destroy this object.
  void registerUndo(std::function<void()> step);

  /// What a menu says behind "Undo" or "Redo", in UTF-8, of the step registered last;
  /// nothing is named once an undo, a redo or `removeAllActions` has come in between. A
  /// step that gets no name in an undo or a redo keeps the one that it had.
  void setActionName(const std::string& name);

  bool canUndo() const;
  bool canRedo() const;

  /// Empty where there is nothing, or nothing with a name.
  std::string undoActionName() const;
  std::string redoActionName() const;

  /// Nothing when there is nothing, and inside an undo or a redo.
  void undo();
  void redo();

  /// From inside an undo or a redo, once that is done.
  void removeAllActions();

  /// Called when an answer of the four questions above may have changed, once an
  /// operation.
  void setChanged(std::function<void()> changed) { mChanged = std::move(changed); }

 private:
  class Command;

  using Direction = void (QUndoStack::*)();

  void run(Direction there, Direction back);
  void tellChanged() const;

  const std::unique_ptr<QUndoStack> mStack;
  Command* mRegistered = nullptr;  // the last one, as long as it may be named; the stack's
  Command* mRunning = nullptr;     // being undone or redone; the stack's
  Command* mUnfinished = nullptr;  // ran last, and has steps left; the stack's
  std::exception_ptr mFailure;     // of the step that ran last
  bool mRemoveAll = false;         // as soon as nothing runs
  std::function<void()> mChanged;
};

}  // namespace velor::qt
