// SPDX-License-Identifier: MIT
// Any bytes as a datagram. Messages that are read stand in it one after another, and their
// arguments fill their data. A bare message of floats, written again, gives the datagram.
#include <cstring>
#include <string_view>

#include "oscpkt/src/OscPattern.h"
#include "oscpkt/src/oscpkt.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using namespace velor::oscpkt;

void checkMessage(const Message& message) {
  require(message.error() == OscOk, "only sound messages are given out");
  require(message.address().starts_with('/'), "an address begins with a slash");
  require(message.argumentSpans().size() == message.typeTags().size(), "a span an argument");
  const std::size_t head =
      message.address().size() / 4 * 4 + 4 + (message.typeTags().size() + 1) / 4 * 4 + 4;
  std::size_t end = head;
  for (const auto& [offset, size] : message.argumentSpans()) {
    require(offset == end, "arguments lie one behind the other");
    end += (size + 3) / 4 * 4;
  }
  require(end == message.storage().size(), "arguments fill the data");
  for (const char* const path : {"/velor", "/velor/transport/play", "/velor/speed"}) {
    const OscError partial = message.partialMatch(path).error();
    const OscError full = message.fullMatch(path).error();
    require(partial == OscOk || partial == OscPatternMismatch, "a match is one or none");
    require(full == OscPatternMismatch || partial == OscOk, "what matches wholly does in part");
  }
}

// Builds a message from the address and the leading floats.
void checkWritten(const Message& message, const std::uint8_t* data, std::size_t size) {
  if (message.address().size() > kLongestOscPath) {
    return;
  }
  Message copy(message.address());
  OscArgCursor cursor = message.fullMatch(message.address());
  if (cursor.error() != OscOk) {
    return;  // a pattern that does not match itself
  }
  for (float value = 0; cursor.popFloat(value).error() == OscOk;) {
    copy.pushFloat(value);
  }
  if (copy.typeTags().size() == message.typeTags().size()) {
    OscPacketWriter writer;
    writer.addMessage(copy);
    require(writer.packetSize() == size && std::memcmp(writer.packetData(), data, size) == 0,
            "what is read and written is the same");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  OscPacketReader reader(data, size);
  const Message* const first = reader.popMessage();
  require(reader.error() == OscOk || first == nullptr, "one bad element spoils the datagram");
  require((reader.error() == OscInvalidPacketSize) == (size % 4 != 0), "sizes by four");
  if (first != nullptr && data[0] != '#') {
    checkWritten(*first, data, size);
    require(first->timeTag() == kOscImmediately, "no bundle, no time");
  }
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::size_t behind = 0;
  for (const Message* message = first; message != nullptr; message = reader.popMessage()) {
    checkMessage(*message);
    const auto& raw = message->storage();
    behind = bytes.find({reinterpret_cast<const char*>(raw.data()), raw.size()}, behind);
    require(behind != std::string_view::npos, "messages are the datagram's, in its order");
    behind += raw.size();
  }
  return 0;
}
