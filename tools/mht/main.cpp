// mht: simulate, sweep, replay and explore the hash-table placement library.
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <thread>

#include "Replay.h"
#include "Report.h"
#include "Shell.h"
#include "Simulation.h"
#include "Sweep.h"
#include "Version.h"

namespace {

using namespace mht;
using namespace TesselCentral;

// An unsigned option's text: a whole number within 0..max, so that a negative or an
// overflowing value is refused by the option's name rather than wrapped or saturated.
template <class Unsigned>
CLI::Validator wholeNumber(Unsigned max = std::numeric_limits<Unsigned>::max()) {
  return CLI::Validator(
      [max](std::string& text) -> std::string {
        U64 value = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (text.empty() || error != std::errc() || stop != end || value > max) {
          return "'" + text + "' is not a whole number in 0.." + std::to_string(max);
        }
        return {};
      },
      "UINT");
}

// Writes a file whole or not at all: a failed run leaves an earlier file as it was.
class OutputFile {
 public:
  explicit OutputFile(std::string path) : path_(std::move(path)), temp_(path_ + ".partial") {
    std::ofstream probe(temp_);
    if (!probe) throw CLI::ValidationError(path_, "cannot write " + temp_);
  }
  void commit(const std::string& content) {
    {
      std::ofstream out(temp_, std::ios::trunc);
      out << content;
      if (!out) throw std::runtime_error("cannot write " + temp_);
    }
    if (std::rename(temp_.c_str(), path_.c_str()) != 0)
      throw std::runtime_error("cannot rename " + temp_ + " to " + path_);
  }
  ~OutputFile() { std::remove(temp_.c_str()); }

 private:
  std::string path_;
  std::string temp_;
};

struct BankOverride {
  U32 bank;
  HashFunc hashFunc;
  U32 hashOffSet;
  U32 hashBits;
  U32 hashMask;
};

// "<bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask>"
BankOverride parseBankOverride(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ':');) parts.push_back(part);
  if (parts.size() != 5) {
    throw CLI::ValidationError("--bank-hash",
                               "'" + text + "' is not <bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask>");
  }
  try {
    return BankOverride{static_cast<U32>(Fwk::parseUnsigned(parts[0], "bank", 255)),
                        Fwk::sequenceToValue<HashFunc>(parts[1], "hashFunc"),
                        static_cast<U32>(Fwk::parseUnsigned(parts[2], "hashOffSet", 0xFFFFFFFF)),
                        static_cast<U32>(Fwk::parseUnsigned(parts[3], "hashBits", 0xFFFFFFFF)),
                        static_cast<U32>(Fwk::parseUnsigned(parts[4], "hashMask", 0xFFFFFFFF))};
  } catch (const Fwk::Exception& e) {
    throw CLI::ValidationError("--bank-hash", "'" + text + "': " + e.what());
  }
}

WidthMix parseMix(const std::string& text) {
  double s = 0, d = 0, q = 0;
  char slash1 = 0, slash2 = 0;
  std::istringstream in(text);
  if (!(in >> s >> slash1 >> d >> slash2 >> q) || slash1 != '/' || slash2 != '/' || !in.eof() || s < 0 || d < 0 ||
      q < 0 || s + d + q <= 0) {
    throw CLI::ValidationError("--mix", "'" + text + "' is not <single>/<double>/<quad> with non-negative weights");
  }
  return WidthMix{s, d, q};
}

// The option of mht simulate that sets a figure of the table's shape.
const char* optionOf(ShapeProblem::Figure figure) {
  switch (figure) {
    case ShapeProblem::Figure::banks:
      return "--banks";
    case ShapeProblem::Figure::slots:
      return "--slots";
    case ShapeProblem::Figure::buckets:
      break;
  }
  return "--buckets";
}

// mht simulate: its options as the command line gives them, and the simulation they ask for.
struct SimulateCommand {
  std::string kind = "multi";
  std::string moveSearch = "depth-first";
  TableSpec table{TableKind::multi, 4, 4096, 4, 3, false};
  bool twoBucketMode = false;
  std::vector<std::string> bankHashes;
  std::string mix = "70/20/10";
  std::string source = "random";
  std::vector<std::string> prefixes;
  SimulationOptions options;
  U64 requests = 0;
  double fillTarget = 0;
  std::string jsonPath, svgPath;
  bool noProgress = false;
  CLI::App* command = nullptr;

