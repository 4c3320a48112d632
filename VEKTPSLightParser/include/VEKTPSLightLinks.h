// The links of one set in both directions: for every object, the objects that name it and through
// which member, and integer references (TTRS ids, an annotation's reference frame) resolved to the
// objects of the set that carry them. Built once from the model's getters in time linear in the
// model; it changes nothing in the model and records nothing (a lookup that misses is not an
// unresolved reference of the document).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "VEKTPSLightModel.h"
#include "VEKTypes.h"

// The member through which one object names another.
enum class VEKTPSLightRole : int {
  View = 0,         // an annotation's views (VEKITPSLightModel::GetViews): annotation -> view
  OrderGroup = 1,   // an annotation's order group: annotation -> annotation
  TTRS = 2,         // an integer TTRS id of an annotation, reference frame or CG -> TTRS
  Reference = 3,    // an annotation's "Ref" -> reference frame
  Annotation = 4,   // a view's or capture's annotations: view/capture -> annotation
  Capture = 5,      // a view's captures: view -> capture
  Datum = 6,        // a reference frame's datums: reference frame -> annotation
  CaptureView = 7,  // a capture's views: capture -> view
  ActiveView = 8,   // a capture's active view: capture -> view
  CG = 9,           // a capture's construction geometries: capture -> CG
};

// One link seen from the object it names: `from` names it through `role`. `from` is the naming
// object's identity (its VEKBaseUnknown face), borrowed from the model.
struct VEKTPSLightLink {
  VEKBaseUnknown* from = nullptr;
  VEKTPSLightRole role = VEKTPSLightRole::View;
};

class VEK_API VEKTPSLightLinks {
 public:
  // Builds the links of `set` (a set of this library's model). Null when `set` is null or memory
  // runs out. The links borrow the model: keep a reference to the set while using them.
  static std::unique_ptr<VEKTPSLightLinks> Build(VEKITPSLightSet* set) noexcept;
  ~VEKTPSLightLinks();
  VEKTPSLightLinks(const VEKTPSLightLinks&) = delete;
  VEKTPSLightLinks& operator=(const VEKTPSLightLinks&) = delete;

  // The links that name `object` (any face of an object of this set): by the naming object's
  // family (annotations, views, reference frames, CGs, captures), in creation order within it,
  // then in the order of the members above. Empty for null or an object of another set.
  const std::vector<VEKTPSLightLink>& ReferencedBy(VEKBaseUnknown* object) const noexcept;
  // The object of `kind` (VEKTPSLightKind) that carries `id`, as its identity: the first created
  // when several do, as the id broker answers. Null when none; nothing is recorded.
  VEKBaseUnknown* Find(int id, int kind) const noexcept;
  // The TTRS that a TTRS id names, and the reference frame an annotation's reference names; null
  // when the set holds none.
  VEKBaseUnknown* ResolveTTRS(int ttrsId) const noexcept {
    return Find(ttrsId, VEKTPSLightKindTTRS);
  }
  VEKBaseUnknown* ResolveReference(int reference) const noexcept {
    return Find(reference, VEKTPSLightKindRefFrame);
  }

  struct State;

 private:
  VEKTPSLightLinks() noexcept;
  std::unique_ptr<State> state_;
};
