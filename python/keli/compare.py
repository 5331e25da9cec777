"""Comparison masks and range counts.

compare(a, b, op) gives a (h, w) uint8 mask, 255 where `a op b` holds in every processed
channel (keep_alpha=True: the three colour channels) and 0 elsewhere; b is an image of a's
dtype and shape or a constant (a scalar, or one value per colour channel). Integers compare
exactly; a float nan makes every relation false.
"""
import numpy as np

from ._image import constant, constants, find, output, run, same_image, source, value_count
from ._types import KelCmpOp
from ._doc import documented

OPS = {"lt": KelCmpOp.kelCmpLess, "le": KelCmpOp.kelCmpLessEq, "eq": KelCmpOp.kelCmpEq,
       "ge": KelCmpOp.kelCmpGreaterEq, "gt": KelCmpOp.kelCmpGreater,
       "<": KelCmpOp.kelCmpLess, "<=": KelCmpOp.kelCmpLessEq, "==": KelCmpOp.kelCmpEq,
       ">=": KelCmpOp.kelCmpGreaterEq, ">": KelCmpOp.kelCmpGreater}


def _op(op):
    try:
        return OPS[op]
    except (KeyError, TypeError):
        raise ValueError(f"keli: op is 'lt', 'le', 'eq', 'ge' or 'gt', not {op!r}") from None


def _is_image(b):
    return hasattr(b, "shape") and len(b.shape) >= 2


def _value(b, src, token="", what="value"):
    token = token or src.token
    count = value_count(src.layout)
    return constant(b, token, what) if count == 1 else constants(b, token, count, what)


def _mask(family, a, b, out, keep_alpha, *tail, value_token=""):
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape[:2], np.uint8)
    if _is_image(b):
        other = source(b, keep_alpha)
        same_image(src.array, other.array)
        name, fn = find("keli{f}_{t}_{l}R", f=family, t=src.token, l=src.layout)
        run(name, fn, src.ptr, src.step, other.ptr, other.step, dst.ptr, dst.step, dst.size, *tail)
    else:
        name, fn = find("keli{f}C_{t}_{l}R", f=family, t=src.token, l=src.layout)
        run(name, fn, src.ptr, src.step, _value(b, src, value_token), dst.ptr, dst.step, dst.size, *tail)
    return dst.array


@documented("threshold/compare-count")
def compare(a, b, op="lt", *, out=None, keep_alpha=False):
    """uint8 mask, 255 where a `op` b ("lt", "le", "eq", "ge", "gt" or "<", ... ) in every
    channel (uint8, uint16, int16, float32)."""
    return _mask("Compare", a, b, out, keep_alpha, _op(op))


@documented("threshold/compare-count")
def equal_within(a, b, eps, *, out=None, keep_alpha=False):
    """uint8 mask, 255 where |a - b| <= eps in every channel (float32). A negative eps raises
    keli.NegativeEps."""
    src = source(a, keep_alpha)
    if src.token != "32f":
        raise TypeError(f"keli: equal_within takes float32 images, not {src.array.dtype}")
    return _mask("CompareEqualEps", src.array, b, out, keep_alpha, float(eps))


@documented("threshold/compare-count")
def count_in_range(a, lower, upper, *, keep_alpha=False):
    """Number of elements with lower <= v <= upper (uint8, float32): an int for (h, w), an
    array of three counts for (h, w, 3) or (h, w, 4) with keep_alpha=True. The count is
    32-bit and wraps. lower above upper raises keli.BadRange."""
    src = source(a, keep_alpha)
    counts = np.zeros(value_count(src.layout), np.int32)
    name, fn = find("keliCountInRange_{t}_{l}R", t=src.token, l=src.layout)
    run(name, fn, src.ptr, src.step, src.size, counts.ctypes.data,
        _value(lower, src, what="lower"), _value(upper, src, what="upper"))
    return int(counts[0]) if src.layout == "C1" else counts
