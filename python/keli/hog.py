"""Histogram of oriented gradients: hog(image, locations, window=..., cell=..., block=...,
stride=..., bins=..., border=...) gives one descriptor row a window.

Sizes follow numpy's axis order: `window` is (rows, cols). Locations are (x, y) pairs, the
window's top-left pixel, as keli takes them; windows that reach outside the region (after it is
cut so that its size minus `block` is a multiple of `stride`) are left out of the result.
"""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import find, output, run, source
from .filters import CONSTANT, _border, _border_value, _buffer, _query

# Element token -> the export's type token.
TYPES = {"8u": "8u32f", "16u": "16u32f", "16s": "16s32f", "32f": "32f"}


def _config(window, cell, block, stride, bins, sigma, threshold, column_major):
    rows, cols = (window, window) if isinstance(window, (int, np.integer)) else window
    sigma = block / 4.0 if sigma is None else sigma
    return _types.KeliHOGConfig(int(bool(column_major)), cell, block, stride, bins, sigma, threshold, cols, rows)


def _cut(size, block, stride):
    return size if stride == 0 else size - (size - block) % stride


@documented("match/hog")
def hog(image, locations=None, *, window=(128, 64), cell=8, block=16, stride=8, bins=9, sigma=None,
        threshold=0.2, border="replicate", value=0, column_major=False, out=None):
    """Descriptors of the windows at `locations` ((x, y) pairs; None is the one window at
    (0, 0)) of a 2-D or (h, w, 3) image of uint8, uint16, int16 or float32: a float32 array of
    shape (windows inside, descriptor length). `sigma` defaults to block / 4; `border` is
    "replicate", "mirror", "constant" (with `value`) or None (the image's memory around it,
    which a numpy array does not have: use it on a view into a larger array)."""
    src = source(image)
    if src.layout not in ("C1", "C3"):
        raise TypeError(f"keli: hog takes one or three channels, not layout {src.layout}")
    token = TYPES.get(src.token)
    if token is None:
        raise TypeError(f"keli: hog takes uint8, uint16, int16 or float32, not {src.array.dtype}")
    config = _config(window, cell, block, stride, bins, sigma, threshold, column_major)
    code = _border(border)
    (spec_size,) = _query("keliHOGGetSize", ctypes.byref(config))
    spec = _buffer(spec_size)
    run("keliHOGInit", find("keliHOGInit")[1], ctypes.byref(config), spec.ctypes.data)
    (buffer_size,) = _query("keliHOGGetBufferSize", spec.ctypes.data, src.size)
    (descriptor_bytes,) = _query("keliHOGGetDescriptorSize", spec.ctypes.data)
    if locations is None:
        points, n, address = np.zeros((1, 2), np.int32), 1, None
    else:
        points = np.ascontiguousarray(np.asarray(locations, dtype=np.int64).reshape(-1, 2))
        if points.size and (points.min() < -2**31 or points.max() >= 2**31):
            raise ValueError("keli: locations must fit int32")
        points = points.astype(np.int32)
        n, address = len(points), points.ctypes.data
    w, h = _cut(src.width, block, stride), _cut(src.height, block, stride)
    inside = ((points[:, 0] >= 0) & (points[:, 1] >= 0) & (points[:, 0].astype(np.int64) + config.winWidth <= w)
              & (points[:, 1].astype(np.int64) + config.winHeight <= h))
    shape = (int(inside.sum()), descriptor_bytes // 4)
    if shape[0]:
        dst = output(out, shape, np.float32)
        if not dst.array.flags.c_contiguous:
            raise ValueError("keli: out must be C-contiguous")
        result, address_out = dst.array, dst.ptr
    else:  # nothing is written, but the arguments are still checked
        result = np.empty(shape, np.float32) if out is None else out
        placeholder = np.empty(1, np.float32)
        address_out = placeholder.ctypes.data
    extra = _border_value(value, src, code, by_value=True)
    name, function = find("keliHOG_{t}_{l}R", t=token, l=src.layout)
    scratch = _buffer(buffer_size)  # held by name: the call must not outlive it
    run(name, function, src.ptr, src.step, src.size, address, n, address_out, spec.ctypes.data, code, extra,
        scratch.ctypes.data)
    return result
