// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"

#include <netdb.h>

#include <system_error>
#include <utility>

namespace velor {

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::badConfig(std::string text) {
  return {kGCDAsyncUdpSocketErrorDomain, kGCDAsyncUdpSocketBadConfigError, std::move(text), {}};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::badParam(std::string text) {
  return {kGCDAsyncUdpSocketErrorDomain, kGCDAsyncUdpSocketBadParamError, std::move(text), {}};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::sendTimeout() {
  return {kGCDAsyncUdpSocketErrorDomain,
          kGCDAsyncUdpSocketSendTimeoutError,
          "Send operation timed out",
          {}};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::closed() {
  return {kGCDAsyncUdpSocketErrorDomain, kGCDAsyncUdpSocketClosedError, "Socket closed", {}};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::other(std::string text) {
  return {kGCDAsyncUdpSocketErrorDomain, kGCDAsyncUdpSocketOtherError, std::move(text), {}};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::posix(int errorNumber, std::string reason) {
  return {kPOSIXErrorDomain, errorNumber, std::generic_category().message(errorNumber),
          std::move(reason)};
}

GCDAsyncUdpSocketError GCDAsyncUdpSocketError::netDB(int code) {
  return {kNetDBErrorDomain, code, gai_strerror(code), {}};
}

std::string GCDAsyncUdpSocketError::description() const {
  return reason.empty() ? text : text + " (" + reason + ")";
}

}  // namespace velor
