// A document's bytes as the tests hand them over: read from a file, in base64, zlib-compressed.
// zlib, not our own compressor, makes the streams, so a load is judged against an outside writer.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "VEKCodePage.h"
#include "VEKUnicodeString.h"

namespace vek_test {

// The whole content of a file; empty when it cannot be read.
inline std::string ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Base64 form of `bytes` (standard alphabet, padded).
inline std::string ToBase64(const std::string& bytes) {
  VEKUnicodeString text;
  EXPECT_EQ(0, VEKCodePage::ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()),
                                            static_cast<unsigned int>(bytes.size()), text));
  return text.ConvertToChar();
}

// zlib-format (RFC 1950) compressed form of `bytes`.
inline std::string ZlibCompress(const std::string& bytes) {
  uLongf capacity = compressBound(static_cast<uLong>(bytes.size()));
  std::string out(capacity, '\0');
  EXPECT_EQ(Z_OK, compress2(reinterpret_cast<Bytef*>(out.data()), &capacity,
                            reinterpret_cast<const Bytef*>(bytes.data()),
                            static_cast<uLong>(bytes.size()), Z_BEST_COMPRESSION));
  out.resize(capacity);
  return out;
}

}  // namespace vek_test
