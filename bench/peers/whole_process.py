#!/usr/bin/env python3
"""Cleans the same multi-page Group 4 TIFF file with `rastrel clean`, with unpaper, and with a program on Leptonica that
straightens and despeckles only: whole_process.py BUILD_FOLDER OUT.json [PAGES]"""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

ROUNDS = 5
UNPAPER_PAGES = 3  # at several seconds a page


def run(command, folder):
    """Runs a command and returns its wall and CPU seconds and its peak memory in bytes."""
    start = time.monotonic()
    # Through `time`, as a program's peak begins with that of the process that starts it, and Python is large.
    measured = ["/usr/bin/time", "-f", "%M", "-o", "memory", *command]
    process = subprocess.Popen(measured, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command[0]} failed with {process.returncode}")
    with open(f"{folder}/memory") as file:
        return wall, usage.ru_utime + usage.ru_stime, int(file.read()) * 1024


def write_pbm(bmp_path, pbm_path):
    """A bottom-up 1-bit bitmap, entry 0 black, as the PBM file that unpaper reads."""
    with open(bmp_path, "rb") as file:
        data = file.read()
    offset = int.from_bytes(data[10:14], "little")
    width = int.from_bytes(data[18:22], "little")
    height = int.from_bytes(data[22:26], "little")
    stride, used = (width + 31) // 32 * 4, (width + 7) // 8
    flipped = bytes(255 - i for i in range(256))
    with open(pbm_path, "wb") as file:
        file.write(b"P4\n%d %d\n" % (width, height))
        for y in reversed(range(height)):
            row = offset + y * stride
            file.write(data[row:row + used].translate(flipped))


def write_tiny_page(path):
    """A white page of 8 x 8 pixels."""
    numbers = [(0x4D42, 2), (94, 4), (0, 4), (62, 4), (40, 4), (8, 4), (8, 4), (1, 2), (1, 2), (0, 4), (32, 4),
               (11811, 4), (11811, 4), (2, 4), (0, 4), (0, 4), (0xFFFFFF, 4)] + [(0xFF, 4)] * 8
    with open(path, "wb") as file:
        file.write(b"".join(value.to_bytes(size, "little") for value, size in numbers))


def make_inputs(build, folder, pages):
    write_tiny_page(f"{folder}/tiny.bmp")
    for name in ("bmp", "pbm", "unpapered"):
        os.mkdir(f"{folder}/{name}")
    subprocess.run([f"{build}/bench/peers/rastrel_page_files", f"{folder}/bmp", str(pages)], check=True)
    bitmaps = sorted(glob.glob(f"{folder}/bmp/*.bmp"))
    for i, path in enumerate(bitmaps, 1):
        write_pbm(path, f"{folder}/pbm/page-{i:04}.pbm")
    for name, times in (("book", 1), ("tenfold", 10)):
        subprocess.run([f"{build}/tools/rastrel", "apply", *(bitmaps * times), "-o", f"{folder}/{name}.tif", "-q"],
                       check=True)
    with open(bitmaps[0], "rb") as file:
        return os.path.getsize(bitmaps[0]) - int.from_bytes(file.read(14)[10:], "little")


def main():
    build, out_path = os.path.abspath(sys.argv[1]), sys.argv[2]
    pages = int(sys.argv[3]) if len(sys.argv) > 3 else 30
    cores = len(os.sched_getaffinity(0))
    folder = tempfile.mkdtemp(prefix="rastrel-peers-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
    try:
        page_bytes = make_inputs(build, folder, pages)
        clean = [f"{build}/tools/rastrel", "clean", "-q", "--overwrite", "-o", "clean.tif"]
        lean = f"{build}/bench/peers/rastrel_lean_clean"
        runs = {
            "rastrel clean, 1 worker": ([*clean, "book.tif", "-j", "1"], pages),
            f"rastrel clean, {cores} workers": ([*clean, "book.tif", "-j", str(cores)], pages),
            "Leptonica, deskew and despeckle": ([lean, "book.tif", "lean.tif"], pages),
            "rastrel clean, a page of 8 x 8 pixels": ([*clean, "tiny.bmp", "-j", "1"], 1),
            "unpaper": (["unpaper", "-q", "--overwrite", "--end-sheet", str(UNPAPER_PAGES), "pbm/page-%04d.pbm",
                         "unpapered/page-%04d.pbm"], UNPAPER_PAGES),
            "rastrel clean, 1 worker, ten times the pages": ([*clean, "tenfold.tif", "-j", "1"], 10 * pages),
            f"rastrel clean, {cores} workers, ten times the pages":
                ([*clean, "tenfold.tif", "-j", str(cores)], 10 * pages),
        }
        results = {name: [] for name in runs}
        for round_number in range(ROUNDS):
            for name, (command, count) in runs.items():
                if round_number > 1 and count > pages:
                    continue  # the long ones
                results[name].append(run(command, folder))
        records = []
        for name, (command, count) in runs.items():
            wall, cpu, memory = (pick(values) for pick, values in zip((min, min, max), zip(*results[name])))
            records.append({"name": name, "pages": count, "pagesPerSecond": count / wall, "cpuPerPage": cpu / count,
                            "peakBytes": memory})
            print(f"{name:50} {count / wall:8.2f} pages/s {cpu / count * 1000:8.2f} ms CPU a page"
                  f" {memory / 1e6:7.1f} MB", flush=True)
        version = subprocess.run(["unpaper", "--version"], capture_output=True, text=True).stdout.strip()
        with open(out_path, "w") as file:
            json.dump({"unpaper": version, "cores": cores, "pageBytes": page_bytes, "runs": records}, file, indent=1)
    finally:
        shutil.rmtree(folder)


main()
