// The light annotation model: an annotation set with its annotations (TPS), TTRS, views,
// reference frames, construction geometries (CG) and captures, built through one container.
//
// Ownership: a set and every object made in it form one model that shares a single reference
// count: a reference to any of them keeps the whole model alive, and releasing the last one frees
// it all. Links between objects (views of an annotation, datums of a reference frame, ...) are
// plain pointers inside the model, so they never dangle and never form reference cycles; objects
// of different models are never linked (E_INVALIDARG). Getters return links and lists without
// adding a reference: they stay valid while the model lives. Object lists and links hold each
// object's identity (its VEKBaseUnknown face, as CLSID_VEKBaseUnknown gives it).
//
// Setters record their value (or append, keeping order and duplicates); getters return
// std::nullopt, null or an empty list for what was never set.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "VEKBaseUnknown.h"
#include "VEKLists.h"
#include "VEKSceneGraph.h"
#include "VEKUnicodeString.h"

class VEKITPSLightView;

// Object kinds of the id broker.
enum VEKTPSLightKind : int {
  VEKTPSLightKindAnnotation = 1,
  VEKTPSLightKindView = 2,
  VEKTPSLightKindTTRS = 3,
  VEKTPSLightKindRefFrame = 4,
  VEKTPSLightKindCG = 5,
  VEKTPSLightKindCapture = 6,
};

struct VEKVector3 {
  double x = 0;
  double y = 0;
  double z = 0;
};

// A growable array of object pointers that are not reference counted; read by position from 0 to
// Count() - 1. Capacity grows to count + max(count, 1) slots when full.
class VEK_API VEKLightObjectList {
 public:
  VEKLightObjectList() noexcept;
  ~VEKLightObjectList();
  VEKLightObjectList(const VEKLightObjectList&) = delete;
  VEKLightObjectList& operator=(const VEKLightObjectList&) = delete;

  int Count() const noexcept { return count_; }
  // The object at `position`; null outside 0..Count() - 1.
  VEKBaseUnknown* Get(int position) const noexcept {
    return position >= 0 && position < count_ ? elements_[position] : nullptr;
  }
  // Adds `object` at the end; E_OUTOFMEMORY (list unchanged) when the array cannot grow.
  HRESULT Append(VEKBaseUnknown* object) noexcept;

 private:
  int count_ = 0;
  int free_ = 0;
  VEKBaseUnknown** elements_ = nullptr;
};

// Values common to the set and to every object.
class VEK_API VEKITPSLight : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0xE0C56DEF, 0x9204, 0x4DD2, {0x8E, 0x71, 0x54, 0xFA, 0xB0, 0xEE, 0x91, 0xE3}};

  // Wide strings are zero-terminated UTF-32 and copied; null is E_POINTER.
  virtual HRESULT SetName(const wchar_t* name) = 0;
  virtual HRESULT SetType(unsigned short type) = 0;
  // Takes ownership of `rep` (null clears); a representation set earlier is freed.
  virtual HRESULT SetRep(VEKRep* rep) = 0;
  virtual HRESULT SetId(int id) = 0;
  virtual HRESULT SetStatus(unsigned short status) = 0;
  virtual HRESULT SetUuid(const wchar_t* uuid) = 0;

  virtual std::optional<VEKUnicodeString> GetName() const = 0;
  virtual std::optional<unsigned short> GetType() const = 0;
  virtual const VEKRep* GetRep() const = 0;
  virtual std::optional<int> GetId() const = 0;
  virtual std::optional<unsigned short> GetStatus() const = 0;
  virtual std::optional<VEKUnicodeString> GetUuid() const = 0;
};

struct VEKTPSLightUnresolved {
  int id;
  int kind;
};

// The annotation set. Also answers VEKITPSLight and VEKITPSIdBroker.
class VEK_API VEKITPSLightSet : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x3D1B7A60, 0x52C4, 0x4F0E, {0xA1, 0x93, 0x6C, 0x2E, 0x58, 0x0D, 0xB7, 0x41}};

  virtual HRESULT SetStandard(const wchar_t* standard) = 0;
  // The set's annotations in creation order; not owned by the caller.
  virtual VEKLightObjectList* GetAnnotations() = 0;

  virtual std::optional<VEKUnicodeString> GetStandard() const = 0;
  // The other families, in creation order.
  virtual const VEKLightObjectList& GetTTRS() const = 0;
  virtual const VEKLightObjectList& GetViews() const = 0;
  virtual const VEKLightObjectList& GetRefFrames() const = 0;
  virtual const VEKLightObjectList& GetCGs() const = 0;
  virtual const VEKLightObjectList& GetCaptures() const = 0;
  // The component given to CreateLightSet (not referenced, never called).
  virtual VEKBaseUnknown* GetFather() const = 0;
  // The set made just before this one in the same load, with one reference for the caller;
  // S_FALSE and null when there is none.
  virtual HRESULT GetPreviousSet(VEKITPSLightSet** out) const = 0;
  // Every failed id-broker lookup, in order.
  virtual const std::vector<VEKTPSLightUnresolved>& GetUnresolvedReferences() const = 0;
  // Every (id, kind) given to an object when another object of the same kind already had it, in
  // order.
  virtual const std::vector<VEKTPSLightUnresolved>& GetDuplicateIds() const = 0;
  // The object of `kind` (VEKTPSLightKind) whose id is `id`, as its identity and without adding a
  // reference: the first created when several share the id, as the id broker answers, but nothing
  // is recorded. Null when there is none.
  virtual VEKBaseUnknown* FindObject(int id, int kind) const = 0;
};

