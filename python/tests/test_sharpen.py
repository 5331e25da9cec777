"""keli.laplace, keli.highpass and keli.sharpen against a plain numpy model of the masks."""
import numpy as np
import pytest

import keli


LAPLACE5 = np.array([[-1, -3, -4, -3, -1], [-3, 0, 6, 0, -3], [-4, 6, 20, 6, -4],
                     [-3, 0, 6, 0, -3], [-1, -3, -4, -3, -1]])


def mask(name, size):
    if name == "laplace" and size == 5:
        return LAPLACE5
    m = -np.ones((size, size), np.int64)
    m[size // 2, size // 2] = {"laplace": 8, "highpass": size * size - 1, "sharpen": 16}[name]
    return m


def model(a, name, size, border="replicate", value=0):
    """Exact sums over the padded image (int64 or float64), sharpen / 8 half to even, saturated."""
    r = size // 2
    pad = [(r, r), (r, r)] + [(0, 0)] * (a.ndim - 2)
    if border is None:
        p = a
    elif border == "constant":
        p = np.pad(a, pad, "constant", constant_values=value)
    else:
        p = np.pad(a, pad, "edge")
    wide = p.astype(np.float64 if a.dtype.kind == "f" else np.int64)
    h, w = p.shape[0] - size + 1, p.shape[1] - size + 1
    m = mask(name, size)
    s = sum(m[j, i] * wide[j:j + h, i:i + w] for j in range(size) for i in range(size))
    if name == "sharpen":
        s = np.round(s / 8) if a.dtype.kind != "f" else s / 8
    if a.dtype.kind == "f":
        return s.astype(a.dtype)
    info = np.iinfo(a.dtype)
    return np.clip(s, info.min, info.max).astype(a.dtype)


def image(rng, shape, dtype, small=False):
    if np.dtype(dtype).kind == "f" or small:
        return rng.integers(-40 if np.dtype(dtype).kind != "u" else 0, 40, shape).astype(dtype)
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


CASES = [("laplace", 3), ("laplace", 5), ("highpass", 3), ("highpass", 5), ("sharpen", 3)]


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32])
@pytest.mark.parametrize("name,size", CASES)
@pytest.mark.parametrize("border", ["replicate", "constant", None])
@pytest.mark.parametrize("channels", [None, 3])
def test_matches_model(rng, dtype, name, size, border, channels):
    shape = (11, 29) if channels is None else (11, 29, channels)
    a = image(rng, shape, dtype, small=name == "sharpen")
    got = getattr(keli, name)(a, size, border=border, value=9)
    np.testing.assert_array_equal(got, model(a, name, size, border, 9))


def test_layouts_in_place_and_slices(rng, exports_used):
    used = exports_used
    a = image(rng, (12, 20, 4), np.uint8, small=True)
    got = keli.sharpen(a, keep_alpha=True)
    assert used[-1] == "keliFilterSharpenBorder_8u_AC4R"
    np.testing.assert_array_equal(got[..., :3], model(a[..., :3], "sharpen", 3))
    np.testing.assert_array_equal(got[..., 3], a[..., 3])
    keli.laplace(a, 5, out=got)
    assert used[-1] == "keliFilterLaplaceBorder_8u_C4R"
    np.testing.assert_array_equal(got, model(a, "laplace", 5))
    b = a.astype(np.int16)[::2, 1:-1]  # rows two apart, a pixel in: a view with a long row step
    expected = model(np.ascontiguousarray(b), "highpass", 5)
    assert keli.highpass(b, 5, out=b) is b
    assert used[-1] == "keliFilterHipassBorder_16s_C4R"
    np.testing.assert_array_equal(b, expected)


def test_constant_image_and_per_channel_values(rng):
    flat = np.full((7, 9, 3), 77, np.uint8)
    np.testing.assert_array_equal(keli.sharpen(flat), flat)
    np.testing.assert_array_equal(keli.laplace(flat, 5), np.zeros_like(flat))
    a = image(rng, (6, 8, 3), np.float32)
    np.testing.assert_array_equal(keli.laplace(a, border="constant", value=(1, 2, 3)),
                                  np.stack([model(a[..., c], "laplace", 3, "constant", v)
                                            for c, v in enumerate((1, 2, 3))], axis=-1))


def test_errors(rng):
    a = image(rng, (8, 8), np.uint8)
    with pytest.raises(ValueError, match="mirrored"):
        keli.laplace(a, border="mirror")
    with pytest.raises(ValueError, match="mask"):
        keli.sharpen(a, 5)
    with pytest.raises(ValueError, match="mask"):
        keli.highpass(a, 7)
    with pytest.raises(TypeError):
        keli.laplace(a.astype(np.uint16))
    with pytest.raises(ValueError):
        keli.laplace(a, out=np.empty((8, 8), np.int16))
    with pytest.raises(ValueError):
        keli.laplace(a[:4, :4], 5, border=None)  # no valid part
