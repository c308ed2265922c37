// SPDX-License-Identifier: MIT
#include "kva/MIDI/KVMIDIEndpoint.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/MIDITest.h"

namespace velor {
namespace {

using midi::MIDIEndpointKind;

constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<KVMIDIEndpoint>()};

// The endpoint under "e" of a document.
std::shared_ptr<KVMIDIEndpoint> decoded(const std::string& document) {
  return store::KeyedUnarchiver::read(document, kClasses).value().decodeObject<KVMIDIEndpoint>("e");
}

class KVMIDIEndpointTest : public MIDITest {};

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

}  // namespace
}  // namespace velor
