// The consistency audits: a table that only its client's requests have touched audits
// clean, whatever the mix of requests; a table corrupted behind its back, through its
// public mutators, reports each kind of damage as its own line of text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

namespace TesselCentral {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::string text(const HashEntryKey& k) {
  std::ostringstream os;
  os << k;
  return os.str();
}

// ---------------------------------------------------------------------------------------
// Single width: 2 banks x 4 buckets x 2 slots, bank-major ids; bank 0 selects crc32 & 3,
// bank 1 crc16 & 3.

class SingleWidthAudit : public ::testing::Test {
 protected:
  SingleWidthAudit()
      : config(hashEntryConfigFactory()),
        status(hashEntryStatusFactory()),
        table(multiHashTableFactory(2, 4, 2, config, status, 1, false)) {
    table->bankIs(HashEntryType::singleWide, 0, 4, 2, HashFunc::hashCrc32Lower, 0, 0, 3);
    table->bankIs(HashEntryType::singleWide, 1, 4, 2, HashFunc::hashCrc16Lower, 0, 0, 3);
  }

  // k1 and k2 fill bank 0's bucket 2 (ids 4 and 5); k3 goes to bank 1's bucket 2 (id 12).
  void placeThree() {
    config->configIs(k1, EntryId());
    config->configIs(k2, EntryId());
    config->configIs(k3, EntryId());
    ASSERT_EQ(status->status(k1), EntryId(4));
    ASSERT_EQ(status->status(k2), EntryId(5));
    ASSERT_EQ(status->status(k3), EntryId(12));
    ASSERT_THAT(table->audit(), IsEmpty());
  }

  const HashEntryKey k1{1, 2, 0, HashEntryType::singleWide};
  const HashEntryKey k2{3, 2, 0, HashEntryType::singleWide};
  const HashEntryKey k3{2, 6, 0, HashEntryType::singleWide};
  const HashEntryKey stranger{7, 7, 0, HashEntryType::singleWide};
  Ptr<HashEntryConfig> config;
  Ptr<HashEntryStatus> status;
  Ptr<MultiHashTable> table;
};

TEST_F(SingleWidthAudit, AnEmptyTableAuditsClean) { EXPECT_THAT(table->audit(), IsEmpty()); }

TEST_F(SingleWidthAudit, AMixOfRequestsAuditsCleanAfterEveryRequest) {
  std::mt19937 rng(7);
  std::vector<HashEntryKey> requested;
  for (int step = 0; step < 3000; ++step) {
    const U32 choice = rng() % 10;
    if (choice < 4 && !requested.empty()) {
      const std::size_t at = rng() % requested.size();
      config->configDel(requested[at]);
      requested[at] = requested.back();
      requested.pop_back();
    } else if (choice < 6) {
      // A free candidate id of a new key, when its buckets have one.
      const HashEntryKey k(static_cast<U16>(rng() | 1), static_cast<U32>(rng()), 0, HashEntryType::singleWide);
      const U32 b = rng() % 2;
      const U32 bucket = table->bank(b)->calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
      const EntryId id = table->calcEntryId(b, bucket, SlotId(static_cast<U8>(rng() % 2)));
      if (table->hashTableEntryHas(id)) continue;
      config->configIs(k, id);
      requested.push_back(k);
    } else {
      const HashEntryKey k(static_cast<U16>(rng() | 1), static_cast<U32>(rng()), 0, HashEntryType::singleWide);
      config->configIs(k, EntryId());
      requested.push_back(k);
    }
    const std::vector<std::string> violations = table->audit();
    ASSERT_THAT(violations, IsEmpty()) << "step " << step;
  }
  EXPECT_GT(table->numMoves(), 0u);
  EXPECT_GT(table->numDeletions(), 0u);
}

TEST_F(SingleWidthAudit, AnIdAtOrAboveTheCapacityIsReported) {
  placeThree();
  table->hashTableEntryIs(EntryId(16), stranger);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("hashTableEntry: id 16 is at or above the capacity 16",
                                                   "counters: 4 recorded ids but insertions - deletions is 3"));
}

