"""Element-wise functions and logic, alpha composition, comparison masks, range counts and
moments against numpy models (or the raw export where the numerics are not simple)."""
import importlib

import numpy as np
import pytest

import keli
from conftest import random_image

# The modules, not the functions keli's namespace gives the same names (keli.compare, keli.moments).
alpha, compare, elementary, moments = (importlib.import_module(f"keli.{m}")
                                       for m in ("alpha", "compare", "elementary", "moments"))

MODULES = ["elementary", "alpha", "compare", "moments"]
SHAPES = [(13, 17), (13, 17, 3), (13, 17, 4)]


@pytest.fixture
def used(monkeypatch):
    """The exports these modules looked up to call, in order."""
    names = []
    for layer in MODULES:
        module = importlib.import_module(f"keli.{layer}")
        real = module.find

        def spy(*args, _real=real, **fields):
            found = _real(*args, **fields)
            names.append(found[0])
            return found

        monkeypatch.setattr(module, "find", spy)
    return names


def per_channel_all(mask_3d):
    return mask_3d if mask_3d.ndim == 2 else mask_3d.all(axis=2)


# ---- bitwise, shifts, not, complement -------------------------------------------------------

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int32])
@pytest.mark.parametrize("shape", SHAPES)
def test_bitwise_images_and_constants(rng, dtype, shape):
    a, b = random_image(rng, shape, dtype), random_image(rng, shape, dtype)
    assert np.array_equal(elementary.bitwise_and(a, b), a & b)
    assert np.array_equal(elementary.bitwise_or(a, b), a | b)
    assert np.array_equal(elementary.bitwise_xor(a, b), a ^ b)
    assert np.array_equal(elementary.bitwise_not(a), ~a)
    channels = 1 if a.ndim == 2 else a.shape[2]
    values = np.array([5, 0x30, 0x7F, 0x41][:channels], dtype)
    k = values[0] if channels == 1 else values
    assert np.array_equal(elementary.bitwise_and(a, k), a & values)
    assert np.array_equal(elementary.bitwise_xor(a, k), a ^ values)


def test_bitwise_in_place_and_keep_alpha(rng, used):
    a, b = random_image(rng, (9, 11, 4), np.uint8), random_image(rng, (9, 11, 4), np.uint8)
    expected = a.copy()
    expected[..., :3] |= b[..., :3]
    result = elementary.bitwise_or(a, b, out=a, keep_alpha=True)
    assert result is a and np.array_equal(a, expected) and used == ["keliOr_8u_AC4IR"]
    c = a.copy()
    elementary.bitwise_and(c, [1, 2, 3], out=c, keep_alpha=True)
    assert np.array_equal(c[..., :3], a[..., :3] & np.uint8([1, 2, 3])) and np.array_equal(c[..., 3], a[..., 3])
    assert used[-1] == "keliAndC_8u_AC4IR"
    # out = b (second operand): the op commutes, the in-place member writes b
    d = b.copy()
    elementary.bitwise_xor(a, d, out=d)
    assert np.array_equal(d, a ^ b) and used[-1] == "keliXor_8u_C4IR"


@pytest.mark.parametrize("dtype,count", [(np.uint8, 3), (np.uint16, 5), (np.int32, 7)])
def test_left_shift_drops_bits(rng, dtype, count):
    a = random_image(rng, (10, 12), dtype)
    assert np.array_equal(elementary.left_shift(a, count), (a.astype(np.int64) << count).astype(dtype))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.int32])
def test_right_shift_is_arithmetic_per_channel(rng, dtype):
    a = random_image(rng, (10, 12, 3), dtype)
    assert np.array_equal(elementary.right_shift(a, [0, 1, 4]), a >> np.array([0, 1, 4], dtype))
    width = np.dtype(dtype).itemsize * 8
    expected = np.where(a < 0, -1, 0).astype(dtype)
    assert np.array_equal(elementary.right_shift(a, [width] * 3), expected)  # past the width


def test_shift_count_is_unsigned():
    with pytest.raises(ValueError, match="representable"):
        elementary.left_shift(np.zeros((2, 2), np.uint8), -1)


@pytest.mark.parametrize("dtype", [np.int8, np.int16, np.int32])
def test_complement_is_sign_and_magnitude(rng, dtype):
    a = random_image(rng, (8, 9, 3), dtype)
    info = np.iinfo(dtype)
    wide = a.astype(np.int64)
    expected = np.where(wide < 0, (np.abs(wide) | (-info.min)) & (2 * info.max + 1), wide)
    expected = expected.astype(np.dtype(dtype).str.replace("i", "u")).view(dtype)
    assert np.array_equal(elementary.complement(a), expected)


