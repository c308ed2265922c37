// SPDX-License-Identifier: MIT
#include "platform/qt/UndoManager.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

namespace velor::qt {
namespace {

/// A text that is written and cut at its end, each the other's inverse.
class UndoManagerTest : public ::testing::Test {
 protected:
  void write(const std::string& letters) {
    mText += letters;
    named("write " + letters, [this, letters] { cut(letters); });
  }
  void cut(const std::string& letters) {
    // Also when steps ran in the wrong order.
    ASSERT_TRUE(mText.ends_with(letters)) << mText << " does not end with " << letters;
    mText.resize(mText.size() - letters.size());
    named("cut " + letters, [this, letters] { write(letters); });
  }
  void named(const std::string& name, std::function<void()> inverse) {
    mUndo.registerUndo(std::move(inverse));
    mUndo.setActionName(name);
  }
  /// "undo name/text/redo name", with '-' where there is nothing to do.
  std::string state() const {
    return (mUndo.canUndo() ? mUndo.undoActionName() : "-") + "/" + mText + "/" +
           (mUndo.canRedo() ? mUndo.redoActionName() : "-");
  }

  UndoManager mUndo;
  std::string mText;
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
}

}  // namespace
}  // namespace velor::qt
