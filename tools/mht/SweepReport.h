// The reports of mht sweep: a table for a person, JSON for a program, a chart.
#pragma once

#include <iosfwd>

#include "SweepRunner.h"

namespace mht {

void writeSweepText(const SweepGrid& grid, const SweepResult& result, std::ostream& out);
void writeSweepJson(const SweepGrid& grid, const SweepResult& result, std::ostream& out);
// Fill at the first failure against the chain depth: one line per table and search, the
// optimum as a dashed level per table.
void writeSweepSvg(const SweepGrid& grid, const SweepResult& result, std::ostream& out);

}  // namespace mht
