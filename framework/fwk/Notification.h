// Synchronous change notification.
//
// An entity that others watch owns a Publisher. A Reactor subscribes to it and is called
// back inside the call that made the change, before that call returns, with one
// Notification record. Publication is recursive in two ways: a reactor may change other
// collections (whose publishers notify their own reactors at once), and a publisher may
// forward everything it publishes to a parent publisher, so that reactors watching an
// aggregate hear about changes of its parts.
//
// Subscribing and unsubscribing are explicit and may happen during a publication: a
// reactor that unsubscribes is not called again, one that subscribes is first called by
// the next publication. A Reactor unsubscribes from everything when it is destroyed; a
// Publisher that is destroyed drops its reactors without telling them.
#pragma once

#include <cstddef>
#include <vector>

#include "Entity.h"

namespace Fwk {

class Publisher;
class Reactor;

struct Notification {
  const Publisher* publisher;
  Reactor* subscriber;
  AttrId attribute;
  const void* key;       // the changed key
  const void* previous;  // the key's value before the change; null when the key is new
};

class Reactor {
 public:
  Reactor() = default;
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;
  virtual ~Reactor();

  virtual void onNotification(const Notification& n) = 0;

  std::size_t subscriptions() const noexcept { return publishers_.size(); }

 private:
  friend class Publisher;
  std::vector<Publisher*> publishers_;
};

class Publisher {
 public:
  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  ~Publisher();

  void subscriberIs(Reactor& reactor);
  void subscriberDel(Reactor& reactor);
  bool subscriberHas(const Reactor& reactor) const noexcept;
  std::size_t subscribers() const noexcept { return liveSubscribers_; }

  // Everything published here is published again on the parent (null: none).
  void parentIs(Publisher* parent) noexcept { parent_ = parent; }

  void publish(AttrId attribute, const void* key, const void* previous) const {
    if (liveSubscribers_ != 0 || parent_ != nullptr) publishAs(this, attribute, key, previous);
  }

 private:
  void publishAs(const Publisher* origin, AttrId attribute, const void* key, const void* previous) const;
  void compact() const;

  // Null entries are reactors that unsubscribed during a publication.
  mutable std::vector<Reactor*> reactors_;
  std::size_t liveSubscribers_ = 0;
  mutable unsigned publishing_ = 0;
  Publisher* parent_ = nullptr;
};

}  // namespace Fwk
