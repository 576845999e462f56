// The single-width table's configuration rules: every bank present and built for
// single-width entries, with the table's own figures, selecting only buckets whose ids
// the table lays out for it.
#include <string>

#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

namespace TesselCentral {

namespace {

// What the buckets of a bank past its laid out ones do, up to lastBucket: their ids are
// outside the table when the row of lastBucket (a row being one bucket of one bank, laid out
// as the table lays out its ids) is past the table's rows; before that they are another
// bank's ids, or the bank's own for buckets that the chip's bank, with fewer buckets than
// the table, does not have.
ConfigurationConsequence pastEndOf(const MultiHashTable& table, U32 bankId, U32 lastBucket) {
  const U64 rows = U64{table.numBanks()} * table.numBuckets();
  const U64 row = table.bucketSpanBanks() ? U64{lastBucket} * table.numBanks() + bankId
                                          : U64{bankId} * table.numBuckets() + lastBucket;
  return row >= rows ? ConfigurationConsequence::publishesOutside : ConfigurationConsequence::corrupts;
}

// Whether a key's first placement reaches the bank: it takes the first free slot of its
// walk, bank 0's first, unless the buckets have no slot.
bool reachedFirst(const MultiHashTable& table, U32 bankId) { return bankId == 0 || table.numBucketEntries() == 0; }

void checkBank(const MultiHashTable& table, const Bank& bank, ConfigurationCheck& check) {
  const U32 id = bank.bankId();
  if (bank.baseEntryType() != HashEntryType::singleWide) {
    check.add({ConfigurationRule::wideBaseType,
               ConfigurationConsequence::corrupts,
               id,
               {},
               "baseEntryType " + stringValue(bank.baseEntryType()) +
                   ": the table gives every key one slot, where the chip's entry of that width takes more"});
  }
  if (bank.numBuckets() != table.numBuckets()) {
    check.add({ConfigurationRule::bucketsDisagree,
               ConfigurationConsequence::corrupts,
               id,
               {},
               "numBuckets " + std::to_string(bank.numBuckets()) + " differs from the table's " +
                   std::to_string(table.numBuckets()) + ", by which the table lays out the bank's ids"});
  }
  if (bank.bucketSize() != table.numBucketEntries()) {
    check.add({ConfigurationRule::slotsDisagree,
               ConfigurationConsequence::corrupts,
               id,
               {},
               "bucketSize " + std::to_string(bank.bucketSize()) + " differs from the table's numBucketEntries " +
                   std::to_string(table.numBucketEntries()) + ", by which the table places keys and lays out ids"});
  }
  detail::checkBankSelection(bank, std::min(bank.numBuckets(), table.numBuckets()), reachedFirst(table, id),
                             pastEndOf(table, id, bank.highestSelectableBucket()), check);
}

}  // namespace

ConfigurationCheck MultiHashTable::configurationCheck() const {
  ConfigurationCheck check = MultiHashTableBase::configurationCheck();
  // A slot's number travels as an 8-bit SlotId.
  if (numBucketEntries() > 256) {
    check.add(
        {ConfigurationRule::unsupportedBucketSize,
         ConfigurationConsequence::corrupts,
         std::nullopt,
         {},
         "numBucketEntries " + std::to_string(numBucketEntries()) + " is past the 256 slots that a SlotId numbers"});
  }
  for (U32 b = 0; b < numBanks(); ++b) {
    const Bank* bank = bankFind(b);
    if (bank == nullptr) {
      // A placement reads the bank when its walk reaches it: the first one, or the first
      // that finds no free slot in the banks below.
      check.add({ConfigurationRule::missingBank,
                 reachedFirst(*this, b) ? ConfigurationConsequence::stopsNow : ConfigurationConsequence::stopsLater,
                 b,
                 {},
                 "missing: every bank below numBanks must exist before a key is placed"});
      continue;
    }
    checkBank(*this, *bank, check);
  }
  return check;
}

}  // namespace TesselCentral
