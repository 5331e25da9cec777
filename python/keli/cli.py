"""keli's command line: one operation over image files.

    keli OP IN OUT [options]

IN is a file, a directory (every image in it) or a glob pattern in quotes; with several inputs
OUT is a directory and each result keeps its input's name. PNG, JPEG and TIFF go through
Pillow, .npy through numpy. A four-channel image keeps its alpha where the operation has an
alpha-preserving form.

An operation is one entry of OPERATIONS: its help line, its options, and a function from
(image, options) to the result, so a new one is a few lines.
"""
import argparse
import glob
import pathlib
import sys

import numpy as np

from . import arith, imageio, stats
from ._image import Missing
from .borders import pad
from .convert import convert
from .errors import Error
from .histogram import equalize, lut, palette
from .move import swap_channels
from .sharpen import sharpen
from .threshold import otsu_threshold, threshold

IMAGE_SUFFIXES = {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".npy", ".bmp"}


def _numbers(text):
    """'5' -> 5.0, '10,20,30' -> [10.0, 20.0, 30.0] (one value per colour channel)."""
    values = [float(v) for v in text.split(",")]
    return values[0] if len(values) == 1 else values


def _integers(text):
    return [int(v) for v in text.split(",")]


def _arith_arguments(parser):
    parser.add_argument("--value", type=_numbers, required=True, help="constant, or one per channel: 10,20,30")
    parser.add_argument("--scale", type=int, default=0, help="integer results divided by 2**SCALE")


def _arith(function):
    return lambda image, options, keep_alpha: function(image, options.value, scale=options.scale,
                                                       keep_alpha=keep_alpha)


def _threshold(image, options, keep_alpha):
    return threshold(image, options.level, op=options.op, value=options.value, keep_alpha=keep_alpha)


def _threshold_arguments(parser):
    parser.add_argument("--level", type=_numbers, required=True)
    parser.add_argument("--op", choices=["lt", "gt"], default="lt", help="act on pixels below (lt) or above (gt)")
    parser.add_argument("--value", type=_numbers, help="new value of those pixels (default: the level)")


def _binarize(image, options, keep_alpha):
    if options.level is None and image.ndim == 3:
        raise ValueError("binarize: Otsu's level needs a grey image; give --level for colour")
    level = options.level if options.level is not None else otsu_threshold(image)
    result = threshold(image, level, op="lt", value=0, keep_alpha=keep_alpha)
    top = np.iinfo(image.dtype).max if image.dtype.kind in "iu" else 1.0
    return threshold(result, level - 1, op="gt", value=top, out=result, keep_alpha=keep_alpha)


def _convert(image, options, keep_alpha):
    return convert(image, options.to, rounding=options.rounding, scale=options.scale, keep_alpha=keep_alpha)


def _convert_arguments(parser):
    parser.add_argument("--to", required=True, help="numpy dtype: uint8, uint16, int16, float32, ...")
    parser.add_argument("--rounding", choices=["zero", "near", "financial"], default="near")
    parser.add_argument("--scale", type=int, default=0, help="divide by 2**SCALE (grey images)")


def _border(image, options, keep_alpha):
    widths = options.pad
    top, left, bottom, right = widths * 4 if len(widths) == 1 else widths
    return pad(image, ((top, bottom), (left, right)), options.mode, constant_values=options.value,
               keep_alpha=keep_alpha)


def _border_arguments(parser):
    parser.add_argument("--pad", type=_integers, default=[16], help="N, or TOP,LEFT,BOTTOM,RIGHT (default 16)")
    parser.add_argument("--mode", choices=["constant", "edge", "reflect", "wrap"], default="reflect")
    parser.add_argument("--value", type=_numbers, default=0, help="colour of a constant border")


def _full_scale(image):
    if image.dtype not in (np.uint8, np.uint16):
        raise ValueError("palette operations take uint8 and uint16 images")
    return np.iinfo(image.dtype).max


def _invert(image, options, keep_alpha):
    top = _full_scale(image)
    return palette(image, (top - np.arange(top + 1)).astype(image.dtype), keep_alpha=keep_alpha)


def _gamma(image, options, keep_alpha):
    top = _full_scale(image)
    table = np.round(top * (np.arange(top + 1) / top) ** (1.0 / options.gamma)).astype(image.dtype)
    return palette(image, table, keep_alpha=keep_alpha)


def _curve(image, options, keep_alpha):
    return lut(image, options.levels, options.values, interpolation=options.interpolation,
               keep_alpha=keep_alpha)


def _curve_arguments(parser):
    parser.add_argument("--levels", type=_integers, required=True, help="input levels, e.g. 0,64,192,256")
    parser.add_argument("--values", type=_integers, required=True, help="their outputs, e.g. 0,32,224,255")
    parser.add_argument("--interpolation", choices=["nearest", "linear", "cubic"], default="linear")


def _channels(image, options, keep_alpha):
    return swap_channels(image, options.order, keep_alpha=keep_alpha)


def _channels_arguments(parser):
    parser.add_argument("--order", type=_integers, default=[2, 1, 0],
                        help="source channel of each output channel (default 2,1,0: RGB <-> BGR)")


