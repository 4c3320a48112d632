// The problems in a loaded document that a user can act on, for `vektps check`.
#pragma once

#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKToolInput.h"

// One problem, as a line of text without the file name ("line 12: ..." where the line is known).
struct VEKToolProblem {
  // Line of the document it concerns; 0 when none can be told.
  int line = 0;
  std::string text;
};

// The problems of `document` (parsed, schema known) after a load that made `sets` (in creation
// order): references that did not resolve, ids given twice, objects the load passed over. Each
// is placed at the element that causes it where the document tells it. Sorted by line, those
// without a line last, and without repeats. Empty for a clean document.
std::vector<VEKToolProblem> VEKToolFindProblems(
    const VEKToolDocument& document, const std::vector<VEKComPtr<VEKITPSLightSet>>& sets);

// The name of an object kind of the id broker ("annotation", "view", ...).
std::string VEKToolKindName(int kind);
