// The multi-width bank: geometry per base type, bucket group alignment, the bucket state
// word, the free-space search and bucket locks.
#include <gtest/gtest.h>

#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::dbl;
using test::levelBit;
using test::quad;
using test::single;
using test::TraceCapture;

Ptr<MultiEntryTypeBank> bankOf(HashEntryType base, U32 bucketSize = 4, U32 phyBankId = 1, bool twoBucketMode = false,
                               U32 bankId = 0) {
  return multiEntryTypeBankFactory(base, bankId, 256, bucketSize, HashFunc::hashCrc32Lower, 0, 0, 0xFF, phyBankId,
                                   twoBucketMode);
}

struct GeometryRow {
  U32 shift;
  U32 toCheck;
  U32 size;
  U32 mask;
};

void expectRow(const MultiEntryTypeBank& b, HashEntryType t, GeometryRow row) {
  SCOPED_TRACE(stringValue(t));
  ASSERT_NE(b.bucketShiftFind(t), nullptr);
  EXPECT_EQ(b.bucketShift(t), row.shift);
  EXPECT_EQ(b.numBucketsToCheck(t), row.toCheck);
  EXPECT_EQ(b.entrySize(t), row.size);
  EXPECT_EQ(b.entryMask(t), row.mask);
}

// ---------------------------------------------------------------------------------------
// Construction and geometry

TEST(MultiEntryTypeBank, ConstructionStoresTheTenArgumentsAndRunsHandleInitialized) {
  TraceCapture trace(levelBit(1));
  auto b = multiEntryTypeBankFactory(dbl, 3, 64, 2, HashFunc::hashCrc16Lower, 5, 6, 0x3F, 7, true);
  EXPECT_EQ(b->baseEntryType(), dbl);
  EXPECT_EQ(b->bankId(), 3u);
  EXPECT_EQ(b->numBuckets(), 64u);
  EXPECT_EQ(b->bucketSize(), 2u);
  EXPECT_EQ(b->hashFunc(), HashFunc::hashCrc16Lower);
  EXPECT_EQ(b->hashOffSet(), 5u);
  EXPECT_EQ(b->hashBits(), 6u);
  EXPECT_EQ(b->hashMask(), 0x3Fu);
  EXPECT_EQ(b->phyBankId(), 7u);
  EXPECT_TRUE(b->doubleEntryTwoBucketMode());
  EXPECT_TRUE(b->initialized());
  EXPECT_EQ(b->references(), 1u);
  EXPECT_TRUE(b->bucketCollection().empty());
  EXPECT_EQ(b->lockedBucketss(), 0u);
  EXPECT_EQ(trace.texts(1), std::vector<std::string>{"void TesselCentral::MultiEntryTypeBank::handleInitialized()"});
}

TEST(MultiEntryTypeBank, SingleWideBaseWithoutTwoBucketModeKeepsEveryTypeInOneBucket) {
  auto b = bankOf(single, 4, 1, false);
  expectRow(*b, single, {0, 1, 1, 0x1});
  expectRow(*b, dbl, {0, 1, 2, 0x3});
  expectRow(*b, quad, {0, 1, 4, 0xF});
  EXPECT_EQ(b->bucketShiftCollection().size(), 3u);
}

TEST(MultiEntryTypeBank, SingleWideBaseInTwoBucketModeSpreadsDoubleOverTwoAndQuadOverFourBuckets) {
  auto b = bankOf(single, 4, 1, true);
  expectRow(*b, single, {0, 1, 1, 0x1});
  expectRow(*b, dbl, {1, 2, 2, 0x3});
  expectRow(*b, quad, {2, 4, 4, 0xF});
}

TEST(MultiEntryTypeBank, DoubleWideBaseHasRowsForDoubleAndQuadOnly) {
  auto off = bankOf(dbl, 2, 1, false);
  expectRow(*off, dbl, {0, 1, 1, 0x1});
  expectRow(*off, quad, {0, 1, 2, 0x3});
  EXPECT_EQ(off->entrySizeFind(single), nullptr);
  auto on = bankOf(dbl, 2, 1, true);
  expectRow(*on, dbl, {0, 1, 1, 0x1});
  expectRow(*on, quad, {1, 2, 2, 0x3});
}

