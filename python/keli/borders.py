"""Border extension: pad an image with a constant, its edge, its reflection or its tiling."""
from ._image import constant, constants, find, output, run, source, value_count
from ._doc import documented

# numpy.pad's mode names, and keli's own, to the family of the export.
MODES = {
    "constant": "Const",
    "edge": "Replicate",
    "replicate": "Replicate",
    "reflect": "Mirror",
    "mirror": "Mirror",
    "wrap": "Wrap",
}


def pad_widths(pad_width):
    """((top, bottom), (left, right)) from numpy.pad's forms: n, (before, after), per axis."""
    import numpy as np

    widths = np.asarray(pad_width, dtype=np.int64)
    if widths.ndim == 0:
        widths = np.full((2, 2), int(widths))
    elif widths.shape == (2,):
        widths = np.tile(widths, (2, 1))
    elif widths.ndim == 2 and widths.shape[1] == 2 and widths.shape[0] in (2, 3):
        if widths.shape[0] == 3 and widths[2].any():
            raise ValueError("keli: pad adds rows and columns, not channels")
        widths = widths[:2]
    else:
        raise ValueError(f"keli: pad_width {pad_width!r} is not n, (before, after) or per axis")
    if (widths < 0).any():
        raise ValueError("keli: pad widths cannot be negative")
    return [tuple(int(v) for v in row) for row in widths]


@documented("move/borders")
def pad(a, pad_width, mode="constant", *, constant_values=0, out=None, keep_alpha=False):
    """a inside a frame, like numpy.pad: modes "constant", "edge", "reflect" (the edge pixel
    not repeated) and "wrap"; keli's names "replicate" and "mirror" are accepted too.

    With `out` given and `a` a view of out's interior at the pad offsets (a = out[t:-b, l:-r]),
    the frame is filled around the image where it lies: only the frame is written."""
    try:
        family = MODES[mode]
    except KeyError:
        raise ValueError(f"keli: pad mode is one of {sorted(MODES)}, not {mode!r}") from None
    (top, bottom), (left, right) = pad_widths(pad_width)
    src = source(a, keep_alpha)
    shape = (src.height + top + bottom, src.width + left + right) + src.array.shape[2:]
    dst = output(out, shape, src.array.dtype, like=src)
    extra = ()
    if family == "Const":
        count = value_count(src.layout)
        extra = (constant(constant_values, src.token, "constant_values") if count == 1
                 else constants(constant_values, src.token, count, "constant_values"),)
    pixel = src.channels * src.array.itemsize
    inside = src.step == dst.step and src.ptr == dst.ptr + top * dst.step + left * pixel
    fields = dict(f=family, t=src.token, l=src.layout)
    if inside:
        name, function = find("keliCopy{f}Border_{t}_{l}IR", **fields)
        run(name, function, src.ptr, dst.step, src.size, dst.size, top, left, *extra)
    else:
        name, function = find("keliCopy{f}Border_{t}_{l}R", **fields)
        run(name, function, src.ptr, src.step, src.size, dst.ptr, dst.step, dst.size, top, left, *extra)
    return dst.array
