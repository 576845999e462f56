// The hazards that the described rules leave behind: a single-width key re-placed while it
// stands elsewhere leaks its old id, its removal leaves that id recorded without a request,
// and a later move publishes the record again. Each is seen by the request check before the
// write, found by the audit after it and repaired by reconcile. Also the checked writes, and
// requests written from inside a status notification.
#include <gtest/gtest.h>

#include <string>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Notification.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

HashEntryKey k(U16 crc16, U32 crc32) { return HashEntryKey(crc16, crc32, 0, HashEntryType::singleWide); }

std::string keyText(const HashEntryKey& key) { return detail::keyText(key); }

// 2 banks x 8 buckets x 1 slot, budget 1: bank 0 takes crc32, bank 1 crc16, both masked to 7.
struct LeakTable {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<MultiHashTable> table;

  explicit LeakTable(MoveSearch search = MoveSearch::depthFirst, U32 budget = 1) {
    table = multiHashTableFactory(2, 8, 1, config, status, budget, false);
    table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
    table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 7);
    table->moveSearchIs(search);
  }
  RequestCheck set(const HashEntryKey& key, EntryId id) {
    RequestCheck verdict = table->requestCheck(key, id);
    config->configIs(key, id);
    return verdict;
  }
  RequestCheck del(const HashEntryKey& key) {
    RequestCheck verdict = table->removalCheck(key);
    config->configDel(key);
    return verdict;
  }
};

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The script, step by step, for either search.
void runLeakScript(MoveSearch search) {
  LeakTable t(search);
  EXPECT_EQ(t.set(k(1, 2), EntryId(9)).outcome(), RequestOutcome::accepted);
  EXPECT_TRUE(t.table->auditReport().clean());

  const RequestCheck replaced = t.set(k(1, 2), EntryId());
  EXPECT_EQ(replaced.outcome(), RequestOutcome::hazardous);
  EXPECT_EQ(replaced.reason(),
            "the key stands at id 9, which stays recorded for it when it is published at id 2: id 9 leaks until a "
            "reconcile releases it");
  EXPECT_EQ(replaced.leaves(), AuditKind::leakedId);
  EXPECT_EQ(replaced.leftAt(), EntryId(9));
  EXPECT_EQ(t.status->status(k(1, 2)), EntryId(2));
  EXPECT_EQ(
      t.table->auditReport().texts(AuditKind::leakedId),
      std::vector<std::string>{"id 9 is recorded for key " + keyText(k(1, 2)) + ", whose result is 2: the id leaks"});

  const RequestCheck removal = t.del(k(1, 2));
  EXPECT_EQ(removal.outcome(), RequestOutcome::hazardous);
  EXPECT_EQ(removal.reason(),
            "the removal frees id 2 only: id 9 stays recorded for the key, which then has no request, and a later "
            "move may publish it again");
  EXPECT_EQ(t.table->auditReport().texts(AuditKind::recordWithoutRequest),
            std::vector<std::string>{"id 9 is recorded for key " + keyText(k(1, 2)) +
                                     ", which has no request and no result there"});

  EXPECT_TRUE(t.set(k(3, 1), EntryId()).passes());
  EXPECT_TRUE(t.set(k(3, 5), EntryId(11)).passes());

  const RequestCheck moving = t.set(k(1, 1), EntryId());
  EXPECT_EQ(moving.outcome(), RequestOutcome::hazardous);
  EXPECT_EQ(moving.reason(), "the placement moves key " + keyText(k(1, 2)) +
                                 " from id 9 and publishes it at id 2, though it has no request");
  EXPECT_EQ(moving.leaves(), AuditKind::resultWithoutRequest);
  EXPECT_EQ(moving.leftAt(), EntryId(2));
  // The deleted key is published again, at id 2.
  EXPECT_EQ(t.status->status(k(1, 2)), EntryId(2));
  const AuditReport report = t.table->auditReport();
  EXPECT_EQ(report.count(AuditKind::corruption), 0u) << report;
  EXPECT_EQ(report.texts(AuditKind::resultWithoutRequest),
            std::vector<std::string>{"key " + keyText(k(1, 2)) + " has the result 2 but no request"});

  const ReconcileReport reconciled = t.table->reconcile();
  ASSERT_EQ(reconciled.removed().size(), 1u);
  EXPECT_EQ(reconciled.removed()[0].key, k(1, 2));
  EXPECT_EQ(reconciled.removed()[0].id, EntryId(2));
  EXPECT_FALSE(t.status->statusHas(k(1, 2)));
  EXPECT_TRUE(t.table->auditReport().clean()) << t.table->auditReport();
}

