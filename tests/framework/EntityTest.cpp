#include "MultiHashTable/fwk/Entity.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

namespace {

// An entity that counts its destructions and the runs of its last-user-gone operation.
class Tracked : public Fwk::Entity {
 public:
  Tracked(int* destroyed, int value = 0) : destroyed_(destroyed), value_(value) {}
  ~Tracked() override { ++*destroyed_; }

  int value() const noexcept { return value_; }

  // Reaches the protected flag setters.
  using Fwk::Entity::notificationActiveIs;
  using Fwk::Entity::reactorsRetiredIs;

 private:
  int* destroyed_;
  int value_;
};

class TrackedChild : public Tracked {
 public:
  using Tracked::Tracked;
};

// Counts the calls of lastUserGone before destroying itself as usual.
class LastUserProbe : public Fwk::Entity {
 public:
  explicit LastUserProbe(int* lastUserCalls) : lastUserCalls_(lastUserCalls) {}

 protected:
  void lastUserGone() const noexcept override {
    ++*lastUserCalls_;
    Fwk::Entity::lastUserGone();
  }

 private:
  int* lastUserCalls_;
};

// Switches thread-safe mode on for one scope and off again however the test ends.
class ThreadSafeScope {
 public:
  ThreadSafeScope() { Fwk::threadSafeModeIs(true); }
  ~ThreadSafeScope() { Fwk::threadSafeModeIs(false); }
  ThreadSafeScope(const ThreadSafeScope&) = delete;
  ThreadSafeScope& operator=(const ThreadSafeScope&) = delete;
};

static_assert(Fwk::Entity::notificationActiveBit == 0x20000000u);
static_assert(Fwk::Entity::reactorsRetiredBit == 0x40000000u);
static_assert(Fwk::Entity::countBits == 0x9FFFFFFFu);

TEST(Entity, NewEntityFromMakeEntityHasOneReference) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed, 7);
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(p->useWord(), 1u);
  EXPECT_EQ(p->value(), 7);
  EXPECT_FALSE(p->notificationActive());
  EXPECT_FALSE(p->reactorsRetired());
}

TEST(Entity, AdoptTakesOverTheFirstReferenceOfANewEntity) {
  int destroyed = 0;
  {
    Fwk::Ptr<Tracked> p = Fwk::Ptr<Tracked>::adopt(new Tracked(&destroyed));
    EXPECT_EQ(p->references(), 1u);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, PtrFromARawPointerAddsAReference) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  {
    Fwk::Ptr<Tracked> q(p.ptr());
    EXPECT_EQ(p->references(), 2u);
    EXPECT_EQ(q, p);
  }
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(destroyed, 0);
}

TEST(Entity, CopiesAddReferencesAndDropsRemoveThem) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  {
    Fwk::Ptr<Tracked> a = p;
    EXPECT_EQ(p->references(), 2u);
    {
      Fwk::Ptr<Tracked> b(a);
      Fwk::Ptr<Tracked> c;
      c = b;
      EXPECT_EQ(p->references(), 4u);
    }
    EXPECT_EQ(p->references(), 2u);
  }
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(destroyed, 0);
}

TEST(Entity, MovingAPtrDoesNotChangeTheCount) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  Tracked* raw = p.ptr();
  Fwk::Ptr<Tracked> q = std::move(p);
  EXPECT_EQ(raw->references(), 1u);
  EXPECT_FALSE(p);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null
  Fwk::Ptr<Tracked> r;
  r = std::move(q);
  EXPECT_EQ(raw->references(), 1u);
  EXPECT_EQ(r.ptr(), raw);
}

TEST(Entity, EntityIsDestroyedWhenTheLastReferenceIsDropped) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  Fwk::Ptr<Tracked> q = p;
  p = nullptr;
  EXPECT_EQ(destroyed, 0);
  q = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, LastUserGoneRunsExactlyOnceAtZero) {
  int calls = 0;
  {
    Fwk::Ptr<LastUserProbe> p = Fwk::makeEntity<LastUserProbe>(&calls);
    Fwk::Ptr<LastUserProbe> q = p;
    q = nullptr;
    EXPECT_EQ(calls, 0);
  }
  EXPECT_EQ(calls, 1);
}

TEST(Entity, AssigningAnotherEntityDropsTheOldOne) {
  int destroyedA = 0;
  int destroyedB = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyedA);
  Fwk::Ptr<Tracked> b = Fwk::makeEntity<Tracked>(&destroyedB);
  p = b;
  EXPECT_EQ(destroyedA, 1);
  EXPECT_EQ(b->references(), 2u);
  p = p;  // self-assignment keeps the count
  EXPECT_EQ(b->references(), 2u);
  EXPECT_EQ(destroyedB, 0);
}

TEST(Entity, NullPtrHoldsNoEntity) {
  Fwk::Ptr<Tracked> p;
  EXPECT_FALSE(p);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(p.ptr(), nullptr);
  Fwk::Ptr<Tracked> q(static_cast<Tracked*>(nullptr));
  EXPECT_EQ(q, nullptr);
  Fwk::Ptr<Tracked> copy = q;
  EXPECT_EQ(copy, nullptr);
}

