"""Writes rastrel/_operations.py from the table of operations that the command has, too.

    rastrel apply --list --json | python python/make_operations.py > python/rastrel/_operations.py
"""

import json
import sys
import textwrap

# What operations and parameters are called in Python where the command's word would mislead there.
NAMES = {
    "clean": "despeckle",
    "grey": "to_grey",
    "holes": "remove_holes",
    "to24": "to_colour",
}
PARAMETERS = {"file": "other"}
HEAD = '''"""The operations, a function each. Written by python/make_operations.py: change the table, not this."""

from __future__ import annotations

from typing import Any, Literal, Optional, Sequence, Union

from ._apply import apply, apply_combining, apply_merging, apply_splitting
from ._images import ImageT
'''
IMAGE = (
    "bool (height, width), where **True is paper**; uint8 (height, width), (height, width, 3) RGB or "
    "(height, width, 4) RGBA, which goes over white"
)


def python_name(operation):
    return NAMES.get(operation["name"], operation["name"].replace("-", "_"))


def parameter_name(parameter):
    return PARAMETERS.get(parameter["name"], parameter["name"].replace("-", "_"))


def choices(parameter):
    """A parameter's words as values: numbers where they all are, and bool for no and yes."""
    words = parameter["choices"]
    if words == ["no", "yes"]:
        return [False, True]
    return [int(word) for word in words] if all(word.isdigit() for word in words) else words


def value(parameter, text):
    """A default as Python writes it."""
    if parameter["type"] == "choice":
        return repr(choices(parameter)[parameter["choices"].index(text)])
    if text == parameter.get("word"):
        return repr(text)
    return repr(float(text) if parameter["type"] == "number" else int(text))


def hint(parameter):
    if parameter["type"] == "file":
        return "ImageT" if parameter["required"] else "Optional[Any]"
    if parameter["type"] == "choice":
        words = choices(parameter)
        return "bool" if words == [False, True] else f"Literal[{', '.join(map(quoted, words))}]"
    kind = "float" if parameter["type"] == "number" else "int"
    return f'Union[{kind}, Literal["{parameter["word"]}"]]' if "word" in parameter else kind


def quoted(word):
    return f'"{word}"' if isinstance(word, str) else repr(word)


def described(parameter):
    """The values a parameter takes, for the docstring."""
    if parameter["type"] == "file":
        return "array, Pillow image or Page" + ("" if parameter["required"] else ", optional")
    if parameter["type"] == "choice":
        words = choices(parameter)
        return "bool" if words == [False, True] else "{" + ", ".join(map(quoted, words)) + "}"
    kind = "float" if parameter["type"] == "number" else "int"
    word = f'"{parameter["word"]}" or ' if "word" in parameter else ""
    return f"{word}{kind}, {parameter['least']:g} to {parameter['most']:g}"


def default(parameter):
    if parameter["type"] == "file":
        return "None"
    return value(parameter, parameter["default"]).replace("'", '"')


def wrapped(text, indent):
    return textwrap.fill(text, 106, initial_indent=indent, subsequent_indent=indent)


def docstring(operation):
    lines = [f'    """{operation["summary"]}', ""]
    if operation["details"]:
        lines += [wrapped(operation["details"], "    "), ""]
    many = operation["merges"]
    lines += ["    Parameters", "    ----------"]
    lines += [f"    {'images : sequence of arrays, Pillow images or Pages' if many else 'image : array, Pillow image or Page'}"]
    lines += [wrapped(f"of {operation['depths']} bits; {IMAGE}", "        ")]
    for parameter in operation["parameters"]:
        lines += [f"    {parameter_name(parameter)} : {described(parameter)}"]
        help_text = parameter["help"].replace("the other page; the first one of its file", "the other page")
        lines += [wrapped(help_text, "        ")]
    kind = "a list of images" if operation["splits"] else "an image"
    lines += ["", "    Returns", "    -------", f"    {kind} of the kind that came in", ""]
    lines += [
        "    Raises",
        "    ------",
        "    PageRefused",
        "        the operation cannot work on this page: its depth, size or resolution",
        "    OptionError",
        "        a value that is out of range",
        "    ImageTypeError, ArgumentError",
        "        it is no image, or empty",
        '    """',
    ]
    return lines


def function(operation):
    parameters = operation["parameters"]
    required = [p for p in parameters if p["required"]]
    optional = [p for p in parameters if not p["required"]]
    images = "images: Sequence[ImageT]" if operation["merges"] else "image: ImageT"
    arguments = [images, *(f"{parameter_name(p)}: {hint(p)}" for p in required)]
    if optional:
        arguments += ["*", *(f"{parameter_name(p)}: {hint(p)} = {default(p)}" for p in optional)]
    result = "list[ImageT]" if operation["splits"] else "ImageT"
    files = [p for p in parameters if p["type"] == "file"]
    values = "".join(f"{'None' if p in files else parameter_name(p)}, " for p in parameters)
    tuple_ = f"({values.rstrip(' ') if len(parameters) == 1 else values.rstrip(', ')})"
    if files:
        call = f"apply_combining(image, {', '.join(map(parameter_name, files))}, {tuple_})"
    elif operation["merges"]:
        call = f'apply_merging("{operation["name"]}", images, {tuple_})'
    else:
        call = f'apply{"_splitting" if operation["splits"] else ""}("{operation["name"]}", image, {tuple_})'
    head = f"def {python_name(operation)}({', '.join(arguments)}) -> {result}:"
    if len(head) > 110:
        head = f"def {python_name(operation)}(\n    " + ",\n    ".join(arguments) + f",\n) -> {result}:"
    return "\n".join([head, *docstring(operation), f"    made: {result} = {call}", "    return made"])


def main():
    operations = json.load(sys.stdin)
    names = "\n".join(f'    "{name}",' for name in sorted(map(python_name, operations)))
    parts = [HEAD + f"\n__all__ = [\n{names}\n]", *map(function, operations)]
    sys.stdout.write("\n\n\n".join(parts) + "\n")


main()
