// The annotation set: its families of objects, its id broker and the making of a new model.
#include <new>
#include <utility>

#include "VEKTPSLightObjects.h"

namespace VEKModelDetail {

HRESULT LightSet::Create(VEKBaseUnknown* father, LightSet* previous, LightSet** out) noexcept {
  *out = nullptr;
  std::unique_ptr<Core> core(new (std::nothrow) Core());
  if (!core) return E_OUTOFMEMORY;
  const HRESULT result = core->MakeLivenessToken();
  if (VEKFailed(result)) return result;
  LightSet* set = new LightSet(*core, father);
  if (!set) return E_OUTOFMEMORY;
  Core* model = core.release();
  model->Adopt(set);
  model->AdoptPrevious(previous);
  model->AddRef();
  *out = set;
  return S_OK;
}

LightSet* LightSet::From(VEKITPSLightSet* set) noexcept {
  if (!set) return nullptr;
  VEKComPtr<LightObject> object;
  if (VEKFailed(set->QueryInterface(kIIDLightObject, object.GetVoidAddressOf()))) return nullptr;
  // The caller's reference keeps the set alive once the query's reference is dropped.
  return object->AsSet();
}

HRESULT LightSet::QueryInterface(const IID& iid, void** out) {
  return Answer(
      iid, out,
      {FaceOf<VEKITPSLightSet>(this), FaceOf<VEKITPSLight>(this), FaceOf<VEKITPSIdBroker>(this)});
}

HRESULT LightSet::Adopt(LightObject* object) noexcept {
  const HRESULT result = families_[object->Kind() - 1].Append(object->Identity());
  if (VEKFailed(result)) {
    delete object;
    return result;
  }
  GetCore().Adopt(object);
  GetCore().AddRef();
  return S_OK;
}

HRESULT LightSet::AssignId(LightObject& object, int id) noexcept {
  const std::optional<int> earlier = object.GetId();
  if (earlier == id) return S_OK;
  std::unordered_map<int, LightObject*>& index = indexes_[object.Kind() - 1];
  try {
    const auto [slot, inserted] = index.try_emplace(id, &object);
    if (!inserted) {
      duplicates_.push_back({id, object.Kind()});
      // Whoever was created first answers for a shared id, whatever the order of SetId calls.
      if (object.Serial() < slot->second->Serial()) slot->second = &object;
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  object.StoreId(id);
  if (earlier) Unindex(object, *earlier);
  return S_OK;
}

void LightSet::Unindex(const LightObject& object, int id) noexcept {
  std::unordered_map<int, LightObject*>& index = indexes_[object.Kind() - 1];
  const auto slot = index.find(id);
  if (slot == index.end() || slot->second != &object) return;
  // Only an object whose id changes gets here: walking the model once in creation order finds
  // the next holder of the old id, if any.
  for (LightObject* other = GetCore().First(); other; other = other->Next()) {
    if (other->Kind() == object.Kind() && other->GetId() == id) {
      slot->second = other;
      return;
    }
  }
  index.erase(slot);
}

HRESULT LightSet::SetStandard(const wchar_t* standard) {
  if (!standard) return E_POINTER;
  standard_.emplace(standard);
  return S_OK;
}

HRESULT LightSet::GetPreviousSet(VEKITPSLightSet** out) const {
  if (!out) return E_POINTER;
  LightSet* previous = GetCore().GetPrevious();
  *out = previous;
  if (!previous) return S_FALSE;
  previous->AddRef();
  return S_OK;
}

HRESULT LightSet::GetObjectFromId(int id, int kind, VEKBaseUnknown** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (kind >= 1 && kind <= kKindCount) {
    const std::unordered_map<int, LightObject*>& index = indexes_[kind - 1];
    const auto found = index.find(id);
    if (found != index.end()) {
      VEKBaseUnknown* identity = found->second->Identity();
      identity->AddRef();
      *out = identity;
      return S_OK;
    }
  }
  try {
    unresolved_.push_back({id, kind});
  } catch (const std::bad_alloc&) {
    // The record is lost, the failure itself is still reported.
  }
  return E_FAIL;
}

}  // namespace VEKModelDetail
