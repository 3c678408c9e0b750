"""Cleaning folders of scans on many machines, by Dask: `pip install rastrel[distributed]`.

>>> from distributed import Client
>>> from rastrel.distributed import clean_many
>>> report = clean_many("s3://bucket/scans/**/*.tif", "s3://bucket/cleaned/", Client("tcp://scheduler:8786"))

Each worker runs the command `rastrel clean` on one file after the other, so that pages are those of the command to
the byte, and a file that brings it down costs neither worker nor run. docs/many-machines.md tells more.

Beside the pages there is a folder `_rastrel`:

    manifest.parquet                 a row for each page, of the last time that it was done
    records/<run>/<piece>.parquet    what the manifest is made of, and each page's whole record, written as a
                                     piece of work ends
    temporary/<run>/...              outputs that are not yet under their names; removed at the end
"""

from __future__ import annotations

import hashlib
import json
import os
import posixpath
import queue
import re
import subprocess
import tempfile
import time
import uuid
from collections import deque
from dataclasses import dataclass, replace
from typing import Any, Callable, Iterable, Iterator, Mapping, NamedTuple, Optional, Sequence

import distributed  # type: ignore[import-not-found, import-untyped, unused-ignore]
import fsspec  # type: ignore[import-not-found, import-untyped, unused-ignore]
import pyarrow as pa  # type: ignore[import-not-found, import-untyped, unused-ignore]
import pyarrow.parquet as parquet  # type: ignore[import-not-found, import-untyped, unused-ignore]

from . import __version__
from .__main__ import command
from ._errors import ArgumentError, OptionError

__all__ = ["Failure", "Report", "clean_many"]

_OWN_FOLDER = "_rastrel"
# Pieces are large enough that a scheduler has little to do, and small enough that a lost one is soon repeated.
_PIECE_BYTES = 32 << 20
_PIECE_FILES = 256
# How often the workers are looked after while nothing ends.
_SECONDS_BETWEEN_LOOKS = 0.5
# For each thread of the workers: enough that none waits, few enough that a scheduler keeps none of them long.
_PIECES_AHEAD = 4

_SCHEMA = pa.schema(
    [
        ("source", pa.string()),
        ("page", pa.int32()),
        ("pages", pa.int32()),
        ("state", pa.string()),  # "done" or "failed"
        ("error", pa.string()),
        ("source_size", pa.int64()),
        ("source_mark", pa.string()),  # what the file system tells a file's versions apart by
        ("source_sha256", pa.string()),
        ("target", pa.string()),
        ("target_size", pa.int64()),
        ("target_sha256", pa.string()),
        ("run", pa.string()),  # its time and a random part
        ("work", pa.string()),  # the hash of the options and the version
        ("version", pa.string()),
        ("worker", pa.string()),
        ("attempt", pa.int32()),
        ("finished", pa.float64()),  # seconds since 1970
        ("seconds", pa.float64()),  # of the whole file
        ("width", pa.int32()),
        ("height", pa.int32()),
        ("bits", pa.int32()),
        ("dpi", pa.float64()),
        ("skew", pa.float64()),
        ("skew_confidence", pa.float64()),
        ("is_blank", pa.bool_()),
        ("is_turned", pa.bool_()),
        ("holes", pa.int32()),
        ("specks", pa.int64()),
        ("trimmed_pixels", pa.int64()),
        # Not in the manifest:
        ("is_new", pa.bool_()),  # cleaned, and not only found to be done
        ("record", pa.string()),  # all of it, as `rastrel clean --json` tells it
    ]
)
_OF_MANIFEST = [name for name in _SCHEMA.names if name not in ("is_new", "record")]
_OF_RECORD = {
    "page": "page",
    "pages": "pages",
    "width": "width",
    "height": "height",
    "bits": "bits",
    "skew": "skew",
    "skewConfidence": "skew_confidence",
    "blank": "is_blank",
    "turned": "is_turned",
    "holes": "holes",
    "specks": "specks",
    "trimmedPixels": "trimmed_pixels",
}

