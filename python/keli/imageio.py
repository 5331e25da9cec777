"""Reading and writing image files as numpy arrays for the command line (Pillow, and .npy)."""
import pathlib

import numpy as np

# Pillow modes that keli takes as they are, and the conversions for the others.
_AS_IS = {"L", "RGB", "RGBA", "I;16", "I", "F"}
_CONVERT = {"1": "L", "LA": "RGBA", "CMYK": "RGB", "YCbCr": "RGB", "HSV": "RGB", "LAB": "RGB"}


def read(path):
    path = pathlib.Path(path)
    if path.suffix.lower() == ".npy":
        return np.load(path)
    from PIL import Image

    with Image.open(path) as image:
        mode = image.mode
        if mode == "P":
            mode = "RGBA" if "transparency" in image.info else "RGB"
        elif mode not in _AS_IS:
            mode = _CONVERT.get(mode, "RGB")
        # Pillow opens 16-bit PNG grey as 32-bit "I"; PNG holds at most 16 bits, so uint16 is exact.
        sixteen = image.mode.startswith("I;16") or (image.format == "PNG" and image.mode == "I")
        image = image.convert(mode) if mode != image.mode else image
        array = np.array(image)
    if sixteen:
        array = array.astype(np.uint16)
    return array


def write(path, array):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    if path.suffix.lower() == ".npy":
        np.save(path, array)
        return
    from PIL import Image

    if array.ndim == 3 and array.shape[2] == 1:
        array = array[..., 0]
    mode = _mode(array)
    if mode is None:
        raise ValueError(
            f"keli: {array.dtype} with shape {array.shape} has no {path.suffix} form; write .npy instead"
        )
    if mode == "I;16":
        image = Image.frombytes("I;16", (array.shape[1], array.shape[0]), np.ascontiguousarray(array).tobytes())
    else:
        image = Image.fromarray(np.ascontiguousarray(array), mode)
    image.save(path)


def _mode(array):
    channels = 1 if array.ndim == 2 else array.shape[2]
    if array.dtype == np.uint8:
        return {1: "L", 3: "RGB", 4: "RGBA"}.get(channels)
    if channels != 1:
        return None
    return {np.dtype(np.uint16): "I;16", np.dtype(np.int32): "I", np.dtype(np.float32): "F"}.get(array.dtype)
