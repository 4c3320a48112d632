"""Loads many documents on a Dask cluster and writes one JSON record per document.

    python3 -m vektps.batch INPUT... -o OUTDIR [--scheduler ADDRESS] [--workers N] [--batch-size N]

INPUTs are files (always taken), directories (searched recursively for documents, see
``looks_like_document``) or glob patterns. The documents, sorted by absolute path, go out in
batches of ``--batch-size``; batch k becomes ``OUTDIR/part-k.jsonl.gz`` (gzipped JSON Lines, one
record per document, written to a temporary name and renamed when complete). A second run over the
same OUTDIR skips the parts already complete for the same documents. ``OUTDIR/manifest.json``
counts the documents, the loaded, the failed and the parts, and the run's seconds.

Without ``--scheduler`` a local cluster of ``--workers`` single-threaded processes runs the loads;
with it, the cluster at ADDRESS does (its workers must import vektps and read the input paths).
"""

import argparse
import base64
import binascii
import contextlib
import datetime
import glob
import gzip
import hashlib
import json
import logging
import os
import re
import sys
import tempfile
import time
import zlib

from . import _document

# Names that are documents whatever their first bytes hold.
DOCUMENT_SUFFIXES = (".xml", ".b64", ".zlib", ".z")
# How much of a file's start is looked at to tell whether it is a document.
SNIFF_BYTES = 512

PART_PATTERN = "part-{:05d}.jsonl.gz"
PROGRESS_FILE = "progress.json"
MANIFEST_FILE = "manifest.json"
TEMPORARY_PREFIX = ".vektps-batch-"


def _starts_like_xml(head):
    """Whether bytes begin as XML text: a UTF-16 byte order mark, or "<" followed by "?", "!" or a
    name after an optional UTF-8 byte order mark and blanks."""
    if head.startswith((b"\xff\xfe", b"\xfe\xff")):
        return True
    head = head.removeprefix(b"\xef\xbb\xbf").lstrip(b" \t\r\n")
    return len(head) >= 2 and head[:1] == b"<" and (chr(head[1]) in "?!_" or chr(head[1]).isalpha())


def _looks_like_zlib(head):
    # A deflate stream header: method 8, and the two bytes a multiple of 31.
    return len(head) >= 2 and head[0] & 0x0F == 8 and (head[0] << 8 | head[1]) % 31 == 0


