// The links of one set in both directions, built once from the model's getters.
#include "VEKTPSLightLinks.h"

#include <new>
#include <unordered_map>

#include "VEKComPtr.h"
#include "VEKTPSLightParserInternal.h"

using vek_parser_detail::VEKQueryInterface;

struct VEKTPSLightLinks::State {
  VEKITPSLightSet* set = nullptr;
  // Keyed by identity. Only objects that some link names have an entry.
  std::unordered_map<const VEKBaseUnknown*, std::vector<VEKTPSLightLink>> referencedBy;

  void Add(VEKBaseUnknown* from, const VEKBaseUnknown* to, VEKTPSLightRole role) {
    if (to) referencedBy[to].push_back({from, role});
  }
  void AddEach(VEKBaseUnknown* from, const VEKLightObjectList* targets, VEKTPSLightRole role) {
    for (int position = 0; targets && position < targets->Count(); ++position) {
      Add(from, targets->Get(position), role);
    }
  }
  // Integer references, resolved as the id broker resolves them; ids that no object carries name
  // nothing.
  void AddEachId(VEKBaseUnknown* from, const std::vector<int>& ids, int kind,
                 VEKTPSLightRole role) {
    for (int id : ids) Add(from, set->FindObject(id, kind), role);
  }

  // Visits every object of one family in creation order, with its face `Face`.
  template <class Face, class Visit>
  void ForEach(const VEKLightObjectList* family, Visit&& visit) {
    for (int position = 0; family && position < family->Count(); ++position) {
      VEKBaseUnknown* object = family->Get(position);
      VEKComPtr<Face> face;
      if (VEKSucceeded(VEKQueryInterface(object, face)) && face) visit(object, *face.Get());
    }
  }

  void Build() {
    ForEach<VEKITPSLightAnnotation>(set->GetAnnotations(), [&](VEKBaseUnknown* from,
                                                               VEKITPSLightAnnotation& annotation) {
      VEKComPtr<VEKITPSLightModel> model;
      if (VEKSucceeded(VEKQueryInterface(from, model)) && model) {
        AddEach(from, &model->GetViews(), VEKTPSLightRole::View);
        AddEach(from, model->GetOrderGroup(), VEKTPSLightRole::OrderGroup);
      }
      AddEachId(from, annotation.GetTTRS(), VEKTPSLightKindTTRS, VEKTPSLightRole::TTRS);
      if (const std::optional<int> reference = annotation.GetReference()) {
        Add(from, set->FindObject(*reference, VEKTPSLightKindRefFrame), VEKTPSLightRole::Reference);
      }
    });
    ForEach<VEKITPSLightView>(&set->GetViews(), [&](VEKBaseUnknown* from, VEKITPSLightView& view) {
      AddEach(from, &view.GetAnnotations(), VEKTPSLightRole::Annotation);
      AddEach(from, &view.GetCaptures(), VEKTPSLightRole::Capture);
    });
    ForEach<VEKITPSLightRefFrame>(
        &set->GetRefFrames(), [&](VEKBaseUnknown* from, VEKITPSLightRefFrame& frame) {
          AddEach(from, &frame.GetDatums(), VEKTPSLightRole::Datum);
          AddEachId(from, frame.GetTTRS(), VEKTPSLightKindTTRS, VEKTPSLightRole::TTRS);
        });
    ForEach<VEKITPSLightCG>(&set->GetCGs(), [&](VEKBaseUnknown* from, VEKITPSLightCG& cg) {
      AddEachId(from, cg.GetTTRS(), VEKTPSLightKindTTRS, VEKTPSLightRole::TTRS);
    });
    ForEach<VEKITPSLightCapture>(
        &set->GetCaptures(), [&](VEKBaseUnknown* from, VEKITPSLightCapture& capture) {
          AddEach(from, &capture.GetAnnotations(), VEKTPSLightRole::Annotation);
          AddEach(from, &capture.GetViews(), VEKTPSLightRole::CaptureView);
          Add(from, capture.GetActiveView(), VEKTPSLightRole::ActiveView);
          AddEach(from, &capture.GetCGs(), VEKTPSLightRole::CG);
        });
  }
};

VEKTPSLightLinks::VEKTPSLightLinks() noexcept = default;

VEKTPSLightLinks::~VEKTPSLightLinks() = default;

std::unique_ptr<VEKTPSLightLinks> VEKTPSLightLinks::Build(VEKITPSLightSet* set) noexcept {
  if (!set) return nullptr;
  std::unique_ptr<VEKTPSLightLinks> links(new (std::nothrow) VEKTPSLightLinks());
  if (!links) return nullptr;
  try {
    links->state_ = std::make_unique<State>();
    links->state_->set = set;
    links->state_->Build();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return links;
}

const std::vector<VEKTPSLightLink>& VEKTPSLightLinks::ReferencedBy(
    VEKBaseUnknown* object) const noexcept {
  static const std::vector<VEKTPSLightLink> kNone;
  // An identity, as lists and links hold them, is found without a call on the object.
  auto found = state_->referencedBy.find(object);
  if (found != state_->referencedBy.end()) return found->second;
  VEKComPtr<VEKBaseUnknown> identity;
  if (VEKFailed(VEKQueryInterface(object, identity)) || !identity) return kNone;
  found = state_->referencedBy.find(identity.Get());
  return found == state_->referencedBy.end() ? kNone : found->second;
}

VEKBaseUnknown* VEKTPSLightLinks::Find(int id, int kind) const noexcept {
  return state_->set->FindObject(id, kind);
}
