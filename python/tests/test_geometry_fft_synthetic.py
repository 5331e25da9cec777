"""remap, flip, transpose; the 2-D FFTs and the packed layout; Jaehne, ramps and seeded noise."""
import importlib

import numpy as np
import pytest

import keli
from keli import fft, geometry, synthetic
from conftest import random_image


@pytest.fixture
def used(monkeypatch):
    """The names of the exports the three modules looked up, in order."""
    names = []
    for layer in ("geometry", "fft", "synthetic"):
        module = importlib.import_module(f"keli.{layer}")
        real = module.find

        def spy(*args, _real=real, **fields):
            found = _real(*args, **fields)
            names.append(found[0])
            return found

        monkeypatch.setattr(module, "find", spy)
    return names


# ---------------------------------------------------------------- flip and transpose

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.int32, np.float32])
@pytest.mark.parametrize("channels", [None, 3, 4])
@pytest.mark.parametrize("axis", [0, 1, None, (0, 1), -2])
def test_flip_matches_numpy(rng, dtype, channels, axis):
    shape = (7, 9) if channels is None else (7, 9, channels)
    a = random_image(rng, shape, dtype)
    want = np.flip(a, axis=(0, 1) if axis is None else axis)
    got = geometry.flip(a, axis)
    assert got.dtype == a.dtype and np.array_equal(got, want)


def test_flip_in_place_and_dispatch(rng, used):
    a = random_image(rng, (6, 5, 3), np.uint8)
    want = a[:, ::-1].copy()
    assert geometry.flip(a, 1, out=a) is a
    assert np.array_equal(a, want)
    assert used == ["keliMirror_8u_C3IR"]


def test_flip_slice_out_and_alpha(rng, used):
    big = random_image(rng, (10, 12, 4), np.uint8)
    region = big[2:8, 3:10]
    before = big.copy()
    out = random_image(rng, (6, 7, 4), np.uint8)
    alpha = out[..., 3].copy()
    geometry.flip(region, 0, out=out, keep_alpha=True)
    assert used == ["keliMirror_8u_AC4R"]
    assert np.array_equal(out[..., :3], region[::-1, :, :3])
    assert np.array_equal(out[..., 3], alpha)
    assert np.array_equal(big, before)  # the source was read where it lies
    # a region flipped in place leaves the rest of the image alone
    geometry.flip(region, None, out=region)
    assert np.array_equal(big[2:8, 3:10], before[2:8, 3:10][::-1, ::-1])
    assert np.array_equal(big[:2], before[:2]) and np.array_equal(big[:, :3], before[:, :3])


def test_flip_errors(rng):
    a = random_image(rng, (4, 4, 3), np.uint8)
    with pytest.raises(ValueError):
        geometry.flip(a, 2)  # the channel axis
    with pytest.raises(TypeError):
        geometry.flip(np.zeros((4, 4), np.int8), 0)
    with pytest.raises(ValueError):
        geometry.flip(a, 0, out=np.zeros((4, 5, 3), np.uint8))
    with pytest.raises(ValueError):
        geometry.flip(a, 0, out=a[1:, :])  # wrong shape
    b = np.zeros((6, 4), np.uint8)
    with pytest.raises(ValueError):
        geometry.flip(b[:4], 0, out=b[2:])  # overlapping but not the same


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.uint16, np.int32, np.float32])
@pytest.mark.parametrize("channels", [None, 3, 4])
def test_transpose_matches_numpy(rng, dtype, channels):
    shape = (5, 8) if channels is None else (5, 8, channels)
    a = random_image(rng, shape, dtype)
    got = geometry.transpose(a)
    assert got.shape == (8, 5) + shape[2:]
    assert np.array_equal(got, np.swapaxes(a, 0, 1))


