// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "CocoaAsyncSocket/SocketAddress.h"

namespace velor {

/// The datagrams of one reading of a socket, in the order of arrival. They are packed, so
/// that many small ones take little room.
class DatagramBatch {
 public:
  void add(const SocketAddress& from, std::span<const std::uint8_t> data) {
    mDatagrams.push_back({from, mBytes.size(), data.size()});
    mBytes.insert(mBytes.end(), data.begin(), data.end());
  }

  std::size_t count() const noexcept { return mDatagrams.size(); }
  std::span<const std::uint8_t> data(std::size_t index) const noexcept {
    const Datagram& datagram = mDatagrams[index];
    return std::span(mBytes).subspan(datagram.offset, datagram.size);
  }
  const SocketAddress& from(std::size_t index) const noexcept { return mDatagrams[index].from; }

  /// Number of datagrams that the system has dropped so far because the socket's buffer was
  /// full, as reported with the last one read; it wraps. 0 without a report.
  std::uint32_t dropped = 0;

 private:
  struct Datagram {
    SocketAddress from;
    std::size_t offset;
    std::size_t size;
  };

  std::vector<std::uint8_t> mBytes;
  std::vector<Datagram> mDatagrams;
};

}  // namespace velor
