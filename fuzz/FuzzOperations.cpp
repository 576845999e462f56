// Fuzzes the tables through the client's door only: the input chooses a geometry and a
// sequence of requests that an agent may write into the HashEntryConfig, and after every
// request the table's audit must find no corruption, and exactly the hazards that the
// request check said the write would leave. A library assertion, an audit violation, a
// hazard that no verdict named (or a named one that is not there) or a sanitizer report is
// a finding; the harness then prints the requests so far as an mht replay script.
//
// The harness asks the tables themselves what is safe. A geometry that the configuration
// check finds the table unable to serve must have every request turned away by the request
// check (one that only costs room is run like any other). Every write goes through the
// request check (the removal check for a deletion) first: a fatal one is skipped, and so is
// a hazardous one unless the verdict names what it leaves behind (a leaked id, a record or
// a result without a request), which is made and then looked for in the audit. A full
// resync is asked for only when the resync check passes; a reconcile may come at any time
// and must leave no hazard behind. Keys with equal hashes and the all-zero key are asked
// for too: the check names their hazard and they are skipped.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Assert.h"

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

const std::vector<HashFunc> selectingHashFuncs = {HashFunc::hashCrc32Upper, HashFunc::hashCrc32Lower,
                                                  HashFunc::hashCrc16Lower, HashFunc::hashCrc16Upper,
                                                  HashFunc::hashCrc64,      HashFunc::hashCrc32And16};
