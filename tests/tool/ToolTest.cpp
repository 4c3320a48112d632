// The vektps tool end to end: the built binary runs in a temporary working directory on the
// example documents and on broken ones, in each input form.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "DocumentForms.h"
#include "ScratchDirectory.h"

namespace {

using vek_test::ReadFileBytes;
using vek_test::ToBase64;
using vek_test::ZlibCompress;

namespace fs = std::filesystem;
using testing::_;
using testing::AllOf;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Json = nlohmann::ordered_json;

const std::string kExamples = VEK_EXAMPLES_DIR;
const std::string kData = std::string(VEK_TEST_SOURCE_DIR) + "/data";
const char* const kDumpName = "E:\\TPSLoadXML.xml";
const char* const kNoSet =
    "<Functional_Tolerancing_Annotation><RootTPSs/></Functional_Tolerancing_Annotation>";

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// ---- running the tool ----

class Vektps : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(scratch_.Entered());
    for (const char* folder : {"work", "capture", "tmp"}) fs::create_directory(root_ / folder);
  }

  void TearDown() override {
    // No load leaves its dump in the working directory or its scratch directory behind.
    EXPECT_FALSE(fs::exists(root_ / "work" / kDumpName));
    EXPECT_TRUE(fs::is_empty(root_ / "tmp"));
  }

  // Runs `program` in the working directory, `input` (a path there or absolute) as its standard
  // input.
  Outcome Run(const std::vector<std::string>& arguments, const char* program = VEK_TOOL_PATH,
              const std::string& input = "/dev/null") {
    const std::string out = (root_ / "capture" / "out").string();
    const std::string err = (root_ / "capture" / "err").string();
    const std::string work = (root_ / "work").string();
    const std::string tmp = (root_ / "tmp").string();
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const int outFile = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int errFile = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int inFile = chdir(work.c_str()) == 0 ? open(input.c_str(), O_RDONLY) : -1;
      if (inFile < 0 || outFile < 0 || errFile < 0 || dup2(inFile, 0) < 0 || dup2(outFile, 1) < 0 ||
          dup2(errFile, 2) < 0 || setenv("TMPDIR", tmp.c_str(), 1) != 0) {
        _exit(127);
      }
      execv(program, argv.data());
      _exit(127);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFileBytes(out), ReadFileBytes(err)};
  }

  // Writes `bytes` into the working directory; returns the file's name there.
  std::string Write(const std::string& name, const std::string& bytes) {
    std::ofstream(root_ / "work" / name, std::ios::binary) << bytes;
    return name;
  }

  std::string Read(const std::string& name) const {
    return ReadFileBytes((root_ / "work" / name).string());
  }

  std::vector<std::string> WorkFiles(const std::string& folder = "") const {
    return vek_test::FileNames(root_ / "work" / folder);
  }

  // Runs the tool and checks its exit status and what it writes to each stream.
  void Expect(const std::vector<std::string>& arguments, int status,
              const testing::Matcher<const std::string&>& out,
              const testing::Matcher<const std::string&>& err,
              const std::string& input = "/dev/null") {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const Outcome outcome = Run(arguments, VEK_TOOL_PATH, input);
    EXPECT_EQ(status, outcome.status);
    EXPECT_THAT(outcome.out, out);
    EXPECT_THAT(outcome.err, err);
  }

  vek_test::ScratchDirectory scratch_;
  const fs::path& root_ = scratch_.Path();
};

// ---- summary ----

TEST_F(Vektps, SummaryOfEachSchemaAndCheckIsQuiet) {
  const struct {
    const char* file;
    const char* header;
    const char* row;
  } rows[] = {
      {"bracket.xml", "current schema, plain XML, load result 0x00000000",
       "  1    Bracket MB-200  ISO 1101:2017     3            4      2           1    1         "
       "1           0"},
      {"gear_shaft_legacy.xml", "legacy schema, plain XML, load result 0x00000000",
       "  1    Gear shaft GS-12  ASME Y14.5-2018     6           19      3           2    2      "
       "   2           0"},
  };
  std::vector<std::string> check = {"check"};
  for (const auto& row : rows) {
    const std::string path = kExamples + "/" + row.file;
    check.push_back(path);
    const Outcome outcome = Run({"summary", path});
    EXPECT_EQ(0, outcome.status) << row.file << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ(0u, outcome.out.find(path + ": " + row.header + "\n  set  name")) << outcome.out;
    EXPECT_NE(std::string::npos, outcome.out.find(std::string("\n") + row.row + "\n"))
        << outcome.out;
  }
  const Outcome quiet = Run(check);
  EXPECT_EQ(0, quiet.status);
  EXPECT_EQ("", quiet.out + quiet.err);
  EXPECT_TRUE(WorkFiles().empty());
}

