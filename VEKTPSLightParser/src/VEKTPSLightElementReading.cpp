// Element reading: navigation in the parsed tree, value splitting, the typed readers and the
// setters of the values common to every object.
#include <climits>
#include <memory>

#include "VEKCodePage.h"
#include "VEKComPtr.h"
#include "VEKTPSLightParserInternal.h"
#include "VEKTPSLightParserUtil.h"
#include "VEKTPSLightRecorder.h"

using vek_parser_detail::VEKFindObject;
using vek_parser_detail::VEKFindText;
using vek_parser_detail::VEKFirstChildNamed;
using vek_parser_detail::VEKForEachListItem;
using vek_parser_detail::VEKForEachValue;
using vek_parser_detail::VEKPassWide;
using vek_parser_detail::VEKQueryInterface;
using vek_parser_detail::VEKReadNumber;
using vek_parser_detail::VEKSubView;

HRESULT VEKTPSLightParserUtil::FoundRootNode(VEKLightXmlElementItf& parent, VEKUnicodeString name,
                                             VEKLightXmlElementItf& found) {
  VEKLightXmlElementItf* child = VEKFirstChildNamed(parent, name.View());
  if (!child) return E_FAIL;
  (void)found.SetElement(child);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GetNodeValue(VEKLightXmlElementItf& element,
                                            VEKListValVEKUnicodeString* values) {
  if (!values) return E_FAIL;
  VEKForEachValue(element, [&](std::string_view value) {
    (void)values->Append(VEKUnicodeString(value.data(), value.size()));
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GetListOfUnicode(VEKUnicodeString text, VEKUnicodeString separator,
                                                VEKListValVEKUnicodeString* items) {
  if (!items) return E_FAIL;
  VEKForEachListItem(text.View(), separator.View(), [&](std::string_view item) {
    (void)items->Append(VEKUnicodeString(item.data(), item.size()));
  });
  return S_OK;
}

namespace {

// The identity and location every object carries; what an element lacks keeps these defaults.
struct VEKCommonValues {
  std::string_view name;
  std::string_view uuid;
  int type = 0;
  int id = 0;
  int status = 0;
};

void ReadIdentity(const VEKLightXmlElementItf& element, VEKCommonValues& values) {
  const VEKLightXmlElementItf* identity = VEKFirstChildNamed(element, "TPSId");
  if (!identity) return;
  values.name = identity->GetAttributeView("Name");
  values.uuid = identity->GetAttributeView("Uuid");
}

// A missing or non-numeric attribute leaves its target as it was.
void ReadLocation(const VEKLightXmlElementItf& element, VEKCommonValues& values) {
  const VEKLightXmlElementItf* location = VEKFirstChildNamed(element, "TPSLoc");
  if (!location) return;
  (void)VEKReadNumber(location->GetAttributeView("Type"), values.type, *location);
  (void)VEKReadNumber(location->GetAttributeView("Id"), values.id, *location);
  (void)VEKReadNumber(location->GetAttributeView("Status"), values.status, *location);
}

VEKCommonValues ReadCommonValues(const VEKLightXmlElementItf& element) {
  VEKCommonValues values;
  ReadIdentity(element, values);
  ReadLocation(element, values);
  return values;
}

}  // namespace

HRESULT VEKTPSLightParserUtil::ReadTPSId(VEKLightXmlElementItf& element, VEKUnicodeString& name,
                                         VEKUnicodeString& uuid) {
  if (!VEKFirstChildNamed(element, "TPSId")) return S_OK;
  VEKCommonValues values;
  ReadIdentity(element, values);
  name = VEKUnicodeString(values.name.data(), values.name.size());
  uuid = VEKUnicodeString(values.uuid.data(), values.uuid.size());
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadTPSLoc(VEKLightXmlElementItf& element, int& type, int& id,
                                          int& status) {
  VEKCommonValues values;
  values.type = type;
  values.id = id;
  values.status = status;
  ReadLocation(element, values);
  type = values.type;
  id = values.id;
  status = values.status;
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadListInt(VEKLightXmlElementItf& element, VEKRawCollint& values) {
  const std::string_view text = element.GetValueView();
  const int length = static_cast<int>(text.size());
  if (length == 0) return S_OK;
  // Zero is dropped on purpose, whether written "0" or produced by an empty or non-numeric piece.
  auto appendPiece = [&values, &element](std::string_view piece) {
    int number = 0;
    (void)VEKReadNumber(piece, number, element);
    if (number != 0) (void)values.Append(number);
  };
  int start = 0;
  for (;;) {
    const int found = VEKFindText(text, " ", start);
    if (found < 0) {
      const std::string_view tail = VEKSubView(text, start, length - start);
      if (!tail.empty()) appendPiece(tail);
      break;
    }
    appendPiece(VEKSubView(text, start, found - start));
    start = found + 1;
  }
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadMath(VEKLightXmlElementItf& element, double& x, double& y,
                                        double& z) {
  const std::string_view text = element.GetValueView();
  const int length = static_cast<int>(text.size());
  if (length == 0) return S_OK;
  // Exactly one blank between the three numbers is the expected form. With fewer blanks a
  // search yields -1 and the clamped pieces come out empty, leaving their numbers as they were.
  const int first = VEKFindText(text, " ", 0);
  (void)VEKReadNumber(VEKSubView(text, 0, first), x, element);
  const int second = VEKFindText(text, " ", first + 1);
  (void)VEKReadNumber(VEKSubView(text, first + 1, second - (first + 1)), y, element);
  (void)VEKReadNumber(VEKSubView(text, second + 1, length - (second + 1)), z, element);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadRep(VEKLightXmlElementItf& element, VEKUnicodeString& type,
                                       VEKRep** rep) {
  if (!rep) return E_FAIL;
  void* position = element.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = element.GetChild(position);
    if (!child) break;
    if (child->GetNameView() != "Rep" || child->GetAttributeView("Type") != type.View()) continue;

    // The first matching "Rep" decides, whatever becomes of it.
    const VEKLightXmlElementItf* buffer = VEKFirstChildNamed(*child, "Buf");
    if (!buffer) return E_FAIL;
    const VEKUnicodeString& text = buffer->GetValue();
    if (text.GetLengthInChar() == 0) return E_FAIL;
    const char* characters = text.ConvertToChar();
    if (!characters) return E_FAIL;
    unsigned char* decoded = nullptr;
    unsigned int decodedLength = 0;
    const int decodeResult = VEKCodePage::ConvertFromBase64(characters, decoded, decodedLength);
    std::unique_ptr<unsigned char[]> bytes(decoded);
    if (decodeResult < 0 || decodedLength > static_cast<unsigned int>(INT_MAX)) return E_FAIL;
    VEKRep* built =
        VEKReadSceneGraph(reinterpret_cast<char*>(bytes.get()), static_cast<int>(decodedLength));
    if (!built) return E_FAIL;
    *rep = built;
    return S_OK;
  }
  return E_FAIL;
}

HRESULT VEKTPSLightParserUtil::SetTPSSetValues(VEKITPSLightSet* set,
                                               VEKLightXmlElementItf& element) {
  if (!set) return E_FAIL;
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(set->QueryInterface(IID_VEKITPSLight, light.ReleaseAndGetVoidAddressOf())) ||
      !light) {
    return S_OK;
  }
  const VEKCommonValues values = ReadCommonValues(element);
  // The set keeps no id of its own: the location's id is read but not passed on.
  VEKPassWide(values.name, [&](const wchar_t* text) { (void)light->SetName(text); });
  VEKPassWide(element.GetAttributeView("Standard"),
              [&](const wchar_t* text) { (void)set->SetStandard(text); });
  (void)light->SetType(static_cast<unsigned short>(values.type));
  (void)light->SetStatus(static_cast<unsigned short>(values.status));
  VEKPassWide(values.uuid, [&](const wchar_t* text) { (void)light->SetUuid(text); });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::SetTPSValues(VEKITPSLight* object, VEKLightXmlElementItf& element) {
  if (!object) return E_FAIL;
  const VEKCommonValues values = ReadCommonValues(element);
  VEKPassWide(values.name, [&](const wchar_t* text) { (void)object->SetName(text); });
  VEKPassWide(values.uuid, [&](const wchar_t* text) { (void)object->SetUuid(text); });
  (void)object->SetType(static_cast<unsigned short>(values.type));
  (void)vek_parser_detail::VEKSetId(*object, values.id, element);
  (void)object->SetStatus(static_cast<unsigned short>(values.status));
  static const VEKUnicodeString kCommonRepType("3");
  VEKUnicodeString representationType(kCommonRepType);
  VEKRep* representation = nullptr;
  if (VEKSucceeded(ReadRep(element, representationType, &representation))) {
    (void)object->SetRep(representation);
  }
  return S_OK;
}

void vek_parser_detail::VEKLinkActiveView(VEKITPSIdBroker& broker, VEKITPSLightCapture& capture,
                                          int activeViewId,
                                          const VEKLightXmlElementItf& element) noexcept {
  VEKComPtr<VEKBaseUnknown> activeView;
  if (activeViewId == 0 ||
      !VEKFindObject(broker, activeViewId, VEKTPSLightKindView, activeView,
                     {element, VEKTPSLightKindCapture, &capture, " as its active view"})) {
    return;
  }
  VEKComPtr<VEKITPSLightView> view;
  if (VEKSucceeded(VEKQueryInterface(activeView.Get(), view)) && view) {
    VEKComPtr<VEKBaseUnknown> captureBase;
    if (VEKSucceeded(VEKQueryInterface(&capture, captureBase)) && captureBase) {
      (void)view->AddCapture(captureBase.Get());
    }
    captureBase.Reset();
  }
  view.Reset();
  (void)capture.SetActiveView(activeView.Get());
}
