// Byte streams over memory: the caller's bytes for reading, a growing array for writing.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include "VEKLightXml.h"

VEKLightXmlInputStream::~VEKLightXmlInputStream() = default;

VEKLightXmlOutputStream::~VEKLightXmlOutputStream() = default;

VEKLightXmlInputStreamBuffer::VEKLightXmlInputStreamBuffer(const unsigned char* bytes,
                                                           int length) noexcept
    : bytes_(bytes && length > 0 ? bytes : nullptr), length_(bytes && length > 0 ? length : 0) {}

VEKLightXmlInputStreamBuffer::~VEKLightXmlInputStreamBuffer() = default;

int VEKLightXmlInputStreamBuffer::GetLength() const { return length_; }

const unsigned char* VEKLightXmlInputStreamBuffer::GetBytes() const { return bytes_; }

int VEKLightXmlInputStreamBuffer::Read(unsigned char* target, int capacity) {
  if (!target || capacity <= 0) return 0;
  const int count = std::min(capacity, length_ - position_);
  if (count <= 0) return 0;
  std::memcpy(target, bytes_ + position_, static_cast<std::size_t>(count));
  position_ += count;
  return count;
}

VEKLightXmlOutputStreamBuffer::VEKLightXmlOutputStreamBuffer() noexcept = default;

VEKLightXmlOutputStreamBuffer::~VEKLightXmlOutputStreamBuffer() { delete[] bytes_; }

int VEKLightXmlOutputStreamBuffer::Write(const unsigned char* bytes, int length) {
  if (!bytes || length <= 0) return 0;
  // The total never exceeds INT_MAX, since lengths are ints.
  int count = std::min(length, INT_MAX - length_);
  if (count > capacity_ - length_) {
    const std::int64_t needed = std::int64_t{length_} + count;
    std::int64_t capacity = std::max<std::int64_t>(capacity_, 256);
    while (capacity < needed) capacity *= 2;
    capacity = std::min<std::int64_t>(capacity, INT_MAX);
    auto* grown = new (std::nothrow) unsigned char[static_cast<std::size_t>(capacity)];
    if (!grown && capacity > needed) {
      capacity = needed;
      grown = new (std::nothrow) unsigned char[static_cast<std::size_t>(capacity)];
    }
    if (grown) {
      if (length_ > 0) std::memcpy(grown, bytes_, static_cast<std::size_t>(length_));
      delete[] bytes_;
      bytes_ = grown;
      capacity_ = static_cast<int>(capacity);
    } else {
      // Out of memory: take what still fits.
      count = capacity_ - length_;
    }
  }
  if (count <= 0) return 0;
  std::memcpy(bytes_ + length_, bytes, static_cast<std::size_t>(count));
  length_ += count;
  return count;
}

int VEKLightXmlOutputStreamBuffer::GetLength() const { return length_; }

void VEKLightXmlOutputStreamBuffer::Clear() {
  delete[] bytes_;
  bytes_ = nullptr;
  length_ = 0;
  capacity_ = 0;
}

void VEKLightXmlOutputStreamBuffer::GetBuffer(unsigned char*& bytes, int& length) noexcept {
  if (length_ == 0) {
    Clear();
    bytes = nullptr;
    length = 0;
    return;
  }
  bytes = bytes_;
  length = length_;
  bytes_ = nullptr;
  length_ = 0;
  capacity_ = 0;
}
