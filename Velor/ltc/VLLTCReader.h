// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/ltc/ltc_decoder.h"
#include "kva/KADeviceChoice.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/audio/AudioTypes.h"
#include "platform/host/Host.h"
#include "platform/host/LatestValue.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

class VLConditionedLTCDecoder;

/// Gets each frame that is read, in the cycle of audio in which it ended; as
/// LTCDecoderCallback, which tells what the values are.
using LTCReaderCallback = void (*)(const host::RealtimeContext& realtime, const SMPTETime& time,
                                   const std::uint8_t* userBits, void* refCon,
                                   std::uint64_t hostTime, double fps);

/// Reads LTC from one channel of an audio input. It listens from its making on.
///
/// The device that was chosen is remembered by its UID. When it is missing as the reader is
/// made, the reader listens to the default input until it returns, and then to the channel
/// that was chosen there; when it goes later, the reader hears nothing until it returns. At
/// a change of the device's rate it starts again, on the first channel.
///
/// Observable, on the main queue: "audioDeviceId", and with it the channel; and
/// "conditionsInput".
///
/// Main queue, unless stated otherwise. Failures of the audio service are logged; the
/// reader is silent then, and tries again when devices change.
class VLLTCReader final : public KVObservable,
                          public store::KeyedCoding,
                          public std::enable_shared_from_this<VLLTCReader> {
 public:
  static constexpr std::string_view kClassName = "VLLTCReader";

  /// In archives; they must never change.
  static constexpr std::string_view kDeviceKey = "deviceUID";
  static constexpr std::string_view kChannelKey = "inputChannel";
  static constexpr std::string_view kConditionKey = "conditionInput";  // written when it is on

  /// A cycle's result that is not a status of the audio service.
  static constexpr audio::OSStatus kNotSetUp = -7;

  /// A channel that no device has: nothing is read.
  static constexpr std::uint32_t kNoChannel = 0xFFFFFFFF;

  /// Listens to the device, or to the default input for 0. `nickName` is what its ports
  /// are called where a server shows them.
  static std::shared_ptr<VLLTCReader> initWithAudioObjectId(audio::AudioObjectID objectID,
                                                            std::string nickName = {});
  ~VLLTCReader() override;

  /// Listens to the device with this UID from `open` on; empty is the default input.
  static std::shared_ptr<VLLTCReader> initWithUID(const std::string& uid, std::uint32_t channel);
  /// Listens from `open` on. Raises KVException where the archive has no device.
  static std::shared_ptr<VLLTCReader> initWithCoder(store::KeyedUnarchiver& coder);
  /// Opens the device, once, after `initWithUID` or `initWithCoder`.
  void open();
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// The device that it listens to now; 0 while there is none. Any thread.
  audio::AudioObjectID audioDeviceId() const noexcept { return mAudioDeviceId.load(); }
  /// Chooses a device; the reader uses it when this returns. A device that is missing or has
  /// no inputs is refused, with a warning; the channel is the first in any case.
  void setAudioDeviceId(audio::AudioObjectID objectID);

  /// Whether it listens to the device that was chosen, and not to one that stands in.
  bool isOnChosenDevice() const noexcept { return mChoice.isChosenInUse(); }
  /// The UID of the audio device that was chosen, which may be missing; empty if none was.
  const std::string& chosenDeviceUID() const noexcept { return mChoice.chosenUID(); }

  /// From 0; beyond those of the device nothing is read. It follows its channel when the
  /// device gains or loses others. Any thread.
  std::uint32_t inputChannel() const noexcept { return mInputChannel.load(); }
  void setInputChannel(std::uint32_t channel);

  /// Whether it reads with VLConditionedLTCDecoder, for bad lines; off in a new reader. A
  /// change starts the reading again.
  bool conditionsInput() const noexcept { return mConditionsInput; }
  void setConditionsInput(bool conditions);

  /// Null removes it; the one before may be called once more then, unless the reader
  /// has been stopped. The rate is measured again. One thread at a time.
  void setCallback(LTCReaderCallback callback, void* refCon) noexcept;

  void setNickName(std::string nickName);

  void start();
  /// No callback runs any more when this returns.
  void stop();

 private:
  using Device = KADeviceChoice::Device;

  struct Consumer {
    LTCReaderCallback callback = nullptr;
    void* refCon = nullptr;
  };
  struct DisposeOfDecoder {
    void operator()(ltc_decoder* decoder) const noexcept { ltc_decoder_dispose(decoder); }
  };

  // The reference of the input callback. What is neither atomic nor a latest value
  // changes only while there is no unit that calls.
  struct ReaderRef {
    std::unique_ptr<ltc_decoder, DisposeOfDecoder> decoder;  // one of the two
    std::unique_ptr<VLConditionedLTCDecoder> conditioned;
    host::LatestValue<Consumer> consumer;
    // The audio thread's.
    const host::RealtimeContext* realtime = nullptr;  // of the cycle under way
  };

  VLLTCReader();
  void observeDevices();
  void settle();
  void setupInput(const Device& device);
  void giveNickName(KAHALDeviceOutputUnit& unit) const;
  bool makeDecoder(double sampleRate);
  void disposeGraph();
  bool isInputCurrent();
  void devicesChanged();
  void followDevice();
  void mapChannel(KAHALDeviceOutputUnit& unit) const;

  static void auPropertyListener(void* refCon, KAUnitProperty property);
  static audio::OSStatus inputCallback(const host::RealtimeContext& realtime, void* refCon,
                                       const audio::AudioTimeStamp& timeStamp, std::uint32_t frames,
                                       std::span<float* const> channels) noexcept;
  static void frameCallback(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
                            std::uint64_t hostTime, double fps);

  host::MainQueue& mMainQueue;
  KADeviceChoice mChoice;
  std::string mNickName;
  std::uint32_t mChosenChannel = 0;  // of the chosen device, while another stands in
  bool mHasCallback = false;
  bool mConditionsInput = false;
  bool mIsStopped = false;
  double mSampleRate = 0;  // for which the input was made
  std::vector<std::string> mChannelNames;
  std::atomic<std::uint32_t> mInputChannel{0};
  std::atomic<audio::AudioObjectID> mAudioDeviceId{audio::kAudioObjectUnknown};
  ReaderRef mReaderRef;
  std::unique_ptr<KAHALDeviceOutputUnit> mInputUnit;  // null while there is no device
  KVObserverToken mDeviceToken;
};

}  // namespace velor
