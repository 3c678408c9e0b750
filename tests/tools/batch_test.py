"""`rastrel batch` as people run it: batch_test.py RASTREL SAMPLES CASE. Case kills takes how many, and how many files."""

import json
import os
import pathlib
import random
import resource
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

RASTREL = os.path.abspath(sys.argv[1])
SAMPLES = pathlib.Path(sys.argv[2]).resolve()
LETTER = SAMPLES / "letter-1bit.tif"


def run(*words, code=0, **more):
    done = subprocess.run([RASTREL, *map(str, words)], capture_output=True, text=True, **more)
    assert done.returncode == code, (words, done.returncode, done.stdout, done.stderr)
    return done.stdout + done.stderr


def small_page(path, number=0):
    """A piece of the letter, another one for each number."""
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    run("apply", LETTER, "-o", path, "-q", "--overwrite", f"crop:{number % 500},{number // 500 * 7},400,300")
    return path


def rows(manifest="out/batch.sqlite"):
    """{input's name: [state of each page]}, and the whole rows."""
    with sqlite3.connect(manifest) as database:
        database.row_factory = sqlite3.Row
        found = [dict(row) for row in database.execute("SELECT * FROM pages ORDER BY input, page")]
    states = {}
    for row in found:
        states.setdefault(os.path.basename(row["input"]), []).append(row["state"])
    return states, found


def planned(*words, **more):
    """[(input, output)] of a dry run."""
    lines = run("batch", *words, "-o", "out", "--dry-run", **more).splitlines()[:-1]
    return [tuple(line.rsplit(" (", 1)[0].split(" -> ")) for line in lines]


def case_plan():
    for name in "page10", "page2", "Page1", "sub/page1", "page02b", "sub/deep/x", ".hidden", "out/old":
        target = pathlib.Path(f"scans/{name}.tif")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.touch()
    for name in "a.jpg", "notes.txt":
        pathlib.Path("scans", name).touch()
    names = [source for source, _ in planned("scans")]
    assert names == [f"scans/{n}" for n in ("Page1.tif", "a.jpg", "out/old.tif", "page2.tif", "page02b.tif", "page10.tif",
                                            "sub/deep/x.tif", "sub/page1.tif")], names
    pairs = (
        (["--include", "*1.tif", "--exclude", "sub"], [("scans/Page1.tif", "out/Page1.tif")]),
        (["--include", "sub/*"], [("scans/sub/deep/x.tif", "out/sub/deep/x.tif"), ("scans/sub/page1.tif", "out/sub/page1.tif")]),
        (["--include", "a.*"], [("scans/a.jpg", "out/a.png")]),
        (["--no-recursive", "--include", "[a-z]*b.tif", "--format", "png"], [("scans/page02b.tif", "out/page02b.png")]),
        (["--include", "x.tif", "--name", "{root}/{folder}/{stem}-{page:04}{ext}"],
         [("scans/sub/deep/x.tif", "out/scans/sub/deep/x-{page:04}.tif")]),
        (["--include", "x.tif", "--name", "{stem}/{page}"], [("scans/sub/deep/x.tif", "out/x/{page:01}")]),
    )
    for words, expected in pairs:
        assert planned("scans", *words) == expected, (words, planned("scans", *words))
    listed = "scans/sub/page1.tif\n\n../" + os.path.basename(os.getcwd()) + "/scans/page2.tif\n"
    assert planned("--files-from", "-", input=listed) == [
        ("../" + os.path.basename(os.getcwd()) + "/scans/page2.tif", "out/page2.tif"),
        ("scans/sub/page1.tif", "out/scans/sub/page1.tif")]
    assert not os.path.exists("out")
    for words in (["-o", "out"], ["scans"], ["nothing", "-o", "out"], ["scans", "-o", "scans"],
                  ["scans", "-o", "out", "--name", "{folder}/x{ext}"], ["scans", "-o", "out", "--name", "../{stem}"],
                  ["scans", "-o", "out", "--name", "{stem}{what}"], ["scans", "-o", "out", "--name", "{stem}{page:0x}"],
                  ["scans", "-o", "out", "--name", "{stem}{page}/x"], ["scans", "-o", "out", "--name", "{stem"],
                  ["scans", "-o", "out", "--include", "*1.tif", "--name", "{stem}.tif", "--speck-level", "1"],
                  ["scans", "-o", "out", "--verify"], ["scans/sub", "-o", "scans/sub/", "--name", "{stem}-clean{ext}"],
                  ["scans", "-o", "out", "--include", "a.jpg", "--name", "{stem}.png", "--format", "tif"]):
        assert run("batch", *words, code=2), words
    small_page("scans/sub/page2.tif")
    # Two files of one name in two folders.
    assert "both go to" in run("batch", "scans", "-o", "out", "--name", "{stem}{ext}", code=2)


