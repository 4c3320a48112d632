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
using vek_parser_detail::VEKOrderGroupLists;
using vek_parser_detail::VEKPassWide;
using vek_parser_detail::VEKQueryInterface;
using vek_parser_detail::VEKReadNumber;
using vek_parser_detail::VEKReference;

namespace {

// Reads the integer attribute `name` of `element` into a variable preset to `fallback`.
int ReadIntAttribute(const VEKLightXmlElementItf& element, const VEKUnicodeString& name,
                     int fallback) {
  int value = fallback;
  (void)VEKReadNumber(element.GetAttributeValue(name), value, element);
  return value;
}

// Looks each id of `ids` up in `broker` with `kind` and hands every object found to `use`;
// ids that resolve to nothing are passed over.
template <class Use>
void ForEachFoundObject(VEKITPSIdBroker& broker, const VEKRawCollint& ids, VEKTPSLightKind kind,
                        const VEKReference& by, Use&& use) {
  for (int position = 1; position <= ids.Size(); ++position) {
    VEKComPtr<VEKBaseUnknown> found;
    if (vek_parser_detail::VEKFindObject(broker, ids[position], kind, found, by)) use(found.Get());
  }
}

// Calls `use` with each integer of `ids`, in order.
template <class Use>
void ForEachInt(const VEKRawCollint& ids, Use&& use) {
  for (int position = 1; position <= ids.Size(); ++position) use(ids[position]);
}

// Names looked up on every object, made once.
const VEKUnicodeString& AttributeName() {
  static const VEKUnicodeString name("Att");
  return name;
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
    if (child.GetName() != "GeoP") return;
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
    if (child.GetName() == "TPS") (void)BuildNewAnnotation(container, set, child, &groups.Lists());
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
    static const VEKUnicodeString kValue("Val");
    static const VEKUnicodeString kDefault("Def");
    static const VEKUnicodeString kReference("Ref");
    double value = 0.0;
    (void)VEKReadNumber(element.GetAttributeValue(kValue), value, element);
    (void)annotation->SetValue(value);
    // Any non-zero "Def" marks the annotation as default with the flag 1.
    if (ReadIntAttribute(element, kDefault, 0) != 0) (void)annotation->SetDefault(1);
    (void)vek_parser_detail::VEKSetReference(
        *annotation.Get(), ReadIntAttribute(element, kReference, 0),
        {element, VEKTPSLightKindAnnotation, annotation.Get(), " as its reference"});
    VEKPassWide(element.GetAttributeValue(AttributeName()),
                [&](const wchar_t* text) { (void)annotation->SetAttribute(text); });
    light.Reset();
  }

