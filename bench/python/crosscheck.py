#!/usr/bin/python3
"""Cross-checks of the numpy layer against OpenCV where the two compute the same bits.

    KELI_LIBRARY=build/libkeli.so PYTHONPATH=python /usr/bin/python3 bench/python/crosscheck.py

OpenCV stays out of the test suite; this script is the by-hand check behind the claim that
these calls agree bit for bit on a real photograph (astronaut.png from python3-skimage) and on
random images, and that the float logarithm and exponential lie within a unit in the last
place of the double-precision value (OpenCV's are shown beside them). It prints one line a check
and exits 1 on any difference.
"""
import os
import sys
import warnings

import cv2
import numpy as np
import skimage

import keli
from keli import imageio


def checks(photo, grey, rng):
    wide = rng.integers(0, 65536, (300, 401), dtype=np.uint16)
    yield "add uint8 C3 (cv2.add)", keli.add(photo, photo[::-1].copy()), cv2.add(photo, photo[::-1].copy())
    yield "subtract uint8 C3 (cv2.subtract)", keli.subtract(photo, 100), cv2.subtract(photo, np.full_like(photo, 100))
    yield "add uint16 C1 (cv2.add)", keli.add(wide, wide), cv2.add(wide, wide)
    yield "pad reflect (BORDER_REFLECT_101)", keli.pad(photo, ((7, 9), (11, 3)), "reflect"), \
        cv2.copyMakeBorder(photo, 7, 9, 11, 3, cv2.BORDER_REFLECT_101)
    yield "pad edge (BORDER_REPLICATE)", keli.pad(grey, 20, "edge"), cv2.copyMakeBorder(grey, 20, 20, 20, 20, cv2.BORDER_REPLICATE)
    yield "pad constant (BORDER_CONSTANT)", keli.pad(photo, 5, constant_values=(1, 2, 3)), \
        cv2.copyMakeBorder(photo, 5, 5, 5, 5, cv2.BORDER_CONSTANT, value=(1, 2, 3))
    yield "clamp above (THRESH_TRUNC)", keli.threshold(grey, 128, op="gt"), cv2.threshold(grey, 128, 255, cv2.THRESH_TRUNC)[1]
    yield "zero at or below (THRESH_TOZERO)", keli.threshold(grey, 129, op="lt", value=0), \
        cv2.threshold(grey, 128, 255, cv2.THRESH_TOZERO)[1]
    yield "Otsu level (THRESH_OTSU)", keli.otsu_threshold(grey), int(cv2.threshold(grey, 0, 255, cv2.THRESH_OTSU)[0])
    table = rng.integers(0, 256, 256, dtype=np.uint8)
    yield "palette (cv2.LUT)", keli.palette(photo, table), cv2.LUT(photo, table)
    yield "histogram (cv2.calcHist)", keli.histogram(grey)[0].astype(np.float32), \
        cv2.calcHist([grey], [0], None, [256], [0, 256])[:, 0]
    yield "min, max and positions (cv2.minMaxLoc)", (keli.argmin(grey), keli.argmax(grey)), \
        (lambda m: ((int(m[0]), m[2][::-1]), (int(m[1]), m[3][::-1])))(cv2.minMaxLoc(grey))
    yield "L1 norm of a difference (cv2.norm)", keli.norm(grey, grey.T.copy(), kind="l1"), \
        cv2.norm(grey, grey.T.copy(), cv2.NORM_L1)
    yield "sum (cv2.sumElems)", tuple(keli.sum(photo)), cv2.sumElems(photo)[:3]
    yield "BGR order (cv2.cvtColor RGB2BGR)", keli.swap_channels(photo, (2, 1, 0)), cv2.cvtColor(photo, cv2.COLOR_RGB2BGR)
    yield "equalize (cv2.equalizeHist)", keli.equalize(grey), cv2.equalizeHist(grey)
    yield from elementary_checks(photo, rng)


def floats(rng, shape, nan_share=0.0):
    """Float32 elements over many binades and both signs, some of them not-a-number."""
    x = (rng.standard_normal(shape) * 10.0 ** rng.integers(-3, 4, shape)).astype(np.float32)
    x[rng.random(shape) < nan_share] = np.nan
    return x


