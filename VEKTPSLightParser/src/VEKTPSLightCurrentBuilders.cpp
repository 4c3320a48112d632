// Current-schema builders: one walker and one builder per object family. Every walker hands each
// child of its object's tag to the builder and ignores the builder's result, so one object that
// fails to build never stops the others.
#include <memory>
#include <new>

#include "VEKComPtr.h"
#include "VEKTPSLightParserInternal.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightRecorder.h"

using vek_parser_detail::VEKAddTTRS;
using vek_parser_detail::VEKBuildChildren;
using vek_parser_detail::VEKForEachChild;
using vek_parser_detail::VEKForEachFoundObject;
using vek_parser_detail::VEKForEachInt;
using vek_parser_detail::VEKOrderGroupLists;
using vek_parser_detail::VEKPassWide;
using vek_parser_detail::VEKQueryInterface;
using vek_parser_detail::VEKReadNumber;
using vek_parser_detail::VEKReference;

namespace {

// Reads the integer attribute `name` of `element` into a variable preset to `fallback`.
int ReadIntAttribute(const VEKLightXmlElementItf& element, std::string_view name, int fallback) {
  int value = fallback;
  (void)VEKReadNumber(element.GetAttributeView(name), value, element);
  return value;
}

// Reads the vectors among the children of `parent` into `object`, each through the setter its
// name selects. With `carryOver` a vector whose text cannot be read repeats the numbers before it;
// without, it is passed on as 0.0.
template <class Object, std::size_t Count>
void SetNamedVectors(VEKTPSLightParserUtil& parser, const VEKLightXmlElementItf& parent,
                     Object& object,
                     const vek_parser_detail::VEKNamedVector<Object> (&vectors)[Count],
                     bool carryOver) {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  VEKForEachChild(parent, [&](VEKLightXmlElementItf& vector) {
    const std::string_view name = vector.GetNameView();
    for (const auto& candidate : vectors) {
      if (name != candidate.name) continue;
      if (!carryOver) x = y = z = 0.0;
      (void)parser.ReadMath(vector, x, y, z);
      (void)(object.*candidate.set)(x, y, z);
      return;
    }
  });
}

// The lists of ids a capture links, by the name of their element.
struct CaptureList {
  const char* name;
  VEKTPSLightKind kind;
  HRESULT (VEKITPSLightCapture::*add)(VEKBaseUnknown*);
};

const CaptureList* CaptureListNamed(std::string_view name) {
  static constexpr CaptureList kLists[] = {
      {"TPSs", VEKTPSLightKindAnnotation, &VEKITPSLightCapture::AddTPS},
      {"Views", VEKTPSLightKindView, &VEKITPSLightCapture::AddView},
      {"CGs", VEKTPSLightKindCG, &VEKITPSLightCapture::AddCG},
  };
  for (const CaptureList& list : kLists) {
    if (name == list.name) return &list;
  }
  return nullptr;
}

// The type of the representation that an annotation or a capture keeps as its own graphic.
const VEKUnicodeString& GraphicRepType() {
  static const VEKUnicodeString type("2");
  return type;
}

}  // namespace

