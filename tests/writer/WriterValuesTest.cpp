// The writer on models a host builds through the container: tricky values come back exact, every
// link comes back, and each thing the document cannot keep is named in one warning.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "DocumentForms.h"
#include "GlbBuilder.h"
#include "ModelQueries.h"
#include "ScratchDirectory.h"
#include "VEKTPSLightWriter.h"
#include "WriterRoundTrip.h"

namespace {

using Sets = std::vector<VEKComPtr<VEKITPSLightSet>>;

using vek_test::Query;

VEKRep* ReadRep(std::size_t extraBytes = 0) {
  std::vector<char> glb = vek_test::BuildMeshesGlb(1, 1, 1);
  glb.resize(glb.size() + extraBytes, '\0');
  return VEKReadSceneGraph(glb.data(), static_cast<int>(glb.size()));
}

// A set built the way a host builds one, with helpers that give each object every value a
// document always carries, so that only what a test leaves out draws a warning.
class HostModel : vek_test::OneSet {
 public:
  HostModel() {
    VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(set_.Get());
    (void)light->SetName(L"Set");
    (void)light->SetUuid(L"set-uuid");
    (void)light->SetType(1);
    (void)light->SetStatus(0);
    (void)set_->SetStandard(L"ISO 1101");
  }

  VEKITPSLightSet* Set() const { return set_.Get(); }
  Sets AsSets() const { return {set_}; }

  VEKComPtr<VEKITPSLightTTRS> TTRS(int id) { return Named(Make<VEKITPSLightTTRS>(), id); }
  // Named unless `id` is absent.
  VEKComPtr<VEKITPSLightAnnotation> Annotation(std::optional<int> id) {
    VEKComPtr<VEKITPSLightAnnotation> annotation =
        id ? Named(BareAnnotation(), *id) : BareAnnotation();
    (void)annotation->SetValue(0.5);
    (void)annotation->SetReference(0);
    (void)annotation->SetAttribute(L"");
    return annotation;
  }
  VEKComPtr<VEKITPSLightAnnotation> BareAnnotation() { return Make<VEKITPSLightAnnotation>(); }
  VEKComPtr<VEKITPSLightView> View(int id) { return Named(Make<VEKITPSLightView>(), id); }
  VEKComPtr<VEKITPSLightRefFrame> RefFrame(int id) {
    VEKComPtr<VEKITPSLightRefFrame> frame = Named(Make<VEKITPSLightRefFrame>(), id);
    (void)frame->SetAttribute(L"A|B");
    return frame;
  }
  VEKComPtr<VEKITPSLightCG> CG(int id) {
    VEKComPtr<VEKITPSLightCG> geometry = Named(Make<VEKITPSLightCG>(), id);
    (void)geometry->SetAttribute(L"axis");
    return geometry;
  }
  VEKComPtr<VEKITPSLightCapture> Capture(int id) {
    VEKComPtr<VEKITPSLightCapture> capture = Named(Make<VEKITPSLightCapture>(), id);
    (void)capture->SetClippingPlane(0);
    return capture;
  }

  static void Group(VEKITPSLightAnnotation* annotation,
                    const std::vector<VEKBaseUnknown*>& members) {
    auto* group = new VEKLightObjectList();
    for (VEKBaseUnknown* member : members) (void)group->Append(member);
    EXPECT_EQ(Query<VEKITPSLightModel>(annotation)->SetOrderGroup(group), S_OK);
  }

