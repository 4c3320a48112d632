// What the parser records while it builds, each kind at its line, and the object limit.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "VEKTPSLightDocument.h"

namespace {

using Kind = VEKTPSLightDiagnosticKind;

struct Expected {
  Kind kind;
  int set;
  int line;
  const char* element;
  const char* message;
};

void ExpectRecords(const VEKTPSLightDocument& document, const std::vector<Expected>& expected) {
  const std::vector<VEKTPSLightDiagnostic>& records = document.Diagnostics();
  ASSERT_EQ(records.size(), expected.size());
  for (std::size_t k = 0; k < records.size(); ++k) {
    SCOPED_TRACE(records[k].message);
    EXPECT_EQ(records[k].kind, expected[k].kind) << k;
    EXPECT_EQ(records[k].set, expected[k].set) << k;
    EXPECT_EQ(records[k].line, expected[k].line) << k;
    EXPECT_EQ(records[k].element, expected[k].element) << k;
    EXPECT_EQ(records[k].message, expected[k].message) << k;
  }
}

VEKTPSLightDocument Load(const std::string& xml, std::uint64_t maxObjects = 5000000) {
  VEKTPSLightLoadOptions options;
  options.maxObjects = maxObjects;
  return VEKLoadDocument(xml.data(), xml.size(), options);
}

TEST(Diagnostics, CurrentSchemaRecordsEachProblemAtItsLine) {
  const VEKTPSLightDocument document = Load(
      "<Functional_Tolerancing_Annotation>\n"
      "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>\n"
      "<AnnotationSet><TPSId Name='S'/></AnnotationSet>\n"
      "<RootTTRSs><TTRS><TPSLoc Id='1'/></TTRS></RootTTRSs>\n"
      "<RootTPSs>\n"
      "<TPS Val='abc'><TPSLoc Id='5'/><Grou>6</Grou></TPS>\n"
      "<TPS><TPSId Name='Flat'/><TPSLoc Id='5'/><TTRS>1 999</TTRS>\n"
      "<Grou>5 42</Grou></TPS>\n"
      "<TPS Ref='77' Def=''><TPSLoc Id='6'/><Grou/></TPS>\n"
      "</RootTPSs>\n"
      "<RootViews><TPSView><TPSLoc Id='7'/>\n"
      "<TPSs>5 999 8</TPSs></TPSView></RootViews>\n"
      "<RootTPSs><TPS><TPSLoc Id='8'/></TPS></RootTPSs>\n"
      "</Functional_Tolerancing_Annotation>");
  ASSERT_TRUE(document.Loaded());
  EXPECT_EQ(document.Sets()[0]->GetTTRS().Count(), 1);
  ExpectRecords(
      document,
      {{Kind::FamilyBeforeSet, -1, 2, "RootTTRSs",
        "RootTTRSs comes before any AnnotationSet, so its objects are not built"},
       {Kind::BadNumber, 0, 6, "TPS", "\"abc\" in TPS is not a number, so its value is left unset"},
       {Kind::DuplicateId, 0, 7, "TPS",
        "duplicate annotation id 5: an earlier annotation of the set carries it too"},
       {Kind::UnknownTTRS, 0, 7, "TTRS",
        "annotation 5 \"Flat\" names TTRS 999, which no TTRS of the set carries"},
       {Kind::UnresolvedId, 0, 8, "Grou",
        "annotation 5 \"Flat\" names annotation 42 in its order group, which no annotation of "
        "the set carries"},
       {Kind::UnknownRefFrame, 0, 9, "TPS",
        "annotation 6 names reference frame 77 as its reference, which no reference frame of the "
        "set carries"},
       {Kind::UnresolvedId, 0, 12, "TPSs",
        "view 7 names annotation 999, which no annotation of the set carries"},
       {Kind::UnresolvedId, 0, 12, "TPSs",
        "view 7 names annotation 8, which comes later in the document; a reference finds only "
        "objects built before it"}});
  EXPECT_EQ(document.Diagnostics()[1].text, "abc");
  EXPECT_EQ(document.Diagnostics()[6].objectKind, VEKTPSLightKindAnnotation);
  EXPECT_EQ(document.Diagnostics()[6].id, 999);
}

// A legacy document of `sets` sets, each with one TTRS and an annotation of two values.
std::string LegacyDocument(int sets) {
  std::string xml = "<TolerancingData>\n";
  for (int k = 0; k < sets; ++k)
    xml +=
        "<AnnotationSet><Na V='A'/><St V='S'/><Ty V='1'/><Su V='x'/><Ui V='u'/></AnnotationSet>\n";
  return xml +
         "<TTRSRoot><TTRS><Na V='t'/><In V='1'/></TTRS></TTRSRoot>\n"
         "<Annotations>\n<TPS><Ty V='1'/><Va V='1'/></TPS>\n</Annotations>\n"
         "</TolerancingData>";
}

TEST(Diagnostics, LegacySchemaRecordsPassedOverObjectsAndRebuiltSets) {
  const VEKTPSLightDocument document = Load(LegacyDocument(2));
  ASSERT_TRUE(document.Loaded());
  EXPECT_EQ(document.Sets().size(), 2u);
  const char* const passedOver = "TPS holds 2 values, not 11, so it is passed over";
  const char* const badStatus =
      "\"x\" in AnnotationSet is not an integer, so its value is left unset";
  ExpectRecords(document, {{Kind::BadNumber, 0, 2, "AnnotationSet", badStatus},
                           {Kind::LegacyValueCount, 0, 6, "TPS", passedOver},
                           {Kind::BadNumber, 1, 3, "AnnotationSet", badStatus},
                           {Kind::LegacyValueCount, 1, 6, "TPS", passedOver},
                           {Kind::LegacySetsMultiply, -1, 3, "AnnotationSet",
                            "2 AnnotationSets each rebuilt every object of the document: 2 sets "
                            "of 2 objects, 4 in all"}});

  // A TTRS needs one value or more; a set short of its five values is told after the others.
  ExpectRecords(
      Load("<TolerancingData>\n"
           "<AnnotationSet><Na V='A'/><St V='S'/><Ty V='1'/><Su V='0'/><Ui V='u'/>"
           "</AnnotationSet>\n<AnnotationSet><Na V='B'/></AnnotationSet>\n"
           "<TTRSRoot><TTRS/></TTRSRoot>\n</TolerancingData>"),
      {{Kind::LegacyValueCount, 0, 4, "TTRS",
        "TTRS holds 0 values, not 1 or more, so it is passed over"},
       {Kind::LegacyValueCount, 1, 3, "AnnotationSet",
        "AnnotationSet holds 1 values, not 5, so its set gets no values and no objects"}});
}

TEST(Diagnostics, TheObjectLimitStopsBeforeASetThatWouldPassIt) {
  // Each set and its TTRS: two objects a set.
  const struct {
    std::uint64_t limit;
    std::size_t sets;
  } rows[] = {{0, 3}, {6, 3}, {5, 2}, {4, 2}, {3, 1}, {1, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.limit);
    const VEKTPSLightDocument document = Load(LegacyDocument(3), row.limit);
    ASSERT_TRUE(document.Loaded());
    EXPECT_EQ(document.Sets().size(), row.sets);
    EXPECT_EQ(document.ObjectsBuilt(), 2 * row.sets);
    const std::vector<VEKTPSLightDiagnostic>& records = document.Diagnostics();
    const auto limit = std::find_if(records.begin(), records.end(), [](const auto& record) {
      return record.kind == Kind::ObjectLimit;
    });
    ASSERT_EQ(limit == records.end(), row.sets == 3);
    if (limit == records.end()) continue;
    EXPECT_EQ(limit->line, static_cast<int>(row.sets) + 2);
    EXPECT_EQ(limit->message, "the load stops before this AnnotationSet: its set would bring the " +
                                  std::to_string(2 * row.sets) + " objects built to " +
                                  std::to_string(2 * row.sets + 2) + ", past the limit of " +
                                  std::to_string(row.limit));
  }
}

}  // namespace
