// The recording container: proxies of the real model's objects that log each call and hand it on.
#include "RecordingModel.h"

#include <cstdio>
#include <optional>
#include <type_traits>

#include "ModelQueries.h"
#include "VEKSceneGraph.h"
#include "VEKUnicodeString.h"

namespace vek_test {

namespace {

const char kKindLetters[] = "SAVTRGC";

int Index(RecordingKind kind) { return static_cast<int>(kind); }

std::string InterfaceName(const IID& iid) {
  static const std::pair<const IID*, const char*> kNames[] = {
      {&VEKBaseUnknown::kIID, "VEKBaseUnknown"},
      {&VEKITPSLight::kIID, "VEKITPSLight"},
      {&VEKITPSLightSet::kIID, "VEKITPSLightSet"},
      {&VEKITPSIdBroker::kIID, "VEKITPSIdBroker"},
      {&VEKITPSLightModel::kIID, "VEKITPSLightModel"},
      {&VEKITPSLightView::kIID, "VEKITPSLightView"},
      {&VEKITPSLightAnnotation::kIID, "VEKITPSLightAnnotation"},
      {&VEKITPSLightTTRS::kIID, "VEKITPSLightTTRS"},
      {&VEKITPSLightRefFrame::kIID, "VEKITPSLightRefFrame"},
      {&VEKITPSLightCG::kIID, "VEKITPSLightCG"},
      {&VEKITPSLightCapture::kIID, "VEKITPSLightCapture"},
  };
  for (const auto& [known, name] : kNames) {
    if (*known == iid) return name;
  }
  return "?";
}

std::string Show(int value) { return std::to_string(value); }
std::string Show(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}
std::string Show(const wchar_t* text) {
  return text ? "\"" + std::string(VEKUnicodeString(text).ConvertToChar()) + "\"" : "null";
}
std::string Show(const VEKRep* rep) { return rep ? "rep" : "null"; }
// "[a,b]": the `count` items of a list, each as `item` (of its position from 0) writes it.
template <class Item>
std::string Listed(int count, Item item) {
  std::string text = "[";
  for (int position = 0; position < count; ++position) {
    text += (position > 0 ? "," : "") + item(position);
  }
  return text + "]";
}
std::string Show(const VEKRawCollint* numbers) {
  if (!numbers) return "null";
  return Listed(numbers->Size(), [&](int k) { return std::to_string((*numbers)[k + 1]); });
}

bool IsReferenceLine(const std::string& line) {
  for (const char* call : {".QueryInterface(", ".AddRef()", ".Release()"}) {
    if (line.find(call) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> Ledger::Operations() const {
  std::vector<std::string> kept;
  for (const std::string& line : lines_) {
    if (!IsReferenceLine(line)) kept.push_back(line);
  }
  return kept;
}

std::string Ledger::Text() const {
  std::string text;
  for (const std::string& line : lines_) text += line + "\n";
  return text;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : " | ") + line;
  return text;
}

// What every proxy has: its name, its count of references handed out, the real object behind it.
class Recorded {
 public:
  Recorded(RecordingContainer& container, RecordingKind kind, VEKBaseUnknown* real)
      : container_(container), kind_(kind), real_(real) {
    name_ = kKindLetters[Index(kind)] + std::to_string(++container.created_[Index(kind)]);
  }
  virtual ~Recorded() = default;

  const std::string& Name() const { return name_; }
  RecordingKind Kind() const { return kind_; }
  VEKBaseUnknown* Real() const { return real_; }
  int References() const { return references_; }
  // The proxy's face for `iid` (its identity for VEKBaseUnknown); null for one it does not offer.
  virtual void* FaceOf(const IID& iid) = 0;
  VEKBaseUnknown* Identity() { return static_cast<VEKBaseUnknown*>(FaceOf(VEKBaseUnknown::kIID)); }
  // Counts a reference the real model handed out for this object.
  void HandOut() { ++references_; }

  void Log(const std::string& call) { container_.ledger_.Add(name_ + "." + call); }
  // The proxy of the real object `real`; null for none.
  Recorded* Find(const VEKBaseUnknown* real) const { return container_.Find(real); }
  // A call argument as the ledger writes it: objects by name, lists of them by their names.
  template <class Value>
  std::string Show(Value value) const {
    if constexpr (std::is_convertible_v<Value, const VEKBaseUnknown*>) {
      return container_.NameOf(value);
    } else if constexpr (std::is_same_v<Value, VEKLightObjectList*>) {
      if (!value) return "null";
      return Listed(value->Count(), [&](int k) { return container_.NameOf(value->Get(k)); });
    } else {
      return vek_test::Show(value);
    }
  }

 protected:
  HRESULT Query(const IID& iid, void** out) {
    if (!out) return E_POINTER;
    *out = container_.Refuses(*this, iid) ? nullptr : FaceOf(iid);
    // What the proxy does not offer is the real object's: the model's own queries pass unwritten.
    if (!*out && !container_.Refuses(*this, iid) && VEKSucceeded(real_->QueryInterface(iid, out)))
      return S_OK;
    Log("QueryInterface(" + InterfaceName(iid) + ") -> " + (*out ? "ok" : "refused"));
    if (!*out) return E_NOINTERFACE;
    ++references_;
    real_->AddRef();
    return S_OK;
  }
  std::uint32_t Reference() {
    Log("AddRef()");
    ++references_;
    return real_->AddRef();
  }
  std::uint32_t Unreference() {
    if (references_ == 0) {
      Log("Release() -> over-release");
      ++container_.overReleases_;
      return 0;
    }
    Log("Release()");
    --references_;
    return real_->Release();
  }

  RecordingContainer& container_;

 private:
  std::string name_;
  const RecordingKind kind_;
  VEKBaseUnknown* const real_;
  int references_ = 1;
};

namespace {

// The face of interface I that logs each call made through it and hands it on to the real object.
template <class I>
class Logged : public I {
 public:
  void Bind(Recorded* self) {
    self_ = self;
    real_ = Query<I>(self->Real()).Get();  // the container keeps the model alive
  }

 protected:
  using Interface = I;

  template <class... Parameters, class... Arguments>
  HRESULT Call(const char* name, HRESULT (I::*method)(Parameters...), Arguments... arguments) {
    std::string shown;
    ((shown += (shown.empty() ? "" : ", ") + self_->Show(arguments)), ...);
    self_->Log(std::string(name) + "(" + shown + ")");
    return (real_->*method)(arguments...);
  }

  Recorded* self_ = nullptr;
  I* real_ = nullptr;
};

#define VEK_CALL(method, ...) Call(#method, &Interface::method, __VA_ARGS__)

template <class I>
class Face;

template <>
class Face<VEKITPSLight> : public Logged<VEKITPSLight> {
 public:
  HRESULT SetName(const wchar_t* name) override { return VEK_CALL(SetName, name); }
  HRESULT SetType(unsigned short type) override { return VEK_CALL(SetType, type); }
  HRESULT SetRep(VEKRep* rep) override { return VEK_CALL(SetRep, rep); }
  HRESULT SetId(int id) override { return VEK_CALL(SetId, id); }
  HRESULT SetStatus(unsigned short status) override { return VEK_CALL(SetStatus, status); }
  HRESULT SetUuid(const wchar_t* uuid) override { return VEK_CALL(SetUuid, uuid); }
  std::optional<VEKUnicodeString> GetName() const override { return real_->GetName(); }
  std::optional<unsigned short> GetType() const override { return real_->GetType(); }
  const VEKRep* GetRep() const override { return real_->GetRep(); }
  std::optional<int> GetId() const override { return real_->GetId(); }
  std::optional<unsigned short> GetStatus() const override { return real_->GetStatus(); }
  std::optional<VEKUnicodeString> GetUuid() const override { return real_->GetUuid(); }
};

template <>
class Face<VEKITPSLightSet> : public Logged<VEKITPSLightSet> {
 public:
  HRESULT SetStandard(const wchar_t* text) override { return VEK_CALL(SetStandard, text); }
  VEKLightObjectList* GetAnnotations() override {
    self_->Log("GetAnnotations()");
    return real_->GetAnnotations();
  }
  std::optional<VEKUnicodeString> GetStandard() const override { return real_->GetStandard(); }
  const VEKLightObjectList& GetTTRS() const override { return real_->GetTTRS(); }
  const VEKLightObjectList& GetViews() const override { return real_->GetViews(); }
  const VEKLightObjectList& GetRefFrames() const override { return real_->GetRefFrames(); }
  const VEKLightObjectList& GetCGs() const override { return real_->GetCGs(); }
  const VEKLightObjectList& GetCaptures() const override { return real_->GetCaptures(); }
  VEKBaseUnknown* GetFather() const override { return real_->GetFather(); }
  HRESULT GetPreviousSet(VEKITPSLightSet** out) const override {
    return real_->GetPreviousSet(out);
  }
  const std::vector<VEKTPSLightUnresolved>& GetUnresolvedReferences() const override {
    return real_->GetUnresolvedReferences();
  }
  const std::vector<VEKTPSLightUnresolved>& GetDuplicateIds() const override {
    return real_->GetDuplicateIds();
  }
  VEKBaseUnknown* FindObject(int id, int kind) const override {
    return real_->FindObject(id, kind);
  }
};

template <>
class Face<VEKITPSIdBroker> : public Logged<VEKITPSIdBroker> {
 public:
  // Hands out the proxy of what the real broker finds.
  HRESULT GetObjectFromId(int id, int kind, VEKBaseUnknown** out) override;
};

template <>
class Face<VEKITPSLightModel> : public Logged<VEKITPSLightModel> {
 public:
  HRESULT SetOrderGroup(VEKLightObjectList* group) override {
    return VEK_CALL(SetOrderGroup, group);
  }
  HRESULT SetView(VEKITPSLightView* view) override { return VEK_CALL(SetView, view); }
  const VEKLightObjectList* GetOrderGroup() const override { return real_->GetOrderGroup(); }
  const VEKLightObjectList& GetViews() const override { return real_->GetViews(); }
};

template <>
class Face<VEKITPSLightAnnotation> : public Logged<VEKITPSLightAnnotation> {
 public:
  HRESULT SetValue(double value) override { return VEK_CALL(SetValue, value); }
  HRESULT SetDefault(int flag) override { return VEK_CALL(SetDefault, flag); }
  HRESULT AddTTRS(int id) override { return VEK_CALL(AddTTRS, id); }
  HRESULT SetReference(int ref) override { return VEK_CALL(SetReference, ref); }
  HRESULT SetAttribute(const wchar_t* text) override { return VEK_CALL(SetAttribute, text); }
  HRESULT SetRep(VEKRep* rep) override { return Call("SetGraphicRep", &Interface::SetRep, rep); }
  std::optional<double> GetValue() const override { return real_->GetValue(); }
  bool IsDefault() const override { return real_->IsDefault(); }
  const std::vector<int>& GetTTRS() const override { return real_->GetTTRS(); }
  std::optional<int> GetReference() const override { return real_->GetReference(); }
  std::optional<VEKUnicodeString> GetAttribute() const override { return real_->GetAttribute(); }
  const VEKRep* GetGraphicRep() const override { return real_->GetGraphicRep(); }
};

template <>
class Face<VEKITPSLightView> : public Logged<VEKITPSLightView> {
 public:
  HRESULT SetOrigin(double x, double y, double z) override { return VEK_CALL(SetOrigin, x, y, z); }
  HRESULT SetNormal(double x, double y, double z) override { return VEK_CALL(SetNormal, x, y, z); }
  HRESULT SetDirection(double x, double y, double z) override {
    return VEK_CALL(SetDirection, x, y, z);
  }
  HRESULT AddTPS(VEKBaseUnknown* annotation) override { return VEK_CALL(AddTPS, annotation); }
  HRESULT AddCapture(VEKBaseUnknown* capture) override { return VEK_CALL(AddCapture, capture); }
  std::optional<VEKVector3> GetOrigin() const override { return real_->GetOrigin(); }
  std::optional<VEKVector3> GetNormal() const override { return real_->GetNormal(); }
  std::optional<VEKVector3> GetDirection() const override { return real_->GetDirection(); }
  const VEKLightObjectList& GetAnnotations() const override { return real_->GetAnnotations(); }
  const VEKLightObjectList& GetCaptures() const override { return real_->GetCaptures(); }
};

template <>
class Face<VEKITPSLightTTRS> : public Logged<VEKITPSLightTTRS> {
 public:
  HRESULT AddGeometry(VEKRawCollint* ids) override { return VEK_CALL(AddGeometry, ids); }
  int GetGeometryCount() const override { return real_->GetGeometryCount(); }
  const VEKRawCollint* GetGeometry(int index) const override { return real_->GetGeometry(index); }
};

template <>
class Face<VEKITPSLightRefFrame> : public Logged<VEKITPSLightRefFrame> {
 public:
  HRESULT AddDatum(VEKBaseUnknown* datum) override { return VEK_CALL(AddDatum, datum); }
  HRESULT AddTTRS(int id) override { return VEK_CALL(AddTTRS, id); }
  HRESULT SetAttribute(const wchar_t* text) override { return VEK_CALL(SetAttribute, text); }
  const VEKLightObjectList& GetDatums() const override { return real_->GetDatums(); }
  const std::vector<int>& GetTTRS() const override { return real_->GetTTRS(); }
  std::optional<VEKUnicodeString> GetAttribute() const override { return real_->GetAttribute(); }
};

template <>
class Face<VEKITPSLightCG> : public Logged<VEKITPSLightCG> {
 public:
  HRESULT AddTTRS(int id) override { return VEK_CALL(AddTTRS, id); }
  HRESULT AddTRep(int id) override { return VEK_CALL(AddTRep, id); }
  HRESULT SetAttribute(const wchar_t* text) override { return VEK_CALL(SetAttribute, text); }
  const std::vector<int>& GetTTRS() const override { return real_->GetTTRS(); }
  const std::vector<int>& GetTReps() const override { return real_->GetTReps(); }
  std::optional<VEKUnicodeString> GetAttribute() const override { return real_->GetAttribute(); }
};

template <>
class Face<VEKITPSLightCapture> : public Logged<VEKITPSLightCapture> {
 public:
  HRESULT AddTPS(VEKBaseUnknown* annotation) override { return VEK_CALL(AddTPS, annotation); }
  HRESULT AddView(VEKBaseUnknown* view) override { return VEK_CALL(AddView, view); }
  HRESULT SetActiveView(VEKBaseUnknown* view) override { return VEK_CALL(SetActiveView, view); }
  HRESULT SetClippingPlane(int clip) override { return VEK_CALL(SetClippingPlane, clip); }
  HRESULT SetCameraPosition(double x, double y, double z) override {
    return VEK_CALL(SetCameraPosition, x, y, z);
  }
  HRESULT SetCameraDirection(double x, double y, double z) override {
    return VEK_CALL(SetCameraDirection, x, y, z);
  }
  HRESULT SetCameraZenith(double x, double y, double z) override {
    return VEK_CALL(SetCameraZenith, x, y, z);
  }
  HRESULT SetCameraTarget(double x, double y, double z) override {
    return VEK_CALL(SetCameraTarget, x, y, z);
  }
  HRESULT SetCameraType(int type) override { return VEK_CALL(SetCameraType, type); }
  HRESULT AddCG(VEKBaseUnknown* cg) override { return VEK_CALL(AddCG, cg); }
  HRESULT SetRep(VEKRep* rep) override { return Call("SetGraphicRep", &Interface::SetRep, rep); }
  const VEKLightObjectList& GetAnnotations() const override { return real_->GetAnnotations(); }
  const VEKLightObjectList& GetViews() const override { return real_->GetViews(); }
  VEKBaseUnknown* GetActiveView() const override { return real_->GetActiveView(); }
  std::optional<int> GetClippingPlane() const override { return real_->GetClippingPlane(); }
  std::optional<VEKVector3> GetCameraPosition() const override {
    return real_->GetCameraPosition();
  }
  std::optional<VEKVector3> GetCameraDirection() const override {
    return real_->GetCameraDirection();
  }
  std::optional<VEKVector3> GetCameraZenith() const override { return real_->GetCameraZenith(); }
  std::optional<VEKVector3> GetCameraTarget() const override { return real_->GetCameraTarget(); }
  std::optional<int> GetCameraType() const override { return real_->GetCameraType(); }
  const VEKLightObjectList& GetCGs() const override { return real_->GetCGs(); }
  const VEKRep* GetGraphicRep() const override { return real_->GetGraphicRep(); }
};

#undef VEK_CALL

// The proxy of one real object: `Primary` (its identity), VEKITPSLight and `Extra`.
template <RecordingKind kProxyKind, class Primary, class... Extra>
class Proxy final : public Recorded,
                    public Face<Primary>,
                    public Face<VEKITPSLight>,
                    public Face<Extra>... {
 public:
  static constexpr RecordingKind kKind = kProxyKind;

  Proxy(RecordingContainer& container, Primary* real) : Recorded(container, kProxyKind, real) {
    Face<Primary>::Bind(this);
    Face<VEKITPSLight>::Bind(this);
    (Face<Extra>::Bind(this), ...);
  }

  void* FaceOf(const IID& iid) override {
    if (iid == VEKBaseUnknown::kIID || iid == Primary::kIID) return static_cast<Primary*>(this);
    if (iid == VEKITPSLight::kIID) return static_cast<VEKITPSLight*>(this);
    void* face = nullptr;
    (void)((iid == Extra::kIID && (face = static_cast<Extra*>(this))) || ...);
    return face;
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }
};

using SetProxy = Proxy<RecordingKind::Set, VEKITPSLightSet, VEKITPSIdBroker>;
using AnnotationProxy = Proxy<RecordingKind::Annotation, VEKITPSLightAnnotation, VEKITPSLightModel>;
using ViewProxy = Proxy<RecordingKind::View, VEKITPSLightView>;
using TTRSProxy = Proxy<RecordingKind::TTRS, VEKITPSLightTTRS>;
using RefFrameProxy = Proxy<RecordingKind::RefFrame, VEKITPSLightRefFrame>;
using CGProxy = Proxy<RecordingKind::CG, VEKITPSLightCG>;
using CaptureProxy = Proxy<RecordingKind::Capture, VEKITPSLightCapture>;

HRESULT Face<VEKITPSIdBroker>::GetObjectFromId(int id, int kind, VEKBaseUnknown** out) {
  VEKBaseUnknown* found = nullptr;
  const HRESULT result = real_->GetObjectFromId(id, kind, out ? &found : nullptr);
  Recorded* proxy = self_->Find(found);
  self_->Log("GetObjectFromId(" + std::to_string(id) + ", " + std::to_string(kind) + ") -> " +
             (proxy ? proxy->Name() : "fail"));
  if (!out) return result;
  *out = proxy ? proxy->Identity() : found;
  if (proxy) proxy->HandOut();
  return result;
}

}  // namespace

RecordingContainer::RecordingContainer() = default;

RecordingContainer::~RecordingContainer() = default;

void RecordingContainer::RefuseCreation(RecordingKind kind, int nth) {
  refusedCreations_.push_back({kind, nth == 0 ? 0 : attempts_[Index(kind)] + nth});
}

void RecordingContainer::RefuseInterface(const std::string& name, const IID& iid) {
  refusedInterfaces_.push_back({name, iid});
}

void RecordingContainer::RefuseInterface(RecordingKind kind, const IID& iid) {
  refusedInterfaces_.push_back({std::string(1, kKindLetters[Index(kind)]), iid});
}

Recorded* RecordingContainer::Find(const VEKBaseUnknown* face) const {
  if (!face) return nullptr;
  for (const std::unique_ptr<Recorded>& object : objects_) {
    if (object->Real() == face) return object.get();
    for (const IID* iid : {&VEKBaseUnknown::kIID, &VEKITPSLight::kIID, &VEKITPSIdBroker::kIID,
                           &VEKITPSLightModel::kIID}) {
      if (object->FaceOf(*iid) == face) return object.get();
    }
  }
  return nullptr;
}

std::string RecordingContainer::NameOf(const VEKBaseUnknown* face) const {
  if (!face) return "null";
  Recorded* object = Find(face);
  return object ? object->Name() : "?";
}

int RecordingContainer::OutstandingReferences() const {
  int total = 0;
  for (const std::unique_ptr<Recorded>& object : objects_) total += object->References();
  return total;
}

bool RecordingContainer::Refuses(const Recorded& object, const IID& iid) const {
  const std::string kind(1, kKindLetters[Index(object.Kind())]);
  for (const auto& [who, refused] : refusedInterfaces_) {
    if ((who == object.Name() || who == kind) && refused == iid) return true;
  }
  return false;
}

template <class ProxyOf, class Interface>
HRESULT RecordingContainer::Adopt(const std::string& call, Interface* real, Interface** out) {
  auto* proxy = new ProxyOf(*this, real);
  objects_.emplace_back(proxy);
  ledger_.Add(call + proxy->Name());
  *out = proxy;  // the reference the real model handed out
  return S_OK;
}

template <class ProxyOf, class Interface>
HRESULT RecordingContainer::Create(const char* operation, Interface** out, VEKITPSLightSet* set) {
  const std::string call = std::string(operation) + "(" + NameOf(set) + ") -> ";
  const bool refused = RefusesCreation(ProxyOf::kKind);
  Recorded* owner = Find(set);
  if (out) *out = nullptr;
  if (!out || !owner || owner->Kind() != RecordingKind::Set) {
    ledger_.Add(call + "fail");
    return set && out ? E_INVALIDARG : E_POINTER;
  }
  if (refused) {
    ledger_.Add(call + "refused");
    return E_FAIL;
  }
  Interface* real = nullptr;
  const auto create = Creator(static_cast<Interface*>(nullptr));
  const HRESULT result = (real_.*create)(&real, static_cast<VEKITPSLightSet*>(owner->Real()));
  return VEKFailed(result) ? result : Adopt<ProxyOf>(call, real, out);
}

bool RecordingContainer::RefusesCreation(RecordingKind kind) {
  const int attempt = ++attempts_[Index(kind)];
  for (const auto& [refused, nth] : refusedCreations_) {
    if (refused == kind && (nth == 0 || nth == attempt)) return true;
  }
  return false;
}

HRESULT RecordingContainer::CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) {
  const std::string call = std::string("CreateLightSet(") + (father ? "father" : "null") + ") -> ";
  if (!out || RefusesCreation(RecordingKind::Set)) {
    ledger_.Add(call + (out ? "refused" : "fail"));
    return out ? E_FAIL : E_POINTER;
  }
  VEKITPSLightSet* real = nullptr;
  const HRESULT result = real_.CreateLightSet(&real, father);
  if (VEKFailed(result)) return result;
  models_.emplace_back(real);
  return Adopt<SetProxy>(call, real, out);
}

HRESULT RecordingContainer::CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) {
  return Create<AnnotationProxy>(__func__, out, set);
}
HRESULT RecordingContainer::CreateView(VEKITPSLightView** out, VEKITPSLightSet* set) {
  return Create<ViewProxy>(__func__, out, set);
}
HRESULT RecordingContainer::CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set) {
  return Create<RefFrameProxy>(__func__, out, set);
}
HRESULT RecordingContainer::CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set) {
  return Create<TTRSProxy>(__func__, out, set);
}
HRESULT RecordingContainer::CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set) {
  return Create<CaptureProxy>(__func__, out, set);
}
HRESULT RecordingContainer::CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set) {
  return Create<CGProxy>(__func__, out, set);
}

