// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/AudioGeneratorGraph.h"

namespace velor {
namespace {

// Rounds the edges off: a signal of full bandwidth disturbs what lies beside its cable.
constexpr float kCutoff = 14000;  // Hz
constexpr float kResonance = 0.70710677F;

}  // namespace

AudioGeneratorGraph::AudioGeneratorGraph(audio::AudioObjectID device, const std::string& nickName,
                                         AudioGeneratorRefCon& samples)
    : mOutputNode(mGraph.addNode(KAHALDeviceOutputUnit::componentDescription())),
      mLPFilterNode(mGraph.addNode(audio::kLowPassComponent)),
      mConverterNode(mGraph.addNode(audio::kConverterComponent)),
      mOpen(mGraph),
      mOutputUnit(mOutputNode, mGraph),
      mLPFilterUnit(mLPFilterNode, mGraph),
      mConverterUnit(mConverterNode, mGraph) {
  mOutputUnit.setDeviceID(device);
  if (!nickName.empty()) {
    setNickName(nickName);
  }
  mConverterUnit.setInputRenderCallback(&AudioGeneratorRefCon::render, &samples, 0);
  mLPFilterUnit.setParameter(audio::kLowPassParam_CutoffFrequency, audio::kAudioUnitScope_Global, 0,
                             kCutoff, 0);
  mLPFilterUnit.setParameter(audio::kLowPassParam_Resonance, audio::kAudioUnitScope_Global, 0,
                             kResonance, 0);
  mGraph.connectNode(mConverterNode, 0, mLPFilterNode, 0);
  mGraph.connectNode(mLPFilterNode, 0, mOutputNode, 0);
  audio::AudioStreamBasicDescription format =
      mConverterUnit.getStreamDescription(audio::kAudioUnitScope_Input, 0);
  format.mSampleRate = mOutputUnit.sampleRate();
  mConverterUnit.setStreamDescription(format, audio::kAudioUnitScope_Input, 0);
  mConverterUnit.setStreamDescription(format, audio::kAudioUnitScope_Output, 0);
  mLPFilterUnit.setStreamDescription(format, audio::kAudioUnitScope_Output, 0);
  mGraph.initialize();
  // The ring is addressed by the device's own count.
  const std::uint32_t zero = 0;
  mOutputUnit.setPropertyGlobal(audio::kAudioOutputUnitProperty_StartTimestampsAtZero, &zero,
                                sizeof zero);
}

AudioGeneratorGraph::~AudioGeneratorGraph() {
  for (const audio::AudioUnitPropertyID property : mListened) {
    audio::service().AudioUnitRemovePropertyListenerWithUserData(mOutputUnit.au(), property,
                                                                 mListener, mUserData);
  }
}

std::uint32_t AudioGeneratorGraph::latency() const {
  return mOutputUnit.getPropertyUInt32(audio::kAudioDevicePropertyLatency,
                                       audio::kAudioUnitScope_Output, 0);
}

std::uint32_t AudioGeneratorGraph::period() const {
  return mOutputUnit.getPropertyUInt32(audio::kAudioDevicePropertyBufferFrameSize,
                                       audio::kAudioUnitScope_Global, 0);
}

double AudioGeneratorGraph::sampleRate() const {
  return mConverterUnit.getPropertyFloat64(audio::kAudioUnitProperty_SampleRate,
                                           audio::kAudioUnitScope_Input, 0);
}

void AudioGeneratorGraph::setNickName(const std::string& name) {
  mOutputUnit.setPropertyGlobal(audio::kAudioUnitProperty_NickName, name.data(),
                                static_cast<std::uint32_t>(name.size()));
}

void AudioGeneratorGraph::setChannelMap(std::span<const std::int32_t> map) {
  mOutputUnit.setProperty(audio::kAudioOutputUnitProperty_ChannelMap, audio::kAudioUnitScope_Output,
                          0, map.data(), static_cast<std::uint32_t>(map.size_bytes()));
}

void AudioGeneratorGraph::listen(audio::AudioUnitPropertyListenerProc listener, void* userData) {
  mListener = listener;
  mUserData = userData;
  for (const audio::AudioUnitPropertyID property :
       {audio::kAudioOutputUnitProperty_CurrentDevice,
        audio::AudioUnitPropertyID{audio::kAudioDevicePropertyNominalSampleRate}}) {
    mOutputUnit.addPropertyListener(property, listener, userData);
    mListened.push_back(property);
  }
}

}  // namespace velor
