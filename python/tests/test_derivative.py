"""keli.derivative against plain numpy models: padded windows times the masks as written."""
import importlib

import numpy as np
import pytest

import keli
kd = importlib.import_module("keli.derivative")

PADS = {"replicate": "edge", "mirror": "reflect", "constant": "constant"}

SOBEL5_SMOOTH = np.array([1, 4, 6, 4, 1])
MASKS3 = {
    "sobel_vert": [[1, 0, -1], [2, 0, -2], [1, 0, -1]],
    "sobel_horiz": [[-1, -2, -1], [0, 0, 0], [1, 2, 1]],
    "sobel_neg_vert": [[-1, 0, 1], [-2, 0, 2], [-1, 0, 1]],
    "sobel_vert_second": [[1, -2, 1], [2, -4, 2], [1, -2, 1]],
    "sobel_horiz_second": [[1, 2, 1], [-2, -4, -2], [1, 2, 1]],
    "scharr_vert": [[-3, 0, 3], [-10, 0, 10], [-3, 0, 3]],
    "scharr_horiz": [[-3, -10, -3], [0, 0, 0], [3, 10, 3]],
    "prewitt_vert": [[1, 0, -1], [1, 0, -1], [1, 0, -1]],
    "prewitt_horiz": [[-1, -1, -1], [0, 0, 0], [1, 1, 1]],
    "roberts_down": [[-1, 0, 0], [0, 1, 0], [0, 0, 0]],
    "roberts_up": [[0, 0, -1], [0, 1, 0], [0, 0, 0]],
}
MASKS5 = {
    "sobel_vert": np.outer(SOBEL5_SMOOTH, [1, 2, 0, -2, -1]),
    "sobel_horiz": np.outer([-1, -2, 0, 2, 1], SOBEL5_SMOOTH),
    "sobel_neg_vert": np.outer(SOBEL5_SMOOTH, [-1, -2, 0, 2, 1]),
    "sobel_vert_second": np.outer(SOBEL5_SMOOTH, [1, 0, -2, 0, 1]),
    "sobel_horiz_second": np.outer([1, 0, -2, 0, 1], SOBEL5_SMOOTH),
}


def correlate(a, mask, border="replicate", value=0):
    """The mask as written over the window centred on each pixel, in int64 (or float64)."""
    mask = np.asarray(mask)
    k = mask.shape[0]
    r = k // 2
    wide = np.int64 if a.dtype.kind in "iu" else np.float64
    if border is None:
        padded = a.astype(wide)
        h, w = a.shape[0] - k + 1, a.shape[1] - k + 1
    else:
        extra = {"constant_values": value} if border == "constant" else {}
        padded = np.pad(a.astype(wide), r, mode=PADS[border], **extra)
        h, w = a.shape[:2]
    out = np.zeros((h, w) + a.shape[2:], wide)
    for j in range(k):
        for i in range(k):
            out += mask[j, i] * padded[j:j + h, i:i + w]
    return out


@pytest.mark.parametrize("mask", sorted(MASKS3))
@pytest.mark.parametrize("border", ["replicate", "mirror", "constant", None])
def test_every_mask_uint8(rng, mask, border):
    a = rng.integers(0, 256, (13, 21), dtype=np.uint8)
    got = kd.derivative_filter(a, mask, border=border, value=77)
    assert got.dtype == np.int16
    np.testing.assert_array_equal(got, correlate(a, np.array(MASKS3[mask]), border, 77))


@pytest.mark.parametrize("mask", sorted(MASKS5))
def test_five_by_five_int16_saturates_and_float32_is_exact_on_integers(rng, mask):
    a = rng.integers(-32768, 32768, (9, 30), dtype=np.int16)
    if mask in ("sobel_vert", "sobel_horiz"):
        got = kd.derivative_filter(a, mask, 5, border="mirror")
        np.testing.assert_array_equal(got, np.clip(correlate(a, MASKS5[mask], "mirror"), -32768, 32767))
    f = rng.integers(-1000, 1000, (9, 30)).astype(np.float32)
    np.testing.assert_array_equal(kd.derivative_filter(f, mask, 5), correlate(f, MASKS5[mask]).astype(np.float32))


