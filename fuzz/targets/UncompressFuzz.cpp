// zlib decompression of the input: the first 4 bytes are the output capacity (little-endian,
// taken modulo 1 MB), the rest is the stream.
#include <vector>

#include "FuzzSupport.h"
#include "VEKSysUncompress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  constexpr unsigned int kMaxCapacity = 1u << 20;
  const unsigned int capacity = (unsigned{data[0]} | unsigned{data[1]} << 8 |
                                 unsigned{data[2]} << 16 | unsigned{data[3]} << 24) %
                                kMaxCapacity;
  std::vector<char> stream(data + 4, data + size);
  std::vector<char> target(capacity);
  unsigned int produced = capacity;
  const int result =
      VEKSysUncompress(stream.data(), static_cast<int>(stream.size()), target.data(), &produced);
  // Success never claims more than the capacity; failure leaves the length as it was.
  if (result >= 0 && produced > capacity) __builtin_trap();
  if (result < 0 && produced != capacity) __builtin_trap();
  return 0;
}
