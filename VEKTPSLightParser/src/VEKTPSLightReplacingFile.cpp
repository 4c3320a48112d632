#include "VEKTPSLightReplacingFile.h"

#include <sys/random.h>

#include <cerrno>
#include <climits>
#include <new>

#include <fcntl.h>
#include <unistd.h>

namespace vek_parser_detail {

namespace {

// Names tried before giving up: a clash with an existing file is already unlikely once.
constexpr int kNameAttempts = 16;

// A suffix of 64 random bits; false when the system gives none.
bool RandomSuffix(char (&suffix)[24]) noexcept {
  std::uint64_t bits = 0;
  ssize_t got = -1;
  do {
    got = getrandom(&bits, sizeof bits, 0);
  } while (got < 0 && errno == EINTR);
  if (got != static_cast<ssize_t>(sizeof bits)) return false;
  std::snprintf(suffix, sizeof suffix, ".%016llx.tmp", static_cast<unsigned long long>(bits));
  return true;
}

}  // namespace

VEKReplacingFile::~VEKReplacingFile() { Abandon(); }

int VEKReplacingFile::Open(const char* finalName) noexcept {
  if (!finalName || !*finalName) return ENOENT;
  Abandon();
  error_ = 0;
  length_ = 0;
  try {
    finalName_ = finalName;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
      char suffix[24];
      if (!RandomSuffix(suffix)) return errno ? errno : EIO;
      temporaryName_ = finalName_ + suffix;
      const int descriptor =
          open(temporaryName_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
      if (descriptor < 0) {
        if (errno == EEXIST) continue;
        const int error = errno;
        temporaryName_.clear();
        return error;
      }
      file_ = fdopen(descriptor, "wb");
      if (file_) return 0;
      const int error = errno;
      (void)close(descriptor);
      Abandon();
      return error;
    }
  } catch (const std::bad_alloc&) {
    temporaryName_.clear();
    return ENOMEM;
  }
  temporaryName_.clear();
  return EEXIST;
}

bool VEKReplacingFile::WriteAll(const void* bytes, std::size_t length) noexcept {
  if (!file_ || error_ != 0) return false;
  if (length == 0) return true;
  const std::size_t written = std::fwrite(bytes, 1, length, file_);
  length_ += static_cast<std::int64_t>(written);
  if (written != length) error_ = errno ? errno : EIO;
  return error_ == 0;
}

int VEKReplacingFile::Write(const unsigned char* bytes, int length) {
  if (!bytes || length <= 0) return 0;
  const std::int64_t before = length_;
  (void)WriteAll(bytes, static_cast<std::size_t>(length));
  return static_cast<int>(length_ - before);
}

int VEKReplacingFile::GetLength() const {
  return static_cast<int>(length_ < INT_MAX ? length_ : INT_MAX);
}

int VEKReplacingFile::Commit() noexcept {
  if (!file_) return error_ ? error_ : EBADF;
  if (error_ == 0 && (std::fflush(file_) != 0 || std::ferror(file_))) error_ = errno ? errno : EIO;
  const int closed = std::fclose(file_);
  file_ = nullptr;
  if (error_ == 0 && closed != 0) error_ = errno ? errno : EIO;
  if (error_ == 0 && std::rename(temporaryName_.c_str(), finalName_.c_str()) != 0) error_ = errno;
  if (error_ != 0) {
    Abandon();
    return error_;
  }
  temporaryName_.clear();
  return 0;
}

void VEKReplacingFile::Abandon() noexcept {
  if (file_) {
    (void)std::fclose(file_);
    file_ = nullptr;
  }
  if (!temporaryName_.empty()) {
    (void)unlink(temporaryName_.c_str());
    temporaryName_.clear();
  }
}

}  // namespace vek_parser_detail
