"""Cleaning, and what is measured of pages."""

from __future__ import annotations

import operator
from typing import Any, Callable, Generic, Literal, NamedTuple, Optional, Sequence, TypeVar, Union

from . import _core
from ._errors import OptionError
from ._images import ImageT, Resolution, give, resolution, take
from ._records import Record, record_of

_TEXTS = ("auto", "dark", "light")
_DESKEWS = ("off", "whole", "fine")
_REDUCTIONS = ("none", "threshold", "ordered", "fs", "jjn", "auto")
# Sizes of holes, from rastrel_pages.h.
_HOLES_ANY, _HOLES_USUAL = -4, -5

Text = Literal["auto", "dark", "light"]
AnyImage = TypeVar("AnyImage")


class Cleaned(Generic[AnyImage]):
    """A clean page: `image`, the `record` of what was found and done, and the `overlay`, which shows the page
    as it came in, in grey, with borders blue, holes orange and specks vermilion (None unless asked for).

    >>> image, record, overlay = rastrel.clean(scan, overlay=True)
    """

    __slots__ = ("image", "record", "overlay")
    __match_args__ = ("image", "record", "overlay")

    def __init__(self, image: AnyImage, record: Record, overlay: Optional[AnyImage]) -> None:
        self.image = image
        self.record = record
        self.overlay = overlay

    def __iter__(self) -> Any:
        return iter((self.image, self.record, self.overlay))

    def __repr__(self) -> str:
        return f"Cleaned(image={self.image!r}, record={self.record!r}, overlay={self.overlay!r})"


class Skew(NamedTuple):
    """By how many degrees lines rise to the right, and how sure that is: 0 to 1, of which 0.5 is enough to
    turn a page. Both are 0 where a page shows no lines."""

    degrees: float
    confidence: float


def _choice(name: str, value: Any, choices: Sequence[str]) -> int:
    if not isinstance(value, str) or value not in choices:
        raise OptionError(f"{name} is one of {', '.join(choices)}, not {value!r}")
    return choices.index(value)


def _whole(name: str, value: Any, least: int, most: int) -> int:
    try:
        return int(_inside(name, operator.index(value), least, most))
    except TypeError:
        raise OptionError(f"{name} is a whole number, not {value!r}") from None


def _number(name: str, value: Any, least: float, most: float) -> float:
    try:
        return _inside(name, float(value), least, most)
    except (TypeError, ValueError) as error:
        if isinstance(error, OptionError):
            raise
        raise OptionError(f"{name} is a number, not {value!r}") from None


def _inside(name: str, value: float, least: float, most: float) -> float:
    if not least <= value <= most:
        raise OptionError(f"{name} is {least} to {most}, not {value}")
    return value


