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
// Python object and the C++ side share one entity. Requests that the library's rules
// forbid (an id that is not one of the key's candidates, removing a key no table saw)
// stop the process with the library's assertion report, as they do in C++; a table's
// requestProblem(key, id) and removalProblem(key) tell so before the write.
#include <pybind11/operators.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "MultiHashTable.h"
#include "Report.h"
#include "Simulation.h"

namespace py = pybind11;
using namespace TesselCentral;

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

std::optional<U32> idValue(EntryId id) {
  if (!id.isValid()) return std::nullopt;
  return id.value();
}

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

// The keyword of simulate() that sets a figure of the table's shape; a capacity past 32
// bits is put down to buckets, as mht simulate puts it down to --buckets.
const char* keywordOf(mht::ShapeProblem::Figure figure) {
  switch (figure) {
    case mht::ShapeProblem::Figure::banks:
      return "banks";
    case mht::ShapeProblem::Figure::slots:
      return "slots";
    case mht::ShapeProblem::Figure::buckets:
    case mht::ShapeProblem::Figure::capacity:
      break;
  }
  return "buckets";
}

// The simulation with mht simulate's options and checks; returns its JSON report as a dict.
py::object simulateForPython(const std::string& table, U32 banks, U32 buckets, U32 slots, U32 steps,
                             bool bucketSpanBanks, bool doubleEntryTwoBucketMode,
                             const std::vector<std::tuple<U32, std::string, U32, U32, U32>>& bankHash,
                             const std::tuple<double, double, double>& mix, const std::string& keys,
                             const std::vector<std::string>& prefixes, std::optional<U64> requests,
                             std::optional<double> fillTarget, U64 churn, U64 seed, const std::string& moveSearch) {
  using namespace mht;
  const auto fail = [](const std::string& option, const std::string& what) {
    throw py::value_error(option + ": " + what);
  };
  if (table != "single" && table != "multi") fail("table", "'" + table + "' is neither 'single' nor 'multi'");
  if (keys != "random" && keys != "mac" && keys != "ipv4") fail("keys", "'" + keys + "' is not random, mac or ipv4");
  const TableKind kind = table == "single" ? TableKind::single : TableKind::multi;
  if (moveSearch != "depthFirst" && moveSearch != "breadthFirst") {
    fail("moveSearch", "'" + moveSearch + "' is neither 'depthFirst' nor 'breadthFirst'");
  }
  if (const auto problem = shapeProblem(kind, banks, buckets, slots, ShapeLimits::simulation)) {
    fail(keywordOf(problem->figure), problem->text);
  }
  if (steps > 16) fail("steps", "not in [0, 16]");
  if (fillTarget && (*fillTarget < 0 || *fillTarget > 1)) fail("fillTarget", "not in [0, 1]");

  SimulationOptions options;
  options.table = TableSpec{kind, banks, buckets, slots, steps, bucketSpanBanks};
  options.table.moveSearch = moveSearch == "breadthFirst" ? MoveSearch::breadthFirst : MoveSearch::depthFirst;
  options.banks = defaultBanks(options.table, doubleEntryTwoBucketMode);
  for (const auto& [bank, func, offSet, bits, mask] : bankHash) {
    if (bank >= banks) fail("bankHash", "bank " + std::to_string(bank) + " does not exist");
    BankSpec& b = options.banks[bank];
    try {
      b.hashFunc = hashFuncNamed(func);
    } catch (const Fwk::Exception& e) {
      fail("bankHash", e.what());
    }
    if (b.hashFunc == HashFunc::hashLsb) fail("bankHash", "hashLsb is not supported");
    if (mask >= buckets) fail("bankHash", "the mask selects buckets beyond the " + std::to_string(buckets));
    b.hashOffSet = offSet;
    b.hashBits = bits;
    b.hashMask = mask;
  }
  const auto [s, d, q] = mix;
  if (s < 0 || d < 0 || q < 0 || s + d + q <= 0) fail("mix", "weights must be non-negative and not all zero");
  options.mix = WidthMix{s, d, q};
  options.source = keys == "mac" ? KeySourceKind::mac : keys == "ipv4" ? KeySourceKind::ipv4 : KeySourceKind::random;
  for (const std::string& p : prefixes) {
    try {
      options.prefixes.push_back(parseIpv4Prefix(p));
    } catch (const std::invalid_argument& e) {
      fail("prefixes", e.what());
    }
  }
  if (requests && *requests) options.requests = *requests;
  if (fillTarget && *fillTarget > 0) options.fillTarget = *fillTarget;
  options.churn = churn;
  options.seed = seed;
  options.progress = false;

  SimulationResult result;
  {
    py::gil_scoped_release unlocked;
    result = mht::simulate(options);
  }
  std::ostringstream json;
  writeJsonReport(options, result, json);
  return py::module_::import("json").attr("loads")(json.str());
}

}  // namespace