  void addTo(CLI::App& app) {
    command = app.add_subcommand("simulate", "fill a table through its requests until a key finds no room, then churn");
    CLI::App& sim = *command;
    sim.add_option("--table", kind, "table kind")->check(CLI::IsMember({"single", "multi"}))->capture_default_str();
    // The simulations' own bounds on the shape are checked with the other options
    // (checkTable); what a table of that shape can serve, by the library on the built table.
    sim.add_option("--banks", table.numBanks, "banks (at most 256)")->check(wholeNumber<U32>())->capture_default_str();
    sim.add_option("--buckets", table.numBuckets, "buckets per bank (a power of two up to 1048576)")
        ->check(wholeNumber<U32>())
        ->capture_default_str();
    sim.add_option("--slots", table.numBucketEntries, "slots per bucket (at most 16)")
        ->check(wholeNumber<U32>())
        ->capture_default_str();
    sim.add_option("--steps", table.maxRecursiveSteps, "maxRecursiveSteps, the move budget")
        ->check(CLI::Range(0, 16))
        ->capture_default_str();
    sim.add_option("--move-search", moveSearch, "how room is made: the depth-first search or the shortest moves")
        ->check(CLI::IsMember({"depth-first", "breadth-first"}))
        ->capture_default_str();
    sim.add_flag("--bucket-span-banks", table.bucketSpanBanks, "single-width: number ids bucket-major");
    sim.add_flag("--double-entry-two-bucket-mode", twoBucketMode, "multi-width: wide entries use bucket groups");
    sim.add_option("--bank-hash", bankHashes,
                   "per-bank hashing <bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask> (repeatable); by default "
                   "bank i takes the i-th run of log2(buckets) bits of crc16:crc32 (hashCrc32And16)");
    sim.add_option("--mix", mix, "width mix single/double/quad (multi-width)")->capture_default_str();
    sim.add_option("--keys", source, "key source")
        ->check(CLI::IsMember({"random", "mac", "ipv4"}))
        ->capture_default_str();
    sim.add_option("--prefix", prefixes, "IPv4 prefixes for --keys ipv4 (a.b.c.d/len, repeatable; default 10.0.0.0/8)");
    CLI::Option* requestCount =
        sim.add_option("--requests", requests, "fill-phase requests (default: until the first key finds no room)")
            ->check(wholeNumber<U64>());
    sim.add_option("--fill-target", fillTarget, "stop filling at this fraction of the capacity")
        ->check(CLI::Range(0.0, 1.0))
        ->excludes(requestCount);
    sim.add_option("--churn", options.churn, "delete-and-add pairs after filling")
        ->check(wholeNumber<U64>())
        ->capture_default_str();
    sim.add_option("--seed", options.seed, "seed of the key source")->check(wholeNumber<U64>())->capture_default_str();
    sim.add_option("--json", jsonPath, "also write the report as JSON to this file");
    sim.add_option("--svg", svgPath, "also write a picture of the table to this file");
    sim.add_flag("--no-progress", noProgress, "no progress bar");
  }

  // The table's shape, checked against what the simulation takes; the library judges the
  // built table before the first request.
  void checkTable() {
    table.kind = kind == "single" ? TableKind::single : TableKind::multi;
    table.moveSearch =
        moveSearch == searchName(MoveSearch::breadthFirst) ? MoveSearch::breadthFirst : MoveSearch::depthFirst;
    if (const auto problem = simulationShapeProblem(table)) {
      throw CLI::ValidationError(optionOf(problem->figure), problem->text);
    }
  }

  // The default banks, with the hashing that --bank-hash gives some of them. Whether a bank
  // so hashed can serve its keys is the library's to say, on the built table.
  void setBanks() {
    options.banks = defaultBanks(table, twoBucketMode);
    for (const std::string& text : bankHashes) {
      const BankOverride o = parseBankOverride(text);
      if (o.bank >= table.numBanks)
        throw CLI::ValidationError("--bank-hash", "bank " + std::to_string(o.bank) + " does not exist");
      BankSpec& b = options.banks[o.bank];
      b.hashFunc = o.hashFunc;
      b.hashOffSet = o.hashOffSet;
      b.hashBits = o.hashBits;
      b.hashMask = o.hashMask;
    }
  }

