"""The operations, a function each. Written by python/make_operations.py: change the table, not this."""

from __future__ import annotations

from typing import Any, Literal, Optional, Sequence, Union

from ._apply import apply, apply_combining, apply_merging, apply_splitting
from ._images import ImageT

__all__ = [
    "binarize",
    "combine",
    "crop",
    "crop_sheet",
    "cut",
    "deskew",
    "despeckle",
    "dither",
    "expand",
    "flip",
    "halftone",
    "invert",
    "merge",
    "remove_holes",
    "rotate",
    "rotate180",
    "rotate270",
    "rotate90",
    "scale",
    "scale_grey",
    "sharp_dither",
    "skew",
    "smooth_dither",
    "split",
    "straighten",
    "to_colour",
    "to_grey",
    "trim",
    "turn",
]


def flip(image: ImageT, direction: Literal["h", "v"]) -> ImageT:
    """Mirrors the page.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    direction : {"h", "v"}
        h exchanges left and right, v top and bottom

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("flip", image, (direction,))
    return made


def turn(image: ImageT, quarters: int) -> ImageT:
    """Turns the page by quarters, keeping every pixel.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    quarters : int, -3 to 3
        quarter turns counter-clockwise; -1 is one clockwise

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("turn", image, (quarters,))
    return made


def rotate(image: ImageT, angle: float, *, fill: Literal["white", "black"] = "white") -> ImageT:
    """Turns the page by any angle.

    The result holds the whole turned page; its width and height are even numbers.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    angle : float, -360 to 360
        degrees, counter-clockwise
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("rotate", image, (angle, fill))
    return made


def straighten(
    image: ImageT,
    angle: float,
    *,
    quality: Literal["nearest", "smooth"] = "smooth",
    size: Literal["whole", "same"] = "whole",
    fill: Literal["white", "black"] = "white",
) -> ImageT:
    """Turns the page by any angle, smoothly.

    Pages of 8 bits are smoothed when their colours are greys; strokes of black-and-white pages keep their
    weight.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    angle : float, -360 to 360
        degrees, counter-clockwise
    quality : {"nearest", "smooth"}
        how a pixel is made of those where it came from
    size : {"whole", "same"}
        of the whole turned page, or the page's own
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("straighten", image, (angle, quality, size, fill))
    return made


def rotate90(image: ImageT, *, fill: Literal["white", "black"] = "white") -> ImageT:
    """Turns the page by 90 degrees counter-clockwise.

    Sizes come out even, and a line of pixels may be lost.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("rotate90", image, (fill,))
    return made


def rotate180(image: ImageT, *, fill: Literal["white", "black"] = "white") -> ImageT:
    """Turns the page upside down.

    Sizes come out even, and a line of pixels may be lost.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("rotate180", image, (fill,))
    return made


def rotate270(image: ImageT, *, fill: Literal["white", "black"] = "white") -> ImageT:
    """Turns the page by 90 degrees clockwise.

    Sizes come out even, and a line of pixels may be lost.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("rotate270", image, (fill,))
    return made


def skew(
    image: ImageT,
    direction: Literal["h", "v"],
    shift: int,
    *,
    fill: Literal["white", "black"] = "white",
) -> ImageT:
    """Shears the page; it grows by the shift.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    direction : {"h", "v"}
        h moves rows sideways, v moves columns up and down
    shift : int, -10000 to 10000
        pixels; a positive shift moves the top edge to the right, or columns up
    fill : {"white", "black"}
        what the uncovered corners become

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("skew", image, (direction, shift, fill))
    return made


def deskew(image: ImageT, *, text: Literal["dark", "light"] = "dark") -> ImageT:
    """Turns the page back by the whole degrees that its lines are found to rise or fall.

    A page without skew stays as it is.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    text : {"dark", "light"}
        which of the two is the text

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("deskew", image, (text,))
    return made


def trim(image: ImageT) -> ImageT:
    """Whitens the dark margins at the left and right end of every row.

    Pages of 8 bits are painted with the last entry of their colour table.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("trim", image, ())
    return made


