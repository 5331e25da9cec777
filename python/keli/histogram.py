"""Histograms, lookup tables and palettes, and the histogram equalisation built on them."""
import ctypes

import numpy as np

from ._exports import EXPORTS
from ._image import TOKENS, find, output, pointers, run, source
from ._types import KelDataType, KeliInterpolationType, KeliSize
from ._doc import documented

# The histogram's natural range of each integer type: one bin per value with bins = span.
RANGES = {"8u": (0, 256), "16u": (0, 65536), "16s": (-32768, 32768)}
INTERPOLATION = {
    "nearest": KeliInterpolationType.kelNearest,
    "linear": KeliInterpolationType.kelLinear,
    "cubic": KeliInterpolationType.kelCubic,
}


def data_type(token):
    return KelDataType["kel" + token]


def _int_out():
    return ctypes.c_int()


@documented("stats/histogram-lut")
def histogram(a, bins=256, range=None):  # noqa: A002 (numpy's name)
    """(counts, edges) like numpy.histogram, per channel for 3 or 4 channels.

    `bins` is a count of equal bins over `range` (integer images: the type's whole range by
    default; float32 needs a range) or an increasing sequence of edges. A bin counts
    edge[i] <= v < edge[i + 1]: unlike numpy's last bin, the upper edge itself is not counted.
    Integer images truncate uniform edges (round non-uniform ones up) to integers, and the
    returned edges are those the counting used."""
    src = source(a)
    channels, token = src.channels, src.token
    uniform = np.ndim(bins) == 0
    levels = int(bins) + 1 if uniform else len(bins)
    counts_levels = np.full(channels, levels, np.int32)
    spec_size, buffer_size = _int_out(), _int_out()
    name, function = find("keliHistogramGetBufferSize")
    run(name, function, data_type(token), src.size, counts_levels.ctypes.data, channels, int(uniform),
        ctypes.byref(spec_size), ctypes.byref(buffer_size))
    spec = np.zeros(spec_size.value, np.uint8)
    work = np.zeros(max(buffer_size.value, 1), np.uint8)
    if uniform:
        if range is None:
            if token not in RANGES:
                raise ValueError(f"keli: a {src.array.dtype} histogram needs range=(lower, upper)")
            range = RANGES[token]
        lower = np.full(channels, range[0], np.float32)
        upper = np.full(channels, range[1], np.float32)
        name, function = find("keliHistogramUniformInit")
        run(name, function, data_type(token), lower.ctypes.data, upper.ctypes.data,
            counts_levels.ctypes.data, channels, spec.ctypes.data)
    else:
        edges = [np.asarray(bins, np.float32)] * channels
        name, function = find("keliHistogramInit")
        run(name, function, data_type(token), pointers(edges), counts_levels.ctypes.data, channels,
            spec.ctypes.data)
    counts = np.zeros((channels, levels - 1), np.uint32)
    name, function = find("keliHistogram_{t}_{l}R", t=token, l=src.layout)
    target = counts.ctypes.data if channels == 1 else pointers(list(counts))
    tail = (work.ctypes.data,) if "pBuffer" in EXPORTS[name][2] else ()
    run(name, function, src.ptr, src.step, src.size, target, spec.ctypes.data, *tail)
    edges = np.zeros((channels, levels), np.float32)
    name, function = find("keliHistogramGetLevels")
    run(name, function, spec.ctypes.data, pointers(list(edges)))
    if channels == 1:
        return counts[0], edges[0]
    return counts, edges


