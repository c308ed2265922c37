// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

namespace velor::discovery {

/// Asks the system, in the background, whether it takes a host's name to an address;
/// without a module for names of ".local" in its resolver it does not, and may need
/// long to say so.
class HostNameCheck {
 public:
  /// `address` in text, without a scope.
  HostNameCheck(const std::string& name, const std::string& address);
  /// What is not answered yet is left to the system.
  ~HostNameCheck();
  HostNameCheck(const HostNameCheck&) = delete;
  HostNameCheck& operator=(const HostNameCheck&) = delete;

  bool isDone() const;
  /// False also while it is not done.
  bool nameLeadsToAddress() const;

 private:
  struct Request;

  std::unique_ptr<Request> mRequest;
};

}  // namespace velor::discovery
