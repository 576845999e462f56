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

TEST(Shell, ListsTheRegisteredTypesInModuleOrder) {
  const Outcome o = shell("types\n");
  EXPECT_EQ(o.exitCode, 0);
  EXPECT_NE(o.out.find("MultiHashTableTypes 0 TesselCentral::HashFunc\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("MultiHashTableTypes 1 TesselCentral::HashEntryType\n"), std::string::npos);
  EXPECT_NE(o.out.find("MultiHashTable 0 TesselCentral::HashEntryConfig\n"), std::string::npos);
}

}  // namespace
}  // namespace mht
