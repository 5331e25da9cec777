"""Resize: nearest and linear, with the exact rounding of the library's tiled resize.

resize(a, shape) builds the spec and the work buffer and runs the whole image as one tile."""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import find, output, run, source

# interpolation name -> kind code
KINDS = {"nearest": 1, "linear": 2}
# border name -> border word; "in_memory" reads no border at all (the caller's array must be a
# view with a pixel of memory beyond each edge, which a numpy call cannot promise, so it is
# not offered here)
BORDERS = {"replicate": 1, "mirror": 3, "mirror_r": 4}


def _code(table, value, what):
    """The code of a name of `table`, or the value itself when it is a number."""
    if isinstance(value, str):
        try:
            return table[value]
        except KeyError:
            raise ValueError(f"keli: {what} is one of {sorted(table)}, not {value!r}") from None
    return int(value)


@documented("geometry/resize")
def resize(a, shape, *, interpolation="linear", border="replicate", fixed_point=True, out=None):
    """The image resized to shape (height, width): pixel centres correspond. interpolation:
    "nearest" or "linear" (or the kind code); border (linear): "replicate", "mirror" or
    "mirror_r" (the same as replicate at a reach of one pixel), or a border word. uint8 linear
    runs in Q14 fixed point unless fixed_point=False (then f32, like uint16 and int16)."""
    src = source(a)
    if src.layout not in ("C1", "C3", "C4"):
        raise TypeError(f"keli: resize takes 1, 3 or 4 channels, not layout {src.layout}")
    if np.ndim(shape) != 1 or len(shape) != 2:
        raise ValueError(f"keli: shape is (height, width), not {shape!r}")
    height, width = (int(v) for v in shape)
    kind = _code(KINDS, interpolation, "interpolation")
    token = src.token
    dst_shape = (height, width) + src.array.shape[2:]
    dst = output(out, dst_shape, src.array.dtype, like=src)
    if np.may_share_memory(dst.array, src.array):
        raise ValueError("keli: resize cannot write into its source; pass another out")
    dst_size = _types.KeliSize(width, height)
    spec_size, init_size = ctypes.c_int(), ctypes.c_int()
    name, function = find("keliResizeGetSize_{t}", t=token)
    run(name, function, src.size, dst_size, kind, 0, ctypes.byref(spec_size), ctypes.byref(init_size))
    spec = np.zeros(spec_size.value, np.uint8)
    spec_ptr = spec.ctypes.data
    init = "keliResizeNearestInit_{t}" if kind == KINDS["nearest"] else "keliResizeLinearInit_{t}"
    name, function = find(init, t=token)
    run(name, function, src.size, dst_size, spec_ptr)
    if token == "8u" and kind == KINDS["linear"] and not fixed_point:
        run("keliResizeSetMode", find("keliResizeSetMode")[1], 2, spec_ptr)
    buffer_size = ctypes.c_int()
    name, function = find("keliResizeGetBufferSize_{t}", t=token)
    run(name, function, spec_ptr, dst_size, src.channels, ctypes.byref(buffer_size))
    buffer = np.empty(buffer_size.value, np.uint8)
    buffer_ptr = buffer.ctypes.data
    origin = _types.KeliPoint(0, 0)
    if kind == KINDS["nearest"]:
        name, function = find("keliResizeNearest_{t}_{l}R", t=token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, origin, dst_size, spec_ptr, buffer_ptr)
    else:
        name, function = find("keliResizeLinear_{t}_{l}R", t=token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, origin, dst_size, _code(BORDERS, border, "border"), None,
            spec_ptr, buffer_ptr)
    return dst.array