// The functions that select no bucket, or bucket 0 only, and a value past the enumeration.
const std::vector<HashFunc> degenerateHashFuncs = {HashFunc::hashInvalid, HashFunc::hashLsb, HashFunc::hashCount,
                                                   static_cast<HashFunc>(9)};

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
      // Now and then a bank built for wider entries, or for another bucket count.
      if (in.chance(32)) b.base = HashEntryType::doubleWide;
      if (in.chance(32)) b.numBuckets = U32{1} << in.below(7);
    }
    b.bucketSize = in.chance(32) ? U32{1} << in.below(4) : g.numBucketEntries;
    b.hashFunc = in.chance(16) ? in.pick(degenerateHashFuncs) : in.pick(selectingHashFuncs);
    b.hashOffSet = in.chance(16) ? in.below(128) : in.below(64);
    b.hashBits = in.below(41);
    b.twoBucketMode = g.multi && in.flag();
    const U32 maxBits = log2Of(b.numBuckets);
    const U32 maskBits = in.below(maxBits + 2);  // one bit past the bank now and then
    b.hashMask = (U32{1} << maskBits) - 1;
    b.phyBankId = in.chance(32) ? 0 : (i + rotation) % g.numBanks;
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
    if (!servable()) return;
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

  // A table that the configuration check finds unable to serve (beyond costing room) has
  // every request turned away by the request check; a finding if one passes.
  bool servable() {
    const ConfigurationCheck configuration = base_->configurationCheck();
    const ConfigurationProblem* worst = configuration.worst();
    if (worst == nullptr || worst->consequence == ConfigurationConsequence::losesRoom) return true;
    const HashEntryKey probe(1, 2, 0, keyTypes_.front());
    const RequestCheck verdict = base_->requestCheck(probe, EntryId());
    if (verdict.fatal() || verdict.hazard()) return false;
    printLog();
    std::cerr << "the configuration check found: " << configuration.text() << "\nbut the request check says "
              << verdict.text() << std::endl;
    std::abort();
  }

  // Mostly new hashes; now and then the hashes of an earlier key (which the tables treat as
  // that key) or the all-zero key (the empty-slot marker's hashes).
  HashEntryKey freshKey(FuzzInput& in) {
    const U32 fapId = in.byte();
    const HashEntryType type = in.pick(keyTypes_);
    if (!usedHashes_.empty() && in.chance(32)) {
      const U64 packed = usedHashes_[in.below(static_cast<U32>(usedHashes_.size()))];
      return HashEntryKey(static_cast<U16>(packed >> 32), static_cast<U32>(packed), fapId, type);
    }
    if (in.chance(64)) return HashEntryKey(0, 0, fapId, type);
    const U16 crc16 = in.u16();
    const U32 crc32 = in.u32();
    usedHashes_.push_back((U64{crc16} << 32) | crc32);
    return HashEntryKey(crc16, crc32, fapId, type);
  }

  // Whether a verdict lets the harness make the write: not a fatal one, and a hazardous one
  // only when the verdict names what it leaves for the audit to find.
  static bool makes(const RequestCheck& verdict) {
    if (verdict.fatal()) return false;
    return !verdict.hazard() || verdict.leaves().has_value();
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
    const RequestCheck verdict = base_->requestCheck(key, id);
    if (!makes(verdict)) {
      ++runCounts.refused;
      return false;
    }
    ++runCounts.made;
    std::ostringstream line;
    line << "set " << keyFields(key) << ' ' << (id.isValid() ? std::to_string(id.value()) : "any");
    log_.push_back(line.str());
    const Hazards before = hazards();
    config_->configIs(key, id);
    check(verdict, before);
    return true;
  }

  void placeNew(FuzzInput& in, bool atId) {
    const HashEntryKey key = freshKey(in);
    const EntryId id = atId ? candidateId(key, in) : EntryId();
    if (request(key, id)) noteRequested(key);
  }

  // A key that shares an earlier key's hashes may be that key itself: listed once.
  void noteRequested(const HashEntryKey& key) {
    if (std::find(requested_.begin(), requested_.end(), key) == requested_.end()) requested_.push_back(key);
    deleted_.erase(std::remove(deleted_.begin(), deleted_.end(), key), deleted_.end());
  }

  void removeAt(std::size_t index) {
    const HashEntryKey key = requested_[index];
    const RequestCheck verdict = base_->removalCheck(key);
    if (!makes(verdict)) {
      ++runCounts.refused;
      return;
    }
    const Hazards before = hazards();
    ++runCounts.made;
    requested_[index] = requested_.back();
    requested_.pop_back();
    if (std::find(deleted_.begin(), deleted_.end(), key) == deleted_.end()) deleted_.push_back(key);
    log_.push_back("del " + keyFields(key));
    config_->configDel(key);
    check(verdict, before);
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
    noteRequested(key);
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
    const RequestCheck verdict = base_->resyncCheck();
    if (!verdict.passes()) {
      ++runCounts.refused;
      return;
    }
    ++runCounts.made;
    ++resyncs_;
    log_.push_back("resync");
    const Hazards before = hazards();
    base_->handleHashUpdate();
    check(verdict, before);
  }

  void reconcile() {
    if (resyncs_ == maxResyncs) return;
    ++runCounts.made;
    ++resyncs_;
    log_.push_back("reconcile");
    base_->reconcile();
    // Reconcile repairs every hazard that the table's rules leave behind: none may be left.
    check(RequestCheck::accepted(), Hazards{});
  }

  // The audit's hazards: ids recorded where no result places them, results without a request.
  struct Hazards {
    std::size_t unplaced = 0;
    std::size_t results = 0;
  };
  Hazards hazards() const {
    const AuditReport report = base_->auditReport();
    return Hazards{report.count(AuditKind::leakedId) + report.count(AuditKind::recordWithoutRequest),
                   report.count(AuditKind::resultWithoutRequest)};
  }

  // No corruption; a write that the check passed left no hazard, and one that it called
  // hazardous left the one it named.
  void check(const RequestCheck& verdict, const Hazards& before) {
    const AuditReport report = base_->auditReport();
    std::vector<std::string> violations = report.texts(AuditKind::corruption);
    const Hazards after = hazards();
    if (verdict.passes() && (after.unplaced > before.unplaced || after.results > before.results)) {
      std::ostringstream found;
      found << report;
      violations.push_back("harness: the check said \"" + verdict.text() + "\", but the write left a hazard:\n" +
                           found.str());
    }
    if (!foundAfterWrite(verdict, report)) {
      violations.push_back("harness: the check said \"" + verdict.text() + "\", but the audit does not find it");
    }
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
  std::vector<U64> usedHashes_;
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
