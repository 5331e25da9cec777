"""Geometry: remapping through coordinate maps, flips and transposition.

remap reads src at the source coordinates the maps give for every destination pixel; flip and
transpose move pixels without changing a bit (np.flip and .T, for images)."""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import View, find, output, run, source

# interpolation name -> kind code of the remap exports
INTERPOLATION = {
    "nearest": 1,
    "linear": 2,
    "cubic_lagrange": 4,
    "lagrange": 4,
    "cubic": 6,
    "lanczos": 16,
}
SMOOTH_EDGES = 0x80000000


def _kind(interpolation, smooth):
    if isinstance(interpolation, str):
        try:
            kind = INTERPOLATION[interpolation]
        except KeyError:
            raise ValueError(f"keli: interpolation is one of {sorted(INTERPOLATION)}, not {interpolation!r}") from None
    else:
        kind = int(interpolation)
    return (kind | SMOOTH_EDGES) if smooth else kind


def _map(m, dtype, shape, what):
    view = source(np.asarray(m, dtype=dtype))
    if view.array.ndim != 2 or (shape is not None and view.array.shape != shape):
        raise ValueError(f"keli: {what} must be 2-D" + (f" of shape {shape}" if shape else "")
                         + f", not {view.array.shape}")
    return view


@documented("geometry/remap")
def remap(src, map_x, map_y, *, interpolation="linear", smooth=False, out=None, region=None,
          keep_alpha=False):
    """dst[i, j] = src[map_y[i, j], map_x[i, j]], interpolated; the output has the maps' shape
    (and src's channels and dtype).

    map_x, map_y: source column and row coordinates, float32 (float64 for a float64 src);
    other dtypes are converted. interpolation: "nearest", "linear", "cubic_lagrange" (or
    "lagrange"), "cubic", "lanczos", or the library's kind code. smooth=True blends a one-pixel
    band around the source region into the destination's old values. region: (x, y, width,
    height) of the source the taps may read, the whole image by default; coordinates stay
    those of the whole src. A destination pixel whose coordinates fall outside the region (or
    are NaN) keeps its old value: out= must then be initialised; a new output starts at 0."""
    s = source(src, keep_alpha)
    map_dtype = np.float64 if s.token == "64f" else np.float32
    mx = _map(map_x, map_dtype, None, "map_x")
    my = _map(map_y, map_dtype, mx.array.shape, "map_y")
    shape = mx.array.shape + s.array.shape[2:]
    if out is None:
        out = np.zeros(shape, s.array.dtype)  # pixels outside the region keep this 0
    dst = output(out, shape, s.array.dtype, like=s)
    if np.may_share_memory(dst.array, s.array):
        raise ValueError("keli: remap cannot write into its source; pass another out")
    if region is None:
        region = (0, 0, s.width, s.height)
    if np.ndim(region) != 1 or len(region) != 4:
        raise ValueError(f"keli: region is (x, y, width, height), not {region!r}")
    x, y, w, h = (int(v) for v in region)
    roi = _types.KeliRect(x, y, w, h)
    name, function = find("keliRemap_{t}_{l}R", t=s.token, l=s.layout)
    run(name, function, s.ptr, s.size, s.step, ctypes.byref(roi), mx.ptr, mx.step, my.ptr, my.step,
        dst.ptr, dst.step, dst.size, _kind(interpolation, smooth))
    return dst.array


def _flip_code(axis, ndim):
    """numpy's axis argument of np.flip -> the mirror axis code (rows, columns, both)."""
    if axis is None:
        return _types.KeliAxis.kelAxisBoth
    axes = {axis} if np.ndim(axis) == 0 else set(axis)
    normal = set()
    for a in axes:
        a = int(a)
        a = a + ndim if a < 0 else a
        if a not in (0, 1):
            raise ValueError(f"keli: flip reverses rows (axis 0) and/or columns (axis 1), not axis {axis!r}")
        normal.add(a)
    if normal == {0, 1}:
        return _types.KeliAxis.kelAxisBoth
    return _types.KeliAxis.kelAxisHorizontal if normal == {0} else _types.KeliAxis.kelAxisVertical


@documented("move/mirror-transpose")
def flip(a, axis=None, *, out=None, keep_alpha=False):
    """np.flip of an image over its rows (axis=0), columns (axis=1) or both (None or (0, 1)),
    into a new array or out; in place with out=a."""
    src = source(a, keep_alpha)
    code = _flip_code(axis, src.array.ndim)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    if dst.same_memory(src):
        name, function = find("keliMirror_{t}_{l}IR", t=src.token, l=src.layout)
        run(name, function, dst.ptr, dst.step, dst.size, code)
    else:
        if np.may_share_memory(dst.array, src.array):
            raise ValueError("keli: flip's out overlaps its input without being it")
        name, function = find("keliMirror_{t}_{l}R", t=src.token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, code)
    return dst.array


def _complex_view(array, writable=False):
    """A 2-D complex64 array as a C1 view of 32fc elements (rows packed, forward)."""
    if type(array) is not np.ndarray:
        array = np.asarray(array)
    if array.dtype != np.complex64 or array.ndim != 2:
        raise TypeError(f"keli: expected a 2-D complex64 array, not {array.dtype} {array.shape}")
    packed = (array.shape[1] <= 1 or array.strides[1] == 8) and \
        (array.shape[0] <= 1 or array.strides[0] >= array.shape[1] * 8)
    if not packed or not array.dtype.isnative:
        if writable:
            raise ValueError("keli: out must have packed rows (unit column strides)")
        array = np.ascontiguousarray(array, dtype=np.complex64)
    step = array.strides[0] if array.shape[0] > 1 else max(array.shape[1], 1) * 8
    return View(array, "C1", 1, "32fc", step)


def _complex_output(out, shape):
    if out is None:
        out = np.empty(shape, np.complex64)
    elif not isinstance(out, np.ndarray) or out.dtype != np.complex64 or out.shape != tuple(shape):
        raise ValueError(f"keli: out must be complex64 of shape {tuple(shape)}")
    elif not out.flags.writeable:
        raise ValueError("keli: out is read-only")
    return _complex_view(out, writable=True)


@documented("move/mirror-transpose")
def transpose(a, *, out=None):
    """Rows and columns exchanged (a.T for an image; channels stay last): shape (w, h[, c]).
    In place with out=a for a square image; complex64 single-channel images too."""
    if np.asarray(a).dtype == np.complex64:
        src = _complex_view(a)
        shape = (src.width, src.height)
        dst = _complex_output(out, shape)
    else:
        src = source(a)
        shape = (src.width, src.height) + src.array.shape[2:]
        dst = output(out, shape, src.array.dtype)
    if dst.same_memory(src):
        name, function = find("keliTranspose_{t}_{l}IR", t=src.token, l=src.layout)
        run(name, function, dst.ptr, dst.step, src.size)
    else:
        if np.may_share_memory(dst.array, src.array):
            raise ValueError("keli: transpose's out overlaps its input without being it")
        name, function = find("keliTranspose_{t}_{l}R", t=src.token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, src.size)
    return dst.array
