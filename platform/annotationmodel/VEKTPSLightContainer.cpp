// The factory of every model object.
#include <cstdint>
#include <memory>

#include "VEKTPSLightObjects.h"

using VEKModelDetail::LightSet;

namespace {

// The set this library made last on the calling thread. The record does not own the set: its
// address is kept disguised, so that leak checkers do not take the record for a reference, and
// it is compared with *out only while the token tells that the set still lives.
struct LastSet {
  std::uintptr_t disguisedFace = 0;
  std::weak_ptr<const int> liveness;
};
thread_local LastSet lastSet;

std::uintptr_t Disguise(const VEKITPSLightSet* face) noexcept {
  return ~reinterpret_cast<std::uintptr_t>(face);
}

// Makes an object of class Object in `set` and hands it out through `out` as its Face.
template <class Object, class Face>
HRESULT CreateInSet(Face** out, VEKITPSLightSet* set) noexcept {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!set) return E_POINTER;
  LightSet* owner = LightSet::From(set);
  if (!owner) return E_INVALIDARG;
  Object* object = new Object(*owner);
  if (!object) return E_OUTOFMEMORY;
  const HRESULT result = owner->Adopt(object);
  if (VEKFailed(result)) return result;
  *out = object;
  return S_OK;
}

}  // namespace

VEKTPSLightContainer::VEKTPSLightContainer() noexcept = default;

VEKTPSLightContainer::~VEKTPSLightContainer() {
#ifndef NDEBUG
  *static_cast<volatile std::uint32_t*>(&references_) = VEKModelDetail::kPoisonedCount;
#endif
}

HRESULT VEKTPSLightContainer::QueryInterface(const IID& iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (iid != VEKTPSLightContainer::kIID && iid != VEKBaseUnknown::kIID) return E_NOINTERFACE;
  AddRef();
  *out = this;
  return S_OK;
}

std::uint32_t VEKTPSLightContainer::AddRef() { return ++references_; }

std::uint32_t VEKTPSLightContainer::Release() {
  const std::uint32_t remaining = --references_;
  if (remaining == 0) delete this;
  return remaining;
}

HRESULT VEKTPSLightContainer::CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::Annotation>(out, set);
}

HRESULT VEKTPSLightContainer::CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) {
  if (!out) return E_POINTER;
  // Only a pointer equal to the remembered live set is followed; any other value in *out may
  // be stale or garbage and is never looked through. The reference *out held passes to the new
  // set, since the caller's pointer to it is about to be overwritten.
  LightSet* previous = nullptr;
  if (*out && Disguise(*out) == lastSet.disguisedFace && !lastSet.liveness.expired()) {
    previous = LightSet::From(*out);
  }
  LightSet* created = nullptr;
  const HRESULT result = LightSet::Create(father, previous, &created);
  if (VEKFailed(result)) return result;
  lastSet.disguisedFace = Disguise(created);
  lastSet.liveness = created->GetCore().Liveness();
  *out = created;
  return S_OK;
}

HRESULT VEKTPSLightContainer::CreateView(VEKITPSLightView** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::View>(out, set);
}

HRESULT VEKTPSLightContainer::CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::RefFrame>(out, set);
}

HRESULT VEKTPSLightContainer::CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::TTRS>(out, set);
}

HRESULT VEKTPSLightContainer::CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::Capture>(out, set);
}

HRESULT VEKTPSLightContainer::CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::CG>(out, set);
}
