// Builds tables of both kinds and tears them down many times, with everything a client
// hangs on them: requests and results, status and request subscribers, banks, and the
// multi-width table's EntryIdHelper (the table and its helper hold each other; a client
// breaks the cycle with entryIdHelperIs(nullptr) before dropping the table). Requests run
// in between: placements anywhere and at requested ids, removals, full resyncs.
//
// Two checks: the program counts the blocks that operator new hands out and that are not
// yet deleted, and after the first round (which sets up the registry and the process's
// other one-time state) every further round must end with exactly as many as it began
// with; and in the debug preset LeakSanitizer looks at the whole process when it exits.
// Under valgrind (see README.md, "Checking for leaks") the same program runs unchanged.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Notification.h"
#include "MultiHashTable/fwk/Registry.h"

namespace {

std::atomic<long long> liveBlocks{0};
std::atomic<long long> allocations{0};

void* allocate(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  liveBlocks.fetch_add(1, std::memory_order_relaxed);
  allocations.fetch_add(1, std::memory_order_relaxed);
  return p;
}

void release(void* p) noexcept {
  if (p == nullptr) return;
  liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(p);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }

namespace {

using namespace TesselCentral;

// A status subscriber, as an agent that programs the chip from the results has one.
class StatusWatcher : public Fwk::Reactor {
 public:
  explicit StatusWatcher(const HashEntryStatus& status) { status.publisher().subscriberIs(*this); }
  void onNotification(const Fwk::Notification&) override { ++changes; }
  unsigned long changes = 0;
};

// A second subscriber of the requests beside the table.
class ConfigWatcher : public Fwk::Reactor {
 public:
  explicit ConfigWatcher(const HashEntryConfig& config) { config.publisher().subscriberIs(*this); }
  void onNotification(const Fwk::Notification&) override { ++changes; }
  unsigned long changes = 0;
};

HashEntryKey newKey(std::mt19937& rng, HashEntryType type) {
  return HashEntryKey(static_cast<U16>(rng() | 1), static_cast<U32>(rng()), rng() % 4, type);
}

// Deletes the request of a randomly chosen requested key; false when there is none.
bool withdrawOne(std::mt19937& rng, HashEntryConfig& config, std::vector<HashEntryKey>& requested) {
  if (requested.empty()) return false;
  const std::size_t at = rng() % requested.size();
  config.configDel(requested[at]);
  requested[at] = requested.back();
  requested.pop_back();
  return true;
}

// Requests against a single-width table: anywhere, at free candidate ids, removals.
void singleWidthRequests(std::mt19937& rng, HashEntryConfig& config, MultiHashTable& table, int count) {
  std::vector<HashEntryKey> requested;
  for (int i = 0; i < count; ++i) {
    const U32 choice = rng() % 10;
    if (choice < 3 && withdrawOne(rng, config, requested)) continue;
    const HashEntryKey k = newKey(rng, HashEntryType::singleWide);
    EntryId id;
    if (choice < 5) {
      const U32 b = rng() % table.numBanks();
      const U32 bucket = table.bank(b)->calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
      const EntryId candidate = table.calcEntryId(b, bucket, SlotId(static_cast<U8>(rng() % table.numBucketEntries())));
      if (!table.hashTableEntryHas(candidate)) id = candidate;
    }
    config.configIs(k, id);
    requested.push_back(k);
  }
}

// Requests against a multi-width table; requested ids only where the aligned run is free
// and the id leads back to it.
void multiWidthRequests(std::mt19937& rng, HashEntryConfig& config, MultiEntryTypeHashTable& table, int count) {
  const HashEntryType widths[] = {HashEntryType::singleWide, HashEntryType::singleWide, HashEntryType::doubleWide,
                                  HashEntryType::quadWide};
  std::vector<HashEntryKey> requested;
  for (int i = 0; i < count; ++i) {
    const U32 choice = rng() % 10;
    if (choice < 3 && withdrawOne(rng, config, requested)) continue;
    const HashEntryKey k = newKey(rng, widths[rng() % 4]);
    EntryId id;
    if (choice < 5) {
      const U32 b = rng() % table.numBanks();
      MultiEntryTypeBank& bank = *table.bank(b);
      const U32 width = bank.entrySize(k.entryType());
      const U32 bucket = bank.calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
      const U32 slot = (rng() % (bank.bucketSize() / width)) * width;
      const U32 pos = packPosition(b, bucket, slot);
      const bool firstRun = bank.phyBankId() == 0 && bucket == 0 && slot == 0;
      if (!firstRun && (bank.bucket(bucket) & (((1u << width) - 1) << slot)) == 0) {
        const EntryId candidate = table.entryIdHelper()->posToEntryId(pos);
        if (table.entryIdHelper()->candidatePosition(k, candidate) == pos) id = candidate;
      }
    }
    config.configIs(k, id);
    requested.push_back(k);
  }
}

void singleWidthRound(std::mt19937& rng, unsigned variant) {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  StatusWatcher statusWatcher(*status);
  Ptr<MultiHashTable> table = multiHashTableFactory(2 + variant % 3, 16, 4, config, status, 3, (variant & 1) != 0);
  for (U32 b = 0; b < table->numBanks(); ++b) {
    table->bankIs(HashEntryType::singleWide, b, 16, 4, b % 2 ? HashFunc::hashCrc16Lower : HashFunc::hashCrc32Lower, 0,
                  0, 15);
  }
  singleWidthRequests(rng, *config, *table, 300);
  // A full resync, unless a move has taken a key placed at a requested id elsewhere (the
  // resync would ask for that id again, and another key holds it now).
  bool settled = true;
  for (const auto& [key, id] : config->configCollection())
    settled = settled && (!id.isValid() || status->status(key) == id);
  if (settled) table->handleHashUpdate();
  switch (variant % 4) {
    case 0:
      // The table goes first; the requests and results outlive it.
      table = nullptr;
      config->configDelAll();
      break;
    case 1:
      // Every request removed while the table still reacts, then the banks.
      config->configDelAll();
      table->bankDelAll();
      break;
    case 2:
      // A second table on the same requests and results, then both dropped at once.
      {
        Ptr<MultiHashTable> other = multiHashTableFactory(1, 8, 2, config, status, 0, false);
        other->bankIs(HashEntryType::singleWide, 0, 8, 2, HashFunc::hashCrc32Upper, 0, 3, 7);
        other->hasNotificationActiveIs(false);
      }
      break;
    default:
      // The table unsubscribed: later requests reach nobody.
      table->hasNotificationActiveIs(false);
      config->configIs(newKey(rng, HashEntryType::singleWide), EntryId());
      break;
  }
}

void multiWidthRound(std::mt19937& rng, unsigned variant) {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  auto configWatcher = std::make_unique<ConfigWatcher>(*config);
  Ptr<MultiEntryTypeHashTable> table = multiEntryTypeHashTableFactory(3, 16, 4, config, status, 2);
  table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 0, false);
  table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 0, 0, 15, 1, true);
  table->bankIs(HashEntryType::singleWide, 2, 8, 4, HashFunc::hashCrc32And16, 9, 0, 7, 2, variant % 2 == 0);
  table->entryIdHelperIs(entryIdHelperFactory(table));
  StatusWatcher statusWatcher(*status);
  multiWidthRequests(rng, *config, *table, 300);
  switch (variant % 4) {
    case 0:
      // The helper replaced by a new one, which the teardown then drops.
      table->entryIdHelperIs(entryIdHelperFactory(table));
      break;
    case 1:
      // Every request removed; the request subscriber leaves before the requests do.
      config->configDelAll();
      configWatcher.reset();
      break;
    case 2:
      // Only anywhere-requests left: a full resync places them all again.
      config->configDelAll();
      for (int i = 0; i < 50; ++i) config->configIs(newKey(rng, HashEntryType::singleWide), EntryId());
      table->handleHashUpdate();
      break;
    default:
      // The requests and results dropped by the client before the table.
      config = nullptr;
      status = nullptr;
      break;
  }
  table->entryIdHelperIs(nullptr);
  // A helper that a client holds beyond the table's teardown keeps only the table alive.
  if (variant % 3 == 0) {
    Ptr<EntryIdHelper> kept = entryIdHelperFactory(table);
    table = nullptr;
  }
}

