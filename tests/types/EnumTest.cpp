#include "MultiHashTable/MultiHashTableTypes.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Text.h"

namespace TesselCentral {
namespace {

template <class T>
std::string printed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

const std::vector<std::pair<HashFunc, std::string_view>> hashFuncs{
    {HashFunc::hashInvalid, "hashInvalid"},       {HashFunc::hashCrc32Upper, "hashCrc32Upper"},
    {HashFunc::hashCrc32Lower, "hashCrc32Lower"}, {HashFunc::hashLsb, "hashLsb"},
    {HashFunc::hashCrc16Lower, "hashCrc16Lower"}, {HashFunc::hashCrc16Upper, "hashCrc16Upper"},
    {HashFunc::hashCrc64, "hashCrc64"},           {HashFunc::hashCount, "hashCount"},
    {HashFunc::hashCrc32And16, "hashCrc32And16"},
};

const std::vector<std::pair<HashEntryType, std::string_view>> entryTypes{
    {HashEntryType::empty, "empty"},
    {HashEntryType::singleWide, "singleWide"},
    {HashEntryType::doubleWide, "doubleWide"},
    {HashEntryType::quadWide, "quadWide"},
};

TEST(HashEntryType, ParsingQuadWideGivesFour) {
  EXPECT_EQ(static_cast<U32>(Fwk::sequenceToValue<HashEntryType>("quadWide")), 4u);
  EXPECT_EQ(Fwk::sequenceToValue<HashEntryType>("quadWide"), HashEntryType::quadWide);
}

TEST(HashEntryType, ValueThreeHasNoNameAndPrintsAsItsDecimalNumber) {
  const auto three = static_cast<HashEntryType>(3);
  EXPECT_TRUE(Fwk::EnumTraits<HashEntryType>::info().name(3).empty());
  EXPECT_EQ(printed(three), "3");
  EXPECT_EQ(stringValue(three), "3");
  EXPECT_THROW(Fwk::sequenceToValue<HashEntryType>("3"), Fwk::RangeError);
}

TEST(HashEntryType, ValueIsTheWidthInSlots) {
  EXPECT_EQ(static_cast<U32>(HashEntryType::empty), 0u);
  EXPECT_EQ(static_cast<U32>(HashEntryType::singleWide), 1u);
  EXPECT_EQ(static_cast<U32>(HashEntryType::doubleWide), 2u);
  EXPECT_EQ(static_cast<U32>(HashEntryType::quadWide), 4u);
  static_assert(sizeof(HashEntryType) == 4);
}

TEST(HashEntryType, EveryEnumeratorPrintsItsNameAndParsesBack) {
  for (const auto& [value, name] : entryTypes) {
    EXPECT_EQ(printed(value), name);
    EXPECT_EQ(stringValue(value), name);
    EXPECT_EQ(Fwk::sequenceToValue<HashEntryType>(name), value) << name;
  }
}

TEST(HashEntryType, UnknownNameIsRangeError) {
  try {
    Fwk::sequenceToValue<HashEntryType>("tripleWide");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "TesselCentral::HashEntryType");
  }
  try {
    Fwk::sequenceToValue<HashEntryType>("QuadWide", "entryType");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "entryType");
  }
}

TEST(HashEntryType, EntryTypesAreOrderedByValue) {
  EXPECT_LT(HashEntryType::empty, HashEntryType::singleWide);
  EXPECT_LT(HashEntryType::singleWide, HashEntryType::doubleWide);
  EXPECT_LT(HashEntryType::doubleWide, HashEntryType::quadWide);
}

TEST(HashFunc, ParsingHashCountGivesSevenAndHashCrc32And16GivesEight) {
  EXPECT_EQ(static_cast<unsigned>(Fwk::sequenceToValue<HashFunc>("hashCount")), 7u);
  EXPECT_EQ(static_cast<unsigned>(Fwk::sequenceToValue<HashFunc>("hashCrc32And16")), 8u);
}

TEST(HashFunc, NumberingIsFixed) {
  unsigned expected = 0;
  for (const auto& [value, name] : hashFuncs) {
    EXPECT_EQ(static_cast<unsigned>(value), expected) << name;
    ++expected;
  }
  static_assert(sizeof(HashFunc) == 1);
}

TEST(HashFunc, EveryEnumeratorPrintsItsNameAndParsesBack) {
  for (const auto& [value, name] : hashFuncs) {
    EXPECT_EQ(printed(value), name);
    EXPECT_EQ(stringValue(value), name);
    EXPECT_EQ(Fwk::sequenceToValue<HashFunc>(name), value) << name;
  }
}

TEST(HashFunc, ValueAboveEightHasNoNameAndPrintsAsItsDecimalNumber) {
  EXPECT_EQ(stringValue(static_cast<HashFunc>(9)), "9");
  EXPECT_EQ(printed(static_cast<HashFunc>(255)), "255");
}

TEST(HashFunc, UnknownNameIsRangeError) {
  EXPECT_THROW(Fwk::sequenceToValue<HashFunc>("hashCrc16"), Fwk::RangeError);
  EXPECT_THROW(Fwk::sequenceToValue<HashFunc>(""), Fwk::RangeError);
}

TEST(MoveSearch, EnumeratorNamesAndCommandLineSpellingsBothParse) {
  EXPECT_EQ(Fwk::sequenceToValue<MoveSearch>("depthFirst"), MoveSearch::depthFirst);
  EXPECT_EQ(Fwk::sequenceToValue<MoveSearch>("breadthFirst"), MoveSearch::breadthFirst);
  EXPECT_EQ(Fwk::sequenceToValue<MoveSearch>("depth-first"), MoveSearch::depthFirst);
  EXPECT_EQ(Fwk::sequenceToValue<MoveSearch>("breadth-first"), MoveSearch::breadthFirst);
}

TEST(MoveSearch, PrintsItsEnumeratorNameNeverTheAlias) {
  EXPECT_EQ(printed(MoveSearch::breadthFirst), "breadthFirst");
  EXPECT_EQ(stringValue(MoveSearch::depthFirst), "depthFirst");
}

TEST(MoveSearch, OtherSpellingsAreRangeErrors) {
  EXPECT_THROW(Fwk::sequenceToValue<MoveSearch>("breadth_first"), Fwk::RangeError);
  EXPECT_THROW(Fwk::sequenceToValue<MoveSearch>("BreadthFirst"), Fwk::RangeError);
}

TEST(EnumRegistration, HashFuncIsTypeZeroAndHashEntryTypeIsTypeOneOfTheModule) {
  const Fwk::Module* module = Fwk::Registry::instance().module("MultiHashTableTypes");
  ASSERT_NE(module, nullptr);
  ASSERT_NE(module->type(0), nullptr);
  ASSERT_NE(module->type(1), nullptr);
  EXPECT_EQ(module->type(0)->name(), "TesselCentral::HashFunc");
  EXPECT_EQ(module->type(1)->name(), "TesselCentral::HashEntryType");
  EXPECT_EQ(module->type(0)->kind(), Fwk::TypeKind::enumeration);
  EXPECT_EQ(module->type(1)->kind(), Fwk::TypeKind::enumeration);
  EXPECT_EQ(module->type(0)->enumInfo, &Fwk::EnumTraits<HashFunc>::info());
  EXPECT_EQ(module->type(1)->enumInfo, &Fwk::EnumTraits<HashEntryType>::info());
}

}  // namespace
}  // namespace TesselCentral
