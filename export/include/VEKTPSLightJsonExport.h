// JSON export of the model that one load produced.
#pragma once

#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

// Writes one load's result as a JSON object into `json`:
//   {"schema": "current"|"legacy", "result": "0x%08x", "sets": [SET, ...]}
// where the sets are every set the load created, in creation order (found through
// VEKITPSLightSet::GetPreviousSet from `lastSet`, which may be null), with every object, value and
// link; links are written as the linked object's id. `pretty` indents with two spaces. Returns
// S_OK, or E_OUTOFMEMORY / E_FAIL with `json` unchanged.
VEK_API HRESULT VEKExportLoadToJson(VEKTPSLightSchema schema, HRESULT loadResult,
                                    VEKITPSLightSet* lastSet, bool pretty,
                                    std::string& json) noexcept;
