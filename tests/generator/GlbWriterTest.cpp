// The GLB writer: the exact layout of the container, and refusals that leave the caller's bytes
// alone. That tinygltf reads what it frames is checked by the glTF reader comparison
// (GltfReadersTest), whose blobs it frames.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "FailingAllocator.h"
#include "VEKGlbWriter.h"

namespace {

std::uint32_t Word(const std::vector<char>& glb, std::size_t at) {
  std::uint32_t value = 0;
  for (int byte = 3; byte >= 0; --byte) {
    value = (value << 8) | static_cast<unsigned char>(glb[at + byte]);
  }
  return value;
}

TEST(GlbWriter, FramesChunksPaddedToFourBytes) {
  struct Row {
    std::size_t json, bin, jsonChunk, binChunk;
  };
  const Row rows[] = {{1, 0, 4, 0}, {2, 1, 4, 4}, {3, 3, 4, 4}, {4, 4, 4, 4}, {5, 6, 8, 8}};
  for (const Row& row : rows) {
    const std::string json(row.json, '{');
    const std::vector<unsigned char> bin(row.bin, 0xAB);
    std::vector<char> glb;
    ASSERT_EQ(VEKWriteGlb(json, bin.data(), bin.size(), glb), VEKGlbWriteResult::Written);
    const std::size_t binAt = 20 + row.jsonChunk;
    ASSERT_EQ(glb.size(), binAt + (row.bin ? 8 + row.binChunk : 0)) << row.json << ' ' << row.bin;
    EXPECT_EQ(std::string(glb.data(), 4), "glTF");
    EXPECT_EQ(Word(glb, 4), 2u);
    EXPECT_EQ(Word(glb, 8), glb.size());
    EXPECT_EQ(Word(glb, 12), row.jsonChunk);
    EXPECT_EQ(std::string(glb.data() + 16, 4), "JSON");
    EXPECT_EQ(std::string(glb.data() + 20, row.jsonChunk),
              json + std::string(row.jsonChunk - row.json, ' '));
    if (row.bin == 0) continue;
    EXPECT_EQ(Word(glb, binAt), row.binChunk);
    EXPECT_EQ(std::string(glb.data() + binAt + 4, 4), std::string("BIN\0", 4));
    EXPECT_EQ(std::string(glb.data() + binAt + 8, row.binChunk),
              std::string(row.bin, '\xAB') + std::string(row.binChunk - row.bin, '\0'));
  }
}

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
