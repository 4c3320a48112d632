// What the parts of the compiled module _vektps share: the state behind the Python objects of one
// set and the table that gives each C++ object a single Python object.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <unordered_map>
#include <utility>

#include "VEKComPtr.h"
#include "VEKTPSLightLinks.h"
#include "VEKTPSLightModel.h"

namespace py = pybind11;

class VEKPyWrapper;

// Shared by the Python objects of one set. It holds a reference to the set, and so keeps the set's
// whole model alive (a set and its objects share one reference count), and the set's links, built
// on first use. Touched only with the GIL held.
struct VEKPySetState {
  explicit VEKPySetState(VEKComPtr<VEKITPSLightSet> lightSet) : set(std::move(lightSet)) {}

  // The links of the set in both directions; raises MemoryError when they cannot be built.
  const VEKTPSLightLinks& Links();

  struct Entry {
    PyObject* object;
    const VEKPyWrapper* wrapper;
  };

  VEKComPtr<VEKITPSLightSet> set;
  std::unique_ptr<VEKTPSLightLinks> links;
  // The live Python object of each C++ thing of the model (an object's identity, a graphic, a
  // node ...), borrowed: a wrapper removes its entry when it is freed, so that reaching a thing
  // again gives the same Python object while anyone holds it, and no cycle keeps it.
  std::unordered_map<const void*, Entry> wrappers;
};
using VEKPySetStatePtr = std::shared_ptr<VEKPySetState>;

// Base of every Python-visible wrapper of a model's thing.
class VEKPyWrapper {
 public:
  VEKPyWrapper(VEKPySetStatePtr set, const void* key) noexcept : set_(std::move(set)), key_(key) {}
  virtual ~VEKPyWrapper();
  VEKPyWrapper(const VEKPyWrapper&) = delete;
  VEKPyWrapper& operator=(const VEKPyWrapper&) = delete;

  const VEKPySetStatePtr& State() const noexcept { return set_; }

 private:
  VEKPySetStatePtr set_;
  const void* key_;
};

// The Python object of the thing at `key`: the one made before while it lives, else a new
// Wrapper(set, key, arguments...).
template <class Wrapper, class... Arguments>
py::object VEKPyCached(const VEKPySetStatePtr& set, const void* key, Arguments&&... arguments) {
  const auto found = set->wrappers.find(key);
  if (found != set->wrappers.end()) return py::reinterpret_borrow<py::object>(found->second.object);
  auto wrapper = std::make_unique<Wrapper>(set, key, std::forward<Arguments>(arguments)...);
  const Wrapper* registered = wrapper.get();
  py::object object = py::cast(std::move(wrapper));
  set->wrappers[key] = {object.ptr(), registered};
  return object;
}

// The Python object of a model object of `set` (any face); None for null.
py::object VEKPyWrapObject(const VEKPySetStatePtr& set, VEKBaseUnknown* object);
// The Python object of the set itself.
py::object VEKPyWrapSet(const VEKPySetStatePtr& set);
// The Python object of a graphic of the model; None for null.
py::object VEKPyWrapRep(const VEKPySetStatePtr& set, const VEKRep* rep);

// The name of an id-broker kind as Set.find takes it ("annotation", "ref_frame", ...); the number
// itself for a kind without a name.
py::object VEKPyKindName(int kind);

void VEKPyBindModel(py::module_& module);
void VEKPyBindGraphics(py::module_& module);
