// Makes the Nth allocation of the process fail, so tests can check that out-of-memory paths end
// cleanly instead of throwing or leaking.
#pragma once

#include <cstddef>

namespace vektest {

// Whether a refusal stops at the one allocation or goes on with every later one.
enum class Refusal { kFromThenOn, kThatOneOnly };

// While alive, allocation number `failingAllocation` (1-based, counted from construction) fails,
// and with Refusal::kFromThenOn every later one too: throwing forms throw std::bad_alloc,
// non-throwing forms return null.
class FailingAllocations {
 public:
  explicit FailingAllocations(std::size_t failingAllocation,
                              Refusal refusal = Refusal::kFromThenOn);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
  // Whether any allocation was refused so far.
  bool Refused() const;
  // The allocations asked for since construction, refused ones included.
  std::size_t Requested() const;
};

// Blocks handed out by the replaced allocation functions and not freed yet.
std::size_t LiveBlocks();

// malloc and free through the same countdown and count, for libraries that take an allocator.
void* CountedAllocate(std::size_t size);
void CountedFree(void* block);

}  // namespace vektest
