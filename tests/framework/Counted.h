// An entity that counts its own destruction, for tests of collections holding counted
// pointers.
#pragma once

#include "MultiHashTable/fwk/Entity.h"

namespace fwktest {

class Counted : public Fwk::Entity {
 public:
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }

 private:
  int* destroyed_;
};

}  // namespace fwktest
