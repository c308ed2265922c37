// SPDX-License-Identifier: MIT
#include "platform/store/KeyedUnarchiver.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "platform/store/AtomicFile.h"
#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedDocument.h"
#include "platform/store/KeyedPath.h"
#include "platform/store/Printable.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;

constexpr std::size_t kTextBytesShown = 120;

// The text under the key of an object; null where there is none.
const std::string* findText(const Json& object, std::string_view key) {
  if (!object.is_object()) {
    return nullptr;
  }
  const auto found = object.find(key);
  return found != object.end() ? found->get_ptr<const std::string*>() : nullptr;
}

std::string described(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "a bool";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::object:
      break;
    default:
      return "the number " + value.dump();
  }
  if (value.contains(KeyedDocument::kBytesKey)) {
    return "a byte block";
  }
  const std::string* const name = findText(value, KeyedDocument::kClassKey);
  return name != nullptr ? "an object of class " + printable(*name, kTextBytesShown)
                         : "an object without a class";
}

}  // namespace

struct KeyedUnarchiver::State {
  // Asks for the keys of an object, for the length of a scope.
  class Inside {
   public:
    Inside(State& state, const Json& object)
        : mState(state),
          mObject(std::exchange(state.object, &object)),
          mFirstAsked(std::exchange(state.firstAsked, state.asked.size())) {
      state.asked.resize(state.asked.size() + object.size());
    }
    ~Inside() {
      mState.asked.resize(mState.firstAsked);
      mState.firstAsked = mFirstAsked;
      mState.object = mObject;
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    State& mState;
    const Json* const mObject;
    const std::size_t mFirstAsked;
  };

  // The value under the key, null where there is none. It is asked for from now on.
  const Json* ask(std::string_view key) {
    std::size_t place = firstAsked;
    for (const auto& [name, found] : object->get_ref<const Json::object_t&>()) {
      if (name == key) {
        asked[place] = true;
        return &found;
      }
      ++place;
    }
    return nullptr;
  }

  // As `ask`, unless the value is null or there is an error.
  const Json* value(std::string_view key) {
    const Json* found = error ? nullptr : ask(key);
    return found != nullptr && !found->is_null() ? found : nullptr;
  }

  // Makes this the error, at the current path.
  void refuse(const std::string& why) {
    if (!error) {
      error = Error{path.text() + ": " + why};
    }
  }
  void refuse(const std::string& wanted, const Json& found) {
    refuse("expected " + wanted + ", found " + described(found));
  }

  // The value under the key, which must be a Held.
  template <class Held>
  std::optional<Held> held(std::string_view key, const char* wanted) {
    const Json* found = value(key);
    if (found == nullptr) {
      return std::nullopt;
    }
    if (const auto* right = found->get_ptr<const Held*>()) {
      return *right;
    }
    const KeyedPath::Scope step(path, std::string(key));
    refuse(wanted, *found);
    return std::nullopt;
  }

  template <class Integer>
  std::optional<Integer> integer(std::string_view key, const char* wanted) {
    const Json* found = value(key);
    if (found == nullptr) {
      return std::nullopt;
    }
    if (const auto* number = found->get_ptr<const std::uint64_t*>()) {
      if (std::in_range<Integer>(*number)) {
        return static_cast<Integer>(*number);
      }
    } else if (const auto* negative = found->get_ptr<const std::int64_t*>()) {
      if (std::in_range<Integer>(*negative)) {
        return static_cast<Integer>(*negative);
      }
    }
    const KeyedPath::Scope step(path, std::string(key));
    refuse(wanted, *found);
    return std::nullopt;
  }

  // Makes the object at the current path.
  std::shared_ptr<KeyedCoding> make(const Json& found, const Wanted& wanted,
                                    KeyedUnarchiver& coder) {
    if (found.is_null()) {
      return nullptr;
    }
    const std::string* const name = findText(found, KeyedDocument::kClassKey);
    const auto row = std::find_if(classes.begin(), classes.end(), [name](const KeyedClass& known) {
      return name != nullptr && known.name == *name;
    });
    std::shared_ptr<KeyedCoding> made;
    if (row != classes.end()) {
      const Inside inside(*this, found);
      ask(KeyedDocument::kClassKey);
      made = row->initWithCoder(coder);
      if (made != nullptr) {
        made->mRemainder = coder.remainder();
      }
    }
    if (row == classes.end() || (made != nullptr && !wanted.isOne(*made))) {
      refuse("an object of class " + std::string(wanted.className), found);
    }
    return error ? nullptr : made;
  }

  State(Json read, std::span<const KeyedClass> known)
      : document(std::move(read)), classes(known), object(&document), asked(document.size()) {}