TEST(MultiEntryTypeBank, QuadWideBaseHasOnlyTheQuadRow) {
  auto b = bankOf(quad, 1, 1, true);
  expectRow(*b, quad, {0, 1, 1, 0x1});
  EXPECT_EQ(b->numBucketsToCheckCollection().size(), 1u);
}

TEST(MultiEntryTypeBankDeathTest, AnEmptyBaseEntryTypeFailsTheNonEmptyAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(bankOf(HashEntryType::empty), assertionFailure("0 && \"BaseEntryType should be non empty\""));
}

// ---------------------------------------------------------------------------------------
// calcBucketId

TEST(MultiEntryTypeBank, TwoBucketModeClearsTheLowTwoBitsForQuadAndTheLowBitForDouble) {
  auto b = multiEntryTypeBankFactory(single, 0, 256, 4, HashFunc::hashCrc32Lower, 0, 0, 0xFF, 1, true);
  // ((hashMask >> s) & raw) << s with raw 0x37: the group number from the low bits of
  // the index, times the group size.
  EXPECT_EQ(b->calcBucketId(0, 0x1237, single, false, 0), 0x37u);
  EXPECT_EQ(b->calcBucketId(0, 0x1237, dbl, false, 0), 0x6Eu);
  EXPECT_EQ(b->calcBucketId(0, 0x1237, quad, false, 0), 0xDCu);
  EXPECT_EQ(b->calcBucketId(0, 0x05, quad, false, 0), 0x14u);
}

TEST(MultiEntryTypeBank, WithoutTwoBucketModeEveryTypeKeepsTheMaskedIndex) {
  auto b = bankOf(single, 4, 1, false);
  EXPECT_EQ(b->calcBucketId(0, 0x1237, quad, false, 0), 0x37u);
}

TEST(MultiEntryTypeBank, AlignmentStaysInsideTheMask) {
  // Mask 0x0F: (0x0F >> 2) & 0x0F = 0x3, shifted back gives 0xC, the last group of four.
  auto b = multiEntryTypeBankFactory(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 0x0F, 1, true);
  EXPECT_EQ(b->calcBucketId(0, 0xFF, quad, false, 0), 0xCu);
  EXPECT_EQ(b->calcBucketId(0, 0xFF, dbl, false, 0), 0xEu);
}

TEST(MultiEntryTypeBank, ATypeWithoutAShiftRowIsOnlyMasked) {
  auto b = multiEntryTypeBankFactory(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 0x0F, 1, true);
  EXPECT_EQ(b->calcBucketId(0, 0x37, static_cast<HashEntryType>(3), false, 0), 0x7u);
}

TEST(MultiEntryTypeBank, DebugRuleTakesTheBucketFromDebugCrcIncBeforeAlignment) {
  auto b = multiEntryTypeBankFactory(single, 0, 256, 4, HashFunc::hashCrc32Lower, 52, 0, 0xFFFF, 1, true);
  // Bit 11 comes from the shifted top bit: raw 0x807, then (0x3FFF & 0x807) << 2.
  EXPECT_EQ(b->calcBucketId(0, 0x1234, quad, true, 7), 0x201Cu);
  EXPECT_EQ(b->calcBucketId(0, 0x1234, single, true, 7), 0x807u);
}

TEST(MultiEntryTypeBank, CalcBucketIdTracesTheBanksComputationThenTheAlignedBucket) {
  auto b = multiEntryTypeBankFactory(single, 2, 256, 4, HashFunc::hashCrc32Lower, 0, 0, 0xFF, 1, true);
  TraceCapture trace(levelBit(2));
  b->calcBucketId(0, 0x1237, dbl, false, 0);
  EXPECT_EQ(trace.texts(2), (std::vector<std::string>{"Bank::calcBucketId bucketId: 55",
                                                      "MultiEntryTypeBank::calcBucketId bankId: 2 bucketId: 110"}));
}

