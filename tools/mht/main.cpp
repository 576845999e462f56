// mht: simulate, sweep, replay and explore the hash-table placement library.
#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <sstream>
#include <thread>

#include "EnumNames.h"
#include "FileArguments.h"
#include "LineParser.h"
#include "Replay.h"
#include "Report.h"
#include "Shell.h"
#include "Simulation.h"
#include "Sweep.h"
#include "Version.h"

namespace {

using namespace mht;
using namespace TesselCentral;

// An unsigned option's text: a whole number within low..high, decimal or 0x-hex as the
// replay files write numbers, so that a negative or an overflowing value is refused by the
// option's name rather than wrapped or saturated. The text is handed on in decimal, so that
// the parser's own reading (which takes a leading 0 for octal) never sees it.
template <class Unsigned>
CLI::Validator wholeNumber(Unsigned low = 0, Unsigned high = std::numeric_limits<Unsigned>::max()) {
  return CLI::Validator(
      [low, high](std::string& text) -> std::string {
        const std::string refusal =
            "'" + text + "' is not a whole number in " + std::to_string(low) + ".." + std::to_string(high);
        try {
          const U64 value = Fwk::parseUnsigned(text, "", high);
          if (value < low) return refusal;
          text = std::to_string(value);
          return {};
        } catch (const Fwk::Exception&) {
          return refusal;
        }
      },
      // The help shows a range narrower than the type's beside the type: "UINT:0..16".
      low == 0 && high == std::numeric_limits<Unsigned>::max() ? ""
                                                               : std::to_string(low) + ".." + std::to_string(high));
}

// A fraction above 0 and at most 1 (a share of the table's capacity).
CLI::Validator fraction() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        double value = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (text.empty() || error != std::errc() || stop != end || !std::isfinite(value) || value <= 0 || value > 1) {
          return "'" + text + "' is not a number above 0 and at most 1";
        }
        return {};
      },
      "");
}

// One of a few names; a refusal lists them all.
CLI::Validator oneOf(const std::string& what, std::vector<std::string> names) {
  std::string list, choices;
  for (const std::string& n : names) {
    list += (list.empty() ? "" : ", ") + n;
    choices += (choices.empty() ? "" : ",") + n;
  }
  return CLI::Validator(
      [what, names, list](std::string& text) -> std::string {
        if (std::find(names.begin(), names.end(), text) != names.end()) return {};
        return "'" + text + "' is not " + what + " (" + list + ")";
      },
      "{" + choices + "}");
}

// A move search as the library spells it, or as prose does (depth-first).
CLI::Validator moveSearchName() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        try {
          Fwk::sequenceToValue<MoveSearch>(text);
          return {};
        } catch (const Fwk::RangeError&) {
          return notANameText<MoveSearch>(text);
        }
      },
      "");
}

// Two options that cannot go together, or one that the others make meaningless.
CLI::ExcludesError conflict(const std::string& text) { return CLI::ExcludesError(text, CLI::ExitCodes::ExcludesError); }

// Two output options naming one file: the second would overwrite the first.
void requireDistinctFiles(const std::string& jsonPath, const std::string& svgPath) {
  if (jsonPath.empty() || svgPath.empty()) return;
  std::error_code error;
  const auto json = std::filesystem::weakly_canonical(std::filesystem::absolute(jsonPath, error), error);
  const auto svg = std::filesystem::weakly_canonical(std::filesystem::absolute(svgPath, error), error);
  if (jsonPath == svgPath || (!error && json == svg)) {
    throw conflict("--json and --svg name the same file " + svgPath);
  }
}

struct BankOverride {
  U32 bank;
  HashFunc hashFunc;
  U32 hashOffSet;
  U32 hashBits;
  U32 hashMask;
};

// "<bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask>", its fields read and refused as a
// replay file's bank line reads them.
BankOverride parseBankOverride(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ':');) parts.push_back(part);
  if (parts.size() != 5 || text.back() == ':') {
    throw CLI::ValidationError("--bank-hash",
                               "'" + text + "' is not <bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask>");
  }
  try {
    LineParser fields(parts);
    BankOverride o{};
    o.bank = fields.u32("bank");
    o.hashFunc = fields.name<HashFunc>("hashFunc");
    o.hashOffSet = fields.u32("hashOffSet");
    o.hashBits = fields.u32("hashBits");
    o.hashMask = fields.u32("hashMask");
    return o;
  } catch (const LineError& e) {
    throw CLI::ValidationError("--bank-hash", "'" + text + "': " + e.what());
  }
}

