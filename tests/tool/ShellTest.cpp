#include "Shell.h"

#include <gtest/gtest.h>

#include <sstream>

#include "MultiHashTable/fwk/Registry.h"

namespace mht {
namespace {

// A second type named SlotId, so that the name alone is ambiguous in this test's registry.
const Fwk::TypeInfo& ambiguousSlotId =
    Fwk::Registry::instance().moduleIs("ShellTest").typeIs("ShellProbe::SlotId", Fwk::TypeKind::value);

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

// A placement at an id called on the table itself is judged by the table's placement check:
// refused with its reason. Calls that reach a bank's assertions directly run under the trap:
// the stop is reported with its condition, and the session goes on.
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
            "script.mht:6: refused: call t insertEntryWithId: table t: stops the agent: assertion "
            "\"checkEntryIdValidity( key, eId )\", because id 3 is not one of the key's candidate slots\n"
            "script.mht:9: stopped: call b updateBucketState: assertion \"\"!( bktState & mask )\" == nullptr\" "
            "failed; b may be left half-changed\n"
            "script.mht:10: stopped: new e TesselCentral::MultiEntryTypeBank: assertion \"0 && \"BaseEntryType "
            "should be non empty\"\" failed; nothing was named e\n");
  EXPECT_NE(o.out.find("b TesselCentral::MultiEntryTypeBank\nconfig TesselCentral::HashEntryConfig\n"),
            std::string::npos)
      << o.out;
  EXPECT_EQ(o.out.find("\ne "), std::string::npos) << o.out;
}

// Type names without their namespace, an enumerator with its type's name in front.
TEST(Shell, ATypeNameMayBeTypedWithoutItsNamespace) {
  const Outcome o =
      shell(singleTable +
            "call config configIs HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide} "
            "EntryId{value=5}\n"
            "call t requestCheck HashEntryKey{ crc16=1, crc32=2, fapId=0, entryType=singleWide } "
            "EntryId{value=3}\n"
            "call t candidates HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=HashEntryType::singleWide}\n"
            "call t moveSearchIs MoveSearch::breadthFirst\n"
            "get t moveSearch\n"
            "help MoveSearch\n"
            "new b Bank HashEntryType::singleWide 0 4 1 HashFunc::hashCrc32Lower 0 0 3\n"
            "get status status\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out,
            "TesselCentral::Bank\n"
            "TesselCentral::Bank\n"
            "stops the agent: assertion \"checkEntryIdValidity( key, eId )\", because id 3 is not one of the key's "
            "candidate slots\n"
            "{bank 0 bucket 2 slot 0 width 1: id 2; bank 1 bucket 1 slot 0 width 1: id 5}\n"
            "breadthFirst\n"
            "TesselCentral::MoveSearch\n"
            "  0 depthFirst\n"
            "  1 breadthFirst\n"
            "{TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}: "
            "TesselCentral::EntryId{value=5}}\n");
}

