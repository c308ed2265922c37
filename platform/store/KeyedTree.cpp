// SPDX-License-Identifier: MIT
#include "platform/store/KeyedTree.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedPath.h"

namespace velor::store {
namespace {

using Json = nlohmann::json;
using Limits = KeyedArchiveLimits;

constexpr std::size_t kReasonBytesShown = 120;

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
  return printable(message, kReasonBytesShown);
}

}  // namespace

// Builds the tree out of the parser's events, within the limits. The parser keeps no stack
// of its own but a bit a level, so that depth costs nothing before it is refused here.
class KeyedTree::Builder final : public nlohmann::json_sax<Json> {
 public:
  Builder(std::string_view text, KeyedTree& tree) : mText(text), mTree(tree) {}

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t&) override { return add(value); }
  bool string(string_t& value) override { return isShort(value) && add(kept(value)); }
  bool binary(binary_t&) override { return refuse("a form of data that JSON does not have"); }

  bool start_object(std::size_t) override { return open(std::string()); }
  bool key(string_t& value) override {
    if (!isShort(value)) {
      return false;
    }
    if (mMembers.size() - mOpen.back().begin >= Limits::kKeysOfAnObject) {
      return refuse("more than " + std::to_string(Limits::kKeysOfAnObject) + " keys");
    }
    mKey = kept(value);
    mPath.last() = std::move(value);
    return true;
  }
  bool end_object() override { return keysDiffer() && close<Object>(); }
  bool start_array(std::size_t) override { return open(std::size_t{0}); }
  bool end_array() override { return close<Array>(); }

  bool parse_error(std::size_t position, const std::string&,
                   const Json::exception& exception) override {
    mError = placeOf(mText, position) + ": " + withoutHead(exception.what());
    return false;
  }

  std::string& error() noexcept { return mError; }

 private:
  // A container whose end is to come.
  struct Open {
    std::string_view key;  // its own
    std::size_t begin;     // its first member
  };

  bool refuse(const std::string& what) {
    mError = mPath.text() + ": " + what;
    return false;
  }

  bool isShort(const std::string& text) {
    return text.size() <= Limits::kStringBytes ||
           refuse("a text of more than " + std::to_string(Limits::kStringBytes) + " bytes");
  }

  template <class T>
  T* copied(const T* values, std::size_t count) {
    void* const place = mTree.mMemory.allocate(count * sizeof(T), alignof(T));
    return std::uninitialized_copy_n(values, count, static_cast<T*>(place)) - count;
  }

  std::string_view kept(const std::string& text) {
    return {copied(text.data(), text.size()), text.size()};
  }

  bool count() {
    return ++mValues <= Limits::kValues ||
           refuse("more than " + std::to_string(Limits::kValues) + " values in all");
  }

  bool add(Value value) {
    if (!count()) {
      return false;
    }
    put(std::exchange(mKey, {}), value);
    return true;
  }

  void put(std::string_view key, const Value& value) {
    if (mOpen.empty()) {
      mTree.mRoot = value;
      return;
    }
    mMembers.push_back({key, value});
    if (auto* place = std::get_if<std::size_t>(&mPath.last())) {
      ++*place;  // of the next one
    }
  }

  bool open(KeyedPath::Step first) {
    if (mOpen.size() >= Limits::kDepth) {
      return refuse("nested deeper than " + std::to_string(Limits::kDepth));
    }
    if (!count()) {
      return false;
    }
    mOpen.push_back({std::exchange(mKey, {}), mMembers.size()});
    mPath.push(std::move(first));
    return true;
  }

  template <class Container>
  bool close() {
    const auto [key, begin] = mOpen.back();
    const std::size_t size = mMembers.size() - begin;
    const Container container(copied(mMembers.data() + begin, size), size);
    mMembers.resize(begin);
    mOpen.pop_back();
    mPath.pop();
    put(key, container);
    return true;
  }

  // Looked at when the object is whole: one sort, whatever its size.
  bool keysDiffer() {
    mKeys.clear();
    for (std::size_t i = mOpen.back().begin; i < mMembers.size(); ++i) {
      mKeys.push_back(mMembers[i].key);
    }
    std::sort(mKeys.begin(), mKeys.end());
    const auto twice = std::adjacent_find(mKeys.begin(), mKeys.end());
    if (twice == mKeys.end()) {
      return true;
    }
    mPath.last() = std::string(*twice);
    return refuse("the key stands there twice");
  }

  const std::string_view mText;
  KeyedTree& mTree;
  std::vector<Open> mOpen;
  std::vector<Member> mMembers;  // of all that is open
  std::string_view mKey;         // of the value to come; empty in an array
  std::vector<std::string_view> mKeys;
  KeyedPath mPath;
  std::size_t mValues = 0;
  std::string mError;
};

KeyedTree::Result KeyedTree::read(std::string_view text) {
  if (text.size() > Limits::kBytes) {
    return {nullptr, "the document: longer than " + std::to_string(Limits::kBytes) + " bytes"};
  }
  // The parser takes it for the end and looks no further.
  if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
    return {nullptr, placeOf(text, zero + 1) + ": a zero byte"};
  }
  auto tree = std::make_unique<KeyedTree>();
  Builder builder(text, *tree);
  if (!Json::sax_parse(text, &builder)) {
    return {nullptr, std::move(builder.error())};
  }
  return {std::move(tree), {}};
}

const KeyedTree::Value* KeyedTree::find(const Object& object, std::string_view key) noexcept {
  for (const Member& member : object) {
    if (member.key == key) {
      return &member.value;
    }
  }
  return nullptr;
}

}  // namespace velor::store
