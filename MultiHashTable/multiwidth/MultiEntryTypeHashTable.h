// MultiEntryTypeHashTable: the multi-width table. Entries take one, two or four aligned
// slots; inside the table an entry is addressed by a packed position (Position.h), which
// its EntryIdHelper translates to the client's EntryIds.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "MultiHashTable/Candidates.h"
#include "MultiHashTable/TableBase.h"
#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/IndexedMap.h"
#include "MultiHashTable/multiwidth/MultiEntryTypeBank.h"
#include "MultiHashTable/multiwidth/MultiWidthMovePlanner.h"
#include "MultiHashTable/multiwidth/Position.h"

namespace TesselCentral {

class EntryIdHelper;

// Multi-width table

// Where a position is recorded in the table's array of positions: bank by bank, bucket by
// bucket, slot by slot. A position outside the table's geometry has no place there and
// goes to the hash map beside it.
struct PositionIndex {
  U32 numBanks = 0;
  U32 numBuckets = 0;
  U32 numBucketEntries = 0;

  std::uint64_t operator()(U32 pos) const noexcept {
    const U32 bank = positionBank(pos);
    const U32 bucket = positionBucket(pos);
    const U32 slot = positionSlot(pos);
    if (bank >= numBanks || bucket >= numBuckets || slot >= numBucketEntries) return ~std::uint64_t{0};
    return (std::uint64_t{bank} * numBuckets + bucket) * numBucketEntries + slot;
  }
  U32 key(std::uint64_t index) const noexcept {
    const auto slot = static_cast<U32>(index % numBucketEntries);
    const std::uint64_t bucketOfTable = index / numBucketEntries;
    return packPosition(static_cast<U32>(bucketOfTable / numBuckets), static_cast<U32>(bucketOfTable % numBuckets),
                        slot);
  }
};

class MultiEntryTypeHashTable : public MultiHashTableBase {
 public:
  using KeyByPosition = Fwk::IndexedMap<U32, HashEntryKey, PositionIndex>;
  using PositionByKey = Fwk::HashMap<HashEntryKey, U32>;
  using BankById = Fwk::HashMap<U32, Ptr<MultiEntryTypeBank>>;

  static Ptr<MultiEntryTypeHashTable> MultiEntryTypeHashTableIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                                Ptr<const HashEntryConfig> hashEntryConfig,
                                                                Ptr<HashEntryStatus> hashEntryStatus,
                                                                U32 maxRecursiveSteps);

  // Which key starts at a position, and where a key stands: always inverse to each other.
  HashEntryKey posToKey(U32 pos) const noexcept { return posToKey_.get(pos); }
  bool posToKeyHas(U32 pos) const noexcept { return posToKey_.has(pos); }
  void posToKeyIs(U32 pos, const HashEntryKey& key) { posToKey_.is(pos, key); }
  HashEntryKey posToKeyDel(U32 pos) { return posToKey_.del(pos); }
  void posToKeyDelAll() { posToKey_.delAll(); }
  const KeyByPosition& posToKeyCollection() const noexcept { return posToKey_; }
  U32 keyToPos(const HashEntryKey& key) const noexcept { return keyToPos_.get(key); }
  bool keyToPosHas(const HashEntryKey& key) const noexcept { return keyToPos_.has(key); }
  void keyToPosIs(const HashEntryKey& key, U32 pos) { keyToPos_.is(key, pos); }
  U32 keyToPosDel(const HashEntryKey& key) { return keyToPos_.del(key); }
  void keyToPosDelAll() { keyToPos_.delAll(); }
  const PositionByKey& keyToPosCollection() const noexcept { return keyToPos_; }

