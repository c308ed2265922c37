// SPDX-License-Identifier: MIT
#include "platform/qt/UndoManager.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace velor::qt {
namespace {

/// A text that is written and cut at its end, each the other's inverse.
class UndoManagerTest : public ::testing::Test {
 protected:
  void write(const std::string& letters) {
    throwIfStuck(letters);
    mText += letters;
    named("write " + letters, [this, letters] { cut(letters); });
  }
  void cut(const std::string& letters) {
    throwIfStuck(letters);
    // Also when steps ran in the wrong order.
    ASSERT_TRUE(mText.ends_with(letters)) << mText << " does not end with " << letters;
    mText.resize(mText.size() - letters.size());
    named("cut " + letters, [this, letters] { write(letters); });
  }
  void named(const std::string& name, std::function<void()> inverse) {
    mUndo.registerUndo(std::move(inverse));
    mUndo.setActionName(name);
  }
  void throwIfStuck(const std::string& letters) const {
    if (letters == mStuckAt) {
      throw std::runtime_error("stuck");
    }
  }
  /// "undo name/text/redo name", with '-' where there is nothing to do.
  std::string state() const {
    return (mUndo.canUndo() ? mUndo.undoActionName() : "-") + "/" + mText + "/" +
           (mUndo.canRedo() ? mUndo.redoActionName() : "-");
  }

  UndoManager mUndo;
  std::string mText;
  std::string mStuckAt;
};

TEST_F(UndoManagerTest, InversesThatRegisterEachOtherGoBackAndForthUnderTheirNames) {
  mUndo.setActionName("nothing to name");
  EXPECT_EQ(state(), "-//-");
  write("a");
  write("b");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(state(), "write b/ab/-");
    mUndo.undo();
    mUndo.setActionName("too late");
    EXPECT_EQ(state(), "write a/a/cut b");
    mUndo.undo();
    mUndo.undo();
    EXPECT_EQ(state(), "-//cut a");
    mUndo.redo();
    mUndo.redo();
    mUndo.redo();
  }
  mUndo.undo();
  write("c\nd");
  EXPECT_EQ(state(), "write c d/ac\nd/-");
  mUndo.removeAllActions();
  mUndo.setActionName("gone");
  EXPECT_EQ(state(), "-/ac\nd/-");
}

TEST_F(UndoManagerTest, AllThatOneUndoRegistersIsOneStepAndNothingRegisteredLeavesNone) {
  write("x");
  mText += "abc";
  named("all", [this] {
    cut("c");
    cut("ab");
    mUndo.undo();  // one at a time
  });
  mUndo.undo();
  EXPECT_EQ(state(), "write x/x/cut ab");
  mUndo.redo();
  EXPECT_EQ(state(), "write c/xabc/-");
  mUndo.undo();
  EXPECT_EQ(state(), "write x/x/cut ab");

  named("for good", [this] { mText += "!"; });
  mUndo.undo();
  EXPECT_EQ(state(), "write x/x!/-");
  named("kept", [this] { mUndo.registerUndo([] {}); });
  mUndo.undo();
  EXPECT_EQ(state(), "write x/x!/kept");
}

TEST_F(UndoManagerTest, AStepThatThrowsIsNeitherLostNorDoneTwice) {
  mUndo.registerUndo([this] {
    write("1");
    write("2");
    write("3");
  });
  mUndo.undo();
  int changes = 0;
  mUndo.setChanged([&changes] { ++changes; });
  mStuckAt = "3";
  EXPECT_THROW(mUndo.redo(), std::runtime_error);
  EXPECT_EQ(state(), "-/123/write 3");
  mStuckAt = "2";
  EXPECT_THROW(mUndo.redo(), std::runtime_error);
  EXPECT_EQ(state(), "cut 3/12/-");
  mUndo.undo();
  EXPECT_EQ(state(), "-/123/write 3");
  mStuckAt.clear();
  mUndo.redo();
  EXPECT_EQ(state(), "cut 1//-");
  EXPECT_EQ(changes, 4);
  mStuckAt = "2";
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_THROW(mUndo.undo(), std::runtime_error);
    EXPECT_EQ(state(), "cut 1/1/-");
  }
  mStuckAt.clear();
  mUndo.undo();
  EXPECT_EQ(state(), "-/123/write 3");

  // What registered its inverse is done, whatever it threw then.
  mUndo.registerUndo([this] {
    write("4");
    throw std::runtime_error("behind the work");
  });
  EXPECT_THROW(mUndo.undo(), std::runtime_error);
  EXPECT_EQ(state(), "-/1234/write 4");
  mUndo.redo();
  EXPECT_EQ(state(), "cut 4/123/-");
}

TEST_F(UndoManagerTest, RemovingAllInsideAnUndoWaitsForItsEnd) {
  write("a");
  mUndo.registerUndo([this] {
    mUndo.removeAllActions();
    write("b");
  });
  mUndo.undo();
  EXPECT_EQ(state(), "-/ab/-");
}

TEST_F(UndoManagerTest, BeyondTheMostStepsTheOldestIsForgotten) {
  const auto letters = static_cast<std::size_t>(UndoManager::kMostSteps) + 3;
  for (std::size_t i = 0; i < letters; ++i) {
    write("a");
  }
  while (mUndo.canUndo()) {
    mUndo.undo();
  }
  EXPECT_EQ(mText, "aaa");
}

}  // namespace
}  // namespace velor::qt
