#!/usr/bin/python3
"""Measures how good cleaned pages are, on the pages that rastrel_quality_pages draws.

  measure.py PAGES [--rastrel PROGRAM] [--peers] [--quick] [--only TEXT] [--no-reading] [--json FILE] [--with FILE] [--cases FOLDER] [-j N]

Writes tables in Markdown; --json keeps every figure of every page, --with adds those of an earlier run to the tables. --cases writes, for each page on which something went wrong, what came in,
what came out and where (red: ink lost, blue: surround left, green: sheet painted), with a line each in README.txt. --quick takes one page of each
condition and reads none. Needs Debian's python3-numpy, python3-pil, python3-scipy, tesseract-ocr; for --peers unpaper, imagemagick, liblept5.
"""
import argparse
import json
import multiprocessing
import os
import shutil
import sys
import tempfile

import numpy as np
from PIL import Image

import cleaners
import judge
import tables

# Conditions whose pages are read, one page each: soiled ones, a few clean.
READ = ["clean", "gutter", "gradient", "tint", "strong bleed", "dark surround", "flecked surround", "photographed", "dark paper",
        "photographed dark surround", "next page", "two soiled holes", "specks", "copied", "yellowed", "curl"]


def pages_of(folder, only, is_quick):
    with open(os.path.join(folder, "pages.json")) as records:
        pages = [json.loads(line) for line in records]
    read = set()
    for page in pages:
        key = page["condition"]
        page["isRead"] = page["isReadable"] and key in READ and (key not in read or key in ("copied", "yellowed")) and page["dpi"] >= 150
        if page["isRead"]:
            read.add(key)
    pages = [page for page in pages if only in page["name"]]
    if is_quick:
        seen = set()
        pages = [page for page in pages if not (page["condition"] in seen or seen.add(page["condition"]))]
        for page in pages:
            page["isRead"] = False
    return pages


def measure(job):
    page, folder, cleaner, arguments = job
    path = os.path.join(folder, page["file"])
    figures = {key: page[key] for key in ("name", "condition", "content", "dpi", "bits", "angle")}
    figures["cleaner"] = cleaner.name
    with tempfile.TemporaryDirectory() as work:
        truth = np.asarray(Image.open(os.path.join(folder, page["truth"])))
        before = judge.grey(Image.open(path))
        is_negative = page["condition"] == "negative"
        flat = cleaner.clean(path, work, False)
        if flat.image is None or flat.image.size != (page["width"], page["height"]):
            figures["failed"] = flat.error or "changed size: %s" % (flat.image.size,)
        else:
            after = judge.grey(flat.image)
            turned_round = (lambda g: 255 - g) if is_negative else (lambda g: g)
            marks = judge.judge_marks(truth, turned_round(before), turned_round(after), page["dpi"])
            masks = {name: marks.pop(name) for name in ("lostMask", "leftMask")}
            figures.update(marks)
            if arguments.cases and cleaner.name == "rastrel":
                keep_case(figures, page, path, flat.image, before, after, masks, truth, arguments.cases)
        straight = cleaner.clean(path, work, True)
        figures["seconds"] = straight.seconds
        if straight.image is None:
            figures["failed"] = straight.error
        else:
            figures["blank"], figures["isBlank"] = straight.blank, page["isBlank"]
            if page["hasSkew"]:
                answered = straight.skew is not None and (straight.turned or abs(straight.skew) <= 0.05)
                figures["skew"] = {"found": straight.skew, "turned": bool(straight.turned), "answered": answered,
                                   "confidence": straight.record.get("skewConfidence"),
                                   "error": abs(straight.skew - page["angle"]) if answered else None,
                                   "residual": abs(straight.skew - page["angle"]) if straight.turned else abs(page["angle"])}
            if page["isRead"] and not arguments.no_reading:
                figures["read"] = read(page, path, straight, cleaner, work)
        if page["bits"] > 1 and not is_negative and not page["isBlank"] and page["content"] not in ("pictures", "bleeding picture") \
                and hasattr(cleaner, "binarizers"):
            figures["blackAndWhite"] = {}
            for how in cleaner.binarizers():
                made = cleaner.binarize(path, work, how)
                if made.image is not None:
                    got = judge.judge_black_and_white(truth, made.image)
                    if got is not None:
                        figures["blackAndWhite"][how] = dict(got, seconds=made.seconds)
    return figures


def read(page, path, straight, cleaner, work):
    """Words read as scanned (kept beside the pages, as that does not change), and cleaned."""
    kept = path + ".read.txt"
    if not os.path.exists(kept):
        text = cleaners.read_words(Image.open(path), page["dpi"], work)
        with open(kept, "w") as file:
            file.write(text)
    with open(kept) as file:
        figures = {"before": judge.word_accuracy(page["text"], file.read())}
    figures["after"] = judge.word_accuracy(page["text"], cleaners.read_words(straight.image, page["dpi"], work))
    if cleaner.name == "rastrel" and page["bits"] > 1 and cleaner.binarizers():
        black = cleaner.clean(path, work, True, "--reduce", "auto")
        if black.image is not None:
            figures["blackAndWhite"] = judge.word_accuracy(page["text"], cleaners.read_words(black.image, page["dpi"], work))
    return figures


