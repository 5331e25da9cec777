"""keli.filters against plain numpy models: padded sliding windows."""
import numpy as np
import pytest

import keli
from keli import filters
from keli._lib import lib

PADS = {"replicate": "edge", "mirror": "reflect", "constant": "constant"}


def _has(name):
    try:
        getattr(lib, name)
        return True
    except AttributeError:
        return False


needs_minmax = pytest.mark.skipif(not _has("keliFilterMinBorder_8u_C1R"),
                                  reason="library built without the min/max filters")


@pytest.fixture
def used(monkeypatch):
    names = []
    real = filters.find

    def spy(*args, **fields):
        found = real(*args, **fields)
        names.append(found[0])
        return found

    monkeypatch.setattr(filters, "find", spy)
    return names


def windows(a, rows, cols, border="replicate", value=0):
    """All rows x cols windows of a (anchor ((rows-1)//2, (cols-1)//2)), stacked on axis 0."""
    a = np.asarray(a)
    if border is None:
        p = a
    else:
        ay, ax = (rows - 1) // 2, (cols - 1) // 2
        width = [(ay, rows - 1 - ay), (ax, cols - 1 - ax)] + [(0, 0)] * (a.ndim - 2)
        kw = {"constant_values": value} if border == "constant" else {}
        p = np.pad(a, width, PADS[border], **kw)
    h, w = p.shape[0] - rows + 1, p.shape[1] - cols + 1
    return np.stack([p[j:j + h, i:i + w] for j in range(rows) for i in range(cols)])


def image(rng, shape, dtype):
    if np.dtype(dtype).kind == "f":
        return rng.integers(-500, 500, shape).astype(dtype)
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


def box_model(a, rows, cols, border="replicate", value=0):
    w = windows(a, rows, cols, border, value)
    if a.dtype.kind == "f":
        raise AssertionError
    s = w.astype(np.int64).sum(axis=0)
    return np.floor(s.astype(np.float32) * np.float32(1.0 / (rows * cols)) + np.float32(0.5)).astype(a.dtype)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16])
@pytest.mark.parametrize("border", ["replicate", "mirror", "constant"])
@pytest.mark.parametrize("size", [3, (2, 5), (4, 1)])
def test_box_integer_matches_model(rng, dtype, border, size):
    a = image(rng, (13, 17), dtype)
    rows, cols = filters.window_size(size)
    value = 7
    got = keli.filters.box(a, size, border=border, value=value)
    np.testing.assert_array_equal(got, box_model(a, rows, cols, border, value))


def test_box_names_and_layouts(rng, used):
    a = image(rng, (9, 11, 3), np.uint8)
    got = filters.box(a, (3, 5), border="edge")
    assert "keliFilterBoxBorder_8u_C3R" in used
    np.testing.assert_array_equal(got, np.stack([box_model(a[..., c], 3, 5) for c in range(3)], -1))
    b = image(rng, (9, 11, 4), np.uint16)
    alpha = b[..., 3].copy()
    got = filters.box(b, 3, border="reflect", keep_alpha=True)
    assert "keliFilterBoxBorder_16u_AC4R" in used
    np.testing.assert_array_equal(got[..., 3], alpha)
    for c in range(3):
        np.testing.assert_array_equal(got[..., c], box_model(b[..., c], 3, 3, "mirror"))


def test_box_float32_close_and_in_place(rng, used):
    a = rng.standard_normal((12, 10)).astype(np.float32)
    want = windows(a, 3, 3).astype(np.float64).mean(axis=0)
    got = filters.box(a, 3)
    np.testing.assert_allclose(got, want, rtol=1e-5, atol=1e-5)
    b = a.copy()
    assert filters.box(b, 3, out=b) is b
    np.testing.assert_array_equal(b, got)  # the same bits in place


def test_box_valid_part_and_float64(rng, used):
    a = image(rng, (10, 12), np.uint8)
    got = filters.box(a, (3, 4), border=None)
    assert got.shape == (8, 9)
    np.testing.assert_array_equal(got, box_model(a, 3, 4, None))
    f = rng.standard_normal((10, 12))
    got = filters.box(f, (3, 4), border=None)
    assert "keliFilterBox_64f_C1R" in used
    np.testing.assert_allclose(got, windows(f, 3, 4, None).mean(axis=0), rtol=1e-12, atol=1e-12)
    with pytest.raises(ValueError):
        filters.box(f, 3)