  VEKUnicodeString representationType(GraphicRepType());
  VEKRep* representation = nullptr;
  if (VEKSucceeded(ReadRep(element, representationType, &representation))) {
    (void)annotation->SetRep(representation);
  }

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const VEKUnicodeString& name = child.GetName();
    if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindAnnotation, annotation.Get()};
      ForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*annotation.Get(), id, by); });
    } else if (name == "Grou") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      VEKListValVEKUnicodeString group;
      ForEachInt(ids, [&](int id) {
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
  static const VEKUnicodeString kShown("TPSs");
  VEKLightXmlElement shown;
  if (VEKSucceeded(FoundRootNode(element, kShown, shown))) {
    VEKRawCollint ids(0);
    (void)ReadListInt(shown, ids);
    VEKComPtr<VEKITPSIdBroker> broker;
    if (ids.Size() > 0 && VEKSucceeded(VEKQueryInterface(set, broker)) && broker) {
      const VEKReference by{shown, VEKTPSLightKindView, view.Get()};
      ForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindAnnotation, by,
                         [&](VEKBaseUnknown* found) {
                           VEKComPtr<VEKITPSLightModel> model;
                           if (VEKSucceeded(VEKQueryInterface(found, model)) && model) {
                             (void)model->SetView(view.Get());
                           }
                           model.Reset();
                           (void)view->AddTPS(found);
                         });
    }
  }

  // Vectors count only inside "Math"; a number that cannot be read is passed on as 0.0.
  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    if (child.GetName() != "Math") return;
    VEKForEachChild(child, [&](VEKLightXmlElementItf& vector) {
      double x = 0.0;
      double y = 0.0;
      double z = 0.0;
      const VEKUnicodeString& name = vector.GetName();
      if (name == "Or") {
        (void)ReadMath(vector, x, y, z);
        (void)view->SetOrigin(x, y, z);
      } else if (name == "No") {
        (void)ReadMath(vector, x, y, z);
        (void)view->SetNormal(x, y, z);
      } else if (name == "Di") {
        (void)ReadMath(vector, x, y, z);
        (void)view->SetDirection(x, y, z);
      }
    });
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
      VEKPassWide(element.GetAttributeValue(AttributeName()),
                  [&](const wchar_t* text) { (void)frame->SetAttribute(text); });
    }
  }

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const VEKUnicodeString& name = child.GetName();
    if (name == "Datum") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      if (ids.Size() == 0) return;
      // Datums are annotations already built in this set; the broker is asked once per child.
      VEKComPtr<VEKITPSIdBroker> broker;
      if (VEKFailed(VEKQueryInterface(set, broker)) || !broker) return;
      ForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindAnnotation,
                         {child, VEKTPSLightKindRefFrame, frame.Get(), " as a datum"},
                         [&](VEKBaseUnknown* found) { (void)frame->AddDatum(found); });
    } else if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindRefFrame, frame.Get()};
      ForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*frame.Get(), id, by); });
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
  VEKPassWide(element.GetAttributeValue(AttributeName()),
              [&](const wchar_t* text) { (void)geometry->SetAttribute(text); });

  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    const VEKUnicodeString& name = child.GetName();
    if (name == "TTRS") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      const VEKReference by{child, VEKTPSLightKindCG, geometry.Get()};
      ForEachInt(ids, [&](int id) { (void)VEKAddTTRS(*geometry.Get(), id, by); });
    } else if (name == "TRep") {
      VEKRawCollint ids(0);
      (void)ReadListInt(child, ids);
      ForEachInt(ids, [&](int id) { (void)geometry->AddTRep(id); });
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
    const int activeViewId = ReadIntAttribute(element, "ActVie", 0);
    VEKComPtr<VEKBaseUnknown> activeView;
    if (activeViewId != 0 &&
        vek_parser_detail::VEKFindObject(
            *broker.Get(), activeViewId, VEKTPSLightKindView, activeView,
            {element, VEKTPSLightKindCapture, capture.Get(), " as its active view"})) {
      // The active view learns of the capture first, then the capture of its view.
      VEKComPtr<VEKITPSLightView> view;
      if (VEKSucceeded(activeView->QueryInterface(IID_VEKITPSLightView,
                                                  view.ReleaseAndGetVoidAddressOf())) &&
          view) {
        VEKComPtr<VEKBaseUnknown> captureBase;
        if (VEKSucceeded(VEKQueryInterface(capture.Get(), captureBase)) && captureBase) {
          (void)view->AddCapture(captureBase.Get());
        }
        captureBase.Reset();
      }
      view.Reset();
      (void)capture->SetActiveView(activeView.Get());
      activeView.Reset();
    }
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
    const VEKUnicodeString& name = child->GetName();
    if (name == "TPSs" || name == "Views" || name == "CGs") {
      VEKRawCollint ids(0);
      (void)ReadListInt(*child, ids);
      const VEKReference by{*child, VEKTPSLightKindCapture, capture.Get()};
      if (name == "TPSs") {
        ForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindAnnotation, by,
                           [&](VEKBaseUnknown* found) { (void)capture->AddTPS(found); });
      } else if (name == "Views") {
        ForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindView, by,
                           [&](VEKBaseUnknown* found) { (void)capture->AddView(found); });
      } else {
        ForEachFoundObject(*broker.Get(), ids, VEKTPSLightKindCG, by,
                           [&](VEKBaseUnknown* found) { (void)capture->AddCG(found); });
      }
    } else if (name == "Cam") {
      (void)capture->SetCameraType(ReadIntAttribute(*child, "Type", 0));
      // Not reset between vectors: one whose text cannot be read repeats the previous numbers.
      double x = 0.0;
      double y = 0.0;
      double z = 0.0;
      VEKForEachChild(*child, [&](VEKLightXmlElementItf& vector) {
        const VEKUnicodeString& vectorName = vector.GetName();
        if (vectorName == "Po") {
          (void)ReadMath(vector, x, y, z);
          (void)capture->SetCameraPosition(x, y, z);
        } else if (vectorName == "Di") {
          (void)ReadMath(vector, x, y, z);
          (void)capture->SetCameraDirection(x, y, z);
        } else if (vectorName == "Ze") {
          (void)ReadMath(vector, x, y, z);
          (void)capture->SetCameraZenith(x, y, z);
        } else if (vectorName == "Ta") {
          (void)ReadMath(vector, x, y, z);
          (void)capture->SetCameraTarget(x, y, z);
        }
      });
      // The camera closes the capture: any later child is deliberately not read.
      break;
    }
  }
  return S_OK;
}
