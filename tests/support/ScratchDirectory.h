// A fresh directory made the working directory for the life of the object, then removed with
// everything left in it: current-schema loads write their dump into the working directory.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace vek_test {

class ScratchDirectory {
 public:
  ScratchDirectory() {
    char pattern[] = "/tmp/vek-test-XXXXXX";
    if (!mkdtemp(pattern)) return;
    path_ = pattern;
    entered_ = getcwd(previous_, sizeof previous_) && chdir(pattern) == 0;
  }
  ~ScratchDirectory() {
    if (entered_) (void)chdir(previous_);
    std::error_code ignored;
    if (!path_.empty()) (void)std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  // Whether the directory was made and entered.
  bool Entered() const { return entered_; }
  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
  char previous_[4096] = {};
  bool entered_ = false;
};

// The names of the entries of `directory`, sorted.
inline std::vector<std::string> FileNames(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vek_test