TEST(MultiEntryTypeBankDeathTest, CalcBucketIdOfATypeNarrowerThanTheBaseFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto b = bankOf(dbl, 2);
  EXPECT_DEATH(b->calcBucketId(0, 1, single, false, 0), assertionFailure("( U32 )entryType >= ( U32 )baseEntryType()"));
}

// ---------------------------------------------------------------------------------------
// Bucket state

TEST(MultiEntryTypeBank, DoubleWideAtSlotTwoOfAnEmptyBucketGivesState0x2200000C) {
  auto b = bankOf(single);
  b->updateBucketState(dbl, 9, 2, true);
  EXPECT_EQ(b->bucket(9), 0x2200000Cu);
  EXPECT_EQ(b->getEntryType(9, 2), dbl);
  EXPECT_EQ(b->getEntryType(9, 3), dbl);
  EXPECT_EQ(b->getEntryType(9, 0), HashEntryType::empty);
  EXPECT_EQ(b->getEntryType(9, 1), HashEntryType::empty);
}

TEST(MultiEntryTypeBank, SingleWideAtSlotZeroBesideThatDoubleGivesState0x2201000D) {
  auto b = bankOf(single);
  b->updateBucketState(dbl, 9, 2, true);
  b->updateBucketState(single, 9, 0, true);
  EXPECT_EQ(b->bucket(9), 0x2201000Du);
  EXPECT_EQ(b->getEntryType(9, 0), single);
}

TEST(MultiEntryTypeBank, QuadWideAtSlotZeroOfASingleWideBankSetsState0x4444000F) {
  auto b = bankOf(single);
  b->updateBucketState(quad, 4, 0, true);
  EXPECT_EQ(b->bucket(4), 0x4444000Fu);
}

TEST(MultiEntryTypeBank, QuadWideInADoubleWideBankCoversTwoBaseSlots) {
  auto b = bankOf(dbl, 2);
  b->updateBucketState(quad, 4, 0, true);
  EXPECT_EQ(b->bucket(4), 0x00440003u);
  EXPECT_EQ(b->getEntryType(4, 1), quad);
}

TEST(MultiEntryTypeBank, RemovingTheLastEntryOfABucketDeletesItsStateAndTheSlotReadsEmpty) {
  auto b = bankOf(single);
  b->updateBucketState(dbl, 9, 2, true);
  b->updateBucketState(single, 9, 0, true);
  b->updateBucketState(dbl, 9, 2, false);
  EXPECT_EQ(b->bucket(9), 0x00010001u);
  b->updateBucketState(single, 9, 0, false);
  EXPECT_FALSE(b->bucketHas(9));
  EXPECT_EQ(b->getEntryType(9, 0), HashEntryType::empty);
  EXPECT_TRUE(b->bucketCollection().empty());
}

TEST(MultiEntryTypeBank, RemovalClearsTheUpperHalfAndDoesNotCheckThatSlotsWereUsed) {
  auto b = bankOf(single);
  b->bucketIs(3, 0xABCD00000001000Full);
  b->updateBucketState(single, 3, 2, false);
  // Slot 2's bit and nibble go, the unused upper half is cleared by the 32-bit mask.
  EXPECT_EQ(b->bucket(3), 0x000000000001000Bu);
}

TEST(MultiEntryTypeBank, UpdateBucketStateTracesTheStateBeforeAndAfter) {
  auto b = bankOf(single, 4, 1, false, 5);
  b->updateBucketState(single, 9, 0, true);
  TraceCapture trace(levelBit(2));
  b->updateBucketState(dbl, 9, 2, true);
  EXPECT_EQ(trace.texts(2),
            (std::vector<std::string>{
                "MultiEntryTypeBank::updateBucketState bankId 5 entryType: doubleWide bucketId: 9 bucketState: 0x10001 "
                "slot: 2 add: true",
                "MultiEntryTypeBank::updateBucketState entryType: doubleWide bucketId: 9 bucketState: 0x2201000d "
                "mask: 0xc slot: 2 add: true"}));
}

