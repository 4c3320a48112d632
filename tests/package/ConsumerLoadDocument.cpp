// Loading through the one-call load: any form and schema, found from the file's bytes, and no
// file written.
#include "ConsumerLoad.h"
#include "VEKTPSLightDocument.h"

ConsumerLoad LoadDocument(const char* path) {
  ConsumerLoad load;
  const VEKTPSLightDocument document = VEKLoadDocumentFile(path);
  load.result = document.Result();
  // The last set holds the earlier ones of the load.
  if (!document.Sets().empty()) load.lastSet = document.Sets().back();
  return load;
}
