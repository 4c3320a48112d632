// The model as Python objects: the set, the six families, links both ways.
#include <pybind11/stl.h>

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "VEKPython.h"

namespace {

py::object Text(const std::optional<VEKUnicodeString>& text) {
  if (!text) return py::none();
  return py::str(text->ConvertToChar(), text->GetLengthInByte());
}

py::object Vector(const std::optional<VEKVector3>& vector) {
  if (!vector) return py::none();
  return py::make_tuple(vector->x, vector->y, vector->z);
}

template <class T>
py::object Value(const std::optional<T>& value) {
  return value ? py::cast(*value) : py::none();
}

VEKComPtr<VEKBaseUnknown> IdentityOf(VEKBaseUnknown* object) {
  VEKComPtr<VEKBaseUnknown> identity;
  if (object)
    (void)object->QueryInterface(VEKBaseUnknown::kIID, identity.ReleaseAndGetVoidAddressOf());
  return identity;
}

template <class Interface>
VEKComPtr<Interface> Face(VEKBaseUnknown* object) {
  VEKComPtr<Interface> face;
  if (object) (void)object->QueryInterface(Interface::kIID, face.ReleaseAndGetVoidAddressOf());
  return face;
}

// The kinds of the id broker as the Python API names them.
struct KindName {
  int kind;
  const char* name;
};
constexpr KindName kKindNames[] = {
    {VEKTPSLightKindAnnotation, "annotation"},
    {VEKTPSLightKindView, "view"},
    {VEKTPSLightKindTTRS, "ttrs"},
    {VEKTPSLightKindRefFrame, "ref_frame"},
    {VEKTPSLightKindCG, "cg"},
    {VEKTPSLightKindCapture, "capture"},
};

int KindFromName(const std::string& name) {
  for (const KindName& entry : kKindNames) {
    if (name == entry.name) return entry.kind;
  }
  throw py::value_error("unknown kind '" + name +
                        "': annotation, view, ttrs, ref_frame, cg or capture");
}

// The member of the naming object through which a link goes, as its Python attribute.
const char* MemberName(VEKTPSLightRole role) {
  switch (role) {
    case VEKTPSLightRole::View:
    case VEKTPSLightRole::CaptureView:
      return "views";
    case VEKTPSLightRole::OrderGroup:
      return "order_group";
    case VEKTPSLightRole::TTRS:
      return "ttrs";
    case VEKTPSLightRole::Reference:
      return "reference";
    case VEKTPSLightRole::Annotation:
      return "annotations";
    case VEKTPSLightRole::Capture:
      return "captures";
    case VEKTPSLightRole::Datum:
      return "datums";
    case VEKTPSLightRole::ActiveView:
      return "active_view";
    case VEKTPSLightRole::CG:
      return "cgs";
  }
  return "";
}

py::list Objects(const VEKPySetStatePtr& set, const VEKLightObjectList& list) {
  py::list objects;
  for (int position = 0; position < list.Count(); ++position)
    objects.append(VEKPyWrapObject(set, list.Get(position)));
  return objects;
}

// Values common to every object: id, name, uuid, type, status, rep, and the links that name it.
class Object : public VEKPyWrapper {
 public:
  Object(VEKPySetStatePtr set, const void* key, VEKComPtr<VEKBaseUnknown> identity)
      : VEKPyWrapper(std::move(set), key),
        identity_(std::move(identity)),
        light_(Face<VEKITPSLight>(identity_.Get())) {}

  VEKBaseUnknown* Identity() const { return identity_.Get(); }
  // Null for an object that does not offer the common values.
  VEKITPSLight* Light() const { return light_.Get(); }

  py::list ReferencedBy() const {
    py::list links;
    for (const VEKTPSLightLink& link : State()->Links().ReferencedBy(identity_.Get()))
      links.append(py::make_tuple(VEKPyWrapObject(State(), link.from), MemberName(link.role)));
    return links;
  }

 private:
  VEKComPtr<VEKBaseUnknown> identity_;
  VEKComPtr<VEKITPSLight> light_;
};

// An object of one family, seen through the family's interface.
template <class Interface>
class Family : public Object {
 public:
  Family(VEKPySetStatePtr set, const void* key, VEKComPtr<VEKBaseUnknown> identity,
         VEKComPtr<Interface> family)
      : Object(std::move(set), key, std::move(identity)), family_(std::move(family)) {}

  Interface& Get() const { return *family_.Get(); }

