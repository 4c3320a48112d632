// Loads of both schemas fed hostile input must end with a result code: no crash, no hang, no
// leak, no file opened outside the dump, and memory bounded by what the input declares.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "DocumentForms.h"
#include "GlbBuilder.h"
#include "LoadTestSupport.h"
#include "ModelQueries.h"
#include "VEKDocumentGenerator.h"

namespace {

const std::string kCurrentOpen =
    "<Functional_Tolerancing_Annotation Version=\"1\"><AnnotationSet Standard=\"ISO\">"
    "<TPSId Name=\"set\" Uuid=\"u\"/></AnnotationSet>";
const std::string kCurrentClose = "</Functional_Tolerancing_Annotation>";
const std::string kLegacyOpen =
    "<TolerancingData><AnnotationSet><I V=\"set\"/><I V=\"ISO\"/><I V=\"1\"/><I V=\"0\"/>"
    "<I V=\"u\"/></AnnotationSet>";
const std::string kLegacyClose = "</TolerancingData>";
constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005);

std::string Repeat(const std::string& piece, std::size_t times) {
  std::string text;
  text.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

// Every test runs in a directory of its own, where the current-schema loads write their dump.
class HostileInput : public vek_test::CurrentLoadTest {
 protected:
  void SetUp() override { ASSERT_TRUE(directory_.Entered()); }

  HRESULT LoadCompressed(std::string stream, int declared, int compressedSize) {
    VEKUnicodeString unused;
    VEKComPtr<VEKITPSLightSet> set;
    return util_.GenerateLightModelFromBase(unused, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                            stream.data(), declared, compressedSize);
  }
  HRESULT LoadLegacy(const std::string& xml) {
    VEKComPtr<VEKITPSLightSet> set;
    return util_.GenerateLightModel(xml.c_str(), nullptr, set.ReleaseAndGetAddressOf());
  }
  // Whether the one annotation of a current-schema document whose graphics are `glb` got them.
  bool LoadedRep(const std::vector<char>& glb) {
    const std::string xml =
        kCurrentOpen +
        "<RootTPSs><TPS><TPSId Name=\"a\" Uuid=\"b\"/><TPSLoc Type=\"1\" Id=\"7\" Status=\"0\"/>"
        "<Rep Type=\"3\"><Buf>" +
        vek_test::EncodeBase64(reinterpret_cast<const unsigned char*>(glb.data()), glb.size()) +
        "</Buf></Rep></TPS></RootTPSs>" + kCurrentClose;
    VEKComPtr<VEKITPSLightSet> set;
    EXPECT_EQ(LoadText(xml, set), S_OK);
    if (!set || set->GetAnnotations()->Count() != 1) return false;
    const auto light = vek_test::Query<VEKITPSLight>(set->GetAnnotations()->Get(0));
    return light && light->GetRep() != nullptr;
  }
};

bool IsResultCode(HRESULT result) { return result == S_OK || result == kFail; }

TEST_F(HostileInput, StreamsBeyondTheirDeclaredSizesFailQuietly) {
  const std::string xml = kCurrentOpen + kCurrentClose;
  const std::string stream = vek_test::ZlibCompress(xml);
  const std::string trailing = stream + "extra";
  // 20 MB of one byte inflate from about 20 KB; the declared size allows a thousandth of that.
  const std::string bomb = vek_test::ZlibCompress(std::string(20u << 20, 'a'));
  const int exact = static_cast<int>(xml.size());
  const int streamSize = static_cast<int>(stream.size());
  const struct {
    const std::string& stream;
    int declared;
    int compressedSize;
    HRESULT expected;
  } rows[] = {
      {stream, exact, streamSize, S_OK},
      {stream, exact + 1, streamSize, S_OK},  // the tail is zero-filled, and the parser ignores it
      {stream, exact - 1, streamSize, kFail},
      {stream, 2'000'000'000, streamSize, kFail},
      {stream, INT_MAX, streamSize, kFail},
      {stream, -1, streamSize, kFail},
      {stream, INT_MIN, streamSize, kFail},
      {stream, exact, -1, kFail},
      {stream, exact, streamSize - 1, kFail},
      // No stream inflates to more than 1032 times its size: a larger declaration is refused.
      {stream, streamSize * 1032, streamSize, S_OK},
      {stream, streamSize * 1032 + 1, streamSize, kFail},
      {trailing, exact, static_cast<int>(trailing.size()), kFail},
      {bomb, 20'000, static_cast<int>(bomb.size()), kFail},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.declared << " from " << row.compressedSize);
    EXPECT_EQ(LoadCompressed(row.stream, row.declared, row.compressedSize), row.expected);
  }
}

// Whether the system lets the peak resident memory of the process be reset.
bool ResetPeakResident() {
  // The flush makes the write, so that a refused one shows.
  return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << "5" << std::flush);
}
// The peak resident memory since the last reset.
long long PeakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::atoll(line.c_str() + 6);
  }
  return -1;
}

