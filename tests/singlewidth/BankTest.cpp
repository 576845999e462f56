// A bank's geometry and its bucket selection from a key's crc16 and crc32.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::levelBit;
using test::TraceCapture;

constexpr U32 allBits = 0xFFFFFFFFu;

Ptr<Bank> bankWith(HashFunc f, U32 hashOffSet = 0, U32 hashBits = 0, U32 hashMask = allBits) {
  return bankFactory(HashEntryType::singleWide, 0, 1024, 4, f, hashOffSet, hashBits, hashMask);
}

U32 bucketOf(const Ptr<Bank>& bank, U16 crc16, U32 crc32) {
  return bank->calcBucketId(crc16, crc32, HashEntryType::singleWide, false, 0);
}

// ---------------------------------------------------------------------------------------
// Construction

TEST(Bank, ConstructionStoresTheEightArguments) {
  auto bank = bankFactory(HashEntryType::doubleWide, 3, 2048, 4, HashFunc::hashCrc64, 12, 11, 0x7FF);
  EXPECT_EQ(bank->baseEntryType(), HashEntryType::doubleWide);
  EXPECT_EQ(bank->bankId(), 3u);
  EXPECT_EQ(bank->numBuckets(), 2048u);
  EXPECT_EQ(bank->bucketSize(), 4u);
  EXPECT_EQ(bank->hashFunc(), HashFunc::hashCrc64);
  EXPECT_EQ(bank->hashOffSet(), 12u);
  EXPECT_EQ(bank->hashBits(), 11u);
  EXPECT_EQ(bank->hashMask(), 0x7FFu);
  EXPECT_EQ(bank->references(), 1u);
}

TEST(Bank, BankIsCreatesANewBankLikeTheFactory) {
  auto a = Bank::BankIs(HashEntryType::singleWide, 1, 16, 2, HashFunc::hashCrc16Lower, 0, 0, 15);
  auto b = Bank::BankIs(HashEntryType::singleWide, 1, 16, 2, HashFunc::hashCrc16Lower, 0, 0, 15);
  EXPECT_NE(a.ptr(), b.ptr());
  EXPECT_EQ(a->references(), 1u);
  EXPECT_EQ(a->bankId(), 1u);
}

// ---------------------------------------------------------------------------------------
// Hash functions

TEST(BankBucket, Crc32UpperWithTwelveBitsOf0xABCDE123Gives0xABCBeforeMasking) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 12), 0x1111, 0xABCDE123u), 0xABCu);
}

TEST(BankBucket, Crc32UpperWithZeroBitsKeepsTheWholeCrc32) {
  // The shift count 32 wraps to 0.
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 0), 0x1111, 0xABCDE123u), 0xABCDE123u);
}

TEST(BankBucket, Crc32UpperWithThirtyTwoOrOneBits) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 32), 0, 0xABCDE123u), 0xABCDE123u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 1), 0, 0xABCDE123u), 1u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 1), 0, 0x7BCDE123u), 0u);
}

TEST(BankBucket, Crc32UpperIsMaskedLast) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Upper, 0, 12, 0xFF), 0, 0xABCDE123u), 0xBCu);
}

TEST(BankBucket, Crc32LowerIsTheCrc32Masked) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Lower), 0x1234, 0xABCDE123u), 0xABCDE123u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32Lower, 0, 0, 0x3FF), 0x1234, 0xABCDE123u), 0x123u);
}

TEST(BankBucket, Crc16LowerIsTheCrc16ZeroExtended) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Lower), 0xFEDC, 0xABCDE123u), 0xFEDCu);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Lower, 0, 0, 0xFF), 0xFEDC, 0xABCDE123u), 0xDCu);
}

TEST(BankBucket, Crc16UpperTakesTheLeadingBitsOfTheCrc16) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 4), 0xABCD, 0xFFFFFFFFu), 0xAu);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 12), 0xABCD, 0), 0xABCu);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 16), 0xABCD, 0), 0xABCDu);
}