def test_box_slice_out_and_no_copy(rng):
    big = image(rng, (20, 30), np.uint8)
    region = big[3:15, 5:22]
    out_big = np.zeros((20, 30), np.uint8)
    out = out_big[2:14, 4:21]
    assert filters.box(region, 5, out=out) is out
    np.testing.assert_array_equal(out, box_model(np.ascontiguousarray(region), 5, 5))
    assert not out_big[:2].any() and not out_big[14:].any() and not out_big[:, :4].any()
    # a strided (non-packed) input is copied first and gives the same result
    np.testing.assert_array_equal(filters.box(big[::2, ::2], 3), box_model(big[::2, ::2].copy(), 3, 3))


def test_box_errors(rng):
    a = image(rng, (8, 8), np.uint8)
    with pytest.raises(ValueError):
        filters.box(a, 0)
    with pytest.raises(ValueError):
        filters.box(a, 3, border="wrap")
    with pytest.raises(ValueError):
        filters.box(a, 3, out=np.empty((8, 8), np.uint16))
    with pytest.raises(ValueError):
        filters.box(a, 3, border="constant", value=300)
    with pytest.raises(TypeError):
        filters.box(a.astype(np.int32), 3)
    with pytest.raises(ValueError):
        filters.box(a, 9, border=None)
    with pytest.raises(ValueError):
        filters.box(a, 3, out=a[::-1])


@pytest.mark.parametrize("border", ["replicate", "mirror", "constant", None])
def test_sum_window_exact(rng, border, used):
    a = image(rng, (11, 14, 4), np.uint8)
    got = filters.sum_window(a, (4, 3), border=border, value=9)
    assert got.dtype == np.int32 and "keliSumWindow_8u32s_C4R" in used
    np.testing.assert_array_equal(got, windows(a, 4, 3, border, 9).astype(np.int64).sum(axis=0))
    b = image(rng, (11, 14), np.int16)
    got = filters.sum_window(b, 5, border=border, value=-3)
    assert got.dtype == np.float32
    want = windows(b, 5, 5, border, -3).astype(np.int64).sum(axis=0).astype(np.float32)
    np.testing.assert_array_equal(got, want)


def test_sum_window_types(rng):
    with pytest.raises(TypeError):
        filters.sum_window(np.zeros((4, 4), np.float64), 3)
    a = image(rng, (6, 6), np.uint16)
    with pytest.raises(ValueError):
        filters.sum_window(a, 3, out=np.empty((6, 6), np.uint16))
    out = np.empty((6, 6), np.float32)
    assert filters.sum_window(a, 3, out=out) is out


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
def test_filter2d_integer_kernel(rng, dtype, used):
    a = image(rng, (10, 13), dtype)
    k = np.array([[1, 2, 1], [0, 4, -2], [1, -1, 3]])
    got = filters.filter2d(a, k, divisor=5, border="mirror")
    token = {np.uint8: "8u", np.int16: "16s", np.float32: "32f"}[dtype]
    assert f"keliFilterBorder_{token}_C1R" in used
    s = np.einsum("kij,k->ij", windows(a, 3, 3, "mirror").astype(np.float64), k.ravel().astype(np.float64))
    if np.dtype(dtype).kind == "f":
        np.testing.assert_allclose(got, s / 5, rtol=1e-5, atol=1e-3)
    else:
        info = np.iinfo(dtype)
        # sums are exact; ties to even on the division
        np.testing.assert_array_equal(got, np.clip(np.round(s / 5), info.min, info.max).astype(dtype))


