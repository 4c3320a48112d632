// Replacement global allocation functions with a countdown to failure and a count of live blocks.
#include "FailingAllocator.h"

#include <cstdlib>
#include <new>

namespace {

// 0 when disarmed; otherwise the number of allocations still allowed plus one.
std::size_t gCountdown = 0;
bool gRefuseLater = true;
bool gRefused = false;
std::size_t gRequested = 0;
std::size_t gLiveBlocks = 0;

bool ShouldFail() {
  ++gRequested;
  if (gCountdown == 0) return false;
  if (gCountdown > 1) {
    --gCountdown;
    return false;
  }
  if (!gRefuseLater) gCountdown = 0;
  gRefused = true;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  if (ShouldFail()) return nullptr;
  void* block = std::malloc(size ? size : 1);
  if (block) ++gLiveBlocks;
  return block;
}

void* AllocateOrThrow(std::size_t size) {
  void* block = Allocate(size);
  if (!block) throw std::bad_alloc();
  return block;
}

void Free(void* block) noexcept {
  if (!block) return;
  --gLiveBlocks;
  std::free(block);
}

}  // namespace

namespace vektest {

FailingAllocations::FailingAllocations(std::size_t failingAllocation, Refusal refusal) {
  gCountdown = failingAllocation;
  gRefuseLater = refusal == Refusal::kFromThenOn;
  gRefused = false;
  gRequested = 0;
}

FailingAllocations::~FailingAllocations() { gCountdown = 0; }

bool FailingAllocations::Refused() const { return gRefused; }

std::size_t FailingAllocations::Requested() const { return gRequested; }

std::size_t LiveBlocks() { return gLiveBlocks; }

void* CountedAllocate(std::size_t size) { return Allocate(size); }

void CountedFree(void* block) { Free(block); }

}  // namespace vektest

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* block) noexcept { Free(block); }
void operator delete[](void* block) noexcept { Free(block); }
void operator delete(void* block, std::size_t) noexcept { Free(block); }
void operator delete[](void* block, std::size_t) noexcept { Free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Free(block); }
