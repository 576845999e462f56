#include "Snapshot.h"

#include <algorithm>
#include <istream>
#include <ostream>

#include "LineParser.h"

namespace mht {

using namespace TesselCentral;

namespace {

// An id field: a number, or the word that stands for the invalid id.
EntryId readId(LineParser& p, const std::string& invalidWord) {
  const std::string& field = p.word("id (a number or " + invalidWord + ")");
  if (field == invalidWord) return EntryId();
  LineParser idParser({field});
  const EntryId id(idParser.u32("id"));
  if (!id.isValid()) throw LineError("id: 4294967295 is the invalid id; write '" + invalidWord + "'");
  return id;
}

std::string idField(EntryId id, const char* invalidWord) {
  return id.isValid() ? std::to_string(id.value()) : invalidWord;
}

template <class Collection>
std::vector<std::pair<HashEntryKey, EntryId>> sorted(const Collection& collection) {
  std::vector<std::pair<HashEntryKey, EntryId>> out;
  for (const auto& [key, id] : collection) out.emplace_back(key, id);
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

void writeSnapshot(const TableSession& session, std::ostream& out) {
  out << "# mht replay snapshot: the requests and the results; 'restore FILE' after a replay's table and bank lines "
         "takes them over\n";
  for (const auto& [key, id] : sorted(session.config().configCollection())) {
    out << "set " << keyFields(key) << ' ' << idField(id, "any") << '\n';
  }
  for (const auto& [key, id] : sorted(session.status().statusCollection())) {
    out << "status " << keyFields(key) << ' ' << idField(id, "invalid") << '\n';
  }
}

Snapshot readSnapshot(std::istream& in, const std::string& fileName) {
  Snapshot snapshot;
  std::string text;
  std::size_t line = 0;
  while (std::getline(in, text)) {
    ++line;
    try {
      LineParser p(splitFields(text));
      if (p.atEnd()) continue;
      const std::string& verb = p.word("a verb (set, status)");
      if (verb == "set") {
        const HashEntryKey key = p.key();
        const EntryId id = readId(p, "any");
        p.end("id");
        snapshot.requests.emplace_back(key, id);
      } else if (verb == "status") {
        const HashEntryKey key = p.key();
        const EntryId id = readId(p, "invalid");
        p.end("id");
        snapshot.results.emplace_back(key, id);
      } else {
        throw LineError("unknown verb '" + verb + "' (set, status)");
      }
    } catch (const LineError& e) {
      throw LineError(fileName + ':' + std::to_string(line) + ": " + e.what());
    }
  }
  return snapshot;
}

RestoreCheck restoreSnapshot(TableSession& session, const Snapshot& snapshot) {
  MultiHashTableBase& table = session.table();
  table.hasNotificationActiveIs(false);
  for (const auto& [key, id] : snapshot.requests) session.config().configIs(key, id);
  RestoreCheck check = table.restore(snapshot.results);
  table.hasNotificationActiveIs(true);
  return check;
}

std::string restoreRefusal(const RestoreCheck& check) {
  const std::vector<RestoreProblem>& problems = check.problems();
  const auto line = [](const RestoreProblem& p) { return std::string(restoreRuleName(p.rule)) + ": " + p.text; };
  if (problems.size() == 1) return "the table refuses the saved placement: " + line(problems.front());
  std::string text = "the table refuses the saved placement (" + std::to_string(problems.size()) + " problems):";
  for (const RestoreProblem& p : problems) text += "\n  " + line(p);
  return text;
}

}  // namespace mht
