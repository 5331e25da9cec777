"""Shared fixtures: seeded random images and a record of the exports a call used."""
import importlib

import numpy as np
import pytest

import keli

LAYERS = ["arith", "borders", "convert", "histogram", "stats", "threshold"]


@pytest.fixture
def rng():
    return np.random.default_rng(20261125)


def random_image(rng, shape, dtype):
    dtype = np.dtype(dtype)
    if dtype.kind == "f":
        return (rng.standard_normal(shape) * 1000).astype(dtype)
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


@pytest.fixture
def exports_used(monkeypatch):
    """The names of the exports the numpy layer called, in order."""
    names = []
    for layer in LAYERS:
        module = importlib.import_module(f"keli.{layer}")
        real = module.run

        def spy(name, function, *args, _real=real):
            names.append(name)
            return _real(name, function, *args)

        monkeypatch.setattr(module, "run", spy)
    return names


__all__ = ["keli", "random_image"]