WidthMix parseMix(const std::string& text) {
  double s = 0, d = 0, q = 0;
  char slash1 = 0, slash2 = 0;
  std::istringstream in(text);
  if (!(in >> s >> slash1 >> d >> slash2 >> q) || slash1 != '/' || slash2 != '/' || !in.eof() || s < 0 || d < 0 ||
      q < 0 || s + d + q <= 0) {
    throw CLI::ValidationError("--mix",
                               "'" + text + "' is not <single>/<double>/<quad> with non-negative weights, not all 0");
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
    sim.add_option("--table", kind, "table kind")
        ->check(oneOf("a table kind", {"single", "multi"}))
        ->capture_default_str();
    // The simulations' own bounds on the shape are checked with the other options
    // (checkTable); what a table of that shape can serve, by the library on the built table.
    sim.add_option("--banks", table.numBanks, "banks (at most 256)")
        ->transform(wholeNumber<U32>())
        ->capture_default_str();
    sim.add_option("--buckets", table.numBuckets, "buckets per bank (a power of two up to 1048576)")
        ->transform(wholeNumber<U32>())
        ->capture_default_str();
    sim.add_option("--slots", table.numBucketEntries, "slots per bucket (at most 16)")
        ->transform(wholeNumber<U32>())
        ->capture_default_str();
    sim.add_option("--steps", table.maxRecursiveSteps,
                   "maxRecursiveSteps, the chain depth: how many displacements deep one placement's chain may go; "
                   "depth-first up to 5 single-width / 4 multi-width (3 in two-bucket mode) keep every placement "
                   "under 1 ms on a 2-core machine, breadth-first every budget measured (8 / 6: its work is "
                   "bounded, multi-width near 1 ms at its bound); see docs/capacity.md")
        ->transform(wholeNumber<U32>(0, 16))
        ->capture_default_str();
    sim.add_option("--move-search", moveSearch,
                   "how room is made: the depth-first search or the shortest moves (depth-first or depthFirst, "
                   "breadth-first or breadthFirst)")
        ->check(moveSearchName())
        ->capture_default_str();
    sim.add_flag("--bucket-span-banks", table.bucketSpanBanks, "single-width: number ids bucket-major");
    sim.add_flag("--double-entry-two-bucket-mode", twoBucketMode, "multi-width: wide entries use bucket groups");
    sim.add_option("--bank-hash", bankHashes,
                   "per-bank hashing <bank>:<hashFunc>:<hashOffSet>:<hashBits>:<hashMask> (repeatable, once per "
                   "bank); by default bank i takes the i-th run of log2(buckets) bits of crc16:crc32 "
                   "(hashCrc32And16)");
    sim.add_option("--mix", mix, "width mix single/double/quad (multi-width)")->capture_default_str();
    sim.add_option("--keys", source, "key source")
        ->check(oneOf("a key source", {"random", "mac", "ipv4"}))
        ->capture_default_str();
    sim.add_option("--prefix", prefixes, "IPv4 prefixes for --keys ipv4 (a.b.c.d/len, repeatable; default 10.0.0.0/8)");
    CLI::Option* requestCount =
        sim.add_option("--requests", requests, "fill-phase requests (default: until the first key finds no room)")
            ->transform(wholeNumber<U64>(1));
    sim.add_option("--fill-target", fillTarget, "stop filling at this fraction of the capacity (above 0, at most 1)")
        ->check(fraction())
        ->excludes(requestCount);
    sim.add_option("--churn", options.churn, "delete-and-add pairs after filling")
        ->transform(wholeNumber<U64>())
        ->capture_default_str();
    sim.add_option("--seed", options.seed, "seed of the key source")
        ->transform(wholeNumber<U64>())
        ->capture_default_str();
    sim.add_option("--json", jsonPath, "also write the report as JSON to this file");
    sim.add_option("--svg", svgPath, "also write a picture of the table to this file");
    sim.add_flag("--no-progress", noProgress, "no progress bar");
  }

  bool given(const char* option) const { return command->count(option) > 0; }

  // Options that another option makes meaningless are refused rather than ignored.
  void checkConflicts() const {
    if (kind == "single" && given("--double-entry-two-bucket-mode")) {
      throw conflict("--double-entry-two-bucket-mode applies to --table multi only, not to --table single");
    }
    if (kind == "multi" && given("--bucket-span-banks")) {
      throw conflict("--bucket-span-banks applies to --table single only, not to --table multi");
    }
    if (kind == "single" && given("--mix")) {
      throw conflict("--mix applies to --table multi only: every key of --table single is single-wide");
    }
    if (source != "ipv4" && given("--prefix")) {
      throw conflict("--prefix applies to --keys ipv4 only, not to --keys " + source +
                     (given("--keys") ? "" : " (the default)"));
    }
    requireDistinctFiles(jsonPath, svgPath);
  }

  // The table's shape, checked against what the simulation takes; the library judges the
  // built table before the first request.
  void checkTable() {
    table.kind = kind == "single" ? TableKind::single : TableKind::multi;
    table.moveSearch = Fwk::sequenceToValue<MoveSearch>(moveSearch);
    if (const auto problem = simulationShapeProblem(table)) {
      throw CLI::ValidationError(optionOf(problem->figure), problem->text);
    }
  }

  // The default banks, with the hashing that --bank-hash gives some of them. Whether a bank
  // so hashed can serve its keys is the library's to say, on the built table.
  void setBanks() {
    options.banks = defaultBanks(table, twoBucketMode);
    std::vector<bool> overridden(table.numBanks, false);
    for (const std::string& text : bankHashes) {
      const BankOverride o = parseBankOverride(text);
      if (o.bank >= table.numBanks) {
        throw CLI::ValidationError("--bank-hash", "bank " + std::to_string(o.bank) + " does not exist (banks 0.." +
                                                      std::to_string(table.numBanks - 1) + ")");
      }
      if (overridden[o.bank]) {
        throw CLI::ValidationError("--bank-hash", "bank " + std::to_string(o.bank) + " is given twice");
      }
      overridden[o.bank] = true;
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
    checkConflicts();
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
        "sweep", "simulate a grid of tables, chain depths, searches and seeds on every core, and compare the fills");
    command->add_option("--table", tables,
                        "<single|multi>[:<banks>x<buckets>x<slots>] (repeatable or comma-separated; shape default "
                        "4x4096x4); default: single:4x4096x4, single:2x4096x4, multi:4x4096x4");
    command->add_option(
        "--steps", steps,
        "chain depths (maxRecursiveSteps) for every table, e.g. 0-8 or 1,2,3,8, each in 0..16 "
        "(default: 0-8 single-width, 3-5 multi-width); depth-first up to 5 single-width / 4 multi-width "
        "keep every placement under 1 ms on a 2-core machine, breadth-first every budget measured (8 / 6, "
        "multi-width near 1 ms at its bound) (docs/capacity.md)");
    command->add_option("--move-search", searches,
                        "move searches, comma-separated: depth-first (or depthFirst), breadth-first (or "
                        "breadthFirst) (default: both)");
    // The option's earlier name, still taken but no longer shown.
    command->add_option("--search", searches)->group("");
    command->add_option("--seeds", seeds, "key source seeds, e.g. 1-5 or 1,7, each in 0..4294967295 (default: 1-3)");
    command->add_option("--churn", churn, "delete-and-add pairs after each fill")
        ->transform(wholeNumber<U64>())
        ->capture_default_str();
    command->add_option("--mix", mix, "width mix single/double/quad (multi-width)")->capture_default_str();
    command->add_option("--jobs", jobs, "simulations run at once, 1..1024 (default: the number of cores)")
        ->transform(wholeNumber<unsigned>(1, 1024));
    command->add_option("--json", jsonPath, "also write the results as JSON to this file");
    command->add_option("--svg", svgPath, "also write a chart of fill against chain depth to this file");
    command->add_flag("--no-progress", noProgress, "no progress bar");
  }

  bool given(const char* option) const { return command->count(option) > 0; }

  // The option that gave the move searches, by the name the user typed.
  const char* searchOption() const { return given("--search") ? "--search" : "--move-search"; }

  SweepGrid grid() const {
    SweepGrid g = defaultSweepGrid();
    const auto parsed = [](const char* option, auto parse) {
      try {
        return parse();
      } catch (const std::invalid_argument& e) {
        throw CLI::ValidationError(option, e.what());
      }
    };
    // An option given an empty list is refused, not taken for its default.
    const auto requireItems = [](const char* option, const std::string& list) {
      if (list.empty()) throw CLI::ValidationError(option, "an empty list");
    };
    if (given("--table")) {
      g.tables.clear();
      for (const std::string& list : tables) {
        requireItems("--table", list);
        for (const std::string& item : parsed("--table", [&] { return splitList(list); })) {
          g.tables.push_back(parsed("--table", [&] { return parseSweepTable(item); }));
        }
      }
    }
    if (given("--steps")) {
      requireItems("--steps", steps);
      const std::vector<U64> depths = parsed("--steps", [&] { return parseNumberList(steps, 0, 16); });
      for (SweepTable& t : g.tables) t.steps.assign(depths.begin(), depths.end());
    }
    if (given("--move-search") && given("--search")) {
      throw conflict("--search is the earlier name of --move-search: give one of them");
    }
    if (given("--move-search") || given("--search")) {
      requireItems(searchOption(), searches);
      g.searches = parsed(searchOption(), [&] { return parseSearches(searches); });
    }
    if (given("--seeds")) {
      requireItems("--seeds", seeds);
      g.seeds = parsed("--seeds", [&] { return parseNumberList(seeds, 0, 0xFFFFFFFF); });
    }
    if (given("--mix") && std::none_of(g.tables.begin(), g.tables.end(),
                                       [](const SweepTable& t) { return t.kind == TableKind::multi; })) {
      throw conflict("--mix applies to multi-width tables only, and --table names none");
    }
    g.churn = churn;
    g.mix = parseMix(mix);
    return g;
  }

  int run() {
    const SweepGrid g = grid();
    requireDistinctFiles(jsonPath, svgPath);
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
    traceOption = command->add_option("--trace", traceMask, "trace level mask (lines go to standard error)")
                      ->transform(wholeNumber<U32>());
  }

  int run() {
    if (*traceOption) options.traceMask = traceMask;
    if (path == "-") return runReplay(std::cin, "<stdin>", options, std::cout, std::cerr);
    std::ifstream in = openTextFile(path);
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
    std::ifstream in = openTextFile(path);
    return runShell(in, path, false, std::cout, std::cerr);
  }
};

