"""ROOT and the library behind the package: loaded at the first use, not by the import."""

from __future__ import annotations

import ctypes
import functools
import os
import pathlib
import re
import threading
import warnings
from typing import Any, Callable, Iterable, Mapping

from ._arrays import is_whole, text
from .errors import Error, ErrorCode, shown

# The libraries lie in the package where it is installed, beside the folder "python" in a build tree.
_HERE = pathlib.Path(__file__).parent
_FOLDERS = [folder / name for folder in (_HERE, _HERE.parent.parent) for name in ("lib", "lib64")]


_LOADING = threading.RLock()


def root() -> Any:
    """Returns the module ROOT with the library loaded; takes about a second the first time."""
    with _LOADING:  # by one thread, for all that ask meanwhile
        return _loaded_root()


@functools.cache
def _loaded_root() -> Any:
    with warnings.catch_warnings():
        # ROOT's wheel says so in every process.
        warnings.filterwarnings("ignore", r"\s*This distribution of ROOT is in alpha stage")
        try:
            import ROOT  # type: ignore[import-untyped]
        except ImportError as e:
            raise Error(f"kelvo needs ROOT, which cannot be imported ({e}): pip install --pre ROOT")
    # Where the package is not installed beside ROOT, its libraries find those of ROOT only if these are
    # loaded already.
    for library in ("libPhysics", "libROOTDataFrame", "libROOTNTuple"):
        ROOT.gSystem.Load(library)
    # Once and at once: ROOT loses sight of the functions of a library that is loaded again, and one
    # loaded after ROOT has compiled for a data frame does not fit in.
    for library in ("libkelvo_frame.so", "libkelvo_run.so", "libkelvo_python.so"):
        _load(ROOT, library)
    # A class without what ROOT adds to it is seen by other threads while it is made.
    for element in ("unsigned char", "Long64_t"):
        ROOT.std.vector[element]
    return ROOT


def _load(root_module: Any, library: str) -> None:
    path = next((folder / library for folder in _FOLDERS if (folder / library).exists()), None)
    if path is None:
        raise Error(
            f"there is no {_FOLDERS[0] / library}: build kelvo and use the package in the build "
            "folder, such as PYTHONPATH=build/release/python, or install it with pip install ."
        )
    if root_module.gSystem.Load(str(path)) < 0:
        raise Error(f"{path} cannot be loaded: {_why_not(path)} (ROOT here: {root_module.__version__})")


def _why_not(path: pathlib.Path) -> str:
    try:
        ctypes.CDLL(str(path))
    except OSError as e:
        return str(e)
    return "ROOT does not say why"


class NotCopied:
    """An object of C++ that Python cannot copy: trying would end the interpreter."""

    def __reduce_ex__(self, protocol: object) -> Any:
        name = type(self).__name__
        raise Error(f"a {name} cannot be copied or pickled; make another one where it is needed")


@functools.cache
def version() -> str:
    """Returns the version of the library."""
    return str(cpp().ArrayCalls.Version())


def cpp() -> Any:
    """Returns the namespace kelvo of C++."""
    return root().kelvo


#: Names of C++ that the library's sentences have, in small letters, and what Python calls them.
PYTHON_NAMES: dict[str, str] = {}


def _in_python(sentence: str) -> str:
    """Returns a sentence of the library with the names of options, and the way to map a column, that
    Python has."""
    sentence = re.sub(r"a mapping, (\w+)=NAME", r'columns={"\1": "NAME"}', sentence)
    return re.sub(r"\bf[A-Z]\w+", lambda match: PYTHON_NAMES.get(match[0].lower(), match[0]), sentence)


def call(
    function: Callable[..., Any],
    *arguments: Any,
    says: Mapping[ErrorCode, str] | None = None,
) -> Any:
    """Calls C++ and raises its exceptions as Error.

    says: sentences for codes that mean something special in this call
    """
    try:
        return function(*arguments)
    except Exception as e:
        raise _error(e, says or {}) from None


def _error(e: Any, says: Mapping[ErrorCode, str]) -> Any:
    if isinstance(e, cpp().KelvoException):
        code, value = ErrorCode(e.fCode), float(e.fValue)
        return Error(says.get(code) or str(cpp().ErrorSentence(code, value)), code, value)
    if isinstance(e, root().std.exception):
        return Error(_in_python(os.fsdecode(bytes(cpp().ArrayCalls.What(e)))))
    return e  # not from the library


def strings(name: str, values: Iterable[str]) -> Any:
    """Returns a std::vector of texts."""
    string = root().std.string
    return root().std.vector["std::string"]([string(text(f"a name in {name}", v)) for v in values])


def column_names(columns: Mapping[str, str | int] | None) -> Any:
    """Returns the std::map of a mapping from columns to those in the input, which may be numbers."""
    if not isinstance(columns, (Mapping, type(None))):
        raise Error(f'columns is {shown(columns)}; it must be a mapping such as {{"track": "event"}}')
    std = root().std
    made = std.map["std::string", "std::string"]()
    for name, other in (columns or {}).items():
        found = text(f"columns[{shown(name)}]", str(other) if is_whole(other) else other)
        pair = std.pair["std::string", "std::string"]
        made.insert(pair(std.string(text("a name in columns", name)), std.string(found)))
    return made
