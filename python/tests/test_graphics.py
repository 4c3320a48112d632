"""Graphics as Python objects: the binding hands on what the library's representation holds (its
values are the library's own tests'), as read-only numpy views kept by their owner."""

import base64
import json
import struct

import numpy
import pytest

import vektps
from conftest import document

CORNERS = numpy.array([[0, 0, 0], [1, 0, 0], [1, 1, 0], [0, 1, 0], [0, 2, 1], [2, 2, 2]],
                      dtype=numpy.float32)
NORMALS = numpy.tile(numpy.array([0, 0, 1], dtype=numpy.float32), (6, 1))
PLACED = [1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 5, 0, 0, 1]  # column-major, as glTF has it


def every_mode_glb():
    """A GLB with strips, fans, loops, normals interleaved with the positions, byte and short
    indices, a matrix under a rotation, a mesh shown twice."""
    binary = numpy.hstack([CORNERS, NORMALS]).tobytes() + struct.pack("<5H", 0, 1, 2, 3, 4) + \
        bytes([5, 4, 3, 2]) + b"\0\0"
    float3 = {"componentType": 5126, "count": 6, "type": "VEC3", "bufferView": 0}
    description = {
        "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 2]}],
        "nodes": [{"name": "turned", "children": [1], "rotation": [0, 0.6, 0, 0.8],
                   "scale": [2, 1, 1], "translation": [1, 2, 3]},
                  {"name": "placed", "mesh": 0, "matrix": PLACED},
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
def graphic():
    """The every-mode GLB as the graphic of the bracket's second TTRS."""
    bracket = open(document("bracket.xml"), "rb").read()
    rep = b'<GeoP>12</GeoP><Rep Type="3"><Buf>' + base64.b64encode(every_mode_glb()) + \
        b"</Buf></Rep>"
    return vektps.load(bracket.replace(b"<GeoP>12</GeoP>", rep)).sets[0].ttrs[1].rep


def test_meshes_and_arrays_are_the_representations(graphic):
    assert graphic.glb == every_mode_glb()
    (mesh,) = graphic.meshes
    assert mesh.name == "every mode" and [p.mode for p in mesh.primitives] == [5, 6, 2, 3]
    strip, fan, loop, line_strip = mesh.primitives
    assert strip.vertex_count == 6 and strip.positions.dtype == numpy.float32
    assert numpy.array_equal(strip.positions, CORNERS)
    assert numpy.array_equal(strip.normals, NORMALS) and fan.normals is None
    assert strip.indices is None and line_strip.indices is None and fan.indices.dtype == numpy.uint32
    assert list(fan.indices) == [0, 1, 2, 3, 4] and list(loop.indices) == [5, 4, 3, 2]


def test_nodes_are_the_representations(graphic):
    turned, placed, again = graphic.nodes
    assert [node.name for node in graphic.nodes] == ["turned", "placed", "again"]
    assert graphic.roots == [turned, again] and turned.children == [placed]
    assert placed.parent is turned and turned.parent is None and turned.children[0] is placed
    assert placed.mesh is graphic.meshes[0] and turned.mesh is None
    assert numpy.array_equal(placed.matrix, numpy.array(PLACED).reshape(4, 4).T)
    assert numpy.allclose(placed.world_matrix, turned.matrix @ placed.matrix)
    assert numpy.array_equal(turned.world_matrix, turned.matrix)


def test_world_space_triangles_and_segments(graphic):
    # The mesh, shown twice: a strip of 4 triangles and a fan of 3; a loop of 4 segments and a
    # strip of 5.
    triangles = graphic.triangles()
    assert triangles.shape == (14, 3, 3) and triangles.dtype == numpy.float32
    assert any(numpy.array_equal(shown, CORNERS[:3] + [0, 0, -4]) for shown in triangles)
    assert graphic.lines().shape == (18, 2, 3)


def test_arrays_are_read_only_views_kept_by_their_owner(graphic):
    primitive = graphic.meshes[0].primitives[0]
    assert primitive is graphic.meshes[0].primitives[0] and graphic.nodes[0] is graphic.nodes[0]
    with pytest.raises(ValueError):
        primitive.positions[0, 0] = 1.0
    with pytest.raises(ValueError):
        graphic.nodes[0].world_matrix[0, 0] = 2.0
    assert primitive.positions.base is not None
