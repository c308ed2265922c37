// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/NSNetServiceDelegate.h"
#include "platform/host/Timer.h"

namespace velor::discovery {

/// A service on the network: one of ours to publish, or one that was found, to
/// resolve. Two objects of the same service are told apart by their address: a
/// browser gives out one object for a service from its coming to its going.
///
/// Any thread may call any operation; it ends silently, with what is under way.
/// The discovery service in force must outlive it.
class NSNetService final : public std::enable_shared_from_this<NSNetService> {
 public:
  /// Keys with their values as they go into a TXT record; a key may have none.
  using TXTRecordDictionary = std::map<std::string, std::optional<std::vector<std::uint8_t>>>;

  /// Publishing fails, rather than take another name than the given one.
  static constexpr std::uint32_t kNoAutoRename = 1;

  /// `domain`: "local", which an empty one stands for too. `type`: "_osc._udp.".
  /// A dot at the end of either may be missing. Port 0 until it is resolved.
  static std::shared_ptr<NSNetService> initWithDomain(const std::string& domain,
                                                      const std::string& type,
                                                      const std::string& name,
                                                      std::uint16_t port = 0);
  ~NSNetService();
  NSNetService(const NSNetService&) = delete;
  NSNetService& operator=(const NSNetService&) = delete;

  /// Held weakly.
  void setDelegate(std::weak_ptr<NSNetServiceDelegate> delegate);
  std::shared_ptr<NSNetServiceDelegate> delegate() const;

  // --- what it is

  /// When published, the name that it has on the network in the end.
  std::string name() const;
  /// With a dot at the end: "_osc._udp.".
  std::string type() const { return mType + "."; }
  /// Without one: "local".
  const std::string& domain() const noexcept { return mDomain; }
  std::uint16_t port() const;
  /// Where a socket can connect to: the host's address in text. None until it is resolved.
  std::optional<std::string> hostName() const;
  /// Empty for none.
  DiscoveryTXTData TXTRecordData() const;
  /// "_osc._udp. Velor-OSC in local", for the log.
  std::string description() const;

  // --- what is done with it: one thing at a time, others fail

  /// For now and for later; others see it when it is published. False, and
  /// without effect, for data that is no TXT record.
  bool setTXTRecordData(DiscoveryTXTData data);

  /// Until `stop`, over the death of whatever carries it. Options: kNoAutoRename.
  void publishWithOptions(std::uint32_t options);

  /// Looks for host name, port and TXT record, for so many seconds; without end
  /// when that is not above 0. Ends with the first answer.
  void resolveWithTimeout(double seconds);

  void stop();

  // --- TXT records (RFC 6763, section 6)

  /// Leaves out what has no place in a record: a key that is empty, holds "=" or
  /// anything but printable ASCII, and a pair of more than 255 bytes.
  static DiscoveryTXTData dataFromTXTRecordDictionary(const TXTRecordDictionary& dictionary);

  /// Of keys that differ by case alone the first counts; strings without a key
  /// are passed over. Damaged data gives what stands before the damage.
  static TXTRecordDictionary dictionaryFromTXTRecordData(const DiscoveryTXTData& data);

 private:
  enum class Doing { nothing, publishing, resolving };

  NSNetService(std::string domain, std::string type, std::string name, std::uint16_t port);

  /// The error, where there is any, with which it can't begin. Under mMutex.
  std::optional<NSNetServicesError> obstacle() const;

  // On the main queue. `round` is that of the activity that the news are of.
  void published(const DiscoveryService::Published& published, std::uint64_t round);
  /// Null when its time is over.
  void resolutionEnded(const DiscoveryAnswer* answer, std::uint64_t round);

  const std::string mDomain;
  const std::string mType;

  mutable std::mutex mMutex;
  // Under mMutex.
  std::string mName;
  std::uint16_t mPort;
  std::optional<std::string> mHostName;
  DiscoveryTXTData mTXTRecordData;
  std::weak_ptr<NSNetServiceDelegate> mDelegate;
  Doing mDoing = Doing::nothing;
  std::uint64_t mRound = 0;
  std::unique_ptr<DiscoveryActivity> mActivity;
  std::unique_ptr<host::Timer> mTimeout;
};

}  // namespace velor::discovery
