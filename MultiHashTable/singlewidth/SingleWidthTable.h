// MultiHashTable: the single-width table. Every entry takes one slot; an EntryId is
// computed from bank, bucket and slot in one of two layouts.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "MultiHashTable/Bank.h"
#include "MultiHashTable/Candidates.h"
#include "MultiHashTable/TableBase.h"
#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/singlewidth/SingleWidthMovePlanner.h"

namespace TesselCentral {

// Single-width table

class MultiHashTable : public MultiHashTableBase {
 public:
  using BankById = Fwk::HashMap<U32, Ptr<Bank>>;

  // Creates the table and subscribes it to the requests.
  static Ptr<MultiHashTable> MultiHashTableIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                              Ptr<const HashEntryConfig> hashEntryConfig,
                                              Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                              bool bucketSpanBanks);

  bool bucketSpanBanks() const noexcept { return bucketSpanBanks_; }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  // Create-or-get by bankId: an existing bank is returned when every argument matches it,
  // otherwise Fwk::ReinstantiationError names the first differing attribute.
  Ptr<Bank> bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                   U32 hashOffSet, U32 hashBits, U32 hashMask);
  Ptr<Bank> bankDel(U32 bankId);
  void bankDelAll();
  Ptr<Bank> bank(U32 bankId) const noexcept { return bank_.get(bankId); }
  // The bank with an id, or null, without taking a reference.
  Bank* bankFind(U32 bankId) const noexcept {
    if (bankId < bankIndex_.size()) return bankIndex_[bankId];
    const Ptr<Bank>* found = bank_.find(bankId);
    return found ? found->ptr() : nullptr;
  }
  const BankById& bankCollection() const noexcept { return bank_; }

  // The EntryId of a slot, in the layout that bucketSpanBanks chooses.
  EntryId calcEntryId(U32 bankId, U32 bucketId, SlotId slot) const;
  // calcEntryId without its trace.
  EntryId entryIdOf(U32 bankId, U32 bucketId, SlotId slot) const noexcept {
    return EntryId(bucketSpanBanks_ ? (bucketId * numBanks() + bankId) * numBucketEntries() + slot.value()
                                    : (bankId * numBuckets() + bucketId) * numBucketEntries() + slot.value());
  }

  void hasNotificationActiveIs(bool active) override;

  // The key's bucket in a bank as a placement computes it: traced, and stopping the agent
  // on a bank whose hash function selects no bucket.
  U32 bucketOf(const HashEntryKey& key, U32 bankId) const;

  // The key's candidate slots, banks and slots in ascending order: the order in which a
  // placement tries them. A bank that is missing, or whose hash function selects no
  // bucket, ends the list where it ends a placement.
  CandidateList candidates(const HashEntryKey& key) const override;
  // The slot that an id names: the inverse of calcEntryId. The bank is numBanks or more
  // for an id past the table's capacity.
  Candidate slotOfId(EntryId eId) const noexcept;

  // What ended a walk of the key's candidate slots: all were walked, the visit stopped at
  // one, or a bank that is missing or selects no bucket (where a placement stops) was reached.
  struct CandidateWalk {
    enum End : U8 { walked, stopped, missingBank, noBucket } end = walked;
    U32 bank = 0;  // the bank where the walk ended
    EntryId eId;   // the slot where the visit stopped
  };
  // What the first pass of a placement finds, slot by slot: the first free slot, or the
  // slot of a key with the key's crc16 and crc32 (the zero key takes id 1 only, whoever
  // holds it, and passes over the rest of a bucket where it finds its hashes).
  struct FirstPass {
    enum Found : U8 { none, freeSlot, existing, zeroKeyAtOne } found = none;
    EntryId eId;
    CandidateWalk walk;
  };
  FirstPass firstPass(const HashEntryKey& key) const;
  // Whether eId is one of the key's candidate slots: the walk stops there when it is.
  CandidateWalk findCandidate(const HashEntryKey& key, EntryId eId) const;

  // Places the key in a free candidate slot, else makes room by moving occupants
  // (bank 0 <-> bank 1) up to recursionStep deep. Always returns 0; the outcome is in
  // the status.
  U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) override;
  // Whether eId is one of the key's candidate slots, free or not.
  bool checkEntryIdValidity(const HashEntryKey& key, EntryId eId) override;
  // Places the key at the requested id, which must be one of its candidates and free (or
  // held by a key with the same crc16 and crc32). The key's previous position is kept.
  void insertEntryWithId(const HashEntryKey& key, EntryId eId) override;
  // Frees the position that the key's status names and removes the status.
  void removeEntry(const HashEntryKey& key) override;

  // Moves the key at eId into its bucket in targetBank, making room there recursively
  // with up to stepsRemaining moves; true when eId is free afterwards.
  bool rehashEntry(EntryId eId, U32 targetBank, U32 stepsRemaining, HashEntryType entryType);

  // The moves that a placement of the key would make to free one of its candidate slots,
  // worked out over the records as they stand without making them, by the search that
  // moveSearch chooses: the keys it would move, and so publish, in the order it would move
  // them. Traces nothing. Meaningful when the first pass finds no free slot.
  struct PlannedMove {
    EntryId from;
    EntryId to;
    HashEntryKey key;
  };
  struct MovePrediction {
    std::vector<PlannedMove> moves;
    std::optional<EntryId> freed;  // the key's candidate slot that the moves free
    bool stops = false;            // the search reaches a bank that stops the agent
  };
  MovePrediction predictMoves(const HashEntryKey& key) const;

  // Every bank present and built for single-width entries, with the table's figures,
  // selecting only buckets whose ids the table lays out for it.
  ConfigurationCheck configurationCheck() const override;

  // An id recorded for a key that no result names: the key's result is another id (a
  // leaked id), or the key has no request.
  struct UnplacedRecord {
    EntryId id;
    HashEntryKey key;
    bool requested;  // the key has a request
    EntryId result;  // the key's result; invalid when it has none
  };
  std::vector<UnplacedRecord> unplacedRecords() const;

  // Every valid status names an id recorded for the key (or a key with the same hashes),
  // every id is below the capacity, and the counters cover the recorded ids.
  std::vector<std::string> audit() const override;

 protected:
  RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const override;
  RequestCheck checkPlacement(const HashEntryKey& key) const override;
  RequestCheck checkRemoval(const HashEntryKey& key) const override;
  Ptr<MultiHashTableBase> scratchCopy(const Ptr<const HashEntryConfig>& config,
                                      const Ptr<HashEntryStatus>& status) const override;
  void auditHazards(AuditReport& report) const override;
  void releaseUnplacedRecords(ReconcileReport& report) override;
  bool restoredRun(const HashEntryKey& key, EntryId id, Candidate& run, RestoreCheck& check) const override;
  void restoreRun(const HashEntryKey& key, EntryId id, const Candidate& run) override;

 public:
  void handleInitialized();

  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~MultiHashTable() override;

 private:
  MultiHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries, Ptr<const HashEntryConfig> hashEntryConfig,
                 Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps, bool bucketSpanBanks);

  Bank& bankAt(U32 bankId) const noexcept;

  // The writes of the table's own placements, moves and removals to its records, which
  // keep the slots used of the id's bank in the statistics: an id counts once, however
  // often a key is written to it.
  void recordAt(EntryId eId, const HashEntryKey& key);
  // Frees the id; false when no key held it.
  bool releaseRecord(EntryId eId);

  // The one walk of a key's candidate slots. For each bank in ascending order the observer
  // computes the key's bucket (the placement's observer traces it, and stops the agent on a
  // bank that selects none), then each slot's id (the placement's traces it);
  // visit(slot) answers whether to go on, pass over the rest of the bucket, or stop.
  struct CandidateSlot {
    U32 bank;
    U32 bucket;
    U32 slot;
    EntryId eId;
  };
  enum class WalkStep : U8 { next, nextBank, stop };
  template <class Observer, class Visit>
  CandidateWalk walkCandidates(const HashEntryKey& key, Observer& observer, Visit&& visit) const;
  template <class Observer>
  FirstPass firstPass(const HashEntryKey& key, Observer& observer) const;
  template <class Observer>
  CandidateWalk findCandidate(const HashEntryKey& key, EntryId eId, Observer& observer) const;

  // Makes room by moving an occupant, bank 0 to bank 1 and any other bank to 0. `caller` is
  // insertEntry's signature, which a broken invariant here reports.
  std::optional<EntryId> secondPass(const HashEntryKey& key, U32 recursionStep, const char* caller);

  // The depth-first chain of moves over a view of the records: the table's own, which it
  // changes, traces and publishes (LiveMoves), or a check's copy-on-write view of them,
  // which records what would move (DryMoves).
  class LiveMoves;
  class DryMoves;
  template <class Moves>
  bool rehashIn(Moves& moves, EntryId eId, U32 targetBank, U32 stepsRemaining, HashEntryType entryType) const;
  template <class Moves, class Observer>
  CandidateWalk secondPassIn(Moves& moves, Observer& observer, const HashEntryKey& key, U32 recursionStep) const;
  // The breadth-first search for room: the shortest sequence of moves that the planner
  // finds, applied from its free end backwards; the key's candidate slot that it frees.
  std::optional<EntryId> shortestMoves(const HashEntryKey& key, U32 maxMoves);

  // The entries whose keys the running rehashEntry calls of one placement are moving,
  // outermost first. A link lasts as long as its call.
  class ChainLink {
   public:
    ChainLink(std::vector<EntryId>& chain, EntryId eId) : chain_(chain) { chain_.push_back(eId); }
    ~ChainLink() { chain_.pop_back(); }
    ChainLink(const ChainLink&) = delete;
    ChainLink& operator=(const ChainLink&) = delete;

   private:
    std::vector<EntryId>& chain_;
  };
  // Whether a call further up the chain than the newest one is moving the key at eId.
  static bool isMovingFurtherUp(const std::vector<EntryId>& chain, EntryId eId) noexcept;

  const bool bucketSpanBanks_;
  std::vector<EntryId> rehashChain_;
  BankById bank_;
  // The first banks by id, the placement loops' fast path; the collection holds the references.
  std::array<Bank*, 256> bankIndex_{};
  bool initialized_ = false;
  // Kept between placements, so that a warm table's search allocates nothing.
  SingleWidthMovePlanner movePlanner_;
};

Ptr<MultiHashTable> multiHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                          Ptr<const HashEntryConfig> hashEntryConfig,
                                          Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                          bool bucketSpanBanks);

}  // namespace TesselCentral
