#include "MultiHashTable/fwk/Registry.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/Error.h"

namespace RegistryProbe {

using TesselCentral::EntryId;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryType;
using TesselCentral::U32;

// A small entity registered by this test in a module of its own.
class Counter : public Fwk::Entity {
 public:
  Counter(U32 start, HashEntryType kind) : start_(start), value_(start), kind_(kind) {}

  U32 start() const noexcept { return start_; }
  U32 value() const noexcept { return value_; }
  HashEntryType kind() const noexcept { return kind_; }
  bool positive() const noexcept { return value_ != 0; }
  const Fwk::HashMap<HashEntryKey, EntryId>& ids() const noexcept { return ids_; }

  U32 add(U32 n, U32 times) { return value_ += n * times; }
  void reset() { value_ = start_; }
  U32 addFrom(Fwk::Ptr<const Counter> other) { return value_ += other ? other->value() : 0; }
  void idIs(const HashEntryKey& key, EntryId id) { ids_.is(key, id); }
  EntryId id(const HashEntryKey& key) const noexcept { return ids_.get(key); }

  const Fwk::TypeInfo* fwkType() const noexcept override;

 private:
  U32 start_;
  U32 value_;
  HashEntryType kind_;
  Fwk::HashMap<HashEntryKey, EntryId> ids_{0x7E57};
};

Fwk::Ptr<Counter> counterFactory(U32 start, HashEntryType kind) { return Fwk::makeEntity<Counter>(start, kind); }

// An unregistered entity: generic tools know nothing of it.
class Anonymous : public Fwk::Entity {};

const Fwk::TypeInfo& registerCounter() {
  Fwk::Module& module = Fwk::Registry::instance().moduleIs("RegistryTest");
  Fwk::EntityType<Counter> type(module, "RegistryProbe::Counter");
  type.attribute<&Counter::start>(Fwk::firstOwnAttrId, "start", Fwk::constructorSet)
      .attribute<&Counter::kind>(Fwk::firstOwnAttrId + 1, "kind", Fwk::constructorSet)
      .attribute<&Counter::value>(Fwk::firstOwnAttrId + 2, "value", Fwk::mutableAttr)
      .note("starts at start; add and addFrom raise it, reset takes it back")
      .attribute<&Counter::positive>(Fwk::firstOwnAttrId + 3, "positive")
      .collection<&Counter::ids>(Fwk::firstOwnAttrId + 4, "ids", "HashEntryKey -> EntryId", Fwk::mutableAttr)
      .operation<&Counter::add>(Fwk::firstOwnAttrId + 5, "add", {"n", "times"})
      .operation<&Counter::reset>(Fwk::firstOwnAttrId + 6, "reset", {})
      .operation<&Counter::addFrom>(Fwk::firstOwnAttrId + 7, "addFrom", {"other"})
      .operation<&Counter::idIs>(Fwk::firstOwnAttrId + 8, "idIs", {"key", "id"})
      .operation<&Counter::id>(Fwk::firstOwnAttrId + 9, "id", {"key"})
      .factory<&counterFactory>({"start", "kind"});
  return type.info();
}

const Fwk::TypeInfo& counterType = registerCounter();

const Fwk::TypeInfo* Counter::fwkType() const noexcept { return &counterType; }

// Another type named Counter, in another namespace and module: the name alone is ambiguous.
const Fwk::TypeInfo& otherCounterType =
    Fwk::Registry::instance().moduleIs("RegistryTestOther").typeIs("OtherProbe::Counter", Fwk::TypeKind::entity);

}  // namespace RegistryProbe

