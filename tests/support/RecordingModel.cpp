// The recording light annotation model: every call is written to the container's ledger.
#include "RecordingModel.h"

#include <cstdio>
#include <optional>
#include <type_traits>

#include "ModelQueries.h"
#include "VEKComPtr.h"
#include "VEKSceneGraph.h"
#include "VEKUnicodeString.h"

namespace vek_test {

namespace {

using Text = std::optional<VEKUnicodeString>;
using Vector = std::optional<VEKVector3>;

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
      {&VEKTPSLightContainer::kIID, "VEKTPSLightContainer"},
  };
  for (const auto& [known, name] : kNames) {
    if (*known == iid) return name;
  }
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(iid.Data1), iid.Data2, iid.Data3, iid.Data4[0], iid.Data4[1],
                iid.Data4[2], iid.Data4[3], iid.Data4[4], iid.Data4[5], iid.Data4[6], iid.Data4[7]);
  return text;
}

// Ledger forms of call arguments.
std::string Show(int value) { return std::to_string(value); }
std::string Show(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}
std::string Show(const wchar_t* text) {
  return text ? "\"" + std::string(VEKUnicodeString(text).ConvertToChar()) + "\"" : "null";
}
std::string Show(const VEKRawCollint* numbers) {
  if (!numbers) return "null";
  std::string text = "[";
  for (int index = 1; index <= numbers->Size(); ++index) {
    text += (index > 1 ? "," : "") + std::to_string((*numbers)[index]);
  }
  return text + "]";
}

bool IsReferenceLine(const std::string& line) {
  for (const char* call : {".QueryInterface(", ".AddRef()", ".Release()"}) {
    if (line.find(call) != std::string::npos) return true;
  }
  return false;
}

// VEKITPSLight and these interfaces both declare SetRep(VEKRep*); the shims route the object's
// own one to SetGraphicRep so that the two are recorded apart.
template <class Interface>
class GraphicRepFace : public Interface {
 public:
  HRESULT SetRep(VEKRep* rep) final { return SetGraphicRep(rep); }

 protected:
  virtual HRESULT SetGraphicRep(VEKRep* rep) = 0;
};

}  // namespace

void Ledger::Add(std::string line) { lines_.push_back(std::move(line)); }

std::vector<std::string> Ledger::Filter(const std::string& prefix) const {
  std::vector<std::string> kept;
  for (const std::string& line : lines_) {
    if (line.compare(0, prefix.size(), prefix) == 0) kept.push_back(line);
  }
  return kept;
}

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

class RecordingSet;

// The values common to every recording object (VEKITPSLight), its name, its references and the
// logging helpers its setters share.
class RecordingObject : public VEKITPSLight {
 public:
  struct Face {
    const IID* iid;
    VEKBaseUnknown* face;
  };

  RecordingObject(RecordingContainer& container, RecordingKind kind, RecordingSet* set)
      : container_(container), kind_(kind), set_(set) {
    name_ = kKindLetters[Index(kind)] +
            std::to_string(++container.created_[static_cast<std::size_t>(Index(kind))]);
  }

  const std::string& Name() const { return name_; }
  RecordingKind Kind() const { return kind_; }
  RecordingSet* Set() const { return set_; }
  int OutsideReferences() const { return references_ - 1; }
  // The interfaces the object offers, its identity first.
  virtual std::vector<Face> Faces() = 0;

  VEKBaseUnknown* Identity() { return Faces().front().face; }
  void* FaceOf(const IID& iid) {
    for (const Face& face : Faces()) {
      if (*face.iid == iid) return face.face;
    }
    return iid == VEKBaseUnknown::kIID ? Identity() : nullptr;
  }
  bool Owns(const VEKBaseUnknown* candidate) {
    for (const Face& face : Faces()) {
      if (face.face == candidate) return true;
    }
    return false;
  }
  // Counts the reference that a creation or a lookup hands out.
  void HandOut() { ++references_; }

