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

#include <algorithm>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "fwk/Collection.h"
#include "fwk/Entity.h"
#include "fwk/Error.h"
#include "fwk/Text.h"

namespace Fwk {

class TypeInfo;

// Named entities that text arguments may refer to.
class Scope {
 public:
  void objectIs(const std::string& name, Ptr<Entity> object) { objects_[name] = std::move(object); }
  bool objectHas(const std::string& name) const { return objects_.count(name) != 0; }
  Ptr<Entity> object(std::string_view name) const;
  // The name under which an entity is known, or empty.
  std::string nameOf(const Entity* object) const;
  const std::map<std::string, Ptr<Entity>, std::less<>>& objects() const noexcept { return objects_; }
  void objectDel(const std::string& name) { objects_.erase(name); }

 private:
  std::map<std::string, Ptr<Entity>, std::less<>> objects_;
};

struct ParseContext {
  std::string_view attribute;
  const Scope* scope = nullptr;
};

// How a type prints and parses in text. Specialised below for numbers, bool, registered
// enumerations, value types (T::fromText and operator<<) and entity pointers.
template <class T>
struct TextTraits;

template <std::unsigned_integral T>
requires(!std::same_as<T, bool>) struct TextTraits<T> {
  static constexpr std::string_view typeName() {
    if constexpr (sizeof(T) == 1)
      return "U8";
    else if constexpr (sizeof(T) == 2)
      return "U16";
    else if constexpr (sizeof(T) == 4)
      return "U32";
    else
      return "U64";
  }
  static void print(std::ostream& os, T v) { os << static_cast<std::uint64_t>(v); }
  static T parse(std::string_view text, const ParseContext& c) {
    return static_cast<T>(parseUnsigned(text, c.attribute, std::numeric_limits<T>::max()));
  }
};

template <>
struct TextTraits<bool> {
  static constexpr std::string_view typeName() { return "bool"; }
  static void print(std::ostream& os, bool v) { os << (v ? "true" : "false"); }
  static bool parse(std::string_view text, const ParseContext& c);
};

// Text answers of operations (a check's verdict) print as they are.
template <>
struct TextTraits<std::string> {
  static constexpr std::string_view typeName() { return "string"; }
  static void print(std::ostream& os, const std::string& v) { os << v; }
  static std::string parse(std::string_view text, const ParseContext&) { return std::string(text); }
};

template <RegisteredEnum E>
struct TextTraits<E> {
  static std::string_view typeName() { return EnumTraits<E>::info().typeName; }
  static void print(std::ostream& os, E v) { os << stringValue(v); }
  static E parse(std::string_view text, const ParseContext& c) { return sequenceToValue<E>(text, c.attribute); }
};

template <class T>
concept TextValue = requires(std::string_view s, std::ostream& os, const T& v) {
  { T::fromText(s) } -> std::same_as<T>;
  { T::typeName() } -> std::convertible_to<std::string_view>;
  os << v;
};

// A value whose operator<< is a short form of its own (EntryId prints a bare number)
// offers text() for the generic form, which is what parse reads back.
template <TextValue T>
struct TextTraits<T> {
  static std::string_view typeName() { return T::typeName(); }
  static void print(std::ostream& os, const T& v) {
    if constexpr (requires {
                    { v.text() } -> std::convertible_to<std::string_view>;
                  }) {
      os << v.text();
    } else {
      os << v;
    }
  }
  static T parse(std::string_view text, const ParseContext&) { return T::fromText(text); }
};

// Entity references print as the name under which the scope knows them (or as the
// entity's type name) and parse as a scope name.
std::string entityTypeName(const Entity* e);

template <class T>
requires std::derived_from<std::remove_const_t<T>, Entity>
struct TextTraits<Ptr<T>> {
  static std::string_view typeName() { return "Ptr"; }
  static void print(std::ostream& os, const Ptr<T>& p) { os << (p ? entityTypeName(p.ptr()) : "null"); }
  static Ptr<T> parse(std::string_view text, const ParseContext& c) {
    if (text == "null") return {};
    if (c.scope == nullptr) throw UnknownNameError("object", text);
    Ptr<Entity> e = c.scope->object(text);
    auto* t = dynamic_cast<T*>(e.ptr());
    if (t == nullptr) {
      throw RangeError(c.attribute, text, "is a " + entityTypeName(e.ptr()) + ", not the type the argument needs");
    }
    return Ptr<T>(t);
  }
};

template <class T>
std::string toText(const T& v) {
  std::ostringstream os;
  TextTraits<std::remove_cvref_t<T>>::print(os, v);
  return os.str();
}

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

namespace detail {

template <class F>
struct Callable;
template <class C, class R, class... A>
struct Callable<R (C::*)(A...)> {
  using Class = C;
  using Result = R;
  using Args = std::tuple<std::remove_cvref_t<A>...>;
};
template <class C, class R, class... A>
struct Callable<R (C::*)(A...) const> : Callable<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct Callable<R (C::*)(A...) noexcept> : Callable<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct Callable<R (C::*)(A...) const noexcept> : Callable<R (C::*)(A...)> {};
template <class R, class... A>
struct Callable<R (*)(A...)> {
  using Result = R;
  using Args = std::tuple<std::remove_cvref_t<A>...>;
};
template <class R, class... A>
struct Callable<R (*)(A...) noexcept> : Callable<R (*)(A...)> {};

template <class Args, std::size_t... I>
Args parseArgs(const std::vector<std::string>& text, const std::vector<std::string>& names, const Scope& scope,
               std::index_sequence<I...>) {
  return Args{TextTraits<std::tuple_element_t<I, Args>>::parse(text[I], ParseContext{names[I], &scope})...};
}

template <class Args>
Args parseAll(std::string_view what, const std::vector<std::string>& text, const std::vector<std::string>& names,
              const Scope& scope) {
  constexpr std::size_t n = std::tuple_size_v<Args>;
  if (text.size() != n) throw ArgumentCountError(what, n, text.size());
  return parseArgs<Args>(text, names, scope, std::make_index_sequence<n>{});
}

template <class R, class Invoke>
std::string resultText(Invoke&& invoke) {
  if constexpr (std::is_void_v<R>) {
    invoke();
    return {};
  } else {
    return toText(invoke());
  }
}

// Any keyed collection whose entries have key and value members.
template <class Map>
std::string collectionText(const Map& map) {
  using Entry = std::remove_cvref_t<decltype(*map.begin())>;
  using K = decltype(Entry::key);
  using V = decltype(Entry::value);
  // Copies: an iterator may hand out a member that lives only as long as it stands on it.
  std::vector<Entry> members;
  members.reserve(map.size());
  for (const auto& e : map) members.push_back(e);
  if constexpr (requires(const K& a, const K& b) { a < b; }) {
    std::sort(members.begin(), members.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
  }
  std::ostringstream os;
  os << '{';
  const char* sep = "";
  for (const Entry& e : members) {
    os << sep;
    TextTraits<K>::print(os, e.key);
    os << ": ";
    TextTraits<V>::print(os, e.value);
    sep = ", ";
  }
  os << '}';
  return os.str();
}

}  // namespace detail

// Registers the attributes, operations and factory of entity type T.
template <class T>
class EntityType {
 public:
  EntityType(Module& module, std::string name, const TypeInfo* base = nullptr)
      : info_(module.typeIs(std::move(name), TypeKind::entity, base)) {}

