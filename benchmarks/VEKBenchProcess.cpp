#include "VEKBenchProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

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

const char* LoadName(VEKChildLoad load) {
  switch (load) {
    case VEKChildLoad::Current:
      return "current";
    case VEKChildLoad::Legacy:
      return "legacy";
    case VEKChildLoad::Pugixml:
      return "pugixml";
  }
  return "current";
}

std::string ReadWhole(const std::string& file) {
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) throw std::runtime_error("cannot open " + file);
  std::string bytes(static_cast<std::size_t>(in.tellg()), '\0');
  in.seekg(0);
  if (!in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
    throw std::runtime_error("cannot read " + file);
  }
  return bytes;
}

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* Get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// Starts `arguments`, in `directory` unless it is empty, with its standard output on our
// descriptor `output`, or on /dev/null when it is -1.
pid_t Spawn(const std::vector<std::string>& arguments, const std::string& directory, int output) {
  SpawnActions actions;
  int prepared =
      output < 0
          ? posix_spawn_file_actions_addopen(actions.Get(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0)
          : posix_spawn_file_actions_adddup2(actions.Get(), output, STDOUT_FILENO);
  if (!directory.empty()) {
    prepared |= posix_spawn_file_actions_addchdir_np(actions.Get(), directory.c_str());
  }
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = -1;
  if (prepared != 0 || posix_spawn(&child, argv[0], actions.Get(), nullptr, argv.data(), environ)) {
    throw std::runtime_error("cannot start " + arguments[0]);
  }
  return child;
}

// Waits for `child`; false unless it exited with status 0.
bool Reap(pid_t child, rusage& usage) {
  int status = 0;
  pid_t reaped = -1;
  do {
    reaped = wait4(child, &status, 0, &usage);
  } while (reaped < 0 && errno == EINTR);
  return reaped == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs `arguments` in `directory` and returns what they wrote on standard output; throws
// std::runtime_error, naming `what`, unless they exit with status 0.
std::string OutputOf(const std::vector<std::string>& arguments, const std::string& directory,
                     const std::string& what) {
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for " + what);
  pid_t child = -1;
  try {
    child = Spawn(arguments, directory, pipeEnds[1]);
  } catch (...) {
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    throw;
  }
  close(pipeEnds[1]);
  std::string output;
  char buffer[256];
  ssize_t count = 0;
  while ((count = read(pipeEnds[0], buffer, sizeof buffer)) > 0 || (count < 0 && errno == EINTR)) {
    if (count > 0) output.append(buffer, static_cast<std::size_t>(count));
  }
  close(pipeEnds[0]);
  rusage usage{};
  if (!Reap(child, usage)) throw std::runtime_error(what + " failed");
  return output;
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

VEKFreshLoad VEKMeasureFreshLoad(const std::string& program, VEKChildLoad load,
                                 const std::string& file, std::int64_t annotations,
                                 const std::string& directory) {
  const std::string what = std::string("the fresh process of the ") + LoadName(load) + " load";
  std::istringstream figures(
      OutputOf({program, kVEKLoadChildFlag, LoadName(load), file, std::to_string(annotations)},
               directory, what));
  VEKFreshLoad result;
  if (!(figures >> result.time.cpu >> result.time.wall >> result.time.teardown >>
        result.addedPeak)) {
    throw std::runtime_error(what + " gave no figures");
  }
  return result;
}

int VEKRunLoadChild(const std::string& load, const std::string& file,
                    const std::string& annotations) {
  try {
    std::string xml = ReadWhole(file);
    const std::int64_t expected = std::stoll(annotations);
    // The host's input is in place before the baseline: a plain-text host holds the document as a
    // string of the model's string type.
    VEKBenchDocument document;
    if (load == "current") VEKPrepareBenchDocument(std::move(xml), expected, false, document);
    const std::int64_t baseline = StatusBytes("VmRSS");
    if (baseline < 0 || !ResetPeak()) return 1;
    VEKBenchTime time;
    if (load == "current") {
      time = VEKTimeCurrentLoad(document, VEKGeneratedForm::Plain);
    } else if (load == "legacy") {
      time = VEKTimeLegacyLoad(xml, expected);
    } else if (load == "pugixml") {
      time = VEKTimePugixmlParse(xml);
    } else {
      return 1;
    }
    // The mark only rises: read after the teardown, it is still the load's peak.
    const std::int64_t peak = StatusBytes("VmHWM");
    if (peak < 0) return 1;
    std::printf("%.9f %.9f %.9f %lld\n", time.cpu, time.wall, time.teardown,
                static_cast<long long>(peak - baseline));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vektps-bench: %s\n", error.what());
    return 1;
  }
}

VEKProgramRun VEKRunProgram(const std::string& program, const std::vector<std::string>& arguments,
                            const std::string& directory) {
  std::vector<std::string> through = {program, kVEKProgramChildFlag};
  through.insert(through.end(), arguments.begin(), arguments.end());
  std::istringstream figures(OutputOf(through, directory, arguments[0]));
  VEKProgramRun run;
  if (!(figures >> run.cpu >> run.peakBytes)) {
    throw std::runtime_error(arguments[0] + " gave no figures");
  }
  return run;
}

int VEKRunProgramChild(const std::vector<std::string>& arguments) {
  try {
    const pid_t child = Spawn(arguments, "", -1);
    rusage usage{};
    if (!Reap(child, usage)) return 1;
    // ru_maxrss is in KB on Linux.
    std::printf("%.6f %lld\n", Seconds(usage.ru_utime) + Seconds(usage.ru_stime),
                static_cast<long long>(usage.ru_maxrss) * 1024);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vektps-bench: %s\n", error.what());
    return 1;
  }
}