  const Json document;
  const std::span<const KeyedClass> classes;
  // The current object, and which of its keys were asked for, by their places, after those
  // of the objects around it.
  const Json* object;
  std::vector<bool> asked;
  std::size_t firstAsked = 0;
  KeyedPath path;
  std::optional<Error> error;
};

KeyedUnarchiver::KeyedUnarchiver(std::unique_ptr<State> state) : mState(std::move(state)) {}
KeyedUnarchiver::~KeyedUnarchiver() = default;
KeyedUnarchiver::KeyedUnarchiver(KeyedUnarchiver&&) noexcept = default;

Expected<KeyedUnarchiver> KeyedUnarchiver::read(std::string_view document,
                                                std::span<const KeyedClass> classes) {
  auto json = KeyedDocument::read(document);
  if (!json) {
    return tl::unexpected(json.error());
  }
  if (!json->is_object()) {
    return failure("the document: expected an object, found " + described(*json));
  }
  return KeyedUnarchiver(std::make_unique<State>(*std::move(json), classes));
}

Expected<KeyedUnarchiver> KeyedUnarchiver::readFile(const std::filesystem::path& path,
                                                    std::span<const KeyedClass> classes) {
  const auto contents = AtomicFile::read(path, KeyedArchiveLimits::kBytes);
  if (!contents) {
    return tl::unexpected(contents.error());
  }
  return read(*contents, classes).map_error([&path](const Error& error) {
    return Error{path.string() + ": " + error.text};
  });
}

Expected<> KeyedUnarchiver::check() {
  if (const auto error = std::exchange(mState->error, std::nullopt)) {
    return tl::unexpected(*error);
  }
  return {};
}

bool KeyedUnarchiver::failed() const noexcept {
  return mState->error.has_value();
}

void KeyedUnarchiver::refuse(std::string_view key, const std::string& why) {
  const KeyedPath::Scope step(mState->path, std::string(key));
  mState->refuse(why);
}

bool KeyedUnarchiver::containsValue(std::string_view key) const {
  return mState->ask(key) != nullptr;
}

std::string KeyedUnarchiver::pathOf(std::string_view key) const {
  const KeyedPath::Scope step(mState->path, std::string(key));
  return mState->path.text();
}

KeyedRemainder KeyedUnarchiver::remainder() const {
  auto isAsked = mState->asked.cbegin() + static_cast<std::ptrdiff_t>(mState->firstAsked);
  if (std::find(isAsked, mState->asked.cend(), false) == mState->asked.cend()) {
    return {};  // as nearly always
  }
  Json left = Json::object();
  for (const auto& [key, value] : mState->object->get_ref<const Json::object_t&>()) {
    if (!*isAsked++) {
      left.get_ref<Json::object_t&>().emplace_back(key, value);
    }
  }
  return KeyedRemainder(
      std::make_shared<const KeyedRemainder::Members>(KeyedRemainder::Members{std::move(left)}));
}

std::optional<bool> KeyedUnarchiver::decodeBool(std::string_view key) {
  return mState->held<bool>(key, "a bool");
}

std::optional<std::int32_t> KeyedUnarchiver::decodeInt32(std::string_view key) {
  return mState->integer<std::int32_t>(key, "a whole number of 32 bits");
}

std::optional<std::int64_t> KeyedUnarchiver::decodeInt64(std::string_view key) {
  return mState->integer<std::int64_t>(key, "a whole number of 64 bits");
}

std::optional<double> KeyedUnarchiver::decodeDouble(std::string_view key) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  if (const auto* whole = found->get_ptr<const std::uint64_t*>()) {
    return static_cast<double>(*whole);
  }
  if (const auto* negative = found->get_ptr<const std::int64_t*>()) {
    return static_cast<double>(*negative);
  }
  return mState->held<double>(key, "a number");
}

std::optional<std::string> KeyedUnarchiver::decodeString(std::string_view key) {
  return mState->held<std::string>(key, "a string");
}

std::optional<std::vector<std::uint8_t>> KeyedUnarchiver::decodeBytes(std::string_view key) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  const auto block = found->find(KeyedDocument::kBytesKey);
  if (!found->is_object() || block == found->end()) {
    mState->refuse("a byte block", *found);
    return std::nullopt;
  }
  const KeyedPath::Scope inner(mState->path, std::string(KeyedDocument::kBytesKey));
  const auto* const text = block->get_ptr<const std::string*>();
  if (text == nullptr) {
    mState->refuse("base64", *block);
    return std::nullopt;
  }
  auto bytes = base64Decoded(*text);
  if (!bytes) {
    mState->refuse("the text is not base64");
  }
  return bytes;
}

std::shared_ptr<KeyedCoding> KeyedUnarchiver::decodeObjectOf(std::string_view key,
                                                             const Wanted& wanted) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return nullptr;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  return mState->make(*found, wanted, *this);
}

std::optional<std::vector<std::shared_ptr<KeyedCoding>>> KeyedUnarchiver::decodeArrayOf(
    std::string_view key, const Wanted& wanted) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  if (!found->is_array()) {
    mState->refuse("an array", *found);
    return std::nullopt;
  }
  std::vector<std::shared_ptr<KeyedCoding>> elements;
  elements.reserve(found->size());
  for (const Json& element : *found) {
    const KeyedPath::Scope inner(mState->path, elements.size());
    elements.push_back(mState->make(element, wanted, *this));
    if (failed()) {
      return std::nullopt;
    }
  }
  return elements;
}

}  // namespace velor::store