def remove_holes(image: ImageT, *, size: Union[int, Literal["auto"]] = "auto") -> ImageT:
    """Whitens the punch holes at the left edge.

    The page needs the same resolution across and down. Whatever is as dark and as large as a hole in the
    left 19 mm is taken for one.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    size : "auto" or int, -3 to 40
        auto measures each hole of more than 4 mm; -3, -2, -1, 0 for holes of 9, 7, 5, 4 mm, or n of 1 and
        more for n / 2 + 2 mm

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("holes", image, (size,))
    return made


def despeckle(image: ImageT, *, level: int = 40, full: bool = False) -> ImageT:
    """Removes specks.

    Without `full`, 1-bit pages change only where fewer than 4 of the 8 neighbours are dark, grey pages
    only where they are nearly black or nearly white. Levels below 38 also darken what has 2 or 3 dark
    neighbours.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 8 (grey) bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    level : int, 20 to 100
        on 1-bit pages what has fewer than level x 8 / 100 dark neighbours goes; on grey pages the
        neighbour of rank level x 9 / 100, from the darkest, is taken
    full : bool
        filter every pixel, not only those that look like specks

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("clean", image, (level, full))
    return made


def dither(image: ImageT, *, method: Literal["fs", "jjn"] = "fs", bits: Literal[1, 4, 8] = 1) -> ImageT:
    """Reduces to 1, 4 or 8 bits by error diffusion.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    method : {"fs", "jjn"}
        Floyd-Steinberg or Jarvis-Judice-Ninke
    bits : {1, 4, 8}
        the new depth; less than the page has

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("dither", image, (method, bits))
    return made


def halftone(
    image: ImageT,
    *,
    method: Literal["threshold", "diffusion", "ordered"] = "threshold",
    brightness: int = 0,
) -> ImageT:
    """Reduces to black and white.

    Pages of 24 bits are turned to grey first.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    method : {"threshold", "diffusion", "ordered"}
        a fixed threshold, error diffusion or a 16 x 16 pattern
    brightness : int, -255 to 255
        added to every grey first

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("halftone", image, (method, brightness))
    return made


def binarize(
    image: ImageT,
    *,
    quality: Literal["fast", "best"] = "fast",
    resolution: Literal["same", "double"] = "same",
    pictures: Literal["dither", "no"] = "dither",
) -> ImageT:
    """Reduces to black and white, text sharp under any light.

    What is ink is judged against the paper around it; specks go, light text on dark stays light.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    quality : {"fast", "best"}
        a threshold that follows the paper, or a minimum cut, which takes longer
    resolution : {"same", "double"}
        the page's own, or smoothed to twice of it
    pictures : {"dither", "no"}
        error diffusion for photographs, or the same as for text

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("binarize", image, (quality, resolution, pictures))
    return made


def smooth_dither(image: ImageT, *, bits: Literal[1, 4] = 1) -> ImageT:
    """Reduces to 1 or 4 bits by spreading the tone of small blocks, for photographs.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    bits : {1, 4}
        the new depth; less than the page has

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("smooth-dither", image, (bits,))
    return made


def sharp_dither(image: ImageT, *, bits: Literal[1, 4] = 1) -> ImageT:
    """The same with harder edges, for text and drawings.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width), (height,
        width, 3) RGB or (height, width, 4) RGBA, which goes over white
    bits : {1, 4}
        the new depth; less than the page has

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("sharp-dither", image, (bits,))
    return made


def to_grey(
    image: ImageT,
    *,
    formula: Literal["weighted", "average"] = "weighted",
    smoothing: Literal[0, 1, 2] = 0,
) -> ImageT:
    """Turns the page to 8-bit grey.

    Smoothing of 1 moves the picture up by a row, of 2 by two rows.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    formula : {"weighted", "average"}
        (8 R + 15 G + 3 B) / 26, or (R + G + B) / 3
    smoothing : {0, 1, 2}
        for black-and-white pages: none, or over 3 x 3 or 5 x 5 pixels

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("grey", image, (formula, smoothing))
    return made


def invert(image: ImageT) -> ImageT:
    """Makes the page its negative.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("invert", image, ())
    return made


def expand(image: ImageT) -> ImageT:
    """Gives a page whose rows are not compressed.

    Every page is: run-length compressed bitmap files are expanded as they are read.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("expand", image, ())
    return made


def to_colour(image: ImageT) -> ImageT:
    """Turns the page to 24-bit colour.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("to24", image, ())
    return made


def crop(image: ImageT, left: int, top: int, *, width: int = 0, height: int = 0) -> ImageT:
    """Cuts a rectangle out of the page.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    left : int, 0 to 65535
        the first column
    top : int, 0 to 65535
        the first row
    width : int, 0 to 65535
        in pixels; 0: up to the edge
    height : int, 0 to 65535
        in pixels; 0: up to the edge

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("crop", image, (left, top, width, height))
    return made


