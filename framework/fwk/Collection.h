// Keyed collections: an open-addressing hash map with a stable, meaningless order.
//
// Layout: one control byte per slot and a parallel array of {key, value} slots.
//
//     control byte   0x00 empty   0x01 deleted   0x80 | 7 hash bits   occupied
//
// Probing is linear, 16 control bytes at a time (one SSE2 compare where available), and
// a key is compared only when its 7 hash bits match. The load (occupied + deleted) stays
// at or below 7/8. Capacities double from 8 up to 2^16 slots, then step through 2^16,
// 1.5 * 2^16, 2^17, 1.5 * 2^17, ..., so that a large map wastes at most a third of its
// slots rather than half. A deletion only marks its slot deleted: nothing moves, so an
// iterator survives the deletion of the member it stands on and a walk may delete as it
// goes. An insertion may grow the table and invalidates iterators.
//
// A table of 256 slots or more is never rehashed all at once inside one insertion (that
// costs milliseconds at 2^15 slots): its successor is allocated, and each insertion moves a
// few members of the old table into it, until the old table is empty and freed.
// Meanwhile a lookup that misses in the new table looks in the old one. The same happens
// when a map that churns at a steady size has filled its table with deleted slots.
//
// Keys hash with the per-process seed XOR a constant that belongs to the collection, so
// that collections holding the same keys spread them differently. Numbers and
// enumerations hash to their own value; class keys provide hash(seed).
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "Hash.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Fwk {

// The bytes that keyed collections hold in their control arrays, which do not come from
// operator new: for a memory count that includes them.
std::size_t collectionControlBytes() noexcept;

namespace detail {

// An array of slots whose elements are read only after they have been written. Elements
// that are plain bytes are not initialised when the array is allocated (for a large map
// most of the cost of growing, and page faults all at once for a large array): the owner
// writes an element before it first reads it. Other elements are value-constructed and
// destroyed as usual.
template <class T>
class SlotArray {
 public:
  static constexpr bool plain = std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>;

  SlotArray() = default;
  explicit SlotArray(std::size_t count) : slots_(std::allocator<T>().allocate(count)), count_(count) {
    if constexpr (!plain) std::uninitialized_value_construct_n(slots_, count);
  }
  SlotArray(SlotArray&& other) noexcept
      : slots_(std::exchange(other.slots_, nullptr)), count_(std::exchange(other.count_, 0)) {}
  SlotArray& operator=(SlotArray&& other) noexcept {
    SlotArray taken(std::move(other));
    std::swap(slots_, taken.slots_);
    std::swap(count_, taken.count_);
    return *this;
  }
  SlotArray(const SlotArray&) = delete;
  SlotArray& operator=(const SlotArray&) = delete;
  ~SlotArray() {
    if (slots_ == nullptr) return;
    if constexpr (!plain) std::destroy_n(slots_, count_);
    std::allocator<T>().deallocate(slots_, count_);
  }

  std::size_t size() const noexcept { return count_; }
  bool empty() const noexcept { return count_ == 0; }
  T& operator[](std::size_t i) noexcept { return slots_[i]; }
  const T& operator[](std::size_t i) const noexcept { return slots_[i]; }
  T* data() noexcept { return slots_; }
  const T* data() const noexcept { return slots_; }

 private:
  T* slots_ = nullptr;
  std::size_t count_ = 0;
};

// Control bytes start all empty (zero). They come from calloc, which hands over fresh pages
// from the system without writing them: a large table's pages are then faulted in one at a
// time as probes reach them, not all at once by the insertion that allocates the table.
// (Mapping them straight from the system instead was measured: unmapping them at the end of
// a drain cost more, on a virtual machine, than calloc's clearing of reused memory.) They
// bypass operator new, so the bytes they hold are counted here (collectionControlBytes).
struct ZeroedBytes {
  struct Free {
    std::size_t bytes = 0;
    void operator()(std::uint8_t* p) const noexcept { release(p, bytes); }
  };
  using Array = std::unique_ptr<std::uint8_t[], Free>;
  static Array allocate(std::size_t n) { return Array(take(n), Free{n}); }

