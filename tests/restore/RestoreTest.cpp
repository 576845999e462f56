// A restore takes each key over where it was saved, as a placement there records it: the
// same results, records, positions and bucket states, one publication per key, no move.
#include <gtest/gtest.h>

#include "../multiwidth/MultiWidthSupport.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Scope.h"
#include "RestoreSupport.h"

#include <sstream>

namespace TesselCentral {
namespace {

using test::placementOf;
using test::stateOf;

const HashEntryKey a(1, 2, 0, HashEntryType::singleWide);   // ids 2 and 9
const HashEntryKey b(3, 3, 0, HashEntryType::singleWide);   // ids 3 and 11
const HashEntryKey d(1, 10, 0, HashEntryType::singleWide);  // ids 2 and 9, like a

Ptr<MultiHashTable> twoBankTable(const Ptr<HashEntryConfig>& config, const Ptr<HashEntryStatus>& status) {
  auto table = multiHashTableFactory(2, 8, 1, config, status, 1, false);
  table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
  table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 7);
  return table;
}

TEST(Restore, SingleWidthRecordsEachKeyAtItsSavedIdAndPublishesItOnce) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = twoBankTable(config, status);
  test::ChangeRecorder publications(*status);
  // a at 9 (a move took it there), b at its requested id, d without room.
  const RestoreCheck check = test::restartFrom(*table, *config, {{a, EntryId()}, {b, EntryId(3)}, {d, EntryId()}},
                                               {{a, EntryId(9)}, {b, EntryId(3)}, {d, EntryId()}});
  ASSERT_TRUE(check.passes()) << check.text();
  EXPECT_EQ(check.keys(), 3u);
  test::TableState expected;
  expected.requests = {{a, EntryId()}, {d, EntryId()}, {b, EntryId(3)}};
  expected.results = {{a, EntryId(9)}, {d, EntryId()}, {b, EntryId(3)}};
  expected.records = {{3, b}, {9, a}};
  expected.insertions = 2;
  EXPECT_EQ(stateOf(*table), expected);
  ASSERT_EQ(publications.changes.size(), 3u);
  EXPECT_EQ(publications.changes[0].key, a);
  EXPECT_EQ(publications.changes[1].key, b);
  EXPECT_EQ(publications.changes[2].key, d);
  EXPECT_EQ(publications.changes[2].current, EntryId());
  EXPECT_TRUE(publications.changes[2].present);
  EXPECT_EQ(check.problem(), "");
  EXPECT_EQ(check.text(), "restores 3 key(s)");
  std::ostringstream os;
  os << check;
  EXPECT_EQ(os.str(), "restores 3 key(s)");

  // The table answers the next requests as if it had placed them: d stays without a place
  // until its request is written anew, and it then takes a's first candidate, id 2.
  config->configDel(d);
  EXPECT_FALSE(status->statusHas(d));
  config->configIs(d, EntryId());
  EXPECT_EQ(status->status(d), EntryId(2));
  EXPECT_EQ(table->numMoves(), 0u);
}

TEST(Restore, MultiWidthKeysTakeThePositionsAndBucketStatesOfTheirPlacement) {
  const HashEntryKey quad(1, 2, 0, HashEntryType::quadWide);
  const HashEntryKey dbl(7, 5, 0, HashEntryType::doubleWide);
  const HashEntryKey one(5, 2, 0, HashEntryType::singleWide);
  // The same keys placed by the table at the same ids.
  test::MultiWidthTable placed(4, 1, test::twoBanks(4, 0, 1));
  placed.place(quad, 68);
  placed.place(dbl, 22);
  placed.place(one, 9);

  test::MultiWidthTable restored(4, 1, test::twoBanks(4, 0, 1));
  test::ChangeRecorder publications(*restored.status);
  const SavedPlacement saved = savedPlacementOf(*placed.status);
  const RestoreCheck check =
      test::restartFrom(*restored.table, *restored.config, test::sortedPairs(placed.config->configCollection()), saved);
  ASSERT_TRUE(check.passes()) << check.text();
  EXPECT_EQ(stateOf(*restored.table), stateOf(*placed.table));
  EXPECT_EQ(publications.changes.size(), 3u);
  EXPECT_TRUE(test::invariantViolations(restored).empty());
  EXPECT_EQ(restored.bank(1).bucket(1), placed.bank(1).bucket(1));
  EXPECT_NE(restored.bank(1).bucket(1), 0u);
}

TEST(Restore, TheCheckAloneChangesNothing) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = twoBankTable(config, status);
  table->hasNotificationActiveIs(false);
  config->configIs(a, EntryId());
  const test::TableState before = stateOf(*table);
  const RestoreCheck check = table->restoreCheck(SavedPlacement{{a, EntryId(2)}});
  EXPECT_TRUE(check.passes());
  EXPECT_EQ(check.keys(), 1u);
  EXPECT_EQ(stateOf(*table), before);
}

TEST(Restore, TakesOverAResultCollectionThroughTheRegistry) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = twoBankTable(config, status);
  auto saved = hashEntryStatusFactory();
  saved->statusIs(a, EntryId(9));
  saved->statusIs(b, EntryId(11));
  table->hasNotificationActiveIs(false);
  config->configIs(a, EntryId());
  Fwk::Scope scope;
  scope.objectIs("table", table);
  scope.objectIs("saved", saved);
  EXPECT_EQ(Fwk::Registry::instance().call(*table, "restoreCheck", {"saved"}, scope),
            "no request: key TesselCentral::HashEntryKey{crc16=3, crc32=3, fapId=0, entryType=singleWide} saved at "
            "id 11 has no request: write every saved key's request before the restore");
  config->configIs(b, EntryId());
  EXPECT_EQ(Fwk::Registry::instance().call(*table, "restore", {"saved"}, scope), "restores 2 key(s)");
  table->hasNotificationActiveIs(true);
  EXPECT_EQ(status->status(a), EntryId(9));
  EXPECT_EQ(status->status(b), EntryId(11));
  EXPECT_EQ(table->hashTableEntry(EntryId(11)), b);
}

}  // namespace
}  // namespace TesselCentral
