// SPDX-License-Identifier: MIT
#include "platform/store/KeyedUnarchiver.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/host/Exchanged.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedDocument.h"
#include "platform/store/KeyedPath.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;
using Limits = KeyedArchiveLimits;

constexpr std::size_t kTextBytesShown = 120;

// "line 3, column 7" of the character that is the `count`th.
std::string placeOf(std::string_view text, std::size_t count) {
  const std::string_view before = text.substr(0, count > 0 ? count - 1 : 0);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t lineStart = before.rfind('\n') + 1;  // 0 on the first line
  return "line " + std::to_string(line) + ", column " +
         std::to_string(before.size() - lineStart + 1);
}

// What the parser says, without its number and its own telling of the place.
std::string withoutHead(std::string_view message) {
  if (message.starts_with('[')) {
    message.remove_prefix(std::min(message.size(), message.find("] ") + 2));
  }
  if (message.starts_with("parse error at ")) {
    message.remove_prefix(std::min(message.size(), message.find(": ") + 2));
  }
  return printable(message, kTextBytesShown);
}

// Builds the document out of the parser's events, within the limits. The parser
// keeps no stack of its own but a bit a level, so that depth costs nothing before
// it is refused here.
class Builder final : public nlohmann::json_sax<Json> {
 public:
  explicit Builder(std::string_view text) : mText(text) {}

  bool null() override { return add(nullptr) != nullptr; }
  bool boolean(bool value) override { return add(value) != nullptr; }
  bool number_integer(number_integer_t value) override { return add(value) != nullptr; }
  bool number_unsigned(number_unsigned_t value) override { return add(value) != nullptr; }
  bool number_float(number_float_t value, const string_t&) override {
    return add(value) != nullptr;
  }
  bool string(string_t& value) override {
    return isShort(value) && add(std::move(value)) != nullptr;
  }
  bool binary(binary_t&) override { return refuse("a form of data that JSON does not have"); }

  bool start_object(std::size_t) override { return open(Json::object(), std::string()); }
  bool key(string_t& value) override {
    if (!isShort(value)) {
      return false;
    }
    if (mOpen.back()->size() >= Limits::kKeysOfAnObject) {
      return refuse("more than " + std::to_string(Limits::kKeysOfAnObject) + " keys");
    }
    mPath.last() = std::move(value);
    return true;
  }
  bool end_object() override { return keysDiffer() && close(); }
  bool start_array(std::size_t) override { return open(Json::array(), std::size_t{0}); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t position, const std::string&,
                   const Json::exception& exception) override {
    mError = placeOf(mText, position) + ": " + withoutHead(exception.what());
    return false;
  }

  Json& root() noexcept { return mRoot; }
  const std::string& error() const noexcept { return mError; }

 private:
  bool refuse(const std::string& what) {
    mError = mPath.text() + ": " + what;
    return false;
  }

  bool isShort(const std::string& text) {
    return text.size() <= Limits::kStringBytes ||
           refuse("a text of more than " + std::to_string(Limits::kStringBytes) + " bytes");
  }

  // Where the value stands now; null when it is refused.
  Json* add(Json value) {
    if (++mValues > Limits::kValues) {
      refuse("more than " + std::to_string(Limits::kValues) + " values in all");
      return nullptr;
    }
    if (mOpen.empty()) {
      mRoot = std::move(value);
      return &mRoot;
    }
    Json& parent = *mOpen.back();
    if (parent.is_object()) {
      return &KeyedDocument::append(parent, std::get<std::string>(mPath.last()), std::move(value));
    }
    parent.push_back(std::move(value));
    std::get<std::size_t>(mPath.last()) = parent.size();  // of the next one
    return &parent.back();
  }

  bool open(Json container, KeyedPath::Step first) {
    if (mOpen.size() >= Limits::kDepth) {
      return refuse("nested deeper than " + std::to_string(Limits::kDepth));
    }
    // Of the container itself: `add` moves an array's path on to the next one.
    const KeyedPath::Step own = mOpen.empty() ? KeyedPath::Step() : mPath.last();
    Json* const added = add(std::move(container));
    if (added == nullptr) {
      return false;
    }
    if (!mOpen.empty()) {
      mPath.last() = own;
    }
    mOpen.push_back(added);
    mPath.push(std::move(first));
    return true;
  }