  // Create-or-get by bankId, as MultiHashTable::bankIs, with the MultiEntryTypeBank's
  // ten arguments.
  Ptr<MultiEntryTypeBank> bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
                                 HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask, U32 phyBankId,
                                 bool doubleEntryTwoBucketMode);
  Ptr<MultiEntryTypeBank> bankDel(U32 bankId);
  void bankDelAll();
  Ptr<MultiEntryTypeBank> bank(U32 bankId) const noexcept { return bank_.get(bankId); }
  // The bank with a logical id, or null, without taking a reference.
  MultiEntryTypeBank* bankFind(U32 bankId) const noexcept {
    if (bankId < bankIndex_.size()) return bankIndex_[bankId];
    const Ptr<MultiEntryTypeBank>* found = bank_.find(bankId);
    return found ? found->ptr() : nullptr;
  }
  const BankById& bankCollection() const noexcept { return bank_; }

  bool debugEnabled() const noexcept { return debugEnabled_; }
  void debugEnabledIs(bool debugEnabled) noexcept { debugEnabled_ = debugEnabled; }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  // The translator between positions and EntryIds. The table and its helper hold each
  // other: before dropping its last pointer to the table, a client calls
  // entryIdHelperIs(nullptr) to break the cycle.
  const Ptr<EntryIdHelper>& entryIdHelper() const noexcept { return entryIdHelper_; }
  void entryIdHelperIs(Ptr<EntryIdHelper> helper);

  void hasNotificationActiveIs(bool active) override;

  // Where the free-position walk of a key ended: the first free run of the key's type in
  // its group, banks in ascending order; or a bank where a placement stops the agent (one
  // that selects no bucket, or whose baseEntryType is wider than the key).
  struct FreeRun {
    enum End : U8 { none, found, noBucket, narrower } end = none;
    U32 bank = 0;
    U32 pos = INVALID_POSITION;
  };
  // The walk as the reaction's first call makes it, reading only and tracing nothing.
  FreeRun freeRunOf(const HashEntryKey& key) const;

  // The first free position for the key in its buckets, banks in ascending order, skipping
  // origBank and banks whose candidate buckets are locked; reserved in the bucket state.
  U32 findEmptyPosition(const HashEntryKey& key, U32 origBank, U32 step);

  // Calls visit(bank, run) for each run that an entry of the key's type could take, banks,
  // buckets of its group and slots in ascending order, until visit answers true: the order
  // in which the free-space search and the breadth-first search try them. Banks that select
  // no bucket or hold no entry of the type are passed over; the run that position 0 would
  // start is never handed out. `depth` is the hash's debug increment, as for a key reached
  // at that depth of the depth-first search.
  template <class Visit>
  bool forEachCandidateRun(const HashEntryKey& key, U32 depth, Visit&& visit) const;
  // The key's candidate runs, in that order, with the ids a placement there publishes.
  CandidateList candidates(const HashEntryKey& key) const override;

  // Places the key, evicting occupants recursively when its buckets are full. Returns the
  // key's position, or INVALID_POSITION.
  U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) override;
  void insertEntryWithId(const HashEntryKey& key, EntryId eId) override;
  void removeEntry(const HashEntryKey& key) override;
  // Asserts that no bucket of any bank is left locked.
  void checkSanity() override;
  // keyToPos and posToKey inverse, bucket states equal to the placed keys' widths and
  // types, status and hashTableEntry agreeing with the positions, no bucket locked,
  // insertions less deletions equal to the placed keys.
  std::vector<std::string> audit() const override;

  // An EntryIdHelper of the table's own, every bank present with the table's figures and a
  // bucket its state word and id layout serve, groups that end inside their bank, and one
  // physical bank per bank.
  ConfigurationCheck configurationCheck() const override;

  // Commits a placement (move false: a new key) or a move to every collection and the status.
  // The bucket state of newPos is the caller's to set before: the free-space search has
  // reserved it, or the caller marks it; a move frees the bucket state of the old position.
  void doAddOrMoveEntry(const HashEntryKey& key, U32 newPos, bool move);

  void scratchRelease() override { entryIdHelperIs(nullptr); }

 protected:
  RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const override;
  RequestCheck checkPlacement(const HashEntryKey& key) const override;
  RequestCheck checkRemoval(const HashEntryKey& key) const override;
  Ptr<MultiHashTableBase> scratchCopy(const Ptr<const HashEntryConfig>& config,
                                      const Ptr<HashEntryStatus>& status) const override;
  bool restoredRun(const HashEntryKey& key, EntryId id, Candidate& run, RestoreCheck& check) const override;
  void restoreRun(const HashEntryKey& key, EntryId id, const Candidate& run) override;

 public:
  void handleInitialized();

  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~MultiEntryTypeHashTable() override;

 private:
  MultiEntryTypeHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                          Ptr<const HashEntryConfig> hashEntryConfig, Ptr<HashEntryStatus> hashEntryStatus,
                          U32 maxRecursiveSteps);

  MultiEntryTypeBank& bankAt(U32 bankId) const;
  // The one free-position walk: banks but origBank in ascending order, missing banks and
  // groups that an outer level of a move has locked passed over. `search` computes each
  // bank's group (the placement through calcBucketId, which traces it and stops on a bank
  // where the walk ends) and its first free run (the placement reserves it).
  struct ReserveFreeRun;
  template <class Search>
  FreeRun walkFreeRuns(const HashEntryKey& key, U32 origBank, U32 step, Search& search) const;
  // The translator, which must be set before anything is placed.
  EntryIdHelper& helper() const;

  // Where keys stand: posToKey_, keyToPos_ and the banks' bucket states, one record kept
  // in three places. A placed key has keyToPos[key] = pos and posToKey[pos] = key, and the
  // slots of its run carry its type in its bucket's state. Two operations write them,
  // occupy (with reserveFreeRun, its mark step as the free-space search takes it) and
  // vacate, in MultiEntryTypeRecords.cpp; every placement, move and removal is a sequence
  // of those and its own publication (hashTableEntry, counters, status). The public
  // posToKeyIs, keyToPosIs... are the registry's, for tools and tests.
  //
  // Occupying a run takes two steps, mark (the bucket state) and record (posToKey and
  // keyToPos), which a placement may take apart: the run is taken in the bucket state as
  // soon as it is found, and the key is committed later. The free-space search marks the
  // run it finds in the same pass (reserveFreeRun); the eviction and the fewest-moves
  // placement mark the run they have freed (OccupyStep::mark) and then commit the key with
  // doAddOrMoveEntry, which records only. So the mark of newPos stays doAddOrMoveEntry's
  // caller's, as its public contract says, and a direct call commits a key without
  // touching the bucket state. relocate, and the helper's placement at a requested id,
  // take both steps at once.

  // Where a run starts as its bank's bucket states count. A position packs the bank, the
  // bucket and the slot in 8, 20 and 4 bits; a requested id may name a slot or a bucket
  // past those bits, and its bucket state is written as the id names it.
  struct RunStart {
    U32 bank = 0;
    U32 bucket = 0;
    U32 slot = 0;

    static constexpr RunStart at(U32 pos) noexcept {
      return RunStart{positionBank(pos), positionBucket(pos), positionSlot(pos)};
    }
    static constexpr RunStart of(const SlotRun& run) noexcept { return RunStart{run.bank, run.bucket, run.slot}; }
    constexpr U32 position() const noexcept { return packPosition(bank, bucket, slot); }
  };
  enum class OccupyStep { mark, record, markAndRecord };
  void occupy(const HashEntryKey& key, const RunStart& run, OccupyStep step);
  // The mark step made by the bank's free-space search: the first free run for the key in
  // the group of buckets from bucketId, marked as it is found; its position, or
  // INVALID_POSITION.
  U32 reserveFreeRun(MultiEntryTypeBank& b, const HashEntryKey& key, U32 bucketId);
  // Vacating clears all three: the run's slots in the bucket state, posToKey[pos],
  // and keyToPos[key] when the key leaves the table. A moving key keeps its keyToPos
  // member, which the record of its new run overwrites, before (relocate) or after
  // (doAddOrMoveEntry) the old run is vacated: the member stays where it is in the map.
  enum class Vacate { leaving, moving };
  void vacate(const HashEntryKey& key, const RunStart& run, Vacate why);
  // The helper's placement at a requested id (setEntryState) occupies the run that the id
  // names; it writes nothing else of the table.
  friend class EntryIdHelper;

  // The steps of making room for a key that found no free place: in one bank, its group of
  // buckets locked; in one bucket, slot by slot; one victim at least as wide as the key; the
  // run of narrower victims that the key's slots cover. Each says whether room was made at
  // freePos.
  struct Eviction {
    const HashEntryKey& key;
    U32 recursionStep;
    U32 step;              // maxRecursiveSteps - recursionStep: calcBucketId's last argument
    const char* function;  // insertEntry's signature, which the steps' assertions report
  };
  // Room for the key by evicting, bank by bank but origBankId: the key's position, or
  // INVALID_POSITION (with the invalid id published for a key that had no result).
  U32 makeRoom(const Eviction& e, U32 origBankId);
  // insertEntry's placement, which a victim's eviction calls again one level deeper: the
  // table counts a placement and its moves in the statistics once, at the outermost call.
  // `function` is insertEntry's signature, which its assertions report.
  U32 place(const HashEntryKey& key, U32 origBankId, U32 recursionStep, const char* function);
  // makeRoom for a key that the breadth-first search found no plan for, examining at most
  // maxHandedOverRuns runs: the key's position, or INVALID_POSITION, a failure at the bound
  // counted as a search cut short.
  U32 makeRoomWithin(const Eviction& e, U32 origBankId);
  // The runs that such a search may still examine, while it is engaged.
  struct HandOverBound {
    bool engaged = false;
    bool reached = false;
    U32 runsLeft = 0;
  };
  // Takes one run of the bound, or finds it reached.
  bool handOverRunTaken() noexcept {
    if (handOver_.runsLeft == 0) {
      handOver_.reached = true;
      return false;
    }
    --handOver_.runsLeft;
    return true;
  }
  bool makeRoomInBank(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32& freePos);
  bool makeRoomInBucket(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 entrySize, U32& freePos);
  bool evictOne(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize, U32 freePos);
  bool evictRun(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize, U32 freePos);

  // Room by the fewest moves (moveSearch breadthFirst): movePlanner_ finds the moves and
  // the table applies them. Traces the search, applies the plan's moves in order and places
  // the key in the run they have freed: the key's position, or INVALID_POSITION, which
  // leaves the key to makeRoomWithin.
  U32 placeByShortestMoves(const HashEntryKey& key, const MultiWidthMovePlanner::Plan& plan);
  void relocate(const HashEntryKey& key, const SlotRun& from, const SlotRun& to);

  // The check's view of the banks and the helper, and of the key's width against every bank.
  RequestCheck missingPart() const;
  RequestCheck keyGeometry(const HashEntryKey& key) const;
  // The steps of the check of a placement at a requested id: the bank walk to the id's
  // candidate bucket, the position it claims (which no key may hold, whose slots must be
  // free), and what the placement leaves hazardous.
  struct Claim {
    U32 bank = 0;
    U32 bucket = 0;
    U32 slot = 0;
    U32 pos = 0;
  };
  RequestCheck candidateBucketOf(const HashEntryKey& key, EntryId eId, Claim& claim) const;
  RequestCheck claimCheck(const HashEntryKey& key, EntryId eId, const Claim& claim) const;
  RequestCheck claimHazards(const HashEntryKey& key, EntryId eId, const Claim& claim) const;

  KeyByPosition posToKey_;
  PositionByKey keyToPos_;
  BankById bank_;
  // The banks whose ids fit a position's 8 bank bits, by id: the searches' fast path. The
  // bank collection holds the references.
  std::array<MultiEntryTypeBank*, 256> bankIndex_{};
  bool debugEnabled_ = false;
  Ptr<EntryIdHelper> entryIdHelper_;
  bool initialized_ = false;
  // The search for the fewest moves, whose scratch state is kept between placements, so
  // that a warm table allocates nothing to search.
  MultiWidthMovePlanner movePlanner_;
  HandOverBound handOver_;
};

