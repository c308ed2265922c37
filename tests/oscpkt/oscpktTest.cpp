// SPDX-License-Identifier: MIT
#include "oscpkt/src/oscpkt.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <vector>

namespace velor::oscpkt {
namespace {

using namespace std::string_literals;

// The largest payload of a datagram of IPv4.
constexpr std::size_t kLargestDatagram = 65507;

std::string big(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) {
    text += static_cast<char>(value >> (8 * i));
  }
  return text;
}

std::string bundle(std::uint64_t timeTag, const std::vector<std::string>& elements) {
  std::string text = "#bundle\0"s + big(timeTag, 8);
  for (const std::string& element : elements) {
    text += big(element.size(), 4) + element;
  }
  return text;
}

struct Reading {
  explicit Reading(const std::string& bytes)
      // An exact copy on the heap, whose end a sanitizer guards.
      : exact(bytes.begin(), bytes.end()), reader(exact.data(), exact.size()) {
    while (const Message* message = reader.popMessage()) {
      messages.push_back(*message);
    }
  }
  std::vector<std::uint8_t> exact;
  OscPacketReader reader;
  std::vector<Message> messages;
};

OscError errorOf(const std::string& bytes) {
  const Reading reading(bytes);
  EXPECT_TRUE(reading.reader.error() == OscOk || reading.messages.empty());
  return reading.reader.error();
}

std::string written(const Message& message) {
  OscPacketWriter writer;
  writer.addMessage(message);
  return {reinterpret_cast<const char*>(writer.packetData()), writer.packetSize()};
}

// The two examples of the OSC 1.0 document, byte for byte.
const std::string kOscillator = "/oscillator/4/frequency\0,f\0\0\x43\xDC\0\0"s;
const std::string kFoo =
    "/foo\0\0\0\0,iisff\0\0\0\0\x03\xE8\xFF\xFF\xFF\xFFhello\0\0\0\x3F\x9D\xF3\xB6\x40\xB5\xB2\x2D"s;

TEST(oscpkt, ReadsAndWritesThePublishedExamplesAndPadsText) {
  Message oscillator("/oscillator/4/frequency");
  oscillator.pushFloat(440);
  EXPECT_EQ(written(oscillator), kOscillator);
  const Reading reading(kFoo);
  ASSERT_EQ(reading.messages.size(), 1U);
  const Message& foo = reading.messages[0];
  EXPECT_EQ(foo.address(), "/foo");
  EXPECT_EQ(foo.typeTags(), "iisff");
  EXPECT_EQ(foo.timeTag(), 1U);
  const std::vector<Message::Span> spans = {{16, 4}, {20, 4}, {24, 6}, {32, 4}, {36, 4}};
  EXPECT_EQ(foo.argumentSpans(), spans);

  Message texts("/text");
  for (const auto& text : {"abc"s, ""s, "abcd"s, std::string(1000, 'n')}) {
    texts.pushStr(text);
  }
  EXPECT_EQ(written(texts), "/text\0\0\0,ssss\0\0\0abc\0\0\0\0\0abcd\0\0\0\0"s +
                                std::string(1000, 'n') + "\0\0\0\0"s);
}

TEST(oscpkt, ADamagedMessageHasTheErrorOfItsFirstDamage) {
  const struct {
    std::string bytes;
    OscError error;
  } cases[] = {
      {"", OscOk},
      {"/a\0\0,"s, OscInvalidPacketSize},
      {"/abc", OscBadAddress},
      {"/a\0\1,\0\0\0"s, OscBadAddress},
      {"a\0\0\0,\0\0\0"s, OscBadAddress},
      {"\0\0\0\0,\0\0\0"s, OscBadAddress},
      {"/a\0\0"s, OscBadTypeTags},
      {"/a\0\0,iii"s, OscBadTypeTags},
      {"/a\0\0,i\0\1\0\0\0\0"s, OscBadTypeTags},
      {"/a\0\0i\0\0\0\0\0\0\0"s, OscBadTypeTags},
      {"/a\0\0,TF\0"s, OscOk},
      {"/a\0\0,f\0\0\0\0\0\0\0\0\0\0"s, OscBadArguments},
      {"/a\0\0,h\0\0\0\0\0\0"s, OscBadArguments},
      {"/a\0\0,hd\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s, OscOk},
      {"/a\0\0,s\0\0abcd"s, OscBadArguments},
      {"/a\0\0,s\0\0a\0\0\1"s, OscBadArguments},
      {"/a\0\0,s\0\0"s, OscBadArguments},
      {"/a\0\0,b\0\0\0\0\0\3abc\0"s, OscOk},
      {"/a\0\0,b\0\0\0\0\0\3abcd"s, OscBadArguments},
      {"/a\0\0,b\0\0\0\0\0\5abcd"s, OscBadArguments},
      {"/a\0\0,b\0\0"s, OscBadArguments},
      // A count that wraps to no bytes at all: the next argument has its place.
      {"/a\0\0,b\0\0\xFF\xFF\xFF\xFC"s, OscBadArguments},
      {"/a\0\0,bi\0\xFF\xFF\xFF\xFC"s, OscOk},
      {"/a\0\0,b\0\0\xFF\xFF\xFF\xFD"s, OscBadArguments},
      {"/a\0\0,b\0\0\x7F\xFF\xFF\xFC"s, OscBadArguments},
      // The first error counts.
      {"/a\0\0,fN\0"s, OscBadArguments},
      {"/a\0\0,Nf\0"s, OscUnhandledTypeTag},
  };
  for (const auto& [bytes, error] : cases) {
    EXPECT_EQ(errorOf(bytes), error) << testing::PrintToString(bytes);
  }
  for (const char tag : "NIcrmtS[]\xE9 "s) {
    EXPECT_EQ(errorOf("/a\0\0,"s + tag + "\0\0\0\0\0\0"s), OscUnhandledTypeTag) << tag;
  }
}

TEST(oscpkt, OneBadElementMakesTheDatagramInvalid) {
  const std::string good = "/a\0\0,\0\0\0"s;
  EXPECT_EQ(errorOf(bundle(1, {})), OscInvalidBundle);
  EXPECT_EQ(errorOf("#bundle\0"s), OscInvalidBundle);
  EXPECT_EQ(errorOf("#\0\0\0"s), OscInvalidBundle);
  EXPECT_EQ(errorOf("#bundlf" + bundle(1, {good}).substr(7)), OscInvalidBundle);
  EXPECT_EQ(errorOf(bundle(1, {good}) + big(6, 4) + "abcdef\0\0"s), OscInvalidBundle);
  EXPECT_EQ(errorOf(bundle(1, {good}) + big(12, 4) + good), OscInvalidBundle);
  EXPECT_EQ(errorOf(bundle(1, {good}) + big(0xFFFFFFFC, 4) + good), OscInvalidBundle);
  EXPECT_EQ(errorOf(bundle(1, {good, bundle(1, {good, "/a\0\0"s}), good})), OscBadTypeTags);
  EXPECT_EQ(errorOf(bundle(1, {good, bundle(1, {}), good})), OscInvalidBundle);
  // An inner element that ends with the outer bundle, past its own.
  EXPECT_EQ(errorOf(bundle(1, {"#bundle\0"s + big(1, 8) + big(8, 4), good})), OscInvalidBundle);
}

// As many bundles within bundles as a datagram holds, on a stack without 32 bytes for each.
TEST(oscpkt, TheDeepestBundlesTakeNoStack) {
  const std::string message = "/a\0\0,\0\0\0"s;
  const std::string behind = big(8, 4) + message;
  constexpr std::size_t kDepth = 2046;
  std::string datagram;
  for (std::size_t level = kDepth; level > 0; --level) {
    datagram += "#bundle\0"s + big(level, 8) + big(message.size() + (level - 1) * 32, 4);
  }
  datagram += message;
  for (std::size_t level = 0; level < kDepth; ++level) {
    datagram += behind;
  }
  ASSERT_LE(datagram.size(), kLargestDatagram);
  const auto read = [](void* given) -> void* {
    const Reading reading(*static_cast<const std::string*>(given));
    EXPECT_EQ(reading.messages.size(), kDepth + 1);
    for (std::size_t i = 1; i < reading.messages.size(); ++i) {
      EXPECT_EQ(reading.messages[i].timeTag(), i);
    }
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 64 * 1024), 0);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, read, &datagram), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace
}  // namespace velor::oscpkt
