// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kva/KAAUGraph.h"
#include "kva/KAAudioUnit.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "kvtimecode/generator/AudioGeneratorRefCon.h"
#include "platform/audio/AudioService.h"

namespace velor {

/// What plays the generator's samples: converter, low-pass and output, units of a graph,
/// and who hears of changes to them. Main queue; failures of the audio service raise
/// KVException "err".
class AudioGeneratorGraph {
 public:
  /// On the device, whose ports are named after `nickName` unless that is empty.
  AudioGeneratorGraph(audio::AudioObjectID device, const std::string& nickName,
                      AudioGeneratorRefCon& samples);
  ~AudioGeneratorGraph();
  AudioGeneratorGraph(const AudioGeneratorGraph&) = delete;
  AudioGeneratorGraph& operator=(const AudioGeneratorGraph&) = delete;

  /// Of the device, in samples.
  std::uint32_t latency() const;
  std::uint32_t period() const;
  /// Hz; that of the device when the graph was made.
  double sampleRate() const;
  /// Ports get it when the output starts.
  void setNickName(const std::string& name);
  void setChannelMap(std::span<const std::int32_t> map);

  /// From now on `listener` hears of another device and another rate, on any thread; until
  /// the graph ends.
  void listen(audio::AudioUnitPropertyListenerProc listener, void* userData);
  void start() { mGraph.start(); }
  void stop() { mGraph.stop(); }
  KAHALDeviceOutputUnit& output() noexcept { return mOutputUnit; }

 private:
  struct Open {
    explicit Open(KAAUGraph& graph) { graph.open(); }
  };

  KAAUGraph mGraph;
  const audio::AUNode mOutputNode;
  const audio::AUNode mLPFilterNode;
  const audio::AUNode mConverterNode;
  const Open mOpen;  // the units are there from here on
  KAHALDeviceOutputUnit mOutputUnit;
  KAAudioUnit mLPFilterUnit;
  KAAudioUnit mConverterUnit;
  audio::AudioUnitPropertyListenerProc mListener = nullptr;
  void* mUserData = nullptr;
  std::vector<audio::AudioUnitPropertyID> mListened;
};

}  // namespace velor
