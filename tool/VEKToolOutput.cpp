#include "VEKToolOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include "VEKToolInput.h"

namespace {

std::string Reason(const std::string& what) { return what + ": " + std::strerror(errno); }

bool WriteAll(int descriptor, const char* bytes, std::size_t length) {
  while (length > 0) {
    const ssize_t written = write(descriptor, bytes, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

// A temporary file beside the destination, made exclusively under an unpredictable name and never
// through a link; interruptions are held while it exists.
struct VEKToolOutput::File {
  VEKToolHeldSignals held;
  std::string temporary;
  int descriptor = -1;

  ~File() {
    if (descriptor >= 0) (void)close(descriptor);
    if (!temporary.empty()) (void)unlink(temporary.c_str());
  }

  bool Open(const std::string& path, std::string& error) {
    for (int attempt = 0; attempt < 16; ++attempt) {
      unsigned long long random = 0;
      if (getrandom(&random, sizeof random, 0) != sizeof random) {
        error = Reason("cannot write " + path);
        return false;
      }
      char suffix[32];
      std::snprintf(suffix, sizeof suffix, ".%016llx.tmp", random);
      const std::string name = path + suffix;
      descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
      if (descriptor >= 0) {
        temporary = name;
        return true;
      }
      if (errno != EEXIST) break;
    }
    error = Reason("cannot write " + path);
    return false;
  }
};

VEKToolOutput::VEKToolOutput(std::string path) : path_(path == "-" ? "" : std::move(path)) {}

VEKToolOutput::~VEKToolOutput() = default;

bool VEKToolOutput::Write(const std::string& text, std::string& error) {
  if (path_.empty()) {
    if (WriteAll(STDOUT_FILENO, text.data(), text.size())) return true;
    error = errno == EPIPE ? "" : Reason("cannot write to standard output");
    return false;
  }
  if (!file_) {
    file_ = std::make_unique<File>();
    if (!file_->Open(path_, error)) return false;
  }
  if (WriteAll(file_->descriptor, text.data(), text.size())) return true;
  error = Reason("cannot write " + path_);
  return false;
}

bool VEKToolOutput::Commit(std::string& error) {
  if (path_.empty()) return true;
  if (!file_ && !Write("", error)) return false;
  const int descriptor = std::exchange(file_->descriptor, -1);
  if (close(descriptor) != 0 || std::rename(file_->temporary.c_str(), path_.c_str()) != 0) {
    error = Reason("cannot write " + path_);
    return false;
  }
  file_->temporary.clear();
  file_.reset();
  return true;
}