 private:
  static std::uint8_t* take(std::size_t n);
  static void release(std::uint8_t* p, std::size_t n) noexcept;
};

}  // namespace detail

template <class K>
struct KeyHash {
  static std::uint32_t hash(const K& key, std::uint32_t seed) noexcept {
    if constexpr (std::is_enum_v<K> || std::is_integral_v<K>) {
      return static_cast<std::uint32_t>(key) ^ seed;
    } else if constexpr (requires { key.hash(seed); }) {
      return key.hash(seed);
    } else {
      return key.hash() ^ seed;
    }
  }
};

template <class K, class V>
class HashMap {
 public:
  struct Entry {
    K key{};
    V value{};
  };

  // Walks the slots of the table being drained (during a resize) and then those of the
  // current one, as one run of indices.
  class Iterator {
   public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    const Entry& operator*() const noexcept { return map_->entryAt(index_); }
    const Entry* operator->() const noexcept { return &map_->entryAt(index_); }
    Iterator& operator++() noexcept {
      index_ = map_->nextOccupied(index_ + 1);
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) noexcept { return a.index_ == b.index_; }

   private:
    friend class HashMap;
    Iterator(const HashMap* map, std::size_t index) noexcept : map_(map), index_(index) {}
    const HashMap* map_ = nullptr;
    std::size_t index_ = 0;
  };

  explicit HashMap(std::uint32_t collectionConstant = 0) noexcept : seed_(processHashSeed() ^ collectionConstant) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  // A moved-from map is empty and keeps its seed.
  HashMap(HashMap&& other) noexcept : seed_(other.seed_) { swap(other); }
  HashMap& operator=(HashMap&& other) noexcept {
    HashMap taken(std::move(other));
    swap(taken);
    return *this;
  }
  void swap(HashMap& other) noexcept {
    std::swap(table_, other.table_);
    std::swap(draining_, other.draining_);
    std::swap(drainNext_, other.drainNext_);
    std::swap(drainingLeft_, other.drainingLeft_);
    std::swap(drainStep_, other.drainStep_);
    std::swap(size_, other.size_);
    std::swap(deleted_, other.deleted_);
    std::swap(seed_, other.seed_);
  }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  // The slots of the current table (a resize in progress adds the old table's until it is drained).
  std::size_t capacity() const noexcept { return table_.capacity; }
  std::uint32_t seed() const noexcept { return seed_; }
  // Whether a resize is moving members from the old table, a few at each insertion.
  bool resizing() const noexcept { return draining_.capacity != 0; }

  // The raw lookup: the stored value, or null when the key is absent.
  const V* find(const K& key) const noexcept {
    Entry* e = findEntry(key);
    return e == nullptr ? nullptr : &e->value;
  }
  V* find(const K& key) noexcept {
    Entry* e = findEntry(key);
    return e == nullptr ? nullptr : &e->value;
  }
  bool has(const K& key) const noexcept { return findEntry(key) != nullptr; }

  // The stored value, or the value type's default when the key is absent.
  V get(const K& key) const {
    const V* v = find(key);
    return v ? *v : V{};
  }

  // Finds the key or adds it with a default value; the bool says whether it was added.
  std::pair<V*, bool> findOrInsert(const K& key) {
    const std::uint64_t mixed = mix(key);
    std::size_t firstDeleted = npos;
    if (table_.capacity != 0) {
      const Hashed h = at(mixed, table_.capacity);
      table_.prefetchSlot(h.index);
      for (std::size_t i = h.index;; i = table_.advance(i)) {
        const Group g(&table_.control[i]);
        const unsigned empty = g.match(emptyControl);
        const unsigned before = beforeFirstEmpty(empty);
        if (const std::size_t j = table_.slotOfKeyIn(g, i, before, h.fragment, key); j != npos) {
          return {&table_.slots[j].value, false};
        }
        if (firstDeleted == npos) {
          if (const unsigned d = g.match(deletedControl) & before) {
            firstDeleted = table_.wrap(i + static_cast<unsigned>(std::countr_zero(d)));
          }
        }
        if (empty) break;
      }
    }
    if (resizing()) {
      if (const std::size_t j = draining_.indexOf(at(mixed, draining_.capacity), key); j != npos) {
        return {&draining_.slots[j].value, false};
      }
    }
    V* added;
    if (firstDeleted != npos) {
      --deleted_;
      added = occupy(firstDeleted, at(mixed, table_.capacity).fragment, key);
    } else {
      if (overloaded(used() + 1, table_.capacity)) grow();
      const Hashed h = at(mixed, table_.capacity);
      added = occupy(table_.freeSlotFor(h), h.fragment, key);
    }
    if (resizing()) drainSome();
    return {added, true};
  }