TEST_F(Vektps, SummaryOfSeveralFilesGoesOnPastAFailure) {
  const std::string bracket = kExamples + "/bracket.xml";
  const std::vector<std::string> files = {bracket, "missing.xml", kData + "/legacy_counts.xml"};
  std::vector<std::string> arguments = {"summary"};
  arguments.insert(arguments.end(), files.begin(), files.end());
  const Outcome outcome = Run(arguments);
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("vektps: missing.xml: cannot open: No such file or directory\n", outcome.err);
  EXPECT_NE(std::string::npos, outcome.out.find("Bracket MB-200"));
  // A legacy set whose values were refused has neither name nor standard.
  EXPECT_NE(std::string::npos,
            outcome.out.find("  2    -      -            0            0      0           0    0"));

  // With --json, one line for each file that loaded.
  arguments.insert(arguments.begin() + 1, "--json");
  const Outcome json = Run(arguments);
  EXPECT_EQ(1, json.status);
  std::vector<Json> records;
  std::istringstream lines(json.out);
  for (std::string line; std::getline(lines, line);) records.push_back(Json::parse(line));
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ(Json::parse(R"({"path":")" + bracket + R"(","schema":"current","form":"plain",)" +
                        R"("result":"0x00000000","error":null,"sets":[{"name":"Bracket MB-200",)" +
                        R"("standard":"ISO 1101:2017","ttrs":3,"annotations":4,"views":2,)" +
                        R"("refFrames":1,"cgs":1,"captures":1,"unresolved":0}],"diagnostics":0})"),
            records[0]);
  EXPECT_EQ("legacy", records[1]["schema"]);
}

// ---- json ----

// The export itself is the library's; here, each way of naming a form, and standard input.
TEST_F(Vektps, EveryInputFormGivesTheSameModel) {
  const std::string pump = kExamples + "/pump_housing.xml";
  const std::string expected = Run({"json", pump}).out;
  const Json json = Json::parse(expected);
  // The plain file is read whole: the captures stand at its end.
  EXPECT_EQ("⌀0.1 Ⓜ A B C", json["sets"][0]["annotations"][5]["attribute"]);
  EXPECT_EQ(3u, json["sets"][0]["captures"].size());
  const std::string pretty = Run({"json", "--pretty", pump}).out;
  EXPECT_EQ(0u, pretty.find("{\n  \"schema\""));
  EXPECT_EQ(json, Json::parse(pretty));

  const std::string base64 = Write("pump.txt", ToBase64(ReadFileBytes(pump)));
  const std::string zlib = Write("pump.bin", ZlibCompress(ReadFileBytes(pump)));
  // (arguments, standard input): each way of naming a form, standard input in any form, and
  // several files as JSON lines.
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"json", "--base64", base64}, "/dev/null"},
      {{"json", "--zlib", zlib}, "/dev/null"},
      {{"json", zlib, "--zlib"}, "/dev/null"},
      {{"json", "--plain", pump}, "/dev/null"},
      {{"json", "-"}, pump},
      {{"json", "-"}, zlib},
  };
  for (const auto& [arguments, input] : rows) {
    const Outcome outcome = Run(arguments, VEK_TOOL_PATH, input);
    EXPECT_EQ(0, outcome.status) << arguments[1] << input << outcome.err;
    EXPECT_EQ(expected, outcome.out) << arguments[1] << input;
  }
  EXPECT_EQ(expected + expected, Run({"json", zlib, pump}).out);
  EXPECT_EQ((std::vector<std::string>{"pump.bin", "pump.txt"}), WorkFiles());
}

