// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "Kv-Appkit/KVRandom.h"

namespace velor {

/// A random identifier, of which no two are alike (RFC 4122, version 4).
class KVUUID {
 public:
  KVUUID() {
    for (std::uint32_t& word : mWords) {
      word = KVRandom();
    }
    mWords[1] = (mWords[1] & 0xFFFF'0FFFU) | 0x4000U;       // the version
    mWords[2] = (mWords[2] & 0x3FFF'FFFFU) | 0x8000'0000U;  // the variant
  }

  /// "8F14E45F-CEEA-467F-9D0A-000000000000"
  std::string UUIDString() const {
    std::array<char, 37> text{};
    std::snprintf(text.data(), text.size(), "%08X-%04X-%04X-%04X-%04X%08X", mWords[0],
                  mWords[1] >> 16U, mWords[1] & 0xFFFFU, mWords[2] >> 16U, mWords[2] & 0xFFFFU,
                  mWords[3]);
    return text.data();
  }

 private:
  std::array<std::uint32_t, 4> mWords{};
};

}  // namespace velor
