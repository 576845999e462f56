// A table of either kind with its request and result collections, as the tool drives it:
// every request goes through the config, exactly as an agent's write would.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "MultiHashTable.h"

namespace mht {

enum class TableKind { single, multi };

struct BankSpec {
  TesselCentral::HashEntryType baseEntryType = TesselCentral::HashEntryType::singleWide;
  U32 bankId = 0;
  U32 numBuckets = 0;
  U32 bucketSize = 0;
  TesselCentral::HashFunc hashFunc = TesselCentral::HashFunc::hashCrc32Lower;
  U32 hashOffSet = 0;
  U32 hashBits = 0;
  U32 hashMask = 0;
  U32 phyBankId = 0;
  bool doubleEntryTwoBucketMode = false;
};

struct TableSpec {
  TableKind kind = TableKind::multi;
  U32 numBanks = 0;
  U32 numBuckets = 0;
  U32 numBucketEntries = 0;
  U32 maxRecursiveSteps = 0;
  bool bucketSpanBanks = false;  // single-width tables only
  TesselCentral::MoveSearch moveSearch = TesselCentral::MoveSearch::depthFirst;
};

// What is wrong with a table's shape: the figure at fault, and a sentence that names it
// ("100 buckets is not a power of two in 1..1048576") for the caller to put after the
// option or field the figure came from.
struct ShapeProblem {
  enum class Figure { banks, buckets, slots, capacity };
  Figure figure = Figure::banks;
  std::string text;
};

// The limits a table's shape is held to.
enum class ShapeLimits {
  // What the library can address and no more: a replay drives any table an agent could
  // make, odd ones included, and leaves the rest to the library's own checks.
  library,
  // What the tool's simulations take besides: 1 to 256 banks of a power of two of buckets
  // (the default banks hash into them evenly) of 1 to 16 slots, every id within 32 bits, and
  // a multi-width table within the bucket state's 4 slots and below the bank it skips.
  simulation,
};

// The first problem of a shape, or nothing. The figures are taken as wide as a command line
// may give them, before they are known to fit a TableSpec.
std::optional<ShapeProblem> shapeProblem(TableKind kind, U64 numBanks, U64 numBuckets, U64 numBucketEntries,
                                         ShapeLimits limits);
std::optional<ShapeProblem> shapeProblem(const TableSpec& table, ShapeLimits limits);

// The command line's names: the table kinds and the move searches.
inline const char* kindName(TableKind k) { return k == TableKind::single ? "single" : "multi"; }
inline const char* searchName(TesselCentral::MoveSearch s) {
  return s == TesselCentral::MoveSearch::breadthFirst ? "breadth-first" : "depth-first";
}

// One table and its collections. The multi-width table gets its EntryIdHelper at once;
// the destructor breaks the table <-> helper cycle.
class TableSession {
 public:
  explicit TableSession(const TableSpec& shape);
  ~TableSession();
  TableSession(const TableSession&) = delete;
  TableSession& operator=(const TableSession&) = delete;

  const TableSpec& shape() const noexcept { return spec_; }
  void bankIs(const BankSpec& bank);
  // Whether every bank index below numBanks holds a bank.
  bool complete() const;
  // The index of the first missing bank, or numBanks.
  U32 firstMissingBank() const;

  TesselCentral::HashEntryConfig& config() const noexcept { return *config_; }
  TesselCentral::HashEntryStatus& status() const noexcept { return *status_; }
  TesselCentral::MultiHashTableBase& table() const noexcept { return *base_; }
  TesselCentral::MultiHashTable* single() const noexcept { return single_.ptr(); }
  TesselCentral::MultiEntryTypeHashTable* multi() const noexcept { return multi_.ptr(); }

  // Slots that placed keys cover (a key's width in a multi-width table, 1 otherwise).
  U64 slotsUsed() const;
  U64 capacity() const noexcept { return base_->tableCapacity(); }
  // Slots used per logical bank.
  std::vector<U64> slotsUsedPerBank() const;
  U32 widthOf(const TesselCentral::HashEntryKey& key) const noexcept;

  // The canonical text of the table's state: counters, status, entries, bucket states.
  void dump(std::ostream& out) const;
  // For a key without a place: its candidate buckets in every bank and their occupants.
  void explain(const TesselCentral::HashEntryKey& key, std::ostream& out) const;

 private:
  void explainSingle(const TesselCentral::HashEntryKey& key, std::ostream& out) const;

  TableSpec spec_;
  TesselCentral::Ptr<TesselCentral::HashEntryConfig> config_;
  TesselCentral::Ptr<TesselCentral::HashEntryStatus> status_;
  TesselCentral::Ptr<TesselCentral::MultiHashTable> single_;
  TesselCentral::Ptr<TesselCentral::MultiEntryTypeHashTable> multi_;
  TesselCentral::MultiHashTableBase* base_ = nullptr;
};

// "<crc16> <crc32> <fapId> <entryType>", the key as the tool's text lines write it.
std::string keyFields(const TesselCentral::HashEntryKey& key);

}  // namespace mht