// What the exit code says, for --help and the man page (whose EXIT STATUS section is
// made from these lines).
const char* const exitStatus = R"(Exit status:
  0    success
  1    the run failed: a replay or shell script stopped at a bad line, the library refused
       the table, or a simulation could not go on
  103  a file named on the command line cannot be read or written
  104  an option's value cannot be converted to its type
  105  an option's value is refused (out of its range, not one of its names, malformed)
  106  a required subcommand or argument is missing
  108  options that exclude each other, or one that another makes meaningless
  109  an option or argument that the command does not take
  114  an option given without its value, or with too many
)";

const std::vector<std::string> subcommandNames{"simulate", "sweep", "replay", "shell"};

// The first argument that no option or subcommand took: named, rather than reported as a
// missing subcommand or an argument "not expected".
std::optional<CLI::ExtrasError> unknownArgument(const CLI::App& app) {
  const CLI::App* where = &app;
  std::vector<std::string> left = app.remaining();
  for (const CLI::App* sub : app.get_subcommands()) {
    if (!sub->remaining().empty()) {
      where = sub;
      left = sub->remaining();
    }
  }
  if (left.empty()) return std::nullopt;
  std::string command = "mht";
  if (where != &app) command += " " + where->get_name();
  std::string subcommands;
  for (const std::string& name : subcommandNames) subcommands += (subcommands.empty() ? "" : ", ") + name;
  const std::string& argument = left.front();
  std::string text;
  if (argument.size() > 1 && argument[0] == '-') {
    text = argument.substr(0, argument.find('=')) + " is not an option of " + command;
    if (where == &app) text += " (its subcommands: " + subcommands + ")";
  } else if (where == &app) {
    text = "'" + argument + "' is not a subcommand of mht (" + subcommands + ")";
  } else {
    text = "'" + argument + "' is not an argument of " + command;
  }
  return CLI::ExtrasError(text, CLI::ExitCodes::ExtrasError);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"mht: simulate, sweep, replay and explore the hash-table placement library"};
  app.require_subcommand(1);
  // Arguments that nothing takes are gathered and named by unknownArgument.
  app.allow_extras();
  app.footer(exitStatus);
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

  try {
    app.parse(argc, argv);
    if (auto unknown = unknownArgument(app)) throw *unknown;
  } catch (const CLI::ParseError& e) {
    const bool asked = e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
    if (auto unknown = unknownArgument(app); unknown && !asked) return app.exit(*unknown);
    return app.exit(e);
  }

  try {
    if (simulateCommand.command->parsed()) return simulateCommand.run();
    if (sweepCommand.command->parsed()) return sweepCommand.run();
    if (replayCommand.command->parsed()) return replayCommand.run();
    if (shellCommand.command->parsed()) return shellCommand.run();
  } catch (const CLI::Error& e) {
    return app.exit(e);
  } catch (const FileError& e) {
    // A file's trouble is the file's, not the command line's: no pointer to --help.
    std::cerr << "mht: " << e.what() << '\n';
    return static_cast<int>(CLI::ExitCodes::FileError);
  } catch (const std::exception& e) {
    std::cerr << "mht: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
