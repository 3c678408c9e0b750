"""The Python package beside numpy, Pillow and the command."""

import concurrent.futures
import inspect
import io
import json
import os
import pathlib
import pickle
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from PIL import Image

import rastrel

ROOT = pathlib.Path(__file__).parents[2]
SAMPLES = sorted(path for path in (ROOT / "samples").iterdir() if path.suffix in (".tif", ".png", ".jpg"))
CLASSIC_NAMES = {"clean": "despeckle", "grey": "to_grey", "holes": "remove_holes", "to24": "to_colour"}


def command(*words):
    words = [sys.executable, "-m", "rastrel", *map(str, words)]
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


OPERATIONS = json.loads(command("apply", "--list", "--json"))


def drawn(kind, height, width, seed=1):
    noise = np.random.default_rng(seed).integers(0, 256, (height, width, 4), np.uint8)
    return {
        "bool": noise[..., 0] > 127,
        "grey": noise[..., 0],
        "rgb": noise[..., :3],  # with gaps between its pixels
        "rgba": noise,
    }[kind]


kinds = st.sampled_from(["bool", "grey", "rgb"])
sizes = st.tuples(st.integers(1, 40), st.integers(1, 40))
# The same pixels laid out in other ways in memory.
layouts = st.sampled_from(
    [
        lambda a: a,
        np.asfortranarray,
        lambda a: np.repeat(a, 2, axis=1)[:, ::2],
        lambda a: a[::-1].copy()[::-1],
        lambda a: a[:, ::-1].copy()[:, ::-1],
        lambda a: a[..., ::-1].copy()[..., ::-1],  # BGR in memory
    ]
)


