// SPDX-License-Identifier: MIT
#include "platform/qt/UndoManager.h"

#include <QString>
#include <QUndoCommand>
#include <QUndoStack>
#include <optional>
#include <vector>

namespace velor::qt {

// One entry of the stack. What it does next is the same whether that is an undo or a
// redo; the stack knows which.
class UndoManager::Command final : public QUndoCommand {
 public:
  Command(UndoManager& manager, std::function<void()> step) : mManager(manager) {
    mNext.push_back(std::move(step));
  }

  void undo() override { move(false); }
  void redo() override { move(true); }

  // The stack moves over the command next without doing anything.
  void passNextTime() { mPass = true; }

  void registerInverse(std::function<void()> step) { mInverse.push_back(std::move(step)); }

  // Of the inverse, while that is being registered.
  void setName(const std::string& name) {
    QString text = QString::fromStdString(name);
    text.replace('\n', ' ');  // it would begin another text, for other places
    if (mManager.mRunning == this) {
      mInverseName = text;
    } else {
      setText(text);
    }
  }

 private:
  void move(bool isRedo) {
    if (std::exchange(mPass, false)) {
      return;
    }
    mManager.mRunning = this;
    runSteps();
    mManager.mRunning = nullptr;
    // What is half done belongs where it is undone from: on the other side the next
    // change would drop it.
    const bool isHalfDone = !mInverse.empty();
    if (!mNext.empty() && !(isRedo && isHalfDone)) {
      mManager.mUnfinished = this;
    } else {
      std::swap(mNext, mInverse);
      if (mInverseName) {
        setText(*std::exchange(mInverseName, std::nullopt));
      }
      setObsolete(mNext.empty());
    }
  }

  void runSteps() {
    while (!mNext.empty() && mManager.mFailure == nullptr) {
      const std::size_t registered = mInverse.size();
      // The stack's code is not made for exceptions, and so they are kept from it.
      try {
        mNext.back()();
      } catch (...) {
        mManager.mFailure = std::current_exception();
        if (mInverse.size() == registered) {
          return;
        }
      }
      mNext.pop_back();
    }
  }

  UndoManager& mManager;
  bool mPass = true;  // the stack redoes what it takes over, which is done by then
  std::vector<std::function<void()>> mNext;  // from the back
  std::vector<std::function<void()>> mInverse;
  std::optional<QString> mInverseName;
};

UndoManager::UndoManager() : mStack(std::make_unique<QUndoStack>()) {
  mStack->setUndoLimit(kMostSteps);
}
UndoManager::~UndoManager() = default;

void UndoManager::registerUndo(std::function<void()> step) {
  if (mRunning != nullptr) {
    mRunning->registerInverse(std::move(step));
    mRegistered = mRunning;
    return;
  }
  auto command = std::make_unique<Command>(*this, std::move(step));
  mRegistered = command.get();
  mStack->push(command.release());
  tellChanged();
}

void UndoManager::setActionName(const std::string& name) {
  if (mRegistered == nullptr) {
    return;
  }
  mRegistered->setName(name);
  if (mRunning == nullptr) {
    tellChanged();
  }
}

bool UndoManager::canUndo() const {
  return mStack->canUndo();
}

bool UndoManager::canRedo() const {
  return mStack->canRedo();
}

std::string UndoManager::undoActionName() const {
  return mStack->undoText().toStdString();
}

std::string UndoManager::redoActionName() const {
  return mStack->redoText().toStdString();
}

void UndoManager::undo() {
  if (canUndo()) {
    run(&QUndoStack::undo, &QUndoStack::redo);
  }
}

void UndoManager::redo() {
  if (canRedo()) {
    run(&QUndoStack::redo, &QUndoStack::undo);
  }
}

void UndoManager::removeAllActions() {
  mRemoveAll = mRunning != nullptr;
  if (!mRemoveAll) {
    mRegistered = nullptr;
    mStack->clear();
    tellChanged();
  }
}

void UndoManager::run(Direction there, Direction back) {
  if (mRunning != nullptr) {
    return;
  }
  mRegistered = nullptr;
  ((*mStack).*there)();
  mRegistered = nullptr;
  const std::exception_ptr failure = std::exchange(mFailure, nullptr);
  if (Command* const command = std::exchange(mUnfinished, nullptr)) {
    command->passNextTime();  // the stack has moved it to the other side
    ((*mStack).*back)();
  }
  if (std::exchange(mRemoveAll, false)) {
    mStack->clear();
  }
  tellChanged();
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
}

void UndoManager::tellChanged() const {
  if (mChanged) {
    mChanged();
  }
}

}  // namespace velor::qt