// Finds the objects of one set by the id given through VEKITPSLight::SetId.
class VEK_API VEKITPSIdBroker : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x9A4E2E13, 0x5BB2, 0x427C, {0xBC, 0xAA, 0x44, 0x87, 0xAB, 0xF7, 0xFD, 0x1E}};

  // The object of `kind` (VEKTPSLightKind) whose id is `id`, as its VEKBaseUnknown face with one
  // reference; when several share the id, the first created. E_FAIL (recorded as unresolved on
  // the set) when there is none, E_POINTER when out is null.
  virtual HRESULT GetObjectFromId(int id, int kind, VEKBaseUnknown** out) = 0;
};

// Links of an annotation to other objects.
class VEK_API VEKITPSLightModel : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x9120ACFC, 0xCC9A, 0x4BD8, {0xBB, 0x5F, 0x3B, 0xB9, 0xA7, 0x59, 0x46, 0xA1}};

  // Takes ownership of `group` (null clears); a group set earlier is freed. E_INVALIDARG when an
  // entry is null or not of this model (E_OUTOFMEMORY when memory runs out): the list then stays
  // the caller's and the earlier group is kept.
  virtual HRESULT SetOrderGroup(VEKLightObjectList* group) = 0;
  // Appends `view` to the views showing this annotation.
  virtual HRESULT SetView(VEKITPSLightView* view) = 0;

  // The order group; null when never set.
  virtual const VEKLightObjectList* GetOrderGroup() const = 0;
  // One entry per SetView call, in order.
  virtual const VEKLightObjectList& GetViews() const = 0;
};

class VEK_API VEKITPSLightView : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x75C87788, 0x2A96, 0x439D, {0xA4, 0xAA, 0xEE, 0xCC, 0xC9, 0xFB, 0xF0, 0x36}};

  virtual HRESULT SetOrigin(double x, double y, double z) = 0;
  virtual HRESULT SetNormal(double x, double y, double z) = 0;
  virtual HRESULT SetDirection(double x, double y, double z) = 0;
  // Object adders take any object of this model; null or a foreign object is E_INVALIDARG.
  virtual HRESULT AddTPS(VEKBaseUnknown* annotation) = 0;
  virtual HRESULT AddCapture(VEKBaseUnknown* capture) = 0;

  virtual std::optional<VEKVector3> GetOrigin() const = 0;
  virtual std::optional<VEKVector3> GetNormal() const = 0;
  virtual std::optional<VEKVector3> GetDirection() const = 0;
  virtual const VEKLightObjectList& GetAnnotations() const = 0;
  virtual const VEKLightObjectList& GetCaptures() const = 0;
};

// An annotation (TPS). Also answers VEKITPSLight and VEKITPSLightModel.
class VEK_API VEKITPSLightAnnotation : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x5C7E1F24, 0x8B3D, 0x4A96, {0xB2, 0x0F, 0x71, 0xD4, 0xE9, 0x3A, 0x6C, 0x85}};

  virtual HRESULT SetValue(double value) = 0;
  // Marks the annotation as default (flag non-zero) or not.
  virtual HRESULT SetDefault(int flag) = 0;
  virtual HRESULT AddTTRS(int ttrsId) = 0;
  virtual HRESULT SetReference(int ref) = 0;
  virtual HRESULT SetAttribute(const wchar_t* text) = 0;
  // The annotation's own graphic; takes ownership as VEKITPSLight::SetRep does.
  virtual HRESULT SetRep(VEKRep* rep) = 0;

  virtual std::optional<double> GetValue() const = 0;
  // Whether the last SetDefault had a non-zero flag; false when never called.
  virtual bool IsDefault() const = 0;
  virtual const std::vector<int>& GetTTRS() const = 0;
  virtual std::optional<int> GetReference() const = 0;
  virtual std::optional<VEKUnicodeString> GetAttribute() const = 0;
  virtual const VEKRep* GetGraphicRep() const = 0;
};

// A TTRS. Also answers VEKITPSLight.
class VEK_API VEKITPSLightTTRS : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x1F8A3B92, 0x6D45, 0x4C7E, {0x93, 0xB1, 0x0A, 0x5E, 0xC2, 0x7F, 0x48, 0xD6}};

  // Appends one list of geometry ids and takes ownership of it (null is kept as a null entry).
  virtual HRESULT AddGeometry(VEKRawCollint* ids) = 0;

  virtual int GetGeometryCount() const = 0;
  // List `index` (0-based) in the order added; null for a null entry or outside the range.
  virtual const VEKRawCollint* GetGeometry(int index) const = 0;
};