TEST(Shell, AnAmbiguousTypeNameIsRefusedNamingTheCandidates) {
  ASSERT_EQ(ambiguousSlotId.name(), "ShellProbe::SlotId");
  const Outcome o = shell("help TesselCentral::SlotId\nhelp SlotId\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.out, "TesselCentral::SlotId\n");
  EXPECT_EQ(o.err,
            "script.mht:2: type name 'SlotId' is ambiguous: TesselCentral::SlotId, ShellProbe::SlotId (write one of "
            "them in full)\n");
  const Outcome inValue = shell("new config HashEntryConfig\ncall config configHas Nothing{value=1}\n");
  EXPECT_EQ(inValue.err, "script.mht:2: unknown type 'Nothing' (see 'types')\n");
}

// An EntryId argument takes replay's spelling too: `any` for the invalid id, or a number.
TEST(Shell, AnIdArgumentMayBeAnyOrANumber) {
  const std::string key = "HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}";
  const Outcome o = shell(singleTable + "call config configIs " + key + " any\n" + "call config configOf " + key +
                          "\n" + "call t requestProblem " + key + " 5\n" + "call t requestProblem " + key + " 2\n" +
                          "call t checkEntryIdValidity " + key + " 2\n" + "get status status\n" +
                          "call config configIs " + key + " 4294967295\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.out,
            "TesselCentral::Bank\n"
            "TesselCentral::Bank\n"
            "TesselCentral::EntryId{value=4294967295}\n"
            "hazardous: the key stands at id 2, which stays recorded for it when it is published at id 5: id 2 leaks "
            "until a reconcile releases it\n"
            "\"\"\n"
            "true\n"
            "{TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}: "
            "TesselCentral::EntryId{value=2}}\n");
  EXPECT_EQ(o.err, "script.mht:12: id: 4294967295 is the invalid id; write 'any' to place the key anywhere\n");
}

// An operation whose answer is the empty text (no problem, a passing configuration check)
// prints it as ""; one without an answer prints nothing.
TEST(Shell, AnEmptyAnswerPrintsAsTwoQuotes) {
  const Outcome o = shell(singleTable +
                          "call t configurationProblem\n"
                          "call t resyncProblem\n"
                          "call t moveSearchIs breadthFirst\n"
                          "call t checkSanity\n"
                          "call t configurationCheck\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.out, "TesselCentral::Bank\nTesselCentral::Bank\n\"\"\n\"\"\n\"\"\n");
}

// A table whose configuration check fails serves none of the operations that place, move or
// remove keys: each is refused with every problem, before the table sees it.
TEST(Shell, APlacingOperationOnAMisconfiguredTableIsRefused) {
  const Outcome o = shell(
      "new config HashEntryConfig\n"
      "new status HashEntryStatus\n"
      "new t MultiHashTable 2 4 1 config status 1 false\n"
      "call t bankIs singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
      "call t reconcile\n"
      "call t insertEntry HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide} 128 1\n"
      "call t insertEntryWithId HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide} 2\n"
      "get t numInsertions\n");
  EXPECT_EQ(o.exitCode, 1);
  const std::string problem =
      "table t: the table cannot serve its requests: bank 1: missing: every bank below numBanks must exist before a "
      "key is placed: a later placement stops the agent\n";
  EXPECT_EQ(o.err, "script.mht:5: refused: call t reconcile: " + problem +
                       "script.mht:6: refused: call t insertEntry: " + problem +
                       "script.mht:7: refused: call t insertEntryWithId: " + problem);
  EXPECT_EQ(o.out, "TesselCentral::Bank\n0\n");
}

// A placement at an id that the placement check calls hazardous is made, with its reason.
TEST(Shell, AHazardousPlacementAtAnIdIsMadeWithAWarning) {
  const Outcome o = shell(singleTable + request(1, 2, 2) +
                          "call t insertEntryWithId HashEntryKey{crc16=1, crc32=2, fapId=5, entryType=singleWide} 2\n"
                          "call t hashTableEntryOf 2\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err,
            "script.mht:7: warning: call t insertEntryWithId: table t: hazardous: id 2 holds key "
            "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}, which has the same crc16 "
            "and crc32: both keys are published at id 2\n");
  EXPECT_EQ(o.out,
            "TesselCentral::Bank\nTesselCentral::Bank\n"
            "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=5, entryType=singleWide}\n");
}

// A table's initialized is the client's own mark: banks and placements leave it false, and
// show and help say so; the client sets it.
TEST(Shell, InitializedIsExplainedAsTheClientsOwnMark) {
  const std::string note =
      "  # the client's own mark, false from construction until the client sets it with initializedIs; neither banks "
      "nor placements set it, and no placement reads it\n";
  const Outcome o = shell(singleTable + request(1, 2, 0xFFFFFFFF) +
                          "show t\n"
                          "call t initializedIs true\n"
                          "get t initialized\n"
                          "help MultiEntryTypeHashTable\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.out.find("\n  initialized = false" + note), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("\ntrue\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("\n  263 initialized : bool" + note), std::string::npos) << o.out;
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