def case_bytes():
    """What comes out is what `clean` makes of the same files."""
    os.mkdir("scans")
    for sample in SAMPLES.glob("*.*g"):
        shutil.copy(sample, "scans")
    run("apply", LETTER, LETTER, SAMPLES / "report-grey.png", "-o", "scans/book.tif")
    shutil.copy(LETTER, "scans/strange \x01 näme.tif")
    pathlib.Path("scans/damaged.tif").write_bytes(pathlib.Path("scans/book.tif").read_bytes()[:5000])
    options = ["--deskew", "whole", "--keep-time"]
    run("batch", "scans", "-o", "out", "-j", "2", *options, code=1)
    pathlib.Path("scans/damaged.tif").rename("damaged.tif")
    run("clean", *sorted(map(str, pathlib.Path("scans").iterdir())), "-o", "expected/", "-q", *options)
    expected = {p.name: p.read_bytes() for p in pathlib.Path("expected").iterdir()}
    assert {p.name: p.read_bytes() for p in pathlib.Path("out").iterdir() if "batch" not in p.name} == expected
    states, found = rows()
    assert set(states.pop("damaged.tif")) == {"failed"}
    assert states.pop("book.tif") == ["done"] * 3 and set(map(tuple, states.values())) == {("done",)}
    for row in found:
        if row["state"] == "done":
            assert os.path.getsize(os.path.join("out", row["output"])) == row["outputSize"], row
            assert json.loads(row["record"])["page"] == row["page"] and len(row["inputHash"]) == 64
    # A file for each page.
    run("batch", "scans/book.tif", "-o", "pages", "--name", "{stem}-{page:03}{ext}", *options)
    run("clean", LETTER, "-o", "one.tif", *options)
    assert pathlib.Path("pages/book-002.tif").stat().st_size > 1000 and len(list(pathlib.Path("pages").glob("*.tif"))) == 3


def log(path="log"):
    return [json.loads(line) for line in pathlib.Path(path).read_text().splitlines()]


def begun():
    """Files that the last run began; the log begins anew."""
    names = sorted(os.path.basename(line["input"]) for line in log() if line["event"] == "begin")
    os.remove("log")
    return names


def case_resume():
    for i in range(4):
        small_page(f"scans/{i}.tif", i)
    pathlib.Path("out").mkdir()
    pathlib.Path("out/3.tif").write_text("somebody's")
    batch = ["batch", "scans", "-o", "out", "--log", "log"]
    assert "is there already" in run(*batch, code=1)
    assert begun() == ["0.tif", "1.tif", "2.tif"] and pathlib.Path("out/3.tif").read_text() == "somebody's"
    first = {name: os.stat(f"out/{name}.tif").st_mtime_ns for name in "012"}
    run(*batch, code=1)
    assert begun() == []
    os.utime("scans/0.tif")  # touched and yet the same
    small_page("scans/1.tif", 7)
    os.remove("out/2.tif")
    # From elsewhere by another name.
    os.mkdir("other")
    run("batch", os.path.abspath("scans"), "-o", "../out", "--log", "../log", cwd="other", code=1)
    assert begun() == ["0.tif", "1.tif", "2.tif"]
    changed = [name for name in "012" if os.stat(f"out/{name}.tif").st_mtime_ns != first[name]]
    assert changed == ["1", "2"], changed
    run(*batch, code=1)
    assert begun() == []
    run(*batch, "--retry", code=1)
    assert begun() == [] and pathlib.Path("out/3.tif").read_text() == "somebody's"
    run(*batch, "--retry", "--overwrite")
    assert begun() == ["3.tif"] and rows()[0] == {f"{i}.tif": ["done"] for i in range(4)}
    run(*batch, "--no-specks")
    assert begun() == ["0.tif", "1.tif", "2.tif", "3.tif"]
    # All of it moved together is still known.
    os.mkdir("moved")
    for name in "scans", "out":
        os.rename(name, f"moved/{name}")
    run("batch", "moved/scans", "-o", "moved/out", "--no-specks", "--log", "log")
    assert begun() == []


