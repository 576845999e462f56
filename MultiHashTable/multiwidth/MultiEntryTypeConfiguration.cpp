// The multi-width table's configuration rules: an EntryIdHelper of its own, every bank
// present with the table's figures and a bucket that its state word and its id layout
// serve, groups that end inside their bank, and one physical bank per bank.
#include <bitset>
#include <string>

#include "internal/ConditionTexts.h"
#include "multiwidth/EntryIdHelper.h"
#include "multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

namespace {

// A position keeps the bucket in 20 bits and the bank in 8; the first placement of a key
// passes bank 128 as the bank to avoid.
constexpr U32 positionBuckets = U32{1} << 20;
constexpr U32 positionBanks = 256;
constexpr U32 firstPlacementBanks = MultiHashTableBase::noBankToAvoid;

constexpr HashEntryType entryTypes[] = {HashEntryType::singleWide, HashEntryType::doubleWide, HashEntryType::quadWide};

// A bucket past the bank's end has the ids of the next bank's first buckets, or, past the
// last bank, ids outside the table.
ConfigurationConsequence pastEndOf(const MultiEntryTypeHashTable& table, U32 bankId) {
  return bankId + 1 >= table.numBanks() ? ConfigurationConsequence::publishesOutside
                                        : ConfigurationConsequence::corrupts;
}

void checkTableShape(const MultiEntryTypeHashTable& table, ConfigurationCheck& check) {
  if (table.numBanks() > positionBanks) {
    check.add({ConfigurationRule::tooManyBanks,
               ConfigurationConsequence::corrupts,
               std::nullopt,
               {},
               "numBanks " + std::to_string(table.numBanks()) + " is past the 256 banks that a position numbers"});
  } else if (table.numBanks() > firstPlacementBanks) {
    check.add({ConfigurationRule::tooManyBanks,
               ConfigurationConsequence::losesRoom,
               std::nullopt,
               {},
               "numBanks " + std::to_string(table.numBanks()) +
                   " is past 128: a key's first placement passes over bank 128"});
  }
  if (!table.entryIdHelper()) {
    check.add({ConfigurationRule::missingEntryIdHelper, ConfigurationConsequence::stopsNow, std::nullopt,
               condition::tableHasHelper, "the table has no EntryIdHelper: set one with entryIdHelperIs"});
  } else if (table.entryIdHelper()->hashTable().ptr() != &table) {
    check.add({ConfigurationRule::missingEntryIdHelper,
               ConfigurationConsequence::corrupts,
               std::nullopt,
               {},
               "the table's EntryIdHelper translates another table's ids"});
  }
}

void checkBucketGeometry(const MultiEntryTypeHashTable& table, const MultiEntryTypeBank& bank,
                         ConfigurationCheck& check) {
  const U32 id = bank.bankId();
  const U32 size = bank.bucketSize();
  if (size > 4) {
    check.add({ConfigurationRule::unsupportedBucketSize, ConfigurationConsequence::stopsLater, id,
               condition::foundPositionUnclaimed,
               "bucketSize " + std::to_string(size) + " is past the 4 slots that a bucket's state word serves"});
  } else if (size == 3) {
    check.add({ConfigurationRule::unsupportedBucketSize,
               ConfigurationConsequence::corrupts,
               id,
               {},
               "bucketSize 3 is not a power of two: a requested id names its slot by its low bits"});
  } else if (size == 0) {
    check.add({ConfigurationRule::noSlots, ConfigurationConsequence::losesRoom, id, {}, "bucketSize 0 holds no key"});
  }
  if (size != table.numBucketEntries()) {
    check.add({ConfigurationRule::slotsDisagree,
               ConfigurationConsequence::corrupts,
               id,
               {},
               "bucketSize " + std::to_string(size) + " differs from the table's numBucketEntries " +
                   std::to_string(table.numBucketEntries()) +
                   ": an id counts the bank's slots by the one and its buckets by the other"});
  }
  if (bank.numBuckets() > positionBuckets) {
    check.add(
        {ConfigurationRule::tooManyBuckets,
         ConfigurationConsequence::corrupts,
         id,
         {},
         "numBuckets " + std::to_string(bank.numBuckets()) + " is past the 1048576 buckets that a position numbers"});
  }
  if (bank.numBuckets() != table.numBuckets()) {
    const bool larger = bank.numBuckets() > table.numBuckets();
    check.add({ConfigurationRule::bucketsDisagree,
               larger ? ConfigurationConsequence::publishesOutside : ConfigurationConsequence::losesRoom,
               id,
               {},
               "numBuckets " + std::to_string(bank.numBuckets()) + " differs from the table's " +
                   std::to_string(table.numBuckets()) +
                   (larger ? ": the bank's last ids are past the table's capacity"
                           : ": the table counts slots that the bank does not have")});
  }
}

void checkEntryTypes(const MultiEntryTypeHashTable& table, const MultiEntryTypeBank& bank, ConfigurationCheck& check) {
  const U32 id = bank.bankId();
  for (const HashEntryType type : entryTypes) {
    const U32* width = bank.entrySizeFind(type);
    if (width == nullptr || *width == 0 || bank.bucketSize() == 0) continue;
    // A type whose runs do not divide the bucket is not the bank's to serve; the request
    // check names it for the keys of that type.
    if (bank.bucketSize() % *width != 0) continue;
    if (bank.numBucketsToCheck(type) > 1 && !table.debugEnabled() && bank.selectsBuckets()) {
      const U32 last = bank.lastBucketReached(type);
      if (last >= bank.numBuckets()) {
        check.add({ConfigurationRule::groupPastBank,
                   pastEndOf(table, id),
                   id,
                   {},
                   "a " + stringValue(type) + " key's group of " + std::to_string(bank.numBucketsToCheck(type)) +
                       " buckets reaches bucket " + std::to_string(last) + ", past the bank's " +
                       std::to_string(bank.numBuckets()) + " buckets"});
      }
    }
  }
}

}  // namespace

ConfigurationCheck MultiEntryTypeHashTable::configurationCheck() const {
  ConfigurationCheck check = MultiHashTableBase::configurationCheck();
  checkTableShape(*this, check);
  std::bitset<256> physical;
  for (U32 b = 0; b < numBanks(); ++b) {
    const MultiEntryTypeBank* bank = bankFind(b);
    if (bank == nullptr) {
      check.add({ConfigurationRule::missingBank, ConfigurationConsequence::stopsNow, b, condition::bankExists,
                 "missing: every bank below numBanks must exist before a key is placed"});
      continue;
    }
    checkBucketGeometry(*this, *bank, check);
    checkEntryTypes(*this, *bank, check);
    // The debug rule takes buckets from the caller, not from the hash function.
    if (!debugEnabled_) detail::checkBankSelection(*bank, bank->numBuckets(), pastEndOf(*this, b), check);
    if (bank->phyBankId() < physical.size()) {
      if (physical.test(bank->phyBankId())) {
        check.add({ConfigurationRule::sharedPhysicalBank,
                   ConfigurationConsequence::corrupts,
                   b,
                   {},
                   "phyBankId " + std::to_string(bank->phyBankId()) +
                       " is another bank's too: two entries meet at one hardware position"});
      }
      physical.set(bank->phyBankId());
    }
  }
  return check;
}

}  // namespace TesselCentral
