"""Affine warps and their helpers: rotation matrices, the quadrangle a source rectangle maps to,
the matrix that takes a rectangle to a parallelogram, and the source window a destination
region reads.

A matrix is 2x3, float64: (x, y) maps to (m[0,0] x + m[0,1] y + m[0,2], m[1,0] x + m[1,1] y +
m[1,2]), with pixel centres at integer coordinates (column x, row y)."""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import find, output, run, source


def _matrix(m):
    a = np.ascontiguousarray(m, dtype=np.float64)
    if a.shape != (2, 3):
        raise ValueError(f"keli: an affine matrix is 2x3, not {a.shape}")
    return a


def _ptr(a):
    return a.ctypes.data


def _rect(rect):
    if np.ndim(rect) != 1 or len(rect) != 4:
        raise ValueError(f"keli: a rectangle is (x, y, width, height), not {rect!r}")
    return _types.KeliRect(*(int(v) for v in rect))


@documented("geometry/warp-affine")
def rotation_matrix(angle, center=(0.0, 0.0)):
    """The 2x3 matrix (c, s, xShift; -s, c, yShift) of a turn by `angle` degrees about `center`
    (x, y); 0, 90, 180 and 270 are exact."""
    xs, ys = ctypes.c_double(), ctypes.c_double()
    name, function = find("keliGetRotateShift")
    run(name, function, float(center[0]), float(center[1]), float(angle), ctypes.byref(xs), ctypes.byref(ys))
    m = np.empty((2, 3), np.float64)
    name, function = find("keliGetRotateTransform")
    run(name, function, float(angle), xs.value, ys.value, _ptr(m))
    return m


@documented("geometry/warp-affine")
def affine_quad(rect, matrix):
    """The corners of rect = (x, y, width, height) mapped by matrix, as a 4x2 array in the order
    top-left, top-right, bottom-right, bottom-left."""
    m, q = _matrix(matrix), np.empty((4, 2), np.float64)
    name, function = find("keliGetAffineQuad")
    run(name, function, _rect(rect), _ptr(q), _ptr(m))
    return q


@documented("geometry/warp-affine")
def affine_bound(rect, matrix):
    """(min x, min y, max x, max y) of the mapped rectangle."""
    m, b = _matrix(matrix), np.empty(4, np.float64)
    name, function = find("keliGetAffineBound")
    run(name, function, _rect(rect), _ptr(b), _ptr(m))
    return tuple(float(v) for v in b)


@documented("geometry/warp-affine")
def affine_transform(rect, quad):
    """The 2x3 matrix taking the corners of rect to the first three vertices of quad (4x2); a
    quad that is no parallelogram warns and still gives that matrix."""
    q = np.ascontiguousarray(quad, dtype=np.float64)
    if q.shape != (4, 2):
        raise ValueError(f"keli: a quad is 4x2, not {q.shape}")
    m = np.empty((2, 3), np.float64)
    name, function = find("keliGetAffineTransform")
    run(name, function, _rect(rect), _ptr(q), _ptr(m))
    return m


@documented("geometry/warp-affine")
def affine_source_region(source_shape, matrix, region, *, inverse=False):
    """(x, y, width, height) of the source that the destination region (x, y, width, height)
    reads. matrix maps source to destination, or destination to source with inverse=True."""
    m = _matrix(matrix)
    h, w = int(source_shape[0]), int(source_shape[1])
    x, y, rw, rh = (int(v) for v in region)
    out = _types.KeliRect()
    name, function = find("keliGetAffineSrcRoi")
    run(name, function, _types.KeliSize(w, h), _ptr(m), 1 if inverse else 0, _types.KeliPoint(x, y),
        _types.KeliSize(rw, rh), ctypes.byref(out))
    return (out.x, out.y, out.width, out.height)


INTERPOLATION = {"nearest": 1, "linear": 2, "cubic": 6}
BORDERS = {"replicate": 1, "constant": 6, "transparent": 7, "in_memory": 0xF0}


