#include "Shell.h"

#include <editline/readline.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <functional>
#include <istream>
#include <ostream>
#include <type_traits>
#include <utility>

#include "LineParser.h"
#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Registry.h"
#include "Tables.h"

namespace mht {

using namespace TesselCentral;

namespace {

// A type by its qualified name, or by its name without the namespace when no other
// registered type ends in it.
const Fwk::TypeInfo& typeNamed(const std::string& name) {
  const Fwk::Registry& r = Fwk::Registry::instance();
  if (const Fwk::TypeInfo* t = r.type(name)) return *t;
  const std::vector<const Fwk::TypeInfo*> named = r.typesNamed(name);
  if (named.empty()) throw LineError("unknown type '" + name + "' (see 'types')");
  if (named.size() > 1) {
    std::string candidates;
    for (const Fwk::TypeInfo* t : named) candidates += (candidates.empty() ? "" : ", ") + t->name();
    throw LineError("type name '" + name + "' is ambiguous: " + candidates + " (write one of them in full)");
  }
  return *named.front();
}

bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':'; }

// An enumerator typed with its type's name in front ("MoveSearch::breadthFirst"): the bare
// enumerator, which is what the registry parses; any other name stays as it is.
std::string withoutEnumerationName(const std::string& name) {
  const std::size_t colons = name.rfind("::");
  if (colons == std::string::npos || colons == 0) return name;
  const Fwk::Registry& r = Fwk::Registry::instance();
  const std::string typeName = name.substr(0, colons);
  const std::string enumerator = name.substr(colons + 2);
  const Fwk::TypeInfo* type = r.type(typeName);
  if (type == nullptr) {
    if (const std::vector<const Fwk::TypeInfo*> named = r.typesNamed(typeName); named.size() == 1) {
      type = named.front();
    }
  }
  if (type == nullptr || type->enumInfo == nullptr) return name;
  try {
    type->enumInfo->value(enumerator, typeName);
  } catch (const Fwk::RangeError&) {
    return name;
  }
  return enumerator;
}

// An argument's text with every type name of a value ("HashEntryKey{...}", also nested)
// written in full, and every enumerator without its type's name.
std::string withQualifiedNames(const std::string& text) {
  std::string qualified;
  std::size_t i = 0;
  while (i < text.size()) {
    if (!isNameChar(text[i])) {
      qualified += text[i++];
      continue;
    }
    const std::size_t start = i;
    while (i < text.size() && isNameChar(text[i])) ++i;
    const std::string name = text.substr(start, i - start);
    std::size_t next = i;
    while (next < text.size() && std::isspace(static_cast<unsigned char>(text[next])) != 0) ++next;
    if (next < text.size() && text[next] == Fwk::valueOpen) {
      qualified += typeNamed(name).name();
    } else {
      qualified += withoutEnumerationName(name);
    }
  }
  return qualified;
}

// The remaining fields, type names written in full.
std::vector<std::string> rest(LineParser& p) {
  std::vector<std::string> args;
  while (!p.atEnd()) args.push_back(withQualifiedNames(p.word("argument")));
  return args;
}

// An EntryId argument may be typed as replay's id field is, a number or `any`; the
// registry reads the value's text form.
void readIdArguments(const Fwk::AttributeInfo& operation, std::vector<std::string>& args) {
  const std::size_t n = std::min(args.size(), operation.parameterTypes.size());
  for (std::size_t i = 0; i < n; ++i) {
    if (operation.parameterTypes[i] != EntryId::typeName()) continue;
    if (args[i].find(Fwk::valueOpen) != std::string::npos) continue;
    LineParser id({args[i]});
    args[i] = Fwk::toText(id.entryId(i < operation.parameters.size() ? operation.parameters[i] : "id"));
  }
}

// An answer as the shell prints it: the empty text quoted, so that it shows.
std::string answerText(const std::string& text) { return text.empty() ? "\"\"" : text; }

// An attribute's note, after its value or its type.
std::string noteText(const Fwk::AttributeInfo& a) { return a.note.empty() ? "" : "  # " + a.note; }

std::string signature(const Fwk::AttributeInfo& a) {
  std::string s = a.name + '(';
  for (std::size_t i = 0; i < a.parameters.size(); ++i) s += (i ? ", " : "") + a.parameters[i];
  return s + ')';
}

// A line that the shell turned away before the library saw it ("refused: ...", nothing was
// written), or that a library assertion stopped part-way ("stopped: ..."): reported with its
// line, and the session goes on with every object it has.
class LineTurnedAway : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The request collection's writes: a table that reacts to the collection runs its reaction
// inside them.
bool isRequestWrite(const std::string& operation) {
  return operation == "configIs" || operation == "configDel" || operation == "configDelAll";
}

// A table's operations that place, move or remove keys, which a table that cannot serve its
// requests serves no better.
bool placesKeys(const std::string& operation) {
  return operation == "handleHashUpdate" || operation == "reconcile" || operation == "insertEntry" ||
         operation == "insertEntryWithId" || operation == "removeEntry" || operation == "rehashEntry" ||
         operation == "doAddOrMoveEntry";
}

// A table that a write reaches, as the messages name it.
struct ReachedTable {
  std::string label;  // "table t", or "the table of helper h"
  const MultiHashTableBase* table;
};

// Runs `action` under the assertion trap; a stop becomes a LineTurnedAway that names the
// condition and what the stop leaves behind.
template <class Action>
std::invoke_result_t<Action> trapped(const std::string& what, const std::string& leftBehind, Action&& action) {
  const Fwk::AssertionTrap trap;
  try {
    return action();
  } catch (const Fwk::AssertionStopped& stop) {
    throw LineTurnedAway("stopped: " + what + ": assertion \"" + stop.condition + "\" failed; " + leftBehind);
  }
}

class Shell {
 public:
  using Warn = std::function<void(const std::string&)>;

