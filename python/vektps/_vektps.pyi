"""Type stubs of the compiled module of vektps (its names are re-exported by vektps)."""

from typing import Any, Literal, Optional, Union

import numpy
import numpy.typing

__version__: str

Vector = tuple[float, float, float]
Kind = Literal["annotation", "view", "ttrs", "ref_frame", "cg", "capture"]
Member = Literal["views", "order_group", "ttrs", "reference", "annotations", "captures", "datums",
                 "active_view", "cgs"]

class Primitive:
    """One drawable piece of a mesh."""
    @property
    def mode(self) -> int:
        """The glTF mode: 0 points, 1 lines, 2 line loop, 3 line strip, 4 triangles, 5 triangle
        strip, 6 triangle fan."""
    @property
    def vertex_count(self) -> int:
        """Number of vertices (the count of the POSITION accessor; 0 without one)."""
    @property
    def positions(self) -> Optional[numpy.typing.NDArray[numpy.float32]]:
        """Vertex positions, a read-only float32 array of vertex_count rows (x, y, z); None when
        they could not be read."""
    @property
    def normals(self) -> Optional[numpy.typing.NDArray[numpy.float32]]:
        """Vertex normals like positions; None when the primitive has none that could be read."""
    @property
    def indices(self) -> Optional[numpy.typing.NDArray[numpy.uint32]]:
        """The indices as stored (one may be vertex_count or more); None for a non-indexed
        primitive and for indices that could not be read."""

class Mesh:
    """A mesh: a name and its primitives."""
    @property
    def name(self) -> str:
        """The mesh's name."""
    @property
    def primitives(self) -> list[Primitive]:
        """The primitives."""

class Node:
    """A node of a scene graph."""
    @property
    def name(self) -> str:
        """The node's name."""
    @property
    def matrix(self) -> numpy.typing.NDArray[numpy.float64]:
        """The local transform, a read-only 4x4 array indexed [row, column]."""
    @property
    def world_matrix(self) -> numpy.typing.NDArray[numpy.float64]:
        """The world transform (the product of the local ones from the top of the node's tree),
        a read-only 4x4 array indexed [row, column]."""
    @property
    def parent(self) -> Optional[Node]:
        """The node that lists this one as a child; None for a top node."""
    @property
    def mesh(self) -> Optional[Mesh]:
        """The node's mesh; None when it has none."""
    @property
    def children(self) -> list[Node]:
        """The child nodes."""

class Graphic:
    """A graphic representation read from a binary glTF blob."""
    @property
    def nodes(self) -> list[Node]:
        """Every node, in the blob's order."""
    @property
    def roots(self) -> list[Node]:
        """The scene's root nodes."""
    @property
    def meshes(self) -> list[Mesh]:
        """Every mesh, in the blob's order."""
    @property
    def glb(self) -> bytes:
        """The GLB the graphic was read from."""
    def triangles(self) -> numpy.typing.NDArray[numpy.float32]:
        """The triangles the scene shows, in world space: K triangles by 3 corners by (x, y, z).
        MemoryError when they would be too many."""
    def lines(self) -> numpy.typing.NDArray[numpy.float32]:
        """The line segments the scene shows, in world space: M segments by 2 ends by
        (x, y, z)."""

class Camera:
    """A capture's camera; each value None when never set."""
    @property
    def type(self) -> Optional[int]:
        """The camera type number."""
    @property
    def position(self) -> Optional[Vector]:
        """The camera position (x, y, z)."""
    @property
    def direction(self) -> Optional[Vector]:
        """The viewing direction (x, y, z)."""
    @property
    def zenith(self) -> Optional[Vector]:
        """The up direction (x, y, z)."""
    @property
    def target(self) -> Optional[Vector]:
        """The point looked at (x, y, z)."""

