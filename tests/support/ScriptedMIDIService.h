// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/midi/MIDIService.h"

namespace velor::midi {

/// For the failures that no working service gives. A call succeeds unless the script of
/// its method says otherwise; made objects are numbered.
class ScriptedMIDIService final : public MIDIService {
 public:
  struct Answer {
    OSStatus status = 0;
    std::string text = {};  ///< left in a string, whatever the status
  };

  OSStatus MIDIClientCreate(const std::string&, MIDINotifyProc, void*, MIDIClientRef* c) override {
    return make(clients, c);
  }
  OSStatus MIDIClientDispose(MIDIClientRef client) override {
    disposed.push_back(client);
    return 0;
  }
  OSStatus MIDIOutputPortCreate(MIDIClientRef, const std::string&, MIDIPortRef*) override {
    return 0;
  }
  OSStatus MIDIInputPortCreate(MIDIClientRef, const std::string&, MIDIReadProc, void*,
                               MIDIPortRef*) override {
    return 0;
  }
  OSStatus MIDIPortDispose(MIDIPortRef) override { return 0; }
  OSStatus MIDIPortConnectSource(MIDIPortRef, MIDIEndpointRef, void*) override { return 0; }
  OSStatus MIDIPortDisconnectSource(MIDIPortRef, MIDIEndpointRef) override { return 0; }
  OSStatus MIDISourceCreate(MIDIClientRef, const std::string&, MIDIEndpointRef* s) override {
    return make(endpoints, s);
  }
  OSStatus MIDIDestinationCreate(MIDIClientRef, const std::string&, MIDIReadProc, void*,
                                 MIDIEndpointRef*) override {
    return 0;
  }
  OSStatus MIDIEndpointDispose(MIDIEndpointRef endpoint) override {
    disposed.push_back(endpoint);
    return 0;
  }
  std::size_t MIDIGetNumberOfSources() override { return integers.size(); }
  MIDIEndpointRef MIDIGetSource(std::size_t index) override {
    return std::next(integers.begin(), static_cast<std::ptrdiff_t>(index))->first;
  }
  std::size_t MIDIGetNumberOfDestinations() override { return 0; }
  MIDIEndpointRef MIDIGetDestination(std::size_t) override { return 0; }
  OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID, MIDIObjectRef* object) override {
    return make(searches, object);
  }
  OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                        std::int32_t* value) override {
    const auto& [status, number] = integers[object][property];
    *value = number;
    return status;
  }
  OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef, MIDIProperty, std::int32_t) override {
    return 0;
  }
  OSStatus MIDIObjectGetStringProperty(MIDIObjectRef, MIDIProperty, std::string* value) override {
    Answer answer = take(names);
    *value = std::move(answer.text);
    return answer.status;
  }
  OSStatus MIDIObjectSetStringProperty(MIDIObjectRef, MIDIProperty, const std::string&) override {
    return take(renames).status;
  }
  OSStatus MIDISend(MIDIPortRef, MIDIEndpointRef, const MIDIPacketList*) override { return 0; }
  void endSending(MIDIPortRef, MIDIEndpointRef) override {}
  OSStatus MIDIReceived(MIDIEndpointRef, const MIDIPacketList*) override { return 0; }
  void waitUntilSettled() override {}
  void whenSettled(host::Queue&, host::Task) override {}
  bool isConnected() override { return false; }
  std::string serverDescription() override { return {}; }

  // The answers to the next calls.
  std::deque<Answer> clients;
  std::deque<Answer> endpoints;
  std::deque<Answer> searches;  // by id
  std::deque<Answer> names;     // asked for
  std::deque<Answer> renames;
  /// Properties of the sources, with the status that comes with each.
  std::map<MIDIObjectRef, std::map<MIDIProperty, std::pair<OSStatus, std::int32_t>>> integers;
  MIDIObjectRef next = 100;  ///< object to be made
  /// Clients and endpoints, in the order of their ends.
  std::vector<MIDIObjectRef> disposed;

 private:
  static Answer take(std::deque<Answer>& answers) {
    if (answers.empty()) {
      return {};
    }
    Answer answer = std::move(answers.front());
    answers.pop_front();
    return answer;
  }
  OSStatus make(std::deque<Answer>& answers, MIDIObjectRef* object) {
    const OSStatus status = take(answers).status;
    if (status == 0) {
      *object = next++;
    }
    return status;
  }
};

}  // namespace velor::midi
