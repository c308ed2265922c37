// SPDX-License-Identifier: MIT
#include "oscpkt/src/OscPattern.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <climits>
#include <cstdint>

#include "oscpkt/src/OscAssert.h"

namespace velor::oscpkt {
namespace {

using Result = std::optional<std::size_t>;

constexpr std::size_t byteOf(char c) {
  return static_cast<unsigned char>(c);
}

// Whether the character is a wildcard; a slash is one when another follows.
constexpr auto kSpecial = [] {
  std::array<bool, 256> special{};
  for (const char c : std::string_view("?*[{/")) {
    special[byteOf(c)] = true;
  }
  return special;
}();

bool isWildcard(std::string_view pattern, std::size_t p) {
  const char c = pattern[p];
  return kSpecial[byteOf(c)] && (c != '/' || pattern.substr(p + 1).starts_with('/'));
}

// The characters of a "[...]".
class CharacterSet {
 public:
  // `open` is the offset of the "[".
  CharacterSet(std::string_view pattern, std::size_t open) {
    std::size_t p = open + 1;
    mIsNegated = p < pattern.size() && pattern[p] == '!';
    if (mIsNegated) {
      ++p;
    }
    for (; p < pattern.size() && pattern[p] != ']'; ++p) {
      std::uint16_t& end = mEnds[indexOf(pattern[p])];
      if (p + 2 < pattern.size() && pattern[p + 1] == '-') {
        p += 2;
      }
      end = std::max(end, static_cast<std::uint16_t>(indexOf(pattern[p]) + 1));
    }
    mIsClosed = p < pattern.size();
    mEnd = mIsClosed ? p + 1 : p;
  }

  [[nodiscard]] bool holds(char c) const {
    const std::size_t index = indexOf(c);
    std::uint16_t end = 0;
    for (std::size_t first = 0; first <= index; ++first) {
      end = std::max(end, mEnds[first]);
    }
    return (index < end) != mIsNegated;
  }
  [[nodiscard]] bool isClosed() const { return mIsClosed; }
  /// After the "]", or the end of the pattern.
  [[nodiscard]] std::size_t end() const { return mEnd; }

 private:
  // Ranges compare signed bytes, on any machine.
  static std::size_t indexOf(char c) {
    return static_cast<std::size_t>(static_cast<signed char>(c) - SCHAR_MIN);
  }

  // The end of the longest range that begins at each character; a reversed range ends before
  // its begin. So wide ranges take no longer than single characters.
  std::array<std::uint16_t, 256> mEnds{};
  bool mIsNegated = false;
  bool mIsClosed = false;
  std::size_t mEnd = 0;
};

// Follows all ways to match a pattern at once. All ways stand at the same place of the
// pattern and differ only in their places in the path, which form a set; the end of the path
// is one of the places. A way that leads further in the pattern ends later, so the last
// result is the furthest.
//
// An element that must match a character moves every place by one, so after as many of these
// as the path has characters no way is left. Stars and lists take a few set operations per
// character.
class Ways {
 public:
  Ways(std::string_view pattern, std::string_view path) : mPattern(pattern), mPath(path) {}

  Result follow(std::size_t p, std::size_t t) {
    mPlaces.set(t);
    while (mPlaces.any()) {
      if (p == mPattern.size()) {
        if (mPlaces[mPath.size()]) {
          mResult = p;
        }
        break;
      }
      const char c = mPattern[p];
      switch (c) {
        case '*':
          p = passStars(p);
          break;
        case '[':
          p = passSet(p);
          break;
        case '{':
          p = passList(p);
          break;
        default:
          if (c == '/' && isWildcard(mPattern, p)) {
            p = passSlashes(p);
          } else {
            takeOne(p, [c](char found) { return c == '?' || c == found; });
            ++p;
          }
      }
    }
    return mResult;
  }

 private:
  using Places = std::bitset<kLongestOscPath + 1>;

