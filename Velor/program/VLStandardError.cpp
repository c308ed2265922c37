// SPDX-License-Identifier: MIT
#include "Velor/program/VLStandardError.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/store/Printable.h"

namespace velor {

void VLStandardError::tell(const std::string& text) {
  // A terminal is opened for this program alone: the flag would else hold for the shell, too.
  static const int own = isatty(STDERR_FILENO) == 1
                             ? open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                             : -1;
  const std::string line = "velor: " + store::printable(text) + "\n";
  // If the reader has gone the clock goes on.
  static_cast<void>(!write(own >= 0 ? own : STDERR_FILENO, line.data(), line.size()));
}

}  // namespace velor
