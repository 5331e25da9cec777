"""Data movement: masked copy and fill, channel reordering, planes, and one-bit images."""
import numpy as np

from ._image import constant, constants, find, output, pointers, run, same_image, source, value_count
from ._doc import documented


def _mask(mask, shape):
    view = source(mask)
    if view.token != "8u" or view.array.shape != tuple(shape[:2]):
        raise ValueError(f"keli: a mask is uint8 of shape {tuple(shape[:2])}")
    return view


@documented("move/copy-set-swap")
def copy(a, *, out=None, mask=None, keep_alpha=False):
    """a written into out (a new array by default); with a uint8 mask, only the pixels whose
    mask element is non-zero."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    if mask is None:
        name, function = find("keliCopy_{t}_{l}R", t=src.token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size)
    else:
        m = _mask(mask, src.array.shape)
        name, function = find("keliCopy_{t}_{l}MR", t=src.token, l=src.layout)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, m.ptr, m.step)
    return dst.array


@documented("move/copy-set-swap")
def fill(out, value, *, mask=None, keep_alpha=False):
    """Sets every pixel of out (where mask is non-zero, with a mask) to value: a scalar or one
    per colour channel. Returns out."""
    dst = output(out, np.shape(out), np.asarray(out).dtype, like=source(out, keep_alpha))
    count = value_count(dst.layout)
    values = constant(value, dst.token) if count == 1 else constants(value, dst.token, count)
    fields = dict(t=dst.token, l=dst.layout)
    if mask is None:
        name, function = find("keliSet_{t}_{l}R", **fields)
        run(name, function, values, dst.ptr, dst.step, dst.size)
    else:
        m = _mask(mask, dst.array.shape)
        name, function = find("keliSet_{t}_{l}MR", **fields)
        run(name, function, values, dst.ptr, dst.step, dst.size, m.ptr, m.step)
    return dst.array


@documented("move/copy-set-swap")
def swap_channels(a, order, *, out=None, keep_alpha=False):
    """Destination channel i takes source channel order[i] (order=(2, 1, 0): RGB <-> BGR).
    Four channels to three with len(order) == 3; uint8 in place with out=a."""
    import ctypes

    src = source(a, keep_alpha)
    count = len(order)
    table = (ctypes.c_int * count)(*order)
    if src.layout == "C4" and count == 3:
        dst = output(out, src.array.shape[:2] + (3,), src.array.dtype)
        name, function = find("keliSwapChannels_{t}_C4C3R", t=src.token)
    else:
        if count != value_count(src.layout):
            raise ValueError(f"keli: {src.layout} takes an order of {value_count(src.layout)} channels")
        # AC4 reorders the colour channels of four-channel pixels: the output keeps four.
        dst = output(out, src.array.shape, src.array.dtype, like=src)
        if dst.same_memory(src):
            name, function = find("keliSwapChannels_{t}_{l}IR", t=src.token, l=src.layout)
            run(name, function, dst.ptr, dst.step, dst.size, table)
            return dst.array
        name, function = find("keliSwapChannels_{t}_{l}R", t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, table)
    return dst.array


@documented("move/convert-scale")
def to_bits(a, threshold):
    """A single-channel image as one bit a pixel (set where a > threshold), packed eight to a
    byte from the low bit up: shape (height, ceil(width / 8)) uint8."""
    src = source(a)
    bits = np.zeros((src.height, (src.width + 7) // 8), np.uint8)
    name, function = find("keliGrayToBin_{t}1u_{l}R", t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, bits.ctypes.data, bits.strides[0], 0, src.size,
        constant(threshold, src.token, "threshold"))
    return bits


@documented("move/convert-scale")
def from_bits(bits, width, low=0, high=255, dtype=np.uint8):
    """The image of `width` pixels a row that packed bits hold: high where a bit is set."""
    src = source(bits)
    if src.token != "8u" or src.width * 8 < width:
        raise ValueError(f"keli: {width} pixels need uint8 rows of {(width + 7) // 8} bytes")
    dst = output(None, (src.height, width), dtype)
    name, function = find("keliBinToGray_1u{t}_{l}R", t=dst.token, l="C1")
    run(name, function, src.ptr, src.step, 0, dst.ptr, dst.step, dst.size,
        constant(low, dst.token, "low"), constant(high, dst.token, "high"))
    return dst.array


@documented("move/copy-set-swap")
def split(a):
    """The channels of a 3- or 4-channel image as separate (height, width) planes."""
    src = source(a)
    if src.layout not in ("C3", "C4"):
        raise ValueError("keli: split takes 3 or 4 channels")
    planes = [np.empty(src.array.shape[:2], src.array.dtype) for _ in range(src.channels)]
    name, function = find("keliCopy_{t}_C{c}P{c}R", t=src.token, c=src.channels)
    # One row step serves every plane: the new planes are alike.
    run(name, function, src.ptr, src.step, pointers(planes), planes[0].strides[0], src.size)
    return planes


@documented("move/copy-set-swap")
def merge(planes, *, out=None):
    """3 or 4 planes of one dtype and shape interleaved into one image."""
    count = len(planes)
    views = [source(p) for p in planes]
    first = views[0]
    if count not in (3, 4) or any(v.layout != "C1" for v in views):
        raise ValueError("keli: merge takes 3 or 4 single-channel planes")
    for view in views[1:]:
        same_image(first.array, view.array)
    if any(v.step != first.step for v in views):  # one row step for all planes
        views = [source(np.ascontiguousarray(v.array)) for v in views]
    dst = output(out, first.array.shape + (count,), first.array.dtype)
    name, function = find("keliCopy_{t}_P{c}C{c}R", t=first.token, c=count)
    run(name, function, pointers([v.array for v in views]), views[0].step, dst.ptr, dst.step, dst.size)
    return dst.array


@documented("move/copy-set-swap")
def grey_to_colour(a, channels=3, *, out=None):
    """A uint8 grey image repeated into every channel of a 3- or 4-channel image."""
    src = source(a)
    dst = output(out, src.array.shape[:2] + (channels,), src.array.dtype)
    name, function = find("keliDup_{t}_C1C{c}R", t=src.token, c=channels)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size)
    return dst.array
