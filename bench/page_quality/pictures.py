#!/usr/bin/python3
"""Pictures for docs/quality.md: drawn pages as scanned and as cleaned, side by side. pictures.py PAGES RASTREL FOLDER"""
import os
import subprocess
import sys
import tempfile

from PIL import Image

# Page, options, name of the picture.
SHOWN = [("ragged_surround-handwriting-200-8.png", [], "surround"), ("yellowed-text-200-24.png", [], "yellowed"),
         ("two_soiled_holes-text-200-1.png", [], "holes"), ("grey_surround-text-200-8.png", [], "grey")]
HIGH = 420  # pixels


def small(path):
    with Image.open(path) as image:
        image = image.convert("L" if image.mode in ("1", "L") else "RGB")
        return image.resize((round(image.width * HIGH / image.height), HIGH), Image.LANCZOS)


def main():
    pages, rastrel, folder = sys.argv[1:]
    with tempfile.TemporaryDirectory() as work:
        for page, options, name in SHOWN:
            out = os.path.join(work, "out.png")
            subprocess.run([rastrel, "clean", os.path.join(pages, page), "-o", out, "--overwrite", "-q", *options], check=True)
            before, after = small(os.path.join(pages, page)), small(out)
            pair = Image.new("RGB", (before.width + after.width + 12, HIGH), "white")
            pair.paste(before, (0, 0))
            pair.paste(after, (before.width + 12, 0))
            pair.quantize(64).save(os.path.join(folder, name + ".png"), optimize=True)


main()
