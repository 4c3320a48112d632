// The legacy-schema builders and the order-group pass on the recording model: the values each
// fragment gives and what survives a refused creation or interface. The order in which a capture is
// linked is the current builders' test: both schemas link it through one function.
#include "RecordedBuild.h"

namespace {

using namespace vek_test;
using Rows = std::vector<std::vector<std::string>>;

class LegacyBuilders : public RecordedBuild {
 protected:
  LegacyBuilders() { legacy_ = true; }
};

// `element` holding the items of each row, under `root` when there is one.
std::string Family(const char* root, const char* element, const Rows& rows) {
  std::string xml;
  for (const auto& items : rows) {
    xml += std::string("<") + element + ">" + Values(items) + "</" + element + ">";
  }
  return *root ? std::string("<") + root + ">" + xml + "</" + root + ">" : xml;
}

// An annotation row: type, value, name, id, default, reference, status, uuid, attribute, TTRS
// numbers, order group.
std::vector<std::string> AnnotationRow(const std::string& id, const std::string& group = "") {
  return {"1", "0.5", "A" + id, id, "0", "0", "0", "u" + id, "", "", group};
}

// The model line of AnnotationRow(id) at `position`, with `links` (order group, views) after.
std::string AnnotationLine(int position, const std::string& id, const std::string& links = "") {
  return "A" + std::to_string(position) + " A" + id + "/u" + id + "/1/" + id +
         "/0 value=0.5 reference=0 attribute=" + links;
}

const std::string kTwoAnnotations =
    Family("Annotations", "TPS", {AnnotationRow("1"), AnnotationRow("2")});
// Annotation 1, view 2 and construction geometry 5.
const std::string kLinked = Family("Annotations", "TPS", {AnnotationRow("1")}) +
                            Family("ViewRoot", "View", {{"1", "V", "2", "", ""}}) +
                            Family("CGRoot", "CG", {{"1", "G", "5", "0", "", "", "", ""}});

const std::string kTTRS = "<TTRS><Na V=\"n\"/><In V=\"3\"/><Ui V=\"u\"/><Gd>" +
                          Values({";4;7", ""}) + "</Gd><Xx V=\"9\"/></TTRS>";
const std::string kAnnotation =
    Family("", "TPS", {{"3", "2.5", "Flat", "4", "1", "9", "2", "u", "at", ";7;", ";1;x;"}});
const std::string kView = "<View>" + Values({"3", "Front", "8", "vu", ";1;6;"}) + "<Mt>" +
                          Values({"0;0;1;1;0;0", "4;5;6"}) + "</Mt></View>";
const std::string kRefFrame = Family("", "RefFrame", {{"R", "x", "at", "ru", ";1;", ";3;"}});
const std::string kCG = Family("", "CG", {{"5", "Axis", "x", "2", "at", "cu", ";4;", ";9;"}});
const std::string kCapture =
    "<Capture>" + Values({"11", "2", "6", "Cap", "cu", " 1 ", " 2 ", " 5 "}) + "<Cam>" +
    Values({"1 2 3", "4 5 6", "7 8 9", "1 1 1", "3"}) + "</Cam><Gd><I V=\"1\"/></Gd></Capture>";

// One capture of id 11, clipping plane 6 and no active view per camera of items.
std::string Cameras(const Rows& cameras) {
  std::string xml;
  for (const auto& camera : cameras) {
    xml += "<Capture>" + Values({"11", "0", "6", "Cap", "cu", "", "", ""}) + "<Cam>" +
           Values(camera) + "</Cam><Gd><I V=\"1\"/></Gd></Capture>";
  }
  return xml;
}

}  // namespace

