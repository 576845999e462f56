#include "MultiHashTable/fwk/Notification.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace {

// Keeps every notification record it receives, and optionally runs an action inside the
// callback (to publish, subscribe or unsubscribe while a publication is running).
class Recorder : public Fwk::Reactor {
 public:
  explicit Recorder(std::string name = {}, std::vector<std::string>* log = nullptr)
      : name_(std::move(name)), log_(log) {}

  void onNotification(const Fwk::Notification& n) override {
    records.push_back(n);
    if (log_ != nullptr) log_->push_back(name_ + " begin");
    if (action) action(n);
    if (log_ != nullptr) log_->push_back(name_ + " end");
  }

  std::vector<Fwk::Notification> records;
  std::function<void(const Fwk::Notification&)> action;

 private:
  std::string name_;
  std::vector<std::string>* log_;
};

constexpr Fwk::AttrId attr = Fwk::firstOwnAttrId;

TEST(Notification, ReactorReceivesPublisherSubscriberAttributeKeyAndPrevious) {
  Fwk::Publisher publisher;
  Recorder reactor;
  publisher.subscriberIs(reactor);
  const int key = 5;
  const int previous = 4;
  publisher.publish(attr, &key, &previous);

  ASSERT_EQ(reactor.records.size(), 1u);
  const Fwk::Notification& n = reactor.records[0];
  EXPECT_EQ(n.publisher, &publisher);
  EXPECT_EQ(n.subscriber, &reactor);
  EXPECT_EQ(n.attribute, 130u);
  EXPECT_EQ(n.key, &key);
  EXPECT_EQ(n.previous, &previous);
}

TEST(Notification, NewKeyIsPublishedWithANullPrevious) {
  Fwk::Publisher publisher;
  Recorder reactor;
  publisher.subscriberIs(reactor);
  const int key = 1;
  publisher.publish(258, &key, nullptr);
  ASSERT_EQ(reactor.records.size(), 1u);
  EXPECT_EQ(reactor.records[0].attribute, 258u);
  EXPECT_EQ(reactor.records[0].previous, nullptr);
}

TEST(Notification, EveryReactorIsCalledInSubscriptionOrder) {
  std::vector<std::string> log;
  Fwk::Publisher publisher;
  Recorder a("a", &log);
  Recorder b("b", &log);
  publisher.subscriberIs(a);
  publisher.subscriberIs(b);
  EXPECT_EQ(publisher.subscribers(), 2u);
  EXPECT_TRUE(publisher.subscriberHas(a));
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(log, (std::vector<std::string>{"a begin", "a end", "b begin", "b end"}));
  EXPECT_EQ(b.records[0].subscriber, &b);
}

TEST(Notification, SubscribingTwiceIsOneSubscription) {
  Fwk::Publisher publisher;
  Recorder reactor;
  publisher.subscriberIs(reactor);
  publisher.subscriberIs(reactor);
  EXPECT_EQ(publisher.subscribers(), 1u);
  EXPECT_EQ(reactor.subscriptions(), 1u);
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(reactor.records.size(), 1u);
}

TEST(Notification, UnsubscribedReactorIsNotCalled) {
  Fwk::Publisher publisher;
  Recorder reactor;
  publisher.subscriberIs(reactor);
  publisher.subscriberDel(reactor);
  EXPECT_EQ(publisher.subscribers(), 0u);
  EXPECT_EQ(reactor.subscriptions(), 0u);
  EXPECT_FALSE(publisher.subscriberHas(reactor));
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_TRUE(reactor.records.empty());
  publisher.subscriberDel(reactor);  // a second removal is harmless
  EXPECT_EQ(publisher.subscribers(), 0u);
}

TEST(Notification, ReactorWatchingTwoPublishersCountsTwoSubscriptions) {
  Fwk::Publisher first;
  Fwk::Publisher second;
  Recorder reactor;
  first.subscriberIs(reactor);
  second.subscriberIs(reactor);
  EXPECT_EQ(reactor.subscriptions(), 2u);
  second.publish(attr, nullptr, nullptr);
  first.publish(attr, nullptr, nullptr);
  ASSERT_EQ(reactor.records.size(), 2u);
  EXPECT_EQ(reactor.records[0].publisher, &second);
  EXPECT_EQ(reactor.records[1].publisher, &first);
}

