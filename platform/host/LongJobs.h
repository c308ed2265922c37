// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "CocoaAsyncSocket/SocketAddress.h"
#include "platform/host/Queue.h"

namespace velor {

/// Looks up the addresses of hosts on threads of its own, since the system may
/// take half a minute to say that it knows nothing.
class UDPNameResolver {
 public:
  struct Answer {
    int code = 0;  ///< of getaddrinfo; 0 when there are addresses
    std::vector<SocketAddress> addresses;
  };

  /// One look-up. `run` may take long, and touches nothing that ends with the
  /// resolver. `cancel` makes it return soon; empty where nothing can.
  struct LookUp {
    std::function<Answer()> run;
    std::function<void()> cancel;
  };

  /// Look-ups under way at once; the others wait for their turn.
  static constexpr std::size_t kMostThreads = 16;

  /// All of it runs on the queue, the answers too.
  explicit UDPNameResolver(host::Queue& queue);
  /// Answers nothing any more. A look-up that cannot be cancelled is left to end
  /// by itself, so that the program need not wait for it. Any thread, once the
  /// queue runs nothing.
  ~UDPNameResolver();
  UDPNameResolver(const UDPNameResolver&) = delete;
  UDPNameResolver& operator=(const UDPNameResolver&) = delete;

  void add(LookUp lookUp, std::function<void(Answer)> answer);

 private:
  struct Running;
  struct LeftBehind;
  struct Gate;

  void startNext() KV_RUNS_ON(mQueue);
  void ended(const std::shared_ptr<Running>& running) KV_RUNS_ON(mQueue);

  host::Queue& mQueue;
  const std::shared_ptr<Gate> mGate;
  std::deque<std::shared_ptr<Running>> mWaiting;   // the queue's
  std::vector<std::shared_ptr<Running>> mRunning;  // the queue's
};

}  // namespace velor