  void setKeys() {
    options.mix = parseMix(mix);
    options.source = source == "mac"    ? KeySourceKind::mac
                     : source == "ipv4" ? KeySourceKind::ipv4
                                        : KeySourceKind::random;
    for (const std::string& p : prefixes) {
      try {
        options.prefixes.push_back(parseIpv4Prefix(p));
      } catch (const std::invalid_argument& e) {
        throw CLI::ValidationError("--prefix", e.what());
      }
    }
  }

  int run() {
    checkTable();
    options.table = table;
    setBanks();
    setKeys();
    if (requests) options.requests = requests;
    if (fillTarget > 0) options.fillTarget = fillTarget;
    options.progress = !noProgress;

    // The files are opened before the run, so that a bad path fails at once, and written
    // whole after it.
    std::optional<OutputFile> json, svg;
    if (!jsonPath.empty()) json.emplace(jsonPath);
    if (!svgPath.empty()) svg.emplace(svgPath);
    const SimulationResult result = simulate(options);
    writeTextReport(options, result, std::cout);
    if (json) {
      std::ostringstream text;
      writeJsonReport(options, result, text);
      json->commit(text.str());
    }
    if (svg) {
      std::ostringstream text;
      writeSvgReport(options, result, text);
      svg->commit(text.str());
    }
    return 0;
  }
};

// mht sweep: the grid it runs, as the command line gives it.
struct SweepCommand {
  std::vector<std::string> tables;
  std::string steps, searches, seeds;
  std::string mix = "70/20/10";
  U64 churn = 5000;
  unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
  std::string jsonPath, svgPath;
  bool noProgress = false;
  CLI::App* command = nullptr;

  void addTo(CLI::App& app) {
    command = app.add_subcommand(
        "sweep", "simulate a grid of tables, move budgets, searches and seeds on every core, and compare the fills");
    command->add_option("--table", tables,
                        "<single|multi>[:<banks>x<buckets>x<slots>] (repeatable or comma-separated; shape default "
                        "4x4096x4); default: single:4x4096x4, single:2x4096x4, multi:4x4096x4");
    command->add_option("--steps", steps,
                        "move budgets for every table, e.g. 0-8 or 1,2,3,8 (default: 0-8 single-width, 3-5 "
                        "multi-width)");
    command->add_option("--search", searches, "move searches, depth-first,breadth-first (default: both)");
    command->add_option("--seeds", seeds, "key source seeds, e.g. 1-5 or 1,7 (default: 1-3)");
    command->add_option("--churn", churn, "delete-and-add pairs after each fill")
        ->check(wholeNumber<U64>())
        ->capture_default_str();
    command->add_option("--mix", mix, "width mix single/double/quad (multi-width)")->capture_default_str();
    command->add_option("--jobs", jobs, "simulations run at once (default: the number of cores)")
        ->check(CLI::Range(1u, 1024u));
    command->add_option("--json", jsonPath, "also write the results as JSON to this file");
    command->add_option("--svg", svgPath, "also write a chart of fill against move budget to this file");
    command->add_flag("--no-progress", noProgress, "no progress bar");
  }

  SweepGrid grid() const {
    SweepGrid g = defaultSweepGrid();
    const auto parsed = [](const char* option, auto parse) {
      try {
        return parse();
      } catch (const std::invalid_argument& e) {
        throw CLI::ValidationError(option, e.what());
      }
    };
    if (!tables.empty()) {
      g.tables.clear();
      for (const std::string& list : tables) {
        std::stringstream in(list);
        for (std::string item; std::getline(in, item, ',');) {
          g.tables.push_back(parsed("--table", [&] { return parseSweepTable(item); }));
        }
      }
    }
    if (!steps.empty()) {
      const std::vector<U64> budgets = parsed("--steps", [&] { return parseNumberList(steps, 0, 16); });
      for (SweepTable& t : g.tables) t.steps.assign(budgets.begin(), budgets.end());
    }
    if (!searches.empty()) g.searches = parsed("--search", [&] { return parseSearches(searches); });
    if (!seeds.empty()) g.seeds = parsed("--seeds", [&] { return parseNumberList(seeds, 0, 0xFFFFFFFF); });
    g.churn = churn;
    g.mix = parseMix(mix);
    return g;
  }