  Shell(std::ostream& out, Warn warn) : out_(out), warn_(std::move(warn)) {}

  // Returns false on quit.
  bool command(LineParser& p) {
    const std::string& verb = p.word("a command (see 'help')");
    if (verb == "quit" || verb == "exit") return false;
    if (verb == "new") return make(p), true;
    if (verb == "call") return call(p), true;
    if (verb == "get") return get(p), true;
    if (verb == "show") return show(p), true;
    if (verb == "types") return types(p), true;
    if (verb == "help") return help(p), true;
    if (verb == "objects") return objects(p), true;
    if (verb == "audit") return audit(p), true;
    if (verb == "trace") {
      const U32 mask = p.u32("levelMask");
      p.end("levelMask");
      TesselCentral::multiHashTableTrace().levelMaskIs(mask);
      return true;
    }
    throw LineError("unknown command '" + verb + "' (see 'help')");
  }

  ~Shell() {
    // A multi-width table and its EntryIdHelper hold each other: break the cycle.
    for (const auto& [name, object] : scope_.objects()) {
      if (auto* t = dynamic_cast<TesselCentral::MultiEntryTypeHashTable*>(object.ptr())) t->entryIdHelperIs(nullptr);
    }
  }

 private:
  Fwk::Ptr<Fwk::Entity> object(const std::string& name) const {
    if (!scope_.objectHas(name)) throw LineError("unknown object '" + name + "' (see 'objects')");
    return scope_.object(name);
  }

  void make(LineParser& p) {
    const std::string name = p.word("object name");
    const Fwk::TypeInfo& type = typeNamed(p.word("type"));
    if (!type.factory) throw LineError("type " + type.name() + " has no factory");
    const std::vector<std::string> args = rest(p);
    Fwk::Ptr<Fwk::Entity> made = trapped("new " + name + " " + type.name(), "nothing was named " + name,
                                         [&] { return Fwk::Registry::instance().create(type.name(), args, scope_); });
    scope_.objectIs(name, std::move(made));
  }

  // Every call that may stop on an assertion runs under the trap, so that the stop ends the
  // call and not the session. A write to a request collection cannot: a table reacts to it
  // inside a notification, which no exception may leave. Such a write is judged first by
  // every table it reaches, and made only when none of them refuses it.
  void call(LineParser& p) {
    const std::string name = p.word("object name");
    const std::string operation = p.word("operation");
    Fwk::Ptr<Fwk::Entity> o = object(name);
    std::vector<std::string> args = rest(p);
    const Fwk::Registry& registry = Fwk::Registry::instance();
    const Fwk::TypeInfo* type = o->fwkType();
    const Fwk::AttributeInfo* info = type ? type->attribute(operation) : nullptr;
    if (info != nullptr) readIdArguments(*info, args);
    const std::string what = "call " + name + " " + operation;
    std::string result;
    if (const auto* config = dynamic_cast<const HashEntryConfig*>(o.ptr()); config && isRequestWrite(operation)) {
      judgeRequestWrite(what, *config, operation, args);
      result = registry.call(*o, operation, args, scope_);
    } else {
      if (const auto* table = dynamic_cast<const MultiHashTableBase*>(o.ptr())) {
        judgeTableOperation(what, ReachedTable{"table " + name, table}, operation, args);
      }
      result =
          trapped(what, name + " may be left half-changed", [&] { return registry.call(*o, operation, args, scope_); });
    }
    if (info != nullptr && info->resultTypeName != "void") out_ << answerText(result) << '\n';
  }

