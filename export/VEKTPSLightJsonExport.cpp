#include "VEKTPSLightJsonExport.h"

#include <cstdio>
#include <new>
#include <optional>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightJsonModel.h"
#include "VEKTPSLightJsonValues.h"

namespace {

using vek_json::IdOf;
using vek_json::Ids;
using vek_json::Json;
using vek_json::Optional;

Json Rep(const VEKRep* rep) {
  if (!rep) return nullptr;
  std::size_t primitives = 0;
  std::size_t vertices = 0;
  for (const VEKRepMesh& mesh : rep->GetMeshes()) {
    primitives += mesh.primitives.size();
    for (const VEKRepPrimitive& primitive : mesh.primitives)
      vertices += static_cast<std::size_t>(primitive.vertexCount);
  }
  return Json{{"nodes", rep->GetNodes().size()},
              {"meshes", rep->GetMeshes().size()},
              {"primitives", primitives},
              {"vertices", vertices},
              {"bytes", rep->GetBlobSize()}};
}

// The members every object shares, in export order.
Json Common(VEKBaseUnknown* object) {
  VEKComPtr<VEKITPSLight> light;
  if (VEKFailed(object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf()))) {
    return Json{{"id", nullptr},   {"name", nullptr},   {"uuid", nullptr},
                {"type", nullptr}, {"status", nullptr}, {"rep", nullptr}};
  }
  return Json{{"id", Optional(light->GetId())},         {"name", Optional(light->GetName())},
              {"uuid", Optional(light->GetUuid())},     {"type", Optional(light->GetType())},
              {"status", Optional(light->GetStatus())}, {"rep", Rep(light->GetRep())}};
}

void AddFamily(VEKITPSLightTTRS& ttrs, Json& out) {
  Json geometry = Json::array();
  for (int index = 0; index < ttrs.GetGeometryCount(); ++index) {
    const VEKRawCollint* ids = ttrs.GetGeometry(index);
    if (!ids) {
      geometry.push_back(nullptr);
      continue;
    }
    Json list = Json::array();
    for (int k = 1; k <= ids->Size(); ++k) list.push_back((*ids)[k]);
    geometry.push_back(std::move(list));
  }
  out["geometry"] = std::move(geometry);
}

void AddFamily(VEKITPSLightAnnotation& annotation, Json& out) {
  out["value"] = Optional(annotation.GetValue());
  out["default"] = annotation.IsDefault();
  out["reference"] = Optional(annotation.GetReference());
  out["attribute"] = Optional(annotation.GetAttribute());
  out["ttrs"] = annotation.GetTTRS();
  out["graphic"] = Rep(annotation.GetGraphicRep());
  VEKComPtr<VEKITPSLightModel> links;
  if (VEKSucceeded(
          annotation.QueryInterface(VEKITPSLightModel::kIID, links.ReleaseAndGetVoidAddressOf()))) {
    out["views"] = Ids(links->GetViews());
    const VEKLightObjectList* group = links->GetOrderGroup();
    out["orderGroup"] = group ? Ids(*group) : Json(nullptr);
  } else {
    out["views"] = Json::array();
    out["orderGroup"] = nullptr;
  }
}

void AddFamily(VEKITPSLightView& view, Json& out) {
  out["origin"] = Optional(view.GetOrigin());
  out["normal"] = Optional(view.GetNormal());
  out["direction"] = Optional(view.GetDirection());
  out["annotations"] = Ids(view.GetAnnotations());
  out["captures"] = Ids(view.GetCaptures());
}

void AddFamily(VEKITPSLightRefFrame& frame, Json& out) {
  out["attribute"] = Optional(frame.GetAttribute());
  out["datums"] = Ids(frame.GetDatums());
  out["ttrs"] = frame.GetTTRS();
}

void AddFamily(VEKITPSLightCG& cg, Json& out) {
  out["attribute"] = Optional(cg.GetAttribute());
  out["ttrs"] = cg.GetTTRS();
  out["treps"] = cg.GetTReps();
}

