// The document generator: the same options give the same bytes, families come in the stated
// proportions, and its documents load, in every form and both schemas, with every reference
// resolved.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ModelQueries.h"
#include "VEKComPtr.h"
#include "VEKDocumentGenerator.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightJsonExport.h"

namespace {

constexpr VEKGeneratedForm kForms[] = {VEKGeneratedForm::Plain, VEKGeneratedForm::Base64,
                                       VEKGeneratedForm::Zlib};

using vek_test::Query;

// `xml` in `form`, loaded; every reference resolves and no id repeats, so the load records nothing.
VEKTPSLightDocument Load(const std::string& xml, VEKGeneratedForm form) {
  std::string bytes;
  EXPECT_TRUE(VEKEncodeDocumentForm(xml, form, bytes));
  VEKTPSLightDocument document = VEKLoadDocument(bytes.data(), bytes.size());
  EXPECT_TRUE(document.Loaded()) << document.Error();
  EXPECT_TRUE(document.Diagnostics().empty()) << document.Diagnostics()[0].message;
  return document;
}

std::vector<std::int64_t> Counts(const VEKFamilyCounts& c) {
  return {c.ttrs, c.annotations, c.views, c.refFrames, c.cgs, c.captures};
}

// The families hold their share of 600 objects, and each is linked to the others.
void ExpectLinkedFamilies(VEKITPSLightSet* set) {
  EXPECT_EQ(Counts(VEKCountFamilies(600)),
            (std::vector<std::int64_t>{set->GetTTRS().Count(), set->GetAnnotations()->Count(),
                                       set->GetViews().Count(), set->GetRefFrames().Count(),
                                       set->GetCGs().Count(), set->GetCaptures().Count()}));
  int grouped = 0;
  for (int k = 0; k < set->GetAnnotations()->Count(); ++k) {
    auto model = Query<VEKITPSLightModel>(set->GetAnnotations()->Get(k));
    EXPECT_GE(model->GetViews().Count(), 1);
    grouped += model->GetOrderGroup() && model->GetOrderGroup()->Count() > 0;
  }
  EXPECT_GT(grouped, 0);
  for (int k = 0; k < set->GetRefFrames().Count(); ++k)
    EXPECT_GE(Query<VEKITPSLightRefFrame>(set->GetRefFrames().Get(k))->GetDatums().Count(), 1);
  for (int k = 0; k < set->GetCaptures().Count(); ++k)
    EXPECT_NE(nullptr, Query<VEKITPSLightCapture>(set->GetCaptures().Get(k))->GetActiveView());
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
    EXPECT_EQ(Counts(row.counts), Counts(VEKCountFamilies(row.objects))) << row.objects;
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
// measured on the old documents no longer compare. Documents are ASCII.
TEST(Generator, DocumentsMatchTheirPublishedFingerprints) {
  const std::string current = VEKGenerateDocument({VEKGeneratedSchema::Current, 200, 1});
  EXPECT_EQ(163244u, current.size());
  EXPECT_EQ(0x1F60B3D2E3C9880Dull, Fingerprint(current));
  for (char c : current) ASSERT_TRUE(c > 0 && c < 0x7F) << int(c);
  const std::string legacy = VEKGenerateDocument({VEKGeneratedSchema::Legacy, 200, 1});
  EXPECT_EQ(39917u, legacy.size());
  EXPECT_EQ(0x9F0321FB70F43C2Cull, Fingerprint(legacy));
}

TEST(Generator, DocumentsAreSizedOnRequest) {
  for (VEKGeneratedSchema schema : {VEKGeneratedSchema::Current, VEKGeneratedSchema::Legacy}) {
    const std::int64_t objects = VEKObjectsForBytes(schema, 2'000'000, 5);
    const double size = static_cast<double>(VEKGenerateDocument({schema, objects, 5}).size());
    EXPECT_NEAR(2e6, size, 0.1e6);
  }
  EXPECT_EQ(1, VEKObjectsForBytes(VEKGeneratedSchema::Legacy, 0, 5));
}

// The three forms give the same model, and the legacy schema of the same seed the same objects.
TEST(Generator, LoadsInEveryFormAndSchemaWithEveryReferenceResolved) {
  const std::string xml = VEKGenerateDocument({VEKGeneratedSchema::Current, 600, 11});
  std::vector<std::string> exports;
  for (VEKGeneratedForm form : kForms) {
    const VEKTPSLightDocument document = Load(xml, form);
    std::string json;
    EXPECT_EQ(S_OK, VEKExportLoadToJson(VEKTPSLightSchema::Current, S_OK, document.Sets()[0].Get(),
                                        false, json));
    exports.push_back(json);
  }
  EXPECT_EQ(exports[0], exports[1]);
  EXPECT_EQ(exports[0], exports[2]);
  const VEKTPSLightDocument current = Load(xml, VEKGeneratedForm::Plain);
  const VEKTPSLightDocument legacy =
      Load(VEKGenerateDocument({VEKGeneratedSchema::Legacy, 600, 11}), VEKGeneratedForm::Plain);
  ExpectLinkedFamilies(current.Sets()[0].Get());
  ExpectLinkedFamilies(legacy.Sets()[0].Get());
  const VEKLightObjectList& annotations = *current.Sets()[0]->GetAnnotations();
  const VEKLightObjectList& legacyAnnotations = *legacy.Sets()[0]->GetAnnotations();
  // Every fifth annotation has a graphic of a few KB.
  int withGraphic = 0;
  for (int k = 0; k < annotations.Count(); ++k) {
    auto currentLight = Query<VEKITPSLight>(annotations.Get(k));
    auto legacyLight = Query<VEKITPSLight>(legacyAnnotations.Get(k));
    EXPECT_EQ(currentLight->GetId(), legacyLight->GetId());
    EXPECT_EQ(vek_test::Utf8(currentLight->GetName()), vek_test::Utf8(legacyLight->GetName()));
    EXPECT_EQ(Query<VEKITPSLightAnnotation>(annotations.Get(k))->GetValue(),
              Query<VEKITPSLightAnnotation>(legacyAnnotations.Get(k))->GetValue());
    const VEKRep* rep = Query<VEKITPSLightAnnotation>(annotations.Get(k))->GetGraphicRep();
    if (!rep) continue;
    ++withGraphic;
    EXPECT_GE(rep->GetBlobSize(), 1000u);
    EXPECT_LE(rep->GetBlobSize(), 8000u);
  }
  EXPECT_EQ((annotations.Count() + 4) / 5, withGraphic);
}

}  // namespace
