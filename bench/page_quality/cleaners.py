"""The programs that pages are given to: rastrel, and others beside it. Each takes the file of a page and says what it made of it."""
import ctypes
import json
import os
import re
import subprocess
import time

from PIL import Image

Image.MAX_IMAGE_PIXELS = None


class Result:
    """A cleaned page: `image` is a PIL image or None where the program failed; skew is None where it gave no answer."""

    def __init__(self, image=None, skew=None, turned=False, blank=None, record=None, error="", seconds=0.0):
        self.image, self.skew, self.turned, self.blank = image, skew, turned, blank
        self.record, self.error, self.seconds = record or {}, error, seconds


def run(command):
    start = time.monotonic()
    done = subprocess.run(command, capture_output=True)
    return done, time.monotonic() - start


def opened(path):
    with Image.open(path) as image:
        image.load()
        return image


class Rastrel:
    def __init__(self, program, name="rastrel", options=()):
        self.program, self.name, self.options = program, name, list(options)

    def clean(self, page, folder, straighten, *extra):
        out = os.path.join(folder, "rastrel.png")
        if os.path.exists(out):
            os.unlink(out)
        command = [self.program, "clean", page, "-o", out, "--overwrite", "--json", "-j", "1", *self.options, *extra]
        if not straighten:
            command.append("--no-deskew")
        done, seconds = run(command)
        if done.returncode != 0 or not os.path.exists(out):
            return Result(error=done.stderr.decode("utf8", "replace")[-200:] or "no output")
        record = json.loads(done.stdout.decode().splitlines()[-1])
        return Result(opened(out), record.get("skew"), record.get("turned", False), record.get("blank"), record, "", seconds)

    def binarize(self, page, folder, how):
        out = os.path.join(folder, "rastrel-bw.png")
        if os.path.exists(out):
            os.unlink(out)
        done, seconds = run([self.program, "apply", page, "-o", out, "--overwrite", "-q", "-j", "1", how])
        if done.returncode != 0 or not os.path.exists(out):
            return Result(error=done.stderr.decode("utf8", "replace")[-200:])
        return Result(opened(out), seconds=seconds)

    def binarizers(self):
        listed = subprocess.run([self.program, "apply", "--list"], capture_output=True).stdout.decode()
        return ["binarize", "binarize:best"] if re.search(r"^binarize", listed, re.M) else []


class Unpaper:
    name = "unpaper"

    def clean(self, page, folder, straighten, *_):
        with Image.open(page) as image:
            kind = {"1": ".pbm", "L": ".pgm"}.get(image.mode, ".ppm")
            source, out = os.path.join(folder, "in" + kind), os.path.join(folder, "out" + kind)
            image.convert({".pbm": "1", ".pgm": "L"}.get(kind, "RGB")).save(source)
        done, seconds = run(["unpaper", "-v", "--overwrite", *([] if straighten else ["--no-deskew"]), source, out])
        if done.returncode != 0:
            return Result(error=done.stderr.decode("utf8", "replace")[-200:])
        # It tells by how much it turns the page, clockwise.
        angles = [float(found) for found in re.findall(r"rotate \([^)]*\): (-?[\d.]+)", (done.stdout + done.stderr).decode("utf8", "replace"))]
        skew = -angles[0] if angles else None
        return Result(opened(out), skew, skew is not None and skew != 0, seconds=seconds)


class ImageMagick:
    name = "ImageMagick -deskew"

    def clean(self, page, folder, straighten, *_):
        out = os.path.join(folder, "magick.png")
        if not straighten:
            return Result(opened(page))
        done, seconds = run(["convert", page, "-background", "white", "-deskew", "40%", "-format", "%[deskew:angle]\n", "-write", "info:", "+repage", out])
        if done.returncode != 0:
            return Result(error=done.stderr.decode("utf8", "replace")[-200:])
        # The angle that it turns by, clockwise; 0 where it finds none.
        skew = float(done.stdout.decode().split()[0])
        return Result(opened(out), skew if skew != 0 else None, skew != 0, seconds=seconds)


