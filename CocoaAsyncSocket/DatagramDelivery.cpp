// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/DatagramDelivery.h"

#include <utility>
#include <vector>

namespace velor {

namespace {
// One reading in the delegate's hands, and one that it finds when it is done.
constexpr int kMostReadings = 2;
}  // namespace

// The readings that have not ended; shared with them, since they may end anywhere.
struct DatagramDelivery::InFlight {
  UDPNetwork& network;
  std::uint32_t client;
  std::atomic<int> count{0};
  std::atomic<bool> paused{false};  // somebody waits for the count to fall
};

// One reading, until every datagram in it is done with.
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
  // Of each datagram, where filter and delegate are on two queues.
  std::vector<std::any> contexts;
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
  const bool oneByOne =
      mFilter != nullptr && !mFilter->asynchronous && mFilter->queue != mDelegateQueue;
  const int limit = oneByOne ? 1 : kMostReadings;
  if (mInFlight->count.load() < limit) {
    return true;
  }
  mInFlight->paused.store(true);
  return mInFlight->count.load() < limit;  // one that ended before it saw the word
}

// Runs the body on the network's queue if the socket, of which this is a part, is
// still there.
template <class Body>
void DatagramDelivery::post(Body body) {
  mNetwork.queue().async([&network = mNetwork, id = mClient, body = std::move(body)] {
    if (network.client(id) != nullptr) {
      body();
    }
  });
}

void DatagramDelivery::deliver(DatagramBatch&& batch) {
  mNetwork.queue().assertCurrent();
  const auto reading = std::make_shared<Reading>(std::move(batch), mInFlight, mForgotten.load());
  if (mFilter == nullptr || mFilter->queue == mDelegateQueue) {
    // Filter and delegate share a queue, which would take turns between them.
    if (auto socket = mSocket.lock()) {
      mDelegateQueue->async([this, socket = std::move(socket), reading, filter = mFilter] {
        tellDelegate(socket, *reading, 0, reading->batch.count(), filter.get());
      });
    }
    return;
  }
  reading->contexts.resize(reading->batch.count());
  const std::size_t atOnce = mFilter->asynchronous ? reading->batch.count() : 1;
  for (std::size_t i = 0; i < atOnce; ++i) {
    filterOne(reading, i);
  }
}

// On the delegate's queue. With a filter: filters first.
void DatagramDelivery::tellDelegate(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    const Reading& reading, std::size_t first, std::size_t last,
                                    const Filter* filter) {
  const auto delegate = mDelegate.lock();
  if (delegate == nullptr) {
    return;
  }
  for (std::size_t i = first; i < last && reading.age == mForgotten.load(); ++i) {
    const auto data = reading.batch.data(i);
    const SocketAddress& from = reading.batch.from(i);
    std::any context;
    if (filter != nullptr) {
      if (!filter->function(data, from, context) || reading.age != mForgotten.load()) {
        continue;
      }
    } else if (!reading.contexts.empty()) {
      context = reading.contexts[i];
    }
    delegate->udpSocketDidReceiveData(socket, data, from, context);
  }
}

void DatagramDelivery::filterOne(const ReadingRef& reading, std::size_t index) {
  if (mFilter == nullptr) {  // taken away meanwhile
    filterEnded(reading, index, true, false);
  } else if (auto socket = mSocket.lock()) {
    mFilter->queue->async([this, socket = std::move(socket), reading, index, filter = mFilter] {
      const bool passed = reading->age == mForgotten.load() &&
                          filter->function(reading->batch.data(index), reading->batch.from(index),
                                           reading->contexts[index]);
      post([this, reading, index, passed, asynchronous = filter->asynchronous] {
        filterEnded(reading, index, passed, asynchronous);
      });
    });
  }
}

void DatagramDelivery::filterEnded(const ReadingRef& reading, std::size_t index, bool passed,
                                   bool asynchronous) {
  if (reading->age != mForgotten.load()) {
    return;
  }
  if (passed) {
    if (auto socket = mSocket.lock()) {
      mDelegateQueue->async([this, socket = std::move(socket), reading, index] {
        tellDelegate(socket, *reading, index, index + 1, nullptr);
      });
    }
  }
  if (!asynchronous && index + 1 < reading->batch.count()) {
    filterOne(reading, index + 1);
  }
}

}  // namespace velor
