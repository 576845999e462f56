// What makes a table unable to serve its requests, found before the first one.
//
// A table trusts its shape and its banks: it takes only a bucket index from a bank, lays its
// ids out with its own figures, and keeps a multi-width bucket's state in one word. A shape
// that breaks one of those assumptions is accepted without a word and shows up later, as
// an assertion, a corrupted record or an id that names a slot the chip does not have. The
// configuration check names each such problem, with the bank at fault and what the table
// would do, so that an agent or a tool can refuse the table before its first request.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/RequestCheck.h"

namespace TesselCentral {

class Bank;

// The rules a table's configuration is held to.
enum class ConfigurationRule : U8 {
  noBanks,                // numBanks is 0
  noSlots,                // numBuckets or numBucketEntries is 0
  capacityPastIds,        // numBanks * numBuckets * numBucketEntries does not fit an EntryId
  tooManyBanks,           // more banks than the first placement or a position serves
  tooManyBuckets,         // more buckets than a position's 20 bucket bits
  missingBank,            // a bank below numBanks is not there
  missingEntryIdHelper,   // a multi-width table has no EntryIdHelper, or one of another table
  bucketsDisagree,        // a bank's numBuckets differs from the table's
  slotsDisagree,          // a bank's bucketSize differs from the table's numBucketEntries
  unsupportedBucketSize,  // a multi-width bucket of other than 1, 2 or 4 slots
  wideBaseType,           // a single-width table's bank built for wider entries
  hashSelectsNoBucket,    // hashLsb: calcBucketId stops
  hashSelectsOneBucket,   // a hash function that gives every key bucket 0
  hashWindowPastWidth,    // hashBits or hashOffSet take bits beyond the hash's width
  maskPastBuckets,        // hashMask selects buckets at or past the bank's end
  maskShortOfBuckets,     // hashMask never selects some of the bank's buckets
  groupPastBank,          // a two-bucket-mode group runs past the bank's last bucket
  sharedPhysicalBank,     // two banks with one phyBankId
};

std::string_view ruleName(ConfigurationRule rule) noexcept;

// What the table does with a configuration that breaks a rule, from the least to the most
// severe.
enum class ConfigurationConsequence : U8 {
  losesRoom,         // keys get less room than the shape promises, or none
  corrupts,          // two keys meet at one slot of the chip, or a record goes astray
  publishesOutside,  // a published id names a slot past the table's capacity
  stopsLater,        // a later placement stops the agent on an assertion
  stopsNow,          // the first placement stops the agent on an assertion
};

std::string_view consequenceName(ConfigurationConsequence consequence) noexcept;

struct ConfigurationProblem {
  ConfigurationRule rule;
  ConfigurationConsequence consequence;
  std::optional<U32> bank;  // the bank at fault, when one is
  std::string condition;    // the assertion that stops the agent, for the stopping ones
  std::string reason;       // what is wrong, in the client's terms

  // "bank 1: hashMask 15 selects buckets past ...: publishes an id outside the table".
  std::string text() const;
};

class ConfigurationCheck {
 public:
  void add(ConfigurationProblem problem) { problems_.push_back(std::move(problem)); }

  bool passes() const noexcept { return problems_.empty(); }
  const std::vector<ConfigurationProblem>& problems() const noexcept { return problems_; }
  bool has(ConfigurationRule rule) const noexcept;
  // The most severe problem; null when the check passes.
  const ConfigurationProblem* worst() const noexcept;

  // "" when the check passes; otherwise one line per problem.
  std::string text() const;

  // What a request to the table reaches because of its configuration, in a request
  // check's terms: a stop, a hazard for a corrupting or outside id, too little room.
  RequestCheck requestVerdict() const;

  static constexpr std::string_view typeName() { return "TesselCentral::ConfigurationCheck"; }
  // An answer of the table, never an argument: parsing one always fails.
  static ConfigurationCheck fromText(std::string_view text);

 private:
  std::vector<ConfigurationProblem> problems_;
};

std::ostream& operator<<(std::ostream& os, const ConfigurationCheck& check);

namespace detail {
// The rules of one bank's bucket selection, which both tables share: the hash function,
// its window and its mask, against the buckets that the ids lay out. `bucketsLaidOut` is
// the number of buckets whose ids belong to the bank; `reachedFirst` whether a key's first
// placement reaches the bank; `pastEnd` what the buckets beyond the laid out ones do when a
// key selects buckets up to the bank's highestSelectableBucket().
void checkBankSelection(const Bank& bank, U32 bucketsLaidOut, bool reachedFirst, ConfigurationConsequence pastEnd,
                        ConfigurationCheck& check);
// The rules of the table's figures that both tables share.
void checkTableFigures(U32 numBanks, U32 numBuckets, U32 numBucketEntries, ConfigurationCheck& check);
}  // namespace detail

}  // namespace TesselCentral
