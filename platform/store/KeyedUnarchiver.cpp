// SPDX-License-Identifier: MIT
#include "platform/store/KeyedUnarchiver.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/store/AtomicFile.h"
#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedDocument.h"
#include "platform/store/KeyedPath.h"
#include "platform/store/KeyedTree.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;

constexpr std::size_t kTextBytesShown = 120;

using Value = KeyedTree::Value;
using Array = KeyedTree::Array;
using Object = KeyedTree::Object;

Json toJson(const Value& value) {
  return std::visit(
      [](const auto& held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, Object>) {
          Json object = Json::object();
          for (const auto& [key, inner] : held) {
            object.get_ref<Json::object_t&>().emplace_back(std::string(key), toJson(inner));
          }
          return object;
        } else if constexpr (std::is_same_v<Held, Array>) {
          Json array = Json::array();
          for (const auto& element : held) {
            array.push_back(toJson(element.value));
          }
          return array;
        } else {
          return Json(held);
        }
      },
      value);
}

// The text under the key of an object; null where there is none.
const std::string_view* findText(const Value& object, std::string_view key) {
  const auto* const members = std::get_if<Object>(&object);
  const Value* const found = members != nullptr ? KeyedTree::find(*members, key) : nullptr;
  return found != nullptr ? std::get_if<std::string_view>(found) : nullptr;
}

std::string described(const Value& value) {
  if (std::holds_alternative<std::nullptr_t>(value)) {
    return "null";
  }
  if (std::holds_alternative<bool>(value)) {
    return "a bool";
  }
  if (std::holds_alternative<std::string_view>(value)) {
    return "a string";
  }
  if (std::holds_alternative<Array>(value)) {
    return "an array";
  }
  const auto* const object = std::get_if<Object>(&value);
  if (object == nullptr) {
    return "the number " + toJson(value).dump();
  }
  if (KeyedTree::find(*object, KeyedDocument::kBytesKey) != nullptr) {
    return "a byte block";
  }
  const std::string_view* const name = findText(value, KeyedDocument::kClassKey);
  return name != nullptr ? "an object of class " + printable(*name, kTextBytesShown)
                         : "an object without a class";
}

}  // namespace

struct KeyedUnarchiver::State {
  // Asks for the keys of an object, for the length of a scope.
  class Inside {
   public:
    Inside(State& state, const Object& object)
        : mState(state),
          mObject(std::exchange(state.object, object)),
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
    const Object mObject;
    const std::size_t mFirstAsked;
  };

  // The value under the key, null where there is none. It is asked for from now on.
  const Value* ask(std::string_view key) {
    std::size_t place = firstAsked;
    for (const auto& [name, found] : object) {
      if (name == key) {
        asked[place] = true;
        return &found;
      }
      ++place;
    }
    return nullptr;
  }

  // As `ask`, unless the value is null.
  const Value* value(std::string_view key) {
    const Value* found = ask(key);
    return found != nullptr && !std::holds_alternative<std::nullptr_t>(*found) ? found : nullptr;
  }

  [[noreturn]] void refuse(const std::string& wanted, const Value& found) const {
    throw KeyedArchiveError(path.text(), "expected " + wanted + ", found " + described(found));
  }

  // The value under the key, which is to be a Held.
  template <class Held, class Result = Held>
  std::optional<Result> held(std::string_view key, const char* wanted) {
    const Value* found = value(key);
    if (found == nullptr) {
      return std::nullopt;
    }
    if (const auto* right = std::get_if<Held>(found)) {
      return Result(*right);
    }
    const KeyedPath::Scope step(path, std::string(key));
    refuse(wanted, *found);
  }

  template <class Integer>
  std::optional<Integer> integer(std::string_view key, const char* wanted) {
    const Value* found = value(key);
    if (found == nullptr) {
      return std::nullopt;
    }
    if (const auto* number = std::get_if<std::uint64_t>(found)) {
      if (std::in_range<Integer>(*number)) {
        return static_cast<Integer>(*number);
      }
    } else if (const auto* negative = std::get_if<std::int64_t>(found)) {
      if (std::in_range<Integer>(*negative)) {
        return static_cast<Integer>(*negative);
      }
    }
    const KeyedPath::Scope step(path, std::string(key));
    refuse(wanted, *found);
  }

