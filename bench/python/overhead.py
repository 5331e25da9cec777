#!/usr/bin/python3
"""Call overhead of keli's numpy layer: keli.add against cv2.add and the raw C call.

    KELI_LIBRARY=build/libkeli.so PYTHONPATH=python /usr/bin/python3 bench/python/overhead.py

Times uint8 image + image with a preallocated destination (so that no side allocates) at 64x64,
where the call's fixed cost dominates, and at 3840x2160, where it must vanish. Each row is
the best of several repeats of a timed loop, in microseconds a call. Before timing, the three
results are compared: saturating uint8 addition is bit-identical in keli and OpenCV.
"""
import ctypes
import timeit

import numpy as np

import keli

try:
    import cv2
except ImportError:  # python3-opencv: bash scripts/setup.sh bench
    cv2 = None


def best(call, seconds=0.2, repeats=7):
    loops = max(1, int(seconds / max(timeit.timeit(call, number=1), 1e-7)))
    return min(timeit.repeat(call, number=loops, repeat=repeats)) / loops * 1e6


def raw_call(a, b, out, channels):
    """The C export with its arguments built once: what the numpy layer adds is the rest."""
    function = keli.lib.keliAdd_8u_C1RSfs if channels == 1 else keli.lib.keliAdd_8u_C3RSfs
    size = keli.KeliSize(a.shape[1], a.shape[0])
    args = (b.ctypes.data, b.strides[0], a.ctypes.data, a.strides[0], out.ctypes.data, out.strides[0], size, 0)
    return lambda: function(*args)


def row(label, shape):
    rng = np.random.default_rng(1)
    a = rng.integers(0, 256, shape, dtype=np.uint8)
    b = rng.integers(0, 256, shape, dtype=np.uint8)
    out = np.empty_like(a)
    channels = 1 if len(shape) == 2 else shape[2]
    raw = raw_call(a, b, out, channels)
    raw()
    expected = out.copy()
    assert np.array_equal(keli.add(a, b), expected)
    timings = {"raw C": best(raw), "keli.add": best(lambda: keli.add(a, b, out=out))}
    if cv2 is not None:
        assert np.array_equal(cv2.add(a, b), expected), "cv2.add and keli disagree"
        timings["cv2.add"] = best(lambda: cv2.add(a, b, dst=out))
    cells = "  ".join(f"{name} {value:9.2f} us" for name, value in timings.items())
    ratio = f"  keli.add/cv2.add {timings['keli.add'] / timings['cv2.add']:.2f}" if cv2 else ""
    layer = timings["keli.add"] - timings["raw C"]
    print(f"{label:<16} {cells}  layer +{layer:.2f} us{ratio}")


if __name__ == "__main__":
    row("64x64 C1", (64, 64))
    row("64x64 C3", (64, 64, 3))
    row("3840x2160 C1", (2160, 3840))
    row("3840x2160 C3", (2160, 3840, 3))
