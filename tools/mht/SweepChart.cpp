#include "SweepReport.h"

#include <algorithm>
#include <cmath>
#include <ostream>

#include "Format.h"
#include "Svg.h"
#include "SweepFigures.h"

namespace mht {

using namespace TesselCentral;

namespace {

constexpr double churnTop = 490;        // the first line of the churn rates below the plot
constexpr double churnLineHeight = 15;  // between their lines

const std::vector<std::string> palette{"#1f5fbf", "#d62728", "#2a9d3a", "#8e44ad", "#e67e22", "#6d4c41"};

// The chart's scales: chain depths across, fill percentages up.
struct Frame {
  double left = 70, top = 60, width = 560, height = 360;
  double xLow = 0, xHigh = 1, yLow = 0, yHigh = 100;
  U32 fewest = 0, most = 0;  // the chain depths labelled
  double tick = 10;          // percent between the fill grid's lines
  double x(double steps) const { return left + width * (steps - xLow) / (xHigh - xLow); }
  double y(double fill) const { return top + height * (1 - (fill * 100 - yLow) / (yHigh - yLow)); }
};

// Scales that show every row's chain depth, and every fill and optimum with at least 10 % below
// the lowest of them.
Frame frameFor(const SweepGrid& grid, const SweepResult& result) {
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
  f.fewest = fewest;
  f.most = most;
  f.xLow = fewest == most ? fewest - 1.0 : fewest;
  f.xHigh = fewest == most ? most + 1.0 : most;
  f.yLow = std::clamp(std::floor(lowest * 100 / 10) * 10 - 10, 0.0, 90.0);
  f.tick = f.yHigh - f.yLow > 40 ? 10 : 5;
  return f;
}

// The plot area with its fill grid, and the labels of both axes.
void drawAxes(const Frame& f, bool depths, Svg& svg) {
  svg.rect({{"x", f.left},
            {"y", f.top},
            {"width", f.width},
            {"height", f.height},
            {"fill", "#ffffff"},
            {"stroke", "#999999"}});
  for (double p = f.yLow; p <= f.yHigh + 1e-9; p += f.tick) {
    const double y = f.y(p / 100);
    svg.line(f.left, f.left + f.width, y, y, {{"stroke", "#eeeeee"}});
    svg.text({{"x", f.left - 6}, {"y", y + 4}, {"text-anchor", "end"}}, fixed(p, 0) + " %");
  }
  for (U32 s = f.fewest; s <= f.most && depths; ++s) {
    svg.text({{"x", f.x(s)}, {"y", f.top + f.height + 18}, {"text-anchor", "middle"}}, std::to_string(s));
  }
  svg.text({{"x", f.left + f.width / 2}, {"y", f.top + f.height + 40}, {"text-anchor", "middle"}},
           "maxRecursiveSteps (the chain depth)");
  const double middle = f.top + f.height / 2;
  svg.text(
      {{"x", 18}, {"y", middle}, {"text-anchor", "middle"}, {"transform", "rotate(-90 18 " + svg.number(middle) + ")"}},
      "fill at the first failure");
}

// A row's fill at the first failure, where the chart shows it.
struct Mark {
  double x = 0;
  double mean = 0;
  double min = 0;
  double max = 0;
};

// The marks of one table and search: a row each that reached a first failure.
std::vector<Mark> seriesMarks(const Frame& f, const SweepResult& result, std::size_t table, MoveSearch search) {
  std::vector<Mark> marks;
  for (const SweepRow& row : result.rows) {
    if (row.table != table || row.search != search) continue;
    const Spread s = fillSpread(row);
    if (!firstError(row).empty() || !s.count) continue;
    marks.push_back(Mark{f.x(row.steps), f.y(s.mean), f.y(s.min), f.y(s.max)});
  }
  return marks;
}

// How a search's line is drawn: the breadth-first one fainter, where the two overlap.
Svg::Attributes seriesStyle(const std::string& colour, MoveSearch search) {
  Svg::Attributes style{{"stroke", colour}, {"stroke-width", "2"}};
  if (search == MoveSearch::breadthFirst) style.push_back({"stroke-opacity", "0.6"});
  return style;
}

Svg::Attributes optimumStyle(const std::string& colour) {
  return {{"stroke", colour}, {"stroke-width", "1.5"}, {"stroke-dasharray", "6 4"}};
}

// The line through the means, then a min-max bar and a mark at the mean for each row:
// circles for the depth-first search, squares for the breadth-first one.
void drawSeries(const std::vector<Mark>& marks, const std::string& colour, MoveSearch search, Svg& svg) {
  Svg::Attributes line{{"fill", "none"}};
  const Svg::Attributes style = seriesStyle(colour, search);
  line.insert(line.end(), style.begin(), style.end());
  std::vector<Svg::Point> points;
  points.reserve(marks.size());
  for (const Mark& m : marks) points.push_back({m.x, m.mean});
  svg.polyline(line, points);
  for (const Mark& m : marks) {
    svg.line(m.x, m.x, m.min, m.max, {{"stroke", colour}});
    if (search == MoveSearch::depthFirst) {
      svg.circle({{"cx", m.x}, {"cy", m.mean}, {"r", 3}, {"fill", colour}});
    } else {
      svg.rect(
          {{"x", m.x - 3}, {"y", m.mean - 3}, {"width", 6}, {"height", 6}, {"fill", "#ffffff"}, {"stroke", colour}});
    }
  }
}

// One entry of the legend: a stretch of the line as drawn, and what it is.
void legendEntry(double x, double y, const Svg::Attributes& style, const std::string& label, Svg& svg) {
  svg.line(x, x + 24, y, y, style);
  svg.text({{"x", x + 30}, {"y", y + 4}}, label);
}

// A table's optimum as a dashed level, its searches' lines, and their legend entries from
// `legend` down; returns where the next table's entries start.
double drawTable(const Frame& f, const SweepGrid& grid, const SweepResult& result, std::size_t t, double legend,
                 Svg& svg) {
  const double legendX = f.left + f.width + 30;
  const std::string& colour = palette[t % palette.size()];
  const Spread best = optimumSpread(result, t);
  if (best.count) svg.line(f.left, f.left + f.width, f.y(best.mean), f.y(best.mean), optimumStyle(colour));
  for (const MoveSearch search : grid.searches) {
    const std::vector<Mark> marks = seriesMarks(f, result, t, search);
    if (marks.empty()) continue;
    drawSeries(marks, colour, search, svg);
    legendEntry(legendX, legend, seriesStyle(colour, search), grid.tables[t].label() + ", " + searchName(search), svg);
    legend += 18;
  }
  if (best.count) {
    legendEntry(legendX, legend, optimumStyle(colour),
                grid.tables[t].label() + ", " + (upperBound(result, t) ? "upper bound" : "optimum"), svg);
    legend += 18;
  }
  return legend + 8;
}

// Below the plot, each row's churn rate: the requests of its seeds' churn phases over their
// seconds, and the least and the most of the seeds' own rates.
void drawChurnRates(const Frame& f, const SweepGrid& grid, const SweepResult& result, double top, Svg& svg) {
  svg.text({{"x", f.left}, {"y", top}, {"font-size", 13}},
           "churn/s: the churn phase's requests over its seconds, summed over the seeds (min-max: the seeds' own "
           "rates)");
  double y = top;
  for (const SweepRow& row : result.rows) {
    y += churnLineHeight;
    std::string text = grid.tables[row.table].label() + ", " + searchName(row.search) + ", " +
                       std::to_string(row.steps) + (row.steps == 1 ? " step: " : " steps: ");
    if (!firstError(row).empty()) {
      text += "error";
    } else {
      const Rate r = rateOf(row, &SweepRun::churn);
      text += fixed(r.perSecond, 0);
      text += " (" + fixed(r.min, 0) + "-" + fixed(r.max, 0) + ")";
    }
    svg.text({{"x", f.left}, {"y", y}, {"font-size", 11}}, text);
  }
}

}  // namespace

void writeSweepSvg(const SweepGrid& grid, const SweepResult& result, std::ostream& out) {
  const Frame f = frameFor(grid, result);
  Svg svg(out);
  svg.decimals(1);
  svg.open(960, churnTop + churnLineHeight * static_cast<double>(result.rows.size()) + 15);
  svg.text({{"x", f.left}, {"y", 28}, {"font-size", 16}},
           "Fill at the first failure against the chain depth (mean of seeds " + seedList(grid.seeds, ", ") +
               "; bars: min-max)");
  drawAxes(f, !result.rows.empty(), svg);
  double legend = f.top;
  for (std::size_t t = 0; t < grid.tables.size(); ++t) legend = drawTable(f, grid, result, t, legend, svg);
  svg.text({{"x", f.left + f.width + 30}, {"y", legend + 8}, {"font-size", 11}},
           "circles: depth-first; squares: breadth-first");
  drawChurnRates(f, grid, result, churnTop, svg);
  svg.close();
}

}  // namespace mht
