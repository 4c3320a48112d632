// The current-schema builders and setters on the recording model: the values each fragment gives,
// what survives a refused creation or interface, and the order in which a capture is linked.
#include "RecordedBuild.h"

namespace {

using namespace vek_test;

class CurrentBuilders : public RecordedBuild {};

// Two annotations (ids 1 and 2) and a view (id 2).
const std::string kLinked =
    "<RootTPSs><TPS><TPSLoc Id='1'/></TPS><TPS><TPSLoc Id='2'/></TPS></RootTPSs>"
    "<RootViews><TPSView><TPSLoc Id='2'/></TPSView></RootViews>";
const char* const kBlank = "//0/0/0";
const std::string kIdentity =
    "<TPSId Name='Flat 1' Uuid='u-1'/><TPSLoc Type='65537' Id='7' Status='-1'/>";

}  // namespace

// Without a container, a set or a list for the order groups the builders of both schemas touch
// nothing; without its family root a walker builds nothing and succeeds.
TEST_F(CurrentBuilders, BuildersOfBothSchemasNeedTheirArguments) {
  VEKLightXmlElement element =
      ParseXml("<R><TTRS/><TPS/><TPSView/><RefFrame/><TPSCG/><TPSCap/></R>");
  for (const NamedBuilder& builder : kBuilders) {
    EXPECT_EQ((util_.*builder.build)(nullptr, set_.Get(), element), E_FAIL);
    EXPECT_EQ((util_.*builder.build)(container_.get(), nullptr, element), E_FAIL);
  }
  VEKRawCollPV groups(0);
  for (const auto build :
       {&VEKTPSLightParserUtil::BuildNewAnnotation, &VEKTPSLightParserUtil::BuildAnnotation}) {
    EXPECT_EQ((util_.*build)(nullptr, set_.Get(), element, &groups), E_FAIL);
    EXPECT_EQ((util_.*build)(container_.get(), nullptr, element, &groups), E_FAIL);
    EXPECT_EQ((util_.*build)(container_.get(), set_.Get(), element, nullptr), E_FAIL);
  }
  EXPECT_EQ(util_.GenerateCapture(container_.get(), set_.Get(), element), S_OK);
  EXPECT_EQ(util_.SetTPSValues(nullptr, element), E_FAIL);
  EXPECT_EQ(util_.SetTPSSetValues(nullptr, element), E_FAIL);
  EXPECT_TRUE(ledger().Lines().empty()) << ledger().Text();
}

