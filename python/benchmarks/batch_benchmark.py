"""Documents per second of vektps.batch beside a plain loop, on generated documents.

    PYTHONPATH=build/release/python /usr/bin/python3 python/benchmarks/batch_benchmark.py \
        --generate build/release/generator/vektps-generate [--documents 1000] [--objects 100]

Generates the documents once into a scratch directory (current and legacy schema, the three
forms), then times, each over the same files: a plain loop over vektps.load; a plain loop making
the batch's records (load, JSON, gzip); the batch command on a local cluster of 1 and 2 workers;
and the batch command on a scheduler and 2 workers started beforehand as separate processes.
Each is timed in wall-clock seconds and in CPU seconds of every process taking part (the command,
its workers, the scheduler), the best of several runs: on a shared machine the CPU time tells the
cost apart from the waiting. The batch command's start is measured apart, on one document.
"""

import argparse
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import psutil

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


def cpu_seconds(cluster):
    """CPU seconds so far of this process, of its finished children, and of the processes of
    `cluster` with everything they started."""
    own = time.process_time()
    children = resource.getrusage(resource.RUSAGE_CHILDREN)
    total = own + children.ru_utime + children.ru_stime
    for process in cluster:
        root = psutil.Process(process.pid)
        for member in [root, *root.children(recursive=True)]:
            times = member.cpu_times()
            total += times.user + times.system
    return total


def best_of(runs, work, cluster=()):
    """The shortest wall-clock and the least CPU seconds of `runs` runs of `work`."""
    walls, cpus = [], []
    for _ in range(runs):
        cpu, wall = cpu_seconds(cluster), time.perf_counter()
        work()
        walls.append(time.perf_counter() - wall)
        cpus.append(cpu_seconds(cluster) - cpu)
    return min(walls), min(cpus)


def run_command(arguments, outdir):
    """Runs the batch command into a fresh OUTDIR."""
    shutil.rmtree(outdir, ignore_errors=True)
    subprocess.run([sys.executable, "-m", "vektps.batch", *arguments, "-o", outdir], check=True)


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
    parser.add_argument("--runs", type=int, default=3)
    arguments = parser.parse_args()

    with tempfile.TemporaryDirectory() as scratch:
        corpus = os.path.join(scratch, "corpus")
        single = os.path.join(scratch, "single")
        outdir = os.path.join(scratch, "out")
        os.mkdir(corpus)
        os.mkdir(single)
        paths = generate(arguments.generate, corpus, arguments.documents, arguments.objects)
        shutil.copy(paths[0], single)
        count = len(paths)
        megabytes = sum(os.path.getsize(path) for path in paths) / 1e6
        print(f"{count} documents of {arguments.objects} objects, {megabytes:.1f} MB on disk, "
              f"batch size {arguments.batch_size}, best of {arguments.runs} runs, load average "
              f"{os.getloadavg()[0]:.1f} on {os.cpu_count()} CPUs")
        for path in paths:  # the page cache holds every document from here on
            vektps.load(path)
        rows = [("plain loop over vektps.load",
                 best_of(arguments.runs, lambda: [vektps.load(path) for path in paths]), None),
                ("plain loop making the records (load, JSON, gzip)",
                 best_of(arguments.runs, lambda: [
                     batch.process_batch(paths[k:k + arguments.batch_size])
                     for k in range(0, count, arguments.batch_size)]), None)]

        def measure(name, options, cluster=()):
            start = best_of(2, lambda: run_command([single, *options], outdir), cluster)
            whole = best_of(arguments.runs, lambda: run_command(
                [corpus, "--batch-size", str(arguments.batch_size), *options], outdir), cluster)
            rows.append((name, whole, start))

        for workers in (1, 2):
            measure(f"vektps.batch, local cluster, {workers} worker(s)",
                    ["--workers", str(workers)])
        address, processes = external_cluster(scratch, 2)
        try:
            measure("vektps.batch, external scheduler, 2 workers", ["--scheduler", address],
                    processes)
        finally:
            stop(processes)

        record_cpu = rows[1][1][1]
        print(f"{'':50} {'wall s':>7} {'docs/s':>7} {'CPU s':>6} {'CPU ms/doc':>10} "
              f"{'start wall/CPU s':>17} {'CPU ms/doc over loop':>21}")
        for name, (wall, cpu), start in rows:
            line = f"{name:50} {wall:7.2f} {count / wall:7.0f} {cpu:6.2f} {cpu / count * 1e3:10.2f}"
            if start:
                overhead = (cpu - start[1] - record_cpu) / count * 1e3
                line += f" {start[0]:8.2f} / {start[1]:5.2f} {overhead:21.2f}"
            print(line)


if __name__ == "__main__":
    main()