  // Inserts the key or overwrites its value.
  void is(const K& key, V value) { *findOrInsert(key).first = std::move(value); }

  // Removes the key; returns the removed value, or the default when it was absent.
  V del(const K& key) {
    V removed{};
    delInto(key, removed);
    return removed;
  }

  // Removes the key if present, handing its value to the caller; false when absent.
  bool delInto(const K& key, V& removed) {
    Entry* e = findEntry(key);
    if (e == nullptr) return false;
    removed = eraseEntry(e);
    return true;
  }

  // Removes the member whose value a find() of this map returned, with no change to the
  // map since, without probing for its key again. Returns the removed value.
  V delFound(const V* found) {
    Table& holder = draining_.holdsValue(found) ? draining_ : table_;
    return eraseEntry(&holder.slots.data()[holder.slotOfValue(found)]);
  }

  void delAll() {
    draining_ = Table{};
    if (table_.capacity != 0) {
      for (std::size_t i = 0; i < table_.capacity; ++i) {
        if (table_.control[i] & occupiedBit) table_.slots[i] = Entry{};
      }
      std::fill_n(table_.control.get(), table_.capacity + groupWidth, emptyControl);
    }
    size_ = 0;
    deleted_ = 0;
  }

  // Makes room for n members at once: no insertion up to n pays for a resize.
  void reserve(std::size_t n) {
    finishResize();
    if (overloaded(n, table_.capacity)) rehash(capacityFor(n));
  }

  Iterator begin() const noexcept { return Iterator(this, nextOccupied(0)); }
  Iterator end() const noexcept { return Iterator(this, draining_.capacity + table_.capacity); }

  std::size_t bytesAllocated() const noexcept { return (table_.capacity + draining_.capacity) * (sizeof(Entry) + 1); }

 private:
  static constexpr std::size_t npos = ~std::size_t{0};
  static constexpr std::uint8_t emptyControl = 0x00;
  static constexpr std::uint8_t deletedControl = 0x01;
  static constexpr std::uint8_t occupiedBit = 0x80;

  struct Hashed {
    std::size_t index;
    std::uint8_t fragment;
  };

  static constexpr bool overloaded(std::size_t used, std::size_t capacity) noexcept { return used * 8 > capacity * 7; }

  // Control bytes are read 16 at a time from any slot on; the 16 bytes past the end
  // mirror the first 16, so a group that runs over the end reads the start again.
  static constexpr std::size_t groupWidth = 16;

  struct Group {
    explicit Group(const std::uint8_t* p) noexcept {
#if defined(__SSE2__)
      bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#else
      std::memcpy(bytes, p, groupWidth);
#endif
    }
    // A bit per byte equal to c, lowest byte first.
    unsigned match(std::uint8_t c) const noexcept {
#if defined(__SSE2__)
      return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(c)))));
#else
      unsigned m = 0;
      for (std::size_t i = 0; i < groupWidth; ++i) m |= unsigned{bytes[i] == c} << i;
      return m;
#endif
    }
    // A bit per empty or deleted byte.
    unsigned matchFree() const noexcept {
#if defined(__SSE2__)
      return static_cast<unsigned>(~_mm_movemask_epi8(bytes)) & 0xFFFFu;
#else
      unsigned m = 0;
      for (std::size_t i = 0; i < groupWidth; ++i) m |= unsigned{(bytes[i] & occupiedBit) == 0} << i;
      return m;
#endif
    }
#if defined(__SSE2__)
    __m128i bytes;
