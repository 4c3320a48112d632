// The one-call load of the input in whatever form and schema it is found to be, then what a host
// asks of the result: the links of every set and the world-space geometry of every graphic.
#include "FuzzSupport.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightLinks.h"

namespace {

void Draw(const VEKRep* rep) {
  if (!rep) return;
  std::vector<float> out;
  (void)VEKRepTriangles(*rep, out);
  (void)VEKRepLines(*rep, out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VEKTPSLightLoadOptions options;
  // A small document must not ask for a large model: the legacy sets multiply it.
  options.maxObjects = 20000;
  const VEKTPSLightDocument document = VEKLoadDocument(data, size, options);
  for (std::size_t k = 0; k < document.Sets().size(); ++k) {
    const VEKTPSLightLinks* links = document.Links(static_cast<int>(k));
    VEKITPSLightSet& set = *document.Sets()[k].Get();
    const VEKLightObjectList& annotations = *set.GetAnnotations();
    for (int position = 0; position < annotations.Count(); ++position) {
      VEKComPtr<VEKITPSLightAnnotation> annotation;
      if (VEKFailed(VEKComPtr<VEKBaseUnknown>(annotations.Get(position)).As(&annotation))) continue;
      if (links) (void)links->ReferencedBy(annotations.Get(position));
      for (const int ttrs : annotation->GetTTRS()) {
        if (links) (void)links->ResolveTTRS(ttrs);
      }
      Draw(annotation->GetGraphicRep());
    }
  }
  return 0;
}