def _choice(value, table, what):
    if isinstance(value, str):
        try:
            return table[value]
        except KeyError:
            raise ValueError(f"keli: {what} is one of {sorted(table)}, not {value!r}") from None
    return int(value)


@documented("geometry/warp-affine")
def warp_affine(a, matrix, shape, *, interpolation="linear", border="constant", value=0, inverse=False,
                smooth=False, cubic=(0.0, 0.5), out=None):
    """Warps image a through the 2x3 matrix into an output of shape (height, width) (plus a's
    channels). matrix maps source to destination, or destination to source with inverse=True.

    interpolation: "nearest", "linear" or "cubic" (cubic=(B, C), Catmull-Rom by default). border: "constant" (value, a number or one per
    channel, rounded to the element type), "replicate", "transparent" (pixels the source does
    not reach keep out's values) or "in_memory". smooth=True blends the pixels just outside the
    source's edges with out (transparent borders only). A new output starts at 0."""
    s = source(a)
    if s.layout == "AC4":
        raise TypeError("keli: warp_affine has C1, C3 and C4 members; pass keep_alpha=False layouts")
    m = _matrix(matrix)
    height, width = (int(v) for v in shape)
    kind = _choice(interpolation, INTERPOLATION, "interpolation")
    border_word = _choice(border, BORDERS, "border")
    channels = s.channels
    values = np.broadcast_to(np.asarray(value, np.float64), (channels,)).copy()
    out_shape = (height, width) + s.array.shape[2:]
    if out is None:
        out = np.zeros(out_shape, s.array.dtype)
    dst = output(out, out_shape, s.array.dtype, like=s)
    if np.may_share_memory(dst.array, s.array):
        raise ValueError("keli: warp_affine cannot write into its source; pass another out")
    src_size, dst_size = _types.KeliSize(s.width, s.height), _types.KeliSize(width, height)
    dtype = {"8u": 1, "16u": 5, "16s": 7, "32f": 13, "64f": 19}[s.token]
    direction = 1 if inverse else 0
    spec_size, init_size = ctypes.c_int(), ctypes.c_int()
    name, function = find("keliWarpAffineGetSize")
    run(name, function, src_size, dst_size, dtype, _ptr(m), kind, direction, border_word, ctypes.byref(spec_size),
        ctypes.byref(init_size))
    spec = np.zeros(spec_size.value, np.uint8)
    kind_name = {1: "Nearest", 2: "Linear", 6: "Cubic"}.get(kind)
    if kind_name is None:
        raise ValueError(f"keli: interpolation is one of {sorted(INTERPOLATION)}, not {interpolation!r}")
    name, function = find(f"keliWarpAffine{kind_name}Init")
    if kind == 6:
        init_buf = np.zeros(max(init_size.value, 1), np.uint8)
        status = run(name, function, src_size, dst_size, dtype, _ptr(m), direction, channels, float(cubic[0]),
                     float(cubic[1]), border_word, values.ctypes.data, 1 if smooth else 0, spec.ctypes.data,
                     init_buf.ctypes.data)
    else:
        status = run(name, function, src_size, dst_size, dtype, _ptr(m), direction, channels, border_word,
                     values.ctypes.data, 1 if smooth else 0, spec.ctypes.data)
    if status == 30:  # nothing of the source reaches the output: it stays as it was
        return dst.array
    buf_size = ctypes.c_int()
    name, function = find("keliWarpGetBufferSize")
    run(name, function, spec.ctypes.data, dst_size, ctypes.byref(buf_size))
    buffer = np.zeros(max(buf_size.value, 1), np.uint8)
    name, function = find(f"keliWarpAffine{kind_name}_{{t}}_{{l}}R", t=s.token, l=s.layout)
    run(name, function, s.ptr, s.step, dst.ptr, dst.step, _types.KeliPoint(0, 0), dst_size, spec.ctypes.data,
        buffer.ctypes.data)
    return dst.array
