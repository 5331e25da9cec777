"""Dtype and channel dispatch, checked against plain numpy models in wide integers."""
import numpy as np
import pytest

import keli
from conftest import random_image

INTEGER = [np.uint8, np.uint16, np.int16]
SHAPES = {"C1": (13, 37), "C3": (13, 37, 3), "C4": (13, 37, 4)}


def saturate(values, dtype):
    info = np.iinfo(dtype)
    return np.clip(values, info.min, info.max).astype(dtype)


def scaled(values, scale):
    """values * 2**-scale rounded to nearest, ties to even (numpy's rint), in float64."""
    return np.rint(values / 2.0 ** scale)


@pytest.mark.parametrize("dtype", INTEGER)
@pytest.mark.parametrize("layout", list(SHAPES))
@pytest.mark.parametrize("scale", [0, 1, 3])
def test_integer_arithmetic_saturates_and_rounds_ties_to_even(rng, exports_used, dtype, layout, scale):
    a, b = random_image(rng, SHAPES[layout], dtype), random_image(rng, SHAPES[layout], dtype)
    wide_a, wide_b = a.astype(np.int64), b.astype(np.int64)
    assert np.array_equal(keli.add(a, b, scale=scale), saturate(scaled(wide_a + wide_b, scale), dtype))
    assert np.array_equal(keli.subtract(a, b, scale=scale), saturate(scaled(wide_a - wide_b, scale), dtype))
    assert np.array_equal(keli.multiply(a, b, scale=scale), saturate(scaled(wide_a * wide_b, scale), dtype))
    token = {np.uint8: "8u", np.uint16: "16u", np.int16: "16s"}[dtype]
    assert exports_used[0] == f"keliAdd_{token}_{layout}RSfs"


def test_constants_go_one_per_colour_channel(rng):
    image = random_image(rng, (9, 11, 3), np.uint8)
    expected = saturate(image.astype(np.int64) + np.array([10, 0, 250]), np.uint8)
    assert np.array_equal(keli.add(image, (10, 0, 250)), expected)
    assert np.array_equal(keli.add(image, 7), saturate(image.astype(np.int64) + 7, np.uint8))
    with pytest.raises(ValueError, match="representable"):
        keli.add(image, 256)
    with pytest.raises(ValueError, match="3 element"):
        keli.add(image, (1, 2))


def test_float_arithmetic_matches_numpy_and_takes_no_scale(rng):
    a, b = random_image(rng, (8, 21, 4), np.float32), random_image(rng, (8, 21, 4), np.float32)
    assert np.array_equal(keli.add(a, b), a + b)
    assert np.array_equal(keli.subtract(a, b), a - b)
    assert np.array_equal(keli.multiply(a, b), a * b)
    with pytest.raises(ValueError, match="no scale"):
        keli.add(a, b, scale=1)


def test_keep_alpha_leaves_the_fourth_channel(rng, exports_used):
    a, b = random_image(rng, (6, 10, 4), np.uint8), random_image(rng, (6, 10, 4), np.uint8)
    out = np.full_like(a, 77)
    keli.add(a, b, out=out, keep_alpha=True)
    assert exports_used == ["keliAdd_8u_AC4RSfs"]
    assert (out[..., 3] == 77).all()
    assert np.array_equal(out[..., :3], saturate(a[..., :3].astype(int) + b[..., :3], np.uint8))
    fresh = keli.add(a, b, keep_alpha=True)
    assert np.array_equal(fresh[..., 3], a[..., 3])


def test_a_missing_member_names_what_exists(rng):
    with pytest.raises(TypeError, match="uint8, uint16, int16") as caught:
        keli.add(np.zeros((4, 4), np.int32), np.zeros((4, 4), np.int32))
    assert "keliAdd_32s_C1RSfs" in str(caught.value)
    with pytest.raises(ValueError, match="height, width"):
        keli.add(np.zeros((4, 4, 2), np.uint8), 1)
    with pytest.raises(ValueError, match="differ"):
        keli.add(np.zeros((4, 4), np.uint8), np.zeros((4, 5), np.uint8))


@pytest.mark.parametrize("rounding,expected", [
    ("zero", [0, 1, 2, 0, -1, 2, 32767]),
    ("near", [0, 2, 2, 0, -2, 3, 32767]),
    ("financial", [1, 2, 3, -1, -2, 3, 32767]),
])
def test_float_to_integer_conversion_rounds_by_the_mode(rounding, expected):
    values = np.array([[0.5, 1.5, 2.5, -0.5, -1.5, 2.75, 1e9]], np.float32)
    assert keli.convert(values, np.int16, rounding=rounding).tolist() == [expected]


def test_conversions_saturate_widen_and_scale(rng):
    image = random_image(rng, (7, 9, 3), np.int16)
    assert np.array_equal(keli.convert(image, np.uint8), saturate(image, np.uint8))
    assert np.array_equal(keli.convert(image, np.float32), image.astype(np.float32))
    grey = random_image(rng, (7, 9), np.int16)
    assert np.array_equal(keli.convert(grey, np.int8, scale=2), saturate(np.rint(grey / 4.0), np.int8))
    assert np.array_equal(keli.convert(grey, np.uint16), np.maximum(grey, 0).astype(np.uint16))
    assert keli.rescale(np.array([[0, 1, 255]], np.uint8), np.uint16).tolist() == [[0, 257, 65535]]
    # Members that exist for one channel only convert colour images as rows of elements.
    assert np.array_equal(keli.convert(image, np.int8), saturate(image, np.int8))
    assert np.array_equal(keli.convert(image, np.int8, scale=1), saturate(np.rint(image / 2.0), np.int8))
    with pytest.raises(TypeError, match="no conversion"):
        keli.convert(image, np.float64)
    with pytest.raises(TypeError, match="no conversion"):
        keli.convert(random_image(rng, (3, 4, 4), np.int16), np.int8, keep_alpha=True)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("layout", ["C1", "C3"])
def test_thresholds_against_numpy(rng, dtype, layout):
    image = random_image(rng, SHAPES[layout], dtype)
    level = np.array(100, dtype)
    assert np.array_equal(keli.threshold(image, 100, op="lt"), np.where(image < level, level, image))
    assert np.array_equal(keli.threshold(image, 100, op="gt", value=5), np.where(image > level, dtype(5), image))
    expected = np.where(image < dtype(-5 if dtype in (np.int16, np.float32) else 5), dtype(1), image)
    low = -5 if dtype in (np.int16, np.float32) else 5
    expected = np.where(expected > level, dtype(9), expected)
    assert np.array_equal(keli.threshold_range(image, low, 1, 100, 9), expected)


def test_four_channel_thresholds_with_a_value(rng):
    image = random_image(rng, SHAPES["C4"], np.uint8)
    levels = np.array([10, 100, 200, 250], np.uint8)
    assert np.array_equal(keli.threshold(image, levels, op="gt", value=0), np.where(image > levels, 0, image))


def test_otsu_splits_two_populations():
    image = np.concatenate([np.full((8, 8), 40, np.uint8), np.full((8, 8), 200, np.uint8)])
    level = keli.otsu_threshold(image)
    assert 40 <= level < 200


def test_absolute_saturates_the_most_negative_int16():
    values = np.array([[-32768, -5, 0, 7]], np.int16)
    assert keli.absolute(values).tolist() == [[32767, 5, 0, 7]]
