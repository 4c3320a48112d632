// The vektps tool end to end: the built binary runs in a temporary working directory on the
// example documents and on broken ones, in each input form.
#include <gtest/gtest.h>
#include <zlib.h>

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

#include "VEKCodePage.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

const std::string kExamples = VEK_EXAMPLES_DIR;
const std::string kData = std::string(VEK_TEST_SOURCE_DIR) + "/data";
const char* const kDumpName = "E:\\TPSLoadXML.xml";

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string Base64(const std::string& bytes) {
  VEKUnicodeString text;
  EXPECT_EQ(0, VEKCodePage::ConvertToBase64(reinterpret_cast<const unsigned char*>(bytes.data()),
                                            static_cast<unsigned int>(bytes.size()), text));
  return text.ConvertToChar();
}

std::string Zlib(const std::string& bytes) {
  uLongf length = compressBound(static_cast<uLong>(bytes.size()));
  std::string compressed(length, '\0');
  EXPECT_EQ(Z_OK, compress2(reinterpret_cast<Bytef*>(compressed.data()), &length,
                            reinterpret_cast<const Bytef*>(bytes.data()),
                            static_cast<uLong>(bytes.size()), 9));
  compressed.resize(length);
  return compressed;
}

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// ---- running the tool ----

class Vektps : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "vektps-tool-test-XXXXXX").string();
    ASSERT_NE(nullptr, mkdtemp(pattern.data()));
    root_ = pattern;
    for (const char* folder : {"work", "capture", "tmp"}) fs::create_directory(root_ / folder);
  }

  void TearDown() override {
    // No load leaves its dump in the working directory or its scratch directory behind.
    EXPECT_FALSE(fs::exists(root_ / "work" / kDumpName));
    EXPECT_TRUE(fs::is_empty(root_ / "tmp"));
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

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
      const int inFile = open(input.c_str(), O_RDONLY);
      const int outFile = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int errFile = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (inFile < 0 || outFile < 0 || errFile < 0 || dup2(inFile, 0) < 0 || dup2(outFile, 1) < 0 ||
          dup2(errFile, 2) < 0 || chdir(work.c_str()) != 0 ||
          setenv("TMPDIR", tmp.c_str(), 1) != 0) {
        _exit(127);
      }
      execv(program, argv.data());
      _exit(127);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
  }

  // Writes `bytes` into the working directory; returns the file's name there.
  std::string Write(const std::string& name, const std::string& bytes) {
    std::ofstream(root_ / "work" / name, std::ios::binary) << bytes;
    return name;
  }

  std::vector<std::string> WorkFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(root_ / "work"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  fs::path root_;
};

// ---- summary ----

TEST_F(Vektps, SummaryOfEveryExampleInEachForm) {
  const char* const pump =
      "  1    Pump housing PH-40  ISO 1101:2017    14           32      4           3    3      "
      "   3           0";
  const struct {
    const char* file;
    const char* header;
    const char* row;
  } rows[] = {
      {"bracket.xml", "current schema, plain XML, load result 0x00000000",
       "  1    Bracket MB-200  ISO 1101:2017     3            4      2           1    1         "
       "1           0"},
      {"pump_housing.xml", "current schema, plain XML, load result 0x00000000", pump},
      {"pump_housing.xml.b64", "current schema, base64 text, load result 0x00000000", pump},
      {"pump_housing.xml.z", "current schema, zlib data, load result 0x00000000", pump},
      {"gear_shaft_legacy.xml", "legacy schema, plain XML, load result 0x00000000",
       "  1    Gear shaft GS-12  ASME Y14.5-2018     6           19      3           2    2      "
       "   2           0"},
  };
  for (const auto& row : rows) {
    const std::string path = kExamples + "/" + row.file;
    const Outcome outcome = Run({"summary", path});
    EXPECT_EQ(0, outcome.status) << row.file << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ(0u, outcome.out.find(path + ": " + row.header + "\n  set  name")) << outcome.out;
    EXPECT_NE(std::string::npos, outcome.out.find(std::string("\n") + row.row + "\n"))
        << outcome.out;
  }
  EXPECT_TRUE(WorkFiles().empty());
}

