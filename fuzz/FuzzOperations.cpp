// Fuzzes the tables through the client's door only: the input chooses a geometry and a
// sequence of requests that a well-behaved agent may write into the HashEntryConfig, and
// after every request the table's audit() must find nothing. A library assertion, an audit
// violation or a sanitizer report is a finding; the harness then prints the requests so far
// as an mht replay script.
//
// The harness asks the tables themselves which requests are safe: every write goes
// through requestProblem (removalProblem for a deletion) first and is skipped when the table
// names a problem, a full resync is asked for only when resyncProblem finds none, and a
// reconcile may come at any time. What it still leaves out by construction:
//  - keys with equal (crc16, crc32), and the all-zero key, which the tables treat as one key
//    and as the empty-slot marker;
//  - geometries that no table is meant to have: hash functions outside the safe set
//    (hashLsb selects no bucket), masks at or past the bucket count, banks in
//    doubleEntryTwoBucketMode with fewer than four buckets.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "FuzzInput.h"
#include "MultiHashTable.h"
#include "fwk/Assert.h"

namespace {

using namespace TesselCentral;
using mht::fuzz::FuzzInput;

constexpr std::size_t maxRequests = 400;
// Above this step budget a failed search for room in a full table costs thousands of moves
// tried, so an input gets fewer requests.
constexpr U32 deepSteps = 5;
constexpr std::size_t maxDeepRequests = 100;
// A full resync places every request again, each with a search whose cost grows as a power
// of the step budget: a few per input keep an input within the fuzzer's time limit.
constexpr int maxResyncs = 3;

// Step budgets beyond the default of 3 are where a chain of moves can come back to the
// entry it started from; 8 is as deep as a switch's own search for room goes. The
// multi-width search tries every victim of every bank at every level, so its cost grows so
// fast with the budget that beyond 6 one input can outlast the fuzzer's time limit.
constexpr U32 singleWidthMaxSteps = 8;
constexpr U32 multiWidthMaxSteps = 6;

const std::vector<HashFunc> safeHashFuncs = {HashFunc::hashCrc32Upper, HashFunc::hashCrc32Lower,
                                             HashFunc::hashCrc16Lower, HashFunc::hashCrc16Upper,
                                             HashFunc::hashCrc64,      HashFunc::hashCrc32And16};

struct BankGeometry {
  HashEntryType base = HashEntryType::singleWide;
  U32 numBuckets = 1;
  U32 bucketSize = 1;
  HashFunc hashFunc = HashFunc::hashCrc32Lower;
  U32 hashOffSet = 0;
  U32 hashBits = 0;
  U32 hashMask = 0;
  U32 phyBankId = 0;
  bool twoBucketMode = false;
};

struct Geometry {
  bool multi = false;
  U32 numBanks = 1;
  U32 numBuckets = 1;
  U32 numBucketEntries = 1;
  U32 steps = 0;
  bool bucketSpanBanks = false;
  bool breadthFirst = false;
  std::vector<BankGeometry> banks;
};

U32 log2Of(U32 powerOfTwo) {
  U32 bits = 0;
  while ((U32{1} << bits) < powerOfTwo) ++bits;
  return bits;
}

Geometry readGeometry(FuzzInput& in) {
  Geometry g;
  g.multi = in.flag();
  g.numBanks = 1 + in.below(4);
  g.numBuckets = U32{1} << in.below(7);
  g.numBucketEntries = g.multi ? (U32{1} << in.below(3)) : 1 + in.below(4);
  g.steps = in.below((g.multi ? multiWidthMaxSteps : singleWidthMaxSteps) + 1);
  // A table with an odd step budget makes room breadth-first, so that both searches meet
  // every kind of request and table.
  g.breadthFirst = g.steps % 2 == 1;
  g.bucketSpanBanks = !g.multi && in.flag();
  const U32 rotation = in.below(g.numBanks);
  for (U32 i = 0; i < g.numBanks; ++i) {
    BankGeometry b;
    if (g.multi) {
      const U32 kind = in.byte();
      b.base = kind < 224   ? HashEntryType::singleWide
               : kind < 248 ? HashEntryType::doubleWide
                            : HashEntryType::quadWide;
      b.numBuckets = U32{1} << in.below(7);
    } else {
      b.numBuckets = g.numBuckets;
    }
    b.bucketSize = g.numBucketEntries;
    b.hashFunc = in.pick(safeHashFuncs);
    b.hashOffSet = in.below(64);
    b.hashBits = in.below(33);
    b.twoBucketMode = g.multi && b.numBuckets >= 4 && in.flag();
    const U32 maxBits = log2Of(b.numBuckets);
    const U32 minBits = b.twoBucketMode ? 2 : 0;
    const U32 maskBits = minBits + in.below(maxBits - minBits + 1);
    b.hashMask = (U32{1} << maskBits) - 1;
    b.phyBankId = (i + rotation) % g.numBanks;
    g.banks.push_back(b);
  }
  return g;
}

std::string keyFields(const HashEntryKey& k) {
  std::ostringstream os;
  os << k.crc16() << ' ' << k.crc32() << ' ' << k.fapId() << ' ' << stringValue(k.entryType());
  return os.str();
}

// What the tables were asked over the whole run (requests, deletions, resyncs and
// reconciles carried out, and those the tables turned away), reported when the process
// ends, so that a long run can say how much it covered.
struct RunCounts {
  std::uint64_t made = 0;
  std::uint64_t refused = 0;
  ~RunCounts() {
    if (made + refused == 0) return;
    std::fprintf(stderr, "operations: %llu requests made, %llu refused by the tables' checks\n",
                 static_cast<unsigned long long>(made), static_cast<unsigned long long>(refused));
  }
};
RunCounts runCounts;

// The requests so far, as an mht replay script; printed with every finding.
std::vector<std::string>* activeLog = nullptr;

void printLog() {
  if (activeLog == nullptr) return;
  std::cerr << "---- requests so far, as an mht replay script ----\n";
  for (const std::string& line : *activeLog) std::cerr << line << '\n';
  std::cerr << "----" << std::endl;
}

[[noreturn]] void onAssertion(const Fwk::AssertionReport& report) {
  std::cerr << Fwk::formatAssertion(report) << std::endl;
  printLog();
  std::abort();
}

class Driver {
 public:
  explicit Driver(const Geometry& g) : g_(g), config_(hashEntryConfigFactory()), status_(hashEntryStatusFactory()) {
    activeLog = &log_;
    std::ostringstream table;
    if (g.multi) {
      multi_ = multiEntryTypeHashTableFactory(g.numBanks, g.numBuckets, g.numBucketEntries, config_, status_, g.steps);
      multi_->entryIdHelperIs(entryIdHelperFactory(multi_));
      base_ = multi_.ptr();
      table << "table multi " << g.numBanks << ' ' << g.numBuckets << ' ' << g.numBucketEntries << ' ' << g.steps;
    } else {
      single_ = multiHashTableFactory(g.numBanks, g.numBuckets, g.numBucketEntries, config_, status_, g.steps,
                                      g.bucketSpanBanks);
      base_ = single_.ptr();
      table << "table single " << g.numBanks << ' ' << g.numBuckets << ' ' << g.numBucketEntries << ' ' << g.steps
            << ' ' << (g.bucketSpanBanks ? "true" : "false");
    }
    log_.push_back(table.str());
    for (U32 i = 0; i < g.numBanks; ++i) {
      const BankGeometry& b = g.banks[i];
      std::ostringstream line;
      line << "bank " << stringValue(b.base) << ' ' << i << ' ' << b.numBuckets << ' ' << b.bucketSize << ' '
           << stringValue(b.hashFunc) << ' ' << b.hashOffSet << ' ' << b.hashBits << ' ' << b.hashMask;
      if (multi_) {
        multi_->bankIs(b.base, i, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits, b.hashMask,
                       b.phyBankId, b.twoBucketMode);
        line << ' ' << b.phyBankId << ' ' << (b.twoBucketMode ? "true" : "false");
      } else {
        single_->bankIs(b.base, i, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits, b.hashMask);
      }
      log_.push_back(line.str());
    }
    if (g.breadthFirst) {
      base_->moveSearchIs(MoveSearch::breadthFirst);
      log_.push_back("moveSearch breadthFirst");
    }
    chooseKeyTypes();
  }

