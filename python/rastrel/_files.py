"""Files of pages, read and written."""

from __future__ import annotations

import json
import operator
import os
from collections.abc import Sequence
from types import TracebackType
from typing import IO, Any, NamedTuple, Optional, Union, overload

from . import _core
from ._errors import ArgumentError, Error
from ._images import Resolution, take
from ._page import Page

Path = Union[str, "os.PathLike[str]"]
Readable = Union[Path, bytes, bytearray, memoryview, IO[bytes]]
Writable = Union[Path, IO[bytes]]


class Format(NamedTuple):
    """A file format."""

    name: str
    title: str
    extensions: list[str]
    is_read: bool
    is_written: bool
    has_many_pages: bool
    options: list[dict[str, Any]]


def formats() -> list[Format]:
    """The file formats that are known, with the options that writing has."""
    return [
        Format(
            entry["name"],
            entry["title"],
            entry["extensions"].split(","),
            entry["reads"],
            entry["writes"],
            entry["manyPages"],
            entry["options"],
        )
        for entry in json.loads(_core.formats_json())
    ]


def _path(path: Path) -> bytes:
    name = os.fsencode(path)
    if b"\0" in name:
        raise ArgumentError("a file's name has no null byte in it")
    return name


class PageFile(Sequence[Page]):
    """A file's pages, each read when it is asked for. Made by `rastrel.open`.

    A file by name is not kept open: it is opened again for each page. Several threads may read at once.
    """

    def __init__(self, source: _core.Source, name: Optional[str]) -> None:
        self._source = source
        self._name = name

    def __len__(self) -> int:
        return self._source.count()

    @overload
    def __getitem__(self, index: int) -> Page: ...
    @overload
    def __getitem__(self, index: slice) -> list[Page]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[Page, list[Page]]:
        """Reads a page, upright whatever its orientation in the file; a slice gives a list of them."""
        count = len(self)
        if isinstance(index, slice):
            return [self[i] for i in range(*index.indices(count))]
        place = operator.index(index)
        place += count if place < 0 else 0
        if not 0 <= place < count:
            raise IndexError(f"{self._name or 'the file'} has {count} pages")
        try:
            return Page._of(*self._source.read(place))
        except Error as error:
            raise _named(error, self._name) from None

    @property
    def format(self) -> str:
        """The format's name, as `rastrel.formats` has it."""
        return self._source.format()

    @property
    def damage(self) -> Optional[str]:
        """Why there may be more pages than can be found; None for a whole file."""
        return self._source.damage()

    def close(self) -> None:
        """Gives the file up. Pages that were read stay."""
        self._source.close()

    def __enter__(self) -> PageFile:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class PageWriter:
    """A file that pages are appended to. Made by `rastrel.create`, and used in a `with` statement: at its end
    the file is finished, after an exception it is given up and nothing of it stays."""

    def __init__(self, target: _core.Target, name: Optional[str], stream: Optional[IO[bytes]]) -> None:
        self._target = target
        self._name = name
        self._stream = stream
        self._is_closed = False

    def append(self, image: Any, dpi: Resolution = 300.0) -> None:
        """Adds a page: an array, a Pillow image or a `Page`. `dpi` is for images without a resolution."""
        taken = take(image, dpi)
        try:
            self._target.append(taken.page, taken.metadata)
        except Error as error:
            raise _named(error, self._name) from None

    def close(self) -> None:
        """Finishes the file, which appears under its name only now. A file without pages is an error. Does
        nothing once the file was closed or given up."""
        if self._is_closed:
            return
        self._is_closed = True
        try:
            if self._stream is None:
                self._target.finish()
            else:
                self._stream.write(self._target.finish_in_memory())
        except Error as error:
            raise _named(error, self._name) from None

    def abandon(self) -> None:
        """Gives the file up. What stood under its name stays."""
        self._is_closed = True
        self._target.abandon()

    def __enter__(self) -> PageWriter:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        if kind is None:
            self.close()
        else:
            self.abandon()


def _named(error: Error, name: Optional[str]) -> Error:
    return type(error)(error.reason, error.code, name)


def open(source: Readable) -> PageFile:
    """Opens a file of pages.

    Parameters
    ----------
    source : str, path, bytes or file object
        The format is told by the bytes, not by the name. A file object is read to its end.

    Returns
    -------
    PageFile
        a sequence of `Page`, each read when it is asked for

    Raises
    ------
    FileError
        or a subclass: `UnsupportedFile`, `DamagedFile`; it has the file's name as `file`

    >>> with rastrel.open("book.tif") as book:
    ...     for page in book:
    ...         print(rastrel.measure_skew(page))
    """
    if isinstance(source, (str, os.PathLike)):
        name = os.fspath(source)
        try:
            return PageFile(_core.open_file(_path(source)), name)
        except Error as error:
            raise _named(error, name) from None
    data: Any = source
    if hasattr(source, "read"):
        data = source.read()
    if not isinstance(data, (bytes, bytearray, memoryview)):
        raise ArgumentError(
            f"pages are read from a path, bytes or a file object of bytes, not {type(data).__name__}"
        )
    return PageFile(_core.open_bytes(bytes(data)), None)


def create(target: Writable, format: Optional[str] = None, **options: Any) -> PageWriter:
    """Begins a file of pages.

    Parameters
    ----------
    target : str, path or file object
        A path's file appears when it is finished, and replaces what stands there then. To a file object all
        is written at the end.
    format : str, optional
        a name of `rastrel.formats()`; if not given, the path's ending tells it
    **options
        of the format, such as ``quality=80``

    Returns
    -------
    PageWriter

    >>> with rastrel.create("clean.tif") as file:
    ...     for page in rastrel.open("scan.tif"):
    ...         file.append(rastrel.clean(page).image)
    """
    words = ",".join(f"{name.replace('_', '-')}={_word(value)}" for name, value in options.items())
    if isinstance(target, (str, os.PathLike)):
        name = os.fspath(target)
        try:
            return PageWriter(_core.create_file(_path(target), format, words), name, None)
        except Error as error:
            raise _named(error, name) from None
    if not hasattr(target, "write"):
        raise ArgumentError(
            f"pages are written to a path or a file object, not {type(target).__name__}"
        )
    if format is None:
        raise ArgumentError("a file object has no ending that tells the format; format='tif' does")
    return PageWriter(_core.create_in_memory(format, words), None, target)


def _word(value: Any) -> str:
    text = ("yes" if value else "no") if isinstance(value, bool) else str(value)
    if "," in text:
        raise ArgumentError(f"an option's value has no comma in it: {text!r}")
    return text