def clean(
    image: ImageT,
    dpi: Resolution = 300.0,
    *,
    deskew: Union[Literal["fine", "whole", "off"], bool] = "fine",
    borders: bool = True,
    holes: Union[Literal["auto", "any"], bool, int] = "auto",
    specks: bool = True,
    speck_level: int = 30,
    speck_full: bool = False,
    text: Text = "auto",
    crop_sheet: bool = False,
    max_skew: float = 15.0,
    blank_percent: float = 0.1,
    flatten: bool = False,
    paper: Literal["keep", "white"] = "keep",
    bleed: bool = False,
    reduce: Literal["none", "threshold", "ordered", "fs", "jjn", "auto"] = "none",
    brightness: int = 0,
    to_dpi: float = 0.0,
    classic: bool = False,
    overlay: bool = False,
    progress: Optional[Callable[[str, float], object]] = None,
) -> Cleaned[ImageT]:
    """Straightens and cleans a scanned page.

    A step that does not suit the page is left out, and the record says why.

    Parameters
    ----------
    image : array, Pillow image or Page
        bool (height, width), where **True is paper**; uint8 (height, width) grey, (height, width, 3) RGB,
        or (height, width, 4) RGBA, which goes over white. It is not changed. Any strides will do
    dpi : float, (float, float) or None
        dots per inch of an image that does not say. None: it is not known; 300 is assumed, the record says
        so, and sizes in millimetres are not relied on
    deskew : {"fine", "whole", "off"} or bool
        how skewed pages are turned: to hundredths of a degree where these are certain; by whole degrees
        without smoothing; not. True is "fine"
    borders : bool
        paint dark borders over
    holes : {"auto", "any"}, bool or int
        paint punch holes over. "auto" measures each hole, but takes 6 mm where the resolution had to be
        assumed, where "any" measures, too; an int is a size, -3 to 40 as `remove_holes` has it
    specks : bool
        remove specks of black-and-white and grey pages
    speck_level : int, 20 to 100
        as `despeckle` has it
    speck_full : bool
        filter every pixel: smooths, and may cost thin strokes
    text : {"auto", "dark", "light"}
        what text is; auto: by what most of the page is
    crop_sheet : bool
        cut the sheet out of a dark surround first
    max_skew : float, 0 to 45
        degrees beyond which a page is not turned
    blank_percent : float, 0 to 100
        a page with less ink than that is blank
    flatten : bool
        even the light: the shadow of a gutter, a vignette
    paper : {"keep", "white"}
        make the paper white, and leave ink as it is
    bleed : bool
        weaken what shows through from behind
    reduce : {"none", "threshold", "ordered", "fs", "jjn", "auto"}
        make grey and colour pages black and white; auto: by paper and ink at each place
    brightness : int, -255 to 255
        added to every grey first, by "threshold" and "ordered"
    to_dpi : float, 50 to 2400
        with reduce="auto": smooth to that resolution, up to four times the image's; 0: its own
    classic : bool
        clean by the plain operations one after the other
    overlay : bool
        make the overlay, too
    progress : callable, optional
        called before each step with its name and the share of the work that is done, 0 to 1. If it returns
        False, or raises, the work ends

    Returns
    -------
    Cleaned
        with `image`, of the kind that came in; `record`, a `Record`; `overlay`

    Raises
    ------
    ImageTypeError
        it is no image, or its dtype is another one; the text says how to convert it
    OptionError, ArgumentError
        an option that is out of range; an empty image
    Cancelled
        `progress` returned False

    Other threads run meanwhile. Ctrl-C ends the work.

    >>> page = rastrel.clean(scan, dpi=600).image
    """
    options: dict[str, Any] = {
        "deskew": 2 if deskew is True else 0 if deskew is False else _choice("deskew", deskew, _DESKEWS),
        "borders": int(borders),
        "holes": int(holes is not False),
        "hole_size": _hole_size(holes),
        "specks": int(specks),
        "speck_level": _whole("speck_level", speck_level, 20, 100),
        "speck_full": int(speck_full),
        "text": _choice("text", text, _TEXTS),
        "crop_sheet": int(crop_sheet),
        "max_skew": _number("max_skew", max_skew, 0, 45),
        "blank_percent": _number("blank_percent", blank_percent, 0, 100),
        "flatten": int(flatten),
        "white_paper": _choice("paper", paper, ("keep", "white")),
        "bleed": int(bleed),
        "reduce": _choice("reduce", reduce, _REDUCTIONS),
        "brightness": _whole("brightness", brightness, -255, 255),
        "classic": int(classic),
        "to_dpi": _number("to_dpi", to_dpi, 50, 2400) if to_dpi else 0.0,
        "dpi": resolution(dpi)[0],
    }
    taken = take(image, dpi)
    made, found, shown = taken.page.clean(taken.is_own, options, overlay, progress)
    return Cleaned(give(made, taken), record_of(found), None if shown is None else give(shown, taken))


def _hole_size(holes: Any) -> int:
    if isinstance(holes, bool) or holes == "auto":
        return _HOLES_USUAL
    if holes == "any":
        return _HOLES_ANY
    return _whole("holes", holes, -3, 40)


def examine(image: Any, dpi: Resolution = 300.0) -> Record:
    """Looks at a page as `clean` would, and changes nothing.

    Parameters
    ----------
    image : array, Pillow image or Page
        as `clean` takes it
    dpi : float, (float, float) or None
        of an image that does not say

    Returns
    -------
    Record
        skew, blank or not, which text, holes, and how much ink

    Raises
    ------
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    return record_of(take(image, dpi).page.examine())


def measure_skew(image: Any, *, range: float = 15.0, text: Text = "auto") -> Skew:
    """Measures by how many degrees the lines of a page rise to the right.

    Parameters
    ----------
    image : array, Pillow image or Page
        as `clean` takes it
    range : float, 0 to 45
        how many degrees to either side are looked at
    text : {"auto", "dark", "light"}
        which of the two is the text

    Returns
    -------
    Skew
        `degrees` and `confidence` (0 to 1); `straighten(image, -degrees)` turns the page back

    Raises
    ------
    ImageTypeError, ArgumentError
        it is no image, or the range cannot be
    """
    return Skew(*take(image).page.measure_skew(_number("range", range, 0, 45), _choice("text", text, _TEXTS)))


def is_blank(image: Any, *, percent: float = 0.1, text: Text = "auto") -> bool:
    """Tells whether less than `percent` of a page (0 to 100) is ink.

    `image` is what `clean` takes; `text` is "auto", "dark" or "light". Raises `ImageTypeError` for what is no
    image, `ArgumentError` for a percentage that cannot be.
    """
    return take(image).page.is_blank(_choice("text", text, _TEXTS), _number("percent", percent, 0, 100))