// -o names a file, or standard output as "-": both get the same bytes.
TEST_F(Vektps, OutputGoesToAFileOrToStandardOutput) {
  const std::string pump = kExamples + "/pump_housing.xml";
  for (const auto& [command, start] : {std::pair<std::string, std::string>{"json", "{\"schema\""},
                                       {"gltf", "glTF"},
                                       {"view", "<!DOCTYPE html>"}}) {
    const Outcome outcome = Run({command, pump, "-o", "out"});
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.out + outcome.err);
    EXPECT_EQ(0u, Read("out").find(start)) << command;
    EXPECT_EQ(Read("out"), Run({command, pump, "-o", "-"}).out) << command;
  }
}

// ---- the dump ----

TEST_F(Vektps, DumpIsKeptOnlyWhereAsked) {
  const Outcome outcome = Run({"summary", "--dump", "kept.xml", kExamples + "/bracket.xml"});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ((std::vector<std::string>{"kept.xml"}), WorkFiles());
  EXPECT_NE(std::string::npos, Read("kept.xml").find("Bracket MB-200"));
}

// ---- check ----

// Each problem on its own line, placed; the run fails.
TEST_F(Vektps, CheckPlacesEachProblem) {
  const std::string file = kData + "/references.xml";
  std::string expected;
  for (const char* problem :
       {"line 4: RootTTRSs comes before any AnnotationSet, so its objects are not built",
        "line 14: annotation 1 \"Flatness\" names annotation 9 in its order group, which no "
        "annotation of the set carries",
        "line 16: duplicate annotation id 1: an earlier annotation of the set carries it too",
        "line 24: view 11 \"Front\" names annotation 5, which comes later in the document; a "
        "reference finds only objects built before it",
        "line 28: capture 41 \"Main\" names view 13 as its active view, which no view of the set "
        "carries",
        "line 30: capture 41 \"Main\" names view 12, which no view of the set carries",
        "line 31: capture 41 \"Main\" names construction geometry 31, which no construction "
        "geometry of the set carries",
        "line 41: duplicate view id 11: an earlier view of the set carries it too"}) {
    expected += file + ": " + problem + "\n";
  }
  const Outcome outcome = Run({"check", file});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("", outcome.err);
  EXPECT_EQ(expected, outcome.out);
  // The summary counts the same unresolved references.
  const Outcome summary = Run({"summary", "--json", file});
  EXPECT_EQ(5, Json::parse(summary.out)["sets"][0]["unresolved"]) << summary.out;
}

// ---- the examples ----

TEST_F(Vektps, ExamplesAreWhatTheGeneratorWrites) {
  const Outcome outcome = Run({"."}, VEK_GENERATOR_PATH);
  ASSERT_EQ(0, outcome.status) << outcome.err;
  const std::vector<std::string> written = WorkFiles();
  EXPECT_EQ((std::vector<std::string>{"gear_shaft_legacy.xml", "pump_housing.xml",
                                      "pump_housing.xml.b64", "pump_housing.xml.z"}),
            written);
  for (const std::string& name : written) {
    EXPECT_EQ(ReadFileBytes(kExamples + "/" + name), Read(name))
        << name << " differs from the generator's output: rebuild the example_documents target";
  }
}

// ---- usage ----

TEST_F(Vektps, UsageErrorsExitWithTwo) {
  const std::string bracket = kExamples + "/bracket.xml";
  const std::vector<std::vector<std::string>> rows = {
      {},
      {"summary"},
      {"summary", "--bogus", bracket},
      {"json", bracket, "-o"},
      {"check", "--zlib", "--base64", bracket},
      {"check", "--plain", "--base64", bracket},
      {"summary", "--dump", "d.xml", bracket, bracket},
      {"json", "--pretty", bracket, bracket},
      {"csv", bracket, "--set", "0"},
      {"summary", "--schema", "old", bracket},
      {"convert", bracket, bracket},
      {"convert", bracket, "-o", "x.xml", "--out-dir", "out"},
      {"convert", "--base64", "--zlib", bracket},
      {"convert", "-", "--out-dir", "out"},
      {"convert", bracket, kExamples + "/../documents/bracket.xml", "--out-dir", "out"},
      {"gltf", bracket},
      {"view", bracket, bracket, "-o", "page.html"}};
  for (const auto& arguments : rows) Expect(arguments, 2, IsEmpty(), StartsWith("vektps: "));
  Expect({"frobnicate", bracket}, 2, IsEmpty(),
         StartsWith("vektps: unknown command 'frobnicate'; the commands are summary, json, check, "
                    "csv, convert, gltf, view\n"));
}

