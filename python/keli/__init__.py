"""keli for Python: numpy arrays in and out of keli's exact image-processing primitives.

    import numpy as np, PIL.Image, keli
    image = np.array(PIL.Image.open("photo.png"))          # (h, w, 3) uint8
    brighter = keli.add(image, 40)                         # saturates at 255
    mask = keli.threshold(image, 128, op="lt", value=0)    # below 128 -> 0

The numpy layer dispatches on dtype and channel count to the export that fits; `keli.lib`
reaches every export with the ctypes prototype of its C declaration, and
`keli.call("keliAbs_16s_C1IR", ...)` calls one with its status turned into Python's terms. Statuses: a negative one
raises a subclass of keli.Error named after it (keli.BadSize, ...), a positive one issues a
keli.KeliWarning subclass (keli.DivByZeroWarn, ...).
"""
from . import errors
from ._doc import reference
from ._lib import call, lib
from ._types import *  # noqa: F401,F403 (records and enumerations)
from .arith import absolute, add, divide, multiply, subtract
from .borders import pad
from .convert import convert, rescale, scale_linear
from .threshold import adaptive_threshold, otsu_threshold, threshold, threshold_range
from .histogram import LookupTable, equalize, histogram, lut, palette
from .move import copy, fill, from_bits, grey_to_colour, merge, split, swap_channels, to_bits
from .stats import argmax, argmin, block_min_max, dot, max, mean, min, min_max, norm, quality_index, sad, sum
from . import filters
from .derivative import derivative_filter, gradient, sobel_magnitude
from .filters import box, dilate3x3, erode3x3, filter2d, max_filter, min_filter, sum_window, sum_window_column, sum_window_row
from .sharpen import highpass, laplace, sharpen
from .median import median, median_colour, median_cross, median_weighted
from .elementary import (bitwise_and, bitwise_not, bitwise_or, bitwise_xor, complement, exp, left_shift, log,
                         maximum, minimum, right_shift, sqrt, square)
from .alpha import alpha_composite, alpha_composite_color_key, color_key, premultiply
from .compare import compare, count_in_range, equal_within
from .moments import Moments, moments
from .geometry import flip, remap, transpose
from .resize import resize
from .warp import affine_bound, affine_quad, affine_source_region, affine_transform, rotation_matrix, warp_affine
from .fft import fft2, ifft2, irfft2_packed, rfft2_packed
from .match import match_template
from .hog import hog
from .synthetic import add_gaussian_noise, add_uniform_noise, jaehne, ramp
from .errors import *  # noqa: F401,F403 (Error, KeliWarning and one class per status)

__version__ = "2022.3.0"


def library_version():
    """The library's version record as a dict (keliGetLibVersion)."""
    record = lib.keliGetLibVersion().contents
    return {
        "major": record.major, "minor": record.minor, "major_build": record.majorBuild, "build": record.build,
        "target_cpu": record.targetCpu.decode(), "name": record.Name.decode(),
        "version": record.Version.decode(), "build_date": record.BuildDate.decode(),
    }