def test_out_slices_and_errors(rng):
    a = rng.integers(0, 256, (20, 30), dtype=np.uint8)
    out = np.zeros((10, 15), np.int16)
    view = a[5:15, 3:18]
    assert kd.derivative_filter(view, "prewitt_horiz", out=out) is out
    np.testing.assert_array_equal(out, correlate(view, np.array(MASKS3["prewitt_horiz"])))
    with pytest.raises(ValueError):
        kd.derivative_filter(a, "scharr_vert", 5)
    with pytest.raises(ValueError):
        kd.derivative_filter(a, "laplace")
    with pytest.raises(TypeError):
        kd.derivative_filter(a.astype(np.uint16))
    with pytest.raises(TypeError):
        kd.derivative_filter(np.zeros((4, 4, 3), np.uint8))


@pytest.mark.parametrize("family,gx,gy", [("sobel", "sobel_vert", "sobel_horiz"), ("prewitt", "prewitt_vert", "prewitt_horiz"),
                                          ("scharr", "scharr_vert", "scharr_horiz")])
def test_gradient_of_every_type(rng, family, gx, gy):
    for dtype in (np.uint8, np.uint16, np.int16, np.float32):
        lo, hi = (-1000, 1000) if dtype == np.float32 else (np.iinfo(dtype).min, np.iinfo(dtype).max)
        if dtype == np.int16:
            lo, hi = -4000, 4000  # the 16s derivative filter saturates, the gradient does not
        a = rng.integers(lo, hi, (11, 17)).astype(dtype)
        g = kd.gradient(a, family, norm="l2")
        x = correlate(a, np.array(MASKS3[gx])).astype(np.float64)
        y = correlate(a, np.array(MASKS3[gy])).astype(np.float64)
        np.testing.assert_array_equal(g["gx"], x)
        np.testing.assert_array_equal(g["gy"], y)
        if dtype == np.uint8:
            np.testing.assert_array_equal(g["magnitude"], np.rint(np.sqrt(x * x + y * y)))
        else:
            fx, fy = x.astype(np.float32), y.astype(np.float32)
            np.testing.assert_array_equal(g["magnitude"], np.sqrt(fx * fx + fy * fy))
        assert np.max(np.abs(g["angle"] - np.arctan2(y, x))) <= 1e-6


def test_gradient_three_channels_and_l1(rng):
    a = rng.integers(0, 256, (12, 14, 3), dtype=np.uint8)
    g = kd.gradient(a, "sobel", 5, norm="l1", outputs=("gx", "magnitude"), border="constant", value=(1, 2, 3))
    assert set(g) == {"gx", "magnitude"}
    xs = [correlate(a[..., c], MASKS5["sobel_vert"], "constant", v) for c, v in enumerate((1, 2, 3))]
    ys = [correlate(a[..., c], MASKS5["sobel_horiz"], "constant", v) for c, v in enumerate((1, 2, 3))]
    energy = np.stack([x * x + y * y for x, y in zip(xs, ys)])
    best = np.argmax(energy, axis=0)  # the first maximum: ties to the lower channel
    x = np.choose(best, xs)
    y = np.choose(best, ys)
    np.testing.assert_array_equal(g["gx"], x)
    np.testing.assert_array_equal(g["magnitude"], np.abs(x) + np.abs(y))


def test_sobel_magnitude_matches_the_gradient(rng):
    a = rng.integers(0, 256, (15, 19), dtype=np.uint8)
    for norm in ("l1", "l2"):
        np.testing.assert_array_equal(kd.sobel_magnitude(a, 5, norm=norm, border="mirror"),
                                      kd.gradient(a, "sobel", 5, norm=norm, border="mirror")["magnitude"])
    with pytest.raises(ValueError):
        kd.sobel_magnitude(a, norm="inf")
    with pytest.raises(ValueError):
        kd.gradient(a, "prewitt", 5)
    assert keli.derivative_filter is kd.derivative_filter
