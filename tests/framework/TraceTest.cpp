#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/Diagnostics.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "TestSupport.h"

namespace {

using TesselCentral::EntryId;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryType;
using TesselCentral::U32;
using TesselCentral::U64;
using TesselCentral::test::levelBit;
using TesselCentral::test::TraceCapture;

// Counts how often it is streamed, to show when a trace statement formats its text.
struct StreamProbe {
  int* formatted;
};
std::ostream& operator<<(std::ostream& os, const StreamProbe& probe) {
  ++*probe.formatted;
  return os << "probe";
}

TEST(Trace, StreamSinkFormatsLevelFileLineFunctionAndText) {
  const Fwk::TraceRecord record{
      "MultiHashTable", 2, "MultiHashTable", 42, "calcBucketId", "Bank::calcBucketId bucketId: 5"};
  EXPECT_EQ(Fwk::StreamTraceSink::format(record), "L2 MultiHashTable:42 calcBucketId: Bank::calcBucketId bucketId: 5");
}

TEST(Trace, StreamSinkWritesOneLinePerRecord) {
  std::ostringstream out;
  Fwk::StreamTraceSink sink(out);
  sink.write({"h", 9, "MultiHashTable", 7, "checkBucketSpace", "a"});
  sink.write({"h", 1, "MultiHashTable", 8, "handleHashUpdate", ""});
  EXPECT_EQ(out.str(), "L9 MultiHashTable:7 checkBucketSpace: a\nL1 MultiHashTable:8 handleHashUpdate: \n");
}

TEST(Trace, LibraryHandleIsNamedMultiHashTableAndIsOneObject) {
  EXPECT_STREQ(TesselCentral::multiHashTableTrace().name(), "MultiHashTable");
  EXPECT_EQ(&TesselCentral::multiHashTableTrace(), &TesselCentral::multiHashTableTrace());
}

TEST(Trace, MhtTraceRecordsLevelFileLineFunctionAndText) {
  TraceCapture capture(levelBit(2));
  const unsigned line = __LINE__ + 1;
  MHT_TRACE(2, "Bank::"
                   << "calcBucketId"
                   << " bucketId: " << 5u);

  const auto& lines = capture.sink().lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 2u);
  EXPECT_EQ(lines[0].file, "MultiHashTable");
  EXPECT_EQ(lines[0].line, line);
  EXPECT_EQ(lines[0].function, "TestBody");
  EXPECT_EQ(lines[0].text, "Bank::calcBucketId bucketId: 5");
  EXPECT_EQ(capture.texts(2), (std::vector<std::string>{"Bank::calcBucketId bucketId: 5"}));
}

void traceFromANamedFunction() {
  MHT_TRACE(5, "MultiEntryTypeBank::"
                   << "checkBucketSpace");
}

TEST(Trace, FunctionIsTheShortName) {
  TraceCapture capture(levelBit(5));
  traceFromANamedFunction();
  ASSERT_EQ(capture.sink().lines().size(), 1u);
  EXPECT_EQ(capture.sink().lines()[0].function, "traceFromANamedFunction");
}

TEST(Trace, NothingIsFormattedWhenTheLevelIsOff) {
  TraceCapture capture(levelBit(1) | levelBit(5));
  int formatted = 0;
  MHT_TRACE(2, "value: " << StreamProbe{&formatted});
  MHT_TRACE(6, "value: " << StreamProbe{&formatted});
  EXPECT_EQ(formatted, 0);
  EXPECT_TRUE(capture.texts().empty());

  MHT_TRACE(5, "value: " << StreamProbe{&formatted});
  EXPECT_EQ(formatted, 1);
  EXPECT_EQ(capture.texts(5), (std::vector<std::string>{"value: probe"}));
}

TEST(Trace, LevelNIsOnExactlyWhenBitNOfTheMaskIsSet) {
  TraceCapture capture(levelBit(1) | levelBit(6) | levelBit(9));
  for (unsigned level = 0; level < 12; ++level) MHT_TRACE(level, "level " << level);
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"level 1", "level 6", "level 9"}));
  const auto& handle = TesselCentral::multiHashTableTrace();
  EXPECT_TRUE(handle.enabled(6));
  EXPECT_FALSE(handle.enabled(2));
  EXPECT_FALSE(handle.enabled(32));
  EXPECT_FALSE(handle.enabled(1000));
}

