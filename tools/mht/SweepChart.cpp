#include "SweepReport.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "SweepFigures.h"

namespace mht {

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
