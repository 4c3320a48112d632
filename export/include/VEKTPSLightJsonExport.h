// JSON export of the model that one load produced.
#pragma once

#include <string>
#include <utility>
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

// The same for a whole document of the one-call load; E_FAIL when it has no schema (it did not
// parse to a known root).
VEK_API HRESULT VEKExportDocumentToJson(const VEKTPSLightDocument& document, bool pretty,
                                        std::string& json) noexcept;

// One CSV table per family of a load's sets ("annotations.csv", "ttrs.csv", "views.csv",
// "ref_frames.csv", "cgs.csv", "captures.csv", in that order), as (file name, text) pairs. Each
// row is one object with the members of its JSON export (RFC 4180 quoting, UTF-8, lines ending in
// CRLF): a first column "set" (1-based), then one column per member; nested members are flattened
// ("camera.position"), lists written as their items separated by spaces (TTRS geometry lists by
// "; "), vectors as "x y z", never-set values as empty cells and links as the linked objects' ids.
// `onlySet` (1-based) keeps one set; 0 keeps all. A family without objects gives a header only.
// Returns S_OK, E_INVALIDARG for an `onlySet` beyond the sets, or E_OUTOFMEMORY.
VEK_API HRESULT
VEKExportLoadToCsv(VEKITPSLightSet* lastSet, int onlySet,
                   std::vector<std::pair<std::string, std::string>>& tables) noexcept;