  HRESULT SetName(const wchar_t* name) override { return Keep("SetName", name, name_value_); }
  HRESULT SetType(unsigned short type) override { return Keep("SetType", type, type_); }
  HRESULT SetRep(VEKRep* rep) override { return KeepRep("SetRep", rep, rep_); }
  HRESULT SetId(int id) override { return Keep("SetId", id, id_); }
  HRESULT SetStatus(unsigned short status) override { return Keep("SetStatus", status, status_); }
  HRESULT SetUuid(const wchar_t* uuid) override { return Keep("SetUuid", uuid, uuid_); }
  Text GetName() const override { return name_value_; }
  std::optional<unsigned short> GetType() const override { return type_; }
  const VEKRep* GetRep() const override { return rep_.get(); }
  std::optional<int> GetId() const override { return id_; }
  std::optional<unsigned short> GetStatus() const override { return status_; }
  Text GetUuid() const override { return uuid_; }

 protected:
  void Log(const std::string& call) { container_.ledger_.Add(name_ + "." + call); }
  std::string NameOf(const VEKBaseUnknown* face) const { return container_.NameOf(face); }

  HRESULT Query(const IID& iid, void** out) {
    if (!out) return E_POINTER;
    *out = container_.Refuses(*this, iid) ? nullptr : FaceOf(iid);
    Log("QueryInterface(" + InterfaceName(iid) + ") -> " + (*out ? "ok" : "refused"));
    if (!*out) return E_NOINTERFACE;
    ++references_;
    return S_OK;
  }
  std::uint32_t Reference() {
    Log("AddRef()");
    return static_cast<std::uint32_t>(++references_);
  }
  std::uint32_t Unreference() {
    if (references_ <= 1) {
      Log("Release() -> over-release");
      ++container_.overReleases_;
      return 0;
    }
    Log("Release()");
    return static_cast<std::uint32_t>(--references_);
  }

  // Logs `operation(value)` and stores the value; `Target` is an optional, a vector (appended
  // to) or a flag.
  template <class Value, class Target>
  HRESULT Keep(const char* operation, Value value, Target& target) {
    Log(std::string(operation) + "(" + Show(value) + ")");
    if constexpr (std::is_same_v<Target, std::vector<int>>) {
      target.push_back(value);
    } else if constexpr (std::is_same_v<Value, const wchar_t*>) {
      if (!value) return E_POINTER;
      target.emplace(value);
    } else {
      target = value;
    }
    return S_OK;
  }
  HRESULT Keep(const char* operation, double x, double y, double z, Vector& target) {
    Log(std::string(operation) + "(" + Show(x) + ", " + Show(y) + ", " + Show(z) + ")");
    target = VEKVector3{x, y, z};
    return S_OK;
  }
  HRESULT KeepRep(const char* operation, VEKRep* rep, std::unique_ptr<VEKRep>& target) {
    Log(std::string(operation) + "(" + (rep ? "rep" : "null") + ")");
    if (rep != target.get()) target.reset(rep);
    return S_OK;
  }
  // Logs the call and stores the identity of `object` when this container made it.
  HRESULT Link(const char* operation, VEKBaseUnknown* object, VEKLightObjectList& target) {
    VEKBaseUnknown* identity = nullptr;
    if (Link(operation, object, identity) != S_OK) return E_INVALIDARG;
    return target.Append(identity);
  }
  HRESULT Link(const char* operation, VEKBaseUnknown* object, VEKBaseUnknown*& target) {
    Log(std::string(operation) + "(" + NameOf(object) + ")");
    RecordingObject* found = container_.Find(object);
    if (!found) return E_INVALIDARG;
    target = found->Identity();
    return S_OK;
  }

  RecordingContainer& container_;

 private:
  std::string name_;
  const RecordingKind kind_;
  RecordingSet* const set_;
  int references_ = 1;
  Text name_value_, uuid_;
  std::optional<unsigned short> type_, status_;
  std::unique_ptr<VEKRep> rep_;
  std::optional<int> id_;
};

// A recording object answering `Primary` (its identity), VEKITPSLight and `Extra`.
template <class Primary, class... Extra>
class Recorded : public RecordingObject, public Primary, public Extra... {
 public:
  Recorded(RecordingContainer& container, RecordingKind kind, RecordingSet* set)
      : RecordingObject(container, kind, set) {}

  std::vector<Face> Faces() override {
    return {{&Primary::kIID, static_cast<Primary*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)},
            {&Extra::kIID, static_cast<Extra*>(this)}...};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }
};

