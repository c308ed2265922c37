// SPDX-License-Identifier: MIT
#include "platform/store/KeyedArchiver.h"

#include <cmath>
#include <utility>

#include "platform/host/Exchanged.h"
#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedDocument.h"
#include "platform/store/KeyedPath.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;
using Limits = KeyedArchiveLimits;

constexpr int kIndent = 2;

std::string tooMany(const char* what, std::size_t limit) {
  return std::string("more than ") + std::to_string(limit) + " " + what;
}

}  // namespace

struct KeyedArchiver::State {
  [[noreturn]] void refuse(const std::string& what) const {
    throw KeyedArchiveError(path.text(), what);
  }

  void countValue() {
    if (++values > Limits::kValues) {
      refuse(tooMany("values in all", Limits::kValues));
    }
  }

  void checkText(std::string_view text) const {
    if (text.size() > Limits::kStringBytes) {
      refuse(tooMany("bytes of text", Limits::kStringBytes));
    }
  }

  // Makes the value at its path and puts it under the key; nothing is left of one
  // that raises.
  template <class Make>
  void put(std::string_view key, const Make& make) {
    const KeyedPath::Scope scope(path, std::string(key));
    checkText(key);
    if (!key.empty() && key.front() == KeyedDocument::kReservedMark) {
      refuse("a key with a '$' in front is the archive's own");
    }
    if (KeyedDocument::find(*object, key) != nullptr) {
      refuse("the key is there already");
    }
    countKey();
    KeyedDocument::append(*object, std::string(key), make());
  }

  void countKey() {
    if (object->size() >= Limits::kKeysOfAnObject) {
      refuse(tooMany("keys in an object", Limits::kKeysOfAnObject));
    }
    countValue();
  }

  // What stands in a value that is taken over as it is.
  void countInside(const Json& value) {
    if (value.is_structured()) {
      const Nested nested(*this);
      for (const Json& inner : value) {
        countValue();
        countInside(inner);
      }
    }
  }

  // Called inside `put`, which sets the object in force before it appends.
  Json encoded(const KeyedCoding* coding, KeyedArchiver& coder) {
    if (coding == nullptr) {
      return nullptr;
    }
    Json made = Json::object();
    KeyedDocument::append(made, std::string(KeyedDocument::kClassKey),
                          std::string(coding->archiveClassName()));
    countValue();
    const Nested nested(*this);
    // What is encoded goes to it, for the call.
    const host::Exchanged inside(object, &made);
    coding->encodeWithCoder(coder);
    coder.encodeRemainder(coding->mRemainder);
    return made;
  }

  // One container deeper, for a scope.
  class Nested {
   public:
    explicit Nested(State& state) : mState(state) {
      if (state.depth >= Limits::kDepth) {
        state.refuse("nested deeper than " + std::to_string(Limits::kDepth));
      }
      ++state.depth;
    }
    ~Nested() { --mState.depth; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

   private:
    State& mState;
  };

  Json root = Json::object();
  Json* object = &root;
  KeyedPath path;
  std::size_t depth = 1;
  std::size_t values = 1;
};

KeyedArchiver::KeyedArchiver() : mState(std::make_unique<State>()) {}
KeyedArchiver::~KeyedArchiver() = default;

void KeyedArchiver::encodeBool(bool value, std::string_view key) {
  mState->put(key, [value] { return Json(value); });
}

void KeyedArchiver::encodeInt32(std::int32_t value, std::string_view key) {
  encodeInt64(value, key);
}

void KeyedArchiver::encodeInt64(std::int64_t value, std::string_view key) {
  mState->put(key, [value] { return Json(value); });
}

void KeyedArchiver::encodeDouble(double value, std::string_view key) {
  mState->put(key, [this, value] {
    if (!std::isfinite(value)) {
      mState->refuse("a number that is not finite");
    }
    return Json(value);
  });
}

void KeyedArchiver::encodeString(std::string_view value, std::string_view key) {
  mState->put(key, [this, value] {
    mState->checkText(value);
    return Json(std::string(value));
  });
}

void KeyedArchiver::encodeBytes(std::span<const std::uint8_t> value, std::string_view key) {
  mState->put(key, [this, value] {
    const State::Nested nested(*mState);
    std::string text = base64Encoded(value);
    mState->checkText(text);
    mState->countValue();
    Json block = Json::object();
    KeyedDocument::append(block, std::string(KeyedDocument::kBytesKey), std::move(text));
    return block;
  });
}

void KeyedArchiver::encodeNull(std::string_view key) {
  mState->put(key, [] { return Json(nullptr); });
}

void KeyedArchiver::encodeObject(const KeyedCoding* object, std::string_view key) {
  mState->put(key, [this, object] { return mState->encoded(object, *this); });
}

void KeyedArchiver::encodeElements(std::span<const KeyedCoding* const> elements,
                                   std::string_view key) {
  mState->put(key, [this, elements] {
    const State::Nested nested(*mState);
    Json array = Json::array();
    for (std::size_t i = 0; i < elements.size(); ++i) {
      const KeyedPath::Scope scope(mState->path, i);
      mState->countValue();
      array.push_back(mState->encoded(elements[i], *this));
    }
    return array;
  });
}

void KeyedArchiver::encodeRemainder(const KeyedRemainder& remainder) {
  if (remainder.empty()) {
    return;
  }
  for (const auto& [key, value] : remainder.mMembers->object.get_ref<const Json::object_t&>()) {
    if (KeyedDocument::find(*mState->object, key) == nullptr) {
      const KeyedPath::Scope scope(mState->path, key);
      mState->countKey();
      mState->countInside(value);
      KeyedDocument::append(*mState->object, key, value);
    }
  }
}

std::string KeyedArchiver::data() const {
  std::string text = mState->root.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
  if (text.size() > Limits::kBytes) {
    mState->refuse(tooMany("bytes in all", Limits::kBytes));
  }
  return text;
}

}  // namespace velor::store