@settings(max_examples=60, deadline=None)
@given(kinds, sizes, layouts)
def test_exact_operations_do_as_numpy_does_whatever_the_layout(kind, size, layout):
    image = layout(drawn(kind, *size))
    image.flags.writeable = False
    for made, expected in [
        (rastrel.Page(image).array(), image),
        (np.asarray(rastrel.Page(image)), image),
        (np.from_dlpack(rastrel.Page(image)), image),
        (rastrel.Page(rastrel.Page(image).image()).array(), image),
        (pickle.loads(pickle.dumps(rastrel.Page(image))).array(), image),
        (rastrel.flip(image, "h"), image[:, ::-1]),
        (rastrel.flip(image, "v"), image[::-1]),
        (rastrel.turn(image, 1), np.rot90(image)),
        (rastrel.invert(image), ~image),
        (rastrel.crop(image, size[1] // 2, size[0] // 3), image[size[0] // 3 :, size[1] // 2 :]),
    ]:
        assert made.dtype == image.dtype
        np.testing.assert_array_equal(made, expected)


def test_results_are_of_the_kind_that_came_in():
    array = drawn("rgb", 20, 30)
    pillow = Image.fromarray(array.copy())
    pillow.info["dpi"] = (150, 150)
    page = rastrel.Page(array, 150, metadata={"icc": b"profile"})
    for image, grey in [(array, np.asarray), (pillow, np.asarray), (page, np.asarray)]:
        made = rastrel.to_grey(image)
        assert type(made) is type(image)
        np.testing.assert_array_equal(grey(made), rastrel.to_grey(array))
    assert rastrel.to_grey(pillow).info["dpi"] == (150, 150)
    assert rastrel.to_grey(page).dpi == (150, 150) and rastrel.to_grey(page).metadata == {"icc": b"profile"}
    assert [np.asarray(part).shape for part in rastrel.cut(pillow, 7)] == [(7, 30, 3), (13, 30, 3)]


def test_alpha_goes_over_white():
    pixels = np.array([[[0, 0, 0, 0], [10, 20, 30, 255]]], np.uint8)
    np.testing.assert_array_equal(rastrel.Page(pixels).array(), [[[255, 255, 255], [10, 20, 30]]])


@pytest.mark.parametrize(
    "image, options, expected",
    [
        (np.array([[0, 65535, 257]], np.uint16), {}, [[0, 255, 1]]),
        (np.array([[0, 4095, 9000]], np.uint16), {"white": 4095}, [[0, 255, 255]]),
        (np.array([[0.0, 1.0, 0.5, -3.0]], np.float32), {}, [[0, 255, 128, 0]]),
        (np.array([[0.0, 1.0]]), {"black": 1, "white": 0}, [[255, 0]]),
    ],
)
def test_as_page_converts_what_else_is_refused(image, options, expected):
    with pytest.raises(rastrel.ImageTypeError, match="rastrel.as_page"):
        rastrel.clean(image)
    np.testing.assert_array_equal(rastrel.as_page(image, **options).array(), expected)


PAGE = rastrel.Page(drawn("bool", 30, 40))


class OnAnotherDevice:
    def __dlpack__(self, **_):
        raise BufferError

    def __dlpack_device__(self):
        return 2, 0


@pytest.mark.parametrize(
    "call, error",
    [
        (lambda: rastrel.clean(np.zeros((0, 5), np.uint8)), rastrel.ArgumentError),
        (lambda: rastrel.clean(np.zeros((5, 5, 2), np.uint8)), rastrel.ImageTypeError),
        (lambda: rastrel.clean(np.zeros((5, 5, 3), bool)), rastrel.ImageTypeError),
        (lambda: rastrel.clean("scan.tif"), TypeError),
        (lambda: rastrel.clean(OnAnotherDevice()), rastrel.ImageTypeError),
        (lambda: PAGE.__dlpack__(copy=False), BufferError),
        (lambda: rastrel.clean(Image.new("I;16", (3, 3))), rastrel.ImageTypeError),
        (lambda: rastrel.as_page(np.array([[np.nan]])), ValueError),
        (lambda: rastrel.clean(PAGE, speck_level=101), rastrel.OptionError),
        (lambda: rastrel.clean(PAGE, speck_level=2.5), rastrel.OptionError),
        (lambda: rastrel.clean(PAGE, holes=41), rastrel.OptionError),
        (lambda: rastrel.clean(PAGE, reduce="fs", brightness=1), rastrel.OptionError),
        (lambda: rastrel.clean(PAGE, dpi=-1), ValueError),
        (lambda: rastrel.clean(PAGE, progress=lambda step, done: False), rastrel.Cancelled),
        (lambda: rastrel.clean(PAGE, progress=lambda step, done: 1 // 0), ZeroDivisionError),
        (lambda: rastrel.rotate(PAGE, float("nan")), rastrel.OptionError),
        (lambda: rastrel.rotate(PAGE, 1, fill="red"), rastrel.OptionError),
        (lambda: rastrel.scale(PAGE), rastrel.OptionError),
        (lambda: rastrel.dither(PAGE), rastrel.PageRefused),
        (lambda: rastrel.scale(PAGE, percent=6400, width=5), rastrel.OptionError),
        (lambda: rastrel.merge([], 1), rastrel.ArgumentError),
        (lambda: rastrel.Page(np.broadcast_to(np.uint8(0), (2**30, 2**30))), rastrel.TooLarge),
        (lambda: rastrel.open(b"no page"), rastrel.UnsupportedFile),
        (lambda: rastrel.open("nowhere.tif"), OSError),
        (lambda: rastrel.open("null\0byte"), ValueError),
        (lambda: rastrel.Page.open(PAGE.to_bytes("tif"), 1), IndexError),
        (lambda: rastrel.create("page.xyz"), rastrel.Error),
        (lambda: rastrel.create(io.BytesIO()), ValueError),
        (lambda: PAGE.to_bytes("tif", unknown=1), rastrel.OptionError),
    ],
)
def test_bad_input_is_an_exception_that_says_so(call, error):
    with pytest.raises(error) as raised:
        call()
    assert str(raised.value)


def test_errors_carry_code_and_file(tmp_path):
    with pytest.raises(rastrel.FileError, match="nowhere.tif") as raised:
        rastrel.open(tmp_path / "nowhere.tif")
    for error in raised.value, pickle.loads(pickle.dumps(raised.value)):  # from another process
        assert error.code == 3 and error.file == str(tmp_path / "nowhere.tif")
        assert str(error) == str(raised.value)
    with pytest.raises(rastrel.Error), rastrel.create(tmp_path / "empty.tif"):
        pass  # a file without pages
    assert list(tmp_path.iterdir()) == []


def test_files_are_sequences_of_pages_by_name_in_memory_and_in_objects(tmp_path):
    pages = [rastrel.Page(drawn("bool", 10 + i, 20), 200) for i in range(3)]
    path, stream = tmp_path / "book.tif", io.BytesIO()
    for target, options in [(path, {}), (stream, {"format": "tif"})]:
        with rastrel.create(target, **options) as file:
            for page in pages:
                file.append(page)
    for source in [path, str(path), path.read_bytes(), io.BytesIO(stream.getvalue())]:
        with rastrel.open(source) as book:
            assert len(book) == 3 and book.format == "tif" and book.damage is None
            assert list(book) == pages and book[-1] == pages[2] and book[1:] == pages[1:]
        with pytest.raises(rastrel.ArgumentError, match="closed"):
            book[0]
    assert Image.open(io.BytesIO(pages[0]._repr_png_())).size == (20, 10)


def test_a_file_given_up_leaves_what_stood_there(tmp_path):
    path = tmp_path / "page.png"
    path.write_bytes(b"as it was")
    with pytest.raises(KeyboardInterrupt), rastrel.create(path) as file:
        file.append(PAGE)
        raise KeyboardInterrupt
    assert path.read_bytes() == b"as it was" and len(list(tmp_path.iterdir())) == 1
    file.close()  # too late for it, and no error
    with pytest.raises(rastrel.ArgumentError, match="closed"):
        file.append(PAGE)
    assert path.read_bytes() == b"as it was"


def test_every_operation_of_the_table_is_a_function():
    script = ROOT / "python" / "make_operations.py"
    words = [sys.executable, script]
    table = json.dumps(OPERATIONS)
    written = subprocess.run(words, input=table, capture_output=True, text=True, check=True).stdout
    assert written == (ROOT / "python" / "rastrel" / "_operations.py").read_text()


def test_clean_takes_each_step_of_the_command():
    names = {"trim": "borders", "drop_blank": "blank_percent"}
    steps = command("clean", "--help").split("\nSteps:\n")[1]
    options = re.findall(r"^  --(?:no-)?([a-z-]+)", steps, re.M)
    words = {names.get(option.replace("-", "_"), option.replace("-", "_")) for option in options}
    assert len(words) > 15 and words <= inspect.signature(rastrel.clean).parameters.keys()
    choices = re.search(r'reduce : \{(.*)\}', rastrel.clean.__doc__)[1].replace('"', "").split(", ")
    for word in choices:
        assert rastrel.clean(drawn("grey", 30, 30), reduce=word).image.dtype == (bool if word != "none" else np.uint8)


@pytest.mark.parametrize("work", [rastrel.clean, lambda page: rastrel.binarize(page, quality="best")])
def test_ctrl_c_ends_long_work(work):
    signal.signal(signal.SIGINT, signal.default_int_handler)  # it is ignored in background jobs
    page = rastrel.Page(np.tile(drawn("grey", 1000, 1000), (8, 6)))  # takes seconds
    threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        work(page)
    assert time.monotonic() - start < 0.8
    assert rastrel.flip(page, "v").width == 6000  # the next work is done


@pytest.mark.parametrize("operation", OPERATIONS, ids=[entry["name"] for entry in OPERATIONS])
def test_operations_give_what_the_command_gives(operation, tmp_path):
    values = {"angle": 3.5, "quarters": 1, "shift": 9, "rows": 30, "factor": 2, "width": 32, "columns": 1}
    arguments = {}
    for parameter in operation["parameters"]:
        name = parameter["name"]
        if parameter["required"] and name != "file":
            arguments[name] = parameter["choices"][-1] if "choices" in parameter else values.get(name, 5)
    if operation["name"] == "scale":
        arguments["percent"] = 50
    page = rastrel.Page(Image.open(ROOT / "samples" / "report-grey.png").crop((100, 100, 300, 260)), 150)
    page.save(tmp_path / "in.tif")
    call = getattr(rastrel, CLASSIC_NAMES.get(operation["name"], operation["name"].replace("-", "_")))
    words = [f"{name}={value}" for name, value in arguments.items()]
    if operation["name"] == "combine":
        words.append(f"file={tmp_path / 'in.tif'}")
        arguments["other"] = page
    step = operation["name"] + (":" + ",".join(words) if words else "")
    command("apply", tmp_path / "in.tif", "-o", tmp_path / "out.tif", step)
    made = call([page] if operation["merges"] else page, **arguments)
    assert list(rastrel.open(tmp_path / "out.tif")) == (made if operation["splits"] else [made])


@pytest.mark.parametrize("sample", SAMPLES, ids=lambda path: path.stem)
def test_cleaning_gives_the_command_s_bytes_in_any_number_of_threads(sample, tmp_path):
    command("clean", sample, "-o", tmp_path / "command.tif", "--overlay", tmp_path / "overlay.png")
    page = rastrel.Page.open(sample)
    steps = []
    cleaned = rastrel.clean(page, overlay=True, progress=lambda step, done: steps.append(done))
    assert cleaned.image == rastrel.Page.open(tmp_path / "command.tif")  # the file's tags are the command's
    assert cleaned.overlay == rastrel.Page.open(tmp_path / "overlay.png")
    command("clean", sample, "-o", tmp_path / "white.tif", "--flatten", "--paper", "white", "--bleed")
    white = rastrel.clean(page, flatten=True, paper="white", bleed=True).image
    assert white == rastrel.Page.open(tmp_path / "white.tif")
    assert steps == sorted(steps) and len(steps) > 2
    assert cleaned.record.width == cleaned.image.width and cleaned.record.is_turned
    assert cleaned.record.skew == pytest.approx(rastrel.measure_skew(page).degrees, abs=0.1)
    assert not rastrel.is_blank(page) and rastrel.is_blank(np.ones((200, 200), bool))
    assert 1 < rastrel.examine(page).ink_percent < 50
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        for other in pool.map(lambda _: rastrel.clean(page.array(), page.dpi), range(4)):
            np.testing.assert_array_equal(other.image, cleaned.image.array())


def test_the_programs_of_the_guide_run(tmp_path, monkeypatch):
    shutil.copytree(ROOT / "samples", tmp_path / "samples")
    shutil.copy(ROOT / "README.md", tmp_path)
    monkeypatch.chdir(tmp_path)
    programs = re.findall(r"^```python\n(.*?)^```", (ROOT / "docs" / "python.md").read_text(), re.M | re.S)
    names = {}
    for program in programs:
        exec(program, names)
    assert len(names["rows"]) == 2 and rastrel.Page.open("report.tif") == names["cleaned"].image


def test_the_notebook_runs_and_is_rendered():
    nbformat, nbclient = pytest.importorskip("nbformat"), pytest.importorskip("nbclient")
    notebook = nbformat.read(ROOT / "docs" / "python.ipynb", as_version=4)
    rendered = (ROOT / "docs" / "python-notebook.md").read_text()
    nbclient.NotebookClient(notebook, timeout=300, resources={"metadata": {"path": str(ROOT / "docs")}}).execute()
    for cell in notebook.cells:
        assert cell.source in rendered
    pictures = [name for name in re.findall(r"!\[\]\((.*)\)", rendered) if (ROOT / "docs" / name).exists()]
    shown = [output for cell in notebook.cells for output in cell.get("outputs", ()) if "data" in output]
    assert len(pictures) == sum("image/png" in output["data"] for output in shown) == 3
    assert "letter-1bit.tif" in shown[-1]["data"]["text/plain"]
