#include "Reports.h"

#include <pybind11/stl.h>

#include <pybind11/operators.h>

namespace py = pybind11;
using namespace TesselCentral;

namespace mhtpython {

std::string moveSearchProblem(const std::string& text) {
  try {
    Fwk::sequenceToValue<MoveSearch>(text);
    return {};
  } catch (const Fwk::Exception&) {
    const Fwk::EnumInfo& info = Fwk::EnumTraits<MoveSearch>::info();
    std::string spellings;
    for (const auto& [value, name] : info.enumerators) spellings += (spellings.empty() ? "" : ", ") + std::string(name);
    for (const auto& [value, name] : info.aliases) spellings += ", " + std::string(name);
    return "'" + text + "' is not one of " + spellings;
  }
}

MoveSearch moveSearchOf(const py::handle& value) {
  if (py::isinstance<MoveSearch>(value)) return value.cast<MoveSearch>();
  if (!py::isinstance<py::str>(value)) throw py::type_error("a move search is a MoveSearch or its name");
  const std::string text = value.cast<std::string>();
  if (const std::string problem = moveSearchProblem(text); !problem.empty()) throw py::value_error(problem);
  return Fwk::sequenceToValue<MoveSearch>(text);
}

void bindReports(py::module_& m) {
  py::enum_<MoveSearch>(m, "MoveSearch",
                        "How a table searches for room; MoveSearch('breadth-first') parses any spelling the "
                        "library knows")
      .value("depthFirst", MoveSearch::depthFirst)
      .value("breadthFirst", MoveSearch::breadthFirst)
      .def(py::init([](const py::str& text) { return moveSearchOf(text); }), py::arg("text"));

  py::class_<Candidate>(m, "Candidate", "One place a key may take: width slots from slot in a bank's bucket")
      .def_readonly("bank", &Candidate::bank)
      .def_readonly("bucket", &Candidate::bucket)
      .def_readonly("slot", &Candidate::slot)
      .def_readonly("width", &Candidate::width)
      .def_property_readonly("id", [](const Candidate& c) { return idValue(c.id); })
      .def(py::self == py::self)
      .def("__repr__", [](const Candidate& c) { return "<Candidate " + textOf(c) + ">"; })
      .def("__str__", &textOf<Candidate>);

  py::enum_<AuditKind>(m, "AuditKind")
      .value("corruption", AuditKind::corruption)
      .value("leakedId", AuditKind::leakedId)
      .value("recordWithoutRequest", AuditKind::recordWithoutRequest)
      .value("resultWithoutRequest", AuditKind::resultWithoutRequest);
  py::class_<AuditFinding>(m, "AuditFinding")
      .def_readonly("kind", &AuditFinding::kind)
      .def_readonly("text", &AuditFinding::text)
      .def_property_readonly("id", [](const AuditFinding& f) { return idValue(f.id); })
      .def("__repr__", [](const AuditFinding& f) {
        return "<AuditFinding " + std::string(auditKindName(f.kind)) + ": " + f.text + ">";
      });
  py::class_<AuditReport>(m, "AuditReport", "The audit's corruption and the hazards that reconcile() repairs")
      .def_property_readonly("findings", &AuditReport::findings)
      .def("clean", &AuditReport::clean)
      .def("count", &AuditReport::count, py::arg("kind"))
      .def(
          "finds", [](const AuditReport& r, AuditKind kind, U32 id) { return r.finds(kind, EntryId(id)); },
          py::arg("kind"), py::arg("id"))
      .def("texts", &AuditReport::texts, py::arg("kind"))
      .def("__str__", &textOf<AuditReport>)
      .def("__repr__", [](const AuditReport& r) { return "<AuditReport " + textOf(r) + ">"; });

  py::class_<KeptRequest>(m, "KeptRequest", "A request that reconcile() left as it stands, and why")
      .def_readonly("key", &KeptRequest::key)
      .def_property_readonly("requested", [](const KeptRequest& k) { return idValue(k.requested); })
      .def_readonly("reason", &KeptRequest::reason);
  py::class_<RemovedResult>(m, "RemovedResult", "A result whose request was gone, which reconcile() removed")
      .def_readonly("key", &RemovedResult::key)
      .def_property_readonly("id", [](const RemovedResult& r) { return idValue(r.id); });
  py::class_<ReleasedId>(m, "ReleasedId", "An id recorded for a key that no result placed there, released")
      .def_property_readonly("id", [](const ReleasedId& r) { return idValue(r.id); })
      .def_readonly("key", &ReleasedId::key)
      .def_readonly("reason", &ReleasedId::reason);
  py::class_<ReconcileReport>(m, "ReconcileReport", "What reconcile() did")
      .def_property_readonly("acted", &ReconcileReport::acted)
      .def_property_readonly("kept", [](const ReconcileReport& r) { return r.kept(); })
      .def_property_readonly("removed", [](const ReconcileReport& r) { return r.removed(); })
      .def_property_readonly("released", [](const ReconcileReport& r) { return r.released(); })
      .def("__str__", &textOf<ReconcileReport>)
      .def("__repr__", [](const ReconcileReport& r) { return "<ReconcileReport " + textOf(r) + ">"; });
}

}  // namespace mhtpython
