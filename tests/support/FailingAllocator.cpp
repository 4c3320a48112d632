// Replacement global allocation functions with a countdown to failure.
#include "FailingAllocator.h"

#include <cstdlib>
#include <new>

namespace {

// 0 when disarmed; otherwise the number of allocations still allowed plus one.
std::size_t gCountdown = 0;
bool gRefused = false;

bool ShouldFail() {
  if (gCountdown == 0) return false;
  if (gCountdown > 1) {
    --gCountdown;
    return false;
  }
  gRefused = true;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  if (ShouldFail()) return nullptr;
  return std::malloc(size ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* block = Allocate(size);
  if (!block) throw std::bad_alloc();
  return block;
}

}  // namespace

namespace vektest {

FailingAllocations::FailingAllocations(std::size_t failingAllocation) {
  gCountdown = failingAllocation;
  gRefused = false;
}

FailingAllocations::~FailingAllocations() { gCountdown = 0; }

bool FailingAllocations::Refused() const { return gRefused; }

}  // namespace vektest

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