TEST_F(LegacyBuilders, EachFamilyAndWhatARefusalLeaves) {
  const BuildRow rows[] = {
      // TTRS: "Na", "In" and "Ui" fill name, id and uuid in document order; the uuid needs
      // exactly three of them, and a TTRS of geometry alone is refused.
      {"TTRS identity", "", nullptr,
       "<TTRSRoot><TTRS><In V=\"7\"/><Na V=\"A\"/><Ui V=\"u\"/></TTRS>"
       "<Other><Na V=\"skipped\"/></Other><TTRS><Na V=\"two\"/><In V=\"12\"/></TTRS>"
       "<TTRS><Na V=\"four\"/><In V=\"4\"/><Ui V=\"u\"/><Na V=\"x\"/></TTRS>"
       "<TTRS><Ui V=\"one\"/></TTRS><TTRS><Gd><I V=\";1;\"/></Gd></TTRS></TTRSRoot>",
       S_OK,
       "S1 -/-/-/-/- duplicates=[0:3]\n"
       "T1 7/u/-/0/-\n"
       "T2 two/-/-/12/-\n"
       "T3 four/-/-/4/-\n"
       "T4 one/-/-/0/-"},
      {"TTRS of geometry alone", "", nullptr, "<TTRS><Gd><I V=\";1;\"/></Gd></TTRS>", E_FAIL, ""},
      // Packed ids skip their first character and keep only the last zero; an empty item gives
      // no list.
      {"TTRS geometry", "", nullptr,
       "<TTRS><Na V=\"g\"/><Gd>" +
           Values({"", ";0;5;0", ";7;;8;", ";12", "x", "15", ";a;3", ";4;"}) + "</Gd></TTRS>",
       S_OK, "T1 g/-/-/0/- geometry=[5,0][7,8,0][12][0][5][3][4,0]"},
      {"TTRS without its common face", "", NoLight, kTTRS, S_OK, "T1 -/-/-/-/- geometry=[4,7]"},
      {"TTRS refused", "", RefuseAll, kTTRS, E_FAIL, ""},
      // Annotations take eleven items: type and status keep their low 16 bits; items that do not
      // convert repeat the number before them, and the value stays 0.
      {"annotations", "", nullptr,
       Family("", "TPS",
              {{"65537", "2.5", "Flatness", "4", "3", "9", "65538", "uid", "attr", ";3;4;", ""},
               {"1", "1"},
               {"5", "x", "Other", "x", "0", "x", "x", "u", "", "", "", "extra"},
               {"5", "x", "Second", "x", "0", "x", "x", "u", "", "", ""}}),
       S_OK,
       "A1 Flatness/uid/1/4/2 value=2.5 default=1 reference=9 attribute=attr ttrs=[3,4]\n"
       "A2 Second/u/5/5/0 value=0 reference=0 attribute="},
      {"annotation without its common face", kLinked, NoLight, kAnnotation, S_OK,
       "A2 -/-/-/-/- ttrs=[7]"},
      {"annotation refused", "", RefuseAll, kAnnotation, E_FAIL, ""},
      // Order groups link by creation position: the first names itself and the second; "x"
      // resolves id 0, the third's id; 9 is no annotation.
      {"order groups", "", nullptr,
       Family("Annotations", "TPS",
              {AnnotationRow("1", ";1;2;"), AnnotationRow("2"), AnnotationRow("0", ";x;9;")}),
       S_OK,
       "S1 -/-/-/-/- unresolved=[9:1]\n" + AnnotationLine(1, "1", " group=[A1,A2]") + "\n" +
           AnnotationLine(2, "2") + "\n" + AnnotationLine(3, "0", " group=[A3]")},
      // Views: id 5 names nothing. The second view's items 1 and 3 share one integer; its three
      // numbers set the normal only. In the third, every piece after a missing separator keeps
      // the previous component. The fourth, with four items, is refused.
      {"views", kTwoAnnotations, nullptr,
       "<ViewRoot><View>" + Values({"3", "Front"}) +
           "<Mt><I V=\"0;0;1;1;0;0\"/><I V=\"4;5;6\"/></Mt>" + Values({"8", "vu", ";1;5;2;"}) +
           "</View><View>" + Values({"7", "Normal only", "x", "", ""}) +
           "<Mt><I V=\"1;2;3\"/></Mt></View><View>" + Values({"1", "Cut", "9", "", ""}) +
           "<Mt><I V=\"5\"/><I V=\"1;2\"/></Mt></View><View>" + Values({"1", "four", "2", ""}) +
           "</View></ViewRoot>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[5:1]\n" + AnnotationLine(1, "1", " views=[V1]") + "\n" +
           AnnotationLine(2, "2", " views=[V1]") +
           "\n"
           "V1 Front/vu/3/8/- origin=4,5,6 normal=0,0,1 direction=1,0,0 tps=[A1,A2]\n"
           "V2 Normal only//7/7/- normal=1,2,3\n"
           "V3 Cut//1/9/- origin=1,0,0 normal=0,0,0"},
      {"view without its common face", kLinked, NoLight, kView, S_OK,
       "V2 -/-/-/-/- origin=4,5,6 normal=0,0,1 direction=1,0,0"},
      {"view without a broker", kLinked, NoBroker, kView, S_OK,
       "V2 Front/vu/3/8/- origin=4,5,6 normal=0,0,1 direction=1,0,0"},
      {"view refused", "", RefuseAll, kView, E_FAIL, ""},
      // Reference frames: a number that does not convert gives 32; datums resolve annotations.
      {"reference frames", kTwoAnnotations, nullptr,
       "<ReferenceFrame><RefFrame>" + Values({"A|B", "x", "attr", "ru", ";2;7;1;", ";3;x;"}) +
           "</RefFrame><RefFrame>" + Values({"five", "1", "", "", ""}) + "</RefFrame><Other>" +
           Values({"o", "1", "", "", "", ""}) + "</Other><RefFrame>" +
           Values({"B", "7", "", "", "", ""}) + "</RefFrame></ReferenceFrame>",
       S_OK,
       "S1 -/-/-/-/- unresolved=[7:1]\n"
       "R1 A|B/ru/-/32/- attribute=attr datums=[A2,A1] ttrs=[3,0]\n"
       "R2 B//-/7/- attribute="},
      {"reference frame without its common face", kLinked, NoLight, kRefFrame, S_OK,
       "R1 -/-/-/-/- datums=[A1] ttrs=[3]"},
      {"reference frame without a broker", kLinked, NoBroker, kRefFrame, S_OK,
       "R1 R/ru/-/32/- attribute=at ttrs=[3]"},
      {"reference frame refused", "", RefuseAll, kRefFrame, E_FAIL, ""},
      // Construction geometry: seven items are refused; the id carries over from the type, the
      // status from the number. A complete build still reports failure.
      {"construction geometry", "", nullptr,
       Family("CGRoot", "CG",
              {{"5", "Axis", "x", "2", "attr", "cu", ";4;x;", ";9;"},
               {"1", "seven", "1", "1", "", "", ""},
               {"70000", "Plane", "3", "65537", "", "", "", ""},
               {"1", "Status", "9", "x", "", "", "", ""}}),
       S_OK,
       "G1 Axis/cu/5/5/2 attribute=attr ttrs=[4,0] treps=[9]\n"
       "G2 Plane//4464/3/1 attribute=\n"
       "G3 Status//1/9/9 attribute="},
      {"one construction geometry", "", nullptr, kCG, E_FAIL,
       "G1 Axis/cu/5/5/2 attribute=at ttrs=[4] treps=[9]"},
      {"construction geometry without its common face", kLinked, NoLight, kCG, E_FAIL,
       "G2 -/-/-/-/-"},
      {"construction geometry refused", "", RefuseAll, kCG, E_FAIL, ""},
      // Captures: the camera reads blank-separated triples. Five items: all; a doubled blank cuts
      // y as empty text and z reads "2 3". Three items: no target, no type; an empty item is
      // skipped whole, and pieces cut at a blank that is not there keep the components of the
      // item before. Four items: the missing type reads as empty text and passes the clipping
      // plane on. One item: items 2 and 3 are past the end. Seven items are refused; item 2 "0"
      // names no active view.
      {"captures", "", nullptr,
       "<CaptureRoot>" +
           Cameras({{"1 2 3", "4  5 6", "7 8 9", "1 2 3", "4"},
                    {"1 2 3", "", "x 5"},
                    {"", "1 2", "3", ""},
                    {"1 2 3"}}) +
           Family("", "Capture", {{"1", "0", "6", "No camera", "", "", ""}}) + "</CaptureRoot>",
       S_OK,
       "S1 -/-/-/-/- duplicates=[11:6,11:6,11:6]\n"
       "C1 Cap/cu/-/11/- clip=6 position=1,2,3 direction=4,2,5 zenith=7,8,9 target=1,2,3 type=4\n"
       "C2 Cap/cu/-/11/- clip=6 position=1,2,3 zenith=1,2,3\n"
       "C3 Cap/cu/-/11/- clip=6 direction=1,0,0 zenith=1,0,0 type=6\n"
       "C4 Cap/cu/-/11/- clip=6 position=1,2,3"},
      {"capture without its common face", kLinked, NoLight, kCapture, S_OK,
       "C1 -/-/-/-/- position=1,2,3 direction=4,5,6 zenith=7,8,9 target=1,1,1 type=3 tps=[A1] "
       "views=[V1] cgs=[G1]"},
      {"capture without a broker", kLinked, NoBroker, kCapture, S_OK, "C1 -/-/-/-/-"},
      {"capture refused", "", RefuseAll, kCapture, E_FAIL, ""},
      // Item 2 does not convert: the capture's own number 2 is looked up as the view; 0 looks
      // nothing up.
      {"capture active view", kLinked, nullptr,
       Family("", "Capture",
              {{"2", "x", "", "", "", "", "", ""}, {"2", "0", "", "", "", "", "", ""}}),
       S_OK,
       "S1 -/-/-/-/- duplicates=[2:6]\n"
       "V1 V//1/2/- captures=[C1]\n"
       "C1 //-/2/- active=V1 clip=2\n"
       "C2 //-/2/- clip=0"},
  };
  for (const BuildRow& row : rows) Check(row);
}

