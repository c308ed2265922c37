// SPDX-License-Identifier: MIT
#include "kva/MIDI/KVMIDIEndpoint.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/ErrOf.h"
#include "tests/support/MIDITest.h"
#include "tests/support/ScriptedMIDIService.h"

namespace velor {
namespace {

using midi::MIDIEndpointKind;

constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<KVMIDIEndpoint>()};

// The endpoint under "e" of a document.
std::shared_ptr<KVMIDIEndpoint> decoded(const std::string& document) {
  return store::KeyedUnarchiver::read(document, kClasses).value().decodeObject<KVMIDIEndpoint>("e");
}

std::string stored(int id, const std::string& name) {
  return R"({"e": {"$class": "KVMIDIEndpoint", "MIDIEndpoint.MIDIUniqueID": )" +
         std::to_string(id) + R"(, "MIDIEndpoint.DisplayName": ")" + name + "\"}}";
}

class KVMIDIEndpointTest : public MIDITest {};

TEST_F(KVMIDIEndpointTest, PropertiesReachThePlatformAndComeBack) {
  const auto ref = mOutside->appear(MIDIEndpointKind::source, "port", "Keys");
  KVMIDIEndpoint endpoint(ref);
  EXPECT_EQ(endpoint.description(), "<unknown> [0]") << "asks for nothing by itself";
  EXPECT_EQ(endpoint.displayName(), "Keys");
  endpoint.setDisplayName("Organ");
  EXPECT_EQ(endpoint.displayName(), "Keys") << "cached";
  EXPECT_EQ(KVMIDIEndpoint(ref).displayName(), "Organ");
  EXPECT_EQ(endpoint.model(), std::nullopt);
  endpoint.setModel("X-1");
  EXPECT_EQ(KVMIDIEndpoint(ref).model(), "X-1");

  for (const bool receives : {false, true}) {
    endpoint.setReceivesMTC(receives);
    endpoint.setTransmitsMTC(!receives);
    EXPECT_EQ(endpoint.receivesMTC(), receives);
    EXPECT_EQ(endpoint.transmitsMTC(), !receives);
  }
  mTable.MIDIObjectSetIntegerProperty(ref, midi::kMIDIPropertyReceivesMTC, -3);
  EXPECT_TRUE(endpoint.receivesMTC());
}

TEST_F(KVMIDIEndpointTest, EachFailureNamesItsMethodAndStatus) {
  KVMIDIEndpoint gone(4711);
  const std::vector<std::pair<const char*, std::function<void()>>> cases = {
      {"uniqueID] (-10842)", [&] { gone.uniqueID(); }},
      {"setDisplayName:] (-10842)", [&] { gone.setDisplayName("x"); }},
      {"model] (-10842)", [&] { gone.model(); }},
      {"setModel:] (-10842)", [&] { gone.setModel("x"); }},
      {"receivesMTC] (-10842)", [&] { gone.receivesMTC(); }},
      {"setReceivesMTC:] (-10842)", [&] { gone.setReceivesMTC(true); }},
      {"transmitsMTC] (-10842)", [&] { gone.transmitsMTC(); }},
      {"setTransmitsMTC:] (-10842)", [&] { gone.setTransmitsMTC(true); }},
      {"dispose] (-10834)", [&] { gone.dispose(); }}};
  for (const auto& [method, call] : cases) {
    EXPECT_EQ(errOf(call), std::string("err: Error: -[KVMIDIEndpoint ") + method);
  }
  EXPECT_EQ(gone.endpoint(), 4711U);
  EXPECT_EQ(gone.displayName(), std::nullopt) << "raises never";
}

TEST_F(KVMIDIEndpointTest, AStoredEndpointIsFoundByItsIdWhateverItsNameHasBecome) {
  const auto ref = mOutside->appear(MIDIEndpointKind::destination, "port", "Desk");
  store::KeyedArchiver coder;
  const KVMIDIEndpoint endpoint(ref);
  coder.encodeObject(&endpoint, "e");
  const int id = midi::MIDIObjects::uniqueIDOfPort("port");
  EXPECT_NE(
      coder.data().value().find("\"MIDIEndpoint.MIDIUniqueID\": " + std::to_string(id) + ",\n"),
      std::string::npos);
  EXPECT_NE(coder.data().value().find(R"("MIDIEndpoint.DisplayName": "Desk")"), std::string::npos);

  mOutside->appear(MIDIEndpointKind::destination, "port", "Console");
  const auto found = decoded(coder.data().value());
  ASSERT_NE(found, nullptr);
  EXPECT_TRUE(found->isEqual(endpoint));
  EXPECT_EQ(found->displayName(), "Console") << "the present name counts";

  mOutside->vanish(ref);
  EXPECT_EQ(decoded(coder.data().value()), nullptr);
  EXPECT_EQ(decoded(R"({"e": {"$class": "KVMIDIEndpoint"}})"), nullptr) << "no id is no endpoint";
}

TEST(KVMIDIEndpointFailureTest, AStoredNameServesWhereThePlatformHasNone) {
  midi::ScriptedMIDIService service;
  midi::setService(&service);
  service.names = {{midi::kMIDIUnknownProperty}, {midi::kMIDIUnknownProperty}};
  const auto endpoint = decoded(stored(-9, "Desk"));
  ASSERT_NE(endpoint, nullptr);
  EXPECT_EQ(endpoint->displayName(), "Desk");
  service.renames = {{-1}, {-1}};
  EXPECT_THROW(decoded(stored(-9, "Desk")), KVException);
  service.searches = {{-1}};
  EXPECT_EQ(decoded(stored(-9, "Desk")), nullptr) << "a failing search has found nothing";

  // A name that is left in spite of a failure counts, once and for all.
  const KVMIDIEndpoint half(4);
  service.names = {{midi::kMIDIUnknownProperty, "junk"}, {-1, "half a na"}, {0, "another"}};
  for (const auto& name : {std::optional<std::string>(), {"half a na"}, {"half a na"}}) {
    EXPECT_EQ(half.displayName(), name);
  }
  midi::setService(nullptr);
}

}  // namespace
}  // namespace velor
