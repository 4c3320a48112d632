// The factory of every model object.
#include <cstdint>

#include "VEKTPSLightObjects.h"

using VEKModelDetail::LightSet;

namespace {

// Makes an object of class Object in `set` and hands it out through `out` as its Face.
template <class Object, class Face>
HRESULT CreateInSet(Face** out, VEKITPSLightSet* set) noexcept {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!set) return E_POINTER;
  // A set that is not a live one of this library (another implementation's, a freed one,
  // garbage) is refused without being looked through.
  LightSet* owner = LightSet::From(set);
  if (!owner) return E_INVALIDARG;
  Object* object = new Object(owner->GetCore());
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

bool VEKTPSLightContainer::IsLiveSet(const VEKITPSLightSet* set) noexcept {
  return LightSet::IsLive(set);
}

HRESULT VEKTPSLightContainer::CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) {
  return CreateInSet<VEKModelDetail::Annotation>(out, set);
}

HRESULT VEKTPSLightContainer::CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) {
  if (!out) return E_POINTER;
  // A live set of this library in *out passes the reference *out held to the new set, since
  // the caller's pointer to it is about to be overwritten. Any other value may be stale or
  // garbage: the registry tells so from the address alone, and it is never looked through.
  LightSet* const previous = LightSet::From(*out);
  LightSet* created = nullptr;
  const HRESULT result = LightSet::Create(father, previous, &created);
  if (VEKFailed(result)) return result;
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
