// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tl/expected.hpp>
#include <vector>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/NSNetServiceDelegate.h"

namespace velor::discovery {

/// A service on the network: one of ours to publish, or one that a browser has found, to
/// resolve. A browser gives out the same object for a service from its arrival to its
/// departure, so objects are compared by address.
///
/// Any thread may call any operation. An object that ends also ends its publication or
/// resolution, without a report. The current discovery service must outlive it.
class NSNetService final : public std::enable_shared_from_this<NSNetService> {
 public:
  /// The keys and values of a TXT record; a key may have no value.
  using TXTRecordDictionary = std::map<std::string, std::optional<std::vector<std::uint8_t>>>;

  /// `domain`: "local" or empty, which means the same. `type`: "_osc._udp.". The dot at the
  /// end of either may be missing. `port`: 0 for a service that is to be resolved.
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

  /// Once published, the name that it has on the network.
  std::string name() const;
  /// With a dot at the end: "_osc._udp.".
  std::string type() const { return mType + "."; }
  /// Without a dot at the end: "local".
  const std::string& domain() const noexcept { return mDomain; }
  std::uint16_t port() const;
  /// The host's address as text, which a socket can connect to. None until it is resolved.
  std::optional<std::string> hostName() const;
  /// Empty for none.
  DiscoveryTXTData TXTRecordData() const;
  /// For the log: "_osc._udp. Velor-OSC in local".
  std::string description() const;

  /// For the next publication. False, and without effect, when the data is not a TXT record.
  bool setTXTRecordData(DiscoveryTXTData data);

  /// Publishes until `stop`; a daemon that dies and returns does not end it. A name that is
  /// taken gets a number. No option is in use: 0. Fails while a publication or resolution is
  /// under way.
  void publishWithOptions(std::uint32_t options);

  /// Looks up host name, port and TXT record until the first answer or the timeout; without
  /// end when `seconds` is not above 0. Fails while a publication or resolution is under way.
  void resolveWithTimeout(double seconds);

  void stop();

  // --- TXT records (RFC 6763, section 6)

  /// Leaves out pairs that a record cannot hold: those whose key is empty, contains "=" or
  /// anything but printable ASCII, and those of more than 255 bytes.
  static DiscoveryTXTData dataFromTXTRecordDictionary(const TXTRecordDictionary& dictionary);

  /// Of keys that differ only in case the first counts; strings without a key are skipped.
  /// Damaged data gives the pairs before the damage.
  static TXTRecordDictionary dictionaryFromTXTRecordData(const DiscoveryTXTData& data);

 private:
  NSNetService(std::string domain, std::string type, std::string name, std::uint16_t port);

  /// Why it cannot begin. Under mMutex.
  std::optional<NSNetServicesError> obstacle() const;

  // On the main queue. `round`: the activity that replies.
  void published(const tl::expected<std::string, NSNetServicesError>& name, std::uint64_t round);
  void resolved(const tl::expected<DiscoveryAnswer, NSNetServicesError>& answer,
                std::uint64_t round);

  const std::string mDomain;
  const std::string mType;

  mutable std::mutex mMutex;
  // Under mMutex.
  std::string mName;
  std::uint16_t mPort;
  std::optional<std::string> mHostName;
  DiscoveryTXTData mTXTRecordData;
  std::weak_ptr<NSNetServiceDelegate> mDelegate;
  std::uint64_t mRound = 0;  // counts activities
  DiscoveryActivity mActivity;
};

}  // namespace velor::discovery
