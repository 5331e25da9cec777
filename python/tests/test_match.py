"""keli.match_template against a plain numpy model of sliding windows (zeros beyond the image)."""
import numpy as np
import pytest

import keli
from keli import match


def _model(image, template, method, shape):
    a, t = image.astype(np.float64), template.astype(np.float64)
    h, w = t.shape
    pad = {"valid": ((0, 0), (0, 0)), "full": ((h - 1, h - 1), (w - 1, w - 1)),
           "same": ((h // 2, h - 1 - h // 2), (w // 2, w - 1 - w // 2))}[shape]
    win = np.lib.stride_tricks.sliding_window_view(np.pad(a, pad), (h, w))
    energy = (win * win).sum(axis=(2, 3))
    if method == "sqdiff":
        return ((win - t) ** 2).sum(axis=(2, 3))
    if method == "sqdiff_normed":
        return ((win - t) ** 2).sum(axis=(2, 3)) / (np.sqrt(energy) * np.sqrt((t * t).sum()))
    if method == "ccoeff_normed":
        tc = t - t.mean()
        wc = win - win.mean(axis=(2, 3), keepdims=True)
        return (win * tc).sum(axis=(2, 3)) / np.sqrt((wc * wc).sum(axis=(2, 3)) * (tc * tc).sum())
    corr = (win * t).sum(axis=(2, 3))
    return corr if method == "ccorr" else corr / (np.sqrt(energy) * np.sqrt((t * t).sum()))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
@pytest.mark.parametrize("method", list(match.METHODS))
@pytest.mark.parametrize("shape", list(match.SHAPES))
def test_against_model(rng, dtype, method, shape):
    if np.dtype(dtype).kind == "f":
        image, template = rng.random((45, 52)).astype(dtype) + 0.5, rng.random((7, 9)).astype(dtype) + 0.5
    else:
        top = np.iinfo(dtype).max
        image = rng.integers(1, top, (45, 52), dtype=dtype, endpoint=True)
        template = rng.integers(0, top, (7, 9), dtype=dtype, endpoint=True)
    got = keli.match_template(image, template, method, shape)
    want = _model(image, template, method, shape)
    assert got.dtype == np.float32 and got.shape == want.shape
    if shape == "valid":  # every window lies on the image: ordinary energy everywhere
        scale = 1e-5 if method.endswith("normed") else 1e-6 * np.abs(want).max()
        np.testing.assert_allclose(got, want, rtol=1e-5, atol=scale)
    else:
        assert np.all(np.isfinite(got))
        inner = _model(image, template, method, "valid")
        oy, ox = {"full": (6, 8), "same": (3, 4)}[shape]
        np.testing.assert_allclose(got[oy:oy + inner.shape[0], ox:ox + inner.shape[1]], inner, rtol=1e-5,
                                   atol=1e-5 if method.endswith("normed") else 1e-6 * np.abs(inner).max())


def test_uint8_output_scales_and_rounds(rng):
    image = rng.integers(0, 256, (40, 50), dtype=np.uint8)
    template = rng.integers(0, 256, (8, 8), dtype=np.uint8)
    scores = keli.match_template(image, template, "ccorr")
    got = keli.match_template(image, template, "ccorr", dtype=np.uint8, scale_factor=16)
    np.testing.assert_array_equal(got, np.clip(np.rint(scores / 65536.0), 0, 255).astype(np.uint8))


def test_out_slices_and_errors(rng):
    image = rng.random((60, 70)).astype(np.float32)
    template = image[10:18, 20:30].copy()
    out = np.empty((53, 61), np.float32)
    result = keli.match_template(image[::1, :], template, "ccoeff_normed", out=out)
    assert result is out
    assert np.unravel_index(np.argmax(out), out.shape) == (10, 20)
    strided = keli.match_template(image[::2, ::2], template[::2, ::2], "ccorr")
    np.testing.assert_allclose(strided, _model(image[::2, ::2], template[::2, ::2], "ccorr", "valid"), rtol=1e-5)
    with pytest.raises(keli.BadSize):
        keli.match_template(template, image)
    with pytest.raises(ValueError):
        keli.match_template(image, template, "ccoeff")
    with pytest.raises(ValueError):
        keli.match_template(image, template, shape="inner")
    with pytest.raises(TypeError):
        keli.match_template(image, template.astype(np.float64))
    with pytest.raises(TypeError):
        keli.match_template(image, template, dtype=np.uint8)
