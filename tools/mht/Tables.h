// A table of either kind with its request and result collections, as the tool drives it:
// every request goes through the config, exactly as an agent's write would.
#pragma once

#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

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

// What is wrong with a simulated table's shape: the figure at fault, and a sentence that
// names it ("100 buckets is not a power of two up to 1048576") for the caller to put after
// the option or field the figure came from.
struct ShapeProblem {
  enum class Figure { banks, buckets, slots };
  Figure figure = Figure::banks;
  std::string text;
};

// What the tool's simulations take, and no more: at most 256 banks of a power of two of
// buckets up to 1048576 (the default banks hash into them evenly, and the reports keep a
// cell per bucket) of at most 16 slots. Whether a table of that shape can serve its
// requests is the library's configuration check's to say, on the table once it is built
// (TableSession::requireConfiguration). The figures are taken as wide as a command line may
// give them, before they are known to fit a TableSpec.
std::optional<ShapeProblem> simulationShapeProblem(U64 numBanks, U64 numBuckets, U64 numBucketEntries);
std::optional<ShapeProblem> simulationShapeProblem(const TableSpec& table);

// A table whose configuration check does not pass, refused before its first request. The
// text names every problem: "the table cannot serve its requests: <problem>", or the
// count and one problem per indented line.
class ConfigurationRefused : public std::runtime_error {
 public:
  // `context` ("table multi 4x64x3") goes before the text, with a colon.
  explicit ConfigurationRefused(TesselCentral::ConfigurationCheck check, const std::string& context = {});
  const TesselCentral::ConfigurationCheck& check() const noexcept { return check_; }

 private:
  TesselCentral::ConfigurationCheck check_;
};

// The refusal's text for a check that does not pass.
std::string configurationRefusal(const TesselCentral::ConfigurationCheck& check);

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
  // The library's verdict on the table, its banks and its helper as they stand.
  TesselCentral::ConfigurationCheck configurationCheck() const { return base_->configurationCheck(); }
  // Throws ConfigurationRefused unless the configuration check passes: called once the
  // banks are in, before the first request.
  void requireConfiguration(const std::string& context = {}) const;

  TesselCentral::HashEntryConfig& config() const noexcept { return *config_; }
  TesselCentral::HashEntryStatus& status() const noexcept { return *status_; }
  TesselCentral::MultiHashTableBase& table() const noexcept { return *base_; }
  TesselCentral::MultiHashTable* single() const noexcept { return single_.ptr(); }
  TesselCentral::MultiEntryTypeHashTable* multi() const noexcept { return multi_.ptr(); }

  // Slots that placed keys cover, as the table's statistics count them.
  U64 slotsUsed() const noexcept { return base_->statistics().slotsUsedInAllBanks(); }
  U64 capacity() const noexcept { return base_->tableCapacity(); }
  // The slots a key of the table takes: its width in a multi-width table, 1 otherwise.
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