  // A table's own operations that place, move or remove keys, judged before the call: the
  // full resync by the resync check, a placement at an id by the placement check, and every
  // one of them by the configuration check.
  void judgeTableOperation(const std::string& what, const ReachedTable& reached, const std::string& operation,
                           const std::vector<std::string>& args) const {
    if (operation == "handleHashUpdate" && args.empty()) return judgeResync(what, reached);
    if (operation == "insertEntryWithId" && args.size() == 2) {
      const HashEntryKey key = Fwk::TextTraits<HashEntryKey>::parse(args[0], Fwk::ParseContext{"key", &scope_});
      const EntryId id = Fwk::TextTraits<EntryId>::parse(args[1], Fwk::ParseContext{"eId", &scope_});
      requireConfiguration(what, reached);
      return judge(what, reached, reached.table->placementAtCheck(key, id));
    }
    if (placesKeys(operation)) requireConfiguration(what, reached);
  }

  // The tables that react to `config`: those named in the session, and a multi-width table
  // that lives on through a named EntryIdHelper after its own name went to another object.
  std::vector<ReachedTable> tablesReactingTo(const HashEntryConfig& config) const {
    std::vector<ReachedTable> tables;
    const auto add = [&](const MultiHashTableBase* table, std::string label) {
      if (table == nullptr || table->hashEntryConfig().ptr() != &config) return;
      for (const ReachedTable& seen : tables) {
        if (seen.table == table) return;
      }
      tables.push_back(ReachedTable{std::move(label), table});
    };
    for (const auto& [name, o] : scope_.objects())
      add(dynamic_cast<const MultiHashTableBase*>(o.ptr()), "table " + name);
    for (const auto& [name, o] : scope_.objects()) {
      if (const auto* helper = dynamic_cast<const EntryIdHelper*>(o.ptr())) {
        add(helper->hashTable().ptr(), "the table of helper " + name);
      }
    }
    return tables;
  }

  // A table whose configuration check fails serves no request: the write that would reach
  // it is refused, naming every problem.
  static void requireConfiguration(const std::string& what, const ReachedTable& reached) {
    const ConfigurationCheck check = reached.table->configurationCheck();
    if (!check.passes()) {
      throw LineTurnedAway("refused: " + what + ": " + reached.label + ": " + configurationRefusal(check));
    }
  }

  // The library's own verdict decides: a fatal one refuses the write, any other problem is
  // a warning and the write is made.
  void judge(const std::string& what, const ReachedTable& reached, const RequestCheck& verdict) const {
    if (refuses(WriteRefusal::fatal, verdict)) {
      throw LineTurnedAway("refused: " + what + ": " + reached.label + ": " + verdict.problem());
    }
    if (!verdict.passes()) warn_(what + ": " + reached.label + ": " + verdict.problem());
  }

  static bool reaches(const RequestCheck& verdict) {
    return verdict.outcome() != RequestOutcome::unchanged && verdict.outcome() != RequestOutcome::noReaction;
  }

  // configIs, configDel or configDelAll on a collection that tables react to: every table's
  // request or removal check, before the write. The arguments are read as the registry reads
  // them; a count that does not fit the operation is left to the registry's own message.
  void judgeRequestWrite(const std::string& what, const HashEntryConfig& config, const std::string& operation,
                         const std::vector<std::string>& args) const {
    const std::vector<ReachedTable> tables = tablesReactingTo(config);
    if (tables.empty()) return;
    // Each table's verdicts on the write, key by key.
    std::vector<std::pair<const ReachedTable*, RequestCheck>> verdicts;
    if (operation == "configIs" && args.size() == 2) {
      const HashEntryKey key = Fwk::TextTraits<HashEntryKey>::parse(args[0], Fwk::ParseContext{"key", &scope_});
      const EntryId id = Fwk::TextTraits<EntryId>::parse(args[1], Fwk::ParseContext{"id", &scope_});
      for (const ReachedTable& t : tables) verdicts.emplace_back(&t, t.table->requestCheck(key, id));
    } else if (operation == "configDel" && args.size() == 1) {
      const HashEntryKey key = Fwk::TextTraits<HashEntryKey>::parse(args[0], Fwk::ParseContext{"key", &scope_});
      for (const ReachedTable& t : tables) verdicts.emplace_back(&t, t.table->removalCheck(key));
    } else if (operation == "configDelAll" && args.empty()) {
      for (const auto& request : config.configCollection()) {
        for (const ReachedTable& t : tables) {
          RequestCheck verdict = t.table->removalCheck(request.key);
          verdicts.emplace_back(
              &t, RequestCheck(verdict.outcome(), verdict.condition(),
                               "at key " + TesselCentral::detail::keyText(request.key) + ": " + verdict.reason()));
        }
      }
    } else {
      return;
    }
    for (const auto& [reached, verdict] : verdicts) {
      if (reaches(verdict)) requireConfiguration(what, *reached);
    }
    for (const auto& [reached, verdict] : verdicts) judge(what, *reached, verdict);
  }

