// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/AudioGraph.h"

#include <algorithm>

namespace velor::audio {

AudioGraph::~AudioGraph() {
  stop();
  for (const Node& node : mNodes) {
    mUnits.dispose(node.unit);
  }
}

AudioGraph::Node* AudioGraph::find(AUNode node) {
  return node >= 1 && static_cast<std::size_t>(node) <= mNodes.size()
             ? &mNodes[static_cast<std::size_t>(node) - 1]
             : nullptr;
}

AudioUnit AudioGraph::outputUnit() const {
  const auto it = std::find_if(mNodes.begin(), mNodes.end(), [](const Node& node) {
    return node.description == kHALOutputComponent;
  });
  return it == mNodes.end() ? 0 : it->unit;
}

bool AudioGraph::contains(AudioUnit unit) const {
  return std::any_of(mNodes.begin(), mNodes.end(),
                     [unit](const Node& node) { return node.unit == unit; });
}

OSStatus AudioGraph::addNode(const AudioComponentDescription& description, AUNode* node) {
  if (mOpen) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (!AudioUnitTable::hasComponent(description)) {
    return kAUGraphErr_NodeNotFound;
  }
  const bool isOutput = description == kHALOutputComponent;
  if (isOutput && std::any_of(mNodes.begin(), mNodes.end(), [](const Node& other) {
        return other.description == kHALOutputComponent;
      })) {
    return kAUGraphErr_OutputNodeErr;
  }
  mNodes.push_back({.description = description});
  *node = static_cast<AUNode>(mNodes.size());
  return 0;
}

OSStatus AudioGraph::open() {
  for (Node& node : mNodes) {
    if (node.unit == 0) {
      node.unit = mUnits.make(node.description, mDevices);
      if (node.unit == 0) {
        return kAudioHardwareUnspecifiedError;
      }
    }
  }
  mOpen = true;
  return 0;
}

OSStatus AudioGraph::nodeInfo(AUNode node, AudioUnit* unit) {
  const Node* found = find(node);
  if (found == nullptr) {
    return kAUGraphErr_NodeNotFound;
  }
  *unit = found->unit;
  return 0;
}

bool AudioGraph::feeds(AUNode node, AUNode other) {
  while (other != 0) {
    if (other == node) {
      return true;
    }
    other = find(other)->source;
  }
  return false;
}

OSStatus AudioGraph::connect(AUNode source, std::uint32_t output, AUNode destination,
                             std::uint32_t input) {
  const Node* from = find(source);
  Node* to = find(destination);
  if (from == nullptr || to == nullptr) {
    return kAUGraphErr_NodeNotFound;
  }
  const AudioUnit unit = outputUnit();
  if (unit != 0 && mUnits.find(unit)->isInitialized()) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  const bool isTaken = std::any_of(mNodes.begin(), mNodes.end(),
                                   [source](const Node& node) { return node.source == source; });
  if (output != 0 || input != 0 || to->source != 0 || isTaken ||
      from->description == kHALOutputComponent || feeds(destination, source)) {
    return kAUGraphErr_InvalidConnection;
  }
  to->source = source;
  return 0;
}

// The sources first: a unit takes its format from its source.
OSStatus AudioGraph::initialize(Node& node) {
  RenderUnit& unit = *mUnits.find(node.unit);
  if (unit.isInitialized()) {
    return 0;
  }
  if (node.source != 0) {
    Node& source = *find(node.source);
    const OSStatus status = initialize(source);
    if (status != 0) {
      return status;
    }
    const OSStatus connected = unit.connect(*mUnits.find(source.unit));
    if (connected != 0) {
      return connected;
    }
  }
  return unit.initialize();
}

OSStatus AudioGraph::initialize() {
  if (!mOpen) {
    return kAudioUnitErr_Uninitialized;
  }
  if (outputUnit() == 0) {
    return kAUGraphErr_OutputNodeErr;
  }
  for (Node& node : mNodes) {
    const OSStatus status = initialize(node);
    if (status != 0) {
      return status;
    }
  }
  return 0;
}

OSStatus AudioGraph::start() {
  return outputUnit() == 0 ? kAUGraphErr_OutputNodeErr : mUnits.start(outputUnit());
}

OSStatus AudioGraph::stop() {
  return outputUnit() == 0 ? kAUGraphErr_OutputNodeErr : mUnits.stop(outputUnit());
}

}  // namespace velor::audio
