"""Neighbourhood filters: filter2d (a general 2-D kernel), box (mean), sum_window,
sum_window_row / sum_window_column (1-D sums), min_filter, max_filter, erode3x3, dilate3x3.

Conventions shared by every call here:

- `size` (box, sum_window, min_filter, max_filter) is an int n (an n x n window) or a pair
  (rows, cols), in numpy's axis order like scipy.ndimage: (3, 5) is 3 rows high and 5
  columns wide. A kernel for `filter2d` is a 2-D array of shape (rows, cols) as well.
- The window's anchor is ((rows - 1) // 2, (cols - 1) // 2): an even window reaches one pixel
  further down and right than up and left.
- `border` says where pixels beyond the image come from: "replicate" (or "edge") repeats the
  edge pixel, "mirror" (or "reflect") reflects the image without repeating the edge pixel
  (numpy.pad's "reflect"), "constant" uses `value` (a scalar, or one value per colour
  channel). border=None (or "memory") does no border handling: the output is the "valid"
  part only, shape (h - rows + 1, w - cols + 1), each pixel computed from the window lying
  wholly inside `a` (output pixel (y, x) reads a[y:y+rows, x:x+cols]).
- The library allocates nothing: the scratch (and filter2d's spec) are numpy byte arrays
  sized by the family's size query.
"""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import TOKENS, View, constant, constants, find, output, run, source, value_count

_B = _types.KeliBorderType
REPLICATE, MIRROR, CONSTANT, IN_MEMORY = (int(_B.kelBorderRepl), int(_B.kelBorderMirror),
                                          int(_B.kelBorderConst), int(_B.kelBorderInMem))
BORDERS = {
    "replicate": REPLICATE,
    "edge": REPLICATE,
    "mirror": MIRROR,
    "reflect": MIRROR,
    "constant": CONSTANT,
    "memory": IN_MEMORY,
    None: IN_MEMORY,
}
_R = _types.KelRoundMode
ROUNDING = {"zero": int(_R.kelRndZero), "near": int(_R.kelRndNear), "financial": int(_R.kelRndFinancial)}

# Element token -> KelDataType value, for the size queries and the kernel's type.
DATA_TYPES = {t.name[3:]: int(t) for t in _types.KelDataType}

# Window sums: source token -> (export pair token, output dtype).
SUM_TYPES = {
    "8u": ("8u32s", np.int32),
    "16u": ("16u32f", np.float32),
    "16s": ("16s32f", np.float32),
    "32f": ("32f", np.float32),
}


def window_size(size):
    """(rows, cols) of an int or a pair; both at least 1."""
    if isinstance(size, (int, np.integer)):
        rows = cols = int(size)
    else:
        try:
            rows, cols = (int(v) for v in size)
        except (TypeError, ValueError):
            raise ValueError(f"keli: size is an int or (rows, cols), not {size!r}") from None
    if rows < 1 or cols < 1:
        raise ValueError(f"keli: window size must be at least 1 x 1, not {size!r}")
    return rows, cols


def _border(border):
    try:
        return BORDERS[border]
    except (KeyError, TypeError):
        names = sorted(k for k in BORDERS if k is not None)
        raise ValueError(f"keli: border is one of {names} or None, not {border!r}") from None


def _query(name, *args, results=1):
    """Calls a size query whose last `results` arguments are int pointers; returns the ints."""
    function = find(name)[1]
    outs = [ctypes.c_int(0) for _ in range(results)]
    run(name, function, *args, *[ctypes.byref(o) for o in outs])
    return [o.value for o in outs]


def _prepare(a, rows, cols, code, keep_alpha, out, out_dtype, in_place):
    """(src view, dst view) for a window of rows x cols and border `code`.

    With no border handling the source view starts at the anchor inside `a` and the region is
    the valid part; its row step is a's, so the reach above and below stays addressable."""
    src = source(a, keep_alpha)
    if code == IN_MEMORY:
        height, width = src.height - rows + 1, src.width - cols + 1
        if height < 1 or width < 1:
            raise ValueError(f"keli: a {rows} x {cols} window has no valid part in {src.array.shape[:2]}")
        ay, ax = (rows - 1) >> 1, (cols - 1) >> 1
        inner = src.array[ay:ay + height, ax:ax + width]
        src = View(inner, src.layout, src.channels, src.token, src.step)
    shape = src.array.shape
    dst = output(out, shape, out_dtype or src.array.dtype, like=src)
    if out is not None and np.shares_memory(dst.array, src.array):
        if not (in_place and dst.same_memory(src) and code != IN_MEMORY):
            raise ValueError("keli: out overlaps the input" + ("" if in_place else " (no in-place form)"))
    return src, dst


