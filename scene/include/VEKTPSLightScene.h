// One binary glTF 2.0 scene (GLB) of the annotation sets of a load, for any glTF viewer.
//
// The scene's root nodes are the sets, in order; under a set, one node per family ("ttrs",
// "annotations", "views", "refFrames", "cgs", "captures", each present when it holds a node);
// under a family, one node per object that has something to show: every view and every capture,
// and every other object with a graphic. An object's graphics hang below its node as a node named
// "graphic" (an annotation's or capture's own graphic) or "rep" (VEKITPSLight::GetRep) holding
// the node trees of that GLB blob, with their transforms, meshes, materials and textures intact.
//
// Extras (glTF's member for application data):
// - set node: {"set": position, "id", "name", "standard"};
// - object node: {"family", "set", "index" (position in the family's list), "id", "name",
//   "type"}, for annotations also "value", "default", "attribute", "reference", "ttrs", "views",
//   "orderGroup", for views "origin", "normal", "direction", "annotations", "captures"; links are
//   the linked objects' ids, values never set are null;
// - a capture's camera node (a perspective camera, yfov kVEKSceneFieldOfView, at the capture's
//   position looking along its direction, or towards its target when it has no direction, with
//   its zenith as up): {"capture" (id), "cameraType", "target", "annotations", "views", "cgs",
//   "activeView", "clipping"}. A capture whose camera cannot be placed (no position, no direction
//   or target, a value that is not finite) has no camera node.
// glTF has no clipping planes and no visibility per camera: a viewer reads what a capture shows
// and its clipping setting from these extras.
#pragma once

#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

// Vertical field of view of every capture's camera, in radians (the model gives none).
constexpr double kVEKSceneFieldOfView = 0.7853981633974483;

// What one scene holds.
struct VEKTPSLightSceneCounts {
  int objects = 0;   // object nodes
  int cameras = 0;   // capture cameras
  int graphics = 0;  // GLB blobs carried
  // GLB blobs left out: blobs the scene cannot carry faithfully (required extensions, data
  // outside their BIN chunk, sparse accessors) or whose indices, offsets or counts are out of
  // range.
  int skipped = 0;
};

// Writes the scene of `sets` (null entries are passed over) as a GLB into `glb`, framed by
// VEKWriteGlb, with one BIN buffer. S_OK; S_FALSE when some blob was left out (counts->skipped);
// E_OUTOFMEMORY, or E_FAIL when the scene passes 4 GiB: `glb` is then left as it was. `counts`
// may be null.
[[nodiscard]] VEK_API HRESULT VEKBuildScene(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets,
                                            std::vector<char>& glb,
                                            VEKTPSLightSceneCounts* counts = nullptr) noexcept;
