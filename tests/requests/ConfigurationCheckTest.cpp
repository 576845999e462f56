// The configuration check of both tables: one test per rule and table, with the rule, the
// consequence, the bank and the reason it reports; the well-configured tables (the tool's
// default shapes among them) that pass; and the request, removal and resync checks of a
// misconfigured table, which name its problem on every request.
#include <gtest/gtest.h>

#include <bit>
#include <optional>
#include <string>
#include <vector>

#include "../multiwidth/MultiWidthSupport.h"
#include "ConfigurationSupport.h"
#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

using Rule = ConfigurationRule;
using Consequence = ConfigurationConsequence;
using Strings = std::vector<std::string>;

// The rule, the consequence and the bank of one problem.
void expectProblem(const ConfigurationProblem& p, Rule rule, Consequence consequence, std::optional<U32> bank) {
  EXPECT_EQ(p.rule, rule) << p.text();
  EXPECT_EQ(p.consequence, consequence) << p.text();
  EXPECT_EQ(p.bank, bank) << p.text();
}

// The one problem of a check that reports exactly one (a copy: checks are values).
ConfigurationProblem only(const ConfigurationCheck& check) {
  EXPECT_EQ(check.problems().size(), 1u) << check;
  return check.problems().empty() ? ConfigurationProblem{} : check.problems().front();
}

// ---------------------------------------------------------------------------------------
// Tables that pass

// The banks that the tool gives a table unless told otherwise: bank i hashes its own
// window of log2(numBuckets) bits of crc16:crc32, spread over the word's 48 bits.
struct ToolBank {
  U32 hashOffSet;
  U32 hashBits;
  U32 hashMask;
};
std::vector<ToolBank> toolBanks(U32 numBanks, U32 numBuckets) {
  const U32 bits = numBuckets > 1 ? static_cast<U32>(std::bit_width(numBuckets - 1)) : 0;
  std::vector<ToolBank> banks;
  for (U32 i = 0; i < numBanks; ++i) {
    const U32 offset = numBanks > 1 && bits * numBanks > 48 ? i * (48 - bits) / (numBanks - 1) : (i * bits) % 48;
    banks.push_back({offset, bits, numBuckets > 0 ? std::bit_ceil(numBuckets) - 1 : 0});
  }
  return banks;
}

SingleTable toolSingleTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries) {
  SingleTable t(numBanks, numBuckets, numBucketEntries, false, 3);
  const std::vector<ToolBank> tool = toolBanks(numBanks, numBuckets);
  for (U32 i = 0; i < numBanks; ++i) {
    t.banks[i].hashFunc = HashFunc::hashCrc32And16;
    t.banks[i].hashOffSet = tool[i].hashOffSet;
    t.banks[i].hashBits = tool[i].hashBits;
    t.banks[i].hashMask = tool[i].hashMask;
  }
  return t;
}

void toolMultiBanks(MultiTable& t, bool twoBucketMode) {
  const std::vector<ToolBank> tool = toolBanks(t.numBanks, t.numBuckets);
  for (U32 i = 0; i < t.numBanks; ++i) {
    t.banks[i].hashFunc = HashFunc::hashCrc32And16;
    t.banks[i].hashOffSet = tool[i].hashOffSet;
    t.banks[i].hashBits = tool[i].hashBits;
    t.banks[i].hashMask = tool[i].hashMask;
    t.banks[i].phyBankId = i;
    t.banks[i].twoBucketMode = twoBucketMode;
  }
}

TEST(ConfigurationCheck, TheToolsDefaultSingleWidthTablesPass) {
  for (const U32 buckets : {1024u, 4096u}) {
    SingleTable t = toolSingleTable(4, buckets, 4);
    t.build();
    const ConfigurationCheck check = t.check();
    EXPECT_TRUE(check.passes()) << buckets << " buckets: " << check;
    EXPECT_EQ(check.problems().size(), 0u);
    EXPECT_EQ(check.worst(), nullptr);
    EXPECT_EQ(t.table->configurationProblem(), "");
  }
}

TEST(ConfigurationCheck, TheToolsDefaultMultiWidthTablesPassInBothBucketModes) {
  for (const U32 buckets : {1024u, 4096u}) {
    for (const bool twoBucketMode : {false, true}) {
      MultiTable t(4, buckets, 4, 3);
      toolMultiBanks(t, twoBucketMode);
      t.build();
      const ConfigurationCheck check = t.check();
      EXPECT_TRUE(check.passes()) << buckets << " buckets, two-bucket mode " << twoBucketMode << ": " << check;
      EXPECT_EQ(t.table->configurationProblem(), "");
    }
  }
}

TEST(ConfigurationCheck, WellConfiguredTablesOfEveryLayoutPass) {
  for (const bool span : {false, true}) {
    SingleTable t(3, 16, 4, span);
    t.build();
    EXPECT_TRUE(t.check().passes()) << t.check();
  }
  MultiTable m(3, 16, 4);
  m.banks[1].twoBucketMode = true;
  m.banks[2].base = dbl;
  m.build();
  EXPECT_TRUE(m.check().passes()) << m.check();
  // A bucket of one slot, and a bank of one bucket: nothing to select but bucket 0.
  MultiTable one(2, 1, 1);
  one.banks[0].hashMask = 0;
  one.banks[1].hashMask = 0;
  one.build();
  EXPECT_TRUE(one.check().passes()) << one.check();
}

TEST(ConfigurationCheck, TheProblemTextIsEmptyExactlyWhenTheCheckPasses) {
  SingleTable good(2, 16, 4);
  good.build();
  EXPECT_TRUE(good.check().passes());
  EXPECT_EQ(good.table->configurationProblem(), "");
  EXPECT_EQ(good.check().text(), "");

  SingleTable bad(3, 16, 4);
  bad.banks[1].hashMask = 31;
  bad.banks[2].hashMask = 7;
  bad.build();
  const ConfigurationCheck check = bad.check();
  ASSERT_FALSE(check.passes());
  EXPECT_EQ(bad.table->configurationProblem(), check.text());
  EXPECT_EQ(bad.table->configurationProblem(),
            "bank 1: hashMask 0x1f selects buckets up to 31, past the bank's 16 buckets: corrupts the table\n"
            "bank 2: hashMask 0x7 never selects buckets above 7 of the bank's 16: keys get less room than the "
            "shape promises");
  ASSERT_NE(check.worst(), nullptr);
  EXPECT_EQ(check.worst()->rule, Rule::maskPastBuckets);
}