  const TypeInfo& info() const noexcept { return info_; }

  // A scalar attribute read by a const member function.
  template <auto Getter>
  EntityType& attribute(AttrId id, std::string name, unsigned flags = 0) {
    using R = std::remove_cvref_t<typename detail::Callable<decltype(Getter)>::Result>;
    AttributeInfo a{id, std::move(name), std::string(TextTraits<R>::typeName()), flags, {}, {}, {}};
    a.read = [](const Entity& e) { return toText((dynamic_cast<const T&>(e).*Getter)()); };
    info_.attributeIs(std::move(a));
    return *this;
  }

  // An attribute whose text a function computes from the object.
  EntityType& reader(AttrId id, std::string name, std::string typeName, unsigned flags,
                     std::function<std::string(const T&)> text) {
    AttributeInfo a{id, std::move(name), std::move(typeName), flags, {}, {}, {}};
    a.read = [text = std::move(text)](const Entity& e) { return text(dynamic_cast<const T&>(e)); };
    info_.attributeIs(std::move(a));
    return *this;
  }

  // A collection attribute whose getter returns a const keyed collection.
  template <auto Getter>
  EntityType& collection(AttrId id, std::string name, std::string typeName, unsigned flags = 0) {
    AttributeInfo a{id, std::move(name), std::move(typeName), flags | collectionAttr, {}, {}, {}};
    a.read = [](const Entity& e) { return detail::collectionText((dynamic_cast<const T&>(e).*Getter)()); };
    info_.attributeIs(std::move(a));
    return *this;
  }

