// The JSON form of one set, shared by the JSON and CSV exports.
#pragma once

#include <nlohmann/json.hpp>

#include "VEKTPSLightModel.h"

// Every member of `set` and of its objects, in export order. Throws std::bad_alloc.
nlohmann::ordered_json VEKJsonOfSet(VEKITPSLightSet& set);
