#include "Notification.h"

#include <algorithm>

namespace Fwk {

Reactor::~Reactor() {
  // Unsubscribing edits publishers_, so walk a copy.
  const std::vector<Publisher*> publishers = publishers_;
  for (Publisher* p : publishers) p->subscriberDel(*this);
}

Publisher::~Publisher() {
  for (Reactor* r : reactors_) {
    if (r == nullptr) continue;
    auto& list = r->publishers_;
    list.erase(std::find(list.begin(), list.end(), this));
  }
}

void Publisher::subscriberIs(Reactor& reactor) {
  if (subscriberHas(reactor)) return;
  reactors_.push_back(&reactor);
  reactor.publishers_.push_back(this);
  ++liveSubscribers_;
}

void Publisher::subscriberDel(Reactor& reactor) {
  auto it = std::find(reactors_.begin(), reactors_.end(), &reactor);
  if (it == reactors_.end()) return;
  if (publishing_ != 0) {
    *it = nullptr;
  } else {
    reactors_.erase(it);
  }
  --liveSubscribers_;
  auto& list = reactor.publishers_;
  list.erase(std::find(list.begin(), list.end(), this));
}

bool Publisher::subscriberHas(const Reactor& reactor) const noexcept {
  return std::find(reactors_.begin(), reactors_.end(), &reactor) != reactors_.end();
}

void Publisher::publishAs(const Publisher* origin, AttrId attribute, const void* key, const void* previous) const {
  ++publishing_;
  // Reactors that subscribe during this publication are called from the next one on.
  const std::size_t count = reactors_.size();
  for (std::size_t i = 0; i < count; ++i) {
    Reactor* r = reactors_[i];
    if (r == nullptr) continue;
    r->onNotification(Notification{origin, r, attribute, key, previous});
  }
  if (--publishing_ == 0 && reactors_.size() != liveSubscribers_) compact();
  if (parent_ != nullptr) parent_->publishAs(origin, attribute, key, previous);
}

void Publisher::compact() const {
  reactors_.erase(std::remove(reactors_.begin(), reactors_.end(), nullptr), reactors_.end());
}

}  // namespace Fwk