// The pass pairs lists and annotations by position only when their counts agree, and needs the
// broker.
TEST_F(LegacyBuilders, OrderGroupPassNeedsOneListPerAnnotationAndTheBroker) {
  ASSERT_EQ(Build(kTwoAnnotations), S_OK);
  VEKListValVEKUnicodeString ids;
  ASSERT_EQ(S_OK, ids.Append("1"));
  VEKRawCollPV groups(0);
  ASSERT_EQ(S_OK, groups.Append(&ids));
  const std::string ungrouped = ModelText(set_.Get());
  EXPECT_EQ(S_OK, util_.AssoTPSOrderGroup(set_.Get(), groups));  // one list, two annotations
  EXPECT_EQ(ModelText(set_.Get()), ungrouped);
  ASSERT_EQ(S_OK, groups.Append(nullptr));
  container_->RemoveBroker();
  EXPECT_EQ(S_OK, util_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_EQ(ModelText(set_.Get()), ungrouped);
  Renew();
  ASSERT_EQ(Build(kTwoAnnotations), S_OK);
  EXPECT_EQ(S_OK, util_.AssoTPSOrderGroup(set_.Get(), groups));
  EXPECT_EQ(Changes(ungrouped, ModelText(set_.Get())), AnnotationLine(1, "1", " group=[A1]"));
  EXPECT_EQ(E_FAIL, util_.AssoTPSOrderGroup(nullptr, groups));
}
