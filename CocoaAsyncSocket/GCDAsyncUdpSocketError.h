// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace velor {

inline constexpr char kGCDAsyncUdpSocketErrorDomain[] = "GCDAsyncUdpSocketErrorDomain";
inline constexpr char kPOSIXErrorDomain[] = "NSPOSIXErrorDomain";
inline constexpr char kNetDBErrorDomain[] = "kCFStreamErrorDomainNetDB";

/// Codes of kGCDAsyncUdpSocketErrorDomain.
enum GCDAsyncUdpSocketErrorCode : int {
  kGCDAsyncUdpSocketBadConfigError = 1,  ///< operations in the wrong order
  kGCDAsyncUdpSocketBadParamError = 2,
  kGCDAsyncUdpSocketSendTimeoutError = 3,
  kGCDAsyncUdpSocketClosedError = 4,
  kGCDAsyncUdpSocketOtherError = 5,
};

/// Why an operation of a socket failed. Callers decide by domain and code.
struct GCDAsyncUdpSocketError {
  std::string domain;
  int code = 0;        ///< of that domain: the socket's own, errno or getaddrinfo's
  std::string text;    ///< for people; the system's text for errno and getaddrinfo
  std::string reason;  ///< for errno, the call that failed; otherwise empty

  static GCDAsyncUdpSocketError badConfig(std::string text);
  static GCDAsyncUdpSocketError badParam(std::string text);
  static GCDAsyncUdpSocketError sendTimeout();
  static GCDAsyncUdpSocketError closed();
  static GCDAsyncUdpSocketError other(std::string text);
  static GCDAsyncUdpSocketError posix(int errorNumber, std::string reason);
  static GCDAsyncUdpSocketError netDB(int code);

  /// Text and reason in one line.
  std::string description() const;
};

/// The result of an operation of a socket: nothing, or why it failed.
using GCDAsyncUdpSocketResult = tl::expected<void, GCDAsyncUdpSocketError>;

inline tl::unexpected<GCDAsyncUdpSocketError> failure(GCDAsyncUdpSocketError error) {
  return tl::unexpected<GCDAsyncUdpSocketError>(std::move(error));
}

}  // namespace velor
