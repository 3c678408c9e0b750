#!/usr/bin/env python3
"""Measures the Python package beside others, and writes docs/performance-python.md.

    pip install . scikit-image opencv-python-headless deskew pillow
    bench/python/compare.py --library build/release/librastrel_pages.so > docs/performance-python.md

All of it in one run: in turn, round after round, the least CPU time of each. Only threads are measured by the clock on the
wall. The library is for the same calls without Python; it has to be of the same revision.
"""

import argparse
import concurrent.futures
import ctypes
import os
import pathlib
import platform
import subprocess
import sys
import tempfile
import time

import cv2
import deskew
import numpy as np
import PIL.Image
import skimage
import skimage.filters
import skimage.transform

import rastrel
from rastrel.__main__ import command

SAMPLES = pathlib.Path(__file__).parents[2] / "samples"
SCANS = [SAMPLES / name for name in ("letter-1bit.tif", "report-grey.png", "catalogue-colour.jpg")]
A4 = {"width": 2480, "height": 3508}  # at 300 dpi
DPI = 300
ANGLE = 3.7
THREADS = 8
# Of rastrel_pages.h.
GREY, RGB = 3, 4


def least(rounds, *calls, clock=time.process_time):
    """The least time of each call, in milliseconds; one after the other, so that all have the same neighbours."""
    best = [float("inf")] * len(calls)
    for _ in range(rounds):
        for i, call in enumerate(calls):
            start = clock()
            call()
            best[i] = min(best[i], clock() - start)
    return [1000 * seconds for seconds in best]


def a4_page(scan):
    return rastrel.scale(rastrel.Page.open(scan), **A4).with_dpi(DPI)


# ---- the same without Python -----------------------------------------------------------------------------------------


class PageInfo(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_uint32),
        ("width", ctypes.c_int32),
        ("height", ctypes.c_int32),
        ("bits", ctypes.c_int32),
        ("isGrey", ctypes.c_int32),
        ("dpiX", ctypes.c_double),
        ("dpiY", ctypes.c_double),
    ]


class Library:
    """The calls that a C program makes."""

    def __init__(self, path):
        library = ctypes.CDLL(path)
        self.from_pixels = library.PageFromPixels
        self.from_pixels.restype = ctypes.c_void_p
        self.from_pixels.argtypes = [
            ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_ssize_t, ctypes.c_int, ctypes.c_double,
            ctypes.c_double,
        ]  # fmt: skip
        self.take_and_clean = library.TakeAndCleanPage
        self.clean_page = library.CleanPage
        for function in self.take_and_clean, self.clean_page:
            function.restype = ctypes.c_void_p
            function.argtypes = [ctypes.c_void_p] * 4
        self.to_pixels = library.PixelsFromPage
        self.to_pixels.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_ssize_t, ctypes.c_int]
        self.describe = library.DescribePage
        self.describe.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
        self.free = library.GlobalFree
        self.free.argtypes = [ctypes.c_void_p]
        self.free_record = library.FreeCleanRecord
        self.free_record.argtypes = [ctypes.c_void_p]

    def page(self, array, pixels):
        height, width = array.shape[:2]
        return self.from_pixels(array.ctypes.data, width, height, array.strides[0], pixels, DPI, DPI)

    def clean(self, array, pixels):
        record = ctypes.c_void_p()
        page = self.take_and_clean(self.page(array, pixels), None, ctypes.byref(record), None)
        info = PageInfo(size=ctypes.sizeof(PageInfo))
        self.describe(page, ctypes.byref(info))
        result = np.empty((info.height, info.width, *array.shape[2:]), np.uint8)
        self.to_pixels(page, result.ctypes.data, result.strides[0], pixels)
        self.free(page)
        self.free_record(record)
        return result

    def clean_packed(self, page):
        record = ctypes.c_void_p()
        self.free(self.clean_page(page, None, ctypes.byref(record), None))
        self.free_record(record)


def overheads(library, pages, rounds):
    rounds *= 4  # a few percent are asked for
    for scan, kind, pixels in zip(SCANS[1:], ("8-bit array", "24-bit array"), (GREY, RGB)):
        array = pages[scan].array()
        np.testing.assert_array_equal(library.clean(array, pixels), rastrel.clean(array).image)
        c, python = least(rounds, lambda: library.clean(array, pixels), lambda: rastrel.clean(array))
        yield f"| {kind} | {c:.1f} | {python:.1f} | {100 * (python / c - 1):+.1f} % | under 2 % |"
    # As the library takes it: a packed page, made of the same pixels.
    page = pages[SCANS[0]]
    packed = np.packbits(page.array(), axis=1)
    own = library.from_pixels(packed.ctypes.data, page.width, page.height, packed.strides[0], 1, DPI, DPI)
    c, python = least(rounds, lambda: library.clean_packed(own), lambda: rastrel.clean(page))
    yield f"| 1-bit page | {c:.1f} | {python:.1f} | {python - c:+.2f} ms | under 1 ms |"


# ---- peers -----------------------------------------------------------------------------------------------------------


