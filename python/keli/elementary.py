"""Element-wise functions and logic: square, sqrt, log, exp, bitwise and/or/xor/not, shifts,
complement (two's complement to sign and magnitude), element-wise maximum and minimum.

Integer square, sqrt, log and exp scale by 2**-scale and saturate (float32 takes no scale).
The second operand of the bitwise calls is an image of the same dtype and shape or a constant
(a scalar, or one value per colour channel); shifts take an unsigned count per channel.
keep_alpha=True treats 4 channels as colour plus alpha (alpha left as it stood).
"""
import numpy as np

from ._image import (Missing, as_single_channel, constant, constants, find, output, run, same_image,
                     source, value_count)
from .arith import _scaled
from ._doc import documented


def _unary(family, a, out, keep_alpha, scale=None):
    """One-image call: in place when out is a; C3 and C4 images a family lacks run as C1 rows."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    sfs, tail = ("", ()) if scale is None else _scaled(src.token, scale)
    in_place = dst.same_memory(src)
    result = dst.array
    pattern = "keli{f}_{t}_{l}" + ("IR" if in_place else "R") + "{s}"
    try:
        name, fn = find(pattern, f=family, t=src.token, l=src.layout, s=sfs)
    except Missing:
        if src.layout not in ("C3", "C4"):
            raise
        src, dst = as_single_channel(src), as_single_channel(dst)
        name, fn = find(pattern, f=family, t=src.token, l=src.layout, s=sfs)
    if in_place:
        run(name, fn, dst.ptr, dst.step, dst.size, *tail)
    else:
        run(name, fn, src.ptr, src.step, dst.ptr, dst.step, dst.size, *tail)
    return result


@documented("arith/elementary-logic")
def square(a, *, scale=0, out=None, keep_alpha=False):
    """a * a (integers scaled by 2**-scale with ties to even, saturated)."""
    return _unary("Sqr", a, out, keep_alpha, scale)


@documented("arith/elementary-logic")
def sqrt(a, *, scale=0, out=None, keep_alpha=False):
    """Square root (integers: round(sqrt(a) * 2**-scale), ties to even). A negative element
    warns (keli.SqrtNegArg) and gives 0 (int16) or nan (float32)."""
    return _unary("Sqrt", a, out, keep_alpha, scale)


@documented("arith/elementary-logic")
def log(a, *, scale=0, out=None, keep_alpha=False):
    """Natural logarithm (integers: ln(a) * 2**-scale rounded half up, saturated). Zero and
    negative elements warn (keli.LnZeroArg, keli.LnNegArg)."""
    return _unary("Ln", a, out, keep_alpha, scale)


@documented("arith/elementary-logic")
def exp(a, *, scale=0, out=None, keep_alpha=False):
    """e**a (integers: exp(a) * 2**-scale rounded half up, saturated)."""
    return _unary("Exp", a, out, keep_alpha, scale)


@documented("arith/elementary-logic")
def complement(a, *, out=None, keep_alpha=False):
    """Two's complement to sign and magnitude: (x & sign bit) | abs(x), for int8, int16, int32."""
    return _unary("Complement", a, out, keep_alpha)


def _is_image(b):
    return hasattr(b, "shape") and len(b.shape) >= 2


def _binary_images(family, a, b, out, keep_alpha):
    """dst = a op b for a commuting op whose in-place form writes its second image."""
    first, second = source(a, keep_alpha), source(b, keep_alpha)
    same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype, like=first)
    fields = dict(f=family, t=first.token, l=first.layout)
    if dst.same_memory(first) or dst.same_memory(second):
        other, target = (second, first) if dst.same_memory(first) else (first, second)
        name, fn = find("keli{f}_{t}_{l}IR", **fields)
        run(name, fn, other.ptr, other.step, target.ptr, target.step, dst.size)
    else:
        name, fn = find("keli{f}_{t}_{l}R", **fields)
        run(name, fn, first.ptr, first.step, second.ptr, second.step, dst.ptr, dst.step, dst.size)
    return dst.array


def _with_constant(family, a, value, out, keep_alpha, value_token=None):
    """dst = a op value: C1 takes the constant by value, the other layouts one per channel."""
    src = source(a, keep_alpha)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    token = value_token or src.token
    count = value_count(src.layout)
    value = constant(value, token) if count == 1 else constants(value, token, count)
    if dst.same_memory(src):
        name, fn = find("keli{f}_{t}_{l}IR", f=family, t=src.token, l=src.layout)
        run(name, fn, value, dst.ptr, dst.step, dst.size)
    else:
        name, fn = find("keli{f}_{t}_{l}R", f=family, t=src.token, l=src.layout)
        run(name, fn, src.ptr, src.step, value, dst.ptr, dst.step, dst.size)
    return dst.array