Row = dict[str, Any]
_dask: Any = distributed  # parts of which have no types


class Failure(NamedTuple):
    """A file that is not done."""

    source: str
    error: str


@dataclass(frozen=True)
class Report:
    """What came of a run.

    Attributes
    ----------
    files
        how many there are
    cleaned, skipped
        how many were cleaned, and for how many there was nothing to do, as they had been before
    failures
        those that are not done, with the reason
    seconds
        how long it took
    manifest
        where the table of all pages is: Parquet, a row a page
    """

    files: int
    cleaned: int
    skipped: int
    failures: tuple[Failure, ...]
    seconds: float
    manifest: str


@dataclass(frozen=True)
class Known:
    """What an earlier run says of a file."""

    mark: str
    sha256: str
    work: str
    rows: tuple[Row, ...]

    def is_whole(self, sizes: Mapping[str, int]) -> bool:
        """Whether all of its outputs are there, of the sizes that they had."""
        return all(row["target"] is None or sizes.get(row["target"]) == row["target_size"] for row in self.rows)


@dataclass(frozen=True)
class Scan:
    """A file to clean; its name is that below the sources."""

    name: str
    size: int
    mark: str
    known: Optional[Known] = None


@dataclass(frozen=True)
class Place:
    """A folder of some file system."""

    url: str
    options: Mapping[str, Any]

    def open(self) -> tuple[Any, str]:
        """The file system, and the folder's path in it."""
        # What is listed is changed by others meanwhile.
        system, path = fsspec.url_to_fs(self.url, use_listings_cache=False, **self.options)
        return system, str(path).rstrip("/")


@dataclass(frozen=True)
class Job:
    """What all pieces of a run have in common."""

    source: Place
    target: Place
    run: str
    words: tuple[str, ...]
    work: str
    timeout: float


# ---- on a worker -----------------------------------------------------------------------------------------------------


def clean_piece(job: Job, name: str, scans: Sequence[Scan], attempt: int) -> None:
    """Cleans some files and records that, under the piece's name. Can be done again and again."""
    source, source_root = job.source.open()
    target, target_root = job.target.open()
    rows: list[Row] = []
    with tempfile.TemporaryDirectory(dir=_local_folder()) as folder:
        for scan in scans:
            try:
                made, is_new = _clean_file(job, scan, source, source_root, target, target_root, folder)
            except Exception as problem:  # whatever it is, the other files are still to be cleaned
                made, is_new = [_row_of(scan, job, error=f"{type(problem).__name__}: {problem}")], True
            rows += [{**row, "attempt": attempt, "worker": _worker_name(), "is_new": is_new} for row in made]
    _write_records(job, name, target, target_root, rows)


def _clean_file(
    job: Job, scan: Scan, source: Any, source_root: str, target: Any, target_root: str, folder: str
) -> tuple[list[Row], bool]:
    """The rows of a file's pages, and whether it was cleaned now."""
    start = time.time()
    with tempfile.TemporaryDirectory(dir=folder) as own:
        local, out = os.path.join(own, posixpath.basename(scan.name)), os.path.join(own, "out", "")
        source.get_file(f"{source_root}/{scan.name}", local)
        sha256 = _sha256(local)
        known = scan.known
        if known is not None and known.sha256 == sha256 and known.work == job.work:
            names = {row["target"] for row in known.rows} - {None}
            sizes = {name: _size(target, f"{target_root}/{name}") for name in names}
            if known.is_whole(sizes):
                again = {"source_mark": scan.mark, "run": job.run, "finished": time.time()}
                return [{**row, **again} for row in known.rows], False
        words = [command(), "clean", local, "-o", out, "--json", "--jobs", "1", "--no-fsync", *job.words]
        done = subprocess.run(words, capture_output=True, timeout=job.timeout, stdin=subprocess.DEVNULL)
        records = [json.loads(line) for line in done.stdout.decode("utf-8", "replace").splitlines()]
        if done.returncode != 0 and not any("error" in record for record in records):
            raise RuntimeError(_last_words(done))
        published = {
            made: _publish(job, target, target_root, os.path.join(out, made), _beside(scan.name, made))
            for made in (sorted(os.listdir(out)) if os.path.isdir(out) else [])
        }
        common: Row = {"source_sha256": sha256, "seconds": time.time() - start}
        return [_row_of(scan, job, record, published, **common) for record in records], True


