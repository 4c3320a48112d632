// 1-based value lists: VEKListValVEKUnicodeString (strings), VEKRawCollint (ints) and
// VEKRawCollPV (untyped pointers). Reading an index outside 1..Size() is harmless: it yields an
// empty item (empty string, 0, null), never undefined behaviour.
#pragma once

#include <new>
#include <vector>

#include "VEKTypes.h"
#include "VEKUnicodeString.h"

template <class T>
class VEKOneBasedList {
 public:
  VEKOneBasedList() noexcept = default;
  // `capacity` is a hint; a failed reservation is ignored.
  explicit VEKOneBasedList(int capacity) noexcept {
    if (capacity > 0) {
      try {
        items_.reserve(static_cast<std::size_t>(capacity));
      } catch (const std::bad_alloc&) {
      }
    }
  }
  // A copy is independent of the original; when memory runs out the copy is empty and
  // incomplete.
  VEKOneBasedList(const VEKOneBasedList& other) noexcept : complete_(other.complete_) {
    try {
      items_ = other.items_;
    } catch (const std::bad_alloc&) {
      items_.clear();
      complete_ = false;
    }
  }
  VEKOneBasedList(VEKOneBasedList&& other) noexcept = default;
  VEKOneBasedList& operator=(const VEKOneBasedList& other) noexcept {
    if (this != &other) {
      VEKOneBasedList copy(other);
      items_.swap(copy.items_);
      complete_ = copy.complete_;
    }
    return *this;
  }
  VEKOneBasedList& operator=(VEKOneBasedList&& other) noexcept = default;

  int Size() const noexcept { return static_cast<int>(items_.size()); }

  // False once an item was lost for want of memory: later items then sit one place early, so a
  // reader that gives positions a meaning must not trust them.
  bool Complete() const noexcept { return complete_; }

  // Item `index` (1-based). Outside 1..Size() this is a scratch item reset to the empty value.
  T& operator[](int index) noexcept {
    if (index < 1 || index > Size()) {
      outOfRange_ = T();
      return outOfRange_;
    }
    return items_[static_cast<std::size_t>(index - 1)];
  }
  const T& operator[](int index) const noexcept {
    static const T empty{};
    if (index < 1 || index > Size()) return empty;
    return items_[static_cast<std::size_t>(index - 1)];
  }

  // Adds a copy at the end; E_OUTOFMEMORY (list unchanged) when memory runs out.
  HRESULT Append(const T& item) noexcept {
    try {
      // Lists are usually short: the first item makes room for a few, saving early regrowth.
      if (items_.capacity() == 0) items_.reserve(kFirstCapacity);
      items_.push_back(item);
      return S_OK;
    } catch (const std::bad_alloc&) {
      complete_ = false;
      return E_OUTOFMEMORY;
    }
  }

 private:
  static constexpr std::size_t kFirstCapacity = 8;
  std::vector<T> items_;
  bool complete_ = true;
  T outOfRange_{};
};

using VEKListValVEKUnicodeString = VEKOneBasedList<VEKUnicodeString>;
using VEKRawCollint = VEKOneBasedList<int>;
using VEKRawCollPV = VEKOneBasedList<void*>;
