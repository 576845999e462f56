// mht's command line as a user meets it: every refusal names the option and what it takes,
// with the exit code that --help documents. Each test runs the built tool.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "FileArguments.h"

namespace mht {
namespace {

namespace fs = std::filesystem;

struct Result {
  int exitCode = -1;
  std::string out, err;
};

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A directory of its own for each test's files, removed after it.
class CommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("mht_command_line_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::permissions(dir_ / "unreadable.replay", fs::perms::owner_all, ignored);
    fs::remove_all(dir_, ignored);
  }

  fs::path path(const std::string& name) const { return dir_ / name; }

  void write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
  }

  // Runs mht with the arguments in the test's directory, its outputs captured.
  Result mht(const std::vector<std::string>& args) const {
    const fs::path out = dir_ / ".stdout", err = dir_ / ".stderr";
    const pid_t child = ::fork();
    if (child == 0) {
      if (::chdir(dir_.c_str()) != 0) ::_exit(126);
      const int outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int errFd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int inFd = ::open("/dev/null", O_RDONLY);
      if (outFd < 0 || errFd < 0 || inFd < 0) ::_exit(126);
      ::dup2(inFd, 0);
      ::dup2(outFd, 1);
      ::dup2(errFd, 2);
      std::vector<char*> argv{const_cast<char*>(MHT_EXECUTABLE)};
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(MHT_EXECUTABLE, argv.data());
      ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    Result r;
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = contentOf(out);
    r.err = contentOf(err);
    return r;
  }

  // A refusal of the command line: the exit code, the message, CLI11's pointer to --help,
  // and nothing on standard output.
  void expectRefused(const std::vector<std::string>& args, int exitCode, const std::string& message) const {
    const Result r = mht(args);
    std::string line;
    for (const std::string& a : args) line += " " + a;
    EXPECT_EQ(r.exitCode, exitCode) << "mht" << line << "\n" << r.err;
    EXPECT_EQ(r.err, message + "\nRun with --help for more information.\n") << "mht" << line;
    EXPECT_EQ(r.out, "") << "mht" << line;
  }

  // A file that cannot be used: exit code 103, the message alone.
  void expectFileRefused(const std::vector<std::string>& args, const std::string& message) const {
    const Result r = mht(args);
    EXPECT_EQ(r.exitCode, 103) << r.err;
    EXPECT_EQ(r.err, message + "\n");
    EXPECT_EQ(r.out, "");
  }

 private:
  fs::path dir_;
};

constexpr int conversionError = 104, validationError = 105, requiredError = 106, excludesError = 108, extrasError = 109;

// A small table, so that a run that gets past its options is over at once.
const std::vector<std::string> small{"simulate", "--buckets", "64", "--churn", "0", "--no-progress"};

std::vector<std::string> with(std::vector<std::string> args, const std::vector<std::string>& more) {
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

// Numbers, each held to its range by the option's name.

TEST_F(CommandLine, AChainDepthOutsideItsRangeIsRefused) {
  expectRefused({"simulate", "--steps", "17"}, validationError, "--steps: '17' is not a whole number in 0..16");
  expectRefused({"simulate", "--steps", "-1"}, validationError, "--steps: '-1' is not a whole number in 0..16");
  expectRefused({"simulate", "--steps", "three"}, validationError, "--steps: 'three' is not a whole number in 0..16");
}

TEST_F(CommandLine, ANegativeShapeIsRefused) {
  expectRefused({"simulate", "--banks", "-2"}, validationError, "--banks: '-2' is not a whole number in 0..4294967295");
  expectRefused({"simulate", "--slots", "99999999999"}, validationError,
                "--slots: '99999999999' is not a whole number in 0..4294967295");
}

TEST_F(CommandLine, AFillTargetIsAFractionAboveZero) {
  expectRefused({"simulate", "--fill-target", "0"}, validationError,
                "--fill-target: '0' is not a number above 0 and at most 1");
  expectRefused({"simulate", "--fill-target", "1.5"}, validationError,
                "--fill-target: '1.5' is not a number above 0 and at most 1");
  expectRefused({"simulate", "--fill-target", "half"}, validationError,
                "--fill-target: 'half' is not a number above 0 and at most 1");
  expectRefused({"simulate", "--fill-target", "nan"}, validationError,
                "--fill-target: 'nan' is not a number above 0 and at most 1");
}

TEST_F(CommandLine, ZeroRequestsIsRefusedRatherThanTakenForTheDefault) {
  expectRefused({"simulate", "--requests", "0"}, validationError,
                "--requests: '0' is not a whole number in 1..18446744073709551615");
}

TEST_F(CommandLine, AMixOfZeroWeightsIsRefused) {
  expectRefused({"simulate", "--mix", "0/0/0"}, validationError,
                "--mix: '0/0/0' is not <single>/<double>/<quad> with non-negative weights, not all 0");
}

TEST_F(CommandLine, SweepListsAndJobsAreHeldToTheirRanges) {
  expectRefused({"sweep", "--jobs", "0"}, validationError, "--jobs: '0' is not a whole number in 1..1024");
  expectRefused({"sweep", "--jobs", "-4"}, validationError, "--jobs: '-4' is not a whole number in 1..1024");
  expectRefused({"sweep", "--seeds", "-1"}, validationError,
                "--seeds: '-1': '-1' is not a number in 0..4294967295 or a range <first>-<last> of them");
  expectRefused({"sweep", "--seeds", "99999999999"}, validationError,
                "--seeds: '99999999999': 99999999999 is not in 0..4294967295");
  expectRefused({"sweep", "--steps", "two"}, validationError,
                "--steps: 'two': 'two' is not a number in 0..16 or a range <first>-<last> of them");
}

TEST_F(CommandLine, ATraceMaskIsAnUnsignedNumber) {
  expectRefused({"replay", "--trace", "-1", "x.replay"}, validationError,
                "--trace: '-1' is not a whole number in 0..4294967295");
}

// A number is read in decimal or 0x-hex, never in octal.
TEST_F(CommandLine, ANumberWithALeadingZeroIsDecimal) {
  const Result r = mht(with(small, {"--seed", "010", "--json", "r.json"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(contentOf(path("r.json")).find("\"seed\": 10,"), std::string::npos);
  const Result hex = mht(with(small, {"--seed", "0x10", "--json", "h.json"}));
  ASSERT_EQ(hex.exitCode, 0) << hex.err;
  EXPECT_NE(contentOf(path("h.json")).find("\"seed\": 16,"), std::string::npos);
}

// Options that contradict each other, or one that another makes meaningless.

TEST_F(CommandLine, APrefixIsRefusedForKeysWithoutAddresses) {
  expectRefused({"simulate", "--keys", "mac", "--prefix", "10.0.0.0/8"}, excludesError,
                "--prefix applies to --keys ipv4 only, not to --keys mac");
  expectRefused({"simulate", "--prefix", "10.0.0.0/8"}, excludesError,
                "--prefix applies to --keys ipv4 only, not to --keys random (the default)");
}

TEST_F(CommandLine, OptionsOfTheOtherTableKindAreRefused) {
  expectRefused({"simulate", "--table", "single", "--double-entry-two-bucket-mode"}, excludesError,
                "--double-entry-two-bucket-mode applies to --table multi only, not to --table single");
  expectRefused({"simulate", "--bucket-span-banks"}, excludesError,
                "--bucket-span-banks applies to --table single only, not to --table multi");
  expectRefused({"simulate", "--table", "single", "--mix", "1/1/1"}, excludesError,
                "--mix applies to --table multi only: every key of --table single is single-wide");
  expectRefused({"sweep", "--table", "single:2x64x4", "--mix", "1/1/1"}, excludesError,
                "--mix applies to multi-width tables only, and --table names none");
}

TEST_F(CommandLine, ABankHashedTwiceIsRefused) {
  expectRefused({"simulate", "--bank-hash", "1:hashCrc32Lower:0:12:4095", "--bank-hash", "1:hashCrc16Lower:0:12:4095"},
                validationError, "--bank-hash: bank 1 is given twice");
  expectRefused({"simulate", "--bank-hash", "4:hashCrc32Lower:0:12:4095"}, validationError,
                "--bank-hash: bank 4 does not exist (banks 0..3)");
}

TEST_F(CommandLine, OneFileForBothReportsIsRefused) {
  expectRefused(with(small, {"--json", "x", "--svg", "./x"}), excludesError, "--json and --svg name the same file ./x");
  expectRefused({"sweep", "--json", "x", "--svg", "x"}, excludesError, "--json and --svg name the same file x");
  EXPECT_FALSE(fs::exists(path("x")));
}

TEST_F(CommandLine, AnEmptyListIsRefusedNotTakenForTheDefault) {
  expectRefused({"sweep", "--seeds", ""}, validationError, "--seeds: an empty list");
  expectRefused({"sweep", "--steps", ""}, validationError, "--steps: an empty list");
  expectRefused({"sweep", "--table", ""}, validationError, "--table: an empty list");
  expectRefused({"sweep", "--move-search", ""}, validationError, "--move-search: an empty list");
  expectRefused({"sweep", "--table", "single,"}, validationError, "--table: 'single,': an empty item");
}

TEST_F(CommandLine, AnOptionGivenTwiceIsRefused) {
  expectRefused({"simulate", "--seed", "1", "--seed", "2"}, 114, "--seed: At Most 1 required but received 2");
}

TEST_F(CommandLine, TheMoveSearchOptionIsGivenByOneOfItsNames) {
  expectRefused({"sweep", "--search", "depth-first", "--move-search", "breadth-first"}, excludesError,
                "--search is the earlier name of --move-search: give one of them");
}

// Arguments that nothing takes.

TEST_F(CommandLine, AnUnknownOptionIsNamedWithTheSubcommands) {
  expectRefused({"--frob"}, extrasError,
                "--frob is not an option of mht (its subcommands: simulate, sweep, replay, shell)");
  expectRefused({"frob"}, extrasError, "'frob' is not a subcommand of mht (simulate, sweep, replay, shell)");
}

TEST_F(CommandLine, AnUnknownOptionOfASubcommandIsNamed) {
  expectRefused({"simulate", "--frob"}, extrasError, "--frob is not an option of mht simulate");
  expectRefused({"sweep", "--frob=3"}, extrasError, "--frob is not an option of mht sweep");
  expectRefused({"replay", "--frob", "x.replay"}, extrasError, "--frob is not an option of mht replay");
  expectRefused({"replay", "a.replay", "b.replay"}, extrasError, "'b.replay' is not an argument of mht replay");
}

TEST_F(CommandLine, AMissingSubcommandIsStillSaidSo) { expectRefused({}, requiredError, "A subcommand is required"); }

// Names, each refusal listing the names taken.

TEST_F(CommandLine, AnUnknownHashFunctionListsTheHashFunctions) {
  expectRefused({"simulate", "--bank-hash", "0:hashFoo:0:12:4095"}, validationError,
                "--bank-hash: '0:hashFoo:0:12:4095': hashFunc: 'hashFoo' is not a TesselCentral::HashFunc name "
                "(hashInvalid, hashCrc32Upper, hashCrc32Lower, hashLsb, hashCrc16Lower, hashCrc16Upper, hashCrc64, "
                "hashCount, hashCrc32And16)");
  expectRefused({"simulate", "--bank-hash", "0:hashCrc32Lower:x:12:4095"}, validationError,
                "--bank-hash: '0:hashCrc32Lower:x:12:4095': hashOffSet: 'x' is not an unsigned number (decimal or "
                "0x-hex)");
}

TEST_F(CommandLine, UnknownKindsListTheKinds) {
  expectRefused({"simulate", "--keys", "frob"}, validationError,
                "--keys: 'frob' is not a key source (random, mac, ipv4)");
  expectRefused({"simulate", "--table", "triple"}, validationError,
                "--table: 'triple' is not a table kind (single, multi)");
  expectRefused({"sweep", "--table", "triple:4x64x4"}, validationError,
                "--table: 'triple:4x64x4': 'triple' is not a table kind (single or multi)");
}

TEST_F(CommandLine, AnUnknownMoveSearchListsEverySpelling) {
  const std::string names =
      " is not a TesselCentral::MoveSearch name (depthFirst, breadthFirst, depth-first, "
      "breadth-first)";
  expectRefused({"simulate", "--move-search", "sideways"}, validationError, "--move-search: 'sideways'" + names);
  expectRefused({"sweep", "--move-search", "depth-first,sideways"}, validationError,
                "--move-search: 'depth-first,sideways': 'sideways'" + names);
  expectRefused({"sweep", "--search", "sideways"}, validationError, "--search: 'sideways': 'sideways'" + names);
}

// The move search's spellings, the same in both commands.

TEST_F(CommandLine, SimulateTakesBothSpellingsOfAMoveSearch) {
  for (const std::string search : {"breadth-first", "breadthFirst"}) {
    const Result r = mht(with(small, {"--move-search", search}));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("maxRecursiveSteps 3, breadth-first moves\n"), std::string::npos) << r.out;
  }
}

TEST_F(CommandLine, SweepTakesMoveSearchAndItsEarlierName) {
  const std::vector<std::string> tiny{"sweep",   "--table", "single:2x16x2", "--steps", "1",
                                      "--seeds", "1",       "--churn",       "0",       "--no-progress"};
  ASSERT_EQ(mht(with(tiny, {"--move-search", "depthFirst,breadth-first", "--json", "both.json"})).exitCode, 0);
  EXPECT_NE(contentOf(path("both.json")).find("\"searches\": [\n      \"depthFirst\",\n      \"breadthFirst\"\n    ]"),
            std::string::npos)
      << contentOf(path("both.json"));
  ASSERT_EQ(mht(with(tiny, {"--search", "breadthFirst", "--json", "old.json"})).exitCode, 0);
  EXPECT_NE(contentOf(path("old.json")).find("\"searches\": [\n      \"breadthFirst\"\n    ]"), std::string::npos);
}

TEST_F(CommandLine, SweepHelpShowsTheMoveSearchOptionByItsOneName) {
  const Result r = mht({"sweep", "--help"});
  EXPECT_NE(r.out.find("\n  --move-search TEXT"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("--search"), std::string::npos) << r.out;
}

// Files, named by the user's path and the system's reason, before any work.

TEST_F(CommandLine, AnOutputInAMissingDirectoryIsRefusedBeforeTheRun) {
  expectFileRefused(with(small, {"--json", "/nonexistent/dir/x.json"}),
                    "mht: cannot write /nonexistent/dir/x.json: No such file or directory");
  expectFileRefused(with(small, {"--svg", "missing/x.svg"}),
                    "mht: cannot write missing/x.svg: No such file or directory");
  expectFileRefused({"sweep", "--json", "missing/x.json"},
                    "mht: cannot write missing/x.json: No such file or directory");
  expectFileRefused({"sweep", "--svg", "missing/x.svg"}, "mht: cannot write missing/x.svg: No such file or directory");
}

TEST_F(CommandLine, AnOutputThatIsADirectoryIsRefused) {
  fs::create_directory(path("out"));
  expectFileRefused(with(small, {"--json", "out"}), "mht: cannot write out: Is a directory");
}

TEST_F(CommandLine, AReplayOfADirectoryIsRefused) {
  fs::create_directory(path("docs"));
  expectFileRefused({"replay", "docs"}, "mht: cannot read docs: Is a directory");
  expectFileRefused({"shell", "docs"}, "mht: cannot read docs: Is a directory");
}

TEST_F(CommandLine, AMissingInputIsRefusedWithTheSystemsReason) {
  expectFileRefused({"replay", "none.replay"}, "mht: cannot read none.replay: No such file or directory");
  expectFileRefused({"shell", "none.mht"}, "mht: cannot read none.mht: No such file or directory");
}

TEST_F(CommandLine, AnUnreadableInputIsRefusedWithTheSystemsReason) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads any file";
  write("unreadable.replay", "table single 1 4 1 0 false\n");
  fs::permissions(path("unreadable.replay"), fs::perms::none);
  expectFileRefused({"replay", "unreadable.replay"}, "mht: cannot read unreadable.replay: Permission denied");
}

TEST_F(CommandLine, ABinaryInputIsRefusedWithoutItsBytes) {
  write("nul.replay", std::string("table single\0\x01\x02 1 4", 17));
  write("latin1.replay", "# caf\xe9\ntable single 1 4 1 0 false\n");
  const std::string why = ": not a text file (a NUL byte or a byte that is not UTF-8 in its first 4096 bytes)";
  expectFileRefused({"replay", "nul.replay"}, "mht: cannot read nul.replay" + why);
  expectFileRefused({"replay", "latin1.replay"}, "mht: cannot read latin1.replay" + why);
  expectFileRefused({"shell", "nul.replay"}, "mht: cannot read nul.replay" + why);
}

TEST(TextCheck, NulBytesAndBrokenUtf8AreNotText) {
  EXPECT_TRUE(looksLikeText("set 1 2 0 singleWide any\n# caf\xc3\xa9\n"));
  EXPECT_TRUE(looksLikeText(""));
  EXPECT_TRUE(looksLikeText("ends in the middle of \xe2\x82"));  // the block cut a sequence
  EXPECT_FALSE(looksLikeText(std::string_view("a\0b", 3)));
  EXPECT_FALSE(looksLikeText("caf\xe9 au lait"));
  EXPECT_FALSE(looksLikeText("\xc3("));
  EXPECT_FALSE(looksLikeText("\xff\xfe"));
}

// Exit codes, documented where a user looks.

const std::string exitStatus =
    "Exit status:\n"
    "  0    success\n"
    "  1    the run failed: a replay or shell script stopped at a bad line, the library refused\n"
    "       the table, or a simulation could not go on\n"
    "  103  a file named on the command line cannot be read or written\n"
    "  104  an option's value cannot be converted to its type\n"
    "  105  an option's value is refused (out of its range, not one of its names, malformed)\n"
    "  106  a required subcommand or argument is missing\n"
    "  108  options that exclude each other, or one that another makes meaningless\n"
    "  109  an option or argument that the command does not take\n"
    "  114  an option given without its value, or with too many\n";

TEST_F(CommandLine, HelpEndsWithTheExitCodes) {
  const Result r = mht({"--help"});
  EXPECT_EQ(r.exitCode, 0);
  const std::size_t at = r.out.find(exitStatus);
  ASSERT_NE(at, std::string::npos) << r.out;
  EXPECT_EQ(r.out.find_first_not_of('\n', at + exitStatus.size()), std::string::npos) << r.out;
}

TEST_F(CommandLine, TheManPageHasAnExitStatusSection) {
  const std::string page = contentOf(MHT_MAN_PAGE);
  const std::size_t section = page.find(".SH \"EXIT STATUS\"\n");
  ASSERT_NE(section, std::string::npos) << page;
  EXPECT_NE(page.find(".TP\n.B 103\na file named on the command line cannot be read or written\n", section),
            std::string::npos)
      << page.substr(section);
  EXPECT_NE(page.find(".TP\n.B 1\nthe run failed: a replay or shell script stopped at a bad line, the library "
                      "refused\nthe table, or a simulation could not go on\n",
                      section),
            std::string::npos)
      << page.substr(section);
}

// The codes the help names are the codes the tool exits with.
TEST_F(CommandLine, AValueThatCannotBeConvertedExitsWith104) {
  expectRefused({"simulate", "--no-progress=maybe"}, conversionError, "Could not convert: --no-progress = maybe");
}

TEST_F(CommandLine, AnOptionWithoutItsValueExitsWith114) {
  expectRefused({"simulate", "--seed"}, 114, "--seed: 1 required UINT missing");
}

TEST_F(CommandLine, AReplayScriptThatStopsExitsWith1) {
  write("bad.replay", "table single 1 4 1 0 false\nput 1\n");
  const Result r = mht({"replay", "bad.replay"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.err, "bad.replay:2: unknown verb 'put' (table, bank, moveSearch, set, del, resync, reconcile, trace)\n");
}

}  // namespace
}  // namespace mht
