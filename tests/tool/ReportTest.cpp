#include "Report.h"

#include <expat.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

namespace mht {

using namespace TesselCentral;
namespace {

SimulationOptions smallMultiWidthRun() {
  SimulationOptions o;
  o.table = TableSpec{TableKind::multi, 2, 64, 4, 2, false};
  o.banks = defaultBanks(o.table, false);
  o.seed = 7;
  o.churn = 200;
  return o;
}

TEST(DefaultBanks, EachBankHashesItsOwnRunOfBits) {
  const TableSpec t{TableKind::multi, 4, 4096, 4, 3, false};
  const auto banks = defaultBanks(t, true);
  ASSERT_EQ(banks.size(), 4u);
  for (U32 i = 0; i < 4; ++i) {
    EXPECT_EQ(banks[i].bankId, i);
    EXPECT_EQ(banks[i].hashFunc, HashFunc::hashCrc32And16);
    EXPECT_EQ(banks[i].hashOffSet, 12 * i);
    EXPECT_EQ(banks[i].hashMask, 4095u);
    EXPECT_EQ(banks[i].phyBankId, i);
    EXPECT_TRUE(banks[i].doubleEntryTwoBucketMode);
  }
}

TEST(Simulation, FillsUntilTheFirstFailureThenChurns) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  ASSERT_TRUE(r.fillAtFirstFailure.has_value());
  EXPECT_EQ(r.fill.failed, 1u);
  EXPECT_EQ(r.fill.placed + 1, r.fill.requested);
  EXPECT_EQ(r.churn.requested, 200u);
  EXPECT_EQ(r.capacity, 2u * 64 * 4);
  EXPECT_GT(*r.fillAtFirstFailure, 0.3);
  EXPECT_LE(r.fillAtEnd, 1.0);
  // Every placement is counted once in the histogram, failures are not.
  U64 placements = 0;
  for (const auto& [moves, n] : r.movesHistogram) placements += n;
  EXPECT_EQ(placements, r.fill.placed + r.churn.placed);
  EXPECT_EQ(r.insertions - r.deletions, r.fill.placed + r.churn.placed - r.churn.requested);
}

TEST(Simulation, IsReproducibleForASeed) {
  const SimulationResult a = simulate(smallMultiWidthRun());
  const SimulationResult b = simulate(smallMultiWidthRun());
  EXPECT_EQ(a.fill.requested, b.fill.requested);
  EXPECT_EQ(a.slotsUsed, b.slotsUsed);
  EXPECT_EQ(a.movesHistogram, b.movesHistogram);
}

TEST(Report, JsonParsesAndCarriesTheFigures) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  std::ostringstream out;
  writeJsonReport(o, r, out);
  const auto doc = nlohmann::json::parse(out.str());
  EXPECT_EQ(doc["table"]["kind"], "multi");
  EXPECT_EQ(doc["table"]["capacity"], 512);
  EXPECT_EQ(doc["fill"]["requested"], r.fill.requested);
  EXPECT_EQ(doc["churn"]["requested"], 200);
  EXPECT_DOUBLE_EQ(doc["firstFailure"]["fillRatio"].get<double>(), *r.fillAtFirstFailure);
  EXPECT_EQ(doc["bankFillRatio"].size(), 2u);
  EXPECT_EQ(doc["table"]["banks"][1]["hashFunc"], "hashCrc32And16");
}

TEST(Report, SvgIsWellFormedXml) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  std::ostringstream out;
  writeSvgReport(o, r, out);
  const std::string svg = out.str();
  XML_Parser parser = XML_ParserCreate(nullptr);
  const auto status = XML_Parse(parser, svg.data(), static_cast<int>(svg.size()), 1);
  EXPECT_EQ(status, XML_STATUS_OK) << XML_ErrorString(XML_GetErrorCode(parser)) << " at line "
                                   << XML_GetCurrentLineNumber(parser);
  XML_ParserFree(parser);
  EXPECT_NE(svg.find("<svg"), std::string::npos);
  EXPECT_NE(svg.find("bank 1"), std::string::npos);
}

TEST(Report, TextNamesTheTableAndTheFirstFailure) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  std::ostringstream out;
  writeTextReport(o, r, out);
  EXPECT_NE(out.str().find("table      multi, 2 banks x 64 buckets x 4 slots = 512 slots, maxRecursiveSteps 2"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("first fail at request " + std::to_string(*r.firstFailureRequest)), std::string::npos);
}

