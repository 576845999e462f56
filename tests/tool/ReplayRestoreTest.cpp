// mht replay's 'restore FILE' line: a snapshot's requests and results taken over through
// the table's restore, and each way a restore is refused, as FILE:LINE errors.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Replay.h"
#include "ReplaySupport.h"

namespace mht {
namespace {

// Two banks of four 4-slot buckets; bank 0 lies on physical bank 0.
const std::string multiTable =
    "table multi 2 4 4 1\n"
    "bank singleWide 0 4 4 hashCrc32Lower 0 0 3 0 false\n"
    "bank singleWide 1 4 4 hashCrc16Lower 0 0 3 1 false\n";

class ReplayRestore : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::path(::testing::TempDir()) /
           ("replay_restore_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  void snapshotIs(const std::string& text) { std::ofstream(dir_ / "saved.snapshot") << text; }
  std::string script() const { return (dir_ / "restart.replay").string(); }
  test::ReplayOutcome replay(const std::string& text, const ReplayOptions& options = {}) const {
    return test::replayScript(text, script(), options);
  }

  std::filesystem::path dir_;
};

TEST_F(ReplayRestore, TakesOverTheSnapshotAndGoesOn) {
  snapshotIs(
      "set 1 1 0 doubleWide any\n"
      "set 0 0 0 singleWide any\n"
      "status 1 1 0 doubleWide 6\n"
      "status 0 0 0 singleWide 1\n");
  const test::ReplayOutcome o = replay(multiTable + "restore saved.snapshot\nset 0 9 0 doubleWide any\n");
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.exitCode, 0);
  // The double-wide key stays at id 6 (slots 2-3 of bank 0 bucket 1); the new one takes slots 0-1.
  EXPECT_EQ(o.out,
            "counters insertions=3 deletions=0 moves=0\n"
            "status 0 0 0 singleWide 1\n"
            "status 0 9 0 doubleWide 4\n"
            "status 1 1 0 doubleWide 6\n"
            "entry 1 0 0 0 singleWide\n"
            "entry 4 0 9 0 doubleWide\n"
            "entry 6 1 1 0 doubleWide\n"
            "bucket 0 0 0x100002\n"
            "bucket 0 1 0x2222000f\n");
}

TEST_F(ReplayRestore, ARefusedRestoreNamesEveryProblem) {
  snapshotIs(
      "set 1 1 0 doubleWide any\n"
      "status 1 1 0 doubleWide 5\n"
      "status 0 0 0 singleWide 1\n");
  const test::ReplayOutcome o = replay(multiTable + "restore saved.snapshot\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, script() +
                       ":4: restore saved.snapshot: the table refuses the saved placement (2 problems):\n"
                       "  not aligned: key TesselCentral::HashEntryKey{crc16=1, crc32=1, fapId=0, "
                       "entryType=doubleWide} at id 5: the id names slot 1 of bucket 1 of bank 0, where no entry 2 "
                       "slots wide starts\n"
                       "  no request: key TesselCentral::HashEntryKey{crc16=0, crc32=0, fapId=0, "
                       "entryType=singleWide} saved at id 1 has no request: write every saved key's request before "
                       "the restore\n");
}

TEST_F(ReplayRestore, ARestoreAfterARequestFindsTheTableHoldingIt) {
  snapshotIs("set 0 0 0 singleWide any\nstatus 0 0 0 singleWide 1\n");
  const test::ReplayOutcome o = replay(multiTable + "set 1 1 0 doubleWide any\nrestore saved.snapshot\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, script() +
                       ":5: restore saved.snapshot: the table refuses the saved placement: table not empty: the "
                       "table holds 1 result(s) and 1 recorded id(s): a restore takes over an empty table\n");
}

TEST_F(ReplayRestore, ABadSnapshotLineIsNamedWithItsOwnLine) {
  snapshotIs("set 0 0 0 singleWide any\nentry 1 0 0 0 singleWide\n");
  const test::ReplayOutcome o = replay(multiTable + "restore saved.snapshot\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, script() + ":4: restore saved.snapshot: saved.snapshot:2: unknown verb 'entry' (set, status)\n");
}

TEST_F(ReplayRestore, AMissingSnapshotIsNamed) {
  const test::ReplayOutcome o = replay(multiTable + "restore none.snapshot\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, script() + ":4: restore none.snapshot: cannot open " + (dir_ / "none.snapshot").string() + "\n");
}

TEST_F(ReplayRestore, TheSnapshotOptionWritesRequestsAndResults) {
  ReplayOptions options;
  options.snapshot = (dir_ / "written.snapshot").string();
  const test::ReplayOutcome o = replay(multiTable + "set 1 1 0 doubleWide 6\nset 2 2 0 quadWide any\n", options);
  ASSERT_EQ(o.exitCode, 0) << o.err;
  std::ifstream in(options.snapshot);
  const std::string written((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(written,
            "# mht replay snapshot: the requests and the results; 'restore FILE' after a replay's table and bank "
            "lines takes them over\n"
            "set 1 1 0 doubleWide 6\n"
            "set 2 2 0 quadWide any\n"
            "status 1 1 0 doubleWide 6\n"
            "status 2 2 0 quadWide 8\n");
}

}  // namespace
}  // namespace mht
