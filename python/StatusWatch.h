// Following a result collection from Python: a callable called once per publication of
// HashEntryStatus, inside the write that publishes it.
//
// The callable runs inside the table's reaction, which must not be unwound. An exception
// that it raises is kept instead, and raised again by the module's write (configIs,
// configDel, configDelAll, the checked writes, handleHashUpdate, reconcile) once the
// library has returned: the write itself has been made. Only the first exception of a
// write is raised; any later one goes to sys.unraisablehook.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <type_traits>
#include <utility>

#include "MultiHashTable/MultiHashTable.h"

namespace mhtpython {

// A reactor owned by its Python object: subscribed to the status's publisher from its
// creation until cancel() or its destruction, and calling `callback(key, id)` with the
// key's result after each change (None when there is no room, or when the result was
// removed: statusHas tells them apart).
// Hidden, as pybind11 is: one of its objects is a member.
class __attribute__((visibility("hidden"))) StatusWatch : public Fwk::Reactor {
 public:
  StatusWatch(TesselCentral::Ptr<TesselCentral::HashEntryStatus> status, pybind11::function callback);
  ~StatusWatch() override;
  StatusWatch(const StatusWatch&) = delete;
  StatusWatch& operator=(const StatusWatch&) = delete;

  void cancel();
  bool active() const noexcept { return status_ != nullptr; }

  void onNotification(const Fwk::Notification& n) override;

 private:
  TesselCentral::Ptr<TesselCentral::HashEntryStatus> status_;
  pybind11::object callback_;
};

// The exceptions that callbacks raised during the writes in progress, one frame per write
// (a callback may itself write).
class CallbackErrors {
 public:
  // Opens a write's frame.
  static void enter();
  // Closes the frame: raises the first exception that a callback raised in it.
  static void leaveAndRaise();
  // Closes the frame of a write that ends in its own exception: the callbacks' ones are
  // reported as unraisable.
  static void leaveDiscarding() noexcept;
  // Keeps a callback's exception for the innermost write; outside any write it is unraisable.
  static void record(pybind11::error_already_set&& error);
};

// Runs a write whose publications may call callbacks, and raises what they raised after it.
template <class Write>
auto publishing(Write&& write) {
  using Result = std::invoke_result_t<Write>;
  CallbackErrors::enter();
  if constexpr (std::is_void_v<Result>) {
    try {
      std::forward<Write>(write)();
    } catch (...) {
      CallbackErrors::leaveDiscarding();
      throw;
    }
    CallbackErrors::leaveAndRaise();
  } else {
    std::optional<Result> result;
    try {
      result.emplace(std::forward<Write>(write)());
    } catch (...) {
      CallbackErrors::leaveDiscarding();
      throw;
    }
    CallbackErrors::leaveAndRaise();
    return std::move(*result);
  }
}

}  // namespace mhtpython