def _border_value(value, src, code, by_value):
    """The border value argument: the element itself (C1 min/max) or an array a channel."""
    count = value_count(src.layout)
    if by_value and count == 1:
        return constant(value, src.token, "value") if code == CONSTANT else 0
    if code != CONSTANT:
        value = 0
    return constants(value, src.token, count, "value")


def _buffer(size):
    return np.empty(max(int(size), 1), np.uint8)


def _windowed(family, a, size, border, value, out, keep_alpha, out_dtype=None, pair=None,
              in_place=False, by_value=False):
    rows, cols = window_size(size)
    code = _border(border)
    src, dst = _prepare(a, rows, cols, code, keep_alpha, out, out_dtype, in_place)
    mask = _types.KeliSize(cols, rows)
    name, function = find("keli{f}_{t}_{l}R", f=family, t=pair or src.token, l=src.layout)
    (bytes_,) = _query(f"keli{family}GetBufferSize", dst.size, mask,
                       DATA_TYPES[src.token], src.channels)
    scratch = _buffer(bytes_)
    extra = _border_value(value, src, code, by_value)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, mask, code, extra,
        scratch.ctypes.data)
    return dst.array


@documented("filter/box-window")
def box(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The mean of the size window around each pixel (uint8, uint16, int16, float32; C1, C3,
    C4, AC4 with keep_alpha). Integer means are floor(float32(S) * float32(1 / area) + 0.5).
    out may be `a` itself (filtered in place). float64 (C1) is computed with border=None only."""
    rows, cols = window_size(size)
    arr = np.asarray(a)
    if arr.dtype == np.float64:
        return _box64(arr, rows, cols, border, out)
    return _windowed("FilterBoxBorder", a, size, border, value, out, keep_alpha, in_place=True)


def _box64(a, rows, cols, border, out):
    if _border(border) != IN_MEMORY:
        raise ValueError("keli: a float64 box mean has no border handling; pass border=None")
    src, dst = _prepare(a, rows, cols, IN_MEMORY, False, out, None, False)
    if src.layout != "C1":
        raise TypeError("keli: a float64 box mean exists for single-channel images only")
    name, function = find("keliFilterBox_64f_C1R")
    ay, ax = (rows - 1) >> 1, (cols - 1) >> 1
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size,
        _types.KeliSize(cols, rows), _types.KeliPoint(ax, ay))
    return dst.array


@documented("filter/box-window")
def sum_window(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The sum of the size window around each pixel: uint8 gives int32 (exact, wrapping past
    32 bits), uint16 and int16 float32 (the exact sum rounded once), float32 float32."""
    dtype = np.asarray(a).dtype
    src_token = TOKENS.get(dtype)
    if src_token not in SUM_TYPES:
        raise TypeError(f"keli: sum_window takes uint8, uint16, int16 or float32, not {dtype}")
    pair, out_dtype = SUM_TYPES[src_token]
    return _windowed("SumWindow", a, size, border, value, out, keep_alpha, out_dtype=np.dtype(out_dtype),
                     pair=pair, in_place=src_token == "32f")


def _sum_1d(direction, a, size, out):
    n = int(size)
    if n < 1:
        raise ValueError(f"keli: window size must be at least 1, not {size!r}")
    rows, cols = (1, n) if direction == "Row" else (n, 1)
    src, dst = _prepare(a, rows, cols, IN_MEMORY, False, out, np.dtype(np.float32), False)
    pair = {"8u": "8u32f", "16u": "16u32f", "16s": "16s32f"}.get(src.token)
    if pair is None:
        raise TypeError(f"keli: sum_window_{direction.lower()} takes uint8, uint16 or int16, not {src.array.dtype}")
    name, function = find("keliSumWindow{d}_{t}_{l}R", d=direction, t=pair, l=src.layout)
    # The source view starts at the anchor, so the window of each output pixel starts at a's
    # pixel of the same index: output (y, x) sums a[y, x:x+size] (Row) or a[y:y+size, x] (Column).
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, n, (n - 1) >> 1)
    return dst.array


@documented("filter/box-window")
def sum_window_row(a, size, *, out=None):
    """float32 sums of `size` consecutive pixels along each row, valid part only: shape
    (h, w - size + 1), pixel (y, x) the sum of a[y, x:x+size] (uint8, uint16, int16; C1, C3, C4)."""
    return _sum_1d("Row", a, size, out)


@documented("filter/box-window")
def sum_window_column(a, size, *, out=None):
    """float32 sums of `size` consecutive pixels down each column, valid part only: shape
    (h - size + 1, w), pixel (y, x) the sum of a[y:y+size, x]."""
    return _sum_1d("Column", a, size, out)


