// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

namespace velor::oscpkt {

/// How far into the pattern `p` the path `t` leads, null for nowhere: the rules one by
/// one, each way followed on its own. So the time multiplies with stars and slashes;
/// when `steps` gets below 0, the result is none.
inline const char* referenceMatch(const char* p, const char* t, long& steps) {
  for (;;) {
    if (--steps < 0) {
      return nullptr;
    }
    if (*p == '\0') {
      return *t == '\0' ? p : nullptr;
    }
    if (*p == '*' || (p[0] == '/' && p[1] == '/')) {
      const bool star = *p == '*';
      p += std::strspn(p, star ? "*" : "/") - (star ? 0 : 1);
      const char* best = referenceMatch(p, t, steps);
      while (*t != '\0' && !(star && *t == '/') && steps >= 0) {
        ++t;
        if (star || *t == '/') {
          const char* const other = referenceMatch(p, t, steps);
          best = other != nullptr && (best == nullptr || other > best) ? other : best;
        }
      }
      return best;
    }
    if (*p == '{') {
      const char* const close = std::strchr(p, '}');
      if (close == nullptr) {
        return nullptr;
      }
      const char* alternative = p;
      std::size_t length = 0;
      bool fits = false;
      while (!fits && alternative != close) {
        ++alternative;
        length = std::strcspn(alternative, ",}");
        fits = std::strncmp(alternative, t, length) == 0;
        alternative += length;
      }
      if (!fits) {
        return p;
      }
      t += length;
      p = close + 1;
      continue;
    }
    if (*t != '\0' && *p == '[') {
      const auto found = static_cast<signed char>(*t);
      const char* m = p + 1;
      const bool negated = *m == '!';
      bool inside = false;
      for (m += negated ? 1 : 0; *m != ']' && *m != '\0'; ++m) {
        const auto first = static_cast<signed char>(*m);
        m += m[1] == '-' && m[2] != '\0' ? 2 : 0;
        inside = inside || (first <= found && found <= static_cast<signed char>(*m));
      }
      if (inside == negated || *m == '\0') {
        return p;
      }
      p = m + 1;
      ++t;
      continue;
    }
    if (*p != *t && !(*p == '?' && *t != '\0')) {
      return *t == '\0' ? p : nullptr;
    }
    ++p;
    ++t;
  }
}

}  // namespace velor::oscpkt
