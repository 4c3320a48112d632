// vektps-bench: our loads against the bare XML parses of the same bytes, in one run, with the
// medians of several interleaved repetitions; the same loads in fresh processes, with their peak
// memory; `vektps summary` against a bare parse as whole processes; time per MB at growing object
// counts. Writes a markdown report.
#include <libxml/parser.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "GlbBuilder.h"
#include "VEKBenchMeasures.h"
#include "VEKBenchProcess.h"
#include "VEKDocumentGenerator.h"

namespace {

struct Options {
  double sizeMb = 100;
  int repetitions = 5;
  std::vector<std::int64_t> linearity = {10'000, 100'000, 1'000'000};
  int linearityRepetitions = 3;
  std::uint64_t seed = 1;
  bool skipProcesses = false;
  std::string output;
};

// The median of `value` (a member of a run, or a function of one) over `runs`; 0 without runs.
template <class Run, class Value>
double MedianOf(const std::vector<Run>& runs, Value value) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(static_cast<double>(std::invoke(value, run)));
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  if (n == 0) return 0;
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// One timed operation and the time of each of its runs.
struct Measure {
  Measure(std::string name, std::function<VEKBenchTime()> run)
      : name(std::move(name)), run(std::move(run)) {}

  // Median CPU seconds: the figure every rate and ratio uses.
  double Median() const { return MedianOf(times, &VEKBenchTime::cpu); }
  double WallMedian() const { return MedianOf(times, &VEKBenchTime::wall); }
  double TeardownMedian() const { return MedianOf(times, &VEKBenchTime::teardown); }

  std::string name;
  std::function<VEKBenchTime()> run;
  std::vector<VEKBenchTime> times;
};

// Runs every measure once per round, in turn, so that a slow spell of the shared machine falls on
// all of them alike.
void RunInterleaved(std::vector<Measure>& measures, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    for (Measure& measure : measures) measure.times.push_back(measure.run());
  }
}

const Measure& Find(const std::vector<Measure>& measures, const std::string& name) {
  for (const Measure& measure : measures) {
    if (measure.name == name) return measure;
  }
  throw std::logic_error("no measure " + name);
}

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Grouped(std::int64_t value) {
  std::string digits = std::to_string(value);
  for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) digits.insert(at, ",");
  return digits;
}

double Megabytes(std::size_t bytes) { return static_cast<double>(bytes) / 1e6; }

void Progress(const std::string& text) { std::cerr << "vektps-bench: " << text << std::endl; }

// ---- the machine ----

std::string FirstValue(const char* path, const char* key) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, std::strlen(key), key) == 0) {
      const std::size_t colon = line.find(':');
      if (colon == std::string::npos) continue;
      const std::size_t start = line.find_first_not_of(" \t", colon + 1);
      return start == std::string::npos ? std::string() : line.substr(start);
    }
  }
  return "unknown";
}

std::string MachineLine() {
  std::ostringstream out;
  utsname system{};
  (void)uname(&system);
  const double memoryGb = std::stod("0" + FirstValue("/proc/meminfo", "MemTotal")) * 1024.0 / 1e9;
  out << sysconf(_SC_NPROCESSORS_ONLN) << " cores (nproc), "
      << FirstValue("/proc/cpuinfo", "model name") << ", " << Fixed(memoryGb, 1)
      << " GB memory; Linux " << system.release << "; "
#ifdef __clang__
      << "Clang " << __clang_major__ << "." << __clang_minor__
#else
      << "GCC " << __GNUC__ << "." << __GNUC_MINOR__
#endif
      << ", Release build";
  return out.str();
}

std::string Today() {
  const std::time_t now = std::time(nullptr);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d", std::gmtime(&now));
  return text;
}

// ---- the parts of the run ----

// A working directory of our own: every current-schema load writes its dump there.
class WorkDirectory {
 public:
  WorkDirectory() : previous_(std::filesystem::current_path()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "vektps-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary directory");
    path_ = pattern;
    std::filesystem::current_path(path_);
  }
  ~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  std::string File(const char* name) const { return (path_ / name).string(); }
  std::string Path() const { return path_.string(); }

 private:
  std::filesystem::path previous_;
  std::filesystem::path path_;
};

struct Throughput {
  std::size_t xmlBytes = 0;
  std::int64_t objects = 0;
  std::vector<Measure> measures;
};

