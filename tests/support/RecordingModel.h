// A light annotation model that writes every call made on it to a ledger, for tests that check
// which model operations a caller makes, in which order, and that it releases what it obtains.
//
// Ledger format: one line per call, in call order. Objects are named by kind and creation order:
// S (set), A (annotation), V (view), T (TTRS), R (reference frame), G (construction geometry),
// C (capture), then 1, 2, ... per kind: "S1", "A1", "A2", "V1". An object argument is written as
// its name, "null" for a null pointer and "?" for an object this container did not make.
//
//   CreateLightSet(father) -> S1        "father" or "null" for the father argument
//   CreateAnnotation(S1) -> A1          also CreateView, CreateTTRS, CreateRefFrame, CreateCG,
//   CreateAnnotation(S1) -> refused     CreateCapture; "refused" when a control refused it,
//   CreateAnnotation(null) -> fail      "fail" for a null out or set, or a set not made here
//   Container.AddRef()  Container.Release()  Container.QueryInterface(VEKTPSLightContainer) -> ok
//   A1.QueryInterface(VEKITPSLight) -> ok   "-> refused" whenever the answer is E_NOINTERFACE;
//                                            the interface is named without the "I" of IID_
//                                            (VEKBaseUnknown for CLSID_VEKBaseUnknown), an
//                                            unknown one as {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
//   A1.AddRef()  A1.Release()  A1.Release() -> over-release   (a Release with no reference out)
//   A1.SetName("Flat 1")  A1.SetUuid("u-1")  S1.SetStandard("ISO")   wide strings as UTF-8,
//                                            unescaped; a null string is written null
//   A1.SetType(3)  A1.SetId(7)  A1.SetStatus(0)
//   A1.SetRep(rep)  A1.SetRep(null)          VEKITPSLight::SetRep (the common representation)
//   A1.SetGraphicRep(rep)  C1.SetGraphicRep(rep)   the SetRep of VEKITPSLightAnnotation and of
//                                            VEKITPSLightCapture (the object's own graphic)
//   A1.SetValue(2.5)  A1.SetDefault(1)  A1.AddTTRS(4)  A1.SetReference(0)  A1.SetAttribute("x")
//   A1.SetOrderGroup([A2,A3])  A1.SetOrderGroup([])  A1.SetOrderGroup(null)  A1.SetView(V1)
//   V1.SetOrigin(1, 2, 3)  V1.SetNormal(0, 0, 1)  V1.SetDirection(1, 0, 0)   doubles as %g
//   V1.AddTPS(A2)  V1.AddCapture(C1)
//   T1.AddGeometry([4,7])  T1.AddGeometry([])  T1.AddGeometry(null)
//   R1.AddDatum(A1)  R1.AddTTRS(4)  R1.SetAttribute("")
//   G1.AddTTRS(1)  G1.AddTRep(7)  G1.SetAttribute("")
//   C1.AddTPS(A1)  C1.AddView(V1)  C1.SetActiveView(V1)  C1.SetClippingPlane(0)
//   C1.SetCameraPosition(0, 0, 1)  C1.SetCameraDirection(..)  C1.SetCameraZenith(..)
//   C1.SetCameraTarget(..)  C1.SetCameraType(0)  C1.AddCG(G1)
//   S1.GetAnnotations()                      the only getter written to the ledger
//   S1.GetObjectFromId(7, 1) -> A2           "-> fail" when nothing is found (or out is null)
//
// The reference that a creation, a QueryInterface or a GetObjectFromId hands out is part of that
// line; only explicit AddRef and Release calls get lines of their own.
//
// Behaviour: every object answers the interfaces its real counterpart answers, stores what it is
// given (taking ownership of representations, geometry lists and order-group lists) and returns it
// from its getters. Object adders store the object's identity; a null or foreign object is logged
// and refused with E_INVALIDARG. The set's broker finds the objects of the set, of the kind asked
// for, by the id given to them through SetId; when several share an id, the first created wins.
// A failed lookup is also kept in GetUnresolvedReferences(); GetDuplicateIds() stays empty and
// GetPreviousSet() answers S_FALSE.
//
// ModelText(set) describes any light model (real or recording) for whole-model comparisons: one
// line per object, the set first, then its TTRS, annotations, views, reference frames,
// construction geometry and captures, named as in the ledger by kind and position in the set:
//   S1 name/uuid/type/id/status rep=N ...   N the mesh count of the representation
// then the family's values and links ("-" for an unset value or a null object, "?" for an object
// of no family of the set), e.g. "A1 Flat/u/1/7/0 rep=- value=0.05 default=1 reference=- ...".
// Its queries are written to the ledger of a recording model.
//
// Lifetime: the container owns every object and frees them all when it is destroyed, whatever
// their counts; each object starts with one reference that stands for the container's own.
// Declare the container before any holder of its objects, so that holders release first.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "VEKTPSLightModel.h"

