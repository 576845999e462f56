// The multi-width table's state: construction, banks, position maps, the helper link,
// teardown, the sanity check, and the free-position search.
#include <gtest/gtest.h>

#include "MultiHashTable/fwk/Error.h"
#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::BankArgs;
using test::key;
using test::levelBit;
using test::MultiWidthTable;
using test::quad;
using test::single;
using test::TraceCapture;
using test::twoBanks;

// ---------------------------------------------------------------------------------------
// Construction and teardown

TEST(MultiEntryTypeHashTable, ConstructionPassesTheBaseArgumentsAndStartsEmpty) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  TraceCapture trace(levelBit(1));
  auto table = multiEntryTypeHashTableFactory(2, 16, 4, config, status, 3);
  EXPECT_EQ(trace.texts(1),
            std::vector<std::string>{"void TesselCentral::MultiEntryTypeHashTable::handleInitialized()"});
  EXPECT_EQ(table->numBanks(), 2u);
  EXPECT_EQ(table->numBuckets(), 16u);
  EXPECT_EQ(table->numBucketEntries(), 4u);
  EXPECT_EQ(table->maxRecursiveSteps(), 3u);
  EXPECT_EQ(table->hashEntryConfig().ptr(), config.ptr());
  EXPECT_EQ(table->hashEntryStatus(), status);
  EXPECT_FALSE(table->debugEnabled());
  EXPECT_FALSE(table->initialized());
  EXPECT_EQ(table->entryIdHelper(), nullptr);
  EXPECT_TRUE(table->posToKeyCollection().empty());
  EXPECT_TRUE(table->keyToPosCollection().empty());
  EXPECT_TRUE(table->bankCollection().empty());
  EXPECT_TRUE(table->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  EXPECT_EQ(table->references(), 1u);
}

TEST(MultiEntryTypeHashTable, NotificationCanBeSwitchedOffAndOnAgain) {
  auto config = hashEntryConfigFactory();
  auto table = multiEntryTypeHashTableFactory(0, 0, 0, config, hashEntryStatusFactory(), 0);
  table->hasNotificationActiveIs(true);
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  table->hasNotificationActiveIs(false);
  EXPECT_FALSE(table->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 0u);
  table->hasNotificationActiveIs(true);
  EXPECT_EQ(config->publisher().subscribers(), 1u);
}

TEST(MultiEntryTypeHashTable, TheTableAndItsHelperHoldEachOther) {
  auto table = multiEntryTypeHashTableFactory(0, 0, 0, hashEntryConfigFactory(), hashEntryStatusFactory(), 0);
  auto helper = entryIdHelperFactory(table);
  EXPECT_EQ(table->references(), 2u);
  table->entryIdHelperIs(helper);
  EXPECT_EQ(helper->references(), 2u);
  table->entryIdHelperIs(helper);  // the same helper again changes nothing
  EXPECT_EQ(helper->references(), 2u);
  EXPECT_EQ(helper->hashTable(), table);
  table->entryIdHelperIs(nullptr);
  EXPECT_EQ(helper->references(), 1u);
}

TEST(MultiEntryTypeHashTable, ClearingTheHelperBeforeDroppingTheTableFreesTableHelperAndBanks) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  Ptr<MultiEntryTypeBank> bank;
  {
    auto table = multiEntryTypeHashTableFactory(1, 16, 4, config, status, 2);
    bank = table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, false);
    table->entryIdHelperIs(entryIdHelperFactory(table));
    config->configIs(key(3, 3, single), EntryId());
    ASSERT_EQ(status->status(key(3, 3, single)), EntryId(12));
    EXPECT_EQ(bank->references(), 2u);
    table->entryIdHelperIs(nullptr);
  }
  // The table is gone: it no longer listens to the requests and has let go of its bank.
  EXPECT_EQ(config->publisher().subscribers(), 0u);
  EXPECT_EQ(bank->references(), 1u);
  // Destroying the table leaves the results as they were.
  EXPECT_EQ(status->status(key(3, 3, single)), EntryId(12));
}

TEST(MultiEntryTypeHashTable, WithoutClearingTheHelperTheCycleKeepsTheTableAlive) {
  auto config = hashEntryConfigFactory();
  MultiEntryTypeHashTable* raw = nullptr;
  {
    auto table = multiEntryTypeHashTableFactory(0, 0, 0, config, hashEntryStatusFactory(), 0);
    table->entryIdHelperIs(entryIdHelperFactory(table));
    raw = table.ptr();
  }
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  EXPECT_EQ(raw->references(), 1u);
  // Break the cycle the documented way, so that nothing is left allocated.
  Ptr<MultiEntryTypeHashTable>(raw)->entryIdHelperIs(nullptr);
  EXPECT_EQ(config->publisher().subscribers(), 0u);
}