TEST_F(SingleWidthAudit, AStatusWhoseIdIsNotRecordedIsReported) {
  placeThree();
  table->hashTableEntryDel(EntryId(4));
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("status: TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, "
                                   "entryType=singleWide} names id 4, which hashTableEntry does not record"));
}

TEST_F(SingleWidthAudit, AStatusWhoseIdIsRecordedForAnotherKeyIsReported) {
  placeThree();
  table->hashTableEntryIs(EntryId(4), stranger);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("status: " + text(k1) +
                                                   " names id 4, which hashTableEntry records for " + text(stranger)));
}

TEST_F(SingleWidthAudit, AStatusWrittenBehindTheTablesBackIsReported) {
  placeThree();
  status->statusIs(stranger, EntryId(7));
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("status: " + text(stranger) + " names id 7, which hashTableEntry does not record"));
}

TEST_F(SingleWidthAudit, AnInvalidStatusIsNoViolation) {
  placeThree();
  status->statusIs(stranger, EntryId());
  EXPECT_THAT(table->audit(), IsEmpty());
}

TEST_F(SingleWidthAudit, CountersBelowTheRecordedIdsAreReported) {
  placeThree();
  table->numDeletionsInc(1);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("counters: 3 recorded ids but insertions - deletions is 2"));
}

TEST_F(SingleWidthAudit, AKeyKeptAtItsOldIdAfterARequestForAnotherAuditsClean) {
  placeThree();
  // k1 asked for at bank 1's slot of its bucket: its old id 4 stays recorded, by design.
  const EntryId other = table->calcEntryId(1, 1, SlotId(0));
  config->configIs(k1, other);
  ASSERT_EQ(status->status(k1), other);
  ASSERT_TRUE(table->hashTableEntryHas(EntryId(4)));
  EXPECT_THAT(table->audit(), IsEmpty());
  config->configDel(k1);
  EXPECT_THAT(table->audit(), IsEmpty());
}

// ---------------------------------------------------------------------------------------
// Multi width: 2 banks x 4 buckets x 4 slots; bank 0 (physical 0) selects crc32 & 3,
// bank 1 (physical 1) crc16 & 3.

class MultiWidthAudit : public ::testing::Test {
 protected:
  MultiWidthAudit()
      : config(hashEntryConfigFactory()),
        status(hashEntryStatusFactory()),
        table(multiEntryTypeHashTableFactory(2, 4, 4, config, status, 1)) {
    table->bankIs(HashEntryType::singleWide, 0, 4, 4, HashFunc::hashCrc32Lower, 0, 0, 3, 0, false);
    table->bankIs(HashEntryType::singleWide, 1, 4, 4, HashFunc::hashCrc16Lower, 0, 0, 3, 1, false);
    table->entryIdHelperIs(entryIdHelperFactory(table));
  }
  ~MultiWidthAudit() override { table->entryIdHelperIs(nullptr); }

  MultiEntryTypeBank& bank(U32 i) { return *table->bank(i); }

  // a: bank 0 bucket 1 slots 0-1 (position 0x10, id 4); b: bank 0 bucket 2 slot 0 (0x20,
  // id 8); c: bank 0 bucket 0, whose slot 0 is never handed out: slot 1 (0x1, id 1).
  void placeThree() {
    config->configIs(a, EntryId());
    config->configIs(b, EntryId());
    config->configIs(c, EntryId());
    ASSERT_EQ(table->keyToPos(a), 0x10u);
    ASSERT_EQ(table->keyToPos(b), 0x20u);
    ASSERT_EQ(table->keyToPos(c), 0x1u);
    ASSERT_EQ(status->status(a), EntryId(4));
    ASSERT_EQ(status->status(b), EntryId(8));
    ASSERT_EQ(status->status(c), EntryId(1));
    ASSERT_EQ(bank(0).bucket(1), 0x220003u);
    ASSERT_EQ(bank(0).bucket(2), 0x10001u);
    ASSERT_EQ(bank(0).bucket(0), 0x100002u);
    ASSERT_THAT(table->audit(), IsEmpty());
  }

