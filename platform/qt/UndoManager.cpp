// SPDX-License-Identifier: MIT
#include "platform/qt/UndoManager.h"

#include <QString>
#include <QUndoCommand>
#include <QUndoStack>
#include <utility>
#include <vector>

namespace velor::qt {

// One entry of the stack, which knows whether its steps undo or redo.
class UndoManager::Command final : public QUndoCommand {
 public:
  Command(UndoManager& manager, std::function<void()> step) : mManager(manager) {
    mSteps.push_back(std::move(step));
  }

  void undo() override { run(); }
  void redo() override {
    if (!std::exchange(mIsNew, false)) {  // the stack redoes what it takes over
      run();
    }
  }
  void add(std::function<void()> step) { mSteps.push_back(std::move(step)); }

 private:
  void run() {
    const auto steps = std::exchange(mSteps, {});
    mManager.mRunning = this;
    // The stack's code is not made for exceptions.
    try {
      for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        (*step)();
      }
    } catch (...) {
      mManager.mFailure = std::current_exception();
      mManager.mRemoveAll = true;
    }
    mManager.mRunning = nullptr;
    setObsolete(mSteps.empty());
  }

  UndoManager& mManager;
  bool mIsNew = true;
  std::vector<std::function<void()>> mSteps;  // from the back
};

UndoManager::UndoManager() : mStack(std::make_unique<QUndoStack>()) {
  mStack->setUndoLimit(kMostSteps);
}
UndoManager::~UndoManager() = default;

void UndoManager::registerUndo(std::function<void()> step) {
  if (mRunning != nullptr) {
    mRunning->add(std::move(step));
    mNamed = mRunning;
    return;
  }
  auto command = std::make_unique<Command>(*this, std::move(step));
  mNamed = command.get();
  mStack->push(command.release());
  announce();
}

void UndoManager::setActionName(const std::string& name) {
  if (mNamed != nullptr) {
    // A line feed would begin a second text, for other places.
    mNamed->setText(QString::fromStdString(name).replace('\n', ' '));
    announce();
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
  run(&QUndoStack::undo);
}

void UndoManager::redo() {
  run(&QUndoStack::redo);
}

void UndoManager::removeAllActions() {
  mRemoveAll = mRunning != nullptr;
  if (!mRemoveAll) {
    mNamed = nullptr;
    mStack->clear();
    announce();
  }
}

void UndoManager::run(void (QUndoStack::*move)()) {
  if (mRunning != nullptr) {
    return;
  }
  (mStack.get()->*move)();
  mNamed = nullptr;
  if (std::exchange(mRemoveAll, false)) {
    mStack->clear();
  }
  announce();
  if (const auto failure = std::exchange(mFailure, nullptr)) {
    std::rethrow_exception(failure);
  }
}

void UndoManager::announce() const {
  if (mChanged && mRunning == nullptr) {
    mChanged();
  }
}

}  // namespace velor::qt
