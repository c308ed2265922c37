// SPDX-License-Identifier: MIT
#include "Velor/views/VLDeviceWindows.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QSlider>

#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/views/VLPopupButton.h"
#include "Velor/views/VLTextField.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

class VLDeviceWindowsTest : public WindowFixture {
 protected:
  VLDeviceWindowsTest() { open(); }

  VLDeviceWindows& windows() { return mMain->deviceWindows(); }
  static std::shared_ptr<VLDevice> last() { return manager().devices().back(); }
  QWidget& panel(const std::shared_ptr<VLDevice>& device) {
    return windows().windowControllerForDevice(device)->window();
  }
  QWidget& add(const char* menuItem) {
    child<QAction>(menuItem).trigger();
    settle();
    return panel(last());
  }
  QWidget& addReader() { return add("addLTCReader"); }
  QWidget& addGenerator() { return add("addLTCGenerator"); }
  static std::string text(QWidget& window, const char* name) {
    return in<QLabel>(window, name).text().toStdString();
  }
  static std::vector<std::string> choices(const QComboBox& popup) {
    std::vector<std::string> result;
    for (int i = 0; i < popup.count(); ++i) {
      result.push_back((i == popup.currentIndex() ? "*" : "") + popup.itemText(i).toStdString());
    }
    return result;
  }
  void choose(QComboBox& popup, int index) {
    popup.setCurrentIndex(index);
    emit popup.activated(index);
    settle();
  }
  void type(VLTextField& field, const char* keys, int end) {
    field.window()->activateWindow();
    field.setFocus();
    field.selectAll();
    QTest::keyClicks(&field, keys);
    press(field, end);
  }
};

using Texts = std::vector<std::string>;

TEST_F(VLDeviceWindowsTest, AGeneratorsPanelShowsAndSetsWhatGoesOut) {
  QWidget& window = addGenerator();
  const auto device = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(last());
  KVLTCGenerator& generator = *device->generator();
  auto& fader = in<QSlider>(window, "levelSlider");
  fader.setValue(fader.maximum());
  EXPECT_EQ(generator.level(), 1);
  fader.setValue(0);
  EXPECT_EQ(text(window, "levelLabel"), "-inf dB");
  generator.setLevel(0.125F);  // half of the way of a cube's root
  settle();
  EXPECT_EQ(fader.value(), fader.maximum() / 2);

  auto& bits = in<VLTextField>(window, "userbitsField");
  type(bits, "zz 12 34 ab cd ef", Qt::Key_Return);
  EXPECT_EQ(generator.userbits(), 0x34ABCDEFU);
  EXPECT_FALSE(clock().running());  // the blanks were typed
  type(bits, "77", Qt::Key_Escape);
  EXPECT_EQ(bits.text(), "34abcdef");
  EXPECT_EQ(generator.userbits(), 0x34ABCDEFU);

  inputOf(*device)->setEnable(true);
  app().play();
  mHost.advance(kSecond);
  settle();
  EXPECT_EQ(text(window, "tclabel"), generator.tcstring());
  EXPECT_EQ(text(window, "frLabel").substr(0, 9), "25.00 fps");
  window.close();
  mHost.advance(kSecond);
  window.show();
  settle();
  EXPECT_EQ(text(window, "tclabel"), generator.tcstring());
}

TEST_F(VLDeviceWindowsTest, AReadersPanelShowsTheLockTheFreewheelAndItsEnd) {
  addGenerator();
  const auto generator = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(last());
  generator->generator()->setLevel(1);
  generator->generator()->setUserbits(0x89ABCDEF);
  inputOf(*generator)->setEnable(true);
  QWidget& window = addReader();
  const auto reader = std::dynamic_pointer_cast<VLLTCReaderDevice>(last());
  auto& stop = in<VLButton>(window, "stopFreewheelingButton");
  auto& freewheel = in<VLTextField>(window, "freewheelField");
  type(freewheel, "-7", Qt::Key_Return);
  EXPECT_EQ(reader->freewheelTime(), -1);
  type(freewheel, "soon", Qt::Key_Return);
  EXPECT_EQ(freewheel.text(), "-1");
  auto& condition = in<QCheckBox>(window, "conditionBox");
  press(condition, Qt::Key_Return);
  EXPECT_TRUE(reader->conditionsInput());
  press(condition, Qt::Key_Return);

  goTo("01:00:00:00");
  app().play();
  mHost.advance(4 * kSecond);
  settle();
  EXPECT_EQ(text(window, "tcLabel").substr(0, 7), "01:00:0");
  EXPECT_EQ(text(window, "frLabel").substr(0, 10), "25, lock (");
  EXPECT_EQ(text(window, "userbitsLabel"), "UB: 89abcdef");
  EXPECT_FALSE(stop.isEnabled());

  app().stop();
  mHost.advance(kSecond);
  settle();
  EXPECT_EQ(text(window, "frLabel").substr(0, 14), "25, freewheel ");
  const std::string before = text(window, "tcLabel");
  mHost.advance(kSecond);
  settle();
  EXPECT_GT(text(window, "tcLabel"), before) << "it counts on";
  stop.click();
  mHost.advance(kSecond / 2);
  settle();
  EXPECT_EQ(text(window, "frLabel"), "Not Reading");
}