  // The full resync is the table's reaction to every request at once.
  void judgeResync(const std::string& what, const ReachedTable& reached) const {
    requireConfiguration(what, reached);
    judge(what, reached, reached.table->resyncCheck());
  }

  void get(LineParser& p) {
    const std::string name = p.word("object name");
    const std::string attribute = p.word("attribute");
    p.end("attribute");
    out_ << answerText(Fwk::Registry::instance().read(*object(name), attribute)) << '\n';
  }

  void show(LineParser& p) {
    const std::string name = p.word("object name");
    p.end("object name");
    Fwk::Ptr<Fwk::Entity> o = object(name);
    const Fwk::TypeInfo* t = o->fwkType();
    out_ << (t ? t->name() : "Entity") << ' ' << name << '\n';
    if (t == nullptr) return;
    for (const Fwk::AttributeInfo* a : t->allAttributes()) {
      if (a->read) out_ << "  " << a->name << " = " << answerText(a->read(*o)) << noteText(*a) << '\n';
    }
  }

  void audit(LineParser& p) {
    const std::string name = p.word("table name");
    p.end("table name");
    auto* table = dynamic_cast<TesselCentral::MultiHashTableBase*>(object(name).ptr());
    if (table == nullptr) throw LineError("'" + name + "' is not a table");
    const std::vector<std::string> violations = table->audit();
    if (violations.empty()) out_ << "audit clean\n";
    for (const std::string& v : violations) out_ << "audit: " << v << '\n';
  }

  void types(LineParser& p) {
    p.end("types");
    for (const Fwk::TypeInfo* t : Fwk::Registry::instance().allTypes()) {
      out_ << t->module() << ' ' << t->index() << ' ' << t->name() << '\n';
    }
  }

  void objects(LineParser& p) {
    p.end("objects");
    for (const auto& [name, o] : scope_.objects()) out_ << name << ' ' << Fwk::entityTypeName(o.ptr()) << '\n';
  }

  void help(LineParser& p) {
    if (p.atEnd()) {
      out_ << "new <name> <Type> [args...] | call <name> <operation> [args...] | get <name> <attribute> | "
              "show <name> | audit <table> | types | objects | help [Type] | trace <levelMask> | quit\n";
      return;
    }
    const Fwk::TypeInfo& t = typeNamed(p.word("type"));
    p.end("type");
    out_ << t.name() << '\n';
    if (t.factory) {
      Fwk::AttributeInfo f;
      f.name = "new";
      f.parameters = t.factoryParameters;
      out_ << "  factory " << signature(f) << '\n';
    }
    if (t.enumInfo != nullptr) {
      for (const auto& [value, name] : t.enumInfo->enumerators) out_ << "  " << value << ' ' << name << '\n';
    }
    for (const Fwk::AttributeInfo* a : t.allAttributes()) {
      out_ << "  " << a->id << ' ' << (a->call ? "operation " + signature(*a) : a->name + " : " + a->typeName)
           << noteText(*a) << '\n';
    }
  }

  std::ostream& out_;
  Warn warn_;
  Fwk::Scope scope_;
};

// "FILE:LINE: warning: ..." for the line being run.
Shell::Warn warningsTo(std::ostream& err, const std::string& fileName, const ScriptPosition& position) {
  return [&err, fileName, &position](const std::string& text) {
    err << fileName << ':' << position.line() << ": warning: " << text << '\n';
  };
}

}  // namespace

int runShell(std::istream& in, const std::string& fileName, bool interactive, std::ostream& out, std::ostream& err) {
  ScriptPosition position(fileName, err);
  Shell shell(out, warningsTo(err, fileName, position));
  bool turnedAway = false;
  std::string text;
  while (std::getline(in, text)) {
    position.next();
    LineParser p(splitFields(text));
    if (p.atEnd()) continue;
    try {
      if (!shell.command(p)) break;
    } catch (const LineTurnedAway& e) {
      err << fileName << ':' << position.line() << ": " << e.what() << '\n';
      turnedAway = true;
    } catch (const std::exception& e) {
      err << fileName << ':' << position.line() << ": " << e.what() << '\n';
      if (!interactive) return 1;
    }
  }
  return turnedAway ? 1 : 0;
}

int runInteractiveShell(std::ostream& out, std::ostream& err) {
  ScriptPosition position("<stdin>", err);
  Shell shell(out, warningsTo(err, "<stdin>", position));
  while (char* raw = readline("mht> ")) {
    const std::string text(raw);
    std::free(raw);
    position.next();
    LineParser p(splitFields(text));
    if (p.atEnd()) continue;
    add_history(text.c_str());
    try {
      if (!shell.command(p)) break;
    } catch (const std::exception& e) {
      err << "<stdin>:" << position.line() << ": " << e.what() << '\n';
    }
    out.flush();
  }
  return 0;
}

}  // namespace mht