def case_verify():
    for i in range(3):
        small_page(f"scans/{i}.tif", i)
    run("batch", "scans", "-o", "out")
    run("batch", "scans", "-o", "out", "--verify")
    bytes_ = bytearray(pathlib.Path("out/1.tif").read_bytes())
    bytes_[-1] ^= 1
    pathlib.Path("out/1.tif").write_bytes(bytes_)
    assert "out/1.tif: is not what was written" in run("batch", "scans", "-o", "out", "--verify", code=1)
    run("batch", "scans", "-o", "out", code=1)
    assert pathlib.Path("out/1.tif").read_bytes() == bytes_, "somebody's changes are replaced unasked"
    # It is found again, until it is what it was; so are outputs whose inputs are gone.
    os.rename("scans/1.tif", "1.tif")
    run("batch", "scans", "-o", "out", "--verify", code=1)
    bytes_[-1] ^= 1
    pathlib.Path("out/1.tif").write_bytes(bytes_)
    run("batch", "scans", "-o", "out", "--verify")
    assert rows()[0]["1.tif"] == ["done"]
    os.rename("1.tif", "scans/1.tif")
    bytes_[-1] ^= 1
    pathlib.Path("out/1.tif").write_bytes(bytes_)
    run("batch", "scans", "-o", "out", "--verify", code=1)
    run("batch", "scans", "-o", "out", "--retry", code=1)
    assert pathlib.Path("out/1.tif").read_bytes() == bytes_, "neither by --retry"
    run("batch", "scans", "-o", "out", "--retry", "--overwrite")
    run("batch", "scans", "-o", "out", "--verify")