TEST(Notification, ReactorPublishingOnAnotherPublisherIsHeardBeforeItsCallbackReturns) {
  std::vector<std::string> log;
  Fwk::Publisher outer;
  Fwk::Publisher inner;
  Recorder forwarder("forwarder", &log);
  Recorder listener("listener", &log);
  outer.subscriberIs(forwarder);
  inner.subscriberIs(listener);
  const int innerKey = 2;
  forwarder.action = [&](const Fwk::Notification& n) { inner.publish(n.attribute + 1, &innerKey, n.key); };

  const int key = 1;
  outer.publish(attr, &key, nullptr);

  EXPECT_EQ(log, (std::vector<std::string>{"forwarder begin", "listener begin", "listener end", "forwarder end"}));
  ASSERT_EQ(listener.records.size(), 1u);
  EXPECT_EQ(listener.records[0].publisher, &inner);
  EXPECT_EQ(listener.records[0].attribute, 131u);
  EXPECT_EQ(listener.records[0].key, &innerKey);
  EXPECT_EQ(listener.records[0].previous, &key);
}

TEST(Notification, ReactorMayPublishAgainOnTheSamePublisher) {
  Fwk::Publisher publisher;
  Recorder echo;
  Recorder other;
  publisher.subscriberIs(echo);
  publisher.subscriberIs(other);
  int depth = 0;
  echo.action = [&](const Fwk::Notification&) {
    if (++depth < 3) publisher.publish(attr, nullptr, nullptr);
  };
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(echo.records.size(), 3u);
  EXPECT_EQ(other.records.size(), 3u);
}

TEST(Notification, ParentPublisherReceivesForwardedNotificationsWithTheOriginalPublisher) {
  Fwk::Publisher parent;
  Fwk::Publisher child;
  child.parentIs(&parent);
  Recorder childReactor;
  Recorder parentReactor;
  child.subscriberIs(childReactor);
  parent.subscriberIs(parentReactor);

  const int key = 3;
  const int previous = 2;
  child.publish(attr, &key, &previous);

  ASSERT_EQ(childReactor.records.size(), 1u);
  ASSERT_EQ(parentReactor.records.size(), 1u);
  const Fwk::Notification& n = parentReactor.records[0];
  EXPECT_EQ(n.publisher, &child);
  EXPECT_EQ(n.subscriber, &parentReactor);
  EXPECT_EQ(n.attribute, 130u);
  EXPECT_EQ(n.key, &key);
  EXPECT_EQ(n.previous, &previous);

  // Publishing on the parent itself does not reach the child's reactors.
  parent.publish(attr, nullptr, nullptr);
  EXPECT_EQ(childReactor.records.size(), 1u);
  ASSERT_EQ(parentReactor.records.size(), 2u);
  EXPECT_EQ(parentReactor.records[1].publisher, &parent);
}

TEST(Notification, ForwardingReachesTheParentEvenWhenTheChildHasNoReactors) {
  Fwk::Publisher grandparent;
  Fwk::Publisher parent;
  Fwk::Publisher child;
  child.parentIs(&parent);
  parent.parentIs(&grandparent);
  Recorder top;
  grandparent.subscriberIs(top);
  child.publish(attr, nullptr, nullptr);
  ASSERT_EQ(top.records.size(), 1u);
  EXPECT_EQ(top.records[0].publisher, &child);

  child.parentIs(nullptr);
  child.publish(attr, nullptr, nullptr);
  EXPECT_EQ(top.records.size(), 1u);
}

TEST(Notification, ReactorUnsubscribingItselfDuringPublicationIsNotCalledAgain) {
  Fwk::Publisher publisher;
  Recorder once;
  Recorder always;
  publisher.subscriberIs(once);
  publisher.subscriberIs(always);
  once.action = [&](const Fwk::Notification&) { publisher.subscriberDel(once); };

  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(publisher.subscribers(), 1u);
  EXPECT_EQ(once.subscriptions(), 0u);
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(once.records.size(), 1u);
  EXPECT_EQ(always.records.size(), 2u);
}

