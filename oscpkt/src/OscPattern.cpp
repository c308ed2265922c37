// SPDX-License-Identifier: MIT
#include "oscpkt/src/OscPattern.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <climits>
#include <cstdint>
#include <memory>

#include "oscpkt/src/OscAssert.h"

namespace velor::oscpkt {
namespace {

using Result = std::optional<std::size_t>;

constexpr std::size_t byteOf(char c) {
  return static_cast<unsigned char>(c);
}

// Whether the character at `p` stands for more than itself.
bool isWildcard(std::string_view pattern, std::size_t p) {
  switch (pattern[p]) {
    case '?':
    case '*':
    case '[':
    case '{':
      return true;
    case '/':
      return p + 1 < pattern.size() && pattern[p + 1] == '/';
    default:
      return false;
  }
}

// The characters of a "[...]".
class CharacterSet {
 public:
  // `open` is the offset of the "[".
  CharacterSet(std::string_view pattern, std::size_t open) {
    std::size_t p = open + 1;
    const bool negated = p < pattern.size() && pattern[p] == '!';
    if (negated) {
      ++p;
    }
    // How many members begin at a character, less those that ended before it. So the
    // time is that of reading, however wide the ranges are.
    std::array<std::int32_t, kCharacters + 1> begun{};
    for (; p < pattern.size() && pattern[p] != ']'; ++p) {
      const std::size_t first = indexOf(pattern[p]);
      std::size_t last = first;
      if (p + 2 < pattern.size() && pattern[p + 1] == '-') {
        p += 2;
        last = indexOf(pattern[p]);
      }
      if (first <= last) {
        ++begun[first];
        --begun[last + 1];
      }
    }
    mIsClosed = p < pattern.size();
    mEnd = mIsClosed ? p + 1 : p;
    std::int32_t members = 0;
    for (std::size_t i = 0; i < kCharacters; ++i) {
      members += begun[i];
      mHolds[i] = (members > 0) != negated;
    }
  }

  [[nodiscard]] bool holds(char c) const { return mHolds[indexOf(c)]; }
  [[nodiscard]] bool isClosed() const { return mIsClosed; }
  /// Behind the "]", or the end of the pattern.
  [[nodiscard]] std::size_t end() const { return mEnd; }

 private:
  static constexpr std::size_t kCharacters = 256;

  // Ranges go by signed bytes, on any machine.
  static std::size_t indexOf(char c) {
    return static_cast<std::size_t>(static_cast<signed char>(c) - SCHAR_MIN);
  }

  std::array<bool, kCharacters> mHolds{};
  bool mIsClosed = false;
  std::size_t mEnd = 0;
};

// Follows all the ways that a pattern leaves open at once. Each element of a pattern is
// one piece of it, whatever it meets in the path; so all ways stand at one place of the
// pattern, and are told apart by their places in the path alone: a set, of which the
// path's end is a member like the others. What ends further on in the pattern ends
// later, so the last result is the furthest.
//
// An element that must take a character moves every place, and there are no more of
// these than the path has characters before no way is left. The others, stars and
// lists, take a few operations on sets a character.
template <std::size_t kPlaces>
class Ways {
 public:
  Ways(std::string_view pattern, std::string_view path) : mPattern(pattern), mPath(path) {
    for (std::size_t t = 0; t < path.size(); ++t) {
      mOffSlash[t] = path[t] != '/';
    }
  }

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
          if (isWildcard(mPattern, p) && c == '/') {
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
  using Places = std::bitset<kPlaces>;

  // Moves the ways on whose character fits; the others end here.
  template <class Fits>
  void takeOne(std::size_t p, Fits fits) {
    if (mPlaces[mPath.size()]) {
      mResult = p;
    }
    Places next;
    for (std::size_t t = 0; t < mPath.size(); ++t) {
      if (mPlaces[t] && fits(mPath[t])) {
        next.set(t + 1);
      }
    }
    mPlaces = next;
  }

  std::size_t passStars(std::size_t p) {
    for (;;) {
      const Places next = mPlaces | ((mPlaces & mOffSlash) << 1);
      if (next == mPlaces) {
        return std::min(mPattern.find_first_not_of('*', p), mPattern.size());
      }
      mPlaces = next;
    }
  }

  // The last slash of the row stays, to be met as a plain one.
  std::size_t passSlashes(std::size_t p) {
    bool passedOne = false;
    for (std::size_t t = 0; t < mPath.size(); ++t) {
      if (mPlaces[t]) {
        passedOne = true;
      } else if (passedOne && !mOffSlash[t]) {
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
  Places mOffSlash;
  std::optional<std::array<Places, 256>> mPlacesOf;
  Result mResult;
};

}  // namespace

Result matchOscPattern(std::string_view pattern, std::string_view path) {
  // Most addresses hold no wildcard, and the others begin without.
  const std::size_t common = std::min(pattern.size(), path.size());
  std::size_t p = 0;
  while (p < common && pattern[p] == path[p] && !isWildcard(pattern, p)) {
    ++p;
  }
  if (p == pattern.size() || !isWildcard(pattern, p)) {
    return p == path.size() ? Result(p) : Result();
  }
  if (path.size() < 64) {
    return Ways<64>(pattern, path).follow(p, p);
  }
  OscAssert(path.size() <= kLongestOscPath, "path.size() <= kLongestOscPath", __func__);
  return std::make_unique<Ways<kLongestOscPath + 1>>(pattern, path)->follow(p, p);
}

}  // namespace velor::oscpkt
