// A host program: loads an annotation document of either schema, in any form, with one call, and
// reads the whole model back: every family with its values, its links in both directions, and
// each graphic drawn from its indices and world matrices. Every result is checked.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightDocument.h"
#include "VEKTPSLightLinks.h"

namespace {

std::string Text(const std::optional<VEKUnicodeString>& value) {
  return value ? std::string("\"") + value->ConvertToChar() + "\"" : "-";
}

template <class T>
std::string Number(const std::optional<T>& value) {
  return value ? std::to_string(*value) : "-";
}

std::string Vector(const std::optional<VEKVector3>& value) {
  if (!value) return "-";
  char text[96];
  std::snprintf(text, sizeof text, "(%g %g %g)", value->x, value->y, value->z);
  return text;
}

// An object's id as the links hold it: the object's identity face.
std::string IdOf(VEKBaseUnknown* object) {
  VEKComPtr<VEKITPSLight> light;
  if (!object || VEKFailed(VEKComPtr<VEKBaseUnknown>(object).As(&light))) return "?";
  return Number(light->GetId());
}

std::string Ids(const VEKLightObjectList& list) {
  std::string text = "[";
  for (int position = 0; position < list.Count(); ++position)
    text += (position ? " " : "") + IdOf(list.Get(position));
  return text + "]";
}

// Integer references, each with the name of the object the set resolves it to.
std::string Resolved(const std::vector<int>& ids, const VEKTPSLightLinks& links) {
  std::string text = "[";
  for (std::size_t k = 0; k < ids.size(); ++k) {
    text += (k ? " " : "") + std::to_string(ids[k]);
    if (!links.ResolveTTRS(ids[k])) text += "(missing)";
  }
  return text + "]";
}

const char* RoleName(VEKTPSLightRole role) {
  static const char* const kNames[] = {"view",        "order group", "ttrs",  "reference",
                                       "annotation",  "capture",     "datum", "capture view",
                                       "active view", "cg"};
  return kNames[static_cast<int>(role)];
}

// Who names `object`, as "named by view 11, capture 41 (active view)".
std::string NamedBy(VEKBaseUnknown* object, const VEKTPSLightLinks& links) {
  std::string text;
  for (const VEKTPSLightLink& link : links.ReferencedBy(object))
    text += (text.empty() ? " named by " : ", ") + IdOf(link.from) + " as " + RoleName(link.role);
  return text;
}

// What a renderer does with a graphic: each triangle list's vertices, through its indices where it
// has them, moved into the world by its node's matrix (column-major). Prints the count of
// triangles, the library's own count of world-space triangles, and the bounds.
void Draw(const char* what, const VEKRep* rep) {
  if (!rep) return;
  double low[3] = {1e300, 1e300, 1e300};
  double high[3] = {-1e300, -1e300, -1e300};
  std::size_t triangles = 0;
  for (const VEKRepNode& node : rep->GetNodes()) {
    if (node.mesh < 0) continue;
    for (const VEKRepPrimitive& primitive : rep->GetMeshes()[node.mesh].primitives) {
      if (primitive.mode != 4 || !primitive.positions) continue;
      const std::vector<float>& positions = *primitive.positions;
      const std::size_t corners =
          primitive.indices ? primitive.indices->size() : positions.size() / 3;
      triangles += corners / 3;
      for (std::size_t corner = 0; corner < corners; ++corner) {
        const std::size_t index = primitive.indices ? (*primitive.indices)[corner] : corner;
        if (3 * index + 2 >= positions.size()) continue;
        const float* p = &positions[3 * index];
        const double* m = node.worldMatrix;
        for (int axis = 0; axis < 3; ++axis) {
          const double world =
              m[axis] * p[0] + m[4 + axis] * p[1] + m[8 + axis] * p[2] + m[12 + axis];
          low[axis] = world < low[axis] ? world : low[axis];
          high[axis] = world > high[axis] ? world : high[axis];
        }
      }
    }
  }
  std::vector<float> library;
  const bool counted = VEKSucceeded(VEKRepTriangles(*rep, library));
  std::printf("\n    %s: %zu triangles (library: %s), %zu bytes of GLB", what, triangles,
              counted ? std::to_string(library.size() / 9).c_str() : "none", rep->GetGlb().size());
  if (triangles > 0) {
    std::printf(" within (%g %g %g)-(%g %g %g)", low[0], low[1], low[2], high[0], high[1], high[2]);
  }
}

// An object's own graphic, beside the representation every object may have.
const VEKRep* GraphicOf(VEKITPSLightAnnotation& annotation) { return annotation.GetGraphicRep(); }
const VEKRep* GraphicOf(VEKITPSLightCapture& capture) { return capture.GetGraphicRep(); }
template <class Family>
const VEKRep* GraphicOf(Family&) {
  return nullptr;
}

// The values every object has, its family's own through `details`, who names it, its graphics.
template <class Family, class Details>
void PrintFamily(const char* title, const VEKLightObjectList& list, const VEKTPSLightLinks& links,
                 Details details) {
  std::printf("%s: %d\n", title, list.Count());
  for (int position = 0; position < list.Count(); ++position) {
    VEKComPtr<VEKBaseUnknown> object(list.Get(position));
    VEKComPtr<VEKITPSLight> light;
    VEKComPtr<Family> family;
    if (VEKFailed(object.As(&light)) || VEKFailed(object.As(&family))) continue;
    std::printf("  id %s %s type %s status %s", Number(light->GetId()).c_str(),
                Text(light->GetName()).c_str(), Number(light->GetType()).c_str(),
                Number(light->GetStatus()).c_str());
    details(*family.Get());
    std::printf("%s", NamedBy(object.Get(), links).c_str());
    Draw("rep", light->GetRep());
    Draw("graphic", GraphicOf(*family.Get()));
    std::printf("\n");
  }
}

void PrintSet(VEKITPSLightSet& set, const VEKTPSLightLinks& links) {
  VEKComPtr<VEKITPSLight> light;
  VEKComPtr<VEKITPSLightSet>(&set).As(&light);
  if (light) {
    std::printf("set %s standard %s uuid %s\n", Text(light->GetName()).c_str(),
                Text(set.GetStandard()).c_str(), Text(light->GetUuid()).c_str());
  }
  PrintFamily<VEKITPSLightTTRS>("TTRS", set.GetTTRS(), links, [](VEKITPSLightTTRS& ttrs) {
    for (int index = 0; index < ttrs.GetGeometryCount(); ++index) {
      // Geometry lists count from 1.
      const VEKRawCollint* ids = ttrs.GetGeometry(index);
      std::printf(" geometry [");
      for (int k = 1; ids && k <= ids->Size(); ++k) std::printf(k > 1 ? " %d" : "%d", (*ids)[k]);
      std::printf("]");
    }
  });
  PrintFamily<VEKITPSLightAnnotation>(
      "annotations", *set.GetAnnotations(), links, [&](VEKITPSLightAnnotation& annotation) {
        std::printf(" value %s%s attribute %s ttrs %s", Number(annotation.GetValue()).c_str(),
                    annotation.IsDefault() ? " default" : "",
                    Text(annotation.GetAttribute()).c_str(),
                    Resolved(annotation.GetTTRS(), links).c_str());
        if (const std::optional<int> reference = annotation.GetReference(); reference && *reference)
          std::printf(" reference %d%s", *reference,
                      links.ResolveReference(*reference) ? "" : "(missing)");
        VEKComPtr<VEKITPSLightModel> model;
        if (VEKSucceeded(VEKComPtr<VEKITPSLightAnnotation>(&annotation).As(&model))) {
          std::printf(" views %s", Ids(model->GetViews()).c_str());
          if (const VEKLightObjectList* group = model->GetOrderGroup())
            std::printf(" group %s", Ids(*group).c_str());
        }
      });
  PrintFamily<VEKITPSLightView>("views", set.GetViews(), links, [](VEKITPSLightView& view) {
    std::printf(" origin %s normal %s direction %s annotations %s captures %s",
                Vector(view.GetOrigin()).c_str(), Vector(view.GetNormal()).c_str(),
                Vector(view.GetDirection()).c_str(), Ids(view.GetAnnotations()).c_str(),
                Ids(view.GetCaptures()).c_str());
  });
  PrintFamily<VEKITPSLightRefFrame>(
      "reference frames", set.GetRefFrames(), links, [&](VEKITPSLightRefFrame& frame) {
        std::printf(" attribute %s datums %s ttrs %s", Text(frame.GetAttribute()).c_str(),
                    Ids(frame.GetDatums()).c_str(), Resolved(frame.GetTTRS(), links).c_str());
      });
  PrintFamily<VEKITPSLightCG>(
      "construction geometries", set.GetCGs(), links, [&](VEKITPSLightCG& cg) {
        std::printf(" attribute %s ttrs %s", Text(cg.GetAttribute()).c_str(),
                    Resolved(cg.GetTTRS(), links).c_str());
      });
  PrintFamily<VEKITPSLightCapture>(
      "captures", set.GetCaptures(), links, [](VEKITPSLightCapture& capture) {
        std::printf(
            " clipping %s camera %s at %s looking %s up %s active view %s annotations %s "
            "views %s cgs %s",
            Number(capture.GetClippingPlane()).c_str(), Number(capture.GetCameraType()).c_str(),
            Vector(capture.GetCameraPosition()).c_str(),
            Vector(capture.GetCameraDirection()).c_str(), Vector(capture.GetCameraZenith()).c_str(),
            IdOf(capture.GetActiveView()).c_str(), Ids(capture.GetAnnotations()).c_str(),
            Ids(capture.GetViews()).c_str(), Ids(capture.GetCGs()).c_str());
        Draw("graphic", capture.GetGraphicRep());
      });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DOCUMENT\n", argv[0]);
    return 2;
  }
  // Form (plain, base64, zlib) and schema are found from the bytes; no file is written.
  const VEKTPSLightDocument document = VEKLoadDocumentFile(argv[1]);
  if (!document.Loaded()) {
    if (document.ErrorLine() > 0) {
      std::fprintf(stderr, "%s:%d:%d: %s\n", argv[1], document.ErrorLine(), document.ErrorColumn(),
                   document.Error().c_str());
    } else {
      std::fprintf(stderr, "%s: %s\n", argv[1], document.Error().c_str());
    }
    return 1;
  }
  std::printf("%s schema, %s form, %zu set(s)\n", VEKTPSLightSchemaName(*document.Schema()),
              VEKTPSLightFormName(document.Form()), document.Sets().size());
  for (std::size_t k = 0; k < document.Sets().size(); ++k) {
    const VEKTPSLightLinks* links = document.Links(static_cast<int>(k));
    if (!links) {
      std::fprintf(stderr, "%s: out of memory\n", argv[1]);
      return 1;
    }
    PrintSet(*document.Sets()[k].Get(), *links);
  }
  for (const VEKTPSLightDiagnostic& diagnostic : document.Diagnostics())
    std::printf("line %d: %s\n", diagnostic.line, diagnostic.message.c_str());
  return 0;
}
