"""Masked copy and fill, channel orders, one-bit images, quality index and SAD against numpy."""
import numpy as np
import pytest

import keli
from conftest import random_image


def test_masked_copy_and_fill_touch_only_the_masked_pixels(rng):
    image = random_image(rng, (6, 9, 3), np.int16)
    mask = (rng.random((6, 9)) > 0.5).astype(np.uint8) * rng.integers(1, 256, (6, 9), dtype=np.uint8)
    out = np.full_like(image, -7)
    keli.copy(image, out=out, mask=mask)
    assert np.array_equal(out, np.where(mask[..., None] > 0, image, -7))
    keli.fill(out, (1, 2, 3), mask=mask)
    assert np.array_equal(out, np.where(mask[..., None] > 0, np.int16([1, 2, 3]), -7))
    grey = keli.fill(np.zeros((3, 4), np.float32), 2.5)
    assert (grey == 2.5).all()
    with pytest.raises(ValueError, match="mask"):
        keli.copy(image, mask=mask.astype(np.uint16))


def test_channel_orders_out_of_place_in_place_and_four_to_three(rng, exports_used):
    image = random_image(rng, (5, 7, 3), np.uint8)
    assert np.array_equal(keli.swap_channels(image, (2, 1, 0)), image[..., ::-1])
    in_place = image.copy()
    keli.swap_channels(in_place, (1, 2, 0), out=in_place)
    assert exports_used[-1] == "keliSwapChannels_8u_C3IR"
    assert np.array_equal(in_place, image[..., [1, 2, 0]])
    rgba = random_image(rng, (5, 7, 4), np.float32)
    assert np.array_equal(keli.swap_channels(rgba, (3, 0, 2)), rgba[..., [3, 0, 2]])
    assert np.array_equal(keli.swap_channels(rgba, (3, 2, 1, 0)), rgba[..., ::-1])
    kept = keli.swap_channels(rgba, (2, 1, 0), keep_alpha=True)
    assert kept.shape == rgba.shape and np.array_equal(kept, rgba[..., [2, 1, 0, 3]])


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
def test_bits_set_strictly_above_the_threshold_and_back(rng, dtype):
    image = random_image(rng, (6, 21), dtype)
    image[0, :3] = 0
    bits = keli.to_bits(image, 0)
    assert bits.shape == (6, 3)
    expected = image > 0
    assert np.array_equal(np.unpackbits(bits, axis=1, bitorder="little")[:, :21], expected)
    assert np.array_equal(keli.from_bits(bits, 21, 0, 9, dtype), np.where(expected, 9, 0).astype(dtype))


def test_quality_index_against_its_formula(rng):
    a = random_image(rng, (20, 30), np.uint8)
    b = np.clip(a * 0.5 + rng.normal(0, 9, a.shape) + 3, 0, 255).astype(np.uint8)
    x, y = a.astype(np.float64), b.astype(np.float64)
    cov = ((x - x.mean()) * (y - y.mean())).sum() / (x.size - 1)
    expected = 4 * cov * x.mean() * y.mean() / ((x.var(ddof=1) + y.var(ddof=1)) * (x.mean() ** 2 + y.mean() ** 2))
    assert keli.quality_index(a, b) == pytest.approx(expected, rel=1e-4)
    with pytest.raises(keli.ZeroDenominator):
        keli.quality_index(np.full((4, 4), 3, np.float32), np.full((4, 4), 3, np.float32))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_sad_at_every_valid_position(rng, dtype):
    image = random_image(rng, (12, 15), np.uint8).astype(dtype)
    template = image[4:7, 2:6].copy()
    template[0, 0] += 1
    result = keli.sad(image, template)
    wide = image.astype(np.float64)
    expected = [[np.abs(wide[i:i + 3, j:j + 4] - template).sum() for j in range(12)] for i in range(10)]
    assert result.shape == (10, 12) and np.array_equal(result, expected)
    if dtype != np.float32:
        halved = keli.sad(image, template, scale=1)
        assert np.array_equal(halved, np.rint(np.array(expected) / 2))


def test_library_version_record():
    version = keli.library_version()
    assert version["major"] == 2022 and version["version"].startswith("2022.3")


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
@pytest.mark.parametrize("channels", [3, 4])
def test_planes_split_and_merge_back(rng, dtype, channels):
    image = random_image(rng, (7, 10, channels), dtype)
    planes = keli.split(image)
    assert len(planes) == channels and all(np.array_equal(planes[c], image[..., c]) for c in range(channels))
    assert np.array_equal(keli.merge(planes), image)
    padded = [np.pad(p, ((0, 0), (0, c + 1)))[:, :10] for c, p in enumerate(planes)]  # unlike steps
    assert np.array_equal(keli.merge(padded), image)


def test_grey_repeated_into_colour(rng):
    grey = random_image(rng, (5, 6), np.uint8)
    assert np.array_equal(keli.grey_to_colour(grey), np.dstack([grey] * 3))
    assert np.array_equal(keli.grey_to_colour(grey, 4), np.dstack([grey] * 4))


def test_linear_scaling_of_colour_images_element_by_element(rng):
    image = random_image(rng, (5, 6, 3), np.uint8)
    assert np.array_equal(keli.scale_linear(image, 0.5, 10.0), np.rint(image * 0.5 + 10).astype(np.uint8))
