// The single-width table's configuration rules: every bank present and built for
// single-width entries, with the table's own figures, selecting only buckets whose ids
// the table lays out for it.
#include <string>

#include "internal/ConditionTexts.h"
#include "singlewidth/SingleWidthTable.h"

namespace TesselCentral {

namespace {

// What a bucket past the table's numBuckets does: its ids are the next bank's slots in
// the bank-major layout, and past the capacity in the bucket-major one or in the last bank.
ConfigurationConsequence pastEndOf(const MultiHashTable& table, U32 bankId) {
  return table.bucketSpanBanks() || bankId + 1 >= table.numBanks() ? ConfigurationConsequence::publishesOutside
                                                                   : ConfigurationConsequence::corrupts;
}

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
  detail::checkBankSelection(bank, std::min(bank.numBuckets(), table.numBuckets()), pastEndOf(table, id), check);
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
      check.add({ConfigurationRule::missingBank,
                 ConfigurationConsequence::stopsNow,
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
