#include "Shell.h"

#include <gtest/gtest.h>

#include <sstream>

namespace mht {
namespace {

struct Outcome {
  int exitCode;
  std::string out;
  std::string err;
};

Outcome shell(const std::string& script) {
  std::istringstream in(script);
  std::ostringstream out, err;
  const int rc = runShell(in, "script.mht", false, out, err);
  return Outcome{rc, out.str(), err.str()};
}

TEST(Shell, CreatesEntitiesCallsOperationsAndReadsAttributes) {
  const Outcome o = shell(
      "new config HashEntryConfig\n"
      "new status HashEntryStatus\n"
      "new t MultiHashTable 1 4 2 config status 0 false\n"
      "call t bankIs singleWide 0 4 2 hashCrc32Lower 0 0 3\n"
      "call config configIs TesselCentral::HashEntryKey{crc16=7, crc32=2, fapId=0, entryType=singleWide} "
      "TesselCentral::EntryId{value=4294967295}\n"
      "get status status\n"
      "get t numInsertions\n"
      "call t calcEntryId 0 3 1\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.out,
            "TesselCentral::Bank\n"
            "{TesselCentral::HashEntryKey{crc16=7, crc32=2, fapId=0, entryType=singleWide}: "
            "TesselCentral::EntryId{value=4}}\n"
            "1\n"
            "TesselCentral::EntryId{value=7}\n");
}

TEST(Shell, AnUnknownObjectStopsAScriptWithItsLine) {
  const Outcome o = shell("new config HashEntryConfig\nget nothing config\nget config config\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "script.mht:2: unknown object 'nothing' (see 'objects')\n");
  EXPECT_EQ(o.out, "");
}

TEST(Shell, AnArgumentOutOfRangeNamesTheParameter) {
  const Outcome o = shell("new b Bank singleWide 0 4 70000000000 hashCrc32Lower 0 0 3\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_NE(o.err.find("script.mht:1: range error: attribute 'bucketSize'"), std::string::npos) << o.err;
}

TEST(Shell, AWrongArgumentCountIsReported) {
  const Outcome o = shell("new b Bank singleWide 0 4\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "script.mht:1: TesselCentral::Bank takes 8 arguments, 3 given\n");
}

TEST(Shell, AnUnknownTypeIsReported) {
  const Outcome o = shell("new x Nothing\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "script.mht:1: unknown type 'Nothing' (see 'types')\n");
}

const std::string singleTable =
    "new config HashEntryConfig\n"
    "new status HashEntryStatus\n"
    "new t MultiHashTable 2 4 1 config status 1 false\n"
    "call t bankIs singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
    "call t bankIs singleWide 1 4 1 hashCrc16Lower 0 0 3\n";

std::string request(unsigned crc16, unsigned crc32, unsigned id) {
  return "call config configIs TesselCentral::HashEntryKey{crc16=" + std::to_string(crc16) +
         ", crc32=" + std::to_string(crc32) +
         ", fapId=0, entryType=singleWide} TesselCentral::EntryId{value=" + std::to_string(id) + "}\n";
}

// The key crc16=1 crc32=2 hashes to id 2 (bank 0) and id 5 (bank 1): id 3 is neither, and the
// reaction to it would stop the agent. The shell refuses the write with the table's reason,
// writes nothing, and the script goes on with its objects.
TEST(Shell, AWriteThatWouldStopTheAgentIsRefusedAndTheSessionGoesOn) {
  const Outcome o =
      shell(singleTable + request(1, 2, 3) + "get config config\n" + request(1, 2, 5) + "get status status\naudit t\n");
  EXPECT_EQ(o.exitCode, 1) << "a refused line makes the script's exit code 1";
  EXPECT_EQ(o.err,
            "script.mht:6: refused: call config configIs: table t: stops the agent: assertion "
            "\"checkEntryIdValidity( key, eId )\", because id 3 is not one of the key's candidate slots\n");
  EXPECT_EQ(o.out,
            "TesselCentral::Bank\n"
            "TesselCentral::Bank\n"
            "{}\n"
            "{TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}: "
            "TesselCentral::EntryId{value=5}}\n"
            "audit clean\n");
}

// A request written before the table existed was never handled: removing it would stop
// the agent, by itself or among all the requests.
TEST(Shell, ARemovalOfAKeyTheTableNeverHandledIsRefused) {
  const std::string key = "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}";
  const Outcome o = shell(
      "new config HashEntryConfig\n"
      "new status HashEntryStatus\n"
      "call config configIs " +
      key +
      " TesselCentral::EntryId{value=4294967295}\n"
      "new t MultiHashTable 2 4 1 config status 1 false\n"
      "call t bankIs singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
      "call t bankIs singleWide 1 4 1 hashCrc16Lower 0 0 3\n"
      "call config configDel " +
      key + "\ncall config configDelAll\nget config config\n");
  EXPECT_EQ(o.exitCode, 1);
  const std::string because =
      "stops the agent: assertion \"hashEntryStatus()->statusHas( key )\", because the table never handled this key";
  EXPECT_EQ(o.err.rfind("script.mht:7: refused: call config configDel: table t: " + because, 0), 0u) << o.err;
  EXPECT_NE(o.err.find("\nscript.mht:8: refused: call config configDelAll: table t: stops the agent: assertion "
                       "\"hashEntryStatus()->statusHas( key )\", because at key " +
                       key + ": the table never handled this key"),
            std::string::npos)
      << o.err;
  EXPECT_NE(o.out.find("{" + key + ": TesselCentral::EntryId{value=4294967295}}\n"), std::string::npos) << o.out;
}

TEST(Shell, AHazardousWriteIsMadeWithAWarning) {
  const Outcome o = shell(singleTable + request(1, 2, 2) +
                          "call config configIs TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=5, "
                          "entryType=singleWide} TesselCentral::EntryId{value=2}\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err.rfind("script.mht:7: warning: call config configIs: table t: hazardous: id 2 holds key ", 0), 0u)
      << o.err;
}

// A multi-width table of 2-slot buckets whose bank has 4-slot buckets: the table is made and
// its bank added, and every write that would reach it is refused, naming the problem.
TEST(Shell, AMisconfiguredTableRefusesItsFirstRequest) {
  const Outcome o = shell(
      "new config HashEntryConfig\n"
      "new status HashEntryStatus\n"
      "new m MultiEntryTypeHashTable 1 4 2 config status 1\n"
      "new h EntryIdHelper m\n"
      "call m entryIdHelperIs h\n"
      "call m bankIs singleWide 0 4 4 hashCrc32Lower 0 0 3 0 false\n" +
      request(1, 2, 0xFFFFFFFF) + "call m handleHashUpdate\nget status status\ncall m configurationProblem\n");
  EXPECT_EQ(o.exitCode, 1);
  const std::string problem =
      "the table cannot serve its requests: bank 0: bucketSize 4 differs from the table's numBucketEntries 2: an "
      "id counts the bank's slots by the one and its buckets by the other: corrupts the table\n";
  EXPECT_EQ(o.err, "script.mht:7: refused: call config configIs: table m: " + problem +
                       "script.mht:8: refused: call m handleHashUpdate: table m: " + problem);
  EXPECT_EQ(o.out,
            "TesselCentral::MultiEntryTypeBank\n"
            "{}\n"
            "bank 0: bucketSize 4 differs from the table's numBucketEntries 2: an id counts the bank's slots by the "
            "one and its buckets by the other: corrupts the table\n");
}

// Calls that reach a table's or a bank's assertions directly run under the trap: the stop is
// reported with its condition, and the session goes on.
TEST(Shell, ADirectCallThatStopsOnAnAssertionIsReportedAndTheSessionGoesOn) {
  const Outcome o =
      shell(singleTable +
            "call t insertEntryWithId TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide} "
            "TesselCentral::EntryId{value=3}\n"
            "new b MultiEntryTypeBank singleWide 0 4 4 hashCrc32Lower 0 0 3 0 false\n"
            "call b updateBucketState singleWide 1 0 true\n"
            "call b updateBucketState singleWide 1 0 true\n"
            "new e MultiEntryTypeBank empty 0 4 4 hashCrc32Lower 0 0 3 0 false\n"
            "objects\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "script.mht:6: stopped: call t insertEntryWithId: assertion \"checkEntryIdValidity( key, eId )\" failed; "
            "t may be left half-changed\n"
            "script.mht:9: stopped: call b updateBucketState: assertion \"\"!( bktState & mask )\" == nullptr\" "
            "failed; b may be left half-changed\n"
            "script.mht:10: stopped: new e TesselCentral::MultiEntryTypeBank: assertion \"0 && \"BaseEntryType "
            "should be non empty\"\" failed; nothing was named e\n");
  EXPECT_NE(o.out.find("b TesselCentral::MultiEntryTypeBank\nconfig TesselCentral::HashEntryConfig\n"),
            std::string::npos)
      << o.out;
  EXPECT_EQ(o.out.find("\ne "), std::string::npos) << o.out;
}

TEST(Shell, ListsTheRegisteredTypesInModuleOrder) {
  const Outcome o = shell("types\n");
  EXPECT_EQ(o.exitCode, 0);
  EXPECT_NE(o.out.find("MultiHashTableTypes 0 TesselCentral::HashFunc\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("MultiHashTableTypes 1 TesselCentral::HashEntryType\n"), std::string::npos);
  EXPECT_NE(o.out.find("MultiHashTable 0 TesselCentral::HashEntryConfig\n"), std::string::npos);
}

}  // namespace
}  // namespace mht