TEST(MultiEntryTypeHashTable, ADestroyedTableIgnoresLaterRequests) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  { auto table = multiEntryTypeHashTableFactory(0, 0, 0, config, status, 0); }
  config->configIs(key(1, 1, single), EntryId());
  EXPECT_TRUE(status->statusCollection().empty());
}

// ---------------------------------------------------------------------------------------
// Banks

TEST(MultiEntryTypeHashTable, BankIsTwiceWithIdenticalArgumentsYieldsTheSameBank) {
  MultiWidthTable t(4, 2, {});
  auto first = t.table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true);
  auto second = t.table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true);
  EXPECT_EQ(first.ptr(), second.ptr());
  EXPECT_EQ(t.table->bankCollection().size(), 1u);
  EXPECT_EQ(t.table->bank(0), first);
}

TEST(MultiEntryTypeHashTable, BankIsWithADifferentBucketSizeFailsAndTheFirstBankStays) {
  MultiWidthTable t(4, 2, {});
  auto first = t.table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true);
  try {
    t.table->bankIs(single, 0, 16, 2, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true);
    FAIL() << "no re-instantiation error";
  } catch (const Fwk::ReinstantiationError& e) {
    EXPECT_EQ(e.attribute(), "bucketSize");
  }
  EXPECT_EQ(t.table->bank(0), first);
  EXPECT_EQ(first->bucketSize(), 4u);
}

TEST(MultiEntryTypeHashTable, BankIsChecksEveryConstructorArgument) {
  MultiWidthTable t(4, 2, {});
  t.table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true);
  const auto attributeOf = [&](auto&& call) -> std::string {
    try {
      call();
    } catch (const Fwk::ReinstantiationError& e) {
      return e.attribute();
    }
    return "";
  };
  auto& tb = *t.table;
  EXPECT_EQ(attributeOf([&] { tb.bankIs(quad, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true); }),
            "baseEntryType");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 8, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, true); }),
            "numBuckets");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc16Lower, 0, 0, 15, 1, true); }), "hashFunc");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 1, 0, 15, 1, true); }),
            "hashOffSet");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 1, 15, 1, true); }), "hashBits");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 7, 1, true); }), "hashMask");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 2, true); }),
            "phyBankId");
  EXPECT_EQ(attributeOf([&] { tb.bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, false); }),
            "doubleEntryTwoBucketMode");
  EXPECT_EQ(tb.bankCollection().size(), 1u);
}

TEST(MultiEntryTypeHashTable, BankDelReturnsTheBankAndBankDelAllEmptiesTheCollection) {
  MultiWidthTable t(4, 2, twoBanks(4));
  Ptr<MultiEntryTypeBank> b1 = t.table->bank(1);
  EXPECT_EQ(t.table->bankDel(1), b1);
  EXPECT_EQ(t.table->bankDel(1), nullptr);
  t.table->bankDelAll();
  EXPECT_TRUE(t.table->bankCollection().empty());
}

// ---------------------------------------------------------------------------------------
// Position maps and the position format

TEST(MultiEntryTypeHashTable, PosToKeyDelOfAnAbsentPositionReturnsTheDefaultKey) {
  MultiWidthTable t(4, 2, {});
  EXPECT_EQ(t.table->posToKeyDel(0x0100002A), HashEntryKey());
  t.table->posToKeyIs(0x0100002A, key(7, 7, single));
  EXPECT_EQ(t.table->posToKeyDel(0x0100002A), key(7, 7, single));
  EXPECT_FALSE(t.table->posToKeyHas(0x0100002A));
}

TEST(MultiEntryTypeHashTable, KeyToPosDelOfAnAbsentKeyReturnsZero) {
  MultiWidthTable t(4, 2, {});
  EXPECT_EQ(t.table->keyToPosDel(key(7, 7, single)), 0u);
  t.table->keyToPosIs(key(7, 7, single), 0x0100002A);
  EXPECT_EQ(t.table->keyToPos(key(7, 7, single)), 0x0100002Au);
  EXPECT_EQ(t.table->keyToPosDel(key(7, 7, single)), 0x0100002Au);
  EXPECT_EQ(t.table->keyToPos(key(7, 7, single)), 0u);
}

TEST(MultiEntryTypeHashTable, Position3And0xABCDEAnd7PacksTo0x03ABCDE7AndBack) {
  EXPECT_EQ(packPosition(3, 0xABCDE, 7), 0x03ABCDE7u);
  EXPECT_EQ(positionBank(0x03ABCDE7), 3u);
  EXPECT_EQ(positionBucket(0x03ABCDE7), 0xABCDEu);
  EXPECT_EQ(positionSlot(0x03ABCDE7), 7u);
  // Only the low 20 bits of the bucket and the low 4 bits of the slot are kept.
  EXPECT_EQ(packPosition(1, 0x1ABCDE, 0x17), 0x01ABCDE7u);
}

// ---------------------------------------------------------------------------------------
// checkSanity