  const HashEntryKey a{1, 1, 0, HashEntryType::doubleWide};
  const HashEntryKey b{2, 2, 0, HashEntryType::singleWide};
  const HashEntryKey c{3, 0, 0, HashEntryType::singleWide};
  const HashEntryKey stranger{3, 3, 0, HashEntryType::singleWide};
  Ptr<HashEntryConfig> config;
  Ptr<HashEntryStatus> status;
  Ptr<MultiEntryTypeHashTable> table;
};

TEST_F(MultiWidthAudit, AnEmptyTableAuditsClean) { EXPECT_THAT(table->audit(), IsEmpty()); }

TEST_F(MultiWidthAudit, AMixOfRequestsAuditsCleanAfterEveryRequest) {
  std::mt19937 rng(11);
  const HashEntryType widths[] = {HashEntryType::singleWide, HashEntryType::singleWide, HashEntryType::doubleWide,
                                  HashEntryType::quadWide};
  std::vector<HashEntryKey> requested;
  for (int step = 0; step < 3000; ++step) {
    const U32 choice = rng() % 10;
    if (choice < 4 && !requested.empty()) {
      const std::size_t at = rng() % requested.size();
      config->configDel(requested[at]);
      requested[at] = requested.back();
      requested.pop_back();
    } else if (choice < 6) {
      // A new key at the first slot of one of its buckets, when that run is free.
      const HashEntryKey k(static_cast<U16>(rng() | 1), static_cast<U32>(rng()), 0, widths[rng() % 4]);
      const U32 i = rng() % 2;
      const U32 bucket = bank(i).calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
      const U32 width = bank(i).entrySize(k.entryType());
      const U32 slot = (rng() % (4 / width)) * width;
      if (i == 0 && bucket == 0 && slot == 0) continue;  // physical bank 0's position 0
      if ((bank(i).bucket(bucket) & (((1u << width) - 1) << slot)) != 0) continue;
      // The id must lead back to this run: the lower bank's walk may claim it first.
      const U32 pos = packPosition(i, bucket, slot);
      const EntryId id = table->entryIdHelper()->posToEntryId(pos);
      if (table->entryIdHelper()->candidatePosition(k, id) != pos) continue;
      config->configIs(k, id);
      requested.push_back(k);
    } else {
      const HashEntryKey k(static_cast<U16>(rng() | 1), static_cast<U32>(rng()), 0, widths[rng() % 4]);
      config->configIs(k, EntryId());
      requested.push_back(k);
    }
    const std::vector<std::string> violations = table->audit();
    ASSERT_THAT(violations, IsEmpty()) << "step " << step;
  }
  EXPECT_GT(table->numMoves(), 0u);
  EXPECT_GT(table->numDeletions(), 0u);
}

TEST_F(MultiWidthAudit, APositionMissingFromPosToKeyIsReported) {
  placeThree();
  table->posToKeyDel(0x10);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("keyToPos: TesselCentral::HashEntryKey{crc16=1, crc32=1, fapId=0, "
                                                   "entryType=doubleWide} at 0x10 has no matching posToKey"));
}

TEST_F(MultiWidthAudit, APosToKeyEntryThatKeyToPosDoesNotShareIsReported) {
  placeThree();
  table->posToKeyIs(0x30, a);
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("posToKey: 0x30 holds " + text(a) + ", which keyToPos places elsewhere"));
}

TEST_F(MultiWidthAudit, ABucketStateThatDisagreesWithItsKeysIsReported) {
  placeThree();
  bank(0).bucketIs(1, 0x3);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("bank 0 bucket 1: state 0x3 but its keys make 0x220003"));
}

TEST_F(MultiWidthAudit, AMissingBucketStateIsReported) {
  placeThree();
  bank(0).bucketDel(2);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("bank 0 bucket 2: no state but its keys make 0x10001"));
}

TEST_F(MultiWidthAudit, ABucketStateWithoutKeysIsReported) {
  placeThree();
  bank(1).bucketIs(3, 0x10001);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("bank 1 bucket 3: state 0x10001 but its keys make 0x0"));
}