Throughput MeasureCurrent(VEKBenchDocument& document, std::int64_t objects,
                          const WorkDirectory& directory, int repetitions) {
  Throughput result;
  result.xmlBytes = document.xml.size();
  result.objects = objects;
  const std::string savePath = directory.File("pugixml-save.xml");
  auto target = std::make_shared<VEKBenchTarget>();
  // The model the writer writes back, loaded once.
  auto model = std::make_shared<VEKTPSLightDocument>(
      VEKLoadDocument(document.xml.data(), document.xml.size()));
  result.measures = {
      {"memcpy of the XML", [&document, target] { return VEKTimeMemcpy(document.xml, *target); }},
      {"pugixml load_buffer (the floor)",
       [&document] { return VEKTimePugixmlParse(document.xml); }},
      {"pugixml save, unindented (the dump's floor)",
       [&document, savePath] { return VEKTimePugixmlSave(document.xml, savePath.c_str()); }},
      {"libxml2 xmlReadMemory", [&document] { return VEKTimeLibxml2Parse(document.xml); }},
      {"libdeflate inflate of the zlib form",
       [&document, target] { return VEKTimeInflate(document.zlib, document.xml.size(), *target); }},
      {"base64 decode of the base64 form",
       [&document] { return VEKTimeBase64Decode(document.base64, document.xml.size()); }},
      {"our load, plain text",
       [&document] { return VEKTimeCurrentLoad(document, VEKGeneratedForm::Plain); }},
      {"our load, base64 text",
       [&document] { return VEKTimeCurrentLoad(document, VEKGeneratedForm::Base64); }},
      {"our load, zlib data",
       [&document] { return VEKTimeCurrentLoad(document, VEKGeneratedForm::Zlib); }},
      {"our one-call load, plain text (no dump)",
       [&document] { return VEKTimeDocumentLoad(document); }},
      {"our writer, plain text", [model] { return VEKTimeWrite(*model, VEKGeneratedForm::Plain); }},
      {"our writer, base64 text",
       [model] { return VEKTimeWrite(*model, VEKGeneratedForm::Base64); }},
      {"our writer, zlib data (level 6)",
       [model] { return VEKTimeWrite(*model, VEKGeneratedForm::Zlib); }},
  };
  RunInterleaved(result.measures, repetitions);
  return result;
}

Throughput MeasureLegacy(const std::string& xml, std::int64_t objects, int repetitions) {
  Throughput result;
  result.xmlBytes = xml.size();
  result.objects = objects;
  const std::int64_t annotations = VEKCountFamilies(objects).annotations;
  auto target = std::make_shared<VEKBenchTarget>();
  result.measures = {
      {"memcpy of the XML", [&xml, target] { return VEKTimeMemcpy(xml, *target); }},
      {"pugixml load_buffer (the floor)", [&xml] { return VEKTimePugixmlParse(xml); }},
      {"libxml2 xmlReadMemory", [&xml] { return VEKTimeLibxml2Parse(xml); }},
      {"our legacy load", [&xml, annotations] { return VEKTimeLegacyLoad(xml, annotations); }},
  };
  RunInterleaved(result.measures, repetitions);
  return result;
}

// One of the GLBs the generated documents carry, read many times by each reader.
struct Graphics {
  std::size_t glbBytes = 0;
  std::size_t jsonBytes = 0;
  int reads = 0;
  std::vector<Measure> measures;
};

Graphics MeasureGraphics(int repetitions) {
  constexpr int kReads = 2000;
  const vek_test::GlbParts parts = vek_test::MakeMeshesParts(5, 1, 1);
  auto glb = std::make_shared<std::vector<char>>(vek_test::BuildGlb(parts));
  Graphics result;
  result.glbBytes = glb->size();
  std::uint32_t jsonLength = 0;
  std::memcpy(&jsonLength, glb->data() + 12, sizeof jsonLength);
  result.jsonBytes = jsonLength;
  result.reads = kReads;
  result.measures = {
      {"our scene-graph reader (simdjson On-Demand, the representation included)",
       [glb] { return VEKTimeGlbReads(*glb, VEKGlbRead::OurReader, kReads); }},
      {"tinygltf's loader, the reference (its model only)",
       [glb] { return VEKTimeGlbReads(*glb, VEKGlbRead::Tinygltf, kReads); }},
  };
  RunInterleaved(result.measures, repetitions);
  return result;
}

