// SPDX-License-Identifier: MIT
// Any bytes as a document. One that is refused says why; one whose values can all
// be read is written again, and what was written reads as the same.
#include <string>

#include "platform/store/KeyedUnarchiver.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/platform/store/ArchiveNode.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velor::store;
  auto coder = KeyedUnarchiver::read({reinterpret_cast<const char*>(data), size}, kArchiveClasses);
  if (!coder) {
    const std::string& error = coder.error().text;
    require(error.find(": ") != std::string::npos, "a refusal says where and why");
    for (const char c : error) {
      require(static_cast<unsigned char>(c) >= 0x20, "a refusal is one line");
    }
    return 0;
  }
  const auto first = ArchiveNode::initWithCoder(*coder);
  if (const auto values = coder->check(); !values) {
    const std::string& error = values.error().text;
    require(error.find(": expected ") != std::string::npos ||
                error.ends_with(": the text is not base64"),
            "the error of a wrong value has its path");
    return 0;
  }
  const KeyedRemainder unknown = coder->remainder();
  const std::string written = first->document(unknown);
  auto again = KeyedUnarchiver::read(written, kArchiveClasses);
  require(static_cast<bool>(again), "what is written can be read");
  const auto second = ArchiveNode::initWithCoder(*again);
  require(second->document(again->remainder()) == written, "what is read is what was written");
  return 0;
}
