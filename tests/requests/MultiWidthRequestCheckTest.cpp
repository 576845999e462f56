// The multi-width table's request check, removal check, resync check and reconcile: each
// verdict against what the table then does.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "../multiwidth/MultiWidthSupport.h"
#include "MultiHashTable/MultiHashTable.h"
#include "RequestAgreement.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

constexpr const char* walkFindsNoStart = "\"posToKeyHas( entryPos )\" == nullptr";

TEST(MultiWidthRequestCheck, AnIdAtTheInclusiveUpperEndOfABucketsRangeIsHazardous) {
  // Banks of 16 buckets of 4 slots: a key in bucket 5 of bank 0 accepts ids 20 to 24, and
  // id 24 names slot 0 of bucket 5, the position of id 20.
  MultiWidthTable t(4, 2, twoBanks(4));
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, single), EntryId(24));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_NE(verdict.reason().find("published at id 24 but stands at id 20's position"), std::string::npos)
      << verdict.reason();
  EXPECT_EQ(t.table->requestCheck(key(9, 5, single), EntryId(23)).outcome(), RequestOutcome::accepted);
}

TEST(MultiWidthRequestCheck, BucketsOfEightSlotsStopALaterPlacementOnEveryRequest) {
  // The bucket state word serves 4 slots: every request of such a table names the problem.
  MultiWidthTable t(8, 2, twoBanks(8));
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, single), EntryId(47));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsLater);
  EXPECT_EQ(verdict.condition(), "!posToKeyHas( pos )");
  EXPECT_NE(verdict.reason().find("bank 0: bucketSize 8 is past the 4 slots that a bucket's state word serves"),
            std::string::npos)
      << verdict.reason();
  EXPECT_EQ(t.table->requestCheck(key(9, 5, single), EntryId()).outcome(), RequestOutcome::stopsLater);
}

TEST(MultiWidthRequestCheck, AWideKeyAtASlotThatIsNotAMultipleOfItsWidthStopsLater) {
  MultiWidthTable t(4, 2, twoBanks(4));
  // A double key in bucket 5 of bank 0 accepts ids 20 to 22; id 21 names slot 1.
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, dbl), EntryId(21));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsLater);
  EXPECT_EQ(verdict.condition(), walkFindsNoStart);
  EXPECT_EQ(t.table->requestCheck(key(9, 5, dbl), EntryId(22)).outcome(), RequestOutcome::accepted);
}

TEST(MultiWidthRequestCheck, AWideKeyOnTheFirstSlotOfPhysicalBankZeroStopsLater) {
  MultiWidthTable t(4, 2, twoBanks(4, 0, 1));
  const RequestCheck verdict = t.table->requestCheck(key(9, 0, dbl), EntryId(0));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsLater);
  EXPECT_EQ(verdict.condition(), walkFindsNoStart);
  EXPECT_EQ(t.table->requestCheck(key(9, 0, single), EntryId(0)).outcome(), RequestOutcome::accepted);
}

TEST(MultiWidthRequestCheck, AWidthThatDoesNotDivideABanksBucketSizeStopsLater) {
  MultiWidthTable t(3, 2, twoBanks(3));
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, dbl), EntryId());
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsLater);
  EXPECT_EQ(verdict.condition(), "slotId < b->bucketSize()");
}

TEST(MultiWidthRequestCheck, AKeyNarrowerThanTheFirstBanksBaseStopsNow) {
  std::vector<BankArgs> banks = twoBanks(4);
  banks[0].base = dbl;
  MultiWidthTable t(4, 2, banks);
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, single), EntryId());
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "( U32 )entryType >= ( U32 )baseEntryType()");
}

TEST(MultiWidthRequestCheck, APlacedKeyAskedForAtAnotherIdStopsNowOnKeyToPosHas) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.place(key(9, 5, single), 20);
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, single), EntryId(21));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "!hashTable()->keyToPosHas( key )");
}

TEST(MultiWidthRequestCheck, APlacedKeyAskedForAnywhereWithoutABudgetOrRoomIsHazardous) {
  std::vector<BankArgs> banks = twoBanks(1);
  banks.resize(1);
  MultiWidthTable t(1, 0, banks);
  t.place(key(9, 5, single), 5);
  const RequestCheck verdict = t.table->requestCheck(key(9, 5, single), EntryId());
  EXPECT_EQ(verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_NE(verdict.reason().find("keeps its slots at id 5"), std::string::npos) << verdict.reason();
}

TEST(MultiWidthRequestCheck, ARemovalOfAKeyTheTableNeverHandledStopsNow) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->hasNotificationActiveIs(false);
  t.request(key(9, 5, single));
  t.table->hasNotificationActiveIs(true);
  const RequestCheck verdict = t.table->removalCheck(key(9, 5, single));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "hashEntryStatus()->statusHas( key )");
  // reconcile places it instead of stopping.
  const ReconcileReport report = t.table->reconcile();
  EXPECT_EQ(report.acted(), 1u);
  EXPECT_TRUE(t.status->status(key(9, 5, single)).isValid());
  EXPECT_TRUE(t.table->audit().empty());
}

// Random requests against multi-width tables of many shapes, every other one making room
// breadth-first: every verdict is held against what the reaction then does (see
// RequestAgreement.h).
TEST(MultiWidthRequestCheck, AgreesWithTheReactionOverRandomRequests) {
  std::mt19937 rng(7);
  const HashEntryType types[] = {single, single, dbl, quad};
  int executed = 0;
  for (int round = 0; round < 1000; ++round) {
    std::vector<BankArgs> banks;
    const U32 numBanks = 1 + rng() % 3;
    const U32 bucketSize = U32{1} << (rng() % 3);
    for (U32 i = 0; i < numBanks; ++i) {
      BankArgs b;
      b.base = rng() % 6 == 0 ? dbl : single;
      b.numBuckets = 8;
      b.bucketSize = bucketSize;
      b.hashFunc = i % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower;
      b.phyBankId = rng() % numBanks;
      b.twoBucketMode = rng() % 3 == 0;
      banks.push_back(b);
    }
    MultiWidthTable t(bucketSize, rng() % 5, banks);
    if (round % 2 == 1) t.table->moveSearchIs(MoveSearch::breadthFirst);
    executed += checkAgreement(*t.table, *t.config, *t.status, rng, [&](std::mt19937& r) {
      return HashEntryKey(static_cast<U16>(1 + r() % 8), static_cast<U32>(1 + r() % 8), 0, types[r() % 4]);
    });
  }
  EXPECT_GT(executed, 2500);
}

}  // namespace
}  // namespace TesselCentral::test
