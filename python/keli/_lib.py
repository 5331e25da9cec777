"""Finds and loads libkeli, and binds its exports on first use.

`lib.<export name>` is the C function with the restype and argtypes of its prototype (from the
generated _exports.py); binding is lazy, so importing the package costs one dlopen and not
1800 prototype set-ups. The library is looked for, in order:

1. the file named by the KELI_LIBRARY environment variable;
2. beside the package (a wheel or a copy that ships libkeli.so inside keli/);
3. the lib/ folder of the prefix the package was installed into by `cmake --install`
   (<prefix>/lib/python3.X/dist-packages/keli -> <prefix>/lib);
4. the build/ folder of the source tree the package sits in (tests, demos);
5. the system's loader paths (a library installed to /usr/local/lib, ldconfig).
"""
import ctypes
import ctypes.util
import os
import pathlib

from ._exports import EXPORTS
from .errors import raise_or_warn

_HERE = pathlib.Path(__file__).resolve().parent
_NAMES = ("libkeli.so",)


def _candidates():
    env = os.environ.get("KELI_LIBRARY")
    if env:
        yield pathlib.Path(env)
        return
    for folder in (_HERE, _HERE.parents[2], _HERE.parents[1] / "build"):
        for name in _NAMES:
            yield folder / name
    found = ctypes.util.find_library("keli")
    if found:
        yield pathlib.Path(found)


def _load():
    tried = []
    for path in _candidates():
        if path.is_absolute() and not path.exists():
            tried.append(str(path))
            continue
        try:
            return ctypes.CDLL(str(path)), path
        except OSError as error:
            tried.append(f"{path} ({error})")
    raise ImportError(
        "keli: libkeli.so not found; set KELI_LIBRARY to its path. Tried: " + "; ".join(tried)
    )


class Library:
    """The loaded libkeli: attribute access binds an export by its generated prototype."""

    def __init__(self, cdll, path):
        self._cdll = cdll
        self.path = path

    def __getattr__(self, name):
        try:
            restype, argtypes, _ = EXPORTS[name]
        except KeyError:
            raise AttributeError(f"libkeli has no export {name}") from None
        function = getattr(self._cdll, name)
        function.restype = restype
        function.argtypes = argtypes
        self.__dict__[name] = function
        return function

    def __dir__(self):
        return sorted(EXPORTS)


lib = Library(*_load())


def call(name, *args):
    """Calls export `name`; a negative status raises keli.Error, a positive one warns."""
    status = getattr(lib, name)(*args)
    if status:
        raise_or_warn(status, name)
    return status