  // An operation callable by name with text arguments.
  template <auto Op>
  EntityType& operation(AttrId id, std::string name, std::vector<std::string> parameters) {
    using C = detail::Callable<decltype(Op)>;
    using Args = typename C::Args;
    AttributeInfo a{id, name, "operation", operationAttr, parameters, {}, {}};
    a.call = [name, parameters](Entity& e, const std::vector<std::string>& text, const Scope& scope) {
      auto args = detail::parseAll<Args>(name, text, parameters, scope);
      T& self = dynamic_cast<T&>(e);
      return detail::resultText<typename C::Result>(
          [&] { return std::apply([&](auto&&... arg) { return (self.*Op)(arg...); }, args); });
    };
    info_.attributeIs(std::move(a));
    return *this;
  }

  // The factory: a free function returning Ptr<T> (or a pointer to a base of T).
  template <auto Factory>
  EntityType& factory(std::vector<std::string> parameters) {
    using Args = typename detail::Callable<decltype(Factory)>::Args;
    info_.factoryParameters = parameters;
    std::string what = info_.name();
    info_.factory = [what, parameters](const std::vector<std::string>& text, const Scope& scope) {
      auto args = detail::parseAll<Args>(what, text, parameters, scope);
      return Ptr<Entity>(std::apply([](auto&&... arg) { return Factory(arg...); }, args));
    };
    return *this;
  }

 private:
  TypeInfo& info_;
};

// Create-or-get of a collection member: each constructor attribute of the existing
// member must equal the requested one; the first that differs raises ReinstantiationError.
template <class T>
void requireSameAttribute(std::string_view typeName, std::string_view attribute, const T& existing,
                          const T& requested) {
  if (existing == requested) return;
  throw ReinstantiationError(typeName, attribute, toText(existing), toText(requested));
}

// Takes over a freshly constructed entity's first reference and records the allocation
// under the entity's registered type.
template <class T>
Ptr<T> adoptTracked(T* fresh) noexcept {
  if (const TypeInfo* t = fresh->fwkType()) t->allocationInc();
  return Ptr<T>::adopt(fresh);
}

// Registers a value type T (T::fromText, operator<<).
template <class T>
TypeInfo& registerValueType(Module& module, std::string name) {
  TypeInfo& info = module.typeIs(std::move(name), TypeKind::value);
  info.normalise = [](std::string_view text) { return toText(TextTraits<T>::parse(text, ParseContext{})); };
  return info;
}

// Registers an enumeration E (EnumTraits<E>).
template <RegisteredEnum E>
TypeInfo& registerEnumType(Module& module) {
  const EnumInfo& e = EnumTraits<E>::info();
  TypeInfo& info = module.typeIs(std::string(e.typeName), TypeKind::enumeration);
  info.enumInfo = &e;
  info.normalise = [](std::string_view text) { return stringValue(sequenceToValue<E>(text)); };
  return info;
}

}  // namespace Fwk
