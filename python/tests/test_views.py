"""Slices and strided arrays without copies, out= and the in-place members."""
import contextlib
import warnings

import numpy as np
import pytest

import keli
from keli._image import source
from conftest import random_image


def test_a_region_of_interest_is_a_slice_and_goes_in_without_a_copy(rng, exports_used):
    big = random_image(rng, (40, 50, 3), np.uint8)
    region = big[5:17, 9:30]
    assert source(region).array is region  # keli reads the parent's memory
    out_parent = np.zeros_like(big)
    out = out_parent[20:32, 1:22]
    result = keli.add(region, 9, out=out)
    assert result is out
    assert np.array_equal(out_parent[20:32, 1:22], np.minimum(region.astype(int) + 9, 255))
    untouched = np.ones(out_parent.shape, bool)
    untouched[20:32, 1:22] = False
    assert not out_parent[untouched].any()  # nothing written outside the region
    assert exports_used == ["keliAddC_8u_C3RSfs"]


def test_padded_rows_are_taken_as_their_row_step(rng):
    storage = random_image(rng, (12, 64), np.uint16)
    image = storage[:, :45]  # rows 128 bytes apart, 90 bytes used
    view = source(image)
    assert view.array is image and view.step == 128
    assert keli.sum(image) == image.astype(np.int64).sum()


def test_unpacked_inputs_are_copied_and_unpacked_outputs_refused(rng):
    image = random_image(rng, (10, 20), np.int16)
    every_other = image[:, ::2]
    flipped = image[::-1]
    for view in (every_other, flipped):
        assert source(view).array is not view
        assert np.array_equal(keli.threshold(view, 0), np.maximum(view, 0))
    with pytest.raises(ValueError, match="packed rows"):
        keli.threshold(image[:, :10], 0, out=np.zeros((10, 20), np.int16)[:, ::2])
    with pytest.raises(ValueError, match="packed rows"):
        keli.threshold(image, 0, out=np.zeros_like(image)[::-1])
    one_channel = random_image(rng, (10, 20, 3), np.uint8)[..., 1]
    assert np.array_equal(keli.add(one_channel, 1), np.minimum(one_channel.astype(int) + 1, 255))


@pytest.mark.parametrize("call,in_place", [
    (lambda a, b, out: keli.add(a, b, out=out), "keliAdd_16s_C1IRSfs"),
    (lambda a, b, out: keli.subtract(a, b, out=out), "keliSub_16s_C1IRSfs"),
    (lambda a, b, out: keli.add(a, 3, out=out), "keliAddC_16s_C1IRSfs"),
    (lambda a, b, out: keli.threshold(a, 0, out=out), "keliThreshold_LT_16s_C1IR"),
    (lambda a, b, out: keli.absolute(a, out=out), "keliAbs_16s_C1IR"),
    (lambda a, b, out: keli.scale_linear(a, 2, 1, out=out), "keliScaleC_16s_C1IR"),
])
def test_out_equal_to_the_input_takes_the_in_place_member(rng, exports_used, call, in_place):
    a, b = random_image(rng, (9, 33), np.int16), random_image(rng, (9, 33), np.int16)
    expected = call(a, b, None)
    result = call(a, b, a)
    assert result is a
    assert exports_used[-1] == in_place
    assert np.array_equal(a, expected)  # in place equals out of place


def test_in_place_on_the_second_operand_of_a_commuting_operation(rng, exports_used):
    a, b = random_image(rng, (5, 8), np.uint8), random_image(rng, (5, 8), np.uint8)
    expected = keli.multiply(a, b, scale=2)
    keli.multiply(a, b, scale=2, out=b)
    assert exports_used[-1] == "keliMul_8u_C1IRSfs" and np.array_equal(b, expected)


def test_pad_fills_the_frame_around_an_image_that_lies_in_its_output(rng, exports_used):
    image = random_image(rng, (6, 9, 3), np.float32)
    frame = np.zeros((10, 16, 3), np.float32)
    inside = frame[3:9, 5:14]
    inside[...] = image
    keli.pad(inside, ((3, 1), (5, 2)), "edge", out=frame)
    assert exports_used == ["keliCopyReplicateBorder_32f_C3IR"]
    assert np.array_equal(frame, np.pad(image, ((3, 1), (5, 2), (0, 0)), "edge"))


def test_out_of_the_wrong_kind_is_refused(rng):
    image = random_image(rng, (4, 5), np.uint8)
    with pytest.raises(ValueError, match="out must be uint8 of shape"):
        keli.add(image, 1, out=np.zeros((4, 5), np.uint16))
    frozen = np.zeros_like(image)
    frozen.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        keli.add(image, 1, out=frozen)


@pytest.mark.parametrize("operation", [keli.add, keli.subtract, keli.multiply, keli.divide])
def test_a_repeated_call_of_the_same_geometry_gives_the_same_results(rng, operation):
    # The second call of each kind takes the remembered plan instead of the full dispatch.
    a, b = random_image(rng, (7, 12, 3), np.uint16), random_image(rng, (7, 12, 3), np.uint16)
    b[0, 0, 0] = 0
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        expected = operation(a, b, scale=1)
    for _ in range(2):
        with _expected_warnings(operation):
            assert np.array_equal(operation(a, b, scale=1), expected)
        out = np.zeros_like(a)
        with _expected_warnings(operation):
            assert operation(a, b, scale=1, out=out) is out and np.array_equal(out, expected)
        in_place = a.copy()
        with _expected_warnings(operation):
            operation(in_place, b, scale=1, out=in_place)
        assert np.array_equal(in_place, expected)
        other = b.copy()
        with _expected_warnings(operation):
            operation(a, other, scale=1, out=other)
        assert np.array_equal(other, expected)
    frozen = np.zeros_like(a)
    frozen.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        operation(a, b, scale=1, out=frozen)


@contextlib.contextmanager
def _expected_warnings(operation):
    """Exactly a DivByZeroWarn for a division by an image holding a zero, nothing otherwise."""
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        yield
    expected = [keli.DivByZeroWarn] if operation is keli.divide else []
    assert [w.category for w in caught] == expected


def test_a_remembered_call_still_checks_the_output(rng):
    a, b = random_image(rng, (6, 8), np.uint8), random_image(rng, (6, 8), np.uint8)
    keli.add(a, b, out=np.zeros((6, 8), np.uint8))
    keli.add(a, b, out=np.zeros((6, 8), np.uint8))
    with pytest.raises(ValueError, match="shape"):
        keli.add(a, b, out=np.zeros((5, 8), np.uint8))  # same strides and dtype, fewer rows
    with pytest.raises(ValueError, match="uint8"):
        keli.add(a, b, out=np.zeros((6, 8), np.int8))


def test_steps_beyond_32_bits_are_refused_before_any_call():
    tiny = np.zeros(16, np.uint8)
    huge_step = np.lib.stride_tricks.as_strided(tiny, shape=(2, 4), strides=(1 << 33, 1))
    with pytest.raises(ValueError, match="32 bits"):
        keli.sum(huge_step)
