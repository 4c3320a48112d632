// The document generator: the same options give the same bytes, families come in the stated
// proportions, and its documents load, in every form and both schemas, with every reference
// resolved.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "ModelQueries.h"
#include "ScratchDirectory.h"
#include "VEKComPtr.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightJsonExport.h"
#include "VEKTPSLightParserUtil.h"

namespace {

constexpr VEKGeneratedForm kForms[] = {VEKGeneratedForm::Plain, VEKGeneratedForm::Base64,
                                       VEKGeneratedForm::Zlib};

using vek_test::Query;
using vek_test::ScratchDirectory;

int IdOf(VEKBaseUnknown* object) { return Query<VEKITPSLight>(object)->GetId().value_or(0); }

std::set<int> IdsOf(const VEKLightObjectList& list) {
  std::set<int> ids;
  for (int k = 0; k < list.Count(); ++k) ids.insert(IdOf(list.Get(k)));
  return ids;
}

HRESULT LoadCurrent(const std::string& xml, VEKGeneratedForm form,
                    VEKComPtr<VEKITPSLightSet>& set) {
  std::string bytes;
  EXPECT_TRUE(VEKEncodeDocumentForm(xml, form, bytes));
  ScratchDirectory directory;
  VEKTPSLightParserUtil parser;
  if (form == VEKGeneratedForm::Zlib) {
    VEKUnicodeString unused;
    return parser.GenerateLightModelFromBase(unused, nullptr, set.ReleaseAndGetAddressOf(), 0,
                                             bytes.data(), static_cast<int>(xml.size()),
                                             static_cast<int>(bytes.size()));
  }
  VEKUnicodeString source(bytes.c_str());
  return parser.GenerateLightModelFromBase(source, nullptr, set.ReleaseAndGetAddressOf(),
                                           form == VEKGeneratedForm::Base64 ? 1 : 0, nullptr, 0, 0);
}

std::string Export(VEKTPSLightSchema schema, HRESULT result, VEKITPSLightSet* set) {
  std::string json;
  EXPECT_EQ(S_OK, VEKExportLoadToJson(schema, result, set, false, json));
  return json;
}

void ExpectCounts(VEKITPSLightSet* set, const VEKFamilyCounts& counts) {
  EXPECT_EQ(counts.ttrs, set->GetTTRS().Count());
  EXPECT_EQ(counts.annotations, set->GetAnnotations()->Count());
  EXPECT_EQ(counts.views, set->GetViews().Count());
  EXPECT_EQ(counts.refFrames, set->GetRefFrames().Count());
  EXPECT_EQ(counts.cgs, set->GetCGs().Count());
  EXPECT_EQ(counts.captures, set->GetCaptures().Count());
}

// Checks the links that the broker does not resolve (TTRS numbers and annotation references),
// that every family is linked to the others, and that nothing went unresolved or doubled.
void ExpectEveryReferenceResolved(VEKITPSLightSet* set) {
  EXPECT_TRUE(set->GetUnresolvedReferences().empty());
  EXPECT_TRUE(set->GetDuplicateIds().empty());
  const std::set<int> ttrs = IdsOf(set->GetTTRS());
  const std::set<int> refFrames = IdsOf(set->GetRefFrames());
  const VEKLightObjectList& annotations = *set->GetAnnotations();
  int grouped = 0;
  for (int k = 0; k < annotations.Count(); ++k) {
    auto annotation = Query<VEKITPSLightAnnotation>(annotations.Get(k));
    EXPECT_FALSE(annotation->GetTTRS().empty());
    for (int id : annotation->GetTTRS()) EXPECT_EQ(1u, ttrs.count(id)) << id;
    const int reference = annotation->GetReference().value_or(-1);
    EXPECT_TRUE(reference == 0 || refFrames.count(reference)) << reference;
    auto model = Query<VEKITPSLightModel>(annotations.Get(k));
    EXPECT_GE(model->GetViews().Count(), 1);
    if (model->GetOrderGroup() && model->GetOrderGroup()->Count() > 0) ++grouped;
  }
  EXPECT_GT(grouped, 0);
  for (int k = 0; k < set->GetRefFrames().Count(); ++k) {
    auto refFrame = Query<VEKITPSLightRefFrame>(set->GetRefFrames().Get(k));
    EXPECT_GE(refFrame->GetDatums().Count(), 1);
    for (int id : refFrame->GetTTRS()) EXPECT_EQ(1u, ttrs.count(id)) << id;
  }
  for (int k = 0; k < set->GetCGs().Count(); ++k) {
    for (int id : Query<VEKITPSLightCG>(set->GetCGs().Get(k))->GetTTRS()) {
      EXPECT_EQ(1u, ttrs.count(id)) << id;
    }
  }
  for (int k = 0; k < set->GetCaptures().Count(); ++k) {
    auto capture = Query<VEKITPSLightCapture>(set->GetCaptures().Get(k));
    EXPECT_NE(nullptr, capture->GetActiveView());
    EXPECT_GE(capture->GetViews().Count(), 1);
  }
}

TEST(Generator, FamilyCountsFollowTheProportions) {
  struct Row {
    std::int64_t objects;
    VEKFamilyCounts counts;
  } rows[] = {
      {-1, {0, 0, 0, 0, 0, 0}},
      {0, {0, 0, 0, 0, 0, 0}},
      {1, {0, 1, 0, 0, 0, 0}},
      {5, {0, 5, 0, 0, 0, 0}},
      {6, {1, 1, 1, 1, 1, 1}},
      {1000, {150, 500, 100, 50, 100, 100}},
      {1001, {150, 501, 100, 50, 100, 100}},
      {kVEKMaxGeneratedObjects + 1,
       {15'000'000, 50'000'000, 10'000'000, 5'000'000, 10'000'000, 10'000'000}},
  };
  for (const Row& row : rows) {
    const VEKFamilyCounts counts = VEKCountFamilies(row.objects);
    EXPECT_EQ(row.counts.ttrs, counts.ttrs) << row.objects;
    EXPECT_EQ(row.counts.annotations, counts.annotations) << row.objects;
    EXPECT_EQ(row.counts.views, counts.views) << row.objects;
    EXPECT_EQ(row.counts.refFrames, counts.refFrames) << row.objects;
    EXPECT_EQ(row.counts.cgs, counts.cgs) << row.objects;
    EXPECT_EQ(row.counts.captures, counts.captures) << row.objects;
  }
}

TEST(Generator, SameOptionsGiveTheSameBytes) {
  for (VEKGeneratedSchema schema : {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
    const std::string first = VEKGenerateDocument({schema, 300, 42});
    EXPECT_EQ(first, VEKGenerateDocument({schema, 300, 42}));
    EXPECT_NE(first, VEKGenerateDocument({schema, 300, 43}));
    EXPECT_NE(first, VEKGenerateDocument({schema, 301, 42}));
    for (VEKGeneratedForm form : kForms) {
      std::string once, twice;
      ASSERT_TRUE(VEKEncodeDocumentForm(first, form, once));
      ASSERT_TRUE(VEKEncodeDocumentForm(first, form, twice));
      EXPECT_EQ(once, twice) << VEKGeneratedFormName(form);
    }
  }
}

// FNV-1a over the bytes: a short fingerprint of a whole document.
std::uint64_t Fingerprint(const std::string& bytes) {
  std::uint64_t hash = 0xCBF29CE484222325ull;
  for (unsigned char byte : bytes) hash = (hash ^ byte) * 0x100000001B3ull;
  return hash;
}

// The documents of one seed are the same on every compiler, platform and build type. These
// fingerprints change only when the generator is changed on purpose, and then published figures
// measured on the old documents no longer compare.
TEST(Generator, DocumentsMatchTheirPublishedFingerprints) {
  const std::string current = VEKGenerateDocument({VEKGeneratedSchema::Current, 200, 1});
  EXPECT_EQ(163244u, current.size());
  EXPECT_EQ(0x1F60B3D2E3C9880Dull, Fingerprint(current));
  const std::string legacy = VEKGenerateDocument({VEKGeneratedSchema::Legacy, 200, 1});
  EXPECT_EQ(39917u, legacy.size());
  EXPECT_EQ(0x9F0321FB70F43C2Cull, Fingerprint(legacy));
}

TEST(Generator, DocumentsAreAsciiAndSizedOnRequest) {
  const std::string xml = VEKGenerateDocument({VEKGeneratedSchema::Current, 200, 3});
  for (char c : xml) ASSERT_TRUE(c > 0 && c < 0x7F) << int(c);
  for (VEKGeneratedSchema schema : {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
    const std::int64_t objects = VEKObjectsForBytes(schema, 2'000'000, 5);
    const double size = static_cast<double>(VEKGenerateDocument({schema, objects, 5}).size());
    EXPECT_NEAR(2e6, size, 0.1e6);
  }
  EXPECT_EQ(1, VEKObjectsForBytes(VEKGeneratedSchema::Legacy, 0, 5));
}

// The three forms give the same model, checked whole on the last one.
TEST(Generator, LoadsInEveryFormWithEveryReferenceResolved) {
  const std::string xml = VEKGenerateDocument({VEKGeneratedSchema::Current, 600, 11});
  std::vector<std::string> exports;
  VEKComPtr<VEKITPSLightSet> set;
  for (VEKGeneratedForm form : kForms) {
    ASSERT_EQ(S_OK, LoadCurrent(xml, form, set)) << VEKGeneratedFormName(form);
    exports.push_back(Export(VEKTPSLightSchema::Current, S_OK, set.Get()));
  }
  EXPECT_EQ(exports[0], exports[1]);
  EXPECT_EQ(exports[0], exports[2]);
  ExpectCounts(set.Get(), VEKCountFamilies(600));
  ExpectEveryReferenceResolved(set.Get());
  // Every fifth annotation has a graphic of a few KB.
  const VEKLightObjectList& annotations = *set->GetAnnotations();
  int withGraphic = 0;
  for (int k = 0; k < annotations.Count(); ++k) {
    const VEKRep* rep = Query<VEKITPSLightAnnotation>(annotations.Get(k))->GetGraphicRep();
    if (!rep) continue;
    ++withGraphic;
    EXPECT_GE(rep->GetBlobSize(), 1000u);
    EXPECT_LE(rep->GetBlobSize(), 8000u);
  }
  EXPECT_EQ((annotations.Count() + 4) / 5, withGraphic);
}

TEST(Generator, LegacyDocumentsLoadTheSameObjects) {
  const std::string legacy = VEKGenerateDocument({VEKGeneratedSchema::Legacy, 600, 11});
  VEKTPSLightParserUtil parser;
  VEKComPtr<VEKITPSLightSet> set;
  ASSERT_EQ(S_OK, parser.GenerateLightModel(legacy.c_str(), nullptr, set.ReleaseAndGetAddressOf()));
  ExpectCounts(set.Get(), VEKCountFamilies(600));
  ExpectEveryReferenceResolved(set.Get());

  // The two schemas of one seed describe the same objects.
  VEKComPtr<VEKITPSLightSet> current;
  ASSERT_EQ(S_OK, LoadCurrent(VEKGenerateDocument({VEKGeneratedSchema::Current, 600, 11}),
                              VEKGeneratedForm::Plain, current));
  const VEKLightObjectList& legacyAnnotations = *set->GetAnnotations();
  const VEKLightObjectList& currentAnnotations = *current->GetAnnotations();
  for (int k = 0; k < legacyAnnotations.Count(); ++k) {
    auto legacyLight = Query<VEKITPSLight>(legacyAnnotations.Get(k));
    auto currentLight = Query<VEKITPSLight>(currentAnnotations.Get(k));
    EXPECT_EQ(currentLight->GetId(), legacyLight->GetId());
    EXPECT_EQ(0, std::string(currentLight->GetName()->ConvertToChar())
                     .compare(legacyLight->GetName()->ConvertToChar()));
    EXPECT_EQ(Query<VEKITPSLightAnnotation>(currentAnnotations.Get(k))->GetValue(),
              Query<VEKITPSLightAnnotation>(legacyAnnotations.Get(k))->GetValue());
  }
}

}  // namespace
