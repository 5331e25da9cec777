"""Derivative masks and gradient vectors: derivative_filter (Sobel, Scharr, Prewitt, Roberts masks),
gradient (gx, gy, magnitude and angle in one pass) and sobel_magnitude.

- Masks are applied as written, not reversed: "sobel_vert" and "prewitt_vert" take left minus
  right, "scharr_vert" and "sobel_neg_vert" right minus left, every "..._horiz" bottom minus
  top. Sobel masks come in size 3 and 5, the others in size 3 only.
- uint8 gives int16 (exact), int16 gives int16 (saturated), float32 gives float32. The
  gradient also takes uint16 and int16 to float32, and three-channel images (the channel of
  largest energy wins each pixel).
- `border` is "replicate", "mirror" (numpy.pad's "reflect") or "constant" (`value`), or None
  for the valid part only, as in keli.filters.
"""
import numpy as np

from . import _types
from ._doc import documented
from ._image import constant, constants, find, output, run, source
from .filters import CONSTANT, DATA_TYPES, _border, _buffer, _prepare, _query

MASKS = {
    "sobel_vert": ("SobelVert", True),
    "sobel_horiz": ("SobelHoriz", True),
    "sobel_neg_vert": ("SobelNegVert", True),
    "sobel_vert_second": ("SobelVertSecond", True),
    "sobel_horiz_second": ("SobelHorizSecond", True),
    "scharr_vert": ("ScharrVertMask", False),
    "scharr_horiz": ("ScharrHorizMask", False),
    "prewitt_vert": ("PrewittVert", False),
    "prewitt_horiz": ("PrewittHoriz", False),
    "roberts_down": ("RobertsDown", False),
    "roberts_up": ("RobertsUp", False),
}

# Source token -> (export pair token, output dtype).
DERIVATIVE_TYPES = {"8u": ("8u16s", np.int16), "16s": ("16s", np.int16), "32f": ("32f", np.float32)}
GRADIENT_TYPES = {"8u": ("8u16s", np.int16), "16u": ("16u32f", np.float32), "16s": ("16s32f", np.float32),
                  "32f": ("32f", np.float32)}
NORMS = {"l1": int(_types.KelNormType.kelNormL1), "l2": int(_types.KelNormType.kelNormL2)}
FAMILIES = {"sobel": "Sobel", "prewitt": "Prewitt", "scharr": "Scharr"}


def _mask(size):
    if size not in (3, 5):
        raise ValueError(f"keli: the mask size is 3 or 5, not {size!r}")
    return int(_types.KeliMaskSize.kelMaskSize5x5 if size == 5 else _types.KeliMaskSize.kelMaskSize3x3)


def _choice(table, key, what):
    try:
        return table[key]
    except (KeyError, TypeError):
        raise ValueError(f"keli: {what} is one of {sorted(table)}, not {key!r}") from None


def _types_of(table, a, what):
    token = source(a).token
    if token not in table:
        names = {"8u": "uint8", "16u": "uint16", "16s": "int16", "32f": "float32"}
        raise TypeError(f"keli: {what} takes {', '.join(names[t] for t in table)}, not {np.asarray(a).dtype}")
    return token, table[token]


@documented("filter/derivative")
def derivative_filter(a, mask="sobel_vert", size=3, *, border="replicate", value=0, out=None):
    """The derivative `mask` (one of MASKS) of size 3 or 5 over a single-channel image: uint8 to
    int16 exact, int16 to int16 saturated, float32 to float32."""
    family, five = _choice(MASKS, mask, "mask")
    if size == 5 and not five:
        raise ValueError(f"keli: the {mask} mask has size 3 only")
    code, k = _border(border), _mask(size)
    token, (pair, dtype) = _types_of(DERIVATIVE_TYPES, a, "derivative_filter")
    src, dst = _prepare(a, size, size, code, False, out, np.dtype(dtype), False)
    if src.layout != "C1":
        raise TypeError("keli: derivative_filter takes single-channel images")
    name, function = find("keliFilter{f}Border_{t}_C1R", f=family, t=pair)
    (bytes_,) = _query(f"keliFilter{family}BorderGetBufferSize", dst.size, k, DATA_TYPES[token],
                       DATA_TYPES["16s" if dtype == np.int16 else "32f"], 1)
    extra = constant(value, token, "value") if code == CONSTANT else 0
    scratch = _buffer(bytes_)  # held until the call returns
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, k, code, extra, scratch.ctypes.data)
    return dst.array


