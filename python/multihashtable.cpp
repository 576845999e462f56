// The Python module `multihashtable`: the library's requests, results, tables, banks,
// counters, audit and traces, and the mht tool's simulation, for scripts and notebooks.
//
//   import multihashtable as mh
//   config, status = mh.HashEntryConfig(), mh.HashEntryStatus()
//   table = mh.MultiHashTable(2, 4, 2, config, status, maxRecursiveSteps=3)
//   table.bankIs(mh.HashEntryType.singleWide, 0, 4, 2, mh.HashFunc.hashCrc32Lower, 0, 0, 0x3)
//   key = mh.HashEntryKey(crc16=7, crc32=2)
//   config.configIs(key)              # anywhere; configIs(key, 4) asks for EntryId 4
//   status.results()                  # {HashEntryKey(...): 4}; None where there was no room
//
// EntryIds are Python ints; None stands for the invalid EntryId ("anywhere" in a request,
// "no room" in a result). Entities are held by the library's own counted pointers, so a
// Python object and the C++ side share one entity. The module's documentation (below, in
// the module docstring) says how a write that the library would stop on is refused.
#include <pybind11/eval.h>
#include <pybind11/operators.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Assert.h"
#include "Report.h"
#include "Reports.h"
#include "Simulation.h"
#include "StatusWatch.h"

namespace py = pybind11;
using namespace TesselCentral;
using mhtpython::idValue;
using mhtpython::publishing;

// The library's counted pointer is an intrusive holder: a Python object and every C++
// Ptr to the same entity share the entity's own count.
PYBIND11_DECLARE_HOLDER_TYPE(T, Fwk::Ptr<T>, true)

namespace pybind11::detail {
template <typename T>
struct holder_helper<Fwk::Ptr<T>> {
  static T* get(const Fwk::Ptr<T>& p) { return p.ptr(); }
};
}  // namespace pybind11::detail

namespace {

EntryId entryIdOf(std::optional<U32> id) { return id ? EntryId(*id) : EntryId(); }

std::string keyRepr(const HashEntryKey& k) {
  std::ostringstream out;
  out << "HashEntryKey(crc16=" << k.crc16() << ", crc32=" << k.crc32() << ", fapId=" << k.fapId()
      << ", entryType=HashEntryType." << stringValue(k.entryType()) << ")";
  return out.str();
}

template <class Collection>
py::dict resultsOf(const Collection& collection) {
  py::dict out;
  for (const auto& [key, id] : collection) out[py::cast(key)] = py::cast(idValue(id));
  return out;
}

// A trace sink that keeps the formatted lines for Python to read.
class TraceCapture : public Fwk::TraceSink {
 public:
  void write(const Fwk::TraceRecord& record) override { lines_.push_back(Fwk::StreamTraceSink::format(record)); }
  const std::vector<std::string>& lines() const noexcept { return lines_; }
  std::string text() const {
    std::string s;
    for (const std::string& l : lines_) s += l + '\n';
    return s;
  }
  void clear() noexcept { lines_.clear(); }

 private:
  std::vector<std::string> lines_;
};

// The library's trace handle as Python sees it. It keeps the installed capture alive, and
// gives the handle back to standard error when the module goes away.
class TraceControl {
 public:
  ~TraceControl() { multiHashTableTrace().sinkIs(nullptr); }
  U32 levelMask() const noexcept { return multiHashTableTrace().levelMask(); }
  void levelMaskIs(U32 mask) noexcept { multiHashTableTrace().levelMaskIs(mask); }
  py::object sink() const { return sink_; }
  void sinkIs(py::object sink) {
    if (sink.is_none()) {
      multiHashTableTrace().sinkIs(nullptr);
    } else {
      multiHashTableTrace().sinkIs(sink.cast<TraceCapture*>());
    }
    sink_ = std::move(sink);
  }

 private:
  py::object sink_ = py::none();
};

HashFunc hashFuncNamed(const std::string& name) { return Fwk::sequenceToValue<HashFunc>(name, "hashFunc"); }

// The keyword of simulate() that sets a figure of the table's shape.
const char* keywordOf(mht::ShapeProblem::Figure figure) {
  switch (figure) {
    case mht::ShapeProblem::Figure::banks:
      return "banks";
    case mht::ShapeProblem::Figure::slots:
      return "slots";
    case mht::ShapeProblem::Figure::buckets:
      break;
  }
  return "buckets";
}

// ---------------------------------------------------------------------------------------
// Refusing what would stop the interpreter

// Raises the module's exception class `name`, made with `args`.
template <class... Args>
[[noreturn]] void raiseError(const char* name, Args&&... args) {
  const py::object type = py::module_::import("multihashtable").attr(name);
  const py::object error = type(std::forward<Args>(args)...);
  PyErr_SetObject(type.ptr(), error.ptr());
  throw py::error_already_set();
}

// Runs `action` under the library's assertion trap: a stop raises AssertionStopped instead
// of ending the process.
template <class Action>
std::invoke_result_t<Action> trapped(const std::string& what, Action&& action) {
  std::optional<std::string> condition;
  {
    const Fwk::AssertionTrap trap;
    try {
      return action();
    } catch (const Fwk::AssertionStopped& stop) {
      condition = stop.condition;
    }
  }
  raiseError("AssertionStopped",
             what + ": stopped on the assertion \"" + *condition + "\"; the object may be left half-changed",
             *condition);
}

// The tables made from Python. A table reacts to its request collection inside the
// collection's write, where the library's assertion cannot be caught: the module judges
// every write with each table that reacts to the collection before it makes it. The list
// holds a counted pointer to each table and lets the table go once no one else holds it,
// before each judged write and each new table, so that it never keeps a table reacting
// that would otherwise be gone.
class ReactingTables {
 public:
  void add(Ptr<MultiHashTableBase> table) {
    release();
    tables_.push_back(std::move(table));
  }

  std::vector<Ptr<MultiHashTableBase>> of(const HashEntryConfig& config) {
    release();
    std::vector<Ptr<MultiHashTableBase>> reacting;
    for (const Ptr<MultiHashTableBase>& t : tables_) {
      if (t->hashEntryConfig().ptr() == &config && t->notificationActive()) reacting.push_back(t);
    }
    return reacting;
  }

