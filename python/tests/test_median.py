"""keli.median and friends against plain numpy models: padded windows, sorted by the float key."""
import warnings

import numpy as np
import pytest

import keli
from keli import filters


def key(v):
    """The order of the median: the bit pattern, all bits but the sign flipped when it is set."""
    v = np.asarray(v)
    if v.dtype.kind != "f":
        return v.astype(np.int64)
    bits = v.view(np.int32 if v.dtype == np.float32 else np.int64).astype(np.int64)
    mask = 0x7FFFFFFF if v.dtype == np.float32 else 0x7FFFFFFFFFFFFFFF
    return np.where(bits < 0, bits ^ mask, bits)


def windows(a, rows, cols, border, value=0):
    if border is None:
        p = a
    else:
        width = [(rows // 2, rows // 2), (cols // 2, cols // 2)] + [(0, 0)] * (a.ndim - 2)
        p = np.pad(a, width, "edge") if border == "replicate" else np.pad(a, width, "constant", constant_values=value)
    h, w = p.shape[0] - rows + 1, p.shape[1] - cols + 1
    return np.stack([p[j:j + h, i:i + w] for j in range(rows) for i in range(cols)])


def median_model(a, rows, cols, border, value=0):
    w = windows(np.asarray(a), rows, cols, border, value)
    order = np.argsort(key(w), axis=0, kind="stable")
    return np.take_along_axis(w, order, axis=0)[w.shape[0] // 2]


def image(rng, shape, dtype):
    if np.dtype(dtype).kind == "f":
        a = rng.integers(-8, 8, shape).astype(dtype) / 4
        a[rng.random(shape) < 0.1] = np.nan
        a[rng.random(shape) < 0.1] = -0.0
        return a
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16])
@pytest.mark.parametrize("channels", [None, 3, 4])
@pytest.mark.parametrize("size", [3, (1, 5), (5, 3), 7])
def test_median_matches_the_model(dtype, channels, size):
    rng = np.random.default_rng(7)
    shape = (13, 29) if channels is None else (13, 29, channels)
    a = image(rng, shape, dtype)
    rows, cols = filters.window_size(size)
    for border in ("replicate", "constant", None):
        got = keli.median(a, size, border=border, value=5)
        assert np.array_equal(got, median_model(a, rows, cols, border, 5))


def test_float_order_in_place_and_slices():
    rng = np.random.default_rng(3)
    a = image(rng, (20, 33), np.float32)
    want = median_model(a, 5, 5, "replicate")
    assert np.array_equal(keli.median(a, 5).view(np.int32), want.view(np.int32))
    b = a.copy()
    assert keli.median(b, 5, out=b) is not None
    assert np.array_equal(b.view(np.int32), want.view(np.int32))
    view = a[2:15, 3:30:1]
    assert np.array_equal(keli.median(view, 3).view(np.int32), median_model(view, 3, 3, "replicate").view(np.int32))
    for arr in (image(rng, (9, 11, 3), np.float32), image(rng, (9, 11), np.float64)):
        got = keli.median(arr, (3, 5), border=None)
        assert np.array_equal(key(got), key(median_model(arr, 3, 5, None)))


def test_cross_colour_weighted():
    rng = np.random.default_rng(5)
    a = image(rng, (12, 17, 3), np.uint8)
    got = keli.median_cross(a, 5)
    w = windows(a, 5, 5, None)
    arms = w[[10, 11, 12, 13, 14, 2, 7, 17, 22]]
    assert np.array_equal(got, np.sort(arms, axis=0)[4])
    c = keli.median_colour(a, 3)
    w3 = windows(a.astype(np.int64), 3, 3, None)  # (9, h, w, 3)
    sums = np.abs(w3[:, None] - w3[None, :]).sum(axis=(1, 4))
    best = np.argmin(sums, axis=0)
    assert np.array_equal(c, np.take_along_axis(w3, best[None, :, :, None], axis=0)[0].astype(np.uint8))
    g = a[:, :, 0].copy()
    three = keli.median_weighted(g, 3)
    wg = windows(g, 3, 3, None)
    stacked = np.concatenate([np.delete(wg, 4, axis=0), np.repeat(wg[4:5], 3, axis=0)])
    assert np.array_equal(three, np.sort(stacked, axis=0)[5])
    with pytest.warns(keli.KeliWarning):
        assert np.array_equal(keli.median_weighted(g, 4), three)
    assert np.array_equal(keli.median_weighted(g, 9), g[1:-1, 1:-1])


def test_errors():
    a = np.zeros((8, 8), np.uint8)
    with pytest.raises(ValueError):
        keli.median(a, 4)
    with pytest.raises(ValueError):
        keli.median(a, 3, border="mirror")
    with pytest.raises(ValueError):
        keli.median(np.zeros((8, 8), np.float64), 3)
    with pytest.raises(TypeError):
        keli.median(np.zeros((8, 8), np.int32), 3)
    with pytest.raises(ValueError):
        keli.median_cross(a, 7)
    with pytest.raises(keli.Error):
        keli.median_weighted(a, 0)
