// The implementation of the light annotation model: one core per set, the set with its id
// broker, and one class per object family. Private to the model library.
//
// A set and every object created in it share the core's single reference count, and the core
// owns them all: links between objects are plain pointers to identity faces inside one core.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "VEKComPtr.h"
#include "VEKIdIndex.h"
#include "VEKTPSLightModel.h"

namespace VEKModelDetail {

#ifndef NDEBUG
// Written over a freed model's or container's count in debug builds, so that a stray Release
// shows up as a wildly wrong count instead of a plausible one.
constexpr std::uint32_t kPoisonedCount = 0xDEADC0DEu;
#endif

// Answered only by objects of this library: QueryInterface gives the LightObject behind any face,
// with one reference. Other components answer E_NOINTERFACE, which is how they are told apart.
constexpr IID kIIDLightObject = {
    0x7C93BD72, 0x1AF7, 0x4633, {0x8C, 0x65, 0x48, 0xF4, 0xEF, 0xC5, 0x2E, 0x08}};

// Kind of the set itself; objects use the VEKTPSLightKind values 1 to 6.
constexpr int kKindSet = 0;
constexpr int kKindCount = 6;

class LightObject;
class LightSet;
class LiveSets;

// One model: the reference count shared by a set and its objects, the objects themselves (in
// creation order, the set first) and the set made just before this one.
class Core {
 public:
  Core() noexcept = default;
  ~Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  std::uint32_t AddRef() noexcept { return ++references_; }
  // Frees the whole model when the count reaches zero.
  std::uint32_t Release() noexcept;

  // Numbers objects in creation order; the id broker prefers the lower number.
  std::uint64_t NextSerial() noexcept { return ++serials_; }
  // Takes ownership of `object`, freed with the model.
  void Adopt(LightObject* object) noexcept;
  // The first object created (the set), then LightObject::Next().
  LightObject* First() const noexcept { return first_; }

  // The object behind `face` when it belongs to this model; null for null, foreign objects and
  // objects of other models.
  LightObject* Resolve(VEKBaseUnknown* face) const noexcept;

  // The set made just before this model's set, kept alive by it; null when there is none.
  LightSet* GetPrevious() const noexcept { return previous_.Get(); }
  // Takes over one reference to `previous` (may be null).
  void AdoptPrevious(LightSet* previous) noexcept;

 private:
  std::uint32_t references_ = 0;
  std::uint64_t serials_ = 0;
  LightObject* first_ = nullptr;
  LightObject* last_ = nullptr;
  VEKComPtr<LightSet> previous_;
};

// The values common to the set and to every object (VEKITPSLight), and the object's place in its
// model. Concrete classes derive from ModelObject, which adds their interfaces and the count.
class LightObject : public VEKITPSLight {
 public:
  LightObject(Core& core, int kind) noexcept
      : core_(core), kind_(kind), serial_(core.NextSerial()) {}
  ~LightObject() override;

  Core& GetCore() const noexcept { return core_; }
  int Kind() const noexcept { return kind_; }
  std::uint64_t Serial() const noexcept { return serial_; }
  LightObject* Next() const noexcept { return next_; }
  // The face that lists and links hold: the object's own interface, as VEKBaseUnknown.
  virtual VEKBaseUnknown* Identity() noexcept = 0;
  // This object as a set; null for the other kinds.
  virtual LightSet* AsSet() noexcept { return nullptr; }
  // Records the id without indexing it (the set's broker indexes).
  void StoreId(int id) noexcept { id_ = id; }

  HRESULT SetName(const wchar_t* name) override;
  HRESULT SetType(unsigned short type) override;
  HRESULT SetRep(VEKRep* rep) override;
  HRESULT SetId(int id) override;
  HRESULT SetStatus(unsigned short status) override;
  HRESULT SetUuid(const wchar_t* uuid) override;

  std::optional<VEKUnicodeString> GetName() const override { return name_; }
  std::optional<unsigned short> GetType() const override { return type_; }
  const VEKRep* GetRep() const override { return rep_.get(); }
  std::optional<int> GetId() const override { return id_; }
  std::optional<unsigned short> GetStatus() const override { return status_; }
  std::optional<VEKUnicodeString> GetUuid() const override { return uuid_; }

