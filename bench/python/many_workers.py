#!/usr/bin/env python3
"""Measures what scheduling costs `rastrel.distributed` at many workers: pieces of files on which nothing is done.

    pip install '.[distributed]'
    bench/python/many_workers.py --workers 1000 --pieces 20000

The scheduler is a process of its own, as in a cluster; the workers share a few processes, as they have nothing to do.
What is told is CPU time of the scheduler and of the program that hands out the pieces, which both are at work for all
workers together, so that nobody can have pieces faster.
"""

import argparse
import asyncio
import multiprocessing
import os
import socket
import subprocess
import sys
import tempfile
import time

# For all of the processes: a busy machine loses no worker and says nothing of being slow; what each worker measures of
# itself all the time is left out, as hundreds share a core here.
os.environ.update(
    DASK_DISTRIBUTED__WORKER__PROFILE__ENABLED="False",
    DASK_DISTRIBUTED__WORKER__PROFILE__INTERVAL="1 hour",
    DASK_DISTRIBUTED__WORKER__PROFILE__CYCLE="1 hour",
    DASK_DISTRIBUTED__ADMIN__SYSTEM_MONITOR__INTERVAL="1 hour",
    DASK_DISTRIBUTED__COMM__TIMEOUTS__CONNECT="600s",
    DASK_DISTRIBUTED__SCHEDULER__WORKER_TTL="1 hour",
    DASK_LOGGING__DISTRIBUTED="critical",
)

import distributed

import rastrel.distributed
from rastrel.distributed import Job, Place, Scan

WORKER_PROCESSES = 4


def do_nothing(job, name, scans, attempt):
    """In the place of cleaning."""


class Run(rastrel.distributed._Run):
    """Takes each piece as done without reading what a worker would have recorded."""

    def _take(self, future, task):
        assert future.status == "finished", future
        self.cleaned += len(task.scans)


def work(address, workers):
    async def run():
        with tempfile.TemporaryDirectory() as folder:
            options = {"nthreads": 1, "dashboard": False, "memory_limit": 0, "local_directory": folder}
            many = [await distributed.Worker(address, **options) for _ in range(workers)]
            await asyncio.gather(*(worker.finished() for worker in many))

    asyncio.run(run())


def cpu_seconds(process):
    with open(f"/proc/{process}/stat") as file:
        words = file.read().rpartition(")")[2].split()
    return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")


def measure(client, scheduler, files, pieces):
    """Milliseconds of a piece: of the scheduler, of the program, and by the clock."""
    rastrel.distributed.clean_piece = do_nothing
    place = Place("s3://bucket/scans", {"endpoint_url": "http://store.example:9000"})
    job = Job(place, place, "20260101T000000Z-01234567", ("--reduce", "auto"), "0" * 64, 600.0)
    work = ([Scan(f"box {i}/page{j}.tif", 1 << 17, f"{i} {j}") for j in range(files)] for i in range(pieces))
    run = Run(client, job, 3, lambda _: None)
    start = cpu_seconds(scheduler), time.process_time(), time.monotonic()
    run.do(work)
    end = cpu_seconds(scheduler), time.process_time(), time.monotonic()
    assert run.cleaned == files * pieces
    return [1000 * (after - before) / pieces for before, after in zip(start, end)]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--workers", type=int, default=1000)
    parser.add_argument("--pieces", type=int, default=20000)
    words = parser.parse_args()
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    address = f"tcp://127.0.0.1:{port}"
    command = [sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", str(port), "--no-dashboard"]
    scheduler = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    share = [words.workers // WORKER_PROCESSES] * WORKER_PROCESSES
    processes = [multiprocessing.Process(target=work, args=(address, count), daemon=True) for count in share]
    for process in processes:
        process.start()
    try:
        with distributed.Client(address, timeout=60) as client:
            client.wait_for_workers(sum(share), timeout=1200)
            print(f"{sum(share)} workers, {words.pieces} pieces\n")
            print("| files a piece | scheduler, CPU ms a piece | program, CPU ms a piece | by the clock |\n|---|---|---|---|")
            for files in (1, 256):
                scheduling, program, clock = measure(client, scheduler.pid, files, words.pieces)
                print(f"| {files} | {scheduling:.2f} | {program:.2f} | {clock:.2f} |", flush=True)
    finally:
        for process in processes:
            process.kill()
        scheduler.kill()


if __name__ == "__main__":
    main()