  ~Driver() {
    if (multi_) multi_->entryIdHelperIs(nullptr);
    activeLog = nullptr;
  }

  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  const std::vector<std::string>& script() const noexcept { return log_; }

  void run(FuzzInput& in) {
    const std::size_t requests = g_.steps > deepSteps ? maxDeepRequests : maxRequests;
    for (std::size_t n = 0; n < requests && !in.atEnd(); ++n) {
      switch (in.byte() % 16) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
          placeNew(in, false);
          break;
        case 6:
        case 7:
          placeNew(in, true);
          break;
        case 8:
        case 9:
        case 10:
          removeOne(in);
          break;
        case 11:
          addAgain(in);
          break;
        case 12:
          requestAgain(in);
          break;
        case 13:
          requestAtIdAgain(in);
          break;
        case 14:
          if (in.flag())
            resync();
          else
            reconcile();
          break;
        default:
          if (in.chance(10))
            removeAll();
          else
            placeNew(in, false);
          break;
      }
    }
  }

 private:
  void chooseKeyTypes() {
    if (!multi_) {
      keyTypes_ = {HashEntryType::singleWide};
      return;
    }
    // Narrow keys more often than wide ones, as a forwarding table holds them. A width that
    // some bank cannot hold is asked for too: the request check turns it away.
    keyTypes_ = {HashEntryType::singleWide, HashEntryType::singleWide, HashEntryType::singleWide,
                 HashEntryType::doubleWide, HashEntryType::doubleWide, HashEntryType::quadWide};
  }

