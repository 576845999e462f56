// Random configurations of both tables, held against what the tables then do.
//  - A configuration that passes serves random requests (anywhere, at free candidate ids,
//    deletions) without stopping, with a clean audit and every published id inside the
//    table; and every bucket of a bank is selected by some key.
//  - Every problem a check reports is shown real by a witness, where one is cheap: a bucket
//    that no key selects, a candidate past its bank's buckets or outside the table, a first
//    placement that stops, a run of placements and deletions that stops or breaks the audit.
// The seeds are fixed: the test is deterministic.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ConfigurationSupport.h"
#include "MultiHashTable/MultiHashTable.h"
#include "RequestAgreement.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

using Rule = ConfigurationRule;
using Consequence = ConfigurationConsequence;

constexpr HashEntryType allTypes[] = {HashEntryType::singleWide, HashEntryType::doubleWide, HashEntryType::quadWide};

// Keys with random hashes, never the empty-slot marker's.
HashEntryKey randomKey(std::mt19937& rng, HashEntryType type, U32 fapId) {
  const auto crc16 = static_cast<U16>(1 + rng() % 0xFFFF);
  return HashEntryKey(crc16, static_cast<U32>(rng()), fapId, type);
}

// Runs `what` in a child process: whether it stopped there (an assertion's abort, or a
// crash on a bank that is not there), which no trap catches.
bool stopsInChild(const std::function<void()>& what) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    std::freopen("/dev/null", "w", stderr);
    what();
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// ---------------------------------------------------------------------------------------
// Random configurations

const U32 bucketCounts[] = {1, 2, 4, 8, 16, 32, 64, 3, 6, 12};

U32 pick(std::mt19937& rng, std::initializer_list<U32> values) { return *(values.begin() + rng() % values.size()); }

// A hash function, window and mask that select the bank's buckets, or fail to in one of
// the ways a client gets them wrong.
template <class BankArgs>
void randomSelection(std::mt19937& rng, U32 numBuckets, BankArgs& b, bool wrong) {
  const U32 bits = numBuckets > 1 ? static_cast<U32>(std::bit_width(numBuckets - 1)) : 0;
  b.hashMask = numBuckets > 1 ? std::bit_ceil(numBuckets) - 1 : 0;
  b.hashBits = 0;
  b.hashOffSet = 0;
  switch (rng() % 6) {
    case 0:
      b.hashFunc = HashFunc::hashCrc32Lower;
      break;
    case 1:
      b.hashFunc = HashFunc::hashCrc16Lower;
      break;
    case 2:
      b.hashFunc = HashFunc::hashCrc32Upper;
      b.hashBits = std::max<U32>(bits, 1);
      break;
    case 3:
      b.hashFunc = HashFunc::hashCrc16Upper;
      b.hashBits = std::max<U32>(bits, 1);
      break;
    case 4:
      b.hashFunc = HashFunc::hashCrc64;
      b.hashOffSet = rng() % (64 - bits);
      break;
    default:
      b.hashFunc = HashFunc::hashCrc32And16;
      b.hashOffSet = rng() % (48 - bits);
      break;
  }
  // A bank whose numBuckets is not a power of two: the mask numBuckets - 1 as often as the
  // one past it.
  if (numBuckets > 1 && !std::has_single_bit(numBuckets) && rng() % 2 == 0) b.hashMask = numBuckets - 1;
  if (!wrong) return;
  switch (rng() % 9) {
    case 0:  // a sentinel or an unnamed value: every key bucket 0, or none
      b.hashFunc = static_cast<HashFunc>(pick(rng, {0, 3, 7, 9, 200}));
      break;
    case 1:  // a window that wraps
      b.hashFunc = rng() % 2 ? HashFunc::hashCrc32Upper : HashFunc::hashCrc16Upper;
      b.hashBits = rng() % 41;
      break;
    case 2:  // an offset that wraps, or leaves few bits
      b.hashFunc = rng() % 2 ? HashFunc::hashCrc64 : HashFunc::hashCrc32And16;
      b.hashOffSet = rng() % 81;
      break;
    case 3:  // a mask past the buckets
      b.hashMask = b.hashMask * 2 + 1;
      break;
    case 4:  // a mask short of them
      b.hashMask >>= 1;
      break;
    case 5:  // a mask with holes
      b.hashMask &= static_cast<U32>(rng());
      break;
    case 6:  // a mask wider than crc16's window
      b.hashFunc = HashFunc::hashCrc16Lower;
      b.hashMask = pick(rng, {0x1FFFF, 0xFFFFF, 0xFFFFFFFF});
      break;
    case 7:  // any mask of the bank's order
      b.hashMask = static_cast<U32>(rng() % (2 * numBuckets + 1));
      break;
    default:
      b.hashMask = 0;
      break;
  }
}

