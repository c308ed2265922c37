// SPDX-License-Identifier: MIT
#include "platform/store/KeyedArchiver.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedDocument.h"
#include "platform/store/KeyedPath.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;
using Limits = KeyedArchiveLimits;

constexpr std::size_t kIndent = 2;
// Containers deeper than the members of an object of a list are written on one line.
constexpr std::size_t kDepthOfLines = 3;

std::string tooMany(const char* what, std::size_t limit) {
  return std::string("more than ") + std::to_string(limit) + " " + what;
}

std::string dumped(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Whether a text is written in a document unchanged.
bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace

struct KeyedArchiver::State {
  void refuse(const std::string& what) {
    if (!error) {
      error = Error{path.text() + ": " + what};
    }
  }

  void countValue() {
    if (++values > Limits::kValues) {
      refuse(tooMany("values in all", Limits::kValues));
    }
  }

  void checkText(std::string_view value) {
    if (value.size() > Limits::kStringBytes) {
      refuse(tooMany("bytes of text", Limits::kStringBytes));
    }
  }

  void writeText(std::string_view value) {
    if (isPlain(value)) {
      ((text += '"') += value) += '"';
    } else {
      text += dumped(Json(value));
    }
  }

  // A member or an element begins.
  void beginLine() {
    if (!isOneLine) {
      (text += isFirst ? "\n" : ",\n").append(kIndent * depth, ' ');
    } else if (!isFirst) {
      text += ", ";
    }
    isFirst = false;
  }

  void beginMember(std::string_view key) {
    if (keys.size() - firstKey >= Limits::kKeysOfAnObject) {
      refuse(tooMany("keys in an object", Limits::kKeysOfAnObject));
    }
    countValue();
    keys.emplace_back(key);
    beginLine();
    writeText(key);
    text += ": ";
  }

  bool isThere(std::string_view key) const {
    return std::find(keys.begin() + static_cast<std::ptrdiff_t>(firstKey), keys.end(), key) !=
           keys.end();
  }

  // Writes the value at its path under the key.
  template <class Write>
  void put(std::string_view key, const Write& write) {
    if (error) {
      return;
    }
    const KeyedPath::Scope scope(path, std::string(key));
    checkText(key);
    if (!key.empty() && key.front() == KeyedDocument::kReservedMark) {
      refuse("a key with a '$' in front is the archive's own");
    }
    if (isThere(key)) {
      refuse("the key is there already");
    }
    beginMember(key);
    if (!error) {
      write();
    }
  }

  void writeObject(const KeyedCoding* coding, KeyedArchiver& coder) {
    if (coding == nullptr) {
      text += "null";
      return;
    }
    const Container inside(*this, "{}");
    beginMember(KeyedDocument::kClassKey);
    writeText(coding->archiveClassName());
    if (!error) {
      coding->encodeWithCoder(coder);
      coder.encodeRemainder(coding->mRemainder);
    }
  }

  // Writes the value as it was read.
  void writeJson(const Json& value) {
    if (error) {
      return;
    }
    if (value.is_object()) {
      const Container inside(*this, "{}");
      for (const auto& [key, inner] : value.get_ref<const Json::object_t&>()) {
        beginMember(key);
        writeJson(inner);
      }
    } else if (value.is_array()) {
      const Container inside(*this, "[]");
      for (const Json& inner : value) {
        countValue();
        beginLine();
        writeJson(inner);
      }
    } else {
      text += dumped(value);
    }
  }

  // One container deeper, for a scope.
  class Container {
   public:
    Container(State& state, const char (&marks)[3], bool onOneLine = false)
        : mState(state), mEnd(marks[1]), mWasOneLine(state.isOneLine) {
      if (state.depth >= Limits::kDepth) {
        state.refuse("nested deeper than " + std::to_string(Limits::kDepth));
      }
      ++state.depth;
      state.isOneLine = mWasOneLine || onOneLine || state.depth > kDepthOfLines;
      mFirstKey = std::exchange(state.firstKey, state.keys.size());
      state.text += marks[0];
      state.isFirst = true;
    }
    ~Container() {
      --mState.depth;
      const bool wasEmpty = std::exchange(mState.isFirst, false);
      const bool wasOneLine = std::exchange(mState.isOneLine, mWasOneLine);
      if (!wasEmpty && !wasOneLine) {
        (mState.text += '\n').append(kIndent * mState.depth, ' ');
      }
      mState.text += mEnd;
      mState.keys.resize(mState.firstKey);
      mState.firstKey = mFirstKey;
    }
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

   private:
    State& mState;
    const char mEnd;
    const bool mWasOneLine;
    std::size_t mFirstKey = 0;
  };

  std::string text = "{";  // without the end of the document
  bool isFirst = true;     // in its container, is what comes next
  bool isOneLine = false;  // all of the container
  std::size_t depth = 1;   // of containers that are open
  std::size_t values = 1;
  std::vector<std::string> keys;  // of the objects that are open
  std::size_t firstKey = 0;       // of the innermost
  KeyedPath path;
  std::optional<Error> error;
};

KeyedArchiver::KeyedArchiver() : mState(std::make_unique<State>()) {}
KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::encodeBool(bool value, std::string_view key) {
  mState->put(key, [this, value] { mState->text += value ? "true" : "false"; });
}

void KeyedArchiver::encodeInt32(std::int32_t value, std::string_view key) {
  encodeInt64(value, key);
}

void KeyedArchiver::encodeInt64(std::int64_t value, std::string_view key) {
  mState->put(key, [this, value] { mState->text += std::to_string(value); });
}

void KeyedArchiver::encodeDouble(double value, std::string_view key) {
  mState->put(key, [this, value] {
    if (!std::isfinite(value)) {
      mState->refuse("a number that is not finite");
    }
    mState->text += dumped(Json(value));
  });
}

void KeyedArchiver::encodeString(std::string_view value, std::string_view key) {
  mState->put(key, [this, value] {
    mState->checkText(value);
    mState->writeText(value);
  });
}

void KeyedArchiver::encodeBytes(std::span<const std::uint8_t> value, std::string_view key) {
  mState->put(key, [this, value] {
    const State::Container block(*mState, "{}", true);
    const std::string base64 = base64Encoded(value);
    mState->checkText(base64);
    mState->beginMember(KeyedDocument::kBytesKey);
    mState->writeText(base64);
  });
}

void KeyedArchiver::encodeNull(std::string_view key) {
  mState->put(key, [this] { mState->text += "null"; });
}

void KeyedArchiver::encodeObject(const KeyedCoding* object, std::string_view key) {
  mState->put(key, [this, object] { mState->writeObject(object, *this); });
}

void KeyedArchiver::encodeElements(std::span<const KeyedCoding* const> elements,
                                   std::string_view key) {
  mState->put(key, [this, elements] {
    const State::Container array(*mState, "[]");
    for (std::size_t i = 0; i < elements.size() && !mState->error; ++i) {
      const KeyedPath::Scope scope(mState->path, i);
      mState->countValue();
      mState->beginLine();
      mState->writeObject(elements[i], *this);
    }
  });
}

void KeyedArchiver::encodeRemainder(const KeyedRemainder& remainder) {
  if (remainder.empty() || mState->error) {
    return;
  }
  for (const auto& [key, value] : remainder.mMembers->object.get_ref<const Json::object_t&>()) {
    if (!mState->isThere(key)) {
      const KeyedPath::Scope scope(mState->path, key);
      mState->beginMember(key);
      mState->writeJson(value);
    }
  }
}

void KeyedArchiver::refuse(std::string_view key, const std::string& why) {
  const KeyedPath::Scope scope(mState->path, std::string(key));
  mState->refuse(why);
}

Expected<std::string> KeyedArchiver::data() const {
  std::string text = mState->text + (mState->isFirst ? "}\n" : "\n}\n");
  if (text.size() > Limits::kBytes) {
    mState->refuse(tooMany("bytes in all", Limits::kBytes));
  }
  if (mState->error) {
    return tl::unexpected(*mState->error);
  }
  return text;
}

}  // namespace velor::store
