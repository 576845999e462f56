// MultiHashTableBase: the abstract table. Its geometry, the requests and results, the
// record of which key occupies each EntryId, the counters, and the config reaction that
// turns every changed request into a placement, a removal or nothing.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "MultiHashTable/AuditReport.h"
#include "MultiHashTable/Candidates.h"
#include "MultiHashTable/ConfigurationCheck.h"
#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/RequestCheck.h"
#include "MultiHashTable/RequestsAndResults.h"
#include "MultiHashTable/Restore.h"
#include "MultiHashTable/TableStatistics.h"
#include "MultiHashTable/fwk/IndexedMap.h"

namespace TesselCentral {

// The most ids (or positions) that a table records in an array; the ids of a larger
// table above it go to a hash map. A chip's table is filled, so an array as large as the
// table costs less than a hash map of the same ids once the table is about three quarters
// full, and it is allocated by the first placement, not by the table's creation.
inline constexpr U32 maxDenseTableSlots = U32{1} << 22;

// The most slots that one single-width breadth-first search for room examines (moveSearch
// breadthFirst): with 4 banks of 4-slot buckets, the key's 16 candidates, the 192 slots one
// move away and most of those two moves away. The single-width search hands nothing over,
// so its placement's work stays bounded whatever the step budget. The multi-width search
// holds its chain search's nodes to this many as well.
inline constexpr U32 maxMoveSearchSlots = 2048;
// The most runs that one multi-width search for the fewest moves examines (moveSearch
// breadthFirst), the chain search and every move count of the plans after it together; a
// run is counted each time the search reads it as a place that an entry standing in the
// table could move to (the key's own candidates, read once per move count, are not). On 4
// banks x 4096 buckets x 4 slots near full a run costs about 25 ns on the development
// machine, so a search at its bound takes about 26 us. A search that finds no plan within
// it hands the key to the depth-first search.
inline constexpr U32 maxMoveSearchRuns = 1024;
// The most runs that the depth-first search examines for a key that the multi-width
// breadth-first search handed over, counted as that search counts them (one per run it
// looks at evicting). Its runs cost more, 110-140 ns each with its victims' free-space
// walks and bucket locks: 0.45-0.6 ms at the bound. At a step budget of 3 its whole tree
// fits (the most a placement examined there was 1,192 runs, search and hand-over
// together); at 5 a smaller bound fills less (2,048: 99.40 % at the first failure against
// 99.65 %). The depth-first search's own placements (moveSearch depthFirst) are never
// bounded: their work grows as a power of the step budget.
inline constexpr U32 maxHandedOverRuns = 4096;
// The most runs that one multi-width breadth-first placement examines, the search for the
// fewest moves and the depth-first search after it together, whatever the step budget:
// 5,120 runs, which the placements that reached it at budgets 5 and 6 on 4 x 4096 x 4 took
// 0.55 ms on average and 0.73 ms at most on the development machine (shared with a build).
inline constexpr U32 maxBreadthFirstPlacementRuns = maxMoveSearchRuns + maxHandedOverRuns;

// Table base and the config reaction

class MultiHashTableBase : public Fwk::Entity, private Fwk::Reactor {
 public:
  // Ids below the table's capacity index an array; the rare id beyond it (a bank whose
  // mask reaches past the table's buckets) lives in a hash map beside it.
  using KeyByEntryId = Fwk::IndexedMap<EntryId, HashEntryKey>;

  // The origBankId of every placement that a request starts: no bank to avoid.
  static constexpr U32 noBankToAvoid = 128;

  static Ptr<MultiHashTableBase> MultiHashTableBaseIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                      Ptr<const HashEntryConfig> hashEntryConfig,
                                                      Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);

  U32 numBanks() const noexcept { return numBanks_; }
  U32 numBuckets() const noexcept { return numBuckets_; }
  U32 numBucketEntries() const noexcept { return numBucketEntries_; }
  const Ptr<const HashEntryConfig>& hashEntryConfig() const noexcept { return hashEntryConfig_; }
  const Ptr<HashEntryStatus>& hashEntryStatus() const noexcept { return hashEntryStatus_; }
  U32 maxRecursiveSteps() const noexcept { return maxRecursiveSteps_; }
  SlotId fapId() const noexcept { return fapId_; }
  void fapIdIs(SlotId fapId) noexcept { fapId_ = fapId; }