// Entities made by name through the registry, as the tool's shell makes them.
void registryRound() {
  Fwk::Scope scope;
  const Fwk::Registry& registry = Fwk::Registry::instance();
  scope.objectIs("config", registry.create("TesselCentral::HashEntryConfig", {}, scope));
  scope.objectIs("status", registry.create("TesselCentral::HashEntryStatus", {}, scope));
  scope.objectIs(
      "t", registry.create("TesselCentral::MultiHashTable", {"2", "4", "1", "config", "status", "1", "false"}, scope));
  registry.call(*scope.object("t"), "bankIs", {"singleWide", "0", "4", "1", "hashCrc32Lower", "0", "0", "3"}, scope);
  registry.call(*scope.object("t"), "bankIs", {"singleWide", "1", "4", "1", "hashCrc16Lower", "0", "0", "3"}, scope);
  for (unsigned i = 1; i <= 6; ++i) {
    const std::string key = "TesselCentral::HashEntryKey{crc16=" + std::to_string(i) +
                            ", crc32=" + std::to_string(3 * i) + ", fapId=0, entryType=singleWide}";
    registry.call(*scope.object("config"), "configIs", {key, "TesselCentral::EntryId{value=0xFFFFFFFF}"}, scope);
  }
  const std::string status = registry.read(*scope.object("status"), "status");
  if (status.empty()) std::abort();
  scope.objectDel("t");
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 40;
  std::mt19937 rng(2026);
  long long baseline = 0;
  for (int round = 0; round < rounds; ++round) {
    const unsigned variant = static_cast<unsigned>(round);
    singleWidthRound(rng, variant);
    multiWidthRound(rng, variant);
    registryRound();
    const long long live = liveBlocks.load();
    if (round == 0) {
      baseline = live;
      continue;
    }
    if (live != baseline) {
      std::fprintf(stderr, "leak_test: round %d ends with %lld live blocks, the first round with %lld\n", round, live,
                   baseline);
      return 1;
    }
  }
  if (allocations.load() == 0) {
    // valgrind replaces operator new with its own, and checks the process itself.
    std::printf("leak_test: %d rounds of both tables; the allocator is replaced, so only it counts\n", rounds);
  } else {
    std::printf("leak_test: %d rounds of both tables, %lld blocks live at the end as after the first round\n", rounds,
                baseline);
  }
  return 0;
}
