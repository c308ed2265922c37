// SPDX-License-Identifier: MIT
#include "Velor/app/VLStatusLine.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "Velor/app/VLCommandLine.h"
#include "Velor/app/VLPortNames.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/ltc_utils.h"

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
      return std::string("armed, wrong format: ") + VLFormatName(status.receivedFormat) +
             " comes in";
    default:
      return "?";
  }
}

std::string portText(const VLNamedPort& port) {
  return VLPrintable(port.name) + (port.present ? "" : " (away)");
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

}  // namespace

std::string VLStatusText(const VLStatus& status, std::size_t columns) {
  char time[kLTCStringSize];
  ltc_format_string(status.time, time);
  std::string text(time);
  text.append("  ").append(VLFormatName(status.time.mType)).append("  ").append(statusText(status));
  if (status.loop) {
    text.append("  LOOP ").append(VLPrintable(status.loop->first));
    text.append(" > ").append(VLPrintable(status.loop->second));
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
    text.append(status.ltc.empty() ? "nobody" : "LTC alone");
  }
  separator = "  LTC: ";
  for (const VLLTCOutput& output : status.ltc) {
    text.append(separator).append(portText(output.port)).append(" ").append(output.rate);
    separator = ", ";
  }
  if (status.oscPort != 0) {
    text.append("  OSC: ").append(std::to_string(status.oscPort));
  }
  text.append("  MIDI: ").append(status.server);

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

VLStatusLine::VLStatusLine() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {
  if (mIsTerminal) {
    // Opened for this program alone: the flag would else hold for the shell, too.
    mOwn = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }
}

VLStatusLine::~VLStatusLine() {
  if (mIsTerminal && !mLast.empty()) {
    writeOut("\n");
  }
  if (mOwn >= 0) {
    close(mOwn);
  }
}

bool VLStatusLine::writeOut(const std::string& text) const {
  // A terminal that has gone is no reason to stop the clock.
  return write(mOwn >= 0 ? mOwn : STDOUT_FILENO, text.data(), text.size()) ==
         static_cast<ssize_t>(text.size());
}

void VLStatusLine::show(const VLStatus& status) {
  if (!mIsTerminal) {
    return;
  }
  // The last column stays free: some terminals would go to the next line.
  std::string text = VLStatusText(status, terminalColumns() - 1);
  if (text != mLast || !mIsWhole) {
    mIsWhole = writeOut("\r" + text + "\033[K");
    mLast = std::move(text);
  }
}

}  // namespace velor
