#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "VEKSysUncompress.h"

namespace {

// A stream made by zlib: windowBits 15 gives the zlib format, -15 raw deflate, 31 gzip.
std::string Compress(const std::string& data, int windowBits = 15) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(deflateBound(&stream, data.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  (void)deflateEnd(&stream);
  return out;
}

std::string Payload(std::size_t size) {
  std::string data;
  for (std::size_t i = 0; data.size() < size; ++i) {
    data += "<TPS Id=\"" + std::to_string(i * 7919 % 1000) + "\"/>\n";
  }
  data.resize(size);
  return data;
}

constexpr char kCanary = '\x5A';
constexpr std::size_t kCanaryBytes = 16;

struct Outcome {
  int result;
  unsigned int length;
  std::string output;
};

// Decompresses into a buffer of `capacity` bytes followed by canary bytes that must survive.
Outcome Uncompress(const std::string& stream, unsigned int capacity) {
  std::vector<char> target(capacity + kCanaryBytes, kCanary);
  unsigned int length = capacity;
  const int result =
      VEKSysUncompress(stream.data(), static_cast<int>(stream.size()), target.data(), &length);
  for (std::size_t i = capacity; i < target.size(); ++i) EXPECT_EQ(target[i], kCanary);
  return {result, length, std::string(target.data(), result == 0 ? length : 0)};
}

TEST(SysUncompress, FillsExactCapacityAndRejectsOneByteOver) {
  for (const unsigned int size : {0u, 1u, 1000u, 1u << 20}) {
    const std::string data = Payload(size);
    const std::string stream = Compress(data);
    const Outcome exact = Uncompress(stream, size);
    EXPECT_EQ(exact.result, 0) << size;
    EXPECT_EQ(exact.output, data);
    EXPECT_EQ(Uncompress(stream, size + 100).length, size);
    if (size == 0) continue;
    const Outcome shortTarget = Uncompress(stream, size - 1);
    EXPECT_EQ(shortTarget.result, VEKUncompressTargetTooSmall) << size;
    EXPECT_EQ(shortTarget.length, size - 1) << "length must stay as it was";
  }
}

TEST(SysUncompress, RejectsTruncatedCorruptAndForeignStreams) {
  const std::string data = Payload(5000);
  const std::string stream = Compress(data);
  auto flipped = [&](std::size_t offset, char flip) {
    std::string corrupt = stream;
    corrupt[offset] = static_cast<char>(corrupt[offset] ^ flip);
    return corrupt;
  };
  const struct {
    const char* what;
    std::string stream;
    int result = VEKUncompressCorruptData;
  } rows[] = {
      {"empty", ""},
      {"one byte", stream.substr(0, 1)},
      {"header only", stream.substr(0, 2)},
      {"half", stream.substr(0, stream.size() / 2)},
      {"no adler-32", stream.substr(0, stream.size() - 4)},
      // The missing bits read as zeros, which decode to more than the capacity.
      {"one byte short", stream.substr(0, stream.size() - 1), VEKUncompressTargetTooSmall},
      {"compression method", flipped(0, 0x01)},
      {"header check", flipped(1, 0x01)},
      {"preset dictionary flag", flipped(1, 0x20)},
      {"adler-32", flipped(stream.size() - 1, 0x01)},
      {"one trailing byte", stream + '\0', VEKUncompressTrailingBytes},
      {"raw deflate", Compress(data, -15)},
      {"gzip", Compress(data, 31)},
  };
  for (const auto& row : rows) {
    const Outcome outcome = Uncompress(row.stream, 5000);
    EXPECT_EQ(outcome.result, row.result) << row.what;
    EXPECT_EQ(outcome.length, 5000u) << row.what;
  }
  EXPECT_EQ(Uncompress(stream + stream, 10000).result, VEKUncompressTrailingBytes);
}

TEST(SysUncompress, RejectsBadArguments) {
  const std::string stream = Compress("payload");
  char target[16];
  unsigned int length = sizeof target;
  const int size = static_cast<int>(stream.size());
  EXPECT_EQ(VEKSysUncompress(nullptr, size, target, &length), VEKUncompressInvalidArgument);
  EXPECT_EQ(VEKSysUncompress(stream.data(), size, nullptr, &length), VEKUncompressInvalidArgument);
  EXPECT_EQ(VEKSysUncompress(stream.data(), size, target, nullptr), VEKUncompressInvalidArgument);
  EXPECT_EQ(VEKSysUncompress(stream.data(), -1, target, &length), VEKUncompressInvalidArgument);
  EXPECT_EQ(VEKSysUncompress(stream.data(), -2147483647 - 1, target, &length),
            VEKUncompressInvalidArgument);
  EXPECT_EQ(length, sizeof target);
  EXPECT_EQ(VEKSysUncompress(stream.data(), size, target, &length), 0);
  EXPECT_EQ(std::string(target, length), "payload");
}

}  // namespace