# ---- max / min --------------------------------------------------------------------------------

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("shape", SHAPES)
def test_maximum_minimum(rng, dtype, shape):
    a, b = random_image(rng, shape, dtype), random_image(rng, shape, dtype)
    before = a.copy(), b.copy()
    assert np.array_equal(elementary.maximum(a, b), np.maximum(a, b))
    assert np.array_equal(elementary.minimum(a, b), np.minimum(a, b))
    assert np.array_equal(a, before[0]) and np.array_equal(b, before[1])
    out = np.empty_like(a)
    assert elementary.maximum(a, b, out=out) is out and np.array_equal(out, np.maximum(a, b))
    elementary.minimum(a, b, out=b)
    assert np.array_equal(b, np.minimum(a, before[1]))


def test_maximum_members_and_keep_alpha(rng, used):
    a, b = random_image(rng, (6, 7, 4), np.uint8), random_image(rng, (6, 7, 4), np.uint8)
    elementary.maximum(a[..., 0].copy(), b[..., 0].copy())
    elementary.maximum(a, b)  # C4 rows seen as one channel
    result = elementary.maximum(a, b, keep_alpha=True)
    assert used == ["keliMaxEvery_8u_C1R", "keliMaxEvery_8u_C1R", "keliMaxEvery_8u_AC4IR"]
    assert np.array_equal(result[..., :3], np.maximum(a, b)[..., :3]) and np.array_equal(result[..., 3], a[..., 3])


def test_float_maximum_keeps_a_against_nan():
    a = np.float32([[np.nan, 1.0], [2.0, 3.0]])
    b = np.float32([[5.0, np.nan], [1.0, 4.0]])
    result = elementary.maximum(a, b)
    assert np.isnan(result[0, 0]) and result[0, 1] == 1.0 and result[1, 0] == 2.0 and result[1, 1] == 4.0


# ---- square, sqrt, log, exp -------------------------------------------------------------------

def round_half_even_scaled(values, scale):
    return np.round(values.astype(np.float64) / 2.0 ** scale)


@pytest.mark.parametrize("scale", [0, 1, 3, -1])
@pytest.mark.parametrize("shape", SHAPES)
def test_square_8u_saturates(rng, shape, scale):
    a = random_image(rng, shape, np.uint8)
    expected = np.clip(round_half_even_scaled(a.astype(np.int64) ** 2, scale), 0, 255).astype(np.uint8)
    assert np.array_equal(elementary.square(a, scale=scale), expected)


def test_square_int16_and_float(rng):
    a = random_image(rng, (10, 11), np.int16)
    assert np.array_equal(elementary.square(a, scale=16),
                          np.clip(round_half_even_scaled(a.astype(np.int64) ** 2, 16), -32768, 32767))
    f = rng.standard_normal((10, 11, 3)).astype(np.float32)
    assert np.array_equal(elementary.square(f), f * f)
    with pytest.raises(ValueError, match="no scale"):
        elementary.square(f, scale=1)


@pytest.mark.parametrize("shape", SHAPES)
def test_sqrt_float32_is_ieee(rng, shape):
    a = np.abs(rng.standard_normal(shape) * 100).astype(np.float32)
    assert np.array_equal(elementary.sqrt(a), np.sqrt(a))


def test_sqrt_integers_round_half_even_and_warn(rng):
    a = random_image(rng, (12, 13, 3), np.uint16)
    expected = np.round(np.sqrt(a.astype(np.float64)) * 4).astype(np.uint16)
    assert np.array_equal(elementary.sqrt(a, scale=-2), expected)
    negative = np.int16([[-4, 9], [16, -1]])
    with pytest.warns(keli.SqrtNegArg):
        result = elementary.sqrt(negative)
    assert result.tolist() == [[0, 3], [4, 0]]


