#include "StatusWatch.h"

#include <exception>
#include <vector>

namespace py = pybind11;
using namespace TesselCentral;

namespace mhtpython {

namespace {

// Never destroyed: a watch may outlive the module's statics at the interpreter's exit.
std::vector<std::optional<py::error_already_set>>& frames() {
  static auto* stack = new std::vector<std::optional<py::error_already_set>>;
  return *stack;
}

}  // namespace

StatusWatch::StatusWatch(Ptr<HashEntryStatus> status, py::function callback)
    : status_(std::move(status)), callback_(std::move(callback)) {
  status_->publisher().subscriberIs(*this);
}

StatusWatch::~StatusWatch() { cancel(); }

void StatusWatch::cancel() {
  if (status_ == nullptr) return;
  status_->publisher().subscriberDel(*this);
  status_ = nullptr;
  callback_ = py::none();
}

void StatusWatch::onNotification(const Fwk::Notification& n) {
  if (n.attribute != HashEntryStatus::statusAttrId || status_ == nullptr) return;
  const HashEntryKey& key = *static_cast<const HashEntryKey*>(n.key);
  const EntryId id = status_->status(key);
  // The callback may cancel this watch, or drop the last reference to it: both stay alive
  // until it returns.
  const py::object self = py::cast(this, py::return_value_policy::reference);
  const py::object callback = callback_;
  try {
    callback(key, id.isValid() ? py::cast(id.value()) : py::none());
  } catch (py::error_already_set& error) {
    CallbackErrors::record(std::move(error));
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
    CallbackErrors::record(py::error_already_set());
  }
}

void CallbackErrors::enter() { frames().emplace_back(); }

void CallbackErrors::leaveAndRaise() {
  std::optional<py::error_already_set> error = std::move(frames().back());
  frames().pop_back();
  if (error) throw std::move(*error);
}

void CallbackErrors::leaveDiscarding() noexcept {
  std::optional<py::error_already_set> error = std::move(frames().back());
  frames().pop_back();
  if (error) error->discard_as_unraisable("a status callback during a write that failed");
}

void CallbackErrors::record(py::error_already_set&& error) {
  if (frames().empty()) {
    error.discard_as_unraisable("a status callback outside a write of the module");
    return;
  }
  std::optional<py::error_already_set>& pending = frames().back();
  if (pending) {
    error.discard_as_unraisable("a status callback after an earlier one raised in the same write");
    return;
  }
  pending.emplace(std::move(error));
}

}  // namespace mhtpython
