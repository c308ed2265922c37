// SPDX-License-Identifier: MIT
#pragma once

#include <jack/jack.h>
#include <jack/metadata.h>
#include <jack/midiport.h>

#include <memory>
#include <string>
#include <vector>

namespace velor::jack {

/// The metadata under which a port has a name for people.
inline constexpr const char* kPrettyNameKey = "http://jackaudio.org/metadata/pretty-name";

/// The JACK client library, loaded at run time: the program runs with JACK, with
/// PipeWire's stand-in for it, with both installed, or with neither. Members bear
/// the names of the functions.
class JackLibrary {
 public:
  /// Where libraries may lie, in the order in which to try them: each knows only
  /// its own server.
  static std::vector<std::string> paths();

  /// Null when there is none at the path, or one that lacks a function. A library
  /// stays loaded for good.
  static std::shared_ptr<const JackLibrary> load(const std::string& path);

  ~JackLibrary();
  JackLibrary(const JackLibrary&) = delete;
  JackLibrary& operator=(const JackLibrary&) = delete;

  /// Any other function of the library; null when it has none of that name.
  void* symbol(const char* name) const noexcept;

#define VELOR_JACK_FUNCTIONS(X)          \
  X(jack_activate)                       \
  X(jack_client_close)                   \
  X(jack_client_open)                    \
  X(jack_connect)                        \
  X(jack_disconnect)                     \
  X(jack_free)                           \
  X(jack_get_buffer_size)                \
  X(jack_get_client_name)                \
  X(jack_get_cycle_times)                \
  X(jack_get_ports)                      \
  X(jack_get_property)                   \
  X(jack_get_sample_rate)                \
  X(jack_get_time)                       \
  X(jack_midi_clear_buffer)              \
  X(jack_midi_event_get)                 \
  X(jack_midi_event_reserve)             \
  X(jack_midi_get_event_count)           \
  X(jack_on_info_shutdown)               \
  X(jack_on_shutdown)                    \
  X(jack_port_by_id)                     \
  X(jack_port_by_name)                   \
  X(jack_port_flags)                     \
  X(jack_port_get_all_connections)       \
  X(jack_port_get_buffer)                \
  X(jack_port_get_latency_range)         \
  X(jack_port_is_mine)                   \
  X(jack_port_name)                      \
  X(jack_port_register)                  \
  X(jack_port_unregister)                \
  X(jack_port_uuid)                      \
  X(jack_remove_property)                \
  X(jack_set_error_function)             \
  X(jack_set_graph_order_callback)       \
  X(jack_set_info_function)              \
  X(jack_set_port_connect_callback)      \
  X(jack_set_port_registration_callback) \
  X(jack_set_process_callback)           \
  X(jack_set_property)                   \
  X(jack_set_property_change_callback)   \
  X(jack_set_xrun_callback)

#define VELOR_JACK_MEMBER(name) decltype(&::name) name = nullptr;
  VELOR_JACK_FUNCTIONS(VELOR_JACK_MEMBER)
#undef VELOR_JACK_MEMBER

  /// The name for people of a port or a client; empty when it has none. May wait for the disk.
  std::string prettyName(jack_uuid_t subject) const;

 private:
  explicit JackLibrary(void* handle) : mHandle(handle) {}

  void* const mHandle;
};

}  // namespace velor::jack