// A reference frame (datum system). Also answers VEKITPSLight.
class VEK_API VEKITPSLightRefFrame : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0xA43C9E17, 0x2F6B, 0x4D88, {0xAE, 0x54, 0x13, 0x9B, 0x7C, 0xF0, 0x2D, 0x6A}};

  virtual HRESULT AddDatum(VEKBaseUnknown* datum) = 0;
  virtual HRESULT AddTTRS(int ttrsId) = 0;
  virtual HRESULT SetAttribute(const wchar_t* text) = 0;

  virtual const VEKLightObjectList& GetDatums() const = 0;
  virtual const std::vector<int>& GetTTRS() const = 0;
  virtual std::optional<VEKUnicodeString> GetAttribute() const = 0;
};

// A construction geometry. Also answers VEKITPSLight.
class VEK_API VEKITPSLightCG : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x6E2D8C41, 0x9A17, 0x4B3F, {0x85, 0xC6, 0x2B, 0xE0, 0x4F, 0x91, 0x7D, 0x13}};

  virtual HRESULT AddTTRS(int ttrsId) = 0;
  virtual HRESULT AddTRep(int repId) = 0;
  virtual HRESULT SetAttribute(const wchar_t* text) = 0;

  virtual const std::vector<int>& GetTTRS() const = 0;
  virtual const std::vector<int>& GetTReps() const = 0;
  virtual std::optional<VEKUnicodeString> GetAttribute() const = 0;
};

// A capture: camera, clipping and what is shown. Also answers VEKITPSLight.
class VEK_API VEKITPSLightCapture : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0xC8F1A6D3, 0x4E29, 0x4F5B, {0x9D, 0x07, 0xB6, 0x31, 0x8A, 0xE4, 0x52, 0xCF}};

  virtual HRESULT AddTPS(VEKBaseUnknown* annotation) = 0;
  virtual HRESULT AddView(VEKBaseUnknown* view) = 0;
  virtual HRESULT SetActiveView(VEKBaseUnknown* view) = 0;
  virtual HRESULT SetClippingPlane(int clip) = 0;
  virtual HRESULT SetCameraPosition(double x, double y, double z) = 0;
  virtual HRESULT SetCameraDirection(double x, double y, double z) = 0;
  virtual HRESULT SetCameraZenith(double x, double y, double z) = 0;
  virtual HRESULT SetCameraTarget(double x, double y, double z) = 0;
  virtual HRESULT SetCameraType(int type) = 0;
  virtual HRESULT AddCG(VEKBaseUnknown* cg) = 0;
  // The capture's own graphic; takes ownership as VEKITPSLight::SetRep does.
  virtual HRESULT SetRep(VEKRep* rep) = 0;

  virtual const VEKLightObjectList& GetAnnotations() const = 0;
  virtual const VEKLightObjectList& GetViews() const = 0;
  // The active view's VEKBaseUnknown face; null when never set.
  virtual VEKBaseUnknown* GetActiveView() const = 0;
  virtual std::optional<int> GetClippingPlane() const = 0;
  virtual std::optional<VEKVector3> GetCameraPosition() const = 0;
  virtual std::optional<VEKVector3> GetCameraDirection() const = 0;
  virtual std::optional<VEKVector3> GetCameraZenith() const = 0;
  virtual std::optional<VEKVector3> GetCameraTarget() const = 0;
  virtual std::optional<int> GetCameraType() const = 0;
  virtual const VEKLightObjectList& GetCGs() const = 0;
  virtual const VEKRep* GetGraphicRep() const = 0;
};

// The factory of every model object. Each creation returns the new object through `out` with one
// reference for the caller and adds it to `set` (which must be a live set of this model
// implementation: E_INVALIDARG, without looking through it, otherwise; E_POINTER for a null out
// or set). Creations are virtual so that tests can substitute a recording container.
class VEK_API VEKTPSLightContainer : public VEKBaseUnknown {
 public:
  static constexpr IID kIID = {
      0x27B5D0E9, 0x3C81, 0x4A6F, {0xB7, 0x42, 0xD9, 0x15, 0x6A, 0x0C, 0xE3, 0x58}};

  VEKTPSLightContainer() noexcept;
  ~VEKTPSLightContainer() override;

  HRESULT QueryInterface(const IID& iid, void** out) override;
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;

  // Whether `set` is a set made by this model whose count has not reached zero, told from the
  // address alone: a freed, uninitialised or foreign pointer is never looked through. False for
  // null.
  static bool IsLiveSet(const VEKITPSLightSet* set) noexcept;

  virtual HRESULT CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set);
  // A new set attached to `father` (kept, never called). When `*out` holds a live set of this
  // model (IsLiveSet), the new set takes over the reference held in `*out` (GetPreviousSet), so
  // every set of a load stays reachable from the last and is freed with it; any other value in
  // `*out` is overwritten without being looked at. On failure `*out` is left as it was.
  virtual HRESULT CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father);
  virtual HRESULT CreateView(VEKITPSLightView** out, VEKITPSLightSet* set);
  virtual HRESULT CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set);
  virtual HRESULT CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set);
  virtual HRESULT CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set);
  virtual HRESULT CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set);

 private:
  std::uint32_t references_ = 1;
};