def _row_of(
    scan: Scan,
    job: Job,
    record: Optional[Mapping[str, Any]] = None,
    published: Optional[Mapping[str, Row]] = None,
    error: Optional[str] = None,
    **more: Any,
) -> Row:
    record = record or {}
    row: Row = dict.fromkeys(_SCHEMA.names)
    row.update(source=scan.name, source_size=scan.size, source_mark=scan.mark)
    row.update(run=job.run, work=job.work, version=__version__)
    row.update({column: record.get(name) for name, column in _OF_RECORD.items()})
    row["dpi"] = record["dpi"] if isinstance(record.get("dpi"), (int, float)) else None
    row["error"] = error or record.get("error")
    row["state"] = "failed" if row["error"] else "done"
    row["finished"] = time.time()
    row["record"] = json.dumps(record)
    row.update(more)
    if published and not row["error"] and record.get("output"):
        row.update(published[os.path.basename(record["output"])])
    return row


def _publish(job: Job, target: Any, root: str, local: str, name: str) -> Row:
    """Puts a file under its name, where it appears as a whole."""
    temporary = f"{root}/{_OWN_FOLDER}/temporary/{job.run}/{uuid.uuid4().hex}"
    final = f"{root}/{name}"
    for path in temporary, final:
        target.makedirs(posixpath.dirname(path), exist_ok=True)
    target.put_file(local, temporary)
    target.mv(temporary, final)
    return {"target": name, "target_size": os.path.getsize(local), "target_sha256": _sha256(local)}


def _write_records(job: Job, name: str, target: Any, root: str, rows: Sequence[Row]) -> None:
    with tempfile.TemporaryDirectory(dir=_local_folder()) as folder:
        local = os.path.join(folder, "records.parquet")
        parquet.write_table(pa.Table.from_pylist(list(rows), schema=_SCHEMA), local)
        _publish(job, target, root, local, f"{_OWN_FOLDER}/records/{job.run}/{name}.parquet")


def _beside(name: str, other: str) -> str:
    return posixpath.join(posixpath.dirname(name), other)


def _sha256(path: str) -> str:
    sha256 = hashlib.sha256()
    with open(path, "rb") as file:
        for block in iter(lambda: file.read(1 << 20), b""):
            sha256.update(block)
    return sha256.hexdigest()


def _size(system: Any, path: str) -> int:
    try:
        return int(system.info(path)["size"])
    except FileNotFoundError:
        return -1


def _last_words(done: subprocess.CompletedProcess[bytes]) -> str:
    words = done.stderr.decode("utf-8", "replace").strip().splitlines()
    how = f"signal {-done.returncode}" if done.returncode < 0 else f"exit code {done.returncode}"
    return f"the command ended with {how}: {words[-1] if words else 'it said nothing'}"


def _local_folder() -> Optional[str]:
    """The worker's own folder, which is removed after it even if it was killed."""
    try:
        return str(distributed.get_worker().local_directory)
    except ValueError:
        return None


def _worker_name() -> str:
    try:
        return str(distributed.get_worker().address)
    except ValueError:
        return "client"


# ---- the plan --------------------------------------------------------------------------------------------------------


def _root_of(pattern: str) -> str:
    """The folder that all matches of a pattern lie in."""
    fixed = re.split(r"[*?\[]", pattern, maxsplit=1)[0]
    return fixed.rsplit("/", 1)[0] if fixed != pattern else pattern.rstrip("/")


