"""keli.hog against a plain numpy model of the same f32 arithmetic, step by step."""
import math

import numpy as np
import pytest

import keli
from keli import hog as hog_module

f32 = np.float32


def model_weights(cell, block, sigma):
    def first(x, y):
        if x >= block - cell // 2 or y >= block - cell // 2:
            return 0.0
        fx, fy = (x + 0.5) / cell - 0.5, (y + 0.5) / cell - 0.5
        gx, gy = x - block // 2 + 0.5, y - block // 2 + 0.5
        s = float(f32(sigma))
        return (1 - abs(fy)) * (1 - abs(fx)) * math.exp(-(gy * gy + gx * gx) * (1 / (2 * s * s)))
    b = block - 1
    return np.array([[[first(x, y), first(x, b - y), first(b - x, y), first(b - x, b - y)]
                      for x in range(block)] for y in range(block)], np.float32)


def model(image, locations, window, cell, block, stride, bins, sigma, threshold):
    """Replicated border, row-major blocks."""
    img = np.asarray(image, np.float32)
    if img.ndim == 2:
        img = img[..., None]
    cut = lambda n: n - (n - block) % stride
    h, w = cut(img.shape[0]), cut(img.shape[1])
    p = np.pad(img[:h, :w], ((1, 1), (1, 1), (0, 0)), mode="edge")
    dx = p[1:-1, 2:] - p[1:-1, :-2]
    dy = p[2:, 1:-1] - p[:-2, 1:-1]
    m2 = dx * dx + dy * dy
    best = np.zeros(m2.shape[:2], int)
    for c in range(1, img.shape[2]):
        best = np.where(m2[..., c] > np.take_along_axis(m2, best[..., None], 2)[..., 0], c, best)
    dx = np.take_along_axis(dx, best[..., None], 2)[..., 0]
    dy = np.take_along_axis(dy, best[..., None], 2)[..., 0]
    eps = f32(2.220446e-16)
    with np.errstate(all="ignore"):
        flat = dy * dy <= dx * dx
        a_flat = dx * dy / (dx * dx + f32(0.28) * dy * dy + eps)
        a_flat = a_flat + np.where(dx < 0, f32(3.1415927), np.where(dy < 0, f32(6.2831855), f32(0)))
        a_steep = -dx * dy / (dy * dy + f32(0.28) * dx * dx + eps)
        a_steep = a_steep + np.where(dy >= 0, f32(1.5707964), f32(4.712389))
    b = np.where(flat, a_flat, a_steep) * f32(bins * 0.3183098861837907) - f32(0.5)
    low = np.floor(b)
    lo = low.astype(int)
    lo = np.where(lo > bins - 1, lo - bins, lo)
    lo = np.where(lo < 0, lo + bins, lo)
    hi = np.where(lo + 1 == bins, 0, lo + 1)
    f = b - low
    m = np.sqrt(dx * dx + dy * dy)
    first, second = m * (f32(1) - f), m * f
    weights = model_weights(cell, block, sigma)
    rows, cols = window
    nbx, nby = (cols - block) // stride + 1, (rows - block) // stride + 1
    out = []
    for x0, y0 in locations:
        if x0 < 0 or y0 < 0 or x0 + cols > w or y0 + rows > h:
            continue
        descriptor = []
        for by in range(nby):
            for bx in range(nbx):
                hist = np.zeros((bins, 4), np.float32)
                for y in range(block):
                    for x in range(block):
                        yy, xx = y0 + by * stride + y, x0 + bx * stride + x
                        hist[lo[yy, xx]] += first[yy, xx] * weights[y, x]
                        hist[hi[yy, xx]] += second[yy, xx] * weights[y, x]
                for _ in range(2):
                    lane = np.zeros(4, np.float32)
                    for j in range(bins):
                        lane += hist[j] * hist[j]
                    q = (lane[0] + lane[1]) + (lane[2] + lane[3])
                    inv = f32(1) / np.sqrt(q + f32(1.1920929e-7) + f32(1.1920929e-7))
                    if _ == 0:
                        hist = np.minimum(hist * inv, f32(threshold))
                    else:
                        hist = hist * inv
                descriptor.append(hist.T.reshape(-1))
        out.append(np.concatenate(descriptor))
    return np.array(out, np.float32).reshape(len(out), -1)


ARGS = dict(window=(16, 12), cell=4, block=8, stride=4, bins=7, sigma=2.0, threshold=0.25)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("channels", [1, 3])
def test_matches_the_model(dtype, channels):
    rng = np.random.default_rng(7)
    shape = (23, 18) if channels == 1 else (23, 18, 3)
    if dtype == np.float32:
        image = (rng.integers(-2000, 2000, shape) / 16).astype(np.float32)
    else:
        info = np.iinfo(dtype)
        image = rng.integers(info.min, info.max, shape, endpoint=True).astype(dtype)
    at = [(0, 0), (4, 4), (-1, 0), (5, 0), (2, 3), (6, 3)]   # R is 16 wide: x 5 and 6 fall out
    got = keli.hog(image, at, **ARGS)
    want = model(image, at, **{k: v for k, v in ARGS.items()})
    assert got.shape == want.shape == (3, 6 * 4 * 7)
    np.testing.assert_array_equal(got.view(np.uint32), want.view(np.uint32))


def test_views_out_and_defaults():
    rng = np.random.default_rng(3)
    big = rng.integers(0, 256, (40, 50, 3), dtype=np.uint8)
    view = big[5:30, 7:40]                      # a slice: rows not packed with the width
    want = keli.hog(np.ascontiguousarray(view), [(0, 0), (8, 4)], **ARGS)
    out = np.empty_like(want)
    assert keli.hog(view, [(0, 0), (8, 4)], out=out, **ARGS) is out
    np.testing.assert_array_equal(out, want)
    np.testing.assert_array_equal(keli.hog(view, None, **ARGS), keli.hog(view, [(0, 0)], **ARGS))
    flat = np.full((20, 20), 9, np.uint8)
    assert not keli.hog(flat, [(0, 0)], **ARGS).any()
    assert keli.hog(flat, [(-1, -1)], **ARGS).shape == (0, 6 * 4 * 7)
    # Another border changes only pixels whose neighbours lie outside the region.
    mirror = keli.hog(view, [(0, 0)], border="mirror", **ARGS)
    const = keli.hog(view, [(0, 0)], border="constant", value=(1, 2, 3), **ARGS)
    assert mirror.shape == const.shape == want[:1].shape


def test_errors():
    image = np.zeros((20, 20), np.uint8)
    with pytest.raises(keli.UnsupportedMode):
        keli.hog(image, window=(24, 24), cell=8, block=24, stride=8)
    with pytest.raises(keli.BadSize):
        keli.hog(image, window=(32, 16), cell=4, block=8, stride=4)
    with pytest.raises(TypeError):
        keli.hog(image.astype(np.float64), **ARGS)
    with pytest.raises(TypeError):
        keli.hog(np.zeros((20, 20, 4), np.uint8), **ARGS)
    with pytest.raises(ValueError):
        keli.hog(image, border="wrap", **ARGS)
    with pytest.raises(ValueError):
        keli.hog(image, [(0, 0)], out=np.empty((2, 5), np.float32), **ARGS)