TEST(BankBucket, Crc16UpperWithZeroBitsOrMoreThanSixteenBitsGivesZero) {
  // hashBits 0 shifts by 16; hashBits 20 shifts by (16 - 20) mod 32 = 28.
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 0), 0xABCD, 0xFFFFFFFFu), 0u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 20), 0xFFFF, 0xFFFFFFFFu), 0u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc16Upper, 0, 31), 0xFFFF, 0xFFFFFFFFu), 0u);
}

TEST(BankBucket, Crc64WithOffsetZeroGivesTheCrc32) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 0), 0x1234, 0xABCDE123u), 0xABCDE123u);
}

TEST(BankBucket, Crc64WithOffsetThirtyTwoGivesTheCrc32AsWell) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 32), 0x1234, 0xABCDE123u), 0xABCDE123u);
}

TEST(BankBucket, Crc64WithOffsetFortyGivesTheCrc32ShiftedRightByEight) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 40), 0x1234, 0xABCDE123u), 0xABCDE123u >> 8);
}

TEST(BankBucket, Crc64WithOffsetEightRotatesTheCrc32) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 8), 0x1234, 0xABCDE123u), 0x23ABCDE1u);
}

TEST(BankBucket, Crc64OffsetIsTakenModuloSixtyFour) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 64), 0, 0xABCDE123u), 0xABCDE123u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 72), 0, 0xABCDE123u), 0x23ABCDE1u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc64, 63), 0, 0xABCDE123u), 1u);
}

TEST(BankBucket, Crc32And16WithOffsetThirtyTwoGivesTheCrc16) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 32), 0x1234, 0xABCDE123u), 0x1234u);
}

TEST(BankBucket, Crc32And16WithOffsetTwentyEightJoinsTheTopOfCrc32AndTheCrc16) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 28), 0x1234, 0xABCDE123u),
            (0xABCDE123u >> 28) | (0x1234u << 4));
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 28), 0x1234, 0xABCDE123u), 0x1234Au);
}

TEST(BankBucket, Crc32And16WithOffsetZeroGivesTheCrc32AndModuloSixtyFour) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 0), 0x1234, 0xABCDE123u), 0xABCDE123u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 96), 0x1234, 0xABCDE123u), 0x1234u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCrc32And16, 48), 0x1234, 0xABCDE123u), 0u);
}

TEST(BankBucket, InvalidCountAndUnknownFunctionsGiveZero) {
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashInvalid), 0xFFFF, 0xFFFFFFFFu), 0u);
  EXPECT_EQ(bucketOf(bankWith(HashFunc::hashCount), 0xFFFF, 0xFFFFFFFFu), 0u);
  EXPECT_EQ(bucketOf(bankWith(static_cast<HashFunc>(9)), 0xFFFF, 0xFFFFFFFFu), 0u);
  EXPECT_EQ(bucketOf(bankWith(static_cast<HashFunc>(255)), 0xFFFF, 0xFFFFFFFFu), 0u);
}

TEST(BankBucket, MaskZeroAlwaysYieldsBucketZero) {
  for (HashFunc f : {HashFunc::hashCrc32Upper, HashFunc::hashCrc32Lower, HashFunc::hashCrc16Lower,
                     HashFunc::hashCrc16Upper, HashFunc::hashCrc64, HashFunc::hashCrc32And16}) {
    EXPECT_EQ(bucketOf(bankWith(f, 8, 8, 0), 0xFFFF, 0xFFFFFFFFu), 0u) << f;
  }
  EXPECT_EQ(bankWith(HashFunc::hashCrc32Lower, 48, 0, 0)->calcBucketId(0, 0, HashEntryType::singleWide, true, 0xFF),
            0u);
}

