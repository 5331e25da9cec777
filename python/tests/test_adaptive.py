"""keli.adaptive_threshold against a plain numpy model of the exact box rule."""
import numpy as np
import pytest

import keli


def _box_model(a, size, delta, gt, le, mode, value=0):
    r = size // 2
    pad = np.pad(a.astype(np.int64), r, mode=mode, **({"constant_values": value} if mode == "constant" else {}))
    h, w = a.shape
    s = sum(pad[j:j + h, i:i + w] for j in range(size) for i in range(size))
    area = size * size
    # a * src - S > -a * delta, in exact rationals (delta is a float32)
    lhs = area * a.astype(np.int64) - s
    return np.where(lhs > -area * np.float64(np.float32(delta)), gt, le).astype(np.uint8)


@pytest.mark.parametrize("size,delta,border", [(3, 0.0, "replicate"), (5, 1.0 / 25, "constant"),
                                               (17, -2.5, "replicate"), (7, 3.0, "constant")])
def test_box_matches_the_exact_rule(size, delta, border):
    rng = np.random.default_rng(5)
    a = rng.integers(100, 106, (23, 41), dtype=np.uint8)
    got = keli.adaptive_threshold(a, size, delta, value_gt=9, value_le=4, border=border, value=103)
    mode = "edge" if border == "replicate" else "constant"
    np.testing.assert_array_equal(got, _box_model(a, size, delta, 9, 4, mode, 103))


def test_valid_part_slices_and_in_place():
    rng = np.random.default_rng(6)
    big = rng.integers(0, 256, (40, 60), dtype=np.uint8)
    a = big[3:33, 5:55]                       # a slice: no copy, its own step
    valid = keli.adaptive_threshold(a, 5, 2.0, border=None)
    assert valid.shape == (26, 46)
    np.testing.assert_array_equal(valid, _box_model(a, 5, 2.0, 255, 0, "edge")[2:-2, 2:-2])
    for method in ("mean", "gaussian"):
        want = keli.adaptive_threshold(a, 7, -1.5, method=method)
        b = a.copy()
        assert keli.adaptive_threshold(b, 7, -1.5, method=method, out=b) is b
        np.testing.assert_array_equal(b, want)


def test_gaussian_shortcuts_and_errors():
    a = np.full((9, 12), 90, np.uint8)
    assert (keli.adaptive_threshold(a, 5, 0.0, method="gaussian") == 0).all()
    assert (keli.adaptive_threshold(a, 5, 1.0, method="gaussian") == 255).all()
    assert (keli.adaptive_threshold(a, 5, 300.0, method="gaussian", sigma=2.0) == 255).all()
    with pytest.raises(keli.BadMaskSize):
        keli.adaptive_threshold(a, 4)                      # even mask
    with pytest.raises(ValueError):
        keli.adaptive_threshold(a, 3, border="mirror")
    with pytest.raises(TypeError):
        keli.adaptive_threshold(a.astype(np.uint16), 3)
