// Named entities that the text arguments of generic tools may refer to.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "Entity.h"

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

}  // namespace Fwk
