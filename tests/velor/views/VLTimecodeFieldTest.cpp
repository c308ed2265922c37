// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeField.h"

#include <QLineEdit>
#include <memory>

#include "Velor/views/VLTimecodeTextView.h"
#include "tests/velor/views/ViewFixture.h"

namespace velor {
namespace {

struct Changes final : VLTimecodeFieldDelegate {
  void timecodeFieldDidChangeTimecode(VLTimecodeField& field) override {
    last = stringFromSMPTETime(field.smpteTime());
  }
  std::string last;
};

class VLTimecodeFieldTest : public ViewFixture {};

TEST_F(VLTimecodeFieldTest, TheFocusBeginsTheEditAndTheLastTabEndsIt) {
  const auto delegate = std::make_shared<Changes>();
  QLineEdit before;
  VLTimecodeField field;
  QLineEdit behind;
  field.setSmpteTime(timeOf("01:00:00;10", kSMPTETimeType2997Drop));
  field.setDelegate(delegate);
  EXPECT_EQ(field.timecodeType(), kSMPTETimeType2997Drop);
  show({&before, &field, &behind}, {300, 120});
  before.setFocus();
  press(Qt::Key_Tab);
  type("0203");
  EXPECT_EQ(delegate->last, "02:03:00;10");
  press(Qt::Key_Tab);
  press(Qt::Key_Tab);
  EXPECT_TRUE(behind.hasFocus());
  EXPECT_FALSE(field.findChild<VLTimecodeTextView*>()->isVisible());
  EXPECT_EQ(field.stringValue(), "02:03:00;10");
}

}  // namespace
}  // namespace velor
