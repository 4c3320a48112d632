// Legacy-schema builders ("TolerancingData" documents) and the order-group pass that both schemas
// share. Legacy objects carry their values positionally: item k is the "V" attribute of the k-th
// value child, whatever its tag, and an object is built only when the count of items is exact.
// Every builder reads from the document root, so each finds its own family there.
#include <memory>
#include <new>

#include "VEKComPtr.h"
#include "VEKTPSLightParserInternal.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightRecorder.h"

using vek_parser_detail::VEKAddTTRS;
using vek_parser_detail::VEKBuildChildren;
using vek_parser_detail::VEKFindObject;
using vek_parser_detail::VEKFindText;
using vek_parser_detail::VEKFirstChildNamed;
using vek_parser_detail::VEKForEachChild;
using vek_parser_detail::VEKForEachChildValue;
using vek_parser_detail::VEKForEachValue;
using vek_parser_detail::VEKHasValueCount;
using vek_parser_detail::VEKOrderGroupLists;
using vek_parser_detail::VEKPassWide;
using vek_parser_detail::VEKQueryInterface;
using vek_parser_detail::VEKReference;
using vek_parser_detail::VEKSetId;
using vek_parser_detail::VEKSource;
using vek_parser_detail::VEKSubView;
using vek_parser_detail::VEKValueItems;

namespace {

// "%d" into `number`; text that does not convert leaves `number` as it was, which the callers
// rely on where one integer is shared by several items.
void ReadInt(std::string_view text, int& number, const VEKSource& source) {
  (void)vek_parser_detail::VEKReadNumber(text, number, source);
}

// "%le" into `number`, with the same rule.
void ReadDouble(std::string_view text, double& number, const VEKSource& source) {
  (void)vek_parser_detail::VEKReadNumber(text, number, source);
}

// What becomes of a legacy object whose count of values is wrong.
const char* const kPassedOver = ", so it is passed over";

// Cuts a text into pieces at a one-character separator, left to right. A piece whose closing
// separator is missing is empty text, and so is everything after it: a number cut from it does
// not convert and its target keeps the value it had.
class VEKPieceCutter {
 public:
  VEKPieceCutter(std::string_view text, std::string_view separator) noexcept
      : text_(text), separator_(separator) {}

  // Whether another separator follows the current position.
  bool HasSeparator() const noexcept { return !exhausted_ && NextSeparator() >= 0; }
  // The text up to the next separator, which is then passed.
  std::string_view Next() noexcept {
    const int found = exhausted_ ? -1 : NextSeparator();
    if (found < 0) {
      exhausted_ = true;
      return {};
    }
    const std::string_view piece = VEKSubView(text_, start_, found - start_);
    start_ = found + 1;
    return piece;
  }
  // Everything after the last separator passed.
  std::string_view Rest() const noexcept {
    if (exhausted_) return {};
    return VEKSubView(text_, start_, static_cast<int>(text_.size()) - start_);
  }

 private:
  int NextSeparator() const noexcept { return VEKFindText(text_, separator_, start_); }

