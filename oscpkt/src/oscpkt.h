// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Packets of Open Sound Control 1.0 in memory: reads a datagram as messages, writes a message
// as a datagram. Reads arguments of the types T F i f h d s b; an argument of another type
// makes the message and its datagram invalid.
//
// Plain values: each belongs to one thread at a time. Realtime-safe: no, data is copied. Only
// a lack of memory throws. An error stays in its object, and operations on an object with an
// error do nothing.
namespace velor::oscpkt {

enum OscError : std::int32_t {
  OscOk = 0,
  /// Message: the address has no end, no zero padding, or no leading "/".
  OscBadAddress = 1,
  /// Message: the type tags are missing, or have no end, no zero padding or no leading ",".
  OscBadTypeTags = 2,
  /// Message: the arguments do not fit the data, or have no zero padding.
  OscBadArguments = 3,
  /// Message: an unknown type.
  OscUnhandledTypeTag = 4,
  /// OscArgCursor: the next argument has another type.
  OscTypeMismatch = 5,
  /// OscArgCursor: there is no next argument.
  OscNotEnoughArgs = 6,
  /// OscArgCursor: the address does not match.
  OscPatternMismatch = 7,
  /// OscPacketReader: bad head of a bundle, or bad size of an element.
  OscInvalidBundle = 8,
  /// OscPacketReader: the size of the datagram is not a multiple of four.
  OscInvalidPacketSize = 9,
  /// OscPacketWriter: a second message without a bundle.
  OscBundleRequired = 10,
};

/// The time tag for immediate action.
inline constexpr std::uint64_t kOscImmediately = 1;

/// Bytes in pieces, each padded with zeros to a multiple of four.
class OscByteBuffer {
 public:
  OscByteBuffer();

  /// Adds a piece of `size` zeros. The returned place is valid until the next call.
  std::uint8_t* getBytes(std::size_t size);

  /// Replaces its contents by `size` bytes, without padding.
  void assign(const std::uint8_t* bytes, std::size_t size) { mData.assign(bytes, bytes + size); }
  void clear() { mData.clear(); }

  [[nodiscard]] const std::uint8_t* data() const { return mData.data(); }
  [[nodiscard]] std::size_t size() const { return mData.size(); }
  [[nodiscard]] bool empty() const { return mData.empty(); }

 private:
  std::vector<std::uint8_t> mData;
};

class Message;

/// Reads the arguments of a matching message in order:
/// `message.fullMatch("/a").popFloat(x).isFullyRead()`. The message must outlive it.
class OscArgCursor {
 public:
  /// Reads the next argument if it is a 32-bit float; otherwise `value` becomes 0.0.
  OscArgCursor& popFloat(float& value);

  /// No error so far, and no argument left.
  [[nodiscard]] bool isFullyRead() const;

  [[nodiscard]] OscError error() const { return mError; }

 private:
  friend class Message;
  OscArgCursor(const Message& message, bool matches);

  const Message& mMessage;
  OscError mError;
  std::size_t mNext = 0;
};

/// An address, or a pattern of addresses, with arguments.
class Message {
 public:
  /// Place of an argument in `storage`: offset, and size without padding, in bytes.
  using Span = std::pair<std::size_t, std::size_t>;

  /// For sending, without arguments yet.
  explicit Message(std::string address);

  /// From `size` received bytes, which it copies.
  Message(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag);

  /// Replaces its contents by received bytes.
  void buildFromRawData(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag);

  /// Matches when the pattern, or a beginning of it, matches the whole path; the beginning may
  /// end inside a name. A set or a list that does not match counts as such an end.
  [[nodiscard]] OscArgCursor partialMatch(std::string_view path) const;

  /// Matches when the whole pattern matches the whole path.
  [[nodiscard]] OscArgCursor fullMatch(std::string_view path) const;

  /// Adds an argument to a message to be sent.
  void pushFloat(float value);
  /// `s`: no zero byte, fewer than 2147483647 bytes.
  void pushStr(std::string_view s);

  /// In NTP format: that of the innermost bundle around it, otherwise kOscImmediately.
  [[nodiscard]] std::uint64_t timeTag() const { return mTimeTag; }
  [[nodiscard]] const std::string& address() const { return mAddress; }
  /// One character per argument, without the comma.
  [[nodiscard]] const std::string& typeTags() const { return mTypeTags; }
  [[nodiscard]] const std::vector<Span>& argumentSpans() const { return mArgumentSpans; }
  /// Received: all bytes. For sending: the encoded arguments.
  [[nodiscard]] const OscByteBuffer& storage() const { return mStorage; }
  [[nodiscard]] OscError error() const { return mError; }

 private:
  [[nodiscard]] std::size_t findZero(std::size_t from) const;
  [[nodiscard]] bool isPadded(std::size_t end) const;
  std::size_t getArgSize(char tag, std::size_t p);

  std::uint64_t mTimeTag = kOscImmediately;
  std::string mAddress;
  // Offset of the first wildcard of the address.
  std::size_t mWildcard = 0;
  std::string mTypeTags;
  std::vector<Span> mArgumentSpans;
  OscByteBuffer mStorage;
  OscError mError = OscOk;
};

/// Reads the messages of a datagram in order. One bad element makes all of it invalid.
class OscPacketReader {
 public:
  /// Reads and copies all messages. A datagram of 0 bytes is valid and empty.
  OscPacketReader(const std::uint8_t* data, std::size_t size);
  OscPacketReader(const OscPacketReader&) = delete;
  OscPacketReader& operator=(const OscPacketReader&) = delete;

  [[nodiscard]] OscError error() const { return mError; }

  /// The next message, owned by the reader. Null after the last, and always after an error.
  const Message* popMessage();

 private:
  void parse(const std::uint8_t* beg, const std::uint8_t* end, std::uint64_t timeTag);

  std::list<Message> mMessages;
  std::list<Message>::const_iterator mNext;
  OscError mError = OscOk;
};

/// Writes a message as a datagram.
class OscPacketWriter {
 public:
  /// Clears packet and error.
  void init();

  /// Writes the message. A packet holds only one, as there are no bundles. Takes over an error
  /// of the message.
  void addMessage(const Message& message);

  [[nodiscard]] OscError error() const { return mError; }

  [[nodiscard]] const std::uint8_t* packetData() const { return mBuffer.data(); }
  /// In bytes; 0 after an error.
  [[nodiscard]] std::size_t packetSize() const { return mError == OscOk ? mBuffer.size() : 0; }

 private:
  OscByteBuffer mBuffer;
  OscError mError = OscOk;
};

}  // namespace velor::oscpkt