@documented("filter/min-max")
def min_filter(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The minimum of the size window around each pixel, per channel (uint8, uint16, int16,
    float32). out must not overlap a."""
    return _windowed("FilterMinBorder", a, size, border, value, out, keep_alpha, by_value=True)


@documented("filter/min-max")
def max_filter(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The maximum of the size window around each pixel, per channel (uint8, uint16, int16,
    float32). out must not overlap a."""
    return _windowed("FilterMaxBorder", a, size, border, value, out, keep_alpha, by_value=True)


def _morph3x3(family, a, out):
    src, dst = _prepare(np.asarray(a), 3, 3, IN_MEMORY, False, out, None, False)
    if src.token != "64f" or src.layout != "C1":
        raise TypeError(f"keli: {family.lower()}3x3 takes a float64 (h, w) image")
    name, function = find(f"keli{family}3x3_64f_C1R")
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size)
    return dst.array


@documented("filter/min-max")
def erode3x3(a, *, out=None):
    """The minimum of each 3x3 window of a float64 (h, w) image, valid part only: the result is
    (h - 2, w - 2), pixel (y, x) the minimum of a[y:y+3, x:x+3]."""
    return _morph3x3("Erode", a, out)


@documented("filter/min-max")
def dilate3x3(a, *, out=None):
    """The maximum of each 3x3 window of a float64 (h, w) image, valid part only (see erode3x3)."""
    return _morph3x3("Dilate", a, out)


@documented("filter/general")
def filter2d(a, kernel, *, divisor=None, border="replicate", value=0, rounding="near", out=None,
             keep_alpha=False):
    """Correlation of a with kernel (rows, cols) laid over each pixel as written, anchor at
    ((rows - 1) // 2, (cols - 1) // 2); dtypes uint8, uint16, int16, float32 (C1, C3, C4) and
    float64 (C1).

    An integer kernel (it must fit int16) is divided by `divisor` (default 1) with `rounding`
    "near" (ties to even), "zero" or "financial" (ties away from zero), then saturated; on
    uint8 and int16 the sum is exact. A float kernel takes no divisor; on integer images its
    float32 sum is rounded by `rounding`, float images keep the sum as it is. out must not
    overlap a. There is no AC4 form: keep_alpha=True raises TypeError."""
    k = np.asarray(kernel)
    if k.ndim != 2 or 0 in k.shape:
        raise ValueError(f"keli: the kernel is a non-empty (rows, cols) array, not shape {k.shape}")
    rows, cols = k.shape
    code = _border(border)
    try:
        mode = ROUNDING[rounding]
    except (KeyError, TypeError):
        raise ValueError(f"keli: rounding is one of {sorted(ROUNDING)}, not {rounding!r}") from None
    src, dst = _prepare(a, rows, cols, code, keep_alpha, out, None, False)
    name, function = find("keliFilterBorder_{t}_{l}R", t=src.token, l=src.layout)
    ksize = _types.KeliSize(cols, rows)
    if k.dtype.kind in "iub" and src.token in ("32f", "64f"):
        # Float images have no integer-kernel path: the kernel is divided once instead.
        div = 1 if divisor is None else divisor
        if div == 0:
            raise ValueError("keli: divisor 0")
        k, divisor = np.asarray(k, np.float64) / div, None
    if k.dtype.kind in "iub":
        if np.any(k < -32768) or np.any(k > 32767):
            raise ValueError("keli: an integer kernel must fit int16")
        weights = np.ascontiguousarray(k, np.int16)
        kernel_type, init = DATA_TYPES["16s"], "keliFilterBorderInit_16s"
        div = 1 if divisor is None else int(divisor)
    elif k.dtype.kind == "f":
        if divisor is not None:
            raise ValueError("keli: a float kernel takes no divisor (scale the kernel)")
        if src.token == "64f":
            weights, kernel_type, init = np.ascontiguousarray(k, np.float64), DATA_TYPES["64f"], "keliFilterBorderInit_64f"
        else:
            weights, kernel_type, init = np.ascontiguousarray(k, np.float32), DATA_TYPES["32f"], "keliFilterBorderInit_32f"
    else:
        raise TypeError(f"keli: the kernel is integer or float, not {k.dtype}")
    if src.token in ("32f", "64f"):
        mode = ROUNDING["near"]  # the sum is kept as it is: no rounding applies
    spec_size, buffer_size = _query("keliFilterBorderGetSize", ksize, dst.size, DATA_TYPES[src.token],
                                    kernel_type, src.channels, results=2)
    spec, scratch = _buffer(spec_size), _buffer(buffer_size)
    init_fn = find(init)[1]
    if kernel_type == DATA_TYPES["16s"]:
        run(init, init_fn, weights.ctypes.data, ksize, div, DATA_TYPES[src.token], src.channels, mode,
            spec.ctypes.data)
    else:
        run(init, init_fn, weights.ctypes.data, ksize, DATA_TYPES[src.token], src.channels, mode,
            spec.ctypes.data)
    extra = constants(value if code == CONSTANT else 0, src.token, value_count(src.layout), "value")
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, code, extra,
        spec.ctypes.data, scratch.ctypes.data)
    return dst.array
