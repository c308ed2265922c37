// SPDX-License-Identifier: MIT
#include "oscpkt/src/oscpkt.h"

#include <algorithm>
#include <bit>

#include "oscpkt/src/OscAssert.h"
#include "oscpkt/src/OscPattern.h"

namespace velor::oscpkt {
namespace {

// Enough for common messages not to grow.
constexpr std::size_t kReservedBytes = 200;

constexpr std::string_view kBundleMark("#bundle\0", 8);
constexpr std::size_t kTimeTagBytes = 8;
constexpr std::size_t kSizeBytes = 4;
constexpr std::size_t kBundleHeadBytes = kBundleMark.size() + kTimeTagBytes;

constexpr std::size_t padded(std::size_t size) {
  return (size + 3) & ~std::size_t{3};
}

std::uint32_t readBig32(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

void writeBig32(std::uint8_t* bytes, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
  }
}

std::uint64_t readBig64(const std::uint8_t* bytes) {
  return std::uint64_t{readBig32(bytes)} << 32 | readBig32(bytes + 4);
}

}  // namespace

// --- OscByteBuffer

OscByteBuffer::OscByteBuffer() {
  mData.reserve(kReservedBytes);
}

std::uint8_t* OscByteBuffer::getBytes(std::size_t size) {
  const std::size_t end = mData.size();
  OscAssert((end & 3) == 0, "(data.size() & 3) == 0", __func__);
  const std::size_t newSize = end + padded(size);
  if (newSize > mData.capacity()) {
    mData.reserve(2 * newSize);
  }
  mData.resize(newSize);
  return mData.data() + end;
}

// --- OscArgCursor

OscArgCursor::OscArgCursor(const Message& message, bool matches)
    : mMessage(message), mError(message.error()) {
  if (mError == OscOk && !matches) {
    mError = OscPatternMismatch;
  }
}

OscArgCursor& OscArgCursor::popFloat(float& value) {
  value = 0;
  if (mError != OscOk) {
    return *this;
  }
  if (mNext == mMessage.typeTags().size()) {
    mError = OscNotEnoughArgs;
  } else if (mMessage.typeTags()[mNext] != 'f') {
    mError = OscTypeMismatch;
  } else {
    const std::size_t offset = mMessage.argumentSpans()[mNext].first;
    value = std::bit_cast<float>(readBig32(mMessage.storage().data() + offset));
    ++mNext;
  }
  return *this;
}

bool OscArgCursor::isFullyRead() const {
  return mError == OscOk && mNext == mMessage.typeTags().size();
}

// --- Message

Message::Message(std::string address)
    : mAddress(std::move(address)), mWildcard(findOscWildcard(mAddress)) {}

Message::Message(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag) {
  buildFromRawData(data, size, timeTag);
}

void Message::buildFromRawData(const std::uint8_t* data, std::size_t size, std::uint64_t timeTag) {
  mTimeTag = timeTag;
  mAddress.clear();
  mWildcard = 0;
  mTypeTags.clear();
  mArgumentSpans.clear();
  mError = OscOk;
  mStorage.assign(data, size);
  const auto* const text = reinterpret_cast<const char*>(mStorage.data());

  const std::size_t addressEnd = findZero(0);
  if (!isPadded(addressEnd + 1) || text[0] != '/') {
    mError = OscBadAddress;
    return;
  }
  mAddress.assign(text, addressEnd);
  mWildcard = findOscWildcard(mAddress);

  const std::size_t tags = padded(addressEnd + 1);
  const std::size_t tagsEnd = findZero(tags);
  if (!isPadded(tagsEnd + 1) || text[tags] != ',') {
    mError = OscBadTypeTags;
    return;
  }
  mTypeTags.assign(text + tags + 1, text + tagsEnd);

  std::size_t arg = padded(tagsEnd + 1);
  mArgumentSpans.reserve(mTypeTags.size());
  OscAssert(arg <= mStorage.size(), "arg <= storage.end()", __func__);
  for (const char tag : mTypeTags) {
    OscAssert(arg <= mStorage.size(), "arg <= storage.end()", __func__);
    const std::size_t argSize = getArgSize(tag, arg);
    if (mError == OscOk && !isPadded(arg + argSize)) {
      mError = OscBadArguments;
    }
    if (mError != OscOk) {
      return;
    }
    mArgumentSpans.emplace_back(arg, argSize);
    arg = padded(arg + argSize);
  }
  if (arg != mStorage.size()) {
    mError = OscBadArguments;
  }
}

// The offset of the next zero byte; the size when there is none.
std::size_t Message::findZero(std::size_t from) const {
  const std::string_view text(reinterpret_cast<const char*>(mStorage.data()), mStorage.size());
  return std::min(text.find('\0', from), text.size());
}

// Whether `end` lies inside the data, with zeros from there to a multiple of four.
bool Message::isPadded(std::size_t end) const {
  const std::size_t next = padded(end);
  if (next > mStorage.size()) {
    return false;
  }
  for (; end < next; ++end) {
    if (mStorage.data()[end] != 0) {
      return false;
    }
  }
  return true;
}

// The size in bytes of the argument at `p`, not yet checked against the end of the data.
std::size_t Message::getArgSize(char tag, std::size_t p) {
  OscAssert(p <= mStorage.size(), "p >= storage.begin() && p <= storage.end()", __func__);
  switch (tag) {
    case 'T':
    case 'F':
      return 0;
    case 'i':
    case 'f':
      return 4;
    case 'h':
    case 'd':
      return 8;
    case 's':
      return findZero(p) - p + 1;
    case 'b':
      if (mStorage.size() - p < kSizeBytes) {
        mError = OscBadArguments;
        return 0;
      }
      // In 32 bits: a sum that wraps is small and rarely ends at the end of the data.
      return static_cast<std::uint32_t>(readBig32(mStorage.data() + p) + kSizeBytes);
    default:
      mError = OscUnhandledTypeTag;
      return 0;
  }
}

// The plain cases are fast: most addresses are plain, and each is matched several times.

OscArgCursor Message::partialMatch(std::string_view path) const {
  if (mWildcard == mAddress.size()) {
    return {*this, mAddress.starts_with(path)};
  }
  return {*this, matchOscPattern(mAddress, mWildcard, path).has_value()};
}

OscArgCursor Message::fullMatch(std::string_view path) const {
  if (mWildcard == mAddress.size()) {
    return {*this, mAddress == path};
  }
  return {*this, matchOscPattern(mAddress, mWildcard, path) == mAddress.size()};
}

void Message::pushFloat(float value) {
  if (mError != OscOk) {
    return;
  }
  mTypeTags += 'f';
  mArgumentSpans.emplace_back(mStorage.size(), sizeof value);
  writeBig32(mStorage.getBytes(sizeof value), std::bit_cast<std::uint32_t>(value));
}

void Message::pushStr(std::string_view s) {
  OscAssert(s.size() < 2147483647, "s.size() < 2147483647", __func__);
  if (mError != OscOk) {
    return;
  }
  mTypeTags += 's';
  mArgumentSpans.emplace_back(mStorage.size(), s.size() + 1);
  std::copy(s.begin(), s.end(), mStorage.getBytes(s.size() + 1));
}

// --- OscPacketReader

OscPacketReader::OscPacketReader(const std::uint8_t* data, std::size_t size) {
  if (size % 4 != 0) {
    mError = OscInvalidPacketSize;
  } else {
    parse(data, data + size, kOscImmediately);
  }
  mNext = mMessages.begin();
}

const Message* OscPacketReader::popMessage() {
  if (mError != OscOk || mNext == mMessages.end()) {
    return nullptr;
  }
  return &*mNext++;
}

// Bundles within bundles can be as deep as a datagram is long, so open bundles are kept on
// the heap. A bundle is kept only while more elements follow the one being read; bundles
// that are last elements of others thus take no memory.
void OscPacketReader::parse(const std::uint8_t* beg, const std::uint8_t* end,
                            std::uint64_t timeTag) {
  struct OpenBundle {
    const std::uint8_t* end;
    std::uint64_t timeTag;
  };
  std::vector<OpenBundle> open;
  for (;;) {
    OscAssert(beg <= end && mError == OscOk, "beg <= end && !err", __func__);
    OscAssert((end - beg) % 4 == 0, "((end-beg)%4)==0", __func__);
    if (beg != end && *beg == '#') {
      // A bundle needs room for at least one element.
      if (static_cast<std::size_t>(end - beg) < kBundleHeadBytes + kSizeBytes ||
          !std::equal(kBundleMark.begin(), kBundleMark.end(), beg)) {
        mError = OscInvalidBundle;
        return;
      }
      timeTag = readBig64(beg + kBundleMark.size());
      beg += kBundleHeadBytes;
    } else {
      if (beg != end) {
        mError = mMessages.emplace_back(beg, static_cast<std::size_t>(end - beg), timeTag).error();
      }
      if (mError != OscOk || open.empty()) {
        return;
      }
      beg = end;
      end = open.back().end;
      timeTag = open.back().timeTag;
      open.pop_back();
    }
    const std::uint32_t size = readBig32(beg);
    beg += kSizeBytes;
    if (size % 4 != 0 || size > static_cast<std::size_t>(end - beg)) {
      mError = OscInvalidBundle;
      return;
    }
    if (beg + size != end) {
      open.push_back({end, timeTag});
      end = beg + size;
    }
  }
}

// --- OscPacketWriter

void OscPacketWriter::init() {
  mBuffer.clear();
  mError = OscOk;
}

void OscPacketWriter::addMessage(const Message& message) {
  if (mError != OscOk) {
    return;
  }
  mError = mBuffer.empty() ? message.error() : OscBundleRequired;
  if (mError != OscOk) {
    return;
  }
  const auto& address = message.address();
  std::copy(address.begin(), address.end(), mBuffer.getBytes(address.size() + 1));
  const auto& tags = message.typeTags();
  std::uint8_t* const field = mBuffer.getBytes(tags.size() + 2);
  field[0] = ',';
  std::copy(tags.begin(), tags.end(), field + 1);
  if (const OscByteBuffer& arguments = message.storage(); !arguments.empty()) {
    std::copy_n(arguments.data(), arguments.size(), mBuffer.getBytes(arguments.size()));
  }
}

}  // namespace velor::oscpkt