struct LinearityRow {
  std::int64_t objects = 0;
  double currentMb = 0, currentOurs = 0, currentPugixml = 0;
  double legacyMb = 0, legacyOurs = 0, legacyPugixml = 0;
};

// Milliseconds per MB of our plain-text loads and of pugixml's parse at each object count. The
// documents of every count are held at once and timed in the same rounds, so that a slow spell of
// the machine cannot pass for a change of slope.
std::vector<LinearityRow> MeasureLinearity(const Options& options) {
  const std::size_t sizes = options.linearity.size();
  std::vector<VEKBenchDocument> current(sizes);
  std::vector<std::string> legacy(sizes);
  std::vector<Measure> measures;
  for (std::size_t k = 0; k < sizes; ++k) {
    const std::int64_t objects = options.linearity[k];
    Progress("generating the linearity documents of " + Grouped(objects) + " objects");
    const std::int64_t annotations = VEKCountFamilies(objects).annotations;
    VEKPrepareBenchDocument(
        VEKGenerateDocument({VEKGeneratedSchema::Current, objects, options.seed}), annotations,
        false, current[k]);
    legacy[k] = VEKGenerateDocument({VEKGeneratedSchema::Legacy, objects, options.seed});
    VEKBenchDocument& document = current[k];
    const std::string& legacyXml = legacy[k];
    measures.emplace_back("current, ours", [&document] {
      return VEKTimeCurrentLoad(document, VEKGeneratedForm::Plain);
    });
    measures.emplace_back("current, pugixml",
                          [&document] { return VEKTimePugixmlParse(document.xml); });
    measures.emplace_back("legacy, ours", [&legacyXml, annotations] {
      return VEKTimeLegacyLoad(legacyXml, annotations);
    });
    measures.emplace_back("legacy, pugixml",
                          [&legacyXml] { return VEKTimePugixmlParse(legacyXml); });
  }
  Progress("timing the linearity documents");
  RunInterleaved(measures, options.linearityRepetitions);

  std::vector<LinearityRow> rows(sizes);
  for (std::size_t k = 0; k < sizes; ++k) {
    LinearityRow& row = rows[k];
    row.objects = options.linearity[k];
    row.currentMb = Megabytes(current[k].xml.size());
    row.currentOurs = measures[4 * k].Median() * 1e3 / row.currentMb;
    row.currentPugixml = measures[4 * k + 1].Median() * 1e3 / row.currentMb;
    row.legacyMb = Megabytes(legacy[k].size());
    row.legacyOurs = measures[4 * k + 2].Median() * 1e3 / row.legacyMb;
    row.legacyPugixml = measures[4 * k + 3].Median() * 1e3 / row.legacyMb;
  }
  return rows;
}

// ---- child processes ----

// A generated document written to a file for the child processes.
struct DocumentFile {
  std::string path;
  double mb = 0;
  std::int64_t annotations = 0;
};

// One load measured warm (the medians of the in-process rounds of the throughput tables) and in
// fresh processes; CPU seconds and MB.
struct LoadRow {
  std::string name;
  double documentMb = 0;
  double warm = 0, warmTeardown = 0;
  double fresh = 0, freshTeardown = 0;
  double addedPeakMb = 0;
  double PeakMultiple() const { return addedPeakMb / documentMb; }
};

// A whole program run as a child process: medians of its CPU seconds and of its peak in MB.
struct ProgramRow {
  std::string name;
  double documentMb = 0;
  double cpu = 0;
  double peakMb = 0;
  double PeakMultiple() const { return peakMb / documentMb; }
};

// The rows in the order the report uses: pugixml and our load (or the bare parse and
// `vektps summary`) of the current-schema document, then of the legacy one.
struct Processes {
  std::vector<LoadRow> loads;
  std::vector<ProgramRow> programs;
  bool Measured() const { return !loads.empty(); }
};