template <class Visit>
bool MultiEntryTypeHashTable::forEachCandidateRun(const HashEntryKey& key, U32 depth, Visit&& visit) const {
  const HashEntryType type = key.entryType();
  for (U32 i = 0; i < numBanks(); ++i) {
    const MultiEntryTypeBank* b = bankFind(i);
    if (b == nullptr || (!debugEnabled_ && !b->selectsBuckets())) continue;
    const U32* width = b->entrySizeFind(type);
    const U32* count = b->numBucketsToCheckFind(type);
    if (width == nullptr || *width == 0 || count == nullptr) continue;
    const U32 first = b->groupStart(b->bucketIdOf(key.crc16(), key.crc32(), debugEnabled_, depth), type);
    for (U32 k = 0; k < *count; ++k) {
      const U32 bucket = first + k;
      for (U32 s = 0; s + *width <= b->bucketSize(); s += *width) {
        if (b->isPositionZero(bucket, s)) continue;
        if (visit(*b, SlotRun{i, bucket, s, *width})) return true;
      }
    }
  }
  return false;
}

Ptr<MultiEntryTypeHashTable> multiEntryTypeHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                            Ptr<const HashEntryConfig> hashEntryConfig,
                                                            Ptr<HashEntryStatus> hashEntryStatus,
                                                            U32 maxRecursiveSteps);

}  // namespace TesselCentral

// The table holds its translator: a client of the table gets the whole of it.
#include "MultiHashTable/multiwidth/EntryIdHelper.h"  // IWYU pragma: export
