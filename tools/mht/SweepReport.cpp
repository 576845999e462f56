#include "SweepReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Format.h"
#include "SweepFigures.h"

namespace mht {

using namespace TesselCentral;

void writeSweepText(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  std::size_t simulations = 0;
  for (const SweepRow& row : result.rows) simulations += row.runs.size();
  const auto count = [](std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + ' ' + (n == 1 ? one : many);
  };
  out << "sweep      " << count(grid.tables.size(), "table", "tables") << ", "
      << count(grid.searches.size(), "search", "searches") << ", seeds " << seedList(grid.seeds, " ") << ", churn "
      << grid.churn << ": " << count(simulations, "simulation", "simulations") << ", "
      << count(grid.tables.size() * grid.seeds.size(), "optimum", "optima") << ", " << result.jobs << " at a time, "
      << fixed(result.seconds, 1) << " s\n";
  std::size_t labelWidth = 5;
  for (const SweepTable& t : grid.tables) labelWidth = std::max(labelWidth, t.label().size());
  const auto left = [&out](const std::string& text, std::size_t width) {
    out << text << std::string(width > text.size() ? width - text.size() : 0, ' ');
  };
  const auto right = [&out](const std::string& text, std::size_t width) {
    out << std::string(width > text.size() ? width - text.size() : 0, ' ') << text;
  };
  left("table", labelWidth);
  out << "  steps  search         fill at first failure       optimum     moves     churn/s      fill/s\n";
  for (const SweepRow& row : result.rows) {
    left(grid.tables[row.table].label(), labelWidth);
    right(std::to_string(row.steps), 7);
    out << "  ";
    left(searchName(row.search), 13);
    if (const std::string error = firstError(row); !error.empty()) {
      out << "  error: " << error << '\n';
      continue;
    }
    const Spread fill = fillSpread(row);
    std::string fillText = "-";
    // Three decimals: the seeds' fills of a table part in the third.
    if (fill.count) fillText = percent(fill.mean, 3) + " % (" + percent(fill.min, 3) + "-" + percent(fill.max, 3) + ")";
    out << "  ";
    left(fillText, 26);
    const Spread best = optimumSpread(result, row.table);
    std::string bestText = "-";
    if (best.count) bestText = (upperBound(result, row.table) ? "<=" : "") + percent(best.mean, 3) + " %";
    right(bestText, 12);
    right(fixed(meanOver(row, [](const SweepRun& r) { return r.movesMean; }), 3), 10);
    right(fixed(meanOver(row, [](const SweepRun& r) { return perSecond(r.churn); }), 0), 12);
    right(fixed(meanOver(row, [](const SweepRun& r) { return perSecond(r.fill); }), 0), 12);
    out << '\n';
  }
  out << "note       fill at first failure: mean (min-max) over seeds " << seedList(grid.seeds, ", ")
      << "; optimum: the mean first failure of an offline\n"
      << "note       placer that may re-place every key ('<=': an upper bound, multi-width); moves: mean per "
         "placement\n"
      << "note       churn/s, fill/s: requests per second of each phase, each simulation timed on its own while "
      << result.jobs << " ran at once\n";
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    for (const std::string& note : result.optimumNotes[t]) {
      if (!note.empty()) {
        out << "note       " << grid.tables[t].label() << ": no optimum, " << note << '\n';
        break;
      }
    }
  }
}

void writeSweepJson(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  using nlohmann::json;
  const auto spread = [](const Spread& s) {
    return json{{"mean", s.mean}, {"min", s.min}, {"max", s.max}, {"stddev", s.stddev}, {"count", s.count}};
  };
  const auto phase = [](const PhaseFigures& p) {
    return json{{"requested", p.requested}, {"placed", p.placed},   {"failed", p.failed},
                {"moves", p.moves},         {"seconds", p.seconds}, {"requestsPerSecond", perSecond(p)}};
  };
  const auto optimum = [](const OptimumFigures& o) {
    return json{{"request", o.request ? json(*o.request) : json(nullptr)},
                {"slots", o.slots},
                {o.upperBound ? "upperBound" : "fillRatio", o.fillRatio}};
  };
  json rows = json::array();
  for (const SweepRow& row : result.rows) {
    const SweepTable& t = grid.tables[row.table];
    json runs = json::array();
    for (std::size_t s = 0; s < row.runs.size(); ++s) {
      const SweepRun& run = row.runs[s];
      json r{{"seed", run.seed}};
      if (!run.error.empty()) {
        r["error"] = run.error;
      } else {
        r["firstFailure"] = run.fillAtFirstFailure
                                ? json{{"request", *run.firstFailureRequest}, {"fillRatio", *run.fillAtFirstFailure}}
                                : json(nullptr);
        r["fillRatioAtEnd"] = run.fillAtEnd;
        r["movesPerPlacement"] = run.movesMean;
        r["fill"] = phase(run.fill);
        r["churn"] = phase(run.churn);
      }
      if (const auto& o = result.optima[row.table][s]) r["optimum"] = optimum(*o);
      runs.push_back(r);
    }
    json entry{{"table",
                {{"kind", kindName(t.kind)},
                 {"numBanks", t.numBanks},
                 {"numBuckets", t.numBuckets},
                 {"numBucketEntries", t.numBucketEntries},
                 {"capacity", t.capacity()}}},
               {"label", t.label()},
               {"maxRecursiveSteps", row.steps},
               {"moveSearch", stringValue(row.search)},
               {"firstFailure", {{"fillRatio", spread(fillSpread(row))}}},
               {"movesPerPlacement", {{"mean", meanOver(row, [](const SweepRun& r) { return r.movesMean; })}}},
               {"requestsPerSecond",
                {{"fill", meanOver(row, [](const SweepRun& r) { return perSecond(r.fill); })},
                 {"churn", meanOver(row, [](const SweepRun& r) { return perSecond(r.churn); })}}},
               {"runs", runs}};
    if (const Spread best = optimumSpread(result, row.table); best.count) {
      entry["optimum"] = {{upperBound(result, row.table) ? "upperBound" : "fillRatio", spread(best)}};
    }
    if (const std::string error = firstError(row); !error.empty()) entry["error"] = error;
    rows.push_back(entry);
  }
  json doc{
      {"grid",
       {{"seeds", grid.seeds},
        {"churn", grid.churn},
        {"searches",
         [&] {
           json s = json::array();
           for (const MoveSearch m : grid.searches) s.push_back(stringValue(m));
           return s;
         }()},
        {"widthMix",
         {{"singleWide", grid.mix.singleWide}, {"doubleWide", grid.mix.doubleWide}, {"quadWide", grid.mix.quadWide}}}}},
      {"jobs", result.jobs},
      {"seconds", result.seconds},
      {"note", "requests per second are each simulation's own, measured while " + std::to_string(result.jobs) +
                   " simulations ran at once"},
      {"rows", rows}};
  out << doc.dump(2) << '\n';
}

}  // namespace mht