TEST_F(Vektps, SummaryOfSeveralFilesGoesOnPastAFailure) {
  const Outcome outcome =
      Run({"summary", kExamples + "/bracket.xml", "missing.xml", kData + "/legacy_counts.xml"});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("vektps: missing.xml: cannot open: No such file or directory\n", outcome.err);
  EXPECT_NE(std::string::npos, outcome.out.find("Bracket MB-200"));
  // A legacy set whose values were refused has neither name nor standard.
  EXPECT_NE(std::string::npos,
            outcome.out.find("  2    -      -            0            0      0           0    0"));
}

// ---- json ----

// The export itself is the library's; here, each way of naming a form, and standard input.
TEST_F(Vektps, EveryInputFormGivesTheSameModel) {
  const std::string pump = kExamples + "/pump_housing.xml";
  const std::string plain = ReadFile(pump);
  const std::string expected = Run({"json", pump}).out;
  const Json json = Json::parse(expected);
  EXPECT_EQ("current", json["schema"]);
  EXPECT_EQ("0x00000000", json["result"]);
  // The plain file is read whole: the captures stand at its end.
  EXPECT_EQ("⌀0.1 Ⓜ A B C", json["sets"][0]["annotations"][5]["attribute"]);
  EXPECT_EQ(3u, json["sets"][0]["captures"].size());
  EXPECT_EQ(json, Json::parse(Run({"json", "--pretty", pump}).out));
  EXPECT_EQ(0u, Run({"json", "--pretty", pump}).out.find("{\n  \"schema\""));

  const std::string base64 = Write("pump.txt", Base64(plain));
  const std::string zlib = Write("pump.bin", Zlib(plain));
  const std::vector<std::vector<std::string>> rows = {
      {"json", base64},         {"json", "--base64", base64}, {"json", zlib},
      {"json", "--zlib", zlib}, {"json", zlib, "--zlib"},     {"json", "--plain", pump},
  };
  for (const auto& arguments : rows) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(0, outcome.status) << arguments[1] << outcome.err;
    EXPECT_EQ(expected, outcome.out) << arguments[1];
  }
  // Standard input, in any form.
  for (const std::string& file : {pump, (root_ / "work" / zlib).string()}) {
    const Outcome outcome = Run({"json", "-"}, VEK_TOOL_PATH, file);
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ(expected, outcome.out) << file;
  }
  EXPECT_EQ((std::vector<std::string>{"pump.bin", "pump.txt"}), WorkFiles());
}

TEST_F(Vektps, JsonToAFileAndAfterAFailedLoad) {
  Outcome outcome = Run({"json", kExamples + "/bracket.xml", "-o", "bracket.json"});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ(Run({"json", kExamples + "/bracket.xml"}).out,
            ReadFile((root_ / "work" / "bracket.json").string()));

  // The export of a load that made no set still tells its result.
  const std::string noSet = Write("no_set.xml",
                                  "<Functional_Tolerancing_Annotation><RootTPSs/>"
                                  "</Functional_Tolerancing_Annotation>");
  outcome = Run({"json", noSet});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ(R"({"schema":"current","result":"0x80004005","sets":[]})"
            "\n",
            outcome.out);
  EXPECT_EQ(
      "vektps: no_set.xml: load failed (0x80004005): the root has no AnnotationSet child, so no "
      "set is made\n",
      outcome.err);

  outcome = Run({"json", kExamples + "/bracket.xml", "-o", "missing/out.json"});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("vektps: cannot write missing/out.json: No such file or directory\n", outcome.err);
}