TEST(Entity, PtrToConstEntityCountsLikeAnyOther) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed, 3);
  {
    Fwk::Ptr<const Tracked> c = p;
    EXPECT_EQ(p->references(), 2u);
    EXPECT_EQ(c->value(), 3);
    Fwk::Ptr<const Tracked> d(c.ptr());
    EXPECT_EQ(c->references(), 3u);
  }
  EXPECT_EQ(p->references(), 1u);
  Fwk::Ptr<const Tracked> last = std::move(p);
  EXPECT_EQ(last->references(), 1u);
  last = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, PtrToABaseCountsTheSameEntity) {
  int destroyed = 0;
  Fwk::Ptr<TrackedChild> child = Fwk::makeEntity<TrackedChild>(&destroyed);
  Fwk::Ptr<Fwk::Entity> base = child;
  EXPECT_EQ(child->references(), 2u);
  child = nullptr;
  EXPECT_EQ(destroyed, 0);
  base = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, ReleaseGivesUpOwnershipWithoutDroppingTheReference) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  Tracked* raw = p.release();
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(raw->references(), 1u);
  EXPECT_EQ(destroyed, 0);
  Fwk::Ptr<Tracked> again = Fwk::Ptr<Tracked>::adopt(raw);
  again = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, SettingTheFlagsDoesNotDisturbTheCount) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  Fwk::Ptr<Tracked> q = p;

  p->notificationActiveIs(true);
  EXPECT_TRUE(p->notificationActive());
  EXPECT_FALSE(p->reactorsRetired());
  EXPECT_EQ(p->references(), 2u);
  EXPECT_EQ(p->useWord(), (1u << 29) | 2u);

  p->reactorsRetiredIs(true);
  EXPECT_TRUE(p->reactorsRetired());
  EXPECT_EQ(p->references(), 2u);
  EXPECT_EQ(p->useWord(), (1u << 30) | (1u << 29) | 2u);

  p->notificationActiveIs(false);
  EXPECT_FALSE(p->notificationActive());
  EXPECT_TRUE(p->reactorsRetired());
  EXPECT_EQ(p->useWord(), (1u << 30) | 2u);

  p->reactorsRetiredIs(false);
  EXPECT_EQ(p->useWord(), 2u);
}

TEST(Entity, SettingAFlagTwiceKeepsItSet) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  p->notificationActiveIs(true);
  p->notificationActiveIs(true);
  EXPECT_EQ(p->useWord(), (1u << 29) | 1u);
  p->reactorsRetiredIs(false);
  EXPECT_EQ(p->useWord(), (1u << 29) | 1u);
}

TEST(Entity, CountingDoesNotDisturbTheFlags) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  p->notificationActiveIs(true);
  p->reactorsRetiredIs(true);
  {
    std::vector<Fwk::Ptr<Tracked>> copies(5, p);
    EXPECT_EQ(p->references(), 6u);
    EXPECT_EQ(p->useWord(), (1u << 30) | (1u << 29) | 6u);
  }
  EXPECT_EQ(p->references(), 1u);
  EXPECT_TRUE(p->notificationActive());
  EXPECT_TRUE(p->reactorsRetired());
  EXPECT_EQ(p->useWord(), (1u << 30) | (1u << 29) | 1u);
}

TEST(Entity, EntityWithFlagsSetIsDestroyedWhenTheCountReachesZero) {
  int destroyed = 0;
  Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
  p->notificationActiveIs(true);
  p->reactorsRetiredIs(true);
  p = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, ThreadSafeModeKeepsTheCountExactUnderConcurrentCopies) {
  ThreadSafeScope threadSafe;
  ASSERT_TRUE(Fwk::threadSafeMode());

  int destroyed = 0;
  Fwk::Ptr<Tracked> shared = Fwk::makeEntity<Tracked>(&destroyed);
  shared->notificationActiveIs(true);

  constexpr int threads = 4;
  constexpr int rounds = 20000;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&shared] {
      for (int i = 0; i < rounds; ++i) {
        Fwk::Ptr<Tracked> a = shared;
        Fwk::Ptr<const Tracked> b = a;
        Fwk::Ptr<Tracked> c(a.ptr());
        b = nullptr;
      }
    });
  }
  for (std::thread& w : workers) w.join();

  EXPECT_EQ(shared->references(), 1u);
  EXPECT_TRUE(shared->notificationActive());
  EXPECT_EQ(destroyed, 0);
  shared = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Entity, ThreadSafeModeIsOffByDefaultAndCanBeSwitched) {
  EXPECT_FALSE(Fwk::threadSafeMode());
  {
    ThreadSafeScope threadSafe;
    EXPECT_TRUE(Fwk::threadSafeMode());
    int destroyed = 0;
    Fwk::Ptr<Tracked> p = Fwk::makeEntity<Tracked>(&destroyed);
    p->reactorsRetiredIs(true);
    Fwk::Ptr<Tracked> q = p;
    EXPECT_EQ(p->useWord(), (1u << 30) | 2u);
    p->reactorsRetiredIs(false);
    EXPECT_EQ(p->useWord(), 2u);
  }
  EXPECT_FALSE(Fwk::threadSafeMode());
}

}  // namespace