// Every load and program once per round, in turn, as RunInterleaved does in-process.
Processes MeasureProcesses(const std::string& self, const WorkDirectory& directory,
                           const DocumentFile& current, const DocumentFile& legacy,
                           const Throughput& currentWarm, const Throughput& legacyWarm,
                           int rounds) {
  const std::string floor = "pugixml load_buffer (the floor)";
  struct Load {
    const char* name;
    VEKChildLoad load;
    const DocumentFile* document;
    const Measure* warm;
    std::vector<VEKFreshLoad> runs;
  };
  std::vector<Load> loads = {
      {"pugixml load_buffer, current-schema document",
       VEKChildLoad::Pugixml,
       &current,
       &Find(currentWarm.measures, floor),
       {}},
      {"our current-schema load, plain text, dump included",
       VEKChildLoad::Current,
       &current,
       &Find(currentWarm.measures, "our load, plain text"),
       {}},
      {"pugixml load_buffer, legacy document",
       VEKChildLoad::Pugixml,
       &legacy,
       &Find(legacyWarm.measures, floor),
       {}},
      {"our legacy load",
       VEKChildLoad::Legacy,
       &legacy,
       &Find(legacyWarm.measures, "our legacy load"),
       {}},
  };
  struct Program {
    const char* name;
    const DocumentFile* document;
    std::vector<std::string> arguments;
    std::vector<VEKProgramRun> runs;
  };
  std::vector<Program> programs = {
      {"vektps-bare-parse, current-schema document",
       &current,
       {VEK_BENCH_BARE_PARSE_PATH, current.path},
       {}},
      {"vektps summary, current-schema document",
       &current,
       {VEK_BENCH_TOOL_PATH, "summary", current.path},
       {}},
      {"vektps-bare-parse, legacy document", &legacy, {VEK_BENCH_BARE_PARSE_PATH, legacy.path}, {}},
      {"vektps summary, legacy document",
       &legacy,
       {VEK_BENCH_TOOL_PATH, "summary", legacy.path},
       {}},
  };
  for (int round = 0; round < rounds; ++round) {
    for (Load& load : loads) {
      load.runs.push_back(VEKMeasureFreshLoad(self, load.load, load.document->path,
                                              load.document->annotations, directory.Path()));
    }
    for (Program& program : programs) {
      program.runs.push_back(VEKRunProgram(self, program.arguments, directory.Path()));
    }
  }

  Processes result;
  for (const Load& load : loads) {
    LoadRow row;
    row.name = load.name;
    row.documentMb = load.document->mb;
    row.warm = load.warm->Median();
    row.warmTeardown = load.warm->TeardownMedian();
    row.fresh = MedianOf(load.runs, [](const VEKFreshLoad& run) { return run.time.cpu; });
    row.freshTeardown =
        MedianOf(load.runs, [](const VEKFreshLoad& run) { return run.time.teardown; });
    row.addedPeakMb = MedianOf(load.runs, &VEKFreshLoad::addedPeak) / 1e6;
    result.loads.push_back(row);
  }
  for (const Program& program : programs) {
    ProgramRow row;
    row.name = program.name;
    row.documentMb = program.document->mb;
    row.cpu = MedianOf(program.runs, &VEKProgramRun::cpu);
    row.peakMb = MedianOf(program.runs, &VEKProgramRun::peakBytes) / 1e6;
    result.programs.push_back(row);
  }
  return result;
}

// ---- the report ----

// The slowest time per MB over the fastest, across the object counts; 0 without rows.
double Spread(const std::vector<LinearityRow>& rows, double LinearityRow::*msPerMb) {
  double low = 1e300, high = 0;
  for (const LinearityRow& row : rows) {
    low = std::min(low, row.*msPerMb);
    high = std::max(high, row.*msPerMb);
  }
  return rows.empty() ? 0 : high / low;
}

void WriteThroughput(std::ostream& out, const char* title, const Throughput& result,
                     int repetitions) {
  const double mb = Megabytes(result.xmlBytes);
  const double floor = Find(result.measures, "pugixml load_buffer (the floor)").Median();
  out << "### " << title << ": " << Fixed(mb, 1) << " MB of XML, " << Grouped(result.objects)
      << " objects (medians of " << repetitions << ")\n\n"
      << "| Operation | CPU ms | Wall ms | MB/s of XML | Time / pugixml parse |\n"
      << "|---|---:|---:|---:|---:|\n";
  for (const Measure& measure : result.measures) {
    const double seconds = measure.Median();
    out << "| " << measure.name << " | " << Fixed(seconds * 1e3, 1) << " | "
        << Fixed(measure.WallMedian() * 1e3, 1) << " | " << Fixed(mb / seconds, 0) << " | "
        << Fixed(seconds / floor, 2) << "x |\n";
  }
  out << "\n";
}

