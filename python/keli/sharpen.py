"""Fixed-mask edge filters: laplace, highpass (3x3 or 5x5) and sharpen (3x3).

- `size` is 3 or 5 (sharpen: 3). The masks are centred on the pixel.
- `border` is "replicate" (or "edge"), "constant" (with `value`, a scalar or one value per
  colour channel) or None (or "memory"): no border handling, the output is the valid part of
  shape (h - size + 1, w - size + 1). There is no mirrored border for these filters.
- uint8 and int16 results are the exact sums saturated to the dtype; sharpen divides its sum
  by 8 rounding half to even. float32 results are not clamped.
- `out` may be `a` itself: the image is filtered in place. keep_alpha=True on a four-channel
  image leaves the output's alpha channel as it was (a new output starts with a's alpha).
"""
from . import _types
from ._doc import documented
from ._image import find, run
from .filters import DATA_TYPES, IN_MEMORY, MIRROR, _border, _border_value, _buffer, _prepare, _query

_MASKS = {3: int(_types.KeliMaskSize.kelMaskSize3x3), 5: int(_types.KeliMaskSize.kelMaskSize5x5)}


def _fixed(family, a, size, border, value, out, keep_alpha):
    if size not in _MASKS or (family == "Sharpen" and size != 3):
        sizes = "3" if family == "Sharpen" else "3 or 5"
        raise ValueError(f"keli: the {family.lower()} mask is {sizes}, not {size!r}")
    code = _border(border)
    if code == MIRROR:
        raise ValueError(f"keli: {family.lower()} has no mirrored border; use 'replicate', 'constant' or None")
    src, dst = _prepare(a, size, size, code, keep_alpha, out, None, in_place=True)
    name, function = find("keliFilter{f}Border_{t}_{l}R", f=family, t=src.token, l=src.layout)
    dtype = DATA_TYPES[src.token]
    (bytes_,) = _query(f"keliFilter{family}BorderGetBufferSize", dst.size, _MASKS[size], dtype, dtype,
                       src.channels)
    scratch = _buffer(bytes_)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, _MASKS[size], code,
        _border_value(value, src, code, by_value=True), scratch.ctypes.data)
    return dst.array


@documented("filter/laplace-sharpen")
def laplace(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The Laplace mask (3: 8 in the centre, -1 around it; 5: the 5x5 table) of each pixel
    (uint8, int16, float32; C1, C3, C4, AC4 with keep_alpha)."""
    return _fixed("Laplace", a, size, border, value, out, keep_alpha)


@documented("filter/laplace-sharpen")
def highpass(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """The high-pass mask (-1 around the centre, which weighs 8 for size 3 and 24 for size 5;
    size 3 is the Laplace mask) of each pixel (uint8, int16, float32; C1, C3, C4, AC4)."""
    return _fixed("Hipass", a, size, border, value, out, keep_alpha)


@documented("filter/laplace-sharpen")
def sharpen(a, size=3, *, border="replicate", value=0, out=None, keep_alpha=False):
    """(16 * centre - the 8 neighbours) / 8 at each pixel, rounded half to even and saturated
    for integers (uint8, int16, float32; C1, C3, C4, AC4 with keep_alpha)."""
    return _fixed("Sharpen", a, size, border, value, out, keep_alpha)
