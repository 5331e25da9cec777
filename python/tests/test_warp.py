"""Affine helpers and warps against plain numpy models."""
import math

import numpy as np
import pytest

import keli
from keli import warp


def test_rotation_matrix_right_angles_and_centre():
    m = warp.rotation_matrix(90, center=(3, 5))
    assert m.tolist() == [[0, 1, -2], [-1, 0, 8]]
    m = warp.rotation_matrix(30, center=(10.5, -2))
    c = np.array([10.5, -2, 1])
    np.testing.assert_allclose(m @ c, [10.5, -2], atol=1e-12)
    assert m[0, 0] == pytest.approx(math.cos(math.radians(30)), abs=1e-15)


def test_rotation_matrix_refuses_an_infinite_angle():
    with pytest.raises(keli.Error):
        warp.rotation_matrix(float("inf"))


def test_quad_bound_transform_round_trip():
    m = np.array([[0.75, -0.5, 10], [0.25, 1.5, -4]])
    rect = (3, 5, 9, 17)
    q = warp.affine_quad(rect, m)
    corners = np.array([[3, 5, 1], [11, 5, 1], [11, 21, 1], [3, 21, 1]], float)
    np.testing.assert_array_equal(q, corners @ m.T)
    assert warp.affine_bound(rect, m) == (q[:, 0].min(), q[:, 1].min(), q[:, 0].max(), q[:, 1].max())
    np.testing.assert_allclose(warp.affine_transform(rect, q), m, atol=1e-13)


def test_transform_of_a_trapezoid_warns_and_answers():
    with pytest.warns(keli.KeliWarning):
        m = warp.affine_transform((0, 0, 11, 11), [[0, 0], [10, 0], [8, 10], [2, 10]])
    assert m[0].tolist() == [1, -0.2, 0]


def test_transform_errors():
    with pytest.raises(keli.Error):
        warp.affine_transform((0, 0, 1, 11), [[0, 0], [10, 0], [10, 10], [0, 10]])
    with pytest.raises(ValueError):
        warp.affine_transform((0, 0, 11, 11), [[0, 0], [10, 0]])


def test_source_region():
    assert warp.affine_source_region((80, 100), np.eye(2, 3), (10, 20, 30, 40)) == (9, 19, 32, 42)
    half = [[0.5, 0, 0], [0, 0.5, 0]]
    assert warp.affine_source_region((100, 100), half, (0, 0, 10, 10)) == (0, 0, 20, 20)
    assert warp.affine_source_region((100, 100), [[2, 0, 0], [0, 2, 0]], (0, 0, 10, 10), inverse=True) == (0, 0, 20, 20)
    with pytest.raises(keli.Error):
        warp.affine_source_region((100, 100), [[1, 1, 0], [1, 1, 0]], (0, 0, 10, 10))


def _nearest_model(a, inv, shape):
    """Nearest inside the source, ties upward; positions by the destination-to-source matrix."""
    h, w = shape
    out = np.zeros((h, w) + a.shape[2:], a.dtype)
    for y in range(h):
        for x in range(w):
            sx = inv[0, 0] * x + inv[0, 1] * y + inv[0, 2]
            sy = inv[1, 0] * x + inv[1, 1] * y + inv[1, 2]
            if -1e-9 <= sx <= a.shape[1] - 1 + 1e-9 and -1e-9 <= sy <= a.shape[0] - 1 + 1e-9:
                out[y, x] = a[int(math.floor(sy + 0.5)), int(math.floor(sx + 0.5))]
    return out


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32, np.float64])
@pytest.mark.parametrize("channels", [1, 3, 4])
def test_nearest_matches_a_numpy_model(dtype, channels):
    rng = np.random.default_rng(5)
    shape = (13, 17) if channels == 1 else (13, 17, channels)
    a = (rng.random(shape) * 200).astype(dtype)
    inv = np.array([[0.5, -0.25, 4.0], [0.25, 0.5, 1.0]])  # dyadic: no rounding in the positions
    got = keli.warp_affine(a, inv, (15, 20), interpolation="nearest", border="transparent", inverse=True)
    np.testing.assert_array_equal(got, _nearest_model(a, inv, (15, 20)))


