// The single-width table's request check, removal check, resync check and reconcile: each
// verdict against what the table then does.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "../singlewidth/SingleWidthSupport.h"
#include "MultiHashTable/MultiHashTable.h"
#include "RequestAgreement.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Two banks of two buckets of one slot, step budget 1 (bank 0 takes crc32 & 1, bank 1
// crc16 & 1). A is placed at its requested id 0; B, whose candidates are ids 0 and 2, finds
// both taken (C stands at 2) and moves A to its bank-1 slot, id 3.
struct MovedFromItsRequestedId {
  Tables t = makeTable(2, 2, 1, 1);
  HashEntryKey a = key(1, 0);
  HashEntryKey b = key(4, 6);
  HashEntryKey c = key(2, 1);

  MovedFromItsRequestedId() {
    t.requestAt(a, 0);
    t.requestAt(c, 2);
    t.request(b);
  }
};

TEST(SingleWidthRequestCheck, TheSameRequestWrittenAgainIsUnchanged) {
  Tables t = makeTable(2, 4, 2, 3);
  t.requestAt(key(1, 2), 4);
  const RequestCheck verdict = t.table->requestCheck(key(1, 2), EntryId(4));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::unchanged);
  EXPECT_TRUE(verdict.passes());
  EXPECT_EQ(t.table->requestProblem(key(1, 2), EntryId(4)), "");
}

TEST(SingleWidthRequestCheck, AnIdThatIsNotACandidateStopsNowOnTheValidityAssertion) {
  Tables t = makeTable(2, 4, 2, 3);
  const RequestCheck verdict = t.table->requestCheck(key(1, 2), EntryId(3));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "checkEntryIdValidity( key, eId )");
  EXPECT_EQ(verdict.problem(),
            "stops the agent: assertion \"checkEntryIdValidity( key, eId )\", because id 3 is not "
            "one of the key's candidate slots");
}

TEST(SingleWidthRequestCheck, AnIdHeldByAKeyWithOtherHashesStopsNowOnFalse) {
  Tables t = makeTable(2, 4, 2, 3);
  t.requestAt(key(1, 2), 4);
  const RequestCheck verdict = t.table->requestCheck(key(3, 6), EntryId(4));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "false");
}

TEST(SingleWidthRequestCheck, AnIdHeldByAKeyWithTheSameHashesIsHazardous) {
  Tables t = makeTable(2, 4, 2, 3);
  t.requestAt(key(1, 2, 1), 4);
  const RequestCheck verdict = t.table->requestCheck(key(1, 2, 7), EntryId(4));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_NE(verdict.reason().find("both keys are published at id 4"), std::string::npos) << verdict.reason();
}

TEST(SingleWidthRequestCheck, ARemovalOfAKeyTheTableNeverHandledStopsNow) {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  config->configIs(key(1, 2), EntryId());  // written before the table exists
  Ptr<MultiHashTable> table = multiHashTableFactory(1, 4, 1, config, status, 0, false);
  table->bankIs(HashEntryType::singleWide, 0, 4, 1, HashFunc::hashCrc32Lower, 0, 0, 3);
  const RequestCheck verdict = table->removalCheck(key(1, 2));
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "hashEntryStatus()->statusHas( key )");
  EXPECT_EQ(table->removalCheck(key(9, 9)).outcome(), RequestOutcome::unchanged);
}

TEST(SingleWidthRequestCheck, ChecksWriteNoTraceAtAnyLevel) {
  MovedFromItsRequestedId s;
  TraceCapture capture(0xFFFFFFFF);
  s.t.table->requestCheck(key(7, 7), EntryId());
  s.t.table->requestCheck(s.a, EntryId(1));
  s.t.table->removalCheck(s.b);
  s.t.table->resyncCheck();
  EXPECT_EQ(capture.texts(), std::vector<std::string>{});
}

TEST(SingleWidthResync, AfterAMoveTookAKeyFromItsRequestedIdTheResyncCheckNamesTheAssertion) {
  MovedFromItsRequestedId s;
  ASSERT_EQ(s.t.at(s.a), EntryId(3));
  ASSERT_EQ(s.t.at(s.b), EntryId(0));
  const RequestCheck verdict = s.t.table->resyncCheck();
  EXPECT_EQ(verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(verdict.condition(), "false");
  // The check ran on a copy: the table is as it was.
  EXPECT_EQ(s.t.at(s.a), EntryId(3));
  EXPECT_TRUE(s.t.table->audit().empty());
}

TEST(SingleWidthResyncDeathTest, AfterAMoveTookAKeyFromItsRequestedIdTheResyncStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MovedFromItsRequestedId s;
  EXPECT_DEATH(s.t.table->handleHashUpdate(), assertionFailure("false"));
}

TEST(SingleWidthReconcile, AKeyMovedFromItsRequestedIdStaysWhereItStandsAndIsReported) {
  MovedFromItsRequestedId s;
  TraceCapture capture(levelBit(2));
  const ReconcileReport report = s.t.table->reconcile();
  EXPECT_EQ(report.acted(), 0u);
  ASSERT_EQ(report.kept().size(), 1u);
  EXPECT_EQ(report.kept()[0].key, s.a);
  EXPECT_EQ(report.kept()[0].requested, EntryId(0));
  EXPECT_EQ(s.t.at(s.a), EntryId(3));
  EXPECT_TRUE(s.t.table->audit().empty());
  ASSERT_EQ(capture.texts(2).size(), 1u);
  EXPECT_EQ(capture.texts(2)[0].rfind("MultiHashTableBase::reconcile keeps key: " + textOf(s.a) + " requested: 0", 0),
            0u)
      << capture.texts(2)[0];
}

TEST(SingleWidthReconcile, RequestsWrittenWhileTheTableDidNotListenArePlacedAndGoneOnesRemoved) {
  Tables t = makeTable(2, 4, 2, 3);
  t.request(key(1, 1));
  t.table->hasNotificationActiveIs(false);
  t.config->configDel(key(1, 1));
  t.requestAt(key(2, 2), 4);
  t.request(key(3, 3));
  t.table->hasNotificationActiveIs(true);
  const ReconcileReport report = t.table->reconcile();
  EXPECT_EQ(report.acted(), 3u);
  EXPECT_TRUE(report.kept().empty());
  EXPECT_FALSE(t.status->statusHas(key(1, 1)));
  EXPECT_EQ(t.at(key(2, 2)), EntryId(4));
  EXPECT_TRUE(t.at(key(3, 3)).isValid());
  EXPECT_TRUE(t.table->audit().empty());
}

// Random requests against single-width tables, every other one making room breadth-first:
// every verdict is held against what the reaction then does (see RequestAgreement.h).
TEST(SingleWidthRequestCheck, AgreesWithTheReactionOverRandomRequests) {
  std::mt19937 rng(11);
  int executed = 0;
  for (int round = 0; round < 120; ++round) {
    const U32 banks = 1 + rng() % 3;
    const U32 slots = 1 + rng() % 3;
    Tables t = makeTable(banks, 4, slots, rng() % 9, rng() % 2 == 0);
    if (round % 2 == 1) t.table->moveSearchIs(MoveSearch::breadthFirst);
    executed += checkAgreement(*t.table, *t.config, *t.status, rng, [&](std::mt19937& r) {
      // Small hash ranges, so that keys collide in buckets and sometimes share both hashes.
      return HashEntryKey(static_cast<U16>(r() % 6), static_cast<U32>(r() % 6), static_cast<U32>(r() % 2),
                          HashEntryType::singleWide);
    });
  }
  EXPECT_GT(executed, 2000);
}

}  // namespace
}  // namespace TesselCentral::test
