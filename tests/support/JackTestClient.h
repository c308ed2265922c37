// SPDX-License-Identifier: MIT
#pragma once

#include <jack/jack.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/jack/JackLibrary.h"

// A function of the client library that the program itself has no use for.
#define VELOR_JACK_CALL(name) (reinterpret_cast<decltype(&::name)>(mJack->symbol(#name)))

namespace velor::test {

/// Copies to or from a port buffer. Two clients of one server in this process share the
/// memory of its buffers. The server has them run one after the other by futexes and by its
/// own process, which ThreadSanitizer can't see; its report alone would stall the callback
/// for longer than the server waits. A library call would be watched, too.
template <class T>
__attribute__((no_sanitize("thread"))) void copyUnwatched(const T* from, std::size_t count, T* to) {
  for (std::size_t i = 0; i < count; ++i) {
    const_cast<volatile T*>(to)[i] = from[i];
  }
}

/// A JACK client that knows nothing of the program under test, but for the way in
/// which the client library is found.
class JackTestClient {
 public:
  JackTestClient(const JackTestClient&) = delete;
  JackTestClient& operator=(const JackTestClient&) = delete;

  /// The full name of a port of this client.
  std::string fullName(const std::string& port) const;
  bool connect(const std::string& from, const std::string& to);
  bool disconnect(const std::string& from, const std::string& to);
  bool isConnected(const std::string& from, const std::string& to) const;
  /// All ports of the server whose names match the regular expression, of the type of
  /// this client's own ports or of another one.
  std::vector<std::string> ports(const std::string& pattern, const char* type = nullptr) const;

 protected:
  /// Throws where no server runs.
  JackTestClient(const std::string& name, const char* portType);
  ~JackTestClient() = default;
  jack_port_t* registerPort(const std::string& name, const char* type, unsigned long flags);
  /// The callbacks have ended then; for the destructor of whoever has some.
  void close();

  std::shared_ptr<const jack::JackLibrary> mJack;
  jack_client_t* mClient = nullptr;

 private:
  // Frees the list of the library.
  std::vector<std::string> taken(const char** names) const;

  const char* const mPortType;
};

}  // namespace velor::test