  // Moves the ways whose next character fits; ends the others.
  template <class Fits>
  void takeOne(std::size_t p, Fits fits) {
    if (mPlaces[mPath.size()]) {
      mResult = p;
    }
    Places next;
    // In the order of the path, as its end comes last. Both compilers use a library that has
    // these two functions.
    for (std::size_t t = mPlaces._Find_first(); t < mPath.size(); t = mPlaces._Find_next(t)) {
      if (fits(mPath[t])) {
        next.set(t + 1);
      }
    }
    mPlaces = next;
  }

  std::size_t passStars(std::size_t p) {
    if (!mOffSlash) {
      mOffSlash.emplace();
      for (std::size_t t = 0; t < mPath.size(); ++t) {
        (*mOffSlash)[t] = mPath[t] != '/';
      }
    }
    for (;;) {
      const Places next = mPlaces | ((mPlaces & *mOffSlash) << 1);
      if (next == mPlaces) {
        return std::min(mPattern.find_first_not_of('*', p), mPattern.size());
      }
      mPlaces = next;
    }
  }

  // Leaves the last slash of the row, which matches as a plain one.
  std::size_t passSlashes(std::size_t p) {
    for (std::size_t t = mPlaces._Find_first(); t < mPath.size(); ++t) {
      if (mPath[t] == '/') {
        mPlaces.set(t);
      }
    }
    return std::min(mPattern.find_first_not_of('/', p), mPattern.size()) - 1;
  }

  std::size_t passSet(std::size_t p) {
    const CharacterSet set(mPattern, p);
    const std::size_t before = mPlaces.count();
    if (set.isClosed()) {
      takeOne(p, [&set](char found) { return set.holds(found); });
    } else {
      mPlaces.reset();
    }
    if (mPlaces.count() < before) {
      mResult = p;
    }
    return set.end();
  }

  std::size_t passList(std::size_t p) {
    const std::size_t close = mPattern.find('}', p);
    if (close == std::string_view::npos) {
      mPlaces.reset();
      return mPattern.size();
    }
    const std::string_view list = mPattern.substr(p + 1, close - p - 1);
    Places next;
    for (std::size_t begin = 0; begin <= list.size() && mPlaces.any();) {
      const std::size_t end = std::min(list.find(',', begin), list.size());
      Places fitting = mPlaces;
      for (std::size_t i = begin; i < end && fitting.any(); ++i) {
        fitting &= placesOf(list[i]) >> (i - begin);
      }
      next |= fitting << (end - begin);
      mPlaces &= ~fitting;
      begin = end + 1;
    }
    if (mPlaces.any()) {
      mResult = p;
    }
    mPlaces = next;
    return close + 1;
  }

  const Places& placesOf(char c) {
    if (!mPlacesOf) {
      mPlacesOf.emplace();
      for (std::size_t t = 0; t < mPath.size(); ++t) {
        (*mPlacesOf)[byteOf(mPath[t])].set(t);
      }
    }
    return (*mPlacesOf)[byteOf(c)];
  }

  const std::string_view mPattern;
  const std::string_view mPath;
  Places mPlaces;
  std::optional<Places> mOffSlash;
  std::optional<std::array<Places, 256>> mPlacesOf;
  Result mResult;
};

}  // namespace

std::size_t findOscWildcard(std::string_view pattern) {
  std::size_t p = 0;
  while (p < pattern.size() && !isWildcard(pattern, p)) {
    ++p;
  }
  return p;
}

Result matchOscPattern(std::string_view pattern, std::size_t wildcard, std::string_view path) {
  const std::size_t plain = std::min(wildcard, path.size());
  if (pattern.substr(0, plain) != path.substr(0, plain)) {
    return {};
  }
  if (plain < wildcard || wildcard == pattern.size()) {
    return plain == path.size() ? Result(plain) : Result();
  }
  OscAssert(path.size() <= kLongestOscPath, "path.size() <= kLongestOscPath", __func__);
  return Ways(pattern, path).follow(plain, plain);
}

}  // namespace velor::oscpkt
