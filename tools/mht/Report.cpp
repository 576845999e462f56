#include "Report.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Format.h"
#include "Svg.h"

namespace mht {

using namespace TesselCentral;

namespace {

const char* sourceName(KeySourceKind k) {
  switch (k) {
    case KeySourceKind::random:
      return "random";
    case KeySourceKind::mac:
      return "mac";
    case KeySourceKind::ipv4:
      return "ipv4";
  }
  return "?";
}

// The text report's percentages: two decimals and the sign.
std::string percentText(double fraction) { return percent(fraction, 2) + " %"; }

// The table and its keys, as the options asked for them.
void writeSetUp(const SimulationOptions& o, const SimulationResult& r, std::ostream& out) {
  const TableSpec& t = o.table;
  out << "table      " << kindName(t.kind) << ", " << t.numBanks << " banks x " << t.numBuckets << " buckets x "
      << t.numBucketEntries << " slots = " << r.capacity << " slots, maxRecursiveSteps " << t.maxRecursiveSteps;
  if (t.kind == TableKind::single) out << (t.bucketSpanBanks ? ", bucket-major ids" : ", bank-major ids");
  if (t.moveSearch == MoveSearch::breadthFirst) out << ", " << searchName(t.moveSearch) << " moves";
  if (t.kind == TableKind::multi && !o.banks.empty() && o.banks[0].doubleEntryTwoBucketMode)
    out << ", doubleEntryTwoBucketMode";
  out << '\n';
  out << "keys       " << sourceName(o.source) << ", seed " << o.seed;
  if (t.kind == TableKind::multi) {
    out << ", widths " << o.mix.singleWide << "/" << o.mix.doubleWide << "/" << o.mix.quadWide << " single/double/quad";
  }
  out << '\n';
}

// The offline placer's first failure, or why there is none.
void writeOptimum(const SimulationResult& r, std::ostream& out) {
  if (r.optimum) {
    const OptimumFigures& best = *r.optimum;
    out << "optimum    ";
    if (best.request) {
      out << (best.upperBound ? "upper bound: " : "") << "first fail at request " << *best.request << ", fill "
          << percentText(best.fillRatio) << " (" << best.slots << " of " << r.capacity << " slots), "
          << (best.upperBound ? "wide keys' slots split over their buckets\n" : "every key re-placed at will\n");
    } else {
      out << "none, the key source ran out first (" << best.slots << " of " << r.capacity << " slots)\n";
    }
  } else if (!r.optimumNote.empty()) {
    out << "optimum    not computed: " << r.optimumNote << '\n';
  }
}

// Placements by moves, the long tail folded into one line.
void writeMovesHistogram(const SimulationResult& r, std::ostream& out) {
  constexpr U64 tail = 10;
  std::map<U64, U64> rows;
  for (const auto& [m, n] : r.movesHistogram) rows[std::min(m, tail)] += n;
  U64 most = 0;
  for (const auto& [m, n] : rows) most = std::max(most, n);
  for (const auto& [m, n] : rows) {
    const int bar = most ? static_cast<int>(std::ceil(40.0 * static_cast<double>(n) / static_cast<double>(most))) : 0;
    out << "  " << std::setw(3) << m << (m == tail ? "+" : " ") << " moves " << std::setw(9) << n << ' '
        << std::string(static_cast<std::size_t>(bar), '#') << '\n';
  }
}

}  // namespace

void writeTextReport(const SimulationOptions& o, const SimulationResult& r, std::ostream& out) {
  writeSetUp(o, r, out);
  out << "fill       " << r.fill.requested << " requested, " << r.fill.placed << " placed, " << r.fill.failed
      << " failed\n";
  out << "churn      " << r.churn.requested << " requested, " << r.churn.placed << " placed, " << r.churn.failed
      << " failed\n";
  out << "first fail ";
  if (r.fillAtFirstFailure) {
    out << "at request " << *r.firstFailureRequest << ", fill " << percentText(*r.fillAtFirstFailure) << '\n';
  } else {
    out << "none\n";
  }
  writeOptimum(r, out);
  out << "fill end   " << percentText(r.fillAtEnd) << " (" << r.slotsUsed << " of " << r.capacity << " slots)\n";
  out << "per bank  ";
  for (std::size_t i = 0; i < r.bankFill.size(); ++i) out << ' ' << i << ": " << percentText(r.bankFill[i]);
  out << '\n';
  out << "moves      mean " << fixed(r.movesMean, 3) << ", max " << r.movesMax << " per placement\n";
  writeMovesHistogram(r, out);
  out << "speed      " << fixed(perSecond(r.fill), 0) << " requests/s filling, " << fixed(perSecond(r.churn), 0)
      << " requests/s churning\n";
  if (r.slowest) {
    const SlowestRequest& s = *r.slowest;
    out << "slowest    " << fixed(s.microseconds, 1) << " us, request " << s.request << " (" << s.phase << ", "
        << (s.placed ? "placed" : "no room") << "), key " << keyFields(s.key) << '\n';
  }
  out << "counters   insertions=" << r.insertions << " deletions=" << r.deletions << " moves=" << r.movesCounted
      << '\n';
}

void writeJsonReport(const SimulationOptions& o, const SimulationResult& r, std::ostream& out) {
  using nlohmann::json;
  const TableSpec& t = o.table;
  json banks = json::array();
  for (const BankSpec& b : o.banks) {
    banks.push_back({{"bankId", b.bankId},
                     {"numBuckets", b.numBuckets},
                     {"bucketSize", b.bucketSize},
                     {"hashFunc", stringValue(b.hashFunc)},
                     {"hashOffSet", b.hashOffSet},
                     {"hashBits", b.hashBits},
                     {"hashMask", b.hashMask},
                     {"phyBankId", b.phyBankId},
                     {"doubleEntryTwoBucketMode", b.doubleEntryTwoBucketMode}});
  }
  const auto phase = [](const PhaseFigures& p) {
    return json{{"requested", p.requested}, {"placed", p.placed},   {"failed", p.failed},
                {"moves", p.moves},         {"seconds", p.seconds}, {"requestsPerSecond", perSecond(p)}};
  };
  json histogram = json::object();
  for (const auto& [m, n] : r.movesHistogram) {
    histogram[std::to_string(m) + (m + 1 == TableStatistics::movesHistogramSize ? "+" : "")] = n;
  }
  json doc{{"table",
            {{"kind", kindName(t.kind)},
             {"numBanks", t.numBanks},
             {"numBuckets", t.numBuckets},
             {"numBucketEntries", t.numBucketEntries},
             {"maxRecursiveSteps", t.maxRecursiveSteps},
             {"bucketSpanBanks", t.bucketSpanBanks},
             {"moveSearch", stringValue(t.moveSearch)},
             {"capacity", r.capacity},
             {"banks", banks}}},
           {"keys",
            {{"source", sourceName(o.source)},
             {"seed", o.seed},
             {"widthMix",
              {{"singleWide", o.mix.singleWide}, {"doubleWide", o.mix.doubleWide}, {"quadWide", o.mix.quadWide}}}}},
           {"fill", phase(r.fill)},
           {"churn", phase(r.churn)},
           {"firstFailure", r.fillAtFirstFailure
                                ? json{{"request", *r.firstFailureRequest}, {"fillRatio", *r.fillAtFirstFailure}}
                                : json(nullptr)},
           {"fillRatioAtEnd", r.fillAtEnd},
           {"slotsUsed", r.slotsUsed},
           {"bankFillRatio", r.bankFill},
           {"movesPerPlacement", {{"mean", r.movesMean}, {"max", r.movesMax}, {"histogram", histogram}}},
           {"counters", {{"insertions", r.insertions}, {"deletions", r.deletions}, {"moves", r.movesCounted}}}};
  if (r.slowest) {
    const SlowestRequest& s = *r.slowest;
    doc["slowestRequest"] = {{"request", s.request},
                             {"phase", s.phase},
                             {"microseconds", s.microseconds},
                             {"placed", s.placed},
                             {"key", keyFields(s.key)}};
  }
  if (r.optimum) {
    // A multi-width table's figure is a bound, and named so.
    const OptimumFigures& best = *r.optimum;
    doc["optimum"] = {{"request", best.request ? json(*best.request) : json(nullptr)},
                      {"slots", best.slots},
                      {best.upperBound ? "upperBound" : "fillRatio", best.fillRatio}};
  }
  out << doc.dump(2) << '\n';
}

namespace {

// Free: white; otherwise the hue of the widest entry in the bucket, darker the fuller it is.
std::string cellColour(const BucketCell& c, U32 slots) {
  if (c.slotsUsed == 0) return "#ffffff";
  int hue = 210;                           // single-wide: blue
  if (c.widthMask & (1u << 2)) hue = 130;  // double-wide: green
  if (c.widthMask & (1u << 4)) hue = 25;   // quad-wide: orange
  const double full = slots ? std::min(1.0, static_cast<double>(c.slotsUsed) / slots) : 1.0;
  const int light = static_cast<int>(85 - 50 * full);
  return "hsl(" + std::to_string(hue) + ",70%," + std::to_string(light) + "%)";
}

}  // namespace

namespace {

// One grid of bucket cells per bank, side by side from x = gap, 56 down.
void writeOccupancyMaps(const SimulationOptions& o, const SimulationResult& r,
                        const std::vector<std::pair<U32, U32>>& grids, double cell, double gap, Svg& svg) {
  double x = gap;
  const U32 slots = o.table.numBucketEntries;
  for (std::size_t b = 0; b < r.occupancy.size(); ++b) {
    const auto [cols, rows] = grids[b];
    const double fill = b < r.bankFill.size() ? r.bankFill[b] : 0;
    svg.text({{"x", x}, {"y", 48}}, "bank " + std::to_string(b) + " (" + percent(fill, 1) + " %)");
    // The page's frame and the first label sit on whole units; the maps and everything
    // after them carry one decimal.
    svg.decimals(1);
    svg.openGroup({{"transform", "translate(" + svg.number(x) + ",56)"}});
    svg.rect({{"width", cols * cell}, {"height", rows * cell}, {"fill", "#ffffff"}, {"stroke", "#cccccc"}});
    for (std::size_t k = 0; k < r.occupancy[b].size(); ++k) {
      const BucketCell& c = r.occupancy[b][k];
      if (c.slotsUsed == 0) continue;
      svg.rect({{"x", (k % cols) * cell},
                {"y", (k / cols) * cell},
                {"width", cell},
                {"height", cell},
                {"fill", cellColour(c, slots)}});
    }
    svg.closeGroup();
    x += cols * cell + gap;
  }
}

// The fill ratio over the requests, a tick under each request that moved entries, and the
// first failure, in a chart whose top left corner is at (gap, top).
void writeFillChart(const SimulationResult& r, U64 last, double top, double gap, double chartWidth, double chartHeight,
                    Svg& svg) {
  const double axis = 36;  // room for the percentage labels
  svg.openGroup({{"transform", "translate(" + svg.number(gap + axis) + "," + svg.number(top) + ")"}});
  svg.rect({{"width", chartWidth}, {"height", chartHeight}, {"fill", "#ffffff"}, {"stroke", "#999999"}});
  for (int p = 0; p <= 100; p += 25) {
    const double y = chartHeight * (1 - p / 100.0);
    svg.line(0, chartWidth, y, y, {{"stroke", "#eeeeee"}});
    svg.text({{"x", -4}, {"y", y + 4}, {"text-anchor", "end"}, {"font-size", 10}}, std::to_string(p) + "%");
  }
  const auto across = [&](U64 request) {
    return chartWidth * static_cast<double>(request) / static_cast<double>(last);
  };
  std::vector<Svg::Point> points;
  points.reserve(r.timeline.size());
  for (const Sample& s : r.timeline) points.push_back({across(s.request), chartHeight * (1 - std::min(1.0, s.fill))});
  svg.polyline({{"fill", "none"}, {"stroke", "#1f5fbf"}, {"stroke-width", "1.5"}}, points);
  for (const Sample& s : r.timeline) {
    if (s.moves == 0) continue;
    const double px = across(s.request);
    svg.line(px, px, chartHeight, chartHeight - 4 - 2 * std::min<U32>(s.moves, 8),
             {{"stroke", "#d62728"}, {"stroke-opacity", "0.5"}});
  }
  if (r.firstFailureRequest) {
    const double px = across(*r.firstFailureRequest);
    svg.line(px, px, 0, chartHeight, {{"stroke", "#000000"}, {"stroke-dasharray", "4 3"}});
    svg.text({{"x", px + 4}, {"y", 14}, {"font-size", 10}}, "first failure");
  }
  svg.text({{"x", chartWidth / 2}, {"y", chartHeight + 20}, {"text-anchor", "middle"}},
           "requests (" + std::to_string(last) + ")");
  svg.closeGroup();
}

}  // namespace

void writeSvgReport(const SimulationOptions& o, const SimulationResult& r, std::ostream& out) {
  const double cell = 4;
  const double gap = 24;
  std::vector<std::pair<U32, U32>> grids;  // columns, rows per bank
  double mapWidth = 0, mapHeight = 0;
  for (const auto& bank : r.occupancy) {
    const U32 n = static_cast<U32>(bank.size());
    const U32 cols = std::max<U32>(1, static_cast<U32>(std::ceil(std::sqrt(static_cast<double>(n)))));
    const U32 rows = (n + cols - 1) / cols;
    grids.emplace_back(cols, rows);
    mapWidth += cols * cell + gap;
    mapHeight = std::max(mapHeight, rows * cell);
  }
  const double chartWidth = std::max(600.0, mapWidth);
  const double chartHeight = 220;
  const double width = std::max(mapWidth, chartWidth + 36) + 2 * gap;
  const double height = 60 + mapHeight + 60 + chartHeight + 60;

  Svg svg(out);
  svg.declaration();
  svg.open(width, height);
  svg.text({{"x", gap}, {"y", 24}, {"font-size", 16}},
           "Bucket occupancy per bank (" + std::to_string(o.table.numBanks) + " x " +
               std::to_string(o.table.numBuckets) + " x " + std::to_string(o.table.numBucketEntries) +
               "): blue single, green double, orange quad; darker is fuller");
  writeOccupancyMaps(o, r, grids, cell, gap, svg);

  // Fill ratio over requests, with a tick under each request that moved entries.
  const double top = 56 + mapHeight + 50;
  const U64 last = r.timeline.empty() ? 1 : std::max<U64>(1, r.timeline.back().request);
  svg.text({{"x", gap}, {"y", top - 12}, {"font-size", 16}},
           "Fill ratio over requests; red ticks: requests that moved entries");
  writeFillChart(r, last, top, gap, chartWidth, chartHeight, svg);
  svg.close();
}

}  // namespace mht
