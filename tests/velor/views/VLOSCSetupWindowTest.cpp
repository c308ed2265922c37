// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QLabel>
#include <QRadioButton>

#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "Velor/views/VLOSCSetupWindowController.h"
#include "sim/SimulatedHostAddresses.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class VLOSCSetupWindowTest : public WindowFixture {
 protected:
  VLOSCSetupWindowTest() {
    network::setHostAddresses(&mAddresses);
    open();
    action("showOSCSetup").trigger();
    settle();
    mSetup = window<VLOSCSetupWindowController>();
  }
  ~VLOSCSetupWindowTest() override {
    close();
    network::setHostAddresses(nullptr);
  }

  static VLOSCServer& server() { return VLOSCServer::sharedServer(); }
  static VLOSCClientDispatcher& dispatcher() { return VLOSCClientDispatcher::sharedDispatcher(); }
  template <class Widget>
  Widget& part(const char* name) {
    return in<Widget>(*mSetup, name);
  }
  QLineEdit& port() { return part<QLineEdit>("portField"); }
  VLButton& startStop() { return part<VLButton>("startStopButton"); }
  VLTableView& hosts() { return part<VLTableView>("allowedHostsTableView"); }
  VLTableView& targets() { return part<VLTableView>("clientsTableView"); }
  void clickPart(const char* button) {
    QTest::mouseClick(&part<QAbstractButton>(button), Qt::LeftButton);
    settle();
  }
  void startAt(const char* text) {
    port().setText(text);
    clickPart("startStopButton");
  }
  /// The text of the sheet, which it closes; empty when there is none.
  std::string takeSheet() {
    QDialog* sheet = mSetup->sheets().current();
    if (sheet == nullptr) {
      return "";
    }
    QStringList texts;
    for (const QLabel* label : sheet->findChildren<QLabel*>()) {
      texts += label->text();
    }
    sheet->accept();
    settle();
    return texts.join('\n').toStdString();
  }
  using Rows = std::vector<std::string>;
  static Rows rows(const VLTableView& table) {
    Rows result;
    for (int row = 0; row < table.model()->rowCount(); ++row) {
      std::string text =
          table.model()->index(row, 0).data(Qt::CheckStateRole).toInt() != 0 ? "on" : "off";
      for (int column = 1; column < table.model()->columnCount(); ++column) {
        text += " " + cell(table, row, column);
      }
      result.push_back(text);
    }
    return result;
  }
  /// A command from this host reaches the server's port.
  void knock(const std::string& host) {
    const std::vector<std::uint8_t> nothing(4);
    mNetwork.arrive(*SocketAddress::fromText(host, 50'000),
                    SocketAddress::wildcard(AF_INET, server().port()), nothing);
    settle();
  }
  QLineEdit* beginEdit(int row, int column) {
    targets().setFocus();
    return WindowFixture::beginEdit(targets(), row, column);
  }
  void edit(int row, int column, const QString& text) {
    QLineEdit* editor = beginEdit(row, column);
    ASSERT_NE(editor, nullptr);
    editor->setText(text);
    press(*editor, Qt::Key_Return);
  }

  network::SimulatedHostAddresses mAddresses;
  VLOSCSetupWindowController* mSetup = nullptr;
};

TEST_F(VLOSCSetupWindowTest, TheFieldShowsThePortOfTheServerAndWhatCannotBeOneStartsNothing) {
  mNetwork.failNext(SimulatedUDPNetwork::Call::bind, EADDRINUSE);
  clickPart("startStopButton");
  EXPECT_THAT(takeSheet(), HasSubstr("Error in bind() function"));
  EXPECT_EQ(startStop().text(), "Start");
  clickPart("startStopButton");
  EXPECT_EQ(server().port(), 7770);
  EXPECT_FALSE(port().isEnabled());
  clickPart("startStopButton");
  EXPECT_TRUE(port().isEnabled());
  ASSERT_TRUE(server().startUdPServerAtPort(8001));
  settle();
  EXPECT_EQ(port().text(), "8001");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&startStop())->text(QAccessible::Name), "Stop");
  clickPart("startStopButton");
  for (const char* rubbish : {"", "abc", "77x", "1e3", "99999999999999999999", "\u0667"}) {
    startAt(rubbish);
    EXPECT_FALSE(server().running()) << rubbish;
    EXPECT_THAT(takeSheet(), HasSubstr("is not a port")) << rubbish;
  }
  startAt("70000");
  EXPECT_EQ(server().port(), 4464) << "16 bits of it";
  EXPECT_EQ(port().text(), "4464");
}

TEST_F(VLOSCSetupWindowTest, TheRadioButtonsAndTheFilterModeFollowEachOther) {
  press(part<QRadioButton>("allowAllButton"), Qt::Key_Return);
  EXPECT_EQ(server().filterMode(), VLOSCServer::kPromiscuousMode);
  server().setFilterMode(VLOSCServer::kFilteringMode);
  settle();
  EXPECT_TRUE(part<QRadioButton>("allowTickedButton").isChecked());
}