def case_others():
    """Without --overwrite nothing is replaced but what the batch wrote and nobody has touched since."""
    foreign = [f"out/{i}.tif" for i in range(20)] + ["out/m-002.png"]
    batch = ["batch", "scans", "-o", "out"]

    def put():
        for path in foreign:
            pathlib.Path(path).parent.mkdir(exist_ok=True)
            pathlib.Path(path).write_text("somebody's")

    def check(**changes):
        for path in foreign:
            assert pathlib.Path(path).read_text() == "somebody's", (path, changes)

    for i in range(20):
        small_page(f"scans/{i}.tif", i)
    run("apply", LETTER, LETTER, "-o", "m.tif")
    put()
    run(*batch, code=1)
    # As if it had ended before it came to any.
    with sqlite3.connect("out/batch.sqlite") as database:
        database.execute("UPDATE file SET state = 'waiting', error = NULL")
    run(*batch, code=1)
    check()
    shutil.copy("m.tif", "scans")
    for words in ["--format", "png"], ["--format", "png", "--retry"]:
        assert "m-002.png is there already" in run(*batch, "--include", "m.tif", *words, code=1)
        check()
    for path in foreign:
        os.remove(path)
    run(*batch, "--retry")
    # What a run wrote and could not record is known by its bytes; an edited output stays, whatever changes.
    with sqlite3.connect("out/batch.sqlite") as database:
        database.execute("UPDATE file SET state = 'waiting' WHERE input LIKE '%/1.tif'")
        database.execute("DELETE FROM page WHERE file = 2")
        database.execute("DELETE FROM written WHERE file = 2")
    run(*batch)
    put()
    small_page("scans/3.tif", 99)
    run(*batch, "--no-deskew", code=1)
    run(*batch, "--no-deskew", "--retry", code=1)
    check()
    # Names that meet: the other's page stays, and with --overwrite its loss is told.
    shutil.copy("m.tif", small_page("few/a-001.png").parent / "a.tif")
    few = ["batch", "few", "-o", "pages", "--format", "png", "-j", 1]
    assert "a-001.png is there already" in run(*few, code=1) + run(*few, "--retry", code=1)
    run("batch", "few", "-o", "pages", "--format", "png", "--verify")
    told = run(*few, "--retry", "--overwrite", code=1)
    assert "now that of" in told and "1 of 1 files" in told, told
    run("batch", "few", "-o", "pages", "--format", "png", "--verify")
    assert "replaced by that of another" in "".join(row["error"] or "" for row in rows("pages/batch.sqlite")[1])
    # The manifest is no output, and one input in two spellings is one.
    small_page("odd/batch.png").rename("odd/batch.sqlite.png")
    run("batch", "odd", "-o", "odd-out", "--name", "{stem}", "--overwrite", code=2)
    assert "1 of 1 files" in run("batch", "odd", os.path.abspath("odd"), "-o", "odd-out")
    # A file is what its name says, and what is no longer made is counted.
    run("batch", "few/a-001.png", "-o", ".", "--manifest", "few.sqlite", "--name", "{stem}.jpg")
    assert pathlib.Path("a-001.jpg").read_bytes().startswith(b"\xff\xd8")
    run("batch", "few/a-001.png", "-o", ".", "--manifest", "few.sqlite")
    assert "; 1 outputs are left" in run("batch", "few/a-001.png", "-o", ".", "--manifest", "few.sqlite", "--no-specks")
    # Of an input that fails now nothing is.
    left = """SELECT path FROM written WHERE path NOT IN (SELECT output FROM page WHERE output IS NOT NULL)
              AND file IN (SELECT id FROM file WHERE state = 'done')"""
    for count in 1, 0:
        with sqlite3.connect("few.sqlite") as database:
            assert len(database.execute(left).fetchall()) == count
        pathlib.Path("few/a-001.png").write_text("spoilt")
        run("batch", "few/a-001.png", "-o", ".", "--manifest", "few.sqlite", "--no-specks", code=1)
    run("apply", LETTER, LETTER, "-o", "left/m.tif", "--parents")
    m_left = ["batch", "left", "-o", "left-out", "--format", "png"]
    run(*m_left)
    damaged = bytearray(pathlib.Path("left/m.tif").read_bytes())
    pathlib.Path("left/m.tif").write_bytes(damaged[:len(damaged) * 3 // 4])
    assert "are left" not in run(*m_left, code=1)


def case_reading():
    """Reading a manifest writes nothing, and what is no manifest is refused unchanged."""
    small_page("scans/0.tif")
    run("batch", "scans", "-o", "out")

    def listing():
        return {path: path.read_bytes() for path in pathlib.Path(".").rglob("*") if path.is_file()}

    with sqlite3.connect("other.db") as database:
        database.execute("CREATE TABLE page (x)")
    pathlib.Path("text.db").write_text("somebody's text, which is long enough for a header of SQLite: " * 9)
    pathlib.Path("web").mkdir()
    pathlib.Path("web/index.html").write_text("somebody's")
    before = listing()
    assert "0 of 1 files to do" in run("batch", "scans", "-o", "out", "--dry-run")
    for words in (["report", "other.db", "-o", "report"], ["report", "text.db", "-o", "report"],
                  ["batch", "scans", "-o", "out", "--manifest", "other.db"], ["batch", "scans", "-o", "out", "--manifest", "text.db"],
                  ["report", "out/batch.sqlite", "-o", "web"]):
        run(*words, code=2)
    assert listing() == before, set(listing()) ^ set(before)
    run("report", "out/batch.sqlite", "-o", "report", "--no-pictures")
    run("report", "out/batch.sqlite", "-o", "report", "--no-pictures")
    assert {path: bytes_ for path, bytes_ in listing().items() if path.parts[0] != "report"} == before


def start(*words):
    return subprocess.Popen([RASTREL, "batch", "scans", "-o", "out", *map(str, words)], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def wait_for_begin(name):
    for _ in range(3000):
        if os.path.exists("log") and any(os.path.basename(line.get("input", "")) == name for line in log()):
            return
        time.sleep(0.01)
    raise AssertionError(f"{name} is never begun")


def workers_of(process):
    return list(map(int, pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text().split()))


def case_death():
    """A worker that dies takes its page with it and nothing else; an interruption lets pages end."""
    for name in "0.tif", "2.tif":
        small_page(f"scans/{name}")
    run("apply", SAMPLES / "report-grey.png", "-o", "scans/1.tif", "scale:percent=400")  # takes a while
    process = start("-j", 1, "--log", "log")
    wait_for_begin("1.tif")
    time.sleep(0.05)
    os.kill(workers_of(process)[0], signal.SIGKILL)  # as a fault does; a sanitizer would catch that one
    assert process.wait() == 1
    states, found = rows()
    assert states == {"0.tif": ["done"], "1.tif": ["failed"], "2.tif": ["done"]}, states
    assert "signal 9" in found[1]["error"]
    os.remove("log")
    process = start("-j", 1, "--retry", "--log", "log")
    wait_for_begin("1.tif")
    time.sleep(0.05)
    busy = subprocess.run([RASTREL, "batch", "scans", "-o", "out"], capture_output=True, text=True)
    assert busy.returncode == 2 and "another batch" in busy.stderr, busy
    process.send_signal(signal.SIGTERM)  # SIGINT is ignored in background jobs
    assert process.wait() == 130 and rows()[0]["1.tif"] == ["done"]
    # With room for few workers, those do it.
    few_files = lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (14, 14))
    run("batch", "scans", "-o", "out", "-j", 12, "--no-specks", preexec_fn=few_files)


def log_size():
    return os.path.getsize("log") if os.path.exists("log") else 0


def case_kills(kills="20", files="60"):
    """Killed at any moment, a batch loses and repeats the pages in flight at most, and no output is half written."""
    kills, files, workers = int(kills), int(files), 2
    for i in range(files):
        small_page(f"scans/{i}.tif", i)
    run("batch", "scans", "-o", "expected", "--no-fsync")
    expected = {f"{i}.tif": pathlib.Path(f"expected/{i}.tif").read_bytes() for i in range(files)}
    chance, cleans, killed = random.Random(1), 0, 0
    while killed < kills:
        logged = log_size()
        process = start("-j", workers, "--log", "log")
        while chance.random() < 0.99 and process.poll() is None and log_size() < logged + 200:
            time.sleep(0.002)  # mostly until pages are begun, also where the machine is slow
        try:
            process.wait(timeout=chance.uniform(0, 0.3))
            shutil.rmtree("out")  # finished: from the beginning
            cleans += 1
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            killed += 1
        if os.path.exists("out/batch.sqlite"):
            check_whole(expected)
    run("batch", "scans", "-o", "out", "--log", "log")
    states, _ = check_whole(expected)
    assert list(states.values()) == [["done"]] * files
    repeated = sum(line["event"] == "begin" for line in log()) - files * (cleans + 1)
    # A worker has its next page before the row of its last one is written.
    assert 0 <= repeated <= kills * workers * 2, (repeated, kills)
    leftovers = [name for name in os.listdir("out") if name.endswith(".part")]
    assert not leftovers, leftovers
    print(f"{kills} killed, {cleans} came to their end, {repeated} pages repeated")


def check_whole(expected):
    for path in pathlib.Path("out").glob("*.tif"):
        assert path.read_bytes() == expected[path.name], path
    try:
        states, found = rows()
    except sqlite3.OperationalError:  # ended before its tables were made
        return {}, []
    for row in found:
        assert row["state"] != "done" or os.path.exists(os.path.join("out", row["output"])), row
    return states, found


def site_rows():
    text = "".join(path.read_text() for path in pathlib.Path("report/data").glob("rows-*.js"))
    found = [json.loads(line.rstrip(",")) for line in text.splitlines() if line.startswith("[")]
    return {os.path.basename(row[0]): {"state": row[4], "score": row[5], "reasons": row[6], "ink": row[14]} for row in found}


def case_report():
    """Of 100 pages the five that something is wrong with need most attention."""
    for kind in range(5):
        run("apply", LETTER, "-o", f"{kind}.tif", f"crop:{180 + 3 * kind},{150 + 2 * kind},900,1100")
    os.mkdir("scans")
    for i in range(100):
        shutil.copy(f"{i % 5}.tif", f"scans/page{i}.tif")
    plant = {
        "page11.tif": lambda path: path.write_bytes(path.read_bytes()[:2000]),
        "page30.tif": lambda path: run("apply", "0.tif", "-o", path, "--overwrite", "rotate:9"),
        "page31.tif": lambda path: run("apply", LETTER, "-o", path, "--overwrite", "crop:700,1100,300,300"),  # bare paper
        "page77.tif": lambda path: run("apply", "0.tif", "-o", path, "--overwrite", "scale:percent=60"),
        "page99.tif": lambda path: run("apply", LETTER, "-o", path, "--overwrite", "crop:0,0,900,1100"),  # borders, holes
    }
    for name, spoil in plant.items():
        spoil(pathlib.Path("scans", name))
    run("batch", "scans", "-o", "out", "--no-fsync", code=1)
    run("report", "out/batch.sqlite", "-o", "report")
    found = first = site_rows()
    ranked = sorted(found, key=lambda name: -found[name]["score"])
    assert set(ranked[:5]) == set(plant), [(name, found[name]) for name in ranked[:8]]
    assert found["page11.tif"] == {"state": "failed", "score": 100, "reasons": ["failed"], "ink": None}
    assert found["page31.tif"]["ink"] < 0.01 < 0.03 < found["page0.tif"]["ink"] < 0.2, found["page0.tif"]
    pictures = {path.name: path.stat().st_mtime_ns for path in pathlib.Path("report/img").rglob("*.jpg")}
    assert len(pictures) == 99 * 3, len(pictures)
    # Made again, only what is new is drawn.
    run("batch", "scans/page0.tif", "-o", "out", "--no-fsync", "--no-specks")
    run("report", "out/batch.sqlite", "-o", "report")
    again = {path.name: path.stat().st_mtime_ns for path in pathlib.Path("report/img").rglob("*.jpg")}
    assert all(again[name] == time for name, time in pictures.items()) and len(again) - len(pictures) in (0, 3)
    changed = [name for name, row in site_rows().items() if row["ink"] != first[name]["ink"]]
    assert not set(changed) - {"page0.tif"}, changed  # measured again, in the pictures that are there
    # Another page by an old name and with an old time is another picture; records are data, whoever wrote them.
    shutil.copy("scans/page99.tif", "scans/page5.tif")
    os.utime("scans/page5.tif", (1, 1))
    run("batch", "scans/page5.tif", "-o", "out", "--no-fsync")
    with sqlite3.connect("out/batch.sqlite") as database:
        for name, record in ("page6", "0});alert(1);({"), ("page7", '{"skew":[],"steps":[7],"regions":{"a":1}}'):
            database.execute("UPDATE page SET record = ? WHERE output = ?", (record, name + ".tif"))
        database.execute("UPDATE file SET state = 'waiting' WHERE id % 3 > 0")
        database.execute("DELETE FROM page WHERE file % 3 > 0")
    run("report", "out/batch.sqlite", "-o", "report")
    assert len(list(pathlib.Path("report/img").rglob("*.jpg"))) > len(again)
    assert not any("alert" in path.read_text() for path in pathlib.Path("report/data").iterdir())
    lonely = [row for row in site_rows().values() if row["state"] == "done" and "another width" in " ".join(row["reasons"])]
    assert len(lonely) <= 5, lonely  # those that are, and without records
    run("report", "nothing.sqlite", "-o", "report", code=2)


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    globals()["case_" + sys.argv[3]](*sys.argv[4:])