TEST(Notification, ReactorUnsubscribedByAnEarlierOneDuringPublicationIsSkipped) {
  Fwk::Publisher publisher;
  Recorder first;
  Recorder second;
  Recorder third;
  publisher.subscriberIs(first);
  publisher.subscriberIs(second);
  publisher.subscriberIs(third);
  first.action = [&](const Fwk::Notification&) { publisher.subscriberDel(second); };

  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(first.records.size(), 1u);
  EXPECT_TRUE(second.records.empty());
  EXPECT_EQ(third.records.size(), 1u);
  EXPECT_EQ(publisher.subscribers(), 2u);
  EXPECT_FALSE(publisher.subscriberHas(second));
}

TEST(Notification, UnsubscribingDuringANestedPublicationOfTheSamePublisherIsSafe) {
  Fwk::Publisher publisher;
  Recorder outer;
  Recorder victim;
  publisher.subscriberIs(outer);
  publisher.subscriberIs(victim);
  bool nested = false;
  outer.action = [&](const Fwk::Notification&) {
    if (nested) {
      publisher.subscriberDel(victim);
      return;
    }
    nested = true;
    publisher.publish(attr, nullptr, nullptr);
  };
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(outer.records.size(), 2u);
  EXPECT_TRUE(victim.records.empty());
  EXPECT_EQ(publisher.subscribers(), 1u);
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_TRUE(victim.records.empty());
}

TEST(Notification, ReactorSubscribedDuringPublicationIsFirstCalledByTheNextOne) {
  Fwk::Publisher publisher;
  Recorder first;
  Recorder late;
  publisher.subscriberIs(first);
  first.action = [&](const Fwk::Notification&) { publisher.subscriberIs(late); };
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_TRUE(late.records.empty());
  EXPECT_EQ(publisher.subscribers(), 2u);
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(late.records.size(), 1u);
}

TEST(Notification, ResubscribingDuringPublicationKeepsOneSubscription) {
  Fwk::Publisher publisher;
  Recorder flip;
  publisher.subscriberIs(flip);
  flip.action = [&](const Fwk::Notification&) {
    publisher.subscriberDel(flip);
    publisher.subscriberIs(flip);
  };
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(flip.records.size(), 1u);
  EXPECT_EQ(publisher.subscribers(), 1u);
  EXPECT_EQ(flip.subscriptions(), 1u);
  flip.action = nullptr;
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(flip.records.size(), 2u);
}

TEST(Notification, ReactorDestructionUnsubscribes) {
  Fwk::Publisher first;
  Fwk::Publisher second;
  {
    Recorder reactor;
    first.subscriberIs(reactor);
    second.subscriberIs(reactor);
    EXPECT_EQ(first.subscribers(), 1u);
  }
  EXPECT_EQ(first.subscribers(), 0u);
  EXPECT_EQ(second.subscribers(), 0u);
  first.publish(attr, nullptr, nullptr);  // reaches no freed reactor
  second.publish(attr, nullptr, nullptr);
}

TEST(Notification, ReactorDestroyedByAnotherDuringPublicationIsSkipped) {
  Fwk::Publisher publisher;
  Recorder killer;
  auto victim = std::make_unique<Recorder>();
  publisher.subscriberIs(killer);
  publisher.subscriberIs(*victim);
  killer.action = [&](const Fwk::Notification&) { victim.reset(); };
  publisher.publish(attr, nullptr, nullptr);
  EXPECT_EQ(killer.records.size(), 1u);
  EXPECT_EQ(publisher.subscribers(), 1u);
}

