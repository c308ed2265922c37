// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "platform/media/PlayerTypes.h"

namespace velor {

/// Carries out what a chase has decided. Queue: main, in the order of the reports; a chase
/// does not wait for it.
class VLMediaChaseDelegate {
 public:
  virtual ~VLMediaChaseDelegate() = default;

  /// From the host time (ns) on, at the rate, as if the clip had been at `position` then.
  virtual void chaseStarts(float rate, media::MediaTime position, std::uint64_t hostTime) = 0;
  /// Where the clip runs: on along this line, of which it is off by less than it may be.
  virtual void chaseFollows(float rate, media::MediaTime position, std::uint64_t hostTime) = 0;
  /// Where the clip runs: MTC has ended or left it.
  virtual void chaseStops() = 0;
  /// To exactly this position.
  virtual void chaseLocates(media::MediaTime position) = 0;
  virtual void chaseReceivedMTC(const std::string& text) = 0;
  virtual void chaseMeasuredDeviation(const std::string& text) = 0;
};

}  // namespace velor