#else
    std::uint8_t bytes[groupWidth];
#endif
  };

  // Keys stand before the first empty slot of their probe sequence: the group's bits up to
  // its first empty slot (all of them when it has none).
  static unsigned beforeFirstEmpty(unsigned empty) noexcept { return empty ? (empty & (0u - empty)) - 1 : 0xFFFFu; }

  // One array of control bytes and slots. A map has one; a resize has two for a while.
  struct Table {
    // A slot is written when it is occupied, and only occupied slots are read.
    detail::ZeroedBytes::Array control;
    detail::SlotArray<Entry> slots;
    std::size_t capacity = 0;

    Table() = default;
    explicit Table(std::size_t n) : control(detail::ZeroedBytes::allocate(n + groupWidth)), slots(n), capacity(n) {}
    Table(Table&& other) noexcept
        : control(std::move(other.control)),
          slots(std::move(other.slots)),
          capacity(std::exchange(other.capacity, 0)) {}
    Table& operator=(Table&& other) noexcept {
      control = std::move(other.control);
      slots = std::move(other.slots);
      capacity = std::exchange(other.capacity, 0);
      return *this;
    }

    bool holds(const Entry* e) const noexcept {
      return capacity != 0 && e >= slots.data() && e < slots.data() + capacity;
    }
    // Where the value that a find() returned stands, found by its address.
    std::size_t slotOfValue(const V* v) const noexcept {
      const auto first = reinterpret_cast<std::uintptr_t>(&slots.data()->value);
      return (reinterpret_cast<std::uintptr_t>(v) - first) / sizeof(Entry);
    }
    bool holdsValue(const V* v) const noexcept { return capacity != 0 && slotOfValue(v) < capacity; }

    // A key's slot is most often the first of its probe, and its line is needed right after
    // the control bytes' line: asking for both at once overlaps the two cache misses.
    void prefetchSlot(std::size_t i) const noexcept { __builtin_prefetch(slots.data() + i); }

    std::size_t wrap(std::size_t i) const noexcept { return i < capacity ? i : i % capacity; }
    // The start of the next group; a capacity below the group width still probes whole.
    std::size_t advance(std::size_t i) const noexcept { return wrap(i + std::min(groupWidth, capacity)); }

    void setControl(std::size_t i, std::uint8_t c) noexcept {
      control[i] = c;
      if (i < groupWidth) {
        // Mirror into the bytes past the end; small tables repeat their bytes to fill them.
        for (std::size_t j = capacity + i; j < capacity + groupWidth; j += capacity) control[j] = c;
      }
    }

    // The slot of the group starting at i that holds the key, among the `candidates` whose
    // control byte carries the key's hash fragment; npos when none does.
    std::size_t slotOfKeyIn(const Group& g, std::size_t i, unsigned candidates, std::uint8_t fragment,
                            const K& key) const noexcept {
      for (unsigned m = g.match(fragment) & candidates; m != 0; m &= m - 1) {
        const std::size_t j = wrap(i + static_cast<unsigned>(std::countr_zero(m)));
        if (slots[j].key == key) return j;
      }
      return npos;
    }

    std::size_t indexOf(const Hashed& h, const K& key) const noexcept {
      prefetchSlot(h.index);
      for (std::size_t i = h.index;; i = advance(i)) {
        const Group g(&control[i]);
        const unsigned empty = g.match(emptyControl);
        if (const std::size_t j = slotOfKeyIn(g, i, beforeFirstEmpty(empty), h.fragment, key); j != npos) return j;
        if (empty) return npos;
      }
    }

    // The first empty or deleted slot of the key's probe sequence.
    std::size_t freeSlotFor(const Hashed& h) const noexcept {
      for (std::size_t i = h.index;; i = advance(i)) {
        if (const unsigned free = Group(&control[i]).matchFree())
          return wrap(i + static_cast<unsigned>(std::countr_zero(free)));
      }
    }
  };

  // Fibonacci spreading, so that keys differing only in high bits (packed positions) still
  // land apart; the product's high half scaled to a capacity chooses the slot.
  std::uint64_t mix(const K& key) const noexcept {
    return std::uint64_t{KeyHash<K>::hash(key, seed_)} * 0x9E3779B97F4A7C15ull;
  }
  static Hashed at(std::uint64_t mixed, std::size_t capacity) noexcept {
    return {static_cast<std::size_t>(((mixed >> 32) * capacity) >> 32),
            static_cast<std::uint8_t>(occupiedBit | ((mixed >> 25) & 0x7F))};
  }

  Entry* findEntry(const K& key) const noexcept {
    if (size_ == 0) return nullptr;
    const std::uint64_t mixed = mix(key);
    if (const std::size_t i = table_.indexOf(at(mixed, table_.capacity), key); i != npos) {
      return const_cast<Entry*>(&table_.slots[i]);
    }
    if (!resizing()) return nullptr;
    const std::size_t j = draining_.indexOf(at(mixed, draining_.capacity), key);
    return j == npos ? nullptr : const_cast<Entry*>(&draining_.slots[j]);
  }

  // The slots a probe passes in the current table: its members and its deleted slots.
  std::size_t used() const noexcept { return size_ - drainingLeft_ + deleted_; }

  V eraseEntry(Entry* e) {
    if (draining_.holds(e)) {
      // The old table takes no insertions: its slot stays deleted until the next insertion
      // frees the table (not now: a walk may stand in it).
      const std::size_t i = static_cast<std::size_t>(e - draining_.slots.data());
      V removed = std::move(e->value);
      if constexpr (!detail::SlotArray<Entry>::plain) e->value = V{};
      draining_.setControl(i, deletedControl);
      --drainingLeft_;
      --size_;
      return removed;
    }
    return eraseAt(static_cast<std::size_t>(e - table_.slots.data()));
  }

  V eraseAt(std::size_t i) {
    V removed = std::move(table_.slots[i].value);
    // A value that owns something (a counted pointer) lets go of it now; a plain one is
    // overwritten when its slot is occupied again.
    if constexpr (!detail::SlotArray<Entry>::plain) table_.slots[i].value = V{};
    --size_;
    if (table_.control[table_.wrap(i + 1)] != emptyControl) {
      table_.setControl(i, deletedControl);
      ++deleted_;
      return removed;
    }
    // No probe passes this slot to reach a later one: it becomes empty again, and so do
    // the deleted slots right before it, which keeps runs of deleted slots short.
    table_.setControl(i, emptyControl);
    const std::size_t last = table_.capacity - 1;
    for (std::size_t p = i == 0 ? last : i - 1; table_.control[p] == deletedControl; p = p == 0 ? last : p - 1) {
      table_.setControl(p, emptyControl);
      --deleted_;
    }
    return removed;
  }

  V* occupy(std::size_t i, std::uint8_t fragment, const K& key) {
    table_.setControl(i, fragment);
    table_.slots[i].key = key;
    if constexpr (detail::SlotArray<Entry>::plain) table_.slots[i].value = V{};
    ++size_;
    return &table_.slots[i].value;
  }

  // Walk indices: the old table's slots first, then the current table's.
  const Entry& entryAt(std::size_t i) const noexcept {
    return i < draining_.capacity ? draining_.slots[i] : table_.slots[i - draining_.capacity];
  }
  std::size_t nextOccupied(std::size_t i) const noexcept {
    for (; i < draining_.capacity; ++i) {
      if (draining_.control[i] & occupiedBit) return i;
    }
    const std::size_t end = draining_.capacity + table_.capacity;
    while (i < end && !(table_.control[i - draining_.capacity] & occupiedBit)) ++i;
    return i;
  }

  // A small map doubles: fewer rehashes while it fills, and what it leaves unused is little.
  // From doublingLimit slots on, capacities step by one and a half and four thirds, so that
  // a large map wastes at most a third of its slots rather than half.
  static constexpr std::size_t doublingLimit = std::size_t{1} << 16;
  static constexpr std::size_t nextCapacity(std::size_t capacity) noexcept {
    if (capacity < doublingLimit) return capacity * 2;
    return std::has_single_bit(capacity) ? capacity / 2 * 3 : capacity / 3 * 4;
  }
  static constexpr std::size_t capacityFor(std::size_t wanted) noexcept {
    std::size_t capacity = 8;
    while (overloaded(wanted, capacity)) capacity = nextCapacity(capacity);
    return capacity;
  }

  // A table of fewer slots than this is rehashed at once; a larger one is drained into its
  // successor a few slots at each insertion, so that no insertion pays for a whole rehash.
  // What a rehash costs is mostly the first touch of the new table's pages: on a virtual
  // machine a page fault takes several microseconds, and a table of 2048 slots keyed by a
  // table key (21 bytes a slot) took 0.4 ms to rehash; 256 slots fill a page or two.
  static constexpr std::size_t drainedFrom = std::size_t{1} << 8;
  // The fewest old slots an insertion moves on while a resize drains. Each member moved
  // lands on a page of the new table that may not have been touched yet, and on a virtual
  // machine a first touch costs several microseconds: a few at a time keeps it cheap.
  static constexpr std::size_t minDrainStep = 8;

  // The current table has no room for another member: a larger one takes its place, or one
  // of the same size without the deleted slots that filled it.
  void grow() {
    finishResize();
    if (table_.capacity < drainedFrom) {
      rehash(capacityFor(size_ + 1));
      return;
    }
    // A map that churns at a steady size fills its table with deleted slots: the new table
    // keeps a sixteenth of its slots free beyond the load limit, or it would be drained
    // again soon after; a growing map's next capacity has that room already.
    std::size_t capacity = capacityFor(size_ + 1);
    while ((size_ + 1) * 16 > capacity * 13) capacity = nextCapacity(capacity);
    draining_ = std::move(table_);
    table_ = Table(capacity);
    deleted_ = 0;
    drainNext_ = 0;
    drainingLeft_ = size_;
    // The old table is drained by the time half the new table's free room is taken.
    const std::size_t room = std::max<std::size_t>(capacity * 7 / 8 - size_ - 1, 1);
    drainStep_ = std::max(minDrainStep, (2 * draining_.capacity + room - 1) / room);
  }

  void drainSome() {
    const std::size_t stop = std::min(draining_.capacity, drainNext_ + drainStep_);
    for (; drainNext_ < stop && drainingLeft_ != 0; ++drainNext_) {
      if (!(draining_.control[drainNext_] & occupiedBit)) continue;
      moveIn(draining_.slots[drainNext_]);
      // Deleted, not empty: lookups of the members still in the old table probe past it.
      draining_.setControl(drainNext_, deletedControl);
    }
    if (drainNext_ == draining_.capacity || drainingLeft_ == 0) draining_ = Table{};
  }

  void finishResize() {
    if (!resizing()) return;
    drainStep_ = draining_.capacity;
    drainSome();
  }

  // Moves a member of the old table into the current one, where it is not.
  void moveIn(Entry& e) {
    const Hashed h = at(mix(e.key), table_.capacity);
    const std::size_t j = table_.freeSlotFor(h);
    if (table_.control[j] == deletedControl) --deleted_;
    table_.setControl(j, h.fragment);
    table_.slots[j] = std::move(e);
    --drainingLeft_;
  }

  // Moves every member into a new table of the given capacity at once.
  void rehash(std::size_t capacity) {
    Table old = std::move(table_);
    table_ = Table(capacity);
    deleted_ = 0;
    for (std::size_t i = 0; i < old.capacity; ++i) {
      if (!(old.control[i] & occupiedBit)) continue;
      const Hashed h = at(mix(old.slots[i].key), table_.capacity);
      const std::size_t j = table_.freeSlotFor(h);
      table_.setControl(j, h.fragment);
      table_.slots[j] = std::move(old.slots[i]);
    }
  }

  Table table_;
  // The table a resize drains: the next slot to move on, the members it still holds, and
  // how many slots each insertion moves on.
  Table draining_;
  std::size_t drainNext_ = 0;
  std::size_t drainingLeft_ = 0;
  std::size_t drainStep_ = 0;
  std::size_t size_ = 0;
  std::size_t deleted_ = 0;
  std::uint32_t seed_;
};

}  // namespace Fwk
