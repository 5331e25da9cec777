"""keli's status codes as Python exceptions and warnings.

A negative status raises a subclass of `Error`, a positive one issues a subclass of
`KeliWarning`. Each class is named after its status without the `kelStatus` prefix
(`kelStatusBadSize` -> `BadSize`) and is made from the generated status table, so a status
added to the header has its class without an edit here.
"""
import sys
import warnings

from ._types import KelStatusCode

PREFIX = "kelStatus"


class Error(Exception):
    """A keli call refused its arguments and wrote nothing.

    `status` is the KelStatusCode, `export` the name of the C function that returned it."""

    def __init__(self, status, export):
        self.status = _named(status)
        self.export = export
        super().__init__(f"{export}: {describe(status)}")


class KeliWarning(UserWarning):
    """A keli call did its work and reported a condition (the result stands)."""


def _named(status):
    try:
        return KelStatusCode(status)
    except ValueError:  # a code this package does not know yet stays a plain number
        return int(status)


def describe(status):
    named = _named(status)
    return f"{named.name} ({status})" if isinstance(named, KelStatusCode) else f"status {status}"


def raise_or_warn(status, export):
    """Turns a non-zero status of `export` into an exception or a warning."""
    if status < 0:
        raise BY_CODE.get(status, Error)(status, export)
    warnings.warn(f"{export}: {describe(status)}", BY_CODE.get(status, KeliWarning), stacklevel=_caller_level())


def _caller_level():
    """The warnings stack level of the first frame outside this package, so that a warning
    points at the caller's line (and its once-per-line filtering works there)."""
    frame, level = sys._getframe(1), 1
    while frame is not None and frame.f_globals.get("__name__", "").split(".")[0] == "keli":
        frame, level = frame.f_back, level + 1
    return level


def _classes():
    by_code = {}
    for code in KelStatusCode:
        if code == 0:
            continue
        base = Error if code < 0 else KeliWarning
        name = code.name[len(PREFIX):]
        doc = f"keli status {code.name} ({int(code)})."
        by_code[int(code)] = type(name, (base,), {"__doc__": doc, "__module__": __name__})
    return by_code


BY_CODE = _classes()
globals().update({cls.__name__: cls for cls in BY_CODE.values()})
__all__ = ["Error", "KeliWarning"] + [cls.__name__ for cls in BY_CODE.values()]
