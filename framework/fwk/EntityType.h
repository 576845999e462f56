// The builders with which a module registers its types: an entity type's attributes,
// collections, operations and factory; value types and enumerations.
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

#include "Collection.h"
#include "Entity.h"
#include "Error.h"
#include "Registry.h"
#include "TextTraits.h"
#include "TypeInfo.h"

namespace Fwk {

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
    a.parameterTypes = typeNames<Args>(std::make_index_sequence<std::tuple_size_v<Args>>{});
    a.resultTypeName = resultTypeName<C>();
    a.call = [name, parameters](Entity& e, const std::vector<std::string>& text, const Scope& scope) {
      auto args = detail::parseAll<Args>(name, text, parameters, scope);
      T& self = dynamic_cast<T&>(e);
      return detail::resultText<typename C::Result>(
          [&] { return std::apply([&](auto&&... arg) { return (self.*Op)(arg...); }, args); });
    };
    info_.attributeIs(std::move(a));
    return *this;
  }

  // A note on the attribute or operation registered last (see AttributeInfo::note).
  EntityType& note(std::string text) {
    info_.lastAttribute().note = std::move(text);
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
  template <class Args, std::size_t... I>
  static std::vector<std::string> typeNames(std::index_sequence<I...>) {
    return {std::string(TextTraits<std::tuple_element_t<I, Args>>::typeName())...};
  }
  template <class C>
  static std::string resultTypeName() {
    using R = std::remove_cvref_t<typename C::Result>;
    if constexpr (std::is_void_v<R>)
      return "void";
    else
      return std::string(TextTraits<R>::typeName());
  }

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
