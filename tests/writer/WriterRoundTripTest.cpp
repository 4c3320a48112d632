// Documents written and loaded again in the three forms give back the same model: current-schema
// documents without a warning, legacy ones with warnings only for what the current schema has no
// place for. Generated documents of every size are the write_round_trip fuzz target's seeds.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "VEKDocumentGenerator.h"
#include "VEKTPSLightWriter.h"
#include "WriterRoundTrip.h"

namespace {

constexpr VEKTPSLightForm kForms[] = {VEKTPSLightForm::Plain, VEKTPSLightForm::Base64,
                                      VEKTPSLightForm::Zlib};

// (object kind, field) of each warning.
std::set<std::pair<int, std::string>> Warned(const VEKTPSLightWriteResult& written) {
  std::set<std::pair<int, std::string>> warned;
  for (const VEKTPSLightWriteWarning& warning : written.warnings) {
    EXPECT_EQ(warning.issue, VEKTPSLightWriteIssue::Unset) << warning.message;
    warned.emplace(warning.objectKind, warning.field);
  }
  return warned;
}

// What the legacy schema never gives: the type and status of TTRS, reference frames and
// captures, and the status of views.
const std::set<std::pair<int, std::string>> kLegacyGaps = {
    {VEKTPSLightKindTTRS, "type"},       {VEKTPSLightKindTTRS, "status"},
    {VEKTPSLightKindView, "status"},     {VEKTPSLightKindRefFrame, "type"},
    {VEKTPSLightKindRefFrame, "status"}, {VEKTPSLightKindCapture, "type"},
    {VEKTPSLightKindCapture, "status"}};

TEST(WriterRoundTripTest, BundledDocumentsComeBackTheSameInEveryForm) {
  for (const char* name : {"pump_housing.xml", "pump_housing.xml.b64", "pump_housing.xml.z",
                           "bracket.xml", "gear_shaft_legacy.xml"}) {
    const VEKTPSLightDocument document =
        VEKLoadDocumentFile((std::string(VEK_EXAMPLES_DIR) + "/" + name).c_str());
    ASSERT_TRUE(document.Loaded()) << name;
    for (const VEKTPSLightForm form : kForms) {
      VEKTPSLightWriteOptions options;
      options.form = form;
      options.indent = form != VEKTPSLightForm::Base64;
      const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload(document.Sets(), options);
      EXPECT_EQ(trip.difference, "") << name << " as " << VEKTPSLightFormName(form);
      if (document.Schema() == VEKTPSLightSchema::Current) {
        EXPECT_TRUE(trip.written.warnings.empty())
            << name << ": " << trip.written.warnings[0].message;
      } else {
        EXPECT_EQ(Warned(trip.written), kLegacyGaps) << name;
      }
    }
  }
}

// The same set twice is written twice.
TEST(WriterRoundTripTest, SeveralSetsFollowOneAnother) {
  const VEKTPSLightDocument pump =
      VEKLoadDocumentFile((std::string(VEK_EXAMPLES_DIR) + "/pump_housing.xml").c_str());
  const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload({pump.Sets()[0], pump.Sets()[0]});
  EXPECT_EQ(trip.difference, "");
  EXPECT_TRUE(trip.written.warnings.empty());
}

TEST(WriterRoundTripTest, WhatWasWrittenIsWrittenAgainByteForByte) {
  VEKGeneratorOptions generator;
  generator.objects = 600;
  const std::string xml = VEKGenerateDocument(generator);
  const VEKTPSLightDocument document = VEKLoadDocument(xml.data(), xml.size());
  const VEKTPSLightWriteResult first = VEKWriteDocument(document);
  ASSERT_EQ(first.result, S_OK);
  const VEKTPSLightDocument again = VEKLoadDocument(first.bytes.data(), first.bytes.size());
  const VEKTPSLightWriteResult second = VEKWriteDocument(again);
  EXPECT_EQ(second.bytes, first.bytes);
}

}  // namespace