def complaints(figures):
    """What went wrong on a page, in words."""
    wrong = []
    part = lambda a, b: judge.share(figures.get(a, 0), figures.get(b, 0))
    if part("inkLost", "ink") > 0.0005:
        wrong.append("ink lost: %.2f %%, %d pieces" % (100 * part("inkLost", "ink"), figures["piecesLost"]))
    if part("pictureChanged", "picture") > 0.002:
        wrong.append("picture changed: %.2f %%" % (100 * part("pictureChanged", "picture")))
    if part("outsideLeft", "outside") > 0.01:
        wrong.append("surround left: %.1f %% in %d pieces" % (100 * part("outsideLeft", "outside"), figures["slivers"]))
    if part("sheetPainted", "sheet") > 0.0005:
        wrong.append("sheet painted: %.2f %%" % (100 * part("sheetPainted", "sheet")))
    if figures.get("holesFound", 0) < figures.get("holes", 0):
        wrong.append("holes found: %d of %d" % (figures["holesFound"], figures["holes"]))
    if figures.get("decoysErased", 0):
        wrong.append("decoys erased: %d" % figures["decoysErased"])
    if figures.get("dotsLost", 0):
        wrong.append("dots lost: %d" % figures["dotsLost"])
    if figures.get("crumbsLost", 0) > 2:
        wrong.append("crumbs of broken strokes lost: %d" % figures["crumbsLost"])
    if part("specksLeft", "specks") > 0.1:
        wrong.append("specks left: %d of %d" % (figures["specksLeft"], figures["specks"]))
    if figures.get("fillTone", 0) > 4:
        wrong.append("fill differs from the paper by %.1f greys" % figures["fillTone"])
    if figures.get("paperGrain", 0) > 1 and "fillGrain" in figures and not 0.5 < figures["fillGrain"] / figures["paperGrain"] < 2:
        wrong.append("grain of the fill %.1f, of the paper %.1f" % (figures["fillGrain"], figures["paperGrain"]))
    skew = figures.get("skew")
    if skew and abs(figures["angle"]) > 0.05 and not skew["answered"]:
        wrong.append("skew of %.2f refused (found %s, confidence %s)" % (figures["angle"], skew["found"], skew["confidence"]))
    elif skew and skew["answered"] and skew["error"] > 0.15:
        wrong.append("skew of %.2f taken for %.2f" % (figures["angle"], skew["found"]))
    if figures.get("blank") is not None and figures["blank"] != figures["isBlank"]:
        wrong.append("taken for blank" if figures["blank"] else "not told as blank")
    if figures.get("failed"):
        wrong.append("failed: " + figures["failed"])
    reading = figures.get("read")
    if reading and reading["after"] < reading["before"] - 1:
        wrong.append("read %.1f %% of words, %.1f %% as scanned" % (reading["after"], reading["before"]))
    return wrong


def keep_case(figures, page, path, image, before, after, masks, truth, folder):
    """Before and after side by side, and what was lost or left in colour."""
    marked = np.repeat((before * 0.5 + 127)[:, :, None], 3, 2).astype(np.uint8)
    sheet = (truth & (judge.OUTSIDE | judge.HOLE | judge.SPECK | judge.LARGE_SPECK)) == 0
    marked[sheet & (np.abs(after - before) > 20)] = (0, 160, 0)
    marked[masks["leftMask"]] = (40, 80, 255)
    marked[masks["lostMask"]] = (255, 0, 0)
    if not complaints(figures):
        return
    shutil.copy(path, folder)
    image.save(os.path.join(folder, page["name"] + "-out.png"))
    Image.fromarray(marked).save(os.path.join(folder, page["name"] + "-where.png"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("pages")
    parser.add_argument("--rastrel")
    parser.add_argument("--peers", action="store_true")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--no-reading", action="store_true")
    parser.add_argument("--json")
    parser.add_argument("--with", dest="earlier")
    parser.add_argument("--cases")
    parser.add_argument("-j", type=int, default=os.cpu_count())
    arguments = parser.parse_args()
    if arguments.cases:
        os.makedirs(arguments.cases, exist_ok=True)
    chosen = [cleaners.Rastrel(arguments.rastrel)] if arguments.rastrel else []
    if arguments.peers:
        chosen += [cleaners.Unpaper(), cleaners.ImageMagick(), cleaners.Leptonica()]
    pages = pages_of(arguments.pages, arguments.only, arguments.quick)
    rows = []
    for cleaner in chosen:
        jobs = [(page, arguments.pages, cleaner, arguments) for page in pages]
        if isinstance(cleaner, cleaners.Leptonica):
            rows += [measure(job) for job in jobs]  # a library that is loaded cannot be handed to another process
            continue
        with multiprocessing.Pool(arguments.j) as pool:
            rows += pool.map(measure, jobs, chunksize=1)
    if arguments.json:
        with open(arguments.json, "w") as file:
            json.dump(rows, file, indent=0)
    if arguments.earlier:
        with open(arguments.earlier) as file:
            rows += json.load(file)
    if arguments.cases:
        with open(os.path.join(arguments.cases, "README.txt"), "w") as file:
            for row in rows:
                wrong = complaints(row) if row["cleaner"] == "rastrel" else []
                if wrong:
                    file.write(row["name"] + ": " + "; ".join(wrong) + "\n")
    sys.stdout.write(tables.all_tables(rows))


if __name__ == "__main__":
    main()
