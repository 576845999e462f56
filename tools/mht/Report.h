// The simulation report: as text for a person, as JSON for a program, as an SVG picture.
#pragma once

#include <iosfwd>

#include "Simulation.h"

namespace mht {

void writeTextReport(const SimulationOptions& options, const SimulationResult& result, std::ostream& out);
void writeJsonReport(const SimulationOptions& options, const SimulationResult& result, std::ostream& out);
// Per-bank bucket occupancy as heat maps, and the fill ratio over requests with moves marked.
void writeSvgReport(const SimulationOptions& options, const SimulationResult& result, std::ostream& out);

}  // namespace mht
