#include "MultiHashTable/MultiHashTableTypes.h"

#include <gtest/gtest.h>

#include <array>
#include <compare>
#include <sstream>
#include <string>

#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/Hash.h"

namespace TesselCentral {
namespace {

std::string textOf(const HashEntryKey& key) {
  std::ostringstream os;
  os << key;
  return os.str();
}

// ---------------------------------------------------------------------------------------
// Identity: equality, hash, collection membership

TEST(HashEntryKey, KeysDifferingOnlyInEntryTypeAreDifferentKeys) {
  const HashEntryKey single(0x1234, 0x89ABCDEF, 7, HashEntryType::singleWide);
  const HashEntryKey doubleW(0x1234, 0x89ABCDEF, 7, HashEntryType::doubleWide);

  EXPECT_NE(single, doubleW);
  EXPECT_FALSE(HashEntryKey::isEq(&single, &doubleW));
  EXPECT_NE(single.hash(0), doubleW.hash(0));
  EXPECT_NE(single.hash(0xC0FFEE), doubleW.hash(0xC0FFEE));

  Fwk::HashMap<HashEntryKey, EntryId> map(0x00C0FF16);
  map.is(single, EntryId(1));
  map.is(doubleW, EntryId(2));
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(map.get(single), EntryId(1));
  EXPECT_EQ(map.get(doubleW), EntryId(2));
  EXPECT_FALSE(map.has(HashEntryKey(0x1234, 0x89ABCDEF, 7, HashEntryType::quadWide)));
}

TEST(HashEntryKey, DefaultKeyIsAllZeroWithSingleWideEntryType) {
  const HashEntryKey key;
  EXPECT_EQ(key.crc16(), 0u);
  EXPECT_EQ(key.crc32(), 0u);
  EXPECT_EQ(key.fapId(), 0u);
  EXPECT_EQ(key.entryType(), HashEntryType::singleWide);
  EXPECT_EQ(key, HashEntryKey(0, 0, 0, HashEntryType::singleWide));
  EXPECT_NE(key, HashEntryKey(0, 0, 0, HashEntryType::empty));
}

TEST(HashEntryKey, ConstructorStoresTheFourFieldsInOrder) {
  const HashEntryKey key(0xFFFF, 0xFFFFFFFE, 0x12345678, HashEntryType::quadWide);
  EXPECT_EQ(key.crc16(), 0xFFFFu);
  EXPECT_EQ(key.crc32(), 0xFFFFFFFEu);
  EXPECT_EQ(key.fapId(), 0x12345678u);
  EXPECT_EQ(key.entryType(), HashEntryType::quadWide);
}

TEST(HashEntryKey, IsEqIsTrueForTheSameObject) {
  const HashEntryKey key(1, 2, 3, HashEntryType::doubleWide);
  EXPECT_TRUE(HashEntryKey::isEq(&key, &key));
}

TEST(HashEntryKey, IsEqIsTrueForDistinctObjectsWithEqualFields) {
  const HashEntryKey a(1, 2, 3, HashEntryType::doubleWide);
  const HashEntryKey b(1, 2, 3, HashEntryType::doubleWide);
  EXPECT_TRUE(HashEntryKey::isEq(&a, &b));
  EXPECT_TRUE(HashEntryKey::isEq(&b, &a));
}

TEST(HashEntryKey, IsEqIsFalseWhenAnyFieldDiffers) {
  const HashEntryKey a(1, 2, 3, HashEntryType::doubleWide);
  const std::array<HashEntryKey, 4> others{{
      {9, 2, 3, HashEntryType::doubleWide},
      {1, 9, 3, HashEntryType::doubleWide},
      {1, 2, 9, HashEntryType::doubleWide},
      {1, 2, 3, HashEntryType::quadWide},
  }};
  for (const HashEntryKey& other : others) {
    EXPECT_FALSE(HashEntryKey::isEq(&a, &other)) << textOf(other);
    EXPECT_NE(a, other) << textOf(other);
  }
}

// ---------------------------------------------------------------------------------------
// Ordering

TEST(HashEntryKey, SmallerCrc16SortsFirstEvenWhenItsCrc32IsLarger) {
  const HashEntryKey small(1, 0xFFFFFFFF, 0xFFFFFFFF, HashEntryType::quadWide);
  const HashEntryKey large(2, 0, 0, HashEntryType::empty);
  EXPECT_TRUE(small < large);
  EXPECT_FALSE(large < small);
  EXPECT_EQ(small <=> large, std::strong_ordering::less);
  EXPECT_EQ(large <=> small, std::strong_ordering::greater);
}

TEST(HashEntryKey, Crc32DecidesBeforeFapIdWhenCrc16IsEqual) {
  const HashEntryKey a(5, 10, 0xFFFFFFFF, HashEntryType::singleWide);
  const HashEntryKey b(5, 11, 0, HashEntryType::singleWide);
  EXPECT_EQ(a <=> b, std::strong_ordering::less);
}

TEST(HashEntryKey, FapIdDecidesOnlyWhenBothHashesAreEqual) {
  const HashEntryKey a(5, 10, 1, HashEntryType::quadWide);
  const HashEntryKey b(5, 10, 2, HashEntryType::singleWide);
  EXPECT_EQ(a <=> b, std::strong_ordering::less);
  // With a different crc32 the fapId no longer matters.
  const HashEntryKey c(5, 9, 2, HashEntryType::singleWide);
  EXPECT_EQ(c <=> a, std::strong_ordering::less);
}

TEST(HashEntryKey, EntryTypeDecidesLast) {
  const HashEntryKey single(5, 10, 1, HashEntryType::singleWide);
  const HashEntryKey quad(5, 10, 1, HashEntryType::quadWide);
  const HashEntryKey empty(5, 10, 1, HashEntryType::empty);
  EXPECT_EQ(empty <=> single, std::strong_ordering::less);
  EXPECT_EQ(single <=> quad, std::strong_ordering::less);
  EXPECT_EQ(quad <=> single, std::strong_ordering::greater);
}

TEST(HashEntryKey, EqualKeysCompareEqual) {
  const HashEntryKey a(5, 10, 1, HashEntryType::doubleWide);
  const HashEntryKey b(5, 10, 1, HashEntryType::doubleWide);
  EXPECT_EQ(a <=> b, std::strong_ordering::equal);
  EXPECT_EQ(a <=> a, std::strong_ordering::equal);
}

TEST(HashEntryKey, FieldsCompareAsUnsignedNumbers) {
  const HashEntryKey low(0x7FFF, 0, 0, HashEntryType::singleWide);
  const HashEntryKey high(0x8000, 0, 0, HashEntryType::singleWide);
  EXPECT_LT(low, high);
  EXPECT_LT(HashEntryKey(0, 0x7FFFFFFF, 0, HashEntryType::singleWide),
            HashEntryKey(0, 0x80000000, 0, HashEntryType::singleWide));
  EXPECT_LT(HashEntryKey(0, 0, 0x7FFFFFFF, HashEntryType::singleWide),
            HashEntryKey(0, 0, 0x80000000, HashEntryType::singleWide));
}

// ---------------------------------------------------------------------------------------
// Hash

TEST(HashEntryKey, HashOfAllZeroKeyMixesTwoBytesThenThreeFourByteQuantities) {
  const HashEntryKey zero(0, 0, 0, HashEntryType::empty);

  Fwk::HashState expected(0, 0, 0);
  expected.mix16(0);
  expected.mix32(0);
  expected.mix32(0);
  expected.mix32(0);
  EXPECT_EQ(zero.hash(0), expected.value());

  Fwk::HashState oneMix(0, 0, 0);
  const std::array<unsigned char, 14> bytes{};
  oneMix.mixBytes(bytes.data(), bytes.size());
  EXPECT_NE(zero.hash(0), oneMix.value());
}

TEST(HashEntryKey, HashMixesTheFieldsInDeclarationOrder) {
  const HashEntryKey key(0xBEEF, 0xDEADBEEF, 42, HashEntryType::quadWide);
  Fwk::HashState expected(0x5EED, 0, 0);
  expected.mix16(0xBEEF);
  expected.mix32(0xDEADBEEF);
  expected.mix32(42);
  expected.mix32(4);
  EXPECT_EQ(key.hash(0x5EED), expected.value());
}

TEST(HashEntryKey, HashDependsOnTheSeed) {
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  EXPECT_NE(key.hash(0), key.hash(1));
  EXPECT_EQ(key.hash(77), HashEntryKey(1, 2, 3, HashEntryType::singleWide).hash(77));
}

TEST(HashEntryKey, CollectionHashesWithProcessSeedXorItsConstant) {
  const Fwk::HashMap<HashEntryKey, EntryId> map(0xA5A5A5A5);
  EXPECT_EQ(map.seed(), Fwk::processHashSeed() ^ 0xA5A5A5A5u);
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  EXPECT_EQ(Fwk::KeyHash<HashEntryKey>::hash(key, map.seed()), key.hash(map.seed()));
}

// ---------------------------------------------------------------------------------------
// Text form

TEST(HashEntryKey, PrintsTheFrameworkValueText) {
  const HashEntryKey key(0x1234, 0x12345678, 0, HashEntryType::singleWide);
  EXPECT_EQ(textOf(key), "TesselCentral::HashEntryKey{crc16=4660, crc32=305419896, fapId=0, entryType=singleWide}");
}

TEST(HashEntryKey, PrintsDecimalWhileTheStreamIsHexAndLeavesTheStreamHex) {
  std::ostringstream os;
  os << std::hex << HashEntryKey(255, 255, 255, HashEntryType::doubleWide) << ' ' << 255u;
  EXPECT_EQ(os.str(), "TesselCentral::HashEntryKey{crc16=255, crc32=255, fapId=255, entryType=doubleWide} ff");
}

TEST(HashEntryKey, TextFormRoundTrips) {
  const std::array<HashEntryKey, 5> keys{{
      {},
      {0, 0, 0, HashEntryType::empty},
      {0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF, HashEntryType::quadWide},
      {0x1234, 0x89ABCDEF, 3, HashEntryType::doubleWide},
      {1, 2, 3, HashEntryType::singleWide},
  }};
  for (const HashEntryKey& key : keys) {
    const std::string text = textOf(key);
    EXPECT_EQ(HashEntryKey::fromText(text), key) << text;
    EXPECT_EQ(textOf(HashEntryKey::fromText(text)), text);
  }
}

TEST(HashEntryKey, HexadecimalNumbersParse) {
  const HashEntryKey key = HashEntryKey::fromText(
      "TesselCentral::HashEntryKey{crc16=0xBEEF, crc32=0xdeadbeef, fapId=0X10, entryType=quadWide}");
  EXPECT_EQ(key, HashEntryKey(0xBEEF, 0xDEADBEEF, 16, HashEntryType::quadWide));
}

TEST(HashEntryKey, BlanksAroundPunctuationAreIgnored) {
  const HashEntryKey key =
      HashEntryKey::fromText("  TesselCentral::HashEntryKey { crc16 = 1 ,crc32= 2,  fapId =3 , entryType = empty }  ");
  EXPECT_EQ(key, HashEntryKey(1, 2, 3, HashEntryType::empty));
}

TEST(HashEntryKey, UnknownEntryTypeNameIsAttributeDeserialisationErrorNamingEntryType) {
  try {
    HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3, entryType=tripleWide}");
    FAIL() << "no exception";
  } catch (const Fwk::AttributeDeserialisationError& e) {
    EXPECT_EQ(e.attribute(), "entryType");
    EXPECT_NE(std::string(e.what()).find("tripleWide"), std::string::npos) << e.what();
  }
}

TEST(HashEntryKey, Crc16AboveSixteenBitsIsRangeErrorNamingCrc16) {
  try {
    HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=70000, crc32=2, fapId=3, entryType=singleWide}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "crc16");
  }
}