TEST(Notification, PublisherDestructionDropsItsReactors) {
  Recorder reactor;
  Recorder other;
  Fwk::Publisher survivor;
  survivor.subscriberIs(reactor);
  {
    Fwk::Publisher doomed;
    doomed.subscriberIs(reactor);
    doomed.subscriberIs(other);
    EXPECT_EQ(reactor.subscriptions(), 2u);
    EXPECT_EQ(other.subscriptions(), 1u);
  }
  EXPECT_EQ(reactor.subscriptions(), 1u);
  EXPECT_EQ(other.subscriptions(), 0u);
  EXPECT_TRUE(reactor.records.empty());  // nobody is told
  survivor.publish(attr, nullptr, nullptr);
  EXPECT_EQ(reactor.records.size(), 1u);
}

TEST(Notification, ReactorOutlivedByNoPublisherCanBeDestroyedSafely) {
  auto reactor = std::make_unique<Recorder>();
  {
    Fwk::Publisher doomed;
    doomed.subscriberIs(*reactor);
  }
  EXPECT_EQ(reactor->subscriptions(), 0u);
  reactor.reset();  // must not touch the destroyed publisher
}

// ---------------------------------------------------------------------------------------
// The library's request and result collections publish through this framework.

using TesselCentral::EntryId;
using TesselCentral::HashEntryConfig;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryStatus;
using TesselCentral::HashEntryType;
using TesselCentral::test::ChangeRecorder;

const HashEntryKey keyA(0x0001, 0x00000010, 0, HashEntryType::singleWide);
const HashEntryKey keyB(0x0002, 0x00000020, 0, HashEntryType::doubleWide);
const HashEntryKey keyC(0x0003, 0x00000030, 1, HashEntryType::quadWide);

TEST(CollectionNotification, NewConfigAndStatusHaveOneReferenceAndNoMembers) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  const auto status = TesselCentral::hashEntryStatusFactory();
  EXPECT_EQ(config->references(), 1u);
  EXPECT_EQ(status->references(), 1u);
  EXPECT_TRUE(config->configCollection().empty());
  EXPECT_TRUE(status->statusCollection().empty());
  EXPECT_EQ(config->publisher().subscribers(), 0u);
  EXPECT_EQ(status->publisher().subscribers(), 0u);
}

TEST(CollectionNotification, ConfigIsOfTheSameValueTwicePublishesOnce) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  ChangeRecorder recorder(*config);
  config->configIs(keyA, EntryId(5));
  config->configIs(keyA, EntryId(5));
  ASSERT_EQ(recorder.changes.size(), 1u);
  const ChangeRecorder::Change& c = recorder.changes[0];
  EXPECT_EQ(c.attribute, 130u);
  EXPECT_EQ(c.key, keyA);
  EXPECT_FALSE(c.hadPrevious);
  EXPECT_TRUE(c.present);
  EXPECT_EQ(c.current, EntryId(5));
}

TEST(CollectionNotification, ChangedValueIsPublishedWithThePreviousOne) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  ChangeRecorder recorder(*config);
  config->configIs(keyA, EntryId(5));
  config->configIs(keyA, EntryId(6));
  ASSERT_EQ(recorder.changes.size(), 2u);
  EXPECT_TRUE(recorder.changes[1].hadPrevious);
  EXPECT_EQ(recorder.changes[1].previous, EntryId(5));
  EXPECT_EQ(recorder.changes[1].current, EntryId(6));
  EXPECT_EQ(recorder.changes[1].attribute, 130u);
  EXPECT_EQ(config->config(keyA), EntryId(6));
}

TEST(CollectionNotification, ConfigDelReturnsAndPublishesTheRemovedValue) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  config->configIs(keyA, EntryId(7));
  ChangeRecorder recorder(*config);
  EXPECT_EQ(config->configDel(keyA), EntryId(7));
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(recorder.changes[0].key, keyA);
  EXPECT_TRUE(recorder.changes[0].hadPrevious);
  EXPECT_EQ(recorder.changes[0].previous, EntryId(7));
  EXPECT_FALSE(recorder.changes[0].present);
  EXPECT_FALSE(config->configHas(keyA));
}

TEST(CollectionNotification, ConfigDelOfAnAbsentKeyReturnsTheInvalidIdAndPublishesNothing) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  config->configIs(keyA, EntryId(7));
  ChangeRecorder recorder(*config);
  const EntryId removed = config->configDel(keyB);
  EXPECT_EQ(removed.value(), 0xFFFFFFFFu);
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_TRUE(config->configHas(keyA));
}