void WriteGraphics(std::ostream& out, const Graphics& graphics, int repetitions) {
  const double ours = graphics.measures.front().Median();
  out << "### Graphics: one generated GLB of " << Fixed(graphics.glbBytes / 1e3, 1) << " KB ("
      << Fixed(graphics.jsonBytes / 1e3, 1) << " KB of JSON), read " << Grouped(graphics.reads)
      << " times (medians of " << repetitions << ")\n\n"
      << "| Reader | CPU us per blob | Time / our reader |\n|---|---:|---:|\n";
  for (const Measure& measure : graphics.measures) {
    out << "| " << measure.name << " | " << Fixed(measure.Median() * 1e6 / graphics.reads, 1)
        << " | " << Fixed(measure.Median() / ours, 2) << "x |\n";
  }
  out << "\n";
}

std::string Verdict(bool met) { return met ? "met" : "**not met**"; }

void WriteProcesses(std::ostream& out, const Processes& processes, int repetitions) {
  const std::vector<LoadRow>& loads = processes.loads;
  out << "### Warm and fresh-process loads: CPU ms (medians of " << repetitions << ")\n\n"
      << "Warm: the rounds above, in this process. Fresh: each call made once in a newly started "
         "process, its CPU time read around the call inside that process. Teardown: releasing "
         "the set or freeing pugixml's document after the call, on a clock of its own.\n\n"
      << "| Load | Document MB | Warm | Warm teardown | Fresh | Fresh teardown | "
         "Warm / pugixml | Fresh / pugixml |\n"
      << "|---|---:|---:|---:|---:|---:|---:|---:|\n";
  for (std::size_t k = 0; k < loads.size(); ++k) {
    // Each document's pugixml row comes just before our load of it.
    const LoadRow& row = loads[k];
    const LoadRow& floor = loads[k - k % 2];
    out << "| " << row.name << " | " << Fixed(row.documentMb, 1) << " | "
        << Fixed(row.warm * 1e3, 1) << " | " << Fixed(row.warmTeardown * 1e3, 1) << " | "
        << Fixed(row.fresh * 1e3, 1) << " | " << Fixed(row.freshTeardown * 1e3, 1) << " | "
        << Fixed(row.warm / floor.warm, 2) << "x | " << Fixed(row.fresh / floor.fresh, 2)
        << "x |\n";
  }
  out << "\n### Peak memory of one load (a fresh process; what the load adds to the host's "
         "copy of the document, medians)\n\n"
      << "| Load | Document MB | Added at peak, MB | Multiple of the document |\n"
      << "|---|---:|---:|---:|\n";
  for (const LoadRow& row : loads) {
    out << "| " << row.name << " | " << Fixed(row.documentMb, 1) << " | "
        << Fixed(row.addedPeakMb, 1) << " | " << Fixed(row.PeakMultiple(), 2) << "x |\n";
  }
  const std::vector<ProgramRow>& programs = processes.programs;
  out << "\n### Whole process: `vektps summary FILE` against `vektps-bare-parse FILE` (medians of "
      << repetitions << ")\n\n"
      << "Each program run as a child process; CPU time (user and system) and peak resident "
         "size as the kernel accounts them to the finished process.\n\n"
      << "| Program | Document MB | CPU ms | Peak RSS MB | Time / bare parse | "
         "Peak RSS / document |\n"
      << "|---|---:|---:|---:|---:|---:|\n";
  for (std::size_t k = 0; k < programs.size(); ++k) {
    const ProgramRow& row = programs[k];
    out << "| " << row.name << " | " << Fixed(row.documentMb, 1) << " | " << Fixed(row.cpu * 1e3, 1)
        << " | " << Fixed(row.peakMb, 1) << " | " << Fixed(row.cpu / programs[k - k % 2].cpu, 2)
        << "x | " << Fixed(row.PeakMultiple(), 2) << "x |\n";
  }
  out << "\n";
}

// The row of a target on a ratio; `stretch` 0 when it has no stretch goal.
void WriteRatioTarget(std::ostream& out, const std::string& target, const std::string& limitText,
                      double measured, double limit, double stretch = 0) {
  out << "| " << target << " | " << limitText << " | " << Fixed(measured, 2) << "x | "
      << Verdict(measured <= limit);
  if (stretch > 0) out << (measured <= stretch ? ", stretch met" : ", stretch not met");
  out << " |\n";
}

