// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/SystemBusWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <utility>

namespace velor::discovery {
namespace {

// Where libdbus looks for it.
std::filesystem::path busSocket() {
  constexpr std::string_view kPath = "unix:path=";
  const char* const given = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string_view address = given != nullptr ? given : "";
  if (!address.starts_with(kPath)) {
    return "/run/dbus/system_bus_socket";
  }
  return address.substr(kPath.size(), address.find_first_of(",;") - kPath.size());
}

}  // namespace

SystemBusWatch::SystemBusWatch(const AvahiPoll* loop, std::function<void()> changed)
    : mLoop(loop),
      mChanged(std::move(changed)),
      mDescriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      mWatch(loop->watch_new(loop, mDescriptor, AVAHI_WATCH_IN, &SystemBusWatch::onEvent, this)) {
  watchFolder();
}

SystemBusWatch::~SystemBusWatch() {
  mLoop->watch_free(mWatch);
  close(mDescriptor);
}

void SystemBusWatch::watchFolder() const {
  // A bus makes its socket, listens, and lets everybody in last, which changes an attribute.
  constexpr std::uint32_t kEvents = IN_CREATE | IN_ATTRIB | IN_MOVED_TO;
  // A folder that is not there yet appears in the next one above it.
  std::filesystem::path folder = busSocket().parent_path();
  while (inotify_add_watch(mDescriptor, folder.c_str(), kEvents) < 0 &&
         folder.has_relative_path()) {
    folder = folder.parent_path();
  }
}

void SystemBusWatch::onEvent(AvahiWatch*, int descriptor, AvahiWatchEvent, void* self) {
  std::array<char, 4096> events;
  while (read(descriptor, events.data(), events.size()) > 0) {
  }
  const auto& watch = *static_cast<SystemBusWatch*>(self);
  watch.watchFolder();
  watch.mChanged();
}

}  // namespace velor::discovery
