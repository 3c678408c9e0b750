"""Straight, clean, archive-ready pages of scanned ones.

>>> import rastrel
>>> page = rastrel.Page.open("scan.tif")
>>> cleaned = rastrel.clean(page)
>>> cleaned.image.save("clean.tif")

Images are numpy arrays, Pillow images or `rastrel.Page`, and what comes out is of the kind that went in:

- bool (height, width): **True is paper**, False is ink
- uint8 (height, width): grey, 0 is black
- uint8 (height, width, 3): RGB; (height, width, 4): RGBA, over white

`rastrel.as_page` converts other types. Arrays carry no resolution, so `clean` and `examine` ask for `dpi`; the
others take arrays for 300 dots per inch, which `rastrel.Page(array, dpi=...)` changes.

Every error is a `rastrel.Error`. All work lets other threads run, and gives the same bytes in any number of them.
"""

from __future__ import annotations

from . import _core
from ._clean import Cleaned, Skew, clean, examine, is_blank, measure_skew
from ._errors import (
    ArgumentError,
    Cancelled,
    DamagedFile,
    Error,
    FileError,
    FileInTheWay,
    ImageTypeError,
    InternalError,
    NoMemory,
    OptionError,
    PageRefused,
    TooLarge,
    UnsupportedFile,
)
from ._files import Format, PageFile, PageWriter, create, formats, open
from ._images import as_page
from ._operations import *  # noqa: F403
from ._operations import __all__ as _operations
from ._page import Page
from ._records import Hole, Record, Region, Remark, StepTime

__version__ = _core.version
__all__ = [
    "ArgumentError",
    "Cancelled",
    "Cleaned",
    "DamagedFile",
    "Error",
    "FileError",
    "FileInTheWay",
    "Format",
    "Hole",
    "ImageTypeError",
    "InternalError",
    "NoMemory",
    "OptionError",
    "Page",
    "PageFile",
    "PageRefused",
    "PageWriter",
    "Record",
    "Region",
    "Remark",
    "Skew",
    "StepTime",
    "TooLarge",
    "UnsupportedFile",
    "as_page",
    "clean",
    "create",
    "examine",
    "formats",
    "is_blank",
    "measure_skew",
    "open",
]
__all__ += _operations