TEST(ConfigurationCheck, AProblemWithAConditionNamesItsAssertionInItsText) {
  MultiTable t(2, 16, 8);
  t.build();
  const ConfigurationCheck check = t.check();
  ASSERT_NE(problemOf(check, Rule::unsupportedBucketSize, 0u), nullptr);
  EXPECT_EQ(problemOf(check, Rule::unsupportedBucketSize, 0u)->text(),
            "bank 0: bucketSize 8 is past the 4 slots that a bucket's state word serves: a later placement stops "
            "the agent on the assertion \"!posToKeyHas( pos )\"");
}

// ---------------------------------------------------------------------------------------
// The table's figures

TEST(ConfigurationCheck, SingleWidthNoBanks) {
  SingleTable t(0, 16, 4);
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::noBanks, Consequence::losesRoom, std::nullopt);
  EXPECT_EQ(p.condition, "");
  EXPECT_EQ(p.reason, "numBanks is 0: every key gets no room");
}

TEST(ConfigurationCheck, MultiWidthNoBanks) {
  MultiTable t(0, 16, 4);
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::noBanks, Consequence::losesRoom, std::nullopt);
  EXPECT_EQ(p.reason, "numBanks is 0: every key gets no room");
}

TEST(ConfigurationCheck, SingleWidthNoBuckets) {
  SingleTable t(2, 0, 4);
  t.build();
  const ConfigurationCheck check = t.check();
  const ConfigurationProblem* p = problemOf(check, Rule::noSlots);
  ASSERT_NE(p, nullptr) << check;
  EXPECT_EQ(p->consequence, Consequence::losesRoom);
  EXPECT_EQ(p->bank, std::nullopt);
  EXPECT_EQ(p->reason, "numBuckets 0 and numBucketEntries 4 leave the table no slot");
  // Bucket 0, the only one a mask of 0 selects, is past the banks' none: its ids are
  // outside the table, whose capacity is 0.
  EXPECT_EQ(shortForms(check), (Strings{"noSlots losesRoom", "maskPastBuckets publishesOutside bank 0",
                                        "maskPastBuckets publishesOutside bank 1"}));
}

TEST(ConfigurationCheck, SingleWidthNoSlots) {
  SingleTable t(2, 16, 0);
  t.build();
  const ConfigurationProblem p = only(t.check());
  EXPECT_EQ(p.rule, Rule::noSlots);
  EXPECT_EQ(p.consequence, Consequence::losesRoom);
  EXPECT_EQ(p.reason, "numBuckets 16 and numBucketEntries 0 leave the table no slot");
}

TEST(ConfigurationCheck, MultiWidthNoBuckets) {
  MultiTable t(2, 0, 4);
  t.build();
  const ConfigurationCheck check = t.check();
  const ConfigurationProblem* p = problemOf(check, Rule::noSlots);
  ASSERT_NE(p, nullptr) << check;
  EXPECT_EQ(p->consequence, Consequence::losesRoom);
  EXPECT_EQ(p->bank, std::nullopt);
  EXPECT_EQ(p->reason, "numBuckets 0 and numBucketEntries 4 leave the table no slot");
}

TEST(ConfigurationCheck, MultiWidthBucketOfNoSlots) {
  MultiTable t(2, 16, 4);
  t.banks[1].bucketSize = 0;
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check), (Strings{"noSlots losesRoom bank 1", "slotsDisagree corrupts bank 1"}));
  EXPECT_EQ(problemOf(check, Rule::noSlots, 1u)->reason, "bucketSize 0 holds no key");
}

TEST(ConfigurationCheck, SingleWidthCapacityPastThirtyTwoBits) {
  SingleTable t(2, U32{1} << 30, 4);
  t.banks[1].hashFunc = HashFunc::hashCrc32Lower;  // crc16 would leave most buckets unselected
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::capacityPastIds, Consequence::corrupts, std::nullopt);
  EXPECT_EQ(p.reason,
            "numBanks * numBuckets * numBucketEntries is past the 32 bits of an EntryId: ids wrap onto each other");
  // The capacity wraps: 2 * 2^30 * 4 is 2^33, which is 0 in 32 bits.
  EXPECT_EQ(t.table->tableCapacity(), 0u);
}

TEST(ConfigurationCheck, MultiWidthCapacityPastThirtyTwoBits) {
  // A multi-width table reaches 2^32 slots only with more buckets than a position numbers.
  MultiTable t(4, U32{1} << 30, 4);
  t.build();
  const ConfigurationCheck check = t.check();
  const ConfigurationProblem* p = problemOf(check, Rule::capacityPastIds);
  ASSERT_NE(p, nullptr) << check;
  EXPECT_EQ(p->consequence, Consequence::corrupts);
  EXPECT_EQ(p->bank, std::nullopt);
  EXPECT_NE(problemOf(check, Rule::tooManyBuckets, 0u), nullptr) << check;
}

TEST(ConfigurationCheck, MultiWidthMoreBucketsThanAPositionNumbers) {
  MultiTable t(1, U32{1} << 21, 4);
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::tooManyBuckets, Consequence::corrupts, 0u);
  EXPECT_EQ(p.reason, "numBuckets 2097152 is past the 1048576 buckets that a position numbers");
}

TEST(ConfigurationCheck, SingleWidthMoreSlotsThanASlotIdNumbers) {
  SingleTable t(1, 4, 300);
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::unsupportedBucketSize, Consequence::corrupts, std::nullopt);
  EXPECT_EQ(p.reason, "numBucketEntries 300 is past the 256 slots that a SlotId numbers");
}

TEST(ConfigurationCheck, MultiWidthMoreThan128Banks) {
  MultiTable t(129, 1, 4);
  for (MultiBank& b : t.banks) b.hashMask = 0;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::tooManyBanks, Consequence::losesRoom, std::nullopt);
  EXPECT_EQ(p.reason, "numBanks 129 is past 128: a key's first placement passes over bank 128");
}

