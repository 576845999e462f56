// Replay against the hazards that the table's own rules leave behind: the line that leaks
// is a warning (an error under --strict), --audit names each leaked id, record and result
// without a request where it first appears, and a reconcile leaves the table clean.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Replay.h"
#include "ReplaySupport.h"

namespace mht {
namespace {

using Outcome = test::ReplayOutcome;

Outcome replay(const std::string& script, const ReplayOptions& options = {}) {
  return test::replayScript(script, "leak.txt", options);
}

// A key placed at its requested id 9 and then asked for anywhere is published at id 2; id 9
// stays recorded for it, outlives its removal, and a later move publishes it again.
const std::string leakScript =
    "table single 2 8 1 1 false\n"
    "bank singleWide 0 8 1 hashCrc32Lower 0 0 7\n"
    "bank singleWide 1 8 1 hashCrc16Lower 0 0 7\n"
    "set 1 2 0 singleWide 9\n"
    "set 1 2 0 singleWide any\n"
    "del 1 2 0 singleWide\n"
    "set 3 1 0 singleWide any\n"
    "set 3 5 0 singleWide 11\n"
    "set 1 1 0 singleWide any\n";

const std::string keyOneTwo = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}";

TEST(ReplayHazards, TheLineThatLeaksIsAWarningNamingTheLeakedId) {
  const Outcome o = replay(leakScript);
  EXPECT_EQ(o.exitCode, 0);
  EXPECT_NE(o.err.find("leak.txt:5: warning: set 1 2 0 singleWide any: hazardous: the key stands at id 9, which stays "
                       "recorded for it when it is published at id 2: id 9 leaks until a reconcile releases it\n"),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.out.find("status 1 2 0 singleWide 2\n"), std::string::npos) << o.out;
}

TEST(ReplayHazards, StrictStopsAtTheLineThatLeaks) {
  ReplayOptions options;
  options.strict = true;
  const Outcome o = replay(leakScript, options);
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_NE(o.err.find("leak.txt:5: set 1 2 0 singleWide any: hazardous: the key stands at id 9"), std::string::npos)
      << o.err;
}

TEST(ReplayHazards, AuditNamesTheLeakedIdTheRecordAndTheResultWithoutARequest) {
  ReplayOptions options;
  options.audit = true;
  const Outcome o = replay(leakScript, options);
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.err.find("leak.txt:5: warning: audit: leaked id: id 9 is recorded for key " + keyOneTwo +
                       ", whose result is 2: the id leaks\n"),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.err.find("leak.txt:6: warning: audit: record without a request: id 9 is recorded for key " + keyOneTwo +
                       ", which has no request and no result there\n"),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.err.find("leak.txt:9: warning: audit: result without a request: key " + keyOneTwo +
                       " has the result 2 but no request\n"),
            std::string::npos)
      << o.err;
}

TEST(ReplayHazards, AReconcileAtTheEndLeavesTheTableAuditCleanWithNoResultForTheDeletedKey) {
  ReplayOptions options;
  options.audit = true;
  options.strict = false;
  const Outcome o = replay(leakScript + "reconcile\n", options);
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.err.find("leak.txt:10: note: reconcile removes the result 2 of 1 2 0 singleWide: its request is gone\n"),
            std::string::npos)
      << o.err;
  EXPECT_EQ(o.out.find("status 1 2 0"), std::string::npos) << o.out;
  // Audited after the reconcile too, with nothing to say.
  EXPECT_EQ(o.err.find("leak.txt:10: warning"), std::string::npos) << o.err;
}

TEST(ReplayHazards, AResyncThatLeaksIsAWarningAndReconcileReleasesTheId) {
  const std::string script =
      "table single 2 8 1 1 false\n"
      "bank singleWide 0 8 1 hashCrc32Lower 0 0 7\n"
      "bank singleWide 1 8 1 hashCrc16Lower 0 0 7\n"
      "set 1 2 0 singleWide any\n"
      "set 5 10 0 singleWide any\n"
      "del 1 2 0 singleWide\n"
      "resync\n"
      "reconcile\n";
  ReplayOptions options;
  options.audit = true;
  const Outcome o = replay(script, options);
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.err.find("leak.txt:7: warning: resync: hazardous: "), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("id 13 leaks until a reconcile releases it"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("leak.txt:8: note: reconcile releases id 13 of 5 10 0 singleWide: its result is another id\n"),
            std::string::npos)
      << o.err;
  EXPECT_EQ(o.out.find("entry 13 "), std::string::npos) << o.out;
}

}  // namespace
}  // namespace mht