  std::string_view text_;
  std::string_view separator_;
  int start_ = 0;
  bool exhausted_ = false;
};

// Three numbers "x<blank>y<blank>z" into `point`; a missing piece keeps its component.
void ReadBlankTriple(std::string_view text, VEKVector3& point, const VEKSource& source) {
  VEKPieceCutter cutter(text, " ");
  ReadDouble(cutter.Next(), point.x, source);
  ReadDouble(cutter.Next(), point.y, source);
  ReadDouble(cutter.Rest(), point.z, source);
}

// One packed geometry item: ";"-separated integers after a first character that never holds a
// value. Zeros before the last piece are dropped; the last piece is always kept.
void ReadPackedIds(std::string_view text, VEKRawCollint& ids, const VEKSource& source) {
  int start = vek_parser_detail::VEKCharacterLengthAt(text, 0);
  for (;;) {
    const int found = VEKFindText(text, ";", start);
    if (found < 0) break;
    int number = 0;
    ReadInt(VEKSubView(text, start, found - start), number, source);
    if (number != 0) (void)ids.Append(number);
    start = found + 1;
  }
  int last = 0;
  ReadInt(VEKSubView(text, start, static_cast<int>(text.size()) - start), last, source);
  (void)ids.Append(last);
}

// Reads the value children of a legacy object that `takes` accepts by name into `values`, and the
// values nested in its children named `nestedIn` into `nested`.
template <class Takes>
void ReadObjectValues(const VEKLightXmlElementItf& element, std::string_view nestedIn,
                      VEKValueItems& values, VEKValueItems& nested, Takes&& takes) {
  VEKForEachChildValue(element, "V", nestedIn,
                       [&](std::string_view name, std::string_view value, bool inner) {
                         if (inner) {
                           if (!name.empty()) nested.Append(value);
                         } else if (takes(name)) {
                           values.Append(value);
                         }
                       });
}

// Calls `use` with each id of a `separator`-separated list, in order, as GetListOfUnicode cuts
// it (the first character never holds one); an id that does not convert is 0.
template <class Use>
void ForEachListedId(std::string_view text, const char* separator, const VEKSource& source,
                     Use&& use) {
  vek_parser_detail::VEKForEachListItem(text, separator, [&](std::string_view item) {
    int id = 0;
    ReadInt(item, id, source);
    use(id);
  });
}

// Whether the list holds any id at all.
bool HasListedId(std::string_view text, const char* separator) {
  bool any = false;
  vek_parser_detail::VEKForEachListItem(text, separator, [&](std::string_view) { any = true; });
  return any;
}

// Hands each object that an id of the list names to `use`; ids that resolve to nothing are
// passed over.
template <class Use>
void ForEachListedObject(VEKITPSIdBroker& broker, std::string_view text, const char* separator,
                         VEKTPSLightKind kind, const VEKReference& by, Use&& use) {
  ForEachListedId(text, separator, by.source, [&](int id) {
    VEKComPtr<VEKBaseUnknown> found;
    if (VEKFindObject(broker, id, kind, found, by)) use(found.Get());
  });
}

// Builds every `tag` child of the first `familyTag` child of the document root.
HRESULT BuildFamily(VEKTPSLightParserUtil& parser, VEKTPSLightContainer* container,
                    VEKITPSLightSet* set, VEKLightXmlElementItf& root, const char* familyTag,
                    const char* tag, vek_parser_detail::VEKBuilder build) {
  if (!set || !container) return E_FAIL;
  if (const VEKLightXmlElementItf* family = VEKFirstChildNamed(root, familyTag))
    VEKBuildChildren(parser, build, container, set, *family, tag);
  return S_OK;
}

// A view's planes: item 1 the normal, then the direction when a third separator follows the
// normal; item 2 the origin. One triple of doubles serves every vector: a piece that does not
// convert keeps the component of the vector before it.
void SetViewPlanes(const VEKValueItems& planes, VEKITPSLightView& view, const VEKSource& source) {
  const std::string_view separator(";");
  VEKVector3 vector;
  if (!planes[1].empty()) {
    VEKPieceCutter cutter(planes[1], separator);
    ReadDouble(cutter.Next(), vector.x, source);
    ReadDouble(cutter.Next(), vector.y, source);
    if (!cutter.HasSeparator()) {
      ReadDouble(cutter.Rest(), vector.z, source);
      (void)view.SetNormal(vector.x, vector.y, vector.z);
    } else {
      ReadDouble(cutter.Next(), vector.z, source);
      (void)view.SetNormal(vector.x, vector.y, vector.z);
      ReadDouble(cutter.Next(), vector.x, source);
      ReadDouble(cutter.Next(), vector.y, source);
      ReadDouble(cutter.Rest(), vector.z, source);
      (void)view.SetDirection(vector.x, vector.y, vector.z);
    }
  }
  // A one-item list reads the origin as empty text and sets nothing.
  if (!planes[2].empty()) {
    VEKPieceCutter cutter(planes[2], separator);
    ReadDouble(cutter.Next(), vector.x, source);
    ReadDouble(cutter.Next(), vector.y, source);
    ReadDouble(cutter.Rest(), vector.z, source);
    (void)view.SetOrigin(vector.x, vector.y, vector.z);
  }
}

// A capture's camera: position, direction, zenith, then target and type when there are more than
// three items. One triple of doubles serves every vector; items past the end of the list read as
// empty text and are skipped like empty items. `number` is the integer the capture's items share.
void SetCamera(const VEKValueItems& camera, VEKITPSLightCapture& capture, int& number,
               const VEKSource& source) {
  if (camera.Size() == 0) return;
  VEKVector3 point;
  auto setPoint = [&](int index, HRESULT (VEKITPSLightCapture::*setter)(double, double, double)) {
    if (camera[index].empty()) return;
    ReadBlankTriple(camera[index], point, source);
    (void)(capture.*setter)(point.x, point.y, point.z);
  };
  setPoint(1, &VEKITPSLightCapture::SetCameraPosition);
  setPoint(2, &VEKITPSLightCapture::SetCameraDirection);
  setPoint(3, &VEKITPSLightCapture::SetCameraZenith);
  if (camera.Size() > 3) {
    setPoint(4, &VEKITPSLightCapture::SetCameraTarget);
    // A list of four items reads the type as empty text: the shared integer goes unchanged.
    ReadInt(camera[5], number, source);
    (void)capture.SetCameraType(number);
  }
}

}  // namespace