TEST(ConfigurationCheck, MultiWidthMoreThan256Banks) {
  MultiTable t(257, 1, 4);
  for (U32 i = 0; i < t.banks.size(); ++i) {
    t.banks[i].hashMask = 0;
    t.banks[i].phyBankId = i;
  }
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::tooManyBanks, Consequence::corrupts, std::nullopt);
  EXPECT_EQ(p.reason, "numBanks 257 is past the 256 banks that a position numbers");
}

// ---------------------------------------------------------------------------------------
// Banks and links

TEST(ConfigurationCheck, SingleWidthMissingFirstBankStopsTheFirstPlacement) {
  SingleTable t(3, 16, 4);
  t.banks[0].present = false;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::missingBank, Consequence::stopsNow, 0u);
  EXPECT_EQ(p.condition, "");
  EXPECT_EQ(p.reason, "missing: every bank below numBanks must exist before a key is placed");
}

TEST(ConfigurationCheck, SingleWidthMissingLaterBankStopsALaterPlacement) {
  // The first key takes a free slot of bank 0: only a placement that finds bank 0's
  // bucket full reads bank 1.
  SingleTable t(3, 16, 4);
  t.banks[1].present = false;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::missingBank, Consequence::stopsLater, 1u);
  EXPECT_EQ(p.condition, "");
  EXPECT_EQ(p.reason, "missing: every bank below numBanks must exist before a key is placed");
  // Without slots every placement walks every bank.
  SingleTable none(3, 16, 0);
  none.banks[1].present = false;
  none.build();
  ASSERT_NE(problemOf(none.check(), Rule::missingBank, 1u), nullptr);
  EXPECT_EQ(problemOf(none.check(), Rule::missingBank, 1u)->consequence, Consequence::stopsNow);
}

TEST(ConfigurationCheckDeathTest, SingleWidthMissingLaterBankStopsOnceBankZerosBucketIsFull) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  SingleTable t(2, 4, 1);
  t.banks[1].present = false;
  t.build();
  // Bank 0 takes crc32 & 3: the first key of bucket 1 is placed, the second reads bank 1.
  t.config->configIs(key(1, 1), EntryId());
  ASSERT_EQ(t.status->status(key(1, 1)), EntryId(1));
  EXPECT_DEATH(t.config->configIs(key(2, 5), EntryId()), "");
}

TEST(ConfigurationCheck, MultiWidthMissingBank) {
  MultiTable t(3, 16, 4);
  t.banks[1].present = false;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::missingBank, Consequence::stopsNow, 1u);
  EXPECT_EQ(p.condition, "b");
  EXPECT_EQ(p.reason, "missing: every bank below numBanks must exist before a key is placed");
}

TEST(ConfigurationCheck, MultiWidthWithoutEntryIdHelper) {
  MultiTable t(2, 16, 4);
  t.helper = HelperOf::none;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::missingEntryIdHelper, Consequence::stopsNow, std::nullopt);
  EXPECT_EQ(p.condition, "entryIdHelper()");
  EXPECT_EQ(p.reason, "the table has no EntryIdHelper: set one with entryIdHelperIs");
}

TEST(ConfigurationCheck, MultiWidthWithAnotherTablesEntryIdHelper) {
  MultiTable t(2, 16, 4);
  t.helper = HelperOf::another;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::missingEntryIdHelper, Consequence::corrupts, std::nullopt);
  EXPECT_EQ(p.condition, "");
  EXPECT_EQ(p.reason, "the table's EntryIdHelper translates another table's ids");
}

TEST(ConfigurationCheck, SingleWidthBankWithMoreBucketsThanTheTable) {
  SingleTable t(2, 16, 4);
  t.banks[0].numBuckets = 32;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::bucketsDisagree, Consequence::corrupts, 0u);
  EXPECT_EQ(p.reason, "numBuckets 32 differs from the table's 16, by which the table lays out the bank's ids");
}

TEST(ConfigurationCheck, SingleWidthBankWithFewerBucketsThanTheTable) {
  SingleTable t(2, 16, 4);
  t.banks[1].numBuckets = 8;
  t.banks[1].hashMask = 7;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::bucketsDisagree, Consequence::corrupts, 1u);
  EXPECT_EQ(p.reason, "numBuckets 8 differs from the table's 16, by which the table lays out the bank's ids");
}

TEST(ConfigurationCheck, MultiWidthBankWithMoreBucketsThanTheTable) {
  MultiTable t(2, 16, 4);
  t.banks[0].numBuckets = 32;
  t.banks[0].hashMask = 31;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::bucketsDisagree, Consequence::publishesOutside, 0u);
  EXPECT_EQ(p.reason,
            "numBuckets 32 differs from the table's 16: ids of the bank, or of the banks above it, are past the "
            "table's capacity");
}

TEST(ConfigurationCheck, MultiWidthLastBankWithMoreBucketsThanTheTableWhoseMaskKeepsToTheTablesPublishesInside) {
  // The last bank has 32 buckets, its mask selects the table's 16: its ids stay below the
  // capacity, and its last 16 buckets are never selected.
  MultiTable t(2, 16, 4);
  t.banks[1].numBuckets = 32;
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check), (Strings{"bucketsDisagree losesRoom bank 1", "maskShortOfBuckets losesRoom bank 1"}));
  EXPECT_EQ(check.problems()[0].reason,
            "numBuckets 32 differs from the table's 16: the table's capacity does not count the bank's last buckets");
  EXPECT_EQ(check.problems()[1].reason, "hashMask 0xf never selects buckets above 15 of the bank's 32");
}

TEST(ConfigurationCheck, MultiWidthBankWithFewerBucketsThanTheTable) {
  MultiTable t(2, 16, 4);
  t.banks[0].numBuckets = 8;
  t.banks[0].hashMask = 7;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::bucketsDisagree, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason, "numBuckets 8 differs from the table's 16: the table counts slots that the bank does not have");
}

TEST(ConfigurationCheck, SingleWidthBucketSizeOtherThanTheTables) {
  SingleTable t(2, 16, 4);
  t.banks[1].bucketSize = 2;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::slotsDisagree, Consequence::corrupts, 1u);
  EXPECT_EQ(p.reason,
            "bucketSize 2 differs from the table's numBucketEntries 4, by which the table places keys and lays out "
            "ids");
}

