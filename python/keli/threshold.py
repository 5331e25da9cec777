"""Thresholds: clamp or replace the pixels beyond a level, and Otsu's level of an image."""
import ctypes

from ._image import constant, constants, find, output, run, source, value_count
from ._doc import documented

SIDES = {"lt": "LT", "<": "LT", "gt": "GT", ">": "GT"}


def _side(op):
    try:
        return SIDES[op]
    except KeyError:
        raise ValueError(f"keli: op is 'lt' or 'gt', not {op!r}") from None


def _values(value, src, what):
    """The per-channel constants of a threshold call: by value in C1, an array otherwise."""
    count = value_count(src.layout)
    if count == 1:
        return constant(value, src.token, what)
    return constants(value, src.token, count, what)


def _call(kind, src, dst, extra):
    """keliThreshold_<kind>, in place when dst is src."""
    pattern = "keliThreshold_{f}_{t}_{l}{i}R"
    if dst.same_memory(src):
        name, function = find(pattern, f=kind, t=src.token, l=src.layout, i="I")
        run(name, function, dst.ptr, dst.step, dst.size, *extra)
    else:
        name, function = find(pattern, f=kind, t=src.token, l=src.layout, i="")
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, dst.size, *extra)
    return dst.array


@documented("threshold/threshold-otsu")
def threshold(a, level, *, op="lt", value=None, out=None, keep_alpha=False):
    """Pixels below (op="lt") or above (op="gt") `level` become `value`, or `level` itself
    when no value is given (a clamp). `level` and `value`: a scalar, or one per colour channel."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    side = _side(op)
    extra = (_values(level, src, "level"),)
    kind = side
    if value is not None:
        kind += "Val"
        extra += (_values(value, src, "value"),)
    return _call(kind, src, dst, extra)


@documented("threshold/threshold-otsu")
def threshold_range(a, lower, value_lower, upper, value_upper, *, out=None, keep_alpha=False):
    """Pixels below `lower` become `value_lower`, pixels above `upper` become `value_upper`;
    the others stay. lower > upper raises ThresholdOrder."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    extra = tuple(_values(v, src, w) for v, w in ((lower, "lower"), (value_lower, "value_lower"),
                                                  (upper, "upper"), (value_upper, "value_upper")))
    return _call("LTValGTVal", src, dst, extra)


@documented("threshold/threshold-otsu")
def otsu_threshold(a):
    """Otsu's global threshold of a single-channel uint8 image."""
    src = source(a)
    level = ctypes.c_uint8()
    name, function = find("keliComputeThreshold_Otsu_{t}_{l}R", t=src.token, l=src.layout)
    run(name, function, src.ptr, src.step, src.size, ctypes.byref(level))
    return level.value


ADAPTIVE = {"mean": "Box", "box": "Box", "gaussian": "Gauss", "gauss": "Gauss"}


@documented("threshold/adaptive")
def adaptive_threshold(a, size, delta=0.0, *, method="mean", sigma=0.0, value_gt=255, value_le=0,
                       border="replicate", value=0, out=None):
    """Each pixel of a single-channel uint8 image against the mean of the size x size
    neighbourhood around it (size odd) minus `delta`: `value_gt` where it lies above, `value_le`
    elsewhere. method="mean" weighs the window evenly (decided exactly in integers),
    "gaussian" by a Gaussian of `sigma` (0: from the size). border: "replicate", "constant"
    (`value`), or None for the valid part only. out may be `a` itself (in place)."""
    from .filters import CONSTANT, DATA_TYPES, MIRROR, _border, _buffer, _prepare, _query
    from . import _types
    try:
        kind = ADAPTIVE[method]
    except KeyError:
        raise ValueError(f"keli: method is 'mean' or 'gaussian', not {method!r}") from None
    code = _border(border)
    if code == MIRROR:
        raise ValueError("keli: an adaptive threshold takes border 'replicate', 'constant' or None")
    src, dst = _prepare(a, size, size, code, False, out, None, True)
    mask = _types.KeliSize(size, size)
    token = DATA_TYPES[src.token]
    extra = (ctypes.c_float(delta), constant(value_gt, src.token, "value_gt"),
             constant(value_le, src.token, "value_le"), code,
             constant(value if code == CONSTANT else 0, src.token, "value"))
    in_place = dst.same_memory(src)
    head = (dst.ptr, dst.step, dst.size) if in_place else (src.ptr, src.step, dst.ptr, dst.step, dst.size)
    name, function = find("keliThresholdAdaptive{k}_{t}_{l}{i}R", k=kind, t=src.token, l=src.layout,
                          i="I" if in_place else "")
    if kind == "Box":
        (bytes_,) = _query("keliThresholdAdaptiveBoxGetBufferSize", dst.size, mask, token, src.channels)
        scratch = _buffer(bytes_)  # held until the call returns
        run(name, function, *head, mask, *extra, scratch.ctypes.data)
    else:
        spec_bytes, bytes_ = _query("keliThresholdAdaptiveGaussGetBufferSize", dst.size, mask, token,
                                    src.channels, results=2)
        spec = _buffer(spec_bytes)
        init = find("keliThresholdAdaptiveGaussInit")[1]
        run("keliThresholdAdaptiveGaussInit", init, dst.size, mask, token, src.channels,
            ctypes.c_float(sigma), spec.ctypes.data)
        scratch = _buffer(bytes_)
        run(name, function, *head, *extra, spec.ctypes.data, scratch.ctypes.data)
    return dst.array
