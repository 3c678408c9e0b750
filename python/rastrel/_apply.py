"""How the functions of _operations.py reach the library."""

from __future__ import annotations

import operator
from typing import Any, Optional, Sequence

import numpy as np

from . import _core
from ._errors import ArgumentError, OptionError
from ._images import Taken, give, take


def _text(value: Any) -> Optional[str]:
    """A value as it would be typed; None for a page."""
    if value is None or isinstance(value, str):
        return value
    if isinstance(value, (bool, np.bool_)):
        return "yes" if value else "no"
    try:
        if isinstance(value, (float, np.floating)):
            return repr(float(value))
        return str(operator.index(value))
    except TypeError:
        raise OptionError(f"a value is a number or a word, not {value!r}") from None


def _all(pages: Sequence[_core.Page], taken: Taken) -> list[Any]:
    return [give(page, taken) for page in pages]


def apply(name: str, image: Any, values: Sequence[Any]) -> Any:
    taken = take(image)
    return give(_core.apply(name, [taken.page], [_text(value) for value in values])[0], taken)


def apply_splitting(name: str, image: Any, values: Sequence[Any]) -> Any:
    taken = take(image)
    return _all(_core.apply(name, [taken.page], [_text(value) for value in values]), taken)


def apply_merging(name: str, images: Sequence[Any], values: Sequence[Any]) -> Any:
    taken = [take(image) for image in images]
    if not taken:
        raise ArgumentError("there is no page")
    pages = [one.page for one in taken]
    return give(_core.apply(name, pages, [_text(value) for value in values])[0], taken[0])


def apply_combining(image: Any, other: Any, mask: Any, values: Sequence[Any]) -> Any:
    taken = take(image)
    masking = None if mask is None else take(mask).page
    made = _core.combine(taken.page, take(other).page, masking, [_text(value) for value in values])
    return give(made, taken)
