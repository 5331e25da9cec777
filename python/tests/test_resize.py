"""resize: nearest and linear against a numpy model of the position and rounding rules."""
import math

import numpy as np
import pytest

import keli
from conftest import random_image


def axis(src, dst):
    g = math.gcd(src, dst)
    scale = (src // g) / (dst // g)
    pos = (np.arange(dst) + 0.5) * scale - 0.5
    idx = np.floor(pos).astype(np.int64)
    return pos, idx, pos - idx


def nearest_axis(src, dst):
    inv, body = 1.0 / dst, (dst // 4) * 4
    return np.array([int((i + 0.5) * (inv * src) - 1e-10) if i < body else int(((i + 0.5) * src) * inv - 1e-10)
                     for i in range(dst)])


def model(a, shape, fixed):
    """Linear with replicated borders: interior two passes, border pixels one pass."""
    h, w = a.shape[:2]
    H, W = shape
    py, iy, fy = axis(h, H)
    px, ix, fx = axis(w, W)
    img = a.reshape(h, w, -1)
    out = np.zeros((H, W, img.shape[2]), a.dtype)
    for y in range(H):
        for x in range(W):
            edge = py[y] < 0 or py[y] >= h - 1 or px[x] < 0 or px[x] >= w - 1
            y0, y1, x0, x1 = iy[y], iy[y] + 1, ix[x], ix[x] + 1
            if edge:
                y0, y1, x0, x1 = (min(max(v, 0), n - 1) for v, n in ((y0, h), (y1, h), (x0, w), (x1, w)))
            for k in range(img.shape[2]):
                p, q, r, s = (int(img[y0, x0, k]), int(img[y0, x1, k]), int(img[y1, x0, k]), int(img[y1, x1, k])) \
                    if fixed else (np.float32(img[y0, x0, k]), np.float32(img[y0, x1, k]),
                                   np.float32(img[y1, x0, k]), np.float32(img[y1, x1, k]))
                if fixed:
                    F, G = int(fy[y] * 16384 + 1e-7), int(fx[x] * 16384 + 1e-7)
                    if edge:
                        rnd = lambda v: (v + 8192 + ((v >> 14) & 1)) >> 14
                        r0, r1 = rnd((16384 - G) * p + G * q), rnd((16384 - G) * r + G * s)
                        v = rnd(r0 * 16384 + (r1 - r0) * F)
                    else:
                        h0, h1 = ((16384 - G) * p + G * q + 128) >> 8, ((16384 - G) * r + G * s + 128) >> 8
                        v = ((16384 - F) * h0 + F * h1 + (1 << 19)) >> 20
                    out[y, x, k] = min(max(v, 0), 255)
                else:
                    f32x, f32y = np.float32(fx[x]), np.float32(fy[y])
                    lerp = lambda u, v, f: np.float32(u + np.float32(np.float32(v - u) * f))
                    if edge and y0 == y1:
                        v = lerp(p, q, f32x)
                    elif edge and x0 == x1:
                        v = lerp(p, r, f32y)
                    else:
                        v = lerp(lerp(p, q, f32x), lerp(r, s, f32x), f32y)
                    if a.dtype.kind == "f":
                        out[y, x, k] = v
                    else:
                        info = np.iinfo(a.dtype)
                        out[y, x, k] = min(max(np.rint(v), info.min), info.max)
    return out.reshape((H, W) + a.shape[2:])


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("channels", [None, 3, 4])
@pytest.mark.parametrize("shape", [(5, 11), (13, 4), (9, 9)])
def test_linear_matches_model(rng, dtype, channels, shape, exports_used):
    a = random_image(rng, (9, 7) if channels is None else (9, 7, channels), dtype)
    got = keli.resize(a, shape)
    assert got.dtype == a.dtype and got.shape == shape + a.shape[2:]
    np.testing.assert_array_equal(got, model(a, shape, fixed=dtype == np.uint8))
    token = {np.uint8: "8u", np.uint16: "16u", np.int16: "16s", np.float32: "32f"}[dtype]
    assert f"keliResizeLinear_{token}_C{channels or 1}R" in exports_used


def test_uint8_float_path_and_mirror_r(rng):
    a = random_image(rng, (8, 10), np.uint8)
    np.testing.assert_array_equal(keli.resize(a, (13, 6), fixed_point=False), model(a, (13, 6), fixed=False))
    np.testing.assert_array_equal(keli.resize(a, (13, 6), border="mirror_r"), keli.resize(a, (13, 6)))


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
def test_nearest_and_out(rng, dtype):
    a = random_image(rng, (10, 12, 3), dtype)
    out = np.zeros((7, 30, 3), dtype)
    got = keli.resize(a, (7, 30), interpolation="nearest", out=out)
    assert got is out
    np.testing.assert_array_equal(got, a[nearest_axis(10, 7)][:, nearest_axis(12, 30)])


def test_slices_and_errors(rng):
    a = random_image(rng, (20, 20), np.uint16)
    view = a[::2, 3:15]
    np.testing.assert_array_equal(keli.resize(view, (4, 4)), model(np.ascontiguousarray(view), (4, 4), fixed=False))
    with pytest.raises(ValueError):
        keli.resize(a, (4, 4), interpolation="cubic")
    with pytest.raises(ValueError):
        keli.resize(a, (4, 4), border="wrap")
    with pytest.raises(keli.BadSize):
        keli.resize(a[:1], (4, 4))
    with pytest.raises(keli.BadBorder):
        keli.resize(a, (4, 4), border=6)