namespace {

using RegistryProbe::Counter;
using TesselCentral::EntryId;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryType;
using TesselCentral::HashFunc;

Fwk::Registry& registry() { return Fwk::Registry::instance(); }

std::string keyText(const HashEntryKey& key) {
  std::ostringstream os;
  os << key;
  return os.str();
}

// ---------------------------------------------------------------------------------------
// The value types of the library

TEST(Registry, ValueTypeModuleListsItsEnumerationsByIndex) {
  const Fwk::Module* module = registry().module("MultiHashTableTypes");
  ASSERT_NE(module, nullptr);
  ASSERT_GE(module->types(), 2u);
  EXPECT_EQ(module->type(0)->name(), "TesselCentral::HashFunc");
  EXPECT_EQ(module->type(0)->index(), 0u);
  EXPECT_EQ(module->type(1)->name(), "TesselCentral::HashEntryType");
  EXPECT_EQ(module->type(1)->index(), 1u);
  EXPECT_EQ(module->type(0)->module(), "MultiHashTableTypes");
  EXPECT_EQ(module->type(module->types()), nullptr);
  EXPECT_EQ(registry().type("TesselCentral::HashFunc"), module->type(0));
}

TEST(Registry, KeyAttributesAreNumberedFromTwoInDeclarationOrder) {
  const Fwk::TypeInfo& key = registry().typeOrThrow("TesselCentral::HashEntryKey");
  EXPECT_EQ(key.kind(), Fwk::TypeKind::value);
  const std::vector<std::string> names{"crc16", "crc32", "fapId", "entryType"};
  const std::vector<std::string> types{"U16", "U32", "U32", "TesselCentral::HashEntryType"};
  ASSERT_EQ(key.attributes().size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(key.attributes()[i].id, 2u + i);
    EXPECT_EQ(key.attributes()[i].name, names[i]);
    EXPECT_EQ(key.attributes()[i].typeName, types[i]);
    EXPECT_EQ(key.attributes()[i].flags, static_cast<unsigned>(Fwk::constructorSet));
  }
  const Fwk::TypeInfo& id = registry().typeOrThrow("TesselCentral::EntryId");
  ASSERT_EQ(id.attributes().size(), 1u);
  EXPECT_EQ(id.attributes()[0].id, 2u);
  EXPECT_EQ(id.attributes()[0].name, "value");
  EXPECT_EQ(id.attributes()[0].flags, static_cast<unsigned>(Fwk::mutableAttr));
}

TEST(Registry, EveryEnumeratorRoundTripsThroughNormalise) {
  const Fwk::Module* module = registry().module("MultiHashTableTypes");
  ASSERT_NE(module, nullptr);
  int enumerations = 0;
  for (unsigned i = 0; i < module->types(); ++i) {
    const Fwk::TypeInfo* type = module->type(i);
    if (type->kind() != Fwk::TypeKind::enumeration) continue;
    ++enumerations;
    ASSERT_NE(type->enumInfo, nullptr) << type->name();
    ASSERT_FALSE(type->enumInfo->enumerators.empty()) << type->name();
    for (const auto& [value, name] : type->enumInfo->enumerators) {
      EXPECT_EQ(registry().normalise(type->name(), name), name) << type->name();
      EXPECT_EQ(type->enumInfo->value(name, "attr"), value);
    }
  }
  EXPECT_EQ(enumerations, 3);
}

TEST(Registry, EveryRegisteredValueTypeRoundTripsThroughNormalise) {
  // Printed forms of sample values of every value type of the module.
  const std::map<std::string, std::vector<std::string>> samples{
      {"TesselCentral::HashEntryKey",
       {keyText(HashEntryKey()), keyText(HashEntryKey(0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF, HashEntryType::quadWide)),
        keyText(HashEntryKey(1, 2, 3, HashEntryType::empty))}},
      {"TesselCentral::EntryId", {EntryId(0).text(), EntryId(42).text(), EntryId().text()}},
      {"TesselCentral::SlotId", {"0", "65", "255"}},
  };
  const Fwk::Module* module = registry().module("MultiHashTableTypes");
  ASSERT_NE(module, nullptr);
  int values = 0;
  for (unsigned i = 0; i < module->types(); ++i) {
    const Fwk::TypeInfo* type = module->type(i);
    if (type->kind() != Fwk::TypeKind::value) continue;
    ++values;
    ASSERT_TRUE(type->normalise) << type->name();
    const auto sample = samples.find(type->name());
    ASSERT_NE(sample, samples.end()) << "no sample text for " << type->name();
    for (const std::string& text : sample->second) {
      EXPECT_EQ(registry().normalise(type->name(), text), text) << type->name();
    }
  }
  EXPECT_EQ(values, static_cast<int>(samples.size()));
}

TEST(Registry, NormaliseParsesHexadecimalAndPrintsDecimal) {
  EXPECT_EQ(registry().normalise("TesselCentral::HashEntryKey",
                                 "TesselCentral::HashEntryKey{crc16=0x10, crc32=0x20, fapId=0, entryType=doubleWide}"),
            keyText(HashEntryKey(16, 32, 0, HashEntryType::doubleWide)));
  EXPECT_EQ(registry().normalise("TesselCentral::EntryId", "TesselCentral::EntryId{value=0xFF}"), EntryId(255).text());
}

TEST(Registry, OutOfRangeValueIsRangeErrorNamingTheAttribute) {
  try {
    registry().normalise("TesselCentral::HashEntryKey",
                         "TesselCentral::HashEntryKey{crc16=65536, crc32=0, fapId=0, entryType=singleWide}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "crc16");
    EXPECT_NE(std::string(e.what()).find("crc16"), std::string::npos) << e.what();
  }
  try {
    registry().normalise("TesselCentral::EntryId", "TesselCentral::EntryId{value=4294967296}");
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "value");
  }
  EXPECT_THROW(registry().normalise("TesselCentral::SlotId", "256"), Fwk::RangeError);
  EXPECT_THROW(registry().normalise("TesselCentral::HashFunc", "hashCrc128"), Fwk::RangeError);
}

TEST(Registry, UnknownTypeIsUnknownNameError) {
  EXPECT_THROW(registry().normalise("TesselCentral::NoSuchType", "x"), Fwk::UnknownNameError);
  EXPECT_THROW(registry().typeOrThrow("TesselCentral::NoSuchType"), Fwk::UnknownNameError);
  EXPECT_THROW(registry().create("TesselCentral::NoSuchType", {}, Fwk::Scope()), Fwk::UnknownNameError);
  EXPECT_EQ(registry().type("TesselCentral::NoSuchType"), nullptr);
  EXPECT_EQ(registry().module("NoSuchModule"), nullptr);
}

TEST(Registry, ValueTypesHaveNoFactoryAndEntitiesNoNormalise) {
  EXPECT_THROW(registry().create("TesselCentral::EntryId", {}, Fwk::Scope()), Fwk::UnknownNameError);
  EXPECT_THROW(registry().normalise("RegistryProbe::Counter", "x"), Fwk::UnknownNameError);
}

// ---------------------------------------------------------------------------------------
// An entity type registered by this test

TEST(Registry, EntityTypeIsRegisteredInItsModuleWithItsAttributes) {
  const Fwk::Module* module = registry().module("RegistryTest");
  ASSERT_NE(module, nullptr);
  ASSERT_EQ(module->types(), 1u);
  const Fwk::TypeInfo* type = module->type(0);
  EXPECT_EQ(type, &RegistryProbe::counterType);
  EXPECT_EQ(type->name(), "RegistryProbe::Counter");
  EXPECT_EQ(type->kind(), Fwk::TypeKind::entity);
  EXPECT_EQ(type->factoryParameters, (std::vector<std::string>{"start", "kind"}));

  const Fwk::AttributeInfo* start = type->attribute("start");
  ASSERT_NE(start, nullptr);
  EXPECT_EQ(start->id, 130u);
  EXPECT_EQ(start->typeName, "U32");
  EXPECT_EQ(start->flags, static_cast<unsigned>(Fwk::constructorSet));
  const Fwk::AttributeInfo* kind = type->attribute("kind");
  ASSERT_NE(kind, nullptr);
  EXPECT_EQ(kind->typeName, "TesselCentral::HashEntryType");
  const Fwk::AttributeInfo* ids = type->attribute("ids");
  ASSERT_NE(ids, nullptr);
  EXPECT_NE(ids->flags & Fwk::collectionAttr, 0u);
  const Fwk::AttributeInfo* add = type->attribute("add");
  ASSERT_NE(add, nullptr);
  EXPECT_EQ(add->id, 135u);
  EXPECT_EQ(add->flags, static_cast<unsigned>(Fwk::operationAttr));
  EXPECT_EQ(add->parameters, (std::vector<std::string>{"n", "times"}));
  EXPECT_EQ(type->attribute("noSuchAttribute"), nullptr);
}

TEST(Registry, OperationsKnowTheTypesOfTheirParametersAndResult) {
  const Fwk::TypeInfo& type = RegistryProbe::counterType;
  EXPECT_EQ(type.attribute("add")->parameterTypes, (std::vector<std::string>{"U32", "U32"}));
  EXPECT_EQ(type.attribute("add")->resultTypeName, "U32");
  EXPECT_EQ(type.attribute("reset")->parameterTypes, std::vector<std::string>{});
  EXPECT_EQ(type.attribute("reset")->resultTypeName, "void");
  EXPECT_EQ(type.attribute("addFrom")->parameterTypes, std::vector<std::string>{"Ptr"});
  EXPECT_EQ(type.attribute("idIs")->parameterTypes,
            (std::vector<std::string>{"TesselCentral::HashEntryKey", "TesselCentral::EntryId"}));
  EXPECT_EQ(type.attribute("id")->resultTypeName, "TesselCentral::EntryId");
  EXPECT_EQ(type.attribute("start")->resultTypeName, "") << "an attribute is read, not called";
}

TEST(Registry, ANoteBelongsToTheAttributeRegisteredBeforeIt) {
  EXPECT_EQ(RegistryProbe::counterType.attribute("value")->note,
            "starts at start; add and addFrom raise it, reset takes it back");
  EXPECT_EQ(RegistryProbe::counterType.attribute("start")->note, "");
  EXPECT_EQ(RegistryProbe::counterType.attribute("positive")->note, "");
}

TEST(Registry, TypesNamedFindsATypeByItsNameWithoutTheNamespace) {
  using Types = std::vector<const Fwk::TypeInfo*>;
  const Fwk::TypeInfo* key = registry().type("TesselCentral::HashEntryKey");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(registry().typesNamed("HashEntryKey"), Types{key});
  EXPECT_EQ(registry().typesNamed("TesselCentral::HashEntryKey"), Types{key}) << "a qualified name finds itself";
  EXPECT_EQ(registry().typesNamed("MoveSearch"), Types{registry().type("TesselCentral::MoveSearch")});
  EXPECT_EQ(registry().typesNamed("EntryKey"), Types{}) << "the end of a name is no name";
  EXPECT_EQ(registry().typesNamed("Central::HashEntryKey"), Types{}) << "nor is the end of a namespace";
  EXPECT_EQ(registry().typesNamed("hashEntryKey"), Types{}) << "names are compared as they are written";
  EXPECT_EQ(registry().typesNamed(""), Types{});
  EXPECT_EQ(registry().typesNamed("NoSuchType"), Types{});
}

TEST(Registry, TypesNamedListsEveryTypeThatAnAmbiguousNameFits) {
  using Types = std::vector<const Fwk::TypeInfo*>;
  EXPECT_EQ(registry().typesNamed("Counter"), (Types{&RegistryProbe::counterType, &RegistryProbe::otherCounterType}));
  EXPECT_EQ(registry().typesNamed("OtherProbe::Counter"), Types{&RegistryProbe::otherCounterType});
}

TEST(Registry, FactoryCreatesAnEntityFromTextArguments) {
  Fwk::Ptr<Fwk::Entity> entity = registry().create("RegistryProbe::Counter", {"5", "quadWide"}, Fwk::Scope());
  ASSERT_NE(entity, nullptr);
  EXPECT_EQ(entity->references(), 1u);
  EXPECT_EQ(entity->fwkType(), &RegistryProbe::counterType);
  auto* counter = dynamic_cast<Counter*>(entity.ptr());
  ASSERT_NE(counter, nullptr);
  EXPECT_EQ(counter->value(), 5u);
  EXPECT_EQ(counter->kind(), HashEntryType::quadWide);
}

TEST(Registry, AttributesAreReadAsText) {
  const auto entity = registry().create("RegistryProbe::Counter", {"0x10", "doubleWide"}, Fwk::Scope());
  EXPECT_EQ(registry().read(*entity, "start"), "16");
  EXPECT_EQ(registry().read(*entity, "value"), "16");
  EXPECT_EQ(registry().read(*entity, "kind"), "doubleWide");
  EXPECT_EQ(registry().read(*entity, "positive"), "true");
  EXPECT_EQ(registry().read(*entity, "ids"), "{}");
  EXPECT_THROW(registry().read(*entity, "noSuchAttribute"), Fwk::UnknownNameError);
  EXPECT_THROW(registry().read(*entity, "add"), Fwk::UnknownNameError);
}

TEST(Registry, OperationIsCalledByNameWithTextArguments) {
  const auto entity = registry().create("RegistryProbe::Counter", {"1", "singleWide"}, Fwk::Scope());
  EXPECT_EQ(registry().call(*entity, "add", {"3", "2"}, Fwk::Scope()), "7");
  EXPECT_EQ(registry().read(*entity, "value"), "7");
  EXPECT_EQ(registry().call(*entity, "reset", {}, Fwk::Scope()), "");
  EXPECT_EQ(registry().read(*entity, "value"), "1");
}

TEST(Registry, EntityArgumentsAreNamedObjectsOfTheScope) {
  Fwk::Scope scope;
  scope.objectIs("a", registry().create("RegistryProbe::Counter", {"10", "singleWide"}, scope));
  scope.objectIs("b", registry().create("RegistryProbe::Counter", {"3", "singleWide"}, scope));
  EXPECT_EQ(registry().call(*scope.object("a"), "addFrom", {"b"}, scope), "13");
  EXPECT_EQ(registry().call(*scope.object("a"), "addFrom", {"null"}, scope), "13");
  EXPECT_EQ(scope.nameOf(scope.object("b").ptr()), "b");
  EXPECT_THROW(registry().call(*scope.object("a"), "addFrom", {"c"}, scope), Fwk::UnknownNameError);
  scope.objectIs("plain", Fwk::makeEntity<RegistryProbe::Anonymous>());
  EXPECT_THROW(registry().call(*scope.object("a"), "addFrom", {"plain"}, scope), Fwk::RangeError);
}

TEST(Registry, ValueArgumentsAndResultsUseTheValueText) {
  const auto entity = registry().create("RegistryProbe::Counter", {"0", "singleWide"}, Fwk::Scope());
  const HashEntryKey key(1, 2, 3, HashEntryType::doubleWide);
  EXPECT_EQ(registry().call(*entity, "idIs", {keyText(key), EntryId(9).text()}, Fwk::Scope()), "");
  EXPECT_EQ(registry().call(*entity, "id", {keyText(key)}, Fwk::Scope()), EntryId(9).text());
  EXPECT_EQ(registry().read(*entity, "ids"), "{" + keyText(key) + ": " + EntryId(9).text() + "}");
}

TEST(Registry, CollectionIsReadSortedByKey) {
  const auto entity = registry().create("RegistryProbe::Counter", {"0", "singleWide"}, Fwk::Scope());
  auto& counter = dynamic_cast<Counter&>(*entity);
  const HashEntryKey high(9, 0, 0, HashEntryType::singleWide);
  const HashEntryKey low(1, 0xFFFFFFFF, 0, HashEntryType::singleWide);
  counter.idIs(high, EntryId(1));
  counter.idIs(low, EntryId(2));
  EXPECT_EQ(registry().read(*entity, "ids"),
            "{" + keyText(low) + ": " + EntryId(2).text() + ", " + keyText(high) + ": " + EntryId(1).text() + "}");
}

TEST(Registry, WrongArgumentCountIsArgumentCountError) {
  const auto entity = registry().create("RegistryProbe::Counter", {"1", "singleWide"}, Fwk::Scope());
  EXPECT_THROW(registry().call(*entity, "add", {"3"}, Fwk::Scope()), Fwk::ArgumentCountError);
  EXPECT_THROW(registry().call(*entity, "reset", {"3"}, Fwk::Scope()), Fwk::ArgumentCountError);
  EXPECT_THROW(registry().create("RegistryProbe::Counter", {"1"}, Fwk::Scope()), Fwk::ArgumentCountError);
  try {
    registry().call(*entity, "add", {"1", "2", "3"}, Fwk::Scope());
    FAIL() << "no exception";
  } catch (const Fwk::ArgumentCountError& e) {
    EXPECT_STREQ(e.what(), "add takes 2 arguments, 3 given");
  }
  EXPECT_EQ(registry().read(*entity, "value"), "1");
}

TEST(Registry, BadArgumentTextIsSyntaxOrRangeErrorNamingTheParameter) {
  const auto entity = registry().create("RegistryProbe::Counter", {"1", "singleWide"}, Fwk::Scope());
  EXPECT_THROW(registry().call(*entity, "add", {"three", "1"}, Fwk::Scope()), Fwk::SyntaxError);
  try {
    registry().call(*entity, "add", {"1", "4294967296"}, Fwk::Scope());
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "times");
  }
  try {
    registry().create("RegistryProbe::Counter", {"1", "tripleWide"}, Fwk::Scope());
    FAIL() << "no exception";
  } catch (const Fwk::RangeError& e) {
    EXPECT_EQ(e.attribute(), "kind");
  }
}