def test_transpose_in_place_slice_complex(rng, used):
    a = random_image(rng, (6, 6), np.float32)
    want = a.T.copy()
    assert geometry.transpose(a, out=a) is a and np.array_equal(a, want)
    assert used[-1] == "keliTranspose_32f_C1IR"
    big = random_image(rng, (9, 11, 3), np.uint8)
    assert np.array_equal(geometry.transpose(big[1:7, 2:10]), np.swapaxes(big[1:7, 2:10], 0, 1))
    c = (rng.standard_normal((3, 5)) + 1j * rng.standard_normal((3, 5))).astype(np.complex64)
    assert np.array_equal(geometry.transpose(c), c.T)
    assert used[-1] == "keliTranspose_32fc_C1R"
    with pytest.raises(ValueError):
        geometry.transpose(big[:4, :5], out=big[:4, :5])  # not square: no in-place form
    with pytest.raises(TypeError):
        geometry.transpose(np.zeros((4, 4), np.float64))


# ---------------------------------------------------------------- remap

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32, np.float64])
@pytest.mark.parametrize("channels", [None, 3, 4])
@pytest.mark.parametrize("interpolation", ["nearest", "linear"])
def test_remap_integer_maps_index(rng, dtype, channels, interpolation):
    shape = (9, 11) if channels is None else (9, 11, channels)
    src = random_image(rng, shape, dtype)
    ys = rng.integers(0, 9, (6, 7))
    xs = rng.integers(0, 11, (6, 7))
    got = geometry.remap(src, xs, ys, interpolation=interpolation)
    assert got.shape == (6, 7) + shape[2:] and got.dtype == src.dtype
    if dtype == np.float64 and interpolation == "linear":
        assert np.allclose(got, src[ys, xs], rtol=1e-14, atol=0)  # the f64 lerp form: within ulps
    else:
        assert np.array_equal(got, src[ys, xs])


def test_remap_nearest_rounds_and_outside_keeps(rng, used):
    src = random_image(rng, (5, 6), np.int16)
    mx = np.array([[0.4, 1.6, -3.0, 5.0], [2.2, np.nan, 6.5, 0.0]], np.float32)
    my = np.array([[0.0, 3.6, 1.0, 4.0], [1.49, 1.0, 0.0, -0.6]], np.float32)
    out = np.full((2, 4), 77, np.int16)
    assert geometry.remap(src, mx, my, interpolation="nearest", out=out) is out
    assert used == ["keliRemap_16s_C1R"]
    want = np.array([[src[0, 0], src[4, 2], 77, src[4, 5]], [src[1, 2], 77, 77, 77]], np.int16)
    assert np.array_equal(out, want)


def test_remap_linear_float_model(rng):
    src = rng.random((8, 8)).astype(np.float32)
    my, mx = np.mgrid[0:4, 0:5].astype(np.float32)
    mx, my = mx + 0.25, my * 1.5 + 0.5
    got = geometry.remap(src, mx, my, interpolation="linear")
    x0, y0 = np.floor(mx).astype(int), np.floor(my).astype(int)
    fx, fy = mx - x0, my - y0
    top = src[y0, x0] * (1 - fx) + src[y0, x0 + 1] * fx
    bottom = src[y0 + 1, x0] * (1 - fx) + src[y0 + 1, x0 + 1] * fx
    assert np.allclose(got, top * (1 - fy) + bottom * fy, atol=1e-5)


def test_remap_region_slices_alpha_and_kinds(rng, used):
    big = random_image(rng, (12, 14, 4), np.uint8)
    src = big[1:11, 2:12]  # a view, 10 x 10
    ys, xs = np.mgrid[0:10, 0:10]
    out = random_image(rng, (10, 10, 4), np.uint8)
    old = out.copy()
    geometry.remap(src, xs, ys, interpolation="nearest", region=(2, 3, 4, 5), out=out, keep_alpha=True)
    assert used == ["keliRemap_8u_AC4R"]
    inside = (xs >= 2) & (xs <= 5) & (ys >= 3) & (ys <= 7)
    assert np.array_equal(out[..., :3][inside], src[..., :3][inside])
    assert np.array_equal(out[..., :3][~inside], old[..., :3][~inside])
    assert np.array_equal(out[..., 3], old[..., 3])
    # every kind accepts an identity map of a float image, on a strided map too
    f = rng.random((10, 10)).astype(np.float32)
    wide = np.zeros((10, 20), np.float32)
    wide[:, ::2] = xs
    for kind in ("cubic", "cubic_lagrange", "lanczos", 2):
        got = geometry.remap(f, wide[:, ::2], ys, interpolation=kind)
        assert np.allclose(got, f, atol=1e-5)
    got = geometry.remap(f, xs, ys, interpolation="linear", smooth=True)
    assert got.shape == f.shape


