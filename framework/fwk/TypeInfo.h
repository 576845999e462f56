// What the registry knows of one type: its attributes and operations, the glue that
// prints, parses, creates and calls by text, and the count of its allocations.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Entity.h"
#include "Scope.h"
#include "Text.h"

namespace Fwk {

enum AttrFlag : unsigned {
  constructorSet = 1u << 0,
  mutableAttr = 1u << 1,
  collectionAttr = 1u << 2,
  operationAttr = 1u << 3,
};

struct AttributeInfo {
  AttrId id = 0;
  std::string name;
  std::string typeName;
  unsigned flags = 0;
  std::vector<std::string> parameters;  // operations only
  // Reads an attribute (a collection: all its members, sorted) as text.
  std::function<std::string(const Entity&)> read;
  // Calls an operation with text arguments; returns the result as text ("" for none).
  std::function<std::string(Entity&, const std::vector<std::string>&, const Scope&)> call;
  // Operations: the type name of each parameter, and of the result ("void" for none), so
  // that a tool can tell an empty answer from no answer.
  std::vector<std::string> parameterTypes = {};
  std::string resultTypeName = {};
  // What a user of a generic tool should know of the attribute beyond its name and type;
  // empty for most.
  std::string note = {};
};

enum class TypeKind { value, enumeration, entity };

class TypeInfo {
 public:
  TypeInfo(std::string name, std::string module, unsigned index, TypeKind kind, const TypeInfo* base)
      : name_(std::move(name)), module_(std::move(module)), index_(index), kind_(kind), base_(base) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& module() const noexcept { return module_; }
  unsigned index() const noexcept { return index_; }
  TypeKind kind() const noexcept { return kind_; }
  const TypeInfo* base() const noexcept { return base_; }

  // Own attributes in registration order, then nothing of the base (see allAttributes).
  const std::vector<AttributeInfo>& attributes() const noexcept { return attributes_; }
  // The base's attributes first, then this type's.
  std::vector<const AttributeInfo*> allAttributes() const;
  // Looks an attribute or operation up here and in the bases; null when unknown.
  const AttributeInfo* attribute(std::string_view name) const noexcept;

  // Value types and enumerations: print, and parse-then-print (a round trip).
  std::function<std::string(std::string_view)> normalise;
  // Enumerations: their names.
  const EnumInfo* enumInfo = nullptr;
  // Entities: the factory.
  std::vector<std::string> factoryParameters;
  std::function<Ptr<Entity>(const std::vector<std::string>&, const Scope&)> factory;

  void attributeIs(AttributeInfo a) { attributes_.push_back(std::move(a)); }
  // The attribute registered last, for a builder to complete.
  AttributeInfo& lastAttribute() { return attributes_.back(); }

  // The framework's per-type allocation tracking: entities created through factories.
  void allocationInc() const noexcept { allocations_.fetch_add(1, std::memory_order_relaxed); }
  std::uint64_t allocations() const noexcept { return allocations_.load(std::memory_order_relaxed); }

 private:
  mutable std::atomic<std::uint64_t> allocations_{0};
  std::string name_;
  std::string module_;
  unsigned index_;
  TypeKind kind_;
  const TypeInfo* base_;
  std::vector<AttributeInfo> attributes_;
};

// Takes over a freshly constructed entity's first reference and records the allocation
// under the entity's registered type.
template <class T>
Ptr<T> adoptTracked(T* fresh) noexcept {
  if (const TypeInfo* t = fresh->fwkType()) t->allocationInc();
  return Ptr<T>::adopt(fresh);
}

}  // namespace Fwk
