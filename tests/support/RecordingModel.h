// A container over the real light annotation model that writes the calls made on its objects to a
// ledger and can refuse creations and interfaces: for tests where the order of the calls a caller
// makes on the model, or its reaction to a refusal, is the behaviour. Values are the real model's.
//
// Every object the container makes is a thin proxy of the real one: it answers the interfaces the
// real object answers, logs each call and hands it on. Objects are named by kind and creation
// order: S (set), A (annotation), V (view), T (TTRS), R (reference frame), G (construction
// geometry), C (capture), then 1, 2, ... per kind. Ledger lines, in call order:
//
//   CreateAnnotation(S1) -> A1          also -> refused (a control refused it), -> fail (null out
//   or
//                                       set, or a set not made here); CreateLightSet(null) -> S1
//   A1.QueryInterface(VEKITPSLight) -> ok    or -> refused; the model's private queries made while
//                                       linking objects are not written
//   A1.AddRef()  A1.Release()  A1.Release() -> over-release (no reference out; not handed on)
//   A1.SetName("Flat 1")  A1.SetType(3)  V1.SetOrigin(1, 2, 3)  T1.AddGeometry([4,7])
//   A1.SetRep(rep)  A1.SetGraphicRep(rep)    the common representation and the object's own graphic
//   V1.AddTPS(A2)  C1.SetActiveView(V1)  A1.SetOrderGroup([A2,A3])   objects by name, "null" or "?"
//   S1.GetAnnotations()  S1.GetObjectFromId(7, 1) -> A2 (or -> fail)   the only getters written
//
// Getters hand on the real model's answers: lists and links hold the real objects, which ModelText
// names as it names any model. The container keeps every model it made alive until it goes, so
// declare it before any holder of its objects.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VEKComPtr.h"
#include "VEKTPSLightModel.h"

namespace vek_test {

// The lines written by one RecordingContainer and its objects.
class Ledger {
 public:
  void Add(std::string line) { lines_.push_back(std::move(line)); }
  const std::vector<std::string>& Lines() const { return lines_; }
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

// The whole model of `set` (real or recorded) as text, one line per object: the set, then its
// TTRS, annotations, views, reference frames, construction geometry and captures, each named by
// family letter and position, with its name/uuid/type/id/status ("-" unset) and then only the
// values set and the lists not empty ("?" an object of no family of the set, a false default
// left out), e.g. "A1 Flat/u/1/7/- value=0.05 ttrs=[4] group=[A2] views=[V1]". "" for null.
std::string ModelText(VEKITPSLightSet* set);

enum class RecordingKind { Set, Annotation, View, TTRS, RefFrame, CG, Capture };

class Recorded;

class RecordingContainer : public VEKTPSLightContainer {
 public:
  RecordingContainer();
  ~RecordingContainer() override;
  RecordingContainer(const RecordingContainer&) = delete;
  RecordingContainer& operator=(const RecordingContainer&) = delete;

  Ledger& GetLedger() { return ledger_; }

  // Refuses (E_FAIL) the `nth` creation of `kind` from now on (1-based, counting every call), or
  // every one when `nth` is 0.
  void RefuseCreation(RecordingKind kind, int nth = 0);
  // QueryInterface for `iid` answers E_NOINTERFACE on the object named `name`, or on every object
  // of `kind`.
  void RefuseInterface(const std::string& name, const IID& iid);
  void RefuseInterface(RecordingKind kind, const IID& iid);
  // Every set refuses VEKITPSIdBroker.
  void RemoveBroker() { RefuseInterface(RecordingKind::Set, VEKITPSIdBroker::kIID); }

  // The name of the object `face` (a proxy's face or a real object's) is; "null" or "?".
  std::string NameOf(const VEKBaseUnknown* face) const;
  // References handed out and not released, on every object together.
  int OutstandingReferences() const;
  // Release calls that found no reference out.
  int OverReleases() const { return overReleases_; }

  // Counted only: the container belongs to the test and is never freed by Release.
  std::uint32_t AddRef() override { return ++references_; }
  std::uint32_t Release() override { return --references_; }

  HRESULT CreateAnnotation(VEKITPSLightAnnotation** out, VEKITPSLightSet* set) override;
  HRESULT CreateLightSet(VEKITPSLightSet** out, VEKBaseUnknown* father) override;
  HRESULT CreateView(VEKITPSLightView** out, VEKITPSLightSet* set) override;
  HRESULT CreateRefFrame(VEKITPSLightRefFrame** out, VEKITPSLightSet* set) override;
  HRESULT CreateTTRS(VEKITPSLightTTRS** out, VEKITPSLightSet* set) override;
  HRESULT CreateCapture(VEKITPSLightCapture** out, VEKITPSLightSet* set) override;
  HRESULT CreateCG(VEKITPSLightCG** out, VEKITPSLightSet* set) override;

 private:
  friend class Recorded;

  Recorded* Find(const VEKBaseUnknown* face) const;
  bool Refuses(const Recorded& object, const IID& iid) const;
  // Counts the attempt and tells whether a control refuses it.
  bool RefusesCreation(RecordingKind kind);
  // Makes the real object through the real container's creator for Interface, and its proxy.
  template <class Proxy, class Interface>
  HRESULT Create(const char* operation, Interface** out, VEKITPSLightSet* set);
  template <class Proxy, class Interface>
  HRESULT Adopt(const std::string& call, Interface* real, Interface** out);

  VEKTPSLightContainer real_;
  Ledger ledger_;
  std::vector<std::unique_ptr<Recorded>> objects_;
  std::vector<VEKComPtr<VEKITPSLightSet>> models_;
  int created_[7] = {};
  int attempts_[7] = {};
  std::vector<std::pair<RecordingKind, int>> refusedCreations_;
  // Interfaces refused, by object name or, for a whole kind, by its letter.
  std::vector<std::pair<std::string, IID>> refusedInterfaces_;
  int overReleases_ = 0;
  std::uint32_t references_ = 1;
};

}  // namespace vek_test
