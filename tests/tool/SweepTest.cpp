#include "Sweep.h"

#include <expat.h>
#include <gtest/gtest.h>

#include <functional>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Report.h"

namespace mht {

using namespace TesselCentral;
namespace {

std::string errorOf(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "no error";
}

TEST(SweepGrid, TheDefaultGridIsThreeTablesBothSearchesThreeSeeds) {
  const SweepGrid g = defaultSweepGrid();
  ASSERT_EQ(g.tables.size(), 3u);
  EXPECT_EQ(g.tables[0].label(), "single 4x4096x4");
  EXPECT_EQ(g.tables[1].label(), "single 2x4096x4");
  EXPECT_EQ(g.tables[2].label(), "multi 4x4096x4");
  EXPECT_EQ(g.tables[0].steps, (std::vector<U32>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(g.tables[2].steps, (std::vector<U32>{3, 4, 5}));
  EXPECT_EQ(g.searches, (std::vector<MoveSearch>{MoveSearch::depthFirst, MoveSearch::breadthFirst}));
  EXPECT_EQ(g.seeds, (std::vector<U64>{1, 2, 3}));
  EXPECT_EQ(g.churn, 5000u);
  EXPECT_EQ(g.tables[0].capacity(), 65536u);
}

TEST(SweepGrid, TablesParseWithOrWithoutAShape) {
  const SweepTable t = parseSweepTable("single:2x64x4");
  EXPECT_EQ(t.kind, TableKind::single);
  EXPECT_EQ(t.numBanks, 2u);
  EXPECT_EQ(t.numBuckets, 64u);
  EXPECT_EQ(t.numBucketEntries, 4u);
  EXPECT_EQ(t.steps, defaultSweepSteps(TableKind::single));
  const SweepTable m = parseSweepTable("multi");
  EXPECT_EQ(m.label(), "multi 4x4096x4");
  EXPECT_EQ(m.steps, (std::vector<U32>{3, 4, 5}));
}

TEST(SweepGrid, BadTablesAreNamedWithWhatIsWrong) {
  EXPECT_EQ(errorOf([] { parseSweepTable("triple:4x4096x4"); }),
            "'triple:4x4096x4': 'triple' is not a table kind (single or multi)");
  EXPECT_EQ(errorOf([] { parseSweepTable("single:4x4096"); }),
            "'single:4x4096': the shape is not <banks>x<buckets>x<slots>");
  EXPECT_EQ(errorOf([] { parseSweepTable("single:4xx4"); }),
            "'single:4xx4': the shape is not <banks>x<buckets>x<slots>");
  EXPECT_EQ(errorOf([] { parseSweepTable("single:257x64x4"); }), "'single:257x64x4': 257 banks is above 256");
  EXPECT_EQ(errorOf([] { parseSweepTable("single:4x100x4"); }),
            "'single:4x100x4': 100 buckets is not a power of two up to 1048576");
  EXPECT_EQ(errorOf([] { parseSweepTable("single:4x64x17"); }), "'single:4x64x17': 17 slots is above 16");
}

// What a table of a parsed shape can serve is the library's to say: the sweep builds each
// table as its simulations would and refuses the whole grid, naming the table and every
// problem, before any run.
TEST(SweepGrid, ATableThatTheLibraryRefusesRefusesTheSweep) {
  for (const char* text : {"single:0x64x4", "multi:4x64x8", "multi:129x64x4", "single:256x1048576x16"}) {
    EXPECT_EQ(errorOf([&] { parseSweepTable(text); }), "no error") << text;
  }
  SweepGrid g = defaultSweepGrid();
  g.tables = {parseSweepTable("single:2x64x4"), parseSweepTable("multi:2x64x8")};
  g.seeds = {1};
  try {
    runSweep(g, 1, false);
    FAIL() << "the sweep ran";
  } catch (const ConfigurationRefused& e) {
    EXPECT_EQ(std::string(e.what()),
              "multi 2x64x8: the table cannot serve its requests (2 problems):\n"
              "  bank 0: bucketSize 8 is past the 4 slots that a bucket's state word serves: a later placement stops "
              "the agent on the assertion \"!posToKeyHas( pos )\"\n"
              "  bank 1: bucketSize 8 is past the 4 slots that a bucket's state word serves: a later placement stops "
              "the agent on the assertion \"!posToKeyHas( pos )\"");
    EXPECT_EQ(e.check().problems().size(), 2u);
  }
  g.tables = {parseSweepTable("single:256x1048576x16")};
  try {
    runSweep(g, 1, false);
    FAIL() << "the sweep ran";
  } catch (const ConfigurationRefused& e) {
    EXPECT_TRUE(e.check().has(ConfigurationRule::capacityPastIds)) << e.what();
  }
}

TEST(SweepGrid, NumberListsTakeNumbersAndRanges) {
  EXPECT_EQ(parseNumberList("0-3,8", 0, 16), (std::vector<U64>{0, 1, 2, 3, 8}));
  EXPECT_EQ(parseNumberList("8,1,1-2", 0, 16), (std::vector<U64>{1, 2, 8}));
  EXPECT_EQ(parseNumberList("5", 0, 16), (std::vector<U64>{5}));
  EXPECT_EQ(errorOf([] { parseNumberList("0-17", 0, 16); }), "'0-17': 17 is not in 0..16");
  EXPECT_EQ(errorOf([] { parseNumberList("1,,2", 0, 16); }), "'1,,2': an empty item");
  EXPECT_EQ(errorOf([] { parseNumberList("", 0, 16); }), "'': an empty item");
  EXPECT_EQ(errorOf([] { parseNumberList("1,x", 0, 16); }),
            "'1,x': 'x' is not a number in 0..16 or a range <first>-<last> of them");
  EXPECT_EQ(errorOf([] { parseNumberList("-3", 0, 16); }),
            "'-3': '-3' is not a number in 0..16 or a range <first>-<last> of them");
  EXPECT_EQ(errorOf([] { parseNumberList("5-1", 0, 16); }), "'5-1': the range '5-1' runs backwards");
  EXPECT_EQ(errorOf([] { parseNumberList("0", 1, 9); }), "'0': 0 is not in 1..9");
}

TEST(SweepGrid, SearchesParseByEitherSpelling) {
  EXPECT_EQ(parseSearches("breadth-first,depth-first,breadth-first"),
            (std::vector<MoveSearch>{MoveSearch::breadthFirst, MoveSearch::depthFirst}));
  EXPECT_EQ(parseSearches("depthFirst,breadthFirst,depth-first"),
            (std::vector<MoveSearch>{MoveSearch::depthFirst, MoveSearch::breadthFirst}));
  EXPECT_EQ(errorOf([] { parseSearches("depth-first,sideways"); }),
            "'depth-first,sideways': 'sideways' is not a TesselCentral::MoveSearch name (depthFirst, breadthFirst, "
            "depth-first, breadth-first)");
  EXPECT_EQ(errorOf([] { parseSearches("depth-first,"); }), "'depth-first,': an empty item");
}

// Two small single-width tables, two chain depths, both searches, two seeds.
SweepGrid smallGrid() {
  SweepGrid g;
  g.tables = {parseSweepTable("single:2x64x4"), parseSweepTable("single:4x32x2")};
  for (SweepTable& t : g.tables) t.steps = {1, 3};
  g.seeds = {1, 2};
  g.churn = 200;
  return g;
}

TEST(Sweep, OneRowPerTableBudgetAndSearchOneRunPerSeed) {
  const SweepGrid g = smallGrid();
  const SweepResult r = runSweep(g, 2, false);
  ASSERT_EQ(r.rows.size(), 8u);
  EXPECT_EQ(r.rows[0].table, 0u);
  EXPECT_EQ(r.rows[0].steps, 1u);
  EXPECT_EQ(r.rows[0].search, MoveSearch::depthFirst);
  EXPECT_EQ(r.rows[1].search, MoveSearch::breadthFirst);
  EXPECT_EQ(r.rows[2].steps, 3u);
  EXPECT_EQ(r.rows[4].table, 1u);
  for (const SweepRow& row : r.rows) {
    ASSERT_EQ(row.runs.size(), 2u);
    EXPECT_EQ(row.runs[0].seed, 1u);
    EXPECT_EQ(row.runs[1].seed, 2u);
    for (const SweepRun& run : row.runs) {
      EXPECT_EQ(run.error, "");
      EXPECT_TRUE(run.fillAtFirstFailure.has_value());
      EXPECT_EQ(run.churn.requested, 200u);
    }
  }
  EXPECT_EQ(r.jobs, 2u);
  ASSERT_EQ(r.optima.size(), 2u);
  for (const auto& perSeed : r.optima) {
    ASSERT_EQ(perSeed.size(), 2u);
    for (const auto& o : perSeed) EXPECT_TRUE(o && o->request && !o->upperBound);
  }
}

TEST(Sweep, EveryRunIsTheSimulationOfItsCell) {
  const SweepGrid g = smallGrid();
  const SweepResult r = runSweep(g, 2, false);
  for (const SweepRow& row : r.rows) {
    for (const SweepRun& run : row.runs) {
      SimulationOptions o = sweepSimulation(g, g.tables[row.table], row.steps, row.search, run.seed);
      o.optimum = true;
      const SimulationResult s = simulate(o);
      EXPECT_EQ(run.fillAtFirstFailure, s.fillAtFirstFailure);
      EXPECT_EQ(run.firstFailureRequest, s.firstFailureRequest);
      EXPECT_EQ(run.movesMean, s.movesMean);
      EXPECT_EQ(run.fill.moves, s.fill.moves);
      EXPECT_EQ(run.churn.placed, s.churn.placed);
      const std::size_t seed = run.seed == 1 ? 0 : 1;
      ASSERT_TRUE(r.optima[row.table][seed] && s.optimum);
      EXPECT_EQ(r.optima[row.table][seed]->request, s.optimum->request);
      EXPECT_EQ(r.optima[row.table][seed]->fillRatio, s.optimum->fillRatio);
    }
  }
}

// Everything but the timings.
std::vector<std::tuple<std::optional<double>, double, U64, U64>> figures(const SweepResult& r) {
  std::vector<std::tuple<std::optional<double>, double, U64, U64>> out;
  for (const SweepRow& row : r.rows) {
    for (const SweepRun& run : row.runs) {
      out.emplace_back(run.fillAtFirstFailure, run.movesMean, run.fill.moves + run.churn.moves, run.churn.placed);
    }
  }
  return out;
}

TEST(Sweep, ResultsDependOnTheSeedsNotOnTheThreads) {
  const SweepGrid g = smallGrid();
  const SweepResult one = runSweep(g, 1, false);
  const SweepResult two = runSweep(g, 2, false);
  const SweepResult again = runSweep(g, 2, false);
  EXPECT_EQ(one.jobs, 1u);
  EXPECT_EQ(figures(one), figures(two));
  EXPECT_EQ(figures(two), figures(again));
  // Different seeds do give different fills.
  EXPECT_NE(one.rows[0].runs[0].fillAtFirstFailure, one.rows[0].runs[1].fillAtFirstFailure);
}

TEST(Sweep, MoreJobsThanRunsUseOneThreadPerRun) {
  SweepGrid g = smallGrid();
  g.tables.resize(1);
  g.tables[0].steps = {1};
  g.searches = {MoveSearch::depthFirst};
  g.seeds = {4};
  // One simulation and one optimum.
  EXPECT_EQ(runSweep(g, 16, false).jobs, 2u);
}

TEST(Sweep, JsonCarriesTheSameFiguresAsMhtSimulate) {
  const SweepGrid g = smallGrid();
  const SweepResult r = runSweep(g, 2, false);
  std::ostringstream out;
  writeSweepJson(g, r, out);
  const auto doc = nlohmann::json::parse(out.str());
  EXPECT_EQ(doc.at("grid").at("seeds"), nlohmann::json({1, 2}));
  EXPECT_EQ(doc.at("grid").at("churn"), 200);
  EXPECT_EQ(doc.at("jobs"), 2);
  ASSERT_EQ(doc.at("rows").size(), 8u);
  const auto& row = doc.at("rows").at(3);  // single 2x64x4, steps 3, breadth-first
  EXPECT_EQ(row.at("label"), "single 2x64x4");
  EXPECT_EQ(row.at("table").at("capacity"), 512);
  EXPECT_EQ(row.at("maxRecursiveSteps"), 3);
  EXPECT_EQ(row.at("moveSearch"), "breadthFirst");
  EXPECT_FALSE(row.contains("error"));
  for (const U64 seed : {1, 2}) {
    // mht simulate --table single --banks 2 --buckets 64 --slots 4 --steps 3
    //   --move-search breadth-first --churn 200 --seed <seed>
    SimulationOptions o;
    o.table = TableSpec{TableKind::single, 2, 64, 4, 3, false, MoveSearch::breadthFirst};
    o.banks = defaultBanks(o.table, false);
    o.churn = 200;
    o.seed = seed;
    std::ostringstream report;
    writeJsonReport(o, simulate(o), report);
    const auto tool = nlohmann::json::parse(report.str());
    const auto& run = row.at("runs").at(seed - 1);
    EXPECT_EQ(run.at("seed"), seed);
    EXPECT_EQ(run.at("firstFailure"), tool.at("firstFailure"));
    EXPECT_EQ(run.at("optimum"), tool.at("optimum"));
    EXPECT_EQ(run.at("movesPerPlacement"), tool.at("movesPerPlacement").at("mean"));
    EXPECT_EQ(run.at("fillRatioAtEnd"), tool.at("fillRatioAtEnd"));
    EXPECT_EQ(run.at("fill").at("requested"), tool.at("fill").at("requested"));
    EXPECT_EQ(run.at("churn").at("placed"), tool.at("churn").at("placed"));
  }
  const double first = row.at("runs").at(0).at("firstFailure").at("fillRatio");
  const double second = row.at("runs").at(1).at("firstFailure").at("fillRatio");
  EXPECT_DOUBLE_EQ(row.at("firstFailure").at("fillRatio").at("mean").get<double>(), (first + second) / 2);
  EXPECT_DOUBLE_EQ(row.at("firstFailure").at("fillRatio").at("min").get<double>(), std::min(first, second));
  EXPECT_DOUBLE_EQ(row.at("firstFailure").at("fillRatio").at("max").get<double>(), std::max(first, second));
  EXPECT_DOUBLE_EQ(row.at("firstFailure").at("fillRatio").at("stddev").get<double>(), std::abs(first - second) / 2);
  EXPECT_TRUE(row.at("optimum").at("fillRatio").contains("mean"));
  EXPECT_TRUE(row.at("requestsPerSecond").contains("churn"));
  EXPECT_TRUE(row.at("requestsPerSecond").contains("fill"));
}

TEST(Sweep, TextHasARowPerCellWithTheMeanAndSpreadOfTheFills) {
  SweepGrid g = smallGrid();
  g.tables.resize(1);
  g.tables[0].steps = {1};
  g.searches = {MoveSearch::depthFirst};
  const SweepResult r = runSweep(g, 2, false);
  std::ostringstream out;
  writeSweepText(g, r, out);
  std::vector<double> fills;
  for (const U64 seed : {1, 2}) {
    SimulationOptions o;
    o.table = TableSpec{TableKind::single, 2, 64, 4, 1, false, MoveSearch::depthFirst};
    o.banks = defaultBanks(o.table, false);
    o.churn = 200;
    o.seed = seed;
    fills.push_back(*simulate(o).fillAtFirstFailure);
  }
  std::ostringstream expected;
  expected << std::fixed << std::setprecision(3) << "single 2x64x4      1  depth-first    "
           << (fills[0] + fills[1]) * 50 << " % (" << std::min(fills[0], fills[1]) * 100 << "-"
           << std::max(fills[0], fills[1]) * 100 << ")";
  const std::string text = out.str();
  EXPECT_NE(text.find("\n" + expected.str()), std::string::npos) << text << "\nexpected: " << expected.str();
  EXPECT_EQ(text.rfind("sweep      1 table, 1 search, seeds 1 2, churn 200: 2 simulations, 2 optima, 2 at a time, ", 0),
            0u)
      << text;
  EXPECT_NE(text.find("\ntable          steps  search         fill at first failure"), std::string::npos) << text;
  EXPECT_NE(text.find("each simulation timed on its own while 2 ran at once\n"), std::string::npos) << text;
}

TEST(Sweep, ACellTheTableRefusesIsAnErrorRowAndTheRestRuns) {
  // Whatever the multi-width table says to a breadth-first search, the sweep reports it in
  // that row and runs the depth-first row regardless.
  std::string refusal;
  try {
    TableSession session(TableSpec{TableKind::multi, 2, 64, 4, 2, false, MoveSearch::breadthFirst});
  } catch (const std::exception& e) {
    refusal = e.what();
  }
  SweepGrid g;
  g.tables = {parseSweepTable("multi:2x64x4")};
  g.tables[0].steps = {2};
  g.seeds = {1};
  g.churn = 50;
  const SweepResult r = runSweep(g, 2, false);
  ASSERT_EQ(r.rows.size(), 2u);
  EXPECT_EQ(r.rows[0].runs[0].error, "");
  EXPECT_TRUE(r.rows[0].runs[0].fillAtFirstFailure.has_value());
  EXPECT_EQ(r.rows[1].runs[0].error, refusal);
  std::ostringstream text, json;
  writeSweepText(g, r, text);
  writeSweepJson(g, r, json);
  const auto doc = nlohmann::json::parse(json.str());
  if (refusal.empty()) {
    EXPECT_EQ(text.str().find("error: "), std::string::npos);
    EXPECT_FALSE(doc.at("rows").at(1).contains("error"));
  } else {
    EXPECT_NE(text.str().find("multi 2x64x4      2  breadth-first  error: " + refusal + "\n"), std::string::npos)
        << text.str();
    EXPECT_EQ(doc.at("rows").at(1).at("error"), refusal);
    EXPECT_EQ(doc.at("rows").at(1).at("runs").at(0).at("error"), refusal);
  }
  // A multi-width table's optimum is an upper bound, and says so.
  EXPECT_TRUE(doc.at("rows").at(0).at("optimum").contains("upperBound"));
  EXPECT_NE(text.str().find(" <="), std::string::npos);
}

std::size_t occurrences(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

TEST(Sweep, SvgIsWellFormedWithALinePerSeriesAndTheOptima) {
  const SweepGrid g = smallGrid();
  const SweepResult r = runSweep(g, 2, false);
  std::ostringstream out;
  writeSweepSvg(g, r, out);
  const std::string svg = out.str();
  EXPECT_EQ(svg.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
  XML_Parser parser = XML_ParserCreate(nullptr);
  const auto status = XML_Parse(parser, svg.data(), static_cast<int>(svg.size()), 1);
  EXPECT_EQ(status, XML_STATUS_OK) << XML_ErrorString(XML_GetErrorCode(parser)) << " at line "
                                   << XML_GetCurrentLineNumber(parser);
  XML_ParserFree(parser);
  // Two tables x two searches; each table's optimum dashed across the chart and in the legend.
  EXPECT_EQ(occurrences(svg, "<polyline"), 4u);
  EXPECT_EQ(occurrences(svg, "stroke-dasharray=\"6 4\""), 4u);
  EXPECT_NE(svg.find(">single 4x32x2, breadth-first</text>"), std::string::npos);
  EXPECT_NE(svg.find(">single 2x64x4, optimum</text>"), std::string::npos);
  // A point per chain depth and seed summary: 2 depths x 4 series.
  EXPECT_EQ(occurrences(svg, "<circle"), 4u);
}

// A row of two seeds whose churn phases differ in length: 1000 requests in 0.5 s (2000/s)
// and 3000 in 0.25 s (12000/s). The mean of the two rates would be 7000/s; the row's rate
// is the 4000 requests over the 0.75 s, 5333/s.
SweepRow rowOfTwoChurns() {
  SweepRow row;
  row.steps = 1;
  row.runs.resize(2);
  row.runs[0].seed = 1;
  row.runs[0].churn = PhaseFigures{.requested = 1000, .placed = 1000, .failed = 0, .moves = 0, .seconds = 0.5};
  row.runs[1].seed = 2;
  row.runs[1].churn = PhaseFigures{.requested = 3000, .placed = 3000, .failed = 0, .moves = 0, .seconds = 0.25};
  return row;
}

TEST(Sweep, ARowsRateIsItsRequestsOverItsSecondsWithTheSeedsOwnRatesBeside) {
  SweepRow row = rowOfTwoChurns();
  Rate rate = rateOf(row, &SweepRun::churn);
  EXPECT_EQ(rate.count, 2u);
  EXPECT_EQ(rate.requests, 4000u);
  EXPECT_DOUBLE_EQ(rate.seconds, 0.75);
  EXPECT_DOUBLE_EQ(rate.perSecond, 4000 / 0.75);
  EXPECT_DOUBLE_EQ(rate.min, 2000);
  EXPECT_DOUBLE_EQ(rate.max, 12000);
  // A run that stopped with an error counts for nothing.
  row.runs.emplace_back();
  row.runs.back().seed = 3;
  row.runs.back().error = "stopped";
  row.runs.back().churn = PhaseFigures{.requested = 1, .placed = 0, .failed = 0, .moves = 0, .seconds = 100};
  rate = rateOf(row, &SweepRun::churn);
  EXPECT_EQ(rate.count, 2u);
  EXPECT_DOUBLE_EQ(rate.perSecond, 4000 / 0.75);
  // No time measured: no rate.
  EXPECT_EQ(rateOf(row, &SweepRun::fill).perSecond, 0);
}

TEST(Sweep, TheTextTheJsonAndTheChartShowTheRowsRateOverTimeAndItsSpread) {
  SweepGrid g = smallGrid();
  g.tables.resize(1);
  SweepResult r;
  r.rows = {rowOfTwoChurns()};
  r.optima = {{std::nullopt, std::nullopt}};
  r.optimumNotes = {{"", ""}};
  std::ostringstream text;
  writeSweepText(g, r, text);
  EXPECT_NE(text.str().find("        5333  (2000-12000)"), std::string::npos) << text.str();
  std::ostringstream out;
  writeSweepJson(g, r, out);
  const nlohmann::json row = nlohmann::json::parse(out.str()).at("rows").at(0);
  const nlohmann::json& churn = row.at("requestsOverTime").at("churn");
  EXPECT_DOUBLE_EQ(churn.at("requestsPerSecond").get<double>(), 4000 / 0.75);
  EXPECT_EQ(churn.at("requests"), 4000);
  EXPECT_DOUBLE_EQ(churn.at("seconds").get<double>(), 0.75);
  EXPECT_DOUBLE_EQ(churn.at("min").get<double>(), 2000);
  EXPECT_DOUBLE_EQ(churn.at("max").get<double>(), 12000);
  // The old key keeps its meaning: the mean of the seeds' own rates.
  EXPECT_DOUBLE_EQ(row.at("requestsPerSecond").at("churn").get<double>(), 7000);
  std::ostringstream svg;
  writeSweepSvg(g, r, svg);
  EXPECT_NE(svg.str().find(">single 2x64x4, depth-first, 1 step: 5333 (2000-12000)</text>"), std::string::npos)
      << svg.str();
}

}  // namespace
}  // namespace mht
