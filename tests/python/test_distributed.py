"""Cleaning on a cluster whose workers and scheduler are killed, from and to an S3 server on loopback."""

import io
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys

import pytest

import rastrel
from rastrel.__main__ import command

distributed = pytest.importorskip("distributed")
moto = pytest.importorskip("moto.server")
fsspec = pytest.importorskip("fsspec")
parquet = pytest.importorskip("pyarrow.parquet")
from rastrel.distributed import clean_many  # noqa: E402

SAMPLES = pathlib.Path(__file__).parents[2] / "samples"
# By which the command's own pages are made, too.
OPTIONS = ["--deskew", "whole", "--speck-level", "40"]


@pytest.fixture
def bucket(monkeypatch):
    """A bucket, and how fsspec gets to it."""
    for name in "AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY":
        monkeypatch.setenv(name, "testing")
    server = moto.ThreadedMotoServer(ip_address="127.0.0.1", port=0)
    server.start()
    host, port = server.get_host_and_port()
    options = {"endpoint_url": f"http://{host}:{port}", "key": "testing", "secret": "testing"}
    # What the workers write must be seen.
    files = fsspec.filesystem("s3", use_listings_cache=False, **options)
    files.mkdir("bucket")
    yield files, options
    server.stop()


def put_scans(files, folder, count):
    """Pieces of the samples, in folders, and one damaged file."""
    page = rastrel.Page.open(SAMPLES / "letter-1bit.tif")
    for i in range(count):
        name = f"{folder}/box {i % 3}/page{i}.tif"
        files.pipe_file(name, rastrel.crop(page, 10 * i, 20 * i, width=500, height=400).to_bytes("tif"))
    book = io.BytesIO()
    with rastrel.create(book, "tif") as file:
        for i in range(3):
            file.append(rastrel.crop(page, 100, 200 * i, width=500, height=300))
    files.pipe_file(f"{folder}/book.tif", book.getvalue())
    files.pipe_file(f"{folder}/damaged.tif", files.cat_file(f"{folder}/box 0/page0.tif")[:300])


def expected_files(files, folder, tmp_path):
    """What the command makes of the same files, one after the other."""
    expected = {}
    for name in files.find(folder):
        scan, out = tmp_path / os.path.basename(name), tmp_path / "out"
        shutil.rmtree(out, ignore_errors=True)
        scan.write_bytes(files.cat_file(name))
        words = [command(), "clean", scan, "-o", f"{out}/", *OPTIONS]
        if subprocess.run(words, capture_output=True).returncode == 0:
            expected[name[len(folder) :]] = (out / scan.name).read_bytes()
    return expected


def assert_all_is_done_once(files, folder, target, report, tmp_path):
    made = {name[len(target) :]: name for name in files.find(target) if "/_rastrel/" not in name}
    expected = expected_files(files, folder, tmp_path)
    assert {name: files.cat_file(path) for name, path in made.items()} == expected and len(expected) > 10
    assert [failure.source for failure in report.failures] == ["damaged.tif"]
    assert not files.exists(f"{target}/_rastrel/temporary")
    with files.open(f"{target}/_rastrel/manifest.parquet") as file:
        rows = parquet.read_table(file).to_pylist()
    assert len({(row["source"], row["page"]) for row in rows}) == len(rows) == len(expected) + 3
    assert {"/" + row["target"] for row in rows if row["state"] == "done"} == set(expected)
    assert [row["page"] for row in rows if row["source"] == "book.tif"] == [1, 2, 3]


def test_workers_that_are_killed_cost_their_piece_alone(bucket, tmp_path):
    files, options = bucket
    put_scans(files, "bucket/scans", 12)
    with distributed.LocalCluster(n_workers=4, threads_per_worker=1, dashboard_address=None) as cluster:
        with distributed.Client(cluster) as client:
            victims = list(client.run(os.getpid).values())[:2]

            def kill(ended, total):
                assert ended <= total == 14
                if ended >= 4 and victims:
                    os.kill(victims.pop(), signal.SIGKILL)

            def clean(**more):
                source, target = "s3://bucket/scans/**/*.tif", "s3://bucket/cleaned/"
                return clean_many(
                    source, target, client, options=OPTIONS, storage_options=options, piece_bytes=5_000, **more
                )

            first = clean(progress=kill)
            assert not victims and (first.files, first.cleaned, first.skipped) == (14, 13, 0)
            assert_all_is_done_once(files, "bucket/scans", "bucket/cleaned", first, tmp_path)

            # What is missing or changed is done again; what only looks changed is seen to be the same.
            files.rm("bucket/cleaned/book.tif")
            files.cp_file("bucket/scans/box 1/page1.tif", "bucket/scans/box 1/page4.tif")
            files.pipe_file("bucket/scans/box 2/page2.tif", files.cat_file("bucket/scans/box 2/page2.tif"))
            again = clean()
            assert (again.cleaned, again.skipped, len(again.failures)) == (2, 11, 1)
            assert_all_is_done_once(files, "bucket/scans", "bucket/cleaned", again, tmp_path)


def free_port():
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        return server.getsockname()[1]


class Machines:
    """A scheduler and its workers as programs, as on machines of their own."""

    def __init__(self, folder):
        self.address = f"127.0.0.1:{free_port()}"
        self.folder = folder
        self.programs = []

    def start(self):
        host, port = self.address.split(":")
        self.run("scheduler", "--host", host, "--port", port, "--no-dashboard")
        self.run("worker", self.address, "--nworkers", "2", "--nthreads", "1", "--no-dashboard")

    def run(self, *words):
        words = [sys.executable, "-m", "dask", *words]
        program = subprocess.Popen(words, cwd=self.folder, stderr=subprocess.DEVNULL, start_new_session=True)
        self.programs.append(program)

    def kill(self):
        while self.programs:
            program = self.programs.pop()
            os.killpg(program.pid, signal.SIGKILL)
            program.wait()


def test_a_run_survives_its_scheduler(tmp_path):
    files = fsspec.filesystem("file")
    scans, cleaned = f"{tmp_path}/scans", f"{tmp_path}/cleaned"
    for folder in range(3):
        os.makedirs(f"{scans}/box {folder}")
    put_scans(files, scans, 10)
    machines = Machines(tmp_path)
    restarts = [machines.kill, machines.start]

    def restart(ended, total):
        while ended >= 3 and restarts:
            restarts.pop(0)()

    machines.start()
    try:
        with distributed.Client(machines.address, timeout=60) as client:
            report = clean_many(scans, cleaned, client, options=OPTIONS, piece_bytes=5_000, progress=restart)
    finally:
        machines.kill()
    assert not restarts and (report.cleaned, report.files) == (11, 12)
    os.mkdir(tmp_path / "command")
    assert_all_is_done_once(files, scans, cleaned, report, tmp_path / "command")
