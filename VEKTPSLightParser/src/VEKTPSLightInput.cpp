// Reading a document file and decoding its bytes for the one-call load.
#include "VEKTPSLightInput.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "VEKCodePage.h"
#include "VEKSysUncompress.h"

namespace vek_parser_detail {

namespace {

// The XML parser reads at most this many bytes.
constexpr std::uint64_t kMaxParsed = INT_MAX;

// Regular files from this size on are mapped rather than read: the parser's copy is then the only
// one (a 40 MB file costs some 2 ms mapped against 18 ms read). Below it the two cost the same
// within microseconds, and reading keeps small files clear of the mapping's hazard: a file cut
// short by another process while it is mapped raises SIGBUS.
constexpr std::uint64_t kMapFromBytes = 1 << 20;

bool IsBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool IsBase64Character(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/' || c == '=';
}

// Offset of the first byte that is neither a base64 character nor a blank (`length` when none),
// and the count of base64 characters before it.
std::size_t FirstNonBase64(const unsigned char* bytes, std::size_t length,
                           std::size_t* characters = nullptr) {
  std::size_t count = 0;
  std::size_t at = 0;
  for (; at < length; ++at) {
    if (IsBase64Character(bytes[at])) {
      ++count;
    } else if (!IsBlank(bytes[at])) {
      break;
    }
  }
  if (characters) *characters = count;
  return at;
}

// A zlib stream starts with a header whose compression method is deflate with a window of at
// most 32 KB and whose two bytes, read as a big-endian number, are a multiple of 31.
bool HasZlibHeader(const unsigned char* bytes, std::size_t length) {
  if (length < 2) return false;
  const unsigned method = bytes[0];
  return (method & 0x0F) == 8 && (method >> 4) <= 7 && ((method << 8) | bytes[1]) % 31 == 0;
}

std::string ErrorText(int error) {
  char buffer[128];
  // The GNU strerror_r returns its text, in `buffer` or static.
  return strerror_r(error, buffer, sizeof buffer);
}

class VEKDescriptor {
 public:
  explicit VEKDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~VEKDescriptor() {
    if (descriptor_ >= 0) (void)close(descriptor_);
  }
  VEKDescriptor(const VEKDescriptor&) = delete;
  VEKDescriptor& operator=(const VEKDescriptor&) = delete;
  int Get() const noexcept { return descriptor_; }