TEST(ConfigurationCheck, MultiWidthBucketSizeOtherThanTheTables) {
  MultiTable t(2, 16, 4);
  t.banks[0].bucketSize = 2;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::slotsDisagree, Consequence::corrupts, 0u);
  EXPECT_EQ(p.reason,
            "bucketSize 2 differs from the table's numBucketEntries 4: an id counts the bank's slots by the one and "
            "its buckets by the other");
}

TEST(ConfigurationCheck, MultiWidthBucketsOfEightSlots) {
  MultiTable t(2, 16, 8);
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check),
            (Strings{"unsupportedBucketSize stopsLater bank 0", "unsupportedBucketSize stopsLater bank 1"}));
  const ConfigurationProblem& p = check.problems().front();
  EXPECT_EQ(p.condition, "!posToKeyHas( pos )");
  EXPECT_EQ(p.reason, "bucketSize 8 is past the 4 slots that a bucket's state word serves");
}

TEST(ConfigurationCheck, MultiWidthBucketsOfThreeSlots) {
  MultiTable t(2, 16, 3);
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check),
            (Strings{"unsupportedBucketSize corrupts bank 0", "unsupportedBucketSize corrupts bank 1"}));
  EXPECT_EQ(check.problems().front().condition, "");
  EXPECT_EQ(check.problems().front().reason,
            "bucketSize 3 is not a power of two: a requested id names its slot by its low bits");
}

TEST(ConfigurationCheck, SingleWidthBankBuiltForDoubleWideEntries) {
  SingleTable t(2, 16, 4);
  t.banks[1].base = dbl;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::wideBaseType, Consequence::corrupts, 1u);
  EXPECT_EQ(p.reason,
            "baseEntryType doubleWide: the table gives every key one slot, where the chip's entry of that width "
            "takes more");
}

TEST(ConfigurationCheck, MultiWidthTwoBanksOnOnePhysicalBank) {
  MultiTable t(3, 16, 4);
  t.banks[2].phyBankId = t.banks[0].phyBankId;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::sharedPhysicalBank, Consequence::corrupts, 2u);
  EXPECT_EQ(p.reason, "phyBankId 1 is another bank's too: two entries meet at one hardware position");
}

// ---------------------------------------------------------------------------------------
// A bank's selection of buckets: the same rules in both tables

TEST(ConfigurationCheck, SingleWidthHashLsb) {
  SingleTable t(2, 16, 4);
  t.banks[1].hashFunc = HashFunc::hashLsb;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsNoBucket, Consequence::stopsLater, 1u);
  EXPECT_EQ(p.condition, "0");
  EXPECT_EQ(p.reason, "hash function hashLsb selects no bucket");
}

TEST(ConfigurationCheck, SingleWidthHashLsbInTheFirstBankStopsTheFirstPlacement) {
  SingleTable t(2, 16, 4);
  t.banks[0].hashFunc = HashFunc::hashLsb;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsNoBucket, Consequence::stopsNow, 0u);
  EXPECT_EQ(p.condition, "0");
  EXPECT_EQ(t.table->requestCheck(key(3, 4), EntryId()).outcome(), RequestOutcome::stopsNow);
}

TEST(ConfigurationCheck, MultiWidthHashLsb) {
  MultiTable t(2, 16, 4);
  t.banks[1].hashFunc = HashFunc::hashLsb;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsNoBucket, Consequence::stopsLater, 1u);
  EXPECT_EQ(p.condition, "0");
  EXPECT_EQ(p.reason, "hash function hashLsb selects no bucket");
}

TEST(ConfigurationCheck, MultiWidthHashLsbInTheFirstBankStopsTheFirstPlacement) {
  MultiTable t(2, 16, 4);
  t.banks[0].hashFunc = HashFunc::hashLsb;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsNoBucket, Consequence::stopsNow, 0u);
  EXPECT_EQ(t.table->requestCheck(key(3, 4, single), EntryId()).outcome(), RequestOutcome::stopsNow);
}

TEST(ConfigurationCheck, SingleWidthHashFunctionsThatSelectOnlyBucketZero) {
  const std::pair<HashFunc, std::string> cases[] = {
      {HashFunc::hashInvalid, "hashInvalid"}, {HashFunc::hashCount, "hashCount"}, {static_cast<HashFunc>(9), "9"}};
  for (const auto& [func, name] : cases) {
    SingleTable t(2, 16, 4);
    t.banks[0].hashFunc = func;
    t.build();
    const ConfigurationProblem p = only(t.check());
    EXPECT_EQ(p.rule, Rule::hashSelectsOneBucket) << name;
    EXPECT_EQ(p.consequence, Consequence::losesRoom) << name;
    EXPECT_EQ(p.bank, 0u) << name;
    EXPECT_EQ(p.reason, "hash function " + name + " with hashBits 0 and hashOffSet 0 gives every key bucket 0");
  }
}

TEST(ConfigurationCheck, MultiWidthHashFunctionsThatSelectOnlyBucketZero) {
  const std::pair<HashFunc, std::string> cases[] = {
      {HashFunc::hashInvalid, "hashInvalid"}, {HashFunc::hashCount, "hashCount"}, {static_cast<HashFunc>(9), "9"}};
  for (const auto& [func, name] : cases) {
    MultiTable t(2, 16, 4);
    t.banks[1].hashFunc = func;
    t.build();
    const ConfigurationProblem p = only(t.check());
    EXPECT_EQ(p.rule, Rule::hashSelectsOneBucket) << name;
    EXPECT_EQ(p.consequence, Consequence::losesRoom) << name;
    EXPECT_EQ(p.bank, 1u) << name;
    EXPECT_EQ(p.reason, "hash function " + name + " with hashBits 0 and hashOffSet 0 gives every key bucket 0");
  }
}

TEST(ConfigurationCheck, SingleWidthCrc16UpperWithTwentyBits) {
  // The shift 16 - 20 wraps to 28: crc16 >> 28 is 0 for every key.
  SingleTable t(2, 16, 4);
  t.banks[1].hashFunc = HashFunc::hashCrc16Upper;
  t.banks[1].hashBits = 20;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsOneBucket, Consequence::losesRoom, 1u);
  EXPECT_EQ(p.reason,
            "hash function hashCrc16Upper with hashBits 20 and hashOffSet 0 gives every key bucket 0 (hashBits 20 "
            "is past crc16's 16 bits)");
}

