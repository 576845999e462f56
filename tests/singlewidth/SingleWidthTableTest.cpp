// The single-width table object: construction, its banks and the EntryId layouts.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Error.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::key;
using test::levelBit;
using test::makeTable;
using test::Tables;
using test::textOf;
using test::TraceCapture;

// ---------------------------------------------------------------------------------------
// Construction and lifecycle

TEST(SingleWidthTable, FactoryKeepsItsArgumentsAndStartsEmpty) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableFactory(2, 1024, 4, config, status, 3, true);
  EXPECT_EQ(table->numBanks(), 2u);
  EXPECT_EQ(table->numBuckets(), 1024u);
  EXPECT_EQ(table->numBucketEntries(), 4u);
  EXPECT_EQ(table->maxRecursiveSteps(), 3u);
  EXPECT_TRUE(table->bucketSpanBanks());
  EXPECT_FALSE(table->initialized());
  EXPECT_EQ(table->fapId().value(), 127);
  EXPECT_TRUE(table->bankCollection().empty());
  EXPECT_TRUE(table->hashTableEntryCollection().empty());
  EXPECT_EQ(table->tableCapacity(), 8192u);
  EXPECT_EQ(table->references(), 1u);
  EXPECT_EQ(config->references(), 2u);
  EXPECT_EQ(status->references(), 2u);
}

TEST(SingleWidthTable, FactoryTurnsNotificationOnWithOneSubscription) {
  auto config = hashEntryConfigFactory();
  auto table = multiHashTableFactory(1, 4, 1, config, hashEntryStatusFactory(), 0, false);
  EXPECT_TRUE(table->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  auto same = MultiHashTable::MultiHashTableIs(1, 4, 1, config, hashEntryStatusFactory(), 0, false);
  EXPECT_TRUE(same->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 2u);
}

TEST(SingleWidthTable, ConstructionTracesHandleInitializedAtLevelOne) {
  TraceCapture capture(levelBit(1));
  auto table = multiHashTableFactory(1, 4, 1, hashEntryConfigFactory(), hashEntryStatusFactory(), 0, false);
  ASSERT_EQ(capture.sink().lines().size(), 1u);
  const auto& line = capture.sink().lines()[0];
  EXPECT_EQ(line.level, 1u);
  EXPECT_EQ(line.file, "MultiHashTable");
  EXPECT_EQ(line.function, "handleInitialized");
  EXPECT_EQ(line.text, "void TesselCentral::MultiHashTable::handleInitialized()");
  capture.clear();
  table->handleInitialized();
  EXPECT_EQ(capture.texts(1), std::vector<std::string>{"void TesselCentral::MultiHashTable::handleInitialized()"});
}

TEST(SingleWidthTable, RequestsWrittenBeforeTheTableExistsArePlacedOnlyByTheFullResync) {
  Tables s;
  const HashEntryKey early = key(3, 5);
  s.config->configIs(early, EntryId());
  s.table = multiHashTableFactory(2, 16, 1, s.config, s.status, 1, false);
  s.table->bankIs(HashEntryType::singleWide, 0, 16, 1, HashFunc::hashCrc32Lower, 0, 0, 15);
  s.table->bankIs(HashEntryType::singleWide, 1, 16, 1, HashFunc::hashCrc16Lower, 0, 0, 15);
  EXPECT_FALSE(s.status->statusHas(early));

  s.table->handleHashUpdate();
  EXPECT_EQ(s.status->status(early), EntryId(5));
  EXPECT_EQ(s.table->numInsertions(), 1u);
}

TEST(SingleWidthTable, NotificationOffStopsPlacementAndOnResumesIt) {
  Tables s = makeTable(2, 16, 1, 1, false);
  s.table->hasNotificationActiveIs(false);
  EXPECT_FALSE(s.table->notificationActive());
  EXPECT_EQ(s.config->publisher().subscribers(), 0u);
  s.config->configIs(key(1, 1), EntryId());
  EXPECT_FALSE(s.status->statusHas(key(1, 1)));

  s.table->hasNotificationActiveIs(true);
  s.table->hasNotificationActiveIs(true);
  EXPECT_EQ(s.config->publisher().subscribers(), 1u);
  s.config->configIs(key(2, 2), EntryId());
  EXPECT_EQ(s.status->status(key(2, 2)), EntryId(2));
}

TEST(SingleWidthTable, DestroyingTheTableLeavesTheStatusAsItWasAndUnsubscribes) {
  Tables s = makeTable(2, 16, 1, 1, false);
  s.config->configIs(key(1, 1), EntryId());
  s.config->configIs(key(2, 2), EntryId());
  Ptr<Bank> bank0 = s.table->bank(0);
  EXPECT_EQ(bank0->references(), 2u);
  s.table = nullptr;

  EXPECT_EQ(s.config->publisher().subscribers(), 0u);
  EXPECT_EQ(s.config->references(), 1u);
  EXPECT_EQ(s.status->references(), 1u);
  EXPECT_EQ(bank0->references(), 1u);
  ASSERT_EQ(s.status->statusCollection().size(), 2u);
  EXPECT_EQ(s.status->status(key(1, 1)), EntryId(1));
  EXPECT_EQ(s.status->status(key(2, 2)), EntryId(2));
  s.config->configDel(key(1, 1));
  EXPECT_EQ(s.status->status(key(1, 1)), EntryId(1));
}

// ---------------------------------------------------------------------------------------
// Banks

TEST(SingleWidthBanks, BankIsTwiceWithIdenticalArgumentsReturnsTheSameBankAndLeavesOneBank) {
  auto table = multiHashTableFactory(2, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  Ptr<Bank> first = table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 3, 5, 15);
  Ptr<Bank> second = table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 3, 5, 15);
  EXPECT_EQ(first.ptr(), second.ptr());
  EXPECT_EQ(table->bankCollection().size(), 1u);
  EXPECT_EQ(table->bank(1).ptr(), first.ptr());
  EXPECT_EQ(first->bankId(), 1u);
  EXPECT_EQ(first->hashOffSet(), 3u);
  EXPECT_EQ(first->hashBits(), 5u);
}