@documented("filter/gradient")
def gradient(a, family="sobel", size=3, *, norm="l2", outputs=("gx", "gy", "magnitude", "angle"),
             border="replicate", value=0):
    """A dict of the asked `outputs` among "gx", "gy", "magnitude", "angle": the family's
    derivatives (gx its vertical-edge mask, gy its horizontal-edge one), the magnitude by `norm`
    ("l1" or "l2") and atan2(gy, gx) in float32 radians. uint8 gives int16 derivatives and
    magnitude, the other types float32. A three-channel image keeps, per pixel, the channel of
    largest energy. Prewitt and Scharr have size 3 only."""
    name_of = _choice(FAMILIES, family, "family")
    if size == 5 and family != "sobel":
        raise ValueError(f"keli: the {family} gradient has size 3 only")
    unknown = set(outputs) - {"gx", "gy", "magnitude", "angle"}
    if unknown:
        raise ValueError(f"keli: outputs are among gx, gy, magnitude, angle, not {sorted(unknown)}")
    code, k, n = _border(border), _mask(size), _choice(NORMS, norm, "norm")
    token, (pair, dtype) = _types_of(GRADIENT_TYPES, a, "gradient")
    src, _ = _prepare(a, size, size, code, False, None, None, False)
    if src.layout not in ("C1", "C3"):
        raise TypeError("keli: gradient takes one- or three-channel images")
    shape = src.array.shape[:2]
    views = {o: output(None, shape, np.dtype(np.float32 if o == "angle" else dtype)) for o in outputs}
    args = []
    for o in ("gx", "gy", "magnitude", "angle"):
        v = views.get(o)
        args += [v.ptr, v.step] if v else [None, 1]
    layout = "C1R" if src.layout == "C1" else "C3C1R"
    name, function = find("keliGradientVector{f}_{t}_{l}", f=name_of, t=pair, l=layout)
    size_ = _types.KeliSize(shape[1], shape[0])
    (bytes_,) = _query("keliGradientVectorGetBufferSize", size_, k, DATA_TYPES[token], src.channels)
    if layout == "C1R":
        extra = constant(value, token, "value") if code == CONSTANT else 0
    else:
        extra = constants(value if code == CONSTANT else 0, token, 3, "value")
    scratch = _buffer(bytes_)  # held until the call returns
    run(name, function, src.ptr, src.step, *args, size_, k, n, code, extra, scratch.ctypes.data)
    return {o: views[o].array for o in outputs}


@documented("filter/gradient")
def sobel_magnitude(a, size=3, *, norm="l2", border="replicate", value=0, out=None):
    """The magnitude of the Sobel gradient of a single-channel image: uint8 to int16 (L1 added
    in 16 bits, L2 the nearest integer to the exact root), uint16, int16, float32 to float32."""
    code, k, n = _border(border), _mask(size), _choice(NORMS, norm, "norm")
    token, (pair, dtype) = _types_of(GRADIENT_TYPES, a, "sobel_magnitude")
    src, dst = _prepare(a, size, size, code, False, out, np.dtype(dtype), False)
    if src.layout != "C1":
        raise TypeError("keli: sobel_magnitude takes single-channel images")
    name, function = find("keliFilterSobel_{t}_C1R", t=pair)
    (bytes_,) = _query("keliFilterSobelGetBufferSize", dst.size, k, n, DATA_TYPES[token],
                       DATA_TYPES["16s" if dtype == np.int16 else "32f"], 1)
    extra = constant(value, token, "value") if code == CONSTANT else 0
    scratch = _buffer(bytes_)  # held until the call returns
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, k, n, code, extra, scratch.ctypes.data)
    return dst.array
