// The component base: out-of-line destructor (anchors the vtable in this library) and the
// non-throwing class allocation that every component goes through.
#include "VEKBaseUnknown.h"

#include <new>

VEKBaseUnknown::~VEKBaseUnknown() = default;

void* VEKBaseUnknown::operator new(std::size_t size) noexcept {
  return ::operator new(size, std::nothrow);
}

void VEKBaseUnknown::operator delete(void* block) noexcept { ::operator delete(block); }

const CLSID CLSID_VEKBaseUnknown = VEKBaseUnknown::kIID;