TEST(Hazards, TheLeakScriptIsSeenFoundAndRepairedDepthFirst) { runLeakScript(MoveSearch::depthFirst); }

TEST(Hazards, TheLeakScriptIsSeenFoundAndRepairedBreadthFirst) { runLeakScript(MoveSearch::breadthFirst); }

TEST(Hazards, AResyncThatReplacesAKeyIntoAFreedSlotLeaksItsOldIdAndReconcileReleasesIt) {
  LeakTable t;
  t.set(k(1, 2), EntryId());   // bank 0 bucket 2: id 2
  t.set(k(5, 10), EntryId());  // bank 0 bucket 2 is taken: bank 1 bucket 5, id 13
  t.del(k(1, 2));
  EXPECT_EQ(t.status->status(k(5, 10)), EntryId(13));

  const RequestCheck verdict = t.table->resyncCheck();
  EXPECT_EQ(verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_TRUE(contains(verdict.reason(), "id 13 leaks")) << verdict.reason();

  t.table->handleHashUpdate();
  EXPECT_EQ(t.status->status(k(5, 10)), EntryId(2));
  EXPECT_EQ(
      t.table->auditReport().texts(AuditKind::leakedId),
      std::vector<std::string>{"id 13 is recorded for key " + keyText(k(5, 10)) + ", whose result is 2: the id leaks"});

  const U32 deletions = t.table->numDeletions();
  const ReconcileReport reconciled = t.table->reconcile();
  ASSERT_EQ(reconciled.released().size(), 1u);
  EXPECT_EQ(reconciled.released()[0].id, EntryId(13));
  EXPECT_EQ(reconciled.released()[0].reason, "its result is another id");
  EXPECT_EQ(t.table->numDeletions(), deletions + 1);
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(13)));
  EXPECT_TRUE(t.table->auditReport().clean()) << t.table->auditReport();
}

TEST(Hazards, ReconcileTracesEachReleaseAtLevelTwo) {
  LeakTable t;
  t.set(k(1, 2), EntryId(9));
  t.set(k(1, 2), EntryId());
  const TraceCapture trace(levelBit(2));
  t.table->reconcile();
  EXPECT_EQ(trace.texts(2), std::vector<std::string>{"MultiHashTableBase::reconcile releases eId: 9 key: " +
                                                     keyText(k(1, 2)) + " reason: its result is another id"});
}

TEST(Hazards, AResultLeftBehindByADeafTableIsFoundAndRemoved) {
  // The table is deaf while the request is deleted: the result stays.
  LeakTable t;
  t.set(k(1, 2), EntryId());
  t.table->hasNotificationActiveIs(false);
  t.config->configDel(k(1, 2));
  t.table->hasNotificationActiveIs(true);
  EXPECT_EQ(t.table->auditReport().texts(AuditKind::resultWithoutRequest),
            std::vector<std::string>{"key " + keyText(k(1, 2)) + " has the result 2 but no request"});
  t.table->reconcile();
  EXPECT_TRUE(t.table->auditReport().clean()) << t.table->auditReport();
}

TEST(CheckedWrites, AFatalRequestIsRefusedAndTheConfigIsLeftAsItWas) {
  LeakTable t;
  const CheckedWrite write = checkedConfigIs(*t.config, *t.table, k(1, 2), EntryId(3));
  EXPECT_FALSE(write.written);
  EXPECT_EQ(write.verdict.outcome(), RequestOutcome::stopsNow);
  EXPECT_EQ(write.verdict.condition(), "checkEntryIdValidity( key, eId )");
  EXPECT_FALSE(t.config->configHas(k(1, 2)));
  EXPECT_FALSE(t.status->statusHas(k(1, 2)));
}

TEST(CheckedWrites, ASafeRequestIsWrittenAndItsVerdictReturned) {
  LeakTable t;
  const CheckedWrite write = checkedConfigIs(*t.config, *t.table, k(1, 2), EntryId(9));
  EXPECT_TRUE(write.written);
  EXPECT_EQ(write.verdict.text(), "accepted: the key is placed at id 9");
  EXPECT_EQ(t.status->status(k(1, 2)), EntryId(9));
}

