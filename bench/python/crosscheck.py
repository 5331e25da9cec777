#!/usr/bin/python3
"""Cross-checks of the numpy layer against OpenCV where the two compute the same bits.

    KELI_LIBRARY=build/libkeli.so PYTHONPATH=python /usr/bin/python3 bench/python/crosscheck.py

OpenCV stays out of the test suite; this script is the by-hand check behind the claim that
these calls agree bit for bit on a real photograph (astronaut.png from python3-skimage) and on
random images. It prints one line a check and exits 1 on any difference.
"""
import os
import sys

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


def main():
    data = skimage.data_dir
    photo = imageio.read(os.path.join(data, "astronaut.png"))
    grey = imageio.read(os.path.join(data, "camera.png"))
    failures = 0
    for name, ours, theirs in checks(photo, grey, np.random.default_rng(5)):
        same = ours == tuple(theirs) if isinstance(ours, tuple) else np.array_equal(ours, theirs)
        differing = "" if same else f"  ({np.count_nonzero(np.asarray(ours) != np.asarray(theirs))} values differ)"
        print(f"{'same' if same else 'DIFFERENT':>9}  {name}{differing}")
        failures += not same
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