void WriteReport(std::ostream& out, const Options& options, const Throughput& current,
                 const Throughput& legacy, const Graphics& graphics,
                 const std::vector<LinearityRow>& linearity, const Processes& processes) {
  out << "Run " << Today() << " on " << MachineLine() << ".\n\n"
      << "Command: `vektps-bench --size-mb " << Fixed(options.sizeMb, 0) << " --repetitions "
      << options.repetitions << " --linearity ";
  for (std::size_t k = 0; k < options.linearity.size(); ++k) {
    out << (k ? "," : "") << options.linearity[k];
  }
  out << " --linearity-repetitions " << options.linearityRepetitions << " --seed " << options.seed
      << (options.skipProcesses ? " --skip-processes" : "") << "`\n\n";

  out << "Times are medians of the CPU time the process spent in each call (user and system), "
         "which other work on a shared machine does not inflate; the elapsed (wall) medians "
         "stand beside them. Rates and ratios use the CPU time.\n\n";
  WriteThroughput(out, "Current schema", current, options.repetitions);
  WriteThroughput(out, "Legacy schema", legacy, options.repetitions);
  WriteGraphics(out, graphics, options.repetitions);

  const double spreadCurrent = Spread(linearity, &LinearityRow::currentOurs);
  const double spreadLegacy = Spread(linearity, &LinearityRow::legacyOurs);
  if (!linearity.empty()) {
    out << "### Linearity: CPU ms per MB of plain text (medians of " << options.linearityRepetitions
        << ")\n\n"
        << "| Objects | Current MB | Our load ms/MB | pugixml ms/MB | Legacy MB | "
           "Our legacy load ms/MB | pugixml ms/MB |\n"
        << "|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const LinearityRow& row : linearity) {
      out << "| " << Grouped(row.objects) << " | " << Fixed(row.currentMb, 1) << " | "
          << Fixed(row.currentOurs, 2) << " | " << Fixed(row.currentPugixml, 2) << " | "
          << Fixed(row.legacyMb, 1) << " | " << Fixed(row.legacyOurs, 2) << " | "
          << Fixed(row.legacyPugixml, 2) << " |\n";
    }
    out << "| slowest / fastest | | " << Fixed(spreadCurrent, 2) << " | | | "
        << Fixed(spreadLegacy, 2) << " | |\n\n";
  }
  if (processes.Measured()) WriteProcesses(out, processes, options.repetitions);

  // ---- targets ----
  const double plain = Find(current.measures, "our load, plain text").Median();
  const double base64 = Find(current.measures, "our load, base64 text").Median();
  const double zlib = Find(current.measures, "our load, zlib data").Median();
  const double pugixml = Find(current.measures, "pugixml load_buffer (the floor)").Median();
  const double inflate = Find(current.measures, "libdeflate inflate of the zlib form").Median();
  const double libxml2 = Find(current.measures, "libxml2 xmlReadMemory").Median();
  const double legacyLoad = Find(legacy.measures, "our legacy load").Median();
  const double legacyPugixml = Find(legacy.measures, "pugixml load_buffer (the floor)").Median();
  const double legacyLibxml2 = Find(legacy.measures, "libxml2 xmlReadMemory").Median();
  const double currentRatio = plain / pugixml;
  const double legacyRatio = legacyLoad / legacyPugixml;
  // Decoding at 1 GB/s of output: one second per 10^9 bytes of XML.
  const double base64Limit = plain + static_cast<double>(current.xmlBytes) / 1e9;
  const double zlibLimit = plain + 1.1 * inflate;
  const double libxml2Ratio =
      std::max({plain / libxml2, base64 / libxml2, zlib / libxml2, legacyLoad / legacyLibxml2});

  out << "### Targets\n\n";
  if (options.sizeMb < 99.5 || options.sizeMb > 100.5) {
    out << "Measured on " << Fixed(options.sizeMb, 0)
        << " MB documents; the targets are stated for 100 MB.\n\n";
  }
  const std::vector<LoadRow>& loads = processes.loads;
  const std::vector<ProgramRow>& programs = processes.programs;
  out << "| Target | Limit | Measured | Verdict |\n|---|---|---|---|\n";
  WriteRatioTarget(out, "Current-schema load, plain text, dump included, warm",
                   "at most 2.0x pugixml's parse (stretch 1.5x)", currentRatio, 2.0, 1.5);
  if (processes.Measured()) {
    WriteRatioTarget(out, "Current-schema load, plain text, dump included, fresh process",
                     "at most 2.0x pugixml's parse in a fresh process (stretch 1.5x)",
                     loads[1].fresh / loads[0].fresh, 2.0, 1.5);
  }
  WriteRatioTarget(out, "Legacy load, warm", "at most 1.6x pugixml's parse (stretch 1.3x)",
                   legacyRatio, 1.6, 1.3);
  if (processes.Measured()) {
    WriteRatioTarget(out, "Legacy load, fresh process",
                     "at most 1.6x pugixml's parse in a fresh process (stretch 1.3x)",
                     loads[3].fresh / loads[2].fresh, 1.6, 1.3);
  }
  out << "| Base64 form | at most the plain load + a decode at 1 GB/s: "
      << Fixed(base64Limit * 1e3, 0) << " ms | " << Fixed(base64 * 1e3, 0) << " ms | "
      << Verdict(base64 <= base64Limit) << " |\n"
      << "| Zlib form | at most the plain load + 1.1x libdeflate's inflate: "
      << Fixed(zlibLimit * 1e3, 0) << " ms | " << Fixed(zlib * 1e3, 0) << " ms | "
      << Verdict(zlib <= zlibLimit) << " |\n";
  if (!linearity.empty()) {
    out << "| Linear, current schema | ms per MB within 25% across the object counts | "
        << "slowest " << Fixed(spreadCurrent, 2) << "x the fastest | "
        << Verdict(spreadCurrent <= 1.25) << " |\n"
        << "| Linear, legacy schema | ms per MB within 25% across the object counts | "
        << "slowest " << Fixed(spreadLegacy, 2) << "x the fastest | "
        << Verdict(spreadLegacy <= 1.25) << " |\n";
  }
  if (processes.Measured()) {
    WriteRatioTarget(out, "Peak memory, current-schema load", "at most 3.5x the document",
                     loads[1].PeakMultiple(), 3.5);
    WriteRatioTarget(out, "Peak memory, legacy load", "at most 5x the document",
                     loads[3].PeakMultiple(), 5.0);
    WriteRatioTarget(out, "Whole process, current schema: `vektps summary` CPU time",
                     "at most 2.0x the bare parse's", programs[1].cpu / programs[0].cpu, 2.0);
    WriteRatioTarget(out, "Whole process, legacy: `vektps summary` CPU time",
                     "at most 1.6x the bare parse's", programs[3].cpu / programs[2].cpu, 1.6);
    WriteRatioTarget(out, "Whole process, current schema: `vektps summary` peak RSS",
                     "at most 4.5x the document", programs[1].PeakMultiple(), 4.5);
    WriteRatioTarget(out, "Whole process, legacy: `vektps summary` peak RSS",
                     "at most 6x the document", programs[3].PeakMultiple(), 6.0);
  }
  out << "| Every form faster than libxml2's parse of the same document | below 1.0x | slowest "
      << Fixed(libxml2Ratio, 2) << "x libxml2 | " << Verdict(libxml2Ratio < 1.0) << " |\n";
}