def _is_inside(path: str, folder: str) -> bool:
    return path == folder or path.startswith(folder + "/")


def _mark_of(info: Mapping[str, Any]) -> str:
    """Changes when the file does."""
    marks = (info.get(name) for name in ("ETag", "etag", "md5Hash", "mtime", "LastModified", "updated", "created"))
    return f"{info.get('size')} {next((mark for mark in marks if mark is not None), '')}"


def _natural(name: str) -> list[Any]:
    """Page 2 stands before page 10."""
    return [int(part) if i % 2 else part for i, part in enumerate(re.split(r"(\d+)", name))]


def _list_scans(pattern: str, source: Any, root: str, target_url: str, known: Mapping[str, Known]) -> list[Scan]:
    found = source.glob(pattern, detail=True) if pattern != root else source.find(root, detail=True)
    scans = []
    for path, info in found.items():
        if info.get("type") != "file" or _is_inside(source.unstrip_protocol(path), target_url):
            continue
        name = str(path)[len(root) :].lstrip("/")
        scans.append(Scan(name, int(info.get("size") or 0), _mark_of(info), known.get(name)))
    return sorted(scans, key=lambda scan: _natural(scan.name))


def _read_rows(target: Any, root: str) -> tuple[Any, set[str]]:
    """The rows of earlier runs as a table, and these runs."""
    own = f"{root}/{_OWN_FOLDER}"
    tables = [_SCHEMA.empty_table().select(_OF_MANIFEST)]
    gathered: set[str] = set()
    if target.exists(f"{own}/manifest.parquet"):
        tables.append(_read_table(target, f"{own}/manifest.parquet"))
        gathered = set(json.loads(tables[-1].schema.metadata[b"runs"]))
    runs = {path.rstrip("/").split("/")[-1] for path in _names_in(target, f"{own}/records")}
    for run in sorted(runs - gathered):  # which came to no end
        tables += _read_records(target, root, run)
    return _newest(_joined(tables)), runs | gathered


def _read_table(system: Any, path: str) -> Any:
    with system.open(path, "rb") as file:
        return parquet.read_table(file, columns=_OF_MANIFEST)


def _read_records(target: Any, root: str, run: str) -> list[Any]:
    folder = f"{root}/{_OWN_FOLDER}/records/{run}"
    return [_read_table(target, path) for path in (target.find(folder) if target.exists(folder) else [])]


def _joined(tables: Sequence[Any]) -> Any:
    return pa.concat_tables([table.replace_schema_metadata(None) for table in tables])


def _known(rows: Any) -> dict[str, Known]:
    """What is known of the files that are done."""
    known: dict[str, Known] = {}
    failed = set()
    for batch in rows.to_batches(max_chunksize=10_000):
        for row in batch.to_pylist():
            name = row["source"]
            if row["state"] != "done":
                failed.add(name)
            before = known[name].rows if name in known else ()
            known[name] = Known(row["source_mark"], row["source_sha256"], row["work"], (*before, row))
    return {name: file for name, file in known.items() if name not in failed}


def _names_in(system: Any, path: str) -> list[str]:
    return list(system.ls(path, detail=False)) if system.exists(path) else []


def _newest(rows: Any) -> Any:
    """Of each file the rows of the last time that it was done. Within a run done beats failed, as a worker may go on
    with a piece that another one has got since."""
    names = ["source", "page", "run", "state", "finished", "worker", "attempt"]
    columns = [rows.column(name).to_pylist() for name in names]
    best: dict[str, tuple[Any, Any]] = {}
    for source, _, run, state, finished, worker, attempt in zip(*columns):
        rank = (run, state == "done", finished)
        if source not in best or rank > best[source][0]:
            best[source] = rank, (run, worker, attempt)
    chosen = {}
    for i, (source, page, run, _, _, worker, attempt) in enumerate(zip(*columns)):
        if best[source][1] == (run, worker, attempt):
            chosen[source, page or 0] = i
    order = sorted(chosen, key=lambda key: (_natural(key[0]), key[1]))
    return rows.take(pa.array([chosen[key] for key in order], pa.int64()))


