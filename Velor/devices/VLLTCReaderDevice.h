// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObservable.h"
#include "Velor/devices/LTCReaderDeviceDelegate.h"
#include "Velor/devices/VLReaderDevice.h"
#include "Velor/ltc/VLLTCReader.h"
#include "Velor/mtc/VLMTC.h"
#include "platform/host/Host.h"
#include "platform/host/Seqlock.h"

namespace velor {

inline constexpr std::uint32_t kVLDeviceTypeLTCReader = KVFourCC("ltcr");

/// Reads LTC from an audio input and sends it on as MTC, from a virtual source of its
/// own; goes on by itself for a while when the LTC ends. It reads from its making on.
/// The source goes with the device, and an archive makes another.
///
/// Observable, on the main queue: "running", "freewheeling" and "deviceStatus"; and
/// "audioObjectId", "channel" and "channelNames", which follow what becomes of devices;
/// "freewheelTime" and "conditionsInput".
///
/// Main queue, unless stated otherwise. Made and ended there.
class VLLTCReaderDevice final : public VLReaderDevice,
                                public KVObservable,
                                public std::enable_shared_from_this<VLLTCReaderDevice> {
 public:
  static constexpr std::string_view kClassName = "VLLTCReaderDevice";

  /// In archives; they must never change.
  static constexpr std::string_view kFreewheelTimeKey = "freewheeltime";
  static constexpr std::string_view kReaderKey = "reader";
  static constexpr std::string_view kNameKey = "name";
  static constexpr std::string_view kUniqueIDKey = "MIDIUniqueID";

  /// Reads from the default input; `endpoint` is a virtual source, for this device alone.
  static std::shared_ptr<VLLTCReaderDevice> initWithEndpoint(
      std::shared_ptr<KVMIDIEndpoint> endpoint);
  VLLTCReaderDevice(std::shared_ptr<KVMIDIEndpoint> endpoint, std::shared_ptr<VLLTCReader> reader);
  ~VLLTCReaderDevice() override;

  static std::shared_ptr<VLLTCReaderDevice> initWithCoder(store::KeyedUnarchiver& coder);
  void open() override;
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// Each gets all reports from then on, as long as it lives.
  void addDelegate(const std::weak_ptr<LTCReaderDeviceDelegate>& delegate);

  std::vector<KVObserverToken> observeEdits(const KVObservable::Observer& edited) override;
  bool makesItsEndpoint() const override { return true; }
  std::uint32_t type() const override { return kVLDeviceTypeLTCReader; }
  std::uint32_t deviceStatus() const override { return mCon.status.load(); }
  /// Nothing is read any more.
  void destroy() override;

  /// MTC goes out, by what is read or by itself. Any thread.
  bool running() const noexcept { return mCon.running.load(); }
  /// By itself. Any thread.
  bool freewheeling() const noexcept { return mCon.freewheeling.load(); }
  /// Of the MTC, frames a second; not a number where there is none. Any thread.
  double frameRate() const noexcept;
  /// Seconds; -1 for no limit. Any negative number sets that.
  int freewheelTime() const noexcept;
  void setFreewheelTime(int seconds);
  void stopFreewheeling();
  /// The eight digits read last, the first group lowest. Any thread.
  std::uint32_t userbits() const noexcept { return mCon.heard.load().userbits; }

  /// The device that it listens to; 0 while there is none.
  audio::AudioObjectID audioObjectId() const noexcept { return mReader->audioDeviceId(); }
  /// Whether that is the one that was chosen, and none that stands in.
  bool isOnChosenDevice() const noexcept { return mReader->isOnChosenDevice(); }
  /// The UID of the audio device that was chosen, which may be missing; empty if none was.
  const std::string& chosenDeviceUID() const noexcept { return mReader->chosenDeviceUID(); }
  void setAudioObjectId(audio::AudioObjectID objectID) { mReader->setAudioDeviceId(objectID); }
  /// From 0.
  std::uint32_t channel() const noexcept { return mReader->inputChannel(); }
  void setChannel(std::uint32_t channel);
  /// For bad lines, at the cost of up to a frame of delay.
  bool conditionsInput() const noexcept { return mReader->conditionsInput(); }
  void setConditionsInput(bool conditions);
  /// Of the inputs of the device; none while there is none.
  std::vector<std::string> channelNames() const;

  /// The time last sent, two frames ahead of what was read. Any thread.
  void getLatestTime(SMPTETime& time) const noexcept;
  /// Frames a second that are read, smoothed; 0 until it is known. Any thread.
  double getLatestSpeed() const noexcept;

 private:
  // What was read last.
  struct Heard {
    std::uint32_t userbits = 0;
    std::uint32_t epoch = 0;  // of mCon, at which the speed was measured
    double speed = 0;         // frames a second
  };
  // The reference of both callbacks.
  struct Con {
    VLMTC* mtc = nullptr;
    std::weak_ptr<VLLTCReaderDevice> device;
    host::MainQueue* mainQueue = nullptr;
    // The main queue's to write.
    std::atomic<bool> freewheeling{false};
    std::atomic<bool> running{false};
    std::atomic<std::uint32_t> status{kVLDeviceStatusIdle};
    std::atomic<std::uint32_t> epoch{0};  // counts the ends of signals
    // The audio thread's to write.
    host::Seqlocked<Heard> heard;
    struct {
      Heard heard;
    } rt;
  };

  // For `open`.
  struct Stored {
    std::string name;
    midi::MIDIUniqueID uniqueID = 0;
    int freewheelTime = 0;  // s
  };

  void install();
  static void frameCallback(const host::RealtimeContext& realtime, const SMPTETime& time,
                            const std::uint8_t* userBits, void* refCon, std::uint64_t hostTime,
                            double fps);
  static void mtcDidChangeState(VLMTC* mtc, VLMTCState state, void* refCon);
  void updateState();
  template <class Report>
  void report(Report toDelegate) const;

  const std::shared_ptr<VLLTCReader> mReader;
  std::vector<std::weak_ptr<LTCReaderDeviceDelegate>> mDelegates;
  Con mCon;
  Stored mStored;
  KVObserverToken mReaderToken;
};

}  // namespace velor
