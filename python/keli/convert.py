"""Element type conversion: convert (saturating, with a rounding mode and a scale factor),
rescale (one type's whole range onto another's) and scale_linear (x * mul + add)."""
import numpy as np

from ._image import TOKENS, Missing, as_single_channel, find, output, run, source
from ._types import KelHintAlgorithm, KelRoundMode
from ._exports import EXPORTS
from ._doc import documented

ROUNDING = {
    "zero": KelRoundMode.kelRndZero,
    "near": KelRoundMode.kelRndNear,
    "nearest": KelRoundMode.kelRndNear,
    "financial": KelRoundMode.kelRndFinancial,
}


def rounding_mode(rounding):
    """KelRoundMode of "zero" (toward zero), "near" (ties to even) or "financial" (ties away)."""
    if isinstance(rounding, str):
        try:
            return ROUNDING[rounding]
        except KeyError:
            raise ValueError(f"keli: rounding is one of {sorted(ROUNDING)}, not {rounding!r}") from None
    return KelRoundMode(rounding)


def hint(accurate):
    return KelHintAlgorithm.kelAlgHintAccurate if accurate else KelHintAlgorithm.kelAlgHintNone


@documented("move/convert-scale")
def convert(a, dtype, *, rounding="near", scale=0, out=None, keep_alpha=False):
    """a as `dtype`: integers keep their value or saturate; floats round by `rounding`.

    scale=n divides by 2**n before rounding. Widening integer
    conversions have no rounding to do and ignore it. A conversion keli lacks raises TypeError
    naming the pairs it has."""
    src = source(a, keep_alpha)
    dst_dtype = np.dtype(dtype)
    if dst_dtype not in TOKENS:
        raise TypeError(f"keli: no element type for dtype {dst_dtype}")
    pair = src.token + TOKENS[dst_dtype]
    dst = output(out, src.array.shape, dst_dtype, like=src)
    mode = rounding_mode(rounding)
    result = dst.array
    if f"keliConvert_{pair}_{src.layout}R" not in EXPORTS:
        # Conversion is element-wise: colour pixels convert as one long row of elements.
        src, dst = as_single_channel(src), as_single_channel(dst)
    for form in (f"{src.layout}R", "C1Rs", "C1RSfs") if not scale else ("C1RSfs",):
        if form.startswith("C1") and src.layout != "C1":
            continue
        name = f"keliConvert_{pair}_{form}"
        if name not in EXPORTS:
            continue
        function = find(name)[1]
        extra = ()
        if "roundMode" in EXPORTS[name][2]:
            extra = (mode, int(scale)) if form == "C1RSfs" else (mode,)
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, *extra)
        return result
    raise Missing(
        f"keli: no conversion {src.array.dtype} -> {dst_dtype} for layout {src.layout}"
        + (f" with scale={scale}" if scale else "")
        + "; pairs: " + ", ".join(_pairs(src.layout))
    )


def _pairs(layout):
    prefix, seen = "keliConvert_", []
    for name in EXPORTS:
        if name.startswith(prefix) and name.split("_")[2].startswith(layout):
            seen.append(name.split("_")[1])
    return sorted(set(seen))


@documented("move/convert-scale")
def rescale(a, dtype, *, value_range=None, accurate=False, out=None, keep_alpha=False):
    """The whole range of a's type stretched over dtype's (uint8 -> uint16 is x * 257).

    With float32 on either side, `value_range` = (vmin, vmax) is the float range that maps onto
    the integer type's. `accurate` selects the rounded path of the narrowing members."""
    src = source(a, keep_alpha)
    dst_dtype = np.dtype(dtype)
    dst = output(out, src.array.shape, dst_dtype, like=src)
    name, function = find("keliScale_{p}_{l}R", p=src.token + TOKENS.get(dst_dtype, "?"), l=src.layout)
    names = EXPORTS[name][2].split()
    extra = ()
    if "vMin" in names:
        if value_range is None:
            raise ValueError("keli: rescale to or from float32 needs value_range=(vmin, vmax)")
        extra = tuple(float(v) for v in value_range)
    elif "hint" in names:
        extra = (hint(accurate),)
    run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, *extra)
    return dst.array


@documented("move/convert-scale")
def scale_linear(a, mul, add=0.0, *, dtype=None, accurate=False, out=None):
    """saturate(round(a * mul + add)) as dtype (default a's), for 1, 3 or 4 channels.

    accurate=True computes in float64, otherwise in float32."""
    src = source(a)
    dst_dtype = np.dtype(dtype) if dtype is not None else src.array.dtype
    dst = output(out, src.array.shape, dst_dtype)
    result = dst.array
    # Element-wise: colour pixels scale as one long row of elements.
    src, dst = as_single_channel(src), as_single_channel(dst)
    same = dst_dtype == src.array.dtype
    pair = src.token if same else src.token + TOKENS.get(dst_dtype, "?")
    if dst.same_memory(src):
        name, function = find("keliScaleC_{p}_{l}IR", p=pair, l=src.layout)
        run(name, function, dst.ptr, dst.step, float(mul), float(add), dst.size, hint(accurate))
    else:
        name, function = find("keliScaleC_{p}_{l}R", p=pair, l=src.layout)
        run(name, function, src.ptr, src.step, float(mul), float(add), dst.ptr, dst.step, dst.size,
            hint(accurate))
    return result