  bool close() {
    mOpen.pop_back();
    mPath.pop();
    if (!mOpen.empty() && mOpen.back()->is_array()) {
      mPath.last() = mOpen.back()->size();
    }
    return true;
  }

  // Looked at when the object is whole: one sort, whatever its size.
  bool keysDiffer() {
    std::vector<std::string_view> keys;
    for (const auto& [name, value] : mOpen.back()->get_ref<const Json::object_t&>()) {
      keys.push_back(name);
    }
    std::sort(keys.begin(), keys.end());
    const auto twice = std::adjacent_find(keys.begin(), keys.end());
    if (twice == keys.end()) {
      return true;
    }
    mPath.last() = std::string(*twice);
    return refuse("the key stands there twice");
  }

  const std::string_view mText;
  Json mRoot;
  // The containers that are open. None grows while one inside it is open, so that
  // they stay where they are.
  std::vector<Json*> mOpen;
  KeyedPath mPath;
  std::size_t mValues = 0;
  std::string mError;
};

std::string described(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "a bool";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
      return "the number " + value.dump();
    case Json::value_t::string:
      return "a string";
    case Json::value_t::array:
      return "an array";
    default:
      break;
  }
  if (KeyedDocument::find(value, KeyedDocument::kBytesKey) != nullptr) {
    return "a byte block";
  }
  const Json* name = KeyedDocument::find(value, KeyedDocument::kClassKey);
  return name != nullptr && name->is_string()
             ? "an object of class " +
                   printable(name->get_ref<const std::string&>(), kTextBytesShown)
             : "an object without a class";
}

}  // namespace

struct KeyedUnarchiver::State {
  // The object whose keys are asked for, and which of them were.
  struct Scope {
    explicit Scope(const Json& asked) : object(&asked), isAsked(asked.size()) {}

    const Json* object;
    std::vector<bool> isAsked;  // by their places in the object
  };

  // The value under the key, null where there is none. It is asked for from now on.
  const Json* ask(std::string_view key) {
    std::size_t place = 0;
    for (const auto& [name, found] : scope.object->get_ref<const Json::object_t&>()) {
      if (name == key) {
        scope.isAsked[place] = true;
        return &found;
      }
      ++place;
    }
    return nullptr;
  }

  // As `ask`, unless the value is null.
  const Json* value(std::string_view key) {
    const Json* found = ask(key);
    return found != nullptr && !found->is_null() ? found : nullptr;
  }

  [[noreturn]] void refuse(const std::string& wanted, const Json& found) const {
    throw KeyedArchiveError(path.text(), "expected " + wanted + ", found " + described(found));
  }

  template <class Integer>
  std::optional<Integer> integer(std::string_view key, const char* wanted) {
    const Json* found = value(key);
    if (found == nullptr) {
      return std::nullopt;
    }
    if (found->is_number_unsigned()) {
      const auto number = found->get<std::uint64_t>();
      if (std::in_range<Integer>(number)) {
        return static_cast<Integer>(number);
      }
    } else if (found->is_number_integer()) {
      const auto number = found->get<std::int64_t>();
      if (std::in_range<Integer>(number)) {
        return static_cast<Integer>(number);
      }
    }
    const KeyedPath::Scope step(path, std::string(key));
    refuse(wanted, *found);
  }