 private:
  VEKComPtr<Interface> family_;
};

using Annotation = Family<VEKITPSLightAnnotation>;
using View = Family<VEKITPSLightView>;
using TTRS = Family<VEKITPSLightTTRS>;
using RefFrame = Family<VEKITPSLightRefFrame>;
using CG = Family<VEKITPSLightCG>;
using Capture = Family<VEKITPSLightCapture>;

class Set : public VEKPyWrapper {
 public:
  Set(VEKPySetStatePtr set, const void* key)
      : VEKPyWrapper(std::move(set), key), light_(Face<VEKITPSLight>(State()->set.Get())) {}

  VEKITPSLightSet& Get() const { return *State()->set.Get(); }
  VEKITPSLight* Light() const { return light_.Get(); }

 private:
  VEKComPtr<VEKITPSLight> light_;
};

template <class Interface>
bool WrapAs(const VEKPySetStatePtr& set, const VEKComPtr<VEKBaseUnknown>& identity,
            py::object& out) {
  VEKComPtr<Interface> family = Face<Interface>(identity.Get());
  if (!family) return false;
  out = VEKPyCached<Family<Interface>>(set, identity.Get(), identity, std::move(family));
  return true;
}

struct Camera {
  std::optional<int> type;
  std::optional<VEKVector3> position;
  std::optional<VEKVector3> direction;
  std::optional<VEKVector3> zenith;
  std::optional<VEKVector3> target;
};

template <class Wrapper>
py::object Common(const Wrapper& self, py::object (*read)(VEKITPSLight&)) {
  VEKITPSLight* light = self.Light();
  return light ? read(*light) : py::none();
}

template <class Class>
void AddCommon(Class& cls) {
  using Wrapper = typename Class::type;
  cls.def_property_readonly(
         "name",
         [](const Wrapper& self) {
           return Common(self, [](VEKITPSLight& light) { return Text(light.GetName()); });
         },
         "The name; None when never set.")
      .def_property_readonly(
          "uuid",
          [](const Wrapper& self) {
            return Common(self, [](VEKITPSLight& light) { return Text(light.GetUuid()); });
          },
          "The UUID text; None when never set.")
      .def_property_readonly(
          "type",
          [](const Wrapper& self) {
            return Common(self, [](VEKITPSLight& light) { return Value(light.GetType()); });
          },
          "The type number; None when never set.")
      .def_property_readonly(
          "status",
          [](const Wrapper& self) {
            return Common(self, [](VEKITPSLight& light) { return Value(light.GetStatus()); });
          },
          "The status number; None when never set.");
}

}  // namespace

py::object VEKPyKindName(int kind) {
  for (const KindName& entry : kKindNames) {
    if (kind == entry.kind) return py::str(entry.name);
  }
  return py::int_(kind);
}

VEKPyWrapper::~VEKPyWrapper() {
  const auto found = set_->wrappers.find(key_);
  if (found != set_->wrappers.end() && found->second.wrapper == this) set_->wrappers.erase(found);
}

const VEKTPSLightLinks& VEKPySetState::Links() {
  if (!links) links = VEKTPSLightLinks::Build(set.Get());
  if (!links) throw std::bad_alloc();
  return *links;
}

py::object VEKPyWrapObject(const VEKPySetStatePtr& set, VEKBaseUnknown* object) {
  const VEKComPtr<VEKBaseUnknown> identity = IdentityOf(object);
  if (!identity) return py::none();
  const auto found = set->wrappers.find(identity.Get());
  if (found != set->wrappers.end()) return py::reinterpret_borrow<py::object>(found->second.object);
  py::object out;
  if (WrapAs<VEKITPSLightAnnotation>(set, identity, out) ||
      WrapAs<VEKITPSLightView>(set, identity, out) ||
      WrapAs<VEKITPSLightTTRS>(set, identity, out) ||
      WrapAs<VEKITPSLightRefFrame>(set, identity, out) ||
      WrapAs<VEKITPSLightCG>(set, identity, out) || WrapAs<VEKITPSLightCapture>(set, identity, out))
    return out;
  return VEKPyCached<Object>(set, identity.Get(), identity);
}

py::object VEKPyWrapSet(const VEKPySetStatePtr& set) {
  return VEKPyCached<Set>(set, IdentityOf(set->set.Get()).Get());
}

