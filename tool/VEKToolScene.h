// vektps gltf and vektps view: the scene of a loaded document as binary glTF, and as one page that
// shows it in a browser with nothing fetched from the network.
#pragma once

#include <string>

#include "VEKTPSLightDocument.h"

enum class VEKToolSceneForm { Glb, Page };

// Writes the scene of `document`, loaded from `file`, to `path` ("-": standard output) in `form`.
// Returns the exit status: 0, or 1 when the document made no set or the scene could not be built
// or written (said on standard error, as is a graphic the scene could not carry).
int VEKToolWriteScene(const std::string& file, const VEKTPSLightDocument& document,
                      VEKToolSceneForm form, const std::string& path);