void AddFamily(VEKITPSLightCapture& capture, Json& out) {
  out["activeView"] = IdOf(capture.GetActiveView());
  out["clippingPlane"] = Optional(capture.GetClippingPlane());
  out["camera"] = Json{{"type", Optional(capture.GetCameraType())},
                       {"position", Optional(capture.GetCameraPosition())},
                       {"direction", Optional(capture.GetCameraDirection())},
                       {"zenith", Optional(capture.GetCameraZenith())},
                       {"target", Optional(capture.GetCameraTarget())}};
  out["annotations"] = Ids(capture.GetAnnotations());
  out["views"] = Ids(capture.GetViews());
  out["cgs"] = Ids(capture.GetCGs());
  out["graphic"] = Rep(capture.GetGraphicRep());
}

// Every object of one family list, each as its common members then its family's own.
template <class FamilyItf>
Json Family(const VEKLightObjectList& list) {
  Json objects = Json::array();
  for (int position = 0; position < list.Count(); ++position) {
    VEKComPtr<VEKBaseUnknown> object(list.Get(position));
    if (!object) continue;
    Json out = Common(object.Get());
    VEKComPtr<FamilyItf> family;
    if (VEKSucceeded(object.As(&family))) AddFamily(*family.Get(), out);
    objects.push_back(std::move(out));
  }
  return objects;
}

}  // namespace

nlohmann::ordered_json VEKJsonOfSet(VEKITPSLightSet& set) {
  VEKComPtr<VEKITPSLight> light;
  const bool hasLight =
      VEKSucceeded(set.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf()));
  Json out;
  out["name"] = hasLight ? Optional(light->GetName()) : Json(nullptr);
  out["standard"] = Optional(set.GetStandard());
  out["uuid"] = hasLight ? Optional(light->GetUuid()) : Json(nullptr);
  out["type"] = hasLight ? Optional(light->GetType()) : Json(nullptr);
  out["status"] = hasLight ? Optional(light->GetStatus()) : Json(nullptr);
  out["ttrs"] = Family<VEKITPSLightTTRS>(set.GetTTRS());
  VEKLightObjectList* annotations = set.GetAnnotations();
  out["annotations"] = annotations ? Family<VEKITPSLightAnnotation>(*annotations) : Json::array();
  out["views"] = Family<VEKITPSLightView>(set.GetViews());
  out["refFrames"] = Family<VEKITPSLightRefFrame>(set.GetRefFrames());
  out["cgs"] = Family<VEKITPSLightCG>(set.GetCGs());
  out["captures"] = Family<VEKITPSLightCapture>(set.GetCaptures());
  Json unresolved = Json::array();
  for (const VEKTPSLightUnresolved& missing : set.GetUnresolvedReferences())
    unresolved.push_back(Json{{"kind", missing.kind}, {"id", missing.id}});
  out["unresolved"] = std::move(unresolved);
  return out;
}

HRESULT VEKExportLoadToJson(VEKTPSLightSchema schema, HRESULT loadResult, VEKITPSLightSet* lastSet,
                            bool pretty, std::string& json) noexcept {
  try {
    std::vector<VEKComPtr<VEKITPSLightSet>> sets;
    if (VEKFailed(VEKGetSetsOfLoad(lastSet, sets))) return E_OUTOFMEMORY;

    char result[16];
    std::snprintf(result, sizeof result, "0x%08x", static_cast<unsigned>(loadResult));
    Json out;
    out["schema"] = schema == VEKTPSLightSchema::Current ? "current" : "legacy";
    out["result"] = result;
    out["sets"] = Json::array();
    for (const VEKComPtr<VEKITPSLightSet>& set : sets)
      out["sets"].push_back(VEKJsonOfSet(*set.Get()));

    json = out.dump(pretty ? 2 : -1);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

HRESULT VEKExportDocumentToJson(const VEKTPSLightDocument& document, bool pretty,
                                std::string& json) noexcept {
  const std::optional<VEKTPSLightSchema> schema = document.Schema();
  if (!schema) return E_FAIL;
  const auto& sets = document.Sets();
  return VEKExportLoadToJson(*schema, document.Result(), sets.empty() ? nullptr : sets.back().Get(),
                             pretty, json);
}
