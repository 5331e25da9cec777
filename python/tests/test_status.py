"""Negative statuses raise keli.Error subclasses with the export's name; positive ones warn."""
import warnings

import numpy as np
import pytest

import keli


def test_an_error_names_its_status_and_export_and_nothing_is_written():
    out = np.full((3, 4), 99, np.uint8)
    with pytest.raises(keli.DivByZero) as caught:
        keli.divide(np.ones((3, 4), np.uint8), 0, out=out)
    error = caught.value
    assert isinstance(error, keli.Error)
    assert error.status == keli.KelStatusCode.kelStatusDivByZero
    assert error.export == "keliDivC_8u_C1RSfs"
    assert "kelStatusDivByZero (-10)" in str(error)
    assert (out == 99).all()


@pytest.mark.parametrize("call,status", [
    (lambda: keli.add(np.zeros((0, 4), np.uint8), 1), keli.BadSize),
    (lambda: keli.threshold_range(np.zeros((2, 2), np.int16), 5, 0, 4, 0), keli.ThresholdOrder),
    (lambda: keli.histogram(np.zeros((2, 2), np.uint8), 0), keli.BadHistLevels),
    (lambda: keli.lut(np.zeros((2, 2), np.uint8), [0], [0]), keli.BadLutLevels),
    (lambda: keli.rescale(np.zeros((2, 2), np.float32), np.uint8, value_range=(1, 1)), keli.BadScaleRange),
    (lambda: keli.palette(np.zeros((2, 2), np.uint8), np.zeros(512, np.uint8), bits=9), keli.OutOfRange),
])
def test_each_refusal_raises_the_class_of_its_status(call, status):
    with pytest.raises(status):
        call()


def test_warnings_are_python_warnings_and_the_result_stands():
    a = np.array([[10, 20, 30]], np.uint8)
    b = np.array([[2, 0, 3]], np.uint8)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        result = keli.divide(a, b)
    assert [w.category for w in caught] == [keli.DivByZeroWarn]
    assert issubclass(keli.DivByZeroWarn, keli.KeliWarning)
    assert "keliDiv_8u_C1RSfs" in str(caught[0].message)
    assert caught[0].filename == __file__  # the warning points at the caller's line
    assert result[0, 0] == 5 and result[0, 2] == 10
    with pytest.warns(keli.DivByZeroWarn):
        keli.norm(a, np.zeros_like(a), relative=True)


def test_warnings_can_be_turned_into_errors():
    with warnings.catch_warnings():
        warnings.simplefilter("error", keli.KeliWarning)
        with pytest.raises(keli.DivByZeroWarn):
            keli.divide(np.ones((1, 2), np.float32), np.zeros((1, 2), np.float32))