def test_remap_errors(rng):
    src = random_image(rng, (6, 6), np.uint8)
    ys, xs = np.mgrid[0:4, 0:4]
    with pytest.raises(ValueError):
        geometry.remap(src, xs, ys[:3])
    with pytest.raises(ValueError):
        geometry.remap(src, xs, ys, interpolation="bicubic")
    with pytest.raises(keli.BadInterpolation):
        geometry.remap(src, xs, ys, interpolation=3)
    with pytest.raises(ValueError):
        geometry.remap(src, xs, ys, out=src[:4, :4])  # writing into the source
    with pytest.raises(TypeError):
        geometry.remap(src.astype(np.int32), xs, ys)
    with pytest.raises(ValueError):
        geometry.remap(src, xs, ys, region=(0, 0, 4))
    with pytest.warns(keli.KeliWarning):
        out = np.full((4, 4), 9, np.uint8)
        geometry.remap(src, xs, ys, region=(6, 0, 2, 2), out=out)
    assert np.all(out == 9)


# ---------------------------------------------------------------- FFT

def _rel(a, b):
    return np.linalg.norm(a - b) / np.linalg.norm(b)


def _complex_image(rng, shape):
    return (rng.standard_normal(shape) + 1j * rng.standard_normal(shape)).astype(np.complex64)


@pytest.mark.parametrize("shape", [(8, 16), (32, 4), (1, 8), (16, 1), (2, 2)])
@pytest.mark.parametrize("norm", ["backward", "ortho", "forward"])
def test_fft2_matches_numpy(rng, shape, norm):
    a = _complex_image(rng, shape)
    got = fft.fft2(a, norm=norm)
    assert got.dtype == np.complex64 and got.shape == shape
    assert _rel(got, np.fft.fft2(a.astype(np.complex128), norm=norm)) < 1e-5
    back = fft.ifft2(got, norm=norm)
    assert _rel(back, np.fft.ifft2(got.astype(np.complex128), norm=norm)) < 1e-5
    assert _rel(back, a) < 1e-5


def test_fft2_none_in_place_slice(rng, used):
    a = _complex_image(rng, (16, 8))
    want = np.fft.fft2(a.astype(np.complex128))
    b = a.copy()
    assert fft.fft2(b, norm="none", out=b) is b
    assert used[-1] == "keliFFTFwd_CToC_32fc_C1IR"
    assert _rel(b, want) < 1e-5
    fft.ifft2(b, norm="none", out=b)
    assert _rel(b / 128, a) < 1e-5  # unscaled both ways
    big = _complex_image(rng, (20, 12))
    view = big[2:18, 1:9]
    assert np.array_equal(fft.fft2(view), fft.fft2(view.copy()))


@pytest.mark.parametrize("shape", [(8, 16), (16, 8), (4, 4), (2, 8), (8, 2), (1, 4), (4, 1)])
def test_packed_layout_matches_rfft2(rng, shape):
    a = rng.standard_normal(shape).astype(np.float32)
    packed = fft.rfft2_packed(a)
    assert packed.shape == shape and packed.dtype == np.float32
    reference = np.fft.rfft2(a.astype(np.float64))
    assert _rel(packed, fft.pack(reference, shape[1])) < 1e-5
    assert _rel(fft.unpack(packed), reference) < 1e-5
    assert np.allclose(fft.unpack(fft.pack(reference, shape[1])), reference)
    assert _rel(fft.irfft2_packed(packed), a) < 1e-5


