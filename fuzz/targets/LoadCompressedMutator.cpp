// libFuzzer mutator for the compressed-load target: random bytes almost never form a zlib stream,
// so most mutations inflate the stream, mutate the XML inside and deflate it again, with the
// header's sizes set to match. Every eighth mutation works on the raw bytes instead, to reach the
// decompressor's and the header's failure paths.
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kMaxXmlBytes = 1u << 20;

bool Inflate(const std::uint8_t* stream, std::size_t length, std::vector<std::uint8_t>& xml) {
  xml.resize(kMaxXmlBytes);
  uLongf produced = xml.size();
  if (uncompress(xml.data(), &produced, stream, length) != Z_OK) return false;
  xml.resize(produced);
  return true;
}

void PutWord(std::uint8_t* at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed) {
  std::vector<std::uint8_t> xml;
  if (seed % 8 == 0 || size <= kHeaderBytes ||
      !Inflate(data + kHeaderBytes, size - kHeaderBytes, xml)) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  const std::size_t xmlLength = xml.size();
  xml.resize(xmlLength + xmlLength / 2 + 64);
  xml.resize(LLVMFuzzerMutate(xml.data(), xmlLength, xml.size()));

  uLongf streamLength = compressBound(xml.size());
  std::vector<std::uint8_t> stream(streamLength);
  if (compress2(stream.data(), &streamLength, xml.data(), xml.size(), 6) != Z_OK ||
      kHeaderBytes + streamLength > maxSize) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  // Now and then the declared size is a little off, in either direction.
  std::uint32_t declared = static_cast<std::uint32_t>(xml.size());
  if (seed % 16 == 1) declared += seed % 7;
  if (seed % 16 == 2 && declared > 0) declared -= 1;
  PutWord(data, declared);
  PutWord(data + 4, static_cast<std::uint32_t>(streamLength));
  std::memcpy(data + kHeaderBytes, stream.data(), streamLength);
  return kHeaderBytes + streamLength;
}
