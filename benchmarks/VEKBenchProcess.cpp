#include "VEKBenchMemory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <pugixml.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightParserUtil.h"

namespace {

// A "VmRSS:" or "VmHWM:" line of /proc/self/status, in bytes; -1 when absent.
std::int64_t StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(field) + ":";
  while (std::getline(status, line)) {
    if (line.compare(0, prefix.size(), prefix) == 0) {
      return std::stoll(line.substr(prefix.size())) * 1024;
    }
  }
  return -1;
}

// Writing 5 to clear_refs resets the peak to the current resident size.
bool ResetPeak() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.close();
  return static_cast<bool>(clear);
}

const char* LoadName(VEKMemoryLoad load) {
  switch (load) {
    case VEKMemoryLoad::Current:
      return "current";
    case VEKMemoryLoad::Legacy:
      return "legacy";
    case VEKMemoryLoad::Pugixml:
      return "pugixml";
  }
  return "current";
}

}  // namespace

std::int64_t VEKMeasureLoadPeak(const std::string& program, VEKMemoryLoad load,
                                const std::string& file, const std::string& directory) {
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) throw std::runtime_error("no pipe for the memory child");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("the memory child could not start");
  if (child == 0) {
    close(pipeEnds[0]);
    if (dup2(pipeEnds[1], STDOUT_FILENO) < 0 || chdir(directory.c_str()) != 0) _exit(126);
    std::vector<std::string> arguments = {program, "--memory-child", LoadName(load), file};
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(pipeEnds[1]);
  std::string output;
  char buffer[256];
  ssize_t count = 0;
  while ((count = read(pipeEnds[0], buffer, sizeof buffer)) > 0) {
    output.append(buffer, static_cast<std::size_t>(count));
  }
  close(pipeEnds[0]);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
      output.empty()) {
    throw std::runtime_error(std::string("the memory child for the ") + LoadName(load) +
                             " load failed");
  }
  return std::stoll(output);
}

int VEKRunMemoryChild(const std::string& load, const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (text.empty()) return 1;

  // The host's copy of the document is in place before the baseline; a plain-text host holds
  // it as a string of the model's string type.
  VEKUnicodeString source;
  if (load == "current") {
    source = VEKUnicodeString(text.data(), text.size());
    std::string().swap(text);
  }
  const std::int64_t baseline = StatusBytes("VmRSS");
  if (!ResetPeak()) return 1;

  bool loaded = false;
  {
    VEKTPSLightParserUtil parser;
    VEKComPtr<VEKITPSLightSet> set;
    pugi::xml_document document;
    if (load == "current") {
      loaded = parser.GenerateLightModelFromBase(source, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                                 nullptr, 0, 0) == S_OK;
    } else if (load == "legacy") {
      loaded =
          parser.GenerateLightModel(text.c_str(), nullptr, set.ReleaseAndGetAddressOf()) == S_OK;
    } else if (load == "pugixml") {
      loaded = static_cast<bool>(document.load_buffer(text.data(), text.size()));
    }
    // The peak is read while the model (or DOM) still lives.
    const std::int64_t peak = StatusBytes("VmHWM");
    if (!loaded || baseline < 0 || peak < 0) return 1;
    std::printf("%lld\n", static_cast<long long>(peak - baseline));
  }
  return 0;
}
