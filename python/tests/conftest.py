"""Shared fixtures: seeded random images and a record of the exports a call used."""
import importlib

import numpy as np
import pytest

import keli

LAYERS = ["arith", "borders", "convert", "histogram", "move", "resize", "sharpen", "stats", "threshold"]


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
    """The names of the exports the numpy layer looked up to call, in order."""
    names = []
    monkeypatch.setattr(importlib.import_module("keli.arith"), "_PLANS", {})  # every call looks up
    for layer in LAYERS:
        module = importlib.import_module(f"keli.{layer}")
        real = module.find

        def spy(*args, _real=real, **fields):
            found = _real(*args, **fields)
            names.append(found[0])
            return found

        monkeypatch.setattr(module, "find", spy)
    return names


__all__ = ["keli", "random_image"]
