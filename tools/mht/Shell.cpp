#include "Shell.h"

#include <editline/readline.h>

#include <cstdlib>
#include <istream>
#include <ostream>

#include "LineParser.h"
#include "MultiHashTable.h"
#include "fwk/Registry.h"

namespace mht {

using namespace TesselCentral;

namespace {

const Fwk::TypeInfo& typeNamed(const std::string& name) {
  const Fwk::Registry& r = Fwk::Registry::instance();
  if (const Fwk::TypeInfo* t = r.type(name)) return *t;
  if (const Fwk::TypeInfo* t = r.type("TesselCentral::" + name)) return *t;
  throw LineError("unknown type '" + name + "' (see 'types')");
}

std::vector<std::string> rest(LineParser& p) {
  std::vector<std::string> args;
  while (!p.atEnd()) args.push_back(p.word("argument"));
  return args;
}

std::string signature(const Fwk::AttributeInfo& a) {
  std::string s = a.name + '(';
  for (std::size_t i = 0; i < a.parameters.size(); ++i) s += (i ? ", " : "") + a.parameters[i];
  return s + ')';
}

class Shell {
 public:
  explicit Shell(std::ostream& out) : out_(out) {}

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
    scope_.objectIs(name, Fwk::Registry::instance().create(type.name(), rest(p), scope_));
  }

  void call(LineParser& p) {
    const std::string name = p.word("object name");
    const std::string operation = p.word("operation");
    Fwk::Ptr<Fwk::Entity> o = object(name);
    const std::string result = Fwk::Registry::instance().call(*o, operation, rest(p), scope_);
    if (!result.empty()) out_ << result << '\n';
  }

  void get(LineParser& p) {
    const std::string name = p.word("object name");
    const std::string attribute = p.word("attribute");
    p.end("attribute");
    out_ << Fwk::Registry::instance().read(*object(name), attribute) << '\n';
  }

  void show(LineParser& p) {
    const std::string name = p.word("object name");
    p.end("object name");
    Fwk::Ptr<Fwk::Entity> o = object(name);
    const Fwk::TypeInfo* t = o->fwkType();
    out_ << (t ? t->name() : "Entity") << ' ' << name << '\n';
    if (t == nullptr) return;
    for (const Fwk::AttributeInfo* a : t->allAttributes()) {
      if (a->read) out_ << "  " << a->name << " = " << a->read(*o) << '\n';
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
      out_ << "  " << a->id << ' ' << (a->call ? "operation " + signature(*a) : a->name + " : " + a->typeName) << '\n';
    }
  }

  std::ostream& out_;
  Fwk::Scope scope_;
};

}  // namespace

int runShell(std::istream& in, const std::string& fileName, bool interactive, std::ostream& out, std::ostream& err) {
  Shell shell(out);
  ScriptPosition position(fileName, err);
  std::string text;
  while (std::getline(in, text)) {
    position.next();
    LineParser p(splitFields(text));
    if (p.atEnd()) continue;
    try {
      if (!shell.command(p)) break;
    } catch (const std::exception& e) {
      err << fileName << ':' << position.line() << ": " << e.what() << '\n';
      if (!interactive) return 1;
    }
  }
  return 0;
}

int runInteractiveShell(std::ostream& out, std::ostream& err) {
  Shell shell(out);
  ScriptPosition position("<stdin>", err);
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
