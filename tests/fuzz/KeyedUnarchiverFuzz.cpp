// SPDX-License-Identifier: MIT
// Any bytes as a document. One that is refused says why; one whose values can all
// be read is written again, and what was written reads as the same.
#include <memory>
#include <string>
#include <string_view>

#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/platform/store/ArchiveNode.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velor::store;
  const auto result =
      KeyedUnarchiver::read({reinterpret_cast<const char*>(data), size}, kArchiveClasses);
  if (!result) {
    require(result.error.find(": ") != std::string::npos, "a refusal says where and why");
    for (const char c : result.error) {
      require(static_cast<unsigned char>(c) >= 0x20, "a refusal is one line");
    }
    return 0;
  }
  std::shared_ptr<ArchiveNode> first;
  try {
    first = ArchiveNode::initWithCoder(*result.coder);
  } catch (const KeyedArchiveError& error) {
    require(std::string_view(error.what()).find(": expected ") != std::string_view::npos ||
                std::string_view(error.what()).ends_with(": the text is not base64"),
            "a wrong value is told with its path");
    return 0;
  }
  const KeyedRemainder unknown = result.coder->remainder();
  const std::string written = first->document(unknown);
  const auto again = KeyedUnarchiver::read(written, kArchiveClasses);
  require(static_cast<bool>(again), "what is written can be read");
  const auto second = ArchiveNode::initWithCoder(*again.coder);
  require(second->document(again.coder->remainder()) == written,
          "what is read is what was written");
  return 0;
}