HRESULT VEKTPSLightParserUtil::AssoTPSOrderGroup(VEKITPSLightSet* set, VEKRawCollPV groups) {
  if (!set) return E_FAIL;
  VEKLightObjectList* annotations = set->GetAnnotations();
  if (!annotations) return E_FAIL;
  // Pairing is by creation position only, so it is meaningful only when the counts agree.
  const int count = groups.Size();
  if (count != annotations->Count()) return S_OK;

  VEKComPtr<VEKITPSIdBroker> broker;
  if (VEKFailed(VEKQueryInterface(set, broker)) || !broker) return S_OK;

  for (int k = 1; k <= count; ++k) {
    VEKComPtr<VEKITPSLightModel> model;
    if (VEKFailed(VEKQueryInterface(annotations->Get(k - 1), model)) || !model) continue;
    const auto* ids = static_cast<const VEKListValVEKUnicodeString*>(groups[k]);
    if (!ids || ids->Size() == 0) continue;

    // The model takes the list on success; its pointers are not counted, the set keeps the
    // objects alive. A refused list is the caller's again.
    std::unique_ptr<VEKLightObjectList> group(new (std::nothrow) VEKLightObjectList());
    if (!group) continue;
    const VEKReference by{vek_parser_detail::VEKGroupSource(ids), VEKTPSLightKindAnnotation,
                          annotations->Get(k - 1), " in its order group"};
    for (int j = 1; j <= ids->Size(); ++j) {
      int id = 0;
      ReadInt((*ids)[j].View(), id, by.source);
      VEKComPtr<VEKBaseUnknown> member;
      if (VEKFindObject(*broker.Get(), id, VEKTPSLightKindAnnotation, member, by)) {
        (void)group->Append(member.Get());
      }
    }
    if (VEKSucceeded(model->SetOrderGroup(group.get()))) (void)group.release();
  }
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                            VEKLightXmlElementItf& element) {
  return BuildFamily(*this, container, set, element, "TTRSRoot", "TTRS",
                     &VEKTPSLightParserUtil::BuildTTRS);
}

