// The recording light annotation model: every call is written to the container's ledger.
#include "RecordingModel.h"

#include <cstdio>
#include <optional>

#include "VEKUnicodeString.h"

namespace vek_test {

namespace {

const char kKindLetters[] = "SAVTRGC";

int Index(RecordingKind kind) { return static_cast<int>(kind); }

struct NamedIID {
  const IID* iid;
  const char* name;
};

const NamedIID kInterfaceNames[] = {
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

std::string InterfaceName(const IID& iid) {
  for (const NamedIID& known : kInterfaceNames) {
    if (*known.iid == iid) return known.name;
  }
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(iid.Data1), iid.Data2, iid.Data3, iid.Data4[0], iid.Data4[1],
                iid.Data4[2], iid.Data4[3], iid.Data4[4], iid.Data4[5], iid.Data4[6], iid.Data4[7]);
  return text;
}

std::string Quoted(const wchar_t* text) {
  if (!text) return "null";
  return "\"" + std::string(VEKUnicodeString(text).ConvertToChar()) + "\"";
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string Vector(double x, double y, double z) {
  return Number(x) + ", " + Number(y) + ", " + Number(z);
}

std::string Numbers(const VEKRawCollint* numbers) {
  if (!numbers) return "null";
  std::string text = "[";
  for (int index = 1; index <= numbers->Size(); ++index) {
    if (index > 1) text += ",";
    text += std::to_string((*numbers)[index]);
  }
  return text + "]";
}

bool IsReferenceLine(const std::string& line) {
  return line.find(".QueryInterface(") != std::string::npos ||
         line.find(".AddRef()") != std::string::npos ||
         line.find(".Release()") != std::string::npos;
}

// VEKITPSLight and these interfaces both declare SetRep(VEKRep*); the shims route the object's
// own one to SetGraphicRep so that the two are recorded apart.
class RecordingAnnotationFace : public VEKITPSLightAnnotation {
 public:
  HRESULT SetRep(VEKRep* rep) final { return SetGraphicRep(rep); }

 protected:
  virtual HRESULT SetGraphicRep(VEKRep* rep) = 0;
};

class RecordingCaptureFace : public VEKITPSLightCapture {
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

// The values common to every recording object (VEKITPSLight), its name and its references.
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

  HRESULT SetName(const wchar_t* name) override { return Text("SetName", name, nameValue_); }
  HRESULT SetType(unsigned short type) override {
    Log("SetType(" + std::to_string(type) + ")");
    type_ = type;
    return S_OK;
  }
  HRESULT SetRep(VEKRep* rep) override { return StoreRep("SetRep", rep, rep_); }
  HRESULT SetId(int id) override {
    Log("SetId(" + std::to_string(id) + ")");
    id_ = id;
    return S_OK;
  }
  HRESULT SetStatus(unsigned short status) override {
    Log("SetStatus(" + std::to_string(status) + ")");
    status_ = status;
    return S_OK;
  }
  HRESULT SetUuid(const wchar_t* uuid) override { return Text("SetUuid", uuid, uuid_); }

  std::optional<VEKUnicodeString> GetName() const override { return nameValue_; }
  std::optional<unsigned short> GetType() const override { return type_; }
  const VEKRep* GetRep() const override { return rep_.get(); }
  std::optional<int> GetId() const override { return id_; }
  std::optional<unsigned short> GetStatus() const override { return status_; }
  std::optional<VEKUnicodeString> GetUuid() const override { return uuid_; }

 protected:
  void Log(const std::string& call) { container_.ledger_.Add(name_ + "." + call); }
  std::string NameOf(const VEKBaseUnknown* face) const { return container_.NameOf(face); }
  RecordingObject* Resolve(const VEKBaseUnknown* face) const { return container_.Find(face); }

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

  HRESULT Text(const char* operation, const wchar_t* text,
               std::optional<VEKUnicodeString>& target) {
    Log(std::string(operation) + "(" + Quoted(text) + ")");
    if (!text) return E_POINTER;
    target.emplace(text);
    return S_OK;
  }
  HRESULT StoreRep(const char* operation, VEKRep* rep, std::unique_ptr<VEKRep>& target) {
    Log(std::string(operation) + "(" + (rep ? "rep" : "null") + ")");
    if (rep != target.get()) target.reset(rep);
    return S_OK;
  }
  HRESULT Store(const char* operation, double x, double y, double z,
                std::optional<VEKVector3>& target) {
    Log(std::string(operation) + "(" + Vector(x, y, z) + ")");
    target = VEKVector3{x, y, z};
    return S_OK;
  }
  HRESULT Store(const char* operation, int value, std::optional<int>& target) {
    Log(std::string(operation) + "(" + std::to_string(value) + ")");
    target = value;
    return S_OK;
  }
  HRESULT Append(const char* operation, int value, std::vector<int>& target) {
    Log(std::string(operation) + "(" + std::to_string(value) + ")");
    target.push_back(value);
    return S_OK;
  }
  // Stores the identity of `object` when it was made by this container.
  HRESULT Link(const char* operation, VEKBaseUnknown* object, VEKLightObjectList& target) {
    Log(std::string(operation) + "(" + NameOf(object) + ")");
    RecordingObject* found = Resolve(object);
    if (!found) return E_INVALIDARG;
    return target.Append(found->Identity());
  }

  RecordingContainer& container_;

 private:
  std::string name_;
  const RecordingKind kind_;
  RecordingSet* const set_;
  int references_ = 1;
  std::optional<VEKUnicodeString> nameValue_;
  std::optional<unsigned short> type_;
  std::unique_ptr<VEKRep> rep_;
  std::optional<int> id_;
  std::optional<unsigned short> status_;
  std::optional<VEKUnicodeString> uuid_;
};

class RecordingSet final : public RecordingObject, public VEKITPSLightSet, public VEKITPSIdBroker {
 public:
  RecordingSet(RecordingContainer& container, VEKBaseUnknown* father)
      : RecordingObject(container, RecordingKind::Set, nullptr), father_(father) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightSet::kIID, static_cast<VEKITPSLightSet*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)},
            {&VEKITPSIdBroker::kIID, static_cast<VEKITPSIdBroker*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  VEKLightObjectList& Family(RecordingKind kind) { return families_[Index(kind) - 1]; }

  HRESULT SetStandard(const wchar_t* standard) override {
    return Text("SetStandard", standard, standard_);
  }
  VEKLightObjectList* GetAnnotations() override {
    Log("GetAnnotations()");
    return &Family(RecordingKind::Annotation);
  }
  std::optional<VEKUnicodeString> GetStandard() const override { return standard_; }
  const VEKLightObjectList& GetTTRS() const override { return families_[2]; }
  const VEKLightObjectList& GetViews() const override { return families_[1]; }
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

  HRESULT GetObjectFromId(int id, int kind, VEKBaseUnknown** out) override {
    const std::string call =
        "GetObjectFromId(" + std::to_string(id) + ", " + std::to_string(kind) + ") -> ";
    RecordingObject* found = out ? Lookup(id, kind) : nullptr;
    Log(call + (found ? found->Name() : "fail"));
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
  RecordingObject* Lookup(int id, int kind);

  VEKBaseUnknown* father_;
  std::optional<VEKUnicodeString> standard_;
  VEKLightObjectList families_[6];
  std::vector<VEKTPSLightUnresolved> unresolved_;
  std::vector<VEKTPSLightUnresolved> duplicates_;
};

RecordingObject* RecordingSet::Lookup(int id, int kind) {
  // Test documents are small: a scan in creation order keeps "first created wins" obvious.
  for (const std::unique_ptr<RecordingObject>& object : container_.objects_) {
    if (object->Set() == this && Index(object->Kind()) == kind && object->GetId() == id) {
      return object.get();
    }
  }
  return nullptr;
}

namespace {

class RecordingAnnotation final : public RecordingObject,
                                  public RecordingAnnotationFace,
                                  public VEKITPSLightModel {
 public:
  RecordingAnnotation(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::Annotation, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightAnnotation::kIID, static_cast<VEKITPSLightAnnotation*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)},
            {&VEKITPSLightModel::kIID, static_cast<VEKITPSLightModel*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT SetValue(double value) override {
    Log("SetValue(" + Number(value) + ")");
    value_ = value;
    return S_OK;
  }
  HRESULT SetDefault(int flag) override {
    Log("SetDefault(" + std::to_string(flag) + ")");
    default_ = flag != 0;
    return S_OK;
  }
  HRESULT AddTTRS(int ttrsId) override { return Append("AddTTRS", ttrsId, ttrs_); }
  HRESULT SetReference(int ref) override { return Store("SetReference", ref, reference_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Text("SetAttribute", text, attribute_);
  }
  std::optional<double> GetValue() const override { return value_; }
  bool IsDefault() const override { return default_; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  std::optional<int> GetReference() const override { return reference_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }
  const VEKRep* GetGraphicRep() const override { return graphicRep_.get(); }

  HRESULT SetOrderGroup(VEKLightObjectList* group) override {
    std::string members = "null";
    if (group) {
      members = "[";
      for (int position = 0; position < group->Count(); ++position) {
        if (position > 0) members += ",";
        members += NameOf(group->Get(position));
      }
      members += "]";
    }
    Log("SetOrderGroup(" + members + ")");
    orderGroup_.reset(group);
    return S_OK;
  }
  HRESULT SetView(VEKITPSLightView* view) override { return Link("SetView", view, views_); }
  const VEKLightObjectList* GetOrderGroup() const override { return orderGroup_.get(); }
  const VEKLightObjectList& GetViews() const override { return views_; }

 private:
  HRESULT SetGraphicRep(VEKRep* rep) override {
    return StoreRep("SetGraphicRep", rep, graphicRep_);
  }

  std::optional<double> value_;
  bool default_ = false;
  std::vector<int> ttrs_;
  std::optional<int> reference_;
  std::optional<VEKUnicodeString> attribute_;
  std::unique_ptr<VEKRep> graphicRep_;
  std::unique_ptr<VEKLightObjectList> orderGroup_;
  VEKLightObjectList views_;
};

class RecordingView final : public RecordingObject, public VEKITPSLightView {
 public:
  RecordingView(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::View, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightView::kIID, static_cast<VEKITPSLightView*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT SetOrigin(double x, double y, double z) override {
    return Store("SetOrigin", x, y, z, origin_);
  }
  HRESULT SetNormal(double x, double y, double z) override {
    return Store("SetNormal", x, y, z, normal_);
  }
  HRESULT SetDirection(double x, double y, double z) override {
    return Store("SetDirection", x, y, z, direction_);
  }
  HRESULT AddTPS(VEKBaseUnknown* annotation) override {
    return Link("AddTPS", annotation, annotations_);
  }
  HRESULT AddCapture(VEKBaseUnknown* capture) override {
    return Link("AddCapture", capture, captures_);
  }
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

class RecordingTTRS final : public RecordingObject, public VEKITPSLightTTRS {
 public:
  RecordingTTRS(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::TTRS, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightTTRS::kIID, static_cast<VEKITPSLightTTRS*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT AddGeometry(VEKRawCollint* ids) override {
    Log("AddGeometry(" + Numbers(ids) + ")");
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

class RecordingRefFrame final : public RecordingObject, public VEKITPSLightRefFrame {
 public:
  RecordingRefFrame(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::RefFrame, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightRefFrame::kIID, static_cast<VEKITPSLightRefFrame*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT AddDatum(VEKBaseUnknown* datum) override { return Link("AddDatum", datum, datums_); }
  HRESULT AddTTRS(int ttrsId) override { return Append("AddTTRS", ttrsId, ttrs_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Text("SetAttribute", text, attribute_);
  }
  const VEKLightObjectList& GetDatums() const override { return datums_; }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }

 private:
  VEKLightObjectList datums_;
  std::vector<int> ttrs_;
  std::optional<VEKUnicodeString> attribute_;
};

class RecordingCG final : public RecordingObject, public VEKITPSLightCG {
 public:
  RecordingCG(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::CG, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightCG::kIID, static_cast<VEKITPSLightCG*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT AddTTRS(int ttrsId) override { return Append("AddTTRS", ttrsId, ttrs_); }
  HRESULT AddTRep(int repId) override { return Append("AddTRep", repId, treps_); }
  HRESULT SetAttribute(const wchar_t* text) override {
    return Text("SetAttribute", text, attribute_);
  }
  const std::vector<int>& GetTTRS() const override { return ttrs_; }
  const std::vector<int>& GetTReps() const override { return treps_; }
  std::optional<VEKUnicodeString> GetAttribute() const override { return attribute_; }

 private:
  std::vector<int> ttrs_;
  std::vector<int> treps_;
  std::optional<VEKUnicodeString> attribute_;
};

class RecordingCapture final : public RecordingObject, public RecordingCaptureFace {
 public:
  RecordingCapture(RecordingContainer& container, RecordingSet* set)
      : RecordingObject(container, RecordingKind::Capture, set) {}

  std::vector<Face> Faces() override {
    return {{&VEKITPSLightCapture::kIID, static_cast<VEKITPSLightCapture*>(this)},
            {&VEKITPSLight::kIID, static_cast<VEKITPSLight*>(this)}};
  }
  HRESULT QueryInterface(const IID& iid, void** out) override { return Query(iid, out); }
  std::uint32_t AddRef() override { return Reference(); }
  std::uint32_t Release() override { return Unreference(); }

  HRESULT AddTPS(VEKBaseUnknown* annotation) override {
    return Link("AddTPS", annotation, annotations_);
  }
  HRESULT AddView(VEKBaseUnknown* view) override { return Link("AddView", view, views_); }
  HRESULT SetActiveView(VEKBaseUnknown* view) override {
    Log("SetActiveView(" + NameOf(view) + ")");
    RecordingObject* found = Resolve(view);
    if (!found) return E_INVALIDARG;
    activeView_ = found->Identity();
    return S_OK;
  }
  HRESULT SetClippingPlane(int clip) override {
    return Store("SetClippingPlane", clip, clippingPlane_);
  }
  HRESULT SetCameraPosition(double x, double y, double z) override {
    return Store("SetCameraPosition", x, y, z, cameraPosition_);
  }
  HRESULT SetCameraDirection(double x, double y, double z) override {
    return Store("SetCameraDirection", x, y, z, cameraDirection_);
  }
  HRESULT SetCameraZenith(double x, double y, double z) override {
    return Store("SetCameraZenith", x, y, z, cameraZenith_);
  }
  HRESULT SetCameraTarget(double x, double y, double z) override {
    return Store("SetCameraTarget", x, y, z, cameraTarget_);
  }
  HRESULT SetCameraType(int type) override { return Store("SetCameraType", type, cameraType_); }
  HRESULT AddCG(VEKBaseUnknown* cg) override { return Link("AddCG", cg, cgs_); }

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
  HRESULT SetGraphicRep(VEKRep* rep) override {
    return StoreRep("SetGraphicRep", rep, graphicRep_);
  }

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
  if (!face) return nullptr;
  for (const std::unique_ptr<RecordingObject>& object : objects_) {
    if (object->Owns(face)) return object.get();
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
  RecordingSet* parent = static_cast<RecordingSet*>(owner);
  Object* object = new Object(*this, parent);
  if (!object) {
    ledger_.Add(call + "fail");
    return E_OUTOFMEMORY;
  }
  objects_.emplace_back(object);
  (void)parent->Family(kind).Append(object->Identity());
  object->HandOut();
  ledger_.Add(call + object->Name());
  *out = object;
  return S_OK;
}

HRESULT RecordingContainer::CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) {
  return Create<RecordingAnnotation>(RecordingKind::Annotation, "CreateAnnotation", out, set);
}

HRESULT RecordingContainer::CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) {
  const std::string call = std::string("CreateLightSet(") + (father ? "father" : "null") + ") -> ";
  const bool refused = RefusesCreation(RecordingKind::Set);
  if (!out) {
    ledger_.Add(call + "fail");
    return E_POINTER;
  }
  if (refused) {
    ledger_.Add(call + "refused");
    return E_FAIL;
  }
  RecordingSet* set = new RecordingSet(*this, father);
  if (!set) {
    ledger_.Add(call + "fail");
    return E_OUTOFMEMORY;
  }
  objects_.emplace_back(set);
  set->HandOut();
  ledger_.Add(call + set->Name());
  *out = set;
  return S_OK;
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

}  // namespace vek_test
