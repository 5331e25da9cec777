"""Saturating arithmetic: add, subtract, multiply, divide, absolute value.

Integer images (uint8, uint16, int16) compute exactly, then scale by 2**-scale with ties to
even (divide: to nearest) and saturate; float32 images take no scale. The second operand is
an image of the same dtype and shape, or a constant: a scalar, or one value per colour
channel. keep_alpha=True treats 4 channels as colour plus alpha (alpha left untouched).
"""
import numpy as np

from ._image import constant, constants, data_address, find, output, run, same_image, source, value_count
from .errors import raise_or_warn
from ._doc import documented


@documented("arith/add-sub")
def add(a, b, *, scale=0, out=None, keep_alpha=False):
    """a + b (saturated; integers scaled by 2**-scale)."""
    return _apply("Add", a, b, scale, out, keep_alpha, commutes=True)


@documented("arith/add-sub")
def subtract(a, b, *, scale=0, out=None, keep_alpha=False):
    """a - b (saturated; integers scaled by 2**-scale)."""
    return _apply("Sub", a, b, scale, out, keep_alpha, commutes=False)


@documented("arith/mul-div")
def multiply(a, b, *, scale=0, out=None, keep_alpha=False):
    """a * b (saturated; integers scaled by 2**-scale)."""
    return _apply("Mul", a, b, scale, out, keep_alpha, commutes=True)


@documented("arith/mul-div")
def divide(a, b, *, scale=0, out=None, keep_alpha=False):
    """a / b rounded to nearest. A zero element of an image b warns (DivByZeroWarn) and gives
    the library's defined result; a zero constant raises DivByZero."""
    return _apply("Div", a, b, scale, out, keep_alpha, commutes=False)


@documented("frame/abs")
def absolute(a, *, out=None, keep_alpha=False):
    """|a| for int16 (saturated: -32768 gives 32767) and float32."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    if dst.same_memory(src):
        name, fn = find("keliAbs_{t}_{l}IR", t=src.token, l=src.layout)
        run(name, fn, dst.ptr, dst.step, dst.size)
    else:
        name, fn = find("keliAbs_{t}_{l}R", t=src.token, l=src.layout)
        run(name, fn, src.ptr, src.step, dst.ptr, dst.step, dst.size)
    return dst.array


# Two-image calls by the geometry of their arrays (shapes, strides, dtypes, scale): on small
# images the wrapper's work of finding the member, checking the arrays and choosing the
# in-place form costs more than keli's own, so a repeated call keeps only the addresses to read.
_PLANS = {}


def _plan_key(family, a, b, out, scale, keep_alpha):
    if keep_alpha or type(a) is not np.ndarray or type(b) is not np.ndarray:
        return None
    if out is None:
        return (family, scale, a.shape, a.strides, a.dtype, b.shape, b.strides, b.dtype)
    if type(out) is not np.ndarray or not out.flags.writeable:
        return None
    return (family, scale, a.shape, a.strides, a.dtype, b.shape, b.strides, b.dtype,
            out.shape, out.strides, out.dtype)


def _make_plan(family, fields, first, second, dst, fresh, tail, commutes):
    """The call for arrays of this geometry, packed in place (no copies were needed)."""
    name_r, fn_r = find("keli{f}_{t}_{l}R{s}", **fields)
    name_i, fn_i = find("keli{f}_{t}_{l}IR{s}", **fields)
    size, shape, dtype = dst.size, first.array.shape, first.array.dtype
    step_a, step_b, step_out = first.step, second.step, dst.step
    in_place_a = not fresh and step_out == step_a  # a pointer match then means out is a
    in_place_b = not fresh and commutes and step_out == step_b

    def call(a, b, out):
        if out is None:
            out = np.empty(shape, dtype)
        pa, pb, po = data_address(a), data_address(b), data_address(out)
        if in_place_a and po == pa:
            name, status = name_i, fn_i(pb, step_b, pa, step_a, size, *tail)
        elif in_place_b and po == pb:
            name, status = name_i, fn_i(pa, step_a, pb, step_b, size, *tail)
        else:
            name, status = name_r, fn_r(pb, step_b, pa, step_a, po, step_out, size, *tail)
        if status:
            raise_or_warn(status, name)
        return out

    return call


def _apply(family, a, b, scale, out, keep_alpha, commutes):
    key = _plan_key(family, a, b, out, scale, keep_alpha)
    plan = _PLANS.get(key) if key is not None else None
    if plan is not None:
        return plan(a, b, out)
    # keli's two-image forms compute src2 <op> src1 (so that the in-place form, which writes
    # its second image, reads "image -= other"): a is src2, b is src1.
    first = source(a, keep_alpha)
    constant_operand = not hasattr(b, "shape") or len(b.shape) < 2
    second = None if constant_operand else source(b, keep_alpha)
    if second is not None:
        same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype, like=first)
    sfs, tail = _scaled(first.token, scale)
    fields = dict(f=family, t=first.token, l=first.layout, s=sfs)
    if second is None:
        count = value_count(first.layout)
        value = constant(b, first.token) if count == 1 else constants(b, first.token, count)
        if dst.same_memory(first):
            name, fn = find("keli{f}C_{t}_{l}IR{s}", **fields)
            run(name, fn, value, dst.ptr, dst.step, dst.size, *tail)
        else:
            name, fn = find("keli{f}C_{t}_{l}R{s}", **fields)
            run(name, fn, first.ptr, first.step, value, dst.ptr, dst.step, dst.size, *tail)
        return dst.array
    if dst.same_memory(first) or (commutes and dst.same_memory(second)):
        other, target = (second, first) if dst.same_memory(first) else (first, second)
        name, fn = find("keli{f}_{t}_{l}IR{s}", **fields)
        status = fn(other.ptr, other.step, target.ptr, target.step, dst.size, *tail)
    else:
        name, fn = find("keli{f}_{t}_{l}R{s}", **fields)
        status = fn(second.ptr, second.step, first.ptr, first.step, dst.ptr, dst.step, dst.size, *tail)
    if status:
        raise_or_warn(status, name)
    if key is not None and first.array is a and second.array is b:
        if len(_PLANS) > 1024:
            _PLANS.clear()
        _PLANS[key] = _make_plan(family, fields, first, second, dst, out is None, tail, commutes)
    return dst.array


def _scaled(token, scale):
    """Name suffix and trailing argument of the scale factor: float members have neither."""
    if token == "32f":
        if scale:
            raise ValueError("keli: float32 arithmetic takes no scale")
        return "", ()
    if not -0x80000000 <= int(scale) <= 0x7FFFFFFF:
        raise ValueError(f"keli: scale {scale} is not a 32-bit int")
    return "Sfs", (int(scale),)