TEST_F(CurrentBuilders, EachFamilyAndWhatARefusalLeaves) {
  const BuildRow rows[] = {
      // TTRS: one geometry list per "GeoP", zeros dropped; a refused creation skips one TTRS.
      {"TTRS", "", [](RecordingContainer& c) { c.RefuseCreation(RecordingKind::TTRS, 1); },
       "<RootTTRSs><TTRS><GeoP>9</GeoP></TTRS><ttrs/><TTRS><TPSLoc Id='3'/><GeoP>1 0 2</GeoP>"
       "<GeoP/><Other>4</Other><GeoP>5</GeoP></TTRS></RootTTRSs>",
       S_OK, "T1 //0/3/0 geometry=[1,2][][5]"},
      {"TTRS without its common face", "", NoLight, "<TTRS><GeoP>8</GeoP></TTRS>", S_OK,
       "T1 -/-/-/-/- geometry=[8]"},
      {"TTRS refused", "", RefuseAll, "<TTRS><GeoP>8</GeoP></TTRS>", E_FAIL, ""},
      // Annotations: attributes, the graphic of type 2, TTRS numbers in document order.
      {"annotations", "", nullptr,
       "<RootTPSs><TPS Val='2.5' Def='5' Ref='3' Att='x'><TTRS>4 0 7</TTRS>" + RepXml("2") +
           "<TTRS>1</TTRS></TPS><TPS/></RootTPSs>",
       S_OK,
       std::string("S1 -/-/-/-/- duplicates=[0:1]\n") + "A1 " + kBlank +
           " value=2.5 default=1 reference=3 attribute=x graphic=1 ttrs=[4,7,1]\n"
           "A2 " +
           kBlank + " value=0 reference=0 attribute="},
      // Without the common face the four attributes are not read; the rest still is.
      {"annotation without its common face", "", NoLight,
       "<TPS Val='1'>" + RepXml("2") + "<TTRS>6</TTRS></TPS>", S_OK,
       "A1 -/-/-/-/- graphic=1 ttrs=[6]"},
      {"annotation refused", "", RefuseAll, "<TPS Val='1'/>", E_FAIL, ""},
      // Order groups pair with the annotations by position: a refused annotation adds no entry,
      // so the pairing stays aligned; ids not above 0 drop.
      {"order groups", "",
       [](RecordingContainer& c) { c.RefuseCreation(RecordingKind::Annotation, 2); },
       "<RootTPSs><TPS><TPSLoc Id='1'/><Grou>3 -1</Grou></TPS><TPS><Grou>1</Grou></TPS>"
       "<TPS><TPSLoc Id='3'/><Grou>0 9 1</Grou></TPS></RootTPSs>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[9:1]\n"
       "A1 //0/1/0 value=0 reference=0 attribute= group=[A2]\n"
       "A2 //0/3/0 value=0 reference=0 attribute= group=[A1]"},
      // An entry whose ids all drop links nothing but keeps its place.
      {"an order group of nothing", "", nullptr,
       "<RootTPSs><TPS><TPSLoc Id='1'/><Grou>0 -4</Grou></TPS>"
       "<TPS><TPSLoc Id='2'/><Grou>1</Grou></TPS></RootTPSs>",
       S_OK,
       "A1 //0/1/0 value=0 reference=0 attribute=\n"
       "A2 //0/2/0 value=0 reference=0 attribute= group=[A1]"},
      // Two entries for one more annotation (three in the set): the counts differ.
      {"order groups of another count", kLinked, nullptr,
       "<RootTPSs><TPS><Grou>1</Grou><Grou>1</Grou></TPS></RootTPSs>", S_OK,
       "A3 //0/0/0 value=0 reference=0 attribute="},
      // Views: the first "TPSs" links its annotations both ways (an annotation without its links
      // face only one way); each "Math" child sets what it holds.
      {"view", kLinked,
       [](RecordingContainer& c) { c.RefuseInterface("A2", VEKITPSLightModel::kIID); },
       "<TPSView><Or>9 9 9</Or><TPSs>1 8 2 1</TPSs><TPSs>2</TPSs><Math><Or>1 2 3</Or><No></No>"
       "<X>1 1 1</X><Di>0 1 0</Di></Math><Math><Or>4 5 6</Or></Math></TPSView>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[8:1]\n"
       "A1 //0/1/0 value=0 reference=0 attribute= views=[V2,V2]\n"
       "V2 //0/0/0 origin=4,5,6 normal=0,0,0 direction=0,1,0 tps=[A1,A2,A1]"},
      {"view without a broker", kLinked, NoBroker,
       "<TPSView><TPSs>1</TPSs><Math><Di>1 0 0</Di></Math></TPSView>", S_OK,
       "V2 //0/0/0 direction=1,0,0"},
      {"view refused", "", RefuseAll, "<TPSView/>", E_FAIL, ""},
      // Reference frames: datums through the broker, per "Datum" child.
      {"reference frame", kLinked, nullptr,
       "<RefFrame Att='a'><Datum>2 5</Datum><TTRS>4 4</TTRS><Datum/><Datum>1</Datum></RefFrame>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[5:1]\n"
       "R1 //0/0/0 attribute=a datums=[A2,A1] ttrs=[4,4]"},
      {"reference frame without a broker or its common face", kLinked,
       [](RecordingContainer& c) {
         c.RemoveBroker();
         c.RefuseInterface(RecordingKind::RefFrame, VEKITPSLight::kIID);
       },
       "<RefFrame Att='a'><Datum>2</Datum><TTRS>4</TTRS></RefFrame>", S_OK,
       "R1 -/-/-/-/- ttrs=[4]"},
      // Construction geometry: its lists interleaved; without its common face it fails.
      {"construction geometry", "", nullptr,
       "<TPSCG Att='g'><TRep>7</TRep><TTRS>1 2</TTRS><TRep>8</TRep></TPSCG>", S_OK,
       "G1 //0/0/0 attribute=g ttrs=[1,2] treps=[7,8]"},
      {"construction geometry without its common face", "", NoLight,
       "<TPSCG Att='g'><TRep>7</TRep></TPSCG>", E_FAIL, "G1 -/-/-/-/-"},
      {"construction geometry refused", "", RefuseAll, "<RootCGs><TPSCG/></RootCGs>", S_OK, ""},
      // Captures: the active view and clipping plane, the graphic, links, and the first camera's
      // vectors, a missing one taking the one before it.
      {"capture", kLinked, nullptr,
       "<TPSCap ActVie='2'>" + RepXml("2") +
           "<Views>1 2</Views><TPSs>1</TPSs><CGs>1</CGs><Cam><X/><Di>0 0 1</Di><Po></Po><Ta>x</Ta>"
           "</Cam><TPSs>1</TPSs><Cam Type='4'/></TPSCap>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[1:2,1:5]\n"
       "V1 //0/2/0 captures=[C1]\n"
       "C1 //0/0/0 graphic=1 active=V1 clip=0 position=0,0,1 direction=0,0,1 target=0,0,1 type=0 "
       "tps=[A1] views=[V1]"},
      // A capture without its plain face cannot be told to its view, but the view is active.
      {"capture without its plain face", kLinked,
       [](RecordingContainer& c) { c.RefuseInterface("C1", VEKBaseUnknown::kIID); },
       "<TPSCap ActVie='2' ClipPla='3'/>", S_OK, "C1 //0/0/0 active=V1 clip=3"},
      {"capture of an unknown active view", kLinked, nullptr, "<TPSCap ActVie='9'/>", S_OK,
       "S1 -/-/-/-/- unresolved=[9:2]\n"
       "C1 //0/0/0 clip=0"},
      {"capture without its common face", kLinked, NoLight,
       "<TPSCap ActVie='1' ClipPla='2'><TPSs>1</TPSs><Cam Type='3'/></TPSCap>", S_OK,
       "C1 -/-/-/-/- type=3 tps=[A1]"},
      {"capture without a broker", kLinked, NoBroker,
       "<TPSCap ActVie='1' ClipPla='2'><TPSs>1</TPSs><Cam Type='3'/></TPSCap>", S_OK,
       "C1 -/-/-/-/-"},
      {"capture refused", "", RefuseAll, "<TPSCap/>", E_FAIL, ""},
  };
  for (const BuildRow& row : rows) Check(row);
}

