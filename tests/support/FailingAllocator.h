// Makes the Nth allocation of the process fail, so tests can check that out-of-memory paths end
// cleanly instead of throwing or leaking.
#pragma once

#include <cstddef>

namespace vektest {

// While alive, allocation number `failingAllocation` (1-based, counted from construction) and
// every later one fails: throwing forms throw std::bad_alloc, non-throwing forms return null.
class FailingAllocations {
 public:
  explicit FailingAllocations(std::size_t failingAllocation);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
  // Whether any allocation was refused so far.
  bool Refused() const;
};

}  // namespace vektest