TEST(CheckedWrites, AHazardIsWrittenUnlessHazardsAreRefusedToo) {
  LeakTable t;
  checkedConfigIs(*t.config, *t.table, k(1, 2), EntryId(9));
  const CheckedWrite refused = checkedConfigIs(*t.config, *t.table, k(1, 2), EntryId(), WriteRefusal::fatalOrHazard);
  EXPECT_FALSE(refused.written);
  EXPECT_EQ(refused.verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_EQ(t.config->config(k(1, 2)), EntryId(9));
  const CheckedWrite written = checkedConfigIs(*t.config, *t.table, k(1, 2), EntryId());
  EXPECT_TRUE(written.written);
  EXPECT_EQ(t.status->status(k(1, 2)), EntryId(2));
}

TEST(CheckedWrites, TheRemovalOfAKeyTheTableNeverHandledIsRefused) {
  LeakTable t;
  t.table->hasNotificationActiveIs(false);
  t.config->configIs(k(1, 2), EntryId());
  t.table->hasNotificationActiveIs(true);
  const CheckedWrite write = checkedConfigDel(*t.config, *t.table, k(1, 2));
  EXPECT_FALSE(write.written);
  EXPECT_EQ(write.verdict.condition(), "hashEntryStatus()->statusHas( key )");
  EXPECT_TRUE(t.config->configHas(k(1, 2)));
}

// A status subscriber that writes one request from inside the notification of one key.
class WriterInsideNotification : public Fwk::Reactor {
 public:
  WriterInsideNotification(LeakTable& t, HashEntryKey trigger, HashEntryKey written, bool checked)
      : t_(t), trigger_(trigger), written_(written), checked_(checked) {
    t.status->publisher().subscriberIs(*this);
  }
  ~WriterInsideNotification() override { t_.status->publisher().subscriberDel(*this); }
  void onNotification(const Fwk::Notification& n) override {
    if (done_ || !(*static_cast<const HashEntryKey*>(n.key) == trigger_)) return;
    done_ = true;
    verdict = t_.table->requestCheck(written_, EntryId());
    if (checked_) {
      write = checkedConfigIs(*t_.config, *t_.table, written_, EntryId());
    } else {
      t_.config->configIs(written_, EntryId());
    }
  }
  RequestCheck verdict;
  CheckedWrite write;

 private:
  LeakTable& t_;
  HashEntryKey trigger_;
  HashEntryKey written_;
  bool checked_;
  bool done_ = false;
};

// k(2, 1) stands at id 1 (bank 0 bucket 1) and k(3, 5) at id 11 (bank 1 bucket 3), the two
// candidates of k(3, 1): placing k(3, 1) moves k(2, 1) to bank 1 bucket 2, id 10, and
// publishes it there while id 1 is free, before k(3, 1) takes it.
struct MoveUnderWay {
  LeakTable t;
  MoveUnderWay() {
    t.set(k(2, 1), EntryId());
    t.set(k(3, 5), EntryId(11));
  }
};

TEST(WritesInsideANotification, TheRequestCheckCallsAWriteFromInsideAStatusNotificationHazardous) {
  MoveUnderWay m;
  WriterInsideNotification writer(m.t, k(2, 1), k(4, 9), true);
  m.t.set(k(3, 1), EntryId());  // moves k(2, 1) from id 1 to bank 1 bucket 2, id 10
  EXPECT_EQ(m.t.status->status(k(2, 1)), EntryId(10));
  EXPECT_EQ(writer.verdict.outcome(), RequestOutcome::hazardous);
  EXPECT_TRUE(contains(writer.verdict.reason(), "a write from inside its status notification"))
      << writer.verdict.reason();
}

TEST(WritesInsideANotification, ACheckedWriteFromInsideAStatusNotificationIsRefusedAndThePlacementCompletes) {
  MoveUnderWay m;
  WriterInsideNotification writer(m.t, k(2, 1), k(4, 9), true);
  m.t.set(k(3, 1), EntryId());
  EXPECT_FALSE(writer.write.written);
  EXPECT_FALSE(m.t.config->configHas(k(4, 9)));
  EXPECT_EQ(m.t.status->status(k(3, 1)), EntryId(1));
  EXPECT_TRUE(m.t.table->auditReport().clean()) << m.t.table->auditReport();
}

TEST(WritesInsideANotificationDeathTest, APlainWriteThatTakesTheSlotAMoveFreedStopsTheAgent) {
  // k(4, 9) hashes to bank 0 bucket 1, the slot that the move of k(2, 1) has just freed for
  // k(3, 1): the nested placement takes it, and the outer one stops on its own invariant.
  EXPECT_DEATH(
      {
        MoveUnderWay m;
        WriterInsideNotification writer(m.t, k(2, 1), k(4, 9), false);
        m.t.set(k(3, 1), EntryId());
      },
      "! hashTableEntryHas\\( eId \\)");
}

}  // namespace
}  // namespace TesselCentral::test