def _pieces(scans: Iterable[Scan], most_bytes: int) -> Iterator[list[Scan]]:
    piece: list[Scan] = []
    size = 0
    for scan in scans:
        if piece and (size + scan.size > most_bytes or len(piece) == _PIECE_FILES):
            yield piece
            piece, size = [], 0
        piece.append(scan)
        size += scan.size
    if piece:
        yield piece


def _with_own_names(scans: Iterable[Scan]) -> tuple[list[Scan], list[Failure]]:
    """Those whose outputs get names of their own, and the others."""
    owners: dict[str, str] = {}
    kept, failures = [], []
    for scan in scans:
        owner = owners.setdefault(posixpath.splitext(scan.name)[0], scan.name)
        if owner == scan.name:
            kept.append(scan)
        else:
            failures.append(Failure(scan.name, f"its output would have the name of that of {owner}"))
    return kept, failures


def _check_words(words: Sequence[str]) -> None:
    """Lets the command say what is wrong with its options, before a thousand workers do."""
    with tempfile.TemporaryDirectory() as folder:
        missing, out = os.path.join(folder, "missing.tif"), os.path.join(folder, "out", "")
        tried = subprocess.run([command(), "clean", missing, "-o", out, *words], capture_output=True)
    if tried.returncode != 1:  # which it ends with where only the file is missing
        raise OptionError(tried.stderr.decode("utf-8", "replace").strip())


# ---- the run ---------------------------------------------------------------------------------------------------------


def _new_name() -> str:
    return uuid.uuid4().hex


def _rows_of_piece(system: Any, path: str) -> list[Row]:
    with system.open(path, "rb") as file:
        rows: list[Row] = parquet.read_table(file, columns=["source", "error", "worker", "is_new"]).to_pylist()
    return rows


@dataclass(frozen=True)
class Task:
    """A piece under way, by a name that no other has."""

    name: str
    scans: tuple[Scan, ...]
    attempt: int = 1
    avoided: frozenset[str] = frozenset()  # workers that did not manage it