@pytest.mark.parametrize("channels,keep_alpha", [(3, False), (4, False), (4, True)])
def test_packed_channels(rng, used, channels, keep_alpha):
    a = rng.standard_normal((8, 16, channels)).astype(np.float32)
    out = np.full_like(a, 5.0)
    fft.rfft2_packed(a, norm="ortho", out=out, keep_alpha=keep_alpha)
    layout = "AC4" if keep_alpha else f"C{channels}"
    assert used[-1] == f"keliFFTFwd_RToPack_32f_{layout}R"
    done = 3 if keep_alpha else channels
    ref = np.fft.rfft2(a[..., :done].astype(np.float64), axes=(0, 1), norm="ortho")
    assert _rel(fft.unpack(out[..., :done]), ref) < 1e-5
    if keep_alpha:
        assert np.all(out[..., 3] == 5.0)
    # in place equals out of place, bit for bit
    b = a.copy()
    fft.rfft2_packed(b, norm="ortho", out=b, keep_alpha=keep_alpha)
    assert np.array_equal(b[..., :done], out[..., :done])
    assert used[-1] == f"keliFFTFwd_RToPack_32f_{layout}IR"
    fft.irfft2_packed(b, norm="ortho", out=b, keep_alpha=keep_alpha)
    assert used[-1] == f"keliFFTInv_PackToR_32f_{layout}IR"
    assert _rel(b[..., :done], a[..., :done]) < 1e-5


def test_fft_errors(rng):
    with pytest.raises(ValueError):
        fft.fft2(np.zeros((6, 8), np.complex64))
    with pytest.raises(ValueError):
        fft.rfft2_packed(np.zeros((8, 12), np.float32))
    with pytest.raises(ValueError):
        fft.rfft2_packed(np.zeros((8, 8), np.float32), norm="half")
    with pytest.raises(TypeError):
        fft.rfft2_packed(np.zeros((8, 8), np.uint8))
    with pytest.raises(TypeError):
        fft.fft2(np.zeros((8, 8), np.float32))
    with pytest.raises(ValueError):
        fft.fft2(np.zeros((8, 8), np.complex64), out=np.zeros((8, 4), np.complex64))
    with pytest.raises(ValueError):
        fft.pack(np.zeros((8, 6), np.complex64))  # width 10 is not a power of two


# ---------------------------------------------------------------- synthetic images and noise

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
def test_jaehne_symmetric(dtype):
    j = synthetic.jaehne((16, 24), dtype)
    assert j.shape == (16, 24) and j.dtype == dtype
    assert np.array_equal(j, j[::-1]) and np.array_equal(j, j[:, ::-1])
    assert len(np.unique(j)) > 10
    if dtype == np.float32:
        assert j.min() >= 0 and j.max() <= 1


def test_jaehne_channels_out_alpha(used):
    c = synthetic.jaehne((8, 8, 3), np.uint8)
    one = synthetic.jaehne((8, 8), np.uint8)
    assert all(np.array_equal(c[..., k], one) for k in range(3))
    out = np.full((10, 10, 4), 3, np.uint8)
    synthetic.jaehne(None, out=out[1:9, 1:9], keep_alpha=True)
    assert used[-1] == "keliImageJaehne_8u_AC4R"
    assert np.array_equal(out[1:9, 1:9, :3], c) and np.all(out[..., 3] == 3)
    assert np.all(out[0] == 3) and np.all(out[:, 9] == 3)


