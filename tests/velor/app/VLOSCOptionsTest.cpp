// SPDX-License-Identifier: MIT
// The OSC options over several runs of the application.
#include "Velor/app/VLOSCOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "tests/velor/app/AppFixture.h"
#include "tests/velor/osc/OSCFixture.h"

namespace velor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

class VLOSCOptionsTest : public AppFixture {
 protected:
  VLOSCOptionsTest() {
    mNetwork.addHost("desk.local", {*SocketAddress::fromText("10.0.0.9", 0)}, 1'000'000'000);
  }

  // A run with these options, from its start to its end; what it reported.
  Lines run(const VLOSCOptions& options) {
    end();
    mWindow->errors.clear();
    mApp = std::make_shared<VLAppDelegate>(mWindow, mView, folders());
    mApp->applicationDidFinishLaunching({});
    app().waitForSettings();
    VLOSCApply(options, [this](const std::string& text) { mWindow->presentError(text); });
    mHost.settle();
    mHosts = listedHosts();
    mTargets = targets();
    mPort = app().server().port();
    mHost.advance(2'000'000'000);
    EXPECT_TRUE(app().applicationWillTerminate());
    return mWindow->errors;
  }
  static VLOSCOptions with(std::uint16_t port, Lines allow, std::vector<VLOSCOptions::Target> to) {
    VLOSCOptions options;
    options.port = port;
    options.allow = std::move(allow);
    options.targets = std::move(to);
    return options;
  }
  static Lines targets() {
    Lines rows;
    for (const auto& client : VLOSCClientDispatcher::sharedDispatcher().clients()) {
      rows.push_back(client->storedHost().value_or("") + ":" +
                     std::to_string(client->storedPort()));
    }
    return rows;
  }

  // Of the last run, once its options were in effect.
  Lines mHosts;
  Lines mTargets;
  std::uint16_t mPort = 0;
};

TEST_F(VLOSCOptionsTest, EachStartWithTheSameOptionsFindsWhatTheFirstHasAdded) {
  const auto options =
      with(7770, {"10.0.0.5", "10.0.0.5"}, {{"desk.local", 9000}, {"desk.local", 9000}});
  for (int start = 1; start <= 3; ++start) {
    SCOPED_TRACE(start);
    EXPECT_THAT(run(options), IsEmpty());
    EXPECT_THAT(mHosts, ElementsAre("+10.0.0.5"));
    EXPECT_THAT(mTargets, ElementsAre("desk.local:9000"));
    EXPECT_EQ(mPort, 7770);
  }
  EXPECT_THAT(run(with(7770, {"10.0.0.6"}, {})), IsEmpty());
  EXPECT_THAT(mHosts, ElementsAre("+10.0.0.5", "+10.0.0.6"));
  EXPECT_THAT(run({}), IsEmpty());
  EXPECT_THAT(mHosts, ElementsAre("+10.0.0.5", "+10.0.0.6"));
  EXPECT_EQ(mPort, 7770);
}

TEST_F(VLOSCOptionsTest, OptionsThatAreNotKeptEndWithTheirRunAndLeaveTheSavedOnes) {
  run(with(7770, {"10.0.0.5"}, {{"10.0.0.8", 9000}}));
  VLOSCOptions once =
      with(7771, {"10.0.0.5", "10.0.0.6"}, {{"10.0.0.8", 9000}, {"10.0.0.9", 9001}});
  once.keep = false;
  EXPECT_THAT(run(once), IsEmpty());
  EXPECT_THAT(mHosts, ElementsAre("+10.0.0.5", "+10.0.0.6"));
  EXPECT_THAT(mTargets, ElementsAre("10.0.0.8:9000", "10.0.0.9:9001"));
  EXPECT_EQ(mPort, 7771);
  run({});
  EXPECT_THAT(mHosts, ElementsAre("+10.0.0.5"));
  EXPECT_THAT(mTargets, ElementsAre("10.0.0.8:9000"));
  EXPECT_EQ(mPort, 7770);
}

TEST_F(VLOSCOptionsTest, AForgottenHostOrTargetIsGoneForGoodAndOneThatIsNotListedIsReported) {
  run(with(7770, {"10.0.0.5", "10.0.0.6"}, {{"desk.local", 9000}, {"::1", 9000}}));
  VLOSCOptions options;
  for (const char* text : {"10.0.0.5", "desk.local:9000", "10.0.0.7", "[::1]:9001"}) {
    EXPECT_TRUE(VLOSCForgetFromText(text, options)) << text;
  }
  EXPECT_THAT(run(options), ElementsAre("--osc-forget: host 10.0.0.7 is not in the list",
                                        "--osc-forget: target [::1]:9001 is not in the list"));
  for (int start = 0; start < 2; ++start) {
    EXPECT_THAT(mHosts, ElementsAre("+10.0.0.6"));
    EXPECT_THAT(mTargets, ElementsAre("::1:9000"));
    run({});
  }
  EXPECT_EQ(VLOSCForgetFromText("desk", options).error().text,
            "'desk' is neither an IP address nor HOST:PORT");
}

TEST_F(VLOSCOptionsTest, ATakenPortThatIsSavedAndNamedIsReportedOnce) {
  run(with(7770, {}, {}));
  end();
  const auto listener = std::make_shared<GCDAsyncUdpSocketDelegate>();
  const auto other = GCDAsyncUdpSocket::initWithDelegate(listener, &mHost.mainQueue());
  ASSERT_TRUE(other->bindToPort(7770));
  const Lines reported = run(with(7770, {}, {}));
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported[0],
            "cannot receive OSC at port 7770: Address already in use (Error in bind() function)");
  EXPECT_EQ(app().settings().lostOSCPort(), 7770) << "saved as switched off";
  other->close();
}

}  // namespace
}  // namespace velor