TEST(MultiEntryTypeBankDeathTest, AddingOverAnOccupiedSlotFailsEvenForTheSameType) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto b = bankOf(single);
  b->updateBucketState(single, 9, 1, true);
  EXPECT_DEATH(b->updateBucketState(single, 9, 1, true), assertionFailure("\"!( bktState & mask )\" == nullptr"));
  EXPECT_DEATH(b->updateBucketState(single, 9, 1, true), "updateBucketState bktState: 0x100002 mask 0x2");
}

TEST(MultiEntryTypeBankDeathTest, UpdateBucketStateOfATypeNarrowerThanTheBaseFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto b = bankOf(quad, 1);
  EXPECT_DEATH(b->updateBucketState(dbl, 0, 0, true), assertionFailure("( int )entryType >= ( int )baseEntryType()"));
}

TEST(MultiEntryTypeBankDeathTest, AddingATypeWithoutARowLeavesStateZeroAndFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto b = bankOf(single);
  EXPECT_DEATH(b->updateBucketState(static_cast<HashEntryType>(3), 0, 0, true), assertionFailure("bktState"));
}

// ---------------------------------------------------------------------------------------
// checkBucketSpace

TEST(MultiEntryTypeBank, InBucketZeroOfPhysicalBankZeroASingleWideEntryNeverGetsSlotZero) {
  auto b = bankOf(single, 4, 0);
  EXPECT_EQ(b->checkBucketSpace(single, 0, true), 0x00000001u);
  EXPECT_EQ(b->getEntryType(0, 0), HashEntryType::empty);
  EXPECT_EQ(b->checkBucketSpace(single, 1, false), 0x00000010u);
}

TEST(MultiEntryTypeBank, InABankWhosePhysicalIdIsNotZeroSlotZeroOfBucketZeroIsUsedFirst) {
  auto b = bankOf(single, 4, 3, false, 2);
  EXPECT_EQ(b->checkBucketSpace(single, 0, false), 0x02000000u);
}

TEST(MultiEntryTypeBank, WithSlotZeroUsedADoubleWideSearchReturnsSlotTwoNotSlotOne) {
  auto b = bankOf(single, 4, 1, false, 1);
  b->updateBucketState(single, 6, 0, true);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), 0x01000062u);
}

TEST(MultiEntryTypeBank, WithUpdateTheFoundSlotsAreMarkedUsed) {
  auto b = bankOf(single);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, true), 0x00000060u);
  EXPECT_EQ(b->bucket(6), 0x00220003u);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, true), 0x00000062u);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), INVALID_POSITION);
}

TEST(MultiEntryTypeBank, InTwoBucketModeADoubleWideSearchInAFullFirstBucketFindsTheSecond) {
  auto b = bankOf(single, 4, 1, true);
  b->updateBucketState(quad, 6, 0, true);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), 0x00000070u);
}

TEST(MultiEntryTypeBank, WithoutTwoBucketModeADoubleWideSearchInAFullBucketFails) {
  auto b = bankOf(single, 4, 1, false);
  b->updateBucketState(quad, 6, 0, true);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), INVALID_POSITION);
}

TEST(MultiEntryTypeBank, ARunThatHangsOverTheEndOfAThreeSlotBucketIsAccepted) {
  auto b = bankOf(single, 3);
  b->updateBucketState(dbl, 6, 0, true);
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), 0x00000062u);
}

TEST(MultiEntryTypeBank, OnlyTheOccupancyBitsDecideFreeSpace) {
  auto b = bankOf(single);
  b->bucketIs(6, 0x11110000u);  // type nibbles without occupancy bits
  EXPECT_EQ(b->checkBucketSpace(single, 6, false), 0x00000060u);
}

