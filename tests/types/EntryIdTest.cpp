#include "MultiHashTable/MultiHashTableTypes.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/Error.h"

namespace TesselCentral {
namespace {

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(EntryId, ZeroPrintsAsTheSingleDigitZero) { EXPECT_EQ(printed(EntryId(0)), "0"); }

TEST(EntryId, AllOnesPrintsAsTenDecimalDigits) { EXPECT_EQ(printed(EntryId(0xFFFFFFFF)), "4294967295"); }

TEST(EntryId, PrintsDecimalWhileTheStreamIsHexAndLeavesTheStreamHex) {
  std::ostringstream os;
  os << std::hex << EntryId(255) << ' ' << 255u;
  EXPECT_EQ(os.str(), "255 ff");
}

TEST(EntryId, AllOnesIsNotValid) {
  EXPECT_FALSE(EntryId(0xFFFFFFFF).isValid());
  EXPECT_TRUE(EntryId(0xFFFFFFFE).isValid());
  EXPECT_TRUE(EntryId(0).isValid());
}

TEST(EntryId, DefaultIsTheInvalidAllOnesId) {
  const EntryId id;
  EXPECT_EQ(id.value(), 0xFFFFFFFFu);
  EXPECT_FALSE(id.isValid());
  EXPECT_EQ(id, invalidEntryId);
  EXPECT_EQ(invalidEntryId.value(), 4294967295u);
}

TEST(EntryId, MinIsZeroAndMaxIsAllOnes) {
  EXPECT_EQ(EntryId::min, 0u);
  EXPECT_EQ(EntryId::max, 4294967295u);
}

TEST(EntryId, ValueIsStoresTheValueAndReturnsTheObject) {
  EntryId id;
  EntryId& same = id.valueIs(17);
  EXPECT_EQ(&same, &id);
  EXPECT_EQ(id.value(), 17u);
  EXPECT_EQ(&id.valueIs(17), &id);  // unchanged value
  EXPECT_EQ(id.value(), 17u);
  EXPECT_EQ(id.valueIs(3).valueIs(4).value(), 4u);
}

TEST(EntryId, HashIsTheValue) {
  EXPECT_EQ(EntryId(0).hash(), 0u);
  EXPECT_EQ(EntryId(12345).hash(), 12345u);
  EXPECT_EQ(EntryId().hash(), 0xFFFFFFFFu);
}

TEST(EntryId, CollectionKeyedByEntryIdMixesOnlyTheSeed) {
  const Fwk::HashMap<EntryId, HashEntryKey> map(0x0F0F0F0F);
  EXPECT_EQ(Fwk::KeyHash<EntryId>::hash(EntryId(99), map.seed()), 99u ^ map.seed());
}

TEST(EntryId, EqualityAndLessCompareTheValue) {
  EXPECT_EQ(EntryId(5), EntryId(5));
  EXPECT_NE(EntryId(5), EntryId(6));
  EXPECT_TRUE(EntryId(5) < EntryId(6));
  EXPECT_FALSE(EntryId(6) < EntryId(5));
  EXPECT_FALSE(EntryId(6) < EntryId(6));
  EXPECT_TRUE(EntryId(0xFFFFFFFE) < EntryId());
}

TEST(EntryId, TextIsTheFrameworkValueText) {
  EXPECT_EQ(EntryId(42).text(), "TesselCentral::EntryId{value=42}");
  EXPECT_EQ(EntryId().text(), "TesselCentral::EntryId{value=4294967295}");
}

TEST(EntryId, FromTextRoundTripsWithText) {
  for (U32 v : {0u, 1u, 42u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    const EntryId id(v);
    EXPECT_EQ(EntryId::fromText(id.text()), id) << id.text();
  }
}

TEST(EntryId, FromTextAcceptsHexadecimal) {
  EXPECT_EQ(EntryId::fromText("TesselCentral::EntryId{value=0xFF}"), EntryId(255));
}

TEST(EntryId, FromTextAboveThirtyTwoBitsIsRangeErrorNamingValue) {
  try {
    EntryId::fromText("TesselCentral::EntryId{value=4294967296}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "value");
  }
}

TEST(EntryId, FromTextWithTrailingTextIsNotAllDataConsumedError) {
  EXPECT_THROW(EntryId::fromText("TesselCentral::EntryId{value=1} 2"), Fwk::NotAllDataConsumedError);
}

TEST(EntryId, FromTextOfABareNumberIsSyntaxError) {
  EXPECT_THROW(EntryId::fromText("42"), Fwk::SyntaxError);
  EXPECT_THROW(EntryId::fromText("TesselCentral::EntryId{id=42}"), Fwk::SyntaxError);
}

TEST(SlotId, PrintsAsADecimalNumberNotACharacter) {
  EXPECT_EQ(printed(SlotId(65)), "65");
  EXPECT_EQ(printed(SlotId(0)), "0");
  EXPECT_EQ(printed(SlotId(255)), "255");
}

TEST(SlotId, ConvertsToItsEightBitValue) {
  const SlotId slot(127);
  EXPECT_EQ(slot.value(), 127u);
  EXPECT_EQ(static_cast<U8>(slot), 127u);
  EXPECT_EQ(SlotId().value(), 0u);
}

}  // namespace
}  // namespace TesselCentral

namespace TesselCentral {
namespace {

// Found by the text fuzzer: a single digit above a small maximum passed as in range.
TEST(ParseUnsignedRegression, ADigitAboveASmallMaximumIsARangeError) {
  EXPECT_THROW(Fwk::parseUnsigned("5", "slot", 3), Fwk::RangeError);
  EXPECT_THROW(Fwk::parseUnsigned("19", "slot", 5), Fwk::RangeError);
  EXPECT_EQ(Fwk::parseUnsigned("3", "slot", 3), 3u);
  EXPECT_EQ(Fwk::parseUnsigned("0x3", "slot", 3), 3u);
}

}  // namespace
}  // namespace TesselCentral
