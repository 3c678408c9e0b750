"""Tables in Markdown of what measure.py found."""
from judge import share

import numpy as np


def of(rows, name):
    return [row for row in rows if row["cleaner"] == name]


def total(rows, key):
    return sum(row.get(key, 0) for row in rows)


def names(rows):
    return list(dict.fromkeys(row["cleaner"] for row in rows))


def table(head, lines):
    if not lines:
        return ""
    out = "| " + " | ".join(head) + " |\n|---" + "|--:" * (len(head) - 1) + "|\n"
    return out + "".join("| " + " | ".join(str(cell) for cell in line) + " |\n" for line in lines)


def worst(rows, part, whole):
    found = max(rows, key=lambda row: share(row.get(part, 0), row.get(whole, 0)), default=None)
    return (100 * share(found.get(part, 0), found.get(whole, 0)), found["name"]) if found else (0, "")


def quantile(values, part):
    values = sorted(values)
    return values[min(len(values) - 1, int(part * len(values)))] if values else float("nan")


def marks(rows):
    lines = []
    for name in names(rows):
        mine = [row for row in of(rows, name) if "ink" in row]
        low, page = worst(mine, "inkLost", "ink")
        with_surround = [row for row in mine if row.get("outside", 0) > 0]
        lines.append([
            name, len(mine), "%.3f %%" % (100 * share(total(mine, "inkLost"), total(mine, "ink"))), "%.2f %%" % low,
            sum(share(row.get("inkLost", 0), row.get("ink", 0)) > 0.0005 for row in mine),
            "%.2f %%" % (100 * share(total(mine, "pictureChanged"), total(mine, "picture"))),
            "%d of %d" % (sum(share(row["outsideLeft"], row["outside"]) <= 0.01 for row in with_surround), len(with_surround)),
            sum(share(row.get("sheetPainted", 0), row.get("sheet", 0)) > 0.0005 for row in mine)])
    return table(["", "pages", "ink lost", "worst page", "pages that lose ink", "pictures changed", "surrounds wholly gone", "pages with sheet painted"], lines)


def holes_and_specks(rows):
    lines = []
    for name in names(rows):
        mine = of(rows, name)
        lines.append([name] + ["%d of %d" % (total(mine, part), total(mine, whole)) for part, whole in (
            ("holesFound", "holes"), ("decoysErased", "decoys"), ("specksLeft", "specks"), ("largeSpecksLeft", "largeSpecks"), ("dotsLost", "dots"),
            ("crumbsLost", "crumbs"))])
    return table(["", "holes filled", "other marks harmed", "specks up to 3 x 3 left", "larger ones left", "dots and points lost", "crumbs of broken strokes lost"], lines)


def fill(rows):
    lines = []
    for name in names(rows):
        mine = [row for row in of(rows, name) if "fillTone" in row and row["bits"] > 1]
        if mine:
            ratios = [row["fillGrain"] / row["paperGrain"] for row in mine if row["paperGrain"] > 1]
            lines.append([name, len(mine), "%.1f" % np.median([row["fillTone"] for row in mine]), "%.1f" % max(row["fillTone"] for row in mine),
                          "%.2f" % np.median(ratios) if ratios else "-", sum(not 0.5 < ratio < 2 for ratio in ratios)])
    return table(["", "grey pages with a fill", "tone off by (median)", "worst", "grain, fill : paper", "pages where it is under half or over twice"], lines)


def skews(rows, keys=("all",)):
    lines = []
    for name in names(rows):
        mine = [row["skew"] for row in of(rows, name) if row.get("skew")]
        turned_pages = [row for row in of(rows, name) if row.get("skew") and abs(row["angle"]) > 0.05]
        errors = [skew["error"] for skew in mine if skew["error"] is not None]
        refused = sum(not row["skew"]["answered"] for row in turned_pages)
        worse = sum(row["skew"]["residual"] > abs(row["angle"]) + 0.05 for row in of(rows, name) if row.get("skew"))
        if mine:
            lines.append([name, len(mine), "%.1f %%" % (100 * share(refused, len(turned_pages))), "%.3f°" % quantile(errors, 0.5),
                          "%.3f°" % quantile(errors, 0.95), "%.2f°" % max(errors, default=0), worse])
    return table(["", "pages", "refused", "median", "95 %", "worst", "made worse"], lines)


def blanks(rows):
    mine = [row for row in of(rows, "rastrel") if row.get("blank") is not None]
    empty = [row for row in mine if row["isBlank"]]
    return "Blank pages told: %d of %d. Others taken for blank: %d of %d.\n" % (
        sum(row["blank"] for row in empty), len(empty), sum(row["blank"] for row in mine if not row["isBlank"]), len(mine) - len(empty))


def reading(rows):
    lines = []
    for name in names(rows):
        mine = [row["read"] for row in of(rows, name) if row.get("read")]
        if mine:
            black = [figures.get("blackAndWhite", figures["after"]) for figures in mine]
            lines.append([name, len(mine), "%.1f" % np.mean([f["before"] for f in mine]), "%.1f" % np.mean([f["after"] for f in mine]),
                          "%.1f" % np.mean(black) if name == "rastrel" else "-", sum(f["after"] < f["before"] - 1 for f in mine)])
    return table(["", "pages read", "as scanned", "cleaned", "cleaned, black and white", "worse by over 1 point"], lines)


def black_and_white(rows):
    lines, by_method = [], {}
    for row in rows:
        for how, figures in row.get("blackAndWhite", {}).items():
            by_method.setdefault((row["cleaner"], how), []).append((row["name"], figures))
    for (name, how), found in by_method.items():
        low = min(found, key=lambda item: item[1]["f"])
        lines.append([name + ": " + how, len(found), "%.1f" % np.mean([f["f"] for _, f in found]), "%.1f" % low[1]["f"], low[0],
                      "%.1f" % np.mean([f["psnr"] for _, f in found]), "%.2f" % np.mean([f["drd"] for _, f in found])])
    return table(["", "pages", "F-measure", "worst", "on", "PSNR", "DRD"], lines)


def by_condition(rows):
    lines = []
    for condition in dict.fromkeys(row["condition"] for row in rows):
        mine = [row for row in of(rows, "rastrel") if row["condition"] == condition]
        errors = [row["skew"]["error"] for row in mine if row.get("skew") and row["skew"]["error"] is not None]
        asked = sum(bool(row.get("skew")) and abs(row["angle"]) > 0.05 for row in mine)
        refused = sum(bool(row.get("skew")) and abs(row["angle"]) > 0.05 and not row["skew"]["answered"] for row in mine)
        percent = lambda part, whole: "%.2f" % (100 * share(total(mine, part), total(mine, whole))) if total(mine, whole) else ""
        count = lambda part, whole: "%d of %d" % (total(mine, part), total(mine, whole)) if total(mine, whole) else ""
        lines.append([condition, len(mine), percent("inkLost", "ink"), percent("outsideLeft", "outside"), percent("sheetPainted", "sheet"),
                      count("holesFound", "holes"), count("specksLeft", "specks"), "%d of %d" % (refused, asked) if asked else "",
                      "%.2f" % max(errors) if errors else ""])
    return table(["condition", "pages", "ink lost, %", "surround left, %", "sheet painted, %", "holes filled", "specks left", "skew refused", "worst skew, °"], lines)


def all_tables(rows):
    tables = [marks(rows), holes_and_specks(rows), fill(rows), skews(rows), blanks(rows), reading(rows), black_and_white(rows), by_condition(rows)]
    return "\n".join(text for text in tables if text)