void VEKPyBindModel(py::module_& module) {
  py::class_<Camera>(module, "Camera", "A capture's camera; each value None when never set.")
      .def_readonly("type", &Camera::type, "The camera type number.")
      .def_property_readonly(
          "position", [](const Camera& self) { return Vector(self.position); },
          "The camera position (x, y, z).")
      .def_property_readonly(
          "direction", [](const Camera& self) { return Vector(self.direction); },
          "The viewing direction (x, y, z).")
      .def_property_readonly(
          "zenith", [](const Camera& self) { return Vector(self.zenith); },
          "The up direction (x, y, z).")
      .def_property_readonly(
          "target", [](const Camera& self) { return Vector(self.target); },
          "The point looked at (x, y, z).");

  py::class_<Object> object(module, "Object",
                            "A model object; the base of every family. The object keeps its whole "
                            "model alive.");
  object
      .def_property_readonly(
          "id",
          [](const Object& self) {
            return Common(self, [](VEKITPSLight& light) { return Value(light.GetId()); });
          },
          "The integer id; None when never set.")
      .def_property_readonly(
          "rep",
          [](const Object& self) -> py::object {
            VEKITPSLight* light = self.Light();
            return light ? VEKPyWrapRep(self.State(), light->GetRep()) : py::none();
          },
          "The object's representation (a Graphic); None when it has none.")
      .def("__repr__",
           [](const py::object& self) {
             return py::str("<{} {} {!r}>")
                 .format(py::type::of(self).attr("__name__"), self.attr("id"), self.attr("name"));
           })
      .def("referenced_by", &Object::ReferencedBy,
           "The (object, member) pairs of the set that link to this object, member being the "
           "attribute of the naming object (integer references included: an annotation whose "
           "'ttrs' names a TTRS id is listed for that TTRS).");
  AddCommon(object);

  py::class_<Annotation, Object>(module, "Annotation", "An annotation (TPS).")
      .def_property_readonly(
          "value", [](const Annotation& self) { return Value(self.Get().GetValue()); },
          "The tolerance value; None when never set.")
      .def_property_readonly(
          "default", [](const Annotation& self) { return self.Get().IsDefault(); },
          "Whether the annotation is marked as default.")
      .def_property_readonly(
          "reference", [](const Annotation& self) { return Value(self.Get().GetReference()); },
          "The id of the reference frame it refers to (an integer); None when never set.")
      .def_property_readonly(
          "attribute", [](const Annotation& self) { return Text(self.Get().GetAttribute()); },
          "The attribute text; None when never set.")
      .def_property_readonly(
          "ttrs", [](const Annotation& self) { return self.Get().GetTTRS(); },
          "The ids of the TTRS it applies to (integers).")
      .def_property_readonly(
          "graphic",
          [](const Annotation& self) {
            return VEKPyWrapRep(self.State(), self.Get().GetGraphicRep());
          },
          "The annotation's own graphic (a Graphic); None when it has none.")
      .def_property_readonly(
          "views",
          [](const Annotation& self) {
            const auto model = Face<VEKITPSLightModel>(self.Identity());
            return model ? Objects(self.State(), model->GetViews()) : py::list();
          },
          "The views showing the annotation.")
      .def_property_readonly(
          "order_group",
          [](const Annotation& self) -> py::object {
            const auto model = Face<VEKITPSLightModel>(self.Identity());
            const VEKLightObjectList* group = model ? model->GetOrderGroup() : nullptr;
            if (!group) return py::none();
            return Objects(self.State(), *group);
          },
          "The annotations of its order group; None when never set.");

  py::class_<View, Object>(module, "View", "A view: a plane annotations are shown in.")
      .def_property_readonly(
          "origin", [](const View& self) { return Vector(self.Get().GetOrigin()); },
          "The origin (x, y, z); None when never set.")
      .def_property_readonly(
          "normal", [](const View& self) { return Vector(self.Get().GetNormal()); },
          "The normal (x, y, z); None when never set.")
      .def_property_readonly(
          "direction", [](const View& self) { return Vector(self.Get().GetDirection()); },
          "The direction (x, y, z); None when never set.")
      .def_property_readonly(
          "annotations",
          [](const View& self) { return Objects(self.State(), self.Get().GetAnnotations()); },
          "The annotations shown in the view.")
      .def_property_readonly(
          "captures",
          [](const View& self) { return Objects(self.State(), self.Get().GetCaptures()); },
          "The captures of the view.");

  py::class_<TTRS, Object>(module, "TTRS", "A TTRS: a surface association annotations apply to.")
      .def_property_readonly(
          "geometry",
          [](const TTRS& self) {
            py::list lists;
            for (int index = 0; index < self.Get().GetGeometryCount(); ++index) {
              const VEKRawCollint* ids = self.Get().GetGeometry(index);
              if (!ids) {
                lists.append(py::none());
                continue;
              }
              py::list list;
              for (int k = 1; k <= ids->Size(); ++k) list.append((*ids)[k]);
              lists.append(std::move(list));
            }
            return lists;
          },
          "The lists of geometry ids, in the order added (None for an empty entry).");

  py::class_<RefFrame, Object>(module, "RefFrame", "A reference frame (datum system).")
      .def_property_readonly(
          "attribute", [](const RefFrame& self) { return Text(self.Get().GetAttribute()); },
          "The attribute text; None when never set.")
      .def_property_readonly(
          "datums",
          [](const RefFrame& self) { return Objects(self.State(), self.Get().GetDatums()); },
          "The datum annotations.")
      .def_property_readonly(
          "ttrs", [](const RefFrame& self) { return self.Get().GetTTRS(); },
          "The ids of its TTRS (integers).");

  py::class_<CG, Object>(module, "CG", "A construction geometry.")
      .def_property_readonly(
          "attribute", [](const CG& self) { return Text(self.Get().GetAttribute()); },
          "The attribute text; None when never set.")
      .def_property_readonly(
          "ttrs", [](const CG& self) { return self.Get().GetTTRS(); },
          "The ids of its TTRS (integers).")
      .def_property_readonly(
          "treps", [](const CG& self) { return self.Get().GetTReps(); },
          "The ids of its representations (integers).");

  py::class_<Capture, Object>(module, "Capture",
                              "A capture: camera, clipping, active view and what is shown.")
      .def_property_readonly(
          "active_view",
          [](const Capture& self) {
            return VEKPyWrapObject(self.State(), self.Get().GetActiveView());
          },
          "The active view; None when never set.")
      .def_property_readonly(
          "clipping_plane",
          [](const Capture& self) { return Value(self.Get().GetClippingPlane()); },
          "The clipping plane number; None when never set.")
      .def_property_readonly(
          "camera",
          [](const Capture& self) {
            const VEKITPSLightCapture& capture = self.Get();
            return Camera{capture.GetCameraType(), capture.GetCameraPosition(),
                          capture.GetCameraDirection(), capture.GetCameraZenith(),
                          capture.GetCameraTarget()};
          },
          "The camera (a Camera).")
      .def_property_readonly(
          "annotations",
          [](const Capture& self) { return Objects(self.State(), self.Get().GetAnnotations()); },
          "The annotations shown.")
      .def_property_readonly(
          "views", [](const Capture& self) { return Objects(self.State(), self.Get().GetViews()); },
          "The views shown.")
      .def_property_readonly(
          "cgs", [](const Capture& self) { return Objects(self.State(), self.Get().GetCGs()); },
          "The construction geometries shown.")
      .def_property_readonly(
          "graphic",
          [](const Capture& self) {
            return VEKPyWrapRep(self.State(), self.Get().GetGraphicRep());
          },
          "The capture's own graphic (a Graphic); None when it has none.");

  py::class_<Set> set(module, "Set",
                      "An annotation set: the families of objects, each in creation order. The set "
                      "keeps its whole model alive.");
  AddCommon(set);
  set.def("__repr__",
          [](const py::object& self) { return py::str("<Set {!r}>").format(self.attr("name")); })
      .def_property_readonly(
          "standard", [](const Set& self) { return Text(self.Get().GetStandard()); },
          "The tolerancing standard; None when never set.")
      .def_property_readonly(
          "ttrs", [](const Set& self) { return Objects(self.State(), self.Get().GetTTRS()); },
          "The TTRS.")
      .def_property_readonly(
          "annotations",
          [](const Set& self) {
            const VEKLightObjectList* annotations = self.Get().GetAnnotations();
            return annotations ? Objects(self.State(), *annotations) : py::list();
          },
          "The annotations.")
      .def_property_readonly(
          "views", [](const Set& self) { return Objects(self.State(), self.Get().GetViews()); },
          "The views.")
      .def_property_readonly(
          "ref_frames",
          [](const Set& self) { return Objects(self.State(), self.Get().GetRefFrames()); },
          "The reference frames.")
      .def_property_readonly(
          "cgs", [](const Set& self) { return Objects(self.State(), self.Get().GetCGs()); },
          "The construction geometries.")
      .def_property_readonly(
          "captures",
          [](const Set& self) { return Objects(self.State(), self.Get().GetCaptures()); },
          "The captures.")
      .def_property_readonly(
          "unresolved",
          [](const Set& self) {
            py::list missing;
            for (const VEKTPSLightUnresolved& entry : self.Get().GetUnresolvedReferences())
              missing.append(py::make_tuple(VEKPyKindName(entry.kind), entry.id));
            return missing;
          },
          "The (kind, id) of every id the load looked up and did not find, in order; kind as "
          "find() names it.")
      .def(
          "find",
          [](const Set& self, int id, const std::string& kind) {
            return VEKPyWrapObject(self.State(),
                                   self.State()->Links().Find(id, KindFromName(kind)));
          },
          py::arg("id"), py::arg("kind"),
          "The object of `kind` ('annotation', 'view', 'ttrs', 'ref_frame', 'cg' or 'capture') "
          "carrying `id` (the first created when several do); None when none. A lookup that "
          "misses is not recorded as an unresolved reference.");
}
