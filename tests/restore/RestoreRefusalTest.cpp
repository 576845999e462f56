// Each reason why a saved placement is refused, by its own test: the check names it, and the
// table, its requests and its results stay exactly as they were, with nothing published.
#include <gtest/gtest.h>

#include "../multiwidth/MultiWidthSupport.h"
#include "RestoreSupport.h"

namespace TesselCentral {
namespace {

using test::stateOf;

// Two banks of 8 one-slot buckets: a key's candidates are id crc32 & 7 in bank 0 and
// 8 + (crc16 & 7) in bank 1.
struct SingleWidth {
  SingleWidth() : config(hashEntryConfigFactory()), status(hashEntryStatusFactory()) {
    table = multiHashTableFactory(2, 8, 1, config, status, 1, false);
    table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
    table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 7);
    table->hasNotificationActiveIs(false);
  }
  Ptr<HashEntryConfig> config;
  Ptr<HashEntryStatus> status;
  Ptr<MultiHashTable> table;
};

const HashEntryKey a(1, 2, 0, HashEntryType::singleWide);  // ids 2 and 9
const HashEntryKey b(3, 3, 0, HashEntryType::singleWide);  // ids 3 and 11
const HashEntryKey c(3, 2, 0, HashEntryType::singleWide);  // ids 2 and 11
const std::string aText = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}";
const std::string cText = "TesselCentral::HashEntryKey{crc16=3, crc32=2, fapId=0, entryType=singleWide}";

// Restores and expects a refusal with exactly `text`, leaving the table as it was.
void expectRefused(MultiHashTableBase& table, const SavedPlacement& saved, const std::string& text) {
  const test::TableState before = stateOf(table);
  test::ChangeRecorder publications(*table.hashEntryStatus());
  const RestoreCheck alone = table.restoreCheck(saved);
  EXPECT_EQ(alone.text(), text);
  const RestoreCheck check = table.restore(saved);
  EXPECT_FALSE(check.passes());
  EXPECT_EQ(check.text(), text);
  EXPECT_EQ(check.problem(), text);
  EXPECT_EQ(check.keys(), 0u);
  EXPECT_EQ(stateOf(table), before);
  EXPECT_TRUE(publications.changes.empty());
}

TEST(RestoreRefusal, AnIdOutsideTheKeysCandidates) {
  SingleWidth t;
  t.config->configIs(a, EntryId());
  expectRefused(*t.table, {{a, EntryId(5)}},
                "not a candidate: key " + aText + " at id 5: the id is not one of the key's candidate slots");
}

TEST(RestoreRefusal, TwoKeysOnOneId) {
  SingleWidth t;
  t.config->configIs(a, EntryId());
  t.config->configIs(c, EntryId());
  expectRefused(*t.table, {{a, EntryId(2)}, {c, EntryId(2)}},
                "shared id: key " + cText + " at id 2: key " + aText + " is saved at the same id");
}

TEST(RestoreRefusal, AKeyWithoutARequest) {
  SingleWidth t;
  expectRefused(
      *t.table, {{a, EntryId(2)}},
      "no request: key " + aText + " saved at id 2 has no request: write every saved key's request before the restore");
}

TEST(RestoreRefusal, AKeySavedTwice) {
  SingleWidth t;
  t.config->configIs(a, EntryId());
  expectRefused(*t.table, {{a, EntryId(2)}, {a, EntryId(9)}},
                "saved twice: key " + aText + " is saved at id 2 and again at id 9");
}

TEST(RestoreRefusal, ATableThatAlreadyHoldsResults) {
  // Requests written while the table listens are placed at once: the table is no longer
  // empty, and the placement it would take over is refused.
  SingleWidth t;
  t.table->hasNotificationActiveIs(true);
  t.config->configIs(a, EntryId(9));
  ASSERT_EQ(t.status->status(a), EntryId(9));
  expectRefused(*t.table, {{a, EntryId(9)}},
                "table not empty: the table holds 1 result(s) and 1 recorded id(s): a restore takes over an empty "
                "table");
}

TEST(RestoreRefusal, ATableItsConfigurationCheckRefuses) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableFactory(2, 8, 1, config, status, 1, false);
  table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
  table->hasNotificationActiveIs(false);
  config->configIs(a, EntryId());
  ASSERT_EQ(table->configurationCheck().problems().size(), 1u);
  expectRefused(*table, {{a, EntryId(2)}}, "configuration: " + table->configurationCheck().problems()[0].text());
  EXPECT_TRUE(table->restoreCheck(SavedPlacement{{a, EntryId(2)}}).has(RestoreRule::configuration));
}