// The slowest request's time is the machine's, not the run's: the tests hold its form, and
// that it names one of the run's requests.
TEST(Report, TextNamesTheSlowestRequest) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  ASSERT_TRUE(r.slowest.has_value());
  EXPECT_GE(r.slowest->request, 1u);
  EXPECT_LE(r.slowest->request, r.fill.requested + r.churn.requested);
  EXPECT_EQ(r.slowest->phase, r.slowest->request <= r.fill.requested ? "fill" : "churn");
  EXPECT_GT(r.slowest->microseconds, 0);
  std::ostringstream out;
  writeTextReport(o, r, out);
  const std::regex line(R"re(\nslowest    [0-9]+\.[0-9] us, request [0-9]+ \((fill|churn), (placed|no room)\), )re"
                        R"re(key [0-9]+ [0-9]+ [0-9]+ (singleWide|doubleWide|quadWide)\ncounters )re");
  EXPECT_TRUE(std::regex_search(out.str(), line)) << out.str();
  EXPECT_NE(out.str().find("request " + std::to_string(r.slowest->request) + " (" + r.slowest->phase),
            std::string::npos);
}

TEST(Report, JsonNamesTheSlowestRequest) {
  const SimulationOptions o = smallMultiWidthRun();
  const SimulationResult r = simulate(o);
  std::ostringstream out;
  writeJsonReport(o, r, out);
  const auto doc = nlohmann::json::parse(out.str());
  ASSERT_TRUE(doc.contains("slowestRequest")) << out.str();
  const auto& slowest = doc["slowestRequest"];
  EXPECT_EQ(slowest["request"], r.slowest->request);
  EXPECT_EQ(slowest["phase"], r.slowest->phase);
  EXPECT_TRUE(slowest["microseconds"].is_number());
  EXPECT_GT(slowest["microseconds"].get<double>(), 0);
  EXPECT_TRUE(slowest["placed"].is_boolean());
  EXPECT_EQ(slowest["key"], keyFields(r.slowest->key));
}

// A simulation that makes no request has no slowest one, and says nothing of it.
TEST(Report, NoRequestNoSlowest) {
  SimulationOptions o = smallMultiWidthRun();
  o.requests = 0;
  o.churn = 0;
  const SimulationResult r = simulate(o);
  EXPECT_FALSE(r.slowest.has_value());
  std::ostringstream text, json;
  writeTextReport(o, r, text);
  writeJsonReport(o, r, json);
  EXPECT_EQ(text.str().find("slowest"), std::string::npos) << text.str();
  EXPECT_FALSE(nlohmann::json::parse(json.str()).contains("slowestRequest"));
}

TEST(KeySources, HashesAreTheCrcsOfTheKeyBytes) {
  const unsigned char bytes[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(crc32Of(bytes, sizeof bytes), 0xCBF43926u);  // the CRC-32 check value
  EXPECT_EQ(crc16Of(bytes, sizeof bytes), 0x29B1u);      // the CRC-16/CCITT check value
}

TEST(KeySources, Ipv4PrefixesParseAndRejectBadText) {
  const Ipv4Prefix p = parseIpv4Prefix("192.168.7.9/16");
  EXPECT_EQ(p.address, 0xC0A80000u);
  EXPECT_EQ(p.length, 16u);
  EXPECT_THROW(parseIpv4Prefix("192.168.7.9"), std::invalid_argument);
  EXPECT_THROW(parseIpv4Prefix("192.168.700.9/16"), std::invalid_argument);
  EXPECT_THROW(parseIpv4Prefix("192.168.7.9/33"), std::invalid_argument);
}

TEST(KeySources, Ipv4KeysComeFromThePrefixAndNeverRepeat) {
  KeySource keys(KeySourceKind::ipv4, 3, WidthMix{100, 0, 0}, {parseIpv4Prefix("10.1.2.0/30")});
  std::set<std::pair<U16, U32>> seen;
  for (int i = 0; i < 4; ++i) {
    const HashEntryKey k = keys.next();
    EXPECT_TRUE(seen.insert({k.crc16(), k.crc32()}).second);
    EXPECT_EQ(k.entryType(), HashEntryType::singleWide);
  }
  // A /30 holds four addresses; a fifth key cannot be made.
  EXPECT_THROW(keys.next(), std::runtime_error);
}

}  // namespace
}  // namespace mht
