// Runs LLVMFuzzerTestOneInput over every file below the directories (or files) named on the
// command line, so a target's corpus replays without libFuzzer, in ordinary and sanitizer builds
// and under a debugger. Paths that do not exist are skipped, so optional corpora may be named.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "FuzzSupport.h"

namespace fs = std::filesystem;

namespace {

void CollectInputs(const fs::path& root, std::vector<fs::path>& inputs) {
  std::error_code error;
  if (fs::is_regular_file(root, error)) {
    inputs.push_back(fs::absolute(root));
    return;
  }
  if (!fs::is_directory(root, error)) {
    std::printf("skipped (absent): %s\n", root.c_str());
    return;
  }
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
       it.increment(error)) {
    if (it->is_regular_file(error)) inputs.push_back(fs::absolute(it->path()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) CollectInputs(argv[i], inputs);
  // A fixed order makes a failure reproducible from the log alone.
  std::sort(inputs.begin(), inputs.end());
  for (const fs::path& input : inputs) {
    std::ifstream file(input, std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                  std::istreambuf_iterator<char>()};
    // An exact-size heap copy, so a read past the end shows under AddressSanitizer.
    std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
    (void)LLVMFuzzerTestOneInput(copy.empty() ? nullptr : copy.data(), copy.size());
  }
  std::printf("replayed %zu inputs\n", inputs.size());
  return 0;
}
