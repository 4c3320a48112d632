// One set of the model as current-schema XML: its "AnnotationSet" element and its family roots.
#pragma once

#include <vector>

#include "VEKLightXml.h"
#include "VEKTPSLightModel.h"
#include "VEKTPSLightWriter.h"

namespace vek_parser_detail {

// Writes `set` (the `setIndex`-th of the document) into `xml` and appends to `warnings` what the
// document cannot keep of it, in the order the load reads the document. May throw std::bad_alloc.
void VEKWriteSetXml(VEKITPSLightSet& set, int setIndex, VEKLightXmlWriter& xml,
                    std::vector<VEKTPSLightWriteWarning>& warnings);

}  // namespace vek_parser_detail