TEST(MultiEntryTypeBank, OnFailureTheLevelTwoTraceShowsBucketZeroAndTheLastBucketsState) {
  auto b = bankOf(single, 4, 1, true, 1);
  b->updateBucketState(quad, 6, 0, true);
  b->updateBucketState(quad, 7, 0, true);
  b->updateBucketState(single, 7, 0, false);  // 0x4440000E: slot 0 free, but a double needs 0 and 1
  TraceCapture trace(levelBit(2) | levelBit(9));
  EXPECT_EQ(b->checkBucketSpace(dbl, 6, false), INVALID_POSITION);
  EXPECT_EQ(trace.texts(9), std::vector<std::string>{
                                "MultiEntryTypeBank::checkBucketSpace bankId 1 numBucketToCheck: 2 size: 2 mask: 3"});
  EXPECT_EQ(trace.texts(2),
            std::vector<std::string>{"MultiEntryTypeBank::checkBucketSpace bankId 1 entryType: doubleWide bucketId: 0 "
                                     "bucketState: 0x4440000e mask: 0x3 slot: 0 update: false found false"});
}

TEST(MultiEntryTypeBank, OnSuccessTheLevelTwoTraceShowsTheBucketTheMaskAndTheSlot) {
  auto b = bankOf(single, 4, 1, false, 1);
  b->updateBucketState(single, 6, 0, true);
  TraceCapture trace(levelBit(2));
  b->checkBucketSpace(dbl, 6, false);
  EXPECT_EQ(trace.texts(2),
            std::vector<std::string>{"MultiEntryTypeBank::checkBucketSpace bankId 1 entryType: doubleWide bucketId: 6 "
                                     "bucketState: 0x10001 mask: 0xc slot: 2 update: false found true"});
}

TEST(MultiEntryTypeBankDeathTest, CheckBucketSpaceOfATypeNarrowerThanTheBaseFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto b = bankOf(dbl, 2);
  EXPECT_DEATH(b->checkBucketSpace(single, 0, false), assertionFailure("( int )entryType >= ( int )baseEntryType()"));
}

// ---------------------------------------------------------------------------------------
// Bucket locks

TEST(MultiEntryTypeBank, BucketsLockedLooksAtEveryBucketOfTheTypesGroup) {
  auto b = bankOf(single, 4, 1, true);
  b->lockedBucketsIs(7);
  EXPECT_TRUE(b->bucketsLocked(4, quad));
  EXPECT_FALSE(b->bucketsLocked(4, dbl));
  EXPECT_TRUE(b->bucketsLocked(6, dbl));
  EXPECT_TRUE(b->bucketsLocked(7, single));
  EXPECT_FALSE(b->bucketsLocked(8, quad));
  b->lockedBucketsDel(7);
  EXPECT_FALSE(b->bucketsLocked(4, quad));
}

TEST(MultiEntryTypeBank, BucketsLockedOfAGroupWhoseLastBucketIdWrapsPastTheTopIsFalse) {
  auto b = bankOf(single, 4, 1, true);
  b->lockedBucketsIs(0);
  b->lockedBucketsIs(0xFFFFFFFF);
  // 0xFFFFFFFF + 2 - 1 wraps to 0: the group is empty, whatever is locked.
  EXPECT_FALSE(b->bucketsLocked(0xFFFFFFFF, dbl));
  EXPECT_FALSE(b->bucketsLocked(0xFFFFFFFD, quad));
  EXPECT_TRUE(b->bucketsLocked(0xFFFFFFFF, single));
  EXPECT_TRUE(b->bucketsLocked(0xFFFFFFFE, dbl));
}

TEST(MultiEntryTypeBank, BucketsLockedOfATypeWithoutANumBucketsToCheckRowIsFalseEvenWhenTheBucketIsLocked) {
  auto b = bankOf(dbl, 2);
  b->lockedBucketsIs(5);
  b->lockedBucketsIs(0);
  EXPECT_FALSE(b->bucketsLocked(5, single));
  EXPECT_FALSE(b->bucketsLocked(0, single));
  EXPECT_TRUE(b->bucketsLocked(5, dbl));
}

TEST(MultiEntryTypeBank, LockingABucketTwiceKeepsOneMember) {
  auto b = bankOf(single);
  b->lockedBucketsIs(3);
  b->lockedBucketsIs(3);
  EXPECT_EQ(b->lockedBucketss(), 1u);
  b->lockedBucketsDelAll();
  EXPECT_EQ(b->lockedBucketss(), 0u);
}

}  // namespace
}  // namespace TesselCentral