  HashEntryKey freshKey(FuzzInput& in) {
    const U16 crc16 = in.u16();
    U32 crc32 = in.u32();
    const U32 fapId = in.byte();
    const HashEntryType type = in.pick(keyTypes_);
    auto packed = [&] { return (U64{crc16} << 32) | crc32; };
    while (packed() == 0 || usedHashes_.count(packed()) != 0) crc32 = crc32 * 2654435761u + 1;
    usedHashes_.insert(packed());
    return HashEntryKey(crc16, crc32, fapId, type);
  }

  // An id for the key chosen by the input: mostly one of its candidate slots (free or not),
  // sometimes one just past a candidate bucket, sometimes any id of the table.
  EntryId candidateId(const HashEntryKey& key, FuzzInput& in) {
    std::vector<EntryId> ids;
    const CandidateList places = base_->candidates(key);
    if (single_) {
      for (const Candidate& place : places) ids.push_back(place.id);
    } else {
      // Every id of each candidate bucket, unaligned ones and the one past its end included.
      EntryIdHelper& helper = *multi_->entryIdHelper();
      for (auto place = places.begin(); place != places.end();) {
        const U32 bank = place->bank;
        const U32 bucket = place->bucket;
        const U32 first = helper.entryIdOfPosition(packPosition(bank, bucket, 0)).value();
        for (U32 s = 0; s <= multi_->bank(bank)->bucketSize(); ++s) ids.push_back(EntryId(first + s));
        while (place != places.end() && place->bank == bank && place->bucket == bucket) ++place;
      }
    }
    if (ids.empty() || in.chance(8)) return EntryId(in.below(base_->tableCapacity() + 1));
    return in.pick(ids);
  }

  // Writes the request when the table sees no problem in it; false when it was skipped.
  bool request(const HashEntryKey& key, EntryId id) {
    if (!base_->requestProblem(key, id).empty()) {
      ++runCounts.refused;
      return false;
    }
    ++runCounts.made;
    std::ostringstream line;
    line << "set " << keyFields(key) << ' ' << (id.isValid() ? std::to_string(id.value()) : "any");
    log_.push_back(line.str());
    config_->configIs(key, id);
    check();
    return true;
  }

