// mht_soak: a long run of random requests against both tables near full, with the tables'
// consistency audit at a fixed interval. Not a benchmark of single operations (see
// mht_bench) but a check that nothing drifts over millions of requests.
//
// Each table (default geometry, as the tool's: 4 banks x 4096 buckets x 4 slots, a step
// budget of 3, the tool's default banks) is first filled to the middle of the fill band,
// then driven up and down through the band: while it rises, three requests of four are new
// keys and one removes a placed key; from the top of the band on, the other way round,
// down to the bottom of the band, and so on. A new key is requested
// anywhere, or at one of its free candidate ids now and then; a key that finds no room has
// its request removed again, as an agent would. Every request goes through the config.
//
//   mht_soak [--requests N] [--table single|multi|both] [--seed S] [--audit-every N]
//            [--fill-low F] [--fill-high F] [--by-id-percent P] [--steps N]
//            [--move-search depth-first|breadth-first]
//
// Prints, per table: requests, time, fill band seen, moves, keys without room, audits run
// and clean, and the process's peak resident size so far (getrusage). Exits 1 at the first
// audit that finds a violation.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Simulation.h"
#include "Tables.h"

namespace {

using namespace mht;
using namespace TesselCentral;
using Clock = std::chrono::steady_clock;

struct Options {
  U64 requests = 10'000'000;
  bool single = true;
  bool multi = true;
  U64 seed = 20261122;
  U64 auditEvery = 10'000;
  double fillLow = 0.85;
  double fillHigh = 0.95;
  unsigned byIdPercent = 10;
  U32 steps = 3;
  MoveSearch moveSearch = MoveSearch::depthFirst;
};

[[noreturn]] void usage(const char* why) {
  std::cerr << "mht_soak: " << why << "\n"
            << "usage: mht_soak [--requests N] [--table single|multi|both] [--seed S] [--audit-every N]\n"
            << "                [--fill-low F] [--fill-high F] [--by-id-percent P] [--steps N]\n"
            << "                [--move-search depth-first|breadth-first]\n";
  std::exit(2);
}

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") usage("a soak of random requests near full, with audits");
    if (i + 1 >= argc) usage("an option without its value");
    const std::string value = argv[++i];
    char* end = nullptr;
    if (arg == "--requests") {
      o.requests = std::strtoull(value.c_str(), &end, 10);
    } else if (arg == "--seed") {
      o.seed = std::strtoull(value.c_str(), &end, 0);
    } else if (arg == "--audit-every") {
      o.auditEvery = std::strtoull(value.c_str(), &end, 10);
    } else if (arg == "--fill-low") {
      o.fillLow = std::strtod(value.c_str(), &end);
    } else if (arg == "--fill-high") {
      o.fillHigh = std::strtod(value.c_str(), &end);
    } else if (arg == "--by-id-percent") {
      o.byIdPercent = static_cast<unsigned>(std::strtoul(value.c_str(), &end, 10));
    } else if (arg == "--steps") {
      const unsigned long steps = std::strtoul(value.c_str(), &end, 10);
      if (steps > 16) usage("--steps above 16: the search's cost grows as a power of the budget");
      o.steps = static_cast<U32>(steps);
    } else if (arg == "--move-search") {
      end = nullptr;
      if (value == searchName(MoveSearch::depthFirst))
        o.moveSearch = MoveSearch::depthFirst;
      else if (value == searchName(MoveSearch::breadthFirst))
        o.moveSearch = MoveSearch::breadthFirst;
      else
        usage("--move-search takes depth-first or breadth-first");
      continue;
    } else if (arg == "--table") {
      end = nullptr;
      if (value == "single")
        o.multi = false;
      else if (value == "multi")
        o.single = false;
      else if (value != "both")
        usage("--table takes single, multi or both");
      continue;
    } else {
      usage("an unknown option");
    }
    if (end == nullptr || *end != '\0') usage("a value that is not a number");
  }
  if (o.auditEvery == 0) usage("--audit-every must be above 0");
  if (!(0 < o.fillLow && o.fillLow < o.fillHigh && o.fillHigh < 1)) usage("the fill band must lie inside (0, 1)");
  if (o.byIdPercent > 100) usage("--by-id-percent is a percentage");
  return o;
}

