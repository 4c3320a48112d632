"""vektps.load and the model as Python objects, against the bundled documents and the tool."""

import gc
import json
import os
import pathlib
import re
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import pytest

import vektps
from conftest import FAMILIES, SANITIZED, document, generate, tool_json

BUNDLED = ["pump_housing.xml", "pump_housing.xml.b64", "pump_housing.xml.z",
           "gear_shaft_legacy.xml", "bracket.xml"]
EXPORTED = {"ref_frames": "refFrames"}
KINDS = {1: "annotation", 2: "view", 3: "ttrs", 4: "ref_frame", 5: "cg", 6: "capture"}


def read(name):
    return pathlib.Path(document(name)).read_bytes()


def snake(name):
    return re.sub("([A-Z])", r"_\1", name).lower()


def as_export(value):
    """A Python attribute's value as the JSON export writes it: linked objects as their ids."""
    if isinstance(value, vektps.Object):
        return value.id
    if isinstance(value, vektps.Camera):
        return {name: as_export(getattr(value, name))
                for name in ["type", "position", "direction", "zenith", "target"]}
    if isinstance(value, vektps.Graphic):
        primitives = [p for mesh in value.meshes for p in mesh.primitives]
        return {"nodes": len(value.nodes), "meshes": len(value.meshes),
                "primitives": len(primitives),
                "vertices": sum(p.vertex_count for p in primitives), "bytes": len(value.glb)}
    if isinstance(value, (list, tuple)):
        return [as_export(item) for item in value]
    return value


@pytest.mark.parametrize("name, form, schema", [
    ("pump_housing.xml.z", "zlib", "current"),
    ("gear_shaft_legacy.xml", "plain", "legacy"),
])
def test_each_source_type_loads(name, form, schema):
    for source in [document(name), pathlib.Path(document(name)), read(name),
                   bytearray(read(name)), memoryview(read(name))]:
        loaded = vektps.load(source)
        assert (loaded.form, loaded.schema, loaded.result) == (form, schema, 0)
        assert len(loaded.sets) == 1


def test_forced_forms():
    plain = read("pump_housing.xml")
    with pytest.raises(vektps.LoadError) as failure:
        vektps.load(plain, form="zlib")
    assert failure.value.status == "decode-failed" and failure.value.line is None
    with pytest.raises(ValueError, match="unknown form"):
        vektps.load(plain, form="gzip")


@pytest.mark.parametrize("form", ["plain", "base64", "zlib"])
def test_write_gives_back_the_same_model(form, tmp_path, recwarn):
    source = vektps.load(document("pump_housing.xml"))
    written = source.write(form=form)
    assert vektps.load(written).form == form
    assert vektps.load(written).to_dict()["sets"] == source.to_dict()["sets"]
    assert source.write(str(tmp_path / "out.xml"), form=form) is None
    assert (tmp_path / "out.xml").read_bytes() == written
    assert not recwarn.list
    # A legacy value the current schema cannot keep is a warning naming its object.
    with pytest.warns(vektps.WriteWarning):
        vektps.load(document("gear_shaft_legacy.xml")).write()
    with pytest.raises(ValueError):
        source.write(form="xml")


@pytest.mark.parametrize("name", BUNDLED)
def test_export_is_the_tools_and_every_attribute_its_member(name):
    loaded = vektps.load(document(name))
    assert json.loads(loaded.to_json()) == loaded.to_dict() == tool_json(document(name))
    for set_, export in zip(loaded.sets, loaded.to_dict()["sets"], strict=True):
        for member in ["name", "standard", "uuid", "type", "status"]:
            assert getattr(set_, member) == export[member]
        assert [(KINDS[entry["kind"]], entry["id"]) for entry in export["unresolved"]] == \
            set_.unresolved
        for family in FAMILIES:
            objects = getattr(set_, family)
            exported_objects = export[EXPORTED.get(family, family)]
            for item, members in zip(objects, exported_objects, strict=True):
                for member, value in members.items():
                    assert as_export(getattr(item, snake(member))) == value, (family, member)


