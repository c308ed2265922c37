// SPDX-License-Identifier: MIT
// Any bytes as a TXT record. The result is that of a plain reader by RFC 6763, section 6:
// strings after their lengths, without those that have no key or a repeated one. Written
// again, it reads the same.
#include <cctype>
#include <set>
#include <string>

#include "platform/discovery/NSNetService.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using velor::discovery::DiscoveryTXTData;
using velor::discovery::NSNetService;

bool isKey(const std::string& key) {
  for (const char c : key) {
    if (c < 0x20 || c > 0x7E || c == '=') {
      return false;
    }
  }
  return !key.empty();
}

NSNetService::TXTRecordDictionary read(const DiscoveryTXTData& data) {
  NSNetService::TXTRecordDictionary found;
  std::set<std::string> keys;  // whatever their case
  for (std::size_t at = 0; at < data.size();) {
    const std::size_t length = data[at++];
    if (length > data.size() - at) {
      break;
    }
    const std::string text(data.begin() + static_cast<std::ptrdiff_t>(at),
                           data.begin() + static_cast<std::ptrdiff_t>(at + length));
    at += length;
    const std::size_t sign = text.find('=');
    const std::string key = text.substr(0, sign);
    std::string lower;
    for (const char c : key) {
      lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (!isKey(key) || !keys.insert(lower).second) {
      continue;
    }
    auto& value = found[key];
    if (sign != std::string::npos) {
      value.emplace(text.begin() + static_cast<std::ptrdiff_t>(sign + 1), text.end());
    }
  }
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 65535) {
    return 0;  // no record of the DNS is longer
  }
  const DiscoveryTXTData record(data, data + size);
  const auto dictionary = NSNetService::dictionaryFromTXTRecordData(record);
  require(dictionary == read(record), "it is read as published");
  const DiscoveryTXTData written = NSNetService::dataFromTXTRecordDictionary(dictionary);
  require(written.size() <= size, "no more is written than was read");
  require(NSNetService::dictionaryFromTXTRecordData(written) == dictionary,
          "what is read and written is the same");
  return 0;
}