class _Run:
    """Keeps the workers busy until all pieces are done, or given up."""

    def __init__(self, client: Any, job: Job, attempts: int, tell: Callable[[int], object]) -> None:
        self.client = client
        self.job = job
        self.attempts = attempts
        self.tell = tell
        self.pending: deque[Task] = deque()
        self.running: dict[Any, Task] = {}
        self.ended: queue.Queue[Any] = queue.Queue()
        self.cleaned = self.skipped = 0
        self.failures: list[Failure] = []
        self.lost: list[Row] = []  # what no worker could record
        self.workers: Mapping[str, int] = {}
        self.looked = -_SECONDS_BETWEEN_LOOKS

    def do(self, pieces: Iterable[Sequence[Scan]]) -> None:
        self.pending.extend(Task(_new_name(), tuple(piece)) for piece in pieces)
        try:
            while self.pending or self.running:
                self._submit()
                for future in self._ended():
                    if (task := self.running.pop(future, None)) is not None:
                        self._take(future, task)
                        self.tell(self.cleaned + self.skipped + len(self.failures))
        finally:
            if self.running and self.client.status == "running":
                self.client.cancel(list(self.running), force=True)

    def _submit(self) -> None:
        if not self.pending or self.client.status != "running":
            return
        workers = self._workers()
        most = _PIECES_AHEAD * max(sum(workers.values()), 1)
        while self.pending and len(self.running) < most:
            task = self.pending.popleft()
            others = [worker for worker in workers if worker not in task.avoided] if task.avoided else []
            future = self.client.submit(
                clean_piece,
                self.job,
                task.name,
                task.scans,
                task.attempt,
                key=f"clean_piece-{_new_name()}",
                workers=others or None,
                allow_other_workers=bool(others),
                pure=False,
            )
            self.running[future] = task
            future.add_done_callback(self.ended.put)

    def _workers(self) -> Mapping[str, int]:
        """How many threads each has."""
        if time.monotonic() > self.looked + _SECONDS_BETWEEN_LOOKS:
            try:
                self.workers = dict(self.client.nthreads())
            except OSError:  # the scheduler cannot be reached at the moment
                pass
            self.looked = time.monotonic()
        return self.workers

    def _ended(self) -> list[Any]:
        """Pieces that are done, and those that are lost with a scheduler."""
        try:
            return [self.ended.get(timeout=_SECONDS_BETWEEN_LOOKS)]
        except queue.Empty:
            pass
        if self.client.status not in ("running", "connecting", "newly-created"):
            raise ConnectionError("the scheduler is gone. What is done is recorded: the same call goes on from there")
        return [future for future in self.running if future.status != "pending"]

    def _take(self, future: Any, task: Task) -> None:
        # What came of a piece is read from its records: results that workers hold are lost with them.
        target, root = self.job.target.open()
        try:
            rows = _rows_of_piece(target, f"{root}/{_OWN_FOLDER}/records/{self.job.run}/{task.name}.parquet")
        except FileNotFoundError:
            if future.status == "error":
                self._part(task, future.exception())
            else:  # lost with a scheduler
                self.pending.append(task)
            return
        errors: dict[str, str] = {}
        workers: set[str] = set()
        for row in rows:
            if row["error"] is not None and row["source"] not in errors:
                errors[row["source"]] = row["error"]
                workers.add(row["worker"])
        new = {row["source"] for row in rows if row["is_new"]} - errors.keys()
        self.cleaned += len(new)
        self.skipped += len(task.scans) - len(new) - len(errors)
        again = tuple(scan for scan in task.scans if scan.name in errors)
        if again and task.attempt < self.attempts:
            self.pending.append(Task(_new_name(), again, task.attempt + 1, task.avoided | workers))
        else:
            self.failures += [Failure(*failed) for failed in errors.items()]

    def _part(self, task: Task, error: BaseException) -> None:
        """After a piece that no worker survived, or that could not be recorded, each of its files is tried alone."""
        if len(task.scans) > 1:
            self.pending.extend(replace(task, name=_new_name(), scans=(scan,)) for scan in task.scans)
        elif task.attempt < self.attempts:
            self.pending.append(replace(task, attempt=task.attempt + 1))
        else:
            scan = task.scans[0]
            reason = f"{type(error).__name__}: {error}"
            self.failures.append(Failure(scan.name, reason))
            row = _row_of(scan, self.job, error=reason, attempt=task.attempt, worker=_worker_name())
            self.lost.append(row)


