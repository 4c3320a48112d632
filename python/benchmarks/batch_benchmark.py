"""Documents per second of vektps.batch beside a plain loop, on generated documents.

    PYTHONPATH=build/release/python /usr/bin/python3 python/benchmarks/batch_benchmark.py \
        --generate build/release/generator/vektps-generate [--documents 1000] [--objects 100]

Generates the documents once into a scratch directory (current and legacy schema, the three
forms), then times, each over the same files: a plain loop over vektps.load; a plain loop making
the batch's records (load, JSON, gzip); the batch command on a local cluster of 1 and 2 workers;
and the batch command on a scheduler and 2 workers started beforehand as separate processes.
Batch times are the whole command, cluster start included, and its manifest's seconds.
"""

import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

import vektps
from vektps import batch

FORMS = {"plain": ".xml", "base64": ".b64", "zlib": ".zlib"}


def generate(generator, directory, documents, objects):
    paths = []
    for k in range(documents):
        schema = "legacy" if k % 4 == 3 else "current"
        form = list(FORMS)[k % 3]
        path = os.path.join(directory, f"doc{k:05d}{FORMS[form]}")
        subprocess.run([generator, "--schema", schema, "--form", form, "-n", str(objects),
                        "--seed", str(k), "-o", path], check=True, capture_output=True)
        paths.append(path)
    return paths


def timed(work):
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def run_command(arguments):
    """Seconds of the whole batch command, and its manifest's seconds."""
    outdir = arguments[arguments.index("-o") + 1]
    seconds = timed(lambda: subprocess.run([sys.executable, "-m", "vektps.batch", *arguments],
                                           check=True))
    with open(os.path.join(outdir, "manifest.json")) as file:
        return seconds, json.load(file)["seconds"]


def external_cluster(scratch, workers):
    scheduler_file = os.path.join(scratch, "scheduler.json")
    processes = [subprocess.Popen(
        [sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port",
         "0", "--dashboard-address", ":0", "--scheduler-file", scheduler_file],
        cwd=scratch, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)]
    deadline = time.monotonic() + 60
    while not os.path.exists(scheduler_file):
        if time.monotonic() > deadline:
            raise TimeoutError("the scheduler wrote no scheduler file")
        time.sleep(0.1)
    processes.append(subprocess.Popen(
        [sys.executable, "-m", "distributed.cli.dask_worker", "--scheduler-file", scheduler_file,
         "--nworkers", str(workers), "--nthreads", "1", "--no-dashboard", "--local-directory",
         os.path.join(scratch, "workers")],
        cwd=scratch, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True))
    from distributed import Client

    with Client(scheduler_file=scheduler_file, timeout=30) as client:
        client.wait_for_workers(workers, timeout=60)
        return client.scheduler.address, processes


def stop(processes):
    for process in reversed(processes):
        os.killpg(process.pid, signal.SIGTERM)
        process.wait(timeout=30)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--generate", required=True, help="path of vektps-generate")
    parser.add_argument("--documents", type=int, default=1000)
    parser.add_argument("--objects", type=int, default=100)
    parser.add_argument("--batch-size", type=int, default=100)
    arguments = parser.parse_args()

    with tempfile.TemporaryDirectory() as scratch:
        corpus = os.path.join(scratch, "corpus")
        os.mkdir(corpus)
        paths = generate(arguments.generate, corpus, arguments.documents, arguments.objects)
        megabytes = sum(os.path.getsize(path) for path in paths) / 1e6
        print(f"{len(paths)} documents of {arguments.objects} objects, {megabytes:.1f} MB "
              f"on disk, batch size {arguments.batch_size}")
        rows = []
        for path in paths:  # warm the page cache
            vektps.load(path)
        rows.append(("plain loop over vektps.load",
                     timed(lambda: [vektps.load(path) for path in paths]), None))
        rows.append(("plain loop making the records (load, JSON, gzip)",
                     timed(lambda: [batch.process_batch(paths[k:k + arguments.batch_size])
                                    for k in range(0, len(paths), arguments.batch_size)]), None))
        common = [corpus, "--batch-size", str(arguments.batch_size)]
        for workers in (1, 2):
            outdir = os.path.join(scratch, f"local{workers}")
            total, inside = run_command([*common, "-o", outdir, "--workers", str(workers)])
            rows.append((f"vektps.batch, local cluster, {workers} worker(s)", total, inside))
        address, processes = external_cluster(scratch, 2)
        try:
            outdir = os.path.join(scratch, "external")
            total, inside = run_command([*common, "-o", outdir, "--scheduler", address])
            rows.append(("vektps.batch, external scheduler, 2 workers", total, inside))
        finally:
            stop(processes)

        loop = rows[1][1]
        print(f"{'':52} {'seconds':>8} {'docs/s':>8} {'run s':>8} {'vs loop':>8}")
        for name, seconds, inside in rows:
            ratio = f"{seconds / loop:.2f}x"
            run = f"{inside:.2f}" if inside is not None else "-"
            print(f"{name:52} {seconds:8.2f} {len(paths) / seconds:8.0f} {run:>8} {ratio:>8}")
        per_document = (rows[2][1] - loop) / len(paths) * 1e3
        print(f"overhead of a 1-worker local cluster over the record loop: "
              f"{per_document:.2f} ms per document (command start and cluster start included)")


if __name__ == "__main__":
    main()
