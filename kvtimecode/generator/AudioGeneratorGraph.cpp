// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/AudioGeneratorGraph.h"

namespace velor {
namespace {

// Rounds the edges off: a signal of full bandwidth disturbs what lies beside its cable.
constexpr float kCutoff = 14000;  // Hz
constexpr float kResonance = 0.70710677F;

constexpr KAUnitProperty kListened[] = {KAUnitProperty::currentDevice,
                                        KAUnitProperty::nominalSampleRate};

}  // namespace

AudioGeneratorGraph::AudioGeneratorGraph(audio::AudioObjectID device, const std::string& nickName,
                                         AudioGeneratorRefCon& samples) {
  const KANode outputNode = mGraph.addNode(KAHALDeviceOutputUnit::componentDescription());
  const KANode filterNode = mGraph.addNode(KAComponent::lowPass);
  const KANode converterNode = mGraph.addNode(KAComponent::converter);
  mGraph.open();
  mOutputUnit = std::static_pointer_cast<KAHALDeviceOutputUnit>(
      KAAudioUnit::initWithNode(outputNode, mGraph));
  mLPFilterUnit = KAAudioUnit::initWithNode(filterNode, mGraph);
  mConverterUnit = KAAudioUnit::initWithNode(converterNode, mGraph);
  mOutputUnit->setDeviceID(device);
  if (!nickName.empty()) {
    setNickName(nickName);
  }
  mConverterUnit->setInputRenderCallback(&AudioGeneratorRefCon::render, &samples, 0);
  mLPFilterUnit->setParameter(KAUnitParameter::lowPassCutoff, KAUnitScope::global, 0, kCutoff, 0);
  mLPFilterUnit->setParameter(KAUnitParameter::lowPassResonance, KAUnitScope::global, 0, kResonance,
                              0);
  mGraph.connectNode(converterNode, 0, filterNode, 0);
  mGraph.connectNode(filterNode, 0, outputNode, 0);
  audio::AudioStreamBasicDescription format =
      mConverterUnit->getStreamDescription(KAUnitScope::input, 0);
  format.mSampleRate = mOutputUnit->sampleRate();
  mConverterUnit->setStreamDescription(format, KAUnitScope::input, 0);
  mConverterUnit->setStreamDescription(format, KAUnitScope::output, 0);
  mLPFilterUnit->setStreamDescription(format, KAUnitScope::output, 0);
  mGraph.initialize();
  // The ring is addressed by the device's own count.
  mOutputUnit->setPropertyGlobal(KAUnitProperty::startTimestampsAtZero, 0U);
}

AudioGeneratorGraph::~AudioGeneratorGraph() {
  if (mListener != nullptr) {
    for (const KAUnitProperty property : kListened) {
      mOutputUnit->removePropertyListener(property, mListener, mUserData);
    }
  }
}

std::uint32_t AudioGeneratorGraph::latency() const {
  return mOutputUnit->getPropertyUInt32(KAUnitProperty::latency, KAUnitScope::output, 0);
}

std::uint32_t AudioGeneratorGraph::period() const {
  return mOutputUnit->getPropertyUInt32(KAUnitProperty::bufferFrameSize, KAUnitScope::global, 0);
}

double AudioGeneratorGraph::sampleRate() const {
  return mConverterUnit->getPropertyFloat64(KAUnitProperty::sampleRate, KAUnitScope::input, 0);
}

void AudioGeneratorGraph::setNickName(const std::string& name) {
  mOutputUnit->setPropertyGlobal(KAUnitProperty::nickName, name);
}

audio::AudioChannelMap AudioGeneratorGraph::channelMap() const {
  return std::get<audio::AudioChannelMap>(
      mOutputUnit->getProperty(KAUnitProperty::channelMap, KAUnitScope::output, 0));
}

void AudioGeneratorGraph::setChannelMap(const audio::AudioChannelMap& map) {
  mOutputUnit->setProperty(KAUnitProperty::channelMap, KAUnitScope::output, 0, map);
}

void AudioGeneratorGraph::listen(KAAudioUnit::PropertyListener listener, void* userData) {
  mListener = listener;
  mUserData = userData;
  for (const KAUnitProperty property : kListened) {
    mOutputUnit->addPropertyListener(property, listener, userData);
  }
}

void AudioGeneratorGraph::restart() {
  mOutputUnit->stop();
  mOutputUnit->reset();
  mLPFilterUnit->reset();
  mOutputUnit->start();
}

}  // namespace velor
