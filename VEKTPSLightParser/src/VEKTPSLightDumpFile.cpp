// The dump of a parsed document: written whole under a temporary name beside the dump, then
// renamed over it, so the dump is always some load's whole document.
#include <sys/random.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <new>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightPipeline.h"

namespace {

// Names tried before giving up: a clash with an existing file is already unlikely once.
constexpr int kNameAttempts = 16;

// An output stream that writes into an open file and remembers whether every byte went in.
class VEKFileOutputStream final : public VEKLightXmlOutputStream {
 public:
  explicit VEKFileOutputStream(std::FILE* file) noexcept : file_(file) {}
  int Write(const unsigned char* bytes, int length) override {
    if (!bytes || length <= 0) return 0;
    const std::size_t written = std::fwrite(bytes, 1, static_cast<std::size_t>(length), file_);
    if (written != static_cast<std::size_t>(length)) complete_ = false;
    length_ += static_cast<std::int64_t>(written);
    return static_cast<int>(written);
  }
  int GetLength() const override { return static_cast<int>(length_ < INT_MAX ? length_ : INT_MAX); }
  // What is in the file stays there; only the count restarts.
  void Clear() override { length_ = 0; }
  bool Complete() const noexcept { return complete_; }

 private:
  std::FILE* file_;
  std::int64_t length_ = 0;
  bool complete_ = true;
};

bool RandomSuffix(std::string& suffix) {
  std::uint64_t bits = 0;
  ssize_t got = -1;
  do {
    got = getrandom(&bits, sizeof bits, 0);
  } while (got < 0 && errno == EINTR);
  if (got != static_cast<ssize_t>(sizeof bits)) return false;
  char text[24];
  std::snprintf(text, sizeof text, ".%016llx.tmp", static_cast<unsigned long long>(bits));
  suffix = text;
  return true;
}

// Opens a new file beside `finalName` under a name nobody can guess, never following a link and
// never reusing a file that exists; -1 when none could be made.
int CreateTemporary(const std::string& finalName, std::string& temporaryName) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    std::string suffix;
    if (!RandomSuffix(suffix)) return -1;
    temporaryName = finalName + suffix;
    const int descriptor =
        open(temporaryName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (descriptor >= 0 || errno != EEXIST) return descriptor;
  }
  return -1;
}

}  // namespace

bool vek_parser_detail::VEKWriteDump(const std::string& finalName,
                                     const VEKLightXmlElementItf& element) {
  std::string temporaryName;
  const int descriptor = CreateTemporary(finalName, temporaryName);
  if (descriptor < 0) return false;
  std::FILE* file = fdopen(descriptor, "wb");
  if (!file) {
    (void)close(descriptor);
    (void)unlink(temporaryName.c_str());
    return false;
  }
  // The text goes straight into the file: no copy of the whole document is ever held. An element
  // that designates nothing writes an empty dump.
  VEKFileOutputStream output(file);
  VEKLightXmlParser parser;
  (void)parser.GetXml(element, output);
  const bool written = output.Complete() && std::fflush(file) == 0 && !std::ferror(file);
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed || std::rename(temporaryName.c_str(), finalName.c_str()) != 0) {
    (void)unlink(temporaryName.c_str());
    return false;
  }
  return true;
}

HRESULT VEKTPSLightParserUtil::GenerateFile(VEKUnicodeString& fileName,
                                            VEKLightXmlElementItf& element) {
  if (fileName.GetLengthInChar() == 0) return E_FAIL;
  // A dump that cannot be written is skipped without a word: the load never depends on it.
  try {
    (void)vek_parser_detail::VEKWriteDump(fileName.CastToCharPtr(), element);
  } catch (const std::bad_alloc&) {
    // Nor is one whose temporary name could not be made for want of memory.
  }
  return S_OK;
}