std::unique_ptr<SingleTable> randomSingleTable(std::mt19937& rng) {
  const U32 numBanks = rng() % 40 == 0 ? 0 : 1 + rng() % 5;
  const U32 numBuckets = bucketCounts[rng() % std::size(bucketCounts)];
  const U32 slots = rng() % 40 == 0 ? 0 : 1 + rng() % 4;
  auto t = std::make_unique<SingleTable>(numBanks, numBuckets, slots, rng() % 2 == 0, rng() % 4);
  // About half the tables are configured as a client should; the others get a few mistakes.
  const bool wrong = rng() % 2 == 0;
  for (U32 i = 0; i < numBanks; ++i) {
    SingleBank& b = t->banks[i];
    const bool wrongBank = wrong && rng() % 2 == 0;
    randomSelection(rng, numBuckets, b, wrongBank && rng() % 3 != 0);
    if (!wrongBank) continue;
    switch (rng() % 8) {
      case 0:
        b.present = false;
        break;
      case 1:
        b.numBuckets = pick(rng, {numBuckets * 2, numBuckets / 2, numBuckets + 1});
        break;
      case 2:
        b.bucketSize = pick(rng, {slots + 1, slots / 2, 8});
        break;
      case 3:
        b.base = rng() % 2 ? HashEntryType::doubleWide : HashEntryType::quadWide;
        break;
      default:
        break;
    }
  }
  return t;
}

std::unique_ptr<MultiTable> randomMultiTable(std::mt19937& rng) {
  const U32 numBanks = rng() % 40 == 0 ? 0 : 1 + rng() % 4;
  const U32 numBuckets = bucketCounts[rng() % std::size(bucketCounts)];
  const bool wrong = rng() % 2 == 0;
  const U32 slots = wrong && rng() % 6 == 0 ? pick(rng, {3, 8}) : pick(rng, {1, 2, 4});
  auto t = std::make_unique<MultiTable>(numBanks, numBuckets, slots, rng() % 4);
  if (wrong && rng() % 10 == 0) t->helper = rng() % 2 ? HelperOf::none : HelperOf::another;
  const bool twoBucketMode = rng() % 2 == 0;
  for (U32 i = 0; i < numBanks; ++i) {
    MultiBank& b = t->banks[i];
    b.twoBucketMode = twoBucketMode;
    b.phyBankId = rng() % 3 == 0 ? i : i + 1;  // physical bank 0 for some bank 0s
    const bool wrongBank = wrong && rng() % 2 == 0;
    randomSelection(rng, numBuckets, b, wrongBank && rng() % 3 != 0);
    if (rng() % 8 == 0) b.base = HashEntryType::doubleWide;
    if (!wrongBank) continue;
    switch (rng() % 8) {
      case 0:
        b.present = false;
        break;
      case 1:
        b.numBuckets = pick(rng, {numBuckets * 2, numBuckets / 2, numBuckets + 1});
        break;
      case 2:
        b.bucketSize = pick(rng, {slots * 2, slots / 2, 3, 8});
        break;
      case 3:
        b.phyBankId = t->banks[0].phyBankId;
        break;
      case 4:
        b.twoBucketMode = !b.twoBucketMode;
        break;
      default:
        break;
    }
  }
  return t;
}