  int run() {
    const SweepGrid g = grid();
    std::optional<OutputFile> json, svg;
    if (!jsonPath.empty()) json.emplace(jsonPath);
    if (!svgPath.empty()) svg.emplace(svgPath);
    SweepResult result;
    try {
      result = runSweep(g, jobs, !noProgress);
    } catch (const ConfigurationRefused& e) {
      throw CLI::ValidationError("--table", e.what());
    }
    writeSweepText(g, result, std::cout);
    if (json) {
      std::ostringstream text;
      writeSweepJson(g, result, text);
      json->commit(text.str());
    }
    if (svg) {
      std::ostringstream text;
      writeSweepSvg(g, result, text);
      svg->commit(text.str());
    }
    return 0;
  }
};

// mht replay FILE.
struct ReplayCommand {
  std::string path;
  ReplayOptions options;
  U32 traceMask = 0;
  CLI::Option* traceOption = nullptr;
  CLI::App* command = nullptr;

  void addTo(CLI::App& app) {
    command = app.add_subcommand("replay", "replay requests from a file and print the outcome");
    command->add_option("file", path, "request file ('-' for standard input)")->required();
    command->add_flag(
        "--explain", options.explain,
        "show the candidates of every key left without a place, and the request check of every request reported");
    command->add_flag("--audit", options.audit, "check the table's consistency after every request");
    command->add_flag("--strict", options.strict, "make a hazardous request an error, not a warning");
    command->add_option("--snapshot", options.snapshot,
                        "write the requests and results at the end to FILE, for a later script's 'restore FILE'");
    traceOption = command->add_option("--trace", traceMask, "trace level mask (lines go to standard error)");
  }

  int run() {
    if (*traceOption) options.traceMask = traceMask;
    if (path == "-") return runReplay(std::cin, "<stdin>", options, std::cout, std::cerr);
    std::ifstream in(path);
    if (!in) {
      std::cerr << "mht replay: cannot open " << path << '\n';
      return 1;
    }
    return runReplay(in, path, options, std::cout, std::cerr);
  }
};

// mht shell [FILE].
struct ShellCommand {
  std::string path;
  CLI::App* command = nullptr;

  void addTo(CLI::App& app) {
    command = app.add_subcommand("shell", "explore the library through its type registry");
    command->add_option("file", path, "command file (default: standard input)");
  }

  int run() {
    if (path.empty()) {
      if (isatty(0)) return runInteractiveShell(std::cout, std::cerr);
      return runShell(std::cin, "<stdin>", false, std::cout, std::cerr);
    }
    std::ifstream in(path);
    if (!in) {
      std::cerr << "mht shell: cannot open " << path << '\n';
      return 1;
    }
    return runShell(in, path, false, std::cout, std::cerr);
  }
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"mht: simulate, sweep, replay and explore the hash-table placement library"};
  app.require_subcommand(1);
  app.set_version_flag(
      "--version",
      std::string("mht ") + libraryVersion + "\nlibrary MultiHashTable " + libraryVersion + "\ncommit " + sourceCommit,
      "print the version of the tool and its library and the commit it was built from");
  SimulateCommand simulateCommand;
  SweepCommand sweepCommand;
  ReplayCommand replayCommand;
  ShellCommand shellCommand;
  simulateCommand.addTo(app);
  sweepCommand.addTo(app);
  replayCommand.addTo(app);
  shellCommand.addTo(app);

  CLI11_PARSE(app, argc, argv);

  try {
    if (simulateCommand.command->parsed()) return simulateCommand.run();
    if (sweepCommand.command->parsed()) return sweepCommand.run();
    if (replayCommand.command->parsed()) return replayCommand.run();
    if (shellCommand.command->parsed()) return shellCommand.run();
  } catch (const CLI::Error& e) {
    return app.exit(e);
  } catch (const std::exception& e) {
    std::cerr << "mht: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
