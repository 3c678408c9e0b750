#!/usr/bin/env python3
"""Writes docs/performance.md and docs/cost.svg from what the benchmarks measured: write_performance.py FOLDER DOCS,
where FOLDER has peers.json, growth.json and whole.json."""
import datetime
import json
import math
import platform
import subprocess
import sys

COLOURS = ["#1b6ca8", "#c8552b", "#3a8f4d", "#8a4fa3", "#b8860b", "#4a5560", "#c2407a", "#2a9d9d"]


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()


def processor():
    with open("/proc/cpuinfo") as file:
        for line in file:
            if line.startswith("model name"):
                return line.split(":")[1].strip()
    return platform.machine()


def package_version(name):
    return output("dpkg-query", "-W", "-f=${Version}", name).split("+")[0]


def revision():
    changed = subprocess.run(["git", "diff", "--quiet", "HEAD", "--", ":!docs"], check=False).returncode != 0
    return output("git", "rev-parse", "--short", "HEAD") + (" with changes" if changed else "")


def number(value):
    return f"{value:.3g}" if value < 100 else f"{value:.0f}"


# ---- the tables ----


def operations_table(rows):
    notes = []
    lines = ["| work | Rastrel, ms | fastest peer | ms | ratio | to reach | other peers, ms |", "|---|---|---|---|---|---|---|"]
    for row in rows:
        mark = ""
        if row["note"]:
            if row["note"] not in notes:
                notes.append(row["note"])
            mark = f" [{notes.index(row['note']) + 1}]"
        best = next(peer for peer in row["peers"] if peer["name"] == row["best"])
        others = ", ".join(f"{peer['name']} {number(peer['least'])}" + (" (other work)" if peer["other"] else "")
                           for peer in row["peers"] if peer is not best)
        ratio = f"**{row['ratio']:.2g}**" if row["ratio"] >= row["goal"] else f"{row['ratio']:.2g}"
        lines.append(f"| {row['work']}{mark} | {number(row['ours']['least'])} | {best['name']} | {number(best['least'])} |"
                     f" {ratio} | {row['goal']:g} | {others} |")
    lines.append("")
    lines += [f"{i}. {note}" for i, note in enumerate(notes, 1)]
    return lines


def process_table(whole):
    lines = ["| | pages | pages a second | CPU ms a page | peak memory, MB |", "|---|---|---|---|---|"]
    for run in whole["runs"]:
        lines.append(f"| {run['name']} | {run['pages']} | {number(run['pagesPerSecond'])} |"
                     f" {number(1000 * run['cpuPerPage'])} | {run['peakBytes'] / 1e6:.1f} |")
    return lines


def process_summary(whole):
    runs = {run["name"]: run for run in whole["runs"]}
    one = runs["rastrel clean, 1 worker"]
    tiny = next(run for name, run in runs.items() if "8 x 8" in name)
    workers = {run["name"]: int(name.split(",")[1].split()[0]) for name, run in runs.items() if " worker" in name}

    def cpu_ratio(name):
        return runs[name]["cpuPerPage"] / one["cpuPerPage"]

    memory = "; ".join(
        f"{name.removeprefix('rastrel clean, ')} "
        f"{(runs[name]['peakBytes'] - tiny['peakBytes']) / whole['pageBytes'] / count:.1f}"
        for name, count in workers.items())
    return [f"CPU time a page over that of `rastrel clean` with one worker: unpaper {cpu_ratio('unpaper'):.3g} (to reach: 30), "
            f"deskewing and despeckling alone {cpu_ratio('Leptonica, deskew and despeckle'):.2f} (to reach: 1).", "",
            f"Memory beyond what the command needs for a page of 8 × 8 pixels, in pages of {whole['pageBytes'] / 1e6:.2f} MB "
            f"a worker (to reach: 3): {memory}."]