def test_linear_half_shift_averages_and_rounds_to_even():
    a = np.array([[10, 21, 40, 255], [0, 3, 100, 101]], np.uint16)
    got = keli.warp_affine(a, [[1, 0, 0.5], [0, 1, 0]], (2, 4), border="replicate", inverse=True)
    # 15.5 -> 16, 30.5 -> 30, 147.5 -> 148, then the last column replicated; row 2 likewise
    np.testing.assert_array_equal(got, [[16, 30, 148, 255], [2, 52, 100, 101]])


def test_whole_pixel_shift_copies_and_fills():
    a = np.arange(20, dtype=np.float32).reshape(4, 5)
    got = keli.warp_affine(a, [[1, 0, 2], [0, 1, -1]], (4, 6), border="constant", value=-1)
    want = np.full((4, 6), -1, np.float32)
    want[0:3, 2:6] = a[1:4, 0:4]
    np.testing.assert_array_equal(got, want)


def test_transparent_keeps_out_and_smooth_blends_only_outside():
    a = np.full((20, 20), 200, np.uint8)
    m = warp.rotation_matrix(30, center=(10, 10))
    base = np.full((24, 24), 10, np.uint8)
    plain = keli.warp_affine(a, m, (24, 24), border="transparent", out=base.copy())
    smooth = keli.warp_affine(a, m, (24, 24), border="transparent", smooth=True, out=base.copy())
    assert (plain[0, :3] == 10).all() and plain[10, 10] == 200
    changed = smooth != plain
    assert changed.any()
    assert (plain[changed] == 10).all()  # only pixels the warp left alone are blended
    assert ((smooth[changed] > 10) & (smooth[changed] < 200)).all()


def test_missing_source_warns_and_leaves_out():
    a = np.ones((4, 4), np.uint8)
    out = np.full((3, 3), 7, np.uint8)
    with pytest.warns(keli.KeliWarning):
        keli.warp_affine(a, [[1, 0, 50.5], [0, 1, 0]], (3, 3), border="transparent", out=out)
    assert (out == 7).all()


def test_warp_errors():
    a = np.ones((4, 4), np.uint8)
    with pytest.raises(keli.Error):
        keli.warp_affine(a, [[1, 2, 0], [2, 4, 0]], (4, 4))
    with pytest.raises(keli.Error):
        keli.warp_affine(a, np.eye(2, 3), (4, 4), border="replicate", smooth=True)
    with pytest.raises(ValueError):
        keli.warp_affine(a, np.eye(2, 3), (4, 4), interpolation="bicubic")
    with pytest.raises(ValueError):
        keli.warp_affine(a, np.eye(3), (4, 4))


def _cubic_weights(t, b, c):
    return np.array([b / 6 - t * (b / 2 + c) + t * t * (2 * c + b / 2) + t ** 3 * (-b / 6 - c),
                     (1 - b / 3) + t * t * (c - 3 + 2 * b) + t ** 3 * (2 - c - 1.5 * b),
                     b / 6 + t * (b / 2 + c) - t * t * (2 * c - 3 + 2.5 * b) - t ** 3 * (2 - c - 1.5 * b),
                     t ** 3 * (b / 6 + c) - t * t * c])


def test_cubic_half_shift_against_the_weights():
    rng = np.random.default_rng(3)
    a = rng.random((12, 16)).astype(np.float64) * 100
    got = keli.warp_affine(a, [[1, 0, 0.5], [0, 1, 0]], (12, 16), interpolation="cubic", border="transparent",
                           inverse=True, cubic=(0, 0.5), out=np.full((12, 16), -1.0))
    w = _cubic_weights(0.5, 0, 0.5)
    for x in range(1, 13):  # the interval: positions 1.5 .. 13.5, a row inside
        np.testing.assert_allclose(got[5, x], a[5, x - 1:x + 3] @ w, rtol=1e-12)
    assert got[5, 0] == -1 and got[0, 5] == -1  # outside the interval: left as it was