TEST(RestoreRefusal, NamesEveryProblemAtOnce) {
  SingleWidth t;
  t.config->configIs(a, EntryId());
  t.config->configIs(c, EntryId());
  expectRefused(*t.table, {{a, EntryId(9)}, {b, EntryId(3)}, {c, EntryId(9)}, {a, EntryId(2)}, {c, EntryId(4)}},
                "no request: key TesselCentral::HashEntryKey{crc16=3, crc32=3, fapId=0, entryType=singleWide} saved "
                "at id 3 has no request: write every saved key's request before the restore\n"
                "not a candidate: key " +
                    cText + " at id 9: the id is not one of the key's candidate slots\n" + "saved twice: key " + aText +
                    " is saved at id 9 and again at id 2\n" + "saved twice: key " + cText +
                    " is saved at id 9 and again at id 4");
}

// Two banks of 16 buckets of 4 slots, bank 0 on physical bank 0: a key's candidate runs are
// in bucket crc32 & 15 of bank 0 (ids from 4 * bucket) and crc16 & 15 of bank 1 (from 64).
struct MultiWidth : test::MultiWidthTable {
  MultiWidth() : test::MultiWidthTable(4, 1, test::twoBanks(4, 0, 1)) { table->hasNotificationActiveIs(false); }
};

const HashEntryKey quad(1, 2, 0, HashEntryType::quadWide);    // ids 8 and 68
const HashEntryKey dbl(1, 2, 0, HashEntryType::doubleWide);   // ids 8, 10 and 68, 70
const HashEntryKey one(5, 2, 0, HashEntryType::singleWide);   // ids 8 to 11 and 84 to 87
const HashEntryKey zero(2, 0, 0, HashEntryType::singleWide);  // ids 1 to 3 and 72 to 75
const std::string quadText = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=quadWide}";
const std::string dblText = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=doubleWide}";
const std::string oneText = "TesselCentral::HashEntryKey{crc16=5, crc32=2, fapId=0, entryType=singleWide}";
const std::string zeroText = "TesselCentral::HashEntryKey{crc16=2, crc32=0, fapId=0, entryType=singleWide}";

TEST(RestoreRefusal, AWideKeyNotAlignedToItsWidth) {
  MultiWidth t;
  t.request(dbl);
  expectRefused(*t.table, {{dbl, EntryId(9)}},
                "not aligned: key " + dblText +
                    " at id 9: the id names slot 1 of bucket 2 of bank 0, where no entry 2 slots wide starts");
}

TEST(RestoreRefusal, TheIdTheTableReserves) {
  MultiWidth t;
  t.request(zero);
  expectRefused(*t.table, {{zero, EntryId(0)}},
                "reserved id: key " + zeroText +
                    " at id 0: the id names slot 0 of bucket 0 of bank 0, the first slot of physical bank 0, which "
                    "the table never hands out");
}

TEST(RestoreRefusal, AWideKeyOverlappingAnother) {
  MultiWidth t;
  t.request(quad);
  t.request(one);
  expectRefused(*t.table, {{quad, EntryId(8)}, {one, EntryId(10)}},
                "overlapping run: key " + oneText + " at id 10 covers id 10 of key " + quadText + " at id 8");
}

TEST(RestoreRefusal, AMultiWidthIdOutsideTheKeysBuckets) {
  MultiWidth t;
  t.request(one);
  expectRefused(*t.table, {{one, EntryId(20)}},
                "not a candidate: key " + oneText + " at id 20: the id lies in none of the key's candidate buckets");
}

TEST(RestoreRefusal, AnIdPastTheLastRunOfItsBucket) {
  // Id 12 closes the range of ids of bucket 2 that a request may name, but it is the id of
  // bucket 3's first slot: no placement anywhere publishes it for the key.
  MultiWidth t;
  t.request(one);
  expectRefused(*t.table, {{one, EntryId(12)}},
                "not a candidate: key " + oneText +
                    " at id 12: the id lies past the last run of the key's width in bucket 2 of bank 0: only a "
                    "request at that id publishes it");
}

}  // namespace
}  // namespace TesselCentral
