"""Sums, extrema, norms, histograms, lookup tables and palettes against numpy."""
import numpy as np
import pytest

import keli
from conftest import random_image

SHAPES = [(31, 47), (31, 47, 3), (31, 47, 4)]


def per_channel(image):
    return image.reshape(-1, 1 if image.ndim == 2 else image.shape[2]).astype(np.float64)


def same(value, expected):
    return np.array_equal(np.atleast_1d(value), np.atleast_1d(expected))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16])
@pytest.mark.parametrize("shape", SHAPES)
def test_integer_reductions_are_exact(rng, dtype, shape):
    image = random_image(rng, shape, dtype)
    other = random_image(rng, shape, dtype)
    columns, diff = per_channel(image), per_channel(image) - per_channel(other)
    assert same(keli.sum(image), columns.sum(0))
    assert np.allclose(keli.mean(image), columns.mean(0), rtol=1e-15)
    assert same(keli.min(image), columns.min(0)) and same(keli.max(image), columns.max(0))
    assert np.allclose(keli.norm(image, kind="l2"), np.sqrt((columns ** 2).sum(0)), rtol=1e-15)
    assert same(keli.norm(image, other, kind="l1"), np.abs(diff).sum(0))
    assert same(keli.norm(image, other, kind="inf"), np.abs(diff).max(0))
    assert np.allclose(keli.dot(image, other), (columns * per_channel(other)).sum(0), rtol=1e-15)


def test_float_sums_within_their_rounding_and_exact_when_accurate(rng):
    image = rng.random((64, 100)).astype(np.float32)
    exact = image.astype(np.float64).sum()
    assert keli.sum(image) == pytest.approx(exact, rel=1e-6)
    assert keli.sum(image, accurate=True) == pytest.approx(exact, rel=1e-12)


def test_positions_are_the_first_occurrence_in_row_major_order(rng):
    image = random_image(rng, (20, 30), np.uint8) // 4 + 10
    image[7, 3] = image[12, 1] = 255
    image[4, 29] = image[4, 2] = 0
    assert keli.argmax(image) == (255, (7, 3))
    assert keli.argmin(image) == (0, (4, 2))
    colour = random_image(rng, (9, 11, 3), np.int16)
    values, positions = keli.argmax(colour)
    for c in range(3):
        flat = np.argmax(colour[..., c])
        assert tuple(positions[c]) == np.unravel_index(flat, (9, 11)) and values[c] == colour[..., c].max()


@pytest.mark.parametrize("dtype,bins,value_range", [
    (np.uint8, 256, None), (np.uint8, 17, (3, 240)), (np.uint16, 64, None), (np.int16, 10, (-1000, 1000)),
])
def test_histograms_equal_numpy_on_integer_edges(rng, dtype, bins, value_range):
    image = random_image(rng, (40, 50, 3), dtype)
    counts, edges = keli.histogram(image, bins, value_range)
    for c in range(3):
        expected, _ = np.histogram(image[..., c], edges[c])
        # numpy's last bin also counts its upper edge; keli's, like every other bin, does not
        expected[-1] -= np.count_nonzero(image[..., c] == edges[c][-1])
        assert np.array_equal(counts[c], expected)


def test_non_uniform_float_histogram(rng):
    image = rng.random((30, 30)).astype(np.float32)
    edges = [0.0, 0.1, 0.5, 0.75, 1.0]
    counts, levels = keli.histogram(image, edges)
    assert np.array_equal(levels, np.float32(edges))
    assert np.array_equal(counts, np.histogram(image, np.float32(edges))[0])
    with pytest.raises(ValueError, match="needs range"):
        keli.histogram(image, 10)


def test_linear_lookup_table_follows_its_curve():
    ramp = np.arange(256, dtype=np.uint8).reshape(16, 16)
    mapped = keli.lut(ramp, [0, 256], [0, 255])
    assert np.array_equal(mapped.ravel(), np.trunc(np.arange(256) * 255 / 256 + 0.5).astype(np.uint8))
    table = keli.LookupTable([[0, 128, 256], [0, 256], [50, 100]], [[0, 255, 255], [255, 0], [0, 255]],
                             channels=3, interpolation="nearest")
    colour = np.dstack([ramp, ramp, ramp])
    result = table(colour)
    assert (result[..., 0] == np.where(ramp < 128, 0, 255)).all()
    assert (result[..., 1] == 255).all()
    outside = (ramp < 50) | (ramp >= 100)
    assert np.array_equal(result[..., 2][outside], ramp[outside])  # outside the levels: unchanged


def test_palette_indexes_by_the_low_bits(rng):
    image = random_image(rng, (12, 13), np.uint8)
    table = rng.integers(0, 1 << 32, 256, dtype=np.uint32)
    assert np.array_equal(keli.palette(image, table), table[image])
    small = np.array([7, 9], np.uint8)
    assert np.array_equal(keli.palette(image, small), small[image & 1])
    wide = random_image(rng, (5, 6, 3), np.uint16)
    tables = rng.integers(0, 65536, (3, 1024), dtype=np.uint16)
    expected = np.stack([tables[c][wide[..., c] & 1023] for c in range(3)], axis=2)
    assert np.array_equal(keli.palette(wide, tables, bits=10), expected)


def test_equalize_spreads_a_narrow_image_over_the_full_range(rng):
    narrow = rng.integers(100, 140, (50, 60), dtype=np.uint8)
    flat = keli.equalize(narrow)
    assert flat.min() == 0 and flat.max() == 255
    order = np.argsort(narrow, axis=None, kind="stable")
    assert (np.diff(flat.ravel()[order].astype(int)) >= 0).all()  # monotone in the input


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
def test_block_extrema_with_partial_edge_blocks(rng, dtype):
    image = random_image(rng, (17, 23), dtype)
    low, high, smallest, largest = keli.block_min_max(image, (4, 5))
    assert low.shape == high.shape == (5, 5)
    for i in range(5):
        for j in range(5):
            block = image[4 * i:4 * i + 4, 5 * j:5 * j + 5]
            assert low[i, j] == block.min() and high[i, j] == block.max()
    assert (smallest, largest) == (image.min(), image.max())