  void placeNew(FuzzInput& in, bool atId) {
    const HashEntryKey key = freshKey(in);
    const EntryId id = atId ? candidateId(key, in) : EntryId();
    if (request(key, id)) requested_.push_back(key);
  }

  void removeAt(std::size_t index) {
    const HashEntryKey key = requested_[index];
    if (!base_->removalProblem(key).empty()) {
      ++runCounts.refused;
      return;
    }
    ++runCounts.made;
    requested_[index] = requested_.back();
    requested_.pop_back();
    deleted_.push_back(key);
    log_.push_back("del " + keyFields(key));
    config_->configDel(key);
    check();
  }

  void removeOne(FuzzInput& in) {
    if (requested_.empty()) return;
    removeAt(in.below(static_cast<U32>(requested_.size())));
  }

  void removeAll() {
    for (std::size_t i = requested_.size(); i > 0; --i) removeAt(i - 1);
  }

  void addAgain(FuzzInput& in) {
    if (deleted_.empty()) return;
    const std::size_t index = in.below(static_cast<U32>(deleted_.size()));
    const HashEntryKey key = deleted_[index];
    const EntryId id = in.flag() ? candidateId(key, in) : EntryId();
    if (!request(key, id)) return;
    deleted_[index] = deleted_.back();
    deleted_.pop_back();
    requested_.push_back(key);
  }

  // The same request again (which publishes nothing), or the key asked for anywhere.
  void requestAgain(FuzzInput& in) {
    if (requested_.empty()) return;
    const HashEntryKey key = requested_[in.below(static_cast<U32>(requested_.size()))];
    request(key, in.flag() ? config_->config(key) : EntryId());
  }

  void requestAtIdAgain(FuzzInput& in) {
    if (requested_.empty()) return;
    const HashEntryKey key = requested_[in.below(static_cast<U32>(requested_.size()))];
    request(key, candidateId(key, in));
  }

  void resync() {
    if (resyncs_ == maxResyncs) return;
    if (!base_->resyncProblem().empty()) {
      ++runCounts.refused;
      return;
    }
    ++runCounts.made;
    ++resyncs_;
    log_.push_back("resync");
    base_->handleHashUpdate();
    check();
  }

  void reconcile() {
    if (resyncs_ == maxResyncs) return;
    ++runCounts.made;
    ++resyncs_;
    log_.push_back("reconcile");
    base_->reconcile();
    check();
  }

  void check() {
    std::vector<std::string> violations = base_->audit();
    for (const HashEntryKey& key : requested_) {
      if (!status_->statusHas(key)) violations.push_back("harness: requested key " + keyFields(key) + " has no status");
    }
    if (violations.empty()) return;
    printLog();
    std::cerr << "audit after the last request:\n";
    for (const std::string& v : violations) std::cerr << "  " << v << '\n';
    std::cerr.flush();
    std::abort();
  }

  Geometry g_;
  Ptr<HashEntryConfig> config_;
  Ptr<HashEntryStatus> status_;
  Ptr<MultiHashTable> single_;
  Ptr<MultiEntryTypeHashTable> multi_;
  MultiHashTableBase* base_ = nullptr;
  std::vector<HashEntryType> keyTypes_;
  std::unordered_set<U64> usedHashes_;
  std::vector<HashEntryKey> requested_;
  std::vector<HashEntryKey> deleted_;
  std::vector<std::string> log_;
  int resyncs_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fwk::assertionHandlerIs(&onAssertion);
  FuzzInput in(data, size);
  const Geometry geometry = readGeometry(in);
  Driver driver(geometry);
  driver.run(in);
  // MHT_FUZZ_SCRIPT=1 prints every input's requests as an mht replay script.
  if (std::getenv("MHT_FUZZ_SCRIPT") != nullptr) {
    for (const std::string& line : driver.script()) std::cout << line << '\n';
    std::cout.flush();
  }
  return 0;
}