  // Drops the tables that only this list holds (their destruction may run library code, so
  // the list is made whole first).
  void release() {
    std::vector<Ptr<MultiHashTableBase>> kept, dropped;
    for (Ptr<MultiHashTableBase>& t : tables_) (t->references() > 1 ? kept : dropped).push_back(std::move(t));
    tables_ = std::move(kept);
  }

  void releaseAll() {
    std::vector<Ptr<MultiHashTableBase>> dropped = std::move(tables_);
    tables_.clear();
  }

 private:
  std::vector<Ptr<MultiHashTableBase>> tables_;
};

// Never destroyed: the module's tables go at the interpreter's exit (releaseAll).
ReactingTables& reactingTables() {
  static auto* tables = new ReactingTables;
  return *tables;
}

template <class Table>
Fwk::Ptr<Table> registered(Fwk::Ptr<Table> table) {
  reactingTables().add(table);
  return table;
}

// Whether a verdict's write reaches the table's placement at all.
bool reaches(const RequestCheck& verdict) {
  return verdict.outcome() != RequestOutcome::unchanged && verdict.outcome() != RequestOutcome::noReaction;
}

// Judges a write with every table that reacts to `config` (but `exempt`): a table whose
// configuration check fails refuses a write that reaches it (ConfigurationRefused), a fatal
// verdict refuses the write (RequestRefused), any other problem is a RuntimeWarning.
void judgeWrite(const HashEntryConfig& config, const std::string& what,
                const std::function<std::vector<RequestCheck>(const MultiHashTableBase&)>& verdictsOf,
                const MultiHashTableBase* exempt = nullptr) {
  for (const Ptr<MultiHashTableBase>& table : reactingTables().of(config)) {
    if (table.ptr() == exempt) continue;
    const std::vector<RequestCheck> verdicts = verdictsOf(*table);
    if (std::any_of(verdicts.begin(), verdicts.end(), reaches)) {
      ConfigurationCheck check = table->configurationCheck();
      if (!check.passes()) {
        const std::string message = what + " refused: " + mht::configurationRefusal(check);
        raiseError("ConfigurationRefused", message, py::cast(std::move(check)), py::cast(table));
      }
    }
    for (const RequestCheck& verdict : verdicts) {
      if (refuses(WriteRefusal::fatal, verdict)) {
        raiseError("RequestRefused", what + " refused: " + verdict.problem(), py::cast(verdict), py::cast(table));
      }
    }
    for (const RequestCheck& verdict : verdicts) {
      if (verdict.passes()) continue;
      const std::string message = what + ": " + verdict.problem();
      if (PyErr_WarnEx(PyExc_RuntimeWarning, message.c_str(), 2) != 0) throw py::error_already_set();
    }
  }
}

std::string idRepr(std::optional<U32> id) { return id ? std::to_string(*id) : std::string("None"); }

void judgeRequest(const HashEntryConfig& config, const HashEntryKey& key, std::optional<U32> id,
                  const MultiHashTableBase* exempt = nullptr) {
  judgeWrite(
      config, "configIs(" + keyRepr(key) + ", " + idRepr(id) + ")",
      [&](const MultiHashTableBase& t) { return std::vector<RequestCheck>{t.requestCheck(key, entryIdOf(id))}; },
      exempt);
}

void judgeRemoval(const HashEntryConfig& config, const HashEntryKey& key, const MultiHashTableBase* exempt = nullptr) {
  judgeWrite(
      config, "configDel(" + keyRepr(key) + ")",
      [&](const MultiHashTableBase& t) { return std::vector<RequestCheck>{t.removalCheck(key)}; }, exempt);
}

void judgeRemovalOfAll(const HashEntryConfig& config) {
  judgeWrite(config, "configDelAll()", [&](const MultiHashTableBase& t) {
    std::vector<RequestCheck> verdicts;
    for (const auto& request : config.configCollection()) {
      const RequestCheck v = t.removalCheck(request.key);
      verdicts.emplace_back(v.outcome(), v.condition(), "at key " + keyRepr(request.key) + ": " + v.reason());
    }
    return verdicts;
  });
}

// Judges the full resync of `table`: a table whose configuration check fails refuses it
// (ConfigurationRefused), a fatal resync check refuses it (RequestRefused).
void judgeResync(const MultiHashTableBase& table) {
  const py::object owner = py::cast(&table, py::return_value_policy::reference);
  if (!table.hashEntryConfig()->configCollection().empty()) {
    ConfigurationCheck check = table.configurationCheck();
    if (!check.passes()) {
      const std::string message = "handleHashUpdate() refused: " + mht::configurationRefusal(check);
      raiseError("ConfigurationRefused", message, py::cast(std::move(check)), owner);
    }
  }
  const RequestCheck verdict = table.resyncCheck();
  if (refuses(WriteRefusal::fatal, verdict)) {
    raiseError("RequestRefused", "handleHashUpdate() refused: " + verdict.problem(), py::cast(verdict), owner);
  }
}

// The checked writes, for a table that reacts to the collection: the other tables that
// react to it judge the write as a plain one, and `table`'s verdict decides as the library's
// checked write decides.
void requireReacting(const HashEntryConfig& config, const MultiHashTableBase& table) {
  if (table.hashEntryConfig().ptr() != &config)
    throw py::value_error("the table does not react to this request collection");
}

// The arguments of simulate() and simulationCheck(), as Python gives them.
struct SimulationArguments {
  std::string table;
  U32 banks, buckets, slots, steps;
  bool bucketSpanBanks, doubleEntryTwoBucketMode;
  std::vector<std::tuple<U32, std::string, U32, U32, U32>> bankHash;
  std::tuple<double, double, double> mix;
  std::string keys;
  std::vector<std::string> prefixes;
  std::optional<U64> requests;
  std::optional<double> fillTarget;
  U64 churn, seed;
  py::object moveSearch;
};

// Raises OptionRefused: the keyword of the argument at fault, and why.
[[noreturn]] void refuseOption(const std::string& keyword, const std::string& reason) {
  raiseError("OptionRefused", keyword + ": " + reason, keyword, reason);
}

// mht simulate's options from the arguments, with the tool's checks of each.
mht::SimulationOptions simulationOptionsOf(const SimulationArguments& a) {
  using namespace mht;
  if (a.table != "single" && a.table != "multi") {
    refuseOption("table", "'" + a.table + "' is neither 'single' nor 'multi'");
  }
  if (a.keys != "random" && a.keys != "mac" && a.keys != "ipv4") {
    refuseOption("keys", "'" + a.keys + "' is not random, mac or ipv4");
  }
  const TableKind kind = a.table == "single" ? TableKind::single : TableKind::multi;
  MoveSearch moveSearch = MoveSearch::depthFirst;
  try {
    moveSearch = mhtpython::moveSearchOf(a.moveSearch);
  } catch (const py::value_error& e) {
    refuseOption("moveSearch", e.what());
  }
  if (const auto problem = simulationShapeProblem(a.banks, a.buckets, a.slots)) {
    refuseOption(keywordOf(problem->figure), problem->text);
  }
  if (a.steps > 16) refuseOption("steps", std::to_string(a.steps) + " is not in [0, 16]");
  if (a.fillTarget && (*a.fillTarget < 0 || *a.fillTarget > 1)) refuseOption("fillTarget", "not in [0, 1]");

  SimulationOptions options;
  options.table = TableSpec{kind, a.banks, a.buckets, a.slots, a.steps, a.bucketSpanBanks};
  options.table.moveSearch = moveSearch;
  options.banks = defaultBanks(options.table, a.doubleEntryTwoBucketMode);
  for (const auto& [bank, func, offSet, bits, mask] : a.bankHash) {
    if (bank >= a.banks) refuseOption("bankHash", "bank " + std::to_string(bank) + " does not exist");
    BankSpec& b = options.banks[bank];
    try {
      b.hashFunc = hashFuncNamed(func);
    } catch (const Fwk::Exception& e) {
      refuseOption("bankHash", e.what());
    }
    b.hashOffSet = offSet;
    b.hashBits = bits;
    b.hashMask = mask;
  }
  const auto [s, d, q] = a.mix;
  if (s < 0 || d < 0 || q < 0 || s + d + q <= 0) refuseOption("mix", "weights must be non-negative and not all zero");
  options.mix = WidthMix{s, d, q};
  options.source = a.keys == "mac"    ? KeySourceKind::mac
                   : a.keys == "ipv4" ? KeySourceKind::ipv4
                                      : KeySourceKind::random;
  for (const std::string& p : a.prefixes) {
    try {
      options.prefixes.push_back(parseIpv4Prefix(p));
    } catch (const std::invalid_argument& e) {
      refuseOption("prefixes", e.what());
    }
  }
  if (a.requests && *a.requests) options.requests = *a.requests;
  if (a.fillTarget && *a.fillTarget > 0) options.fillTarget = *a.fillTarget;
  options.churn = a.churn;
  options.seed = a.seed;
  options.progress = false;
  return options;
}

[[noreturn]] void refuseConfiguration(const mht::ConfigurationRefused& refused) {
  raiseError("ConfigurationRefused", std::string(refused.what()), py::cast(refused.check()), py::none());
}

// The simulation with mht simulate's options and checks; returns its JSON report as a dict.
py::object simulateForPython(const SimulationArguments& arguments) {
  const mht::SimulationOptions options = simulationOptionsOf(arguments);
  mht::SimulationResult result;
  std::optional<mht::ConfigurationRefused> refused;
  {
    py::gil_scoped_release unlocked;
    try {
      result = mht::simulate(options);
    } catch (const mht::ConfigurationRefused& e) {
      refused.emplace(e);
    }
  }
  if (refused) refuseConfiguration(*refused);
  std::ostringstream json;
  mht::writeJsonReport(options, result, json);
  return py::module_::import("json").attr("loads")(json.str());
}

// What simulate() refuses, found without simulating: the options, then the library's
// configuration check of the table and banks built as the simulation builds them.
void simulationCheckForPython(const SimulationArguments& arguments) {
  const mht::SimulationOptions options = simulationOptionsOf(arguments);
  TesselCentral::ConfigurationCheck check = mht::simulationConfiguration(options);
  if (!check.passes()) refuseConfiguration(mht::ConfigurationRefused(std::move(check)));
}

// Defines a function of the module that takes simulate()'s keywords.
template <class Function>
void defSimulation(py::module_& m, const char* name, Function function, const char* doc) {
  m.def(
      name,
      [function](const std::string& table, U32 banks, U32 buckets, U32 slots, U32 steps, bool bucketSpanBanks,
                 bool doubleEntryTwoBucketMode, std::vector<std::tuple<U32, std::string, U32, U32, U32>> bankHash,
                 std::tuple<double, double, double> mix, const std::string& keys, std::vector<std::string> prefixes,
                 std::optional<U64> requests, std::optional<double> fillTarget, U64 churn, U64 seed,
                 py::object moveSearch) {
        return function(SimulationArguments{
            table, banks, buckets, slots, steps, bucketSpanBanks, doubleEntryTwoBucketMode, std::move(bankHash), mix,
            keys, std::move(prefixes), requests, fillTarget, churn, seed, std::move(moveSearch)});
      },
      doc, py::kw_only(), py::arg("table") = "multi", py::arg("banks") = 4, py::arg("buckets") = 4096,
      py::arg("slots") = 4, py::arg("steps") = 3, py::arg("bucketSpanBanks") = false,
      py::arg("doubleEntryTwoBucketMode") = false,
      py::arg("bankHash") = std::vector<std::tuple<U32, std::string, U32, U32, U32>>{},
      py::arg("mix") = std::make_tuple(70.0, 20.0, 10.0), py::arg("keys") = "random",
      py::arg("prefixes") = std::vector<std::string>{}, py::arg("requests") = py::none(),
      py::arg("fillTarget") = py::none(), py::arg("churn") = 20000, py::arg("seed") = 1,
      py::arg("moveSearch") = "depthFirst");
}

}  // namespace