def crop_sheet(
    image: ImageT,
    *,
    share: int = 50,
    margin: int = 0,
    sheet: Literal["light", "dark"] = "light",
) -> ImageT:
    """Cuts the scanned sheet out of its surround.

    The sheet ends at the first column, from its left edge on, that has too little of it. Pages of more
    than 1 bit are judged by a threshold of 128; what is cut out keeps its depth.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    share : int, 1 to 100
        how many percent of a column or row must be sheet for it to belong to the sheet
    margin : int, -1000 to 1000
        pixels left around the sheet, less than a quarter of the page
    sheet : {"light", "dark"}
        which of the two is the sheet

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("crop-sheet", image, (share, margin, sheet))
    return made


def cut(image: ImageT, rows: int) -> list[ImageT]:
    """Cuts the page across into an upper and a lower one.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    rows : int, 1 to 1e+06
        of the upper piece

    Returns
    -------
    a list of images of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: list[ImageT] = apply_splitting("cut", image, (rows,))
    return made


def scale(
    image: ImageT,
    *,
    width: int = 0,
    height: int = 0,
    percent: float = 0.0,
    dpi: float = 0.0,
    method: Literal["bilinear", "cubic"] = "bilinear",
) -> ImageT:
    """Scales the page, as in scale:1240, scale:percent=50 or scale:dpi=150,method=cubic.

    Pixels are sampled, not averaged: make text pages grey before they become much smaller. With cubic the
    bottom row blends into black.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    width : int, 0 to 65535
        in pixels
    height : int, 0 to 65535
        in pixels; 0: in proportion
    percent : float, 0 to 6400
        of the size that the page has
    dpi : float, 0 to 20000
        the new resolution; the page keeps its size in inches
    method : {"bilinear", "cubic"}
        what lies between pixels, but at 1 bit

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("scale", image, (width, height, percent, dpi, method))
    return made


def scale_grey(
    image: ImageT,
    factor: int,
    *,
    down: int = 0,
    method: Literal["bilinear", "cubic"] = "bilinear",
) -> ImageT:
    """Turns the page to 8-bit grey and enlarges it by whole factors.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    factor : int, 1 to 1000
        how many pixels one becomes
    down : int, 0 to 1000
        the same for rows; 0: as across
    method : {"bilinear", "cubic"}
        what lies between pixels

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply("scale-grey", image, (factor, down, method))
    return made


def split(image: ImageT, width: int, *, height: int = 0) -> list[ImageT]:
    """Cuts the page into tiles, a page each, row by row from the top left.

    Tiles are counted from the bottom and from the left, so what is left over is in the first row and the
    last column. Their width is a multiple of 32 pixels at 1 bit, 8 at 4 bits, 4 at 8 and 24 bits.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    width : int, 1 to 65535
        of a tile, in pixels
    height : int, 0 to 65535
        of a tile; 0: as the width

    Returns
    -------
    a list of images of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: list[ImageT] = apply_splitting("split", image, (width, height))
    return made


def merge(images: Sequence[ImageT], columns: int) -> ImageT:
    """Joins pages into one, row by row from the top left.

    All pages that would go to one file are joined: those of all inputs, or, with a folder as output,
    those of each file. They have the depth and colours of the first, and widths that `split` would make.

    Parameters
    ----------
    images : sequence of arrays, Pillow images or Pages
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    columns : int, 1 to 65535
        pages in a row

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply_merging("merge", images, (columns,))
    return made


def combine(
    image: ImageT,
    other: ImageT,
    *,
    x: int = 0,
    y: int = 0,
    how: Literal["and", "over"] = "and",
    mask: Optional[Any] = None,
) -> ImageT:
    """Lays another page onto this one.

    The page keeps its size and depth; colours become the nearest that it has. What does not lie on it is
    left out.

    Parameters
    ----------
    image : array, Pillow image or Page
        of 1, 4, 8, 24 bits; bool (height, width), where **True is paper**; uint8 (height, width),
        (height, width, 3) RGB or (height, width, 4) RGBA, which goes over white
    other : array, Pillow image or Page
        the other page
    x : int, -65535 to 65535
        where its left edge goes, in pixels
    y : int, -65535 to 65535
        where its top edge goes
    how : {"and", "over"}
        and: what is dark in either stays dark; over: it covers
    mask : array, Pillow image or Page, optional
        a page of the other's size; where it is dark the other counts as black

    Returns
    -------
    an image of the kind that came in

    Raises
    ------
    PageRefused
        the operation cannot work on this page: its depth, size or resolution
    OptionError
        a value that is out of range
    ImageTypeError, ArgumentError
        it is no image, or empty
    """
    made: ImageT = apply_combining(image, other, mask, (None, x, y, how, None))
    return made
