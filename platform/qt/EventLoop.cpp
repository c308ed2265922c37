// SPDX-License-Identifier: MIT
#include "platform/qt/EventLoop.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <utility>

namespace velor::qt {

void EventLoop::run() {
  QSocketNotifier notifier(mQueue.descriptor(), QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [this] { drain(); });
  QCoreApplication::exec();
  if (const auto failure = std::exchange(mFailure, nullptr)) {
    std::rethrow_exception(failure);
  }
}

// Qt's loop is not made for exceptions.
void EventLoop::drain() noexcept {
  try {
    if (mQueue.drainPending()) {
      return;
    }
  } catch (...) {
    mFailure = std::current_exception();
  }
  QCoreApplication::exit();
}

}  // namespace velor::qt
