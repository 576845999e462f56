#include "Replay.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <istream>
#include <memory>
#include <ostream>
#include <sstream>
#include <vector>

#include "LineParser.h"
#include "Snapshot.h"
#include "Tables.h"

namespace mht {

using namespace TesselCentral;

namespace {

using TesselCentral::detail::idText;

class Replay {
 public:
  Replay(const ReplayOptions& options, const std::string& fileName, const ScriptPosition& position, std::ostream& err)
      : options_(options), fileName_(fileName), position_(position), err_(err) {}

  void line(LineParser& p) {
    const std::string& verb = p.word("a verb (table, bank, moveSearch, set, del, resync, reconcile, trace)");
    if (verb == "table") return table(p);
    if (verb == "trace") return trace(p);
    if (!session_) throw LineError("'" + verb + "' before the table line: the first line must be 'table'");
    if (verb == "bank") return bank(p);
    if (verb == "moveSearch") return moveSearch(p);
    if (verb == "set")
      set(p);
    else if (verb == "del")
      del(p);
    else if (verb == "resync")
      resync(p);
    else if (verb == "reconcile")
      reconcile(p);
    else if (verb == "restore")
      restore(p);
    else
      throw LineError("unknown verb '" + verb + "' (table, bank, moveSearch, set, del, resync, reconcile, trace)");
    if (options_.audit) audit();
  }

  void finish(std::ostream& out) {
    if (!session_) throw LineError("no table line");
    session_->dump(out);
    if (!options_.snapshot.empty()) writeSnapshotFile();
    if (!options_.explain) return;
    std::vector<HashEntryKey> unplaced;
    for (const auto& [key, id] : session_->status().statusCollection()) {
      if (!id.isValid()) unplaced.push_back(key);
    }
    std::sort(unplaced.begin(), unplaced.end());
    for (const HashEntryKey& key : unplaced) session_->explain(key, out);
  }

 private:
  void table(LineParser& p) {
    if (session_) throw LineError("a second table line: one replay drives one table");
    TableSpec shape;
    const std::string& kind = p.word("table kind (single or multi)");
    if (kind == "single")
      shape.kind = TableKind::single;
    else if (kind == "multi")
      shape.kind = TableKind::multi;
    else
      throw LineError("table kind: '" + kind + "' is neither single nor multi");
    shape.numBanks = p.u32("numBanks");
    shape.numBuckets = p.u32("numBuckets");
    shape.numBucketEntries = p.u32("numBucketEntries");
    shape.maxRecursiveSteps = p.u32("maxRecursiveSteps");
    if (shape.kind == TableKind::single) {
      shape.bucketSpanBanks = p.boolean("bucketSpanBanks");
      p.end("bucketSpanBanks");
    } else {
      p.end("maxRecursiveSteps");
    }
    // Whether the shape can serve its requests is the library's to say, with the banks in:
    // the configuration check at the first request.
    session_ = std::make_unique<TableSession>(shape);
  }

  void bank(LineParser& p) {
    if (requestsStarted_) throw LineError("bank line after the first request: banks come right after the table line");
    const bool multi = session_->shape().kind == TableKind::multi;
    BankSpec b;
    b.baseEntryType = p.name<HashEntryType>("baseEntryType");
    b.bankId = p.u32("bankId");
    b.numBuckets = p.u32("numBuckets");
    b.bucketSize = p.u32("bucketSize");
    b.hashFunc = p.name<HashFunc>("hashFunc");
    b.hashOffSet = p.u32("hashOffSet");
    b.hashBits = p.u32("hashBits");
    b.hashMask = p.u32("hashMask");
    if (multi) {
      b.phyBankId = p.u32("phyBankId");
      b.doubleEntryTwoBucketMode = p.boolean("doubleEntryTwoBucketMode");
      p.end("doubleEntryTwoBucketMode");
      // The multi-width bank's constructor stops on an empty base type: the bank cannot be
      // built for the configuration check to judge it.
      if (b.baseEntryType == HashEntryType::empty) throw LineError("baseEntryType: a bank's base type cannot be empty");
    } else {
      p.end("hashMask");
    }
    try {
      session_->bankIs(b);
    } catch (const Fwk::ReinstantiationError& e) {
      throw LineError(std::string("bank ") + std::to_string(b.bankId) + " exists with other arguments: " + e.what());
    }
  }

  // The table's configuration, judged by the table itself once its banks are in: a table
  // that cannot serve its requests is refused at the first line that would reach it, with
  // every problem named.
  void requireConfiguration() {
    if (requestsStarted_) return;
    requestsStarted_ = true;
    const ConfigurationCheck check = session_->configurationCheck();
    if (!check.passes()) throw LineError(configurationRefusal(check));
  }

  // The table's own verdict on what the line would do. A line that would stop the agent,
  // now or through a later request, is refused before the table sees it; a hazardous one is
  // carried out with a warning (an error under --strict); one that changes nothing is
  // carried out silently.
  void judge(const RequestCheck& verdict, const std::string& what) {
    if (verdict.passes()) return;
    if (verdict.fatal() || options_.strict) {
      std::string text = what + ": " + verdict.problem();
      if (options_.explain) text += "\n  request check: " + verdict.text();
      throw LineError(text);
    }
    err_ << fileName_ << ':' << position_.line() << ": warning: " << what << ": " << verdict.problem() << '\n';
  }

  void set(LineParser& p) {
    requireConfiguration();
    const HashEntryKey key = p.key();
    const EntryId id = p.entryId("id");
    p.end("id");
    judge(session_->table().requestCheck(key, id), "set " + keyFields(key) + " " + idText(id));
    session_->config().configIs(key, id);
  }