  // At the object's path.
  std::shared_ptr<KeyedCoding> make(const Json& found, const Wanted& wanted,
                                    KeyedUnarchiver& coder) {
    if (found.is_null()) {
      return nullptr;
    }
    const auto expected = [&wanted] {
      return "an object of class " + std::string(wanted.className);
    };
    const Json* name =
        found.is_object() ? KeyedDocument::find(found, KeyedDocument::kClassKey) : nullptr;
    if (name == nullptr || !name->is_string()) {
      refuse(expected(), found);
    }
    const auto row = std::find_if(classes.begin(), classes.end(), [name](const KeyedClass& known) {
      return known.name == name->get_ref<const std::string&>();
    });
    if (row == classes.end()) {
      refuse(expected(), found);
    }
    std::shared_ptr<KeyedCoding> made;
    {
      // Its keys are what is asked for, for the call.
      const host::Exchanged inside(scope, Scope(found));
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

  State(Json document, std::span<const KeyedClass> known)
      : root(std::move(document)), classes(known) {}

  const Json root;
  const std::span<const KeyedClass> classes;
  Scope scope = Scope(root);
  KeyedPath path;
};

KeyedUnarchiver::KeyedUnarchiver(std::unique_ptr<State> state) : mState(std::move(state)) {}
KeyedUnarchiver::~KeyedUnarchiver() = default;

KeyedUnarchiver::Result KeyedUnarchiver::read(std::string_view document,
                                              std::span<const KeyedClass> classes) {
  if (document.size() > Limits::kBytes) {
    return {nullptr, "the document: longer than " + std::to_string(Limits::kBytes) + " bytes"};
  }
  // The parser takes it for the end and looks no further.
  if (const std::size_t zero = document.find('\0'); zero != std::string_view::npos) {
    return {nullptr, placeOf(document, zero + 1) + ": a zero byte"};
  }
  Builder builder(document);
  if (!Json::sax_parse(document, &builder)) {
    return {nullptr, builder.error()};
  }
  if (!builder.root().is_object()) {
    return {nullptr, "the document: expected an object, found " + described(builder.root())};
  }
  auto state = std::make_unique<State>(std::move(builder.root()), classes);
  return {std::unique_ptr<KeyedUnarchiver>(new KeyedUnarchiver(std::move(state))), {}};
}

KeyedUnarchiver::Result KeyedUnarchiver::readFile(const std::filesystem::path& path,
                                                  std::span<const KeyedClass> classes) {
  const AtomicFile::Contents contents = AtomicFile::read(path, Limits::kBytes);
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
  const auto& [object, isAsked] = mState->scope;
  if (std::find(isAsked.begin(), isAsked.end(), false) == isAsked.end()) {
    return {};  // as nearly always
  }
  Json left = Json::object();
  std::size_t place = 0;
  for (const auto& [key, value] : object->get_ref<const Json::object_t&>()) {
    if (!isAsked[place++]) {
      KeyedDocument::append(left, key, value);
    }
  }
  return KeyedRemainder(
      std::make_shared<const KeyedRemainder::Members>(KeyedRemainder::Members{std::move(left)}));
}

std::optional<bool> KeyedUnarchiver::decodeBool(std::string_view key) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  if (!found->is_boolean()) {
    mState->refuse("a bool", *found);
  }
  return found->get<bool>();
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
  const KeyedPath::Scope scope(mState->path, std::string(key));
  if (!found->is_number()) {
    mState->refuse("a number", *found);
  }
  return found->get<double>();
}

std::optional<std::string> KeyedUnarchiver::decodeString(std::string_view key) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  if (!found->is_string()) {
    mState->refuse("a string", *found);
  }
  return found->get<std::string>();
}

std::optional<std::vector<std::uint8_t>> KeyedUnarchiver::decodeBytes(std::string_view key) {
  const Json* found = mState->value(key);
  if (found == nullptr) {
    return std::nullopt;
  }
  const KeyedPath::Scope scope(mState->path, std::string(key));
  const Json* text =
      found->is_object() ? KeyedDocument::find(*found, KeyedDocument::kBytesKey) : nullptr;
  if (text == nullptr) {
    mState->refuse("a byte block", *found);
  }
  const KeyedPath::Scope inner(mState->path, std::string(KeyedDocument::kBytesKey));
  if (!text->is_string()) {
    mState->refuse("base64", *text);
  }
  auto bytes = base64Decoded(text->get_ref<const std::string&>());
  if (!bytes) {
    throw KeyedArchiveError(mState->path.text(), "the text is no base64");
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
  }
  std::vector<std::shared_ptr<KeyedCoding>> elements;
  for (const Json& element : *found) {
    const KeyedPath::Scope inner(mState->path, elements.size());
    elements.push_back(mState->make(element, wanted, *this));
  }
  return elements;
}

}  // namespace velor::store
