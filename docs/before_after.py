#!/usr/bin/env python3
"""Makes before-after.jpg, the picture that README.md opens with, of the pages in samples/:
docs/before_after.py RASTREL (the command). Needs Pillow (Debian: python3-pil)."""

import subprocess
import sys
import tempfile
from pathlib import Path

from PIL import Image

WIDTH, GAP = 300, 12  # of a page and between pages, in pixels
GROUND = (96, 104, 112)  # what the pages lie on
PAGES = ("letter-1bit.tif", "report-grey.png", "catalogue-colour.jpg")


def main() -> None:
    docs = Path(__file__).resolve().parent
    command = str(Path(sys.argv[1]).resolve())
    pairs = []
    with tempfile.TemporaryDirectory() as folder:
        for name in PAGES:
            before = docs.parent / "samples" / name
            after = Path(folder) / (before.stem + ".png")
            subprocess.run([command, "clean", str(before), "-o", str(after), "--quiet"], check=True)
            pairs.append([small(before), small(after)])
    height = max(page.height for pair in pairs for page in pair)
    sheet = Image.new("RGB", (GAP + len(pairs) * (WIDTH + GAP), GAP + 2 * (height + GAP)), GROUND)
    for column, pair in enumerate(pairs):
        for row, page in enumerate(pair):
            sheet.paste(page, (GAP + column * (WIDTH + GAP), GAP + row * (height + GAP)))
    sheet.save(docs / "before-after.jpg", quality=85, optimize=True)


def small(path: Path) -> Image.Image:
    page = Image.open(path).convert("RGB")
    return page.resize((WIDTH, round(page.height * WIDTH / page.width)), Image.Resampling.LANCZOS)


if __name__ == "__main__":
    main()