  // At the object's path.
  std::shared_ptr<KeyedCoding> make(const Value& found, const Wanted& wanted,
                                    KeyedUnarchiver& coder) {
    if (std::holds_alternative<std::nullptr_t>(found)) {
      return nullptr;
    }
    const auto expected = [&wanted] {
      return "an object of class " + std::string(wanted.className);
    };
    const std::string_view* const name = findText(found, KeyedDocument::kClassKey);
    if (name == nullptr) {
      refuse(expected(), found);
    }
    const auto row = std::find_if(classes.begin(), classes.end(),
                                  [name](const KeyedClass& known) { return known.name == *name; });
    if (row == classes.end()) {
      refuse(expected(), found);
    }
    std::shared_ptr<KeyedCoding> made;
    {
      const Inside inside(*this, std::get<Object>(found));
      ask(KeyedDocument::kClassKey);
      made = row->initWithCoder(coder);
      if (made != nullptr) {
        made->mRemainder = coder.remainder();
      }
    }
    if (made != nullptr && !wanted.isOne(*made)) {
      refuse(expected(), found);
    }
    return made;
  }

  State(std::unique_ptr<const KeyedTree> document, std::span<const KeyedClass> known)
      : tree(std::move(document)),
        classes(known),
        object(std::get<Object>(tree->root())),
        asked(object.size()) {}

  const std::unique_ptr<const KeyedTree> tree;
  const std::span<const KeyedClass> classes;
  // The object whose keys are asked for, and which of them were, by their places, behind
  // those of the objects around it.
  Object object;
  std::vector<bool> asked;
  std::size_t firstAsked = 0;
  KeyedPath path;
};

KeyedUnarchiver::KeyedUnarchiver(std::unique_ptr<State> state) : mState(std::move(state)) {}
KeyedUnarchiver::~KeyedUnarchiver() = default;

KeyedUnarchiver::Result KeyedUnarchiver::read(std::string_view document,
                                              std::span<const KeyedClass> classes) {
  auto [tree, error] = KeyedTree::read(document);
  if (tree == nullptr) {
    return {nullptr, std::move(error)};
  }
  if (!std::holds_alternative<Object>(tree->root())) {
    return {nullptr, "the document: expected an object, found " + described(tree->root())};
  }
  auto state = std::make_unique<State>(std::move(tree), classes);
  return {std::unique_ptr<KeyedUnarchiver>(new KeyedUnarchiver(std::move(state))), {}};
}

KeyedUnarchiver::Result KeyedUnarchiver::readFile(const std::filesystem::path& path,
                                                  std::span<const KeyedClass> classes) {
  const AtomicFile::Contents contents = AtomicFile::read(path, KeyedArchiveLimits::kBytes);
  if (!contents) {
    return {nullptr, contents.error};
  }
  Result result = read(contents.bytes, classes);
  if (!result) {
    result.error = path.string() + ": " + result.error;
  }
  return result;
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
  for (const auto& [key, value] : mState->object) {
    if (!*isAsked++) {
      left.get_ref<Json::object_t&>().emplace_back(std::string(key), toJson(value));
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
  const Value* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  if (const auto* whole = std::get_if<std::uint64_t>(found)) {
    return static_cast<double>(*whole);
  }
  if (const auto* negative = std::get_if<std::int64_t>(found)) {
    return static_cast<double>(*negative);
  }
  return mState->held<double>(key, "a number");
}

std::optional<std::string> KeyedUnarchiver::decodeString(std::string_view key) {
  return mState->held<std::string_view, std::string>(key, "a string");
}

std::optional<std::vector<std::uint8_t>> KeyedUnarchiver::decodeBytes(std::string_view key) {
  const Value* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  const auto* const object = std::get_if<Object>(found);
  const Value* const block =
      object != nullptr ? KeyedTree::find(*object, KeyedDocument::kBytesKey) : nullptr;
  if (block == nullptr) {
    mState->refuse("a byte block", *found);
  }
  const KeyedPath::Scope inner(mState->path, std::string(KeyedDocument::kBytesKey));
  const auto* const text = std::get_if<std::string_view>(block);
  if (text == nullptr) {
    mState->refuse("base64", *block);
  }
  auto bytes = base64Decoded(*text);
  if (!bytes) {
    throw KeyedArchiveError(mState->path.text(), "the text is no base64");
  }
  return bytes;
}

std::shared_ptr<KeyedCoding> KeyedUnarchiver::decodeObjectOf(std::string_view key,
                                                             const Wanted& wanted) {
  const Value* found = mState->value(key);
  if (found == nullptr) {
    return nullptr;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  return mState->make(*found, wanted, *this);
}

std::optional<std::vector<std::shared_ptr<KeyedCoding>>> KeyedUnarchiver::decodeArrayOf(
    std::string_view key, const Wanted& wanted) {
  const Value* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  const auto* const array = std::get_if<Array>(found);
  if (array == nullptr) {
    mState->refuse("an array", *found);
  }
  std::vector<std::shared_ptr<KeyedCoding>> elements;
  elements.reserve(array->size());
  for (const auto& element : *array) {
    const KeyedPath::Scope inner(mState->path, elements.size());
    elements.push_back(mState->make(element.value, wanted, *this));
  }
  return elements;
}

}  // namespace velor::store