class LookupTable:
    """A curve through (levels, values) applied to every pixel, prepared once.

        curve = keli.LookupTable([0, 128, 256], [0, 200, 255])      # uint8, linear
        brighter = curve(image)

    levels and values: one sequence for every channel, or one per channel. interpolation:
    "nearest" (each level segment takes its value), "linear" or "cubic". Elements outside the
    levels stay as they are. The table fits one dtype and one layout (channels 1, 3, 4, or
    4 with keep_alpha)."""

    def __init__(self, levels, values, *, dtype=np.uint8, channels=1, keep_alpha=False,
                 interpolation="linear"):
        self.token = TOKENS[np.dtype(dtype)]
        self.layout = "AC4" if keep_alpha and channels == 4 else f"C{channels}"
        kind = INTERPOLATION[interpolation] if isinstance(interpolation, str) else interpolation
        processed = 3 if self.layout == "AC4" else channels
        element = np.float32 if self.token == "32f" else np.int32
        levels = _per_channel(levels, processed, element)
        values = _per_channel(values, processed, element)
        counts = np.array([len(l) for l in levels], np.int32)
        code = 9 if self.layout == "AC4" else channels  # the table size query's code for AC4
        roi = KeliSize(1, 1)  # the tables do not depend on the image size
        spec_size = _int_out()
        name, function = find("keliLUT_GetSize")
        run(name, function, kind, data_type(self.token), code, roi, counts.ctypes.data,
            ctypes.byref(spec_size))
        self.spec = np.zeros(spec_size.value, np.uint8)
        name, function = find("keliLUT_Init_{t}", t=self.token)
        run(name, function, kind, code, roi, pointers(values), pointers(levels), counts.ctypes.data,
            self.spec.ctypes.data)

    def __call__(self, a, *, out=None):
        src = source(a, self.layout == "AC4")
        if src.layout != self.layout or src.token != self.token:
            raise ValueError(f"keli: the table is for {self.token} {self.layout}, not {src.token} {src.layout}")
        dst = output(out, src.array.shape, src.array.dtype, like=src)
        if dst.same_memory(src):
            name, function = find("keliLUT_{t}_{l}IR", t=src.token, l=src.layout)
            run(name, function, dst.ptr, dst.step, dst.size, self.spec.ctypes.data)
        else:
            name, function = find("keliLUT_{t}_{l}R", t=src.token, l=src.layout)
            run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, self.spec.ctypes.data)
        return dst.array


def _per_channel(items, channels, element):
    if np.ndim(items[0]) == 0:
        items = [items] * channels
    if len(items) != channels:
        raise ValueError(f"keli: {channels} channel(s) need {channels} sequences of levels and values")
    return [np.ascontiguousarray(i, element) for i in items]


@documented("stats/histogram-lut")
def lut(a, levels, values, *, interpolation="linear", out=None, keep_alpha=False):
    """a mapped through the curve (levels, values); see LookupTable."""
    array = np.asarray(a)
    channels = 1 if array.ndim == 2 else array.shape[2]
    table = LookupTable(levels, values, dtype=array.dtype, channels=channels, keep_alpha=keep_alpha,
                        interpolation=interpolation)
    return table(array, out=out)


@documented("stats/histogram-lut")
def palette(a, table, *, bits=None, out=None, keep_alpha=False):
    """table[a & (2**bits - 1)]: a uint8 or uint16 image through a plain table.

    `table` is one array for every channel or one row per colour channel; its dtype is the
    result's (uint8, uint16, or uint32 for single-channel images). bits defaults to
    log2(len(table)), and the table must hold 2**bits entries."""
    src = source(a, keep_alpha)
    table = np.asarray(table)
    length = table.shape[-1]
    bits = int(bits) if bits is not None else length.bit_length() - 1
    if length < 1 << bits:
        raise ValueError(f"keli: a {bits}-bit palette needs {1 << bits} entries, got {length}")
    pair = src.token if table.dtype == src.array.dtype else src.token + TOKENS.get(table.dtype, "?")
    dst = output(out, src.array.shape, table.dtype, like=src)
    name, function = find("keliLUTPalette_{p}_{l}R", p=pair, l=src.layout)
    if src.layout == "C1":
        rows = [np.ascontiguousarray(table.reshape(-1) if table.ndim == 1 else table[0])]
        target = rows[0].ctypes.data
    else:
        count = 3 if src.layout in ("C3", "AC4") else 4
        rows = [np.ascontiguousarray(table if table.ndim == 1 else table[c]) for c in range(count)]
        target = pointers(rows)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, target, bits)
    return dst.array


@documented("stats/histogram-lut")
def equalize(a, *, out=None, keep_alpha=False):
    """Histogram equalisation of a uint8 image, each colour channel on its own: the cumulative
    histogram, stretched so that the first occupied level maps to 0 and the last to 255,
    becomes a palette."""
    src = source(a, keep_alpha)
    if src.token != "8u":
        raise TypeError("keli: equalize takes uint8 images")
    channels = 3 if src.layout == "AC4" else src.channels
    planes = src.array if channels == src.channels else np.ascontiguousarray(src.array[..., :3])
    counts, _ = histogram(planes, 256)
    counts = counts.reshape(channels, 256).astype(np.int64)
    cdf = np.cumsum(counts, axis=1)
    first = np.take_along_axis(cdf, (counts > 0).argmax(axis=1)[:, None], axis=1)
    span = np.maximum(cdf[:, -1:] - first, 1)
    tables = np.clip(np.round((cdf - first) * 255 / span), 0, 255).astype(np.uint8)
    return palette(src.array, tables if channels > 1 else tables[0], out=out, keep_alpha=keep_alpha)
