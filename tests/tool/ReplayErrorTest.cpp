#include "Replay.h"
#include "ReplaySupport.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace mht {
namespace {

using Outcome = test::ReplayOutcome;

Outcome replay(const std::string& script, const ReplayOptions& options = {}) {
  return test::replayScript(script, "requests.txt", options);
}

// Two banks of two one-slot buckets: the key crc16=1 crc32=0, placed at its requested id 0,
// is moved to id 3 by the third request.
const std::string movedFromItsRequestedId =
    "table single 2 2 1 1 false\n"
    "bank singleWide 0 2 1 hashCrc32Lower 0 0 1\n"
    "bank singleWide 1 2 1 hashCrc16Lower 0 0 1\n"
    "set 1 0 0 singleWide 0\n"
    "set 2 1 0 singleWide 2\n"
    "set 4 6 0 singleWide any\n";

const std::string singleTable =
    "table single 2 4 1 1 false\n"
    "bank singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
    "bank singleWide 1 4 1 hashCrc16Lower 0 0 3\n";

const std::string multiTable =
    "table multi 2 4 4 1\n"
    "bank singleWide 0 4 4 hashCrc32Lower 0 0 3 0 false\n"
    "bank singleWide 1 4 4 hashCrc16Lower 0 0 3 1 false\n";

TEST(ReplayErrors, AMalformedLineNamesTheMissingField) {
  const Outcome o = replay(singleTable + "set 1 2 0\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:4: missing entryType\n");
  EXPECT_EQ(o.out, "");
}

TEST(ReplayErrors, AnUnknownEnumeratorNameIsReportedWithTheField) {
  const Outcome o = replay(singleTable + "set 1 2 0 tripleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:4: entryType: 'tripleWide' is not a TesselCentral::HashEntryType name", 0), 0u)
      << o.err;
}

TEST(ReplayErrors, AnUnknownHashFunctionIsReportedWithTheField) {
  const Outcome o = replay("table single 1 4 1 0 false\nbank singleWide 0 4 1 hashCrc99 0 0 3\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:2: hashFunc: 'hashCrc99' is not a TesselCentral::HashFunc name", 0), 0u) << o.err;
}

TEST(ReplayErrors, ANumberOutOfRangeNamesTheField) {
  const Outcome o = replay(singleTable + "set 70000 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:4: crc16: '70000' is above the maximum 65535\n");
}

// A replay holds a table to the library's configuration check alone, at the first request:
// a table line takes any figures, and a table that is never asked anything is not judged.
TEST(ReplayErrors, ATableBeyondWhatAPositionAddressesIsRefusedAtItsFirstRequest) {
  const Outcome o = replay("table multi 300 4 4 1\nset 1 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:2: the table cannot serve its requests (301 problems):\n"
                        "  numBanks 300 is past the 256 banks that a position numbers: corrupts the table\n"
                        "  bank 0: missing: ",
                        0),
            0u)
      << o.err;
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(replay("table multi 300 4 4 1\n").exitCode, 0);
  EXPECT_EQ(replay("table single 300 3 4 1 false\n").exitCode, 0);
}

// The rules of a bank's shape and hashing are the library's: the bank line is taken, and the
// table is refused at its first request, by the problem's own text.
TEST(ReplayErrors, ABankThatTheLibraryFindsUnableToServeIsRefusedAtTheFirstRequest) {
  const Outcome o = replay(
      "table multi 1 4 8 1\nbank singleWide 0 4 8 hashLsb 0 0 3 0 false\nmoveSearch breadthFirst\n"
      "set 1 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:4: the table cannot serve its requests (2 problems):\n"
            "  bank 0: bucketSize 8 is past the 4 slots that a bucket's state word serves: a later placement stops "
            "the agent on the assertion \"!posToKeyHas( pos )\"\n"
            "  bank 0: hash function hashLsb selects no bucket: the first placement stops the agent on the assertion "
            "\"0\"\n");
  EXPECT_EQ(o.out, "");
}