class Object:
    """A model object; the base of every family. The object keeps its whole model alive."""
    @property
    def id(self) -> Optional[int]:
        """The integer id; None when never set."""
    @property
    def name(self) -> Optional[str]:
        """The name; None when never set."""
    @property
    def uuid(self) -> Optional[str]:
        """The UUID text; None when never set."""
    @property
    def type(self) -> Optional[int]:
        """The type number; None when never set."""
    @property
    def status(self) -> Optional[int]:
        """The status number; None when never set."""
    @property
    def rep(self) -> Optional[Graphic]:
        """The object's representation; None when it has none."""
    def referenced_by(self) -> list[tuple[Object, Member]]:
        """The (object, member) pairs of the set that link to this object, member being the
        attribute of the naming object (integer references included)."""

class Annotation(Object):
    """An annotation (TPS)."""
    @property
    def value(self) -> Optional[float]:
        """The tolerance value; None when never set."""
    @property
    def default(self) -> bool:
        """Whether the annotation is marked as default."""
    @property
    def reference(self) -> Optional[int]:
        """The id of the reference frame it refers to; None when never set."""
    @property
    def attribute(self) -> Optional[str]:
        """The attribute text; None when never set."""
    @property
    def ttrs(self) -> list[int]:
        """The ids of the TTRS it applies to."""
    @property
    def graphic(self) -> Optional[Graphic]:
        """The annotation's own graphic; None when it has none."""
    @property
    def views(self) -> list[View]:
        """The views showing the annotation."""
    @property
    def order_group(self) -> Optional[list[Annotation]]:
        """The annotations of its order group; None when never set."""

class View(Object):
    """A view: a plane annotations are shown in."""
    @property
    def origin(self) -> Optional[Vector]:
        """The origin; None when never set."""
    @property
    def normal(self) -> Optional[Vector]:
        """The normal; None when never set."""
    @property
    def direction(self) -> Optional[Vector]:
        """The direction; None when never set."""
    @property
    def annotations(self) -> list[Annotation]:
        """The annotations shown in the view."""
    @property
    def captures(self) -> list[Capture]:
        """The captures of the view."""

class TTRS(Object):
    """A TTRS: a surface association annotations apply to."""
    @property
    def geometry(self) -> list[Optional[list[int]]]:
        """The lists of geometry ids, in the order added (None for an empty entry)."""

class RefFrame(Object):
    """A reference frame (datum system)."""
    @property
    def attribute(self) -> Optional[str]:
        """The attribute text; None when never set."""
    @property
    def datums(self) -> list[Annotation]:
        """The datum annotations."""
    @property
    def ttrs(self) -> list[int]:
        """The ids of its TTRS."""

class CG(Object):
    """A construction geometry."""
    @property
    def attribute(self) -> Optional[str]:
        """The attribute text; None when never set."""
    @property
    def ttrs(self) -> list[int]:
        """The ids of its TTRS."""
    @property
    def treps(self) -> list[int]:
        """The ids of its representations."""

class Capture(Object):
    """A capture: camera, clipping, active view and what is shown."""
    @property
    def active_view(self) -> Optional[View]:
        """The active view; None when never set."""
    @property
    def clipping_plane(self) -> Optional[int]:
        """The clipping plane number; None when never set."""
    @property
    def camera(self) -> Camera:
        """The camera."""
    @property
    def annotations(self) -> list[Annotation]:
        """The annotations shown."""
    @property
    def views(self) -> list[View]:
        """The views shown."""
    @property
    def cgs(self) -> list[CG]:
        """The construction geometries shown."""
    @property
    def graphic(self) -> Optional[Graphic]:
        """The capture's own graphic; None when it has none."""

class Set:
    """An annotation set: the families of objects, each in creation order. The set keeps its
    whole model alive."""
    @property
    def name(self) -> Optional[str]:
        """The name; None when never set."""
    @property
    def uuid(self) -> Optional[str]:
        """The UUID text; None when never set."""
    @property
    def type(self) -> Optional[int]:
        """The type number; None when never set."""
    @property
    def status(self) -> Optional[int]:
        """The status number; None when never set."""
    @property
    def standard(self) -> Optional[str]:
        """The tolerancing standard; None when never set."""
    @property
    def ttrs(self) -> list[TTRS]:
        """The TTRS."""
    @property
    def annotations(self) -> list[Annotation]:
        """The annotations."""
    @property
    def views(self) -> list[View]:
        """The views."""
    @property
    def ref_frames(self) -> list[RefFrame]:
        """The reference frames."""
    @property
    def cgs(self) -> list[CG]:
        """The construction geometries."""
    @property
    def captures(self) -> list[Capture]:
        """The captures."""
    @property
    def unresolved(self) -> list[tuple[Union[Kind, int], int]]:
        """The (kind, id) of every id the load looked up and did not find, in order."""
    def find(self, id: int, kind: Kind) -> Optional[Object]:
        """The object of `kind` carrying `id` (the first created when several do); None when
        none. Never recorded as an unresolved reference."""

