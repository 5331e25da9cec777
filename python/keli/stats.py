"""Reductions: sums and means, extrema and their positions, norms, dot products.

A single-channel image gives a Python number, a multi-channel one a numpy array with one entry
per processed channel (three for keep_alpha=True). Integer sums are exact."""
import numpy as np

import ctypes

from ._exports import EXPORTS
from ._image import find, run, same_image, source, value_count
from .convert import hint
from ._doc import documented

NORMS = {"inf": "Inf", np.inf: "Inf", "l1": "L1", 1: "L1", "l2": "L2", 2: "L2"}


def _results(src, dtype=np.float64):
    return np.zeros(value_count(src.layout), dtype)


def _unpack(values, src):
    return values[0].item() if src.layout == "C1" else values


_TAKES_HINT = {}


def _hint_args(name, accurate):
    takes = _TAKES_HINT.get(name)
    if takes is None:
        takes = _TAKES_HINT[name] = "hint" in EXPORTS[name][2].split()
    return (hint(accurate),) if takes else ()


def _reduce(family, a, keep_alpha, accurate=False):
    src = source(a, keep_alpha)
    values = _results(src)
    name, function = find("keli{f}_{t}_{l}R", f=family, t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, src.size, values.ctypes.data, *_hint_args(name, accurate))
    return _unpack(values, src)


@documented("stats/sums-extrema")
def sum(a, *, keep_alpha=False, accurate=False):  # noqa: A001 (numpy's name)
    """Sum of each channel (exact for integers; float32 accumulates by rows in float32 then
    float64, or wholly in float64 with accurate=True)."""
    return _reduce("Sum", a, keep_alpha, accurate)


@documented("stats/sums-extrema")
def mean(a, *, keep_alpha=False, accurate=False):
    """Mean of each channel."""
    return _reduce("Mean", a, keep_alpha, accurate)


def _extreme(family, a, keep_alpha, count=1):
    src = source(a, keep_alpha)
    results = [_results(src, src.array.dtype) for _ in range(count)]
    name, function = find("keli{f}_{t}_{l}R", f=family, t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, src.size, *[r.ctypes.data for r in results])
    return src, results


@documented("stats/sums-extrema")
def min(a, *, keep_alpha=False):  # noqa: A001
    """Smallest element of each channel."""
    src, (low,) = _extreme("Min", a, keep_alpha)
    return _unpack(low, src)


@documented("stats/sums-extrema")
def max(a, *, keep_alpha=False):  # noqa: A001
    """Largest element of each channel."""
    src, (high,) = _extreme("Max", a, keep_alpha)
    return _unpack(high, src)


@documented("stats/sums-extrema")
def min_max(a, *, keep_alpha=False):
    """(min, max) of each channel in one pass."""
    src, (low, high) = _extreme("MinMax", a, keep_alpha, 2)
    return _unpack(low, src), _unpack(high, src)


def _position(family, a, keep_alpha):
    src = source(a, keep_alpha)
    value = _results(src, src.array.dtype)
    xs, ys = _results(src, np.int32), _results(src, np.int32)
    name, function = find("keli{f}Indx_{t}_{l}R", f=family, t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, src.size, value.ctypes.data, xs.ctypes.data, ys.ctypes.data)
    if src.layout == "C1":
        return value[0].item(), (int(ys[0]), int(xs[0]))
    return value, np.stack([ys, xs], axis=1)


@documented("stats/sums-extrema")
def argmin(a, *, keep_alpha=False):
    """(min, (row, column)) of its first occurrence in row-major order; per channel, the
    positions are an array of shape (channels, 2)."""
    return _position("Min", a, keep_alpha)


@documented("stats/sums-extrema")
def argmax(a, *, keep_alpha=False):
    """(max, (row, column)) of its first occurrence in row-major order."""
    return _position("Max", a, keep_alpha)


@documented("stats/norms-similarity")
def norm(a, b=None, *, kind="l2", relative=False, keep_alpha=False, accurate=False):
    """Norm of a ("inf", "l1", "l2"), of a - b when b is given, and of (a - b) relative to
    b's norm with relative=True (a zero norm of b warns: DivByZeroWarn)."""
    try:
        token = NORMS[kind]
    except (KeyError, TypeError):
        raise ValueError(f"keli: norm kind is 'inf', 'l1' or 'l2', not {kind!r}") from None
    src = source(a, keep_alpha)
    values = _results(src)
    if b is None:
        if relative:
            raise ValueError("keli: a relative norm needs b")
        name, function = find("keliNorm_{k}_{t}_{l}R", k=token, t=src.token, l=src.layout)
        args = (src.ptr, src.step)
    else:
        other = source(b, keep_alpha)
        same_image(src.array, other.array)
        family = "NormRel" if relative else "NormDiff"
        name, function = find("keli{f}_{k}_{t}_{l}R", f=family, k=token, t=src.token, l=src.layout)
        args = (src.ptr, src.step, other.ptr, other.step)
    run(name, function, *args, src.size, values.ctypes.data, *_hint_args(name, accurate))
    return _unpack(values, src)