// The resync and the reconcile reach the table as a request does.
TEST(ReplayErrors, AResyncOrReconcileOfAMisconfiguredTableIsRefused) {
  const std::string table = "table single 1 4 1 1 false\nbank doubleWide 0 4 1 hashCrc32Lower 0 0 3\n";
  for (const std::string line : {"resync\n", "reconcile\n", "del 1 2 0 singleWide\n"}) {
    const Outcome o = replay(table + line);
    EXPECT_EQ(o.exitCode, 1) << line;
    EXPECT_EQ(o.err,
              "requests.txt:3: the table cannot serve its requests: bank 0: baseEntryType doubleWide: the table gives "
              "every key one slot, where the chip's entry of that width takes more: corrupts the table\n")
        << line;
  }
}

// A multi-width bank of an empty base type cannot be built at all: its line is refused.
TEST(ReplayErrors, AnEmptyMultiWidthBaseTypeIsRefusedAtItsBankLine) {
  const Outcome o = replay("table multi 1 4 4 1\nbank empty 0 4 4 hashCrc32Lower 0 0 3 0 false\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:2: baseEntryType: a bank's base type cannot be empty\n");
}

TEST(ReplayErrors, ANonNumberNamesTheField) {
  const Outcome o = replay(singleTable + "set 1 0xZZ 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:4: crc32: '0xZZ' is not an unsigned number (decimal or 0x-hex)\n");
}

TEST(ReplayErrors, AnUnknownVerbIsReported) {
  const Outcome o = replay(singleTable + "put 1 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:4: unknown verb 'put' (table, bank, moveSearch, set, del, resync, reconcile, trace)\n");
}

TEST(ReplayErrors, ExtraFieldsAreReported) {
  const Outcome o = replay(singleTable + "del 1 2 0 singleWide 5\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:4: unexpected '5' after entryType\n");
}

TEST(ReplayErrors, ADeleteBeforeTheTableIsReported) {
  const Outcome o = replay("# nothing yet\ndel 1 2 0 singleWide\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:2: 'del' before the table line: the first line must be 'table'\n");
}

TEST(ReplayErrors, ARequestedIdThatIsNotACandidateOfASingleWideKeyIsReported) {
  // The key hashes to bucket 2 of bank 0 (id 2) and bucket 1 of bank 1 (id 5).
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide 3\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:4: set 1 2 0 singleWide 3: stops the agent: assertion \"checkEntryIdValidity( key, eId )\", "
            "because id 3 is not one of the key's candidate slots\n");
  EXPECT_EQ(o.out, "");
}

TEST(ReplayErrors, ARequestedIdHeldByAnotherKeyIsReported) {
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide any\nset 3 6 0 singleWide 2\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:5: set 3 6 0 singleWide 2: stops the agent: assertion \"false\", because id 2 holds key "
            "TesselCentral::HashEntryKey{crc16=1, crc32=2, fapId=0, entryType=singleWide}: a request never takes a "
            "position from another key\n");
}

TEST(ReplayErrors, ARequestedIdOutsideAMultiWidthKeysBucketsIsReported) {
  const Outcome o = replay(multiTable + "set 2 2 0 singleWide 0\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:4: set 2 2 0 singleWide 0: stops the agent: assertion "
            "\"entryIdHelper()->checkEntryIdValidity( key, eId )\", because id 0 is not in one of the key's "
            "candidate buckets\n");
}

TEST(ReplayErrors, MovingAPlacedMultiWidthKeyToAnotherIdIsReported) {
  const Outcome o = replay(multiTable + "set 2 2 0 singleWide any\nset 2 2 0 singleWide 9\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:5: set 2 2 0 singleWide 9: stops the agent: assertion "
                        "\"!hashTable()->keyToPosHas( key )\", because the key already stands at id 8;",
                        0),
            0u)
      << o.err;
}

TEST(ReplayErrors, AKeyNarrowerThanABanksBaseTypeIsReported) {
  const Outcome o =
      replay("table multi 1 4 2 1\nbank doubleWide 0 4 2 hashCrc32Lower 0 0 3 0 false\nset 1 1 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:3: set 1 1 0 singleWide any: stops the agent: assertion "
            "\"( U32 )entryType >= ( U32 )baseEntryType()\", because a singleWide key is narrower than bank 0's "
            "baseEntryType doubleWide\n");
}