def clean_many(
    source: str,
    target: str,
    client: Optional[Any] = None,
    *,
    options: Sequence[str] = (),
    piece_bytes: int = _PIECE_BYTES,
    attempts: int = 3,
    timeout: float = 600.0,
    storage_options: Optional[Mapping[str, Any]] = None,
    target_options: Optional[Mapping[str, Any]] = None,
    progress: Optional[Callable[[int, int], object]] = None,
) -> Report:
    """Cleans all files that a pattern names, on all workers of a Dask cluster.

    Called again it does what is missing, changed, failed, or was done with other options or by another version.

    Parameters
    ----------
    source : str
        a pattern (``s3://bucket/scans/**/*.tif``) or folder of any file system that fsspec knows
    target : str
        a folder, in which each file gets its name below `source`. Files of that name are replaced
    client : distributed.Client, optional
        a cluster; if not given, the current one, or else one of this machine for the time
    options : sequence of str
        as ``rastrel clean`` takes them: ``["--deskew", "whole", "--reduce", "auto"]``
    piece_bytes : int
        how many bytes of sources a worker gets at a time; what is repeated where a worker is lost
    attempts : int
        how often a file is tried, each time by another worker where there is one
    timeout : float
        seconds after which a file is given up
    storage_options, target_options : mapping, optional
        what fsspec needs for `source`, and for `target` if that is another
    progress : callable, optional
        called with how many files have come to an end, and how many there are

    Returns
    -------
    Report
        whatever fails stands in it; nothing about a single file raises

    Raises
    ------
    OptionError
        the command does not take these options
    ArgumentError
        there is no such file
    ConnectionError
        the scheduler is gone and did not come back
    """
    start = time.time()
    words = tuple(options)
    _check_words(words)
    source_options = dict(storage_options or {})
    place = Place(target, source_options if target_options is None else dict(target_options))
    target_system, target_root = place.open()
    source_system, pattern = Place(source, source_options).open()
    root = _root_of(pattern)
    work = hashlib.sha256(json.dumps([__version__, words]).encode()).hexdigest()
    run = f"{time.strftime('%Y%m%dT%H%M%SZ', time.gmtime())}-{uuid.uuid4().hex[:8]}"
    from_place = Place(source_system.unstrip_protocol(root), source_options)
    job = Job(from_place, place, run, words, work, timeout)

    earlier, runs = _read_rows(target_system, target_root)
    target_url = target_system.unstrip_protocol(target_root)
    scans = _list_scans(pattern, source_system, root, target_url, _known(earlier))
    if not scans:
        raise ArgumentError(f"there is no file {source}")
    scans, failures = _with_own_names(scans)
    sizes = _sizes_below(target_system, target_root)
    to_do = [scan for scan in scans if not _is_done(scan, work, sizes)]
    skipped, total = len(scans) - len(to_do), len(scans) + len(failures)

    def tell(ended: int) -> None:
        if progress is not None:
            progress(skipped + len(failures) + ended, total)

    own_client = None
    if to_do and client is None:
        client = _current_client()
        if client is None:
            client = own_client = _dask.Client()
    try:
        doing = _Run(client, job, attempts, tell)
        doing.do(_pieces(to_do, piece_bytes))
    finally:
        if own_client is not None:
            own_client.close()
    if doing.lost:
        _write_records(job, "lost", target_system, target_root, doing.lost)
    if to_do:
        _write_manifest(job, target_system, target_root, earlier, runs)
    return Report(
        files=total,
        cleaned=doing.cleaned,
        skipped=skipped + doing.skipped,
        failures=tuple(failures + doing.failures),
        seconds=time.time() - start,
        manifest=f"{target.rstrip('/')}/{_OWN_FOLDER}/manifest.parquet",
    )


def _current_client() -> Optional[Any]:
    try:
        return distributed.get_client()
    except ValueError:
        return None


def _sizes_below(system: Any, root: str) -> dict[str, int]:
    if not system.exists(root):
        return {}
    found = system.find(root, detail=True)
    return {str(path)[len(root) :].lstrip("/"): int(info.get("size") or 0) for path, info in found.items()}


def _is_done(scan: Scan, work: str, sizes: Mapping[str, int]) -> bool:
    known = scan.known
    return known is not None and known.mark == scan.mark and known.work == work and known.is_whole(sizes)


def _write_manifest(job: Job, target: Any, root: str, earlier: Any, runs: set[str]) -> None:
    """Gathers this run's records with what was there, and removes what is left of unfinished outputs."""
    rows = _newest(_joined([earlier, *_read_records(target, root, job.run)]))
    rows = rows.replace_schema_metadata({"runs": json.dumps(sorted(runs | {job.run}))})
    with tempfile.TemporaryDirectory() as folder:
        local = os.path.join(folder, "manifest.parquet")
        parquet.write_table(rows, local)
        _publish(job, target, root, local, f"{_OWN_FOLDER}/manifest.parquet")
    temporary = f"{root}/{_OWN_FOLDER}/temporary"
    if target.exists(temporary):
        target.rm(temporary, recursive=True)