def test_log_and_exp_8u(rng):
    a = random_image(rng, (10, 12), np.uint8)
    a[a == 0] = 1
    expected_log = np.minimum(np.trunc(np.log(a.astype(np.float64)) * 8 + 0.5), 255).astype(np.uint8)
    assert np.array_equal(elementary.log(a, scale=-3), expected_log)
    small = (a % 7).astype(np.uint8)
    expected_exp = np.minimum(np.trunc(np.exp(small.astype(np.float64)) + 0.5), 255).astype(np.uint8)
    assert np.array_equal(elementary.exp(small), expected_exp)
    with pytest.warns(keli.LnZeroArg):
        assert elementary.log(np.zeros((2, 2), np.uint8)).tolist() == [[0, 0], [0, 0]]
    f = (rng.random((6, 7)) * 10 + 0.1).astype(np.float32)
    assert np.allclose(elementary.log(f), np.log(f), rtol=1e-6)
    assert np.allclose(elementary.exp(f / 4), np.exp(f / 4), rtol=1e-6)


def test_unary_in_place_slices_and_members(rng, used):
    big = random_image(rng, (20, 30, 3), np.uint8)
    region = big[3:12, 5:20]
    assert not region.flags.c_contiguous
    expected = np.clip(region.astype(np.int64) ** 2, 0, 255).astype(np.uint8)
    outside = big.copy()
    result = elementary.square(region, out=region)
    assert result is region and np.array_equal(big[3:12, 5:20], expected)
    outside[3:12, 5:20] = expected
    assert np.array_equal(big, outside)
    elementary.log(random_image(rng, (4, 5, 4), np.uint8) | 1)  # C4 rows seen as one channel
    assert used == ["keliSqr_8u_C3IRSfs", "keliLn_8u_C1RSfs"]
    alpha_image = random_image(rng, (4, 5, 4), np.uint8)
    with pytest.raises(TypeError, match="no export keliLn_8u_AC4RSfs"):
        elementary.log(alpha_image, keep_alpha=True)


def test_dispatch_and_out_errors(rng):
    with pytest.raises(TypeError, match="no export keliAnd_32f"):
        elementary.bitwise_and(np.zeros((3, 3), np.float32), np.zeros((3, 3), np.float32))
    with pytest.raises(ValueError, match="images differ"):
        elementary.maximum(np.zeros((3, 3), np.uint8), np.zeros((3, 4), np.uint8))
    with pytest.raises(ValueError, match="out must be"):
        elementary.square(np.zeros((3, 3), np.uint8), out=np.zeros((3, 3), np.uint16))
    with pytest.raises(ValueError, match="packed rows"):
        elementary.square(np.zeros((3, 3), np.uint8), out=np.zeros((3, 6), np.uint8)[:, ::2])
    with pytest.raises(ValueError, match="needs 3"):
        elementary.bitwise_or(np.zeros((3, 3, 3), np.uint8), [1, 2])


# ---- alpha --------------------------------------------------------------------------------------

def div255(x):
    t = x + 128
    return (t + (t >> 8)) >> 8


def test_premultiply_8u_by_own_alpha(rng, used):
    a = random_image(rng, (11, 13, 4), np.uint8)
    wide = a.astype(np.int64)
    expected = a.copy()
    expected[..., :3] = div255(wide[..., :3] * wide[..., 3:])
    assert np.array_equal(alpha.premultiply(a), expected)
    b = a.copy()
    assert alpha.premultiply(b, out=b) is b and np.array_equal(b, expected)
    assert used == ["keliAlphaPremul_8u_AC4R", "keliAlphaPremul_8u_AC4IR"]
    with pytest.raises(ValueError, match="h, w, 4"):
        alpha.premultiply(a[..., :3])


@pytest.mark.parametrize("shape", SHAPES)
def test_premultiply_8u_by_a_constant(rng, shape):
    a = random_image(rng, shape, np.uint8)
    assert np.array_equal(alpha.premultiply(a, 77), div255(a.astype(np.int64) * 77).astype(np.uint8))


def test_alpha_composite_over_matches_the_raw_export(rng, used):
    a, b = random_image(rng, (9, 10, 4), np.uint8), random_image(rng, (9, 10, 4), np.uint8)
    result = alpha.alpha_composite(a, b, "over")
    raw = np.empty_like(a)
    keli.lib.keliAlphaComp_8u_AC4R(a.ctypes.data, a.strides[0], b.ctypes.data, b.strides[0], raw.ctypes.data,
                                   raw.strides[0], keli._types.KeliSize(10, 9), 0)
    assert np.array_equal(result, raw)
    # opaque a covers b; alpha of the result by the over rule
    a[..., 3] = 255
    assert np.array_equal(alpha.alpha_composite(a, b), a)
    c = b.copy()
    alpha.alpha_composite(a, c, "over", premultiplied=True, out=c)
    assert used == ["keliAlphaComp_8u_AC4R", "keliAlphaComp_8u_AC4R", "keliAlphaComp_8u_AC4IR"]
    with pytest.raises(ValueError, match="op is one of"):
        alpha.alpha_composite(a, b, "under")


