// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor {

inline constexpr char kGCDAsyncUdpSocketErrorDomain[] = "GCDAsyncUdpSocketErrorDomain";
inline constexpr char kPOSIXErrorDomain[] = "NSPOSIXErrorDomain";
inline constexpr char kNetDBErrorDomain[] = "kCFStreamErrorDomainNetDB";

/// Codes of kGCDAsyncUdpSocketErrorDomain.
enum GCDAsyncUdpSocketErrorCode : int {
  kGCDAsyncUdpSocketBadConfigError = 1,  ///< operations in a wrong order
  kGCDAsyncUdpSocketBadParamError = 2,
  kGCDAsyncUdpSocketSendTimeoutError = 3,
  kGCDAsyncUdpSocketClosedError = 4,
  kGCDAsyncUdpSocketOtherError = 5,
};

/// What went wrong with a socket, for people to read.
struct GCDAsyncUdpSocketError {
  std::string domain;
  int code = 0;        ///< a code of the socket's, an errno, or one of getaddrinfo
  std::string text;    ///< for an errno and getaddrinfo, the system's text
  std::string reason;  ///< for an errno, the call that failed; else empty

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

}  // namespace velor