// A configuration in one line, for a misfire's reproducer.
std::string describe(const SingleTable& t) {
  std::ostringstream os;
  os << "single " << t.numBanks << "x" << t.numBuckets << "x" << t.numBucketEntries
     << (t.bucketSpanBanks ? " bucket-major" : " bank-major") << " steps " << t.steps << ":";
  for (U32 i = 0; i < t.banks.size(); ++i) {
    const SingleBank& b = t.banks[i];
    os << " [" << i;
    if (!b.present) {
      os << " missing]";
      continue;
    }
    os << " " << b.base << " " << b.numBuckets << "x" << b.bucketSize << " " << b.hashFunc << " off " << b.hashOffSet
       << " bits " << b.hashBits << " mask " << b.hashMask << "]";
  }
  return os.str();
}
std::string describe(const MultiTable& t) {
  std::ostringstream os;
  os << "multi " << t.numBanks << "x" << t.numBuckets << "x" << t.numBucketEntries << " steps " << t.steps
     << (t.helper == HelperOf::none      ? " no helper"
         : t.helper == HelperOf::another ? " another's helper"
                                         : "")
     << ":";
  for (U32 i = 0; i < t.banks.size(); ++i) {
    const MultiBank& b = t.banks[i];
    os << " [" << i;
    if (!b.present) {
      os << " missing]";
      continue;
    }
    os << " " << b.base << " " << b.numBuckets << "x" << b.bucketSize << " " << b.hashFunc << " off " << b.hashOffSet
       << " bits " << b.hashBits << " mask " << b.hashMask << " phy " << b.phyBankId
       << (b.twoBucketMode ? " two-bucket" : "") << "]";
  }
  return os.str();
}

// A copy of a configuration, built anew: the ground for a witness that stops or fills it.
std::unique_ptr<SingleTable> rebuilt(const SingleTable& t) {
  auto copy = std::make_unique<SingleTable>(t.numBanks, t.numBuckets, t.numBucketEntries, t.bucketSpanBanks, t.steps);
  copy->banks = t.banks;
  copy->build();
  return copy;
}
std::unique_ptr<MultiTable> rebuilt(const MultiTable& t) {
  auto copy = std::make_unique<MultiTable>(t.numBanks, t.numBuckets, t.numBucketEntries, t.steps);
  copy->banks = t.banks;
  copy->helper = t.helper;
  copy->build();
  return copy;
}

// ---------------------------------------------------------------------------------------
// What a table is asked and what it does

// The table's client: requests and deletions made as a client writes them, with the table
// deaf to the write and the reaction run under an AssertionTrap, so that a stop is seen.
struct Client {
  MultiHashTableBase& table;
  HashEntryConfig& config;
  HashEntryStatus& status;
  std::vector<HashEntryKey> placed;
  int atId = 0;  // requests made at a candidate id

  std::optional<std::string> request(const HashEntryKey& k, EntryId id) {
    table.hasNotificationActiveIs(false);
    config.configIs(k, id);
    table.hasNotificationActiveIs(true);
    const std::optional<std::string> stop = stopOf([&] { table.handleHashUpdate(k); });
    if (!stop && status.status(k).isValid()) placed.push_back(k);
    return stop;
  }
  std::optional<std::string> remove(std::mt19937& rng) {
    const std::size_t i = rng() % placed.size();
    const HashEntryKey k = placed[i];
    placed[i] = placed.back();
    placed.pop_back();
    table.hasNotificationActiveIs(false);
    config.configDel(k);
    table.hasNotificationActiveIs(true);
    return stopOf([&] { table.handleHashUpdate(k); });
  }

  // What is wrong with the table after a request: the audit, and results outside the table.
  std::vector<std::string> damage() const {
    std::vector<std::string> out = table.audit();
    for (const auto& [k, id] : status.statusCollection()) {
      if (id.isValid() && id.value() >= table.tableCapacity()) {
        out.push_back("id " + std::to_string(id.value()) + " is published outside the table's " +
                      std::to_string(table.tableCapacity()) + " ids");
      }
    }
    return out;
  }
};

// What a run of requests asks, in tenths: deletions of placed keys, requests at a free
// candidate id that the request check accepts, and requests anywhere for the rest; and how
// often the table is audited.
struct Mix {
  unsigned deletions = 2;
  unsigned atId = 3;
  int auditEvery = 1;
};