def test_alpha_composite_with_constant_alphas(rng, used):
    a, b = random_image(rng, (8, 9, 3), np.uint8), random_image(rng, (8, 9, 3), np.uint8)
    wide_a, wide_b = a.astype(np.int64), b.astype(np.int64)
    # plus with alpha1 = alpha2 = 255: p1 + p2 saturated
    assert np.array_equal(alpha.alpha_composite(a, b, "plus", alpha1=255, alpha2=255),
                          np.minimum(wide_a + wide_b, 255))
    # in with alpha1 = 255: a's colour times b's alpha
    assert np.array_equal(alpha.alpha_composite(a, b, "in", alpha1=255, alpha2=100), div255(wide_a * 100))
    assert used == ["keliAlphaCompC_8u_C3R", "keliAlphaCompC_8u_C3R"]
    with pytest.raises(ValueError, match="both alpha1 and alpha2"):
        alpha.alpha_composite(a, b, alpha1=3)
    with pytest.raises(ValueError, match="representable"):
        alpha.alpha_composite(a, b, alpha1=256, alpha2=0)


def test_alpha_images_of_alpha_alone(rng, used):
    a, b = random_image(rng, (7, 8), np.uint8), random_image(rng, (7, 8), np.uint8)
    result = alpha.alpha_composite(a, b, "in")
    assert used == ["keliAlphaComp_8u_AC1R"] and result.shape == a.shape


@pytest.mark.parametrize("shape,key", [((9, 10), 7), ((9, 10, 3), (1, 2, 3)), ((9, 10, 4), (1, 2, 3, 4))])
def test_color_key(rng, shape, key):
    a = random_image(rng, shape, np.uint8) // 2 + 8
    b = random_image(rng, shape, np.uint8)
    a[2:5, 3:7] = key
    keyed = per_channel_all(a == np.uint8(key))
    expected = np.where(keyed[..., None] if a.ndim == 3 else keyed, b, a)
    assert np.array_equal(alpha.color_key(a, b, key), expected)


# ---- compare and count ---------------------------------------------------------------------------

NUMPY_OPS = {"lt": np.less, "le": np.less_equal, "eq": np.equal, "ge": np.greater_equal, "gt": np.greater}


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.int16, np.float32])
@pytest.mark.parametrize("shape", SHAPES)
@pytest.mark.parametrize("op", list(NUMPY_OPS))
def test_compare_masks(rng, dtype, shape, op):
    a = random_image(rng, shape, dtype) // 64 * 64 if np.dtype(dtype).kind != "f" else \
        np.round(rng.standard_normal(shape) * 2).astype(dtype)
    b = np.roll(a, 1, axis=1).copy()
    expected = np.where(per_channel_all(NUMPY_OPS[op](a, b)), 255, 0).astype(np.uint8)
    mask = compare.compare(a, b, op)
    assert mask.dtype == np.uint8 and mask.shape == a.shape[:2] and np.array_equal(mask, expected)
    value = a.flat[0]
    expected = np.where(per_channel_all(NUMPY_OPS[op](a, value)), 255, 0).astype(np.uint8)
    assert np.array_equal(compare.compare(a, value if a.ndim == 2 else [value] * a.shape[2], op), expected)


def test_compare_keep_alpha_out_and_slices(rng, used):
    big = random_image(rng, (20, 25, 4), np.uint8)
    a = big[2:15, 3:20]
    mask = np.zeros((30, 40), np.uint8)
    out = mask[5:18, 1:18]
    result = compare.compare(a, [100, 100, 100], ">", out=out, keep_alpha=True)
    assert result is out and np.array_equal(out, np.where((a[..., :3] > 100).all(axis=2), 255, 0))
    assert mask[:5].sum() == 0 and used == ["keliCompareC_8u_AC4R"]
    with pytest.raises(ValueError, match="op is"):
        compare.compare(a, a, "ne")


def test_equal_within(rng):
    a = rng.standard_normal((10, 11, 3)).astype(np.float32)
    b = a + rng.uniform(-0.2, 0.2, a.shape).astype(np.float32)
    expected = np.where((np.abs(a - b) <= np.float32(0.1)).all(axis=2), 255, 0)
    assert np.array_equal(compare.equal_within(a, b, 0.1), expected)
    assert np.array_equal(compare.equal_within(a[..., 0], 0.0, 0.5), np.where(np.abs(a[..., 0]) <= 0.5, 255, 0))
    with pytest.raises(keli.NegativeEps):
        compare.equal_within(a, b, -1)
    with pytest.raises(TypeError, match="float32"):
        compare.equal_within(a.astype(np.uint8), b.astype(np.uint8), 1)