TEST(SingleWidthBanks, BankIsWithAnExistingIdAndADifferentHashMaskRaisesTheReinstantiationError) {
  auto table = multiHashTableFactory(2, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  Ptr<Bank> original = table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15);
  try {
    table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 7);
    ADD_FAILURE() << "no re-instantiation error";
  } catch (const Fwk::ReinstantiationError& e) {
    EXPECT_EQ(e.attribute(), "hashMask");
    const std::string what = e.what();
    EXPECT_NE(what.find("TesselCentral::Bank"), std::string::npos) << what;
    EXPECT_NE(what.find("15"), std::string::npos) << what;
    EXPECT_NE(what.find("7"), std::string::npos) << what;
  }
  EXPECT_EQ(table->bank(0).ptr(), original.ptr());
  EXPECT_EQ(original->hashMask(), 15u);
  EXPECT_EQ(table->bankCollection().size(), 1u);
}

struct Differing {
  const char* attribute;
  HashEntryType baseEntryType = HashEntryType::singleWide;
  U32 numBuckets = 16;
  U32 bucketSize = 4;
  HashFunc hashFunc = HashFunc::hashCrc16Lower;
  U32 hashOffSet = 3;
  U32 hashBits = 5;
  U32 hashMask = 15;
};

class SingleWidthBankReinstantiation : public ::testing::TestWithParam<Differing> {};

