#include "Registry.h"

namespace Fwk {

Ptr<Entity> Scope::object(std::string_view name) const {
  auto it = objects_.find(name);
  if (it == objects_.end()) throw UnknownNameError("object", name);
  return it->second;
}

std::string Scope::nameOf(const Entity* object) const {
  for (const auto& [name, p] : objects_) {
    if (p.ptr() == object) return name;
  }
  return {};
}

bool TextTraits<bool>::parse(std::string_view text, const ParseContext& c) {
  if (text == "true") return true;
  if (text == "false") return false;
  throw RangeError(c.attribute, text, "is neither true nor false");
}

std::string entityTypeName(const Entity* e) {
  if (e == nullptr) return "null";
  const TypeInfo* t = e->fwkType();
  return t ? t->name() : std::string("Entity");
}

std::vector<const AttributeInfo*> TypeInfo::allAttributes() const {
  std::vector<const AttributeInfo*> all = base_ ? base_->allAttributes() : std::vector<const AttributeInfo*>{};
  for (const AttributeInfo& a : attributes_) all.push_back(&a);
  return all;
}

const AttributeInfo* TypeInfo::attribute(std::string_view name) const noexcept {
  for (const TypeInfo* t = this; t != nullptr; t = t->base_) {
    for (const AttributeInfo& a : t->attributes_) {
      if (a.name == name) return &a;
    }
  }
  return nullptr;
}

const TypeInfo* Module::type(unsigned index) const noexcept {
  return index < types_.size() ? types_[index].get() : nullptr;
}

TypeInfo& Module::typeIs(std::string name, TypeKind kind, const TypeInfo* base) {
  for (auto& t : types_) {
    if (t->name() == name) return *t;
  }
  types_.push_back(
      std::make_unique<TypeInfo>(std::move(name), name_, static_cast<unsigned>(types_.size()), kind, base));
  return *types_.back();
}

Registry& Registry::instance() {
  static Registry registry;
  return registry;
}

Module& Registry::moduleIs(const std::string& name) {
  for (auto& m : modules_) {
    if (m->name() == name) return *m;
  }
  modules_.push_back(std::make_unique<Module>(name));
  return *modules_.back();
}

const Module* Registry::module(std::string_view name) const {
  for (const auto& m : modules_) {
    if (m->name() == name) return m.get();
  }
  return nullptr;
}

const TypeInfo* Registry::type(std::string_view qualifiedName) const {
  for (const auto& m : modules_) {
    for (unsigned i = 0; i < m->types(); ++i) {
      if (m->type(i)->name() == qualifiedName) return m->type(i);
    }
  }
  return nullptr;
}

const TypeInfo& Registry::typeOrThrow(std::string_view qualifiedName) const {
  const TypeInfo* t = type(qualifiedName);
  if (t == nullptr) throw UnknownNameError("type", qualifiedName);
  return *t;
}

std::vector<const TypeInfo*> Registry::allTypes() const {
  std::vector<const TypeInfo*> all;
  for (const auto& m : modules_) {
    for (unsigned i = 0; i < m->types(); ++i) all.push_back(m->type(i));
  }
  return all;
}

std::vector<const TypeInfo*> Registry::typesNamed(std::string_view name) const {
  std::vector<const TypeInfo*> named;
  if (name.empty()) return named;
  for (const TypeInfo* t : allTypes()) {
    const std::string_view qualified = t->name();
    if (qualified == name) {
      named.push_back(t);
    } else if (qualified.size() > name.size() + 2 && qualified.ends_with(name) &&
               qualified.substr(0, qualified.size() - name.size()).ends_with("::")) {
      named.push_back(t);
    }
  }
  return named;
}

namespace {

const AttributeInfo& attributeOf(const Entity& object, std::string_view name) {
  const TypeInfo* t = object.fwkType();
  if (t == nullptr) throw UnknownNameError("type of object", entityTypeName(&object));
  const AttributeInfo* a = t->attribute(name);
  if (a == nullptr) throw UnknownNameError("attribute of " + t->name(), name);
  return *a;
}

}  // namespace

std::string Registry::read(const Entity& object, std::string_view attribute) const {
  const AttributeInfo& a = attributeOf(object, attribute);
  if (!a.read) throw UnknownNameError("readable attribute of " + entityTypeName(&object), attribute);
  return a.read(object);
}

std::string Registry::call(Entity& object, std::string_view operation, const std::vector<std::string>& args,
                           const Scope& scope) const {
  const AttributeInfo& a = attributeOf(object, operation);
  if (!a.call) throw UnknownNameError("operation of " + entityTypeName(&object), operation);
  return a.call(object, args, scope);
}

Ptr<Entity> Registry::create(std::string_view typeName, const std::vector<std::string>& args,
                             const Scope& scope) const {
  const TypeInfo& t = typeOrThrow(typeName);
  if (!t.factory) throw UnknownNameError("factory of type", typeName);
  return t.factory(args, scope);
}

std::string Registry::normalise(std::string_view typeName, std::string_view text) const {
  const TypeInfo& t = typeOrThrow(typeName);
  if (!t.normalise) throw UnknownNameError("value type", typeName);
  return t.normalise(text);
}

}  // namespace Fwk