TEST(ReplayErrors, ARequestBeforeEveryBankExistsIsReported) {
  const Outcome o = replay(
      "table single 2 4 1 1 false\nbank singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
      "set 1 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:3: the table cannot serve its requests: bank 1: missing: every bank below numBanks must "
            "exist before a key is placed: a later placement stops the agent\n");
}

TEST(ReplayErrors, ABankRedefinedWithOtherArgumentsIsReported) {
  const Outcome o = replay(singleTable + "bank singleWide 1 4 1 hashCrc16Lower 0 0 1\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:4: bank 1 exists with other arguments: ", 0), 0u) << o.err;
  EXPECT_NE(o.err.find("hashMask"), std::string::npos) << o.err;
}

TEST(ReplayErrors, NothingIsPrintedWhenALaterLineFails) {
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide any\nbogus\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.out, "");
}

TEST(Replay, ATraceLineSetsTheLibrarysMask) {
  const Outcome o = replay(singleTable + "trace 0\nset 1 2 0 singleWide any\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.out,
            "counters insertions=1 deletions=0 moves=0\n"
            "status 1 2 0 singleWide 2\n"
            "entry 2 1 2 0 singleWide\n");
}

TEST(ReplayResync, AResyncThatWouldStopIsReportedWithItsLineAndConditionBeforeTheTableSeesIt) {
  const Outcome o = replay(movedFromItsRequestedId + "resync\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:7: resync: stops the agent: assertion \"false\", because at key "
                        "TesselCentral::HashEntryKey{crc16=1, crc32=0, fapId=0, entryType=singleWide} requested 0: ",
                        0),
            0u)
      << o.err;
  EXPECT_EQ(o.out, "");
}

TEST(ReplayResync, AReconcileKeepsTheMovedKeyWhereItStandsWithANote) {
  ReplayOptions options;
  options.audit = true;
  const Outcome o = replay(movedFromItsRequestedId + "reconcile\n", options);
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err,
            "requests.txt:7: note: reconcile keeps 1 0 0 singleWide 0: it stands at id 3, where a move took it "
            "from its requested id; it stays there\n");
  EXPECT_NE(o.out.find("status 1 0 0 singleWide 3\n"), std::string::npos) << o.out;
}

TEST(ReplayResync, ARequestThatChangesNothingIsAcceptedSilently) {
  // The moved key asked for its requested id again: the request collection holds it already.
  const Outcome o = replay(movedFromItsRequestedId + "set 1 0 0 singleWide 0\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err, "");
}

TEST(ReplayWarnings, AHazardousRequestIsCarriedOutWithAWarning) {
  // The second key has the first one's crc16 and crc32: both are published at id 2.
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide 2\nset 1 2 5 singleWide 2\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err.rfind("requests.txt:5: warning: set 1 2 5 singleWide 2: hazardous: id 2 holds key ", 0), 0u) << o.err;
  EXPECT_NE(o.out.find("status 1 2 5 singleWide 2\n"), std::string::npos) << o.out;
}

TEST(ReplayWarnings, StrictMakesAHazardousRequestAnError) {
  ReplayOptions options;
  options.strict = true;
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide 2\nset 1 2 5 singleWide 2\n", options);
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err.rfind("requests.txt:5: set 1 2 5 singleWide 2: hazardous: id 2 holds key ", 0), 0u) << o.err;
  EXPECT_EQ(o.out, "");
}

TEST(ReplayWarnings, ExplainAddsTheWholeRequestCheckToAReport) {
  ReplayOptions options;
  options.explain = true;
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide 3\n", options);
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_NE(o.err.find("\n  request check: stops the agent: assertion \"checkEntryIdValidity( key, eId )\""),
            std::string::npos)
      << o.err;
}

TEST(ReplayResync, ADeletionOfAKeyWithoutARequestIsAcceptedSilently) {
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide any\ndel 1 2 0 singleWide\ndel 1 2 0 singleWide\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_EQ(o.err, "");
}

