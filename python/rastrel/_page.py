"""Pages that stay as the library has them."""

from __future__ import annotations

from types import MappingProxyType
from typing import TYPE_CHECKING, Any, Mapping, Optional

import numpy as np
import numpy.typing as npt

from . import _core
from ._errors import ArgumentError
from ._images import Array, Resolution, resolution, take, to_array

if TYPE_CHECKING:
    import PIL.Image

    from ._files import Readable, Writable


# kDLCPU of DLPack, and the first of them.
_CPU = (1, 0)


class Page:
    """A page in memory: its pixels, packed as the library packs them, its resolution, and what its file
    said of it.

    A black-and-white page takes a bit a pixel, an eighth of its array. Pages never change, so threads can
    share them. Wherever this package takes an image it takes a page, and gives pages back.

    Parameters
    ----------
    image : array, Pillow image or Page
        bool (height, width), where **True is paper**; uint8 (height, width) grey, (height, width, 3) RGB,
        or (height, width, 4) RGBA, which goes over white
    dpi : float, (float, float) or None
        dots per inch of an image that has none of its own; None where that is not known
    metadata : mapping of str to bytes, optional
        what goes to a file beside the pixels: "icc", "xmp", "exif" ...

    Raises
    ------
    ImageTypeError, ArgumentError
        it is no image, or empty; `rastrel.as_page` converts other types
    """

    __slots__ = ("_page", "_metadata", "__weakref__")
    _page: _core.Page
    _metadata: dict[str, bytes]

    def __init__(
        self, image: Any, dpi: Resolution = 300.0, *, metadata: Optional[Mapping[str, bytes]] = None
    ) -> None:
        taken = take(image, dpi)
        self._page = taken.page
        self._metadata = dict(taken.metadata if metadata is None else metadata)

    @classmethod
    def _of(cls, page: _core.Page, metadata: Mapping[str, bytes]) -> Page:
        made = cls.__new__(cls)
        made._page = page
        made._metadata = dict(metadata)
        return made

    @classmethod
    def open(cls, source: Readable, index: int = 0) -> Page:
        """Reads a page of a file: a path, bytes or a file object. `index` counts from 0.

        Raises `FileError` or a subclass of it, and `IndexError` where there is no such page.
        """
        from ._files import open as open_pages

        with open_pages(source) as pages:
            return pages[index]

    def save(self, target: Writable, format: Optional[str] = None, **options: Any) -> None:
        """Writes the page to a file of its own: a path or a file object.

        `format` is a name of `rastrel.formats()`; a path's ending tells it otherwise. Options are the
        format's, also listed there. An unfinished file never stands under the name.
        """
        from ._files import create

        with create(target, format, **options) as file:
            file.append(self)

    def to_bytes(self, format: str, **options: Any) -> bytes:
        """The page as a file of that format, in memory."""
        import io

        buffer = io.BytesIO()
        self.save(buffer, format, **options)
        return buffer.getvalue()

    @property
    def width(self) -> int:
        """Pixels across."""
        return self._page.describe()[0]

    @property
    def height(self) -> int:
        """Pixels down."""
        return self._page.describe()[1]

    @property
    def bits(self) -> int:
        """Bits of a pixel: 1, 4, 8 or 24."""
        return self._page.describe()[2]

    @property
    def is_grey(self) -> bool:
        """Whether its colours go from black to white in even steps."""
        return self._page.describe()[3]

    @property
    def dpi(self) -> Optional[tuple[float, float]]:
        """Dots per inch across and down; None where the page does not say."""
        across, down = self._page.describe()[4:6]
        return (across, down) if across > 0 and down > 0 else None

    @property
    def metadata(self) -> Mapping[str, bytes]:
        """What its file says of it beside the pixels: "icc", "xmp", "exif" ..."""
        return MappingProxyType(self._metadata)

    def with_dpi(self, dpi: Resolution) -> Page:
        """The same page with another resolution; None for none."""
        return Page._of(self._page.with_resolution(*resolution(dpi)), self._metadata)

    def array(self) -> Array:
        """A new array: bool (height, width) where True is paper, uint8 (height, width) of grey pages, uint8
        (height, width, 3) RGB of others."""
        return to_array(self._page)

    def image(self) -> PIL.Image.Image:
        """A new Pillow image of mode "1", "L" or "RGB"."""
        from PIL import Image as pillow

        image = pillow.fromarray(self.array())
        if self.dpi is not None:
            image.info["dpi"] = self.dpi
        return image

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> Array:
        if copy is False:
            raise ArgumentError("the array of such a page is always a copy")
        array = self.array()
        return array if dtype is None else array.astype(dtype, copy=False)

    @property
    def __array_interface__(self) -> dict[str, Any]:
        """Grey pages of 8 bits and colour pages of 24 are looked at in place, and only read."""
        width, height, bits, is_grey, _, _ = self._page.describe()
        if bits < 8 or (bits == 8 and not is_grey):
            raise AttributeError("the pixels of this page are not bytes; numpy.asarray copies them")
        address, stride, channels = self._page.place()
        if channels == 1:
            shape: tuple[int, ...] = (height, width)
            strides: tuple[int, ...] = (stride, 1)
        else:
            # Blue, green, red in memory.
            shape, strides = (height, width, 3), (stride, 3, -1)
            address += 2
        return {"version": 3, "shape": shape, "strides": strides, "typestr": "|u1", "data": (address, True)}

    def __dlpack__(
        self,
        *,
        stream: None = None,
        max_version: Optional[tuple[int, int]] = None,
        dl_device: Optional[tuple[int, int]] = None,
        copy: Optional[bool] = None,
    ) -> Any:
        """For torch.from_dlpack and the like: always a copy, which may be written to."""
        if copy is False:
            raise BufferError("what is exported of a page is always a copy")
        if dl_device not in (None, _CPU):
            raise BufferError("pages are in the processor's memory")
        return self.array().__dlpack__(stream=stream)

    def __dlpack_device__(self) -> tuple[int, int]:
        return _CPU

    def _repr_png_(self) -> bytes:
        return self.to_bytes("png")

    def __eq__(self, other: object) -> bool:
        """Whether both have the same pixels and resolution."""
        if not isinstance(other, Page):
            return NotImplemented
        return self._page.describe() == other._page.describe() and bool(
            np.array_equal(self.array(), other.array())
        )

    __hash__ = None  # type: ignore[assignment]

    def __reduce__(self) -> tuple[Any, ...]:
        return _unpickle, (self.array(), self.dpi, self._metadata)

    def __repr__(self) -> str:
        width, height, bits, _, across, down = self._page.describe()
        dpi = f", {across:g} x {down:g} dpi" if across != down else f", {across:g} dpi" if across else ""
        return f"<rastrel.Page {width} x {height}, {bits} bit{'s' if bits > 1 else ''}{dpi}>"


def _unpickle(array: npt.NDArray[Any], dpi: Resolution, metadata: dict[str, bytes]) -> Page:
    return Page(array, dpi, metadata=metadata)
