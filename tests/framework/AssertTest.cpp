#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/internal/Diagnostics.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "TestSupport.h"

namespace TesselCentral {

// Stands in for a library class, declared where the library's classes are, so that the
// report's signature reads as a library function's would.
class AssertProbeBank {
 public:
  virtual ~AssertProbeBank() = default;
  virtual U32 calcBucketId(U16 crc16, U32 crc32, HashEntryType entryType, bool flag, U32 hashBits) {
    MHT_ASSERT(hashBits <= 20);
    return crc16 + crc32 + static_cast<U32>(entryType) + (flag ? 1u : 0u);
  }
  void insertEntry(U32 entryPos) {
    const void* posToKeyHas = nullptr;
    MHT_ASSERT_MSG(posToKeyHas != nullptr, "posToKeyHas( entryPos )",
                   "insertEntry"
                       << " entryPos: 0x" << Fwk::hex << entryPos);
  }
};

namespace test {
namespace {

const std::string calcBucketIdSignature =
    "virtual U32 TesselCentral::AssertProbeBank::calcBucketId(U16, U32, TesselCentral::HashEntryType, bool, U32)";
const std::string insertEntrySignature = "void TesselCentral::AssertProbeBank::insertEntry(U32)";

// Counts how often it is streamed, to show when an assertion formats its message.
struct StreamProbe {
  int* formatted;
};
std::ostream& operator<<(std::ostream& os, const StreamProbe& probe) {
  ++*probe.formatted;
  return os << "probe";
}

// What a throwing handler carries out of the failed assertion.
struct Thrown {
  std::string condition;
  std::string message;
  std::string file;
  unsigned line;
  std::string function;
};

[[noreturn]] void throwingHandler(const Fwk::AssertionReport& r) {
  throw Thrown{std::string(r.condition), std::string(r.message), std::string(r.file), r.line, std::string(r.function)};
}

// Installs the throwing handler and restores the default afterwards.
class AssertHandler : public ::testing::Test {
 protected:
  void SetUp() override { Fwk::assertionHandlerIs(&throwingHandler); }
  void TearDown() override { Fwk::assertionHandlerIs(nullptr); }
};

class AssertDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(AssertDeathTest, PlainAssertFailsWithTheConditionText) {
  const int x = 2;
  EXPECT_DEATH(MHT_ASSERT(x == 1), assertionFailure("x == 1"));
}

TEST_F(AssertDeathTest, PlainReportNamesFileLineAndFullSignature) {
  AssertProbeBank bank;
  EXPECT_DEATH(bank.calcBucketId(1, 2, HashEntryType::singleWide, true, 21),
               "MultiHashTable:[0-9]+: " + literal(calcBucketIdSignature) + ": " + assertionFailure("hashBits <= 20"));
}

TEST_F(AssertDeathTest, MessageFormPrintsTheMessageAndTheQuotedConditionEqualsNullptr) {
  const bool posToKeyHas = false;
  EXPECT_DEATH(MHT_ASSERT_MSG(posToKeyHas, "posToKeyHas( entryPos )",
                              "insertEntry"
                                  << " entryPos: 0x" << Fwk::hex << 255u),
               literal("insertEntry entryPos: 0xff") + "\n.*" +
                   assertionFailure("\"posToKeyHas( entryPos )\" == nullptr"));
}

TEST_F(AssertDeathTest, MessageReportNamesFileAndFullSignature) {
  AssertProbeBank bank;
  EXPECT_DEATH(bank.insertEntry(0x1234), literal("insertEntry entryPos: 0x1234") +
                                             "\nMultiHashTable:[0-9]+: " + literal(insertEntrySignature) + ": " +
                                             assertionFailure("\"posToKeyHas( entryPos )\" == nullptr"));
}

TEST_F(AssertDeathTest, TextFormReportsTheGivenText) {
  const unsigned pos = 3;
  EXPECT_DEATH(MHT_ASSERT_TEXT(pos == 4, "posToKeyHas( entryPos )"), assertionFailure("posToKeyHas( entryPos )"));
}

TEST(Assert, PassingAssertionsDoNothingAndEvaluateTheConditionOnce) {
  int evaluated = 0;
  int formatted = 0;
  MHT_ASSERT(++evaluated == 1);
  MHT_ASSERT_MSG(++evaluated == 2, "evaluated == 2", "message " << StreamProbe{&formatted});
  MHT_ASSERT_TEXT(++evaluated == 3, "evaluated == 3");
  EXPECT_EQ(evaluated, 3);
  EXPECT_EQ(formatted, 0);
}

TEST(Assert, FormatAssertionOfThePlainForm) {
  const Fwk::AssertionReport report{"recursionStep <= maxRecursiveSteps()", "", "MultiHashTable", 120,
                                    "virtual U32 TesselCentral::MultiHashTable::insertEntry(const "
                                    "TesselCentral::HashEntryKey&, U32, U32)"};
  EXPECT_EQ(Fwk::formatAssertion(report),
            "MultiHashTable:120: virtual U32 TesselCentral::MultiHashTable::insertEntry(const "
            "TesselCentral::HashEntryKey&, U32, U32): Assertion `recursionStep <= maxRecursiveSteps()' failed.");
}

TEST(Assert, FormatAssertionOfTheMessageFormPutsTheMessageFirst) {
  const Fwk::AssertionReport report{"\"!( bktState & mask )\" == nullptr", "updateBucketState bktState: 0xf",
                                    "MultiHashTable", 7, "void f()"};
  EXPECT_EQ(Fwk::formatAssertion(report),
            "updateBucketState bktState: 0xf\n"
            "MultiHashTable:7: void f(): Assertion `\"!( bktState & mask )\" == nullptr' failed.");
}

TEST_F(AssertHandler, InstalledHandlerReceivesThePlainReport) {
  const int x = 2;
  const unsigned line = __LINE__ + 2;
  try {
    MHT_ASSERT(x == 1);
    FAIL() << "the assertion did not fail";
  } catch (const Thrown& t) {
    EXPECT_EQ(t.condition, "x == 1");
    EXPECT_EQ(t.message, "");
    EXPECT_EQ(t.file, "MultiHashTable");
    EXPECT_EQ(t.line, line);
    EXPECT_NE(t.function.find("TestBody"), std::string::npos) << t.function;
  }
}

TEST_F(AssertHandler, InstalledHandlerReceivesTheMessageFormReport) {
  AssertProbeBank bank;
  try {
    bank.insertEntry(255);
    FAIL() << "the assertion did not fail";
  } catch (const Thrown& t) {
    EXPECT_EQ(t.condition, "\"posToKeyHas( entryPos )\" == nullptr");
    EXPECT_EQ(t.message, "insertEntry entryPos: 0xff");
    EXPECT_EQ(t.file, "MultiHashTable");
    EXPECT_EQ(t.function, insertEntrySignature);
  }
}

TEST_F(AssertHandler, InstalledHandlerSeesTheFullSignature) {
  AssertProbeBank bank;
  EXPECT_EQ(bank.calcBucketId(1, 2, HashEntryType::doubleWide, false, 20), 5u);
  try {
    bank.calcBucketId(1, 2, HashEntryType::doubleWide, false, 32);
    FAIL() << "the assertion did not fail";
  } catch (const Thrown& t) {
    EXPECT_EQ(t.function, calcBucketIdSignature);
    EXPECT_EQ(t.condition, "hashBits <= 20");
  }
}

TEST_F(AssertDeathTest, ResettingTheHandlerRestoresTheAbortingDefault) {
  Fwk::assertionHandlerIs(&throwingHandler);
  Fwk::assertionHandlerIs(nullptr);
  EXPECT_DEATH(MHT_ASSERT(1 + 1 == 3), assertionFailure("1 + 1 == 3"));
}

}  // namespace
}  // namespace test
}  // namespace TesselCentral
