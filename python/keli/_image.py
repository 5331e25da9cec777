"""The numpy side of a keli call: element tokens, layouts, views, outputs and export lookup.

An image is a numpy array of shape (height, width) or (height, width, channels) with 1, 3 or 4
channels. keli takes it without a copy when the elements of a row are packed (the column
stride is the pixel size, the channel stride the element size); the row stride is free, so
slices of rows and columns go in as they are. Anything else is copied into a packed array
first (inputs) or refused (outputs, which must be written where they are). Rows must also run
forward: most keli calls refuse a row step below 1, so a flipped view (a[::-1]) is copied as
an input and refused as an output.
"""
import ctypes

import numpy as np

from . import _types
from ._exports import EXPORTS
from ._lib import lib
from .errors import raise_or_warn

# numpy dtype -> element token of the export names.
TOKENS = {
    np.dtype(np.uint8): "8u",
    np.dtype(np.int8): "8s",
    np.dtype(np.uint16): "16u",
    np.dtype(np.int16): "16s",
    np.dtype(np.uint32): "32u",
    np.dtype(np.int32): "32s",
    np.dtype(np.float32): "32f",
    np.dtype(np.float64): "64f",
}
DTYPES = {token: dtype for dtype, token in TOKENS.items()}
CTYPES = {token: getattr(_types, "Kel" + token) for token in TOKENS.values()}


def _data_address_reader():
    """The fastest reader of an array's data pointer that agrees with numpy's own.

    ndarray.ctypes.data builds a helper object on every use, several microseconds, which is
    more than a small keli call. The data pointer is the first field behind the object
    header of every ndarray, so it is read there, once this reading has been checked against
    numpy's answer on arrays of several kinds; otherwise numpy's way is kept."""
    header = ctypes.sizeof(ctypes.c_ssize_t) + ctypes.sizeof(ctypes.c_void_p)
    read = ctypes.c_void_p.from_address

    def fast(array):
        return read(id(array) + header).value

    probes = [np.arange(24, dtype=np.uint16).reshape(4, 6), np.zeros((5, 7, 3), np.float32)[1:, 2:]]
    if all(fast(a) == a.ctypes.data for a in probes):
        return fast
    return lambda array: array.ctypes.data


data_address = _data_address_reader()


class View:
    """An array as keli sees it: first-pixel address, row step in bytes, layout, element token."""

    __slots__ = ("array", "ptr", "step", "channels", "layout", "token")

    def __init__(self, array, layout, channels, token, step=None):
        self.array = array
        self.channels = channels
        self.layout = layout
        self.token = token
        self.ptr = data_address(array)
        self.step = step if step is not None else _step(array, channels)

    @property
    def height(self):
        return self.array.shape[0]

    @property
    def width(self):
        return self.array.shape[1]

    @property
    def size(self):
        shape = self.array.shape
        return _types.KeliSize(shape[1], shape[0])

    def same_memory(self, other):
        return self.ptr == other.ptr and self.step == other.step and self.array.shape == other.array.shape


def _step(array, channels):
    """The row step: numpy's row stride, or the row's bytes for a single row."""
    return array.strides[0] if array.shape[0] > 1 else array.shape[1] * channels * array.itemsize


def as_single_channel(view):
    """A C3 or C4 view seen as C1 rows of width * channels elements, for element-wise calls
    whose members exist for one channel only (the memory is the same; AC4 cannot be)."""
    if view.layout not in ("C3", "C4"):
        return view
    rows = view.array.reshape(view.height, view.width * view.channels)
    return View(rows, "C1", 1, view.token)


# (ndim, last extent, keep_alpha) -> (layout, channels)
_LAYOUTS = {(2, None, False): ("C1", 1), (2, None, True): ("C1", 1)}
for _c in (1, 3, 4):
    for _alpha in (False, True):
        _LAYOUTS[(3, _c, _alpha)] = ("AC4" if _c == 4 and _alpha else f"C{_c}", _c)


