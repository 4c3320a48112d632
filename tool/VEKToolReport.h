// What the commands print about a loaded document. Everything they say comes from the document:
// the load's status, error and diagnostics; the tool derives no rule of the parser.
#pragma once

#include <string>

#include "VEKTPSLightDocument.h"

// Why a load gave no model, in one line (without the file name); empty when it loaded.
std::string VEKToolFailure(const VEKTPSLightDocument& document);

// The summary of one document as a text table, headed by `path`.
std::string VEKToolSummaryText(const std::string& path, const VEKTPSLightDocument& document);
// The summary of one document as one line of JSON.
std::string VEKToolSummaryJson(const std::string& path, const VEKTPSLightDocument& document);

// The problems of one document, one line each, prefixed with `path`; empty when there are none.
std::string VEKToolCheckText(const std::string& path, const VEKTPSLightDocument& document);