 protected:
  // Appends the identity of `object` to `list`; E_INVALIDARG when it is not of this model.
  HRESULT AddLink(VEKLightObjectList& list, VEKBaseUnknown* object) noexcept;
  // The object's set; the objects of a model all belong to its one set.
  LightSet& Set() const noexcept;

 private:
  friend class Core;
  Core& core_;
  const int kind_;
  const std::uint64_t serial_;
  LightObject* next_ = nullptr;
  std::optional<VEKUnicodeString> name_;
  std::optional<unsigned short> type_;
  std::unique_ptr<VEKRep> rep_;
  std::optional<int> id_;
  std::optional<unsigned short> status_;
  std::optional<VEKUnicodeString> uuid_;
};

// The boilerplate every model class shares: it offers `Primary` (its identity), VEKITPSLight and
// each of `Extra` through QueryInterface, and counts its references with its whole model.
// `ObjectKind` is the object's VEKTPSLightKind, kKindSet for the set.
template <int ObjectKind, class Primary, class... Extra>
class ModelObject : public LightObject, public Primary, public Extra... {
 public:
  explicit ModelObject(Core& core) noexcept : LightObject(core, ObjectKind) {}

  HRESULT QueryInterface(const IID& iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (iid == VEKBaseUnknown::kIID) {
      *out = Identity();
    } else if (iid == kIIDLightObject) {
      *out = static_cast<LightObject*>(this);
    } else {
      (void)(Offer<Primary>(iid, out) || Offer<VEKITPSLight>(iid, out) ||
             (Offer<Extra>(iid, out) || ...));
    }
    if (!*out) return E_NOINTERFACE;
    GetCore().AddRef();
    return S_OK;
  }
  std::uint32_t AddRef() override { return GetCore().AddRef(); }
  std::uint32_t Release() override { return GetCore().Release(); }
  VEKBaseUnknown* Identity() noexcept override { return static_cast<Primary*>(this); }

 private:
  template <class Interface>
  bool Offer(const IID& iid, void** out) noexcept {
    if (iid != Interface::kIID) return false;
    *out = static_cast<Interface*>(this);
    return true;
  }
};

// VEKITPSLight and the annotation's and capture's interfaces both declare SetRep(VEKRep*). This
// shim routes the object's own SetRep to SetGraphicRep, so that the common representation and the
// object's graphic stay two distinct values.
template <class Interface>
class GraphicRepFace : public Interface {
 public:
  HRESULT SetRep(VEKRep* rep) final { return SetGraphicRep(rep); }

 protected:
  virtual HRESULT SetGraphicRep(VEKRep* rep) = 0;
};

class LightSet final : public ModelObject<kKindSet, VEKITPSLightSet, VEKITPSIdBroker> {
 public:
  // A new model holding one new set, returned with one reference; on success it takes over the
  // caller's reference to `previous` (may be null). E_OUTOFMEMORY when memory runs out.
  static HRESULT Create(VEKBaseUnknown* father, LightSet* previous, LightSet** out) noexcept;
  // The set behind `set` when it is a live set of this library; null for any other value, which
  // is never looked through.
  static LightSet* From(VEKITPSLightSet* set) noexcept;
  // Whether `set` is the face of a set whose model has not been freed, told from the address
  // alone.
  static bool IsLive(const VEKITPSLightSet* set) noexcept;
  // Unlists the set of a model whose count has reached zero, before anything of it is freed.
  void Unlist() noexcept;

  LightSet* AsSet() noexcept override { return this; }

  // Adds a new object of this model to its family and returns it with one reference; frees it
  // and returns E_OUTOFMEMORY when the family list cannot grow.
  HRESULT Adopt(LightObject* object) noexcept;
  // Gives `object` its id and keeps the broker's index current.
  HRESULT AssignId(LightObject& object, int id) noexcept;