TEST(ConfigurationCheck, MultiWidthCrc16UpperWithTwentyBits) {
  MultiTable t(2, 16, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc16Upper;
  t.banks[0].hashBits = 20;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashSelectsOneBucket, Consequence::losesRoom, 0u);
  EXPECT_NE(p.reason.find("(hashBits 20 is past crc16's 16 bits)"), std::string::npos) << p.reason;
}

TEST(ConfigurationCheck, SingleWidthCrc32UpperWithFortyBits) {
  // The shift 32 - 40 wraps to 24: crc32 >> 24 sets 8 bits, short of the 10 the mask takes.
  SingleTable t(1, 1024, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc32Upper;
  t.banks[0].hashBits = 40;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashWindowPastWidth, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason,
            "hashMask 0x3ff takes bits past the 8 bits that hashCrc32Upper sets (hashBits 40 is past crc32's 32 "
            "bits): no key selects a bucket above 255");
}

TEST(ConfigurationCheck, SingleWidthCrc32UpperWithFortyBitsOnABankItsWrappedWindowCoversPasses) {
  // crc32 >> 24 sets 8 bits: all that 256 buckets take. The figure wraps, but no room is lost.
  SingleTable t(1, 256, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc32Upper;
  t.banks[0].hashBits = 40;
  t.build();
  EXPECT_TRUE(t.check().passes()) << t.check();
}

TEST(ConfigurationCheck, MultiWidthCrc32UpperWithFortyBits) {
  MultiTable t(1, 1024, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc32Upper;
  t.banks[0].hashBits = 40;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashWindowPastWidth, Consequence::losesRoom, 0u);
  EXPECT_NE(p.reason.find("(hashBits 40 is past crc32's 32 bits): no key selects a bucket above 255"),
            std::string::npos)
      << p.reason;
}

TEST(ConfigurationCheck, SingleWidthHashOffSetPastTheHashWordThatLeavesAWideWindowPasses) {
  // The shift is taken modulo 64: hashOffSet 70 shifts by 6 and leaves 32 bits (crc64) or
  // 42 (crc32And16), more than any mask takes.
  for (const HashFunc func : {HashFunc::hashCrc64, HashFunc::hashCrc32And16}) {
    for (const U32 buckets : {16u, 65536u}) {
      SingleTable t(2, buckets, 4);
      t.banks[1].hashFunc = func;
      t.banks[1].hashOffSet = 70;
      t.build();
      EXPECT_TRUE(t.check().passes()) << func << ", " << buckets << " buckets: " << t.check();
    }
  }
}

TEST(ConfigurationCheck, MultiWidthHashOffSetPastTheHashWordThatLeavesAWideWindowPasses) {
  for (const HashFunc func : {HashFunc::hashCrc64, HashFunc::hashCrc32And16}) {
    MultiTable t(2, 16, 4);
    t.banks[0].hashFunc = func;
    t.banks[0].hashOffSet = 70;
    t.build();
    EXPECT_TRUE(t.check().passes()) << func << ": " << t.check();
  }
}

TEST(ConfigurationCheck, SingleWidthHashOffSetPastTheHashWordThatLeavesANarrowWindow) {
  // hashOffSet 120 shifts by 56: crc64 keeps 8 bits, crc32And16 none.
  SingleTable t(2, 1024, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc64;
  t.banks[0].hashOffSet = 120;
  t.banks[1].hashFunc = HashFunc::hashCrc32And16;
  t.banks[1].hashOffSet = 120;
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check),
            (Strings{"hashWindowPastWidth losesRoom bank 0", "hashSelectsOneBucket losesRoom bank 1"}));
  EXPECT_EQ(check.problems()[0].reason,
            "hashMask 0x3ff takes bits past the 8 bits that hashCrc64 sets (hashOffSet 120 is past the 64-bit hash "
            "word (the shift is taken modulo 64)): no key selects a bucket above 255");
  EXPECT_EQ(check.problems()[1].reason,
            "hash function hashCrc32And16 with hashBits 0 and hashOffSet 120 gives every key bucket 0 (hashOffSet "
            "120 is past the 64-bit hash word (the shift is taken modulo 64))");
}

TEST(ConfigurationCheck, MultiWidthHashOffSetPastTheHashWordThatLeavesANarrowWindow) {
  MultiTable t(1, 1024, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc64;
  t.banks[0].hashOffSet = 120;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashWindowPastWidth, Consequence::losesRoom, 0u);
}

TEST(ConfigurationCheck, SingleWidthMaskPastTheCrc16Window) {
  SingleTable t(1, 131072, 1);
  t.banks[0].hashFunc = HashFunc::hashCrc16Lower;
  t.banks[0].hashMask = 0x1FFFF;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashWindowPastWidth, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason,
            "hashMask 0x1ffff takes bits past the 16 bits that hashCrc16Lower sets: no key selects a bucket above "
            "65535");
}

TEST(ConfigurationCheck, MultiWidthMaskPastTheCrc16Window) {
  MultiTable t(1, 131072, 1);
  t.banks[0].hashFunc = HashFunc::hashCrc16Lower;
  t.banks[0].hashMask = 0x1FFFF;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::hashWindowPastWidth, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason,
            "hashMask 0x1ffff takes bits past the 16 bits that hashCrc16Lower sets: no key selects a bucket above "
            "65535");
}

TEST(ConfigurationCheck, AMaskPastAWindowThatCoversTheBanksBucketsLosesNoRoom) {
  // crc16 >> 12 sets 4 bits, all that 16 buckets take: the mask's fifth bit selects nothing
  // more, and nothing less.
  SingleTable t(1, 16, 4);
  t.banks[0].hashFunc = HashFunc::hashCrc16Upper;
  t.banks[0].hashBits = 4;
  t.banks[0].hashMask = 31;
  t.build();
  EXPECT_TRUE(t.check().passes()) << t.check();
  MultiTable m(1, 16, 4);
  m.banks[0].hashFunc = HashFunc::hashCrc16Lower;
  m.banks[0].hashMask = 0xFFFFFFFF;  // crc16 sets 16 bits, and buckets 16 and up are past the bank
  m.build();
  EXPECT_EQ(shortForms(m.check()), (Strings{"maskPastBuckets publishesOutside bank 0"}));
}

