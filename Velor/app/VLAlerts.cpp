// SPDX-License-Identifier: MIT
#include "Velor/app/VLAlerts.h"

namespace velor {

VLAlert VLAlerts::wrongFormat(const std::string& source, const std::string& received,
                              const std::string& current) {
  return {VLAlert::Kind::wrongFormat,
          "Wrong SMPTE Format",
          received + " fps on " + source,
          "The clock receives MTC on " + source + " at " + received +
              " fps, which does not match the currently set format of " + current + " fps",
          "use " + received + " fps",
          "Cancel"};
}

VLAlert VLAlerts::mtcLoop(const std::string& source, const std::string& destination) {
  return {VLAlert::Kind::mtcLoop,
          "MIDI/MTC Loop detected!",
          source + " > " + destination,
          "There appears to be a MIDI loop between \"" + source + "\" and \"" + destination +
              "\". For correct operation \"" + destination + "\" should not be a MTC Destination",
          "Disable " + destination,
          "Proceed anyway"};
}

VLAlert VLAlerts::devicesAreRunning() {
  return {VLAlert::Kind::devicesAreRunning,
          "Devices are running - Quit anyway?",
          "",
          "Do you really want to quit Velor? Some devices are currently running and generating "
          "timecode.",
          "Yes",
          "No"};
}

VLAlert VLAlerts::featureNotAvailable(const std::string& missing, const std::string& system) {
  return {VLAlert::Kind::featureNotAvailable,
          "Feature not available",
          "",
          "The Media Playback feature needs " + missing +
              ", which is not installed. You are running " + system,
          "OK",
          ""};
}

}  // namespace velor
