#include "VEKToolLoad.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "VEKCodePage.h"
#include "VEKTPSLightParserUtil.h"

namespace {

// The name the library gives its dump, relative to the working directory.
const char* const kDumpName = "E:\\TPSLoadXML.xml";

// The scratch directory and its dump, removed when a signal ends the tool. Fixed arrays, so that
// the handler makes only async-signal-safe calls.
char gScratchDirectory[PATH_MAX];
char gScratchDump[PATH_MAX];

extern "C" void RemoveScratchAndStop(int signalNumber) {
  (void)unlink(gScratchDump);
  (void)rmdir(gScratchDirectory);
  (void)signal(signalNumber, SIG_DFL);
  (void)raise(signalNumber);
}

void RemoveScratchOnSignals(const std::string& directory, const std::string& dump) {
  if (dump.size() >= sizeof gScratchDump) return;
  std::memcpy(gScratchDirectory, directory.c_str(), directory.size() + 1);
  std::memcpy(gScratchDump, dump.c_str(), dump.size() + 1);
  struct sigaction action {};
  action.sa_handler = RemoveScratchAndStop;
  (void)sigemptyset(&action.sa_mask);
  for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
    (void)sigaction(signalNumber, &action, nullptr);
}

// Current-schema documents go through the library's base64 form whether the file held plain XML
// or base64 text: it hands the parser the document's exact bytes, where the plain-text form would
// cut a document with multi-byte characters short. Zlib data goes through the compressed form.
void RunLoad(const VEKToolDocument& document, VEKToolLoadResult& out) {
  VEKTPSLightParserUtil parser;
  VEKITPSLightSet* set = nullptr;
  if (document.schema == VEKToolSchema::Legacy) {
    out.result = parser.GenerateLightModel(document.utf8.c_str(), nullptr, &set);
  } else if (document.form == VEKToolForm::Zlib) {
    std::vector<char> compressed(document.fileBytes.begin(), document.fileBytes.end());
    VEKUnicodeString unused;
    out.result =
        parser.GenerateLightModelFromBase(unused, nullptr, &set, 0, compressed.data(),
                                          document.zlibSize, static_cast<int>(compressed.size()));
  } else {
    VEKUnicodeString base64;
    if (document.form == VEKToolForm::Base64) {
      base64 = VEKUnicodeString(document.fileBytes.data(), document.fileBytes.size());
    } else if (VEKCodePage::ConvertToBase64(
                   reinterpret_cast<const unsigned char*>(document.xml.data()),
                   static_cast<unsigned int>(document.xml.size()), base64) < 0) {
      out.result = E_OUTOFMEMORY;
      return;
    }
    out.result = parser.GenerateLightModelFromBase(base64, nullptr, &set, 1, nullptr, 0, 0);
  }
  out.lastSet.Attach(set);
}

int CountChildren(const VEKLightXmlElementItf& element, const char* name) {
  int count = 0;
  for (void* position = element.GetChildren(); position;) {
    const VEKLightXmlElementItf* child = element.GetChild(position);
    if (child && child->GetName() == name) ++count;
  }
  return count;
}

}  // namespace

VEKToolScratch::~VEKToolScratch() {
  if (directory_.empty()) return;
  (void)std::remove(DumpPath().c_str());
  (void)rmdir(directory_.c_str());
}

bool VEKToolScratch::Prepare(std::string& error) {
  if (!directory_.empty()) return true;
  const char* base = std::getenv("TMPDIR");
  if (!base || !*base) base = "/tmp";
  std::string pattern = std::string(base) + "/vektps-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    error =
        std::string("cannot make a temporary directory in ") + base + ": " + std::strerror(errno);
    return false;
  }
  // An absolute path stays right whatever the working directory is when it is used.
  const std::unique_ptr<char, decltype(&std::free)> absolute(realpath(pattern.c_str(), nullptr),
                                                             &std::free);
  directory_ = absolute ? absolute.get() : pattern;
  RemoveScratchOnSignals(directory_, DumpPath());
  return true;
}

std::string VEKToolScratch::DumpPath() const { return directory_ + "/" + kDumpName; }

bool VEKToolLoad(const VEKToolDocument& document, VEKToolScratch& scratch, VEKToolLoadResult& out,
                 std::string& error) {
  if (!scratch.Prepare(error)) return false;
  const std::string dumpPath = scratch.DumpPath();
  // A dump left by an earlier load must not pass for this load's.
  (void)std::remove(dumpPath.c_str());

  // Only the library call runs in the scratch directory; every user path is used from the user's
  // own working directory, before or after it.
  const int home = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (home < 0) {
    error = std::string("cannot note the working directory: ") + std::strerror(errno);
    return false;
  }
  if (chdir(scratch.Directory().c_str()) != 0) {
    error = "cannot enter " + scratch.Directory() + ": " + std::strerror(errno);
    (void)close(home);
    return false;
  }
  RunLoad(document, out);
  const bool back = fchdir(home) == 0;
  const int backError = errno;
  (void)close(home);
  if (!back) {
    error = std::string("cannot return to the working directory: ") + std::strerror(backError);
    return false;
  }

  out.dumped = access(dumpPath.c_str(), F_OK) == 0;
  return true;
}

bool VEKToolKeepDump(const VEKToolScratch& scratch, const std::string& path, std::string& error) {
  std::ifstream source(scratch.DumpPath(), std::ios::binary);
  std::ofstream target(path, std::ios::binary | std::ios::trunc);
  if (!source || !target) {
    error = "cannot write the dump to " + path + ": " + std::strerror(errno);
    return false;
  }
  // Inserting an empty stream buffer would mark the target as failed.
  if (source.peek() != std::ifstream::traits_type::eof()) target << source.rdbuf();
  target.close();
  if (!target) {
    error = "cannot write the dump to " + path;
    return false;
  }
  return true;
}

std::string VEKToolExplainFailedLoad(const VEKToolDocument& document) {
  const VEKLightXmlElement& root = document.root;
  if (document.schema == VEKToolSchema::Current) {
    if (CountChildren(root, "AnnotationSet") == 0) {
      return "the root has no AnnotationSet child, so no set is made";
    }
    return "";
  }
  const std::size_t zero = document.utf8.find('\0');
  if (zero != std::string::npos) {
    return "the document holds a zero byte at line " +
           std::to_string(VEKToolLines(document.utf8).LineOf(static_cast<std::ptrdiff_t>(zero))) +
           ", and a legacy document is read as text only up to it";
  }
  if (CountChildren(root, "AnnotationSet") == 0) return "the root has no AnnotationSet child";
  for (void* position = root.GetChildren(); position;) {
    const VEKLightXmlElementItf* child = root.GetChild(position);
    if (child && child->GetName() == "AnnotationSet" && child->GetChildCount() == 5) return "";
  }
  return "no AnnotationSet holds exactly 5 values";
}