  HRESULT SetStandard(const wchar_t* standard) override;
  VEKLightObjectList* GetAnnotations() override { return &families_[0]; }
  std::optional<VEKUnicodeString> GetStandard() const override { return standard_; }
  const VEKLightObjectList& GetTTRS() const override { return Family(VEKTPSLightKindTTRS); }
  const VEKLightObjectList& GetViews() const override { return Family(VEKTPSLightKindView); }
  const VEKLightObjectList& GetRefFrames() const override {
    return Family(VEKTPSLightKindRefFrame);
  }
  const VEKLightObjectList& GetCGs() const override { return Family(VEKTPSLightKindCG); }
  const VEKLightObjectList& GetCaptures() const override { return Family(VEKTPSLightKindCapture); }
  VEKBaseUnknown* GetFather() const override { return father_; }
  HRESULT GetPreviousSet(VEKITPSLightSet** out) const override;
  const std::vector<VEKTPSLightUnresolved>& GetUnresolvedReferences() const override {
    return unresolved_;
  }
  const std::vector<VEKTPSLightUnresolved>& GetDuplicateIds() const override { return duplicates_; }
  VEKBaseUnknown* FindObject(int id, int kind) const override;

  HRESULT GetObjectFromId(int id, int kind, VEKBaseUnknown** out) override;

 private:
  LightSet(Core& core, VEKBaseUnknown* father) noexcept : ModelObject(core), father_(father) {}
  const VEKLightObjectList& Family(int kind) const noexcept { return families_[kind - 1]; }
  // Points the index entry of `id` away from `object`, which no longer holds it.
  void Unindex(const LightObject& object, int id) noexcept;