// The active view learns of the capture before the capture of its view.
TEST_F(CurrentBuilders, CaptureTellsItsActiveViewFirst) {
  ASSERT_EQ(Build(kLinked), S_OK);
  ledger().Clear();
  ASSERT_EQ(Build("<TPSCap ActVie='2'/>"), S_OK);
  EXPECT_EQ(Joined(ledger().Operations()),
            "CreateCapture(S1) -> C1 | C1.SetName(\"\") | C1.SetUuid(\"\") | C1.SetType(0) | "
            "C1.SetId(0) | C1.SetStatus(0) | S1.GetObjectFromId(2, 2) -> V1 | V1.AddCapture(C1) | "
            "C1.SetActiveView(V1) | C1.SetClippingPlane(0)");
}

// The values common to the set and to every object: type and status keep their low 16 bits, a
// representation of another type is none, and the set takes its standard and no id.
TEST_F(CurrentBuilders, CommonValues) {
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  ASSERT_EQ(container_->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set_.Get()), S_OK);
  const VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(annotation.Get());
  ASSERT_EQ(util_.SetTPSValues(light.Get(),
                               Xml("<TPS>" + RepXml("2") + kIdentity + RepXml("3") + "</TPS>")),
            S_OK);
  ASSERT_EQ(util_.SetTPSSetValues(set_.Get(), Xml("<AnnotationSet Standard='ISO'>" + kIdentity +
                                                  RepXml("3") + "</AnnotationSet>")),
            S_OK);
  const std::string set = "S1 Flat 1/u-1/1/-/65535 standard=ISO\n";
  EXPECT_EQ(ModelText(set_.Get()), set + "A1 Flat 1/u-1/1/7/65535 rep=1");
  // Nothing to read still passes the starting values; the representation stays.
  ASSERT_EQ(util_.SetTPSValues(light.Get(), Xml("<TPS>" + RepXml("2") + "</TPS>")), S_OK);
  EXPECT_EQ(ModelText(set_.Get()), set + "A1 //0/0/0 rep=1");
  // A set without its common face takes nothing.
  container_->RefuseInterface("S1", VEKITPSLight::kIID);
  ledger().Clear();
  EXPECT_EQ(util_.SetTPSSetValues(set_.Get(), Xml("<AnnotationSet Standard='x'/>")), S_OK);
  EXPECT_EQ(Joined(ledger().Lines()), "S1.QueryInterface(VEKITPSLight) -> refused");
}