double peakRssMb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

struct Figures {
  U64 requests = 0;
  U64 placements = 0;
  U64 removals = 0;
  U64 byId = 0;
  U64 noRoom = 0;
  U64 audits = 0;
  U64 auditsClean = 0;
  double minFill = 1;
  double maxFill = 0;
  double seconds = 0;
};

class Soak {
 public:
  static TableSpec shape(TableKind kind, const Options& o) {
    TableSpec table{kind, 4, 4096, 4, o.steps, false};
    table.moveSearch = o.moveSearch;
    return table;
  }

  Soak(TableKind kind, const Options& o)
      : options_(o), session_(shape(kind, o)), rng_(o.seed ^ (kind == TableKind::multi ? 0x5A : 0)) {
    for (const BankSpec& b : defaultBanks(session_.shape(), false)) session_.bankIs(b);
  }

  Figures run() {
    const Clock::time_point start = Clock::now();
    // Fill to the middle of the band first.
    const double middle = (options_.fillLow + options_.fillHigh) / 2;
    while (fill() < middle && figures_.requests < options_.requests) add();
    while (figures_.requests < options_.requests) {
      const double f = fill();
      figures_.minFill = std::min(figures_.minFill, f);
      figures_.maxFill = std::max(figures_.maxFill, f);
      // Sweep the band up and down: three requests of four go the current way.
      if (f >= options_.fillHigh) rising_ = false;
      if (f <= options_.fillLow) rising_ = true;
      const bool remove = (rng_() % 4 == 0) == rising_;
      if (remove && !placed_.empty()) {
        removeOne();
      } else {
        add();
      }
    }
    audit();  // the last stretch
    figures_.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return figures_;
  }

  U32 moves() const { return session_.table().numMoves(); }

 private:
  double fill() const { return static_cast<double>(slotsUsed_) / static_cast<double>(session_.capacity()); }

  HashEntryType width() {
    if (session_.shape().kind == TableKind::single) return HashEntryType::singleWide;
    const U32 r = rng_() % 10;
    return r < 7 ? HashEntryType::singleWide : r < 9 ? HashEntryType::doubleWide : HashEntryType::quadWide;
  }

  HashEntryKey freshKey() {
    for (;;) {
      const U64 r = rng_();
      const U16 crc16 = static_cast<U16>(r >> 32);
      const U32 crc32 = static_cast<U32>(r);
      const U64 packed = (U64{crc16} << 32) | crc32;
      if (packed == 0 || liveHashes_.count(packed) != 0) continue;
      liveHashes_.insert(packed);
      return HashEntryKey(crc16, crc32, 0, width());
    }
  }

  static U64 packedOf(const HashEntryKey& k) { return (U64{k.crc16()} << 32) | k.crc32(); }

  // One of the key's candidate ids that the table takes without a problem, or the invalid
  // id. The table's own request check decides; the soak only proposes ids of the key's
  // candidate buckets in one bank.
  EntryId freeCandidate(const HashEntryKey& key) {
    MultiHashTableBase& table = session_.table();
    const U32 bank = static_cast<U32>(rng_() % table.numBanks());
    const CandidateList places = table.candidates(key);
    if (session_.single()) {
      for (const Candidate& place : places) {
        if (place.bank == bank && table.requestProblem(key, place.id).empty()) return place.id;
      }
      return EntryId();
    }
    // A multi-width table takes some ids of a candidate bucket that no candidate carries (a
    // wide entry's ids run from the bucket's first to bucketSize / width past it): every
    // slot's id of each candidate bucket is proposed, in order.
    MultiEntryTypeHashTable& multi = *session_.multi();
    const EntryIdHelper& helper = *multi.entryIdHelper();
    for (auto place = places.begin(); place != places.end();) {
      const U32 placeBank = place->bank;
      const U32 bucket = place->bucket;
      while (place != places.end() && place->bank == placeBank && place->bucket == bucket) ++place;
      if (placeBank != bank) continue;
      for (U32 s = 0; s < multi.bank(bank)->bucketSize(); ++s) {
        const EntryId id = helper.entryIdOfPosition(packPosition(bank, bucket, s));
        if (table.requestProblem(key, id).empty()) return id;
      }
    }
    return EntryId();
  }