namespace vek_test {

// The lines written by one RecordingContainer and its objects.
class Ledger {
 public:
  void Add(std::string line);
  const std::vector<std::string>& Lines() const { return lines_; }
  // The lines starting with `prefix`, e.g. Filter("A1.") for every call made on A1.
  std::vector<std::string> Filter(const std::string& prefix) const;
  // The lines other than QueryInterface, AddRef and Release ones: the model operations.
  std::vector<std::string> Operations() const;
  void Clear() { lines_.clear(); }
  // Every line followed by a newline, for failure messages.
  std::string Text() const;

 private:
  std::vector<std::string> lines_;
};

// Lines joined by " | ", so that an expected run of ledger lines reads as one string.
std::string Joined(const std::vector<std::string>& lines);

// The whole model of `set` as text (format above); "" for a null set.
std::string ModelText(VEKITPSLightSet* set);

enum class RecordingKind { Set, Annotation, View, TTRS, RefFrame, CG, Capture };

class RecordingObject;

class RecordingContainer : public VEKTPSLightContainer {
 public:
  RecordingContainer();
  ~RecordingContainer() override;
  RecordingContainer(const RecordingContainer&) = delete;
  RecordingContainer& operator=(const RecordingContainer&) = delete;

  Ledger& GetLedger() { return ledger_; }

  // Refuses (E_FAIL) the `nth` call (1-based, counting every call) of the creation of `kind`, or
  // every such call when `nth` is 0.
  void RefuseCreation(RecordingKind kind, int nth = 0);
  // QueryInterface for `iid` answers E_NOINTERFACE on the object named `name` (made already or
  // to be made), or on every object of `kind`.
  void RefuseInterface(const std::string& name, const IID& iid);
  void RefuseInterface(RecordingKind kind, const IID& iid);
  // Every set refuses VEKITPSIdBroker.
  void RemoveBroker() { RefuseInterface(RecordingKind::Set, VEKITPSIdBroker::kIID); }

  // Inspection, never written to the ledger and adding no reference.
  // Interface `iid` of the object named `name`; null when there is no such object or face.
  void* FaceOf(const std::string& name, const IID& iid) const;
  template <class Interface>
  Interface* Get(const std::string& name) const {
    return static_cast<Interface*>(FaceOf(name, Interface::kIID));
  }
  // The name of the object that `face` is one of the faces of; "null" or "?" as in the ledger.
  std::string NameOf(const VEKBaseUnknown* face) const;
  // References held outside the container: on the named object (-1 when there is none), and on
  // every object together.
  int References(const std::string& name) const;
  int OutstandingReferences() const;
  // Release calls that found no reference outside the container.
  int OverReleases() const { return overReleases_; }

  HRESULT QueryInterface(const IID& iid, void** out) override;
  std::uint32_t AddRef() override;
  // Logged and counted only: the container belongs to the test, never freed by Release.
  std::uint32_t Release() override;

  HRESULT CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) override;
  HRESULT CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) override;
  HRESULT CreateView(VEKITPSLightView** out, VEKITPSLightSet* set) override;
  HRESULT CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set) override;
  HRESULT CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set) override;
  HRESULT CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set) override;
  HRESULT CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set) override;

 private:
  friend class RecordingObject;
  friend class RecordingSet;

  RecordingObject* Find(const std::string& name) const;
  RecordingObject* Find(const VEKBaseUnknown* face) const;
  bool Refuses(const RecordingObject& object, const IID& iid) const;
  // Counts the call and tells whether a control refuses it.
  bool RefusesCreation(RecordingKind kind);
  template <class Object, class Interface>
  HRESULT Create(RecordingKind kind, const char* operation, Interface** out, VEKITPSLightSet* set);

  Ledger ledger_;
  std::vector<std::unique_ptr<RecordingObject>> objects_;
  int created_[7] = {};
  int attempts_[7] = {};
  std::set<std::pair<int, int>> refusedCreations_;
  std::vector<std::pair<std::string, IID>> refusedByName_;
  std::vector<std::pair<RecordingKind, IID>> refusedByKind_;
  int overReleases_ = 0;
  std::uint32_t containerReferences_ = 1;
};

}  // namespace vek_test