TEST(ConfigurationCheck, AHashThatGivesEveryKeyBucketZeroLosesNoRoomInABankOfOneBucket) {
  SingleTable t(2, 1, 4);
  t.banks[0].hashFunc = HashFunc::hashInvalid;
  t.banks[1].hashFunc = HashFunc::hashCrc16Upper;
  t.banks[1].hashBits = 0;  // crc16 >> 16
  t.build();
  EXPECT_TRUE(t.check().passes()) << t.check();
  MultiTable m(1, 1, 4);
  m.banks[0].hashFunc = HashFunc::hashCount;
  m.build();
  EXPECT_TRUE(m.check().passes()) << m.check();
}

TEST(ConfigurationCheck, SingleWidthMaskPastAMiddleBankCorrupts) {
  SingleTable t(3, 16, 4);
  t.banks[1].hashMask = 31;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskPastBuckets, Consequence::corrupts, 1u);
  EXPECT_EQ(p.reason, "hashMask 0x1f selects buckets up to 31, past the bank's 16 buckets");
}

TEST(ConfigurationCheck, SingleWidthMaskPastTheLastBankPublishesOutside) {
  SingleTable t(3, 16, 4);
  t.banks[2].hashMask = 31;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskPastBuckets, Consequence::publishesOutside, 2u);
}

TEST(ConfigurationCheck, SingleWidthMaskPastABankInTheBucketMajorLayoutPublishesOutside) {
  for (const U32 bank : {0u, 1u, 2u}) {
    SingleTable t(3, 16, 4, true);
    t.banks[bank].hashMask = 31;
    t.build();
    const ConfigurationProblem p = only(t.check());
    EXPECT_EQ(p.rule, Rule::maskPastBuckets);
    EXPECT_EQ(p.consequence, Consequence::publishesOutside) << bank;
    EXPECT_EQ(p.bank, bank);
  }
}

TEST(ConfigurationCheck, MultiWidthMaskPastAMiddleBankCorrupts) {
  MultiTable t(3, 16, 4);
  t.banks[1].hashMask = 31;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskPastBuckets, Consequence::corrupts, 1u);
  EXPECT_EQ(p.reason, "hashMask 0x1f selects buckets up to 31, past the bank's 16 buckets");
}

TEST(ConfigurationCheck, MultiWidthMaskPastTheLastBankPublishesOutside) {
  MultiTable t(3, 16, 4);
  t.banks[2].hashMask = 31;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskPastBuckets, Consequence::publishesOutside, 2u);
}

TEST(ConfigurationCheck, SingleWidthMaskPastABankWithFewerBucketsThanTheTableCorruptsInside) {
  // Bucket 3 of a bank of 2 has the bank's own id in the table's layout of 4 buckets, in
  // either layout: no id is outside the table, but the chip's bank has no bucket 3.
  for (const bool span : {false, true}) {
    SingleTable t(2, 4, 4, span);
    t.banks[1].numBuckets = 2;
    t.build();
    const ConfigurationCheck check = t.check();
    EXPECT_EQ(shortForms(check), (Strings{"bucketsDisagree corrupts bank 1", "maskPastBuckets corrupts bank 1"}))
        << "bucket-major " << span;
    EXPECT_EQ(check.problems()[1].reason, "hashMask 0x3 selects buckets up to 3, past the bank's 2 buckets");
  }
}

TEST(ConfigurationCheck, SingleWidthMaskPastAMiddleBankAndTheWholeTablePublishesOutside) {
  // Bucket 63 of bank 1 of 3 banks of 16 buckets is row 79 of the table's 48.
  SingleTable t(3, 16, 4);
  t.banks[1].hashMask = 63;
  t.build();
  EXPECT_EQ(shortForms(t.check()), (Strings{"maskPastBuckets publishesOutside bank 1"}));
}

TEST(ConfigurationCheck, MultiWidthMaskPastALastBankWithFewerBucketsThanTheTableCorruptsInside) {
  // The last bank has 2 buckets in a table of 4: its buckets 2 and 3 have ids below the
  // capacity, at positions the chip's bank does not have.
  MultiTable t(2, 4, 4);
  t.banks[1].numBuckets = 2;
  t.build();
  EXPECT_EQ(shortForms(t.check()), (Strings{"bucketsDisagree losesRoom bank 1", "maskPastBuckets corrupts bank 1"}));
}

TEST(ConfigurationCheck, SingleWidthMaskWithAClearBitNeverSelectsSomeBuckets) {
  // 0xb is 1011: the buckets 4 to 7 of 12, whose index has bit 2 set, are never selected.
  SingleTable t(1, 12, 4);
  t.banks[0].hashMask = 0xb;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskShortOfBuckets, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason, "hashMask 0xb never selects bucket 4 of the bank's 12, nor any other whose index has bit 2 set");
}

TEST(ConfigurationCheck, MultiWidthMaskWithAClearBitNeverSelectsSomeBuckets) {
  // The mask numBuckets - 1 of a bank of 6 is 101: buckets 2 and 3 are never selected.
  MultiTable t(1, 6, 4);
  t.build();
  ASSERT_EQ(t.banks[0].hashMask, 5u);
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskShortOfBuckets, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason, "hashMask 0x5 never selects bucket 2 of the bank's 6, nor any other whose index has bit 1 set");
}

TEST(ConfigurationCheck, SingleWidthMaskShortOfTheBuckets) {
  SingleTable t(2, 1024, 4);
  t.banks[0].hashMask = 511;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskShortOfBuckets, Consequence::losesRoom, 0u);
  EXPECT_EQ(p.reason, "hashMask 0x1ff never selects buckets above 511 of the bank's 1024");
}

TEST(ConfigurationCheck, MultiWidthMaskShortOfTheBuckets) {
  MultiTable t(2, 1024, 4);
  t.banks[1].hashMask = 511;
  t.build();
  const ConfigurationProblem p = only(t.check());
  expectProblem(p, Rule::maskShortOfBuckets, Consequence::losesRoom, 1u);
  EXPECT_EQ(p.reason, "hashMask 0x1ff never selects buckets above 511 of the bank's 1024");
}