TEST(Registry, UnknownOperationIsUnknownNameError) {
  const auto entity = registry().create("RegistryProbe::Counter", {"1", "singleWide"}, Fwk::Scope());
  EXPECT_THROW(registry().call(*entity, "noSuchOperation", {}, Fwk::Scope()), Fwk::UnknownNameError);
  EXPECT_THROW(registry().call(*entity, "value", {}, Fwk::Scope()), Fwk::UnknownNameError);
}

TEST(Registry, UnregisteredEntityHasNoTypeForGenericTools) {
  const auto plain = Fwk::makeEntity<RegistryProbe::Anonymous>();
  EXPECT_EQ(plain->fwkType(), nullptr);
  EXPECT_EQ(Fwk::entityTypeName(plain.ptr()), "Entity");
  EXPECT_EQ(Fwk::entityTypeName(nullptr), "null");
  EXPECT_THROW(registry().read(*plain, "value"), Fwk::UnknownNameError);
}

TEST(Registry, EntityPointersPrintAsTheirTypeName) {
  const auto entity = registry().create("RegistryProbe::Counter", {"1", "singleWide"}, Fwk::Scope());
  EXPECT_EQ(Fwk::toText(entity), "RegistryProbe::Counter");
  EXPECT_EQ(Fwk::toText(Fwk::Ptr<Counter>()), "null");
}

