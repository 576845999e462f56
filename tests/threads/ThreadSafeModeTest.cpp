// Thread-safe mode: with Fwk::threadSafeModeIs(true), counted pointers to one entity may be
// copied and dropped on several threads at once. The tsan preset runs these tests under
// ThreadSanitizer; elsewhere they check the counts and the single destruction.
//
// Only the reference count is shared safely: the entities' collections are not, so the
// threads below read shared collections that nobody writes, and each writes only tables
// of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

namespace TesselCentral {
namespace {

constexpr int threads = 4;

class ThreadSafeMode : public ::testing::Test {
 protected:
  void SetUp() override { Fwk::threadSafeModeIs(true); }
  void TearDown() override { Fwk::threadSafeModeIs(false); }

  template <class Body>
  static void onThreads(Body body) {
    std::vector<std::thread> running;
    for (int t = 0; t < threads; ++t) running.emplace_back(body, t);
    for (std::thread& t : running) t.join();
  }
};

// An entity that counts its destructions.
class Probe : public Fwk::Entity {
 public:
  explicit Probe(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
  ~Probe() override { destroyed_.fetch_add(1); }

 private:
  std::atomic<int>& destroyed_;
};

TEST_F(ThreadSafeMode, CopiesAndDropsOfASharedBankKeepItsCount) {
  const Ptr<Bank> bank = bankFactory(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15);
  onThreads([&](int) {
    for (int i = 0; i < 20000; ++i) {
      Ptr<Bank> copy = bank;
      std::vector<Ptr<Bank>> more(4, copy);
      Ptr<Bank> moved = std::move(more.back());
      more.pop_back();
    }
  });
  EXPECT_EQ(bank->references(), 1u);
}

TEST_F(ThreadSafeMode, TheLastDropOnAnyThreadDestroysTheEntityOnce) {
  std::atomic<int> destroyed{0};
  for (int round = 0; round < 200; ++round) {
    Ptr<Probe> probe = Fwk::makeEntity<Probe>(destroyed);
    std::vector<Ptr<Probe>> handed(threads, probe);
    probe = nullptr;
    std::barrier start(threads);
    onThreads([&](int t) {
      Ptr<Probe> mine = std::move(handed[static_cast<std::size_t>(t)]);
      start.arrive_and_wait();
      for (int i = 0; i < 50; ++i) Ptr<Probe> copy = mine;
    });
    ASSERT_EQ(destroyed.load(), round + 1);
  }
}

TEST_F(ThreadSafeMode, ReadersShareAStatusWhileTheyCopyItsPointer) {
  const Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  for (U32 i = 1; i <= 500; ++i)
    status->statusIs(HashEntryKey(static_cast<U16>(i), i, 0, HashEntryType::singleWide), EntryId(i));
  std::atomic<unsigned> found{0};
  onThreads([&](int) {
    unsigned mine = 0;
    for (int pass = 0; pass < 20; ++pass) {
      const Ptr<const HashEntryStatus> reader = status;
      for (U32 i = 1; i <= 500; ++i) {
        if (reader->status(HashEntryKey(static_cast<U16>(i), i, 0, HashEntryType::singleWide)) == EntryId(i)) ++mine;
      }
    }
    found.fetch_add(mine);
  });
  EXPECT_EQ(found.load(), 500u * 20u * threads);
  EXPECT_EQ(status->references(), 1u);
}

TEST_F(ThreadSafeMode, TheNotificationFlagAndTheCountShareOneWordSafely) {
  const Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  const Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  const Ptr<MultiHashTable> table = multiHashTableFactory(1, 4, 1, config, status, 0, false);
  std::atomic<bool> copying{true};
  std::thread toggler([&] {
    // Only this thread touches the subscription; the others only count references.
    bool on = true;
    while (copying.load()) table->hasNotificationActiveIs(on = !on);
    table->hasNotificationActiveIs(true);
  });
  onThreads([&](int) {
    for (int i = 0; i < 20000; ++i) Ptr<MultiHashTable> copy = table;
  });
  copying.store(false);
  toggler.join();
  EXPECT_EQ(table->references(), 1u);
  EXPECT_TRUE(table->notificationActive());
  EXPECT_FALSE(table->reactorsRetired());
}

TEST_F(ThreadSafeMode, TablesOfTheirOwnOnEveryThread) {
  // Nothing a table keeps is shared with another table: the registry's counters, the trace
  // handle and the hash seed are the only common state, and they are atomic.
  std::atomic<unsigned> placed{0};
  onThreads([&](int t) {
    const Ptr<HashEntryConfig> config = hashEntryConfigFactory();
    const Ptr<HashEntryStatus> status = hashEntryStatusFactory();
    const Ptr<MultiEntryTypeHashTable> table = multiEntryTypeHashTableFactory(2, 16, 4, config, status, 2);
    table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 0, false);
    table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 0, 0, 15, 1, true);
    table->entryIdHelperIs(entryIdHelperFactory(table));
    const Ptr<MultiHashTable> single = multiHashTableFactory(2, 16, 4, config, status, 2, false);
    single->hasNotificationActiveIs(false);
    single->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15);
    unsigned mine = 0;
    for (U32 i = 1; i <= 100; ++i) {
      const HashEntryKey k(static_cast<U16>(i * 7 + static_cast<U32>(t)), i * 2654435761u, static_cast<U32>(t),
                           i % 3 == 0 ? HashEntryType::doubleWide : HashEntryType::singleWide);
      config->configIs(k, EntryId());
      if (status->status(k).isValid()) ++mine;
      if (i % 4 == 0) config->configDel(k);
    }
    EXPECT_TRUE(table->audit().empty());
    table->entryIdHelperIs(nullptr);
    placed.fetch_add(mine);
  });
  EXPECT_GT(placed.load(), 0u);
}

}  // namespace
}  // namespace TesselCentral
