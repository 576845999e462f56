// Entities and counted pointers.
//
// Every library object that is not a plain value is an Entity: a heap object with a
// virtual destructor and one 32-bit use word that holds both its reference count and
// two flags:
//
//     bit 31      30                29                  28 .. 0
//        [ 0 | reactorsRetired | notificationActive | reference count ]
//
// The count is changed with an atomic read-modify-write in thread-safe mode (a
// process-wide switch, off by default) and with a plain load and store otherwise, which
// costs no more than an ordinary increment on the agent's single thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Fwk {

class TypeInfo;

using AttrId = std::uint32_t;

// Attribute identifiers: a value type numbers its attributes from 2, a class numbers
// the attributes that it declares itself from 130, and those it adds to a base from 258.
inline constexpr AttrId firstValueAttrId = 2;
inline constexpr AttrId firstOwnAttrId = 130;
inline constexpr AttrId firstAddedAttrId = 258;

// Thread-safe mode makes reference counting atomic. Set it before a second thread
// touches any counted pointer; it is never needed on the agent's own thread.
void threadSafeModeIs(bool on) noexcept;

namespace detail {
extern std::atomic<bool> threadSafeMode;
}

inline bool threadSafeMode() noexcept { return detail::threadSafeMode.load(std::memory_order_relaxed); }

class Entity {
 public:
  static constexpr std::uint32_t notificationActiveBit = 1u << 29;
  static constexpr std::uint32_t reactorsRetiredBit = 1u << 30;
  static constexpr std::uint32_t flagBits = notificationActiveBit | reactorsRetiredBit;
  static constexpr std::uint32_t countBits = ~flagBits;

  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;
  virtual ~Entity() = default;

  // The registry's record of the entity's dynamic type; null for unregistered types.
  virtual const TypeInfo* fwkType() const noexcept { return nullptr; }

  std::uint32_t references() const noexcept { return useWord_.load(std::memory_order_relaxed) & countBits; }
  std::uint32_t useWord() const noexcept { return useWord_.load(std::memory_order_relaxed); }
  bool notificationActive() const noexcept { return (useWord() & notificationActiveBit) != 0; }
  bool reactorsRetired() const noexcept { return (useWord() & reactorsRetiredBit) != 0; }

  void newReference() const noexcept {
    if (threadSafeMode()) {
      useWord_.fetch_add(1, std::memory_order_relaxed);
    } else {
      useWord_.store(useWord_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  // Drops one reference; the last one runs lastUserGone(), which destroys the entity.
  void deleteReference() const noexcept {
    std::uint32_t after;
    if (threadSafeMode()) {
      after = useWord_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      after = useWord_.load(std::memory_order_relaxed) - 1;
      useWord_.store(after, std::memory_order_relaxed);
    }
    if ((after & countBits) == 0) lastUserGone();
  }

 protected:
  // A new entity starts with one reference, the one its factory hands out (Ptr::adopt).
  Entity() noexcept : useWord_(1) {}

  virtual void lastUserGone() const noexcept { delete this; }

  void notificationActiveIs(bool on) noexcept { flagIs(notificationActiveBit, on); }
  void reactorsRetiredIs(bool on) noexcept { flagIs(reactorsRetiredBit, on); }

 private:
  void flagIs(std::uint32_t bit, bool on) noexcept {
    if (threadSafeMode()) {
      if (on)
        useWord_.fetch_or(bit, std::memory_order_relaxed);
      else
        useWord_.fetch_and(~bit, std::memory_order_relaxed);
    } else {
      const std::uint32_t word = useWord_.load(std::memory_order_relaxed);
      useWord_.store(on ? (word | bit) : (word & ~bit), std::memory_order_relaxed);
    }
  }

  mutable std::atomic<std::uint32_t> useWord_;
};

// Owning pointer to an entity (T may be const). Copying adds a reference, destruction
// drops one. Ptr(raw) takes a new reference; Ptr::adopt(raw) takes over the reference
// that a freshly constructed entity already holds.
template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  Ptr(T* raw) noexcept : raw_(raw) {
    if (raw_) raw_->newReference();
  }
  Ptr(const Ptr& other) noexcept : Ptr(other.raw_) {}
  Ptr(Ptr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : Ptr(other.ptr()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : raw_(other.release()) {}
  ~Ptr() {
    if (raw_) raw_->deleteReference();
  }

  Ptr& operator=(Ptr other) noexcept {
    std::swap(raw_, other.raw_);
    return *this;
  }

  static Ptr adopt(T* fresh) noexcept {
    Ptr p;
    p.raw_ = fresh;
    return p;
  }

  // Gives up ownership without dropping the reference.
  T* release() noexcept { return std::exchange(raw_, nullptr); }

  T* ptr() const noexcept { return raw_; }
  T* operator->() const noexcept { return raw_; }
  T& operator*() const noexcept { return *raw_; }
  explicit operator bool() const noexcept { return raw_ != nullptr; }

  friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.raw_ == b.raw_; }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.raw_ == nullptr; }

 private:
  T* raw_ = nullptr;
};

// Constructs an entity and returns the pointer that holds its first reference. The library's
// factories create through adoptTracked (Registry.h) instead, which also counts the
// allocation under the entity's registered type; this form is for entities without a
// registered type, such as the framework's own test entities.
template <class T, class... Args>
Ptr<T> makeEntity(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

}  // namespace Fwk
