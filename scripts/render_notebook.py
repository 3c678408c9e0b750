#!/usr/bin/env python3
"""Runs docs/python.ipynb and writes what it shows to docs/python-notebook.md, with its pictures in docs/python/.

    pip install . pillow matplotlib pandas nbclient ipykernel && scripts/render_notebook.py
"""

import base64
import io
import pathlib

import nbformat
from nbclient import NotebookClient
from PIL import Image

DOCS = pathlib.Path(__file__).parents[1] / "docs"
# Enough for a page and for plots, and files of some kilobytes.
COLOURS = 32


def executed(path):
    """The notebook with all that it shows."""
    notebook = nbformat.read(path, as_version=4)
    NotebookClient(notebook, timeout=300, resources={"metadata": {"path": str(path.parent)}}).execute()
    return notebook


def code_block(text, language=""):
    return f"```{language}\n{text.rstrip()}\n```"


def shown(output, number):
    """What a cell shows, as Markdown."""
    data = output.get("data", {})
    if "image/png" in data:
        picture = Image.open(io.BytesIO(base64.b64decode(data["image/png"]))).convert("RGB")
        name = f"python/picture-{number}.png"
        picture.quantize(COLOURS).save(DOCS / name, optimize=True)
        return f"![]({name})"
    return code_block(output.get("text") or data.get("text/plain", ""))


def main():
    (DOCS / "python").mkdir(exist_ok=True)
    parts = ["<!-- Written by scripts/render_notebook.py from python.ipynb; not edited by hand. -->"]
    for cell in executed(DOCS / "python.ipynb").cells:
        if cell.cell_type == "markdown":
            parts.append(cell.source)
            continue
        parts.append(code_block(cell.source, "python"))
        parts += [shown(output, len(parts)) for output in cell.outputs]
    (DOCS / "python-notebook.md").write_text("\n\n".join(parts) + "\n")


if __name__ == "__main__":
    main()