def memory_table(operations):
    lines = ["| operation | bits | result | result and work memory at the peak |", "|---|---|---|---|"]
    for operation in operations:
        lines.append(f"| {operation['name']} | {operation['bits']} | {operation['result']:.2f} | {operation['peak']:.2f} |")
    return lines


# ---- the chart ----


class Panel:
    """One set of axes, both logarithmic."""
    WIDTH, HEIGHT = 300, 420

    def __init__(self, left, top, x_range, y_range):
        self.left, self.top, self.x_range, self.y_range = left, top, x_range, y_range

    @staticmethod
    def place(value, ends):
        return math.log(value / ends[0]) / math.log(ends[1] / ends[0])

    def x(self, value):
        return self.left + self.WIDTH * self.place(value, self.x_range)

    def y(self, value):
        return self.top + self.HEIGHT * (1 - self.place(value, self.y_range))


# Milliseconds on one core that cleaning and reducing a page of 300 dpi are to take.
PAGES_TO_REACH = {"BM_CleanPage/bits:1": 15, "BM_CleanPage/bits:8": 35, "BM_CleanPage/bits:24": 70,
                  "BM_BinarizePage/bits:8": 60, "BM_BinarizePage/bits:24": 60}


def pages_table(benchmarks):
    least = {}
    for run in benchmarks:
        if run["run_type"] == "iteration":
            least[run["run_name"]] = min(run["cpu_time"], least.get(run["run_name"], run["cpu_time"]))
    lines = ["| work | ms | to reach |", "|---|---|---|"]
    for name, to_reach in PAGES_TO_REACH.items():
        work, bits = name.removeprefix("BM_").split("Page/bits:")
        lines.append(f"| {work.lower()} a page, {bits} bit | {number(least[name])} | {to_reach} |")
    return lines


def text(x, y, words, anchor="start", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {more}>{words}</text>'


def line(x1, y1, x2, y2, style):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {style}/>'


def axes(panel, bits, areas):
    parts = [text(panel.left, panel.top - 14, f"{bits} bit", more='font-size="15" font-weight="bold"')]
    decade = panel.y_range[0]
    while decade <= panel.y_range[1] * 1.01:
        y = panel.y(decade)
        parts.append(line(panel.left, y, panel.left + panel.WIDTH, y, 'stroke="#dddddd"'))
        parts.append(text(panel.left - 6, y + 4, f"{decade:g}", "end"))
        decade *= 10
    for area in areas:
        x = panel.x(area)
        parts.append(line(x, panel.top, x, panel.top + panel.HEIGHT, 'stroke="#eeeeee"'))
        parts.append(text(x, panel.top + panel.HEIGHT + 16, f"{area}", "middle"))
    return parts


def spread(places, gap):
    """Moves labels apart: each at least `gap` below the one above."""
    order = sorted(range(len(places)), key=lambda i: places[i])
    moved = list(places)
    for _ in range(200):
        for above, below in zip(order, order[1:]):
            lack = gap - (moved[below] - moved[above])
            if lack > 0:
                moved[above] -= lack / 2
                moved[below] += lack / 2
    return moved


def chart(growth):
    areas = growth["megapixels"]
    pitch, left, top = Panel.WIDTH + 200, 60, 70
    times = [time for operation in growth["operations"] for time in operation["milliseconds"]]
    y_range = (10 ** math.floor(math.log10(min(times))), 10 ** math.ceil(math.log10(max(times))))
    width, height = left + 3 * pitch, top + Panel.HEIGHT + 60
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" '
             'font-family="sans-serif" font-size="12" fill="#333333">',
             f'<rect width="{width}" height="{height}" fill="white"/>',
             text(left, 24, "CPU milliseconds against megapixels, both logarithmic; the dashed line is in proportion",
                  more='font-size="14"')]
    for index, bits in enumerate((1, 8, 24)):
        panel = Panel(left + index * pitch, top, (areas[0], areas[-1]), y_range)
        parts += axes(panel, bits, areas)
        parts.append(line(panel.x(areas[0]), panel.y(y_range[0] * 2), panel.x(areas[-1]),
                          panel.y(y_range[0] * 2 * areas[-1] / areas[0]), 'stroke="#999999" stroke-dasharray="5 4"'))
        operations = [operation for operation in growth["operations"] if operation["bits"] == bits]
        labels = spread([panel.y(operation["milliseconds"][-1]) for operation in operations], 15)
        for i, operation in enumerate(operations):
            colour = COLOURS[i % len(COLOURS)]
            points = [(panel.x(area), panel.y(time)) for area, time in zip(areas, operation["milliseconds"])]
            path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
            parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
            parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="2.5" fill="{colour}"/>' for x, y in points]
            end = panel.left + panel.WIDTH
            parts.append(line(points[-1][0], points[-1][1], end + 12, labels[i], f'stroke="{colour}"'))
            parts.append(text(end + 16, labels[i] + 4, operation["name"], more=f'fill="{colour}"'))
    return "\n".join(parts + ["</svg>", ""])


