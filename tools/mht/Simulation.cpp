#include "Simulation.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "Optimum.h"
#include "Progress.h"

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace mht {

using namespace TesselCentral;

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Times each request at the cost of a counter read on either side: the processor's
// time-stamp counter where there is one, unfenced (the steady clock's reading, fenced, slowed
// a run's requests by 5 to 10 %), the steady clock elsewhere. Ticks become microseconds by the
// steady clock's time over the same span.
class RequestTimer {
 public:
  static std::uint64_t ticks() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return static_cast<std::uint64_t>(Clock::now().time_since_epoch().count());
#endif
  }

  double microsecondsPerTick() const {
    const std::uint64_t elapsed = ticks() - ticksAtStart_;
    const double micros = std::chrono::duration<double, std::micro>(Clock::now() - clockAtStart_).count();
    return elapsed ? micros / static_cast<double>(elapsed) : 0;
  }

 private:
  Clock::time_point clockAtStart_ = Clock::now();
  std::uint64_t ticksAtStart_ = ticks();
};

}  // namespace

double perSecond(const PhaseFigures& phase) {
  return phase.seconds > 0 ? static_cast<double>(phase.requested) / phase.seconds : 0;
}

std::vector<BankSpec> defaultBanks(const TableSpec& table, bool doubleEntryTwoBucketMode) {
  std::vector<BankSpec> banks;
  const U32 bits = table.numBuckets > 1 ? static_cast<U32>(std::bit_width(table.numBuckets - 1)) : 0;
  for (U32 i = 0; i < table.numBanks; ++i) {
    BankSpec b;
    b.baseEntryType = HashEntryType::singleWide;
    b.bankId = i;
    b.numBuckets = table.numBuckets;
    b.bucketSize = table.numBucketEntries;
    b.hashFunc = HashFunc::hashCrc32And16;
    // Windows of `bits` bits spread evenly over the 48 bits of crc16:crc32: disjoint when
    // they fit, overlapping as little as they can when they do not.
    b.hashOffSet =
        table.numBanks > 1 && bits * table.numBanks > 48 ? i * (48 - bits) / (table.numBanks - 1) : (i * bits) % 48;
    b.hashBits = bits;
    b.hashMask = table.numBuckets > 0 ? (std::bit_ceil(table.numBuckets) - 1) : 0;
    b.phyBankId = i;
    b.doubleEntryTwoBucketMode = doubleEntryTwoBucketMode;
    banks.push_back(b);
  }
  return banks;
}

namespace {

class Simulator {
 public:
  explicit Simulator(const SimulationOptions& o)
      : options_(o), session_(o.table), keys_(simulationKeys(o)), pick_(o.seed ^ 0x9E3779B97F4A7C15ull) {
    for (const BankSpec& b : o.banks) session_.bankIs(b);
    // A table that the library finds unable to serve its requests is refused before the
    // first one: its figures would measure the misconfiguration, not the placement.
    session_.requireConfiguration();
  }

  SimulationResult run() {
    const U64 capacity = session_.capacity();
    const U64 fillLimit = options_.requests.value_or(~U64{0});
    Progress progress(options_.progress, (options_.requests ? *options_.requests : capacity) + options_.churn,
                      "requests", 1023);
    sampleEvery_ = std::max<U64>(1, (options_.requests ? *options_.requests : capacity) / 500);

    // Each phase's figures are the table's statistics at its end less those at its start.
    TableStatistics before = statistics();
    Clock::time_point start = Clock::now();
    while (result_.fill.requested < fillLimit) {
      if (options_.fillTarget && fill() >= *options_.fillTarget) break;
      const bool placed = request("fill");
      ++result_.fill.requested;
      progress.update(requests_);
      if (!placed && !result_.fillAtFirstFailure) {
        result_.fillAtFirstFailure = fill();
        result_.firstFailureRequest = requests_;
        if (!options_.requests && !options_.fillTarget) break;
      }
    }
    result_.fill.seconds = seconds(start);
    phaseFigures(before, result_.fill);

    before = statistics();
    start = Clock::now();
    for (U64 i = 0; i < options_.churn && !placedKeys_.empty(); ++i) {
      const std::size_t victim = pick_() % placedKeys_.size();
      session_.config().configDel(placedKeys_[victim]);
      placedKeys_[victim] = placedKeys_.back();
      placedKeys_.pop_back();
      request("churn");
      ++result_.churn.requested;
      progress.update(requests_);
    }
    result_.churn.seconds = seconds(start);
    phaseFigures(before, result_.churn);

    finish(capacity);
    return std::move(result_);
  }

 private:
  // What the table has counted: the tool counts none of it itself.
  const TableStatistics& statistics() const noexcept { return session_.table().statistics(); }

  double fill() const {
    return session_.capacity() ? static_cast<double>(session_.slotsUsed()) / static_cast<double>(session_.capacity())
                               : 0;
  }

