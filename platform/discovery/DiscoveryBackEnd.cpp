// SPDX-License-Identifier: MIT
#include "platform/discovery/DiscoveryBackEnd.h"

#include <type_traits>
#include <utility>

namespace velor::discovery {

template <class Order>
class DiscoveryBackEnd::Activity final : public DiscoveryActivity {
 public:
  Activity(DiscoveryBackEnd& backEnd, std::shared_ptr<Order> order)
      : mBackEnd(backEnd), mOrder(std::move(order)) {
    mBackEnd.queue().async([&to = mBackEnd, begun = mOrder] { to.begin(begun); });
  }
  ~Activity() override {
    mOrder->ended.store(true);
    mBackEnd.queue().async([&to = mBackEnd, ended = mOrder] { to.end(*ended); });
  }

  void setTXTRecordData(DiscoveryTXTData txt) override {
    if constexpr (std::is_same_v<Order, DiscoveryPublishOrder>) {
      mBackEnd.queue().async([&to = mBackEnd, order = mOrder, data = std::move(txt)]() mutable {
        order->record.txt = std::move(data);
        to.txtChanged(*order);
      });
    }
  }

 private:
  DiscoveryBackEnd& mBackEnd;
  const std::shared_ptr<Order> mOrder;
};

template <class Order>
std::unique_ptr<DiscoveryActivity> DiscoveryBackEnd::start(std::shared_ptr<Order> order) {
  return std::make_unique<Activity<Order>>(*this, std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryBackEnd::publishService(DiscoveryRecord record,
                                                                    bool mayRename,
                                                                    PublishReply reply) {
  auto order = std::make_shared<DiscoveryPublishOrder>();
  order->record = std::move(record);
  order->mayRename = mayRename;
  order->reply = std::move(reply);
  return start(std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryBackEnd::searchForServices(std::string type,
                                                                       std::string domain,
                                                                       SearchReply reply) {
  auto order = std::make_shared<DiscoverySearchOrder>();
  order->type = std::move(type);
  order->domain = std::move(domain);
  order->reply = std::move(reply);
  return start(std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryBackEnd::resolveService(DiscoveryKey key,
                                                                    ResolveReply reply) {
  auto order = std::make_shared<DiscoveryResolveOrder>();
  order->key = std::move(key);
  order->reply = std::move(reply);
  return start(std::move(order));
}

void DiscoveryBackEnd::tell(const PublishOrderRef& order, Published published) {
  order->tell(mMain, [order, published = std::move(published)] { order->reply(published); });
}

void DiscoveryBackEnd::tell(const SearchOrderRef& order, std::vector<DiscoveryFind> finds) {
  order->tell(mMain, [order, finds = std::move(finds)] {
    for (std::size_t i = 0; i < finds.size() && !order->ended.load(); ++i) {
      order->reply(finds[i], i + 1 < finds.size());
    }
  });
}

void DiscoveryBackEnd::tell(const ResolveOrderRef& order, DiscoveryAnswer answer) {
  order->tell(mMain, [order, answer = std::move(answer)] { order->reply(answer); });
}

}  // namespace velor::discovery
