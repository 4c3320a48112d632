// The current-schema load: input forms, failures, dispatch, the caller's *set and the dump file.
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "ParserTestSupport.h"
#include "VEKTPSLightParserUtil.h"

using vek_test::DumpFileName;
using vek_test::ModelText;
using vek_test::Utf8;

namespace {

const char kSmallDocument[] =
    "<Functional_Tolerancing_Annotation Version='2'>"
    "<AnnotationSet Standard='ISO'><TPSId Name='S' Uuid='s'/></AnnotationSet>"
    "<RootTTRSs><TTRS><GeoP>1</GeoP></TTRS></RootTTRSs>"
    "</Functional_Tolerancing_Annotation>";
const char kSmallModel[] = "S1 S/s/0/-/0 standard=ISO\nT1 //0/0/0 geometry=[1]";

// Families before the first "AnnotationSet" go to the caller's set, if it is a live one.
const char kFamiliesFirst[] =
    "<Functional_Tolerancing_Annotation>"
    "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>"
    "<RootTPSs><TPS><TPSLoc Id='2'/></TPS></RootTPSs>"
    "<AnnotationSet Standard='ISO'/>"
    "<RootTTRSs><TTRS><TPSLoc Id='3'/></TTRS></RootTTRSs>"
    "</Functional_Tolerancing_Annotation>";
// The set kFamiliesFirst loads.
const char kLoadedSet[] = "S1 //0/-/0 standard=ISO\nT1 //0/3/0";
const char kFamiliesOnly[] =
    "<Functional_Tolerancing_Annotation>"
    "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>"
    "</Functional_Tolerancing_Annotation>";

class CurrentLoad : public vek_test::CurrentLoadTest {
 protected:
  // Loads `compressed` bytes declared as `uncompressedSize`, with `source` as the text form.
  HRESULT LoadCompressed(std::string compressed, int uncompressedSize, int compressedSize,
                         VEKComPtr<VEKITPSLightSet>& set, const char* source = "") {
    VEKUnicodeString text(source);
    return util_.GenerateLightModelFromBase(text, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                            compressed.data(), uncompressedSize, compressedSize);
  }
  static bool DumpExists() { return std::filesystem::exists(DumpFileName()); }
};

}  // namespace

TEST_F(CurrentLoad, FailuresReturnEFailAndWriteNoDump) {
  EXPECT_EQ(LoadInto(kSmallDocument, nullptr), E_FAIL);
  VEKComPtr<VEKITPSLightSet> set;
  EXPECT_EQ(LoadText("@@not base64@@", set, 1), E_FAIL);
  EXPECT_EQ(LoadText("", set, 1), E_FAIL);
  EXPECT_EQ(LoadText("<Functional_Tolerancing_Annotation>", set), E_FAIL);
  EXPECT_EQ(LoadText("<TolerancingData><AnnotationSet/></TolerancingData>", set), E_FAIL);
  EXPECT_EQ(LoadCompressed("not zlib at all", 100, 15, set), E_FAIL);

  EXPECT_FALSE(set);
  EXPECT_FALSE(DumpExists());
}

TEST_F(CurrentLoad, EachInputFormLoadsTheSameDocument) {
  const std::string packed = vek_test::ZlibCompress(kSmallDocument);
  const int size = sizeof(kSmallDocument) - 1;
  const int packedSize = static_cast<int>(packed.size());
  VEKComPtr<VEKITPSLightSet> set;

  ASSERT_EQ(LoadText(kSmallDocument, set), S_OK);
  EXPECT_EQ(ModelText(set.Get()), kSmallModel);
  // Only 1 selects base64; any other value reads the text as it is.
  ASSERT_EQ(LoadText(kSmallDocument, set, 2), S_OK);
  ASSERT_EQ(LoadText(vek_test::ToBase64(kSmallDocument), set, 1), S_OK);
  EXPECT_EQ(ModelText(set.Get()), kSmallModel);
  // All three compressed arguments usable: the text is never looked at.
  ASSERT_EQ(LoadCompressed(packed, size, packedSize, set, "<junk"), S_OK);
  EXPECT_EQ(ModelText(set.Get()), kSmallModel);
  // Either size 0 falls back to the text.
  EXPECT_EQ(LoadCompressed(packed, 0, packedSize, set, kSmallDocument), S_OK);
  EXPECT_EQ(LoadCompressed(packed, size, 0, set, kSmallDocument), S_OK);
  EXPECT_EQ(LoadCompressed(packed, size, 0, set, "<junk"), E_FAIL);

  // Plain text is cut at its character count: "é" takes two bytes, so the parser receives one
  // byte fewer than the text holds.
  const std::string document =
      "<Functional_Tolerancing_Annotation><AnnotationSet Standard='\xC3\xA9'/>"
      "</Functional_Tolerancing_Annotation>";
  EXPECT_EQ(LoadText(document, set), E_FAIL);
  ASSERT_EQ(LoadText(vek_test::ToBase64(document), set, 1), S_OK);
  EXPECT_EQ(Utf8(set->GetStandard()), "\xC3\xA9");
}

