#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "VEKSysCompress.h"

namespace {

// zlib's own inflate as the oracle of the stream format.
std::string InflateWithZlib(const std::string& stream, std::size_t size) {
  std::string out(size, '\0');
  uLongf length = static_cast<uLongf>(size);
  EXPECT_EQ(
      uncompress(reinterpret_cast<Bytef*>(&out[0]), &length,
                 reinterpret_cast<const Bytef*>(stream.data()), static_cast<uLong>(stream.size())),
      Z_OK);
  out.resize(length);
  return out;
}

std::string Compress(const std::string& data, int level) {
  std::string out(VEKSysCompressBound(data.size()), '\0');
  std::size_t length = out.size();
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), level, &out[0], &length), 0);
  out.resize(length);
  return out;
}

TEST(SysCompressTest, StreamsInflateBackAtEveryLevel) {
  std::string data;
  for (int i = 0; data.size() < 300000; ++i) data += "<TPS Id=\"" + std::to_string(i) + "\"/>\n";
  for (const std::string& input : {std::string(), std::string("x"), data}) {
    for (int level = 0; level <= 12; level += 3) {
      EXPECT_EQ(InflateWithZlib(Compress(input, level), input.size() + 1), input) << level;
    }
  }
}

TEST(SysCompressTest, RefusesBadArgumentsAndShortTargets) {
  const std::string data(1000, 'a');
  char target[4096];
  std::size_t length = sizeof target;
  EXPECT_EQ(VEKSysCompress(nullptr, 1, 6, target, &length), VEKCompressInvalidArgument);
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), 6, nullptr, &length),
            VEKCompressInvalidArgument);
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), 6, target, nullptr),
            VEKCompressInvalidArgument);
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), -1, target, &length),
            VEKCompressInvalidArgument);
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), 13, target, &length),
            VEKCompressInvalidArgument);
  length = 4;
  EXPECT_EQ(VEKSysCompress(data.data(), data.size(), 0, target, &length),
            VEKCompressTargetTooSmall);
  EXPECT_EQ(length, 4u);
}

}  // namespace
