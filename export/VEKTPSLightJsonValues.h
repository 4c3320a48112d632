// How model values are written as JSON, by the exports and by the glTF scene's extras alike: a
// value never set is null, a vector is [x, y, z], a linked object is its id.
#pragma once

#include <optional>

#include <nlohmann/json.hpp>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"

namespace vek_json {

// The export keeps members in order; the scene's JSON uses sorted objects (any nlohmann type will
// do).
using Json = nlohmann::ordered_json;

template <class Out = Json, class T>
Out Optional(const std::optional<T>& value) {
  return value ? Out(*value) : Out(nullptr);
}

template <class Out = Json>
Out Optional(const std::optional<VEKUnicodeString>& value) {
  return value ? Out(value->ConvertToChar()) : Out(nullptr);
}

template <class Out = Json>
Out Optional(const std::optional<VEKVector3>& value) {
  return value ? Out::array({value->x, value->y, value->z}) : Out(nullptr);
}

// A linked object is written as its id; null when it has none.
template <class Out = Json>
Out IdOf(VEKBaseUnknown* object) {
  VEKComPtr<VEKITPSLight> light;
  if (!object ||
      VEKFailed(object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf())))
    return nullptr;
  return Optional<Out>(light->GetId());
}

template <class Out = Json>
Out Ids(const VEKLightObjectList& list) {
  Out ids = Out::array();
  for (int position = 0; position < list.Count(); ++position)
    ids.push_back(IdOf<Out>(list.Get(position)));
  return ids;
}

}  // namespace vek_json