TEST(HashEntryKey, Crc16OfExactlySixteenBitsIsRangeError) {
  EXPECT_THROW(
      HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=65536, crc32=0, fapId=0, entryType=singleWide}"),
      Fwk::RangeError);
  EXPECT_EQ(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=65535, crc32=0, fapId=0, entryType=singleWide}")
                .crc16(),
            0xFFFFu);
}

TEST(HashEntryKey, Crc32AndFapIdAboveThirtyTwoBitsAreRangeErrorsNamingTheirAttribute) {
  try {
    HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=0, crc32=4294967296, fapId=0, entryType=singleWide}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "crc32");
  }
  try {
    HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=0, crc32=0, fapId=0x100000000, entryType=singleWide}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "fapId");
  }
}

TEST(HashEntryKey, TrailingTextIsNotAllDataConsumedError) {
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3, entryType=singleWide} x"),
               Fwk::NotAllDataConsumedError);
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3, entryType=singleWide}}"),
               Fwk::NotAllDataConsumedError);
}

TEST(HashEntryKey, MissingSeparatorIsSyntaxError) {
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1 crc32=2, fapId=3, entryType=singleWide}"),
               Fwk::SyntaxError);
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3 entryType=singleWide}"),
               Fwk::SyntaxError);
}

TEST(HashEntryKey, WrongTypeNameOrAttributeNameOrOrderIsSyntaxError) {
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::EntryId{crc16=1, crc32=2, fapId=3, entryType=singleWide}"),
               Fwk::SyntaxError);
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc32=2, crc16=1, fapId=3, entryType=singleWide}"),
               Fwk::SyntaxError);
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3}"), Fwk::SyntaxError);
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=-1, crc32=2, fapId=3, entryType=singleWide}"),
               Fwk::SyntaxError);
  EXPECT_THROW(HashEntryKey::fromText(""), Fwk::SyntaxError);
}

TEST(HashEntryKey, MissingCloseIsSyntaxError) {
  EXPECT_THROW(HashEntryKey::fromText("TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=3, entryType=singleWide"),
               Fwk::SyntaxError);
}

}  // namespace
}  // namespace TesselCentral
