// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObservable.h"
#include "kva/KAAudioUnit.h"
#include "kva/KADeviceChoice.h"
#include "kva/KAHALAudioDevice.h"
#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/generator/LTCBatchWriter.h"
#include "platform/audio/AudioTypes.h"
#include "platform/host/Host.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

class AudioGeneratorGraph;

/// Makes LTC (SMPTE ST 12-1) on a device's output out of a time that comes in every two
/// frames. It has no clock of its own: it follows those calls, in the device's samples.
///
/// The audio thread encodes nothing. Each call writes six frames ahead, of which the
/// next overwrites four, so that a call that is late is bridged by frames with the
/// right numbers.
///
/// The device that was chosen is remembered by its UID. When it is missing as the generator
/// is made, LTC plays on the default output until it returns; when it goes later, LTC is
/// silent until it returns.
///
/// Observable, on the main queue: "fps", "tcstring", "isGenerating", "deviation",
/// "deviceStatus", "frameRateString" and "audioObjectId"; and by their setters "level",
/// "uiLevel" and "userbits".
///
/// Main queue, unless a comment says otherwise. Failures of the audio service raise KVException
/// "err" from what chooses a device; at a later change of devices they are logged.
class KVLTCGenerator final : public KVObservable,
                             public store::KeyedCoding,
                             public std::enable_shared_from_this<KVLTCGenerator> {
 public:
  static constexpr std::string_view kClassName = "KVLTCGenerator";

  /// In archives; they must never change.
  static constexpr std::string_view kDeviceKey = "audioDeviceUID";
  static constexpr std::string_view kUserBitsKey = "ub";
  static constexpr std::string_view kLevelKey = "level";
  static constexpr std::string_view kChannelMapKey = "channelMap";

  static constexpr std::uint32_t kStatusRunning = KVFourCC("run ");

  /// Plays on the device, or on the default output for 0. `nickName` is what its
  /// ports are called on a server.
  static std::shared_ptr<KVLTCGenerator> initWithAudioObjectID(audio::AudioObjectID objectID,
                                                               std::string nickName = {});
  /// Any thread, but for a real-time callback.
  ~KVLTCGenerator() override;

  /// Plays from `open` on, on the default output.
  static std::shared_ptr<KVLTCGenerator> initClosed();
  /// Plays from `open` on, on the stored device, or on the default output where none is
  /// stored.
  static std::shared_ptr<KVLTCGenerator> initWithCoder(store::KeyedUnarchiver& coder);
  /// Opens the audio device, once, after `initClosed` or `initWithCoder`.
  void open();
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// `time` was due at the host time `hostTime` (ns), or is yet to be; what does not
  /// run is ignored. One thread at a time. Realtime-safe: yes, but for the first call
  /// of a stream, which logs.
  void copyTime(const SMPTETime& time, std::uint64_t hostTime);

  /// The device on which it plays now; 0 while there is none. Any thread.
  audio::AudioObjectID audioObjectId() const noexcept { return mAudioObjectId.load(); }
  /// Whether that is the one that was chosen, and none that stands in.
  bool isOnChosenDevice() const { return mChoice.isChosenInUse() && audioObjectId() != 0; }
  /// The UID of the audio device that was chosen, which may be missing; empty if none was.
  const std::string& chosenDeviceUID() const noexcept { return mChoice.chosenUID(); }
  /// 0 stands for the default output. The channel map becomes the device's own.
  void setAudioObjectId(audio::AudioObjectID objectID);

  /// Its ports get the name at once.
  void setNickName(std::string nickName);

  /// The eight digits of the user bits, the first group lowest. Heard from the next
  /// call's frames on. Any thread.
  std::uint32_t userbits() const noexcept { return mWriter.userbits(); }
  void setUserbits(std::uint32_t userbits);

  /// Amplitude, 0 to 1; what is beyond is cut. Any thread.
  float level() const noexcept { return mWriter.level(); }
  void setLevel(float level);
  /// The place of a fader: the cube root of the level.
  float uiLevel() const noexcept;
  void setUiLevel(float uiLevel);

  /// Frames a second of the time that comes in, in steps of 0.002. Any thread.
  double fps() const noexcept { return mFPS.load(); }
  /// By how many per cent it is faster than nominal, smoothed. Any thread.
  double deviation() const noexcept;
  /// Any thread.
  bool isGenerating() const noexcept { return mIsGenerating.load(); }
  /// A four-character code: 'run ' or 0. Any thread.
  std::uint32_t deviceStatus() const noexcept { return isGenerating() ? kStatusRunning : 0; }
  /// The frame that goes out now; invalidSMPTEString while there is none.
  const std::string& tcstring() const noexcept { return mTCString; }
  /// "25.00 fps (+0.000%)", or "-- fps".
  std::string frameRateString() const;

  // For each channel of the device the channel of the generator that goes there, 0
  // being the signal, or -1.
  std::uint32_t lengthOfChannelMap() const;
  void getChannelMap(std::span<std::int32_t> map) const;
  void setChannelMap(std::span<const std::int32_t> map);

 private:
  using Device = KADeviceChoice::Device;

  explicit KVLTCGenerator(std::string nickName);
  void observeDevices();

  // Devices.
  void choose(const Device& device);
  void setupGraph(const Device& device);
  void disposeGraph();
  static void auPropertyListener(void* refCon, KAUnitProperty property);
  void rebuild();
  void devicesChanged();
  bool isGraphCurrent();
  void notePresence();

  // Status.
  void updateStatus();
  void followLatency();
  void startWatchdog();
  void stopped();
  void warnOfLatency();
  void restartOutput();
  void setTCString(std::string tcstring);

  host::MainQueue& mMainQueue;

  // The main queue's.
  std::unique_ptr<AudioGeneratorGraph> mGraph;
  std::string mNickName;
  KADeviceChoice mChoice{audio::AudioDirection::output, "plays on"};
  std::vector<std::int32_t> mChosenMap;  // empty for the device's own
  bool mHasWarned = false;               // of the graph's latency
  std::string mTCString;
  KVObserverToken mDeviceToken;

  LTCBatchWriter mWriter;  // has a watchdog while generating
  std::atomic<audio::AudioObjectID> mAudioObjectId{0};
  std::atomic<double> mFPS{0};
  std::atomic<double> mDeviation{0};  // a fraction
  std::atomic<bool> mIsGenerating{false};
  std::atomic<bool> mIsUpdatePosted{false};
  std::atomic<bool> mIsRebuildPosted{false};
};

}  // namespace velor
