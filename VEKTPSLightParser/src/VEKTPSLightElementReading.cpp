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
using vek_parser_detail::VEKForEachChild;
using vek_parser_detail::VEKPassWide;
using vek_parser_detail::VEKQueryInterface;
using vek_parser_detail::VEKReadNumber;

namespace {

const VEKUnicodeString& Blank() {
  static const VEKUnicodeString blank(" ");
  return blank;
}

}  // namespace

HRESULT VEKTPSLightParserUtil::FoundRootNode(VEKLightXmlElementItf& parent, VEKUnicodeString name,
                                             VEKLightXmlElementItf& found) {
  // Direct children only: the cost stays bounded by the parent's own child count.
  void* position = parent.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = parent.GetChild(position);
    if (!child) break;
    if (child->GetName() == name) {
      (void)found.SetElement(child);
      return S_OK;
    }
  }
  return E_FAIL;
}

HRESULT VEKTPSLightParserUtil::GetNodeValue(VEKLightXmlElementItf& element,
                                            VEKListValVEKUnicodeString* values) {
  if (!values) return E_FAIL;
  const VEKUnicodeString valueName("V");
  const VEKUnicodeString absent;
  VEKForEachChild(element, [&](VEKLightXmlElementItf& child) {
    if (child.GetName().GetLengthInChar() == 0) return;
    (void)values->Append(child.GetAttributeValue(valueName, absent));
  });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::GetListOfUnicode(VEKUnicodeString text, VEKUnicodeString separator,
                                                VEKListValVEKUnicodeString* items) {
  if (!items) return E_FAIL;
  const int length = text.GetLengthInChar();
  if (length <= 0) return S_OK;
  // The first character never belongs to an item: data is expected to open with the separator.
  int start = 1;
  for (;;) {
    const int found = text.SearchSubString(separator, start, VEKUnicodeString::VEKSearchForward);
    if (found < 0) {
      // No separator left: the whole input, not the remainder, becomes the last item.
      (void)items->Append(text);
      break;
    }
    if (start < found) {
      VEKUnicodeString piece = text.SubString(start, found - start);
      if (piece.GetLengthInChar() > 0) (void)items->Append(piece);
    }
    start = found + 1;
    if (start >= length) break;
  }
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadTPSId(VEKLightXmlElementItf& element, VEKUnicodeString& name,
                                         VEKUnicodeString& uuid) {
  static const VEKUnicodeString kTPSId("TPSId");
  static const VEKUnicodeString kName("Name");
  static const VEKUnicodeString kUuid("Uuid");
  VEKLightXmlElement identity;
  if (VEKFailed(FoundRootNode(element, kTPSId, identity))) return S_OK;
  name = identity.GetAttributeValue(kName);
  uuid = identity.GetAttributeValue(kUuid);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadTPSLoc(VEKLightXmlElementItf& element, int& type, int& id,
                                          int& status) {
  static const VEKUnicodeString kTPSLoc("TPSLoc");
  static const VEKUnicodeString kType("Type");
  static const VEKUnicodeString kId("Id");
  static const VEKUnicodeString kStatus("Status");
  VEKLightXmlElement location;
  if (VEKFailed(FoundRootNode(element, kTPSLoc, location))) return S_OK;
  // A missing or non-numeric attribute leaves its target as the caller set it.
  (void)VEKReadNumber(location.GetAttributeValue(kType), type, location);
  (void)VEKReadNumber(location.GetAttributeValue(kId), id, location);
  (void)VEKReadNumber(location.GetAttributeValue(kStatus), status, location);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadListInt(VEKLightXmlElementItf& element, VEKRawCollint& values) {
  const VEKUnicodeString& text = element.GetValue();
  const int length = text.GetLengthInChar();
  if (length == 0) return S_OK;
  // Zero is dropped on purpose, whether written "0" or produced by an empty or non-numeric piece.
  auto appendPiece = [&values, &element](const VEKUnicodeString& piece) {
    int number = 0;
    (void)VEKReadNumber(piece, number, element);
    if (number != 0) (void)values.Append(number);
  };
  int start = 0;
  for (;;) {
    const int found = text.SearchSubString(Blank(), start, VEKUnicodeString::VEKSearchForward);
    if (found < 0) {
      VEKUnicodeString tail = text.SubString(start, length - start);
      if (tail.GetLengthInChar() > 0) appendPiece(tail);
      break;
    }
    appendPiece(text.SubString(start, found - start));
    start = found + 1;
  }
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadMath(VEKLightXmlElementItf& element, double& x, double& y,
                                        double& z) {
  const VEKUnicodeString& text = element.GetValue();
  const int length = text.GetLengthInChar();
  if (length == 0) return S_OK;
  // Exactly one blank between the three numbers is the expected form. With fewer blanks a
  // search yields -1 and the clamped pieces come out empty, leaving their numbers as they were.
  const int first = text.SearchSubString(Blank(), 0, VEKUnicodeString::VEKSearchForward);
  (void)VEKReadNumber(text.SubString(0, first), x, element);
  const int second = text.SearchSubString(Blank(), first + 1, VEKUnicodeString::VEKSearchForward);
  (void)VEKReadNumber(text.SubString(first + 1, second - (first + 1)), y, element);
  (void)VEKReadNumber(text.SubString(second + 1, length - (second + 1)), z, element);
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::ReadRep(VEKLightXmlElementItf& element, VEKUnicodeString& type,
                                       VEKRep** rep) {
  if (!rep) return E_FAIL;
  static const VEKUnicodeString kType("Type");
  static const VEKUnicodeString kBuf("Buf");
  void* position = element.GetChildren();
  while (position) {
    VEKLightXmlElementItf* child = element.GetChild(position);
    if (!child) break;
    if (child->GetName() != "Rep" || child->GetAttributeValue(kType) != type) continue;

    // The first matching "Rep" decides, whatever becomes of it.
    VEKLightXmlElement buffer;
    if (VEKFailed(FoundRootNode(*child, kBuf, buffer))) return E_FAIL;
    const VEKUnicodeString& text = buffer.GetValue();
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

namespace {

// The identity and location every object carries; what an element lacks keeps these defaults.
struct VEKCommonValues {
  VEKUnicodeString name;
  VEKUnicodeString uuid;
  int type = 0;
  int id = 0;
  int status = 0;
};

VEKCommonValues ReadCommonValues(VEKTPSLightParserUtil& parser, VEKLightXmlElementItf& element) {
  VEKCommonValues values;
  (void)parser.ReadTPSId(element, values.name, values.uuid);
  (void)parser.ReadTPSLoc(element, values.type, values.id, values.status);
  return values;
}

}  // namespace

HRESULT VEKTPSLightParserUtil::SetTPSSetValues(VEKITPSLightSet* set,
                                               VEKLightXmlElementItf& element) {
  if (!set) return E_FAIL;
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(set->QueryInterface(IID_VEKITPSLight, light.ReleaseAndGetVoidAddressOf())) ||
      !light) {
    return S_OK;
  }
  const VEKCommonValues values = ReadCommonValues(*this, element);
  // The set keeps no id of its own: the location's id is read but not passed on.
  VEKPassWide(values.name, [&](const wchar_t* text) { (void)light->SetName(text); });
  VEKPassWide(element.GetAttributeValue("Standard"),
              [&](const wchar_t* text) { (void)set->SetStandard(text); });
  (void)light->SetType(static_cast<unsigned short>(values.type));
  (void)light->SetStatus(static_cast<unsigned short>(values.status));
  VEKPassWide(values.uuid, [&](const wchar_t* text) { (void)light->SetUuid(text); });
  return S_OK;
}

HRESULT VEKTPSLightParserUtil::SetTPSValues(VEKITPSLight* object, VEKLightXmlElementItf& element) {
  if (!object) return E_FAIL;
  const VEKCommonValues values = ReadCommonValues(*this, element);
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