std::vector<std::int64_t> ParseCounts(const std::string& text) {
  std::vector<std::int64_t> counts;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (item.empty()) continue;
    std::int64_t value = 0;
    const auto parsed = std::from_chars(item.data(), item.data() + item.size(), value);
    if (parsed.ec != std::errc() || parsed.ptr != item.data() + item.size() || value < 1 ||
        value > kVEKMaxGeneratedObjects) {
      throw CLI::ValidationError("--linearity", "object counts run from 1 to 100000000");
    }
    counts.push_back(value);
  }
  return counts;
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string SelfPath() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw std::runtime_error("cannot find this program's path");
  return self.string();
}

int Run(const Options& options) {
  const std::string self = SelfPath();
  WorkDirectory directory;
  xmlInitParser();

  Progress("generating the documents");
  const auto targetBytes = static_cast<std::uint64_t>(options.sizeMb * 1e6);
  const std::int64_t currentObjects =
      VEKObjectsForBytes(VEKGeneratedSchema::Current, targetBytes, options.seed);
  const std::int64_t legacyObjects =
      VEKObjectsForBytes(VEKGeneratedSchema::Legacy, targetBytes, options.seed);
  Throughput current, legacy;
  Processes processes;
  {
    VEKBenchDocument document;
    VEKPrepareBenchDocument(
        VEKGenerateDocument({VEKGeneratedSchema::Current, currentObjects, options.seed}),
        VEKCountFamilies(currentObjects).annotations, true, document);
    const std::string legacyXml =
        VEKGenerateDocument({VEKGeneratedSchema::Legacy, legacyObjects, options.seed});

    Progress("timing the current schema");
    current = MeasureCurrent(document, currentObjects, directory, options.repetitions);
    Progress("timing the legacy schema");
    legacy = MeasureLegacy(legacyXml, legacyObjects, options.repetitions);

    if (!options.skipProcesses) {
      const DocumentFile currentFile = {directory.File("current.xml"),
                                        Megabytes(document.xml.size()), document.annotations};
      const DocumentFile legacyFile = {directory.File("legacy.xml"), Megabytes(legacyXml.size()),
                                       VEKCountFamilies(legacyObjects).annotations};
      WriteWholeFile(currentFile.path, document.xml);
      WriteWholeFile(legacyFile.path, legacyXml);
      Progress("timing the loads in fresh processes and the whole programs");
      processes = MeasureProcesses(self, directory, currentFile, legacyFile, current, legacy,
                                   options.repetitions);
    }
  }

  Progress("timing the graphics readers");
  const Graphics graphics = MeasureGraphics(options.repetitions);
  const std::vector<LinearityRow> linearity = MeasureLinearity(options);
  xmlCleanupParser();

  std::ostringstream report;
  WriteReport(report, options, current, legacy, graphics, linearity, processes);
  if (options.output.empty()) {
    std::cout << report.str();
  } else {
    std::ofstream out(options.output, std::ios::binary | std::ios::trunc);
    out << report.str();
    if (!out) throw std::runtime_error("cannot write " + options.output);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == kVEKLoadChildFlag) {
    return VEKRunLoadChild(argv[2], argv[3], argv[4]);
  }
  if (argc >= 3 && std::string(argv[1]) == kVEKProgramChildFlag) {
    return VEKRunProgramChild(std::vector<std::string>(argv + 2, argv + argc));
  }

  CLI::App app{
      "Times our loads against pugixml, libxml2, memcpy, libdeflate and a base64 decode "
      "of the same generated documents, and our GLB reader against tinygltf's, "
      "and writes a markdown report."};
  Options options;
  bool quick = false;
  std::string linearity;
  app.add_flag("--quick", quick,
               "About 10 MB documents, 3 repetitions, linearity at 3000, 10000 and 30000 objects");
  CLI::Option* size = app.add_option("--size-mb", options.sizeMb,
                                     "Size of each schema's document in MB (10^6 bytes)")
                          ->check(CLI::Range(0.01, 1500.0))
                          ->capture_default_str();
  CLI::Option* repetitions =
      app.add_option("--repetitions", options.repetitions, "Runs of each operation")
          ->check(CLI::Range(1, 1000))
          ->capture_default_str();
  CLI::Option* linearityOption = app.add_option(
      "--linearity", linearity,
      "Comma-separated object counts of the linearity runs (default 10000,100000,1000000); "
      "\"none\" skips them");
  CLI::Option* linearityRepetitions =
      app.add_option("--linearity-repetitions", options.linearityRepetitions,
                     "Runs of each load in the linearity runs")
          ->check(CLI::Range(1, 1000))
          ->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the generated documents")->capture_default_str();
  app.add_flag("--skip-processes,--skip-memory", options.skipProcesses,
               "Start no child process: no fresh-process loads, peak memory or whole programs");
  app.add_option("-o,--output", options.output, "Write the report to FILE, not standard output");
  CLI11_PARSE(app, argc, argv);

  try {
    if (quick) {
      if (size->count() == 0) options.sizeMb = 10;
      if (repetitions->count() == 0) options.repetitions = 3;
      if (linearityRepetitions->count() == 0) options.linearityRepetitions = 3;
      if (linearityOption->count() == 0) options.linearity = {3'000, 10'000, 30'000};
    }
    if (linearityOption->count() > 0) {
      options.linearity =
          linearity == "none" ? std::vector<std::int64_t>{} : ParseCounts(linearity);
    }
    return Run(options);
  } catch (const CLI::Error& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    std::cerr << "vektps-bench: " << error.what() << std::endl;
    return 1;
  }
}