TEST(Registry, NumbersAndBooleansPrintAndParse) {
  EXPECT_EQ(Fwk::toText(TesselCentral::U8{255}), "255");
  EXPECT_EQ(Fwk::toText(TesselCentral::U64{18446744073709551615ull}), "18446744073709551615");
  EXPECT_EQ(Fwk::toText(true), "true");
  EXPECT_EQ(Fwk::TextTraits<bool>::parse("false", {}), false);
  EXPECT_THROW(Fwk::TextTraits<bool>::parse("yes", {"flag"}), Fwk::RangeError);
  EXPECT_THROW(Fwk::TextTraits<TesselCentral::U8>::parse("256", {"slot"}), Fwk::RangeError);
  EXPECT_EQ(Fwk::toText(HashFunc::hashCrc64), "hashCrc64");
}

TEST(Registry, ReinstantiationErrorNamesTypeAttributeAndBothValues) {
  const Fwk::ReinstantiationError e("TesselCentral::Bank", "numBuckets", "16", "32");
  const std::string what = e.what();
  EXPECT_EQ(e.attribute(), "numBuckets");
  EXPECT_NE(what.find("TesselCentral::Bank"), std::string::npos) << what;
  EXPECT_NE(what.find("numBuckets"), std::string::npos) << what;
  EXPECT_NE(what.find("16"), std::string::npos) << what;
  EXPECT_NE(what.find("32"), std::string::npos) << what;
  EXPECT_LT(what.find("16"), what.find("32")) << "the existing value comes first: " << what;
  const Fwk::Exception& base = e;
  EXPECT_STREQ(base.what(), what.c_str());
}

}  // namespace
