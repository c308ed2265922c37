// SPDX-License-Identifier: MIT
// Any bytes as a document of the application, on simulated time with the services in
// process: one that is refused is told by a place; whatever it was, the state can be
// written, and reads as what was written. What looks into documents meets the same bytes.
#include <memory>
#include <string>
#include <string_view>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLTimecodeValues.h"
#include "Velor/program/VLInspect.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/Log.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/store/KeyedUnarchiver.h"
#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedHost.h"
#include "sim/SimulatedMedia.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace velor;

class NoWindow final : public VLMainWindowOutlet {
 public:
  void presentAlert(const VLAlert& /*alert*/, VLAlert::Answer /*answer*/) override {}
  void presentError(const std::string& /*text*/) override {}
  void beginSavePanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void beginOpenPanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void replyToApplicationShouldTerminate(bool /*terminate*/) override {}
};

// The application, once for all documents: each finds what the one before has left.
class Application {
 public:
  explicit Application(const std::string& home) {
    host::setLogSink([](host::LogLevel, std::string_view) {});
    midi::setService(&mMIDI);
    setUDPNetwork(&mNetwork);
    discovery::setService(&mDiscovery);
    media::setService(&mMedia);
    mApp = std::make_shared<VLAppDelegate>(
        std::make_shared<NoWindow>(), std::make_shared<VLTimecodeValues>(),
        store::ApplicationFolders([home](const char* name) -> const char* {
          return std::string_view(name) == "HOME" ? home.c_str() : nullptr;
        }));
    mApp->applicationDidFinishLaunching();
    mHost.settle();
    mState = std::make_unique<VLApplicationState>(*mApp);
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  void load(std::string_view document) {
    auto coder = store::KeyedUnarchiver::read(document, VLApplicationState::classes());
    const auto inspection = VLInspectDocument(document);
    require(coder.has_value() == inspection.has_value(), "what is inspected is what can be opened");
    if (!coder) {
      require(coder.error().text.find(": ") != std::string::npos, "a refusal says where and why");
      return;
    }
    if (const auto decoded = mState->decode(*coder); !decoded) {
      require(decoded.error().text.find(": ") != std::string::npos, "a refusal says where and why");
      require(!inspection->problems.empty(),
              ("what cannot be opened whole has problems: " + decoded.error().text).c_str());
    }
    mHost.settle();
    require(ltc_is_valid_type(mApp->clock().smpteFormat()), "the format is one");
    require(mApp->clock().smpteOffset().mType == mApp->clock().smpteFormat(),
            "the offset is of the format");
    const auto written = mState->data();
    require(written.has_value(), "the state can be written");
    auto again = store::KeyedUnarchiver::read(*written, VLApplicationState::classes());
    require(static_cast<bool>(again), "what is written can be read");
    require(mState->decode(*again).has_value(), "what is written can be taken over");
    mHost.settle();
    while (!mApp->mediaWindows().windows().empty()) {
      mApp->mediaWindows().windows().back()->windowWillClose();
    }
  }

 private:
  host::SimulatedHost mHost;
  midi::MIDIObjectTable mMIDI{nullptr};
  const std::unique_ptr<audio::AudioService> mAudio =
      audio::serviceOver(std::make_unique<audio::BuiltinAudio>());
  SimulatedUDPNetwork mNetwork;
  discovery::BuiltinDiscovery mDiscovery;
  media::SimulatedMedia mMedia;
  std::shared_ptr<VLAppDelegate> mApp;
  std::unique_ptr<VLApplicationState> mState;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const test::TemporaryFolder folder;
  // Never ended: what the thread that ends the process would need has gone by then.
  static Application& application = *new Application(folder.path().string());
  application.load({reinterpret_cast<const char*>(data), size});
  return 0;
}
