#include "SweepReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

#include "Format.h"
#include "SweepFigures.h"

namespace mht {

using namespace TesselCentral;

namespace {

std::string count(std::size_t n, const char* one, const char* many) {
  return std::to_string(n) + ' ' + (n == 1 ? one : many);
}

// The text, padded with blanks to the column's width on its right or its left.
std::string leftAligned(const std::string& text, std::size_t width) {
  return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}
std::string rightAligned(const std::string& text, std::size_t width) {
  return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

// What was swept, how many at a time, and how long it took.
void writeHeading(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  std::size_t simulations = 0;
  for (const SweepRow& row : result.rows) simulations += row.runs.size();
  out << "sweep      " << count(grid.tables.size(), "table", "tables") << ", "
      << count(grid.searches.size(), "search", "searches") << ", seeds " << seedList(grid.seeds, " ") << ", churn "
      << grid.churn << ": " << count(simulations, "simulation", "simulations") << ", "
      << count(grid.tables.size() * grid.seeds.size(), "optimum", "optima") << ", " << result.jobs << " at a time, "
      << fixed(result.seconds, 1) << " s\n";
}

// A phase's rate over the row's runs, then the least and the most of the runs' own rates;
// padded to the next column unless `last`.
std::string rateCells(const Rate& rate, bool last) {
  std::string spread(1, '(');
  spread += fixed(rate.min, 0) + "-" + fixed(rate.max, 0) + ")";
  return rightAligned(fixed(rate.perSecond, 0), 12) + "  " + (last ? spread : leftAligned(spread, 21));
}

// A row's cell, then its figures: the fill at the first failure with its spread over the
// seeds, the optimum, the moves and the phases' rates; or the error that stopped a run.
void writeRow(const SweepGrid& grid, const SweepResult& result, const SweepRow& row, std::size_t labelWidth,
              std::ostream& out) {
  out << leftAligned(grid.tables[row.table].label(), labelWidth) << rightAligned(std::to_string(row.steps), 7) << "  "
      << leftAligned(searchName(row.search), 13);
  if (const std::string error = firstError(row); !error.empty()) {
    out << "  error: " << error << '\n';
    return;
  }
  const Spread fill = fillSpread(row);
  std::string fillText = "-";
  // Three decimals: the seeds' fills of a table differ in the third.
  if (fill.count) fillText = percent(fill.mean, 3) + " % (" + percent(fill.min, 3) + "-" + percent(fill.max, 3) + ")";
  const Spread best = optimumSpread(result, row.table);
  std::string bestText = "-";
  if (best.count) bestText = (upperBound(result, row.table) ? "<=" : "") + percent(best.mean, 3) + " %";
  out << "  " << leftAligned(fillText, 26) << rightAligned(bestText, 12)
      << rightAligned(fixed(meanOver(row, [](const SweepRun& r) { return r.movesMean; }), 3), 10)
      << rateCells(rateOf(row, &SweepRun::churn), false) << rateCells(rateOf(row, &SweepRun::fill), true) << '\n';
}

// What the columns mean, and why a table has no optimum.
void writeNotes(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  out << "note       fill at first failure: mean (min-max) over seeds " << seedList(grid.seeds, ", ")
      << "; optimum: the mean first failure of an offline\n"
      << "note       placer that may re-place every key ('<=': an upper bound, multi-width); moves: mean per "
         "placement\n"
      << "note       churn/s, fill/s: the phase's requests over its seconds, summed over the seeds (min-max: the "
         "seeds' own rates),\n"
      << "note       each simulation timed on its own while " << result.jobs << " ran at once\n";
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    for (const std::string& note : result.optimumNotes[t]) {
      if (!note.empty()) {
        out << "note       " << grid.tables[t].label() << ": no optimum, " << note << '\n';
        break;
      }
    }
  }
}

}  // namespace

void writeSweepText(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  writeHeading(grid, result, out);
  std::size_t labelWidth = 5;
  for (const SweepTable& t : grid.tables) labelWidth = std::max(labelWidth, t.label().size());
  out << leftAligned("table", labelWidth)
      << "  steps  search         fill at first failure       optimum     moves     churn/s  (min-max)         "
         "    fill/s  (min-max)\n";
  for (const SweepRow& row : result.rows) writeRow(grid, result, row, labelWidth, out);
  writeNotes(grid, result, out);
}

namespace {

using nlohmann::json;

json spreadJson(const Spread& s) {
  return json{{"mean", s.mean}, {"min", s.min}, {"max", s.max}, {"stddev", s.stddev}, {"count", s.count}};
}

json rateJson(const Rate& r) {
  return json{{"requestsPerSecond", r.perSecond},
              {"requests", r.requests},
              {"seconds", r.seconds},
              {"min", r.min},
              {"max", r.max},
              {"count", r.count}};
}

json phaseJson(const PhaseFigures& p) {
  return json{{"requested", p.requested}, {"placed", p.placed},   {"failed", p.failed},
              {"moves", p.moves},         {"seconds", p.seconds}, {"requestsPerSecond", perSecond(p)}};
}

// A multi-width table's figure is a bound, and named so.
json optimumJson(const OptimumFigures& o) {
  return json{{"request", o.request ? json(*o.request) : json(nullptr)},
              {"slots", o.slots},
              {o.upperBound ? "upperBound" : "fillRatio", o.fillRatio}};
}

// One simulation, named as mht simulate --json names its figures, with its seed's optimum.
json runJson(const SweepRun& run, const std::optional<OptimumFigures>& optimum) {
  json r{{"seed", run.seed}};
  if (!run.error.empty()) {
    r["error"] = run.error;
  } else {
    r["firstFailure"] = run.fillAtFirstFailure
                            ? json{{"request", *run.firstFailureRequest}, {"fillRatio", *run.fillAtFirstFailure}}
                            : json(nullptr);
    r["fillRatioAtEnd"] = run.fillAtEnd;
    r["movesPerPlacement"] = run.movesMean;
    r["fill"] = phaseJson(run.fill);
    r["churn"] = phaseJson(run.churn);
    if (run.slowest) {
      r["slowestRequest"] = {{"request", run.slowest->request},
                             {"phase", run.slowest->phase},
                             {"microseconds", run.slowest->microseconds},
                             {"placed", run.slowest->placed},
                             {"key", keyFields(run.slowest->key)}};
    }
  }
  if (optimum) r["optimum"] = optimumJson(*optimum);
  return r;
}

json tableJson(const SweepTable& t) {
  return json{{"kind", kindName(t.kind)},
              {"numBanks", t.numBanks},
              {"numBuckets", t.numBuckets},
              {"numBucketEntries", t.numBucketEntries},
              {"capacity", t.capacity()}};
}

// A row: its cell of the grid, the figures over its runs, and the runs.
json rowJson(const SweepGrid& grid, const SweepResult& result, const SweepRow& row) {
  json runs = json::array();
  for (std::size_t s = 0; s < row.runs.size(); ++s) runs.push_back(runJson(row.runs[s], result.optima[row.table][s]));
  json entry{{"table", tableJson(grid.tables[row.table])},
             {"label", grid.tables[row.table].label()},
             {"maxRecursiveSteps", row.steps},
             {"moveSearch", stringValue(row.search)},
             {"firstFailure", {{"fillRatio", spreadJson(fillSpread(row))}}},
             {"movesPerPlacement", {{"mean", meanOver(row, [](const SweepRun& r) { return r.movesMean; })}}},
             // Kept as it was: the mean of the runs' own rates. The rate the report shows is
             // requestsOverTime's: the requests of all runs over the seconds of all runs.
             {"requestsPerSecond",
              {{"fill", meanOver(row, [](const SweepRun& r) { return perSecond(r.fill); })},
               {"churn", meanOver(row, [](const SweepRun& r) { return perSecond(r.churn); })}}},
             {"requestsOverTime",
              {{"fill", rateJson(rateOf(row, &SweepRun::fill))}, {"churn", rateJson(rateOf(row, &SweepRun::churn))}}},
             {"runs", runs}};
  if (const Spread best = optimumSpread(result, row.table); best.count) {
    entry["optimum"] = {{upperBound(result, row.table) ? "upperBound" : "fillRatio", spreadJson(best)}};
  }
  if (const std::string error = firstError(row); !error.empty()) entry["error"] = error;
  return entry;
}

// What the grid holds besides its tables, which each row names.
json gridJson(const SweepGrid& grid) {
  json searches = json::array();
  for (const MoveSearch m : grid.searches) searches.push_back(stringValue(m));
  return json{
      {"seeds", grid.seeds},
      {"churn", grid.churn},
      {"searches", searches},
      {"widthMix",
       {{"singleWide", grid.mix.singleWide}, {"doubleWide", grid.mix.doubleWide}, {"quadWide", grid.mix.quadWide}}}};
}

}  // namespace

void writeSweepJson(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  json rows = json::array();
  for (const SweepRow& row : result.rows) rows.push_back(rowJson(grid, result, row));
  const json doc{{"grid", gridJson(grid)},
                 {"jobs", result.jobs},
                 {"seconds", result.seconds},
                 {"note", "requests per second are measured while " + std::to_string(result.jobs) +
                              " simulations ran at once; a row's requestsOverTime is the requests of its runs over "
                              "their seconds (min, max: the runs' own rates), its requestsPerSecond the mean of the "
                              "runs' own rates"},
                 {"rows", rows}};
  out << doc.dump(2) << '\n';
}

}  // namespace mht
