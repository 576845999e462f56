// The table base: its bookkeeping, its counters and its reaction to every change of the
// requests. A small recording table stands in for a derived table, so that the decisions of
// the reaction can be seen call by call.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::key;
using test::levelBit;
using test::makeTable;
using test::Tables;
using test::textOf;
using test::TraceCapture;

// One call of a placement operation, with its arguments (unused ones are 0).
struct Call {
  std::string op;
  HashEntryKey key;
  U32 first = 0;
  U32 second = 0;
  bool operator==(const Call&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Call& c) {
  return os << c.op << "(" << c.key << ", " << c.first << ", " << c.second << ")";
}

// A derived table that records every placement operation. By default it also behaves like
// a table that always finds room: insertEntry places at the next free id, insertEntryWithId
// at the requested id, removeEntry drops the status.
class RecordingTable final : public MultiHashTableBase {
 public:
  static Ptr<RecordingTable> RecordingTableIs(Ptr<const HashEntryConfig> config, Ptr<HashEntryStatus> status,
                                              U32 maxSteps, U32 banks = 2, U32 buckets = 16, U32 slots = 4) {
    return Ptr<RecordingTable>::adopt(
        new RecordingTable(banks, buckets, slots, std::move(config), std::move(status), maxSteps));
  }

  U32 insertEntry(const HashEntryKey& k, U32 origBankId, U32 recursionStep) override {
    calls.push_back(Call{"insertEntry", k, origBankId, recursionStep});
    if (throwOnInsert) throw std::runtime_error("placement failed badly");
    if (emulate) hashEntryStatus()->statusIs(k, EntryId(nextId++));
    return 0;
  }
  bool checkEntryIdValidity(const HashEntryKey& k, EntryId eId) override {
    calls.push_back(Call{"checkEntryIdValidity", k, eId.value(), 0});
    return true;
  }
  void insertEntryWithId(const HashEntryKey& k, EntryId eId) override {
    calls.push_back(Call{"insertEntryWithId", k, eId.value(), 0});
    if (emulate) hashEntryStatus()->statusIs(k, eId);
  }
  void removeEntry(const HashEntryKey& k) override {
    calls.push_back(Call{"removeEntry", k, 0, 0});
    if (emulate) hashEntryStatus()->statusDel(k);
  }
  void checkSanity() override { calls.push_back(Call{"checkSanity", HashEntryKey(), 0, 0}); }

  std::vector<Call> calls;
  bool emulate = true;
  bool throwOnInsert = false;
  U32 nextId = 1000;

 private:
  RecordingTable(U32 banks, U32 buckets, U32 slots, Ptr<const HashEntryConfig> config, Ptr<HashEntryStatus> status,
                 U32 maxSteps)
      : MultiHashTableBase(banks, buckets, slots, std::move(config), std::move(status), maxSteps) {}
};

Call insertCall(const HashEntryKey& k, U32 steps) { return Call{"insertEntry", k, 128, steps}; }
Call sanityCall() { return Call{"checkSanity", HashEntryKey(), 0, 0}; }
Call insertWithIdCall(const HashEntryKey& k, U32 id) { return Call{"insertEntryWithId", k, id, 0}; }
Call removeCall(const HashEntryKey& k) { return Call{"removeEntry", k, 0, 0}; }

class ConfigReaction : public ::testing::Test {
 protected:
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<RecordingTable> table = RecordingTable::RecordingTableIs(config, status, 3);
  const HashEntryKey k = key(0x1234, 0xCAFE0001);
};

// ---------------------------------------------------------------------------------------
// Construction, attributes, counters

TEST(TableBase, ConstructionKeepsTheGeometryAndStartsWithZeroCountersAndFapId127) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableBaseFactory(4, 1024, 4, config, status, 3);

  EXPECT_EQ(table->numBanks(), 4u);
  EXPECT_EQ(table->numBuckets(), 1024u);
  EXPECT_EQ(table->numBucketEntries(), 4u);
  EXPECT_EQ(table->maxRecursiveSteps(), 3u);
  EXPECT_EQ(table->hashEntryConfig().ptr(), config.ptr());
  EXPECT_EQ(table->hashEntryStatus().ptr(), status.ptr());
  EXPECT_EQ(table->fapId().value(), 127);
  EXPECT_EQ(table->numInsertions(), 0u);
  EXPECT_EQ(table->numDeletions(), 0u);
  EXPECT_EQ(table->numMoves(), 0u);
  EXPECT_TRUE(table->hashTableEntryCollection().empty());
  EXPECT_EQ(table->references(), 1u);
}