// Each run's exit status and what it writes to standard output and to standard error.
TEST_F(Vektps, ExitStatusAndMessages) {
  const std::string bracket = kExamples + "/bracket.xml";
  const std::string noSet = Write("no_set.xml", kNoSet);
  const std::string tmp = (root_ / "tmp").string();
  Expect({"--version"}, 0, Eq(std::string("vektps ") + VEK_PROJECT_VERSION + "\n"), IsEmpty());
  Expect({"--help"}, 0,
         AllOf(HasSubstr("summary"), HasSubstr("json"), HasSubstr("check"), HasSubstr("csv"),
               HasSubstr("convert")),
         IsEmpty());
  Expect(
      {"json", "--help"}, 0,
      AllOf(HasSubstr("--zlib"), HasSubstr("--base64"), HasSubstr("--plain"), HasSubstr("--schema"),
            HasSubstr("--dump PATH"), HasSubstr("-o,--output"), HasSubstr("--pretty")),
      IsEmpty());
  // The export of a load that made no set still tells its result; no scene is written.
  const std::string noSetReason =
      "no_set.xml: load failed (0x80004005): the root has no AnnotationSet child, so no set is "
      "made\n";
  Expect({"json", noSet}, 1, Eq("{\"schema\":\"current\",\"result\":\"0x80004005\",\"sets\":[]}\n"),
         Eq("vektps: " + noSetReason));
  Expect({"gltf", noSet, "-o", "none"}, 1, IsEmpty(),
         StartsWith("vektps: no_set.xml: load failed"));
  Expect({"json", bracket, "-o", "missing/out.json"}, 1, IsEmpty(),
         Eq("vektps: cannot write missing/out.json: No such file or directory\n"));
  Expect({"json", kExamples + "/gear_shaft_legacy.xml", "--dump", "legacy.xml"}, 0, _,
         HasSubstr("no dump was written"));
  Expect({"check", "--dump", "missing/kept.xml", bracket}, 1, _,
         HasSubstr("cannot write the dump to missing/kept.xml"));
  Expect({"csv", bracket, "--set", "2"}, 2, IsEmpty(), HasSubstr("--set 2: the load made 1 set"));
  Expect({"check", "absent.xml", tmp}, 1, IsEmpty(),
         Eq("vektps: absent.xml: cannot open: No such file or directory\nvektps: " + tmp +
            ": cannot read: it is a directory\n"));
  // Endless input stops at the limit, from a file and from standard input alike; one byte over is
  // refused while reading, not held whole for the load to refuse.
  Expect({"check", "--max-bytes", "100000", "/dev/zero"}, 1, IsEmpty(),
         HasSubstr("more than 100000 bytes"));
  Expect({"check", "--max-bytes", "100000", "-"}, 1, IsEmpty(), HasSubstr("more than 100000 bytes"),
         "/dev/zero");
  Expect(
      {"check", "--max-bytes", "100000", "-"}, 1, IsEmpty(),
      Eq("vektps: -: standard input holds more than 100000 bytes, the most a document may have\n"),
      Write("over.xml", std::string(100001, ' ')));
  // No control character reaches the terminal: C0 (a tab) nor C1 (U+0085, U+009F).
  Expect({"summary", Write("controls.xml",
                           "<Functional_Tolerancing_Annotation><AnnotationSet Standard=\"a&#9;"
                           "b\u0085c\"><TPSId Name=\"x\u009Fy\"/></AnnotationSet>"
                           "</Functional_Tolerancing_Annotation>")},
         0, HasSubstr("  1    x y   a b c "), IsEmpty());
  // How check tells each kind of failed load; the library's reasons are its own.
  Expect({"check", Write("tags.xml", "<TolerancingData>\n  <AnnotationSet>\n  </AnnotationSt>\n")},
         1,
         StartsWith("tags.xml: load failed: XML error at line 3, column 5: Start-end tags "
                    "mismatch\n"),
         IsEmpty());
  Expect({"check", Write("tail.z", ZlibCompress(ReadFileBytes(bracket)) + "xx")}, 1,
         StartsWith("tail.z: load failed: the zlib data does not decode: bytes follow the end of "
                    "its stream\n"),
         IsEmpty());
  Expect({"check", noSet}, 1, StartsWith(noSetReason), IsEmpty());
  // Nothing was written but the inputs: no scene, page or dump of a failed or legacy load.
  EXPECT_EQ(
      (std::vector<std::string>{"controls.xml", "no_set.xml", "over.xml", "tags.xml", "tail.z"}),
      WorkFiles());
}

