"""What was found of a page and done with it."""

from __future__ import annotations

from dataclasses import asdict, dataclass
from typing import Any, NamedTuple, Optional


class Hole(NamedTuple):
    """A punch hole, in pixels from the top left of the page that came in."""

    x: float
    y: float
    diameter: float
    side: str  # "left", "right", "top" or "bottom"


class Region(NamedTuple):
    """What was taken away, or left for a reason; `right` and `bottom` lie outside."""

    kind: str  # "border", "hole", "speck" ...
    left: int
    top: int
    right: int
    bottom: int
    pixels: int
    confidence: float  # 0 to 1
    reason: str
    is_taken_back: bool  # the check found that it would harm the page


class Remark(NamedTuple):
    """A step or a side of the sheet, and why something is not done there."""

    name: str
    reason: str


class StepTime(NamedTuple):
    step: str
    milliseconds: float


@dataclass(frozen=True)
class Record:
    """What was found and done.

    Attributes
    ----------
    width, height, bits, dpi
        of the page that came out; of an examination, of the page looked at. Pixels, and dots per inch
        across and down
    width_in, height_in
        of the page that came in
    is_resolution_assumed
        whether 300 dots per inch had to be taken for want of any
    text
        "dark" or "light"
    skew
        degrees by which lines rise to the right, which were turned back if `is_turned`; None where no lines
        were found
    skew_confidence
        0 to 1, of which 0.5 is enough to turn a page; None where it was not measured finely
    ink_percent
        of an examination, the ink of the whole page; else None
    is_blank
        before any reduction to black and white
    is_turned, is_cropped, is_reduced, is_checked
        what was done; checked is a page that was compared with the one that came in
    trimmed_left, trimmed_top, trimmed_right, trimmed_bottom
        pixels painted over
    specks, speck_pixels
        how many were removed, and how large they were together
    holes, regions
        where there were holes, and what was taken away
    times
        of the steps
    skipped, taken_back, sides_left
        steps that were left out, steps that the check took back, and sides of the sheet that were left as
        they are, each with a reason
    """

    width: int
    height: int
    bits: int
    dpi: tuple[float, float]
    width_in: int
    height_in: int
    is_resolution_assumed: bool
    text: str
    skew: Optional[float]
    skew_confidence: Optional[float]
    ink_percent: Optional[float]
    is_blank: bool
    is_turned: bool
    is_cropped: bool
    is_reduced: bool
    is_checked: bool
    trimmed_left: int
    trimmed_top: int
    trimmed_right: int
    trimmed_bottom: int
    specks: int
    speck_pixels: int
    holes: tuple[Hole, ...]
    regions: tuple[Region, ...]
    times: tuple[StepTime, ...]
    skipped: tuple[Remark, ...]
    taken_back: tuple[Remark, ...]
    sides_left: tuple[Remark, ...]

    def to_dict(self) -> dict[str, Any]:
        """All of it by name, for a row of a table."""
        return asdict(self)


def record_of(found: dict[str, Any]) -> Record:
    """A record of what the library tells."""
    lists: dict[str, tuple[Any, ...]] = {
        "holes": tuple(Hole(**hole) for hole in found["holes"]),
        "regions": tuple(Region(**region) for region in found["regions"]),
        "times": tuple(StepTime(*time) for time in found["times"]),
    }
    for name in ("skipped", "taken_back", "sides_left"):
        lists[name] = tuple(Remark(*pair) for pair in found[name])
    return Record(**{**found, **lists})
