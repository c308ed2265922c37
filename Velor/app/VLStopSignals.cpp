// SPDX-License-Identifier: MIT
#include "Velor/app/VLStopSignals.h"

#include <csignal>
#include <initializer_list>

namespace velor {

void VLStopSignalsInstall(void (*handler)(int number)) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (number == SIGHUP && sigaction(number, nullptr, &action) == 0 &&
        action.sa_handler == SIG_IGN) {
      continue;
    }
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(number, &action, nullptr);
  }
}

}  // namespace velor
