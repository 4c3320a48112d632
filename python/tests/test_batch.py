"""python3 -m vektps.batch end to end: generated and broken documents on a local cluster of
worker processes, then on a scheduler and workers started as separate processes."""

import gzip
import json
import os
import signal
import subprocess
import sys
import time
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
    environment = dict(os.environ)
    return subprocess.run([sys.executable, "-m", "vektps.batch", *arguments], cwd=cwd,
                          env=environment, capture_output=True, text=True, timeout=timeout)


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
    """Resuming an interrupted run is test_batch_driver's."""
    root, expected = corpus
    outdir = tmp_path / "out"
    arguments = [str(root / "generated"), str(root / "broken" / "*"), "-o", str(outdir),
                 "--workers", "2", "--batch-size", "4"]
    first = run_batch(arguments, cwd=tmp_path)
    assert (first.returncode, first.stdout, first.stderr) == (0, "", "")
    check_output(outdir, expected)
    assert sorted(os.listdir(tmp_path)) == ["out"]


def test_usage_errors(tmp_path):
    missing = run_batch([str(tmp_path / "nothing*"), "-o", str(tmp_path / "out")], cwd=tmp_path)
    assert missing.returncode == 2 and "nothing*" in missing.stderr
    assert run_batch([str(tmp_path), "--workers", "0", "-o", "x"], cwd=tmp_path).returncode == 2


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"no {what} after {seconds} s")
        time.sleep(0.1)


def test_external_scheduler_and_workers(corpus, tmp_path):
    from distributed import Client

    root, expected = corpus
    scheduler_file = tmp_path / "scheduler.json"
    logs = {name: open(tmp_path / f"{name}.log", "w") for name in ["scheduler", "workers"]}
    processes = []
    try:
        processes.append(subprocess.Popen(
            [sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1",
             "--port", "0", "--dashboard-address", ":0", "--scheduler-file", str(scheduler_file)],
            cwd=tmp_path, stdout=logs["scheduler"], stderr=subprocess.STDOUT,
            start_new_session=True))
        wait_for(scheduler_file.exists, 30, "scheduler file")
        processes.append(subprocess.Popen(
            [sys.executable, "-m", "distributed.cli.dask_worker", "--scheduler-file",
             str(scheduler_file), "--nworkers", "2", "--nthreads", "1", "--no-dashboard",
             "--local-directory", str(tmp_path / "workers")],
            cwd=tmp_path, stdout=logs["workers"], stderr=subprocess.STDOUT,
            start_new_session=True))
        with Client(scheduler_file=str(scheduler_file), timeout=30) as client:
            client.wait_for_workers(2, timeout=60)
            address = client.scheduler.address
        outdir = tmp_path / "out"
        result = run_batch([str(root / "generated"), str(root / "broken"), "-o", str(outdir),
                            "--scheduler", address, "--batch-size", "4"], cwd=tmp_path)
        assert (result.returncode, result.stderr) == (0, "")
        check_output(outdir, expected)
    finally:
        for process in reversed(processes):
            os.killpg(process.pid, signal.SIGTERM)
        for process in reversed(processes):
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
        for log in logs.values():
            log.close()