TEST(TableBase, TableCapacityOfFourBanksOf1024BucketsOfFourSlotsIs16384) {
  auto table = multiHashTableBaseFactory(4, 1024, 4, hashEntryConfigFactory(), hashEntryStatusFactory(), 0);
  EXPECT_EQ(table->tableCapacity(), 16384u);
}

TEST(TableBase, TableCapacityWrapsInThirtyTwoBits) {
  auto table = multiHashTableBaseFactory(65536, 65536, 1, nullptr, nullptr, 0);
  EXPECT_EQ(table->tableCapacity(), 0u);
  auto odd = multiHashTableBaseFactory(3, 0x80000000u, 1, nullptr, nullptr, 0);
  EXPECT_EQ(odd->tableCapacity(), 0x80000000u);
}

TEST(TableBase, ConstructionTakesOneReferenceOnConfigAndStatusAndDestructionDropsThem) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  {
    auto table = multiHashTableBaseFactory(1, 1, 1, config, status, 0);
    EXPECT_EQ(config->references(), 2u);
    EXPECT_EQ(status->references(), 2u);
  }
  EXPECT_EQ(config->references(), 1u);
  EXPECT_EQ(status->references(), 1u);
}

TEST(TableBase, CounterIncrementsAddAndReturnTheNewValueWrapping) {
  auto table = multiHashTableBaseFactory(1, 1, 1, nullptr, nullptr, 0);
  EXPECT_EQ(table->numInsertionsInc(1), 1u);
  EXPECT_EQ(table->numInsertionsInc(4), 5u);
  EXPECT_EQ(table->numInsertionsInc(0xFFFFFFFFu), 4u);
  EXPECT_EQ(table->numDeletionsInc(7), 7u);
  EXPECT_EQ(table->numDeletionsInc(0xFFFFFFF9u), 0u);
  EXPECT_EQ(table->numMovesInc(2), 2u);
  EXPECT_EQ(table->numMoves(), 2u);
  EXPECT_EQ(table->numInsertions(), 4u);
  EXPECT_EQ(table->numDeletions(), 0u);
}

TEST(TableBase, HashTableEntryAddsOverwritesAndDeletesWithoutTouchingTheStatus) {
  auto status = hashEntryStatusFactory();
  test::ChangeRecorder recorder(*status);
  auto table = multiHashTableBaseFactory(1, 4, 1, nullptr, status, 0);

  table->hashTableEntryIs(EntryId(3), key(1, 2));
  EXPECT_TRUE(table->hashTableEntryHas(EntryId(3)));
  EXPECT_EQ(table->hashTableEntry(EntryId(3)), key(1, 2));
  table->hashTableEntryIs(EntryId(3), key(5, 6));
  EXPECT_EQ(table->hashTableEntry(EntryId(3)), key(5, 6));
  EXPECT_EQ(table->hashTableEntryCollection().size(), 1u);
  EXPECT_EQ(table->hashTableEntry(EntryId(2)), HashEntryKey());
  EXPECT_EQ(table->hashTableEntryFind(EntryId(2)), nullptr);

  table->hashTableEntryDel(EntryId(3));
  table->hashTableEntryDel(EntryId(9));
  EXPECT_FALSE(table->hashTableEntryHas(EntryId(3)));
  table->hashTableEntryIs(EntryId(0), key(1, 1));
  table->hashTableEntryIs(EntryId(1), key(2, 2));
  table->hashTableEntryDelAll();
  EXPECT_TRUE(table->hashTableEntryCollection().empty());
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_TRUE(status->statusCollection().empty());
}

// ---------------------------------------------------------------------------------------
// Abstract operations and the base's checkSanity

TEST(TableBaseDeathTest, InsertEntryOnTheBaseFailsTheDerivedClassAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  EXPECT_DEATH(table->insertEntry(key(1, 2), 128, 1),
               assertionFailure("0 && \"Derived class needs to implement this\""));
}

