#include "VEKTPSLightScene.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "VEKGlbWriter.h"
#include "VEKGltfCarrier.h"
#include "VEKTPSLightJsonValues.h"

namespace {

// Model values as the JSON export writes them.
template <class T>
VEKJson Optional(const std::optional<T>& value) {
  return vek_json::Optional<VEKJson>(value);
}
VEKJson IdOf(VEKBaseUnknown* object) { return vek_json::IdOf<VEKJson>(object); }
VEKJson Ids(const VEKLightObjectList& list) { return vek_json::Ids<VEKJson>(list); }

// The near plane of the capture cameras; with no far plane the projection is infinite.
constexpr double kNearPlane = 0.01;

struct Vector {
  double x, y, z;
};

Vector Subtract(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double Dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vector Cross(Vector a, Vector b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Vector Scale(Vector a, double factor) { return {a.x * factor, a.y * factor, a.z * factor}; }

// `a` scaled to length 1; nullopt when its length is 0 or not finite.
std::optional<Vector> Unit(Vector a) {
  const double length = std::sqrt(Dot(a, a));
  if (!(length > 1e-12) || !std::isfinite(length)) return std::nullopt;
  return Scale(a, 1 / length);
}

Vector FromModel(const VEKVector3& v) { return {v.x, v.y, v.z}; }

// The camera node's translation and rotation: at the position, its -Z axis along the direction
// (or towards the target), its +Y axis the zenith made perpendicular to it.
std::optional<VEKJson> CameraPose(const VEKITPSLightCapture& capture) {
  const std::optional<VEKVector3> position = capture.GetCameraPosition();
  if (!position) return std::nullopt;
  const Vector eye = FromModel(*position);
  std::optional<Vector> forward;
  if (const auto direction = capture.GetCameraDirection()) forward = Unit(FromModel(*direction));
  if (!forward) {
    if (const auto target = capture.GetCameraTarget())
      forward = Unit(Subtract(FromModel(*target), eye));
  }
  if (!forward || !std::isfinite(Dot(eye, eye))) return std::nullopt;
  const auto zenith = capture.GetCameraZenith();
  Vector up = zenith ? FromModel(*zenith) : Vector{0, 0, 1};
  std::optional<Vector> right = Unit(Cross(*forward, up));
  // A zenith along the direction (or none) leaves the roll free: any perpendicular axis will do.
  for (Vector axis : {Vector{0, 0, 1}, Vector{0, 1, 0}}) {
    if (!right) right = Unit(Cross(*forward, axis));
  }
  up = Cross(*right, *forward);
  // Columns of the rotation: right, up, -forward.
  const double m[3][3] = {
      {right->x, up.x, -forward->x}, {right->y, up.y, -forward->y}, {right->z, up.z, -forward->z}};
  double q[4];  // x, y, z, w
  const double trace = m[0][0] + m[1][1] + m[2][2];
  if (trace > 0) {
    const double s = 2 * std::sqrt(1 + trace);
    q[3] = s / 4;
    q[0] = (m[2][1] - m[1][2]) / s;
    q[1] = (m[0][2] - m[2][0]) / s;
    q[2] = (m[1][0] - m[0][1]) / s;
  } else {
    // The largest diagonal element keeps the square root away from zero.
    int i = 0;
    if (m[1][1] > m[i][i]) i = 1;
    if (m[2][2] > m[i][i]) i = 2;
    const int j = (i + 1) % 3, k = (i + 2) % 3;
    const double s = 2 * std::sqrt(1 + m[i][i] - m[j][j] - m[k][k]);
    q[i] = s / 4;
    q[j] = (m[j][i] + m[i][j]) / s;
    q[k] = (m[k][i] + m[i][k]) / s;
    q[3] = (m[k][j] - m[j][k]) / s;
  }
  const double norm = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  return VEKJson(
      {{"translation", VEKJson::array({eye.x, eye.y, eye.z})},
       {"rotation", VEKJson::array({q[0] / norm, q[1] / norm, q[2] / norm, q[3] / norm})}});
}

class SceneBuilder {
 public:
  SceneBuilder() : carrier_(gltf_, bin_) {
    gltf_["asset"] = VEKJson({{"version", "2.0"}, {"generator", "vektps"}});
    gltf_["scene"] = 0;
    gltf_["scenes"] = VEKJson::array({VEKJson({{"nodes", VEKJson::array()}})});
    gltf_["nodes"] = VEKJson::array();
    gltf_["cameras"] = VEKJson::array();
  }

  void AddSet(VEKITPSLightSet& set, int position) {
    VEKComPtr<VEKITPSLight> light;
    const bool named =
        VEKSucceeded(set.QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf()));
    const std::optional<VEKUnicodeString> name = named ? light->GetName() : std::nullopt;
    const std::size_t node = AddNode(
        VEKJson({{"name", name ? name->ConvertToChar() : "set " + std::to_string(position + 1)},
                 {"extras", VEKJson({{"set", position},
                                     {"id", named ? Optional(light->GetId()) : VEKJson(nullptr)},
                                     {"name", Optional(name)},
                                     {"standard", Optional(set.GetStandard())}})}}));
    gltf_["scenes"][0]["nodes"].push_back(node);
    AddFamily("ttrs", set.GetTTRS(), position, node);
    if (const VEKLightObjectList* annotations = set.GetAnnotations()) {
      AddFamily("annotations", *annotations, position, node);
    }
    AddFamily("views", set.GetViews(), position, node);
    AddFamily("refFrames", set.GetRefFrames(), position, node);
    AddFamily("cgs", set.GetCGs(), position, node);
    AddFamily("captures", set.GetCaptures(), position, node);
  }

  HRESULT Finish(std::vector<char>& glb, VEKTPSLightSceneCounts* counts) {
    if (!bin_.empty()) {
      bin_.resize((bin_.size() + 3) / 4 * 4);
      gltf_["buffers"] = VEKJson::array({VEKJson({{"byteLength", bin_.size()}})});
    }
    // glTF allows no empty arrays at the top level nor an empty list of scene nodes.
    for (auto item = gltf_.begin(); item != gltf_.end();) {
      item = item->is_array() && item->empty() ? gltf_.erase(item) : std::next(item);
    }
    if (gltf_["scenes"][0]["nodes"].empty()) gltf_["scenes"][0].erase("nodes");
    const std::string json = gltf_.dump(-1, ' ', false, VEKJson::error_handler_t::replace);
    switch (VEKWriteGlb(json, bin_.data(), bin_.size(), glb)) {
      case VEKGlbWriteResult::Written:
        break;
      case VEKGlbWriteResult::OutOfMemory:
        return E_OUTOFMEMORY;
      default:
        return E_FAIL;
    }
    if (counts) *counts = counts_;
    return counts_.skipped > 0 ? S_FALSE : S_OK;
  }

 private:
  std::size_t AddNode(VEKJson node) {
    VEKJson& nodes = gltf_["nodes"];
    nodes.push_back(std::move(node));
    return nodes.size() - 1;
  }

  void AddChild(std::size_t parent, std::size_t child) {
    gltf_["nodes"][parent]["children"].push_back(child);
  }

  void AddFamily(const char* family, const VEKLightObjectList& list, int set, std::size_t setNode) {
    std::optional<std::size_t> familyNode;
    const std::string name = family;
    for (int position = 0; position < list.Count(); ++position) {
      VEKBaseUnknown* object = list.Get(position);
      if (!object) continue;
      VEKComPtr<VEKITPSLight> light;
      (void)object->QueryInterface(VEKITPSLight::kIID, light.ReleaseAndGetVoidAddressOf());
      std::vector<std::pair<const char*, const VEKRep*>> graphics;
      VEKComPtr<VEKITPSLightAnnotation> annotation;
      VEKComPtr<VEKITPSLightCapture> capture;
      VEKComPtr<VEKITPSLightView> view;
      if (name == "annotations" &&
          VEKSucceeded(object->QueryInterface(VEKITPSLightAnnotation::kIID,
                                              annotation.ReleaseAndGetVoidAddressOf()))) {
        graphics.emplace_back("graphic", annotation->GetGraphicRep());
      }
      if (name == "captures" &&
          VEKSucceeded(object->QueryInterface(VEKITPSLightCapture::kIID,
                                              capture.ReleaseAndGetVoidAddressOf()))) {
        graphics.emplace_back("graphic", capture->GetGraphicRep());
      }
      if (name == "views") {
        (void)object->QueryInterface(VEKITPSLightView::kIID, view.ReleaseAndGetVoidAddressOf());
      }
      if (light) graphics.emplace_back("rep", light->GetRep());
      const bool hasGraphic =
          std::any_of(graphics.begin(), graphics.end(), [](const auto& g) { return g.second; });
      if (!hasGraphic && !capture && !view) continue;

      if (!familyNode) {
        familyNode = AddNode(VEKJson({{"name", name}}));
        AddChild(setNode, *familyNode);
      }
      VEKJson extras = VEKJson({{"family", name},
                                {"set", set},
                                {"index", position},
                                {"id", light ? Optional(light->GetId()) : VEKJson(nullptr)},
                                {"name", light ? Optional(light->GetName()) : VEKJson(nullptr)},
                                {"type", light ? Optional(light->GetType()) : VEKJson(nullptr)}});
      if (annotation) AddAnnotationExtras(*annotation.Get(), object, extras);
      if (view) {
        extras["origin"] = Optional(view->GetOrigin());
        extras["normal"] = Optional(view->GetNormal());
        extras["direction"] = Optional(view->GetDirection());
        extras["annotations"] = Ids(view->GetAnnotations());
        extras["captures"] = Ids(view->GetCaptures());
      }
      const std::string label = extras["name"].is_string() ? extras["name"].get<std::string>()
                                                           : name + " " + extras["id"].dump();
      const std::size_t node = AddNode(VEKJson({{"name", label}, {"extras", std::move(extras)}}));
      AddChild(*familyNode, node);
      ++counts_.objects;
      for (const auto& [role, rep] : graphics) {
        if (rep) AddGraphic(node, role, *rep);
      }
      if (capture) AddCamera(node, *capture.Get(), IdOf(object));
    }
  }

  void AddAnnotationExtras(VEKITPSLightAnnotation& annotation, VEKBaseUnknown* object,
                           VEKJson& extras) {
    extras["value"] = Optional(annotation.GetValue());
    extras["default"] = annotation.IsDefault();
    extras["attribute"] = Optional(annotation.GetAttribute());
    extras["reference"] = Optional(annotation.GetReference());
    extras["ttrs"] = annotation.GetTTRS();
    VEKComPtr<VEKITPSLightModel> links;
    if (VEKSucceeded(
            object->QueryInterface(VEKITPSLightModel::kIID, links.ReleaseAndGetVoidAddressOf()))) {
      extras["views"] = Ids(links->GetViews());
      const VEKLightObjectList* group = links->GetOrderGroup();
      extras["orderGroup"] = group ? Ids(*group) : VEKJson(nullptr);
    }
  }

  void AddGraphic(std::size_t objectNode, const char* role, const VEKRep& rep) {
    std::vector<int> roots;
    if (!carrier_.Carry(rep.GetGlb(), roots)) {
      ++counts_.skipped;
      return;
    }
    ++counts_.graphics;
    const std::size_t holder = AddNode(VEKJson({{"name", role}}));
    AddChild(objectNode, holder);
    for (int root : roots) AddChild(holder, static_cast<std::size_t>(root));
  }

  void AddCamera(std::size_t objectNode, const VEKITPSLightCapture& capture, VEKJson id) {
    std::optional<VEKJson> pose = CameraPose(capture);
    if (!pose) return;
    VEKJson& cameras = gltf_["cameras"];
    cameras.push_back(VEKJson(
        {{"type", "perspective"},
         {"perspective", VEKJson({{"yfov", kVEKSceneFieldOfView}, {"znear", kNearPlane}})}}));
    VEKJson node = std::move(*pose);
    node["name"] = "camera";
    node["camera"] = cameras.size() - 1;
    node["extras"] = VEKJson({{"capture", id},
                              {"cameraType", Optional(capture.GetCameraType())},
                              {"target", Optional(capture.GetCameraTarget())},
                              {"annotations", Ids(capture.GetAnnotations())},
                              {"views", Ids(capture.GetViews())},
                              {"cgs", Ids(capture.GetCGs())},
                              {"activeView", IdOf(capture.GetActiveView())},
                              {"clipping", Optional(capture.GetClippingPlane())}});
    AddChild(objectNode, AddNode(std::move(node)));
    ++counts_.cameras;
  }

  VEKJson gltf_ = VEKJson::object();
  std::vector<unsigned char> bin_;
  VEKGltfCarrier carrier_;
  VEKTPSLightSceneCounts counts_;
};

}  // namespace

HRESULT VEKBuildScene(const std::vector<VEKComPtr<VEKITPSLightSet>>& sets, std::vector<char>& glb,
                      VEKTPSLightSceneCounts* counts) noexcept {
  try {
    SceneBuilder builder;
    for (std::size_t position = 0; position < sets.size(); ++position) {
      if (sets[position]) builder.AddSet(*sets[position].Get(), static_cast<int>(position));
    }
    return builder.Finish(glb, counts);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}