  void del(LineParser& p) {
    requireConfiguration();
    const HashEntryKey key = p.key();
    p.end("entryType");
    judge(session_->table().removalCheck(key), "del " + keyFields(key));
    session_->config().configDel(key);
  }

  // The full resync, as the table exposes it.
  void resync(LineParser& p) {
    requireConfiguration();
    p.end("resync");
    judge(session_->table().resyncCheck(), "resync");
    session_->table().handleHashUpdate();
  }

  // Results brought in line with the requests; the keys left as they stand are noted.
  void reconcile(LineParser& p) {
    requireConfiguration();
    p.end("reconcile");
    const ReconcileReport report = session_->table().reconcile();
    for (const KeptRequest& kept : report.kept()) {
      err_ << fileName_ << ':' << position_.line() << ": note: reconcile keeps " << keyFields(kept.key) << " "
           << idText(kept.requested) << ": " << kept.reason << '\n';
    }
    for (const RemovedResult& removed : report.removed()) {
      err_ << fileName_ << ':' << position_.line() << ": note: reconcile removes the result " << idText(removed.id)
           << " of " << keyFields(removed.key) << ": its request is gone\n";
    }
    for (const ReleasedId& released : report.released()) {
      err_ << fileName_ << ':' << position_.line() << ": note: reconcile releases id " << idText(released.id) << " of "
           << keyFields(released.key) << ": " << released.reason << '\n';
    }
  }

  // The restart from a snapshot: the requests written while the table does not listen, the
  // results taken over by the table's restore, which checks the whole placement first and
  // refuses it with every problem named. The snapshot's path is taken from the script's
  // directory.
  void restore(LineParser& p) {
    requireConfiguration();
    const std::string file = p.word("snapshot file");
    p.end("snapshot file");
    std::filesystem::path path(file);
    if (path.is_relative()) path = std::filesystem::path(fileName_).parent_path() / path;
    // Only a regular file ends: a device or a pipe named by a script could be read forever.
    std::error_code error;
    std::ifstream in;
    if (std::filesystem::is_regular_file(path, error)) in.open(path);
    if (!in.is_open()) throw LineError("restore " + file + ": cannot open " + path.string());
    Snapshot snapshot;
    try {
      snapshot = readSnapshot(in, file);
    } catch (const LineError& e) {
      throw LineError("restore " + file + ": " + e.what());
    }
    const RestoreCheck check = restoreSnapshot(*session_, snapshot);
    if (!check.passes()) throw LineError("restore " + file + ": " + restoreRefusal(check));
  }

  void writeSnapshotFile() {
    std::ostringstream text;
    writeSnapshot(*session_, text);
    std::ofstream file(options_.snapshot);
    if (!(file << text.str()) || !file.flush()) throw LineError("snapshot: cannot write " + options_.snapshot);
  }

  // The tables' consistency audit: a corruption stops the replay like a bad line; a
  // hazard that the table's rules leave behind (a leaked id, a record or a result without a
  // request) is a warning at the line where it first appears, an error under --strict.
  void audit() {
    const AuditReport report = session_->table().auditReport();
    const std::vector<std::string> violations = report.texts(AuditKind::corruption);
    if (!violations.empty()) {
      std::string text = "audit found " + std::to_string(violations.size()) + " violation(s):";
      for (const std::string& v : violations) text += "\n  " + v;
      throw LineError(text);
    }
    std::vector<std::string> hazards;
    for (const AuditFinding& finding : report.findings()) {
      hazards.push_back(std::string(auditKindName(finding.kind)) + ": " + finding.text);
    }
    for (const std::string& hazard : hazards) {
      if (std::find(auditHazards_.begin(), auditHazards_.end(), hazard) != auditHazards_.end()) continue;
      if (options_.strict) throw LineError("audit: " + hazard);
      err_ << fileName_ << ':' << position_.line() << ": warning: audit: " << hazard << '\n';
    }
    auditHazards_ = std::move(hazards);
  }

  // How the table searches for room from the next request on.
  void moveSearch(LineParser& p) {
    const auto search = p.name<MoveSearch>("moveSearch");
    p.end("moveSearch");
    try {
      session_->table().moveSearchIs(search);
    } catch (const Fwk::RangeError& e) {
      throw LineError(e.what());
    }
  }

  void trace(LineParser& p) {
    const U32 mask = p.u32("levelMask");
    p.end("levelMask");
    multiHashTableTrace().levelMaskIs(mask);
  }

  const ReplayOptions& options_;
  const std::string& fileName_;
  const ScriptPosition& position_;
  std::ostream& err_;
  std::unique_ptr<TableSession> session_;
  bool requestsStarted_ = false;
  // The hazards that the last audit found, each reported once, where it first appears.
  std::vector<std::string> auditHazards_;
};

}  // namespace

int runReplay(std::istream& in, const std::string& fileName, const ReplayOptions& options, std::ostream& out,
              std::ostream& err) {
  ScriptPosition position(fileName, err);
  if (options.traceMask) multiHashTableTrace().levelMaskIs(*options.traceMask);
  Replay replay(options, fileName, position, err);
  std::string text;
  try {
    while (std::getline(in, text)) {
      position.next();
      LineParser p(splitFields(text));
      if (p.atEnd()) continue;
      replay.line(p);
    }
    position.next();
    // The result goes out whole or not at all.
    std::ostringstream result;
    replay.finish(result);
    out << result.str();
  } catch (const LineError& e) {
    err << fileName << ':' << position.line() << ": " << e.what() << '\n';
    return 1;
  }
  return 0;
}

}  // namespace mht