TEST_F(VLOSCSetupWindowTest, ARefusedHostAppearsIsTickedAndGoesByTheKeyOfItsTableAlone) {
  clickPart("startStopButton");
  knock("10.0.0.5");
  knock("10.0.0.6");
  mHost.advance(VLOSCServer::kListingInterval);
  settle();
  EXPECT_THAT(rows(hosts()), ElementsAre("off 10.0.0.5", "off 10.0.0.6"));
  clickRow(hosts(), 0, 0);
  EXPECT_TRUE(server().allowFromHost("10.0.0.5"));
  clickPart("addTargetButton");

  hosts().selectRow(0);
  port().setFocus();
  startStop().setFocus();
  press(startStop(), Qt::Key_Delete);
  EXPECT_EQ(rows(hosts()).size(), 2U);
  EXPECT_EQ(rows(targets()).size(), 1U);
  hosts().setFocus();
  press(hosts(), Qt::Key_Delete);
  EXPECT_THAT(rows(hosts()), ElementsAre("off 10.0.0.6"));
  EXPECT_FALSE(server().allowFromHost("10.0.0.5"));
  targets().setFocus();
  press(targets(), Qt::Key_Delete);
  EXPECT_THAT(dispatcher().clients(), IsEmpty());
}

TEST_F(VLOSCSetupWindowTest, ANewTargetGoesToTheNetworkOfThisHost) {
  mAddresses.setAddresses({"127.0.0.1", "10.0.0.2", "::ffff:192.168.9.9"});
  clickPart("addTargetButton");
  mAddresses.setAddresses({"10.0.0.2", "192.168.2.7", "192.168.3.7"});
  clickPart("addTargetButton");
  EXPECT_THAT(rows(targets()),
              ElementsAre("on 192.168.1.1 9000 ready", "on 192.168.2.255 9000 ready"));
  EXPECT_EQ(targets().currentIndex().row(), 1);
}

TEST_F(VLOSCSetupWindowTest, OnlyTargetsOfTheUserAreEditedAndRubbishChangesNothing) {
  clickPart("addTargetButton");
  edit(0, 1, " 10.0.0.9 ");
  edit(0, 2, "9001");
  EXPECT_THAT(rows(targets()), ElementsAre("on 10.0.0.9 9001 ready"));
  for (const char* rubbish : {"0", "65536", "-1", "abc"}) {
    edit(0, 2, rubbish);
    EXPECT_THAT(takeSheet(), HasSubstr("expected 1 to 65535")) << rubbish;
  }
  edit(0, 1, " ");
  EXPECT_NE(takeSheet(), "");
  EXPECT_THAT(rows(targets()), ElementsAre("on 10.0.0.9 9001 ready"));
  edit(0, 2, "");
  edit(0, 1, "nowhere at all");
  EXPECT_THAT(rows(targets()), ElementsAre("on nowhere at all 9000 not connected"));
  clickRow(targets(), 0, 0);
  EXPECT_THAT(rows(targets()), ElementsAre("off nowhere at all 9000 off"));

  const auto found = VLOSCClient::initWithUdpHost("10.0.0.7", 9100);
  found->setServiceName("Lighting");
  dispatcher().addClient(found);
  settle();
  EXPECT_EQ(rows(targets())[1], "on Lighting (10.0.0.7) 9100 missing");
  found->setAlive(true);
  settle();
  EXPECT_EQ(rows(targets())[1], "on Lighting (10.0.0.7) 9100 ready");
  EXPECT_EQ(beginEdit(1, 1), nullptr);
  EXPECT_EQ(beginEdit(1, 2), nullptr);
  clickRow(targets(), 1, 0);
  EXPECT_FALSE(found->enabled());
}

TEST_F(VLOSCSetupWindowTest, AnOpenEditorKeepsWhatIsTypedUntilItsTargetVanishes) {
  clickPart("addTargetButton");
  const auto client = std::static_pointer_cast<VLUserDefinedOSCClient>(dispatcher().clients()[0]);
  QLineEdit* editor = beginEdit(0, 1);
  ASSERT_NE(editor, nullptr);
  client->setHost("10.1.1.1");  // comes while the editor shows the former host
  settle();
  press(*editor, Qt::Key_Return);
  EXPECT_EQ(client->storedHost(), "10.1.1.1");

  editor = beginEdit(0, 1);
  ASSERT_NE(editor, nullptr);
  editor->selectAll();
  QTest::keyClicks(editor, "10.2");
  client->setPort(9009);
  settle();
  EXPECT_EQ(editor->text(), "10.2");
  dispatcher().removeClientsAtIndexes({0});
  settle();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(targets().findChild<QLineEdit*>(), nullptr);
  EXPECT_EQ(client->storedHost(), "10.1.1.1");
  EXPECT_THAT(rows(targets()), IsEmpty());
}

}  // namespace
}  // namespace velor
