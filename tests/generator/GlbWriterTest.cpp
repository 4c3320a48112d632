// The GLB writer's refusals, which leave the caller's bytes alone. Its layout is held by the
// generator's fingerprints (its documents carry GLBs it frames) and by the glTF reader comparison
// (GltfReadersTest), whose blobs it frames for tinygltf.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "FailingAllocator.h"
#include "VEKGlbWriter.h"

namespace {

TEST(GlbWriter, RefusesWithoutTouchingTheOutput) {
  const std::string json = "{}";
  const unsigned char bin[4] = {};
  // With "{}" (4 bytes padded) the container holds at most 4 GiB - 1 - 32 bytes of binary data.
  const std::size_t binFits = UINT32_MAX - 32 - 3;
  struct Row {
    std::string_view json;
    const unsigned char* bin;
    std::size_t binLength;
    VEKGlbWriteResult result;
  };
  const Row rows[] = {
      {json, nullptr, 1, VEKGlbWriteResult::NullBinary},
      {json, bin, binFits + 1, VEKGlbWriteResult::TooLarge},
      {json, bin, std::size_t{UINT32_MAX} + 1, VEKGlbWriteResult::TooLarge},
      {json, bin, SIZE_MAX, VEKGlbWriteResult::TooLarge},
      // Only the length is looked at: a view too long for any container is never read.
      {std::string_view(json.data(), SIZE_MAX), bin, 0, VEKGlbWriteResult::TooLarge},
  };
  for (const Row& row : rows) {
    std::vector<char> glb{'k'};
    EXPECT_EQ(VEKWriteGlb(row.json, row.bin, row.binLength, glb), row.result) << row.binLength;
    EXPECT_EQ(glb, std::vector<char>{'k'});
  }

  std::vector<char> glb{'k'};
  VEKGlbWriteResult result = VEKGlbWriteResult::Written;
  {
    vektest::FailingAllocations failAll(1);
    result = VEKWriteGlb(json, bin, sizeof bin, glb);
  }
  EXPECT_EQ(result, VEKGlbWriteResult::OutOfMemory);
  EXPECT_EQ(glb, std::vector<char>{'k'});
}

}  // namespace