def test_links_referenced_by_and_find():
    """Values are the export's (test_export_is_the_tools_and_every_attribute_its_member); links
    lead to the one Python object of each model object, and back through every member."""
    loaded = vektps.load(document("bracket.xml"))
    set_ = loaded.sets[0]
    assert loaded.sets[0] is set_
    datum_a, datum_b, flatness, position = set_.annotations
    front, side = set_.views
    frame, cg, capture = set_.ref_frames[0], set_.cgs[0], set_.captures[0]
    assert position.order_group == [flatness, position] and flatness.order_group is None
    assert all(a is b for a, b in zip(front.annotations, [datum_a, flatness, position]))
    assert datum_b.views[0] is side and capture.active_view is front
    assert frame.datums == [datum_a, datum_b]
    base_face = set_.find(101, "ttrs")
    assert base_face is set_.ttrs[0]
    assert sorted(base_face.referenced_by(), key=lambda link: (link[0].id, link[1])) == \
        [(datum_a, "ttrs"), (flatness, "ttrs"), (frame, "ttrs"), (cg, "ttrs")]
    assert sorted(front.referenced_by(), key=lambda link: (link[0].id, link[1])) == \
        [(datum_a, "views"), (flatness, "views"), (position, "views"),
         (capture, "active_view"), (capture, "views")]
    assert frame.referenced_by() == [(position, "reference")]
    assert (frame, "datums") in datum_a.referenced_by() and cg.referenced_by() == [(capture, "cgs")]
    assert capture.referenced_by() == [(front, "captures")]
    assert {link for link in position.referenced_by()} == \
        {(position, "order_group"), (front, "annotations"), (capture, "annotations")}
    assert set_.find(4, "annotation") is position and set_.find(21, "ref_frame") is frame
    assert set_.find(999, "view") is None and set_.unresolved == []
    with pytest.raises(ValueError, match="unknown kind"):
        set_.find(4, "tps")


BROKEN = [
    (b'<?xml version="1.0"?>\n<Functional_Tolerancing_Annotation>\n  <RootTPSs>\n</Fun',
     "xml-error", 4),
    (b'<?xml version="1.0"?>\n<Unknown/>', "unknown-root", None),
    (b"", "xml-error", 1),
    (b"PD94bWwg!!!", "decode-failed", None),
    (pathlib.Path("/nonexistent/absent.xml"), "read-failed", None),
]


@pytest.mark.parametrize("source, status, line", BROKEN)
def test_load_errors(source, status, line):
    with pytest.raises(vektps.LoadError) as failure:
        vektps.load(source)
    error = failure.value
    assert isinstance(error, ValueError) and error.status == status and error.message
    assert error.line == line and (error.column is None) == (line is None)
    assert error.result == 0x80004005 and (str(error).startswith("line") == (line is not None))


def test_diagnostics():
    text = read("bracket.xml").replace(b"<TPSs>2</TPSs>", b"<TPSs>2 999</TPSs>")
    loaded = vektps.load(text)
    [diagnostic] = [d for d in loaded.diagnostics if d.kind == "unresolved-id"]
    assert (diagnostic.set, diagnostic.object_kind, diagnostic.id) == (0, "annotation", 999)
    assert diagnostic.line == text[:text.index(b"2 999")].count(b"\n") + 1
    assert "999" in diagnostic.message and diagnostic.element
    assert diagnostic.to_dict()["id"] == 999 and ("annotation", 999) in loaded.sets[0].unresolved


def test_model_outlives_the_document():
    annotation = vektps.load(document("bracket.xml")).sets[0].annotations[3]
    gc.collect()
    assert annotation.views[0].name == "Front"
    assert annotation.referenced_by()[0][0].name
    graphic = vektps.load(document("pump_housing.xml")).sets[0].ttrs[0].rep
    gc.collect()
    positions = graphic.meshes[0].primitives[0].positions
    del graphic
    gc.collect()
    assert positions.shape == (4, 3) and positions.max() == 80.0