TEST_F(CurrentLoad, ResultFollowsTheAnnotationSets) {
  VEKComPtr<VEKITPSLightSet> set;
  // An empty root matches, so the dump is written, but no set is made.
  EXPECT_EQ(LoadText("<Functional_Tolerancing_Annotation/>", set), E_FAIL);
  EXPECT_TRUE(DumpExists());
  EXPECT_FALSE(set);

  // Builders before the first "AnnotationSet" receive the caller's set: null here.
  ASSERT_EQ(LoadText("<Functional_Tolerancing_Annotation><RootTTRSs><TTRS/></RootTTRSs>"
                     "<AnnotationSet><TPSId Name='first'/></AnnotationSet><Unknown/>"
                     "<AnnotationSet><TPSId Name='second'/></AnnotationSet>"
                     "</Functional_Tolerancing_Annotation>",
                     set),
            S_OK);
  EXPECT_EQ(ModelText(set.Get()), "S1 second//0/-/0 standard=");
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(set->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(ModelText(previous.Get()), "S1 first//0/-/0 standard=");
  // The load overwrote *set without releasing the first set: its reference passed to the second
  // set, so releasing the second frees both.
}

TEST_F(CurrentLoad, CallersValuesThatAreNotLiveSetsAreNeverHandedOn) {
  alignas(std::max_align_t) unsigned char stackBytes[64];
  for (const vek_test::StraySet& caller : vek_test::StraySets(stackBytes)) {
    SCOPED_TRACE(caller.what);
    VEKITPSLightSet* slot = caller.value;
    {
      ASSERT_EQ(LoadInto(kFamiliesFirst, &slot), S_OK);
      VEKComPtr<VEKITPSLightSet> set;
      set.Attach(slot);
      // Only what follows "AnnotationSet" was built; the families before it went nowhere.
      EXPECT_EQ(ModelText(set.Get()), kLoadedSet);
      VEKComPtr<VEKITPSLightSet> previous;
      EXPECT_EQ(set->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_FALSE);
    }  // freed before the next load, which may otherwise find the freed address in use again

    // Without any "AnnotationSet" the load fails as always, and the value is dropped.
    slot = caller.value;
    EXPECT_EQ(LoadInto(kFamiliesOnly, &slot), E_FAIL);
    EXPECT_EQ(slot, nullptr);
  }
}

TEST_F(CurrentLoad, CallersLiveSetIsBuiltIntoAndChainedOrLeftOnFailure) {
  VEKComPtr<VEKITPSLightSet> callers = vek_test::MakeSet(vek_test::MakeContainer().Get());
  VEKITPSLightSet* const callersAddress = callers.Get();
  VEKITPSLightSet* slot = callers.Detach();  // its reference passes to the load's set
  ASSERT_EQ(LoadInto(kFamiliesFirst, &slot), S_OK);
  VEKComPtr<VEKITPSLightSet> set;
  set.Attach(slot);
  VEKComPtr<VEKITPSLightSet> previous;
  ASSERT_EQ(set->GetPreviousSet(previous.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(previous.Get(), callersAddress);
  EXPECT_EQ(ModelText(previous.Get()),
            "S1 -/-/-/-/-\nT1 //0/1/0\nA1 //0/2/0 value=0 reference=0 attribute=");
  EXPECT_EQ(ModelText(set.Get()), kLoadedSet);
  // Without any "AnnotationSet" the builders still fill it, but the load fails and leaves it.
  VEKITPSLightSet* kept = set.Get();
  EXPECT_EQ(LoadInto(kFamiliesOnly, &kept), E_FAIL);
  EXPECT_EQ(kept, set.Get());
  EXPECT_EQ(set->GetTTRS().Count(), 2);
}

// The text GetXml writes of `xml` parsed.
std::string Serialised(const std::string& xml) {
  VEKLightXmlElement root = vek_test::ParseXml(xml);
  VEKLightXmlParser parser;
  VEKLightXmlOutputStreamBuffer output;
  EXPECT_NE(parser.GetXml(root, output), 0) << xml;
  unsigned char* bytes = nullptr;
  int length = 0;
  output.GetBuffer(bytes, length);
  const std::string text(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(length));
  delete[] bytes;
  return text;
}

TEST_F(CurrentLoad, DumpHoldsTheRootAsLoaded) {
  const std::string root =
      "<Functional_Tolerancing_Annotation Version='2'>\n  <AnnotationSet Standard='I&amp;O'>"
      "<TPSId Name='S'/></AnnotationSet>\n</Functional_Tolerancing_Annotation>";
  const struct {
    std::string document;
    // Empty: the dump is the serialised tree.
    std::string dump;
  } rows[] = {
      // The root's own bytes, without what stands around it.
      {"<?xml version='1.0'?>\n<!-- before -->\n" + root + "\n<!-- after -->\n", root},
      // A document type declaration may give the root meanings of its own: serialised.
      {"<!DOCTYPE Functional_Tolerancing_Annotation>" + root, ""},
  };
  for (const auto& row : rows) {
    std::ofstream(DumpFileName(), std::ios::binary) << std::string(5000, 'x');
    VEKComPtr<VEKITPSLightSet> set;
    ASSERT_EQ(LoadText(row.document, set), S_OK);
    const std::string dump = vek_test::ReadFileBytes(DumpFileName());
    EXPECT_EQ(dump, row.dump.empty() ? Serialised(row.document) : row.dump);
    EXPECT_EQ(Serialised(dump), Serialised(row.document));
  }
}

TEST_F(CurrentLoad, GenerateFileNeedsANameAndIgnoresUnopenablePaths) {
  VEKLightXmlElement root = vek_test::ParseXml("<a b='1'><c>t</c></a>");
  VEKUnicodeString empty;
  EXPECT_EQ(util_.GenerateFile(empty, root), E_FAIL);
  VEKUnicodeString missingFolder("no/such/folder/dump.xml");
  EXPECT_EQ(util_.GenerateFile(missingFolder, root), S_OK);
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));

  VEKUnicodeString name("dump.xml");
  ASSERT_EQ(util_.GenerateFile(name, root), S_OK);
  EXPECT_EQ(vek_test::ReadFileBytes("dump.xml"), "<a b=\"1\"><c>t</c></a>");
  VEKLightXmlElement nothing;
  ASSERT_EQ(util_.GenerateFile(name, nothing), S_OK);
  EXPECT_EQ(vek_test::ReadFileBytes("dump.xml"), "");
}
