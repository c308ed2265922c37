// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Packets of Open Sound Control 1.0 in memory: a datagram as messages, a message as a
// datagram. Of the types of arguments, T F i f h d s b are read; a message with another,
// and with it its datagram, is refused.
//
// Plain values: each belongs to one thread at a time, any. Realtime-safe: no, what is
// read and written is copied. Nothing throws but for want of memory. An error stays in
// its object, and an operation on an object that has one leaves it as it is.
namespace velor::oscpkt {

enum OscError : std::int32_t {
  OscOk = 0,
  /// Message: the address has no end, no zeros behind it, or no "/" before it.
  OscBadAddress = 1,
  /// Message: the type tags are missing, have no end, no zeros behind or no "," before.
  OscBadTypeTags = 2,
  /// Message: the arguments are more or less than the data, or have no zeros behind.
  OscBadArguments = 3,
  /// Message: a type that is not read.
  OscUnhandledTypeTag = 4,
  /// OscArgCursor: the next argument is of another type.
  OscTypeMismatch = 5,
  /// OscArgCursor: there is no next argument.
  OscNotEnoughArgs = 6,
  /// OscArgCursor: the message is for another address.
  OscPatternMismatch = 7,
  /// OscPacketReader: the head of a bundle, or the size of an element.
  OscInvalidBundle = 8,
  /// OscPacketReader: the size of the datagram is no multiple of four.
  OscInvalidPacketSize = 9,
  /// OscPacketWriter: a second message, and no bundle for the two.
  OscBundleRequired = 10,
};

/// The time tag that asks for action at once.
inline constexpr std::uint64_t kOscImmediately = 1;

/// Bytes in pieces, each padded with zeros to a multiple of four.
class OscByteBuffer {
 public:
  OscByteBuffer();

  /// Adds a piece of `size` zeros; the place of the first, good until the next call.
  std::uint8_t* getBytes(std::size_t size);

  /// Takes `size` bytes instead of what it holds, as they are.
  void assign(const std::uint8_t* bytes, std::size_t size) { mData.assign(bytes, bytes + size); }
  void clear() { mData.clear(); }

  [[nodiscard]] const std::uint8_t* data() const { return mData.data(); }
  [[nodiscard]] std::size_t size() const { return mData.size(); }
  [[nodiscard]] bool empty() const { return mData.empty(); }

 private:
  std::vector<std::uint8_t> mData;
};

class Message;

/// Takes the arguments of a message that matched, one by one:
/// `message.fullMatch("/a").popFloat(x).isFullyRead()`. The message outlives it.
class OscArgCursor {
 public:
  /// Takes the next argument when it is a 32-bit float; else `value` becomes 0.0.
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
  /// What an argument takes of `storage`: offset, and size without padding, in bytes.
  using Span = std::pair<std::size_t, std::size_t>;

  /// One to be sent, without arguments yet.
  explicit Message(std::string address);

  /// One that was received: `size` bytes, of which it keeps a copy.
  Message(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag);

  /// What was received instead of what it was before.
  void buildFromRawData(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag);

  /// Whether the path, or what it begins, is meant: the whole path matches, and the
  /// pattern may go on behind it, also in the middle of a name. A set or a list that
  /// fits nothing counts as a pattern that goes on.
  [[nodiscard]] OscArgCursor partialMatch(std::string_view path) const;

  /// Whether the path is meant.
  [[nodiscard]] OscArgCursor fullMatch(std::string_view path) const;

  /// Adds an argument to a message to be sent.
  void pushFloat(float value);
  /// `s` holds no zero byte, and less than 2147483647 bytes.
  void pushStr(std::string_view s);

  /// In the format of NTP; of the innermost bundle that it came in, else kOscImmediately.
  [[nodiscard]] std::uint64_t timeTag() const { return mTimeTag; }
  [[nodiscard]] const std::string& address() const { return mAddress; }
  /// A character an argument, without the comma.
  [[nodiscard]] const std::string& typeTags() const { return mTypeTags; }
  [[nodiscard]] const std::vector<Span>& argumentSpans() const { return mArgumentSpans; }
  /// All bytes as received; of one to be sent the arguments, as they go out.
  [[nodiscard]] const OscByteBuffer& storage() const { return mStorage; }
  [[nodiscard]] OscError error() const { return mError; }

 private:
  [[nodiscard]] std::size_t findZero(std::size_t from) const;
  [[nodiscard]] bool isPadded(std::size_t end) const;
  std::size_t getArgSize(char tag, std::size_t p);

  std::uint64_t mTimeTag = kOscImmediately;
  std::string mAddress;
  // Where the address begins to be a pattern.
  std::size_t mWildcard = 0;
  std::string mTypeTags;
  std::vector<Span> mArgumentSpans;
  OscByteBuffer mStorage;
  OscError mError = OscOk;
};

/// A datagram as messages, in their order in it. One bad element spoils all of it.
class OscPacketReader {
 public:
  /// Reads all of it, into copies. A datagram of 0 bytes is good, and empty.
  OscPacketReader(const std::uint8_t* data, std::size_t size);
  OscPacketReader(const OscPacketReader&) = delete;
  OscPacketReader& operator=(const OscPacketReader&) = delete;

  [[nodiscard]] OscError error() const { return mError; }

  /// The next message, which belongs to the reader; null after the last, and always
  /// when there is an error.
  const Message* popMessage();

 private:
  void parse(const std::uint8_t* beg, const std::uint8_t* end, std::uint64_t timeTag);

  std::list<Message> mMessages;
  std::list<Message>::const_iterator mNext;
  OscError mError = OscOk;
};

/// A message as a datagram.
class OscPacketWriter {
 public:
  /// Back to an empty packet without error.
  void init();

  /// Writes the message. There can be one, as there is no bundle to hold more. An error
  /// of the message becomes the writer's.
  void addMessage(const Message& message);

  [[nodiscard]] OscError error() const { return mError; }

  [[nodiscard]] const std::uint8_t* packetData() const { return mBuffer.data(); }
  /// In bytes; 0 when there is an error.
  [[nodiscard]] std::size_t packetSize() const { return mError == OscOk ? mBuffer.size() : 0; }

 private:
  OscByteBuffer mBuffer;
  OscError mError = OscOk;
};

}  // namespace velor::oscpkt
