// The type registry: what generic tools know of the library's types.
//
// Each module registers its types when the library is loaded, under qualified names, in
// a fixed order (a type's index within its module). For every type the registry keeps
// its attributes (identifier, name, type name, flags, and for operations the parameter
// names) together with the glue that lets a tool, working only with text:
//   - print a value and parse it back (value types and enumerations),
//   - create an entity through its factory,
//   - read an attribute or a whole collection of an entity,
//   - call a registered operation by name.
// Entity arguments are named objects of a Scope. None of this is on a placement path.
#pragma once

// The one header of the registry; one header per concept behind it:
#include "Scope.h"       // named entities of text arguments
#include "TextTraits.h"  // how a type prints and parses
#include "TypeInfo.h"    // one type's attributes, glue and allocation count

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Fwk {

class Module {
 public:
  explicit Module(std::string name) : name_(std::move(name)) {}
  const std::string& name() const noexcept { return name_; }
  // Types by their index within the module.
  const TypeInfo* type(unsigned index) const noexcept;
  std::size_t types() const noexcept { return types_.size(); }
  TypeInfo& typeIs(std::string name, TypeKind kind, const TypeInfo* base = nullptr);

 private:
  std::string name_;
  std::vector<std::unique_ptr<TypeInfo>> types_;
};

class Registry {
 public:
  static Registry& instance();

  Module& moduleIs(const std::string& name);
  const Module* module(std::string_view name) const;
  const TypeInfo* type(std::string_view qualifiedName) const;
  // Throws UnknownNameError.
  const TypeInfo& typeOrThrow(std::string_view qualifiedName) const;
  std::vector<const TypeInfo*> allTypes() const;
  // The types whose qualified name is `name` or ends in "::" followed by it, in registration
  // order: how a tool resolves a type name typed without its namespace (one type when the
  // name is unambiguous, several when it is not).
  std::vector<const TypeInfo*> typesNamed(std::string_view name) const;

  // Generic access by text.
  std::string read(const Entity& object, std::string_view attribute) const;
  std::string call(Entity& object, std::string_view operation, const std::vector<std::string>& args,
                   const Scope& scope) const;
  Ptr<Entity> create(std::string_view typeName, const std::vector<std::string>& args, const Scope& scope) const;
  std::string normalise(std::string_view typeName, std::string_view text) const;

 private:
  Registry() = default;
  std::vector<std::unique_ptr<Module>> modules_;
};

}  // namespace Fwk

#include "EntityType.h"  // IWYU pragma: export  (the builders, which need the registry above)
