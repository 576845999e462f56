// The library's answers as Python sees them: a key's candidate places, the audit's
// findings, reconcile()'s report, and the MoveSearch enumeration with its other spellings.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <sstream>
#include <string>

#include "MultiHashTable/MultiHashTable.h"

namespace mhtpython {

// A value's text form, as its operator<< writes it: the answers' __str__ and __repr__.
template <class T>
std::string textOf(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// An EntryId as Python holds it: an int, or None for the invalid one.
inline std::optional<U32> idValue(TesselCentral::EntryId id) {
  if (!id.isValid()) return std::nullopt;
  return id.value();
}

// A MoveSearch given as the enumeration or as text in any spelling the library parses
// ("breadthFirst", "breadth-first"); text it does not know is a ValueError naming them all.
TesselCentral::MoveSearch moveSearchOf(const pybind11::handle& value);
// "'<text>' is not one of depthFirst, breadthFirst, depth-first, breadth-first", or empty
// when the library parses the text.
std::string moveSearchProblem(const std::string& text);

void bindReports(pybind11::module_& m);

// A saved placement given as a HashEntryStatus or as [(key, id or None)], and back.
TesselCentral::SavedPlacement savedPlacementFrom(const pybind11::handle& saved);
pybind11::list savedPlacementList(const TesselCentral::SavedPlacement& placement);
// RestoreCheck, TableStatistics and their enumerations; savedPlacementOf().
void bindRestoreAndStatistics(pybind11::module_& m);

}  // namespace mhtpython
