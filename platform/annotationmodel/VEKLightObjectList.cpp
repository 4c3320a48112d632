// The model's growable list of object pointers.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <new>

#include "VEKTPSLightModel.h"

VEKLightObjectList::VEKLightObjectList() noexcept = default;

VEKLightObjectList::~VEKLightObjectList() { delete[] elements_; }

HRESULT VEKLightObjectList::Append(VEKBaseUnknown* object) noexcept {
  if (free_ == 0) {
    const std::int64_t capacity = std::int64_t{count_} + std::max(count_, 1);
    if (capacity > INT_MAX) return E_OUTOFMEMORY;
    VEKBaseUnknown** grown = new (std::nothrow) VEKBaseUnknown*[static_cast<std::size_t>(capacity)];
    if (!grown) return E_OUTOFMEMORY;
    std::copy(elements_, elements_ + count_, grown);
    delete[] elements_;
    elements_ = grown;
    free_ = static_cast<int>(capacity - count_);
  }
  elements_[count_] = object;
  ++count_;
  --free_;
  return S_OK;
}