TEST(TableBaseDeathTest, CheckEntryIdValidityOnTheBaseFailsTheDerivedClassAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  EXPECT_DEATH(table->checkEntryIdValidity(key(1, 2), EntryId(0)),
               assertionFailure("0 && \"Derived class needs to implement this\""));
}

TEST(TableBaseDeathTest, InsertEntryWithIdOnTheBaseFailsTheDerivedClassAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  EXPECT_DEATH(table->insertEntryWithId(key(1, 2), EntryId(0)),
               assertionFailure("0 && \"Derived class needs to implement this\""));
}

TEST(TableBaseDeathTest, RemoveEntryOnTheBaseFailsTheDerivedClassAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  EXPECT_DEATH(table->removeEntry(key(1, 2)), assertionFailure("0 && \"Derived class needs to implement this\""));
}

TEST(TableBaseDeathTest, ARequestToTheBaseTableReachesTheAbstractInsertEntry) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto config = hashEntryConfigFactory();
  auto table = multiHashTableBaseFactory(2, 4, 1, config, hashEntryStatusFactory(), 1);
  EXPECT_DEATH(config->configIs(key(1, 2), EntryId()),
               "TesselCentral::MultiHashTableBase::insertEntry.*" +
                   assertionFailure("0 && \"Derived class needs to implement this\""));
}

TEST(TableBase, BaseCheckSanityTracesItsSignatureAtLevelOneAndChecksNothing) {
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  TraceCapture capture(levelBit(1));
  table->checkSanity();
  ASSERT_EQ(capture.sink().lines().size(), 1u);
  const auto& line = capture.sink().lines()[0];
  EXPECT_EQ(line.level, 1u);
  EXPECT_EQ(line.function, "checkSanity");
  EXPECT_EQ(line.file, "MultiHashTable");
  EXPECT_EQ(line.text, "virtual void TesselCentral::MultiHashTableBase::checkSanity()");
}

TEST(TableBase, BaseCheckSanityIsSilentWhenLevelOneIsOff) {
  auto table = multiHashTableBaseFactory(2, 4, 1, nullptr, hashEntryStatusFactory(), 1);
  TraceCapture capture(~levelBit(1));
  table->checkSanity();
  EXPECT_TRUE(capture.sink().lines().empty());
}

// ---------------------------------------------------------------------------------------
// The decision table of handleHashUpdate(key)

TEST_F(ConfigReaction, RequestWithTheIdThatTheStatusAlreadyHoldsCausesNoCall) {
  status->statusIs(k, EntryId(42));
  config->configIs(k, EntryId(42));
  EXPECT_TRUE(table->calls.empty());
  EXPECT_EQ(status->status(k), EntryId(42));
}

TEST_F(ConfigReaction, RequestWithAValidIdForAnUnknownKeyCallsInsertEntryWithIdOnly) {
  config->configIs(k, EntryId(7));
  EXPECT_EQ(table->calls, (std::vector<Call>{insertWithIdCall(k, 7)}));
}

TEST_F(ConfigReaction, RequestWithAnotherValidIdThanTheStatusCallsInsertEntryWithIdWithoutSanityCheck) {
  status->statusIs(k, EntryId(3));
  config->configIs(k, EntryId(7));
  EXPECT_EQ(table->calls, (std::vector<Call>{insertWithIdCall(k, 7)}));
}

TEST_F(ConfigReaction, RequestWithAValidIdForAKeyWhoseStatusIsInvalidCallsInsertEntryWithId) {
  status->statusIs(k, EntryId());
  config->configIs(k, EntryId(7));
  EXPECT_EQ(table->calls, (std::vector<Call>{insertWithIdCall(k, 7)}));
}

TEST_F(ConfigReaction, RequestWithTheInvalidIdCallsInsertEntryWith128AndTheStepBudgetThenCheckSanity) {
  config->configIs(k, EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{insertCall(k, 3), sanityCall()}));
}

TEST_F(ConfigReaction, InvalidRequestForAnAlreadyPlacedKeyCallsInsertEntryThenCheckSanity) {
  config->configIs(k, EntryId(5));
  ASSERT_EQ(status->status(k), EntryId(5));
  table->calls.clear();

  config->configIs(k, EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{insertCall(k, 3), sanityCall()}));
}