TEST(Trace, MaskWithAllBitsSetStillRejectsLevelsBeyondThirtyOne) {
  Fwk::TraceHandle handle("Probe");
  handle.levelMaskIs(0xFFFFFFFF);
  EXPECT_TRUE(handle.enabled(0));
  EXPECT_TRUE(handle.enabled(31));
  EXPECT_FALSE(handle.enabled(32));
  EXPECT_EQ(handle.levelMask(), 0xFFFFFFFFu);
}

TEST(Trace, CaptureRestoresThePreviousMask) {
  const U32 before = TesselCentral::multiHashTableTrace().levelMask();
  {
    TraceCapture capture(0xFFFF);
    EXPECT_EQ(TesselCentral::multiHashTableTrace().levelMask(), 0xFFFFu);
  }
  EXPECT_EQ(TesselCentral::multiHashTableTrace().levelMask(), before);
  EXPECT_EQ(TesselCentral::multiHashTableTrace().sink(), nullptr);
}

TEST(Trace, BoolPrintsTrueOrFalse) {
  TraceCapture capture(levelBit(2));
  const bool yes = true;
  const bool no = false;
  MHT_TRACE(2, "found: " << yes << " locked: " << no);
  EXPECT_EQ(capture.texts(2), (std::vector<std::string>{"found: true locked: false"}));
}

TEST(Trace, HexThenDecSwitchesBackToDecimal) {
  TraceCapture capture(levelBit(5));
  MHT_TRACE(5, "MultiEntryTypeBank::"
                   << "updateBucketState"
                   << " bucketState: 0x" << Fwk::hex << 255u << " bucketId: " << Fwk::dec << 255u);
  EXPECT_EQ(capture.texts(5),
            (std::vector<std::string>{"MultiEntryTypeBank::updateBucketState bucketState: 0xff bucketId: 255"}));
}

TEST(Trace, EveryLineStartsInDecimal) {
  TraceCapture capture(levelBit(5));
  MHT_TRACE(5, "a: 0x" << Fwk::hex << 171u);
  MHT_TRACE(5, "b: " << 171u);
  EXPECT_EQ(capture.texts(5), (std::vector<std::string>{"a: 0xab", "b: 171"}));
}

TEST(Trace, SixtyFourBitValuesPrintInFull) {
  TraceCapture capture(levelBit(5));
  const U64 all = std::numeric_limits<U64>::max();
  const U64 high = U64{1} << 40;
  MHT_TRACE(5, "state: " << all << " high: " << high << " hex: 0x" << Fwk::hex << all << Fwk::dec);
  EXPECT_EQ(capture.texts(5),
            (std::vector<std::string>{"state: 18446744073709551615 high: 1099511627776 hex: 0xffffffffffffffff"}));
}

TEST(Trace, KeysPrintInTheirTextFormAndEntryIdsAsBareNumbers) {
  TraceCapture capture(levelBit(2));
  MHT_TRACE(2, "MultiHashTable::"
                   << "insertEntry"
                   << " key: " << HashEntryKey(1, 2, 3, HashEntryType::quadWide) << " eId: " << EntryId(17)
                   << " invalid: " << EntryId());
  EXPECT_EQ(capture.texts(2),
            (std::vector<std::string>{"MultiHashTable::insertEntry key: TesselCentral::HashEntryKey{crc16=1, "
                                      "crc32=2, fapId=3, entryType=quadWide} eId: 17 invalid: 4294967295"}));
}

TEST(Trace, MemorySinkSelectsTextsByLevel) {
  Fwk::MemoryTraceSink sink;
  sink.write({"h", 1, "f", 1, "g", "one"});
  sink.write({"h", 2, "f", 2, "g", "two"});
  sink.write({"h", 1, "f", 3, "g", "three"});
  EXPECT_EQ(sink.texts(1), (std::vector<std::string>{"one", "three"}));
  EXPECT_EQ(sink.texts(), (std::vector<std::string>{"one", "two", "three"}));
  sink.clear();
  EXPECT_TRUE(sink.lines().empty());
}

TEST(Trace, HandleWithoutSinkWritesFormattedLinesToStandardError) {
  Fwk::TraceHandle handle("Probe");
  handle.levelMaskIs(levelBit(1));
  testing::internal::CaptureStderr();
  const unsigned line = __LINE__ + 1;
  FWK_TRACE(handle, 1, "Probe", "x: " << 1u);
  FWK_TRACE(handle, 2, "Probe", "off");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "L1 Probe:" + std::to_string(line) + " TestBody: x: 1\n");
}

}  // namespace