def test_no_dump_unless_asked(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    vektps.load(document("bracket.xml"))
    assert os.listdir(tmp_path) == []
    assert vektps.load(document("bracket.xml"), dump="kept.xml").dumped
    assert b"Bracket MB-200" in (tmp_path / "kept.xml").read_bytes()
    assert os.listdir(tmp_path) == ["kept.xml"]


def test_threads_load_at_once():
    sources = [read(name) for name in BUNDLED]
    expected = [vektps.load(source).to_json() for source in sources]
    with ThreadPoolExecutor(max_workers=8) as pool:
        results = list(pool.map(lambda k: vektps.load(sources[k % 5]).to_json(), range(80)))
    assert results == [expected[k % 5] for k in range(80)]


def test_load_releases_the_gil(tmp_path):
    generate(tmp_path / "large.xml", objects=8000, seed=3)
    data = (tmp_path / "large.xml").read_bytes()
    stamps = []
    stop = threading.Event()

    def tick():
        while not stop.is_set():
            stamps.append(time.perf_counter())
            time.sleep(0.001)

    ticker = threading.Thread(target=tick)
    ticker.start()
    try:
        start = time.perf_counter()
        vektps.load(data)
        end = time.perf_counter()
    finally:
        stop.set()
        ticker.join()
    # Holding the GIL, the load would let the other thread run only before and after it.
    middle = (start + 0.3 * (end - start), start + 0.7 * (end - start))
    assert end - start > 0.02
    assert any(middle[0] < stamp < middle[1] for stamp in stamps)


def resident_kilobytes():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


@pytest.mark.skipif(SANITIZED, reason="the sanitizer keeps freed memory in quarantine; "
                                       "test_leaks_under_sanitizer stands in")
def test_no_leak_over_many_loads():
    data = read("pump_housing.xml")

    def load_and_walk():
        loaded = vektps.load(data)
        set_ = loaded.sets[0]
        for item in set_.annotations + set_.views + set_.ttrs:
            item.referenced_by()
        return set_.ttrs[0].rep.meshes[0].primitives[0].positions

    for _ in range(200):
        load_and_walk()
    gc.collect()
    before = resident_kilobytes()
    for _ in range(2000):
        load_and_walk()
    gc.collect()
    # One model of this document takes well over 50 kB: keeping them all would add 100 MB.
    assert resident_kilobytes() - before < 8000


LEAK_PROGRAM = """
import gc, sys, vektps
from vektps import batch

for path in sys.argv[1:]:
    for _ in range(3):
        loaded = vektps.load(path)
        objects = [item for set_ in loaded.sets for family in
                   (set_.ttrs, set_.annotations, set_.views, set_.ref_frames, set_.cgs, set_.captures)
                   for item in family]
        for item in objects:
            item.referenced_by()
        graphics = [item.rep for item in objects if item.rep is not None]
        arrays = [primitive.positions for graphic in graphics for mesh in graphic.meshes
                  for primitive in mesh.primitives]
        arrays += [graphic.triangles() for graphic in graphics] + \
            [graphic.lines() for graphic in graphics] + [graphic.glb for graphic in graphics]
        loaded.to_dict(), loaded.diagnostics
        survivor = objects[-1]
        del loaded, objects, graphics
        survivor.referenced_by()
        del survivor, arrays
    batch.process_batch([path])
try:
    vektps.load(b"<broken")
except vektps.LoadError:
    pass
gc.collect()
"""


def leaks_of_ours(report):
    """The leak reports of memory that compiled code allocated, not the interpreter: the first
    frame after the sanitizer's allocator lies outside the interpreter."""
    ours = []
    for block in re.split(r"\n(?=(?:Direct|Indirect) leak)", report):
        frames = [frame for frame in re.findall(r"^\s+#\d+ .*$", block, re.MULTILINE)
                  if not re.search(r"libclang_rt|libasan", frame)]
        if block.startswith(("Direct", "Indirect")) and frames and "python3" not in frames[0]:
            ours.append(block)
    return ours


@pytest.mark.skipif(not SANITIZED, reason="needs the sanitizer build")
def test_leaks_under_sanitizer(tmp_path):
    environment = dict(os.environ, ASAN_OPTIONS="detect_leaks=1:exitcode=0:fast_unwind_on_malloc=0:"
                                                f"log_path={tmp_path / 'lsan'}")
    subprocess.run([sys.executable, "-c", LEAK_PROGRAM, *map(document, BUNDLED)],
                   env=environment, check=True)
    report = "".join(path.read_text() for path in tmp_path.glob("lsan*"))
    # The interpreter leaves some of its own memory at exit: a report shows the check ran.
    assert "LeakSanitizer" in report
    assert leaks_of_ours(report) == []