def _bitwise(family, a, b, out, keep_alpha):
    if _is_image(b):
        return _binary_images(family, a, b, out, keep_alpha)
    return _with_constant(family + "C", a, b, out, keep_alpha)


@documented("arith/elementary-logic")
def bitwise_and(a, b, *, out=None, keep_alpha=False):
    """a & b, b an image or a constant (uint8, uint16, int32)."""
    return _bitwise("And", a, b, out, keep_alpha)


@documented("arith/elementary-logic")
def bitwise_or(a, b, *, out=None, keep_alpha=False):
    """a | b, b an image or a constant (uint8, uint16, int32)."""
    return _bitwise("Or", a, b, out, keep_alpha)


@documented("arith/elementary-logic")
def bitwise_xor(a, b, *, out=None, keep_alpha=False):
    """a ^ b, b an image or a constant (uint8, uint16, int32)."""
    return _bitwise("Xor", a, b, out, keep_alpha)


_ALL_BITS = {"16u": 0xFFFF, "32s": -1}


@documented("arith/elementary-logic")
def bitwise_not(a, *, out=None, keep_alpha=False):
    """~a: uint8 by its own member, uint16 and int32 as a ^ (all bits set)."""
    src = source(a, keep_alpha)
    if src.token in _ALL_BITS:
        return _with_constant("XorC", src.array, _ALL_BITS[src.token], out, keep_alpha)
    return _unary("Not", src.array, out, keep_alpha)


@documented("arith/elementary-logic")
def left_shift(a, count, *, out=None, keep_alpha=False):
    """a << count (bits fall off; a count at or past the element width gives 0); count is
    unsigned, a scalar or one per colour channel."""
    return _with_constant("LShiftC", a, count, out, keep_alpha, value_token="32u")


@documented("arith/elementary-logic")
def right_shift(a, count, *, out=None, keep_alpha=False):
    """a >> count, arithmetic for signed dtypes; count as for left_shift."""
    return _with_constant("RShiftC", a, count, out, keep_alpha, value_token="32u")


def _extremum(family, a, b, out, keep_alpha):
    """Element-wise max/min. The two-image member exists for C1 only and the in-place one
    writes its second image, so other forms copy a into the output and work there. A float
    nan against a number gives a's element (b's when out is b)."""
    first, second = source(a, keep_alpha), source(b, keep_alpha)
    same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype, like=first)
    fields = dict(f=family, t=first.token, l=first.layout)
    if dst.same_memory(first) or dst.same_memory(second):
        other, target = (second, first) if dst.same_memory(first) else (first, second)
        name, fn = find("keli{f}_{t}_{l}IR", **fields)
        run(name, fn, other.ptr, other.step, target.ptr, target.step, dst.size)
        return dst.array
    wide = (first.layout in ("C3", "C4")) and first.token != "16s"
    one, two, target = (as_single_channel(first), as_single_channel(second), as_single_channel(dst)) \
        if wide else (first, second, dst)
    if one.layout == "C1" and first.token != "16s":
        name, fn = find("keli{f}_{t}_C1R", f=family, t=first.token)
        run(name, fn, two.ptr, two.step, one.ptr, one.step, target.ptr, target.step, target.size)
        return dst.array
    name, fn = find("keli{f}_{t}_{l}IR", **fields)
    if np.shares_memory(dst.array, second.array):
        second = source(second.array.copy(), keep_alpha)
    if keep_alpha:
        dst.array[..., :3] = first.array[..., :3]
    else:
        dst.array[...] = first.array
    run(name, fn, second.ptr, second.step, dst.ptr, dst.step, dst.size)
    return dst.array


@documented("arith/elementary-logic")
def maximum(a, b, *, out=None, keep_alpha=False):
    """Element-wise max(a, b) of two images (uint8, uint16, int16, float32)."""
    return _extremum("MaxEvery", a, b, out, keep_alpha)


@documented("arith/elementary-logic")
def minimum(a, b, *, out=None, keep_alpha=False):
    """Element-wise min(a, b) of two images (uint8, uint16, int16, float32)."""
    return _extremum("MinEvery", a, b, out, keep_alpha)