TEST(MultiEntryTypeHashTable, CheckSanityWithNoBanksDoesNothing) {
  MultiWidthTable t(4, 2, {});
  TraceCapture trace(0xFFFFFFFF);
  t.table->checkSanity();
  EXPECT_TRUE(trace.texts().empty());
}

TEST(MultiEntryTypeHashTable, CheckSanityPassesWhenNoBucketIsLocked) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->checkSanity();
}

TEST(MultiEntryTypeHashTableDeathTest, ALockLeftBehindFailsTheSanityCheckAfterTheNextInsertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  t.bank(1).lockedBucketsIs(9);
  EXPECT_DEATH(t.request(key(3, 3, single)), assertionFailure("b->lockedBucketss() == 0"));
}

TEST(MultiEntryTypeHashTableDeathTest, CheckSanityOfAMissingBankBelowNumBanksIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->bankDel(1);
  EXPECT_DEATH(t.table->checkSanity(), assertionFailure("b"));
}

TEST(MultiEntryTypeHashTableDeathTest, CheckEntryIdValidityIsNotImplementedByTheMultiWidthTable) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  MultiHashTableBase& base = *t.table;
  EXPECT_DEATH(base.checkEntryIdValidity(key(3, 3, single), EntryId(12)),
               assertionFailure("0 && \"Derived class needs to implement this\""));
}

// ---------------------------------------------------------------------------------------
// findEmptyPosition

TEST(MultiEntryTypeHashTable, ATableWithNoBanksFindsNoPositionWithoutCallingAnyBank) {
  auto table = multiEntryTypeHashTableFactory(0, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 2);
  auto b = table->bankIs(single, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15, 1, false);
  TraceCapture trace(0xFFFFFFFF);
  EXPECT_EQ(table->findEmptyPosition(key(3, 3, single), 128, 0), INVALID_POSITION);
  EXPECT_EQ(trace.texts(), std::vector<std::string>{"MultiEntryTypeHashTable::findEmptyPosition Key: "
                                                    "TesselCentral::HashEntryKey{crc16=3, crc32=3, fapId=0, "
                                                    "entryType=singleWide} origBank 128"});
  EXPECT_TRUE(b->bucketCollection().empty());
}

TEST(MultiEntryTypeHashTable, WithOneBankAndOrigBankZeroNothingIsTried) {
  BankArgs only;
  only.phyBankId = 1;
  MultiWidthTable t(4, 2, {only});
  TraceCapture trace(levelBit(2) | levelBit(9));
  EXPECT_EQ(t.table->findEmptyPosition(key(3, 3, single), 0, 0), INVALID_POSITION);
  EXPECT_TRUE(trace.texts().empty());
  EXPECT_TRUE(t.bank(0).bucketCollection().empty());
}

TEST(MultiEntryTypeHashTable, ABankWhoseCandidateBucketsAreLockedIsPassedOverForTheNextBank) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.bank(0).lockedBucketsIs(3);
  EXPECT_EQ(t.table->findEmptyPosition(key(5, 3, single), 128, 0), 0x01000050u);
  EXPECT_FALSE(t.bank(0).bucketHas(3));
  EXPECT_EQ(t.bank(1).bucket(5), 0x00010001u);
  t.bank(0).lockedBucketsDel(3);
}

TEST(MultiEntryTypeHashTable, WhenTwoBanksHaveRoomTheLowerIndexIsChosenAndReserved) {
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_EQ(t.table->findEmptyPosition(key(5, 3, single), 128, 0), 0x00000030u);
  EXPECT_EQ(t.bank(0).bucket(3), 0x00010001u);
  EXPECT_FALSE(t.bank(1).bucketHas(5));
  // The reservation alone makes the next search take the next slot.
  EXPECT_EQ(t.table->findEmptyPosition(key(5, 3, single), 128, 0), 0x00000031u);
}

TEST(MultiEntryTypeHashTable, OrigBankSkipsThatBankOnly) {
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_EQ(t.table->findEmptyPosition(key(5, 3, single), 0, 0), 0x01000050u);
}

TEST(MultiEntryTypeHashTable, OrigBank128ExcludesNoBankOfATableWith128Banks) {
  std::vector<BankArgs> banks(128);
  for (U32 i = 0; i < 128; ++i) {
    banks[i].numBuckets = 1;
    banks[i].bucketSize = 1;
    banks[i].phyBankId = i + 1;
  }
  MultiWidthTable t(1, 2, banks);
  for (U32 i = 0; i < 127; ++i) t.bank(i).lockedBucketsIs(0);
  EXPECT_EQ(t.table->findEmptyPosition(key(0, 0, single), 128, 0), 0x7F000000u);
  for (U32 i = 0; i < 127; ++i) t.bank(i).lockedBucketsDel(0);
}

TEST(MultiEntryTypeHashTable, AMissingBankBelowNumBanksHasNoRoom) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->bankDel(0);
  EXPECT_EQ(t.table->findEmptyPosition(key(5, 3, single), 128, 0), 0x01000050u);
}

}  // namespace
}  // namespace TesselCentral