TEST(ConfigurationCheck, MultiWidthQuadGroupPastABankOfTwoBuckets) {
  // In two-bucket mode a quadWide key's group is 4 buckets, aligned: in a bank of 2
  // buckets it runs to bucket 3.
  MultiTable t(2, 2, 4);
  for (MultiBank& b : t.banks) b.twoBucketMode = true;
  t.build();
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check), (Strings{"groupPastBank corrupts bank 0", "groupPastBank publishesOutside bank 1"}));
  EXPECT_EQ(check.problems().front().reason,
            "a quadWide key's group of 4 buckets reaches bucket 3, past the bank's 2 buckets");
}

TEST(ConfigurationCheck, MultiWidthGroupsStartFromTheMaskedBucket) {
  // The group is aligned after the mask: with mask 2 (10) a key selects bucket 0 or 2, and
  // the doubleWide alignment keeps bit 0 of the mask shifted by 1, which neither sets:
  // every doubleWide group is buckets 0 and 1. A quadWide group of 4 does run past the 3.
  MultiTable t(1, 3, 4);
  t.banks[0].hashMask = 2;
  t.banks[0].twoBucketMode = true;
  t.build();
  EXPECT_EQ(t.table->bank(0)->lastBucketReached(dbl), 1u);
  EXPECT_EQ(t.table->bank(0)->lastBucketReached(quad), 3u);
  const ConfigurationCheck check = t.check();
  EXPECT_EQ(shortForms(check),
            (Strings{"groupPastBank publishesOutside bank 0", "maskShortOfBuckets losesRoom bank 0"}));
  EXPECT_EQ(check.problems()[0].reason,
            "a quadWide key's group of 4 buckets reaches bucket 3, past the bank's 3 buckets");
}

TEST(ConfigurationCheck, MultiWidthGroupsOfTypesThatDoNotDivideTheBucketAreLeftToTheRequestCheck) {
  // Buckets of 2 slots hold no quadWide run: the group of 4 buckets is not the bank's.
  MultiTable t(1, 2, 2);
  t.banks[0].twoBucketMode = true;
  t.build();
  EXPECT_TRUE(t.check().passes()) << t.check();
}

// ---------------------------------------------------------------------------------------
// The request, removal and resync checks of a misconfigured table

const std::string configurationPrefix = "the table's configuration cannot serve it: ";

// A key's first candidate id, or id 0 when the table gives none.
EntryId firstCandidate(const MultiHashTableBase& table, const HashEntryKey& k) {
  const CandidateList list = table.candidates(k);
  return list.empty() ? EntryId(0) : list.places().front().id;
}

void expectVerdict(const RequestCheck& verdict, RequestOutcome outcome, const std::string& reason,
                   const std::string& condition, const std::string& what) {
  EXPECT_EQ(verdict.outcome(), outcome) << what << ": " << verdict;
  EXPECT_EQ(verdict.reason(), reason) << what;
  EXPECT_EQ(verdict.condition(), condition) << what;
  EXPECT_FALSE(verdict.passes()) << what;
  EXPECT_NE(verdict.problem(), "") << what;
}

// Every request that reaches the table gets the configuration's verdict: a placement
// anywhere, at a candidate id, and the removal of a placed key; a request already held
// stays unchanged, and the removal of a key without a request too; the resync check gives
// the configuration's verdict.
void expectEveryRequestNamesTheConfiguration(MultiHashTableBase& table, HashEntryConfig& config,
                                             const HashEntryKey& fresh, const HashEntryKey& placed,
                                             RequestOutcome outcome) {
  const ConfigurationCheck check = table.configurationCheck();
  ASSERT_FALSE(check.passes());
  const RequestCheck expected = check.requestVerdict();
  ASSERT_EQ(expected.outcome(), outcome) << expected;
  const std::string reason =
      configurationPrefix + check.worst()->text() +
      (check.problems().size() > 1 ? " (and " + std::to_string(check.problems().size() - 1) + " more)" : std::string());
  EXPECT_EQ(expected.reason(), reason);
  const std::string condition = check.worst()->condition;

  expectVerdict(table.requestCheck(fresh, EntryId()), outcome, reason, condition, "anywhere");
  expectVerdict(table.requestCheck(fresh, firstCandidate(table, fresh)), outcome, reason, condition, "at an id");
  ASSERT_TRUE(config.configHas(placed));
  expectVerdict(table.removalCheck(placed), outcome, reason, condition, "removal");
  expectVerdict(table.resyncCheck(), outcome, reason, condition, "resync");
  EXPECT_EQ(table.resyncProblem(), expected.problem());

  const RequestCheck again = table.requestCheck(placed, config.config(placed));
  EXPECT_EQ(again.outcome(), RequestOutcome::unchanged) << again;
  EXPECT_TRUE(again.passes());
  EXPECT_EQ(table.removalCheck(fresh).outcome(), RequestOutcome::unchanged);
}

TEST(ConfigurationRequestCheck, ATableThatLosesRoomLeavesEveryRequestUnserved) {
  SingleTable s(2, 1024, 4);
  s.banks[0].hashMask = 511;
  s.build();
  s.config->configIs(key(1, 2), EntryId());
  ASSERT_TRUE(s.status->status(key(1, 2)).isValid());
  expectEveryRequestNamesTheConfiguration(*s.table, *s.config, key(3, 4), key(1, 2), RequestOutcome::unserved);
  EXPECT_EQ(s.table->requestCheck(key(3, 4), EntryId()).reason(),
            configurationPrefix +
                "bank 0: hashMask 0x1ff never selects buckets above 511 of the bank's 1024: keys get less room than "
                "the shape promises");

  MultiTable m(2, 1024, 4);
  m.banks[1].hashMask = 511;
  m.build();
  m.config->configIs(key(1, 2, dbl), EntryId());
  ASSERT_TRUE(m.status->status(key(1, 2, dbl)).isValid());
  expectEveryRequestNamesTheConfiguration(*m.table, *m.config, key(3, 4, quad), key(1, 2, dbl),
                                          RequestOutcome::unserved);
}

TEST(ConfigurationRequestCheck, ATableThatCorruptsMakesEveryRequestHazardous) {
  SingleTable s(3, 16, 4);
  s.banks[1].hashMask = 31;
  s.build();
  s.config->configIs(key(1, 2), EntryId());
  expectEveryRequestNamesTheConfiguration(*s.table, *s.config, key(3, 4), key(1, 2), RequestOutcome::hazardous);

  MultiTable m(3, 16, 4);
  m.banks[2].phyBankId = m.banks[0].phyBankId;
  m.build();
  m.config->configIs(key(1, 2, single), EntryId());
  expectEveryRequestNamesTheConfiguration(*m.table, *m.config, key(3, 4, dbl), key(1, 2, single),
                                          RequestOutcome::hazardous);
}

