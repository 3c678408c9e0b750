"""Arrays, Pillow's images and pages: from each to the library's pages and back."""

from __future__ import annotations

import sys
from typing import TYPE_CHECKING, Any, NamedTuple, Optional, TypeVar, Union

import numpy as np
import numpy.typing as npt

from . import _core
from ._errors import ArgumentError, ImageTypeError, TooLarge

if TYPE_CHECKING:
    import PIL.Image

    from ._page import Page

Array = npt.NDArray[Any]
Image = Union[Array, "Page", "PIL.Image.Image"]
# What comes out is of the kind that went in.
ImageT = TypeVar("ImageT", Array, "Page", "PIL.Image.Image")
Resolution = Union[float, "tuple[float, float]", None]

# Pixel formats of rastrel_pages.h.
_BITS, _GREY, _RGB, _BGR, _RGBA = 1, 3, 4, 5, 6

_DPI_OF_ARRAYS = 300.0


class Taken(NamedTuple):
    """An image as the library's page, and what its results need to become images of its kind."""

    page: _core.Page
    kind: str  # "array", "pillow" or "page"
    metadata: dict[str, bytes]

    @property
    def is_own(self) -> bool:
        """Whether nobody else has the page, so that it can be used up."""
        return self.kind != "page"


def is_pillow(image: object) -> bool:
    module = sys.modules.get("PIL.Image")
    return module is not None and isinstance(image, module.Image)


def resolution(dpi: Resolution) -> tuple[float, float]:
    """Across and down; 0 for what is not known."""
    if dpi is None:
        return 0.0, 0.0
    try:
        across, down = dpi if isinstance(dpi, (tuple, list)) else (dpi, dpi)
        across, down = float(across), float(down)
    except (TypeError, ValueError):
        raise ArgumentError(f"dpi is a number or a pair of them, not {dpi!r}") from None
    if not (0 <= across <= 1e6 and 0 <= down <= 1e6):
        raise ArgumentError(f"dpi is 0 to 1,000,000, not {dpi!r}")
    return across, down


def from_array(array: Array, dpi: Resolution) -> _core.Page:
    """A page of an array. See `rastrel.as_page` for what is taken."""
    if array.dtype != np.bool_ and array.dtype != np.uint8:
        raise ImageTypeError(
            f"an image is of bool (True is paper) or uint8, not {array.dtype}; "
            "rastrel.as_page(image) converts it"
        )
    is_colour = array.ndim == 3 and array.shape[2] in (3, 4) and array.dtype == np.uint8
    if array.ndim != 2 and not is_colour:
        raise ImageTypeError(
            "an image has the shape (height, width), or of uint8 (height, width, 3) for RGB and (height, "
            f"width, 4) for RGBA; this is {array.dtype} {array.shape}"
        )
    height, width = array.shape[:2]
    if height == 0 or width == 0:
        raise ArgumentError(f"the image is empty: its shape is {array.shape}")
    if max(height, width) >= 2**31 or array.size >= 2**32:
        raise TooLarge(f"the image is too large: its shape is {array.shape}")
    across, down = resolution(dpi)
    if array.dtype == np.bool_:
        packed = np.ascontiguousarray(np.packbits(array, axis=1))
        return _core.page_of_pixels(packed, width, _BITS, across, down)
    channels = array.shape[2] if is_colour else 1
    pixels = {1: _GREY, 3: _RGB, 4: _RGBA}[channels]
    # Rows may lie anywhere, the pixels of one side by side; of colours blue may be the first in memory.
    if channels == 3 and array.strides[1:] == (3, -1):
        array, pixels = array[:, :, ::-1], _BGR
    elif array.strides[1:] != ((channels, 1) if is_colour else (1,)):
        array = np.ascontiguousarray(array)
    return _core.page_of_pixels(array, width, pixels, across, down)


