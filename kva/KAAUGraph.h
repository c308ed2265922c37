// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/audio/AudioTypes.h"

namespace velor {

/// A graph of audio units. When it goes, it is stopped, and its units go with it.
/// Any thread but a real-time callback, one at a time.
class KAAUGraph {
 public:
  KAAUGraph();
  ~KAAUGraph();
  KAAUGraph(const KAAUGraph&) = delete;
  KAAUGraph& operator=(const KAAUGraph&) = delete;

  audio::AUNode addNode(const audio::AudioComponentDescription& description);
  /// The node's unit, from `open` on.
  audio::AudioUnit nodeInfo(audio::AUNode node) const;
  void connectNode(audio::AUNode source, std::uint32_t output, audio::AUNode destinationNode,
                   std::uint32_t input);

  // In this order.
  void open();
  void initialize();
  void start();
  void stop();

 private:
  audio::AUGraph mGraph = 0;
};

}  // namespace velor
