"""python3 -m vektps.batch end to end: generated and broken documents on a local cluster of
worker processes, then on a running scheduler named by its address."""

import contextlib
import gzip
import json
import os
import socket
import subprocess
import sys
import zlib

import pytest

from conftest import generate, tool_json

FORMS = {"plain": ".xml", "base64": ".b64", "zlib": ".zlib"}


@pytest.fixture(scope="module")
def corpus(tmp_path_factory):
    """Twelve generated documents of both schemas in the three forms, three broken ones and a
    file that is no document; returns (root, {path: None when it loads, else whether its error
    has a line})."""
    root = tmp_path_factory.mktemp("corpus")
    (root / "generated" / "deeper").mkdir(parents=True)
    expected = {}
    for k in range(12):
        schema = "legacy" if k % 4 == 3 else "current"
        form = list(FORMS)[k % 3]
        folder = root / "generated" / ("deeper" if k % 2 else "")
        # One name is not UTF-8: its record's path holds the surrogate Python reads it with.
        name = f"doc{k:02d}" + ("-caf" + os.fsdecode(b"\xe9") if k == 5 else "")
        path = folder / f"{name}{FORMS[form]}"
        generate(path, objects=10 + 5 * k, seed=k, schema=schema, form=form)
        expected[str(path)] = None
    (root / "generated" / "notes.txt").write_text("not a document\n")
    broken = root / "broken"
    broken.mkdir()
    whole = (root / "generated" / "doc00.xml").read_bytes()
    cases = {"cut.xml": (whole[: len(whole) // 2], True),
             "wrong-root.xml": (b'<?xml version="1.0"?>\n<html/>\n', False),
             "bad-stream.z": (zlib.compress(whole)[:40], False)}
    for name, (data, has_line) in cases.items():
        (broken / name).write_bytes(data)
        expected[str(broken / name)] = has_line
    return root, expected


def run_batch(arguments, cwd, timeout=120):
    return subprocess.run([sys.executable, "-m", "vektps.batch", *arguments], cwd=cwd,
                          capture_output=True, text=True, timeout=timeout)


def records_of(outdir):
    records = {}
    for part in sorted(outdir.glob("part-*.jsonl.gz")):
        for line in gzip.open(part, "rt", encoding="utf-8"):
            record = json.loads(line)
            records[record["path"]] = record
    return records


def check_output(outdir, expected):
    manifest = json.loads((outdir / "manifest.json").read_text())
    failed = sum(has_line is not None for has_line in expected.values())
    assert (manifest["documents"], manifest["loaded"], manifest["failed"]) == \
        (len(expected), len(expected) - failed, failed)
    records = records_of(outdir)
    assert sorted(records) == sorted(expected) and manifest["parts"] == 4
    for path, has_line in expected.items():
        record = records[path]
        assert list(record) == ["path", "schema", "form", "result", "error", "sets", "diagnostics"]
        if has_line is None:
            exported = tool_json(path)
            assert record["error"] is None and record["sets"] == exported["sets"]
            assert (record["schema"], record["result"]) == (exported["schema"], exported["result"])
            assert record["form"] == {".xml": "plain", ".b64": "base64",
                                      ".zlib": "zlib"}[os.path.splitext(path)[1]]
        else:
            assert record["error"]["message"] and record["sets"] == []
            assert (record["error"]["line"] is not None) == has_line


def test_local_cluster(corpus, tmp_path):
    """Resuming an interrupted run is test_batch_driver's. Dask's usual HTTP port is held, as
    another batch on the machine would hold it, and the run must stay quiet all the same."""
    root, expected = corpus
    outdir = tmp_path / "out"
    arguments = [str(root / "generated"), str(root / "broken" / "*"), "-o", str(outdir),
                 "--workers", "2", "--batch-size", "4"]
    with socket.socket() as other:
        with contextlib.suppress(OSError):
            other.bind(("", 8787))
            other.listen()
        first = run_batch(arguments, cwd=tmp_path)
    assert (first.returncode, first.stdout, first.stderr) == (0, "", "")
    check_output(outdir, expected)
    assert sorted(os.listdir(tmp_path)) == ["out"]


def test_usage_errors(tmp_path):
    missing = run_batch([str(tmp_path / "nothing*"), "-o", str(tmp_path / "out")], cwd=tmp_path)
    assert missing.returncode == 2 and "nothing*" in missing.stderr
    assert run_batch([str(tmp_path), "--workers", "0", "-o", "x"], cwd=tmp_path).returncode == 2


def test_running_scheduler(corpus, tmp_path):
    """--scheduler names a scheduler already running, here one in this process with workers of
    their own, reached over TCP. Workers in processes keep the scheduler as quick to answer as one
    on a machine of its own; loaded with their work, its replies to the batch's closing client
    come late and the client complains."""
    from distributed import LocalCluster

    root, expected = corpus
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, protocol="tcp://",
                      dashboard_address=":0") as cluster:
        outdir = tmp_path / "out"
        result = run_batch([str(root / "generated"), str(root / "broken"), "-o", str(outdir),
                            "--scheduler", cluster.scheduler_address, "--batch-size", "4"],
                           cwd=tmp_path)
        ran = set(cluster.scheduler.task_prefixes)
    assert (result.returncode, result.stderr, ran) == (0, "", {"vektps-part"})
    check_output(outdir, expected)
