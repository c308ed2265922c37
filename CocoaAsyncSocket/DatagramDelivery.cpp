// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/DatagramDelivery.h"

#include <utility>
#include <vector>

namespace velor {

namespace {
// One that the delegate reads, and one that is ready when it is done.
constexpr int kMostReadings = 2;
}  // namespace

// Counts the readings under way. Shared with them, since they may end on any thread.
struct DatagramDelivery::InFlight {
  UDPNetwork& network;
  std::uint32_t client;
  std::atomic<int> count{0};
  std::atomic<bool> paused{false};  // a socket waits for the count to fall
};

// One reading, until all its datagrams are delivered or dropped.
struct DatagramDelivery::Reading {
  Reading(DatagramBatch&& theBatch, std::shared_ptr<InFlight> theInFlight, std::uint64_t theAge)
      : batch(std::move(theBatch)), inFlight(std::move(theInFlight)), age(theAge) {
    ++inFlight->count;
  }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  ~Reading() {
    --inFlight->count;
    if (inFlight->paused.exchange(false)) {
      inFlight->network.queue().async([&network = inFlight->network, id = inFlight->client] {
        if (UDPNetwork::Client* const client = network.client(id)) {
          client->readOn();
        }
      });
    }
  }

  const DatagramBatch batch;
  const std::shared_ptr<InFlight> inFlight;
  const std::uint64_t age;  // of mForgotten
  // One flag per datagram: it passed a filter on another queue. Otherwise empty.
  std::vector<bool> passed;
};

DatagramDelivery::DatagramDelivery(UDPNetwork& network, std::uint32_t client,
                                   std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                   host::Queue* delegateQueue)
    : mNetwork(network),
      mClient(client),
      mDelegate(std::move(delegate)),
      mDelegateQueue(delegateQueue),
      mInFlight(new InFlight{network, client}) {}

void DatagramDelivery::exchangeFilter(std::shared_ptr<const Filter>& filter) {
  mNetwork.queue().assertCurrent();
  mFilter.swap(filter);
}

bool DatagramDelivery::mayRead() {
  mNetwork.queue().assertCurrent();
  if (mInFlight->count.load() < kMostReadings) {
    return true;
  }
  mInFlight->paused.store(true);
  // Again, as one may have ended before it could see `paused`.
  return mInFlight->count.load() < kMostReadings;
}

void DatagramDelivery::deliver(DatagramBatch&& batch) {
  mNetwork.queue().assertCurrent();
  const auto reading = std::make_shared<Reading>(std::move(batch), mInFlight, mForgotten.load());
  auto socket = mSocket.lock();
  if (socket == nullptr) {
    return;
  }
  if (mFilter == nullptr || mFilter->queue == mDelegateQueue) {
    mDelegateQueue->async([this, socket = std::move(socket), reading, filter = mFilter] {
      tellDelegate(socket, *reading, filter.get());
    });
    return;
  }
  mFilter->queue->async([this, socket = std::move(socket), reading, filter = mFilter] {
    const DatagramBatch& all = reading->batch;
    for (std::size_t i = 0; i < all.count() && reading->age == mForgotten.load(); ++i) {
      reading->passed.push_back(filter->function(all.data(i), all.from(i)));
    }
    // Through the network's queue, where `close` runs: after it the delegate's queue may end.
    mNetwork.queue().async([this, &network = mNetwork, id = mClient, reading] {
      if (network.client(id) != nullptr) {
        deliverFiltered(reading);
      }
    });
  });
}

void DatagramDelivery::deliverFiltered(const ReadingRef& reading) {
  auto socket = mSocket.lock();
  if (socket != nullptr && reading->age == mForgotten.load()) {
    mDelegateQueue->async(
        [this, socket = std::move(socket), reading] { tellDelegate(socket, *reading, nullptr); });
  }
}

// On the delegate's queue. A given filter runs first.
void DatagramDelivery::tellDelegate(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    const Reading& reading, const Filter* filter) {
  const auto delegate = mDelegate.lock();
  if (delegate == nullptr) {
    return;
  }
  for (std::size_t i = 0; i < reading.batch.count() && reading.age == mForgotten.load(); ++i) {
    const auto data = reading.batch.data(i);
    const SocketAddress& from = reading.batch.from(i);
    const bool passes = filter != nullptr ? filter->function(data, from)
                                          : reading.passed.empty() || reading.passed[i];
    if (passes && reading.age == mForgotten.load()) {
      delegate->udpSocketDidReceiveData(socket, data, from);
    }
  }
}

}  // namespace velor
