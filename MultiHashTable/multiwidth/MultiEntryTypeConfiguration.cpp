// The multi-width table's configuration rules: an EntryIdHelper of its own, every bank
// present with the table's figures and a bucket that its state word and its id layout
// serve, groups that end inside their bank, and one physical bank per bank.
#include <algorithm>
#include <bitset>
#include <optional>
#include <string>

#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/multiwidth/EntryIdHelper.h"
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

namespace {

// A position keeps the bucket in 20 bits and the bank in 8; the first placement of a key
// passes bank 128 as the bank to avoid.
constexpr U32 positionBuckets = U32{1} << 20;
constexpr U32 positionBanks = 256;
constexpr U32 firstPlacementBanks = MultiHashTableBase::noBankToAvoid;

constexpr HashEntryType entryTypes[] = {HashEntryType::singleWide, HashEntryType::doubleWide, HashEntryType::quadWide};

// The id of slot `slot` of bucket `bucket` of a bank, as the EntryIdHelper lays ids out
// (the banks below it counted by their own slots), in 64 bits.
U64 idOf(const MultiEntryTypeHashTable& table, U32 bankId, U32 bucket, U32 slot) {
  U64 base = 0;
  for (U32 j = 0; j < bankId; ++j) {
    if (const MultiEntryTypeBank* b = table.bankFind(j)) base += U64{b->numBuckets()} * b->bucketSize();
  }
  return base + U64{bucket} * table.numBucketEntries() + slot;
}

U64 capacityOf(const MultiEntryTypeHashTable& table) {
  return U64{table.numBanks()} * table.numBuckets() * table.numBucketEntries();
}

// The highest id that a key reaches in a bank: the last slot of the last bucket it
// selects, or the last of its groups; nothing for a bank that selects no bucket or has no slot.
std::optional<U64> highestIdReached(const MultiEntryTypeHashTable& table, const MultiEntryTypeBank& bank) {
  if (bank.bucketSize() == 0 || (!table.debugEnabled() && !bank.selectsBuckets())) return std::nullopt;
  U32 last = table.debugEnabled() ? bank.hashMask() : bank.highestSelectableBucket();
  for (const HashEntryType type : entryTypes) {
    const U32* width = bank.entrySizeFind(type);
    if (width == nullptr || *width == 0 || bank.bucketSize() % *width != 0 || table.debugEnabled()) continue;
    last = std::max(last, bank.lastBucketReached(type));
  }
  return idOf(table, bank.bankId(), last, bank.bucketSize() - 1);
}

// What the buckets of a bank past its end do, up to lastBucket: ids past the table's
// capacity are outside it; below it they are the next bank's, or, in the last bank, name
// buckets that the chip's bank does not have.
ConfigurationConsequence pastEndOf(const MultiEntryTypeHashTable& table, const MultiEntryTypeBank& bank,
                                   U32 lastBucket) {
  const U32 lastSlot = bank.bucketSize() == 0 ? 0 : bank.bucketSize() - 1;
  return idOf(table, bank.bankId(), lastBucket, lastSlot) >= capacityOf(table)
             ? ConfigurationConsequence::publishesOutside
             : ConfigurationConsequence::corrupts;
}

// Whether any bank from bankId on publishes an id past the table's capacity.
bool publishesPastCapacity(const MultiEntryTypeHashTable& table, U32 bankId) {
  for (U32 j = bankId; j < table.numBanks(); ++j) {
    const MultiEntryTypeBank* b = table.bankFind(j);
    if (b == nullptr) continue;
    if (const std::optional<U64> id = highestIdReached(table, *b); id && *id >= capacityOf(table)) return true;
  }
  return false;
}

// Whether a key's first placement reaches the bank: every bank below it is missing.
bool reachedFirst(const MultiEntryTypeHashTable& table, U32 bankId) {
  for (U32 j = 0; j < bankId; ++j) {
    if (table.bankFind(j) != nullptr) return false;
  }
  return true;
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
    // A larger bank moves the ids of the banks above it up: past the table's capacity when
    // a key reaches their last slots.
    const bool larger = bank.numBuckets() > table.numBuckets();
    const bool outside = larger && publishesPastCapacity(table, id);
    check.add({ConfigurationRule::bucketsDisagree,
               outside ? ConfigurationConsequence::publishesOutside : ConfigurationConsequence::losesRoom,
               id,
               {},
               "numBuckets " + std::to_string(bank.numBuckets()) + " differs from the table's " +
                   std::to_string(table.numBuckets()) +
                   (outside  ? ": ids of the bank, or of the banks above it, are past the table's capacity"
                    : larger ? ": the table's capacity does not count the bank's last buckets"
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
                   pastEndOf(table, bank, last),
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
    if (!debugEnabled_) {
      detail::checkBankSelection(*bank, bank->numBuckets(), reachedFirst(*this, b),
                                 pastEndOf(*this, *bank, bank->highestSelectableBucket()), check);
    }
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
