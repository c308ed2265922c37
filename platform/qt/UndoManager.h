// SPDX-License-Identifier: MIT
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

class QUndoStack;

namespace velor::qt {

/// The last kMostSteps steps that the user can undo and redo.
///
/// A change registers how to undo it. A step that is undone registers how to redo it, and
/// so on: an operation and its inverse that each register the other need nothing else. All
/// that one undo or redo registers is one step; a step that registers nothing is gone.
///
/// A step that throws leaves a state that no other step fits: all steps are removed, and
/// the exception reaches the caller of `undo` or `redo`.
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

  /// How to undo the current change. Removes what could be redone, unless an undo or a redo
  /// runs. The step may not destroy this object.
  void registerUndo(std::function<void()> step);

  /// The text of a menu after "Undo" or "Redo", in UTF-8, for the step registered last; no
  /// effect once an undo, a redo or `removeAllActions` followed. A step that is undone or
  /// redone keeps its name until it gets another.
  void setActionName(const std::string& name);

  bool canUndo() const;
  bool canRedo() const;

  /// Empty without a step, and for one without a name.
  std::string undoActionName() const;
  std::string redoActionName() const;

  /// No effect without a step, and inside an undo or a redo.
  void undo();
  void redo();

  /// Inside an undo or a redo: after its end.
  void removeAllActions();

  /// Called after each operation that may change an answer of the four questions above.
  void setChanged(std::function<void()> changed) { mChanged = std::move(changed); }

 private:
  class Command;

  void run(void (QUndoStack::*move)());
  void announce() const;

  const std::unique_ptr<QUndoStack> mStack;
  Command* mNamed = nullptr;    // the last one, as long as it may be named; the stack's
  Command* mRunning = nullptr;  // being undone or redone; the stack's
  std::exception_ptr mFailure;  // of the step that ran last
  bool mRemoveAll = false;      // as soon as nothing runs
  std::function<void()> mChanged;
};

}  // namespace velor::qt