def elementary_checks(photo, rng):
    second = photo[::-1].copy()
    yield "and uint8 C3 (cv2.bitwise_and)", keli.bitwise_and(photo, second), cv2.bitwise_and(photo, second)
    yield "or uint8 C3 (cv2.bitwise_or)", keli.bitwise_or(photo, second), cv2.bitwise_or(photo, second)
    yield "xor uint8 C3 (cv2.bitwise_xor)", keli.bitwise_xor(photo, second), cv2.bitwise_xor(photo, second)
    yield "not uint8 C3 (cv2.bitwise_not)", keli.bitwise_not(photo), cv2.bitwise_not(photo)
    for dtype in (np.uint8, np.uint16, np.int16):
        info = np.iinfo(dtype)
        a, b = (rng.integers(info.min, info.max + 1, (123, 77), dtype=dtype) for _ in range(2))
        name = np.dtype(dtype).name
        yield f"maximum {name} (cv2.max)", keli.maximum(a, b), cv2.max(a, b)
        yield f"minimum {name} (cv2.min)", keli.minimum(a, b), cv2.min(a, b)
    # Not-a-number against a number gives one operand, the same in both: cv2.max's second
    # argument, and the C call's second image, which keli.maximum takes from its first. Rows of
    # whole vector blocks: OpenCV's scalar tail gives the first argument instead.
    a, b = floats(rng, (123, 128), 0.1), floats(rng, (123, 128), 0.1)
    yield "maximum float32 with nan (cv2.max)", bits(keli.maximum(b, a)), bits(cv2.max(a, b))
    yield "minimum float32 with nan (cv2.min)", bits(keli.minimum(b, a)), bits(cv2.min(a, b))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # the negative elements' warning
        yield "sqrt float32, negatives to nan (cv2.sqrt)", bits(keli.sqrt(a)), bits(cv2.sqrt(a))
    for n in range(10):
        yield f"square uint8, scale {n} (cv2.multiply)", keli.square(photo, scale=n), \
            cv2.multiply(photo, photo, scale=2.0 ** -n)
    # From 1: at scale 1, OpenCV's scalar tail (the columns after its last whole vector block)
    # wraps squares above 2^31 instead of saturating them.
    wide = rng.integers(0, 65536, (123, 77), dtype=np.uint16)
    for n in range(1, 9):
        yield f"square uint16, scale {n} (cv2.multiply)", keli.square(wide, scale=n), \
            cv2.multiply(wide, wide, scale=2.0 ** -n)


def float_function_checks(rng):
    """keli's float logarithm and exponential within a unit in the last place of the value in
    double precision; OpenCV's, shown beside, stray further (it bounds the absolute error)."""
    positive = np.abs(floats(rng, (123, 77))) + np.float32(1e-30)
    moderate = (rng.random((123, 77), dtype=np.float32) - 0.5) * 170
    for name, x, ours, theirs, exact in (("log", positive, keli.log, cv2.log, np.log),
                                         ("exp", moderate, keli.exp, cv2.exp, np.exp)):
        truth = exact(x.astype(np.float64))
        unit = np.spacing(np.abs(truth.astype(np.float32))).astype(np.float64)
        apart = [float(np.max(np.abs(f(x).astype(np.float64) - truth) / unit)) for f in (ours, theirs)]
        yield f"{name} float32 (cv2.{name})", apart


def bits(x):
    return x.view(np.uint32)


def main():
    data = skimage.data_dir
    photo = imageio.read(os.path.join(data, "astronaut.png"))
    grey = imageio.read(os.path.join(data, "camera.png"))
    failures = 0
    rng = np.random.default_rng(5)
    for name, ours, theirs in checks(photo, grey, rng):
        same = ours == tuple(theirs) if isinstance(ours, tuple) else np.array_equal(ours, theirs)
        differing = "" if same else f"  ({np.count_nonzero(np.asarray(ours) != np.asarray(theirs))} values differ)"
        print(f"{'same' if same else 'DIFFERENT':>9}  {name}{differing}")
        failures += not same
    for name, (ours, theirs) in float_function_checks(rng):
        close = ours <= 1.0
        print(f"{'close' if close else 'FAR':>9}  {name}: {ours:.2f} units in the last place at most, OpenCV {theirs:.2f}")
        failures += not close
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