TEST_F(MultiWidthAudit, ALockLeftBehindIsReported) {
  placeThree();
  bank(1).lockedBucketsIs(2);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("bank 1: 1 buckets left locked"));
  bank(1).lockedBucketsDel(2);
  EXPECT_THAT(table->audit(), IsEmpty());
}

TEST_F(MultiWidthAudit, AMissingHashTableEntryIsReported) {
  placeThree();
  table->hashTableEntryDel(EntryId(4));
  EXPECT_THAT(table->audit(), UnorderedElementsAre("hashTableEntry: id 4 does not record " + text(a)));
}

TEST_F(MultiWidthAudit, AStatusThatDisagreesWithThePositionIsReported) {
  placeThree();
  status->statusIs(a, EntryId(5));
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("status: " + text(a) + " at 0x10 has id 5 but its position is id 4",
                                   "hashTableEntry: id 5 does not record " + text(a),
                                   "hashTableEntry: id 4 records " + text(a) + ", whose status differs"));
}

TEST_F(MultiWidthAudit, AStatusWithoutAPositionIsReported) {
  placeThree();
  status->statusIs(stranger, EntryId(9));
  EXPECT_THAT(table->audit(), UnorderedElementsAre("status: " + text(stranger) + " has id 9 but no position"));
}

TEST_F(MultiWidthAudit, APlacedKeyWithoutStatusIsReported) {
  placeThree();
  status->statusDel(b);
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("status: placed key " + text(b) + " has no valid status",
                                   "hashTableEntry: id 8 records " + text(b) + ", whose status differs"));
}

TEST_F(MultiWidthAudit, AnIdAtOrAboveTheCapacityIsReported) {
  placeThree();
  table->hashTableEntryIs(EntryId(table->tableCapacity()), a);
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("hashTableEntry: id 32 records " + text(a) + ", whose status differs"));
}

TEST_F(MultiWidthAudit, CountersThatDisagreeWithThePlacedKeysAreReported) {
  placeThree();
  table->numInsertionsInc(1);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("counters: insertions - deletions is 4 but 3 keys are placed"));
}

TEST_F(MultiWidthAudit, AKeyInABankTheTableDoesNotHaveIsReported) {
  placeThree();
  table->keyToPosIs(stranger, packPosition(7, 0, 0));
  EXPECT_THAT(table->audit(),
              UnorderedElementsAre("keyToPos: " + text(stranger) + " at 0x7000000 has no matching posToKey",
                                   "keyToPos: " + text(stranger) + " stands in bank 7, which the table does not have",
                                   "status: placed key " + text(stranger) + " has no valid status",
                                   "counters: insertions - deletions is 3 but 4 keys are placed"));
}

TEST_F(MultiWidthAudit, EveryKindOfDamageAtOnceIsReportedLineByLine) {
  placeThree();
  table->posToKeyDel(0x20);
  bank(0).bucketIs(1, 0x3);
  bank(1).lockedBucketsIs(0);
  table->numDeletionsInc(1);
  EXPECT_THAT(table->audit(), UnorderedElementsAre("keyToPos: " + text(b) + " at 0x20 has no matching posToKey",
                                                   "bank 0 bucket 1: state 0x3 but its keys make 0x220003",
                                                   "bank 1: 1 buckets left locked",
                                                   "counters: insertions - deletions is 2 but 3 keys are placed"));
}

TEST_F(MultiWidthAudit, AKeyAtTheIdOnePastItsBucketAuditsClean) {
  // The inclusive upper bound of a bucket's id range names slot 0 of that same bucket; the
  // client gets back the id it asked for, which the audit accepts for a requested id.
  const HashEntryKey k(1, 2, 0, HashEntryType::singleWide);  // bank 0 bucket 2: ids 8 to 12
  config->configIs(k, EntryId(12));
  ASSERT_EQ(table->keyToPos(k), 0x20u);
  ASSERT_EQ(status->status(k), EntryId(12));
  EXPECT_THAT(table->audit(), IsEmpty());
}

}  // namespace
}  // namespace TesselCentral