@documented("stats/norms-similarity")
def dot(a, b, *, keep_alpha=False):
    """Sum of the products a * b of each channel, in float64."""
    src, other = source(a, keep_alpha), source(b, keep_alpha)
    same_image(src.array, other.array)
    values = _results(src)
    name, function = find("keliDotProd_{t}64f_{l}R", t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, other.ptr, other.step, src.size, values.ctypes.data)
    return _unpack(values, src)


@documented("stats/norms-similarity")
def quality_index(a, b, *, keep_alpha=False):
    """The universal image quality index of a against b, per colour channel (float32 math).
    Constant images make its denominator vanish: ZeroDenominator."""
    from .histogram import data_type

    src, other = source(a, keep_alpha), source(b, keep_alpha)
    same_image(src.array, other.array)
    values = _results(src, np.float32)
    size = ctypes.c_int()
    code = 9 if src.layout == "AC4" else src.channels  # the size query's code for AC4
    name, function = find("keliQualityIndexGetBufferSize")
    run(name, function, data_type(src.token), code, src.size, ctypes.byref(size))
    work = np.zeros(size.value + 1, np.uint8)  # never empty: numpy gives no address to none
    pair = src.token if src.token == "32f" else src.token + "32f"
    name, function = find("keliQualityIndex_{p}_{l}R", p=pair, l=src.layout)
    run(name, function, src.ptr, src.step, other.ptr, other.step, src.size, values.ctypes.data,
        work.ctypes.data)
    return _unpack(values, src)


# The one output shape the sum-of-absolute-differences members take: every position where the
# template lies wholly inside the image.
SAD_VALID = 0x10000


@documented("stats/sad")
def sad(image, template, *, scale=0):
    """Sum of absolute differences of template at each position where it lies wholly inside
    the image: (H - h + 1, W - w + 1), int32 for integer images (scaled by 2**-scale, ties to
    even), float32 for float32."""
    from .histogram import data_type

    src, tpl = source(image), source(template)
    if src.token != tpl.token or src.layout != "C1":
        raise ValueError("keli: sad takes two single-channel images of one dtype")
    floating = src.token == "32f"
    out = np.zeros((src.height - tpl.height + 1, src.width - tpl.width + 1),
                   np.float32 if floating else np.int32)
    size = ctypes.c_int()
    name, function = find("keliSADGetBufferSize")
    run(name, function, src.size, tpl.size, data_type(src.token), 1, SAD_VALID, ctypes.byref(size))
    work = np.zeros(size.value + 1, np.uint8)  # never empty: numpy gives no address to none
    pattern = "keliSAD_{t}_C1R" if floating else "keliSAD_{t}32s_C1RSfs"
    name, function = find(pattern, t=src.token)
    tail = (SAD_VALID,) if floating else (SAD_VALID, int(scale))
    run(name, function, src.ptr, src.step, src.size, tpl.ptr, tpl.step, tpl.size, out.ctypes.data,
        out.strides[0] if out.shape[0] > 1 else out.shape[1] * out.itemsize, *tail, work.ctypes.data)
    return out


@documented("stats/sums-extrema")
def block_min_max(a, block):
    """(minima, maxima, min, max) of a single-channel image cut into (rows, columns) blocks
    from the top left; edge blocks take the pixels there are. The tables have one entry a
    block: ceil(height / rows) by ceil(width / columns)."""
    from ._types import KeliSize

    src = source(a)
    rows, columns = block
    shape = (-(-src.height // rows), -(-src.width // columns))
    low, high = np.empty(shape, src.array.dtype), np.empty(shape, src.array.dtype)
    extremes = np.empty(2, src.array.dtype)
    name, function = find("keliBlockMinMax_{t}_{l}R", t=src.token, l=src.layout)
    step = low.strides[0] if shape[0] > 1 else shape[1] * low.itemsize
    run(name, function, src.ptr, src.step, src.size, low.ctypes.data, step, high.ctypes.data, step,
        KeliSize(columns, rows), extremes[:1].ctypes.data, extremes[1:].ctypes.data)
    return low, high, extremes[0].item(), extremes[1].item()
