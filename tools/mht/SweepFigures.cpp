#include "SweepFigures.h"

#include <algorithm>
#include <cmath>

namespace mht {

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

}  // namespace

Spread fillSpread(const SweepRow& row) {
  std::vector<double> values;
  for (const SweepRun& run : row.runs) {
    if (run.error.empty() && run.fillAtFirstFailure) values.push_back(*run.fillAtFirstFailure);
  }
  return spreadOf(values);
}

Rate rateOf(const SweepRow& row, PhaseFigures SweepRun::*phase) {
  Rate r;
  for (const SweepRun& run : row.runs) {
    if (!run.error.empty()) continue;
    const PhaseFigures& p = run.*phase;
    const double own = perSecond(p);
    r.min = r.count ? std::min(r.min, own) : own;
    r.max = r.count ? std::max(r.max, own) : own;
    r.requests += p.requested;
    r.seconds += p.seconds;
    ++r.count;
  }
  r.perSecond = r.seconds > 0 ? static_cast<double>(r.requests) / r.seconds : 0;
  return r;
}

Spread optimumSpread(const SweepResult& result, std::size_t table) {
  std::vector<double> values;
  for (const auto& o : result.optima.at(table)) {
    if (o && o->request) values.push_back(o->fillRatio);
  }
  return spreadOf(values);
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

std::string seedList(const std::vector<U64>& seeds, const char* separator) {
  std::string s;
  for (std::size_t i = 0; i < seeds.size(); ++i) s += (i ? separator : "") + std::to_string(seeds[i]);
  return s;
}

}  // namespace mht
