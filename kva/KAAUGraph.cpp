// SPDX-License-Identifier: MIT
#include "kva/KAAUGraph.h"

#include <algorithm>

#include "kva/KACheck.h"
#include "kva/KAEffectUnit.h"
#include "kva/KAHALDeviceOutputUnit.h"

namespace velor {

KAAUGraph::~KAAUGraph() {
  if (KADefaultOutputUnit* unit = output(); unit != nullptr) {
    unit->stop();  // before the units that it pulls go
  }
}

bool KAAUGraph::contains(KANode node) const {
  return node >= 1 && static_cast<std::size_t>(node) <= mNodes.size();
}

KADefaultOutputUnit* KAAUGraph::output() const {
  for (const Node& node : mNodes) {
    if (auto* unit = dynamic_cast<KADefaultOutputUnit*>(node.unit.get())) {
      return unit;
    }
  }
  return nullptr;
}

KANode KAAUGraph::addNode(KAComponent component) {
  const bool isSecondOutput = component == KAComponent::halOutput &&
                              std::any_of(mNodes.begin(), mNodes.end(), [](const Node& other) {
                                return other.component == KAComponent::halOutput;
                              });
  KACheck("KAAUGraph::addNode", isSecondOutput ? audio::kAUGraphErr_OutputNodeErr : 0);
  mNodes.push_back({component, 0, nullptr});
  return static_cast<KANode>(mNodes.size());
}

void KAAUGraph::open() {
  for (Node& node : mNodes) {
    if (node.unit != nullptr) {
      continue;
    }
    if (node.component == KAComponent::halOutput) {
      node.unit = std::make_shared<KAHALDeviceOutputUnit>();
    } else {
      node.unit = std::make_shared<KAEffectUnit>(node.component);
    }
  }
}

std::shared_ptr<KAAudioUnit> KAAUGraph::nodeInfo(KANode node) const {
  KACheck("KAAUGraph::nodeInfo",
          contains(node) && at(node).unit != nullptr ? 0 : audio::kAUGraphErr_NodeNotFound);
  return at(node).unit;
}

bool KAAUGraph::feeds(KANode node, KANode other) const {
  while (other != 0 && other != node) {
    other = at(other).source;
  }
  return other == node;
}

void KAAUGraph::connectNode(KANode source, std::uint32_t output, KANode destinationNode,
                            std::uint32_t input) {
  constexpr const char* kMethod = "KAAUGraph::connectNode";
  KACheck(kMethod,
          contains(source) && contains(destinationNode) ? 0 : audio::kAUGraphErr_NodeNotFound);
  Node& to = at(destinationNode);
  const bool isTaken = std::any_of(mNodes.begin(), mNodes.end(),
                                   [source](const Node& node) { return node.source == source; });
  const bool isImpossible = output != 0 || input != 0 || to.source != 0 || isTaken ||
                            at(source).component == KAComponent::halOutput ||
                            feeds(destinationNode, source);
  KACheck(kMethod, isImpossible ? audio::kAUGraphErr_InvalidConnection : 0);
  to.source = source;
}

// The sources first: a unit takes its format from its source.
void KAAUGraph::initialize(Node& node) {
  if (node.unit->isInitialized()) {
    return;
  }
  if (node.source != 0) {
    Node& source = at(node.source);
    initialize(source);
    node.unit->connect(*source.unit);
  }
  node.unit->initialize();
}

void KAAUGraph::initialize() {
  KACheck("KAAUGraph::initialize", output() == nullptr ? audio::kAUGraphErr_OutputNodeErr : 0);
  for (Node& node : mNodes) {
    initialize(node);
  }
}

void KAAUGraph::start() {
  KACheck("KAAUGraph::start", output() == nullptr ? audio::kAUGraphErr_OutputNodeErr : 0);
  output()->start();
}

void KAAUGraph::stop() {
  KACheck("KAAUGraph::stop", output() == nullptr ? audio::kAUGraphErr_OutputNodeErr : 0);
  output()->stop();
}

}  // namespace velor