namespace {

// Writes the objects of one set, naming them by family letter and position.
class ModelWriter {
 public:
  explicit ModelWriter(VEKITPSLightSet* set) : set_(set) {
    families_ = {{'T', &set->GetTTRS()},  {'A', set->GetAnnotations()},
                 {'V', &set->GetViews()}, {'R', &set->GetRefFrames()},
                 {'G', &set->GetCGs()},   {'C', &set->GetCaptures()}};
  }

  std::string Text() {
    std::string text = "S1" + Common(set_) + Field("standard", Value(set_->GetStandard())) +
                       Field("unresolved", Pairs(set_->GetUnresolvedReferences())) +
                       Field("duplicates", Pairs(set_->GetDuplicateIds()));
    for (const auto& [letter, list] : families_) {
      for (int position = 0; position < list->Count(); ++position) {
        VEKBaseUnknown* object = list->Get(position);
        text += "\n" + std::string(1, letter) + std::to_string(position + 1) + Common(object) +
                Family(letter, object);
      }
    }
    return text;
  }

 private:
  // " key=value"; nothing for a value never set ("-") or an empty list.
  static std::string Field(const char* key, const std::string& value) {
    return value == "-" || value == "[]" ? "" : std::string(" ") + key + "=" + value;
  }
  static std::string Value(const std::optional<VEKUnicodeString>& text) {
    return text ? std::string(text->ConvertToChar()) : "-";
  }
  template <class Number>
  static std::string Value(const std::optional<Number>& number) {
    if (!number) return "-";
    if constexpr (std::is_floating_point_v<Number>) return Show(*number);
    return Show(static_cast<int>(*number));
  }
  static std::string Value(const std::optional<VEKVector3>& v) {
    return v ? Show(v->x) + "," + Show(v->y) + "," + Show(v->z) : "-";
  }
  static std::string Value(const VEKRep* rep) {
    return rep ? std::to_string(rep->GetMeshes().size()) : "-";
  }
  static std::string Value(const std::vector<int>& numbers) {
    return Listed(static_cast<int>(numbers.size()), [&](int k) { return Show(numbers[k]); });
  }
  static std::string Pairs(const std::vector<VEKTPSLightUnresolved>& pairs) {
    return Listed(static_cast<int>(pairs.size()),
                  [&](int k) { return Show(pairs[k].id) + ":" + Show(pairs[k].kind); });
  }
  // The name of `object` in this set: "-" for null, "?" for an object of no family.
  std::string Name(VEKBaseUnknown* object) const {
    if (!object) return "-";
    const VEKBaseUnknown* identity = Identity(object);
    for (const auto& [letter, list] : families_) {
      for (int position = 0; position < list->Count(); ++position) {
        if (Identity(list->Get(position)) == identity) {
          return std::string(1, letter) + std::to_string(position + 1);
        }
      }
    }
    return "?";
  }
  std::string Names(const VEKLightObjectList& list) const {
    return Listed(list.Count(), [&](int k) { return Name(list.Get(k)); });
  }
  static std::string Common(VEKBaseUnknown* object) {
    VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(object);
    if (!light) return " <no VEKITPSLight>";
    return " " + Value(light->GetName()) + "/" + Value(light->GetUuid()) + "/" +
           Value(light->GetType()) + "/" + Value(light->GetId()) + "/" + Value(light->GetStatus()) +
           Field("rep", Value(light->GetRep()));
  }
  std::string Family(char letter, VEKBaseUnknown* object) const {
    switch (letter) {
      case 'T': {
        auto ttrs = Query<VEKITPSLightTTRS>(object);
        std::string text;
        for (int index = 0; index < ttrs->GetGeometryCount(); ++index) {
          text += Show(ttrs->GetGeometry(index));
        }
        return text.empty() ? "" : " geometry=" + text;
      }
      case 'A': {
        auto annotation = Query<VEKITPSLightAnnotation>(object);
        auto model = Query<VEKITPSLightModel>(object);
        const VEKLightObjectList* group = model->GetOrderGroup();
        return Field("value", Value(annotation->GetValue())) +
               (annotation->IsDefault() ? " default=1" : "") +
               Field("reference", Value(annotation->GetReference())) +
               Field("attribute", Value(annotation->GetAttribute())) +
               Field("graphic", Value(annotation->GetGraphicRep())) +
               Field("ttrs", Value(annotation->GetTTRS())) +
               (group ? " group=" + Names(*group) : "") + Field("views", Names(model->GetViews()));
      }
      case 'V': {
        auto view = Query<VEKITPSLightView>(object);
        return Field("origin", Value(view->GetOrigin())) +
               Field("normal", Value(view->GetNormal())) +
               Field("direction", Value(view->GetDirection())) +
               Field("tps", Names(view->GetAnnotations())) +
               Field("captures", Names(view->GetCaptures()));
      }
      case 'R': {
        auto frame = Query<VEKITPSLightRefFrame>(object);
        return Field("attribute", Value(frame->GetAttribute())) +
               Field("datums", Names(frame->GetDatums())) + Field("ttrs", Value(frame->GetTTRS()));
      }
      case 'G': {
        auto cg = Query<VEKITPSLightCG>(object);
        return Field("attribute", Value(cg->GetAttribute())) + Field("ttrs", Value(cg->GetTTRS())) +
               Field("treps", Value(cg->GetTReps()));
      }
      default: {
        auto capture = Query<VEKITPSLightCapture>(object);
        return Field("graphic", Value(capture->GetGraphicRep())) +
               Field("active", Name(capture->GetActiveView())) +
               Field("clip", Value(capture->GetClippingPlane())) +
               Field("position", Value(capture->GetCameraPosition())) +
               Field("direction", Value(capture->GetCameraDirection())) +
               Field("zenith", Value(capture->GetCameraZenith())) +
               Field("target", Value(capture->GetCameraTarget())) +
               Field("type", Value(capture->GetCameraType())) +
               Field("tps", Names(capture->GetAnnotations())) +
               Field("views", Names(capture->GetViews())) + Field("cgs", Names(capture->GetCGs()));
      }
    }
  }

  VEKITPSLightSet* set_;
  std::vector<std::pair<char, const VEKLightObjectList*>> families_;
};

}  // namespace

std::string ModelText(VEKITPSLightSet* set) { return set ? ModelWriter(set).Text() : ""; }

}  // namespace vek_test
