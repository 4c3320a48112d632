// Graphics as Python objects: a representation's nodes, meshes and primitives, with numpy views
// of their arrays.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "VEKPython.h"

namespace {

// A read-only numpy view of `count` rows of `columns` values at `data`; `owner` (the Python
// object that holds the memory's model) stays alive as long as the view.
template <class T>
py::array RowsView(const T* data, std::size_t count, std::size_t columns, const py::object& owner) {
  py::array array(
      py::dtype::of<T>(), {static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(columns)},
      {static_cast<py::ssize_t>(columns * sizeof(T)), static_cast<py::ssize_t>(sizeof(T))}, data,
      owner);
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

// A view of x, y, z triples, or None when the array could not be read.
py::object TriplesView(const std::shared_ptr<const std::vector<float>>& values,
                       const py::object& owner) {
  if (!values) return py::none();
  return RowsView(values->data(), values->size() / 3, 3, owner);
}

// Moves `values` into a new numpy array of the given shape, which owns them.
py::array OwnedArray(std::vector<float> values, std::vector<py::ssize_t> shape) {
  auto owned = std::make_unique<std::vector<float>>(std::move(values));
  py::capsule free(owned.get(),
                   [](void* pointer) { delete static_cast<std::vector<float>*>(pointer); });
  const float* data = owned.release()->data();
  return py::array(py::dtype::of<float>(), std::move(shape), data, free);
}

// A column-major 4x4 matrix as a read-only 4x4 numpy view indexed [row, column].
py::array MatrixView(const double* matrix, const py::object& owner) {
  py::array array(
      py::dtype::of<double>(), {4, 4},
      {static_cast<py::ssize_t>(sizeof(double)), static_cast<py::ssize_t>(4 * sizeof(double))},
      matrix, owner);
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

py::str Utf8(const VEKUnicodeString& text) {
  return py::str(text.ConvertToChar(), text.GetLengthInByte());
}

// Each wrapper points into a representation that its model owns: the set state it holds keeps it.
class Primitive : public VEKPyWrapper {
 public:
  Primitive(VEKPySetStatePtr set, const void* key, const VEKRepPrimitive* primitive)
      : VEKPyWrapper(std::move(set), key), primitive_(*primitive) {}
  const VEKRepPrimitive& Get() const { return primitive_; }

 private:
  const VEKRepPrimitive& primitive_;
};

class Mesh : public VEKPyWrapper {
 public:
  Mesh(VEKPySetStatePtr set, const void* key, const VEKRepMesh* mesh)
      : VEKPyWrapper(std::move(set), key), mesh_(*mesh) {}
  const VEKRepMesh& Get() const { return mesh_; }

 private:
  const VEKRepMesh& mesh_;
};

class Graphic;

class Node : public VEKPyWrapper {
 public:
  Node(VEKPySetStatePtr set, const void* key, const VEKRep* rep, const VEKRepNode* node)
      : VEKPyWrapper(std::move(set), key), rep_(*rep), node_(*node) {}
  const VEKRep& Rep() const { return rep_; }
  const VEKRepNode& Get() const { return node_; }

 private:
  const VEKRep& rep_;
  const VEKRepNode& node_;
};

class Graphic : public VEKPyWrapper {
 public:
  Graphic(VEKPySetStatePtr set, const void* key, const VEKRep* rep)
      : VEKPyWrapper(std::move(set), key), rep_(*rep) {}
  const VEKRep& Get() const { return rep_; }

 private:
  const VEKRep& rep_;
};

py::object WrapNode(const VEKPySetStatePtr& set, const VEKRep& rep, int index) {
  const VEKRepNode* node = &rep.GetNodes()[static_cast<std::size_t>(index)];
  return VEKPyCached<Node>(set, node, &rep, node);
}

py::object WrapMesh(const VEKPySetStatePtr& set, const VEKRep& rep, int index) {
  if (index < 0) return py::none();
  const VEKRepMesh* mesh = &rep.GetMeshes()[static_cast<std::size_t>(index)];
  return VEKPyCached<Mesh>(set, mesh, mesh);
}

py::list Nodes(const VEKPySetStatePtr& set, const VEKRep& rep, const std::vector<int>& indices) {
  py::list nodes;
  for (const int index : indices) nodes.append(WrapNode(set, rep, index));
  return nodes;
}

}  // namespace

py::object VEKPyWrapRep(const VEKPySetStatePtr& set, const VEKRep* rep) {
  if (!rep) return py::none();
  return VEKPyCached<Graphic>(set, rep, rep);
}

void VEKPyBindGraphics(py::module_& module) {
  py::class_<Primitive>(module, "Primitive", "One drawable piece of a mesh.")
      .def_property_readonly(
          "mode", [](const Primitive& self) { return self.Get().mode; },
          "The glTF mode: 0 points, 1 lines, 2 line loop, 3 line strip, 4 triangles, 5 triangle "
          "strip, 6 triangle fan.")
      .def_property_readonly(
          "vertex_count", [](const Primitive& self) { return self.Get().vertexCount; },
          "Number of vertices (the count of the POSITION accessor; 0 without one).")
      .def_property_readonly(
          "positions",
          [](const py::object& self) {
            return TriplesView(self.cast<const Primitive&>().Get().positions, self);
          },
          "Vertex positions, a read-only numpy float32 array of vertex_count rows (x, y, z); "
          "None when they could not be read.")
      .def_property_readonly(
          "normals",
          [](const py::object& self) {
            return TriplesView(self.cast<const Primitive&>().Get().normals, self);
          },
          "Vertex normals like positions; None when the primitive has none that could be read.")
      .def_property_readonly(
          "indices",
          [](const py::object& self) -> py::object {
            const auto& indices = self.cast<const Primitive&>().Get().indices;
            if (!indices) return py::none();
            py::array array(py::dtype::of<std::uint32_t>(),
                            {static_cast<py::ssize_t>(indices->size())}, indices->data(), self);
            array.attr("setflags")(py::arg("write") = false);
            return std::move(array);
          },
          "The indices, a read-only numpy uint32 array, as stored (one may be vertex_count or "
          "more); None for a non-indexed primitive and for indices that could not be read.");

  py::class_<Mesh>(module, "Mesh", "A mesh: a name and its primitives.")
      .def_property_readonly(
          "name", [](const Mesh& self) { return Utf8(self.Get().name); }, "The mesh's name.")
      .def_property_readonly(
          "primitives",
          [](const Mesh& self) {
            py::list primitives;
            for (const VEKRepPrimitive& primitive : self.Get().primitives)
              primitives.append(VEKPyCached<Primitive>(self.State(), &primitive, &primitive));
            return primitives;
          },
          "The primitives (Primitive objects).");

  py::class_<Node>(module, "Node", "A node of a scene graph.")
      .def_property_readonly(
          "name", [](const Node& self) { return Utf8(self.Get().name); }, "The node's name.")
      .def_property_readonly(
          "matrix",
          [](const py::object& self) {
            return MatrixView(self.cast<const Node&>().Get().matrix, self);
          },
          "The local transform, a read-only 4x4 numpy array indexed [row, column].")
      .def_property_readonly(
          "world_matrix",
          [](const py::object& self) {
            return MatrixView(self.cast<const Node&>().Get().worldMatrix, self);
          },
          "The world transform (the product of the local ones from the top of the node's tree), "
          "a read-only 4x4 numpy array indexed [row, column].")
      .def_property_readonly(
          "parent",
          [](const Node& self) -> py::object {
            const int parent = self.Get().parent;
            if (parent < 0) return py::none();
            return WrapNode(self.State(), self.Rep(), parent);
          },
          "The node that lists this one as a child; None for a top node.")
      .def_property_readonly(
          "mesh",
          [](const Node& self) { return WrapMesh(self.State(), self.Rep(), self.Get().mesh); },
          "The node's Mesh; None when it has none.")
      .def_property_readonly(
          "children",
          [](const Node& self) { return Nodes(self.State(), self.Rep(), self.Get().children); },
          "The child nodes.");

  py::class_<Graphic>(module, "Graphic", "A graphic representation read from a binary glTF blob.")
      .def_property_readonly(
          "nodes",
          [](const Graphic& self) {
            py::list nodes;
            for (std::size_t index = 0; index < self.Get().GetNodes().size(); ++index)
              nodes.append(WrapNode(self.State(), self.Get(), static_cast<int>(index)));
            return nodes;
          },
          "Every node (Node objects), in the blob's order.")
      .def_property_readonly(
          "roots",
          [](const Graphic& self) {
            return Nodes(self.State(), self.Get(), self.Get().GetRootNodes());
          },
          "The scene's root nodes.")
      .def_property_readonly(
          "meshes",
          [](const Graphic& self) {
            py::list meshes;
            for (std::size_t index = 0; index < self.Get().GetMeshes().size(); ++index)
              meshes.append(WrapMesh(self.State(), self.Get(), static_cast<int>(index)));
            return meshes;
          },
          "Every mesh (Mesh objects), in the blob's order.")
      .def_property_readonly(
          "glb",
          [](const Graphic& self) {
            const std::vector<unsigned char>& glb = self.Get().GetGlb();
            return py::bytes(reinterpret_cast<const char*>(glb.data()), glb.size());
          },
          "The GLB the graphic was read from, as bytes (for a glTF loader of one's own).")
      .def(
          "triangles",
          [](const Graphic& self) {
            std::vector<float> corners;
            HRESULT result;
            {
              py::gil_scoped_release unlocked;
              result = VEKRepTriangles(self.Get(), corners);
            }
            if (VEKFailed(result)) throw std::bad_alloc();
            const auto count = static_cast<py::ssize_t>(corners.size() / 9);
            return OwnedArray(std::move(corners), {count, 3, 3});
          },
          "The triangles the scene shows, in world space: a float32 array of K triangles by 3 "
          "corners by (x, y, z), from triangle lists, strips and fans. MemoryError when they "
          "would be too many.")
      .def(
          "lines",
          [](const Graphic& self) {
            std::vector<float> ends;
            HRESULT result;
            {
              py::gil_scoped_release unlocked;
              result = VEKRepLines(self.Get(), ends);
            }
            if (VEKFailed(result)) throw std::bad_alloc();
            const auto count = static_cast<py::ssize_t>(ends.size() / 6);
            return OwnedArray(std::move(ends), {count, 2, 3});
          },
          "The line segments the scene shows, in world space: a float32 array of M segments by "
          "2 ends by (x, y, z), from line lists, loops and strips.");
}
