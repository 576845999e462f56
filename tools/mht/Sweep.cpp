#include "Sweep.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <iomanip>
#include <mutex>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "Optimum.h"
#include "Progress.h"

namespace mht {

namespace {

std::vector<std::string> splitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

// Decimal digits only, at most 18 of them; nothing otherwise.
std::optional<U64> decimal(const std::string& text) {
  if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos) return {};
  return std::stoull(text);
}

[[noreturn]] void bad(const std::string& text, const std::string& what) {
  throw std::invalid_argument("'" + text + "': " + what);
}

}  // namespace

std::string SweepTable::label() const {
  return std::string(kindName(kind)) + ' ' + std::to_string(numBanks) + 'x' + std::to_string(numBuckets) + 'x' +
         std::to_string(numBucketEntries);
}

std::vector<U32> defaultSweepSteps(TableKind kind) {
  // Single-width tables are quick to fill at any budget; a multi-width table's depth-first
  // search grows with the budget, so its range is narrower.
  if (kind == TableKind::single) return {0, 1, 2, 3, 4, 5, 6, 7, 8};
  return {3, 4, 5};
}

SweepGrid defaultSweepGrid() {
  SweepGrid grid;
  grid.tables = {SweepTable{TableKind::single, 4, 4096, 4, defaultSweepSteps(TableKind::single)},
                 SweepTable{TableKind::single, 2, 4096, 4, defaultSweepSteps(TableKind::single)},
                 SweepTable{TableKind::multi, 4, 4096, 4, defaultSweepSteps(TableKind::multi)}};
  return grid;
}

SweepTable parseSweepTable(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  SweepTable t;
  if (kind == "single") {
    t.kind = TableKind::single;
  } else if (kind == "multi") {
    t.kind = TableKind::multi;
  } else {
    bad(text, "'" + kind + "' is not a table kind (single or multi)");
  }
  t.steps = defaultSweepSteps(t.kind);
  if (colon == std::string::npos) return t;
  const std::vector<std::string> shape = splitAt(text.substr(colon + 1), 'x');
  std::optional<U64> banks, buckets, slots;
  if (shape.size() == 3) {
    banks = decimal(shape[0]);
    buckets = decimal(shape[1]);
    slots = decimal(shape[2]);
  }
  if (!banks || !buckets || !slots) bad(text, "the shape is not <banks>x<buckets>x<slots>");
  if (*banks < 1 || *banks > 256) bad(text, std::to_string(*banks) + " banks is not in 1..256");
  if (*buckets < 1 || *buckets > (1u << 20) || (*buckets & (*buckets - 1)) != 0) {
    bad(text, std::to_string(*buckets) + " buckets is not a power of two in 1..1048576");
  }
  if (*slots < 1 || *slots > 16) bad(text, std::to_string(*slots) + " slots is not in 1..16");
  if (t.kind == TableKind::multi && *slots > 4) bad(text, "a multi-width table's bucket state serves at most 4 slots");
  if (t.kind == TableKind::multi && *banks > 128) {
    bad(text, "a multi-width table skips bank 128 on first placements; use at most 128 banks");
  }
  if (*banks * *buckets * *slots > 0xFFFFFFFFull) bad(text, "the capacity does not fit in 32 bits");
  t.numBanks = static_cast<U32>(*banks);
  t.numBuckets = static_cast<U32>(*buckets);
  t.numBucketEntries = static_cast<U32>(*slots);
  return t;
}

