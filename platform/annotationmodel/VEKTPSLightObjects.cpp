// The model core, the values common to every object, and the objects of each family.
#include "VEKTPSLightObjects.h"

#include <new>
#include <utility>

namespace VEKModelDetail {

namespace {

HRESULT CopyText(std::optional<VEKUnicodeString>& target, const wchar_t* text) noexcept {
  if (!text) return E_POINTER;
  target.emplace(text);
  return S_OK;
}

HRESULT AppendNumber(std::vector<int>& numbers, int number) noexcept {
  try {
    numbers.push_back(number);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT StoreVector(std::optional<VEKVector3>& target, double x, double y, double z) noexcept {
  target = VEKVector3{x, y, z};
  return S_OK;
}

// Handing back the representation already held keeps it rather than freeing it.
HRESULT StoreRep(std::unique_ptr<VEKRep>& target, VEKRep* rep) noexcept {
  if (rep != target.get()) target.reset(rep);
  return S_OK;
}

}  // namespace

Core::~Core() {
  while (first_) {
    LightObject* object = first_;
    first_ = object->next_;
    delete object;
  }
  // Earlier sets are freed here one after the other rather than each from the destructor of the
  // next, so that a long chain of sets does not nest destructor calls as deep as the chain.
  VEKComPtr<LightSet> previous = std::move(previous_);
  while (previous && previous->GetCore().references_ == 1) {
    VEKComPtr<LightSet> earlier = std::move(previous->GetCore().previous_);
    previous.Reset();
    previous = std::move(earlier);
  }
#ifndef NDEBUG
  *static_cast<volatile std::uint32_t*>(&references_) = kPoisonedCount;
#endif
}

std::uint32_t Core::Release() noexcept {
  const std::uint32_t remaining = --references_;
  if (remaining == 0) {
    // From here on nobody may take the set for a live one and chain or fill it.
    first_->AsSet()->Unlist();
    delete this;
  }
  return remaining;
}

void Core::Adopt(LightObject* object) noexcept {
  if (last_) {
    last_->next_ = object;
  } else {
    first_ = object;
  }
  last_ = object;
}

LightObject* Core::Resolve(VEKBaseUnknown* face) const noexcept {
  if (!face) return nullptr;
  VEKComPtr<LightObject> object;
  if (VEKFailed(face->QueryInterface(kIIDLightObject, object.ReleaseAndGetVoidAddressOf())))
    return nullptr;
  // The reference taken by the query is dropped on return; the object stays alive through the
  // caller's own reference to it.
  return &object->GetCore() == this ? object.Get() : nullptr;
}

void Core::AdoptPrevious(LightSet* previous) noexcept { previous_.Attach(previous); }

LightObject::~LightObject() = default;

HRESULT LightObject::SetName(const wchar_t* name) { return CopyText(name_, name); }

HRESULT LightObject::SetType(unsigned short type) {
  type_ = type;
  return S_OK;
}

HRESULT LightObject::SetRep(VEKRep* rep) { return StoreRep(rep_, rep); }

HRESULT LightObject::SetId(int id) {
  if (kind_ == kKindSet) {
    id_ = id;
    return S_OK;
  }
  return Set().AssignId(*this, id);
}

HRESULT LightObject::SetStatus(unsigned short status) {
  status_ = status;
  return S_OK;
}

HRESULT LightObject::SetUuid(const wchar_t* uuid) { return CopyText(uuid_, uuid); }

HRESULT LightObject::AddLink(VEKLightObjectList& list, VEKBaseUnknown* object) noexcept {
  LightObject* target = core_.Resolve(object);
  if (!target) return E_INVALIDARG;
  return list.Append(target->Identity());
}

LightSet& LightObject::Set() const noexcept { return *core_.First()->AsSet(); }

HRESULT Annotation::SetValue(double value) {
  value_ = value;
  return S_OK;
}

HRESULT Annotation::SetDefault(int flag) {
  default_ = flag != 0;
  return S_OK;
}

HRESULT Annotation::AddTTRS(int ttrsId) { return AppendNumber(ttrs_, ttrsId); }

HRESULT Annotation::SetReference(int ref) {
  reference_ = ref;
  return S_OK;
}

HRESULT Annotation::SetAttribute(const wchar_t* text) { return CopyText(attribute_, text); }

HRESULT Annotation::SetGraphicRep(VEKRep* rep) { return StoreRep(graphicRep_, rep); }

HRESULT Annotation::SetOrderGroup(VEKLightObjectList* group) {
  if (!group) {
    orderGroup_.reset();
    return S_OK;
  }
  // The group is stored as identity faces, like every other link; the caller's list is checked
  // and copied before it is taken, so a rejected list stays the caller's, untouched.
  std::unique_ptr<VEKLightObjectList> members(new (std::nothrow) VEKLightObjectList());
  if (!members) return E_OUTOFMEMORY;
  for (int position = 0; position < group->Count(); ++position) {
    const HRESULT result = AddLink(*members, group->Get(position));
    if (VEKFailed(result)) return result;
  }
  std::unique_ptr<VEKLightObjectList> earlier = std::move(orderGroup_);
  orderGroup_ = std::move(members);
  if (group != earlier.get()) delete group;
  return S_OK;
}

HRESULT Annotation::SetView(VEKITPSLightView* view) { return AddLink(views_, view); }

HRESULT View::SetOrigin(double x, double y, double z) { return StoreVector(origin_, x, y, z); }

HRESULT View::SetNormal(double x, double y, double z) { return StoreVector(normal_, x, y, z); }

HRESULT View::SetDirection(double x, double y, double z) {
  return StoreVector(direction_, x, y, z);
}

HRESULT View::AddTPS(VEKBaseUnknown* annotation) { return AddLink(annotations_, annotation); }

HRESULT View::AddCapture(VEKBaseUnknown* capture) { return AddLink(captures_, capture); }

HRESULT TTRS::AddGeometry(VEKRawCollint* ids) {
  // Owned from here on: when it cannot be stored it is freed, never handed back.
  std::unique_ptr<VEKRawCollint> owned(ids);
  try {
    geometries_.push_back(std::move(owned));
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

const VEKRawCollint* TTRS::GetGeometry(int index) const {
  if (index < 0 || index >= GetGeometryCount()) return nullptr;
  return geometries_[static_cast<std::size_t>(index)].get();
}

HRESULT RefFrame::AddDatum(VEKBaseUnknown* datum) { return AddLink(datums_, datum); }

HRESULT RefFrame::AddTTRS(int ttrsId) { return AppendNumber(ttrs_, ttrsId); }

HRESULT RefFrame::SetAttribute(const wchar_t* text) { return CopyText(attribute_, text); }

HRESULT CG::AddTTRS(int ttrsId) { return AppendNumber(ttrs_, ttrsId); }

HRESULT CG::AddTRep(int repId) { return AppendNumber(treps_, repId); }

HRESULT CG::SetAttribute(const wchar_t* text) { return CopyText(attribute_, text); }

HRESULT Capture::AddTPS(VEKBaseUnknown* annotation) { return AddLink(annotations_, annotation); }

HRESULT Capture::AddView(VEKBaseUnknown* view) { return AddLink(views_, view); }

HRESULT Capture::SetActiveView(VEKBaseUnknown* view) {
  LightObject* target = GetCore().Resolve(view);
  if (!target) return E_INVALIDARG;
  activeView_ = target->Identity();
  return S_OK;
}

HRESULT Capture::SetClippingPlane(int clip) {
  clippingPlane_ = clip;
  return S_OK;
}

HRESULT Capture::SetCameraPosition(double x, double y, double z) {
  return StoreVector(cameraPosition_, x, y, z);
}

HRESULT Capture::SetCameraDirection(double x, double y, double z) {
  return StoreVector(cameraDirection_, x, y, z);
}

HRESULT Capture::SetCameraZenith(double x, double y, double z) {
  return StoreVector(cameraZenith_, x, y, z);
}

HRESULT Capture::SetCameraTarget(double x, double y, double z) {
  return StoreVector(cameraTarget_, x, y, z);
}

HRESULT Capture::SetCameraType(int type) {
  cameraType_ = type;
  return S_OK;
}

HRESULT Capture::AddCG(VEKBaseUnknown* cg) { return AddLink(cgs_, cg); }

HRESULT Capture::SetGraphicRep(VEKRep* rep) { return StoreRep(graphicRep_, rep); }

}  // namespace VEKModelDetail
