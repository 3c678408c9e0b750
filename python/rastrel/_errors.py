"""Exceptions, by the library's codes."""

from __future__ import annotations

from typing import Any, Optional


class Error(Exception):
    """What every error of this package is.

    Attributes
    ----------
    code : int
        the library's code, as `PagesErrorCode` in rastrel_pages.h and the codes of rastrel.h have it
    file : str or None
        the file that it is about
    reason : str
        the same without the file's name
    """

    def __init__(self, reason: str, code: int = 8, file: Optional[str] = None) -> None:
        super().__init__(f"{file} {reason}" if file else reason)
        self.code = code
        self.file = file
        self.reason = reason

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.reason, self.code, self.file)


class ArgumentError(Error, ValueError):
    """A value that cannot be: an empty image, a closed file, a number out of range."""


class ImageTypeError(Error, TypeError):
    """Something that is not taken for an image. The text says how to convert it."""


class OptionError(ArgumentError):
    """An option that is unknown, out of range, or does not go with another."""


class PageRefused(ArgumentError):
    """The operation cannot work on this page: another depth, size or resolution is wanted."""


class TooLarge(ArgumentError):
    """More than a page or the format can hold."""


class NoMemory(Error, MemoryError):
    """No memory for the result."""


class FileError(Error, OSError):
    """A file that cannot be opened, read or written."""


class DamagedFile(FileError):
    """A file that ends early or contradicts itself."""


class UnsupportedFile(FileError):
    """No file of a known format, or one in a form that is not read or written."""


class FileInTheWay(FileError):
    """There is something by that name that is not replaced."""


class Cancelled(Error):
    """The progress callback wanted an end."""


class InternalError(Error):
    """A fault of the library."""


_CLASSES = {
    1: NoMemory,
    3: FileError,
    4: FileError,
    8: ArgumentError,
    9: UnsupportedFile,
    33: Cancelled,
    34: DamagedFile,
    35: TooLarge,
    36: UnsupportedFile,
    37: OptionError,
    38: PageRefused,
    39: FileInTheWay,
    40: InternalError,
}


def make_error(code: int, reason: str) -> Error:
    return _CLASSES.get(code, Error)(reason, code)