def peers(grey, rounds):
    """Rows: the work, ours, and theirs on the same array."""
    image = PIL.Image.fromarray(grey)
    height, width = grey.shape
    matrix = cv2.getRotationMatrix2D((width / 2, height / 2), ANGLE, 1.0)
    cv2.setNumThreads(1)

    def warped(how):
        return cv2.warpAffine(grey, matrix, (width, height), flags=how, borderValue=255)

    def smooth(image):
        return rastrel.straighten(image, ANGLE, size="same")

    work = [
        ("turn by 3.7°, smooth", "straighten", lambda: smooth(grey), "skimage.transform.rotate",
         lambda: skimage.transform.rotate(grey, ANGLE, cval=255, preserve_range=True)),
        ("the same, Pillow's image", "straighten", lambda: smooth(image), "PIL rotate, bilinear",
         lambda: image.rotate(ANGLE, PIL.Image.Resampling.BILINEAR, fillcolor=255)),
        ("the same, array", "straighten", lambda: smooth(grey), "cv2.warpAffine, linear",
         lambda: warped(cv2.INTER_LINEAR)),
        ("turn by 3.7°, nearest pixel", "rotate", lambda: rastrel.rotate(image, ANGLE), "PIL rotate, nearest",
         lambda: image.rotate(ANGLE, PIL.Image.Resampling.NEAREST, expand=True, fillcolor=255)),
        ("the same, array", "rotate", lambda: rastrel.rotate(grey, ANGLE), "cv2.warpAffine, nearest",
         lambda: warped(cv2.INTER_NEAREST)),
        ("skew", "measure_skew", lambda: rastrel.measure_skew(grey), "deskew.determine_skew",
         lambda: deskew.determine_skew(grey)),
        ("black and white by the paper", "binarize", lambda: rastrel.binarize(grey, pictures="no"),
         "skimage threshold_sauvola", lambda: grey > skimage.filters.threshold_sauvola(grey, window_size=25)),
        ("error diffusion", "dither", lambda: rastrel.dither(image), 'PIL convert("1")',
         lambda: image.convert("1")),
    ]  # fmt: skip
    for what, name, ours, other, theirs in work:
        mine, their = least(rounds, ours, theirs)
        ratio = f"{their / mine:.1f}"
        yield f"| {what} | `{name}` {mine:.1f} | {other} {their:.1f} | {f'**{ratio}**' if their > mine else ratio} |"


# ---- the rest --------------------------------------------------------------------------------------------------------


def scaling(array, rounds):
    """How many times as many pages eight threads clean in a time as one does, and what CPU time a page takes then over
    what it takes alone. The latter tells of locks and of memory shared, and little of what else the machine does."""

    def clean(_):
        rastrel.clean(array)

    with concurrent.futures.ThreadPoolExecutor(THREADS) as many, concurrent.futures.ThreadPoolExecutor(1) as one:
        calls = lambda: list(one.map(clean, range(THREADS))), lambda: list(many.map(clean, range(THREADS)))
        alone, together = least(rounds, *calls, clock=time.perf_counter)
        alone_cpu, together_cpu = least(rounds, *calls)
    return alone / together, together_cpu / alone_cpu


def import_time():
    """Milliseconds beyond numpy's."""
    program = "import numpy, time; start = time.process_time(); import rastrel; print(time.process_time() - start)"
    times = [float(subprocess.check_output([sys.executable, "-c", program])) for _ in range(9)]
    return 1000 * min(times)


def check_results():
    """That pages are the command's."""
    with tempfile.TemporaryDirectory() as folder:
        for scan in SCANS:
            out = pathlib.Path(folder) / f"{scan.stem}.tif"
            subprocess.run([command(), "clean", scan, "-o", out], check=True, capture_output=True)
            assert rastrel.clean(rastrel.Page.open(scan)).image == rastrel.Page.open(out), scan


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--library", required=True, help="librastrel_pages.so")
    parser.add_argument("--rounds", type=int, default=15)
    words = parser.parse_args()
    check_results()
    pages = {scan: a4_page(scan) for scan in SCANS}
    grey = pages[SCANS[1]].array()
    load = os.getloadavg()[0]
    print("# Performance in Python\n\nWritten by `bench/python/compare.py` from one run of it; not edited by hand.\n")
    print(
        f"{time.strftime('%d %B %Y')}. Python {platform.python_version()}, numpy {np.__version__}, scikit-image "
        f"{skimage.__version__}, OpenCV {cv2.__version__}, Pillow {PIL.__version__}; {os.cpu_count()} cores, on which "
        f"{load:.1f} other programs ran at the beginning (their number is what makes such figures doubtful). A4 pages "
        f"at {DPI} dpi, made of those in `samples/`. The least CPU time of {words.rounds} rounds, in milliseconds, "
        "calls in turn; OpenCV on one thread.\n"
    )
    print("## Beyond the call in C\n\n| `rastrel.clean` of | in C, ms | in Python, ms | beyond | to reach |")
    print("|---|---|---|---|---|")
    for row in overheads(Library(words.library), pages, words.rounds):
        print(row, flush=True)
    print("\nIn C as well pixels are copied to a page and back; the record is made, but not read.\n")
    print("## Beside others\n\n8-bit greys. The ratio is their time over ours.\n")
    print("| work | ours, ms | theirs, ms | ratio |\n|---|---|---|---|")
    for row in peers(grey, words.rounds):
        print(row, flush=True)
    print("\n## Threads, start, results\n")
    print("Where other programs run, eight threads get a larger share of the machine than one: then the CPU time tells, not the clock.\n")
    print("| | measured | to reach |\n|---|---|---|")
    ratio, cost = scaling(grey, max(3, words.rounds // 5))
    print(f"| {THREADS} threads over one, by the clock on the wall | {ratio:.2f} | 1.9 on 2 idle cores |")
    print(f"| CPU time a page in {THREADS} threads, over that in one | {cost:.2f} | |")
    print(f"| `import rastrel` beyond numpy's, CPU time | {import_time():.0f} ms | under 60 ms |")
    print("| pages as the command's, all samples | the same | the same |")


if __name__ == "__main__":
    main()