// ---- the example host ----

// The host program of the guide reads every bundled document whole, in each form, and writes
// nothing where it runs.
TEST_F(Vektps, ExampleHostReadsEveryBundledDocument) {
  const struct {
    const char* file;
    const char* heading;
    const char* line;
  } rows[] = {
      {"pump_housing.xml", "current schema, plain form, 1 set(s)", "attribute \"⌀0.1 Ⓜ A B C\""},
      {"pump_housing.xml.b64", "current schema, base64 form, 1 set(s)", "captures: 3"},
      {"pump_housing.xml.z", "current schema, zlib form, 1 set(s)", "named by 201 as annotation"},
      {"gear_shaft_legacy.xml", "legacy schema, plain form, 1 set(s)", "annotations: 19"},
      {"bracket.xml", "current schema, plain form, 1 set(s)", "reference 21 views [11]"},
  };
  for (const auto& row : rows) {
    const Outcome outcome = Run({kExamples + "/" + row.file}, VEK_HOST_EXAMPLE_PATH);
    EXPECT_EQ(0, outcome.status) << row.file << outcome.err;
    EXPECT_EQ(0u, outcome.out.find(std::string(row.heading) + "\n")) << outcome.out;
    EXPECT_NE(std::string::npos, outcome.out.find(row.line)) << row.file;
    EXPECT_EQ(std::string::npos, outcome.out.find("(missing)")) << row.file;
  }
  // Its drawing of each graphic agrees with the library's world-space triangles.
  std::istringstream lines(Run({kExamples + "/pump_housing.xml"}, VEK_HOST_EXAMPLE_PATH).out);
  int graphics = 0;
  for (std::string line; std::getline(lines, line);) {
    std::size_t drawn = 0;
    std::size_t library = 0;
    if (std::sscanf(line.c_str(), "    graphic: %zu triangles (library: %zu)", &drawn, &library) ==
        2) {
      EXPECT_EQ(drawn, library) << line;
      ++graphics;
    }
  }
  EXPECT_EQ(34, graphics);
  const Outcome broken =
      Run({Write("broken.xml", "<TolerancingData>\n<a></b>")}, VEK_HOST_EXAMPLE_PATH);
  EXPECT_EQ(1, broken.status);
  EXPECT_EQ("broken.xml:2:6: Start-end tags mismatch\n", broken.err);
  EXPECT_EQ((std::vector<std::string>{"broken.xml"}), WorkFiles());
}

// ---- Unix manners ----

TEST_F(Vektps, AReaderThatGoesAwayEndsTheRunQuietly) {
  int pipe[2];
  ASSERT_EQ(0, ::pipe(pipe));
  const std::string file = kExamples + "/pump_housing.xml";
  // The reader is gone before the tool starts: its JSON would fit in the pipe's buffer.
  close(pipe[0]);
  const pid_t child = fork();
  if (child == 0) {
    dup2(pipe[1], 1);
    execl(VEK_TOOL_PATH, VEK_TOOL_PATH, "json", file.c_str(), nullptr);
    _exit(127);
  }
  close(pipe[1]);
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  // Not killed by SIGPIPE: the failed write ends the run with status 1, and nothing is left.
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(1, WEXITSTATUS(status));
}

// ---- csv ----