def to_array(page: _core.Page) -> Array:
    """bool (True is paper), uint8 (height, width), or uint8 (height, width, 3) RGB, as the page is."""
    width, height, bits, is_grey, _, _ = page.describe()
    if bits == 1:
        packed = np.empty((height, (width + 7) // 8), np.uint8)
        page.read_pixels(packed, _BITS)
        return np.unpackbits(packed, axis=1, count=width).view(np.bool_)
    array = np.empty((height, width) if is_grey else (height, width, 3), np.uint8)
    page.read_pixels(array, _GREY if is_grey else _RGB)
    return array


def array_of_pillow(image: PIL.Image.Image) -> Array:
    mode = image.mode
    if mode in ("I", "F") or mode.startswith("I;"):
        raise ImageTypeError(
            f"a Pillow image of mode {mode} has no black and white of its own; "
            "rastrel.as_page(numpy.asarray(image)) converts it"
        )
    if mode not in ("1", "L", "RGB", "RGBA"):
        has_alpha = mode in ("LA", "PA", "La", "RGBa") or "transparency" in image.info
        image = image.convert("RGBA" if has_alpha else "RGB")
    return np.asarray(image)


def dpi_of_pillow(image: PIL.Image.Image) -> Resolution:
    dpi: Any = image.info.get("dpi")
    try:
        across, down = (float(value) for value in dpi)
    except (TypeError, ValueError):
        return None
    return (across, down) if 0 < across <= 1e6 and 0 < down <= 1e6 else None


def take(image: Any, dpi: Resolution = _DPI_OF_ARRAYS) -> Taken:
    """The page of an image. `dpi` is the resolution of those that have none of their own."""
    from ._page import Page

    if isinstance(image, Page):
        return Taken(image._page, "page", image._metadata)
    if is_pillow(image):
        own = dpi_of_pillow(image)
        return Taken(from_array(array_of_pillow(image), own or dpi), "pillow", {})
    if isinstance(image, np.ndarray):
        return Taken(from_array(image, dpi), "array", {})
    array = _array_of(image)
    if array is None:
        raise ImageTypeError(
            f"an image is a numpy array, a Pillow image or a rastrel.Page, not {type(image).__name__}"
        )
    return Taken(from_array(array, dpi), "array", {})


def _array_of(image: Any) -> Optional[Array]:
    """The array of something like one, of any library; None for something else."""
    try:
        if hasattr(image, "__dlpack__"):
            return np.from_dlpack(image)
        if hasattr(image, "__array__") or hasattr(image, "__array_interface__"):
            return np.asarray(image)
    except (BufferError, RuntimeError, TypeError, ValueError) as error:
        raise ImageTypeError(f"no array can be made of this {type(image).__name__}: {error}") from error
    return None


def give(page: _core.Page, taken: Taken) -> Any:
    """A result as an image of the kind that was taken."""
    if taken.kind == "page":
        from ._page import Page

        return Page._of(page, taken.metadata)
    array = to_array(page)
    if taken.kind == "array":
        return array
    from PIL import Image as pillow

    image = pillow.fromarray(array)
    across, down = page.describe()[4:6]
    if across > 0 and down > 0:
        image.info["dpi"] = (across, down)
    return image


def as_page(
    image: Any,
    dpi: Resolution = _DPI_OF_ARRAYS,
    *,
    black: Optional[float] = None,
    white: Optional[float] = None,
) -> Page:
    """Makes a page of any image, converting what the other functions refuse.

    Parameters
    ----------
    image : array, Pillow image or Page
        bool, where True is paper; any integers or floats: (height, width) for grey, (height, width, 3)
        for RGB, (height, width, 4) for RGBA, which goes over white
    dpi : float, (float, float) or None
        dots per inch of an image that has none of its own; None where that is not known
    black, white : float, optional
        the values that become 0 and 255, for other types than bool and uint8; values beyond are cut off.
        If not given, 0 and the largest number of an integer type, or 1.0 of floats

    Returns
    -------
    Page
        of 1, 8 or 24 bits

    Raises
    ------
    ImageTypeError
        it is no image
    ArgumentError
        it is empty, or not a number stands in it

    >>> rastrel.as_page(scan16)                 # uint16, 0 to 65535
    >>> rastrel.as_page(scan12, white=4095)     # 12 bits in uint16
    """
    from ._page import Page

    if isinstance(image, Page):
        return image
    if not is_pillow(image):
        array = image if isinstance(image, np.ndarray) else _array_of(image)
        if array is None:
            array = np.asarray(image)
        if array.dtype.kind in "iuf" and (array.dtype != np.uint8 or black is not None or white is not None):
            image = _to_bytes(array, black, white)
    taken = take(image, dpi)
    return Page._of(taken.page, taken.metadata)


def _to_bytes(array: Array, black: Optional[float], white: Optional[float]) -> Array:
    low = 0.0 if black is None else float(black)
    whitest = 1.0 if array.dtype.kind == "f" else float(np.iinfo(array.dtype).max)
    high = whitest if white is None else float(white)
    if not high != low:
        raise ArgumentError("black and white are the same")
    scaled = (array.astype(np.float64) - low) * (255.0 / (high - low))
    if not np.isfinite(scaled).all():
        raise ArgumentError("there are values in the image that are not numbers")
    return np.rint(np.clip(scaled, 0.0, 255.0)).astype(np.uint8)
