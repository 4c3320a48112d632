#include "VEKToolInput.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

// Standard input as it comes, one chunk at a time, never holding more than `limit` + 1 bytes: an
// endless stream stops at the limit instead of filling memory. False with a message.
bool ReadStandardInput(std::uint64_t limit, std::string& bytes, std::string& error) {
  constexpr std::size_t kChunk = 1 << 16;
  for (;;) {
    const std::size_t start = bytes.size();
    bytes.resize(start + kChunk);
    const ssize_t count = read(STDIN_FILENO, &bytes[start], kChunk);
    if (count < 0 && errno == EINTR) {
      bytes.resize(start);
      continue;
    }
    if (count < 0) {
      error = std::string("cannot read: ") + std::strerror(errno);
      return false;
    }
    bytes.resize(start + static_cast<std::size_t>(count));
    if (count == 0) return true;
    if (bytes.size() > limit) {
      error = "standard input holds more than " + std::to_string(limit) +
              " bytes, the most a document may have";
      return false;
    }
  }
}

}  // namespace

bool VEKToolLoad(const std::string& path, const VEKTPSLightLoadOptions& options,
                 VEKTPSLightDocument& document, std::string& error) {
  if (path != "-") {
    document = VEKLoadDocumentFile(path.c_str(), options);
    return true;
  }
  std::string bytes;
  if (!ReadStandardInput(options.maxInputBytes, bytes, error)) return false;
  document = VEKLoadDocument(bytes.data(), bytes.size(), options);
  return true;
}

VEKToolHeldSignals::VEKToolHeldSignals() noexcept {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&held, signal);
  (void)sigprocmask(SIG_BLOCK, &held, &previous_);
}

VEKToolHeldSignals::~VEKToolHeldSignals() { (void)sigprocmask(SIG_SETMASK, &previous_, nullptr); }
