// SPDX-License-Identifier: MIT
#include "Velor/program/VLStatusLine.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "Velor/clock/VLClockStatus.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/program/VLOptionText.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

constexpr std::size_t kDefaultColumns = 80;

std::string statusText(const VLStatus& status) {
  switch (status.clockStatus) {
    case VLClockStopped:
      return "stopped";
    case VLClockRolling:
      return "rolling";
    case VLClockArmed:
      return "armed";
    case VLClockChasing:
      return "chasing";
    case VLClockArmedWrongFormat:
      return "armed, wrong format";
    default:
      return "?";
  }
}

std::string portText(const VLNamedPort& port) {
  if (port.present) {
    return store::printable(port.name);
  }
  const std::string meanwhile =
      port.standIn.empty() ? "" : "; on " + store::printable(port.standIn);
  return store::printable(port.name) + " (missing" + meanwhile + ")";
}

std::size_t terminalColumns() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                         : kDefaultColumns;
}

// A byte that continues a character of UTF-8.
bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::string timeText(const SMPTETime& time) {
  char text[kLTCStringSize];
  ltc_format_string(time, text);
  return std::string(text) + "  " + VLFormatName(time.mType);
}

// Of the clock, and what it sends and follows.
std::string clockText(const VLStatus& status) {
  std::string text = timeText(status.time) + "  " + statusText(status);
  if (!status.notice.empty()) {
    text.append("  ").append(store::printable(status.notice));
  }
  if (status.source) {
    text.append("  from ").append(portText(*status.source));
  }
  text.append("  to ");
  const char* separator = "";
  for (const VLNamedPort& port : status.destinations) {
    text.append(separator).append(portText(port));
    separator = ", ";
  }
  if (status.destinations.empty()) {
    text.append(status.ltc.empty() ? "no destination" : "LTC only");
  }
  separator = "  LTC: ";
  for (const VLLTCOutput& output : status.ltc) {
    text.append(separator).append(portText(output.port)).append(" ").append(output.rate);
    separator = ", ";
  }
  return text;
}

// At most `columns` characters of it.
std::string cut(const std::string& text, std::size_t columns) {
  std::size_t characters = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    characters += continuesCharacter(text[i]) ? 0 : 1;
  }
  if (characters <= columns) {
    return text;
  }
  const std::size_t kept = columns > 3 ? columns - 3 : 0;
  std::size_t end = 0;
  for (std::size_t count = 0; end < text.size(); ++end) {
    count += continuesCharacter(text[end]) ? 0 : 1;
    if (count > kept) {
      break;
    }
  }
  return text.substr(0, end) + std::string("...").substr(0, columns);
}

std::string inputText(const VLLTCInput& input) {
  const char* state = input.status == kVLDeviceStatusRunning        ? "reading"
                      : input.status == kVLDeviceStatusFreewheeling ? "freewheeling"
                                                                    : "no LTC";
  char rate[64] = "-- fps";
  if (input.speed > 0) {
    const double nominal = 1 / ltc_seconds_per_frame(input.time.mType);
    std::snprintf(rate, sizeof rate, "%.3f fps (%+.3f%%)", input.speed,
                  (input.speed / nominal - 1) * 100);
  }
  char userbits[16];
  std::snprintf(userbits, sizeof userbits, "%08X", input.userbits);
  const bool isTimeKnown = (input.time.mFlags & kSMPTETimeValid) != 0;
  std::string text = isTimeKnown ? timeText(input.time) : invalidSMPTEString();
  text.append("  ").append(state).append("  ").append(rate).append("  user bits ");
  return text.append(userbits).append("  from ").append(portText(input.port));
}

std::string lineText(const VLStatus& status) {
  std::string text = status.isClockUsed ? clockText(status) : "";
  if (status.ltcIn) {
    text.append(status.isClockUsed ? "  LTC in: " : "").append(inputText(*status.ltcIn));
  }
  if (status.oscPort != 0) {
    text.append("  OSC: ").append(std::to_string(status.oscPort));
  }
  return text.append("  MIDI: ").append(status.server);
}

}  // namespace

VLStatusLine::VLStatusLine() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {
  if (mIsTerminal) {
    // Opened for this program alone: the flag would else hold for the shell, too.
    mOwn = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }
}

VLStatusLine::~VLStatusLine() {
  leave();
  if (mOwn >= 0) {
    close(mOwn);
  }
}

void VLStatusLine::leave() {
  if (mIsTerminal && !mLast.empty()) {
    writeOut("\n");
    mLast.clear();
  }
}

bool VLStatusLine::writeOut(const std::string& text) const {
  // If the terminal has gone the clock goes on.
  return write(mOwn >= 0 ? mOwn : STDOUT_FILENO, text.data(), text.size()) ==
         static_cast<ssize_t>(text.size());
}

void VLStatusLine::show(const VLStatus& status) {
  if (mIsTerminal) {
    show(lineText(status));
  }
}

void VLStatusLine::show(const std::string& text) {
  if (!mIsTerminal) {
    return;
  }
  // The last column stays free: some terminals would go to the next line.
  std::string line = cut(text, terminalColumns() - 1);
  if (line != mLast || !mIsWhole) {
    mIsWhole = writeOut("\r" + line + "\033[K");
    mLast = std::move(line);
  }
}

}  // namespace velor