class RecordingSet final : public Recorded<VEKITPSLightSet, VEKITPSIdBroker> {
 public:
  RecordingSet(RecordingContainer& container, VEKBaseUnknown* father)
      : Recorded(container, RecordingKind::Set, nullptr), father_(father) {}

  VEKLightObjectList& Family(RecordingKind kind) { return families_[Index(kind) - 1]; }

  HRESULT SetStandard(const wchar_t* text) override { return Keep("SetStandard", text, standard_); }
  VEKLightObjectList* GetAnnotations() override {
    Log("GetAnnotations()");
    return &Family(RecordingKind::Annotation);
  }
  Text GetStandard() const override { return standard_; }
  const VEKLightObjectList& GetViews() const override { return families_[1]; }
  const VEKLightObjectList& GetTTRS() const override { return families_[2]; }
  const VEKLightObjectList& GetRefFrames() const override { return families_[3]; }
  const VEKLightObjectList& GetCGs() const override { return families_[4]; }
  const VEKLightObjectList& GetCaptures() const override { return families_[5]; }
  VEKBaseUnknown* GetFather() const override { return father_; }
  HRESULT GetPreviousSet(VEKITPSLightSet** out) const override {
    if (!out) return E_POINTER;
    *out = nullptr;
    return S_FALSE;
  }
  const std::vector<VEKTPSLightUnresolved>& GetUnresolvedReferences() const override {
    return unresolved_;
  }
  const std::vector<VEKTPSLightUnresolved>& GetDuplicateIds() const override { return duplicates_; }

  VEKBaseUnknown* FindObject(int id, int kind) const override {
    RecordingObject* found = Lookup(id, kind);
    return found ? found->Identity() : nullptr;
  }

  HRESULT GetObjectFromId(int id, int kind, VEKBaseUnknown** out) override {
    RecordingObject* found = out ? Lookup(id, kind) : nullptr;
    Log("GetObjectFromId(" + Show(id) + ", " + Show(kind) + ") -> " +
        (found ? found->Name() : "fail"));
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!found) {
      unresolved_.push_back({id, kind});
      return E_FAIL;
    }
    found->HandOut();
    *out = found->Identity();
    return S_OK;
  }

 private:
  // Test documents are small: a scan in creation order keeps "first created wins" obvious.
  RecordingObject* Lookup(int id, int kind) const {
    for (const std::unique_ptr<RecordingObject>& object : container_.objects_) {
      if (object->Set() == this && Index(object->Kind()) == kind && object->GetId() == id) {
        return object.get();
      }
    }
    return nullptr;
  }

  VEKBaseUnknown* father_;
  Text standard_;
  VEKLightObjectList families_[6];
  std::vector<VEKTPSLightUnresolved> unresolved_, duplicates_;
};