HRESULT VEKTPSLightParserUtil::GenerateNewTTRS(VEKTPSLightContainer* container,
                                               VEKITPSLightSet* set,
                                               VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKBuildChildren(*this, &VEKTPSLightParserUtil::BuildNewTTRS, container, set, element, "TTRS");
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                            VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKComPtr<VEKITPSLightTTRS> ttrs;
  if (VEKFailed(container->CreateTTRS(ttrs.ReleaseAndGetAddressOf(), set)) || !ttrs) return E_FAIL;
  {
    VEKComPtr<VEKITPSLight> light;
    if (VEKSucceeded(VEKQueryInterface(ttrs.Get(), light)))
      (void)SetTPSValues(light.Get(), element);
  }
  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    if (child.GetNameView() != "GeoP") return;
    VEKRawCollint ids(0);
    (void)ReadListInt(child, ids);
    // The TTRS owns the copy from here on, a null one included.
    (void)ttrs->AddGeometry(new (std::nothrow) VEKRawCollint(ids));
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateNewAnnotations(VEKTPSLightContainer* container,
                                                      VEKITPSLightSet* set,
                                                      VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKOrderGroupLists groups;
  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    if (child.GetNameView() == "TPS")
      (void)BuildNewAnnotation(container, set, child, &groups.Lists());
  });
  // Groups can be linked only now that every annotation of this root exists.
  if (groups.Lists().Size() > 0) (void)AssoTPSOrderGroup(set, groups.Lists());
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewAnnotation(VEKTPSLightContainer* container,
                                                  VEKITPSLightSet* set,
                                                  VEKLightXmlElementItf& element,
                                                  VEKRawCollPV* orderGroups) {
  if (!set || !container || !orderGroups) return E_FAIL;
  VEKComPtr<VEKITPSLightAnnotation> annotation;
  if (VEKFailed(container->CreateAnnotation(annotation.ReleaseAndGetAddressOf(), set)) ||
      !annotation) {
    return E_FAIL;
  }
  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(annotation.Get(), light))) {
    (void)SetTPSValues(light.Get(), element);
    double value = 0.0;
    (void)VEKReadNumber(element.GetAttributeView("Val"), value, element);
    (void)annotation->SetValue(value);
    // Any non-zero "Def" marks the annotation as default with the flag 1.
    if (ReadIntAttribute(element, "Def", 0) != 0) (void)annotation->SetDefault(1);
    (void)vek_parser_detail::VEKSetReference(
        *annotation.Get(), ReadIntAttribute(element, "Ref", 0),
        {element, VEKTPSLightKindAnnotation, annotation.Get(), " as its reference"});
    VEKPassWide(element.GetAttributeView("Att"),
                [&](const wchar_t* text) { (void)annotation->SetAttribute(text); });
    light.Reset();
  }

  VEKUnicodeString representationType(GraphicRepType());
  VEKRep* representation = nullptr;
  if (VEKSucceeded(ReadRep(element, representationType, &representation))) {
    (void)annotation->SetRep(representation);
  }

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const std::string_view name = child.GetNameView();
    if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindAnnotation, annotation.Get()};
      VEKForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*annotation.Get(), id, by); });
    } else if (name == "Grou") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      VEKListValVEKUnicodeString group;
      VEKForEachInt(ids, [&](int id) {
        if (id <= 0) return;
        VEKUnicodeString text;
        (void)text.BuildFromNum(id, "%d");
        (void)group.Append(text);
      });
      // One entry per "Grou", a null one included, keeps the pairing with annotations aligned.
      std::unique_ptr<VEKListValVEKUnicodeString> entry(new (std::nothrow)
                                                            VEKListValVEKUnicodeString(group));
      vek_parser_detail::VEKNoteGroupSource(entry.get(), child);
      if (VEKSucceeded(orderGroups->Append(entry.get()))) (void)entry.release();
    }
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateNewViews(VEKTPSLightContainer* container,
                                                VEKITPSLightSet* set,
                                                VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKBuildChildren(*this, &VEKTPSLightParserUtil::BuildNewView, container, set, element, "TPSView");
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewView(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                            VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKComPtr<VEKITPSLightView> view;
  if (VEKFailed(container->CreateView(view.ReleaseAndGetAddressOf(), set)) || !view) return E_FAIL;
  {
    VEKComPtr<VEKITPSLight> light;
    if (VEKSucceeded(VEKQueryInterface(view.Get(), light)))
      (void)SetTPSValues(light.Get(), element);
  }

  // Only the first "TPSs" is read; the annotations it names are linked both ways.
  if (VEKLightXmlElementItf* shown = vek_parser_detail::VEKFirstChildNamed(element, "TPSs")) {
    VEKRawCollint ids(0);
    (void)ReadListInt(*shown, ids);
    VEKComPtr<VEKITPSIdBroker> broker;
    if (ids.Size() > 0 && VEKSucceeded(VEKQueryInterface(set, broker)) && broker) {
      const VEKReference by{*shown, VEKTPSLightKindView, view.Get()};
      VEKForEachFoundObject(
          *broker.Get(), ids, VEKTPSLightKindAnnotation, by,
          [&](VEKBaseUnknown* found) { vek_parser_detail::VEKShowAnnotation(*view.Get(), found); });
    }
  }

  // Vectors count only inside "Math"; a number that cannot be read is passed on as 0.0.
  static constexpr vek_parser_detail::VEKNamedVector<VEKITPSLightView> kVectors[] = {
      {"Or", &VEKITPSLightView::SetOrigin},
      {"No", &VEKITPSLightView::SetNormal},
      {"Di", &VEKITPSLightView::SetDirection},
  };
  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    if (child.GetNameView() == "Math") SetNamedVectors(*this, child, *view.Get(), kVectors, false);
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateNewRefFrame(VEKTPSLightContainer* container,
                                                   VEKITPSLightSet* set,
                                                   VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKBuildChildren(*this, &VEKTPSLightParserUtil::BuildNewRefFrame, container, set, element,
                   "RefFrame");
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewRefFrame(VEKTPSLightContainer* container,
                                                VEKITPSLightSet* set,
                                                VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKComPtr<VEKITPSLightRefFrame> frame;
  if (VEKFailed(container->CreateRefFrame(frame.ReleaseAndGetAddressOf(), set)) || !frame)
    return E_FAIL;
  {
    VEKComPtr<VEKITPSLight> light;
    if (VEKSucceeded(VEKQueryInterface(frame.Get(), light))) {
      (void)SetTPSValues(light.Get(), element);
      VEKPassWide(element.GetAttributeView("Att"),
                  [&](const wchar_t* text) { (void)frame->SetAttribute(text); });
    }
  }

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const std::string_view name = child.GetNameView();
    if (name == "Datum") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      if (ids.Size() == 0) return;
      // Datums are annotations already built in this set; the broker is asked once per child.
      VEKComPtr<VEKITPSIdBroker> broker;
      if (VEKFailed(VEKQueryInterface(set, broker)) || !broker) return;
      VEKForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindAnnotation,
                            {child, VEKTPSLightKindRefFrame, frame.Get(), " as a datum"},
                            [&](VEKBaseUnknown* found) { (void)frame->AddDatum(found); });
    } else if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindRefFrame, frame.Get()};
      VEKForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*frame.Get(), id, by); });
    }
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateNewCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                             VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKBuildChildren(*this, &VEKTPSLightParserUtil::BuildNewCG, container, set, element, "TPSCG");
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                          VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKComPtr<VEKITPSLightCG> geometry;
  if (VEKFailed(container->CreateCG(geometry.ReleaseAndGetAddressOf(), set)) || !geometry)
    return E_FAIL;
  // Stricter than its siblings: an object without the common face is left empty and reported.
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(VEKQueryInterface(geometry.Get(), light)) || !light) return E_FAIL;
  (void)SetTPSValues(light.Get(), element);
  VEKPassWide(element.GetAttributeView("Att"),
              [&](const wchar_t* text) { (void)geometry->SetAttribute(text); });

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const std::string_view name = child.GetNameView();
    if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindCG, geometry.Get()};
      VEKForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*geometry.Get(), id, by); });
    } else if (name == "TRep") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      VEKForEachInt(ids, [&](int id) { (void)geometry->AddTRep(id); });
    }
  });
  light.Reset();
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GenerateNewCapture(VEKTPSLightContainer* container,
                                                  VEKITPSLightSet* set,
                                                  VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKBuildChildren(*this, &VEKTPSLightParserUtil::BuildNewCapture, container, set, element,
                   "TPSCap");
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::BuildNewCapture(VEKTPSLightContainer* container,
                                               VEKITPSLightSet* set,
                                               VEKLightXmlElementItf& element) {
  if (!set || !container) return E_FAIL;
  VEKComPtr<VEKITPSLightCapture> capture;
  if (VEKFailed(container->CreateCapture(capture.ReleaseAndGetAddressOf(), set)) || !capture) {
    return E_FAIL;
  }
  // Without a broker nothing of the capture is read, not even its identification.
  VEKComPtr<VEKITPSIdBroker> broker;
  if (VEKFailed(VEKQueryInterface(set, broker)) || !broker) return S_OK;

  VEKComPtr<VEKITPSLight> light;
  if (VEKSucceeded(VEKQueryInterface(capture.Get(), light))) {
    (void)SetTPSValues(light.Get(), element);
    vek_parser_detail::VEKLinkActiveView(*broker.Get(), *capture.Get(),
                                         ReadIntAttribute(element, "ActVie", 0), element);
    (void)capture->SetClippingPlane(ReadIntAttribute(element, "ClipPla", 0));
    light.Reset();
  }

  VEKUnicodeString representationType(GraphicRepType());
  VEKRep* representation = nullptr;
  if (VEKSucceeded(ReadRep(element, representationType, &representation))) {
    (void)capture->SetRep(representation);
  }

  void* position = element.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = element.GetChild(position);
    if (!child) break;
    const std::string_view name = child->GetNameView();
    if (const CaptureList* list = CaptureListNamed(name)) {
      VEKRawCollint ids(0);
      (void)ReadListInt(*child, ids);
      VEKForEachFoundObject(
          *broker.Get(), ids, list->kind, {*child, VEKTPSLightKindCapture, capture.Get()},
          [&](VEKBaseUnknown* found) { (void)(capture.Get()->*list->add)(found); });
    } else if (name == "Cam") {
      (void)capture->SetCameraType(ReadIntAttribute(*child, "Type", 0));
      static constexpr vek_parser_detail::VEKNamedVector<VEKITPSLightCapture> kCamera[] = {
          {"Po", &VEKITPSLightCapture::SetCameraPosition},
          {"Di", &VEKITPSLightCapture::SetCameraDirection},
          {"Ze", &VEKITPSLightCapture::SetCameraZenith},
          {"Ta", &VEKITPSLightCapture::SetCameraTarget},
      };
      // Not reset between vectors: one whose text cannot be read repeats the previous numbers.
      SetNamedVectors(*this, *child, *capture.Get(), kCamera, true);
      // The camera closes the capture: any later child is deliberately not read.
      break;
    }
  }
  return S_OK;
}