PYBIND11_MODULE(multihashtable, m) {
  m.doc() = R"doc(Hash-table placement over the banks of a switch chip's hash tables.

A table reacts to its request collection inside the collection's write (configIs,
configDel, configDelAll), and the library stops the process on a request that its rules
forbid. The module refuses such a write instead, with an exception, and writes nothing:

- It keeps the tables made from Python, by the request collection they react to, and
  judges every write with each of them that listens (hasNotificationActiveIs) first
  (requestCheck, removalCheck). A table's handleHashUpdate() is judged by its
  resyncCheck() in the same way.
- A table whose configurationCheck() fails can be made, and its banks added, as usual;
  every write that would reach it raises ConfigurationRefused (a RuntimeError), whose
  `problems` lists each problem's text and `check` is the ConfigurationCheck. The refusal
  is at the write, not at the table's creation, since the banks come after.
- A write that the library would stop on, now or in a later request, raises RequestRefused
  (a RuntimeError) with the table's verdict: `verdict` (the RequestCheck), `outcome`,
  `condition` (the assertion's text) and `reason`; `table` is the table that refused.
- Any other problem of a verdict (a hazardous write) is a RuntimeWarning; the write is made.
- checkedConfigIs and checkedConfigDel make the library's checked writes: the table given
  decides by its verdict, returned in a CheckedWrite whether the write was made or not; the
  other tables that react to the collection judge the write as above.
- A table's bankIs, bankDel, entryIdHelperIs, reconcile and checkSanity run under the
  library's assertion trap: a stop raises AssertionStopped (a RuntimeError) with the
  `condition`; the object may be left half-changed.

status.onChange(callback) calls callback(key, id) for each change of a result, inside the
write that makes it. The callback runs inside the table's reaction, which must not be
unwound: an exception it raises is kept, the other callbacks and the rest of the write go
on, and the write (configIs, configDel, configDelAll, the checked writes,
handleHashUpdate, reconcile) raises it once the library has returned. The write has then
been made. A second exception in the same write goes to sys.unraisablehook.

A table made in C++ that no Python table object reaches is not judged.)doc";
  m.attr("__version__") = MHT_VERSION;

  // The module's exceptions, with their attributes, as Python classes.
  py::exec(R"py(
class RequestRefused(RuntimeError):
    """A write that a table reacting to the request collection refuses: it would stop the
    process on the library's assertion, now or in a later request. Nothing was written.
    verdict is the table's RequestCheck; outcome, condition and reason are the verdict's;
    table is the table that refused."""

    def __init__(self, message, verdict, table):
        super().__init__(message)
        self.verdict = verdict
        self.outcome = verdict.outcome
        self.condition = verdict.condition
        self.reason = verdict.reason
        self.table = table


class ConfigurationRefused(RuntimeError):
    """A write to a request collection that a table whose configuration check fails reacts
    to, or a simulation of such a table. Nothing was written. problems lists each problem's
    text; check is the ConfigurationCheck; table is the table (None for a simulation)."""

    def __init__(self, message, check, table):
        super().__init__(message)
        self.check = check
        self.problems = [problem.text for problem in check.problems]
        self.table = table


class RestoreRefused(RuntimeError):
    """A saved placement that a table refuses to take over. Nothing changed. check is the
    RestoreCheck; problems lists each problem's text; table is the table."""

    def __init__(self, message, check, table):
        super().__init__(message)
        self.check = check
        self.problems = [problem.text for problem in check.problems]
        self.table = table


class OptionRefused(ValueError):
    """An argument of simulate() or simulationCheck() that the tool refuses. keyword names
    the argument; reason says why."""

    def __init__(self, message, keyword, reason):
        super().__init__(message)
        self.keyword = keyword
        self.reason = reason


class AssertionStopped(RuntimeError):
    """A call that stopped on the library's assertion; the object may be left half-changed.
    condition is the assertion's text."""

    def __init__(self, message, condition):
        super().__init__(message)
        self.condition = condition
)py",
           m.attr("__dict__"));
  py::module_::import("atexit").attr("register")(py::cpp_function([] { reactingTables().releaseAll(); }));

  py::enum_<HashFunc>(m, "HashFunc")
      .value("hashInvalid", HashFunc::hashInvalid)
      .value("hashCrc32Upper", HashFunc::hashCrc32Upper)
      .value("hashCrc32Lower", HashFunc::hashCrc32Lower)
      .value("hashLsb", HashFunc::hashLsb)
      .value("hashCrc16Lower", HashFunc::hashCrc16Lower)
      .value("hashCrc16Upper", HashFunc::hashCrc16Upper)
      .value("hashCrc64", HashFunc::hashCrc64)
      .value("hashCrc32And16", HashFunc::hashCrc32And16);

  py::enum_<HashEntryType>(m, "HashEntryType")
      .value("empty", HashEntryType::empty)
      .value("singleWide", HashEntryType::singleWide)
      .value("doubleWide", HashEntryType::doubleWide)
      .value("quadWide", HashEntryType::quadWide);

  mhtpython::bindReports(m);
  mhtpython::bindRestoreAndStatistics(m);

  py::class_<HashEntryKey>(m, "HashEntryKey", "What the client knows of an entry: its hashes, chip instance and width")
      .def(py::init<U16, U32, U32, HashEntryType>(), py::arg("crc16"), py::arg("crc32"), py::arg("fapId") = 0,
           py::arg("entryType") = HashEntryType::singleWide)
      .def(py::init([](const py::tuple& t) {
             if (t.size() < 2 || t.size() > 4)
               throw py::value_error("a key tuple is (crc16, crc32[, fapId[, entryType]])");
             return HashEntryKey(t[0].cast<U16>(), t[1].cast<U32>(), t.size() > 2 ? t[2].cast<U32>() : 0,
                                 t.size() > 3 ? t[3].cast<HashEntryType>() : HashEntryType::singleWide);
           }),
           py::arg("fields"))
      .def_property_readonly("crc16", &HashEntryKey::crc16)
      .def_property_readonly("crc32", &HashEntryKey::crc32)
      .def_property_readonly("fapId", &HashEntryKey::fapId)
      .def_property_readonly("entryType", &HashEntryKey::entryType)
      .def(py::self == py::self)
      .def(py::self < py::self)
      .def("__hash__", [](const HashEntryKey& k) { return k.hash(0); })
      .def("__repr__", &keyRepr);
  py::implicitly_convertible<py::tuple, HashEntryKey>();

  py::class_<HashEntryConfig, Fwk::Ptr<HashEntryConfig>>(
      m, "HashEntryConfig", "The client's requests: key -> wanted EntryId, or None for anywhere")
      .def(py::init(&hashEntryConfigFactory))
      .def(
          "configIs",
          [](HashEntryConfig& c, const HashEntryKey& key, std::optional<U32> id) {
            judgeRequest(c, key, id);
            publishing([&] { c.configIs(key, entryIdOf(id)); });
          },
          py::arg("key"), py::arg("id") = py::none(),
          "Adds or changes a request; the tables react inside this call. Raises RequestRefused or "
          "ConfigurationRefused, writing nothing, where a table would stop on it")
      .def(
          "configDel",
          [](HashEntryConfig& c, const HashEntryKey& key) {
            judgeRemoval(c, key);
            return idValue(publishing([&] { return c.configDel(key); }));
          },
          py::arg("key"),
          "Removes a request and returns it (None when there was none). Raises RequestRefused or "
          "ConfigurationRefused, writing nothing, where a table would stop on it")
      .def(
          "configDelAll",
          [](HashEntryConfig& c) {
            judgeRemovalOfAll(c);
            publishing([&] { c.configDelAll(); });
          },
          "Removes every request, unless a table would stop on one of the removals")
      .def(
          "config", [](const HashEntryConfig& c, const HashEntryKey& key) { return idValue(c.config(key)); },
          py::arg("key"))
      .def("configHas", &HashEntryConfig::configHas, py::arg("key"))
      .def(
          "requests", [](const HashEntryConfig& c) { return resultsOf(c.configCollection()); },
          "Every request as a dict {HashEntryKey: id or None}")
      .def("__len__", [](const HashEntryConfig& c) { return c.configCollection().size(); });

  py::class_<HashEntryStatus, Fwk::Ptr<HashEntryStatus>>(
      m, "HashEntryStatus", "The library's results: key -> EntryId, or None where there was no room")
      .def(py::init(&hashEntryStatusFactory))
      .def(
          "status", [](const HashEntryStatus& s, const HashEntryKey& key) { return idValue(s.status(key)); },
          py::arg("key"))
      .def("statusHas", &HashEntryStatus::statusHas, py::arg("key"))
      .def(
          "results", [](const HashEntryStatus& s) { return resultsOf(s.statusCollection()); },
          "Every result as a dict {HashEntryKey: id or None}")
      .def("__len__", [](const HashEntryStatus& s) { return s.statusCollection().size(); })
      .def(
          "onChange",
          [](const Ptr<HashEntryStatus>& s, py::function callback) {
            return std::make_unique<mhtpython::StatusWatch>(s, std::move(callback));
          },
          py::arg("callback"), py::keep_alive<1, 0>(),
          "Calls callback(key, id) after each change of a result, inside the write that makes it: id is the "
          "key's result, None where there was no room or the result was removed (statusHas tells them apart). "
          "Returns a StatusWatch, kept as long as this object or the caller holds it; cancel() stops it. An "
          "exception that the callback raises is raised again when the write returns, the write made");

  py::class_<mhtpython::StatusWatch>(m, "StatusWatch", "A callback that follows a HashEntryStatus")
      .def("cancel", &mhtpython::StatusWatch::cancel, "No further calls")
      .def_property_readonly("active", &mhtpython::StatusWatch::active)
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](mhtpython::StatusWatch& w, const py::args&) { w.cancel(); });

  py::class_<Bank, Fwk::Ptr<Bank>>(m, "Bank")
      .def_property_readonly("baseEntryType", &Bank::baseEntryType)
      .def_property_readonly("bankId", &Bank::bankId)
      .def_property_readonly("numBuckets", &Bank::numBuckets)
      .def_property_readonly("bucketSize", &Bank::bucketSize)
      .def_property_readonly("hashFunc", &Bank::hashFunc)
      .def_property_readonly("hashOffSet", &Bank::hashOffSet)
      .def_property_readonly("hashBits", &Bank::hashBits)
      .def_property_readonly("hashMask", &Bank::hashMask)
      .def(
          "calcBucketId",
          [](Bank& b, U16 crc16, U32 crc32, HashEntryType entryType, bool debugEnabled, U32 debugCrcInc) {
            return trapped("calcBucketId",
                           [&] { return b.calcBucketId(crc16, crc32, entryType, debugEnabled, debugCrcInc); });
          },
          py::arg("crc16"), py::arg("crc32"), py::arg("entryType") = HashEntryType::singleWide,
          py::arg("debugEnabled") = false, py::arg("debugCrcInc") = 0, "The bucket that the bank selects for a key");
  py::class_<MultiEntryTypeBank, Bank, Fwk::Ptr<MultiEntryTypeBank>>(m, "MultiEntryTypeBank")
      .def_property_readonly("phyBankId", &MultiEntryTypeBank::phyBankId)
      .def_property_readonly("doubleEntryTwoBucketMode", &MultiEntryTypeBank::doubleEntryTwoBucketMode)
      .def("bucket", &MultiEntryTypeBank::bucket, py::arg("bucketId"),
           "The bucket's state word: an occupancy bit per slot and a 4-bit entry type per slot")
      .def("getEntryType", &MultiEntryTypeBank::getEntryType, py::arg("bucketId"), py::arg("slotId"),
           "The type of the entry that covers the slot; empty for a free slot");

  py::enum_<RequestOutcome>(m, "RequestOutcome")
      .value("unchanged", RequestOutcome::unchanged)
      .value("noReaction", RequestOutcome::noReaction)
      .value("accepted", RequestOutcome::accepted)
      .value("hazardous", RequestOutcome::hazardous)
      .value("stopsLater", RequestOutcome::stopsLater)
      .value("stopsNow", RequestOutcome::stopsNow)
      .value("unserved", RequestOutcome::unserved);
  py::class_<RequestCheck>(m, "RequestCheck", "What a write would do, told before the client makes it")
      .def_property_readonly("outcome", &RequestCheck::outcome)
      .def_property_readonly("condition", &RequestCheck::condition)
      .def_property_readonly("reason", &RequestCheck::reason)
      .def_property_readonly("fatal", &RequestCheck::fatal)
      .def_property_readonly("hazard", &RequestCheck::hazard)
      .def_property_readonly("unserved", [](const RequestCheck& c) { return c.unserved(); })
      .def_property_readonly("passes", &RequestCheck::passes)
      .def("problem", &RequestCheck::problem)
      .def("__str__", &RequestCheck::text)
      .def("__repr__", [](const RequestCheck& c) { return "<RequestCheck " + c.text() + ">"; });

  py::class_<ConfigurationProblem>(m, "ConfigurationProblem",
                                   "One rule that a table's configuration breaks, and what the table would do")
      .def_property_readonly("rule", [](const ConfigurationProblem& p) { return std::string(ruleName(p.rule)); })
      .def_property_readonly("consequence",
                             [](const ConfigurationProblem& p) { return std::string(consequenceName(p.consequence)); })
      .def_property_readonly("bank", [](const ConfigurationProblem& p) { return p.bank; })
      .def_property_readonly("condition", [](const ConfigurationProblem& p) { return p.condition; })
      .def_property_readonly("reason", [](const ConfigurationProblem& p) { return p.reason; })
      .def_property_readonly("text", &ConfigurationProblem::text)
      .def("__str__", &ConfigurationProblem::text)
      .def("__repr__", [](const ConfigurationProblem& p) { return "<ConfigurationProblem " + p.text() + ">"; });
  py::class_<ConfigurationCheck>(m, "ConfigurationCheck",
                                 "Every problem that keeps a table from serving its requests, found before the first")
      .def("passes", &ConfigurationCheck::passes)
      .def_property_readonly("problems", &ConfigurationCheck::problems)
      .def("__str__",
           [](const ConfigurationCheck& c) {
             std::ostringstream text;
             text << c;
             return text.str();
           })
      .def("__repr__", [](const ConfigurationCheck& c) {
        return c.passes() ? std::string("<ConfigurationCheck passes>") : "<ConfigurationCheck " + c.text() + ">";
      });

  py::enum_<WriteRefusal>(m, "WriteRefusal", "Which verdicts keep a checked write from being made")
      .value("fatal", WriteRefusal::fatal)
      .value("fatalOrHazard", WriteRefusal::fatalOrHazard);
  py::class_<CheckedWrite>(m, "CheckedWrite", "A checked write's verdict, and whether the write was made")
      .def_property_readonly("verdict", [](const CheckedWrite& w) { return w.verdict; })
      .def_property_readonly("written", [](const CheckedWrite& w) { return w.written; })
      .def("__repr__", [](const CheckedWrite& w) {
        return std::string("<CheckedWrite ") + (w.written ? "written" : "refused") + ": " + w.verdict.text() + ">";
      });

  py::class_<MultiHashTableBase, Fwk::Ptr<MultiHashTableBase>>(m, "MultiHashTableBase")
      .def_property_readonly("numBanks", &MultiHashTableBase::numBanks)
      .def_property_readonly("numBuckets", &MultiHashTableBase::numBuckets)
      .def_property_readonly("numBucketEntries", &MultiHashTableBase::numBucketEntries)
      .def_property_readonly("maxRecursiveSteps", &MultiHashTableBase::maxRecursiveSteps)
      .def_property_readonly("tableCapacity", &MultiHashTableBase::tableCapacity)
      .def_property_readonly("numInsertions", &MultiHashTableBase::numInsertions)
      .def_property_readonly("numDeletions", &MultiHashTableBase::numDeletions)
      .def_property_readonly("numMoves", &MultiHashTableBase::numMoves)
      .def(
          "entries",
          [](const MultiHashTableBase& t) {
            py::dict out;
            for (const auto& [id, key] : t.hashTableEntryCollection()) out[py::cast(id.value())] = py::cast(key);
            return out;
          },
          "Which key occupies each used EntryId, as a dict {id: HashEntryKey}")
      .def("audit", &MultiHashTableBase::audit,
           "Checks the table's invariants; one line per violation, an empty list when consistent")
      .def(
          "requestCheck",
          [](const MultiHashTableBase& t, const HashEntryKey& key, std::optional<U32> id) {
            return t.requestCheck(key, entryIdOf(id));
          },
          py::arg("key"), py::arg("id") = py::none(), "What configIs(key, id) would do, told before the write")
      .def(
          "requestProblem",
          [](const MultiHashTableBase& t, const HashEntryKey& key, std::optional<U32> id) {
            return t.requestProblem(key, entryIdOf(id));
          },
          py::arg("key"), py::arg("id") = py::none(),
          "The request check's problem in one line; empty when configIs(key, id) is safe to make")
      .def("removalCheck", &MultiHashTableBase::removalCheck, py::arg("key"), "What configDel(key) would do")
      .def("removalProblem", &MultiHashTableBase::removalProblem, py::arg("key"),
           "The removal check's problem in one line; empty when configDel(key) is safe to make")
      .def("configurationCheck", &MultiHashTableBase::configurationCheck,
           "Every problem of the table's shape, banks and links that keeps it from serving its requests")
      .def("configurationProblem", &MultiHashTableBase::configurationProblem,
           "The configuration check's problems, one per line; empty when the table can serve")
      .def("resyncCheck", &MultiHashTableBase::resyncCheck,
           "Whether the full resync, handleHashUpdate(), would stop: run on a scratch copy of the table")
      .def("resyncProblem", &MultiHashTableBase::resyncProblem,
           "The resync check's problem in one line; empty when handleHashUpdate() is safe to call")
      .def(
          "handleHashUpdate",
          [](MultiHashTableBase& t) {
            judgeResync(t);
            publishing([&] { t.handleHashUpdate(); });
          },
          "The full resync: reacts to every current request, removes nothing. Raises ConfigurationRefused or "
          "RequestRefused, doing nothing, where the table would stop on it")
      .def(
          "reconcile",
          [](MultiHashTableBase& t) {
            return publishing([&] { return trapped("reconcile", [&] { return t.reconcile(); }); });
          },
          "Brings the results in line with the requests without stopping; returns the ReconcileReport")
      .def("auditReport", &MultiHashTableBase::auditReport,
           "The audit's corruption and, apart from it, the hazards that reconcile() repairs")
      .def(
          "candidates", [](const MultiHashTableBase& t, const HashEntryKey& key) { return t.candidates(key).places(); },
          py::arg("key"), "The places the key may take, in the order in which its placement tries them")
      .def(
          "restoreCheck",
          [](const MultiHashTableBase& t, const py::object& saved) {
            return t.restoreCheck(mhtpython::savedPlacementFrom(saved));
          },
          py::arg("saved"),
          "Whether restore(saved) would take the placement over, and every reason why not; changes nothing")
      .def(
          "restore",
          [](py::object self, const py::object& saved) {
            MultiHashTableBase& t = self.cast<MultiHashTableBase&>();
            const SavedPlacement placement = mhtpython::savedPlacementFrom(saved);
            RestoreCheck check = publishing([&] { return t.restore(placement); });
            if (!check.passes()) {
              const std::string message = "restore refused: " + check.text();
              raiseError("RestoreRefused", message, py::cast(std::move(check)), self);
            }
            return check;
          },
          py::arg("saved"),
          "Takes a saved placement over after a restart: a HashEntryStatus saved before it, or [(key, id or "
          "None)]. Each key is recorded at its saved id and its result published once; nothing moves. The "
          "requests must be written first, with the table's notification off (hasNotificationActiveIs(False)), "
          "and the notification turned on after. Raises RestoreRefused, changing nothing, when the check fails")
      .def_property_readonly(
          "statistics", [](const MultiHashTableBase& t) { return t.statistics(); },
          "A copy of the table's TableStatistics as they stand")
      .def("statisticsReset", &MultiHashTableBase::statisticsReset,
           "Every count of the statistics back to 0; the slots used stay, being the table's as it stands")
      .def_property_readonly("moveSearch", &MultiHashTableBase::moveSearch)
      .def(
          "moveSearchIs",
          [](MultiHashTableBase& t, const py::object& search) { t.moveSearchIs(mhtpython::moveSearchOf(search)); },
          py::arg("moveSearch"),
          "How the table searches for room from the next placement: a MoveSearch, or its name in any spelling "
          "('breadthFirst', 'breadth-first')")
      .def_property_readonly("notificationActive", [](const MultiHashTableBase& t) { return t.notificationActive(); })
      .def("hasNotificationActiveIs", &MultiHashTableBase::hasNotificationActiveIs, py::arg("active"),
           "Subscribes the table to its requests (True) or unsubscribes it (False); an unsubscribed table "
           "neither reacts to nor judges the writes")
      .def_property_readonly("fapId", [](const MultiHashTableBase& t) { return t.fapId().value(); })
      .def(
          "fapIdIs", [](MultiHashTableBase& t, U8 fapId) { t.fapIdIs(SlotId(fapId)); }, py::arg("fapId"))
      .def(
          "hashTableEntryOf",
          [](const MultiHashTableBase& t, U32 id) -> std::optional<HashEntryKey> {
            const HashEntryKey* key = t.hashTableEntryFind(EntryId(id));
            if (key == nullptr) return std::nullopt;
            return *key;
          },
          py::arg("id"), "The key recorded at the id, or None")
      .def(
          "checkSanity", [](MultiHashTableBase& t) { trapped("checkSanity", [&] { t.checkSanity(); }); },
          "The table's own sanity check after a placement; raises AssertionStopped where it would stop");

  py::class_<MultiHashTable, MultiHashTableBase, Fwk::Ptr<MultiHashTable>>(m, "MultiHashTable",
                                                                           "The single-width table")
      .def(py::init([](U32 numBanks, U32 numBuckets, U32 numBucketEntries, Fwk::Ptr<HashEntryConfig> config,
                       Fwk::Ptr<HashEntryStatus> status, U32 maxRecursiveSteps, bool bucketSpanBanks) {
             return registered(multiHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status,
                                                     maxRecursiveSteps, bucketSpanBanks));
           }),
           py::arg("numBanks"), py::arg("numBuckets"), py::arg("numBucketEntries"), py::arg("config"),
           py::arg("status"), py::arg("maxRecursiveSteps"), py::arg("bucketSpanBanks") = false)
      .def_property_readonly("bucketSpanBanks", &MultiHashTable::bucketSpanBanks)
      .def(
          "bankIs",
          [](MultiHashTable& t, HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
             HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask) {
            return trapped("bankIs", [&] {
              return t.bankIs(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask);
            });
          },
          py::arg("baseEntryType"), py::arg("bankId"), py::arg("numBuckets"), py::arg("bucketSize"),
          py::arg("hashFunc"), py::arg("hashOffSet"), py::arg("hashBits"), py::arg("hashMask"))
      .def("bank", &MultiHashTable::bank, py::arg("bankId"))
      .def(
          "bankDel",
          [](MultiHashTable& t, U32 bankId) { return trapped("bankDel", [&] { return t.bankDel(bankId); }); },
          py::arg("bankId"))
      .def(
          "banks",
          [](const MultiHashTable& t) {
            std::map<U32, Ptr<Bank>> banks;
            for (const auto& [id, bank] : t.bankCollection()) banks[id] = bank;
            return banks;
          },
          "Every bank, as a dict {bankId: Bank}")
      .def(
          "slotOfId", [](const MultiHashTable& t, U32 id) { return t.slotOfId(EntryId(id)); }, py::arg("id"),
          "The slot that an id names, as a Candidate: the inverse of calcEntryId")
      .def(
          "calcEntryId",
          [](const MultiHashTable& t, U32 bankId, U32 bucketId, U8 slot) {
            return t.calcEntryId(bankId, bucketId, slot).value();
          },
          py::arg("bankId"), py::arg("bucketId"), py::arg("slot"));

  py::class_<MultiEntryTypeHashTable, MultiHashTableBase, Fwk::Ptr<MultiEntryTypeHashTable>>(
      m, "MultiEntryTypeHashTable", "The multi-width table: entries one, two or four slots wide")
      .def(py::init([](U32 numBanks, U32 numBuckets, U32 numBucketEntries, Fwk::Ptr<HashEntryConfig> config,
                       Fwk::Ptr<HashEntryStatus> status, U32 maxRecursiveSteps) {
             return registered(multiEntryTypeHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status,
                                                              maxRecursiveSteps));
           }),
           py::arg("numBanks"), py::arg("numBuckets"), py::arg("numBucketEntries"), py::arg("config"),
           py::arg("status"), py::arg("maxRecursiveSteps"))
      .def(
          "bankIs",
          [](MultiEntryTypeHashTable& t, HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
             HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask, U32 phyBankId,
             bool doubleEntryTwoBucketMode) {
            return trapped("bankIs", [&] {
              return t.bankIs(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask,
                              phyBankId, doubleEntryTwoBucketMode);
            });
          },
          py::arg("baseEntryType"), py::arg("bankId"), py::arg("numBuckets"), py::arg("bucketSize"),
          py::arg("hashFunc"), py::arg("hashOffSet"), py::arg("hashBits"), py::arg("hashMask"), py::arg("phyBankId"),
          py::arg("doubleEntryTwoBucketMode") = false)
      .def("bank", &MultiEntryTypeHashTable::bank, py::arg("bankId"))
      .def(
          "bankDel",
          [](MultiEntryTypeHashTable& t, U32 bankId) { return trapped("bankDel", [&] { return t.bankDel(bankId); }); },
          py::arg("bankId"))
      .def(
          "banks",
          [](const MultiEntryTypeHashTable& t) {
            std::map<U32, Ptr<MultiEntryTypeBank>> banks;
            for (const auto& [id, bank] : t.bankCollection()) banks[id] = bank;
            return banks;
          },
          "Every bank, as a dict {bankId: MultiEntryTypeBank}")
      .def_property_readonly("entryIdHelper", &MultiEntryTypeHashTable::entryIdHelper)
      .def(
          "entryIdHelperIs",
          [](MultiEntryTypeHashTable& t, Ptr<EntryIdHelper> helper) {
            trapped("entryIdHelperIs", [&] { t.entryIdHelperIs(std::move(helper)); });
          },
          py::arg("helper"),
          "Sets the id translator; entryIdHelperIs(None) breaks the table <-> helper cycle when done");

  py::class_<EntryIdHelper, Fwk::Ptr<EntryIdHelper>>(m, "EntryIdHelper",
                                                     "Translates the multi-width table's positions to EntryIds")
      .def(py::init(&entryIdHelperFactory), py::arg("table"))
      .def("getLogicalBankId", &EntryIdHelper::getLogicalBankId, py::arg("id"))
      .def("getPhysicalBankId", &EntryIdHelper::getPhysicalBankId, py::arg("id"))
      .def("getBucketId", &EntryIdHelper::getBucketId, py::arg("id"))
      .def("getBucketState", &EntryIdHelper::getBucketState, py::arg("id"))
      .def("getHashEntryKey", &EntryIdHelper::getHashEntryKey, py::arg("id"))
      .def("getHwPosition", &EntryIdHelper::getHwPosition, py::arg("id"),
           "The position with the physical bank id in bits 31..24")
      .def("entryIdToPos", &EntryIdHelper::entryIdToPos, py::arg("id"),
           "The position of the key that holds the id; 0 when no key does")
      .def(
          "posToEntryId", [](EntryIdHelper& h, U32 pos) { return h.posToEntryId(pos).value(); }, py::arg("pos"))
      .def(
          "checkEntryIdValidity",
          [](EntryIdHelper& h, const HashEntryKey& key, U32 id) {
            return trapped("checkEntryIdValidity", [&] { return h.checkEntryIdValidity(key, EntryId(id)); });
          },
          py::arg("key"), py::arg("id"), "Whether the id lies in one of the key's candidate buckets");
  // The helper's id arguments are EntryIds; Python passes ints.
  py::class_<EntryId>(m, "EntryId").def(py::init<U32>()).def_property_readonly("value", &EntryId::value);
  py::implicitly_convertible<py::int_, EntryId>();

  py::class_<TraceCapture>(m, "TraceCapture", "A trace sink that keeps the lines for Python")
      .def(py::init<>())
      .def("lines", &TraceCapture::lines, "The formatted lines, in order")
      .def("text", &TraceCapture::text, "The formatted lines, each ending in a newline")
      .def("clear", &TraceCapture::clear);
  py::class_<TraceControl>(m, "TraceControl", "The library's trace handle \"MultiHashTable\"")
      .def_property("levelMask", &TraceControl::levelMask, &TraceControl::levelMaskIs,
                    "Level n traces when bit n is set")
      .def_property("sink", &TraceControl::sink, &TraceControl::sinkIs,
                    "A TraceCapture that receives the lines, or None for standard error");
  m.attr("trace") = py::cast(TraceControl(), py::return_value_policy::move);

  m.def(
      "checkedConfigIs",
      [](HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key, std::optional<U32> id,
         WriteRefusal refusal) {
        requireReacting(config, table);
        judgeRequest(config, key, id, &table);
        return publishing([&] { return checkedConfigIs(config, table, key, entryIdOf(id), refusal); });
      },
      py::arg("config"), py::arg("table"), py::arg("key"), py::arg("id") = py::none(),
      py::arg("refusal") = WriteRefusal::fatal,
      "config.configIs(key, id) unless the table's request check refuses it; returns the verdict either way");
  m.def(
      "checkedConfigDel",
      [](HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key, WriteRefusal refusal) {
        requireReacting(config, table);
        judgeRemoval(config, key, &table);
        return publishing([&] { return checkedConfigDel(config, table, key, refusal); });
      },
      py::arg("config"), py::arg("table"), py::arg("key"), py::arg("refusal") = WriteRefusal::fatal,
      "config.configDel(key) unless the table's removal check refuses it; returns the verdict either way");

  defSimulation(m, "simulate", &simulateForPython,
                "Runs mht simulate's simulation; returns the figures of its --json report as a dict. Raises "
                "OptionRefused (a ValueError) for an argument the tool refuses, ConfigurationRefused for a table "
                "the library's configuration check refuses");
  defSimulation(m, "simulationCheck", &simulationCheckForPython,
                "Raises what simulate() with the same arguments would refuse, without simulating: OptionRefused "
                "or ConfigurationRefused; returns None for a simulation that would run");
}
