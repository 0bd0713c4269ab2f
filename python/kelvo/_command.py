"""The program "kelvo", which writes reports, pictures and simulated tracks."""

from __future__ import annotations

import importlib.util
import os
import pathlib
import re
import subprocess
from typing import Any

from ._arrays import is_number, is_whole, text
from .errors import Error, shown

# It lies in the package where that is installed, beside the folder "python" in a build tree.
_HERE = pathlib.Path(__file__).parent
_PLACES = [folder / "bin/kelvo" for folder in (_HERE, _HERE.parent.parent)]


def program() -> pathlib.Path:
    """Returns the program that belongs to this package."""
    for place in _PLACES:
        if place.exists():
            return place
    raise Error(
        f"there is no program {_PLACES[0]}; build the target kelvo_command, or install the package "
        "with pip install ."
    )


def environment() -> dict[str, str]:
    """Returns the environment of the program. It looks for ROOT's libraries beside the package, and
    is told where else they are."""
    told = dict(os.environ)
    root = importlib.util.find_spec("ROOT")
    if root is None or root.origin is None:
        return told
    libraries = pathlib.Path(root.origin).parent / "lib"
    if libraries.is_dir() and libraries != _HERE.parent / "ROOT/lib":
        others = told.get("LD_LIBRARY_PATH")
        told["LD_LIBRARY_PATH"] = f"{libraries}:{others}" if others else str(libraries)
    return told


def run(command: str, *arguments: str | bytes, cwd: str | None = None) -> None:
    """Runs a command of the program; what it says where it fails is raised."""
    done = subprocess.run([program(), command, *arguments], env=environment(), cwd=cwd, capture_output=True)
    if done.returncode == 0:
        return
    lines = [line for line in os.fsdecode(done.stderr).splitlines() if line.startswith("kelvo: ")]
    if not lines:
        raise Error(f"kelvo {command} ended with the status {done.returncode}")
    raise Error(re.sub(r"--([a-z][a-z-]*)", _in_python, lines[-1][len("kelvo: ") :]))


def _in_python(option: re.Match[str]) -> str:
    return option[1].replace("-", "_")


def words_of(options: dict[str, Any]) -> list[str | bytes]:
    """Returns options in the words of the command: an interval for two numbers, nothing for None."""
    words: list[str | bytes] = []
    for name, value in options.items():
        option = "--" + name.replace("_", "-")
        if value is True:
            words.append(option)
        elif value is not None and value is not False:
            words += [option, _word(name, value)]
    return words


def _word(name: str, value: Any) -> str | bytes:
    if isinstance(value, tuple) and len(value) == 2 and all(map(is_number, value)):
        return f"{value[0]}..{value[1]}"
    if is_number(value):
        return str(int(value)) if is_whole(value) else repr(float(value))
    if isinstance(value, str):
        return text(name, value)
    raise Error(f"{name} is {shown(value)}; it must be a number, a text, or two numbers (MIN, MAX)")
