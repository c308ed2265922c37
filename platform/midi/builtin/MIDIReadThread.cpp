// SPDX-License-Identifier: MIT
#include "platform/midi/builtin/MIDIReadThread.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <functional>
#include <utility>

#include "platform/host/Log.h"

namespace velor::midi {

MIDIReadThread::MIDIReadThread()
    : mHost(host::current()), mWake(mHost.makeSemaphore()), mWaitingStore(kPackets) {
  // All room is made here: the thread itself never allocates.
  mFreePlaces.reserve(kPackets);
  for (std::uint32_t place = kPackets; place > 0; --place) {
    mFreePlaces.push_back(place - 1);
  }
  mWaiting.reserve(kPackets);
  mThread = mHost.startThread("velor.midiread", [this] {
    mHost.thread_policy_set({}, host::ThreadRole::midiRead);
    run();
  });
}

MIDIReadThread::~MIDIReadThread() {
  mEnding.store(true);
  mWake->signal();
  mThread->join();
  if (mLost.load() != 0) {
    VELOR_LOG_WARNING("MIDI: %" PRIu64 " packets were not delivered, too many were waiting",
                      mLost.load());
  }
}

bool MIDIReadThread::addReceiver(MIDIReadProc readProc, void* refCon, ReceiverRef& receiver) {
  for (std::uint32_t slot = 0; slot < kReceivers; ++slot) {
    Receiver& entry = mReceivers[slot];
    if (!entry.taken) {
      const std::uint32_t generation = entry.generation.load(std::memory_order_relaxed);
      entry.taken = true;
      entry.readProc = readProc;
      entry.refCon = refCon;
      entry.generation.store(generation + 1, std::memory_order_release);
      receiver = {slot, generation + 1};
      return true;
    }
  }
  return false;
}

void MIDIReadThread::removeReceiver(ReceiverRef receiver) {
  mReceivers[receiver.slot].generation.store(receiver.generation + 1, std::memory_order_release);
}

void MIDIReadThread::releaseReceiver(ReceiverRef receiver) {
  mReceivers[receiver.slot].taken = false;
}

void MIDIReadThread::waitUntilQuiet() {
  host::Semaphore& quiet = mHost.threadSemaphore();
  Delivery delivery;
  delivery.quiet = &quiet;
  mArriving.push(std::move(delivery));
  wakeUp();
  quiet.wait();
}

bool MIDIReadThread::deliver(ReceiverRef receiver, void* sourceRefCon, MIDITimeStamp time,
                             const std::uint8_t* data, std::size_t length) noexcept {
  bool posted = false;
  if (length <= kMaxPacketBytes) {
    Delivery delivery;
    delivery.due = time != 0 ? time : mHost.AudioGetCurrentHostTime();
    delivery.receiver = receiver;
    delivery.sourceRefCon = sourceRefCon;
    delivery.time = time;
    delivery.length = static_cast<std::uint16_t>(length);
    std::memcpy(delivery.data.data(), data, length);
    posted = mArriving.tryPush(std::move(delivery));
  }
  if (!posted) {
    mLost.fetch_add(1, std::memory_order_relaxed);
  }
  wakeUp();
  return posted;
}

void MIDIReadThread::wakeUp() noexcept {
  if (!mWakePending.exchange(true)) {
    mWake->signal();
  }
}

void MIDIReadThread::run() {
  while (!mEnding.load()) {
    takeUpArrived();
    if (mWaiting.empty()) {
      mWake->wait();
    } else if (mWaiting.front().due > mHost.AudioGetCurrentHostTime()) {
      mWake->waitUntil(mWaiting.front().due);
    } else {
      deliverFirst();
      continue;
    }
    mWakePending.store(false);
  }
  takeUpArrived();  // nobody may be left waiting for quiet
}

void MIDIReadThread::takeUpArrived() {
  Delivery arrived;
  while (mArriving.pop(arrived)) {
    takeUp(std::move(arrived));
  }
}

void MIDIReadThread::takeUp(Delivery&& delivery) {
  if (delivery.quiet != nullptr) {
    delivery.quiet->signal();
    return;
  }
  if (mFreePlaces.empty()) {
    mLost.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  const std::uint32_t place = mFreePlaces.back();
  mFreePlaces.pop_back();
  mWaiting.push_back({delivery.due, mNextOrder++, place});
  std::push_heap(mWaiting.begin(), mWaiting.end(), std::greater<>());
  mWaitingStore[place] = std::move(delivery);
}

void MIDIReadThread::deliverFirst() {
  const std::uint32_t place = mWaiting.front().place;
  std::pop_heap(mWaiting.begin(), mWaiting.end(), std::greater<>());
  mWaiting.pop_back();
  call(mWaitingStore[place]);
  mFreePlaces.push_back(place);
}

void MIDIReadThread::call(const Delivery& delivery) {
  const Receiver& receiver = mReceivers[delivery.receiver.slot];
  if (receiver.generation.load(std::memory_order_acquire) != delivery.receiver.generation) {
    return;
  }
  MIDIPacketList packets;
  MIDIPacketListAdd(&packets, sizeof packets, MIDIPacketListInit(&packets), delivery.time,
                    delivery.length, delivery.data.data());
  receiver.readProc(&packets, receiver.refCon, delivery.sourceRefCon);
}

}  // namespace velor::midi