def test_count_in_range(rng):
    a = random_image(rng, (17, 19), np.uint8)
    assert compare.count_in_range(a, 50, 200) == np.count_nonzero((a >= 50) & (a <= 200))
    colour = random_image(rng, (17, 19, 4), np.uint8)
    counts = compare.count_in_range(colour, [0, 10, 100], [127, 20, 255], keep_alpha=True)
    expected = [np.count_nonzero((colour[..., c] >= lo) & (colour[..., c] <= hi))
                for c, (lo, hi) in enumerate([(0, 127), (10, 20), (100, 255)])]
    assert counts.tolist() == expected
    f = rng.standard_normal((9, 9)).astype(np.float32)
    f[0, 0] = np.nan
    assert compare.count_in_range(f, -0.5, 0.5) == np.count_nonzero((f >= -0.5) & (f <= 0.5))
    with pytest.raises(keli.BadRange):
        compare.count_in_range(a, 9, 3)


# ---- moments -------------------------------------------------------------------------------------

@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_raw_moments_equal_numpy_sums(rng, dtype):
    a = random_image(rng, (23, 31), dtype) if dtype != np.float32 else rng.random((23, 31)).astype(dtype)
    y, x = np.mgrid[:23, :31].astype(np.float64)
    v = a.astype(np.float64)
    m = moments.moments(a)
    assert m.spatial(0, 0) == pytest.approx(v.sum(), rel=1e-12)
    assert m.spatial(1, 0) == pytest.approx((x * v).sum(), rel=1e-12)
    assert m.spatial(0, 1) == pytest.approx((y * v).sum(), rel=1e-12)
    assert m.spatial(1, 1) == pytest.approx((x * y * v).sum(), rel=1e-12)
    cx, cy = m.centroid()
    assert m.central(2, 0) == pytest.approx((((x - cx) ** 2) * v).sum(), rel=1e-9)
    table = m.spatial_table()
    assert table[0, 0] == m.spatial(0, 0) and table[3, 0] == pytest.approx((x ** 3 * v).sum(), rel=1e-12)


def test_moments_per_channel_and_derived_against_the_raw_state(rng):
    a = random_image(rng, (15, 16, 4), np.uint8)
    m = moments.moments(a[2:, 1:], keep_alpha=True)  # a slice, AC4
    region = a[2:, 1:]
    for c in range(3):
        assert m.spatial(0, 0, c) == region[..., c].sum()
    hu = m.hu(1)
    value = np.zeros(7)
    keli.lib.keliGetHuMoments_64f(m._state.ctypes.data, 1, value.ctypes.data)
    assert np.array_equal(hu, value) and np.all(np.isfinite(hu))
    assert m.normalized_central(2, 0, 2) == pytest.approx(m.central(2, 0, 2) / m.spatial(0, 0, 2) ** 2)
    with pytest.raises(keli.BadChannel):
        m.spatial(0, 0, 3)
    with pytest.raises(keli.BadSize):
        m.spatial(2, 2)
    with pytest.raises(keli.ZeroMoment):
        moments.moments(np.zeros((4, 4), np.uint8)).central(2, 0)
    with pytest.raises(TypeError, match="no export keliMoments64f_8u_C4R"):
        moments.moments(a)


def test_documented():
    for fn in (elementary.square, alpha.alpha_composite, compare.compare, moments.moments):
        assert "Reference:" in fn.__doc__


def test_alpha_composite_color_key_keeps_alpha(rng, used):
    a = random_image(rng, (6, 7, 4), np.uint8) // 2 + 10
    b = random_image(rng, (6, 7, 4), np.uint8)
    a[1:3, 2:4] = (0, 1, 2, 3)
    result = alpha.alpha_composite_color_key(a, b, (0, 1, 2, 3), 255, 0, "over")
    keyed = (a == np.uint8([0, 1, 2, 3])).all(axis=2)
    expected = np.where(keyed[..., None], b, a)
    expected[..., 3] = a[..., 3]  # the destination alpha is never written: a new one starts as a's
    assert np.array_equal(result, expected) and used == ["keliAlphaCompColorKey_8u_AC4R"]