  // One request for a new key; failed requests are withdrawn, as an agent would.
  // Each is timed on its own: the slowest one is what an agent waits for at worst.
  bool request(const char* phase) {
    const HashEntryKey key = keys_.next();
    const U64 movesBefore = statistics().moves();
    const std::uint64_t start = RequestTimer::ticks();
    session_.config().configIs(key, EntryId());
    const std::uint64_t took = RequestTimer::ticks() - start;
    const U64 moves = statistics().moves() - movesBefore;
    ++requests_;
    const bool placed = session_.status().status(key).isValid();
    if (!result_.slowest || took > slowestTicks_) {
      slowestTicks_ = took;
      result_.slowest = SlowestRequest{requests_, phase, 0, key, placed};
    }
    if (placed) {
      placedKeys_.push_back(key);
    } else {
      session_.config().configDel(key);
    }
    if (requests_ % sampleEvery_ == 0 || moves > 0) {
      result_.timeline.push_back(Sample{requests_, fill(), static_cast<U32>(moves)});
    }
    return placed;
  }

  void phaseFigures(const TableStatistics& before, PhaseFigures& phase) const {
    const TableStatistics& after = statistics();
    phase.placed = after.placements() - before.placements();
    phase.failed = after.failures() - before.failures();
    phase.moves = after.moves() - before.moves();
  }

  void finish(U64 capacity) {
    if (result_.slowest)
      result_.slowest->microseconds = static_cast<double>(slowestTicks_) * timer_.microsecondsPerTick();
    const TableStatistics& counted = statistics();
    result_.capacity = capacity;
    result_.slotsUsed = session_.slotsUsed();
    result_.fillAtEnd = capacity ? static_cast<double>(result_.slotsUsed) / static_cast<double>(capacity) : 0;
    for (std::size_t m = 0; m < TableStatistics::movesHistogramSize; ++m) {
      if (counted.placementsByMoves()[m] != 0) result_.movesHistogram[m] = counted.placementsByMoves()[m];
    }
    result_.movesMax = counted.largestChain();
    const U64 placements = counted.placements();
    result_.movesMean =
        placements ? static_cast<double>(counted.placementMoves()) / static_cast<double>(placements) : 0;
    for (U32 i = 0; i < options_.table.numBanks; ++i) {
      const BankSpec& b = options_.banks.at(i);
      const double slots =
          static_cast<double>(b.numBuckets) * (session_.multi() ? b.bucketSize : options_.table.numBucketEntries);
      result_.bankFill.push_back(slots > 0 ? static_cast<double>(counted.slotsUsed(i)) / slots : 0);
    }
    result_.occupancy = occupancy();
    result_.insertions = session_.table().numInsertions();
    result_.deletions = session_.table().numDeletions();
    result_.movesCounted = session_.table().numMoves();
  }

  std::vector<std::vector<BucketCell>> occupancy() const {
    std::vector<std::vector<BucketCell>> cells(options_.table.numBanks);
    for (U32 i = 0; i < options_.table.numBanks; ++i) cells[i].resize(options_.banks.at(i).numBuckets);
    if (MultiEntryTypeHashTable* t = session_.multi()) {
      for (const auto& [bankId, bank] : t->bankCollection()) {
        if (bankId >= cells.size()) continue;
        for (const auto& [bucket, state] : bank->bucketCollection()) {
          if (bucket >= cells[bankId].size()) continue;
          BucketCell& c = cells[bankId][bucket];
          const BucketState words(state);
          c.slotsUsed = static_cast<U32>(std::popcount(words.occupancy() & 0xFFFF));
          for (U32 s = 0; s < 4; ++s) {
            const auto width = static_cast<U32>(words.typeAt(s));
            if (width) c.widthMask |= 1u << width;
          }
        }
      }
      return cells;
    }
    const MultiHashTable& table = *session_.single();
    for (const auto& [id, key] : table.hashTableEntryCollection()) {
      const Candidate place = table.slotOfId(id);
      const U32 bank = place.bank;
      const U32 bucket = place.bucket;
      if (bank < cells.size() && bucket < cells[bank].size()) {
        ++cells[bank][bucket].slotsUsed;
        cells[bank][bucket].widthMask |= 1u << 1;
      }
    }
    return cells;
  }

  const SimulationOptions& options_;
  TableSession session_;
  KeySource keys_;
  std::mt19937_64 pick_;
  std::vector<HashEntryKey> placedKeys_;
  U64 requests_ = 0;
  U64 sampleEvery_ = 1;
  RequestTimer timer_;
  std::uint64_t slowestTicks_ = 0;
  SimulationResult result_;
};

}  // namespace

KeySource simulationKeys(const SimulationOptions& o) {
  return KeySource(o.source, o.seed, o.table.kind == TableKind::single ? WidthMix{100, 0, 0} : o.mix, o.prefixes);
}

ConfigurationCheck simulationConfiguration(const SimulationOptions& options) {
  TableSession session(options.table);
  for (const BankSpec& b : options.banks) session.bankIs(b);
  return session.configurationCheck();
}

SimulationResult simulate(const SimulationOptions& options) {
  SimulationResult result = Simulator(options).run();
  if (options.optimum) {
    // Every key before the simulation's first failure was placed, and all of them when none failed.
    const U64 placed = result.firstFailureRequest ? *result.firstFailureRequest - 1 : result.fill.requested;
    try {
      result.optimum = offlineOptimum(options, placed);
    } catch (const OptimumUnavailable& e) {
      result.optimumNote = e.what();
    }
  }
  return result;
}

}  // namespace mht