class Diagnostic:
    """What the parser passed over or could not resolve while it built the model."""
    @property
    def kind(self) -> str:
        """'unresolved-id', 'duplicate-id', 'unknown-ttrs', 'unknown-ref-frame', 'bad-number',
        'legacy-value-count', 'legacy-sets-multiply', 'object-limit' or 'family-before-set'."""
    @property
    def set(self) -> Optional[int]:
        """Index of the set being built (into Document.sets); None before any set."""
    @property
    def object_kind(self) -> Optional[Union[Kind, int]]:
        """Kind of the id concerned; None when no id is concerned."""
    @property
    def id(self) -> Optional[int]:
        """The id concerned; None when no id is concerned."""
    @property
    def line(self) -> Optional[int]:
        """1-based line of the element concerned; None when unknown."""
    @property
    def element(self) -> Optional[str]:
        """The element concerned; None when unknown."""
    @property
    def text(self) -> Optional[str]:
        """The text as written where it matters; else None."""
    @property
    def message(self) -> str:
        """One English sentence."""
    def to_dict(self) -> dict[str, Any]:
        """The diagnostic as a dict of its attributes."""

class Document:
    """One load: its sets, form, schema, result and diagnostics."""
    @property
    def schema(self) -> Optional[Literal["current", "legacy"]]:
        """'current' or 'legacy'; None when the document did not parse to a known root."""
    @property
    def form(self) -> Optional[Literal["plain", "base64", "zlib"]]:
        """How the bytes were read; None when they could not be."""
    @property
    def result(self) -> int:
        """The load's result code (0 on success)."""
    @property
    def status(self) -> str:
        """'loaded', or why not: 'no-set', 'read-failed', 'too-large', 'decode-failed',
        'xml-error', 'unknown-root' or 'out-of-memory'."""
    @property
    def loaded(self) -> bool:
        """Whether at least one set was made."""
    @property
    def dumped(self) -> bool:
        """Whether the dump that `dump` asked for was written whole."""
    @property
    def error(self) -> Optional[str]:
        """Why the load failed; None when it loaded."""
    @property
    def error_line(self) -> Optional[int]:
        """1-based line of an XML error; None when the error has no place."""
    @property
    def error_column(self) -> Optional[int]:
        """1-based column of an XML error; None when the error has no place."""
    @property
    def sets(self) -> list[Set]:
        """Every set of the load, in creation order."""
    @property
    def diagnostics(self) -> list[Diagnostic]:
        """What the parser passed over or could not resolve."""
    def to_json(self, *, pretty: bool = False) -> str:
        """The whole model as JSON text, as `vektps json` writes it."""
    def write(self, path: str | None = None, *, form: str = "plain") -> bytes | None:
        """Writes the model as a current-schema document ('plain', 'base64' or 'zlib'): the bytes
        when path is None, else the file, replaced only whole. What cannot be kept is told by a
        vektps.WriteWarning per object."""
    def to_dict(self) -> dict[str, Any]:
        """The whole model as the JSON export's dicts and lists."""

def load_file(path: bytes, form: Optional[str] = None, dump: Optional[bytes] = None) -> Document:
    """Loads the document at `path` without the GIL; returns the Document whether or not it
    loaded."""

def load_bytes(source: Any, form: Optional[str] = None, dump: Optional[bytes] = None) -> Document:
    """Loads a document held in a bytes-like object without the GIL; returns the Document whether
    or not it loaded."""
