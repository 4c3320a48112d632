// One set as current-schema XML. Every value is written in the form its reader turns back into the
// same value, and every link as an id by which the load's look-up finds the same object again;
// what cannot be written so is named in a warning.
#include "VEKTPSLightSetWriter.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKTPSLightDocument.h"

namespace vek_parser_detail {

namespace {

// The families in document order, which is an order in which the load resolves every link:
// annotations before the views, reference frames and captures that name them, views and
// construction geometries before the captures.
enum Family : int { kTTRS, kAnnotation, kView, kRefFrame, kCG, kCapture, kFamilies };

// The set itself, where a family is expected.
constexpr int kTheSet = -1;

struct FamilyTraits {
  int kind;
  const char* root;
  const char* element;
};
constexpr FamilyTraits kFamily[kFamilies] = {
    {VEKTPSLightKindTTRS, "RootTTRSs", "TTRS"},
    {VEKTPSLightKindAnnotation, "RootTPSs", "TPS"},
    {VEKTPSLightKindView, "RootViews", "TPSView"},
    {VEKTPSLightKindRefFrame, "RootRefs", "RefFrame"},
    {VEKTPSLightKindCG, "RootCGs", "TPSCG"},
    {VEKTPSLightKindCapture, "RootCaps", "TPSCap"},
};

const char* Noun(int family) { return VEKTPSLightKindName(kFamily[family].kind); }

// The representation types of the graphic every object may carry and of an annotation's or a
// capture's own graphic.
constexpr std::string_view kCommonRepType = "3";
constexpr std::string_view kGraphicRepType = "2";

struct Object {
  // As the set's family list holds it; links hold the same pointer.
  VEKBaseUnknown* identity = nullptr;
  // The family's own interface, held as its VEKBaseUnknown base; null when not answered.
  VEKComPtr<VEKBaseUnknown> face;
  VEKComPtr<VEKITPSLight> light;
  std::optional<int> id;
  // Whether the load's look-up by id finds this object: no earlier object of its family has its
  // id.
  bool firstWithId = false;
};

struct Place {
  int family = kTheSet;
  int position = -1;
};

// A link the document keeps: the object at `owner` of one family names `linked` of another.
struct LinkPair {
  int owner;
  int linked;
};

template <class Interface>
VEKComPtr<VEKBaseUnknown> QueryFace(VEKBaseUnknown* identity) {
  VEKComPtr<Interface> face;
  (void)identity->QueryInterface(Interface::kIID, face.ReleaseAndGetVoidAddressOf());
  VEKComPtr<VEKBaseUnknown> base;
  base.Attach(face.Detach());
  return base;
}

void AppendNumber(std::string& text, int value) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

// The shortest text that reads back as the same double ("-0", "5e-324", "inf", "nan" included).
void AppendNumber(std::string& text, double value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

std::string_view View(const VEKUnicodeString& text) {
  return std::string_view(text.ConvertToChar(), text.GetLengthInByte());
}

std::string Times(std::size_t count) {
  return count == 1 ? std::string() : " (" + std::to_string(count) + " times)";
}

class SetWriter {
 public:
  SetWriter(VEKITPSLightSet& set, int setIndex, VEKLightXmlWriter& xml,
            std::vector<VEKTPSLightWriteWarning>& warnings)
      : set_(set), setIndex_(setIndex), xml_(xml), warnings_(warnings) {}

  void Write() {
    Collect();
    WriteSetElement();
    WriteFamily(kTTRS, &SetWriter::WriteTTRS);
    WriteFamily(kAnnotation, &SetWriter::WriteAnnotation);
    WriteFamily(kView, &SetWriter::WriteView);
    WriteFamily(kRefFrame, &SetWriter::WriteRefFrame);
    WriteFamily(kCG, &SetWriter::WriteCG);
    WriteFamily(kCapture, &SetWriter::WriteCapture);
    CompareRebuiltLinks();
  }

 private:
  void Collect() {
    const VEKLightObjectList* lists[kFamilies] = {&set_.GetTTRS(),  set_.GetAnnotations(),
                                                  &set_.GetViews(), &set_.GetRefFrames(),
                                                  &set_.GetCGs(),   &set_.GetCaptures()};
    std::size_t total = 0;
    for (const VEKLightObjectList* list : lists) total += list ? list->Count() : 0;
    places_.reserve(total);
    for (int family = 0; family < kFamilies; ++family) {
      if (!lists[family]) continue;
      std::vector<Object>& objects = objects_[family];
      objects.resize(static_cast<std::size_t>(lists[family]->Count()));
      for (int position = 0; position < lists[family]->Count(); ++position) {
        Object& object = objects[position];
        object.identity = lists[family]->Get(position);
        if (!object.identity) continue;
        (void)places_.emplace(object.identity, Place{family, position});
        (void)object.identity->QueryInterface(VEKITPSLight::kIID,
                                              object.light.ReleaseAndGetVoidAddressOf());
        if (object.light) object.id = object.light->GetId();
        object.face = QueryFamilyFace(family, object.identity);
      }
      MarkFirstWithId(objects);
    }
  }

  static VEKComPtr<VEKBaseUnknown> QueryFamilyFace(int family, VEKBaseUnknown* identity) {
    switch (family) {
      case kTTRS:
        return QueryFace<VEKITPSLightTTRS>(identity);
      case kAnnotation:
        return QueryFace<VEKITPSLightAnnotation>(identity);
      case kView:
        return QueryFace<VEKITPSLightView>(identity);
      case kRefFrame:
        return QueryFace<VEKITPSLightRefFrame>(identity);
      case kCG:
        return QueryFace<VEKITPSLightCG>(identity);
      default:
        return QueryFace<VEKITPSLightCapture>(identity);
    }
  }

  // Sorting rather than hashing: ids come from the document, and hashing ids chosen to collide
  // would cost quadratic time.
  static void MarkFirstWithId(std::vector<Object>& objects) {
    std::vector<std::pair<int, int>> byId;
    for (int position = 0; position < static_cast<int>(objects.size()); ++position) {
      if (objects[position].id) byId.emplace_back(*objects[position].id, position);
    }
    std::sort(byId.begin(), byId.end());
    for (std::size_t k = 0; k < byId.size(); ++k) {
      if (k == 0 || byId[k].first != byId[k - 1].first) objects[byId[k].second].firstWithId = true;
    }
  }

  template <class Interface>
  Interface* FaceOf(const Place& place) const {
    return static_cast<Interface*>(objects_[place.family][place.position].face.Get());
  }

  // "annotation 7"; "annotation 7 at position 3" when an earlier annotation has id 7 too;
  // "annotation at position 3 (no id)"; "the set".
  std::string Describe(const Place& place) const {
    if (place.family == kTheSet) return "the set";
    const Object& object = objects_[place.family][place.position];
    std::string text = Noun(place.family);
    if (!object.id) return text + " at position " + std::to_string(place.position) + " (no id)";
    text += " " + std::to_string(*object.id);
    if (!object.firstWithId) text += " at position " + std::to_string(place.position);
    return text;
  }

  void Warn(VEKTPSLightWriteIssue issue, const Place& place, const char* field,
            const std::string& what) {
    VEKTPSLightWriteWarning warning;
    warning.issue = issue;
    warning.set = setIndex_;
    warning.position = place.position;
    if (place.family != kTheSet) {
      warning.objectKind = kFamily[place.family].kind;
      warning.id = objects_[place.family][place.position].id;
    }
    warning.field = field;
    warning.message = Describe(place) + ": " + what;
    warnings_.push_back(std::move(warning));
  }

  void WarnUnset(const Place& place, const char* field, const char* what, const char* comesBack) {
    Warn(VEKTPSLightWriteIssue::Unset, place, field,
         std::string("its ") + what + " was never set; it comes back as " + comesBack);
  }

  // A text value: written when set; the load gives "" for one that is not.
  void TextAttribute(std::string_view name, const std::optional<VEKUnicodeString>& value,
                     const Place& place, const char* field) {
    if (!value) {
      WarnUnset(place, field, field, "\"\"");
      return;
    }
    const std::size_t before = xml_.Replaced();
    xml_.Attribute(name, View(*value));
    const std::size_t replaced = xml_.Replaced() - before;
    if (replaced > 0) {
      Warn(VEKTPSLightWriteIssue::TextReplaced, place, field,
           "its " + std::string(field) + " holds " + std::to_string(replaced) +
               " character(s) that XML cannot carry, written as U+FFFD");
    }
  }

  // A number: written when set; the load gives 0 for one that is not.
  template <class Number>
  void NumberAttribute(std::string_view name, const std::optional<Number>& value,
                       const Place& place, const char* field, const char* what) {
    if (!value) {
      WarnUnset(place, field, what, "0");
      return;
    }
    text_.clear();
    if constexpr (std::is_same_v<Number, double>) {
      AppendNumber(text_, *value);
    } else {
      AppendNumber(text_, static_cast<int>(*value));
    }
    xml_.Attribute(name, text_);
  }

  void TextElement(std::string_view tag, std::string_view text) {
    xml_.StartElement(tag);
    xml_.Text(text);
    xml_.EndElement(tag);
  }

  void WriteIdentity(const std::optional<VEKUnicodeString>& name,
                     const std::optional<VEKUnicodeString>& uuid, const Place& place) {
    if (name || uuid) xml_.StartElement("TPSId");
    TextAttribute("Name", name, place, "name");
    TextAttribute("Uuid", uuid, place, "uuid");
    if (name || uuid) xml_.EndElement("TPSId");
  }

  void WriteSetElement() {
    const Place place;
    VEKComPtr<VEKITPSLight> light;
    (void)set_.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf());
    const std::optional<unsigned short> type = light ? light->GetType() : std::nullopt;
    const std::optional<unsigned short> status = light ? light->GetStatus() : std::nullopt;
    xml_.StartElement("AnnotationSet");
    TextAttribute("Standard", set_.GetStandard(), place, "standard");
    WriteIdentity(light ? light->GetName() : std::nullopt, light ? light->GetUuid() : std::nullopt,
                  place);
    if (type || status) xml_.StartElement("TPSLoc");
    NumberAttribute("Type", type, place, "type", "type");
    NumberAttribute("Status", status, place, "status", "status");
    if (type || status) xml_.EndElement("TPSLoc");
    xml_.EndElement("AnnotationSet");
    if (!light) return;
    if (const std::optional<int> id = light->GetId()) {
      Warn(VEKTPSLightWriteIssue::NotKept, place, "id",
           "its id " + std::to_string(*id) + " has no place in the document; it is not written");
    }
    if (light->GetRep()) {
      Warn(VEKTPSLightWriteIssue::NotKept, place, "rep",
           "its representation has no place in the document; it is not written");
    }
  }

  // The identification, location and common graphic of an object, as its first children.
  void WriteCommon(const Place& place) {
    VEKITPSLight* light = objects_[place.family][place.position].light.Get();
    WriteIdentity(light ? light->GetName() : std::nullopt, light ? light->GetUuid() : std::nullopt,
                  place);
    const std::optional<unsigned short> type = light ? light->GetType() : std::nullopt;
    const std::optional<int> id = light ? light->GetId() : std::nullopt;
    const std::optional<unsigned short> status = light ? light->GetStatus() : std::nullopt;
    if (type || id || status) xml_.StartElement("TPSLoc");
    NumberAttribute("Type", type, place, "type", "type");
    NumberAttribute("Id", id, place, "id", "id");
    NumberAttribute("Status", status, place, "status", "status");
    if (type || id || status) xml_.EndElement("TPSLoc");
    if (light) WriteRep(kCommonRepType, light->GetRep(), place, "rep");
  }

  void WriteRep(std::string_view type, const VEKRep* rep, const Place& place, const char* field) {
    if (!rep) return;
    const std::vector<unsigned char>& glb = rep->GetGlb();
    if (rep->GetBlobSize() != glb.size()) {
      Warn(VEKTPSLightWriteIssue::GraphicTrimmed, place, field,
           "its " + std::string(field == std::string_view("rep") ? "representation" : "graphic") +
               " was read from " + std::to_string(rep->GetBlobSize()) +
               " bytes, of which only the " + std::to_string(glb.size()) +
               " of its GLB are written");
    }
    text_.resize(VEKCodePage::Base64Length(glb.size()));
    text_.resize(VEKCodePage::WriteBase64(glb.data(), glb.size(), &text_[0], text_.size()));
    xml_.StartElement("Rep");
    xml_.Attribute("Type", type);
    TextElement("Buf", text_);
    xml_.EndElement("Rep");
  }

  // An integer list as the text of a `tag` child: the numbers separated by single blanks. Zeros,
  // which the list reader drops, are left out.
  void WriteInts(std::string_view tag, const std::vector<int>& ints, const Place& place,
                 const char* field, const char* what, bool evenEmpty) {
    text_.clear();
    std::size_t zeros = 0;
    for (const int value : ints) {
      if (value == 0) {
        ++zeros;
        continue;
      }
      if (!text_.empty()) text_ += ' ';
      AppendNumber(text_, value);
    }
    if (zeros > 0) {
      Warn(VEKTPSLightWriteIssue::ZeroInList, place, field,
           std::string("its ") + what + " holds 0" + Times(zeros) +
               ", which a list in the document cannot hold; left out");
    }
    if (text_.empty() && !evenEmpty) return;
    TextElement(tag, text_);
  }

  // The id by which the load finds `target`, an object of `family`, again; nothing, with a
  // warning on `from`, when it cannot. `positiveOnly`: the list keeps only ids above 0.
  std::optional<int> LinkId(VEKBaseUnknown* target, int family, bool positiveOnly,
                            const Place& from, const char* field, const char* what, Place& found) {
    const auto place = target ? places_.find(target) : places_.end();
    std::string linked = "an object of no family of this set";
    std::string reason = "the document names only objects of the same set";
    if (place != places_.end()) {
      found = place->second;
      const Object& object = objects_[found.family][found.position];
      linked = Describe(found);
      if (found.family != family) {
        reason = std::string("the list names ") + Noun(family) + " objects only";
      } else if (!object.id) {
        reason = "it has no id";
      } else if (*object.id == 0 || (positiveOnly && *object.id < 0)) {
        reason =
            positiveOnly ? "an order group keeps only ids above 0" : "a list of ids cannot hold 0";
      } else if (!object.firstWithId) {
        reason = std::string("an earlier ") + Noun(family) + " has id " +
                 std::to_string(*object.id) + " too";
      } else {
        return object.id;
      }
    }
    Warn(VEKTPSLightWriteIssue::LinkLeftOut, from, field,
         linked + ", in " + what + ", is left out: " + reason);
    return std::nullopt;
  }

  // The ids of `links`, objects of `family`, as the text of a `tag` child; each link written is
  // handed to `written`.
  template <class Written>
  void WriteLinks(std::string_view tag, const VEKLightObjectList& links, int family,
                  const Place& from, const char* field, const char* what, bool positiveOnly,
                  bool evenEmpty, Written&& written) {
    text_.clear();
    for (int position = 0; position < links.Count(); ++position) {
      Place target;
      const std::optional<int> id =
          LinkId(links.Get(position), family, positiveOnly, from, field, what, target);
      if (!id) continue;
      if (!text_.empty()) text_ += ' ';
      AppendNumber(text_, *id);
      written(target);
    }
    if (text_.empty() && !evenEmpty) return;
    TextElement(tag, text_);
  }

  void WriteVector(std::string_view tag, const std::optional<VEKVector3>& vector) {
    if (!vector) return;
    text_.clear();
    AppendNumber(text_, vector->x);
    text_ += ' ';
    AppendNumber(text_, vector->y);
    text_ += ' ';
    AppendNumber(text_, vector->z);
    TextElement(tag, text_);
  }

  using ObjectWriter = void (SetWriter::*)(const Place&);

  void WriteFamily(int family, ObjectWriter write) {
    const std::vector<Object>& objects = objects_[family];
    if (objects.empty()) return;
    if (family == kAnnotation) NoteOrderGroups();
    xml_.StartElement(kFamily[family].root);
    for (int position = 0; position < static_cast<int>(objects.size()); ++position) {
      xml_.StartElement(kFamily[family].element);
      (this->*write)(Place{family, position});
      xml_.EndElement(kFamily[family].element);
    }
    xml_.EndElement(kFamily[family].root);
  }

  void WriteTTRS(const Place& place) {
    WriteCommon(place);
    auto* ttrs = FaceOf<VEKITPSLightTTRS>(place);
    if (!ttrs) return;
    // One "GeoP" per list, an empty one included, so that every list comes back in its place.
    for (int index = 0; index < ttrs->GetGeometryCount(); ++index) {
      const VEKRawCollint* ids = ttrs->GetGeometry(index);
      ints_.clear();
      if (ids) {
        for (int k = 1; k <= ids->Size(); ++k) ints_.push_back((*ids)[k]);
      } else {
        Warn(VEKTPSLightWriteIssue::NullGeometry, place, "geometry",
             "its geometry list " + std::to_string(index) + " is null; it comes back empty");
      }
      const std::string what = "geometry list " + std::to_string(index);
      WriteInts("GeoP", ints_, place, "geometry", what.c_str(), true);
    }
  }

  // The load pairs the k-th "Grou" of the annotations with the k-th annotation, and links the
  // groups only when every annotation has exactly one: so either all have one or none has.
  void NoteOrderGroups() {
    for (const Object& object : objects_[kAnnotation]) {
      VEKComPtr<VEKITPSLightModel> links;
      if (object.identity &&
          VEKSucceeded(object.identity->QueryInterface(VEKITPSLightModel::kIID,
                                                       links.ReleaseAndGetVoidAddressOf())) &&
          links->GetOrderGroup()) {
        orderGroups_ = true;
        return;
      }
    }
  }

  void WriteAnnotation(const Place& place) {
    auto* annotation = FaceOf<VEKITPSLightAnnotation>(place);
    if (annotation) {
      NumberAttribute("Val", annotation->GetValue(), place, "value", "value");
      if (annotation->IsDefault()) xml_.Attribute("Def", "1");
      NumberAttribute("Ref", annotation->GetReference(), place, "reference", "reference");
      TextAttribute("Att", annotation->GetAttribute(), place, "attribute");
    }
    WriteCommon(place);
    if (!annotation) return;
    WriteRep(kGraphicRepType, annotation->GetGraphicRep(), place, "graphic");
    WriteInts("TTRS", annotation->GetTTRS(), place, "ttrs", "list of TTRS numbers", false);
    if (!orderGroups_) return;
    VEKComPtr<VEKITPSLightModel> links;
    (void)annotation->QueryInterface(VEKITPSLightModel::kIID, links.ReleaseAndGetVoidAddressOf());
    const VEKLightObjectList* group = links ? links->GetOrderGroup() : nullptr;
    if (!group) {
      xml_.StartElement("Grou");
      xml_.EndElement("Grou");
      return;
    }
    if (group->Count() == 0) {
      Warn(VEKTPSLightWriteIssue::EmptyOrderGroup, place, "orderGroup",
           "its order group is empty; it comes back as no group");
    }
    WriteLinks("Grou", *group, kAnnotation, place, "orderGroup", "its order group", true, true,
               [](const Place&) {});
  }

  void WriteView(const Place& place) {
    WriteCommon(place);
    auto* view = FaceOf<VEKITPSLightView>(place);
    if (!view) return;
    WriteLinks("TPSs", view->GetAnnotations(), kAnnotation, place, "annotations", "its annotations",
               false, false, [&](const Place& annotation) {
                 shownBy_.push_back({annotation.position, place.position});
               });
    const std::optional<VEKVector3> origin = view->GetOrigin();
    const std::optional<VEKVector3> normal = view->GetNormal();
    const std::optional<VEKVector3> direction = view->GetDirection();
    if (!origin && !normal && !direction) return;
    xml_.StartElement("Math");
    WriteVector("Or", origin);
    WriteVector("No", normal);
    WriteVector("Di", direction);
    xml_.EndElement("Math");
  }

  void WriteRefFrame(const Place& place) {
    auto* frame = FaceOf<VEKITPSLightRefFrame>(place);
    if (frame) TextAttribute("Att", frame->GetAttribute(), place, "attribute");
    WriteCommon(place);
    if (!frame) return;
    WriteLinks("Datum", frame->GetDatums(), kAnnotation, place, "datums", "its datums", false,
               false, [](const Place&) {});
    WriteInts("TTRS", frame->GetTTRS(), place, "ttrs", "list of TTRS numbers", false);
  }

  void WriteCG(const Place& place) {
    auto* geometry = FaceOf<VEKITPSLightCG>(place);
    if (geometry) TextAttribute("Att", geometry->GetAttribute(), place, "attribute");
    WriteCommon(place);
    if (!geometry) return;
    WriteInts("TTRS", geometry->GetTTRS(), place, "ttrs", "list of TTRS numbers", false);
    WriteInts("TRep", geometry->GetTReps(), place, "treps", "list of representation numbers",
              false);
  }

  void WriteCapture(const Place& place) {
    auto* capture = FaceOf<VEKITPSLightCapture>(place);
    if (capture) {
      if (VEKBaseUnknown* active = capture->GetActiveView()) {
        Place view;
        if (const std::optional<int> id =
                LinkId(active, kView, false, place, "activeView", "its active view", view)) {
          text_.clear();
          AppendNumber(text_, *id);
          xml_.Attribute("ActVie", text_);
          activeOf_.push_back({view.position, place.position});
        }
      }
      NumberAttribute("ClipPla", capture->GetClippingPlane(), place, "clippingPlane",
                      "clipping plane");
    }
    WriteCommon(place);
    if (!capture) return;
    WriteRep(kGraphicRepType, capture->GetGraphicRep(), place, "graphic");
    const auto none = [](const Place&) {};
    WriteLinks("TPSs", capture->GetAnnotations(), kAnnotation, place, "annotations",
               "its annotations", false, false, none);
    WriteLinks("Views", capture->GetViews(), kView, place, "views", "its views", false, false,
               none);
    WriteLinks("CGs", capture->GetCGs(), kCG, place, "cgs", "its construction geometries", false,
               false, none);
    // The camera comes last: the load reads nothing after it.
    const std::optional<int> type = capture->GetCameraType();
    const std::optional<VEKVector3> vectors[] = {
        capture->GetCameraPosition(), capture->GetCameraDirection(), capture->GetCameraZenith(),
        capture->GetCameraTarget()};
    const bool anyVector =
        std::any_of(std::begin(vectors), std::end(vectors),
                    [](const std::optional<VEKVector3>& v) { return v.has_value(); });
    if (!type && !anyVector) return;
    xml_.StartElement("Cam");
    NumberAttribute("Type", type, place, "camera.type", "camera type");
    WriteVector("Po", vectors[0]);
    WriteVector("Di", vectors[1]);
    WriteVector("Ze", vectors[2]);
    WriteVector("Ta", vectors[3]);
    xml_.EndElement("Cam");
  }

  // The load rebuilds an annotation's views from the views that list it, and a view's captures
  // from the captures whose active view it is, in document order. Whatever else the model holds
  // there is named.
  void CompareRebuiltLinks() {
    CompareRebuilt(kAnnotation, kView, shownBy_, "views", [](VEKBaseUnknown* identity) {
      VEKComPtr<VEKITPSLightModel> links;
      (void)identity->QueryInterface(VEKITPSLightModel::kIID, links.ReleaseAndGetVoidAddressOf());
      return links ? &links->GetViews() : nullptr;
    });
    CompareRebuilt(kView, kCapture, activeOf_, "captures", [this](VEKBaseUnknown* identity) {
      const Place place = places_.at(identity);
      auto* view = FaceOf<VEKITPSLightView>(place);
      return view ? &view->GetCaptures() : nullptr;
    });
  }

  template <class ListOf>
  void CompareRebuilt(int family, int linkedFamily, const std::vector<LinkPair>& pairs,
                      const char* field, ListOf&& listOf) {
    const std::size_t count = objects_[family].size();
    // The rebuilt lists, grouped by owner in a stable counting sort.
    std::vector<std::size_t> starts(count + 1, 0);
    for (const LinkPair& pair : pairs) ++starts[static_cast<std::size_t>(pair.owner) + 1];
    for (std::size_t k = 0; k < count; ++k) starts[k + 1] += starts[k];
    std::vector<int> rebuilt(pairs.size());
    std::vector<std::size_t> next(starts.begin(), starts.end() - 1);
    for (const LinkPair& pair : pairs)
      rebuilt[next[static_cast<std::size_t>(pair.owner)]++] = pair.linked;

    std::vector<int> held;
    for (std::size_t owner = 0; owner < count; ++owner) {
      const Object& object = objects_[family][owner];
      held.clear();
      const VEKLightObjectList* list = object.identity ? listOf(object.identity) : nullptr;
      for (int k = 0; list && k < list->Count(); ++k) {
        const auto place = places_.find(list->Get(k));
        held.push_back(place != places_.end() && place->second.family == linkedFamily
                           ? place->second.position
                           : -1);
      }
      if (std::equal(held.begin(), held.end(), rebuilt.begin() + starts[owner],
                     rebuilt.begin() + starts[owner + 1])) {
        continue;
      }
      const std::vector<int> expected(rebuilt.begin() + starts[owner],
                                      rebuilt.begin() + starts[owner + 1]);
      Warn(VEKTPSLightWriteIssue::LinksDiffer, Place{family, static_cast<int>(owner)}, field,
           "its " + std::string(field) + " (" + Listed(linkedFamily, held) +
               ") are not those the document rebuilds from the links written (" +
               Listed(linkedFamily, expected) + "); it comes back with the latter");
    }
  }

  // Objects of `family` by id (or "?"), at most ten of them.
  std::string Listed(int family, const std::vector<int>& positions) const {
    constexpr std::size_t kShown = 10;
    std::string text;
    for (std::size_t k = 0; k < positions.size() && k < kShown; ++k) {
      if (k > 0) text += ", ";
      const std::optional<int> id =
          positions[k] >= 0 ? objects_[family][static_cast<std::size_t>(positions[k])].id
                            : std::nullopt;
      text += id ? std::to_string(*id) : "?";
    }
    if (positions.size() > kShown) text += ", ... " + std::to_string(positions.size()) + " in all";
    return text.empty() ? "none" : text;
  }

  VEKITPSLightSet& set_;
  const int setIndex_;
  VEKLightXmlWriter& xml_;
  std::vector<VEKTPSLightWriteWarning>& warnings_;
  std::vector<Object> objects_[kFamilies];
  // Where each object of the set stands, by identity.
  std::unordered_map<const VEKBaseUnknown*, Place> places_;
  // Whether every annotation gets a "Grou".
  bool orderGroups_ = false;
  // Annotation and view of each view's annotation link written, in document order.
  std::vector<LinkPair> shownBy_;
  // View and capture of each active view written.
  std::vector<LinkPair> activeOf_;
  // Scratch text and numbers, reused.
  std::string text_;
  std::vector<int> ints_;
};

}  // namespace

void VEKWriteSetXml(VEKITPSLightSet& set, int setIndex, VEKLightXmlWriter& xml,
                    std::vector<VEKTPSLightWriteWarning>& warnings) {
  SetWriter(set, setIndex, xml, warnings).Write();
}

}  // namespace vek_parser_detail
