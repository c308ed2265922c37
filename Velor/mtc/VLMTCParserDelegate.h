// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kvtimecode/SMPTETime.h"

namespace velor {

class VLMTCParser;

/// Hears from a parser what is not the completion of a block.
class VLMTCParserDelegate {
 public:
  virtual ~VLMTCParserDelegate() = default;

  /// No block was completed for ten frames. Queue: main.
  virtual void parserDidStopReading(VLMTCParser& parser) = 0;

  /// A message that locates, while no time runs. Thread: that of `addPacket`.
  virtual void parserDidReceiveFFMsg(VLMTCParser& parser, const SMPTETime& time) = 0;

  /// A token of sendLoopDetectionToken. A delegate may ignore it.
  /// Thread: that of `addPacket`.
  virtual void parserDidReceiveLoopToken(VLMTCParser& parser, std::uint32_t token) {
    static_cast<void>(parser);
    static_cast<void>(token);
  }
};

}  // namespace velor