def looks_like_document(path):
    """Whether a file found in a directory is a document: a name ending in .xml, .b64, .zlib or .z,
    or first bytes that decode (as zlib data, base64 text or plain text) to the start of XML."""
    if path.lower().endswith(DOCUMENT_SUFFIXES):
        return True
    try:
        with open(path, "rb") as file:
            head = file.read(SNIFF_BYTES)
    except OSError:
        return False
    if _starts_like_xml(head):
        return True
    if _looks_like_zlib(head):
        try:
            return _starts_like_xml(zlib.decompressobj().decompress(head, SNIFF_BYTES))
        except zlib.error:
            return False
    text = b"".join(head.split())
    try:
        return _starts_like_xml(base64.b64decode(text[: len(text) // 4 * 4], validate=True))
    except (binascii.Error, ValueError):
        return False


class UsageError(Exception):
    """An input that names nothing, or options that cannot be used."""


def find_documents(inputs):
    """The absolute paths of the documents that INPUTs name, sorted and without repeats. Files
    are taken whatever they hold; directories are searched recursively; anything else is a glob
    pattern. Raises UsageError for an input that names nothing."""
    paths = set()
    for given in inputs:
        matches = [given] if os.path.lexists(given) else glob.glob(given, recursive=True)
        if not matches:
            raise UsageError(f"{given}: no such file, directory or match")
        for match in matches:
            if not os.path.isdir(match):
                paths.add(os.path.abspath(match))
                continue
            for directory, subdirectories, files in os.walk(match):
                subdirectories.sort()
                for name in files:
                    path = os.path.join(directory, name)
                    if os.path.isfile(path) and looks_like_document(path):
                        paths.add(os.path.abspath(path))
    return sorted(paths)


# ---- on the workers ----


def _error_record(path, message):
    return {"path": path, "schema": None, "form": None, "result": None,
            "error": {"message": message, "line": None, "column": None},
            "sets": [], "diagnostics": []}


def _sets_of_export(text):
    # The export writes {"schema": ..., "result": ..., "sets": [...]}: neither of the first two
    # values can hold the name of the third.
    return text[text.index('"sets":') + len('"sets":'):-1]


def document_record(path):
    """One document's JSON record as a line of text, and whether it loaded. The record holds
    path, schema, form, result, error (null, or message, line and column), sets (those of
    ``vektps json``, spliced in as the export wrote them) and diagnostics."""
    try:
        document = _document(path)
        loaded = document.loaded
        head = {"path": path, "schema": document.schema, "form": document.form,
                "result": f"0x{document.result:08x}",
                "error": None if loaded else {"message": document.error,
                                              "line": document.error_line,
                                              "column": document.error_column}}
        sets = _sets_of_export(document.to_json()) if loaded else "[]"
        diagnostics = json.dumps([diagnostic.to_dict() for diagnostic in document.diagnostics],
                                 ensure_ascii=False)
        del document
    except Exception as error:  # noqa: BLE001 - any failure is this document's, never the batch's
        return json.dumps(_error_record(path, f"{type(error).__name__}: {error}")), False
    # Escaped to ASCII: a path that is not UTF-8 holds surrogates, written as \udcXX.
    text = json.dumps(head)
    return f'{text[:-1]}, "sets": {sets}, "diagnostics": {diagnostics}}}', loaded


def process_batch(paths):
    """Loads one batch of documents; returns its part (gzipped JSON Lines) and its counts. The
    fastest compression: it costs a third of what the default level does, for a part a quarter
    larger."""
    lines = []
    loaded = 0
    for path in paths:
        line, ok = document_record(path)
        lines.append(line)
        loaded += ok
    data = "".join(line + "\n" for line in lines).encode("utf-8")
    return {"data": gzip.compress(data, compresslevel=1, mtime=0),
            "documents": len(paths), "loaded": loaded}


def _process_alone(client, batch, digest):
    """A batch whose task failed, one document per task: a document whose own task kills its
    workers becomes an error record, and the others are kept."""
    from distributed import KilledWorker

    futures = [client.submit(process_batch, [path], key=f"vektps-alone-{digest}-{k}")
               for k, path in enumerate(batch)]
    lines = []
    loaded = 0
    for path, future in zip(batch, futures):
        try:
            result = future.result()
        except KilledWorker:
            record = _error_record(path, "every worker that loaded this document died")
            lines.append((json.dumps(record) + "\n").encode("utf-8"))
            continue
        lines.append(gzip.decompress(result["data"]))
        loaded += result["loaded"]
    return {"data": gzip.compress(b"".join(lines), compresslevel=1, mtime=0),
            "documents": len(batch), "loaded": loaded}


# ---- on the driver ----


def _file_mode():
    # Files are made private by mkstemp; the finished ones get the mode the user's umask gives.
    try:
        with open("/proc/self/status", encoding="ascii") as status:
            for line in status:
                if line.startswith("Umask:"):
                    return 0o666 & ~int(line.split()[1], 8)
    except (OSError, ValueError):
        pass
    return 0o644


def _write_atomically(directory, name, data, mode):
    """Writes `data` to directory/name through a new file of an unpredictable name, renamed into
    place only once completely written."""
    descriptor, temporary = tempfile.mkstemp(dir=directory, prefix=TEMPORARY_PREFIX, suffix=".tmp")
    try:
        with os.fdopen(descriptor, "wb") as file:
            file.write(data)
            file.flush()
            os.fchmod(file.fileno(), mode)
            os.fsync(file.fileno())
        os.replace(temporary, os.path.join(directory, name))
    except BaseException:
        try:
            os.unlink(temporary)
        except OSError:
            pass
        raise


def _digest(batch):
    return hashlib.sha256("\n".join(batch).encode("utf-8", "surrogateescape")).hexdigest()[:16]


def _read_progress(outdir):
    """The parts a run completed: name -> {digest, documents, loaded}."""
    try:
        with open(os.path.join(outdir, PROGRESS_FILE), encoding="utf-8") as file:
            parts = json.load(file)["parts"]
        return parts if isinstance(parts, dict) else {}
    except (OSError, ValueError, KeyError, TypeError):
        return {}


def _remove_leftovers(outdir, planned):
    """Removes what an earlier run left that this plan does not hold: temporary files of an
    interrupted write, parts beyond the plan, and the manifest until this run writes it anew."""
    for name in os.listdir(outdir):
        stale_part = re.fullmatch(r"part-\d+\.jsonl\.gz", name) and name not in planned
        if stale_part or name.startswith(TEMPORARY_PREFIX) or name == MANIFEST_FILE:
            os.unlink(os.path.join(outdir, name))


class Progress:
    """Documents done, rate and time left, on one line of a terminal."""

    def __init__(self, total, stream):
        self.total = total
        self.stream = stream
        self.start = time.monotonic()
        self.skipped = 0
        self.shown = 0.0

    def begin(self, skipped):
        """The rate counts from now, without the `skipped` documents done earlier."""
        self.start = time.monotonic()
        self.skipped = skipped

    def update(self, done, final=False):
        now = time.monotonic()
        if not final and now - self.shown < 0.2:
            return
        self.shown = now
        elapsed = max(now - self.start, 1e-9)
        rate = (done - self.skipped) / elapsed
        left = (self.total - done) / rate if rate > 0 else 0
        self.stream.write(f"\r{done}/{self.total} documents, {rate:.0f}/s, "
                          f"{datetime.timedelta(seconds=round(left))} left\033[K")
        if final:
            self.stream.write("\n")
        self.stream.flush()


def run(paths, outdir, batch_size, connect, progress=None):
    """Writes the parts of `paths` (sorted) missing from `outdir`, then its manifest, which it
    returns. `connect()` gives a context manager yielding a Dask client; it is entered only when
    some part remains to be made."""
    start = time.monotonic()
    mode = _file_mode()
    os.makedirs(outdir, exist_ok=True)
    parts = [(PART_PATTERN.format(k), paths[first:first + batch_size])
             for k, first in enumerate(range(0, len(paths), batch_size))]
    earlier = _read_progress(outdir)
    complete = {}
    pending = []
    for name, batch in parts:
        digest = _digest(batch)
        entry = earlier.get(name)
        if (isinstance(entry, dict) and entry.get("digest") == digest
                and os.path.isfile(os.path.join(outdir, name))):
            complete[name] = entry
        else:
            pending.append((name, batch, digest))
    _remove_leftovers(outdir, {name for name, _ in parts})

    def record_complete():
        state = {"parts": complete}
        _write_atomically(outdir, PROGRESS_FILE, json.dumps(state, indent=1).encode(), mode)

    record_complete()
    done = sum(entry["documents"] for entry in complete.values())
    if pending:
        from distributed import KilledWorker, as_completed

        with connect() as client:
            if progress:
                progress.begin(done)
            futures = {client.submit(process_batch, batch, key=f"vektps-part-{digest}-{name}"):
                       (name, batch, digest) for name, batch, digest in pending}
            for future in as_completed(list(futures)):
                name, batch, digest = futures.pop(future)
                try:
                    result = future.result()
                except KilledWorker:
                    result = _process_alone(client, batch, digest)
                del future
                _write_atomically(outdir, name, result["data"], mode)
                complete[name] = {"digest": digest, "documents": result["documents"],
                                  "loaded": result["loaded"]}
                record_complete()
                done += result["documents"]
                if progress:
                    progress.update(done)
    if progress:
        progress.update(done, final=True)
    loaded = sum(entry["loaded"] for entry in complete.values())
    manifest = {"documents": len(paths), "loaded": loaded, "failed": len(paths) - loaded,
                "parts": len(parts), "batch_size": batch_size,
                "seconds": round(time.monotonic() - start, 3)}
    _write_atomically(outdir, MANIFEST_FILE, (json.dumps(manifest, indent=2) + "\n").encode(), mode)
    return manifest


@contextlib.contextmanager
def connect_cluster(scheduler=None, workers=1):
    """A Dask client: of the scheduler at `scheduler` (an address, or a scheduler file), or of a
    local cluster of `workers` single-threaded worker processes, closed on leaving."""
    from distributed import Client, LocalCluster

    if scheduler:
        options = {"scheduler_file": scheduler} if os.path.isfile(scheduler) else {"address": scheduler}
        with Client(**options) as client:
            yield client
        return
    # The scheduler serves HTTP even without a dashboard, on 8787 unless told otherwise: a port of
    # the system's choosing keeps two batches on one machine from warning about each other.
    with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                      dashboard_address=":0", scheduler_kwargs={"dashboard": False},
                      silence_logs=logging.ERROR) as cluster:
        with Client(cluster) as client:
            yield client


def _positive(text):
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError(f"{text} is not a positive number")
    return value


def main(argv=None):
    """The command line; returns the exit status: 0 when every document was processed (whatever
    they held), 1 when the run could not finish, 2 for a usage error."""
    parser = argparse.ArgumentParser(
        prog="python3 -m vektps.batch",
        description="Loads documents on a Dask cluster and writes one JSON record per document "
                    "into gzipped JSON Lines parts, with a manifest. A second run over the same "
                    "OUTDIR skips the parts already complete.")
    parser.add_argument("inputs", nargs="+", metavar="INPUT",
                        help="a document, a directory searched recursively, or a glob pattern")
    parser.add_argument("-o", "--output", required=True, metavar="OUTDIR")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="address (or scheduler file) of a running Dask scheduler; "
                             "without it a local cluster runs the loads")
    parser.add_argument("--workers", type=_positive, default=os.cpu_count() or 1, metavar="N",
                        help="worker processes of the local cluster (default: one per CPU)")
    parser.add_argument("--batch-size", type=_positive, default=100, metavar="N",
                        help="documents per task and per part (default: 100)")
    arguments = parser.parse_args(argv)
    try:
        paths = find_documents(arguments.inputs)
    except UsageError as error:
        print(f"vektps.batch: {error}", file=sys.stderr)
        return 2
    progress = Progress(len(paths), sys.stderr) if sys.stderr.isatty() else None
    try:
        run(paths, arguments.output, arguments.batch_size,
            lambda: connect_cluster(arguments.scheduler, arguments.workers), progress)
    except KeyboardInterrupt:
        return 130
    except Exception as error:  # noqa: BLE001 - the command's boundary: say why it stopped
        print(f"vektps.batch: {type(error).__name__}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    # Submitted functions must be found under the module's own name on the workers.
    from vektps.batch import main as _main

    sys.exit(_main())