PYBIND11_MODULE(multihashtable, m) {
  m.doc() = "Hash-table placement over the banks of a switch chip's hash tables";
  m.attr("__version__") = MHT_VERSION;

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
          [](HashEntryConfig& c, const HashEntryKey& key, std::optional<U32> id) { c.configIs(key, entryIdOf(id)); },
          py::arg("key"), py::arg("id") = py::none(), "Adds or changes a request; the tables react inside this call")
      .def(
          "configDel", [](HashEntryConfig& c, const HashEntryKey& key) { return idValue(c.configDel(key)); },
          py::arg("key"), "Removes a request and returns it (None when there was none)")
      .def("configDelAll", &HashEntryConfig::configDelAll)
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
      .def("__len__", [](const HashEntryStatus& s) { return s.statusCollection().size(); });

  py::class_<Bank, Fwk::Ptr<Bank>>(m, "Bank")
      .def_property_readonly("baseEntryType", &Bank::baseEntryType)
      .def_property_readonly("bankId", &Bank::bankId)
      .def_property_readonly("numBuckets", &Bank::numBuckets)
      .def_property_readonly("bucketSize", &Bank::bucketSize)
      .def_property_readonly("hashFunc", &Bank::hashFunc)
      .def_property_readonly("hashOffSet", &Bank::hashOffSet)
      .def_property_readonly("hashBits", &Bank::hashBits)
      .def_property_readonly("hashMask", &Bank::hashMask);
  py::class_<MultiEntryTypeBank, Bank, Fwk::Ptr<MultiEntryTypeBank>>(m, "MultiEntryTypeBank")
      .def_property_readonly("phyBankId", &MultiEntryTypeBank::phyBankId)
      .def_property_readonly("doubleEntryTwoBucketMode", &MultiEntryTypeBank::doubleEntryTwoBucketMode);

  py::enum_<RequestOutcome>(m, "RequestOutcome")
      .value("unchanged", RequestOutcome::unchanged)
      .value("noReaction", RequestOutcome::noReaction)
      .value("accepted", RequestOutcome::accepted)
      .value("hazardous", RequestOutcome::hazardous)
      .value("stopsLater", RequestOutcome::stopsLater)
      .value("stopsNow", RequestOutcome::stopsNow);
  py::class_<RequestCheck>(m, "RequestCheck", "What a write would do, told before the client makes it")
      .def_property_readonly("outcome", &RequestCheck::outcome)
      .def_property_readonly("condition", &RequestCheck::condition)
      .def_property_readonly("reason", &RequestCheck::reason)
      .def_property_readonly("fatal", &RequestCheck::fatal)
      .def_property_readonly("hazard", &RequestCheck::hazard)
      .def_property_readonly("passes", &RequestCheck::passes)
      .def("problem", &RequestCheck::problem)
      .def("__str__", &RequestCheck::text)
      .def("__repr__", [](const RequestCheck& c) { return "<RequestCheck " + c.text() + ">"; });

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
           "The removal check's problem in one line; empty when configDel(key) is safe to make");

  py::class_<MultiHashTable, MultiHashTableBase, Fwk::Ptr<MultiHashTable>>(m, "MultiHashTable",
                                                                           "The single-width table")
      .def(py::init([](U32 numBanks, U32 numBuckets, U32 numBucketEntries, Fwk::Ptr<HashEntryConfig> config,
                       Fwk::Ptr<HashEntryStatus> status, U32 maxRecursiveSteps, bool bucketSpanBanks) {
             return multiHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status, maxRecursiveSteps,
                                          bucketSpanBanks);
           }),
           py::arg("numBanks"), py::arg("numBuckets"), py::arg("numBucketEntries"), py::arg("config"),
           py::arg("status"), py::arg("maxRecursiveSteps"), py::arg("bucketSpanBanks") = false)
      .def_property_readonly("bucketSpanBanks", &MultiHashTable::bucketSpanBanks)
      .def("bankIs", &MultiHashTable::bankIs, py::arg("baseEntryType"), py::arg("bankId"), py::arg("numBuckets"),
           py::arg("bucketSize"), py::arg("hashFunc"), py::arg("hashOffSet"), py::arg("hashBits"), py::arg("hashMask"))
      .def("bank", &MultiHashTable::bank, py::arg("bankId"))
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
             return multiEntryTypeHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status,
                                                   maxRecursiveSteps);
           }),
           py::arg("numBanks"), py::arg("numBuckets"), py::arg("numBucketEntries"), py::arg("config"),
           py::arg("status"), py::arg("maxRecursiveSteps"))
      .def("bankIs", &MultiEntryTypeHashTable::bankIs, py::arg("baseEntryType"), py::arg("bankId"),
           py::arg("numBuckets"), py::arg("bucketSize"), py::arg("hashFunc"), py::arg("hashOffSet"),
           py::arg("hashBits"), py::arg("hashMask"), py::arg("phyBankId"), py::arg("doubleEntryTwoBucketMode") = false)
      .def("bank", &MultiEntryTypeHashTable::bank, py::arg("bankId"))
      .def_property_readonly("entryIdHelper", &MultiEntryTypeHashTable::entryIdHelper)
      .def("entryIdHelperIs", &MultiEntryTypeHashTable::entryIdHelperIs, py::arg("helper"),
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
           "The position with the physical bank id in bits 31..24");
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

  m.def("simulate", &simulateForPython,
        "Runs mht simulate's simulation; returns the figures of its --json report as a dict", py::kw_only(),
        py::arg("table") = "multi", py::arg("banks") = 4, py::arg("buckets") = 4096, py::arg("slots") = 4,
        py::arg("steps") = 3, py::arg("bucketSpanBanks") = false, py::arg("doubleEntryTwoBucketMode") = false,
        py::arg("bankHash") = std::vector<std::tuple<U32, std::string, U32, U32, U32>>{},
        py::arg("mix") = std::make_tuple(70.0, 20.0, 10.0), py::arg("keys") = "random",
        py::arg("prefixes") = std::vector<std::string>{}, py::arg("requests") = py::none(),
        py::arg("fillTarget") = py::none(), py::arg("churn") = 20000, py::arg("seed") = 1,
        py::arg("moveSearch") = "depthFirst");
}