TEST_F(ConfigReaction, InvalidRequestIsHandedToInsertEntryEvenWhenTheStatusIsAlreadyInvalid) {
  status->statusIs(k, EntryId());
  table->emulate = false;
  table->handleHashUpdate();  // nothing requested yet
  EXPECT_TRUE(table->calls.empty());
  config->configIs(k, EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{insertCall(k, 3), sanityCall()}));
}

TEST_F(ConfigReaction, InsertEntryResultIsIgnoredAndTheStatusIsLeftToTheDerivedTable) {
  table->emulate = false;
  config->configIs(k, EntryId());
  EXPECT_FALSE(status->statusHas(k));
}

TEST_F(ConfigReaction, ConfigDelOfAPlacedKeyCallsRemoveEntry) {
  config->configIs(k, EntryId());
  ASSERT_TRUE(status->statusHas(k));
  table->calls.clear();

  EXPECT_EQ(config->configDel(k), EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{removeCall(k)}));
  EXPECT_FALSE(status->statusHas(k));
}

TEST_F(ConfigReaction, ConfigDelOfAKeyWhoseStatusIsInvalidCallsRemoveEntry) {
  table->emulate = false;
  config->configIs(k, EntryId());
  status->statusIs(k, EntryId());
  table->calls.clear();

  config->configDel(k);
  EXPECT_EQ(table->calls, (std::vector<Call>{removeCall(k)}));
}

TEST_F(ConfigReaction, ConfigDelOfANeverRequestedKeyCausesNoReaction) {
  status->statusIs(k, EntryId(9));  // even a key that the status knows
  EXPECT_EQ(config->configDel(k), EntryId());
  EXPECT_TRUE(table->calls.empty());
  EXPECT_EQ(status->status(k), EntryId(9));
}

TEST_F(ConfigReaction, WritingTheSameRequestTwiceReactsOnce) {
  config->configIs(k, EntryId());
  config->configIs(k, EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{insertCall(k, 3), sanityCall()}));
}

TEST_F(ConfigReaction, ReactionRunsInsideTheClientsWriteBeforeItReturns) {
  config->configIs(k, EntryId(11));
  // Nothing else ran between the write and this check.
  EXPECT_EQ(status->status(k), EntryId(11));
}

TEST_F(ConfigReaction, StepBudgetHandedToInsertEntryIsTheTablesMaxRecursiveSteps) {
  auto other = RecordingTable::RecordingTableIs(config, hashEntryStatusFactory(), 0);
  other->emulate = false;
  table->emulate = false;
  config->configIs(k, EntryId());
  EXPECT_EQ(table->calls, (std::vector<Call>{insertCall(k, 3), sanityCall()}));
  EXPECT_EQ(other->calls, (std::vector<Call>{insertCall(k, 0), sanityCall()}));
}

TEST_F(ConfigReaction, ChangesOfOtherAttributesAreIgnored) {
  config->publisher().publish(131, &k, nullptr);
  config->publisher().publish(258, &k, nullptr);
  EXPECT_TRUE(table->calls.empty());
}

TEST_F(ConfigReaction, DispatchOfTheConfigAttributeReactsToTheNamedKey) {
  config->configIs(k, EntryId(4));
  table->calls.clear();
  status->statusIs(k, EntryId(6));
  config->publisher().publish(HashEntryConfig::configAttrId, &k, nullptr);
  EXPECT_EQ(table->calls, (std::vector<Call>{insertWithIdCall(k, 4)}));
}

TEST(ConfigReactionDeathTest, RemovalOfARequestWhoseKeyTheStatusDoesNotKnowFailsTheAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = RecordingTable::RecordingTableIs(config, status, 1);
  const HashEntryKey k = key(3, 4);
  config->configIs(k, EntryId(12));
  status->statusDel(k);
  EXPECT_DEATH(config->configDel(k), assertionFailure("hashEntryStatus()->statusHas( key )"));
}