HRESULT VEKTPSLightParserUtil::BuildTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                         VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  // "Na", "In" and "Ui" fill the identity in document order: the order, not the tag, decides
  // which of name, id and uuid a value becomes.
  VEKValueItems identity;
  VEKValueItems geometry;
  ReadObjectValues(element, "Gd", identity, geometry, [](std::string_view name) {
    return name == "Na" || name == "In" || name == "Ui";
  });
  if (!VEKHasValueCount(identity, -1, element, kPassedOver)) return E_FAIL;

  VEKComPtr<VEKITPSLightTTRS> ttrs;
  if (VEKFailed(container->CreateTTRS(ttrs.ReleaseAndGetAddressOf(), set)) || !ttrs) return E_FAIL;

  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(ttrs.Get(), light)) && light) {
    const VEKValueItems& items = identity;
    VEKPassWide(items[1], [&](const wchar_t* text) { (void)light->SetName(text); });
    // A one-item identity reads item 2 as empty text: the id is then 0.
    int id = 0;
    ReadInt(items[2], id, element);
    (void)VEKSetId(*light.Get(), id, element);
    // Exactly three items carry a uuid; four or more do not.
    if (items.Size() == 3) {
      VEKPassWide(items[3], [&](const wchar_t* text) { (void)light->SetUuid(text); });
    }
    light.Reset();
  }

  for (int i = 1; i <= geometry.Size(); ++i) {
    const std::string_view packed = geometry[i];
    if (packed.empty()) continue;
    VEKRawCollint* ids = new (std::nothrow) VEKRawCollint(0);
    if (!ids) continue;
    ReadPackedIds(packed, *ids, element);
    // The TTRS owns the list from here on.
    (void)ttrs->AddGeometry(ids);
  }
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateAnnotations(VEKTPSLightContainer* container,
                                                   VEKITPSLightSet* set,
                                                   VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  const VEKLightXmlElementItf* family = VEKFirstChildNamed(element, "Annotations");
  if (!family) return S_OK;

  // Groups name annotations that may come later, so they are linked once all are built.
  VEKOrderGroupLists groups;
  VEKForEachChild(*family, [&](VEKLightXmlElementItf& child) {
    if (child.GetNameView() == "TPS") (void)BuildAnnotation(container, set, child, &groups.Lists());
  });
  if (groups.Lists().Size() >= 1) (void)AssoTPSOrderGroup(set, groups.Lists());
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildAnnotation(VEKTPSLightContainer* container,
                                               VEKITPSLightSet* set, VEKLightXmlElementItf& element,
                                               VEKRawCollPV* orderGroups) {
  if (!set || !container || !orderGroups) return E_FAIL;
  VEKValueItems values;
  VEKForEachValue(element, [&](std::string_view value) { values.Append(value); });
  if (!VEKHasValueCount(values, 11, element, kPassedOver)) return E_FAIL;
  const VEKValueItems& items = values;

  VEKComPtr<VEKITPSLightAnnotation> annotation;
  if (VEKFailed(container->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set)) ||
      !annotation) {
    return E_FAIL;
  }

  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(annotation.Get(), light)) && light) {
    // One integer serves items 1, 4, 5, 6 and 7: an item that does not convert repeats the
    // number of the item before it.
    int number = 0;
    double value = 0.0;
    ReadInt(items[1], number, element);
    (void)light->SetType(static_cast<unsigned short>(number));
    ReadDouble(items[2], value, element);
    (void)annotation->SetValue(value);
    VEKPassWide(items[3], [&](const wchar_t* text) { (void)light->SetName(text); });
    ReadInt(items[4], number, element);
    (void)VEKSetId(*light.Get(), number, element);
    ReadInt(items[5], number, element);
    if (number != 0) (void)annotation->SetDefault(1);
    ReadInt(items[6], number, element);
    (void)vek_parser_detail::VEKSetReference(
        *annotation.Get(), number,
        {element, VEKTPSLightKindAnnotation, annotation.Get(), " as its reference"});
    ReadInt(items[7], number, element);
    (void)light->SetStatus(static_cast<unsigned short>(number));
    VEKPassWide(items[8], [&](const wchar_t* text) { (void)light->SetUuid(text); });
    VEKPassWide(items[9], [&](const wchar_t* text) { (void)annotation->SetAttribute(text); });
    light.Reset();
  }

  const VEKReference namer{element, VEKTPSLightKindAnnotation, annotation.Get()};
  ForEachListedId(items[10], ";", element,
                  [&](int id) { (void)VEKAddTTRS(*annotation.Get(), id, namer); });

  // One entry per created annotation keeps the pairing with the set's annotations aligned; a
  // list that cannot be made is a null entry (no group).
  std::unique_ptr<VEKListValVEKUnicodeString> groupIds(new (std::nothrow)
                                                           VEKListValVEKUnicodeString());
  if (groupIds) {
    vek_parser_detail::VEKForEachListItem(items[11], ";", [&](std::string_view id) {
      (void)groupIds->Append(VEKUnicodeString(id.data(), id.size()));
    });
    vek_parser_detail::VEKNoteGroupSource(groupIds.get(), element);
  }
  if (VEKSucceeded(orderGroups->Append(groupIds.get()))) (void)groupIds.release();
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateViews(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                             VEKLightXmlElementItf& element) {
  return BuildFamily(*this, container, set, element, "ViewRoot", "View",
                     &VEKTPSLightParserUtil::BuildView);
}