def test_ramp_values():
    x = np.arange(40)
    got = synthetic.ramp((3, 40), np.float32, offset=1.5, slope=0.25)
    assert np.allclose(got, np.broadcast_to((1.5 + 0.25 * x).astype(np.float32), (3, 40)))
    got = synthetic.ramp((3, 40), np.uint8, offset=3, slope=10)
    assert np.array_equal(got[0], np.clip(3 + 10 * x, 0, 255))
    got = synthetic.ramp((5, 4), np.int16, offset=-7, slope=3, axis=0)
    assert np.array_equal(got, np.broadcast_to((-7 + 3 * np.arange(5))[:, None], (5, 4)))
    got = synthetic.ramp((5, 6), np.float32, slope=2, axis=None)
    assert np.allclose(got, 2 * np.arange(5)[:, None] * np.arange(6)[None, :])
    with pytest.raises(ValueError):
        synthetic.ramp((4, 4), np.uint8, axis=2)


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.uint16, np.float32])
def test_noise_determinism(rng, dtype):
    a = random_image(rng, (20, 30), dtype) // 2 if dtype != np.float32 else rng.random((20, 30), np.float32)
    u1 = synthetic.add_uniform_noise(a, 1, 9, seed=42)
    u2 = synthetic.add_uniform_noise(a, 1, 9, seed=42)
    assert np.array_equal(u1, u2) and not np.array_equal(u1, synthetic.add_uniform_noise(a, 1, 9, seed=43))
    d = u1.astype(np.float64) - a
    if dtype == np.float32:
        assert d.min() >= 1 - 1e-5 and d.max() <= 9 + 1e-5
    g1, seed = synthetic.add_gaussian_noise(a, 0, 4, seed=7, return_seed=True)
    assert np.array_equal(g1, synthetic.add_gaussian_noise(a, 0, 4, seed=7))
    assert isinstance(seed, int) and seed != 7
    # the returned seed continues the sequence: a second call differs from the first
    g2 = synthetic.add_gaussian_noise(a, 0, 4, seed=seed)
    assert not np.array_equal(g1, g2)


def test_noise_statistics_and_in_place(rng, used):
    a = np.full((200, 200), 100.0, np.float32)
    g = synthetic.add_gaussian_noise(a, 2.0, 5.0, seed=1)
    assert abs(g.mean() - 102) < 0.2 and abs(g.std() - 5) < 0.2
    assert np.all(a == 100)  # the input is untouched
    b = np.full((50, 60, 4), 100, np.uint8)
    view = b[5:45, 10:50]
    assert synthetic.add_uniform_noise(view, 0, 20, seed=3, out=view, keep_alpha=True) is view
    assert used[-1] == "keliAddRandUniform_8u_AC4IR"
    assert np.all(view[..., 3] == 100) and view[..., :3].min() >= 100 and view[..., :3].max() <= 120
    assert view[..., :3].std() > 3 and np.all(b[:5] == 100)
    # a generator as the seed: reproducible from the generator's own seed
    c1 = synthetic.add_uniform_noise(view, 0, 5, seed=np.random.default_rng(9))
    c2 = synthetic.add_uniform_noise(view, 0, 5, seed=np.random.default_rng(9))
    assert np.array_equal(c1, c2)


def test_noise_errors(rng):
    a = np.zeros((4, 4), np.uint8)
    with pytest.raises(ValueError):
        synthetic.add_uniform_noise(a, -5, 5, seed=1)  # uint8 constants cannot be negative
    with pytest.raises(ValueError):
        synthetic.add_gaussian_noise(a, 0, 1, seed=-1)
    with pytest.raises(TypeError):
        synthetic.add_gaussian_noise(a, 0, 1, seed=1.5)
    with pytest.raises(TypeError):
        synthetic.add_gaussian_noise(np.zeros((4, 4), np.int32), 0, 1, seed=1)
    with pytest.raises(ValueError):
        synthetic.jaehne((4, 4, 2), np.uint8)


def test_docstrings_carry_the_contracts():
    assert "keliRemap" in geometry.remap.__doc__
    assert "packed real layout" in fft.rfft2_packed.__doc__
    assert "keliMirror" in geometry.flip.__doc__
    assert "keliImageJaehne" in synthetic.jaehne.__doc__