class Leptonica:
    """Black and white against the normalised background, then its measured skew."""

    name = "Leptonica"

    def __init__(self):
        lept = self.lept = ctypes.CDLL("liblept.so.5")
        pix, i, f = ctypes.c_void_p, ctypes.c_int, ctypes.c_float
        for name, result, arguments in [
                ("pixRead", pix, [ctypes.c_char_p]), ("pixConvertTo8", pix, [pix, i]), ("pixConvertTo32", pix, [pix]), ("pixGetDepth", i, [pix]),
                ("pixOtsuThreshOnBackgroundNorm", pix, [pix, pix, i, i, i, i, i, i, i, f, ctypes.POINTER(i)]),
                ("pixSauvolaBinarizeTiled", i, [pix, i, f, i, i, ctypes.POINTER(pix), ctypes.POINTER(pix)]),
                ("pixFindSkew", i, [pix, ctypes.POINTER(f), ctypes.POINTER(f)]), ("pixRotate", pix, [pix, f, i, i, i, i]),
                ("pixWrite", i, [ctypes.c_char_p, pix, i]), ("pixDestroy", None, [ctypes.POINTER(pix)]), ("setMsgSeverity", i, [i])]:
            function = getattr(lept, name)
            function.restype, function.argtypes = result, arguments
        lept.setMsgSeverity(6)

    def normalised(self, page):
        if self.lept.pixGetDepth(page) == 1:
            return page
        grey = self.lept.pixConvertTo8(page, 0)
        return self.lept.pixOtsuThreshOnBackgroundNorm(grey, None, 10, 15, 100, 50, 255, 2, 2, 0.1, None)

    def clean(self, page, folder, straighten, *_):
        if not straighten:
            return Result(opened(page))
        start = time.monotonic()
        loaded = self.lept.pixRead(page.encode())
        black = self.normalised(loaded)
        angle, confidence = ctypes.c_float(), ctypes.c_float()
        failed = self.lept.pixFindSkew(black, ctypes.byref(angle), ctypes.byref(confidence)) if black else 1
        # As its own pixDeskew: turned from 0.1 degrees and a confidence of 3 on. It counts clockwise.
        turned = not failed and abs(angle.value) >= 0.1 and confidence.value >= 3
        sure = not failed and confidence.value >= 3
        out = os.path.join(folder, "leptonica.png")
        if turned:
            deep = loaded if self.lept.pixGetDepth(loaded) == 1 else self.lept.pixConvertTo32(loaded)
            straight = self.lept.pixRotate(deep, angle.value * 3.14159265 / 180, 2, 1, 0, 0)
            self.lept.pixWrite(out.encode(), straight, 3)
        image = opened(out) if turned else opened(page)
        return Result(image, -angle.value if sure else None, turned, seconds=time.monotonic() - start)

    def binarize(self, page, folder, how):
        start = time.monotonic()
        loaded = self.lept.pixRead(page.encode())
        if how == "Otsu on the normalised background":
            black = self.normalised(loaded)
        else:
            made = ctypes.c_void_p()
            if self.lept.pixSauvolaBinarizeTiled(self.lept.pixConvertTo8(loaded, 0), 12, 0.34, 1, 1, None, ctypes.byref(made)):
                return Result(error="pixSauvolaBinarizeTiled")
            black = made.value
        out = os.path.join(folder, "leptonica-bw.png")
        if not black or self.lept.pixWrite(out.encode(), black, 3):
            return Result(error=how)
        return Result(opened(out), seconds=time.monotonic() - start)

    def binarizers(self):
        return ["Otsu on the normalised background", "Sauvola"]


def read_words(image, dpi, folder):
    """The words that tesseract reads on a page."""
    path = os.path.join(folder, "read.png")
    image.save(path, dpi=(dpi, dpi))
    environment = dict(os.environ, OMP_THREAD_LIMIT="1")
    done = subprocess.run(["tesseract", path, "stdout", "--dpi", str(dpi), "-l", "eng"], capture_output=True, env=environment)
    return done.stdout.decode("utf8", "replace")
