"""Alpha composition, premultiplication and colour keys.

alpha_composite(a, b, op) composes a over (in, out, atop, xor, plus) b. Without constants the
alphas come from the images: four channels are colour plus alpha (the result alpha is written
by the operation's rule), a two-dimensional image holds alpha alone. With alpha1= and alpha2=
every element is colour (keep_alpha=True: four channels with the alpha left untouched) and the
alphas are those constants, in the image's type (1.0 is the type's largest value).
"""
from ._image import constant, constants, find, output, run, same_image, source

from ._doc import documented

OPERATIONS = {"over": 0, "in": 1, "out": 2, "atop": 3, "xor": 4, "plus": 5}


def _alpha_type(op, premultiplied):
    try:
        code = OPERATIONS[op]
    except (KeyError, TypeError):
        raise ValueError(f"keli: op is one of {', '.join(OPERATIONS)}, not {op!r}") from None
    return code + (6 if premultiplied else 0)


@documented("arith/alpha")
def alpha_composite(a, b, op="over", *, premultiplied=False, alpha1=None, alpha2=None, out=None,
                    keep_alpha=False):
    """a composed with b by `op`; premultiplied=True takes colours already times their alpha.
    out=b composes in place."""
    code = _alpha_type(op, premultiplied)
    if (alpha1 is None) != (alpha2 is None):
        raise ValueError("keli: give both alpha1 and alpha2, or neither")
    constant_alphas = alpha1 is not None
    if constant_alphas:
        first, second = source(a, keep_alpha), source(b, keep_alpha)
    else:
        if keep_alpha:
            raise ValueError("keli: keep_alpha applies to constant alphas only")
        first, second = source(a, True), source(b, True)
        if first.layout not in ("C1", "AC4"):
            raise ValueError("keli: images that carry alpha are (h, w, 4) or alpha alone (h, w)")
    same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype, like=first)
    layout = first.layout if constant_alphas or first.layout == "AC4" else "AC1"
    in_place = dst.same_memory(second)
    family = "AlphaCompC" if constant_alphas else "AlphaComp"
    name, fn = find("keli{f}_{t}_{l}" + ("IR" if in_place else "R"), f=family, t=first.token, l=layout)
    if constant_alphas:
        one, two = constant(alpha1, first.token, "alpha1"), constant(alpha2, first.token, "alpha2")
        if in_place:
            run(name, fn, first.ptr, first.step, one, dst.ptr, dst.step, two, dst.size, code)
        else:
            run(name, fn, first.ptr, first.step, one, second.ptr, second.step, two, dst.ptr, dst.step,
                dst.size, code)
    elif in_place:
        run(name, fn, first.ptr, first.step, dst.ptr, dst.step, dst.size, code)
    else:
        run(name, fn, first.ptr, first.step, second.ptr, second.step, dst.ptr, dst.step, dst.size, code)
    return dst.array


@documented("arith/alpha")
def premultiply(a, alpha=None, *, out=None, keep_alpha=False):
    """Colour times alpha / largest value (uint8, uint16). Without `alpha` the image is
    (h, w, 4) and each pixel's own alpha is used and kept; with a constant `alpha` every element
    is scaled (keep_alpha=True leaves a fourth channel as it stood)."""
    if alpha is None:
        src = source(a, True)
        if src.layout != "AC4":
            raise ValueError("keli: premultiply without alpha takes an (h, w, 4) image")
        family = "AlphaPremul"
    else:
        src = source(a, keep_alpha)
        family = "AlphaPremulC"
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    in_place = dst.same_memory(src)
    name, fn = find("keli{f}_{t}_{l}" + ("IR" if in_place else "R"), f=family, t=src.token, l=src.layout)
    head = () if alpha is None else (constant(alpha, src.token, "alpha"),)
    if in_place:
        run(name, fn, *head, dst.ptr, dst.step, dst.size)
    else:
        run(name, fn, src.ptr, src.step, *head, dst.ptr, dst.step, dst.size)
    return dst.array


@documented("arith/alpha")
def color_key(a, b, key, *, out=None):
    """b's pixel where a's pixel equals `key` in every channel, else a's pixel (uint8,
    uint16, int16; (h, w), (h, w, 3) or (h, w, 4))."""
    first, second = source(a), source(b)
    same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype)
    name, fn = find("keliCompColorKey_{t}_{l}R", t=first.token, l=first.layout)
    value = (constant(key, first.token, "key") if first.channels == 1
             else constants(key, first.token, first.channels, "key"))
    run(name, fn, first.ptr, first.step, second.ptr, second.step, dst.ptr, dst.step, dst.size, value)
    return dst.array


@documented("arith/alpha")
def alpha_composite_color_key(a, b, key, alpha1, alpha2, op="over", *, out=None):
    """uint8 (h, w, 4): pixels of a equal to `key` (four elements) take b's colour, the others
    a composed with b by `op` with the constant alphas; out's alpha is never written (a new
    output starts with a's)."""
    code = _alpha_type(op, False)
    first, second = source(a, True), source(b, True)
    same_image(first.array, second.array)
    dst = output(out, first.array.shape, first.array.dtype, like=first)
    name, fn = find("keliAlphaCompColorKey_{t}_{l}R", t=first.token, l=first.layout)
    run(name, fn, first.ptr, first.step, constant(alpha1, first.token, "alpha1"), second.ptr, second.step,
        constant(alpha2, first.token, "alpha2"), dst.ptr, dst.step, dst.size,
        constants(key, first.token, 4, "key"), code)
    return dst.array