TEST_P(SingleWidthBankReinstantiation, ExistingIdWithADifferentAttributeRaisesTheErrorAndKeepsTheBank) {
  auto table = multiHashTableFactory(2, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  Ptr<Bank> original = table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 3, 5, 15);
  const Differing& d = GetParam();
  try {
    table->bankIs(d.baseEntryType, 1, d.numBuckets, d.bucketSize, d.hashFunc, d.hashOffSet, d.hashBits, d.hashMask);
    ADD_FAILURE() << "no re-instantiation error";
  } catch (const Fwk::ReinstantiationError& e) {
    EXPECT_EQ(e.attribute(), d.attribute);
    EXPECT_NE(std::string(e.what()).find("TesselCentral::Bank"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find(d.attribute), std::string::npos) << e.what();
  }
  EXPECT_EQ(table->bankCollection().size(), 1u);
  EXPECT_EQ(table->bank(1).ptr(), original.ptr());
  EXPECT_EQ(original->baseEntryType(), HashEntryType::singleWide);
  EXPECT_EQ(original->numBuckets(), 16u);
  EXPECT_EQ(original->bucketSize(), 4u);
  EXPECT_EQ(original->hashFunc(), HashFunc::hashCrc16Lower);
  EXPECT_EQ(original->hashOffSet(), 3u);
  EXPECT_EQ(original->hashBits(), 5u);
  EXPECT_EQ(original->hashMask(), 15u);
}

INSTANTIATE_TEST_SUITE_P(
    EachAttribute, SingleWidthBankReinstantiation,
    ::testing::Values(
        Differing{.attribute = "hashMask", .hashMask = 7},
        Differing{.attribute = "baseEntryType", .baseEntryType = HashEntryType::doubleWide},
        Differing{.attribute = "numBuckets", .numBuckets = 32}, Differing{.attribute = "bucketSize", .bucketSize = 2},
        Differing{.attribute = "hashFunc", .hashFunc = HashFunc::hashCrc32Lower},
        Differing{.attribute = "hashOffSet", .hashOffSet = 4}, Differing{.attribute = "hashBits", .hashBits = 6},
        // Several differences: the first in the order of comparison is named.
        Differing{.attribute = "baseEntryType",
                  .baseEntryType = HashEntryType::quadWide,
                  .numBuckets = 8,
                  .bucketSize = 1,
                  .hashFunc = HashFunc::hashCrc64,
                  .hashOffSet = 0,
                  .hashBits = 0,
                  .hashMask = 0},
        Differing{.attribute = "numBuckets",
                  .numBuckets = 8,
                  .bucketSize = 1,
                  .hashFunc = HashFunc::hashCrc64,
                  .hashOffSet = 0,
                  .hashBits = 0,
                  .hashMask = 0},
        Differing{.attribute = "bucketSize",
                  .bucketSize = 1,
                  .hashFunc = HashFunc::hashCrc64,
                  .hashOffSet = 0,
                  .hashBits = 0,
                  .hashMask = 0},
        Differing{
            .attribute = "hashFunc", .hashFunc = HashFunc::hashCrc64, .hashOffSet = 0, .hashBits = 0, .hashMask = 0},
        Differing{.attribute = "hashOffSet", .hashOffSet = 0, .hashBits = 0, .hashMask = 0},
        Differing{.attribute = "hashBits", .hashBits = 0, .hashMask = 0}),
    [](const ::testing::TestParamInfo<Differing>& p) { return std::to_string(p.index) + "_" + p.param.attribute; });

TEST(SingleWidthBanks, BankIdIsNotComparedWithTheNumberOfBanks) {
  auto table = multiHashTableFactory(2, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  Ptr<Bank> far = table->bankIs(HashEntryType::singleWide, 7, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15);
  ASSERT_NE(far, nullptr);
  EXPECT_EQ(table->bank(7).ptr(), far.ptr());
  EXPECT_EQ(far->bankId(), 7u);
}

TEST(SingleWidthBanks, BankDelRemovesAndReturnsTheBankOrNull) {
  auto table = multiHashTableFactory(2, 16, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  Ptr<Bank> b0 = table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc32Lower, 0, 0, 15);
  table->bankIs(HashEntryType::singleWide, 1, 16, 4, HashFunc::hashCrc16Lower, 0, 0, 15);
  EXPECT_EQ(b0->references(), 2u);
  Ptr<Bank> removed = table->bankDel(0);
  EXPECT_EQ(removed.ptr(), b0.ptr());
  EXPECT_EQ(table->bank(0), nullptr);
  EXPECT_EQ(table->bankDel(0), nullptr);
  removed = nullptr;
  EXPECT_EQ(b0->references(), 1u);
  table->bankDelAll();
  EXPECT_TRUE(table->bankCollection().empty());
  // A removed id may be created again with other arguments.
  Ptr<Bank> again = table->bankIs(HashEntryType::singleWide, 0, 16, 4, HashFunc::hashCrc64, 0, 0, 7);
  EXPECT_EQ(again->hashMask(), 7u);
}

// ---------------------------------------------------------------------------------------
// EntryId layouts

TEST(SingleWidthEntryId, BankMajorIdOfBank1Bucket3Slot2Is4110) {
  auto table = multiHashTableFactory(2, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  EXPECT_EQ(table->calcEntryId(1, 3, SlotId(2)), EntryId(4110));
}

TEST(SingleWidthEntryId, BucketMajorIdOfBank1Bucket3Slot2Is30) {
  auto table = multiHashTableFactory(2, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, true);
  EXPECT_EQ(table->calcEntryId(1, 3, SlotId(2)), EntryId(30));
}

TEST(SingleWidthEntryId, FirstIdIsZeroAndLastIdIsCapacityMinusOneInBothLayouts) {
  for (bool span : {false, true}) {
    auto table = multiHashTableFactory(3, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, span);
    EXPECT_EQ(table->calcEntryId(0, 0, SlotId(0)), EntryId(0)) << span;
    EXPECT_EQ(table->calcEntryId(2, 1023, SlotId(3)), EntryId(table->tableCapacity() - 1)) << span;
    EXPECT_EQ(table->tableCapacity(), 12288u);
  }
}

TEST(SingleWidthEntryId, WithOneBankBothLayoutsGiveTheSameIds) {
  auto bankMajor = multiHashTableFactory(1, 8, 3, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  auto bucketMajor = multiHashTableFactory(1, 8, 3, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, true);
  for (U32 bucket = 0; bucket < 8; ++bucket) {
    for (U8 slot = 0; slot < 3; ++slot) {
      EXPECT_EQ(bankMajor->calcEntryId(0, bucket, SlotId(slot)), bucketMajor->calcEntryId(0, bucket, SlotId(slot)));
      EXPECT_EQ(bankMajor->calcEntryId(0, bucket, SlotId(slot)), EntryId(bucket * 3 + slot));
    }
  }
}

TEST(SingleWidthEntryId, EachLayoutNumbersEverySlotExactlyOnce) {
  for (bool span : {false, true}) {
    auto table = multiHashTableFactory(3, 4, 2, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, span);
    std::vector<int> seen(table->tableCapacity(), 0);
    for (U32 b = 0; b < 3; ++b) {
      for (U32 bucket = 0; bucket < 4; ++bucket) {
        for (U8 slot = 0; slot < 2; ++slot) {
          const EntryId e = table->calcEntryId(b, bucket, SlotId(slot));
          ASSERT_LT(e.value(), table->tableCapacity());
          ++seen[e.value()];
        }
      }
    }
    for (int n : seen) EXPECT_EQ(n, 1);
  }
}

TEST(SingleWidthEntryId, BankMajorKeepsEachBankContiguousAndBucketMajorEachBucketRow) {
  auto bankMajor = multiHashTableFactory(2, 4, 2, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  auto bucketMajor = multiHashTableFactory(2, 4, 2, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, true);
  // bank 1 starts after 4 * 2 ids of bank 0.
  EXPECT_EQ(bankMajor->calcEntryId(1, 0, SlotId(0)), EntryId(8));
  EXPECT_EQ(bankMajor->calcEntryId(0, 3, SlotId(1)), EntryId(7));
  // bucket 1 of both banks follows bucket 0 of both banks.
  EXPECT_EQ(bucketMajor->calcEntryId(1, 0, SlotId(1)), EntryId(3));
  EXPECT_EQ(bucketMajor->calcEntryId(0, 1, SlotId(0)), EntryId(4));
}

TEST(SingleWidthEntryId, ArgumentsAreNotCheckedAndTheArithmeticWraps) {
  auto table = multiHashTableFactory(2, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  EXPECT_EQ(table->calcEntryId(5, 0, SlotId(0)), EntryId(20480));
  EXPECT_EQ(table->calcEntryId(0, 0, SlotId(200)), EntryId(200));
  EXPECT_EQ(table->calcEntryId(0, 0x40000000u, SlotId(1)), EntryId(1));
}

TEST(SingleWidthEntryId, IdIsTracedAtLevelTwo) {
  auto table = multiHashTableFactory(2, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 1, false);
  TraceCapture capture(levelBit(2));
  table->calcEntryId(1, 3, SlotId(2));
  ASSERT_EQ(capture.sink().lines().size(), 1u);
  EXPECT_EQ(capture.sink().lines()[0].function, "calcEntryId");
  EXPECT_EQ(capture.sink().lines()[0].text, "calcEntryId Bank 1, Bucket 3, Slot 2, Pos 4110");
}

// ---------------------------------------------------------------------------------------
// Config reaction traces of the single-width table

TEST(SingleWidthTraces, PlacementAndRemovalTraceAtLevelOne) {
  Tables s = makeTable(2, 16, 1, 1, false);
  const HashEntryKey k = key(9, 3);
  TraceCapture capture(levelBit(1));
  s.config->configIs(k, EntryId());
  EXPECT_EQ(capture.texts(1), (std::vector<std::string>{
                                  "MultiHashTableBase::handleHashUpdate key: " + textOf(k),
                                  "virtual void TesselCentral::MultiHashTableBase::checkSanity()",
                              }));
  capture.clear();
  s.config->configDel(k);
  EXPECT_EQ(capture.texts(1), (std::vector<std::string>{
                                  "MultiHashTableBase::handleHashUpdate key: " + textOf(k),
                                  "removeEntry Key: " + textOf(k),
                                  "removeEntry entryId: 3",
                              }));
  std::vector<std::string> functions;
  for (const auto& line : capture.sink().lines()) functions.push_back(line.function);
  EXPECT_EQ(functions, (std::vector<std::string>{"handleHashUpdate", "removeEntry", "removeEntry"}));
}

TEST(SingleWidthTraces, FullResyncTracesAtLevelOne) {
  Tables s = makeTable(2, 16, 1, 1, false);
  const HashEntryKey k = key(9, 3);
  s.config->configIs(k, EntryId());
  TraceCapture capture(levelBit(1));
  s.table->handleHashUpdate();
  EXPECT_EQ(capture.texts(1), (std::vector<std::string>{
                                  "handleHashUpdate",
                                  "MultiHashTableBase::handleHashUpdate key: "
                                  "TesselCentral::HashEntryKey{crc16=9, crc32=3, fapId=1, entryType=singleWide}",
                                  "virtual void TesselCentral::MultiHashTableBase::checkSanity()",
                              }));
}

TEST(SingleWidthTraces, RemovalOfAnUnknownKeyTracesOnlyItsFirstLine) {
  Tables s = makeTable(2, 16, 1, 1, false);
  TraceCapture capture(levelBit(1));
  s.table->removeEntry(key(1, 2));
  EXPECT_EQ(capture.texts(1), std::vector<std::string>{"removeEntry Key: " + textOf(key(1, 2))});
}

}  // namespace
}  // namespace TesselCentral
