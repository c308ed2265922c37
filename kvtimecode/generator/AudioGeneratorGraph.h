// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kva/KAAUGraph.h"
#include "kva/KAAudioUnit.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "kvtimecode/generator/AudioGeneratorRefCon.h"

namespace velor {

/// Plays the generator's samples through a graph of three units: converter, low-pass and
/// output. Main queue; failures of the audio service raise KVException "err".
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
  audio::AudioChannelMap channelMap() const;
  void setChannelMap(const audio::AudioChannelMap& map);

  /// Calls `listener`, on any thread, when the device or its rate changes, until the graph
  /// ends.
  void listen(KAAudioUnit::PropertyListener listener, void* userData);
  void start() { mGraph.start(); }
  void stop() { mGraph.stop(); }
  /// Starts the output again, with no sound left in the low-pass.
  void restart();
  KAHALDeviceOutputUnit& output() noexcept { return *mOutputUnit; }

 private:
  KAAUGraph mGraph;
  std::shared_ptr<KAHALDeviceOutputUnit> mOutputUnit;
  std::shared_ptr<KAAudioUnit> mLPFilterUnit;
  std::shared_ptr<KAAudioUnit> mConverterUnit;
  KAAudioUnit::PropertyListener mListener = nullptr;
  void* mUserData = nullptr;
};

}  // namespace velor