TEST(Replay, AMoveSearchLineSetsHowTheTableMakesRoom) {
  // Two banks of four one-slot buckets, chain depth 2: the new key's candidates (ids 0 and 5) are
  // taken; breadth-first, the occupant of 5 moves to its free slot 1 and the key takes 5.
  const std::string script =
      "table single 2 4 1 2 false\n"
      "bank singleWide 0 4 1 hashCrc32Lower 0 0 3\n"
      "bank singleWide 1 4 1 hashCrc16Lower 0 0 3\n"
      "moveSearch breadthFirst\n"
      "set 2 0 1 singleWide 0\n"
      "set 2 3 1 singleWide 6\n"
      "set 1 1 1 singleWide 5\n"
      "set 5 4 1 singleWide any\n";
  const Outcome o = replay(script);
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.out.find("status 1 1 1 singleWide 1\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("status 5 4 1 singleWide 5\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("moves=1\n"), std::string::npos) << o.out;
}

TEST(ReplayErrors, AMultiWidthTableTakesBreadthFirstMovesToo) {
  // Bank 0 takes crc32 & 3, bank 1 crc16 & 3. Singles at slots 0 and 2 of bank 0's bucket 1
  // leave no aligned pair free; bank 1's bucket 2 is full of one quad. Moving the single at
  // slot 0 to slot 3 of its own bucket frees slots 0 and 1 for the double.
  const Outcome o = replay(multiTable +
                           "moveSearch breadthFirst\n"
                           "set 0 1 1 singleWide 4\n"
                           "set 1 1 1 singleWide 6\n"
                           "set 2 0 0 quadWide 24\n"
                           "set 2 1 1 doubleWide any\n");
  EXPECT_EQ(o.exitCode, 0) << o.err;
  EXPECT_NE(o.out.find("status 2 1 1 doubleWide 4\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("status 0 1 1 singleWide 7\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("moves=1\n"), std::string::npos) << o.out;
}

// A refused name lists the names the field takes; an id that is not a number points to the
// word for "anywhere".
TEST(ReplayErrors, AnUnknownHashFunctionListsTheHashFunctions) {
  const Outcome o = replay("table single 1 4 1 0 false\nbank singleWide 0 4 1 hashCrc99 0 0 3\n");
  EXPECT_EQ(o.err,
            "requests.txt:2: hashFunc: 'hashCrc99' is not a TesselCentral::HashFunc name (hashInvalid, "
            "hashCrc32Upper, hashCrc32Lower, hashLsb, hashCrc16Lower, hashCrc16Upper, hashCrc64, hashCount, "
            "hashCrc32And16)\n");
}

TEST(ReplayErrors, AnIdThatIsNotANumberPointsToAny) {
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide anywhere\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err, "requests.txt:4: id: 'anywhere' is neither an unsigned number (decimal or 0x-hex) nor any\n");
}

TEST(ReplayErrors, AMissingIdSaysWhatItMayBe) {
  const Outcome o = replay(singleTable + "set 1 2 0 singleWide\n");
  EXPECT_EQ(o.err, "requests.txt:4: missing id (a number or any)\n");
}

TEST(ReplayErrors, AnUnknownMoveSearchListsEverySpellingTheLibraryTakes) {
  const Outcome o = replay(singleTable + "moveSearch sideways\n");
  EXPECT_EQ(o.exitCode, 1);
  EXPECT_EQ(o.err,
            "requests.txt:4: moveSearch: 'sideways' is not a TesselCentral::MoveSearch name (depthFirst, breadthFirst, "
            "depth-first, breadth-first)\n");
}

// The spelling of the command line is taken in a script too.
TEST(ReplayErrors, AMoveSearchLineTakesTheCommandLineSpelling) {
  const Outcome prose = replay(movedFromItsRequestedId + "moveSearch breadth-first\n");
  const Outcome name = replay(movedFromItsRequestedId + "moveSearch breadthFirst\n");
  EXPECT_EQ(prose.exitCode, 0) << prose.err;
  EXPECT_EQ(prose.err, "");
  EXPECT_EQ(prose.out, name.out);
}

}  // namespace
}  // namespace mht