HRESULT VEKTPSLightParserUtil::BuildView(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                         VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKValueItems values;
  VEKValueItems geometry;
  ReadObjectValues(element, "Mt", values, geometry,
                   [](std::string_view name) { return name != "Mt"; });
  if (!VEKHasValueCount(values, 5, element, kPassedOver) || !geometry.Complete()) return E_FAIL;
  const VEKValueItems& items = values;

  VEKComPtr<VEKITPSLightView> view;
  if (VEKFailed(container->CreateView(view.ReleaseAndGetAddressOf(), set)) || !view) return E_FAIL;

  std::string_view shownIds;
  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(view.Get(), light)) && light) {
    // Items 1 and 3 share one integer.
    int number = 0;
    ReadInt(items[1], number, element);
    (void)light->SetType(static_cast<unsigned short>(number));
    VEKPassWide(items[2], [&](const wchar_t* text) { (void)light->SetName(text); });
    ReadInt(items[3], number, element);
    (void)VEKSetId(*light.Get(), number, element);
    VEKPassWide(items[4], [&](const wchar_t* text) { (void)light->SetUuid(text); });
    shownIds = items[5];
    light.Reset();
  }

  VEKComPtr<VEKITPSIdBroker> broker;
  if (HasListedId(shownIds, ";") && VEKSucceeded(VEKQueryInterface(set, broker)) && broker) {
    ForEachListedObject(*broker.Get(), shownIds, ";", VEKTPSLightKindAnnotation,
                        {element, VEKTPSLightKindView, view.Get()},
                        [&](VEKBaseUnknown* annotation) {
                          vek_parser_detail::VEKShowAnnotation(*view.Get(), annotation);
                        });
    broker.Reset();
  }
  SetViewPlanes(geometry, *view.Get(), element);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateRefFrame(VEKTPSLightContainer* container,
                                                VEKITPSLightSet* set,
                                                VEKLightXmlElementItf& element) {
  return BuildFamily(*this, container, set, element, "ReferenceFrame", "RefFrame",
                     &VEKTPSLightParserUtil::BuildRefFrame);
}

HRESULT VEKTPSLightParserUtil::BuildRefFrame(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                             VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKValueItems values;
  VEKForEachValue(element, [&](std::string_view value) { values.Append(value); });
  if (!VEKHasValueCount(values, 6, element, kPassedOver)) return E_FAIL;
  const VEKValueItems& items = values;

  VEKComPtr<VEKITPSLightRefFrame> refFrame;
  if (VEKFailed(container->CreateRefFrame(refFrame.ReleaseAndGetAddressOf(), set)) || !refFrame) {
    return E_FAIL;
  }

  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(refFrame.Get(), light)) && light) {
    VEKPassWide(items[1], [&](const wchar_t* text) { (void)light->SetName(text); });
    // A number that does not convert leaves the reference-frame default, 32.
    int number = 32;
    ReadInt(items[2], number, element);
    (void)VEKSetId(*light.Get(), number, element);
    VEKPassWide(items[3], [&](const wchar_t* text) { (void)refFrame->SetAttribute(text); });
    VEKPassWide(items[4], [&](const wchar_t* text) { (void)light->SetUuid(text); });
    light.Reset();
  }

  VEKComPtr<VEKITPSIdBroker> broker;
  if (HasListedId(items[5], ";") && VEKSucceeded(VEKQueryInterface(set, broker)) && broker) {
    ForEachListedObject(*broker.Get(), items[5], ";", VEKTPSLightKindAnnotation,
                        {element, VEKTPSLightKindRefFrame, refFrame.Get(), " as a datum"},
                        [&](VEKBaseUnknown* datum) { (void)refFrame->AddDatum(datum); });
    broker.Reset();
  }

  const VEKReference namer{element, VEKTPSLightKindRefFrame, refFrame.Get()};
  ForEachListedId(items[6], ";", element,
                  [&](int id) { (void)VEKAddTTRS(*refFrame.Get(), id, namer); });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                          VEKLightXmlElementItf& element) {
  return BuildFamily(*this, container, set, element, "CGRoot", "CG",
                     &VEKTPSLightParserUtil::BuildCG);
}

