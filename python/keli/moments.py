"""Image moments: raw spatial moments up to order 3 of each channel, and the central,
normalised and Hu moments derived from them.

m(p, q) = sum of x**p * y**q * v(x, y), x the column and y the row, both counted from the
image's first pixel; p + q <= 3.
"""
import ctypes

import numpy as np

from ._image import find, run, source, value_count
from ._types import KeliPoint
from .convert import hint
from ._doc import documented


class Moments:
    """The moments of one image, computed once; the accessors read them per channel.

    `spatial(p, q)` (about `offset=(x, y)` shifted origin), `central(p, q)`,
    `normalized_spatial(p, q)`, `normalized_central(p, q)`, `hu()` (seven invariants), and
    `spatial_table()` with every raw moment. A near-zero m00 raises keli.ZeroMoment for the
    central, normalised and Hu moments."""

    def __init__(self, state, channels):
        self._state = state
        self.channels = channels

    def _get(self, family, *args):
        value = ctypes.c_double()
        name, fn = find("keliGet{f}_64f", f=family)
        run(name, fn, self._state.ctypes.data, *args, ctypes.byref(value))
        return value.value

    def spatial(self, p, q, channel=0, offset=(0, 0)):
        return self._get("SpatialMoment", int(p), int(q), int(channel), KeliPoint(*offset))

    def central(self, p, q, channel=0):
        return self._get("CentralMoment", int(p), int(q), int(channel))

    def normalized_spatial(self, p, q, channel=0, offset=(0, 0)):
        return self._get("NormalizedSpatialMoment", int(p), int(q), int(channel), KeliPoint(*offset))

    def normalized_central(self, p, q, channel=0):
        return self._get("NormalizedCentralMoment", int(p), int(q), int(channel))

    def hu(self, channel=0):
        values = np.zeros(7, np.float64)
        name, fn = find("keliGetHuMoments_64f")
        run(name, fn, self._state.ctypes.data, int(channel), values.ctypes.data)
        return values

    def spatial_table(self, channel=0):
        """A 4 x 4 float64 array, [p, q] = m(p, q) for p + q <= 3, 0 elsewhere."""
        table = np.zeros((4, 4))
        for p in range(4):
            for q in range(4 - p):
                table[p, q] = self.spatial(p, q, channel)
        return table

    def centroid(self, channel=0):
        """(x, y) = (m10 / m00, m01 / m00)."""
        m00 = self.spatial(0, 0, channel)
        return self.spatial(1, 0, channel) / m00, self.spatial(0, 1, channel) / m00


@documented("stats/moments")
def moments(a, *, keep_alpha=False, accurate=True):
    """The moments (a Moments object) of a uint8, uint16 or float32 image of 1 or 3 channels
    (or 4 with keep_alpha=True: the colour channels)."""
    src = source(a, keep_alpha)
    size = ctypes.c_int()
    name, fn = find("keliMomentGetStateSize_64f")
    run(name, fn, hint(accurate), ctypes.byref(size))
    state = np.zeros(max(size.value, 1), np.uint8)
    name, fn = find("keliMomentInit_64f")
    run(name, fn, state.ctypes.data, hint(accurate))
    name, fn = find("keliMoments64f_{t}_{l}R", t=src.token, l=src.layout)
    run(name, fn, src.ptr, src.step, src.size, state.ctypes.data)
    return Moments(state, value_count(src.layout))
