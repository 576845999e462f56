#include "SweepGrid.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "EnumNames.h"

namespace mht {

using namespace TesselCentral;

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
  // Single-width tables are quick to fill at any chain depth; a multi-width table's
  // depth-first search grows with the depth, so its range is narrower.
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
  if (const auto problem = simulationShapeProblem(*banks, *buckets, *slots)) {
    bad(text, problem->text);
  }
  t.numBanks = static_cast<U32>(*banks);
  t.numBuckets = static_cast<U32>(*buckets);
  t.numBucketEntries = static_cast<U32>(*slots);
  return t;
}

std::vector<U64> parseNumberList(const std::string& text, U64 low, U64 high) {
  std::vector<U64> numbers;
  const std::string bounds = std::to_string(low) + ".." + std::to_string(high);
  for (const std::string& item : splitList(text)) {
    const std::size_t dash = item.find('-');
    const std::optional<U64> first = decimal(item.substr(0, dash));
    const std::optional<U64> last = dash == std::string::npos ? first : decimal(item.substr(dash + 1));
    if (!first || !last)
      bad(text, "'" + item + "' is not a number in " + bounds + " or a range <first>-<last> of them");
    if (*first < low || *first > high) bad(text, std::to_string(*first) + " is not in " + bounds);
    if (*last < low || *last > high) bad(text, std::to_string(*last) + " is not in " + bounds);
    if (*last < *first) bad(text, "the range '" + item + "' runs backwards");
    for (U64 n = *first; n <= *last; ++n) numbers.push_back(n);
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

std::vector<std::string> splitList(const std::string& text) {
  std::vector<std::string> items = splitAt(text, ',');
  for (const std::string& item : items) {
    if (item.empty()) bad(text, "an empty item");
  }
  return items;
}

std::vector<MoveSearch> parseSearches(const std::string& text) {
  std::vector<MoveSearch> searches;
  for (const std::string& item : splitList(text)) {
    MoveSearch s = MoveSearch::depthFirst;
    try {
      s = Fwk::sequenceToValue<MoveSearch>(item);
    } catch (const Fwk::RangeError&) {
      bad(text, notANameText<MoveSearch>(item));
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

}  // namespace mht