TEST(CollectionNotification, ConfigDelAllWithoutSubscribersPublishesNothing) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  ChangeRecorder recorder(*config);
  config->configIs(keyA, EntryId(1));
  config->configIs(keyB, EntryId(2));
  config->publisher().subscriberDel(recorder);
  recorder.changes.clear();
  ASSERT_EQ(config->publisher().subscribers(), 0u);

  config->configDelAll();
  EXPECT_TRUE(config->configCollection().empty());
  EXPECT_TRUE(recorder.changes.empty());
}

TEST(CollectionNotification, ConfigDelAllWithASubscriberPublishesOncePerKey) {
  const auto config = TesselCentral::hashEntryConfigFactory();
  config->configIs(keyA, EntryId(1));
  config->configIs(keyB, EntryId(2));
  config->configIs(keyC, EntryId());
  ChangeRecorder recorder(*config);

  config->configDelAll();
  EXPECT_TRUE(config->configCollection().empty());
  ASSERT_EQ(recorder.changes.size(), 3u);
  std::vector<HashEntryKey> keys;
  for (const ChangeRecorder::Change& c : recorder.changes) {
    keys.push_back(c.key);
    EXPECT_TRUE(c.hadPrevious);
    EXPECT_FALSE(c.present);
    EXPECT_EQ(c.attribute, 130u);
    const EntryId expected = c.key == keyA ? EntryId(1) : c.key == keyB ? EntryId(2) : EntryId();
    EXPECT_EQ(c.previous, expected);
  }
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<HashEntryKey>{keyA, keyB, keyC}));
}

TEST(CollectionNotification, KeyStoredWithTheInvalidIdIsPresentThoughItsLookupEqualsAnAbsentKeys) {
  const auto status = TesselCentral::hashEntryStatusFactory();
  status->statusIs(keyA, EntryId());
  EXPECT_TRUE(status->statusHas(keyA));
  EXPECT_FALSE(status->statusHas(keyB));
  EXPECT_EQ(status->status(keyA), status->status(keyB));
  EXPECT_EQ(status->status(keyA), EntryId(0xFFFFFFFF));
  ASSERT_NE(status->statusFind(keyA), nullptr);
  EXPECT_EQ(status->statusFind(keyB), nullptr);
}

TEST(CollectionNotification, StatusPublishesLikeConfig) {
  const auto status = TesselCentral::hashEntryStatusFactory();
  ChangeRecorder recorder(*status);
  status->statusIs(keyA, EntryId(3));
  status->statusIs(keyA, EntryId(3));
  status->statusIs(keyA, EntryId());
  EXPECT_EQ(status->statusDel(keyA), EntryId());
  EXPECT_EQ(status->statusDel(keyA), EntryId());
  ASSERT_EQ(recorder.changes.size(), 3u);
  EXPECT_FALSE(recorder.changes[0].hadPrevious);
  EXPECT_EQ(recorder.changes[1].previous, EntryId(3));
  EXPECT_TRUE(recorder.changes[1].present);
  EXPECT_EQ(recorder.changes[1].current, EntryId());
  EXPECT_TRUE(recorder.changes[2].hadPrevious);
  EXPECT_EQ(recorder.changes[2].previous, EntryId());
  EXPECT_FALSE(recorder.changes[2].present);
  for (const ChangeRecorder::Change& c : recorder.changes) EXPECT_EQ(c.attribute, 130u);
}

TEST(CollectionNotification, DestroyingTheEntityDropsItsSubscribersWithoutPublishing) {
  auto status = TesselCentral::hashEntryStatusFactory();
  status->statusIs(keyA, EntryId(1));
  ChangeRecorder recorder(*status);
  EXPECT_EQ(recorder.subscriptions(), 1u);
  status = nullptr;
  EXPECT_EQ(recorder.subscriptions(), 0u);
  EXPECT_TRUE(recorder.changes.empty());
}

}  // namespace
