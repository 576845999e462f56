// A restart's take-over and a table's statistics as Python sees them.
#include <pybind11/stl.h>

#include <string>

#include "Reports.h"

namespace py = pybind11;
using namespace TesselCentral;

namespace mhtpython {

SavedPlacement savedPlacementFrom(const py::handle& saved) {
  if (py::isinstance<HashEntryStatus>(saved)) return savedPlacementOf(saved.cast<const HashEntryStatus&>());
  SavedPlacement placement;
  for (const py::handle item : saved) {
    const auto [key, id] = item.cast<std::pair<HashEntryKey, std::optional<U32>>>();
    placement.emplace_back(key, id ? EntryId(*id) : EntryId());
  }
  return placement;
}

py::list savedPlacementList(const SavedPlacement& placement) {
  py::list out;
  for (const auto& [key, id] : placement) out.append(py::make_tuple(key, idValue(id)));
  return out;
}

void bindRestoreAndStatistics(py::module_& m) {
  py::enum_<RestoreRule>(m, "RestoreRule", "Why a saved placement cannot be taken over")
      .value("configuration", RestoreRule::configuration)
      .value("tableNotEmpty", RestoreRule::tableNotEmpty)
      .value("savedTwice", RestoreRule::savedTwice)
      .value("noRequest", RestoreRule::noRequest)
      .value("notCandidate", RestoreRule::notCandidate)
      .value("notAligned", RestoreRule::notAligned)
      .value("reservedId", RestoreRule::reservedId)
      .value("sharedId", RestoreRule::sharedId)
      .value("overlappingRun", RestoreRule::overlappingRun);
  py::class_<RestoreProblem>(m, "RestoreProblem")
      .def_readonly("rule", &RestoreProblem::rule)
      .def_readonly("key", &RestoreProblem::key)
      .def_property_readonly("id", [](const RestoreProblem& p) { return idValue(p.id); })
      .def_readonly("text", &RestoreProblem::text)
      .def("__repr__", [](const RestoreProblem& p) {
        return "<RestoreProblem " + std::string(restoreRuleName(p.rule)) + ": " + p.text + ">";
      });
  py::class_<RestoreCheck>(m, "RestoreCheck", "Whether a saved placement can be taken over, and every reason why not")
      .def("passes", &RestoreCheck::passes)
      .def_property_readonly("problems", &RestoreCheck::problems)
      .def("has", &RestoreCheck::has, py::arg("rule"))
      .def_property_readonly("keys", &RestoreCheck::keys, "How many keys the restore takes over")
      .def("text", &RestoreCheck::text)
      .def("problem", &RestoreCheck::problem)
      .def("__repr__", [](const RestoreCheck& c) { return "<RestoreCheck " + c.text() + ">"; })
      .def("__str__", &RestoreCheck::text);
  m.def(
      "savedPlacementOf", [](const HashEntryStatus& status) { return savedPlacementList(savedPlacementOf(status)); },
      py::arg("status"),
      "A result collection as a saved placement: [(key, id or None)] in ascending key order, what a table's "
      "restore() takes over after a restart");

  py::enum_<PlacementFailure>(m, "PlacementFailure", "Why a request left its key without the place it asked for")
      .value("noRoom", PlacementFailure::noRoom)
      .value("searchCutShort", PlacementFailure::searchCutShort)
      .value("requestedIdRefused", PlacementFailure::requestedIdRefused)
      .value("requestedIdNotHonoured", PlacementFailure::requestedIdNotHonoured);
  py::class_<TableStatistics>(m, "TableStatistics",
                              "What a table has done since it was made or since statisticsReset()")
      .def_property_readonly(
          "placementsByMoves",
          [](const TableStatistics& s) {
            py::dict out;
            for (std::size_t moves = 0; moves < TableStatistics::movesHistogramSize; ++moves) {
              if (s.placementsByMoves()[moves] != 0) out[py::int_(moves)] = s.placementsByMoves()[moves];
            }
            return out;
          },
          "{moves: placements} without the empty counts; the last count (63) holds every placement of more")
      .def("placementsWithMoves", &TableStatistics::placementsWithMoves, py::arg("moves"))
      .def_property_readonly("placements", &TableStatistics::placements)
      .def_property_readonly("placementMoves", &TableStatistics::placementMoves)
      .def_property_readonly("placementsAtRequestedId", &TableStatistics::placementsAtRequestedId)
      .def(
          "failures",
          [](const TableStatistics& s, std::optional<PlacementFailure> reason) {
            return reason ? s.failures(*reason) : s.failures();
          },
          py::arg("reason") = py::none(),
          "Failures of one reason; without one, of every reason but requestedIdNotHonoured")
      .def_property_readonly("moves", &TableStatistics::moves)
      .def_property_readonly("largestChain", &TableStatistics::largestChain)
      .def_property_readonly(
          "slotsUsed", [](const TableStatistics& s) { return s.slotsUsed(); }, "Slots used in each bank, as they stand")
      .def_property_readonly("slotsExamined", &TableStatistics::slotsExamined)
      .def_property_readonly("runsExamined", &TableStatistics::runsExamined)
      .def_property_readonly("searchesCutShort", &TableStatistics::searchesCutShort)
      .def("__repr__", [](const TableStatistics& s) { return "<TableStatistics " + textOf(s) + ">"; })
      .def("__str__", &textOf<TableStatistics>);
}

}  // namespace mhtpython