TEST_F(HostileInput, ADeclaredSizeBeyondTheOutputCostsAddressSpaceNotMemory) {
  // About a megabyte of letters that deflate cannot shrink much, in a valid document.
  std::string letters(1u << 20, 'a');
  std::minstd_rand random(1);
  for (char& letter : letters) letter = static_cast<char>('a' + random() % 26);
  const std::string stream =
      vek_test::ZlibCompress(kCurrentOpen + "<RootTTRSs x=\"" + letters + "\"/>" + kCurrentClose);
  const int declared = static_cast<int>(stream.size()) * 1000;
  if (!ResetPeakResident()) GTEST_SKIP() << "the peak resident memory cannot be reset";
  const long long before = PeakResidentKiB();
  EXPECT_EQ(LoadCompressed(stream, declared, static_cast<int>(stream.size())), S_OK);
  const long long grown = PeakResidentKiB() - before;
  // A quarter leaves room for the address sanitizer's shadow, an eighth of the block.
  EXPECT_LT(grown, declared / 1024 / 4) << "KiB, for " << declared / 1024 << " KiB declared";
}

TEST_F(HostileInput, DocumentsTruncatedAtEveryOffsetGiveAResultCode) {
  const std::string current = VEKGenerateDocument({VEKGeneratedSchema::Current, 6, 3});
  const std::string legacy = VEKGenerateDocument({VEKGeneratedSchema::Legacy, 6, 3});
  ASSERT_EQ(LoadText(current), S_OK);
  ASSERT_EQ(LoadLegacy(legacy), S_OK);
  for (std::size_t length = 0; length < current.size(); ++length)
    ASSERT_TRUE(IsResultCode(LoadText(current.substr(0, length)))) << length;
  for (std::size_t length = 0; length < legacy.size(); ++length)
    ASSERT_TRUE(IsResultCode(LoadLegacy(legacy.substr(0, length)))) << length;
  const std::string stream = vek_test::ZlibCompress(current);
  for (std::size_t length = 1; length < stream.size(); ++length) {
    ASSERT_EQ(LoadCompressed(stream.substr(0, length), static_cast<int>(current.size()),
                             static_cast<int>(length)),
              kFail)
        << length;
  }
}

TEST_F(HostileInput, HugeValuesAndTenMillionTinyOrAMillionNestedElementsLoad) {
  constexpr std::size_t kValueBytes = 100u << 20;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(LoadText("<Functional_Tolerancing_Annotation><AnnotationSet Standard=\"" +
                         std::string(kValueBytes, 'v') + "\"/>" + kCurrentClose,
                     set),
            S_OK);
  ASSERT_TRUE(set);
  const auto standard = set->GetStandard();
  ASSERT_TRUE(standard.has_value());
  EXPECT_EQ(standard->GetLengthInChar(), static_cast<int>(kValueBytes));
  set.Reset();

  // A representation of 100 MB of base64 text decodes to bytes that are no GLB: the TTRS is built
  // without it.
  ASSERT_EQ(LoadText(kCurrentOpen + "<RootTTRSs><TTRS><Rep Type=\"3\"><Buf>" +
                         std::string(kValueBytes, 'A') + "</Buf></Rep></TTRS></RootTTRSs>" +
                         kCurrentClose,
                     set),
            S_OK);
  ASSERT_TRUE(set);
  ASSERT_EQ(set->GetTTRS().Count(), 1);
  EXPECT_EQ(vek_test::Query<VEKITPSLight>(set->GetTTRS().Get(0))->GetRep(), nullptr);
  set.Reset();

  // Ten million elements that every walk passes over.
  const std::string tiny = Repeat("<t/>", 10'000'000);
  EXPECT_EQ(LoadText(kCurrentOpen + "<RootTTRSs>" + tiny + "</RootTTRSs>" + kCurrentClose), S_OK);
  EXPECT_EQ(LoadLegacy(kLegacyOpen + tiny + kLegacyClose), S_OK);

  // Nesting loads and dumps without recursion.
  constexpr std::size_t kDepth = 1'000'000;
  const std::string nested = Repeat("<a>", kDepth) + Repeat("</a>", kDepth);
  EXPECT_EQ(LoadText(kCurrentOpen + "<RootTTRSs>" + nested + "</RootTTRSs>" + kCurrentClose), S_OK);
  // The dump holds every level.
  EXPECT_GT(vek_test::ReadFileBytes(vek_test::DumpFileName()).size(), kDepth * 7);
  EXPECT_EQ(LoadLegacy(kLegacyOpen + nested + kLegacyClose), S_OK);
}

