// SPDX-License-Identifier: MIT
#pragma once

#include <avahi-common/watch.h>

#include <functional>

namespace velor::discovery {

/// Reports that the socket of the system bus may have appeared. Avahi reports a daemon that
/// returns, but not the bus. On the loop's thread.
class SystemBusWatch {
 public:
  SystemBusWatch(const AvahiPoll* loop, std::function<void()> changed);
  ~SystemBusWatch();
  SystemBusWatch(const SystemBusWatch&) = delete;
  SystemBusWatch& operator=(const SystemBusWatch&) = delete;

 private:
  void watchFolder() const;
  static void onEvent(AvahiWatch* watch, int descriptor, AvahiWatchEvent event, void* self);

  const AvahiPoll* const mLoop;
  const std::function<void()> mChanged;
  const int mDescriptor;
  AvahiWatch* const mWatch;
};

}  // namespace velor::discovery
