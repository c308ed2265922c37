// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "platform/audio/builtin/AudioUnitTable.h"

namespace velor::audio {

/// Nodes, the units that stand for them once it is open, and who feeds whom. One
/// node is an output unit, which pulls the others. All calls with the control of
/// the units held.
class AudioGraph {
 public:
  AudioGraph(AudioUnitTable& units, AudioDeviceTable& devices) : mUnits(units), mDevices(devices) {}
  /// Stops it, and disposes of its units.
  ~AudioGraph();
  AudioGraph(const AudioGraph&) = delete;
  AudioGraph& operator=(const AudioGraph&) = delete;

  OSStatus addNode(const AudioComponentDescription& description, AUNode* node);
  OSStatus open();
  OSStatus nodeInfo(AUNode node, AudioUnit* unit);
  OSStatus connect(AUNode source, std::uint32_t output, AUNode destination, std::uint32_t input);
  OSStatus initialize();
  OSStatus start();
  OSStatus stop();
  bool contains(AudioUnit unit) const;

 private:
  struct Node {
    AudioComponentDescription description;
    AudioUnit unit = 0;
    AUNode source = 0;  // what is connected to its input
  };

  Node* find(AUNode node);
  bool feeds(AUNode node, AUNode other);
  OSStatus initialize(Node& node);
  AudioUnit outputUnit() const;

  AudioUnitTable& mUnits;
  AudioDeviceTable& mDevices;
  std::vector<Node> mNodes;  // the node's number is the index and 1
  bool mOpen = false;
};

}  // namespace velor::audio
