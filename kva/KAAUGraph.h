// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kva/KAAudioUnit.h"

namespace velor {

class KADefaultOutputUnit;

/// A graph of audio units, of which exactly one plays and pulls the others. When it goes, it
/// is stopped, and its units go with it. Any thread but a real-time callback, one at a time.
class KAAUGraph {
 public:
  KAAUGraph() = default;
  ~KAAUGraph();
  KAAUGraph(const KAAUGraph&) = delete;
  KAAUGraph& operator=(const KAAUGraph&) = delete;

  KANode addNode(KAComponent component);
  /// The node's unit, from `open` on.
  std::shared_ptr<KAAudioUnit> nodeInfo(KANode node) const;
  /// `output` and `input` are 0.
  void connectNode(KANode source, std::uint32_t output, KANode destinationNode,
                   std::uint32_t input);

  // In this order.
  void open();
  void initialize();
  void start();
  void stop();

 private:
  struct Node {
    KAComponent component;
    KANode source = 0;  // that feeds it
    std::shared_ptr<KAAudioUnit> unit;
  };

  bool contains(KANode node) const;
  Node& at(KANode node) { return mNodes[static_cast<std::size_t>(node) - 1]; }
  const Node& at(KANode node) const { return mNodes[static_cast<std::size_t>(node) - 1]; }
  bool feeds(KANode node, KANode other) const;
  void initialize(Node& node);
  KADefaultOutputUnit* output() const;

  std::vector<Node> mNodes;
};

}  // namespace velor