HRESULT VEKTPSLightParserUtil::BuildCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                       VEKLightXmlElementItf& element) {
  // The result is E_FAIL on every path, a complete build included; callers ignore it.
  if (!set || !container) return E_FAIL;
  VEKValueItems values;
  VEKForEachValue(element, [&](std::string_view value) { values.Append(value); });
  if (!VEKHasValueCount(values, 8, element, kPassedOver)) return E_FAIL;
  const VEKValueItems& items = values;

  VEKComPtr<VEKITPSLightCG> cg;
  if (VEKFailed(container->CreateCG(cg.ReleaseAndGetAddressOf(), set)) || !cg) return E_FAIL;
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(VEKQueryInterface(cg.Get(), light)) || !light) return E_FAIL;

  // Items 1, 3 and 4 share one integer: an item that does not convert repeats the one before.
  int number = 0;
  ReadInt(items[1], number, element);
  (void)light->SetType(static_cast<unsigned short>(number));
  VEKPassWide(items[2], [&](const wchar_t* text) { (void)light->SetName(text); });
  ReadInt(items[3], number, element);
  (void)VEKSetId(*light.Get(), number, element);
  ReadInt(items[4], number, element);
  (void)light->SetStatus(static_cast<unsigned short>(number));
  VEKPassWide(items[5], [&](const wchar_t* text) { (void)cg->SetAttribute(text); });
  VEKPassWide(items[6], [&](const wchar_t* text) { (void)light->SetUuid(text); });

  const VEKReference namer{element, VEKTPSLightKindCG, cg.Get()};
  ForEachListedId(items[7], ";", element, [&](int id) { (void)VEKAddTTRS(*cg.Get(), id, namer); });
  ForEachListedId(items[8], ";", element, [&](int id) { (void)cg->AddTRep(id); });
  light.Reset();
  return E_FAIL;
}

HRESULT VEKTPSLightParserUtil::GenerateCapture(VEKTPSLightContainer* container,
                                               VEKITPSLightSet* set,
                                               VEKLightXmlElementItf& element) {
  return BuildFamily(*this, container, set, element, "CaptureRoot", "Capture",
                     &VEKTPSLightParserUtil::BuildCapture);
}

HRESULT VEKTPSLightParserUtil::BuildCapture(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                            VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKValueItems values;
  VEKValueItems camera;
  // "Gd" values belong to the format, but nothing in a capture depends on them.
  ReadObjectValues(element, "Cam", values, camera,
                   [](std::string_view name) { return name != "Cam" && name != "Gd"; });
  if (!VEKHasValueCount(values, 8, element, kPassedOver) || !camera.Complete()) return E_FAIL;
  const VEKValueItems& items = values;

  VEKComPtr<VEKITPSLightCapture> capture;
  if (VEKFailed(container->CreateCapture(capture.ReleaseAndGetAddressOf(), set)) || !capture) {
    return E_FAIL;
  }
  // Without a broker the capture stays in the set with nothing set.
  VEKComPtr<VEKITPSIdBroker> broker;
  if (VEKFailed(VEKQueryInterface(set, broker)) || !broker) return S_OK;

  // One integer serves items 1, 2 and 3 and the camera type: an item that does not convert
  // repeats the number before it (an unreadable active view looks up the capture's own number).
  int number = 0;
  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(capture.Get(), light)) && light) {
    ReadInt(items[1], number, element);
    (void)VEKSetId(*light.Get(), number, element);
    ReadInt(items[2], number, element);
    vek_parser_detail::VEKLinkActiveView(*broker.Get(), *capture.Get(), number, element);
    ReadInt(items[3], number, element);
    (void)capture->SetClippingPlane(number);
    VEKPassWide(items[4], [&](const wchar_t* text) { (void)light->SetName(text); });
    VEKPassWide(items[5], [&](const wchar_t* text) { (void)light->SetUuid(text); });
    light.Reset();
  }

  // Items 6 to 8 list ids separated by one blank.
  const auto linkAll = [&](std::string_view text, VEKTPSLightKind kind,
                           HRESULT (VEKITPSLightCapture::*add)(VEKBaseUnknown*)) {
    ForEachListedObject(*broker.Get(), text, " ", kind,
                        {element, VEKTPSLightKindCapture, capture.Get()},
                        [&](VEKBaseUnknown* object) { (void)(capture.Get()->*add)(object); });
  };
  linkAll(items[6], VEKTPSLightKindAnnotation, &VEKITPSLightCapture::AddTPS);
  linkAll(items[7], VEKTPSLightKindView, &VEKITPSLightCapture::AddView);
  linkAll(items[8], VEKTPSLightKindCG, &VEKITPSLightCapture::AddCG);
  SetCamera(camera, *capture.Get(), number, element);
  broker.Reset();
  return S_OK;
}