def test_filter2d_rounding_and_even_kernel(rng):
    a = image(rng, (9, 9), np.uint8)
    k = np.ones((2, 2), int)
    s = windows(a, 2, 2).astype(np.int64).sum(axis=0)
    np.testing.assert_array_equal(filters.filter2d(a, k, divisor=4, rounding="zero"), s // 4)
    np.testing.assert_array_equal(filters.filter2d(a, k, divisor=4, rounding="financial"),
                                  np.floor(s / 4 + 0.5).astype(np.uint8))
    np.testing.assert_array_equal(filters.filter2d(a, k, divisor=4), np.round(s / 4).astype(np.uint8))


def test_filter2d_float_and_valid(rng, used):
    f = rng.standard_normal((8, 10))
    k = rng.standard_normal((3, 5))
    got = filters.filter2d(f, k, border=None)
    assert got.shape == (6, 6) and "keliFilterBorder_64f_C1R" in used
    want = np.einsum("kij,k->ij", windows(f, 3, 5, None), k.ravel())
    np.testing.assert_allclose(got, want, rtol=1e-12, atol=1e-12)
    c = image(rng, (8, 10, 3), np.uint8)
    got = filters.filter2d(c, np.full((3, 3), 1 / 9, np.float32), border="constant", value=(1, 2, 3))
    assert "keliFilterBorder_8u_C3R" in used
    for ch in range(3):
        m = windows(c[..., ch], 3, 3, "constant", ch + 1).astype(np.float64).mean(axis=0)
        assert np.abs(got[..., ch] - m).max() <= 1


def test_filter2d_errors(rng):
    a = image(rng, (8, 8), np.uint8)
    with pytest.raises(ValueError):
        filters.filter2d(a, np.ones(3))
    with pytest.raises(ValueError):
        filters.filter2d(a, np.ones((3, 3)), divisor=9)
    with pytest.raises(ValueError):
        filters.filter2d(a, np.full((3, 3), 40000))
    with pytest.raises(ValueError):
        filters.filter2d(a, np.ones((3, 3), int), rounding="up")
    with pytest.raises(keli.Error):
        filters.filter2d(a, np.ones((3, 3), int), divisor=0)
    with pytest.raises(ValueError):
        filters.filter2d(a, np.ones((3, 3), int), out=a)
    with pytest.raises(TypeError):
        filters.filter2d(image(rng, (8, 8, 4), np.uint8), np.ones((3, 3), int), keep_alpha=True)


@needs_minmax
@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("border", ["replicate", "mirror", "constant", None])
def test_min_max_match_model(rng, dtype, border):
    a = image(rng, (12, 15), dtype)
    w = windows(a, 3, 4, border, 5)
    np.testing.assert_array_equal(filters.min_filter(a, (3, 4), border=border, value=5), w.min(axis=0))
    np.testing.assert_array_equal(filters.max_filter(a, (3, 4), border=border, value=5), w.max(axis=0))


@needs_minmax
def test_min_max_channels_and_errors(rng, used):
    a = image(rng, (10, 9, 4), np.uint8)
    alpha = a[..., 3].copy()
    got = filters.max_filter(a, 3, border="constant", value=(1, 2, 3), keep_alpha=True)
    assert "keliFilterMaxBorder_8u_AC4R" in used
    np.testing.assert_array_equal(got[..., 3], alpha)
    want = np.stack([windows(a[..., c], 3, 3, "constant", c + 1).max(axis=0) for c in range(3)], -1)
    np.testing.assert_array_equal(got[..., :3], want)
    with pytest.raises(ValueError):
        filters.min_filter(a, 3, out=a)


@needs_minmax
def test_erode_dilate_3x3(rng, used):
    f = rng.standard_normal((9, 12))
    np.testing.assert_array_equal(filters.erode3x3(f), windows(f, 3, 3, None).min(axis=0))
    np.testing.assert_array_equal(filters.dilate3x3(f), windows(f, 3, 3, None).max(axis=0))
    assert "keliDilate3x3_64f_C1R" in used
    with pytest.raises(TypeError):
        filters.erode3x3(f.astype(np.float32))


def test_filter2d_uint16_float_path(rng):
    a = rng.integers(0, 60000, (9, 11), dtype=np.uint16)
    k = np.array([[1, -2, 1], [2, 5, 2], [1, -2, 1]])
    s = np.einsum("kij,k->ij", windows(a, 3, 3).astype(np.float64), k.ravel().astype(np.float64))
    want = np.clip(np.round(s / 7), 0, 65535)
    for kernel, div in ((k, 7), (k.astype(np.float32) / 7, None)):
        got = filters.filter2d(a, kernel, divisor=div)
        assert got.dtype == np.uint16
        assert np.abs(got.astype(np.float64) - want).max() <= 1  # the sum is taken in float32


def test_docstrings_carry_the_contracts():
    for fn in (filters.box, filters.sum_window, filters.filter2d, filters.min_filter, filters.erode3x3):
        assert "Reference:" in fn.__doc__


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16])
def test_sum_window_row_column(rng, dtype, used):
    a = image(rng, (9, 12, 3), dtype)
    got = filters.sum_window_row(a, 4)
    assert got.shape == (9, 9, 3) and got.dtype == np.float32
    np.testing.assert_array_equal(got, windows(a, 1, 4, None).astype(np.float64).sum(axis=0))
    got = filters.sum_window_column(a[..., 0], 5)
    assert got.shape == (5, 12)
    np.testing.assert_array_equal(got, windows(a[..., 0], 5, 1, None).astype(np.float64).sum(axis=0))
    assert any(n.startswith("keliSumWindowColumn_") and n.endswith("_C1R") for n in used)
    with pytest.raises(TypeError):
        filters.sum_window_row(a.astype(np.float32), 3)
    with pytest.raises(ValueError):
        filters.sum_window_row(a, 13)
