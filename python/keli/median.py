"""Median filters: median (a rectangle), median_cross, median_colour, median_weighted.

`size` is an int n (an n x n window) or a pair (rows, cols), both odd; the window is centred on
the pixel. Floats order with -0.0 below +0.0 and NaNs at the end of their sign, so the median is
always one of the window's values. border=None (or "memory") does no border handling: the
output is the valid part, shape (h - rows + 1, w - cols + 1), each pixel the median of the
window lying wholly inside `a`. median_cross, median_colour and median_weighted always work that
way.
"""
import numpy as np

from . import _types
from ._doc import documented
from ._image import find, run
from .filters import IN_MEMORY, MIRROR, _border, _buffer, _prepare, _query, _windowed, window_size

_M = _types.KeliMaskSize
_FIXED_MASKS = {3: int(_M.kelMaskSize3x3), 5: int(_M.kelMaskSize5x5)}


def _odd(rows, cols):
    if not (rows & 1 and cols & 1):
        raise ValueError(f"keli: a median window has odd sides, not {rows} x {cols}")


@documented("filter/median")
def median(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The median of the size window around each pixel, per channel: uint8, uint16, int16 (C1,
    C3, C4, AC4 with keep_alpha) and float32 (h, w) with border "replicate", "constant" (value)
    or None; float32 with 3 or 4 channels and float64 (h, w) with border=None only. "mirror"
    is refused. out may be `a` itself (filtered in place) where a border is given."""
    rows, cols = window_size(size)
    _odd(rows, cols)
    code = _border(border)
    if code == MIRROR:
        raise ValueError("keli: the median takes border 'replicate', 'constant' or None")
    arr = np.asarray(a)
    if arr.dtype == np.float64 or (arr.dtype == np.float32 and arr.ndim == 3):
        return _anchored(arr, rows, cols, code, out)
    return _windowed("FilterMedianBorder", arr, (rows, cols), border, value, out, keep_alpha, in_place=True,
                     by_value=True)


def _anchored(a, rows, cols, code, out):
    if code != IN_MEMORY:
        raise ValueError("keli: a float64 or multi-channel float32 median has no border handling; pass border=None")
    src, dst = _prepare(a, rows, cols, IN_MEMORY, False, out, None, False)
    if (src.token, src.layout) not in {("32f", "C3"), ("32f", "C4"), ("64f", "C1")}:
        raise TypeError(f"keli: no median for {src.array.dtype} {src.layout}")
    mask = _types.KeliSize(cols, rows)
    (bytes_,) = _query(f"keliFilterMedianGetBufferSize_{src.token}", dst.size, mask, src.channels)
    scratch = _buffer(bytes_)
    name, function = find("keliFilterMedian_{t}_{l}R", t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, mask, _types.KeliPoint(cols >> 1, rows >> 1),
        scratch.ctypes.data)
    return dst.array


def _fixed(family, a, size, out, keep_alpha, extra):
    side = int(size)
    if side not in _FIXED_MASKS:
        raise ValueError(f"keli: size is 3 or 5, not {size!r}")
    src, dst = _prepare(np.asarray(a), side, side, IN_MEMORY, keep_alpha, out, None, False)
    name, function = find("keli{f}_{t}_{l}R", f=family, t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, extra(side))
    return dst.array


@documented("filter/median")
def median_cross(a, size=3, *, out=None, keep_alpha=False):
    """The median of the row and column arms through each pixel (size 3: five pixels, 5: nine),
    per channel, valid part only (uint8, uint16, int16; C1, C3, AC4 with keep_alpha)."""
    return _fixed("FilterMedianCross", a, size, out, keep_alpha, lambda side: _FIXED_MASKS[side])


@documented("filter/median")
def median_colour(a, size=3, *, out=None, keep_alpha=False):
    """The pixel of each 3x3 or 5x5 window whose colour has the least sum of L1 distances to the
    window's pixels (row-major first on a tie), valid part only (uint8, int16, float32; C3, AC4
    with keep_alpha)."""
    return _fixed("FilterMedianColor", a, size, out, keep_alpha, lambda side: _FIXED_MASKS[side])


@documented("filter/median")
def median_weighted(a, weight, *, out=None):
    """The 3x3 median with the centre counted `weight` times, valid part only (uint8 (h, w)). An
    even weight is lowered by one with the warning keli.EvenWeight; 9 or more returns the image."""
    return _fixed("FilterMedianWeightedCenter3x3", a, 3, out, False, lambda side: int(weight))
