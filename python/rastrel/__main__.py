"""`python -m rastrel` is the command `rastrel`, which comes with the package."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from typing import NoReturn


def command() -> str:
    """Where the command is."""
    name = "rastrel.exe" if os.name == "nt" else "rastrel"
    return str(Path(__file__).parent / "bin" / name)


def main() -> NoReturn:
    if os.name != "nt":
        os.execv(command(), ["rastrel", *sys.argv[1:]])
    # There a new program would not be waited for.
    import subprocess

    sys.exit(subprocess.call([command(), *sys.argv[1:]]))


if __name__ == "__main__":
    main()
