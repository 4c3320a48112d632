// VEKTPSLightParser: reads XML documents of functional tolerancing and annotation data into the
// light annotation model.
#pragma once

#include "VEKBaseUnknown.h"
#include "VEKLightXml.h"
#include "VEKLists.h"
#include "VEKSceneGraph.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"
#include "VEKUnicodeString.h"

// Interface identifiers of the light model, exported as data.
extern VEK_API const IID IID_VEKITPSLightModel;
extern VEK_API const IID IID_VEKITPSIdBroker;
extern VEK_API const IID IID_VEKITPSLight;
extern VEK_API const IID IID_VEKITPSLightView;

// The parser. It holds no data and keeps no state between calls: one instance serves any number
// of loads. Every operation is silent and returns a result code; none throws.
class VEK_API VEKTPSLightParserUtil {
 public:
  VEKTPSLightParserUtil();
  virtual ~VEKTPSLightParserUtil();

  // Loads a current-schema document ("Functional_Tolerancing_Annotation") given as compressed
  // bytes (when compressedData is non-null and both sizes are non-zero), as base64 text
  // (fromBase64 == 1) or as plain text. The set is returned through *set with one reference for
  // the caller. Returns the result of the last set creation, or E_FAIL when no set was made.
  // compressedSize must not exceed the bytes of the caller's buffer at compressedData: the
  // inflater reads that many. An uncompressedSize above 1032 times compressedSize is refused.
  HRESULT GenerateLightModelFromBase(VEKUnicodeString& source, VEKBaseUnknown* father,
                                     VEKITPSLightSet** set, unsigned char fromBase64,
                                     char* compressedData, int uncompressedSize,
                                     int compressedSize);
  // Loads a legacy-schema document ("TolerancingData") given as zero-terminated text. Returns 0
  // when at least one set was fully handled, otherwise E_FAIL.
  HRESULT GenerateLightModel(const char* xmlText, VEKBaseUnknown* father, VEKITPSLightSet** set);
  // Writes `element` and everything under it as XML to `fileName`, replacing the file. Returns 0
  // (also when the file cannot be opened), E_FAIL for an empty name.
  HRESULT GenerateFile(VEKUnicodeString& fileName, VEKLightXmlElementItf& element);

  // Current-schema builders: Generate... walks a family root, Build... makes one object.
  HRESULT GenerateNewTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                          VEKLightXmlElementItf& element);
  HRESULT BuildNewTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                       VEKLightXmlElementItf& element);
  HRESULT GenerateNewAnnotations(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                                 VEKLightXmlElementItf& element);
  HRESULT BuildNewAnnotation(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                             VEKLightXmlElementItf& element, VEKRawCollPV* orderGroups);
  HRESULT GenerateNewViews(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                           VEKLightXmlElementItf& element);
  HRESULT BuildNewView(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                       VEKLightXmlElementItf& element);
  HRESULT GenerateNewRefFrame(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                              VEKLightXmlElementItf& element);
  HRESULT BuildNewRefFrame(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                           VEKLightXmlElementItf& element);
  HRESULT GenerateNewCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                        VEKLightXmlElementItf& element);
  HRESULT BuildNewCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                     VEKLightXmlElementItf& element);
  HRESULT GenerateNewCapture(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                             VEKLightXmlElementItf& element);
  HRESULT BuildNewCapture(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                          VEKLightXmlElementItf& element);

  // Values common to every object: the set's own ("AnnotationSet"), and any object's.
  HRESULT SetTPSSetValues(VEKITPSLightSet* set, VEKLightXmlElementItf& element);
  HRESULT SetTPSValues(VEKITPSLight* object, VEKLightXmlElementItf& element);

  // Typed readers; outputs they do not reach keep the caller's values.
  HRESULT ReadTPSId(VEKLightXmlElementItf& element, VEKUnicodeString& name, VEKUnicodeString& uuid);
  HRESULT ReadTPSLoc(VEKLightXmlElementItf& element, int& type, int& id, int& status);
  HRESULT ReadListInt(VEKLightXmlElementItf& element, VEKRawCollint& values);
  HRESULT ReadMath(VEKLightXmlElementItf& element, double& x, double& y, double& z);
  HRESULT ReadRep(VEKLightXmlElementItf& element, VEKUnicodeString& type, VEKRep** rep);

  // Navigation and splitting.
  HRESULT FoundRootNode(VEKLightXmlElementItf& parent, VEKUnicodeString name,
                        VEKLightXmlElementItf& found);
  HRESULT GetNodeValue(VEKLightXmlElementItf& element, VEKListValVEKUnicodeString* values);
  HRESULT GetListOfUnicode(VEKUnicodeString text, VEKUnicodeString separator,
                           VEKListValVEKUnicodeString* items);

  // Legacy-schema builders.
  HRESULT GenerateTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                       VEKLightXmlElementItf& element);
  HRESULT BuildTTRS(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                    VEKLightXmlElementItf& element);
  HRESULT GenerateAnnotations(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                              VEKLightXmlElementItf& element);
  HRESULT BuildAnnotation(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                          VEKLightXmlElementItf& element, VEKRawCollPV* orderGroups);
  // Links each annotation of `set` (by creation position) to the group of ids collected for it.
  HRESULT AssoTPSOrderGroup(VEKITPSLightSet* set, VEKRawCollPV groups);
  HRESULT GenerateViews(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                        VEKLightXmlElementItf& element);
  HRESULT BuildView(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                    VEKLightXmlElementItf& element);
  HRESULT GenerateRefFrame(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                           VEKLightXmlElementItf& element);
  HRESULT BuildRefFrame(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                        VEKLightXmlElementItf& element);
  HRESULT GenerateCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                     VEKLightXmlElementItf& element);
  HRESULT BuildCG(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                  VEKLightXmlElementItf& element);
  HRESULT GenerateCapture(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                          VEKLightXmlElementItf& element);
  HRESULT BuildCapture(VEKTPSLightContainer* container, VEKITPSLightSet* set,
                       VEKLightXmlElementItf& element);
};

// Module marker: returns 1.
extern "C" VEK_API int TORVALE_RIMKIT_INTERNAL_VEKTPSLightParser();