TEST(ConfigurationRequestCheck, ATableThatPublishesOutsideMakesEveryRequestHazardous) {
  SingleTable s(2, 16, 4, true);
  s.banks[0].hashMask = 31;
  s.build();
  s.config->configIs(key(1, 2), EntryId());
  expectEveryRequestNamesTheConfiguration(*s.table, *s.config, key(3, 4), key(1, 2), RequestOutcome::hazardous);
  EXPECT_EQ(s.table->configurationCheck().worst()->consequence, Consequence::publishesOutside);
}

TEST(ConfigurationRequestCheck, ATableThatStopsLaterMakesEveryRequestStopLater) {
  MultiTable m(2, 16, 8);
  m.build();
  m.config->configIs(key(1, 2, single), EntryId());
  expectEveryRequestNamesTheConfiguration(*m.table, *m.config, key(3, 4, single), key(1, 2, single),
                                          RequestOutcome::stopsLater);
  EXPECT_EQ(m.table->requestCheck(key(3, 4, single), EntryId()).condition(), "!posToKeyHas( pos )");
}

TEST(ConfigurationRequestCheck, ATableWithoutItsHelperStopsEveryRequestNow) {
  MultiTable m(2, 16, 4);
  m.build();
  m.config->configIs(key(1, 2, single), EntryId());
  ASSERT_TRUE(m.status->status(key(1, 2, single)).isValid());
  m.table->entryIdHelperIs(nullptr);
  const ConfigurationCheck check = m.table->configurationCheck();
  ASSERT_EQ(shortForms(check), (Strings{"missingEntryIdHelper stopsNow"}));
  // The placements' own checks find the helper missing first and say so in their words;
  // the removal, which needs no helper, gets the configuration's verdict.
  for (const EntryId id : {EntryId(), EntryId(5)}) {
    const RequestCheck verdict = m.table->requestCheck(key(3, 4, single), id);
    EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow) << verdict;
    EXPECT_EQ(verdict.condition(), "entryIdHelper()");
    EXPECT_NE(verdict.reason().find("the table has no EntryIdHelper"), std::string::npos) << verdict;
  }
  const RequestCheck removal = m.table->removalCheck(key(1, 2, single));
  EXPECT_EQ(removal.outcome(), RequestOutcome::stopsNow) << removal;
  EXPECT_EQ(removal.condition(), "entryIdHelper()");
  EXPECT_EQ(removal.reason(), configurationPrefix + check.worst()->text());
  EXPECT_EQ(m.table->resyncCheck().text(), check.requestVerdict().text());
  EXPECT_EQ(m.table->requestCheck(key(1, 2, single), EntryId()).outcome(), RequestOutcome::unchanged);
}

TEST(ConfigurationRequestCheck, ATableWithAMissingBankStopsEveryRequestNow) {
  SingleTable s(3, 16, 4);
  s.banks[0].present = false;
  s.build();
  for (const EntryId id : {EntryId(), EntryId(5)}) {
    const RequestCheck verdict = s.table->requestCheck(key(3, 4), id);
    EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow) << verdict;
    EXPECT_NE(verdict.reason().find("bank 0 is missing"), std::string::npos) << verdict;
  }
  EXPECT_EQ(s.table->resyncCheck().text(), s.table->configurationCheck().requestVerdict().text());

  MultiTable m(3, 16, 4);
  m.banks[1].present = false;
  m.build();
  for (const EntryId id : {EntryId(), EntryId(5)}) {
    const RequestCheck verdict = m.table->requestCheck(key(3, 4, single), id);
    EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow) << verdict;
    EXPECT_EQ(verdict.condition(), "b");
    EXPECT_NE(verdict.reason().find("bank 1 is missing"), std::string::npos) << verdict;
  }
  EXPECT_EQ(m.table->resyncCheck().text(), m.table->configurationCheck().requestVerdict().text());
}

TEST(ConfigurationRequestCheck, ASingleWidthKeyWhoseFirstPassEndsBeforeAMissingBankStopsOnlyLater) {
  // Bank 1 is missing: a key with a free slot in bank 0 is placed there and never reads it;
  // once bank 0's bucket is full, the next key's first pass reaches bank 1 and stops.
  SingleTable s(2, 16, 1);
  s.banks[1].present = false;
  s.build();
  const RequestCheck first = s.table->requestCheck(key(3, 4), EntryId());
  EXPECT_EQ(first.outcome(), RequestOutcome::stopsLater) << first;
  s.config->configIs(key(3, 4), EntryId());
  EXPECT_EQ(s.status->status(key(3, 4)), EntryId(4));
  const RequestCheck second = s.table->requestCheck(key(5, 4), EntryId());
  EXPECT_EQ(second.outcome(), RequestOutcome::stopsNow) << second;
  EXPECT_NE(second.reason().find("bank 1 is missing"), std::string::npos) << second;
}

TEST(ConfigurationRequestCheck, ATableThatDoesNotListenStaysWithoutReaction) {
  SingleTable s(2, 1024, 4);
  s.banks[0].hashMask = 511;
  s.build();
  s.table->hasNotificationActiveIs(false);
  EXPECT_EQ(s.table->requestCheck(key(3, 4), EntryId()).outcome(), RequestOutcome::noReaction);
}

TEST(ConfigurationRequestCheck, AWellConfiguredTableAddsNothingToTheVerdicts) {
  SingleTable s(2, 16, 4);
  s.build();
  EXPECT_EQ(s.table->requestCheck(key(3, 4), EntryId()).outcome(), RequestOutcome::accepted);
  EXPECT_EQ(s.table->resyncCheck().outcome(), RequestOutcome::accepted);
  MultiTable m(2, 16, 4);
  m.build();
  EXPECT_EQ(m.table->requestCheck(key(3, 4, quad), EntryId()).outcome(), RequestOutcome::accepted);
  EXPECT_EQ(m.table->resyncCheck().outcome(), RequestOutcome::accepted);
}

}  // namespace
}  // namespace TesselCentral::test
