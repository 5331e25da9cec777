"""Template matching: a template compared with every position of a one-channel image.

match_template(image, template, method=..., shape=...) returns float32 scores (or uint8 with
dtype=np.uint8, scaled by 2**-scale_factor, rounded half to even and saturated). Methods:
"ccorr" (the plain correlation), "ccorr_normed" (divided by the window's and the template's
norms), "ccoeff_normed" (both means removed first), "sqdiff" (sum of squared differences) and
"sqdiff_normed" (that divided by the two norms). Shapes: "valid" (the template inside the
image), "same" (the image's size, the template centred) and "full" (any overlap); pixels
beyond the image count as 0."""
import ctypes

import numpy as np

from ._doc import documented
from ._image import find, output, run, source

SHAPES = {"full": 0, "valid": 0x10000, "same": 0x20000}
METHODS = {
    "ccorr": ("keliCrossCorrNorm", 0),
    "ccorr_normed": ("keliCrossCorrNorm", 0x100),
    "ccoeff_normed": ("keliCrossCorrNorm", 0x200),
    "sqdiff": ("keliSqrDistanceNorm", 0),
    "sqdiff_normed": ("keliSqrDistanceNorm", 0x100),
}


def _choice(table, key, what):
    try:
        return table[key]
    except (KeyError, TypeError):
        raise ValueError(f"keli: {what} is one of {', '.join(map(repr, table))}, not {key!r}") from None


def _result_shape(shape, image, template):
    (H, W), (h, w) = image, template
    if shape == "full":
        return H + h - 1, W + w - 1
    if shape == "same":
        return H, W
    return H - h + 1, W - w + 1


@documented("match/template")
def match_template(image, template, method="ccoeff_normed", shape="valid", *, dtype=np.float32, scale_factor=0,
                   out=None):
    """Scores of `template` (h, w) at every position of `image` (H, W), both uint8, uint16 or
    float32 of one dtype. uint8 output (dtype=np.uint8) needs uint8 inputs. out: a
    preallocated result of the shape and dtype."""
    family, norm = _choice(METHODS, method, "method")
    alg = norm | _choice(SHAPES, shape, "shape")
    src, tpl = source(image), source(template)
    if src.layout != "C1" or tpl.layout != "C1":
        raise TypeError("keli: template matching takes one-channel (h, w) images")
    if src.array.dtype != tpl.array.dtype:
        raise TypeError(f"keli: image and template differ in dtype: {src.array.dtype} and {tpl.array.dtype}")
    dtype = np.dtype(dtype)
    if dtype == np.uint8:
        name, function = find("{f}_{t}_C1RSfs", f=family, t=src.token)
    elif dtype == np.float32:
        name, function = find("{f}_{t}_C1R", f=family, t=src.token if src.token == "32f" else src.token + "32f")
    else:
        raise TypeError(f"keli: the result is float32 or uint8, not {dtype}")
    size = ctypes.c_int()
    size_name, size_function = find("{f}GetBufferSize", f=family)
    run(size_name, size_function, src.size, tpl.size, alg, ctypes.byref(size))
    dst = output(out, _result_shape(shape, src.array.shape, tpl.array.shape), dtype)
    buffer = np.empty(max(size.value, 1), np.uint8)
    extra = (scale_factor,) if dtype == np.uint8 else ()
    run(name, function, src.ptr, src.step, src.size, tpl.ptr, tpl.step, tpl.size, dst.ptr, dst.step, *extra, alg,
        buffer.ctypes.data)
    return dst.array
