"""Synthetic images and noise: the concentric Jaehne pattern, ramps, uniform and normal noise.

The noise comes from the library's own seeded generator: the same seed and image give the same
result on every machine. seed is an int (0 to 2**32 - 1), a numpy.random.Generator (a 32-bit
seed is drawn from it, so a seeded generator gives a reproducible series of calls), or None
(a fresh seed from numpy's default generator)."""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import constant, find, layout_of, output, run, source


def _new(shape, dtype, out, keep_alpha):
    if out is None:
        shape = tuple(int(n) for n in ((shape,) * 2 if np.ndim(shape) == 0 else shape))
        layout_of(shape, keep_alpha)  # a bad shape raises here, before any allocation
        out = np.zeros(shape, dtype)
    else:
        if shape is not None and tuple(np.shape(out)) != tuple(shape):
            raise ValueError(f"keli: out has shape {np.shape(out)}, not {tuple(shape)}")
    return output(out, np.shape(out), np.asarray(out).dtype, like=source(out, keep_alpha))


@documented("move/test-images-noise")
def jaehne(shape, dtype=np.uint8, *, out=None, keep_alpha=False):
    """The Jaehne test pattern (concentric rings of rising frequency, symmetric about the
    centre) of shape (h, w[, c]), every channel alike; float32 spans [0, 1], integers their
    range. With out=, written there (shape may be None); keep_alpha leaves a fourth channel."""
    dst = _new(shape, dtype, out, keep_alpha)
    name, function = find("keliImageJaehne_{t}_{l}R", t=dst.token, l=dst.layout)
    run(name, function, dst.ptr, dst.step, dst.size)
    return dst.array


_RAMP_AXES = {1: _types.KeliAxis.kelAxisHorizontal, -1: _types.KeliAxis.kelAxisHorizontal,
              0: _types.KeliAxis.kelAxisVertical, None: _types.KeliAxis.kelAxisBoth}


@documented("move/test-images-noise")
def ramp(shape, dtype=np.uint8, offset=0.0, slope=1.0, axis=1, *, out=None, keep_alpha=False):
    """An image of shape (h, w[, c]) rising along an axis, numpy's way: axis=1 (default)
    offset + slope * column, axis=0 offset + slope * row, axis=None offset + slope * row *
    column. Integers are rounded to nearest and saturated."""
    try:
        code = _RAMP_AXES[axis if axis is None else int(axis)]
    except (KeyError, TypeError, ValueError):
        raise ValueError(f"keli: a ramp runs along axis 1 (columns), 0 (rows) or None (both), not {axis!r}") from None
    dst = _new(shape, dtype, out, keep_alpha)
    name, function = find("keliImageRamp_{t}_{l}R", t=dst.token, l=dst.layout)
    run(name, function, dst.ptr, dst.step, dst.size, float(offset), float(slope), code)
    return dst.array


def _seed(seed):
    if seed is None:
        seed = np.random.default_rng()
    if isinstance(seed, np.random.Generator):
        return int(seed.integers(0, 2**32))
    if isinstance(seed, (bool, np.bool_)) or not isinstance(seed, (int, np.integer)):
        raise TypeError(f"keli: seed is an int, a numpy.random.Generator or None, not {type(seed).__name__}")
    seed = int(seed)
    if not 0 <= seed < 2**32:
        raise ValueError(f"keli: seed {seed} is not a 32-bit unsigned integer")
    return seed


def _noise(family, a, p, q, seed, out, keep_alpha, return_seed):
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    if not dst.same_memory(src):
        dst.array[...] = src.array
    state = _types.Kel32u(_seed(seed))
    name, function = find("keliAddRand{f}_{t}_{l}IR", f=family, t=dst.token, l=dst.layout)
    run(name, function, dst.ptr, dst.step, dst.size, constant(p, dst.token), constant(q, dst.token),
        ctypes.byref(state))
    return (dst.array, state.value) if return_seed else dst.array


@documented("move/test-images-noise")
def add_uniform_noise(a, low, high, *, seed=None, out=None, keep_alpha=False, return_seed=False):
    """a plus noise uniform in [low, high] (values of a's dtype), rounded and saturated (float32
    unsaturated); keep_alpha leaves a fourth channel. A new array, or out (in place with out=a).
    return_seed=True returns (image, next seed): passing that seed on continues the sequence."""
    return _noise("Uniform", a, low, high, seed, out, keep_alpha, return_seed)


@documented("move/test-images-noise")
def add_gaussian_noise(a, mean=0, std=1, *, seed=None, out=None, keep_alpha=False, return_seed=False):
    """a plus normal noise of mean and std (values of a's dtype), rounded and saturated
    (float32 unsaturated); otherwise as add_uniform_noise."""
    return _noise("Gauss", a, mean, std, seed, out, keep_alpha, return_seed)
