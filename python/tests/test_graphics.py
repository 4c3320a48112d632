"""Graphics as numpy arrays, against the GLB's own accessors read here with struct and json."""

import base64
import json
import struct

import numpy
import pytest

import vektps
from conftest import FAMILIES, document, generate

COMPONENTS = {5120: "b", 5121: "B", 5122: "h", 5123: "H", 5125: "I", 5126: "f"}
WIDTHS = {"SCALAR": 1, "VEC2": 2, "VEC3": 3, "VEC4": 4, "MAT4": 16}


class Glb:
    """A GLB read directly: its JSON and its binary chunk."""

    def __init__(self, data):
        magic, version, length = struct.unpack_from("<4sII", data)
        assert (magic, version, length) == (b"glTF", 2, len(data))
        offset, self.binary = 12, b""
        while offset < length:
            size, kind = struct.unpack_from("<I4s", data, offset)
            chunk = data[offset + 8: offset + 8 + size]
            if kind == b"JSON":
                self.json = json.loads(chunk)
            elif kind == b"BIN\0":
                self.binary = chunk
            offset += 8 + size

    def accessor(self, index):
        """The accessor's elements as a numpy array of rows."""
        accessor = self.json["accessors"][index]
        view = self.json["bufferViews"][accessor["bufferView"]]
        code = COMPONENTS[accessor["componentType"]]
        width = WIDTHS[accessor["type"]]
        size = struct.calcsize(code)
        stride = view.get("byteStride", size * width)
        start = view.get("byteOffset", 0) + accessor.get("byteOffset", 0)
        rows = [struct.unpack_from(f"<{width}{code}", self.binary, start + k * stride)
                for k in range(accessor["count"])]
        return numpy.array(rows, dtype=numpy.float64).reshape(accessor["count"], width)

    def local_matrix(self, node):
        if "matrix" in node:
            return numpy.array(node["matrix"], dtype=numpy.float64).reshape(4, 4).T
        x, y, z, w = node.get("rotation", [0, 0, 0, 1])
        rotation = numpy.array([
            [1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
            [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
            [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]])
        matrix = numpy.identity(4)
        matrix[:3, :3] = rotation * numpy.array(node.get("scale", [1, 1, 1]))
        matrix[:3, 3] = node.get("translation", [0, 0, 0])
        return matrix

    def world_matrices(self):
        nodes = self.json["nodes"]
        parents = {child: k for k, node in enumerate(nodes) for child in node.get("children", [])}

        def world(k):
            local = self.local_matrix(nodes[k])
            return world(parents[k]) @ local if k in parents else local
        return [world(k) for k in range(len(nodes))]

    def shown(self, modes):
        """How many pieces of `modes` the scene shows, counted from its indices; where they lie is
        the library's own tests'."""
        nodes = self.json["nodes"]
        pending = list(self.json["scenes"][self.json.get("scene", 0)]["nodes"])
        count = 0
        while pending:
            node = nodes[pending.pop()]
            pending += node.get("children", [])
            for primitive in self.json["meshes"][node["mesh"]]["primitives"] if "mesh" in node \
                    else []:
                mode = primitive.get("mode", 4)
                source = primitive.get("indices", primitive["attributes"]["POSITION"])
                if mode in modes:
                    count += modes[mode](self.json["accessors"][source]["count"])
        return count


TRIANGLE_MODES = {4: lambda n: n // 3, 5: lambda n: max(n - 2, 0), 6: lambda n: max(n - 2, 0)}
LINE_MODES = {1: lambda n: n // 2, 2: lambda n: n if n > 1 else 0, 3: lambda n: max(n - 1, 0)}


def graphics_of(loaded):
    return [graphic for set_ in loaded.sets for family in FAMILIES for item in getattr(set_, family)
            for graphic in (item.rep, getattr(item, "graphic", None)) if graphic is not None]


def every_mode_glb():
    """A GLB with what the documents' graphics lack: strips, fans, loops, normals interleaved
    with the positions, byte and short indices, a matrix and a rotation, a mesh shown twice."""
    corners = numpy.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [0, 2, 1], [2, 2, 2]],
                          dtype=numpy.float32)
    normals = numpy.tile(numpy.array([0, 0, 1], dtype=numpy.float32), (6, 1))
    binary = numpy.hstack([corners, normals]).tobytes() + struct.pack("<5H", 0, 1, 2, 3, 4) + \
        bytes([5, 4, 3, 2]) + b"\0\0"
    float3 = {"componentType": 5126, "count": 6, "type": "VEC3", "bufferView": 0}
    description = {
        "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 2]}],
        "nodes": [{"name": "turned", "children": [1], "rotation": [0, 0.6, 0, 0.8],
                   "scale": [2, 1, 1], "translation": [1, 2, 3]},
                  {"name": "placed", "mesh": 0,
                   "matrix": [1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 5, 0, 0, 1]},
                  {"name": "again", "mesh": 0, "translation": [0, 0, -4]}],
        "meshes": [{"name": "every mode", "primitives": [
            {"mode": 5, "attributes": {"POSITION": 0, "NORMAL": 1}},
            {"mode": 6, "attributes": {"POSITION": 0}, "indices": 2},
            {"mode": 2, "attributes": {"POSITION": 0}, "indices": 3},
            {"mode": 3, "attributes": {"POSITION": 0}}]}],
        "accessors": [float3, dict(float3, byteOffset=12),
                      {"bufferView": 1, "componentType": 5123, "count": 5, "type": "SCALAR"},
                      {"bufferView": 2, "componentType": 5121, "count": 4, "type": "SCALAR"}],
        "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 144, "byteStride": 24},
                        {"buffer": 0, "byteOffset": 144, "byteLength": 10},
                        {"buffer": 0, "byteOffset": 154, "byteLength": 4}],
        "buffers": [{"byteLength": len(binary)}]}
    text = json.dumps(description).encode()
    text += b" " * (-len(text) % 4)
    chunks = struct.pack("<I4s", len(text), b"JSON") + text + \
        struct.pack("<I4s", len(binary), b"BIN\0") + binary
    return struct.pack("<4sII", b"glTF", 2, 12 + len(chunks)) + chunks


@pytest.fixture(scope="module")
def graphics(tmp_path_factory):
    """Every graphic of the pump housing, of a generated document of each schema, and one of
    every mode given to a TTRS of the bracket."""
    generated = tmp_path_factory.mktemp("generated")
    generate(generated / "current.xml", objects=300, seed=11)
    generate(generated / "legacy.xml", objects=300, seed=12, schema="legacy")
    found = []
    for path in [document("pump_housing.xml"), generated / "current.xml", generated / "legacy.xml"]:
        found += graphics_of(vektps.load(path))
    bracket = open(document("bracket.xml"), "rb").read()
    rep = b'<GeoP>12</GeoP><Rep Type="3"><Buf>' + base64.b64encode(every_mode_glb()) + \
        b"</Buf></Rep>"
    modes = graphics_of(vektps.load(bracket.replace(b"<GeoP>12</GeoP>", rep)))
    assert len(modes) == 1 and len(found) > 10
    return modes + found


def test_arrays_nodes_and_world_space_geometry_are_the_glbs(graphics):
    checked = triangles = lines = 0
    for graphic in graphics:
        glb = Glb(graphic.glb)
        assert len(graphic.meshes) == len(glb.json.get("meshes", []))
        for mesh, described in zip(graphic.meshes, glb.json.get("meshes", [])):
            assert mesh.name == described.get("name", "")
            for primitive, source in zip(mesh.primitives, described["primitives"], strict=True):
                attributes = source["attributes"]
                assert primitive.mode == source.get("mode", 4)
                assert primitive.positions.dtype == numpy.float32
                assert numpy.array_equal(primitive.positions, glb.accessor(attributes["POSITION"]))
                normals, indices = attributes.get("NORMAL"), source.get("indices")
                assert (primitive.normals is None) == (normals is None)
                assert normals is None or numpy.array_equal(primitive.normals,
                                                            glb.accessor(normals))
                assert (primitive.indices is None) == (indices is None)
                assert indices is None or (primitive.indices.dtype == numpy.uint32 and
                                           numpy.array_equal(primitive.indices,
                                                             glb.accessor(indices).ravel()))
                checked += 1
        matrices = glb.world_matrices()
        for k, (node, described) in enumerate(zip(graphic.nodes, glb.json["nodes"], strict=True)):
            assert node.name == described.get("name", "")
            assert numpy.allclose(node.matrix, glb.local_matrix(described))
            assert numpy.allclose(node.world_matrix, matrices[k])
            assert [graphic.nodes.index(child) for child in node.children] == \
                described.get("children", [])
            assert all(child.parent is node for child in node.children)
            assert node.mesh is (graphic.meshes[described["mesh"]] if "mesh" in described
                                 else None)
        shown = graphic.triangles()
        assert shown.shape == (glb.shown(TRIANGLE_MODES), 3, 3) and shown.dtype == numpy.float32
        assert graphic.lines().shape == (glb.shown(LINE_MODES), 2, 3)
        triangles += len(shown)
        lines += len(graphic.lines())
    assert checked > 10 and triangles > 0 and lines > 0


def test_arrays_are_read_only_views_kept_by_their_owner(graphics):
    graphic = graphics[0]
    primitive = graphic.meshes[0].primitives[0]
    assert primitive is graphic.meshes[0].primitives[0] and graphic.nodes[0] is graphic.nodes[0]
    with pytest.raises(ValueError):
        primitive.positions[0, 0] = 1.0
    with pytest.raises(ValueError):
        graphic.nodes[0].world_matrix[0, 0] = 2.0
    assert primitive.positions.base is not None