TEST_F(HostileInput, InvalidUtf8AndControlCharactersLoadOrFailCleanly) {
  const char* const pieces[] = {"\xff\xfe",         "\xc0\x80",     "\xed\xa0\x80", "\xe2\x82",
                                "\xf4\x90\x80\x80", "\x01\x02\x1f", "\x7f",         "\xef\xbf\xbe"};
  for (const std::string value : pieces) {
    SCOPED_TRACE(testing::PrintToString(value));
    const std::string inValue = "<Functional_Tolerancing_Annotation><AnnotationSet Standard=\"" +
                                value + "\"><TPSId Name=\"" + value + "\" Uuid=\"x" + value +
                                "\"/></AnnotationSet><RootTTRSs><TTRS><GeoP>1 " + value +
                                " 2</GeoP></TTRS></RootTTRSs>" + kCurrentClose;
    EXPECT_TRUE(IsResultCode(LoadText(inValue)));
    const std::string inName = kCurrentOpen + "<Root" + value + "TTRSs/><T" + value + " A" + value +
                               "=\"1\"/>" + kCurrentClose;
    EXPECT_TRUE(IsResultCode(LoadText(inName)));
    const std::string legacy = "<TolerancingData><AnnotationSet>" +
                               vek_test::Values({value, value, value, value}) + "<I" + value +
                               " V=\"u\"/></AnnotationSet>" + kLegacyClose;
    EXPECT_TRUE(IsResultCode(LoadLegacy(legacy)));
  }
}

TEST_F(HostileInput, EntityDeclarationsDoNotExpand) {
  std::string doctype = "<!DOCTYPE Functional_Tolerancing_Annotation [<!ENTITY lol0 \"lol\">";
  for (int level = 1; level <= 9; ++level) {
    doctype += "<!ENTITY lol" + std::to_string(level) + " \"" +
               Repeat("&lol" + std::to_string(level - 1) + ";", 10) + "\">";
  }
  doctype += "]>";
  const std::string xml = doctype +
                          "<Functional_Tolerancing_Annotation><AnnotationSet Standard=\"&lol9;\">"
                          "<TPSId Name=\"&lol9;\"/></AnnotationSet><RootTTRSs>&lol9;</RootTTRSs>" +
                          kCurrentClose;
  EXPECT_TRUE(IsResultCode(LoadText(xml)));
  // A dump, when written, holds the references as they stand, not a billion expansions.
  EXPECT_LT(vek_test::ReadFileBytes(vek_test::DumpFileName()).size(), 1u << 20);
  std::string legacy = xml;
  legacy.replace(legacy.find("Functional_Tolerancing_Annotation"), 33, "TolerancingData");
  EXPECT_TRUE(IsResultCode(LoadLegacy(legacy)));
}

TEST_F(HostileInput, HostileSceneGraphsInARepAreRejectedWithoutOpeningFiles) {
  // Anything that opens x.bin shows up as an inotify event.
  { std::ofstream("x.bin", std::ios::binary) << "\x00\x00\x80\x3f"; }
  const int watcher = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_GE(watcher, 0);
  ASSERT_GE(inotify_add_watch(watcher, "x.bin", IN_OPEN | IN_ACCESS | IN_MODIFY), 0);

  // Malformed blobs of every other kind are the scene-graph reader's tests.
  using vek_test::BuildGlb;
  EXPECT_FALSE(LoadedRep(
      BuildGlb(R"({"asset":{"version":"2.0"},"buffers":[{"uri":"x.bin","byteLength":4}],)"
               R"("bufferViews":[{"buffer":0,"byteLength":4}],"accessors":[{"bufferView":0,)"
               R"("componentType":5126,"count":1,"type":"SCALAR"}],"scenes":[{"nodes":[]}]})")));
  EXPECT_FALSE(LoadedRep(BuildGlb(R"({"asset":{"version":"2.0"},"images":[{"uri":"x.bin"}]})")));
  // The same document with a sound blob does carry its graphics.
  EXPECT_TRUE(LoadedRep(vek_test::BuildMeshesGlb(1, 0, 0)));
  char events[4096];
  EXPECT_LT(read(watcher, events, sizeof events), 0) << "x.bin was opened";
  (void)close(watcher);
}

}  // namespace
