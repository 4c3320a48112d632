"""The batch driver's plumbing on an in-process cluster: which files are documents, parts,
manifest, resume, and a batch whose task kills its workers."""

import base64
import contextlib
import gzip
import json
import os
import zlib
from types import SimpleNamespace

import pytest
from distributed import Client, KilledWorker, LocalCluster

from vektps import batch

XML = b'<?xml version="1.0"?>\n<Functional_Tolerancing_Annotation/>'


@pytest.mark.parametrize("name, content, expected", [
    ("a.xml", b"anything", True),
    ("a.B64", b"", True),
    ("a.zlib", b"", True),
    ("a.z", b"", True),
    ("plain", XML, True),
    ("bom", b"\xef\xbb\xbf  <TolerancingData/>", True),
    ("utf16", "<a/>".encode("utf-16"), True),
    ("comment-first", b"\n<!-- made by hand -->\n<a/>", True),
    ("base64", base64.encodebytes(XML), True),
    ("zlib", zlib.compress(XML), True),
    ("readme", b"Plain notes, not markup.\n", False),
    ("less-than", b"< 3 is a number", False),
    ("base64-of-text", base64.b64encode(b"just text"), False),
    ("zlib-of-text", zlib.compress(b"just text"), False),
    ("empty", b"", False),
])
def test_looks_like_document(tmp_path, name, content, expected):
    path = tmp_path / name
    path.write_bytes(content)
    assert batch.looks_like_document(str(path)) is expected


def test_find_documents(tmp_path, monkeypatch):
    (tmp_path / "tree" / "deep").mkdir(parents=True)
    (tmp_path / "tree" / "b.xml").write_bytes(XML)
    (tmp_path / "tree" / "deep" / "a.b64").write_bytes(base64.b64encode(XML))
    (tmp_path / "tree" / "notes.txt").write_bytes(b"notes")
    (tmp_path / "given.txt").write_bytes(b"not a document, but named")
    (tmp_path / "x1.xml").write_bytes(XML)
    monkeypatch.chdir(tmp_path)
    found = batch.find_documents(["tree", "given.txt", "x*.xml", str(tmp_path / "tree" / "b.xml")])
    assert found == sorted(str(tmp_path / name) for name in
                           ["tree/b.xml", "tree/deep/a.b64", "given.txt", "x1.xml"])
    with pytest.raises(batch.UsageError, match="nothing-here"):
        batch.find_documents(["tree", "nothing-here*"])


@pytest.fixture(scope="module")
def client():
    with LocalCluster(n_workers=1, threads_per_worker=2, processes=False,
                      dashboard_address=None) as cluster, Client(cluster) as client:
        yield client


@pytest.fixture
def stub_loads(monkeypatch):
    """Records that name their path, without loading: documents named "bad*" fail."""
    loaded = []

    def record(path):
        loaded.append(os.path.splitext(os.path.basename(path))[0])
        return json.dumps({"path": path}), not os.path.basename(path).startswith("bad")

    monkeypatch.setattr(batch, "document_record", record)
    return loaded


def read_parts(outdir):
    names = sorted(name for name in os.listdir(outdir) if name.startswith("part-"))
    return {name: [json.loads(line)["path"] for line in gzip.open(outdir / name)]
            for name in names}


def test_parts_manifest_and_resume(tmp_path, client, stub_loads):
    paths = [str(tmp_path / f"{name}.xml") for name in ["bad1", "d2", "d3", "d4", "d5", "d6", "d7"]]
    outdir = tmp_path / "out"

    def connect():
        return contextlib.nullcontext(client)

    manifest = batch.run(paths, str(outdir), 3, connect)
    assert {key: manifest[key] for key in ["documents", "loaded", "failed", "parts"]} == \
        {"documents": 7, "loaded": 6, "failed": 1, "parts": 3}
    assert read_parts(outdir) == {"part-00000.jsonl.gz": paths[0:3],
                                  "part-00001.jsonl.gz": paths[3:6],
                                  "part-00002.jsonl.gz": paths[6:7]}
    assert json.loads((outdir / "manifest.json").read_text()) == manifest
    first = {name: (outdir / name).read_bytes() for name in read_parts(outdir)}

    # An interrupted run: one part missing, a temporary file left behind.
    stub_loads.clear()
    (outdir / "part-00001.jsonl.gz").unlink()
    (outdir / ".vektps-batch-abc.tmp").write_bytes(b"half")
    manifest = batch.run(paths, str(outdir), 3, connect)
    assert sorted(stub_loads) == ["d4", "d5", "d6"]
    assert manifest["loaded"] == 6 and manifest["failed"] == 1
    assert {name: (outdir / name).read_bytes() for name in read_parts(outdir)} == first
    assert not list(outdir.glob(".vektps-batch-*"))

    # Complete: nothing is loaded and no cluster is needed.
    stub_loads.clear()
    assert batch.run(paths, str(outdir), 3, None)["documents"] == 7
    assert stub_loads == []

    # Fewer documents: the parts that changed are made again, the one beyond the plan goes.
    manifest = batch.run(paths[1:4], str(outdir), 3, connect)
    assert sorted(stub_loads) == ["d2", "d3", "d4"]
    assert read_parts(outdir) == {"part-00000.jsonl.gz": paths[1:4]}
    assert (manifest["documents"], manifest["loaded"], manifest["parts"]) == (3, 3, 1)


def test_batch_killing_its_workers_keeps_the_other_documents(tmp_path, client, stub_loads,
                                                             monkeypatch):
    process_batch = batch.process_batch

    def dies_on_poison(paths):
        if any("poison" in path for path in paths):
            raise KilledWorker("task", SimpleNamespace(address="tcp://gone"), 3)
        return process_batch(paths)

    monkeypatch.setattr(batch, "process_batch", dies_on_poison)
    paths = [str(tmp_path / name) for name in ["a.xml", "b.xml", "poison.xml", "z.xml"]]
    manifest = batch.run(paths, str(tmp_path / "out"), 10,
                         lambda: contextlib.nullcontext(client))
    assert (manifest["documents"], manifest["loaded"], manifest["failed"]) == (4, 3, 1)
    records = [json.loads(line) for line in gzip.open(tmp_path / "out" / "part-00000.jsonl.gz")]
    assert [record["path"] for record in records] == paths
    assert "died" in records[2]["error"]["message"]
    assert records[2]["sets"] == [] and "error" not in records[0]