namespace {

class RecordingAnnotation final
    : public Recorded<GraphicRepFace<VEKITPSLightAnnotation>, VEKITPSLightModel> {
 public:
  RecordingAnnotation(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::Annotation, set) {}

  HRESULT SetValue(double value) override { return Keep("SetValue", value, value_); }
  HRESULT SetDefault(int flag) override { return Keep("SetDefault", flag, default_); }
  HRESULT AddTTRS(int ttrsId) override { return Keep("AddTTRS", ttrsId, ttrs_); }
  HRESULT SetReference(int ref) override { return Keep("SetReference", ref, reference_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Keep("SetAttribute", text, attribute_);
  }
  HRESULT SetOrderGroup(VEKLightObjectList* group) override {
    std::string members = group ? "[" : "null";
    for (int position = 0; group && position < group->Count(); ++position) {
      members += (position > 0 ? "," : "") + NameOf(group->Get(position));
    }
    Log("SetOrderGroup(" + members + (group ? "])" : ")"));
    orderGroup_.reset(group);
    return S_OK;
  }
  HRESULT SetView(VEKITPSLightView* view) override { return Link("SetView", view, views_); }
  std::optional<double> GetValue() const override { return value_; }
  bool IsDefault() const override { return default_ != 0; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  std::optional<int> GetReference() const override { return reference_; }
  Text GetAttribute() const override { return attribute_; }
  const VEKRep* GetGraphicRep() const override { return graphicRep_.get(); }
  const VEKLightObjectList* GetOrderGroup() const override { return orderGroup_.get(); }
  const VEKLightObjectList& GetViews() const override { return views_; }

 private:
  HRESULT SetGraphicRep(VEKRep* rep) override { return KeepRep("SetGraphicRep", rep, graphicRep_); }

  std::optional<double> value_;
  int default_ = 0;
  std::vector<int> ttrs_;
  std::optional<int> reference_;
  Text attribute_;
  std::unique_ptr<VEKRep> graphicRep_;
  std::unique_ptr<VEKLightObjectList> orderGroup_;
  VEKLightObjectList views_;
};

class RecordingView final : public Recorded<VEKITPSLightView> {
 public:
  RecordingView(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::View, set) {}

  HRESULT SetOrigin(double x, double y, double z) override {
    return Keep("SetOrigin", x, y, z, origin_);
  }
  HRESULT SetNormal(double x, double y, double z) override {
    return Keep("SetNormal", x, y, z, normal_);
  }
  HRESULT SetDirection(double x, double y, double z) override {
    return Keep("SetDirection", x, y, z, direction_);
  }
  HRESULT AddTPS(VEKBaseUnknown* tps) override { return Link("AddTPS", tps, annotations_); }
  HRESULT AddCapture(VEKBaseUnknown* capture) override {
    return Link("AddCapture", capture, captures_);
  }
  Vector GetOrigin() const override { return origin_; }
  Vector GetNormal() const override { return normal_; }
  Vector GetDirection() const override { return direction_; }
  const VEKLightObjectList& GetAnnotations() const override { return annotations_; }
  const VEKLightObjectList& GetCaptures() const override { return captures_; }

 private:
  Vector origin_, normal_, direction_;
  VEKLightObjectList annotations_, captures_;
};

class RecordingTTRS final : public Recorded<VEKITPSLightTTRS> {
 public:
  RecordingTTRS(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::TTRS, set) {}

  HRESULT AddGeometry(VEKRawCollint* ids) override {
    Log("AddGeometry(" + Show(ids) + ")");
    geometries_.emplace_back(ids);
    return S_OK;
  }
  int GetGeometryCount() const override { return static_cast<int>(geometries_.size()); }
  const VEKRawCollint* GetGeometry(int index) const override {
    if (index < 0 || index >= GetGeometryCount()) return nullptr;
    return geometries_[static_cast<std::size_t>(index)].get();
  }

 private:
  std::vector<std::unique_ptr<VEKRawCollint>> geometries_;
};

class RecordingRefFrame final : public Recorded<VEKITPSLightRefFrame> {
 public:
  RecordingRefFrame(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::RefFrame, set) {}

  HRESULT AddDatum(VEKBaseUnknown* datum) override { return Link("AddDatum", datum, datums_); }
  HRESULT AddTTRS(int ttrsId) override { return Keep("AddTTRS", ttrsId, ttrs_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Keep("SetAttribute", text, attribute_);
  }
  const VEKLightObjectList& GetDatums() const override { return datums_; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  Text GetAttribute() const override { return attribute_; }

 private:
  VEKLightObjectList datums_;
  std::vector<int> ttrs_;
  Text attribute_;
};

class RecordingCG final : public Recorded<VEKITPSLightCG> {
 public:
  RecordingCG(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::CG, set) {}

  HRESULT AddTTRS(int ttrsId) override { return Keep("AddTTRS", ttrsId, ttrs_); }
  HRESULT AddTRep(int repId) override { return Keep("AddTRep", repId, treps_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Keep("SetAttribute", text, attribute_);
  }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  const std::vector<int>& GetTReps() const override { return treps_; }
  Text GetAttribute() const override { return attribute_; }

 private:
  std::vector<int> ttrs_, treps_;
  Text attribute_;
};

class RecordingCapture final : public Recorded<GraphicRepFace<VEKITPSLightCapture>> {
 public:
  RecordingCapture(RecordingContainer& container, RecordingSet* set)
      : Recorded(container, RecordingKind::Capture, set) {}

  HRESULT AddTPS(VEKBaseUnknown* tps) override { return Link("AddTPS", tps, annotations_); }
  HRESULT AddView(VEKBaseUnknown* view) override { return Link("AddView", view, views_); }
  HRESULT SetActiveView(VEKBaseUnknown* view) override {
    return Link("SetActiveView", view, activeView_);
  }
  HRESULT SetClippingPlane(int clip) override { return Keep("SetClippingPlane", clip, clip_); }
  HRESULT SetCameraPosition(double x, double y, double z) override {
    return Keep("SetCameraPosition", x, y, z, position_);
  }
  HRESULT SetCameraDirection(double x, double y, double z) override {
    return Keep("SetCameraDirection", x, y, z, direction_);
  }
  HRESULT SetCameraZenith(double x, double y, double z) override {
    return Keep("SetCameraZenith", x, y, z, zenith_);
  }
  HRESULT SetCameraTarget(double x, double y, double z) override {
    return Keep("SetCameraTarget", x, y, z, target_);
  }
  HRESULT SetCameraType(int type) override { return Keep("SetCameraType", type, cameraType_); }
  HRESULT AddCG(VEKBaseUnknown* cg) override { return Link("AddCG", cg, cgs_); }

  const VEKLightObjectList& GetAnnotations() const override { return annotations_; }
  const VEKLightObjectList& GetViews() const override { return views_; }
  VEKBaseUnknown* GetActiveView() const override { return activeView_; }
  std::optional<int> GetClippingPlane() const override { return clip_; }
  Vector GetCameraPosition() const override { return position_; }
  Vector GetCameraDirection() const override { return direction_; }
  Vector GetCameraZenith() const override { return zenith_; }
  Vector GetCameraTarget() const override { return target_; }
  std::optional<int> GetCameraType() const override { return cameraType_; }
  const VEKLightObjectList& GetCGs() const override { return cgs_; }
  const VEKRep* GetGraphicRep() const override { return graphicRep_.get(); }

 private:
  HRESULT SetGraphicRep(VEKRep* rep) override { return KeepRep("SetGraphicRep", rep, graphicRep_); }

  VEKLightObjectList annotations_, views_, cgs_;
  VEKBaseUnknown* activeView_ = nullptr;
  std::optional<int> clip_, cameraType_;
  Vector position_, direction_, zenith_, target_;
  std::unique_ptr<VEKRep> graphicRep_;
};

}  // namespace

RecordingContainer::RecordingContainer() = default;

RecordingContainer::~RecordingContainer() = default;

void RecordingContainer::RefuseCreation(RecordingKind kind, int nth) {
  refusedCreations_.insert({Index(kind), nth});
}

void RecordingContainer::RefuseInterface(const std::string& name, const IID& iid) {
  refusedByName_.push_back({name, iid});
}

void RecordingContainer::RefuseInterface(RecordingKind kind, const IID& iid) {
  refusedByKind_.push_back({kind, iid});
}

void* RecordingContainer::FaceOf(const std::string& name, const IID& iid) const {
  RecordingObject* object = Find(name);
  return object ? object->FaceOf(iid) : nullptr;
}

std::string RecordingContainer::NameOf(const VEKBaseUnknown* face) const {
  if (!face) return "null";
  RecordingObject* object = Find(face);
  return object ? object->Name() : "?";
}

int RecordingContainer::References(const std::string& name) const {
  RecordingObject* object = Find(name);
  return object ? object->OutsideReferences() : -1;
}

int RecordingContainer::OutstandingReferences() const {
  int total = 0;
  for (const std::unique_ptr<RecordingObject>& object : objects_) {
    total += object->OutsideReferences();
  }
  return total;
}

HRESULT RecordingContainer::QueryInterface(const IID& iid, void** out) {
  if (!out) return E_POINTER;
  const bool offered = iid == VEKTPSLightContainer::kIID || iid == VEKBaseUnknown::kIID;
  ledger_.Add("Container.QueryInterface(" + InterfaceName(iid) + ") -> " +
              (offered ? "ok" : "refused"));
  *out = offered ? this : nullptr;
  if (!offered) return E_NOINTERFACE;
  ++containerReferences_;
  return S_OK;
}

std::uint32_t RecordingContainer::AddRef() {
  ledger_.Add("Container.AddRef()");
  return ++containerReferences_;
}

std::uint32_t RecordingContainer::Release() {
  ledger_.Add("Container.Release()");
  if (containerReferences_ > 0) --containerReferences_;
  return containerReferences_;
}

RecordingObject* RecordingContainer::Find(const std::string& name) const {
  for (const std::unique_ptr<RecordingObject>& object : objects_) {
    if (object->Name() == name) return object.get();
  }
  return nullptr;
}

RecordingObject* RecordingContainer::Find(const VEKBaseUnknown* face) const {
  for (const std::unique_ptr<RecordingObject>& object : objects_) {
    if (face && object->Owns(face)) return object.get();
  }
  return nullptr;
}

bool RecordingContainer::Refuses(const RecordingObject& object, const IID& iid) const {
  for (const auto& [name, refused] : refusedByName_) {
    if (name == object.Name() && refused == iid) return true;
  }
  for (const auto& [kind, refused] : refusedByKind_) {
    if (kind == object.Kind() && refused == iid) return true;
  }
  return false;
}

bool RecordingContainer::RefusesCreation(RecordingKind kind) {
  const int attempt = ++attempts_[static_cast<std::size_t>(Index(kind))];
  return refusedCreations_.count({Index(kind), 0}) > 0 ||
         refusedCreations_.count({Index(kind), attempt}) > 0;
}

template <class Object, class Interface>
HRESULT RecordingContainer::Create(RecordingKind kind, const char* operation, Interface** out,
                                   VEKITPSLightSet* set) {
  const std::string call = std::string(operation) + "(" + NameOf(set) + ") -> ";
  const bool refused = RefusesCreation(kind);
  RecordingObject* owner = Find(set);
  if (out) *out = nullptr;
  if (!out || !owner || owner->Kind() != RecordingKind::Set) {
    ledger_.Add(call + "fail");
    return set && out ? E_INVALIDARG : E_POINTER;
  }
  if (refused) {
    ledger_.Add(call + "refused");
    return E_FAIL;
  }
  auto* parent = static_cast<RecordingSet*>(owner);
  auto* object = new Object(*this, parent);
  objects_.emplace_back(object);
  (void)parent->Family(kind).Append(object->Identity());
  object->HandOut();
  ledger_.Add(call + object->Name());
  *out = object;
  return S_OK;
}

HRESULT RecordingContainer::CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) {
  const std::string call = std::string("CreateLightSet(") + (father ? "father" : "null") + ") -> ";
  const bool refused = RefusesCreation(RecordingKind::Set);
  if (!out || refused) {
    ledger_.Add(call + (out ? "refused" : "fail"));
    return out ? E_FAIL : E_POINTER;
  }
  auto* set = new RecordingSet(*this, father);
  objects_.emplace_back(set);
  set->HandOut();
  ledger_.Add(call + set->Name());
  *out = set;
  return S_OK;
}

HRESULT RecordingContainer::CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) {
  return Create<RecordingAnnotation>(RecordingKind::Annotation, "CreateAnnotation", out, set);
}
HRESULT RecordingContainer::CreateView(VEKITPSLightView** out, VEKITPSLightSet* set) {
  return Create<RecordingView>(RecordingKind::View, "CreateView", out, set);
}
HRESULT RecordingContainer::CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set) {
  return Create<RecordingRefFrame>(RecordingKind::RefFrame, "CreateRefFrame", out, set);
}
HRESULT RecordingContainer::CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set) {
  return Create<RecordingTTRS>(RecordingKind::TTRS, "CreateTTRS", out, set);
}
HRESULT RecordingContainer::CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set) {
  return Create<RecordingCapture>(RecordingKind::Capture, "CreateCapture", out, set);
}
HRESULT RecordingContainer::CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set) {
  return Create<RecordingCG>(RecordingKind::CG, "CreateCG", out, set);
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
    std::string text = "S1" + Common(set_) + " standard=" + Value(set_->GetStandard()) +
                       " unresolved=" + Pairs(set_->GetUnresolvedReferences()) +
                       " duplicates=" + Pairs(set_->GetDuplicateIds());
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
    std::string text = "[";
    for (int number : numbers) text += (text.size() > 1 ? "," : "") + std::to_string(number);
    return text + "]";
  }
  static std::string Pairs(const std::vector<VEKTPSLightUnresolved>& pairs) {
    std::string text = "[";
    for (const VEKTPSLightUnresolved& pair : pairs) {
      text += (text.size() > 1 ? "," : "") + Show(pair.id) + ":" + Show(pair.kind);
    }
    return text + "]";
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
  std::string Names(const VEKLightObjectList* list) const {
    if (!list) return "-";
    std::string text = "[";
    for (int position = 0; position < list->Count(); ++position) {
      text += (position > 0 ? "," : "") + Name(list->Get(position));
    }
    return text + "]";
  }
  static std::string Common(VEKBaseUnknown* object) {
    VEKComPtr<VEKITPSLight> light = Query<VEKITPSLight>(object);
    if (!light) return " <no VEKITPSLight>";
    return " " + Value(light->GetName()) + "/" + Value(light->GetUuid()) + "/" +
           Value(light->GetType()) + "/" + Value(light->GetId()) + "/" + Value(light->GetStatus()) +
           " rep=" + Value(light->GetRep());
  }
  std::string Family(char letter, VEKBaseUnknown* object) const {
    switch (letter) {
      case 'T': {
        auto ttrs = Query<VEKITPSLightTTRS>(object);
        std::string text = " geometry=";
        for (int index = 0; index < ttrs->GetGeometryCount(); ++index) {
          text += Show(ttrs->GetGeometry(index));
        }
        return text;
      }
      case 'A': {
        auto annotation = Query<VEKITPSLightAnnotation>(object);
        auto model = Query<VEKITPSLightModel>(object);
        return " value=" + Value(annotation->GetValue()) +
               " default=" + Show(annotation->IsDefault() ? 1 : 0) +
               " reference=" + Value(annotation->GetReference()) +
               " attribute=" + Value(annotation->GetAttribute()) +
               " graphic=" + Value(annotation->GetGraphicRep()) +
               " ttrs=" + Value(annotation->GetTTRS()) + " group=" + Names(model->GetOrderGroup()) +
               " views=" + Names(&model->GetViews());
      }
      case 'V': {
        auto view = Query<VEKITPSLightView>(object);
        return " origin=" + Value(view->GetOrigin()) + " normal=" + Value(view->GetNormal()) +
               " direction=" + Value(view->GetDirection()) +
               " tps=" + Names(&view->GetAnnotations()) +
               " captures=" + Names(&view->GetCaptures());
      }
      case 'R': {
        auto frame = Query<VEKITPSLightRefFrame>(object);
        return " attribute=" + Value(frame->GetAttribute()) +
               " datums=" + Names(&frame->GetDatums()) + " ttrs=" + Value(frame->GetTTRS());
      }
      case 'G': {
        auto cg = Query<VEKITPSLightCG>(object);
        return " attribute=" + Value(cg->GetAttribute()) + " ttrs=" + Value(cg->GetTTRS()) +
               " treps=" + Value(cg->GetTReps());
      }
      default: {
        auto capture = Query<VEKITPSLightCapture>(object);
        return " graphic=" + Value(capture->GetGraphicRep()) +
               " active=" + Name(capture->GetActiveView()) +
               " clip=" + Value(capture->GetClippingPlane()) +
               " position=" + Value(capture->GetCameraPosition()) +
               " direction=" + Value(capture->GetCameraDirection()) +
               " zenith=" + Value(capture->GetCameraZenith()) +
               " target=" + Value(capture->GetCameraTarget()) +
               " type=" + Value(capture->GetCameraType()) +
               " tps=" + Names(&capture->GetAnnotations()) +
               " views=" + Names(&capture->GetViews()) + " cgs=" + Names(&capture->GetCGs());
      }
    }
  }

  VEKITPSLightSet* set_;
  std::vector<std::pair<char, const VEKLightObjectList*>> families_;
};

}  // namespace

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : " | ") + line;
  return text;
}

std::string ModelText(VEKITPSLightSet* set) { return set ? ModelWriter(set).Text() : ""; }

}  // namespace vek_test