  // How the table searches for room; takes effect from the next placement.
  MoveSearch moveSearch() const noexcept { return moveSearch_; }
  virtual void moveSearchIs(MoveSearch search) { moveSearch_ = search; }

  U32 numInsertions() const noexcept { return numInsertions_; }
  U32 numDeletions() const noexcept { return numDeletions_; }
  U32 numMoves() const noexcept { return numMoves_; }
  U32 numInsertionsInc(U32 n) noexcept { return numInsertions_ += n; }
  U32 numDeletionsInc(U32 n) noexcept { return numDeletions_ += n; }
  U32 numMovesInc(U32 n) noexcept { return numMoves_ += n; }

  // What the table has done since it was made or since the last statisticsReset(), and the
  // slots its records cover in each bank (docs/statistics.md).
  const TableStatistics& statistics() const noexcept { return statistics_; }
  // Every count of the statistics back to 0; the slots used stay as the table stands.
  void statisticsReset() noexcept { statistics_.reset(); }
  // A checked write that refused a request for an id counts it here: the table's request
  // check gave the verdict, and the table never saw the request.
  void requestedIdRefused() const noexcept { statistics_.failed(PlacementFailure::requestedIdRefused); }

  // Which key occupies each used EntryId. Changing it publishes nothing.
  HashEntryKey hashTableEntry(EntryId eId) const noexcept {
    const HashEntryKey* key = hashTableEntry_.find(eId);
    return key ? *key : HashEntryKey();
  }
  const HashEntryKey* hashTableEntryFind(EntryId eId) const noexcept { return hashTableEntry_.find(eId); }
  // The key recorded at eId when it is another key than `key` (the empty marker records none).
  const HashEntryKey* otherKeyRecordedAt(EntryId eId, const HashEntryKey& key) const noexcept {
    const HashEntryKey* held = hashTableEntry_.find(eId);
    return held != nullptr && !isEmptyMarker(*held) && !(*held == key) ? held : nullptr;
  }
  // The key recorded at eId that forbids a request for `key` to take eId: another key whose
  // crc16 and crc32 differ from the key's (a key with the same hashes counts as this one).
  const HashEntryKey* claimBlockedBy(EntryId eId, const HashEntryKey& key) const noexcept {
    const HashEntryKey* held = otherKeyRecordedAt(eId, key);
    return held != nullptr && !sameHashes(*held, key) ? held : nullptr;
  }
  bool hashTableEntryHas(EntryId eId) const noexcept { return hashTableEntry_.has(eId); }
  void hashTableEntryIs(EntryId eId, const HashEntryKey& key) { hashTableEntry_.is(eId, key); }
  // hashTableEntryIs, telling whether eId held no record before.
  bool hashTableEntryAdded(EntryId eId, const HashEntryKey& key) {
    const auto [held, added] = hashTableEntry_.findOrInsert(eId);
    *held = key;
    return added;
  }
  // Frees the id; false when no key held it.
  bool hashTableEntryDel(EntryId eId) { return hashTableEntry_.erase(eId); }
  void hashTableEntryDelAll() { hashTableEntry_.delAll(); }
  const KeyByEntryId& hashTableEntryCollection() const noexcept { return hashTableEntry_; }

  // numBanks * numBuckets * numBucketEntries, wrapping in 32 bits.
  U32 tableCapacity() const noexcept { return numBanks_ * numBuckets_ * numBucketEntries_; }

  // Subscribes to (true) or unsubscribes from (false) the requests.
  virtual void hasNotificationActiveIs(bool active);