// Random requests and deletions; the first stop or damage, or nothing. `makeKey` makes a
// fresh key.
template <class MakeKey>
std::optional<std::string> serve(Client& c, std::mt19937& rng, int requests, MakeKey makeKey, Mix mix = {}) {
  for (int n = 0; n < requests; ++n) {
    const unsigned action = rng() % 10;
    std::optional<std::string> stop;
    std::string what;
    if (action < mix.deletions && !c.placed.empty()) {
      what = "deletion";
      stop = c.remove(rng);
    } else if (action < mix.deletions + mix.atId) {
      // At a free candidate id that the request check accepts.
      const HashEntryKey k = makeKey();
      const CandidateList list = c.table.candidates(k);
      if (list.empty()) continue;
      const EntryId id = list.places()[rng() % list.size()].id;
      if (c.table.hashTableEntryFind(id) != nullptr || !c.table.requestCheck(k, id).passes()) continue;
      what = "request at id " + std::to_string(id.value());
      ++c.atId;
      stop = c.request(k, id);
    } else {
      what = "request anywhere";
      stop = c.request(makeKey(), EntryId());
    }
    if (stop) return what + " stopped on \"" + *stop + "\"";
    if ((n + 1) % mix.auditEvery != 0 && n + 1 != requests) continue;
    if (const std::vector<std::string> damage = c.damage(); !damage.empty()) return what + ": " + damage.front();
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------------------
// Witnesses

// The buckets of a bank that none of many random keys selects, below `served`; empty when
// every one is selected. Only for banks small enough to cover with keys.
std::vector<U32> unselectedBuckets(const Bank& bank, U32 served, std::mt19937& rng) {
  std::vector<bool> seen(served, false);
  const U32 samples = std::max<U32>(2000, 64 * served);
  for (U32 n = 0; n < samples; ++n) {
    const HashEntryKey k = randomKey(rng, HashEntryType::singleWide, 0);
    const U32 bucket = bank.bucketIdOf(k.crc16(), k.crc32(), false, 0);
    if (bucket < served) seen[bucket] = true;
  }
  std::vector<U32> missed;
  for (U32 b = 0; b < served; ++b) {
    if (!seen[b]) missed.push_back(b);
  }
  return missed;
}

// A candidate of a random key that lies at or past `served` buckets of the bank, or whose
// id is outside the table.
struct CandidateFinding {
  std::optional<Candidate> pastBank;
  std::optional<Candidate> outside;
};
CandidateFinding strayCandidates(const MultiHashTableBase& table, const std::vector<HashEntryType>& types, U32 bank,
                                 U32 served, std::mt19937& rng) {
  CandidateFinding found;
  for (int n = 0; n < 3000 && !(found.pastBank && found.outside); ++n) {
    const HashEntryKey k = randomKey(rng, types[n % types.size()], 1);
    for (const Candidate& c : table.candidates(k)) {
      if (c.bank == bank && c.bucket >= served && !found.pastBank) found.pastBank = c;
      if (c.id.value() >= table.tableCapacity() && !found.outside) found.outside = c;
    }
  }
  return found;
}

struct Tally {
  std::map<std::string, int> witnessed;  // "rule consequence": problems shown real
  std::map<std::string, int> unshown;    // problems whose witness was not found
  std::vector<std::string> misfires;     // what the check got wrong, with its seed
  int passing = 0;
  int requestsServed = 0;  // keys placed in tables that pass
  int atId = 0;            // of the requests to them, those at a candidate id

  void shown(const ConfigurationProblem& p) {
    ++witnessed[std::string(ruleName(p.rule)) + " " + consequenceTag(p.consequence)];
  }
  void misfire(const std::string& table, unsigned seed, const std::string& what) {
    misfires.push_back(table + " seed " + std::to_string(seed) + ": " + what);
  }
};

// Ends a random test: the summary, the misfires, and that the shapes drawn still reach
// every kind of problem the test means to show, and serve requests.
void conclude(Tally& tally, const std::string& kind, const std::vector<std::string>& expected) {
  std::ostringstream summary;
  for (const auto& [rule, n] : tally.witnessed) summary << "\n  shown: " << rule << " x" << n;
  for (const auto& [rule, n] : tally.unshown) summary << "\n  unshown: " << rule << " x" << n;
  std::cout << kind << ": " << tally.passing << " passing tables, " << tally.requestsServed << " keys placed, "
            << tally.atId << " requests at an id" << summary.str() << "\n";
  std::string misfires;
  for (const std::string& m : tally.misfires) misfires += "\n  " + m;
  EXPECT_TRUE(tally.misfires.empty()) << tally.misfires.size() << " misfires:" << misfires;
  for (const std::string& rule : expected) EXPECT_GT(tally.witnessed[rule], 0) << kind << ": no " << rule << " shown";
  EXPECT_GT(tally.passing, 100) << kind;
  EXPECT_GT(tally.requestsServed, 1000) << kind;
  EXPECT_GT(tally.atId, 500) << kind;
}

// How many buckets of the bank the table's ids lay out: the witnesses' bound.
U32 servedBuckets(const MultiHashTable& t, const Bank& b) { return std::min(b.numBuckets(), t.numBuckets()); }
U32 servedBuckets(const MultiEntryTypeHashTable&, const Bank& b) { return b.numBuckets(); }

Bank* bankOf(const MultiHashTable& t, U32 i) { return t.bankFind(i); }
Bank* bankOf(const MultiEntryTypeHashTable& t, U32 i) { return t.bankFind(i); }

// Whether placements that fill a fresh copy, and then placements and deletions, stop or
// damage the table.
template <class Table, class MakeKey>
std::optional<std::string> laterStop(const Table& t, std::mt19937& rng, MakeKey makeKey) {
  std::unique_ptr<Table> copy = rebuilt(t);
  Client c{*copy->table, *copy->config, *copy->status, {}};
  const U64 capacity = U64{copy->table->numBanks()} * copy->table->numBuckets() * copy->table->numBucketEntries();
  const int requests = static_cast<int>(std::min<U64>(1500, 2 * capacity + 20));
  const auto fresh = [&] { return makeKey(*copy->table); };
  if (std::optional<std::string> stop = serve(c, rng, requests, fresh, Mix{0, 0, 25})) return stop;
  return serve(c, rng, requests, fresh, Mix{4, 0, 25});
}

// Whether the first placement of a key into a fresh copy stops, in a child process.
template <class Table, class MakeKey>
bool firstPlacementStops(const Table& t, MakeKey makeKey) {
  return stopsInChild([&] {
    std::unique_ptr<Table> copy = rebuilt(t);
    copy->config->configIs(makeKey(*copy->table), EntryId());
  });
}

// Shows each problem of a misconfigured table real, or records the misfire.
template <class Table, class MakeKey>
void witnessProblems(const Table& t, const ConfigurationCheck& check, const std::vector<HashEntryType>& types,
                     const std::vector<HashEntryType>& probes, const std::string& kind, unsigned seed,
                     std::mt19937& rng, Tally& tally, MakeKey makeKey) {
  const auto& table = *t.table;
  // A multi-width table's candidates translate positions through its helper and every
  // bank below them: without them the translation stops.
  const bool candidatesSafe = !check.has(Rule::missingBank) && !check.has(Rule::missingEntryIdHelper);
  // A table without banks, buckets or slots places nothing: whatever else its check
  // reports never happens, and its noBanks or noSlots problem says so.
  if (t.numBanks == 0 || t.numBuckets == 0 || t.numBucketEntries == 0) return;
  // Whether another problem stops the first placement already.
  const bool stopsNow = check.worst()->consequence == Consequence::stopsNow;
  for (const ConfigurationProblem& p : check.problems()) {
    const std::string name = std::string(ruleName(p.rule)) + " " + consequenceTag(p.consequence) +
                             (p.bank ? " bank " + std::to_string(*p.bank) : std::string());
    const auto unshown = [&](const std::string& why) {
      ++tally.unshown[name];
      tally.misfire(kind, seed, name + " (" + p.reason + "): " + why + "; " + describe(t));
    };
    const Bank* bank = p.bank ? bankOf(table, *p.bank) : nullptr;
    // A bank of buckets without slots holds nothing: its noSlots problem says so.
    if (bank != nullptr && bank->bucketSize() == 0) continue;
    switch (p.rule) {
      case Rule::hashSelectsOneBucket:
      case Rule::maskShortOfBuckets:
      case Rule::hashWindowPastWidth: {
        const U32 served = servedBuckets(table, *bank);
        if (served > 4096) break;  // too many buckets to cover with keys
        if (unselectedBuckets(*bank, served, rng).empty()) {
          unshown("every one of the bank's " + std::to_string(served) + " buckets is selected by some key");
        } else {
          tally.shown(p);
        }
        break;
      }
      case Rule::maskPastBuckets:
      case Rule::groupPastBank: {
        if (!candidatesSafe) break;
        const CandidateFinding found = strayCandidates(table, probes, *p.bank, servedBuckets(table, *bank), rng);
        if (!found.pastBank) {
          unshown("no key's candidate lies past the bank's buckets");
        } else if (p.consequence == Consequence::publishesOutside && !found.outside) {
          unshown("no key's candidate id is outside the table");
        } else if (p.consequence != Consequence::publishesOutside && found.outside && found.outside->bank == *p.bank) {
          unshown("understated: the bank's candidate id " + std::to_string(found.outside->id.value()) +
                  " is outside the table");
        } else {
          tally.shown(p);
        }
        break;
      }
      default:
        break;
    }
    if (p.consequence == Consequence::stopsNow) {
      if (firstPlacementStops(t, makeKey)) {
        tally.shown(p);
      } else {
        unshown("the first placement does not stop");
      }
    }
    if (p.consequence == Consequence::publishesOutside && p.rule != Rule::maskPastBuckets &&
        p.rule != Rule::groupPastBank && candidatesSafe) {
      bool outside = false;
      for (int n = 0; n < 3000 && !outside; ++n) {
        for (const Candidate& c : table.candidates(randomKey(rng, probes[n % probes.size()], 1))) {
          if (c.id.value() >= table.tableCapacity()) outside = true;
        }
      }
      if (outside) {
        tally.shown(p);
      } else {
        unshown("no key's candidate id is outside the table");
      }
    }
    if (p.consequence == Consequence::stopsLater && !types.empty()) {
      // A fresh copy, filled and emptied: stopped in a child, for a crash is no assertion.
      const bool stopped = stopsInChild([&] {
        if (laterStop(t, rng, makeKey)) _exit(3);
      });
      if (!stopped) {
        unshown("placements and deletions that fill the table neither stop nor damage it");
      } else if (!stopsNow && firstPlacementStops(t, makeKey)) {
        unshown("understated: the first placement stops");
      } else {
        tally.shown(p);
      }
    }
  }
}

// The single-width table's keys: any hashes; fapId tells keys apart.
HashEntryKey singleKey(std::mt19937& rng) { return randomKey(rng, HashEntryType::singleWide, 1 + rng() % 3); }

TEST(ConfigurationRandom, SingleWidthProblemsAreRealAndPassingTablesServe) {
  Tally tally;
  for (unsigned seed = 1; seed <= 600; ++seed) {
    std::mt19937 rng(seed);
    std::unique_ptr<SingleTable> t = randomSingleTable(rng);
    t->build();
    const ConfigurationCheck check = t->check();
    EXPECT_EQ(t->table->configurationProblem().empty(), check.passes()) << "seed " << seed;
    const auto makeKey = [&](const MultiHashTable&) { return singleKey(rng); };
    if (!check.passes()) {
      witnessProblems(*t, check, {HashEntryType::singleWide}, {HashEntryType::singleWide}, "single", seed, rng, tally,
                      makeKey);
      continue;
    }
    ++tally.passing;
    // Every bucket of every bank is selected by some key.
    for (U32 i = 0; i < t->numBanks; ++i) {
      const Bank& bank = *t->table->bankFind(i);
      const std::vector<U32> missed = unselectedBuckets(bank, servedBuckets(*t->table, bank), rng);
      if (!missed.empty()) {
        tally.misfire("single", seed,
                      "the check passes, but no key selects bucket " + std::to_string(missed.front()) + " of bank " +
                          std::to_string(i) + " (" + stringValue(bank.hashFunc()) + ", hashBits " +
                          std::to_string(bank.hashBits()) + ", hashOffSet " + std::to_string(bank.hashOffSet()) +
                          ", hashMask " + std::to_string(bank.hashMask()) + ", " + std::to_string(bank.numBuckets()) +
                          " buckets); " + describe(*t));
      }
    }
    Client c{*t->table, *t->config, *t->status, {}};
    const std::optional<std::string> stop = serve(c, rng, 80, [&] { return singleKey(rng); });
    EXPECT_FALSE(stop.has_value()) << "seed " << seed << ": a table that passes its check: " << *stop;
    tally.requestsServed += static_cast<int>(c.placed.size());
    tally.atId += c.atId;
  }
  conclude(tally, "single-width",
           {"hashSelectsNoBucket stopsLater", "hashSelectsNoBucket stopsNow", "hashSelectsOneBucket losesRoom",
            "hashWindowPastWidth losesRoom", "maskPastBuckets corrupts", "maskPastBuckets publishesOutside",
            "maskShortOfBuckets losesRoom", "missingBank stopsLater", "missingBank stopsNow"});
}

TEST(ConfigurationRandom, MultiWidthProblemsAreRealAndPassingTablesServe) {
  Tally tally;
  for (unsigned seed = 1; seed <= 600; ++seed) {
    std::mt19937 rng(seed);
    std::unique_ptr<MultiTable> t = randomMultiTable(rng);
    t->build();
    const ConfigurationCheck check = t->check();
    EXPECT_EQ(t->table->configurationProblem().empty(), check.passes()) << "seed " << seed;
    // Keys of the widths that the banks present serve.
    std::vector<HashEntryType> types;
    for (const HashEntryType type : allTypes) {
      bool served = true;
      for (U32 i = 0; i < t->numBanks; ++i) {
        const MultiEntryTypeBank* b = t->table->bankFind(i);
        if (b == nullptr) continue;
        const U32* width = b->entrySizeFind(type);
        if (width == nullptr || *width == 0 || b->bucketSize() == 0 || b->bucketSize() % *width != 0) served = false;
      }
      if (served) types.push_back(type);
    }
    const auto makeKey = [&](const MultiEntryTypeHashTable&) {
      return randomKey(rng, types.empty() ? HashEntryType::quadWide : types[rng() % types.size()], 0);
    };
    if (!check.passes()) {
      witnessProblems(*t, check, types, {std::begin(allTypes), std::end(allTypes)}, "multi", seed, rng, tally, makeKey);
      continue;
    }
    ++tally.passing;
    for (U32 i = 0; i < t->numBanks; ++i) {
      const MultiEntryTypeBank& bank = *t->table->bankFind(i);
      const std::vector<U32> missed = unselectedBuckets(bank, bank.numBuckets(), rng);
      if (!missed.empty()) {
        tally.misfire("multi", seed,
                      "the check passes, but no key selects bucket " + std::to_string(missed.front()) + " of bank " +
                          std::to_string(i) + " (" + stringValue(bank.hashFunc()) + ", hashBits " +
                          std::to_string(bank.hashBits()) + ", hashOffSet " + std::to_string(bank.hashOffSet()) +
                          ", hashMask " + std::to_string(bank.hashMask()) + ", " + std::to_string(bank.numBuckets()) +
                          " buckets); " + describe(*t));
      }
    }
    if (types.empty()) continue;
    Client c{*t->table, *t->config, *t->status, {}};
    const std::optional<std::string> stop = serve(c, rng, 80, [&] { return makeKey(*t->table); });
    EXPECT_FALSE(stop.has_value()) << "seed " << seed << ": a table that passes its check: " << *stop;
    tally.requestsServed += static_cast<int>(c.placed.size());
    tally.atId += c.atId;
  }
  conclude(tally, "multi-width",
           {"bucketsDisagree publishesOutside", "groupPastBank corrupts", "groupPastBank publishesOutside",
            "hashSelectsNoBucket stopsLater", "hashSelectsNoBucket stopsNow", "hashSelectsOneBucket losesRoom",
            "hashWindowPastWidth losesRoom", "maskPastBuckets corrupts", "maskPastBuckets publishesOutside",
            "maskShortOfBuckets losesRoom", "missingBank stopsNow", "missingEntryIdHelper stopsNow",
            "unsupportedBucketSize stopsLater"});
}

}  // namespace
}  // namespace TesselCentral::test