 private:
  // `object` with its name, uuid, type, id and status set.
  template <class Interface>
  static VEKComPtr<Interface> Named(VEKComPtr<Interface> object, int id) {
    VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(object.Get());
    const std::wstring name = L"object " + std::to_wstring(id);
    (void)light->SetName(name.c_str());
    (void)light->SetUuid((name + L" uuid").c_str());
    (void)light->SetType(2);
    (void)light->SetId(id);
    (void)light->SetStatus(1);
    return object;
  }
};

// The JSON export writes infinities and NaN as null: values are compared on the model itself.
TEST(WriterValuesTest, NumbersComeBackExactAtTheEdgesOfTheirTypes) {
  const double doubles[] = {
      0.0,      -0.0, DBL_TRUE_MIN, -2.225073858507201e-308, DBL_MIN,  DBL_MAX,
      -DBL_MAX, 0.1,  1.0 / 3,      -123456789.12345679,     HUGE_VAL, -HUGE_VAL,
      NAN};
  HostModel model;
  for (const double value : doubles) (void)model.Annotation(0)->SetValue(value);
  const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload(model.AsSets());
  EXPECT_EQ(trip.difference, "");
  EXPECT_TRUE(trip.written.warnings.empty());

  const VEKTPSLightDocument reloaded =
      VEKLoadDocument(trip.written.bytes.data(), trip.written.bytes.size());
  ASSERT_TRUE(reloaded.Loaded());
  VEKLightObjectList* annotations = reloaded.Sets()[0]->GetAnnotations();
  for (std::size_t k = 0; k < std::size(doubles); ++k) {
    const std::optional<double> value =
        Query<VEKITPSLightAnnotation>(annotations->Get(static_cast<int>(k)))->GetValue();
    ASSERT_TRUE(value);
    if (std::isnan(doubles[k])) {
      EXPECT_TRUE(std::isnan(*value));
    } else {
      EXPECT_EQ(std::memcmp(&*value, &doubles[k], sizeof(double)), 0) << doubles[k];
    }
  }
}

using Expected = std::tuple<VEKTPSLightWriteIssue, int, int, std::string>;

std::vector<Expected> Summary(const std::vector<VEKTPSLightWriteWarning>& warnings) {
  std::vector<Expected> summary;
  for (const VEKTPSLightWriteWarning& warning : warnings)
    summary.emplace_back(warning.issue, warning.objectKind, warning.position, warning.field);
  return summary;
}

constexpr int kSet = 0;
constexpr int kTTRS = VEKTPSLightKindTTRS;
constexpr int kAnnotation = VEKTPSLightKindAnnotation;
constexpr int kView = VEKTPSLightKindView;
constexpr int kFrame = VEKTPSLightKindRefFrame;
constexpr int kCG = VEKTPSLightKindCG;
constexpr int kCapture = VEKTPSLightKindCapture;
using Issue = VEKTPSLightWriteIssue;

struct WarningCase {
  const char* name;
  std::function<void(HostModel&)> build;
  std::vector<Expected> expected;
};

TEST(WriterValuesTest, EachThingTheDocumentCannotKeepIsNamedOnce) {
  const std::vector<WarningCase> cases = {
      // An object's own attributes come first in its element, then its common values.
      {"an annotation with nothing set",
       [](HostModel& m) { (void)m.BareAnnotation(); },
       {{Issue::Unset, kAnnotation, 0, "value"},
        {Issue::Unset, kAnnotation, 0, "reference"},
        {Issue::Unset, kAnnotation, 0, "attribute"},
        {Issue::Unset, kAnnotation, 0, "name"},
        {Issue::Unset, kAnnotation, 0, "uuid"},
        {Issue::Unset, kAnnotation, 0, "type"},
        {Issue::Unset, kAnnotation, 0, "id"},
        {Issue::Unset, kAnnotation, 0, "status"}}},
      {"camera vectors without a type",
       [](HostModel& m) { (void)m.Capture(1)->SetCameraPosition(1, 2, 3); },
       {{Issue::Unset, kCapture, 0, "camera.type"}}},
      {"the set's id",
       [](HostModel& m) { (void)Query<VEKITPSLight>(m.Set())->SetId(3); },
       {{Issue::NotKept, kSet, -1, "id"}}},
      {"the set's representation",
       [](HostModel& m) { (void)Query<VEKITPSLight>(m.Set())->SetRep(ReadRep()); },
       {{Issue::NotKept, kSet, -1, "rep"}}},
      {"0 among TTRS numbers",
       [](HostModel& m) { (void)m.Annotation(1)->AddTTRS(0); },
       {{Issue::ZeroInList, kAnnotation, 0, "ttrs"}}},
      {"0 in a geometry list",
       [](HostModel& m) {
         auto* ids = new VEKRawCollint(0);
         for (const int id : {0, 3, 0}) (void)ids->Append(id);
         (void)m.TTRS(1)->AddGeometry(ids);
       },
       {{Issue::ZeroInList, kTTRS, 0, "geometry"}}},
      {"0 among representation numbers",
       [](HostModel& m) { (void)m.CG(1)->AddTRep(0); },
       {{Issue::ZeroInList, kCG, 0, "treps"}}},
      {"a null geometry list",
       [](HostModel& m) { (void)m.TTRS(1)->AddGeometry(nullptr); },
       {{Issue::NullGeometry, kTTRS, 0, "geometry"}}},
      {"an empty order group",
       [](HostModel& m) { HostModel::Group(m.Annotation(1).Get(), {}); },
       {{Issue::EmptyOrderGroup, kAnnotation, 0, "orderGroup"}}},
      {"a datum without an id",
       [](HostModel& m) {
         VEKComPtr<VEKITPSLightAnnotation> datum = m.Annotation(1);
         VEKComPtr<VEKITPSLightAnnotation> unnamed = m.Annotation(std::nullopt);
         VEKComPtr<VEKITPSLightRefFrame> frame = m.RefFrame(2);
         (void)frame->AddDatum(datum.Get());
         (void)frame->AddDatum(unnamed.Get());
       },
       {{Issue::Unset, kAnnotation, 1, "name"},
        {Issue::Unset, kAnnotation, 1, "uuid"},
        {Issue::Unset, kAnnotation, 1, "type"},
        {Issue::Unset, kAnnotation, 1, "id"},
        {Issue::Unset, kAnnotation, 1, "status"},
        {Issue::LinkLeftOut, kFrame, 0, "datums"}}},
      {"an annotation with id 0 in a capture",
       [](HostModel& m) { (void)m.Capture(1)->AddTPS(m.Annotation(0).Get()); },
       {{Issue::LinkLeftOut, kCapture, 0, "annotations"}}},
      {"an order group member with id -4",
       [](HostModel& m) {
         VEKComPtr<VEKITPSLightAnnotation> grouped = m.Annotation(1);
         HostModel::Group(grouped.Get(), {m.Annotation(-4).Get()});
       },
       {{Issue::LinkLeftOut, kAnnotation, 0, "orderGroup"}}},
      {"an annotation among a capture's views",
       [](HostModel& m) { (void)m.Capture(2)->AddView(m.Annotation(1).Get()); },
       {{Issue::LinkLeftOut, kCapture, 0, "views"}}},
      {"a view as the active view of a capture, but the view's id is shared",
       [](HostModel& m) {
         (void)m.View(1);
         VEKComPtr<VEKITPSLightView> second = m.View(1);
         VEKComPtr<VEKITPSLightCapture> capture = m.Capture(2);
         (void)capture->SetActiveView(second.Get());
         (void)second->AddCapture(capture.Get());
       },
       {{Issue::LinksDiffer, kView, 1, "captures"},
        {Issue::LinkLeftOut, kCapture, 0, "activeView"}}},
      {"an annotation whose id an earlier annotation has",
       [](HostModel& m) {
         (void)m.Annotation(1);
         VEKComPtr<VEKITPSLightAnnotation> second = m.Annotation(1);
         VEKComPtr<VEKITPSLightView> view = m.View(2);  // linked both ways, as a load does
         (void)view->AddTPS(second.Get());
         (void)Query<VEKITPSLightModel>(second.Get())->SetView(view.Get());
       },
       {{Issue::LinksDiffer, kAnnotation, 1, "views"},
        {Issue::LinkLeftOut, kView, 0, "annotations"}}},
      {"an annotation told of a view that does not list it",
       [](HostModel& m) {
         VEKComPtr<VEKITPSLightAnnotation> annotation = m.Annotation(1);
         (void)Query<VEKITPSLightModel>(annotation.Get())->SetView(m.View(2).Get());
       },
       {{Issue::LinksDiffer, kAnnotation, 0, "views"}}},
      {"a view told of a capture whose active view it is not",
       [](HostModel& m) { (void)m.View(1)->AddCapture(m.Capture(2).Get()); },
       {{Issue::LinksDiffer, kView, 0, "captures"}}},
      // The set is an object of its model but of no family: no document can name it.
      {"the set as a datum",
       [](HostModel& m) { (void)m.RefFrame(1)->AddDatum(m.Set()); },
       {{Issue::LinkLeftOut, kFrame, 0, "datums"}}},
      {"a control character in a name",
       [](HostModel& m) { (void)Query<VEKITPSLight>(m.TTRS(1).Get())->SetName(L"a\x01z"); },
       {{Issue::TextReplaced, kTTRS, 0, "name"}}},
      {"bytes after a graphic's GLB",
       [](HostModel& m) { (void)m.Annotation(1)->SetRep(ReadRep(8)); },
       {{Issue::GraphicTrimmed, kAnnotation, 0, "graphic"}}},
  };
  for (const WarningCase& test : cases) {
    HostModel model;
    test.build(model);
    const vek_fuzz::RoundTrip trip = vek_fuzz::WriteAndReload(model.AsSets());
    EXPECT_EQ(trip.difference, "") << test.name;
    EXPECT_EQ(Summary(trip.written.warnings), test.expected) << test.name;
    for (const VEKTPSLightWriteWarning& warning : trip.written.warnings) {
      EXPECT_EQ(warning.set, 0);
      EXPECT_FALSE(warning.message.empty());
    }
  }
}

TEST(WriterValuesTest, FilesAreReplacedOnlyWhole) {
  const vek_test::ScratchDirectory scratch;
  ASSERT_TRUE(scratch.Entered());
  const VEKTPSLightDocument document =
      VEKLoadDocumentFile((std::string(VEK_EXAMPLES_DIR) + "/bracket.xml").c_str());
  ASSERT_TRUE(document.Loaded());
  std::ofstream("out.xml") << "old";
  for (const VEKTPSLightForm form :
       {VEKTPSLightForm::Plain, VEKTPSLightForm::Base64, VEKTPSLightForm::Zlib}) {
    VEKTPSLightWriteOptions options;
    options.form = form;
    const VEKTPSLightWriteResult file = VEKWriteSetsFile("out.xml", document.Sets(), options);
    ASSERT_EQ(file.result, S_OK) << file.error;
    EXPECT_TRUE(file.bytes.empty());
    EXPECT_EQ(vek_test::ReadFileBytes("out.xml"), VEKWriteSets(document.Sets(), options).bytes);
  }
  // A directory in the way: the rename fails, and nothing is left behind.
  std::filesystem::create_directory("taken");
  const VEKTPSLightWriteResult refused = VEKWriteSetsFile("taken", document.Sets());
  EXPECT_EQ(refused.result, E_FAIL);
  EXPECT_NE(refused.error.find("taken"), std::string::npos) << refused.error;
  const VEKTPSLightWriteResult nowhere = VEKWriteSetsFile("absent/out.xml", document.Sets());
  EXPECT_EQ(nowhere.result, E_FAIL);
  EXPECT_EQ(vek_test::FileNames("."), (std::vector<std::string>{"out.xml", "taken"}));
}

TEST(WriterValuesTest, RequestsThatCannotBeWrittenAreRefused) {
  HostModel model;
  VEKTPSLightWriteOptions detect;
  detect.form = VEKTPSLightForm::Detect;
  VEKTPSLightWriteOptions level;
  level.compressionLevel = 13;
  const VEKTPSLightWriteResult refused[] = {
      VEKWriteSets({}),
      VEKWriteSets({VEKComPtr<VEKITPSLightSet>(model.Set()), VEKComPtr<VEKITPSLightSet>()}),
      VEKWriteSets(model.AsSets(), detect),
      VEKWriteSets(model.AsSets(), level),
      VEKWriteSetsFile(nullptr, model.AsSets()),
      VEKWriteSetsFile("", model.AsSets()),
      VEKWriteDocument(VEKTPSLightDocument())};
  for (const VEKTPSLightWriteResult& result : refused) {
    EXPECT_EQ(result.result, E_INVALIDARG) << result.error;
    EXPECT_FALSE(result.error.empty());
    EXPECT_TRUE(result.bytes.empty());
  }
}

}  // namespace
