#include "FuzzSupport.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace vek_fuzz {
namespace {

std::string& ScratchDirectory() {
  static std::string directory;
  return directory;
}

void RemoveScratchDirectory() {
  // Only the dump file is ever written here.
  (void)unlink("E:\\TPSLoadXML.xml");
  if (!ScratchDirectory().empty()) (void)rmdir(ScratchDirectory().c_str());
}

}  // namespace

void EnterScratchDirectory() {
  static const bool entered = [] {
    char pattern[] = "/tmp/vek-fuzz-XXXXXX";
    if (!mkdtemp(pattern) || chdir(pattern) != 0) {
      std::fprintf(stderr, "cannot enter a scratch directory\n");
      std::abort();
    }
    ScratchDirectory() = pattern;
    (void)std::atexit(RemoveScratchDirectory);
    return true;
  }();
  (void)entered;
}

}  // namespace vek_fuzz
