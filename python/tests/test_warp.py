"""Affine helpers and warps against plain numpy models."""
import math

import numpy as np
import pytest

import keli
from keli import warp


def test_rotation_matrix_right_angles_and_centre():
    m = warp.rotation_matrix(90, center=(3, 5))
    assert m.tolist() == [[0, 1, -2], [-1, 0, 8]]
    m = warp.rotation_matrix(30, center=(10.5, -2))
    c = np.array([10.5, -2, 1])
    np.testing.assert_allclose(m @ c, [10.5, -2], atol=1e-12)
    assert m[0, 0] == pytest.approx(math.cos(math.radians(30)), abs=1e-15)


def test_rotation_matrix_refuses_an_infinite_angle():
    with pytest.raises(keli.Error):
        warp.rotation_matrix(float("inf"))


def test_quad_bound_transform_round_trip():
    m = np.array([[0.75, -0.5, 10], [0.25, 1.5, -4]])
    rect = (3, 5, 9, 17)
    q = warp.affine_quad(rect, m)
    corners = np.array([[3, 5, 1], [11, 5, 1], [11, 21, 1], [3, 21, 1]], float)
    np.testing.assert_array_equal(q, corners @ m.T)
    assert warp.affine_bound(rect, m) == (q[:, 0].min(), q[:, 1].min(), q[:, 0].max(), q[:, 1].max())
    np.testing.assert_allclose(warp.affine_transform(rect, q), m, atol=1e-13)


def test_transform_of_a_trapezoid_warns_and_answers():
    with pytest.warns(keli.KeliWarning):
        m = warp.affine_transform((0, 0, 11, 11), [[0, 0], [10, 0], [8, 10], [2, 10]])
    assert m[0].tolist() == [1, -0.2, 0]


def test_transform_errors():
    with pytest.raises(keli.Error):
        warp.affine_transform((0, 0, 1, 11), [[0, 0], [10, 0], [10, 10], [0, 10]])
    with pytest.raises(ValueError):
        warp.affine_transform((0, 0, 11, 11), [[0, 0], [10, 0]])


def test_source_region():
    assert warp.affine_source_region((80, 100), np.eye(2, 3), (10, 20, 30, 40)) == (9, 19, 32, 42)
    half = [[0.5, 0, 0], [0, 0.5, 0]]
    assert warp.affine_source_region((100, 100), half, (0, 0, 10, 10)) == (0, 0, 20, 20)
    assert warp.affine_source_region((100, 100), [[2, 0, 0], [0, 2, 0]], (0, 0, 10, 10), inverse=True) == (0, 0, 20, 20)
    with pytest.raises(keli.Error):
        warp.affine_source_region((100, 100), [[1, 1, 0], [1, 1, 0]], (0, 0, 10, 10))
