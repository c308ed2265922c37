// SPDX-License-Identifier: MIT
#include "platform/store/KeyedDocument.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedPath.h"
#include "platform/store/Printable.h"

namespace velor::store {
namespace {

using Json = KeyedDocument::Json;
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

// The parser's message without its number and its own text for the place.
std::string withoutHead(std::string_view message) {
  message.remove_prefix(std::min(message.size(), message.find("] ") + 2));
  if (message.starts_with("parse error at ")) {
    message.remove_prefix(std::min(message.size(), message.find(": ") + 2));
  }
  return printable(message, kReasonBytesShown);
}

// Builds the document from the parser's events, within the limits. (The library's own
// builder copies each key for its callback, and searches for it among the others.) The parser
// keeps one bit for each level, so depth costs nothing until this refuses it.
class Builder final : public nlohmann::json_sax<Json> {
 public:
  explicit Builder(std::string_view text) : mText(text) {}

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t& /*text*/) override { return add(value); }
  bool string(string_t& value) override { return isShort(value) && add(std::move(value)); }
  bool binary(binary_t& /*value*/) override {
    return refuse("a form of data that JSON does not have");
  }

  bool start_object(std::size_t /*count*/) override { return open(Json::object(), std::string()); }
  bool key(string_t& value) override {
    if (!isShort(value)) {
      return false;
    }
    if (mOpen.back()->size() >= Limits::kKeysOfAnObject) {
      return refuse("more than " + std::to_string(Limits::kKeysOfAnObject) + " keys");
    }
    mPath.last() = value;
    mKey = std::move(value);
    return true;
  }
  bool end_object() override { return keysDiffer() && close(); }
  bool start_array(std::size_t /*count*/) override { return open(Json::array(), std::size_t{0}); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& exception) override {
    mError = placeOf(mText, position) + ": " + withoutHead(exception.what());
    return false;
  }

  Expected<Json> result() {
    if (!mError.empty()) {
      return failure(std::move(mError));
    }
    return std::move(mRoot);
  }

 private:
  bool refuse(const std::string& what) {
    mError = mPath.text() + ": " + what;
    return false;
  }

  bool isShort(const std::string& text) {
    return text.size() <= Limits::kStringBytes ||
           refuse("a text of more than " + std::to_string(Limits::kStringBytes) + " bytes");
  }

  Json* put(Json value) {
    if (mOpen.empty()) {
      mRoot = std::move(value);
      return &mRoot;
    }
    Json& container = *mOpen.back();
    if (container.is_object()) {
      return &container.get_ref<Json::object_t&>()
                  .emplace_back(std::move(mKey), std::move(value))
                  .second;
    }
    container.push_back(std::move(value));
    return &container.back();
  }

  bool count() {
    return ++mValues <= Limits::kValues ||
           refuse("more than " + std::to_string(Limits::kValues) + " values in all");
  }

  bool add(Json value) {
    if (!count()) {
      return false;
    }
    put(std::move(value));
    nextElement();
    return true;
  }

  bool open(Json container, KeyedPath::Step first) {
    if (mOpen.size() >= Limits::kDepth) {
      return refuse("nested deeper than " + std::to_string(Limits::kDepth));
    }
    if (!count()) {
      return false;
    }
    mOpen.push_back(put(std::move(container)));
    mPath.push(std::move(first));
    return true;
  }

  bool close() {
    mOpen.pop_back();
    mPath.pop();
    nextElement();
    return true;
  }

  void nextElement() {
    if (auto* place = mOpen.empty() ? nullptr : std::get_if<std::size_t>(&mPath.last())) {
      ++*place;
    }
  }

  // Checked at the object's end: one sort, whatever its size.
  bool keysDiffer() {
    mKeys.clear();
    for (const auto& member : mOpen.back()->get_ref<const Json::object_t&>()) {
      mKeys.push_back(member.first);
    }
    std::sort(mKeys.begin(), mKeys.end());
    const auto twice = std::adjacent_find(mKeys.begin(), mKeys.end());
    if (twice == mKeys.end()) {
      return true;
    }
    mPath.last() = std::string(*twice);
    return refuse("the key is there twice");
  }

  const std::string_view mText;
  Json mRoot;
  std::vector<Json*> mOpen;  // the containers whose end is to come
  std::string mKey;          // of the value to come
  std::vector<std::string_view> mKeys;
  KeyedPath mPath;
  std::size_t mValues = 0;
  std::string mError;
};

}  // namespace

Expected<Json> KeyedDocument::read(std::string_view text) {
  if (text.size() > Limits::kBytes) {
    return failure("the document: longer than " + std::to_string(Limits::kBytes) + " bytes");
  }
  // The parser would take it for the end.
  if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
    return failure(placeOf(text, zero + 1) + ": a zero byte");
  }
  Builder builder(text);
  Json::sax_parse(text, &builder);
  return builder.result();
}

}  // namespace velor::store