  void add() {
    const HashEntryKey key = freshKey();
    EntryId id;
    if (rng_() % 100 < options_.byIdPercent) id = freeCandidate(key);
    if (id.isValid()) ++figures_.byId;
    session_.config().configIs(key, id);
    counted();
    if (session_.status().status(key).isValid()) {
      ++figures_.placements;
      slotsUsed_ += session_.widthOf(key);
      placed_.push_back(key);
      return;
    }
    // No room: the agent withdraws the request.
    ++figures_.noRoom;
    session_.config().configDel(key);
    liveHashes_.erase(packedOf(key));
    counted();
  }

  void removeOne() {
    const std::size_t at = rng_() % placed_.size();
    const HashEntryKey key = placed_[at];
    placed_[at] = placed_.back();
    placed_.pop_back();
    session_.config().configDel(key);
    slotsUsed_ -= session_.widthOf(key);
    liveHashes_.erase(packedOf(key));
    ++figures_.removals;
    counted();
  }

  void counted() {
    ++figures_.requests;
    if (figures_.requests % options_.auditEvery == 0) audit();
  }

  void audit() {
    ++figures_.audits;
    const std::vector<std::string> violations = session_.table().audit();
    if (violations.empty()) {
      ++figures_.auditsClean;
      return;
    }
    std::cerr << "mht_soak: the audit after request " << figures_.requests << " found " << violations.size()
              << " violation(s):\n";
    for (std::size_t i = 0; i < violations.size() && i < 20; ++i) std::cerr << "  " << violations[i] << '\n';
    std::exit(1);
  }

  const Options& options_;
  TableSession session_;
  std::mt19937_64 rng_;
  std::vector<HashEntryKey> placed_;
  std::unordered_set<U64> liveHashes_;
  U64 slotsUsed_ = 0;
  bool rising_ = true;
  Figures figures_;
};

void report(const char* name, const Figures& f, U32 moves) {
  std::printf(
      "%-6s %llu requests (%llu placed, %llu at a requested id, %llu removed, %llu without room) in %.1f s "
      "(%.0f requests/s)\n"
      "       fill %.1f %% to %.1f %%, %u moves; audits: %llu run, %llu clean; peak RSS so far %.1f MB\n",
      name, static_cast<unsigned long long>(f.requests), static_cast<unsigned long long>(f.placements),
      static_cast<unsigned long long>(f.byId), static_cast<unsigned long long>(f.removals),
      static_cast<unsigned long long>(f.noRoom), f.seconds,
      f.seconds > 0 ? static_cast<double>(f.requests) / f.seconds : 0.0, 100 * f.minFill, 100 * f.maxFill, moves,
      static_cast<unsigned long long>(f.audits), static_cast<unsigned long long>(f.auditsClean), peakRssMb());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  std::printf(
      "mht_soak: %llu requests per table, fill band %.0f-%.0f %%, audit every %llu requests, seed %llu, "
      "maxRecursiveSteps %u%s\n",
      static_cast<unsigned long long>(options.requests), 100 * options.fillLow, 100 * options.fillHigh,
      static_cast<unsigned long long>(options.auditEvery), static_cast<unsigned long long>(options.seed), options.steps,
      options.moveSearch == MoveSearch::breadthFirst ? ", breadth-first moves" : "");
  if (options.single) {
    Soak soak(TableKind::single, options);
    const Figures f = soak.run();
    report("single", f, soak.moves());
  }
  if (options.multi) {
    Soak soak(TableKind::multi, options);
    const Figures f = soak.run();
    report("multi", f, soak.moves());
  }
  return 0;
}
