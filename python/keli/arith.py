"""Saturating arithmetic: add, subtract, multiply, divide, absolute value.

Integer images (uint8, uint16, int16) compute exactly, then scale by 2**-scale with ties to
even (divide: to nearest) and saturate; float32 images take no scale. The second operand is
an image of the same dtype and shape, or a constant: a scalar, or one value per colour
channel. keep_alpha=True treats 4 channels as colour plus alpha (alpha left untouched).
"""
from ._image import constant, constants, find, output, run, same_image, source, value_count
from .errors import raise_or_warn


def add(a, b, *, scale=0, out=None, keep_alpha=False):
    """a + b (saturated; integers scaled by 2**-scale)."""
    return _apply("Add", a, b, scale, out, keep_alpha, commutes=True)


def subtract(a, b, *, scale=0, out=None, keep_alpha=False):
    """a - b (saturated; integers scaled by 2**-scale)."""
    return _apply("Sub", a, b, scale, out, keep_alpha, commutes=False)


def multiply(a, b, *, scale=0, out=None, keep_alpha=False):
    """a * b (saturated; integers scaled by 2**-scale)."""
    return _apply("Mul", a, b, scale, out, keep_alpha, commutes=True)


def divide(a, b, *, scale=0, out=None, keep_alpha=False):
    """a / b rounded to nearest. A zero element of an image b warns (DivByZeroWarn) and gives
    the library's defined result; a zero constant raises DivByZero."""
    return _apply("Div", a, b, scale, out, keep_alpha, commutes=False)


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


def _apply(family, a, b, scale, out, keep_alpha, commutes):
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
    if status:  # the two-image forms are the small calls whose overhead counts: run() inlined
        raise_or_warn(status, name)
    return dst.array


def _scaled(token, scale):
    """Name suffix and trailing argument of the scale factor: float members have neither."""
    if token == "32f":
        if scale:
            raise ValueError("keli: float32 arithmetic takes no scale")
        return "", ()
    return "Sfs", (int(scale),)