std::vector<U64> parseNumberList(const std::string& text, U64 low, U64 high) {
  std::vector<U64> numbers;
  const std::string bounds = std::to_string(low) + ".." + std::to_string(high);
  for (const std::string& item : splitAt(text, ',')) {
    if (item.empty()) bad(text, "an empty item");
    const std::size_t dash = item.find('-');
    const std::optional<U64> first = decimal(item.substr(0, dash));
    const std::optional<U64> last = dash == std::string::npos ? first : decimal(item.substr(dash + 1));
    if (!first || !last) bad(text, "'" + item + "' is not a number or a range <first>-<last>");
    if (*first < low || *first > high) bad(text, std::to_string(*first) + " is not in " + bounds);
    if (*last < low || *last > high) bad(text, std::to_string(*last) + " is not in " + bounds);
    if (*last < *first) bad(text, "the range '" + item + "' runs backwards");
    for (U64 n = *first; n <= *last; ++n) numbers.push_back(n);
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

std::vector<MoveSearch> parseSearches(const std::string& text) {
  std::vector<MoveSearch> searches;
  for (const std::string& item : splitAt(text, ',')) {
    MoveSearch s = MoveSearch::depthFirst;
    if (item == searchName(MoveSearch::breadthFirst)) {
      s = MoveSearch::breadthFirst;
    } else if (item != searchName(MoveSearch::depthFirst)) {
      bad(text, "'" + item + "' is not depth-first or breadth-first");
    }
    if (std::find(searches.begin(), searches.end(), s) == searches.end()) searches.push_back(s);
  }
  return searches;
}

SimulationOptions sweepSimulation(const SweepGrid& grid, const SweepTable& table, U32 steps, MoveSearch search,
                                  U64 seed) {
  SimulationOptions o;
  o.table = TableSpec{table.kind, table.numBanks, table.numBuckets, table.numBucketEntries, steps, false, search};
  o.banks = defaultBanks(o.table, false);
  o.mix = grid.mix;
  o.seed = seed;
  o.churn = grid.churn;
  o.progress = false;
  o.optimum = false;  // once per table and seed, as a task of its own
  return o;
}

namespace {

// One unit of work: a simulation (row, run) or the optimum of (table, seed).
struct Task {
  bool optimum = false;
  std::size_t row = 0;
  std::size_t index = 0;  // the run in the row, or the seed's index for an optimum
  std::size_t table = 0;
};

void runTask(const SweepGrid& grid, const Task& task, SweepResult& result) {
  if (task.optimum) {
    const SweepTable& table = grid.tables[task.table];
    const SimulationOptions o = sweepSimulation(grid, table, 0, MoveSearch::depthFirst, grid.seeds[task.index]);
    try {
      result.optima[task.table][task.index] = offlineOptimum(o);
    } catch (const std::exception& e) {
      result.optimumNotes[task.table][task.index] = e.what();
    }
    return;
  }
  SweepRow& row = result.rows[task.row];
  SweepRun& run = row.runs[task.index];
  try {
    const SimulationResult r = simulate(sweepSimulation(grid, grid.tables[row.table], row.steps, row.search, run.seed));
    run.firstFailureRequest = r.firstFailureRequest;
    run.fillAtFirstFailure = r.fillAtFirstFailure;
    run.fillAtEnd = r.fillAtEnd;
    run.movesMean = r.movesMean;
    run.fill = r.fill;
    run.churn = r.churn;
  } catch (const std::exception& e) {
    // A table that refuses the cell (a search it does not offer) is one row's news, not the sweep's end.
    run.error = e.what();
  }
}

}  // namespace

SweepResult runSweep(const SweepGrid& grid, unsigned jobs, bool progress) {
  const auto start = std::chrono::steady_clock::now();
  SweepResult result;
  std::vector<Task> tasks;
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    result.optima.emplace_back(grid.seeds.size());
    result.optimumNotes.emplace_back(grid.seeds.size());
    for (std::size_t s = 0; s < grid.seeds.size(); ++s) tasks.push_back(Task{true, 0, s, t});
    for (const U32 steps : grid.tables[t].steps) {
      for (const MoveSearch search : grid.searches) {
        SweepRow row{t, steps, search, {}};
        for (std::size_t s = 0; s < grid.seeds.size(); ++s) {
          row.runs.push_back(SweepRun{grid.seeds[s], {}, {}, {}, 0, 0, {}, {}});
          tasks.push_back(Task{false, result.rows.size(), s, t});
        }
        result.rows.push_back(std::move(row));
      }
    }
  }
  // The larger budgets and the multi-width tables take longest: started first, they do not
  // leave one thread working alone at the end.
  std::stable_sort(tasks.begin(), tasks.end(), [&](const Task& a, const Task& b) {
    const auto cost = [&](const Task& t) {
      const bool multi = grid.tables[t.table].kind == TableKind::multi;
      return std::pair(multi ? 1 : 0, t.optimum ? 100u : result.rows[t.row].steps);
    };
    return cost(a) > cost(b);
  });

  result.jobs = std::max(1u, std::min<unsigned>(jobs, static_cast<unsigned>(std::max<std::size_t>(tasks.size(), 1))));
  std::atomic<std::size_t> next{0};
  std::mutex mutex;
  std::condition_variable finished;
  std::size_t done = 0;
  std::vector<std::thread> workers;
  for (unsigned j = 0; j < result.jobs; ++j) {
    workers.emplace_back([&] {
      for (std::size_t i = next++; i < tasks.size(); i = next++) {
        // Each task writes only its own run or optimum: the slots were made before the threads.
        runTask(grid, tasks[i], result);
        const std::lock_guard<std::mutex> lock(mutex);
        ++done;
        finished.notify_one();
      }
    });
  }
  {
    Progress bar(progress, tasks.size(), "of " + std::to_string(tasks.size()) + " runs");
    std::unique_lock<std::mutex> lock(mutex);
    while (done < tasks.size()) {
      finished.wait(lock);
      const std::size_t now = done;
      lock.unlock();
      bar.update(now);
      lock.lock();
    }
  }
  for (std::thread& w : workers) w.join();
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

namespace {

Spread spreadOf(const std::vector<double>& values) {
  Spread s;
  s.count = values.size();
  if (values.empty()) return s;
  s.min = *std::min_element(values.begin(), values.end());
  s.max = *std::max_element(values.begin(), values.end());
  double sum = 0;
  for (const double v : values) sum += v;
  s.mean = sum / static_cast<double>(values.size());
  double square = 0;
  for (const double v : values) square += (v - s.mean) * (v - s.mean);
  s.stddev = std::sqrt(square / static_cast<double>(values.size()));
  return s;
}

double perSecond(const PhaseFigures& p) { return p.seconds > 0 ? static_cast<double>(p.requested) / p.seconds : 0; }

// The mean of a figure over the runs without an error.
template <class Figure>
double meanOver(const SweepRow& row, Figure figure) {
  double sum = 0;
  std::size_t n = 0;
  for (const SweepRun& run : row.runs) {
    if (!run.error.empty()) continue;
    sum += figure(run);
    ++n;
  }
  return n ? sum / static_cast<double>(n) : 0;
}

std::string firstError(const SweepRow& row) {
  for (const SweepRun& run : row.runs) {
    if (!run.error.empty()) return run.error;
  }
  return {};
}

bool upperBound(const SweepResult& result, std::size_t table) {
  for (const auto& o : result.optima[table]) {
    if (o) return o->upperBound;
  }
  return false;
}

std::string percent(double fraction, int decimals = 3) {
  std::ostringstream os;
  os << std::fixed << std::setprecision(decimals) << fraction * 100;
  return os.str();
}

std::string seedList(const std::vector<U64>& seeds, const char* separator) {
  std::string s;
  for (std::size_t i = 0; i < seeds.size(); ++i) s += (i ? separator : "") + std::to_string(seeds[i]);
  return s;
}

}  // namespace

Spread fillSpread(const SweepRow& row) {
  std::vector<double> values;
  for (const SweepRun& run : row.runs) {
    if (run.error.empty() && run.fillAtFirstFailure) values.push_back(*run.fillAtFirstFailure);
  }
  return spreadOf(values);
}

Spread optimumSpread(const SweepResult& result, std::size_t table) {
  std::vector<double> values;
  for (const auto& o : result.optima.at(table)) {
    if (o && o->request) values.push_back(o->fillRatio);
  }
  return spreadOf(values);
}

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
      << std::fixed << std::setprecision(1) << result.seconds << " s\n";
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
    if (fill.count) fillText = percent(fill.mean) + " % (" + percent(fill.min) + "-" + percent(fill.max) + ")";
    out << "  ";
    left(fillText, 26);
    const Spread best = optimumSpread(result, row.table);
    std::string bestText = "-";
    if (best.count) bestText = (upperBound(result, row.table) ? "<=" : "") + percent(best.mean) + " %";
    right(bestText, 12);
    std::ostringstream moves, churn, filling;
    moves << std::fixed << std::setprecision(3) << meanOver(row, [](const SweepRun& r) { return r.movesMean; });
    churn << std::fixed << std::setprecision(0) << meanOver(row, [](const SweepRun& r) { return perSecond(r.churn); });
    filling << std::fixed << std::setprecision(0) << meanOver(row, [](const SweepRun& r) { return perSecond(r.fill); });
    right(moves.str(), 10);
    right(churn.str(), 12);
    right(filling.str(), 12);
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

namespace {

const std::vector<std::string> palette{"#1f5fbf", "#d62728", "#2a9d3a", "#8e44ad", "#e67e22", "#6d4c41"};

// The chart's scales: move budgets across, fill percentages up.
struct Frame {
  double left = 70, top = 60, width = 560, height = 360;
  double xLow = 0, xHigh = 1, yLow = 0, yHigh = 100;
  double x(double steps) const { return left + width * (steps - xLow) / (xHigh - xLow); }
  double y(double fill) const { return top + height * (1 - (fill * 100 - yLow) / (yHigh - yLow)); }
};

}  // namespace

void writeSweepSvg(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  Frame f;
  double lowest = 1;
  U32 fewest = ~U32{0}, most = 0;
  for (const SweepRow& row : result.rows) {
    fewest = std::min(fewest, row.steps);
    most = std::max(most, row.steps);
    if (const Spread s = fillSpread(row); s.count) lowest = std::min(lowest, s.min);
  }
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    if (const Spread s = optimumSpread(result, t); s.count) lowest = std::min(lowest, s.mean);
  }
  if (result.rows.empty()) fewest = 0;
  f.xLow = fewest == most ? fewest - 1.0 : fewest;
  f.xHigh = fewest == most ? most + 1.0 : most;
  f.yLow = std::clamp(std::floor(lowest * 100 / 10) * 10 - 10, 0.0, 90.0);
  const double tick = f.yHigh - f.yLow > 40 ? 10 : 5;

  out << std::fixed << std::setprecision(1);
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"960\" height=\"480\" font-family=\"sans-serif\" "
         "font-size=\"12\">\n";
  out << "<rect width=\"100%\" height=\"100%\" fill=\"#fafafa\"/>\n";
  out << "<text x=\"" << f.left << "\" y=\"28\" font-size=\"16\">Fill at the first failure against the move budget "
      << "(mean of seeds " << seedList(grid.seeds, ", ") << "; bars: min-max)</text>\n";
  out << "<rect x=\"" << f.left << "\" y=\"" << f.top << "\" width=\"" << f.width << "\" height=\"" << f.height
      << "\" fill=\"#ffffff\" stroke=\"#999999\"/>\n";
  for (double p = f.yLow; p <= f.yHigh + 1e-9; p += tick) {
    const double y = f.y(p / 100);
    out << "<line x1=\"" << f.left << "\" x2=\"" << f.left + f.width << "\" y1=\"" << y << "\" y2=\"" << y
        << "\" stroke=\"#eeeeee\"/>\n";
    out << "<text x=\"" << f.left - 6 << "\" y=\"" << y + 4 << "\" text-anchor=\"end\">" << std::setprecision(0) << p
        << " %</text>\n"
        << std::setprecision(1);
  }
  for (U32 s = fewest; s <= most && !result.rows.empty(); ++s) {
    out << "<text x=\"" << f.x(s) << "\" y=\"" << f.top + f.height + 18 << "\" text-anchor=\"middle\">" << s
        << "</text>\n";
  }
  out << "<text x=\"" << f.left + f.width / 2 << "\" y=\"" << f.top + f.height + 40
      << "\" text-anchor=\"middle\">maxRecursiveSteps (the move budget)</text>\n";
  out << "<text x=\"18\" y=\"" << f.top + f.height / 2 << "\" text-anchor=\"middle\" transform=\"rotate(-90 18 "
      << f.top + f.height / 2 << ")\">fill at the first failure</text>\n";

  double legend = f.top;
  const double legendX = f.left + f.width + 30;
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    const std::string& colour = palette[t % palette.size()];
    // The optimum: a dashed level across the chart.
    if (const Spread best = optimumSpread(result, t); best.count) {
      const double y = f.y(best.mean);
      out << "<line x1=\"" << f.left << "\" x2=\"" << f.left + f.width << "\" y1=\"" << y << "\" y2=\"" << y
          << "\" stroke=\"" << colour << "\" stroke-width=\"1.5\" stroke-dasharray=\"6 4\"/>\n";
    }
    for (const MoveSearch search : grid.searches) {
      std::ostringstream points, marks;
      marks << std::fixed << std::setprecision(1);
      points << std::fixed << std::setprecision(1);
      std::size_t n = 0;
      for (const SweepRow& row : result.rows) {
        if (row.table != t || row.search != search) continue;
        const Spread s = fillSpread(row);
        if (!firstError(row).empty() || !s.count) continue;
        const double x = f.x(row.steps);
        points << x << ',' << f.y(s.mean) << ' ';
        marks << "<line x1=\"" << x << "\" x2=\"" << x << "\" y1=\"" << f.y(s.min) << "\" y2=\"" << f.y(s.max)
              << "\" stroke=\"" << colour << "\"/>\n";
        if (search == MoveSearch::depthFirst) {
          marks << "<circle cx=\"" << x << "\" cy=\"" << f.y(s.mean) << "\" r=\"3\" fill=\"" << colour << "\"/>\n";
        } else {
          marks << "<rect x=\"" << x - 3 << "\" y=\"" << f.y(s.mean) - 3
                << "\" width=\"6\" height=\"6\" fill=\"#ffffff\" "
                << "stroke=\"" << colour << "\"/>\n";
        }
        ++n;
      }
      if (n == 0) continue;
      out << "<polyline fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"2\""
          << (search == MoveSearch::breadthFirst ? " stroke-opacity=\"0.6\"" : "") << " points=\"" << points.str()
          << "\"/>\n"
          << marks.str();
      out << "<line x1=\"" << legendX << "\" x2=\"" << legendX + 24 << "\" y1=\"" << legend << "\" y2=\"" << legend
          << "\" stroke=\"" << colour << "\" stroke-width=\"2\""
          << (search == MoveSearch::breadthFirst ? " stroke-opacity=\"0.6\"" : "") << "/>\n";
      out << "<text x=\"" << legendX + 30 << "\" y=\"" << legend + 4 << "\">" << grid.tables[t].label() << ", "
          << searchName(search) << "</text>\n";
      legend += 18;
    }
    if (const Spread best = optimumSpread(result, t); best.count) {
      out << "<line x1=\"" << legendX << "\" x2=\"" << legendX + 24 << "\" y1=\"" << legend << "\" y2=\"" << legend
          << "\" stroke=\"" << colour << "\" stroke-width=\"1.5\" stroke-dasharray=\"6 4\"/>\n";
      out << "<text x=\"" << legendX + 30 << "\" y=\"" << legend + 4 << "\">" << grid.tables[t].label() << ", "
          << (upperBound(result, t) ? "upper bound" : "optimum") << "</text>\n";
      legend += 18;
    }
    legend += 8;
  }
  out << "<text x=\"" << legendX << "\" y=\"" << legend + 8
      << "\" font-size=\"11\">circles: depth-first; squares: breadth-first</text>\n";
  out << "</svg>\n";
}

}  // namespace mht