TEST(ConfigReactionDeathTest, RemovalOfAnUnplacedRequestWhoseDerivedTableWroteNoStatusFailsTheAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = RecordingTable::RecordingTableIs(config, status, 1);
  table->emulate = false;
  const HashEntryKey k = key(3, 4);
  config->configIs(k, EntryId());
  EXPECT_DEATH(config->configDel(k), assertionFailure("hashEntryStatus()->statusHas( key )"));
}

TEST(ConfigReactionDeathTest, AnExceptionEscapingTheReactionTerminatesTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto config = hashEntryConfigFactory();
  auto table = RecordingTable::RecordingTableIs(config, hashEntryStatusFactory(), 1);
  table->throwOnInsert = true;
  EXPECT_DEATH(config->configIs(key(1, 1), EntryId()), "");
}

// ---------------------------------------------------------------------------------------
// Full resync

TEST(ConfigReactionResync, FullResyncVisitsEveryRequestAndRemovesNothing) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  const HashEntryKey anywhere = key(1, 1);
  const HashEntryKey elsewhere = key(2, 2);
  const HashEntryKey inPlace = key(3, 3);
  const HashEntryKey gone = key(4, 4);
  // Requests written before the table exists are not seen by it.
  config->configIs(anywhere, EntryId());
  config->configIs(elsewhere, EntryId(20));
  config->configIs(inPlace, EntryId(30));
  status->statusIs(elsewhere, EntryId(21));
  status->statusIs(inPlace, EntryId(30));
  status->statusIs(gone, EntryId(40));  // no longer requested

  auto table = RecordingTable::RecordingTableIs(config, status, 2);
  EXPECT_TRUE(table->calls.empty());
  table->handleHashUpdate();

  std::vector<Call> calls = table->calls;
  // insertEntry is always followed at once by checkSanity.
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (calls[i].op == "insertEntry") {
      ASSERT_LT(i + 1, calls.size());
      EXPECT_EQ(calls[i + 1], sanityCall());
    }
  }
  const auto byText = [](const Call& a, const Call& b) {
    std::ostringstream x, y;
    x << a;
    y << b;
    return x.str() < y.str();
  };
  std::vector<Call> expected{insertCall(anywhere, 2), sanityCall(), insertWithIdCall(elsewhere, 20)};
  std::sort(calls.begin(), calls.end(), byText);
  std::sort(expected.begin(), expected.end(), byText);
  EXPECT_EQ(calls, expected);
  EXPECT_EQ(status->status(gone), EntryId(40));
  EXPECT_EQ(status->status(inPlace), EntryId(30));
}

TEST(ConfigReactionResync, FullResyncOfAnEmptyConfigCallsNothing) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  status->statusIs(key(4, 4), EntryId(40));
  auto table = RecordingTable::RecordingTableIs(config, status, 2);
  table->handleHashUpdate();
  EXPECT_TRUE(table->calls.empty());
  EXPECT_EQ(status->statusCollection().size(), 1u);
}

TEST(ConfigReactionResync, FullResyncTracesItsNameThenEachKeyAtLevelOne) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  const HashEntryKey k = key(0x12, 0x345);
  config->configIs(k, EntryId(8));
  status->statusIs(k, EntryId(8));
  auto table = RecordingTable::RecordingTableIs(config, status, 2);

  TraceCapture capture(levelBit(1));
  table->handleHashUpdate();
  ASSERT_EQ(capture.sink().lines().size(), 2u);
  EXPECT_EQ(capture.sink().lines()[0].function, "handleHashUpdate");
  EXPECT_EQ(capture.sink().lines()[0].text, "handleHashUpdate");
  EXPECT_EQ(capture.sink().lines()[1].function, "handleHashUpdate");
  EXPECT_EQ(capture.sink().lines()[1].text,
            "MultiHashTableBase::handleHashUpdate key: "
            "TesselCentral::HashEntryKey{crc16=18, crc32=837, fapId=1, entryType=singleWide}");
}

TEST_F(ConfigReaction, EachReactionTracesTheKeyAtLevelOne) {
  TraceCapture capture(levelBit(1));
  config->configIs(k, EntryId(2));
  EXPECT_EQ(capture.texts(1), std::vector<std::string>{"MultiHashTableBase::handleHashUpdate key: " + textOf(k)});
}

// ---------------------------------------------------------------------------------------
// Subscription and notification state

