// SPDX-License-Identifier: MIT
#include "Velor/clock/VLLoopCheck.h"

#include <algorithm>
#include <utility>

#include "Velor/mtc/MTC_Tx.h"

namespace velor {
namespace {
constexpr std::uint64_t kDuration = 100'000'000;  // ns
}

void VLLoopCheck::sendTokens(Endpoint source, const std::vector<Endpoint>& destinations,
                             midi::MIDIPortRef port) {
  mQueue.assertCurrent();
  mSource = std::move(source);
  for (const Endpoint& destination : destinations) {
    mTokens.push_back({sendLoopDetectionToken(*destination, port), destination});
  }
  mQueue.after(kDuration, [this] { end(); });
}

void VLLoopCheck::end() {
  mQueue.assertCurrent();
  mSource.reset();
  mTokens.clear();
  mUnderWay.store(false);
}

VLLoopCheck::Endpoint VLLoopCheck::destinationOf(std::uint32_t token) const {
  mQueue.assertCurrent();
  const auto sent = std::find_if(mTokens.begin(), mTokens.end(),
                                 [token](const SentToken& row) { return row.token == token; });
  return sent != mTokens.end() ? sent->destination.lock() : nullptr;
}

VLLoopCheck::Endpoint VLLoopCheck::source() const {
  mQueue.assertCurrent();
  return mSource;
}

}  // namespace velor