TEST(BankBucket, EntryTypeDoesNotChangeTheBucket) {
  auto bank = bankWith(HashFunc::hashCrc32Lower, 0, 0, 0x3FF);
  for (HashEntryType t :
       {HashEntryType::empty, HashEntryType::singleWide, HashEntryType::doubleWide, HashEntryType::quadWide}) {
    EXPECT_EQ(bank->calcBucketId(0x55, 0x12345, t, false, 0), 0x345u) << t;
  }
}

TEST(BankBucketDeathTest, LsbFunctionFailsTheAssertionZero) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto bank = bankWith(HashFunc::hashLsb);
  // The report names the function's full signature before the condition.
  EXPECT_DEATH(bucketOf(bank, 1, 2),
               test::literal("virtual U32 TesselCentral::Bank::calcBucketId(U16, U32, TesselCentral::HashEntryType, "
                             "bool, U32): ") +
                   assertionFailure("0"));
}

// ---------------------------------------------------------------------------------------
// Debug rule

TEST(BankBucketDebug, OffsetFortyEightAddsBitFifteen) {
  auto bank = bankWith(HashFunc::hashCrc32Lower, 48);
  EXPECT_EQ(bank->calcBucketId(0xFFFF, 0xFFFFFFFFu, HashEntryType::singleWide, true, 0x3), 0x8003u);
  EXPECT_EQ(bank->calcBucketId(0, 0, HashEntryType::singleWide, true, 0x8000), 0x8000u);
}

TEST(BankBucketDebug, OffsetTwentyAddsNothing) {
  auto bank = bankWith(HashFunc::hashCrc32Lower, 20, 0, 0xFF);
  EXPECT_EQ(bank->calcBucketId(0xFFFF, 0xFFFFFFFFu, HashEntryType::singleWide, true, 0x1234), 0x34u);
}

TEST(BankBucketDebug, OffsetThirtyTwoAddsBitThirtyOneAndSixtyThreeAddsBitZero) {
  EXPECT_EQ(bankWith(HashFunc::hashCrc32Lower, 32)->calcBucketId(0, 0, HashEntryType::singleWide, true, 5),
            0x80000005u);
  EXPECT_EQ(bankWith(HashFunc::hashCrc32Lower, 63)->calcBucketId(0, 0, HashEntryType::singleWide, true, 4), 5u);
  // 112 mod 64 = 48.
  EXPECT_EQ(bankWith(HashFunc::hashCrc32Lower, 112)->calcBucketId(0, 0, HashEntryType::singleWide, true, 0), 0x8000u);
}

TEST(BankBucketDebug, DebugRuleIgnoresTheHashFunctionAndWritesNoTrace) {
  auto bank = bankWith(HashFunc::hashLsb, 48, 0, 0xFFFF);
  TraceCapture capture(allBits);
  EXPECT_EQ(bank->calcBucketId(0x1234, 0xABCDE123u, HashEntryType::singleWide, true, 0x10), 0x8010u);
  EXPECT_TRUE(capture.sink().lines().empty());
}

// ---------------------------------------------------------------------------------------
// Trace

TEST(BankBucketTrace, HashedBucketIsTracedInDecimalAtLevelTwo) {
  auto bank = bankWith(HashFunc::hashCrc32Upper, 0, 12);
  TraceCapture capture(levelBit(2));
  EXPECT_EQ(bucketOf(bank, 0, 0xABCDE123u), 0xABCu);
  ASSERT_EQ(capture.sink().lines().size(), 1u);
  const auto& line = capture.sink().lines()[0];
  EXPECT_EQ(line.level, 2u);
  EXPECT_EQ(line.file, "MultiHashTable");
  EXPECT_EQ(line.function, "calcBucketId");
  EXPECT_EQ(line.text, "Bank::calcBucketId bucketId: 2748");
}

TEST(BankBucketTrace, NoTraceWhenLevelTwoIsOff) {
  auto bank = bankWith(HashFunc::hashCrc32Lower);
  TraceCapture capture(~levelBit(2));
  bucketOf(bank, 0, 5);
  EXPECT_TRUE(capture.sink().lines().empty());
}

}  // namespace
}  // namespace TesselCentral