  // The subscriber callback: reacts to changes of the config collection (attribute 130)
  // unless the table is being destroyed. An exception escaping the reaction terminates.
  void hashEntryConfigDispatch(const Fwk::Notification& n) noexcept;
  // The reaction to one changed request.
  void handleHashUpdate(const HashEntryKey& key);
  // Whether the table is reacting to a request now: a request written from inside one of
  // its status notifications is reacted to in the middle of another key's placement.
  bool reacting() const noexcept { return reactionDepth_ != 0; }
  // Full resync: reacts to every current request; never removes anything.
  void handleHashUpdate();

  // Placement, implemented by the derived tables; the base's versions assert.
  virtual U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep);
  virtual bool checkEntryIdValidity(const HashEntryKey& key, EntryId eId);
  virtual void insertEntryWithId(const HashEntryKey& key, EntryId eId);
  virtual void removeEntry(const HashEntryKey& key);
  virtual void checkSanity();

  // The places the key may take, in the order in which its placement tries them; the
  // derived tables know them.
  virtual CandidateList candidates(const HashEntryKey& key) const;

  // Checks every invariant that the table keeps between operations; one line of text per
  // violation, none when the table is consistent. Reads only.
  virtual std::vector<std::string> audit() const;
  // The audit's corruption, and apart from it the hazards that the table's own rules leave
  // behind: ids recorded for keys that no result places there, results without a request.
  // Reads only; costs a walk of the records and the results.
  AuditReport auditReport() const;

  // Every problem of the table's shape, banks and links that keeps it from serving its
  // requests: what is wrong, with which bank, and what the table would do. Reads only;
  // builds text only for the problems it finds, so every request check can afford it.
  virtual ConfigurationCheck configurationCheck() const;
  // The configuration check's problems, one per line; empty when the table can serve.
  std::string configurationProblem() const { return configurationCheck().text(); }

  // What configIs(key, id) on the table's requests would do, told before the write:
  // nothing, the placement, a fatal assertion now or in a later request, or a published id
  // that another key may be published at. Changes nothing and traces nothing; costs about
  // what the first pass of a placement costs.
  RequestCheck requestCheck(const HashEntryKey& key, EntryId id) const;
  // The request check's problem in one line; empty when the write is safe to make.
  std::string requestProblem(const HashEntryKey& key, EntryId id) const { return requestCheck(key, id).problem(); }
  // What configDel(key) would do.
  RequestCheck removalCheck(const HashEntryKey& key) const;
  std::string removalProblem(const HashEntryKey& key) const { return removalCheck(key).problem(); }
  // Whether the full resync, handleHashUpdate(), would stop the agent. It runs the resync
  // on a scratch copy of the table, so it costs a copy of the table and the resync itself.
  RequestCheck resyncCheck() const;
  std::string resyncProblem() const { return resyncCheck().problem(); }

  // Brings the results in line with the requests without ever stopping the agent: a key
  // whose result is not what its request asks gets what the request's reaction would do,
  // when the request check passes; a key that a move took away from its requested id stays
  // where it stands; a result whose request is gone is removed. Every key it leaves as it
  // stands is in the report with the reason, and traced at level 2.
  // Then it releases every id recorded for a key that no result places there (a leaked id,
  // or one whose key has no request), which it counts as a deletion, reports and traces.
  ReconcileReport reconcile();

  // What insertEntryWithId(key, id) would do when called by itself, outside a reaction: the
  // reaction's own step, judged with the table's configuration.
  RequestCheck placementAtCheck(const HashEntryKey& key, EntryId id) const;

  // What the reaction to a request R for the key would do, the request being written.
  RequestCheck reactionCheck(const HashEntryKey& key, EntryId requested) const;

  // The hazards of the table's records, for auditReport(): the base finds the results
  // without a request; a table whose records may outlive its results adds those.
  virtual void auditHazards(AuditReport& report) const;
  // Releases the ids that auditHazards() finds recorded without a result there; the base
  // has none to release.
  virtual void releaseUnplacedRecords(ReconcileReport&) {}

  // Drops what a scratch copy of a table holds of itself, before the copy is dropped.
  virtual void scratchRelease() {}

  // Takes a saved placement over without a move: each key recorded at its saved id with
  // the records, bucket states and result that a placement there gives it, each key's
  // result published once, nothing else published, counted as insertions. The table must
  // hold nothing and every saved key must have its request already (write the requests
  // while the table does not listen: docs/restart.md). The whole placement is checked
  // first; a refused one changes nothing, and the check names every problem.
  RestoreCheck restore(const SavedPlacement& saved);
  RestoreCheck restore(Ptr<HashEntryStatus> saved);
  // The restore's check alone. Reads only.
  RestoreCheck restoreCheck(const SavedPlacement& saved) const;
  RestoreCheck restoreCheck(Ptr<HashEntryStatus> saved) const;

  const Fwk::TypeInfo* fwkType() const noexcept override;

 protected:
  // The run that a placement of the key publishes at id: one of its candidates, as the
  // derived table walks them without allocating. False, with the problem added to `check`,
  // when no placement of the table gives the key that id.
  virtual bool restoredRun(const HashEntryKey& key, EntryId id, Candidate& run, RestoreCheck& check) const;
  // Records the key at its saved id and run as the derived table's placement records it
  // (the id, and its positions, bucket states and slots used); the base counts the
  // insertion and publishes the result.
  virtual void restoreRun(const HashEntryKey& key, EntryId id, const Candidate& run);
  // The check and, when `runs` is given, the run of every saved key with a valid id.
  RestoreCheck checkRestore(const SavedPlacement& saved, std::vector<Candidate>* runs) const;

  // How many ids or positions the table records in arrays: all its slots, up to
  // maxDenseTableSlots.
  std::size_t denseSlotCount() const noexcept {
    return static_cast<std::size_t>(
        std::min(std::uint64_t{numBanks_} * numBuckets_ * numBucketEntries_, std::uint64_t{maxDenseTableSlots}));
  }

  MultiHashTableBase(U32 numBanks, U32 numBuckets, U32 numBucketEntries, Ptr<const HashEntryConfig> hashEntryConfig,
                     Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);
  ~MultiHashTableBase() override;

  // The first step of every table's destruction: no notification reaches it afterwards.
  void retireReactors();

  // The statistics as the derived tables count them.
  TableStatistics& statisticsKept() noexcept { return statistics_; }
  // One key moved from one place to another: the described counter and the statistics.
  void moveMade() noexcept {
    numMovesInc(1);
    statistics_.moved();
  }

  // Whether the table reacts to its requests now.
  bool listening() const noexcept;

  // The derived tables' parts of the checks: what insertEntryWithId(key, id), insertEntry
  // of the key and removeEntry(key) would do, in that table's terms.
  virtual RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const;
  virtual RequestCheck checkPlacement(const HashEntryKey& key) const;
  virtual RequestCheck checkRemoval(const HashEntryKey& key) const;
  // A table of the same kind and geometry, with the same banks, records and results, that
  // reacts to `config`: the ground for a dry run.
  virtual Ptr<MultiHashTableBase> scratchCopy(const Ptr<const HashEntryConfig>& config,
                                              const Ptr<HashEntryStatus>& status) const;

 private:
  void onNotification(const Fwk::Notification& n) override { hashEntryConfigDispatch(n); }
  bool subscribed() const noexcept;

  const U32 numBanks_;
  const U32 numBuckets_;
  const U32 numBucketEntries_;
  Ptr<const HashEntryConfig> hashEntryConfig_;
  Ptr<HashEntryStatus> hashEntryStatus_;
  const U32 maxRecursiveSteps_;
  SlotId fapId_{127};
  U32 numInsertions_ = 0;
  U32 numDeletions_ = 0;
  U32 numMoves_ = 0;
  // Figures about the table rather than its state: a const checked write counts its refusal.
  mutable TableStatistics statistics_;
  KeyByEntryId hashTableEntry_;
  MoveSearch moveSearch_ = MoveSearch::depthFirst;
  U32 reactionDepth_ = 0;
};

Ptr<MultiHashTableBase> multiHashTableBaseFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                  Ptr<const HashEntryConfig> hashEntryConfig,
                                                  Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);

}  // namespace TesselCentral
