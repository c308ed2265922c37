// SPDX-License-Identifier: MIT
#include "platform/discovery/DiscoveryService.h"

#include <utility>

namespace velor::discovery {
namespace {

DiscoveryService* gService = nullptr;

}  // namespace

DiscoveryActivity::~DiscoveryActivity() {
  mOrder->ended.store(true);
  mService.queue().async([&service = mService, order = mOrder] { service.end(*order); });
}

void DiscoveryActivity::setTXTRecordData(DiscoveryTXTData txt) {
  using Order = DiscoveryService::PublishOrder;
  mService.queue().async([&service = mService, order = std::static_pointer_cast<Order>(mOrder),
                          data = std::move(txt)]() mutable {
    order->record.txt = std::move(data);
    service.txtChanged(*order);
  });
}

template <class Order>
std::unique_ptr<DiscoveryActivity> DiscoveryService::start(std::shared_ptr<Order> order) {
  queue().async([this, order] { begin(order); });
  return std::make_unique<DiscoveryActivity>(*this, std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryService::publishService(DiscoveryRecord record,
                                                                    bool mayRename,
                                                                    PublishReply reply) {
  auto order = std::make_shared<PublishOrder>();
  order->record = std::move(record);
  order->mayRename = mayRename;
  order->reply = std::move(reply);
  return start(std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryService::searchForServices(std::string type,
                                                                       std::string domain,
                                                                       SearchReply reply) {
  auto order = std::make_shared<SearchOrder>();
  order->type = std::move(type);
  order->domain = std::move(domain);
  order->reply = std::move(reply);
  return start(std::move(order));
}

std::unique_ptr<DiscoveryActivity> DiscoveryService::resolveService(DiscoveryKey key,
                                                                    ResolveReply reply) {
  auto order = std::make_shared<ResolveOrder>();
  order->key = std::move(key);
  order->reply = std::move(reply);
  return start(std::move(order));
}

// Nothing reaches the owner of an order that has ended meanwhile.

void DiscoveryService::report(const PublishOrderRef& order, Published published) {
  mMain.async([order, published = std::move(published)] {
    if (!order->ended.load()) {
      order->reply(published);
    }
  });
}

void DiscoveryService::report(const SearchOrderRef& order, std::vector<DiscoveryFind> finds) {
  mMain.async([order, finds = std::move(finds)] {
    for (std::size_t i = 0; i < finds.size() && !order->ended.load(); ++i) {
      order->reply(finds[i], i + 1 < finds.size());
    }
  });
}

void DiscoveryService::report(const ResolveOrderRef& order, DiscoveryAnswer answer) {
  mMain.async([order, answer = std::move(answer)] {
    if (!order->ended.load()) {
      order->reply(answer);
    }
  });
}

DiscoveryService& service() noexcept {
  return *gService;
}
void setService(DiscoveryService* service) noexcept {
  gService = service;
}

}  // namespace velor::discovery