TEST(ConfigReactionSubscription, ConstructionSubscribesToTheConfigAtOnce) {
  auto config = hashEntryConfigFactory();
  auto table = RecordingTable::RecordingTableIs(config, hashEntryStatusFactory(), 1);
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  config->configIs(key(1, 1), EntryId(3));
  EXPECT_EQ(table->calls.size(), 1u);
}

TEST(ConfigReactionSubscription, TableWithANullConfigSubscribesToNothingAndNeverReacts) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = RecordingTable::RecordingTableIs(nullptr, status, 1);
  EXPECT_EQ(table->hashEntryConfig(), nullptr);
  table->hasNotificationActiveIs(true);
  EXPECT_TRUE(table->notificationActive());
  config->configIs(key(1, 1), EntryId());
  EXPECT_EQ(config->publisher().subscribers(), 0u);
  table->hasNotificationActiveIs(false);
  EXPECT_FALSE(table->notificationActive());
  EXPECT_TRUE(table->calls.empty());
  EXPECT_TRUE(status->statusCollection().empty());
}

TEST(ConfigReactionSubscription, TurningNotificationOnDoesNotSubscribeTwice) {
  auto config = hashEntryConfigFactory();
  auto table = RecordingTable::RecordingTableIs(config, hashEntryStatusFactory(), 1);
  EXPECT_FALSE(table->notificationActive());
  table->hasNotificationActiveIs(true);
  EXPECT_TRUE(table->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  config->configIs(key(1, 1), EntryId(3));
  EXPECT_EQ(table->calls.size(), 1u);
}

TEST(ConfigReactionSubscription, ReactionsStopAfterNotificationIsTurnedOff) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = RecordingTable::RecordingTableIs(config, status, 1);
  table->hasNotificationActiveIs(true);
  table->hasNotificationActiveIs(false);
  EXPECT_FALSE(table->notificationActive());
  EXPECT_EQ(config->publisher().subscribers(), 0u);

  config->configIs(key(1, 1), EntryId());
  config->configIs(key(2, 2), EntryId(5));
  EXPECT_TRUE(table->calls.empty());
  EXPECT_TRUE(status->statusCollection().empty());

  table->hasNotificationActiveIs(true);
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  config->configIs(key(3, 3), EntryId(6));
  EXPECT_EQ(table->calls, (std::vector<Call>{insertWithIdCall(key(3, 3), 6)}));
}

TEST(ConfigReactionSubscription, TurningNotificationOffWhileTheFlagIsAlreadyOffChangesNothing) {
  // The constructor subscribes without setting the flag; turning off a flag that is off is
  // a no-op, so the table stays subscribed.
  auto config = hashEntryConfigFactory();
  auto table = RecordingTable::RecordingTableIs(config, hashEntryStatusFactory(), 1);
  table->hasNotificationActiveIs(false);
  EXPECT_EQ(config->publisher().subscribers(), 1u);
  config->configIs(key(1, 1), EntryId(3));
  EXPECT_EQ(table->calls.size(), 1u);
}

TEST(ConfigReactionSubscription, DestroyingTheTableUnsubscribesAndLeavesTheStatusAsItWas) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  {
    auto table = RecordingTable::RecordingTableIs(config, status, 1);
    table->hasNotificationActiveIs(true);
    config->configIs(key(1, 1), EntryId(3));
    config->configIs(key(2, 2), EntryId());
    table->hashTableEntryIs(EntryId(3), key(1, 1));
    EXPECT_EQ(config->references(), 2u);
    EXPECT_EQ(status->references(), 2u);
  }
  EXPECT_EQ(config->publisher().subscribers(), 0u);
  EXPECT_EQ(config->references(), 1u);
  EXPECT_EQ(status->references(), 1u);
  ASSERT_EQ(status->statusCollection().size(), 2u);
  EXPECT_EQ(status->status(key(1, 1)), EntryId(3));
  EXPECT_EQ(status->status(key(2, 2)), EntryId(1000));

  // Later writes reach nobody.
  config->configDel(key(1, 1));
  EXPECT_EQ(status->status(key(1, 1)), EntryId(3));
}

}  // namespace
}  // namespace TesselCentral
