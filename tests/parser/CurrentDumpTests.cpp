// The dump file: never written through a planted link, never replaced by a half-written file.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ParserTestSupport.h"
#include "VEKTPSLightDocument.h"

using vek_test::DumpFileName;
using vek_test::ReadFileBytes;

namespace fs = std::filesystem;

namespace {

const char kDocument[] =
    "<Functional_Tolerancing_Annotation><AnnotationSet Standard='ISO'/>"
    "<RootTTRSs><TTRS><GeoP>1 2 3</GeoP></TTRS></RootTTRSs></Functional_Tolerancing_Annotation>";

// While set, the random source gives the same bits every time, so that a temporary name of the
// dump can be told in advance.
std::atomic<bool> gFixedRandom{false};

}  // namespace

extern "C" [[gnu::visibility("default")]] ssize_t getrandom(void* buffer, std::size_t length,
                                                            unsigned int flags) {
  if (!gFixedRandom) return syscall(SYS_getrandom, buffer, length, flags);
  std::memset(buffer, 0xAB, length);
  return static_cast<ssize_t>(length);
}

namespace {

class DumpFile : public vek_test::CurrentLoadTest {};

TEST_F(DumpFile, PlantedLinksAreNeverFollowed) {
  // Files another user would like overwritten, behind links at every name a temporary file of this
  // process had before (name.pid.tid.tmp, for the threads it may have), at random-looking names,
  // and at the dump itself.
  fs::create_directory("victims");
  const std::string precious = "precious\n";
  int planted = 0;
  const auto plant = [&](const std::string& name) {
    const std::string victim = "victims/" + std::to_string(planted++);
    std::ofstream(victim) << precious;
    fs::create_symlink(fs::absolute(victim), name);
  };
  const std::string dump = DumpFileName();
  const long thread = syscall(SYS_gettid);
  for (long tid = thread - 200; tid <= thread + 200; ++tid)
    plant(dump + "." + std::to_string(getpid()) + "." + std::to_string(tid) + ".tmp");
  for (int k = 0; k < 200; ++k) plant(dump + "." + std::to_string(1000003ULL * k) + ".tmp");
  plant(dump);

  ASSERT_EQ(LoadText(kDocument), S_OK);
  VEKTPSLightLoadOptions options;
  options.dumpPath = "asked.xml";
  plant("asked.xml");
  ASSERT_TRUE(VEKLoadDocument(kDocument, sizeof kDocument - 1, options).Loaded());

  for (int k = 0; k < planted; ++k)
    EXPECT_EQ(ReadFileBytes("victims/" + std::to_string(k)), precious);
  // The links at the dumps are replaced by the dumps themselves; no temporary file is left.
  for (const std::string& name : {dump, std::string("asked.xml")}) {
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(name))) << name;
    EXPECT_EQ(vek_test::ParseXml(ReadFileBytes(name)).GetName(),
              "Functional_Tolerancing_Annotation");
  }
  EXPECT_EQ(vek_test::FileNames(directory_.Path()).size(),
            static_cast<std::size_t>(planted - 2 + 3));
}

TEST_F(DumpFile, AFileAtTheTemporaryNameIsNeverReused) {
  const std::string planted = std::string(DumpFileName()) + ".abababababababab.tmp";
  std::ofstream(planted) << "another program's\n";
  gFixedRandom = true;
  const HRESULT result = LoadText(kDocument);
  gFixedRandom = false;
  EXPECT_EQ(result, S_OK);
  EXPECT_EQ(ReadFileBytes(planted), "another program's\n");
  EXPECT_FALSE(fs::exists(DumpFileName())) << "every name tried was taken";
}

TEST_F(DumpFile, AWriteErrorKeepsTheEarlierDump) {
  ASSERT_EQ(LoadText(kDocument), S_OK);
  const std::string earlier = ReadFileBytes(DumpFileName());
  ASSERT_FALSE(earlier.empty());
  // A larger document whose dump passes the file size limit of a child process: the write fails
  // partway, the load still succeeds.
  std::string larger = kDocument;
  larger.insert(larger.find("</RootTTRSs>"),
                "<TTRS><TPSId Name='" + std::string(20000, 'n') + "'/></TTRS>");
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    (void)signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    (void)setrlimit(RLIMIT_FSIZE, &limit);
    VEKTPSLightLoadOptions options;
    options.dumpPath = DumpFileName();
    const bool loaded = VEKLoadDocument(larger.data(), larger.size(), options).Loaded();
    _exit(LoadText(larger) == S_OK && loaded ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the load's result must not depend on its dump";
  EXPECT_EQ(ReadFileBytes(DumpFileName()), earlier);
  EXPECT_EQ(vek_test::FileNames(directory_.Path()), std::vector<std::string>{DumpFileName()});
  // Without the limit the larger document's dump replaces it.
  ASSERT_EQ(LoadText(larger), S_OK);
  EXPECT_GT(ReadFileBytes(DumpFileName()).size(), 4096u);
}

}  // namespace