def main():
    folder, docs = sys.argv[1:]
    data = {}
    for name in ("peers", "growth", "whole", "pages"):
        with open(f"{folder}/{name}.json") as file:
            data[name] = json.load(file)
    lines = [
        "# Performance", "",
        "Written by `scripts/bench.sh` from one run of it; not edited by hand.", "",
        f"{datetime.date.today():%d %B %Y}, revision {revision()}. {processor()}, {data['whole']['cores']} cores; "
        f"{output('g++', '--version').splitlines()[0]}. Leptonica {package_version('libleptonica-dev')}, "
        f"OpenCV {data['peers']['versions']['OpenCV']}, unpaper {data['whole']['unpaper']}, all from Debian.", "",
        "## One operation", "",
        "A4 pages at 300 dpi (2480 × 3508), the same pixels for all; each library has them in its own kind of image before the "
        "timing starts, makes its result and frees it. One thread, in turn, round after round in one run; the least CPU time of "
        "each. The ratio is the fastest peer's time over ours, bold where it reaches the next column. That the results show the "
        "same is checked outside the timing.", "",
        *operations_table(data["peers"]["rows"]), "",
        "## A page cleaned", "",
        "`CleanPage` and `BinarizePage` on the page of `rastrel_bench` (A4 at 300 dpi, text, specks, two holes, a black edge, "
        "skewed), without reading and writing a file. One thread; the least CPU time of 20 rounds.", "",
        *pages_table(data["pages"]["benchmarks"]), "",
        "## A whole file", "",
        f"A TIFF file of {data['whole']['runs'][0]['pages']} different 1-bit pages of text, in Group 4, skewed, with specks, "
        "punch holes and a dark edge, on a memory disk. `rastrel clean` trims, removes holes and specks, straightens and writes "
        "Group 4 again. The program on Leptonica (`bench/peers/lean_clean.cpp`) straightens, opens by 2 × 2 against specks, and "
        "writes Group 4. unpaper runs with its defaults, from uncompressed files to uncompressed files, which are made from the "
        "TIFF file outside the timing.", "",
        *process_table(data["whole"]), "", *process_summary(data["whole"]), "",
        "## Larger pages", "",
        "Time against area, from 1 to 200 megapixels. Memory is used again from one result to the next; memory that is fresh from "
        "the system costs the same for each megabyte on top. Lines are a little steeper where pages stop to fit into the "
        "processor's caches.", "", "![Time against area](cost.svg)", "",
        f"Memory at {data['growth']['megapixels'][-1]} megapixels, in multiples of the page, the page itself not counted:", "",
        *memory_table(data["growth"]["operations"]), ""]
    with open(f"{docs}/performance.md", "w") as file:
        file.write("\n".join(lines))
    with open(f"{docs}/cost.svg", "w") as file:
        file.write(chart(data["growth"]))


main()