  friend class LiveSets;
  VEKBaseUnknown* father_;
  // The registry's link to the next live set of the same bucket, disguised as LiveSets keeps it.
  std::uintptr_t listed_ = 0;
  std::optional<VEKUnicodeString> standard_;
  VEKLightObjectList families_[kKindCount];
  // Per kind, id -> the first-created object holding it.
  IdIndex indexes_[kKindCount];
  std::vector<VEKTPSLightUnresolved> unresolved_;
  std::vector<VEKTPSLightUnresolved> duplicates_;
};

class Annotation final
    : public ModelObject<VEKTPSLightKindAnnotation, GraphicRepFace<VEKITPSLightAnnotation>,
                         VEKITPSLightModel> {
 public:
  using ModelObject::ModelObject;

  HRESULT SetValue(double value) override;
  HRESULT SetDefault(int flag) override;
  HRESULT AddTTRS(int ttrsId) override;
  HRESULT SetReference(int ref) override;
  HRESULT SetAttribute(const wchar_t* text) override;
  std::optional<double> GetValue() const override { return value_; }
  bool IsDefault() const override { return default_; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  std::optional<int> GetReference() const override { return reference_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }
  const VEKRep* GetGraphicRep() const override { return graphicRep_.get(); }

  HRESULT SetOrderGroup(VEKLightObjectList* group) override;
  HRESULT SetView(VEKITPSLightView* view) override;
  const VEKLightObjectList* GetOrderGroup() const override { return orderGroup_.get(); }
  const VEKLightObjectList& GetViews() const override { return views_; }

 private:
  HRESULT SetGraphicRep(VEKRep* rep) override;

  std::optional<double> value_;
  bool default_ = false;
  std::vector<int> ttrs_;
  std::optional<int> reference_;
  std::optional<VEKUnicodeString> attribute_;
  std::unique_ptr<VEKRep> graphicRep_;
  std::unique_ptr<VEKLightObjectList> orderGroup_;
  VEKLightObjectList views_;
};

class View final : public ModelObject<VEKTPSLightKindView, VEKITPSLightView> {
 public:
  using ModelObject::ModelObject;

  HRESULT SetOrigin(double x, double y, double z) override;
  HRESULT SetNormal(double x, double y, double z) override;
  HRESULT SetDirection(double x, double y, double z) override;
  HRESULT AddTPS(VEKBaseUnknown* annotation) override;
  HRESULT AddCapture(VEKBaseUnknown* capture) override;
  std::optional<VEKVector3> GetOrigin() const override { return origin_; }
  std::optional<VEKVector3> GetNormal() const override { return normal_; }
  std::optional<VEKVector3> GetDirection() const override { return direction_; }
  const VEKLightObjectList& GetAnnotations() const override { return annotations_; }
  const VEKLightObjectList& GetCaptures() const override { return captures_; }

 private:
  std::optional<VEKVector3> origin_;
  std::optional<VEKVector3> normal_;
  std::optional<VEKVector3> direction_;
  VEKLightObjectList annotations_;
  VEKLightObjectList captures_;
};

class TTRS final : public ModelObject<VEKTPSLightKindTTRS, VEKITPSLightTTRS> {
 public:
  using ModelObject::ModelObject;

  HRESULT AddGeometry(VEKRawCollint* ids) override;
  int GetGeometryCount() const override { return static_cast<int>(geometries_.size()); }
  const VEKRawCollint* GetGeometry(int index) const override;

 private:
  std::vector<std::unique_ptr<VEKRawCollint>> geometries_;
};

class RefFrame final : public ModelObject<VEKTPSLightKindRefFrame, VEKITPSLightRefFrame> {
 public:
  using ModelObject::ModelObject;

  HRESULT AddDatum(VEKBaseUnknown* datum) override;
  HRESULT AddTTRS(int ttrsId) override;
  HRESULT SetAttribute(const wchar_t* text) override;
  const VEKLightObjectList& GetDatums() const override { return datums_; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }

 private:
  VEKLightObjectList datums_;
  std::vector<int> ttrs_;
  std::optional<VEKUnicodeString> attribute_;
};

class CG final : public ModelObject<VEKTPSLightKindCG, VEKITPSLightCG> {
 public:
  using ModelObject::ModelObject;

  HRESULT AddTTRS(int ttrsId) override;
  HRESULT AddTRep(int repId) override;
  HRESULT SetAttribute(const wchar_t* text) override;
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  const std::vector<int>& GetTReps() const override { return treps_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }

 private:
  std::vector<int> ttrs_;
  std::vector<int> treps_;
  std::optional<VEKUnicodeString> attribute_;
};

class Capture final
    : public ModelObject<VEKTPSLightKindCapture, GraphicRepFace<VEKITPSLightCapture>> {
 public:
  using ModelObject::ModelObject;

  HRESULT AddTPS(VEKBaseUnknown* annotation) override;
  HRESULT AddView(VEKBaseUnknown* view) override;
  HRESULT SetActiveView(VEKBaseUnknown* view) override;
  HRESULT SetClippingPlane(int clip) override;
  HRESULT SetCameraPosition(double x, double y, double z) override;
  HRESULT SetCameraDirection(double x, double y, double z) override;
  HRESULT SetCameraZenith(double x, double y, double z) override;
  HRESULT SetCameraTarget(double x, double y, double z) override;
  HRESULT SetCameraType(int type) override;
  HRESULT AddCG(VEKBaseUnknown* cg) override;

  const VEKLightObjectList& GetAnnotations() const override { return annotations_; }
  const VEKLightObjectList& GetViews() const override { return views_; }
  VEKBaseUnknown* GetActiveView() const override { return activeView_; }
  std::optional<int> GetClippingPlane() const override { return clippingPlane_; }
  std::optional<VEKVector3> GetCameraPosition() const override { return cameraPosition_; }
  std::optional<VEKVector3> GetCameraDirection() const override { return cameraDirection_; }
  std::optional<VEKVector3> GetCameraZenith() const override { return cameraZenith_; }
  std::optional<VEKVector3> GetCameraTarget() const override { return cameraTarget_; }
  std::optional<int> GetCameraType() const override { return cameraType_; }
  const VEKLightObjectList& GetCGs() const override { return cgs_; }
  const VEKRep* GetGraphicRep() const override { return graphicRep_.get(); }

 private:
  HRESULT SetGraphicRep(VEKRep* rep) override;

  VEKLightObjectList annotations_;
  VEKLightObjectList views_;
  VEKBaseUnknown* activeView_ = nullptr;
  std::optional<int> clippingPlane_;
  std::optional<VEKVector3> cameraPosition_;
  std::optional<VEKVector3> cameraDirection_;
  std::optional<VEKVector3> cameraZenith_;
  std::optional<VEKVector3> cameraTarget_;
  std::optional<int> cameraType_;
  VEKLightObjectList cgs_;
  std::unique_ptr<VEKRep> graphicRep_;
};

}  // namespace VEKModelDetail