TEST_F(VLDeviceWindowsTest, OpenPopupsFollowTheSystemAndNameWhatIsMissing) {
  for (QWidget* window : {&addReader(), &addGenerator()}) {
    auto& device = in<VLPopupButton>(*window, "devicePopUpButton");
    auto& channel = in<VLPopupButton>(*window, "channelPopUpButton");
    EXPECT_EQ(choices(device), (Texts{"*Velor Loopback"}));
    EXPECT_EQ(choices(channel).size(), 2U);
    choose(channel, 1);
    EXPECT_EQ(channel.currentIndex(), 1);
    device.showPopup();
    mLoopback->vanish();
    settle();
    ASSERT_EQ(device.count(), 1);
    EXPECT_TRUE(device.itemText(0).endsWith("(missing)")) << device.itemText(0).toStdString();
    EXPECT_EQ(device.currentIndex(), 0);
    EXPECT_TRUE(choices(channel).empty());
    choose(device, 0);  // does nothing
    mLoopback->appear();
    settle();
    EXPECT_EQ(choices(device), (Texts{"*Velor Loopback"}));
    EXPECT_EQ(channel.currentIndex(), 1);
    device.hidePopup();
  }
}

TEST_F(VLDeviceWindowsTest, AWindowGoesWithItsDeviceHoweverThatIsRemoved) {
  child<QAction>("showDestinationsWindow").trigger();
  settle();
  auto& list = *windows().destinationsWindow();
  auto& table = in<VLTableView>(list, "deviceTable");
  auto& open = in<VLButton>(list, "openButton");
  EXPECT_FALSE(open.isEnabled());
  in<VLButton>(list, "addGeneratorButton").click();
  settle();
  addReader();
  addReader();
  EXPECT_EQ(cell(table, 1, 0), "idle");
  EXPECT_EQ(cell(table, 1, 1), "LTC Reader 1");

  const QPointer<QWidget> first = &panel(manager().devices()[1]);
  const QPointer<QWidget> second = &panel(manager().devices()[2]);
  first->close();
  clickRow(table, 1, 1);
  press(table, Qt::Key_Return);
  EXPECT_TRUE(first->isVisible());
  QApplication::setActiveWindow(&list);
  table.setFocus();
  press(table, Qt::Key_Delete);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(cell(table, 1, 1), "LTC Reader 2");
  in<VLPopupButton>(*second, "channelPopUpButton").showPopup();
  manager().removeDevicesAtIndexes({1});
  settle();
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(table.model()->rowCount(), 1);
  table.selectAll();
  in<VLButton>(list, "removeButton").click();
  settle();
  EXPECT_TRUE(manager().devices().empty());
  EXPECT_FALSE(open.isEnabled());
  EXPECT_TRUE(mMain->isVisible());
}

TEST_F(VLDeviceWindowsTest, ADocumentBringsItsOwnWindowsAndNamesAChoiceForWhichAnotherStandsIn) {
  const QPointer<QWidget> generator = &addGenerator();
  const QPointer<QWidget> reader = &addReader();
  ASSERT_TRUE(app().saveApplicationStateToURL(mFolder.path() / "show.velor"));
  QString document = QString::fromStdString(contents(mFolder.path() / "show.velor"));
  document.replace("velor.loopback", "usb.desk");
  ASSERT_TRUE(app().loadApplicationStateFromURL(write("desk.velor", document.toStdString())));
  settle();
  EXPECT_EQ(generator, nullptr);
  EXPECT_EQ(reader, nullptr);
  ASSERT_EQ(manager().devices().size(), 2U);
  for (const auto& device : manager().devices()) {
    auto& popup = in<VLPopupButton>(panel(device), "devicePopUpButton");
    EXPECT_EQ(choices(popup), (Texts{"Velor Loopback", "*usb.desk (missing)"}));
    EXPECT_TRUE(popup.toolTip().contains("Velor Loopback stands in"));
    choose(popup, 0);
    EXPECT_EQ(choices(popup), (Texts{"*Velor Loopback"}));
  }
}

}  // namespace
}  // namespace velor