def _equalize(image, options, keep_alpha):
    return equalize(image, keep_alpha=keep_alpha)


def _stats(image, options, keep_alpha):
    low, high = stats.min_max(image, keep_alpha=keep_alpha)
    print(f"{options.current}: {image.dtype} {image.shape} min {low} max {high} "
          f"mean {np.round(stats.mean(image, keep_alpha=keep_alpha), 3)} "
          f"l2 {np.round(stats.norm(image, kind='l2', keep_alpha=keep_alpha), 3)}")
    return None


def _no_arguments(parser):
    pass


def _level_argument(parser):
    parser.add_argument("--level", type=int, help="threshold (default: Otsu's)")


def _gamma_argument(parser):
    parser.add_argument("--gamma", type=float, default=2.2)


OPERATIONS = {
    # name: (help line, options, function(image, options, keep_alpha) -> image or None)
    "add": ("add a constant, saturating (--value, --scale)", _arith_arguments, _arith(arith.add)),
    "sub": ("subtract a constant, saturating (--value, --scale)", _arith_arguments, _arith(arith.subtract)),
    "mul": ("multiply by a constant, saturating (--value, --scale)", _arith_arguments, _arith(arith.multiply)),
    "threshold": ("pixels below/above --level become --value (or the level)", _threshold_arguments, _threshold),
    "binarize": ("black and white at Otsu's level (grey images) or --level", _level_argument, _binarize),
    "convert": ("change the element type (--to, --rounding, --scale)", _convert_arguments, _convert),
    "border": ("add a border: --pad N --mode constant|edge|reflect|wrap", _border_arguments, _border),
    "invert": ("photographic negative (palette)", _no_arguments, _invert),
    "gamma": ("gamma curve through a palette (--gamma)", _gamma_argument, _gamma),
    "curve": ("tone curve through --levels and --values (lookup table)", _curve_arguments, _curve),
    "equalize": ("histogram equalisation of each colour channel", _no_arguments, _equalize),
    "sharpen": ("sharpen: 16 x centre - the 8 neighbours, / 8", _no_arguments,
                lambda image, options, keep_alpha: sharpen(image, keep_alpha=keep_alpha)),
    "channels": ("reorder the colour channels (--order 2,1,0)", _channels_arguments, _channels),
    "stats": ("print min, max, mean and L2 norm (no OUT)", _no_arguments, _stats),
}


def parser():
    width = max(map(len, OPERATIONS)) + 2
    listing = "\n".join(f"  {name:<{width}}{summary}" for name, (summary, _, _) in OPERATIONS.items())
    top = argparse.ArgumentParser(
        prog="keli",
        usage="keli OP IN OUT [options]   (keli OP --help for an operation's options)",
        formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Run one keli operation over image files (PNG, JPEG, TIFF, .npy).\n\n"
        f"operations:\n{listing}",
        epilog="IN may be a file, a directory or a quoted glob; with several inputs OUT is a directory.",
    )
    commands = top.add_subparsers(dest="operation", metavar="OP", required=True)
    for name, (summary, arguments, _) in OPERATIONS.items():
        sub = commands.add_parser(name, description=summary)
        sub.add_argument("input", metavar="IN")
        if name != "stats":
            sub.add_argument("output", metavar="OUT")
        arguments(sub)
    return top


def inputs(pattern):
    path = pathlib.Path(pattern)
    if path.is_dir():
        found = [p for p in sorted(path.iterdir()) if p.suffix.lower() in IMAGE_SUFFIXES]
    elif path.exists():
        return [path]
    else:
        found = [pathlib.Path(p) for p in sorted(glob.glob(pattern))]
    if not found:
        raise FileNotFoundError(f"keli: no image matches {pattern}")
    return found


def _progress(done, total, name):
    width = 30
    filled = width * done // total
    sys.stderr.write(f"\r[{'#' * filled}{'.' * (width - filled)}] {done}/{total} {name[:40]:<40}")
    if done == total:
        sys.stderr.write("\n")
    sys.stderr.flush()


def process(function, image, options):
    """Runs an operation; a four-channel image keeps its alpha where keli has such a form."""
    if image.ndim == 3 and image.shape[2] == 4:
        try:
            return function(image, options, True)
        except Missing:
            pass
    return function(image, options, False)


def main(argv=None):
    options = parser().parse_args(argv)
    _, _, function = OPERATIONS[options.operation]
    try:
        files = inputs(options.input)
    except FileNotFoundError as error:
        print(error, file=sys.stderr)
        return 2
    output = getattr(options, "output", None)
    batch = len(files) > 1 or pathlib.Path(options.input).is_dir()
    failures = 0
    for index, path in enumerate(files, 1):
        options.current = str(path)
        try:
            result = process(function, imageio.read(path), options)
            if result is not None and output is not None:
                target = pathlib.Path(output) / path.name if batch else pathlib.Path(output)
                imageio.write(target, result)
        except (Error, TypeError, ValueError, OSError) as error:
            failures += 1
            print(f"\n{path}: {error}" if batch else f"{path}: {error}", file=sys.stderr)
        if batch and output is not None:
            _progress(index, len(files), path.name)
    return 1 if failures else 0