def layout_of(shape, keep_alpha=False):
    """(layout token, channels) of an image shape; 4 channels with keep_alpha is AC4."""
    key = (len(shape), shape[2] if len(shape) == 3 else None, bool(keep_alpha))
    try:
        return _LAYOUTS[key]
    except KeyError:
        raise ValueError(f"keli: an image is (height, width) or (height, width, 1|3|4), not {shape}") from None


def _packed(array, channels):
    """True when the elements of each row are consecutive and the rows run forward."""
    item = array.itemsize
    shape, strides = array.shape, array.strides
    if 0 in shape:
        return True  # numpy gives empty arrays zero strides; keli refuses the size itself
    if shape[1] > 1 and strides[1] != channels * item:
        return False
    if channels > 1 and strides[2] != item:
        return False
    return shape[0] <= 1 or strides[0] >= shape[1] * channels * item


INT32_MAX = 0x7FFFFFFF

# What an array's geometry means to keli, by (shape, strides, dtype, keep_alpha): most calls
# see the same few geometries again, and this saves re-deriving them on every small call.
_GEOMETRIES = {}


def _geometry(array, keep_alpha):
    """(layout, channels, token, step, packed) of an array, remembered by its geometry."""
    key = (array.shape, array.strides, array.dtype, keep_alpha)
    geometry = _GEOMETRIES.get(key)
    if geometry is None:
        token = TOKENS.get(array.dtype)
        if token is None:
            raise TypeError(f"keli: no element type for dtype {array.dtype}")
        layout, channels = layout_of(array.shape, keep_alpha)
        step = _step(array, channels)
        # Sizes and steps travel as 32-bit ints, which ctypes would truncate without a word.
        if max(array.shape[0], array.shape[1], abs(step)) > INT32_MAX:
            raise ValueError(f"keli: shape {array.shape} or row step {step} exceeds 32 bits")
        geometry = (layout, channels, token, step, _packed(array, channels))
        if len(_GEOMETRIES) > 4096:
            _GEOMETRIES.clear()
        _GEOMETRIES[key] = geometry
    return geometry


def source(array, keep_alpha=False):
    """View of an input image, copied into a packed array only if its rows are not packed."""
    if type(array) is not np.ndarray:
        array = np.asarray(array)
    geometry = _GEOMETRIES.get((array.shape, array.strides, array.dtype, keep_alpha))
    if geometry is None:
        if not array.dtype.isnative and array.dtype.newbyteorder("=") in TOKENS:
            array = array.astype(array.dtype.newbyteorder("="))
        geometry = _geometry(array, keep_alpha)
    layout, channels, token, step, packed = geometry
    if not packed:
        array = np.ascontiguousarray(array)
        step = None
    return View(array, layout, channels, token, step)


def output(out, shape, dtype, like=None):
    """View of the destination: `out` when given (checked, written where it is), else new.

    AC4 calls leave the destination's alpha as it was, so a new four-channel output starts
    with the source's alpha (cast by numpy) when the shapes match, and with 0 otherwise."""
    keep_alpha = like is not None and like.layout == "AC4"
    if out is None:
        if keep_alpha and like.array.shape == tuple(shape):
            out = np.empty(shape, dtype)
            out[..., 3] = like.array[..., 3]
        else:
            out = (np.zeros if keep_alpha else np.empty)(shape, dtype)
    else:
        if type(out) is not np.ndarray and not isinstance(out, np.ndarray):
            raise TypeError("keli: out must be a numpy array")
        if out.shape != tuple(shape) or out.dtype != dtype:
            raise ValueError(f"keli: out must be {np.dtype(dtype)} of shape {tuple(shape)}, "
                             f"not {out.dtype} {out.shape}")
        if not out.flags.writeable:
            raise ValueError("keli: out is read-only")
    layout, channels, token, step, packed = _geometry(out, keep_alpha)
    if not packed:
        raise ValueError("keli: out must have packed rows (unit column and channel strides)")
    return View(out, layout, channels, token, step)