TEST_F(Vektps, CsvWritesOneTablePerFamily) {
  const Outcome outcome = Run({"csv", kExamples + "/pump_housing.xml", "-o", "."});
  ASSERT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ((std::vector<std::string>{"annotations.csv", "captures.csv", "cgs.csv",
                                      "ref_frames.csv", "ttrs.csv", "views.csv"}),
            WorkFiles());
  const std::string annotations = Read("annotations.csv");
  EXPECT_EQ(0u, annotations.find("set,id,name,uuid,type,status,rep.nodes,rep.meshes,"
                                 "rep.primitives,rep.vertices,rep.bytes,value,default,reference,"
                                 "attribute,ttrs,graphic.nodes,"))
      << annotations.substr(0, 200);
  std::size_t rows = 0;
  for (std::size_t at = 0; (at = annotations.find("\r\n", at)) != std::string::npos; at += 2)
    ++rows;
  EXPECT_EQ(33u, rows);
  // The sixth annotation: its attribute, its TTRS and its order group, as the JSON has them.
  EXPECT_NE(std::string::npos, annotations.find(",⌀0.1 Ⓜ A B C,")) << annotations;
  EXPECT_NE(std::string::npos, annotations.find(",6 7 8 9\r\n")) << annotations;
  const std::string captures = Read("captures.csv");
  EXPECT_NE(std::string::npos, captures.find("camera.position")) << captures.substr(0, 300);
  EXPECT_NE(std::string::npos, captures.find(",Shaft and seal,")) << captures;

  // A name with a comma and a quote is quoted as RFC 4180 says.
  const std::string quoted = Write("quoted.xml",
                                   "<Functional_Tolerancing_Annotation><AnnotationSet/><RootTTRSs>"
                                   "<TTRS><TPSId Name='a, &quot;b&quot;'/></TTRS></RootTTRSs>"
                                   "</Functional_Tolerancing_Annotation>");
  ASSERT_EQ(0, Run({"csv", quoted}).status);
  EXPECT_NE(std::string::npos, Read("ttrs.csv").find("\r\n1,0,\"a, \"\"b\"\"\",,0,0,"));
}

// ---- convert ----

// Keeping the model in each form is the writer's; here, that each form is asked for and told.
TEST_F(Vektps, ConvertWritesEachForm) {
  for (const auto& [flags, form] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{}, "plain XML"}, {{"--base64"}, "base64 text"}, {{"--zlib"}, "zlib data"}}) {
    std::vector<std::string> arguments = {"convert", kExamples + "/pump_housing.xml.z", "-o",
                                          "out"};
    arguments.insert(arguments.end(), flags.begin(), flags.end());
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.out + outcome.err);
    EXPECT_NE(std::string::npos, Run({"summary", "out"}).out.find("out: current schema, " + form));
    EXPECT_EQ(Run({"json", arguments[1]}).out, Run({"json", "out"}).out) << form;
  }
  // The legacy schema gives no TTRS a type: told once per object, then counted.
  const std::string gear = kExamples + "/gear_shaft_legacy.xml";
  const Outcome legacy = Run({"convert", gear, "-o", "out"});
  EXPECT_EQ(0, legacy.status);
  EXPECT_THAT(legacy.err,
              AllOf(HasSubstr(": warning: TTRS 1: its type was never set; it comes back as 0 "
                              "(unset)\n"),
                    HasSubstr(": warning: 3 more like these: TTRS, type (unset)\n")));
  EXPECT_EQ(WorkFiles(), std::vector<std::string>{"out"});
}

TEST_F(Vektps, ConvertWritesToStandardOutputOrEachFileIntoADirectory) {
  const std::string bracket = kExamples + "/bracket.xml";
  const Outcome plain = Run({"convert", bracket});
  ASSERT_EQ(0, plain.status) << plain.err;
  EXPECT_EQ(0u, plain.out.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
  // What was written converts again into the same bytes, from standard input too.
  EXPECT_EQ(plain.out, Run({"convert", "-"}, VEK_TOOL_PATH, Write("in.xml", plain.out)).out);

  const std::string legacy = kExamples + "/gear_shaft_legacy.xml";
  const Outcome several = Run({"convert", bracket, "missing.xml", kExamples + "/pump_housing.xml.z",
                               legacy, "--all-warnings", "--out-dir", "out", "--zlib"});
  EXPECT_EQ(1, several.status);
  EXPECT_NE(std::string::npos,
            several.err.find("vektps: missing.xml: cannot open: No such file or directory\n"));
  EXPECT_EQ(std::string::npos, several.err.find("more like these"));
  EXPECT_EQ(WorkFiles("out"), (std::vector<std::string>{"bracket.xml.z", "gear_shaft_legacy.xml.z",
                                                        "pump_housing.xml.z"}));
}

}  // namespace
