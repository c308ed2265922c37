// SPDX-License-Identifier: MIT
#include "kva/KAAUGraph.h"

#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {

KAAUGraph::KAAUGraph() {
  KACheck("-[KAAUGraph init]", audio::service().NewAUGraph(&mGraph));
}

KAAUGraph::~KAAUGraph() {
  audio::service().DisposeAUGraph(mGraph);
}

audio::AUNode KAAUGraph::addNode(const audio::AudioComponentDescription& description) {
  audio::AUNode node = 0;
  KACheck("-[KAAUGraph addNode:]", audio::service().AUGraphAddNode(mGraph, description, &node));
  return node;
}

audio::AudioUnit KAAUGraph::nodeInfo(audio::AUNode node) const {
  audio::AudioUnit unit = 0;
  KACheck("-[KAAUGraph nodeInfo:]", audio::service().AUGraphNodeInfo(mGraph, node, &unit));
  return unit;
}

void KAAUGraph::connectNode(audio::AUNode source, std::uint32_t output,
                            audio::AUNode destinationNode, std::uint32_t input) {
  KACheck("-[KAAUGraph connectNode:output:destinationNode:input:]",
          audio::service().AUGraphConnectNodeInput(mGraph, source, output, destinationNode, input));
}

void KAAUGraph::open() {
  KACheck("-[KAAUGraph open]", audio::service().AUGraphOpen(mGraph));
}

void KAAUGraph::initialize() {
  KACheck("-[KAAUGraph initialize]", audio::service().AUGraphInitialize(mGraph));
}

void KAAUGraph::start() {
  KACheck("-[KAAUGraph start]", audio::service().AUGraphStart(mGraph));
}

void KAAUGraph::stop() {
  KACheck("-[KAAUGraph stop]", audio::service().AUGraphStop(mGraph));
}

}  // namespace velor