 private:
  int descriptor_;
};

std::string TooLargeText(const char* what, std::uint64_t maxBytes) {
  return std::string(what) + " more than " + std::to_string(maxBytes) +
         " bytes, the most a document may have";
}

// Why base64 text whose characters are all right does not decode; empty when nothing in its
// shape explains it (memory then ran out).
const char* Base64ShapeFault(const unsigned char* bytes, std::size_t length) {
  std::size_t characters = 0;
  std::size_t padding = 0;
  for (std::size_t at = 0; at < length; ++at) {
    if (IsBlank(bytes[at])) continue;
    // Padding ends the text: a character after it is out of place.
    if (padding > 0 && bytes[at] != '=') return "its padding is not at its end";
    padding += bytes[at] == '=';
    ++characters;
  }
  if (characters == 0) return "it is empty";
  if (characters % 4 != 0) return "its length is not a whole number of 4-character groups";
  if (padding > 2) return "its padding is longer than two characters";
  return "";
}

VEKTPSLightLoadStatus DecodeBase64(std::uint64_t maxBytes, VEKLoadBytes& input,
                                   std::string& error) {
  std::size_t characters = 0;
  const std::size_t wrong = FirstNonBase64(input.bytes, input.length, &characters);
  if (wrong < input.length) {
    char text[96];
    const unsigned char byte = input.bytes[wrong];
    if (byte >= 0x21 && byte < 0x7F) {
      std::snprintf(text, sizeof text, "'%c' at offset %zu is not a base64 character", byte, wrong);
    } else {
      std::snprintf(text, sizeof text, "byte 0x%02x at offset %zu is not a base64 character", byte,
                    wrong);
    }
    error = std::string("the base64 text does not decode: ") + text;
    return VEKTPSLightLoadStatus::DecodeFailed;
  }
  // Three bytes for every four characters, less up to two of padding: refused before decoding
  // when they cannot fit.
  const std::uint64_t groups = characters / 4 * 3;
  if (groups - std::min<std::uint64_t>(groups, 2) > maxBytes) {
    error = TooLargeText("the base64 text decodes to", maxBytes);
    return VEKTPSLightLoadStatus::TooLarge;
  }
  // The decoder reads a C string.
  VEKOwnedBytes terminated = VEKNoBytes();
  const unsigned char* text = input.bytes;
  if (!input.zeroAfter) {
    terminated = VEKOwnedBytes(new (std::nothrow) unsigned char[input.length + 1], VEKDeleteArray);
    if (!terminated) return VEKTPSLightLoadStatus::OutOfMemory;
    std::copy(input.bytes, input.bytes + input.length, terminated.get());
    terminated.get()[input.length] = 0;
    text = terminated.get();
  }
  unsigned char* decoded = nullptr;
  unsigned int decodedLength = 0;
  const int result =
      VEKCodePage::ConvertFromBase64(reinterpret_cast<const char*>(text), decoded, decodedLength);
  VEKOwnedBytes owned(decoded, VEKDeleteArray);
  if (result < 0 || !decoded) {
    const char* fault = Base64ShapeFault(input.bytes, input.length);
    if (!*fault) return VEKTPSLightLoadStatus::OutOfMemory;
    error = std::string("the base64 text does not decode: ") + fault;
    return VEKTPSLightLoadStatus::DecodeFailed;
  }
  if (decodedLength > maxBytes) {
    error = TooLargeText("the base64 text decodes to", maxBytes);
    return VEKTPSLightLoadStatus::TooLarge;
  }
  input.owned = std::move(owned);
  input.bytes = decoded;
  input.length = decodedLength;
  input.zeroAfter = false;
  return VEKTPSLightLoadStatus::Loaded;
}

VEKTPSLightLoadStatus Inflate(std::uint64_t maxBytes, VEKLoadBytes& input, std::string& error) {
  if (input.length > kMaxParsed) {
    error = TooLargeText("the zlib data holds", kMaxParsed);
    return VEKTPSLightLoadStatus::TooLarge;
  }
  const std::uint64_t deflateBound = input.length * std::uint64_t{kVEKMaxInflateRatio};
  const std::uint64_t room =
      std::max<std::uint64_t>(std::min({deflateBound, maxBytes, kMaxParsed}), 1);
  // Zeroed memory from the system costs no resident page until the stream writes it, so room
  // for the largest output the stream could have costs address space, not memory.
  VEKOwnedBytes inflated(static_cast<unsigned char*>(std::calloc(room, 1)), VEKFreeBlock);
  if (!inflated) return VEKTPSLightLoadStatus::OutOfMemory;
  auto produced = static_cast<unsigned int>(room);
  const int result =
      VEKSysUncompress(reinterpret_cast<const char*>(input.bytes), static_cast<int>(input.length),
                       reinterpret_cast<char*>(inflated.get()), &produced);
  switch (result) {
    case 0:
      break;
    case VEKUncompressOutOfMemory:
      return VEKTPSLightLoadStatus::OutOfMemory;
    case VEKUncompressTargetTooSmall:
      if (room < deflateBound) {
        error = TooLargeText("the zlib data decompresses to", room);
        return VEKTPSLightLoadStatus::TooLarge;
      }
      error = "the zlib data does not decode: it is corrupt or cut short";
      return VEKTPSLightLoadStatus::DecodeFailed;
    case VEKUncompressTrailingBytes:
      error = "the zlib data does not decode: bytes follow the end of its stream";
      return VEKTPSLightLoadStatus::DecodeFailed;
    default:
      error = "the zlib data does not decode: it is corrupt or cut short";
      return VEKTPSLightLoadStatus::DecodeFailed;
  }
  input.owned = std::move(inflated);
  input.bytes = input.owned.get();
  input.length = produced;
  input.zeroAfter = false;
  return VEKTPSLightLoadStatus::Loaded;
}

// Maps `size` bytes of the regular file `file` read-only into `input`; false when the system
// refuses, and the file is then read instead.
bool MapFile(int file, std::size_t size, VEKLoadBytes& input) noexcept {
  void* mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
  if (mapped == MAP_FAILED) return false;
  // The parse reads the text front to back: read ahead far.
  (void)madvise(mapped, size, MADV_SEQUENTIAL);
  input.owned = VEKOwnedBytes(static_cast<unsigned char*>(mapped), VEKBytesRelease::Unmap(size));
  input.bytes = input.owned.get();
  input.length = size;
  input.zeroAfter = false;
  return true;
}

}  // namespace

VEKBytesRelease VEKBytesRelease::Unmap(std::size_t length) noexcept {
  VEKBytesRelease release(nullptr);
  release.mappedLength_ = length;
  return release;
}

void VEKBytesRelease::operator()(unsigned char* bytes) const noexcept {
  if (free_) {
    free_(bytes);
  } else {
    (void)munmap(bytes, mappedLength_);
  }
}

VEKTPSLightForm VEKDetectForm(const unsigned char* bytes, std::size_t length) noexcept {
  if (length >= 2 &&
      ((bytes[0] == 0xFE && bytes[1] == 0xFF) || (bytes[0] == 0xFF && bytes[1] == 0xFE))) {
    return VEKTPSLightForm::Plain;
  }
  std::size_t start =
      length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF ? 3 : 0;
  while (start < length && IsBlank(bytes[start])) ++start;
  if (start == length || bytes[start] == '<') return VEKTPSLightForm::Plain;
  if (FirstNonBase64(bytes, length) == length) return VEKTPSLightForm::Base64;
  if (HasZlibHeader(bytes, length)) return VEKTPSLightForm::Zlib;
  // Text that cannot be XML and starts as base64 is damaged base64: its decoder names the fault.
  return IsBase64Character(bytes[start]) ? VEKTPSLightForm::Base64 : VEKTPSLightForm::Plain;
}

VEKTPSLightLoadStatus VEKReadDocumentFile(const char* path, std::uint64_t maxBytes,
                                          VEKLoadBytes& input, std::string& error) {
  const VEKDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (file.Get() < 0) {
    error = "cannot open: " + ErrorText(errno);
    return VEKTPSLightLoadStatus::ReadFailed;
  }
  struct stat status {};
  if (fstat(file.Get(), &status) != 0) {
    error = "cannot read: " + ErrorText(errno);
    return VEKTPSLightLoadStatus::ReadFailed;
  }
  if (S_ISDIR(status.st_mode)) {
    error = "cannot read: it is a directory";
    return VEKTPSLightLoadStatus::ReadFailed;
  }
  // Room for one byte past the most allowed shows a file that is too large without reading on.
  const std::uint64_t most = std::min<std::uint64_t>(maxBytes, SIZE_MAX - 2) + 1;
  const bool regular = S_ISREG(status.st_mode);
  if (regular && static_cast<std::uint64_t>(status.st_size) > maxBytes) {
    error = "the file holds " + std::to_string(status.st_size) + " bytes, more than the " +
            std::to_string(maxBytes) + " a document may have";
    return VEKTPSLightLoadStatus::TooLarge;
  }
  if (regular && static_cast<std::uint64_t>(status.st_size) >= kMapFromBytes &&
      MapFile(file.Get(), static_cast<std::size_t>(status.st_size), input)) {
    return VEKTPSLightLoadStatus::Loaded;
  }
  // A regular file is read into room for its size and one more byte, where the end shows; a pipe
  // or a device in growing chunks.
  std::size_t capacity = static_cast<std::size_t>(std::min<std::uint64_t>(
      regular ? static_cast<std::uint64_t>(status.st_size) + 1 : 1 << 16, most));
  // One byte more than the capacity holds the zero after the text.
  VEKOwnedBytes block(static_cast<unsigned char*>(std::malloc(capacity + 1)), VEKFreeBlock);
  if (!block) return VEKTPSLightLoadStatus::OutOfMemory;
  std::size_t used = 0;
  for (;;) {
    if (used == capacity) {
      if (capacity >= most) {
        error = TooLargeText("the file holds", maxBytes);
        return VEKTPSLightLoadStatus::TooLarge;
      }
      const std::size_t grown =
          static_cast<std::size_t>(std::min<std::uint64_t>(std::uint64_t{capacity} * 2, most));
      auto* larger = static_cast<unsigned char*>(std::realloc(block.get(), grown + 1));
      if (!larger) return VEKTPSLightLoadStatus::OutOfMemory;
      (void)block.release();
      block.reset(larger);
      capacity = grown;
    }
    const ssize_t count = read(file.Get(), block.get() + used, capacity - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      error = "cannot read: " + ErrorText(errno);
      return VEKTPSLightLoadStatus::ReadFailed;
    }
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  if (used > maxBytes) {
    error = TooLargeText("the file holds", maxBytes);
    return VEKTPSLightLoadStatus::TooLarge;
  }
  block.get()[used] = 0;
  input.bytes = block.get();
  input.length = used;
  input.owned = std::move(block);
  input.zeroAfter = true;
  return VEKTPSLightLoadStatus::Loaded;
}

VEKTPSLightLoadStatus VEKDecodeDocument(VEKTPSLightForm form, std::uint64_t maxBytes,
                                        VEKLoadBytes& input, std::string& error) {
  switch (form) {
    case VEKTPSLightForm::Base64:
      return DecodeBase64(maxBytes, input, error);
    case VEKTPSLightForm::Zlib:
      return Inflate(maxBytes, input, error);
    default:
      return VEKTPSLightLoadStatus::Loaded;
  }
}

}  // namespace vek_parser_detail