# Integer element ranges, for the constants check: numpy's iinfo is too slow to build per call.
_LIMITS = {token: (int(np.iinfo(d).min), int(np.iinfo(d).max)) for token, d in DTYPES.items() if d.kind in "iu"}


_NUMBERS = (int, float, np.generic)


def _checked(values, token, count, what):
    """`count` Python numbers of element type `token`; a scalar is repeated.

    Integer values must fit the element type: keli takes its constants in the image's type,
    so a silent wrap would compute something else."""
    if isinstance(values, _NUMBERS) or np.ndim(values) == 0:
        items = [values] * count
    else:
        items = values.tolist() if isinstance(values, np.ndarray) else list(values)
        if len(items) != count or not all(isinstance(v, _NUMBERS) for v in items):
            raise ValueError(f"keli: {what} needs {count} element(s), got {np.shape(values)}")
    limits = _LIMITS.get(token)
    if limits is None:
        return [float(v) for v in items]
    try:
        numbers = [int(v) for v in items]
    except (TypeError, ValueError, OverflowError):
        numbers = None
    low, high = limits
    if numbers is None or any(n != v or not low <= n <= high for n, v in zip(numbers, items)):
        raise ValueError(f"keli: {what} {values!r} is not representable as {DTYPES[token]}")
    return numbers


def constants(values, token, count, what="value"):
    """A ctypes array of `count` elements of type `token` (see _checked)."""
    return (CTYPES[token] * count)(*_checked(values, token, count, what))


def constant(value, token, what="value"):
    """One element of type `token`, for the C1 members that take their constant by value."""
    return _checked(value, token, 1, what)[0]


def value_count(layout):
    """Elements of a per-channel constant: colour channels only in AC4."""
    return {"C1": 1, "C3": 3, "C4": 4, "AC4": 3}[layout]


class Missing(TypeError):
    """No export for this combination of element type and layout."""


def export(pattern, **fields):
    """The export named by `pattern` with `fields` filled in, or Missing saying what exists.

    `pattern` is an export name with {placeholders}; `t` is the element token and `l` the
    layout, for instance "keliAdd_{t}_{l}{i}RSfs" with t="8u", l="C3", i="I"."""
    name = pattern.format(**fields)
    if name in EXPORTS:
        return name
    dtypes = [str(d) for tok, d in DTYPES.items() if pattern.format(**{**fields, "t": tok}) in EXPORTS]
    layouts = [l for l in ("C1", "C3", "C4", "AC4") if pattern.format(**{**fields, "l": l}) in EXPORTS]
    have = []
    if "t" in fields:
        have.append("dtypes " + (", ".join(dtypes) or "none") + f" for layout {fields.get('l', '-')}")
    if "l" in fields:
        others = " ".join(str(DTYPES.get(v, v)) for k, v in fields.items() if k != "l" and v)
        have.append("layouts " + (", ".join(layouts) or "none") + f" for {others}")
    raise Missing(f"keli: no export {name}; " + "; ".join(have))


def pointers(arrays):
    """A C array of pointers to the given numpy arrays."""
    return (ctypes.c_void_p * len(arrays))(*[a.ctypes.data for a in arrays])


_FOUND = {}


def find(pattern, **fields):
    """(name, bound C function) of the export `pattern` names; see `export`."""
    key = (pattern, *fields.values())
    found = _FOUND.get(key)
    if found is None:
        name = export(pattern, **fields)
        found = _FOUND[key] = (name, getattr(lib, name))
    return found


def run(name, function, *args):
    """Calls a bound export; a negative status raises keli.Error, a positive one warns."""
    status = function(*args)
    if status:
        raise_or_warn(status, name)
    return status


def same_image(a, b):
    if a.shape != b.shape or a.dtype != b.dtype:
        raise ValueError(f"keli: images differ: {a.dtype} {a.shape} and {b.dtype} {b.shape}")