// The scene commands write a GLB or a page of what loaded, and nothing for a load that made no
// set.
TEST_F(Vektps, SceneCommandsWriteWhatLoaded) {
  const std::string noSet = Write("no_set.xml",
                                  "<Functional_Tolerancing_Annotation><RootTPSs/>"
                                  "</Functional_Tolerancing_Annotation>");
  for (const auto& [command, start] :
       {std::pair<std::string, std::string>{"gltf", "glTF"}, {"view", "<!DOCTYPE html>"}}) {
    Outcome outcome = Run({command, kExamples + "/pump_housing.xml", "-o", "out"});
    EXPECT_EQ(0, outcome.status) << outcome.err;
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ(0u, ReadFile((root_ / "work" / "out").string()).find(start)) << command;
    outcome = Run({command, kExamples + "/bracket.xml", "-o", "-"});
    EXPECT_EQ(0u, outcome.out.find(start)) << command;
    outcome = Run({command, noSet, "-o", "none"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(0u, outcome.err.find("vektps: no_set.xml: load failed")) << outcome.err;
    EXPECT_FALSE(fs::exists(root_ / "work" / "none"));
  }
}

// ---- the dump ----

TEST_F(Vektps, DumpIsKeptOnlyWhereAsked) {
  Outcome outcome = Run({"summary", "--dump", "kept.xml", kExamples + "/bracket.xml"});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ((std::vector<std::string>{"kept.xml"}), WorkFiles());
  const std::string dump = ReadFile((root_ / "work" / "kept.xml").string());
  EXPECT_EQ(0u, dump.find("<Functional_Tolerancing_Annotation Version=\"2.1\">")) << dump;
  EXPECT_NE(std::string::npos, dump.find("Bracket MB-200"));

  outcome = Run({"json", kExamples + "/gear_shaft_legacy.xml", "--dump", "legacy.xml"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_NE(std::string::npos, outcome.err.find("no dump was written"));
  EXPECT_EQ((std::vector<std::string>{"kept.xml"}), WorkFiles());

  outcome = Run({"check", "--dump", "missing/kept.xml", kExamples + "/bracket.xml"});
  EXPECT_EQ(1, outcome.status);
  EXPECT_NE(std::string::npos, outcome.err.find("cannot write the dump to missing/kept.xml"));
}

// ---- check ----

TEST_F(Vektps, CheckIsQuietOnTheExamples) {
  std::vector<std::string> arguments = {"check"};
  for (const char* file : {"bracket.xml", "pump_housing.xml", "pump_housing.xml.b64",
                           "pump_housing.xml.z", "gear_shaft_legacy.xml"})
    arguments.push_back(kExamples + "/" + file);
  const Outcome outcome = Run(arguments);
  EXPECT_EQ(0, outcome.status) << outcome.out << outcome.err;
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ("", outcome.err);
  EXPECT_TRUE(WorkFiles().empty());
}

TEST_F(Vektps, CheckPlacesUnresolvedReferencesAndDuplicateIds) {
  const std::string file = kData + "/references.xml";
  const Outcome outcome = Run({"check", file});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("", outcome.err);
  const std::string p = file + ": ";
  EXPECT_EQ(p + "line 4: RootTTRSs comes before any AnnotationSet, so its objects are not built\n" +
                p + "line 14: annotation 1 \"Flatness\" names annotation 9 in its order group, " +
                "which no annotation of the set carries\n" + p + "line 16: duplicate annotation " +
                "id 1: an earlier annotation of the set carries it too\n" + p + "line 24: view " +
                "11 \"Front\" names annotation 5, which comes later in the document; a reference " +
                "finds only objects built before it\n" + p + "line 28: capture 41 \"Main\" names " +
                "view 13 as its active view, which no view of the set carries\n" + p + "line 30: " +
                "capture 41 \"Main\" names view 12, which no view of the set carries\n" + p +
                "line 31: capture 41 \"Main\" names construction geometry 31, which no " +
                "construction geometry of the set carries\n" + p + "line 41: duplicate view id " +
                "11: an earlier view of the set carries it too\n",
            outcome.out);
  // The summary counts the same unresolved references.
  const Outcome summary = Run({"summary", "--json", file});
  EXPECT_EQ(5, Json::parse(summary.out)["sets"][0]["unresolved"]) << summary.out;
}

TEST_F(Vektps, CheckFindsLegacyObjectsWithAWrongCountOfValues) {
  const std::string file = kData + "/legacy_counts.xml";
  const Outcome outcome = Run({"check", file});
  EXPECT_EQ(1, outcome.status);
  const std::string p = file + ": ";
  EXPECT_EQ(p + "line 8: TTRS holds 0 values, not 1 or more, so it is passed over\n" + p +
                "line 11: annotation 1 \"Datum A\" names annotation 7 in its order group, which " +
                "no annotation of the set carries\n" + p + "line 13: TPS holds 10 values, not " +
                "11, so it is passed over\n" + p + "line 17: View holds 6 values, not 5, so it " +
                "is passed over\n" + p + "line 21: RefFrame holds 5 values, not 6, so it is " +
                "passed over\n" + p + "line 24: CG holds 7 values, not 8, so it is passed " +
                "over\n" + p + "line 27: Capture holds 9 values, not 8, so it is passed over\n" +
                p + "line 29: capture 42 \"Side\" names view 12 as its active view, which no " +
                "view of the set carries\n" + p + "line 5: AnnotationSet holds 4 values, not 5, " +
                "so its set gets no values and no objects\n",
            outcome.out);
}

// The library's reasons are its own; here, how the tool tells each kind of failure.
TEST_F(Vektps, CheckTellsWhyALoadFailed) {
  const std::string pump = ReadFile(kExamples + "/pump_housing.xml");
  const std::vector<std::string> found, base64 = {"--base64"};
  const struct {
    std::string name;
    std::string bytes;
    const std::vector<std::string>& flags;
    std::string problem;
  } rows[] = {
      {"tags.xml", "<TolerancingData>\n  <AnnotationSet>\n  </AnnotationSt>\n</TolerancingData>",
       found, "load failed: XML error at line 3, column 5: Start-end tags mismatch"},
      {"text.b64", "PEZ1bmN0aW9u*", base64,
       "load failed: the base64 text does not decode: '*' at offset 12 is not a base64 character"},
      {"tail.z", Zlib(pump) + "xx", found,
       "load failed: the zlib data does not decode: bytes follow the end of its stream"},
      {"no_set.xml", "<Functional_Tolerancing_Annotation/>", found,
       "load failed (0x80004005): the root has no AnnotationSet child, so no set is made"},
  };
  for (const auto& row : rows) {
    std::vector<std::string> arguments = {"check"};
    arguments.insert(arguments.end(), row.flags.begin(), row.flags.end());
    arguments.push_back(Write(row.name, row.bytes));
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(1, outcome.status) << row.name;
    EXPECT_EQ(0u, outcome.out.find(row.name + ": " + row.problem + "\n")) << outcome.out;
    EXPECT_EQ("", outcome.err) << row.name;
  }
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
    EXPECT_EQ(ReadFile(kExamples + "/" + name), ReadFile((root_ / "work" / name).string()))
        << name << " differs from the generator's output: rebuild the example_documents target";
  }
}

// ---- usage ----

TEST_F(Vektps, UsageErrorsExitWithTwo) {
  const std::string bracket = kExamples + "/bracket.xml";
  const std::vector<std::vector<std::string>> rows = {
      {},
      {"frobnicate", bracket},
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
      {"view", bracket, bracket, "-o", "page.html"},
  };
  for (const auto& arguments : rows) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(2, outcome.status) << (arguments.empty() ? "" : arguments[0]) << outcome.err;
    EXPECT_EQ(0u, outcome.err.find("vektps: ")) << outcome.err;
    EXPECT_EQ("", outcome.out);
  }
  EXPECT_EQ(0u, Run(rows[1]).err.find("vektps: unknown command 'frobnicate'; the commands are "
                                      "summary, json, check, csv, convert, gltf, view\n"));
}

TEST_F(Vektps, HelpAndVersion) {
  Outcome outcome = Run({"--help"});
  EXPECT_EQ(0, outcome.status);
  for (const char* command : {"summary", "json", "check", "csv", "convert"})
    EXPECT_NE(std::string::npos, outcome.out.find(command)) << command;
  outcome = Run({"json", "--help"});
  EXPECT_EQ(0, outcome.status);
  for (const char* option :
       {"--zlib", "--base64", "--plain", "--schema", "--dump PATH", "-o,--output", "--pretty"})
    EXPECT_NE(std::string::npos, outcome.out.find(option)) << option;
  outcome = Run({"--version"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ(std::string("vektps ") + VEK_PROJECT_VERSION + "\n", outcome.out);
}

TEST_F(Vektps, UnreadableFilesAreNamed) {
  const Outcome outcome = Run({"check", "absent.xml", (root_ / "tmp").string()});
  EXPECT_EQ(1, outcome.status);
  EXPECT_EQ("", outcome.out);
  EXPECT_EQ("vektps: absent.xml: cannot open: No such file or directory\nvektps: " +
                (root_ / "tmp").string() + ": cannot read: it is a directory\n",
            outcome.err);
  // Endless input stops at the limit, from a file and from standard input alike.
  for (const std::string& file : {std::string("/dev/zero"), std::string("-")}) {
    const Outcome endless =
        Run({"check", "--max-bytes", "100000", file}, VEK_TOOL_PATH, "/dev/zero");
    EXPECT_EQ(1, endless.status) << file;
    EXPECT_NE(std::string::npos, endless.err.find("more than 100000 bytes")) << endless.err;
  }
  // One byte over is refused while reading, not held whole for the load to refuse.
  const std::string over = (root_ / "work" / Write("over.xml", std::string(100001, ' '))).string();
  EXPECT_EQ(
      "vektps: -: standard input holds more than 100000 bytes, the most a document may have\n",
      Run({"check", "--max-bytes", "100000", "-"}, VEK_TOOL_PATH, over).err);
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
  const Outcome pump = Run({kExamples + "/pump_housing.xml"}, VEK_HOST_EXAMPLE_PATH);
  std::istringstream lines(pump.out);
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

TEST_F(Vektps, SeveralFilesAreJsonLinesAndSummaryJsonIsOneLineEach) {
  const std::string bracket = kExamples + "/bracket.xml";
  const std::string legacy = kExamples + "/gear_shaft_legacy.xml";
  Outcome outcome = Run({"json", bracket, legacy});
  ASSERT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ(Run({"json", bracket}).out + Run({"json", legacy}).out, outcome.out);

  outcome = Run({"summary", "--json", bracket, "missing.xml", legacy});
  EXPECT_EQ(1, outcome.status);
  std::vector<Json> records;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);) records.push_back(Json::parse(line));
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ(Json::parse(R"({"path":")" + bracket + R"(","schema":"current","form":"plain",)" +
                        R"("result":"0x00000000","error":null,"sets":[{"name":"Bracket MB-200",)" +
                        R"("standard":"ISO 1101:2017","ttrs":3,"annotations":4,"views":2,)" +
                        R"("refFrames":1,"cgs":1,"captures":1,"unresolved":0}],"diagnostics":0})"),
            records[0]);
  EXPECT_EQ("legacy", records[1]["schema"]);
}

TEST_F(Vektps, SummaryShowsNoControlCharacters) {
  const std::string file =
      Write("controls.xml",
            "<Functional_Tolerancing_Annotation><AnnotationSet Standard=\"a&#9;"
            "b\u0085c\"><TPSId Name=\"x\u009Fy\"/></AnnotationSet>"
            "</Functional_Tolerancing_Annotation>");
  const Outcome outcome = Run({"summary", file});
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_NE(std::string::npos, outcome.out.find("  1    x y   a b c ")) << outcome.out;
}

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
  const std::string annotations = ReadFile((root_ / "work" / "annotations.csv").string());
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
  const std::string captures = ReadFile((root_ / "work" / "captures.csv").string());
  EXPECT_NE(std::string::npos, captures.find("camera.position")) << captures.substr(0, 300);
  EXPECT_NE(std::string::npos, captures.find(",Shaft and seal,")) << captures;

  // A name with a comma and a quote is quoted as RFC 4180 says.
  const std::string quoted = Write("quoted.xml",
                                   "<Functional_Tolerancing_Annotation><AnnotationSet/><RootTTRSs>"
                                   "<TTRS><TPSId Name='a, &quot;b&quot;'/></TTRS></RootTTRSs>"
                                   "</Functional_Tolerancing_Annotation>");
  ASSERT_EQ(0, Run({"csv", quoted}).status);
  EXPECT_NE(
      std::string::npos,
      ReadFile((root_ / "work" / "ttrs.csv").string()).find("\r\n1,0,\"a, \"\"b\"\"\",,0,0,"));
  const Outcome noSuchSet = Run({"csv", kExamples + "/bracket.xml", "--set", "2"});
  EXPECT_EQ(2, noSuchSet.status);
  EXPECT_NE(std::string::npos, noSuchSet.err.find("--set 2: the load made 1 set")) << noSuchSet.err;
}

// ---- convert ----

TEST_F(Vektps, ConvertKeepsEveryExampleInEachForm) {
  for (const char* file : {"bracket.xml", "pump_housing.xml.z", "gear_shaft_legacy.xml"}) {
    const std::string path = kExamples + "/" + file;
    const Json before = Json::parse(Run({"json", path}).out);
    for (const char* form : {"--plain", "--base64", "--zlib"}) {
      std::vector<std::string> arguments = {"convert", path, "-o", "out"};
      if (std::string(form) != "--plain") arguments.push_back(form);
      const Outcome outcome = Run(arguments);
      ASSERT_EQ(0, outcome.status) << file << form << outcome.err;
      EXPECT_EQ("", outcome.out);
      const Json after = Json::parse(Run({"json", "out"}).out);
      EXPECT_EQ("current", after["schema"]);
      if (before["schema"] == "current") {
        EXPECT_EQ("", outcome.err) << file;
        EXPECT_EQ(before, after) << file << form;
      } else {
        // The legacy schema gives no TTRS a type: told once per object, then counted.
        EXPECT_NE(std::string::npos,
                  outcome.err.find(": warning: TTRS 1: its type was never set; it comes back as "
                                   "0 (unset)\n"))
            << outcome.err;
        EXPECT_NE(std::string::npos,
                  outcome.err.find(": warning: 3 more like these: TTRS, type (unset)\n"))
            << outcome.err;
        EXPECT_EQ(before["sets"][0]["annotations"], after["sets"][0]["annotations"]);
      }
    }
    EXPECT_EQ(WorkFiles(), std::vector<std::string>{"out"});
  }
}

TEST_F(Vektps, ConvertWritesToStandardOutputOrEachFileIntoADirectory) {
  const std::string bracket = kExamples + "/bracket.xml";
  const Outcome plain = Run({"convert", bracket});
  ASSERT_EQ(0, plain.status) << plain.err;
  EXPECT_EQ(0u, plain.out.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
  // What was written converts again into the same bytes, from standard input too.
  const std::string written = (root_ / "work" / Write("in.xml", plain.out)).string();
  EXPECT_EQ(plain.out, Run({"convert", "-"}, VEK_TOOL_PATH, written).out);

  const std::string legacy = kExamples + "/gear_shaft_legacy.xml";
  const Outcome several = Run({"convert", bracket, "missing.xml", kExamples + "/pump_housing.xml.z",
                               legacy, "--all-warnings", "--out-dir", "out", "--zlib"});
  EXPECT_EQ(1, several.status);
  EXPECT_NE(std::string::npos,
            several.err.find("vektps: missing.xml: cannot open: No such file or directory\n"));
  EXPECT_EQ(std::string::npos, several.err.find("more like these"));
  std::vector<std::string> converted;
  for (const auto& entry : fs::directory_iterator(root_ / "work" / "out"))
    converted.push_back(entry.path().filename().string());
  std::sort(converted.begin(), converted.end());
  EXPECT_EQ(converted, (std::vector<std::string>{"bracket.xml.z", "gear_shaft_legacy.xml.z",
                                                 "pump_housing.xml.z"}));
  const Outcome summary = Run({"summary", "out/pump_housing.xml.z"});
  EXPECT_NE(std::string::npos, summary.out.find("current schema, zlib data")) << summary.out;
}

}  // namespace
