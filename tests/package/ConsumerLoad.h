// What the host's loading code hands to the rest of the host. Each loading interface of the
// library has its own source file implementing LoadDocument, so moving the host to another
// interface replaces one file.
#pragma once

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

struct ConsumerLoad {
  HRESULT result = E_FAIL;
  // The last set the load made; the earlier ones are reached from it.
  VEKComPtr<VEKITPSLightSet> lastSet;
};

// Loads the document at `path`; a file that cannot be read gives a failure and no set.
ConsumerLoad LoadDocument(const char* path);
