"""Every numpy call writes inside its output and nowhere else, and AC4 calls keep the alpha.

Each call writes into a region of a larger array filled with a canary: the canary around the
region, and the alpha channel of keep_alpha calls, must come out unchanged."""
import numpy as np
import pytest

import keli
from keli._image import Missing
from conftest import random_image

CANARY = 0x5A

CALLS = {
    "add image": lambda a, out, alpha: keli.add(a, a, out=out, keep_alpha=alpha),
    "add constant": lambda a, out, alpha: keli.add(a, 1, out=out, keep_alpha=alpha),
    "multiply constant": lambda a, out, alpha: keli.multiply(a, 2, out=out, keep_alpha=alpha),
    "divide": lambda a, out, alpha: keli.divide(a, np.ones_like(a), out=out, keep_alpha=alpha),
    "absolute": lambda a, out, alpha: keli.absolute(a, out=out, keep_alpha=alpha),
    "threshold": lambda a, out, alpha: keli.threshold(a, 3, out=out, keep_alpha=alpha),
    "threshold value": lambda a, out, alpha: keli.threshold(a, 3, op="gt", value=1, out=out, keep_alpha=alpha),
    "threshold range": lambda a, out, alpha: keli.threshold_range(a, 1, 0, 5, 9, out=out, keep_alpha=alpha),
    "convert": lambda a, out, alpha: keli.convert(a, out.dtype, out=out, keep_alpha=alpha),  # see OUT_TYPES
    "lut": lambda a, out, alpha: keli.lut(a, [0, 100], [0, 50], out=out, keep_alpha=alpha),
    "copy": lambda a, out, alpha: keli.copy(a, out=out, keep_alpha=alpha),
    "swap channels": lambda a, out, alpha: keli.swap_channels(a, _order(a, alpha), out=out, keep_alpha=alpha),
    "palette": lambda a, out, alpha: keli.palette(a, np.arange(256, dtype=a.dtype)[::-1].copy(), out=out,
                                                  keep_alpha=alpha),
}
def _order(image, alpha):
    channels = 1 if image.ndim == 2 else image.shape[2]
    return (2, 0, 1) if alpha or channels == 3 else (3, 2, 0, 1)[:channels]


LAYOUTS = {"C1": ((9, 13), False), "C3": ((9, 13, 3), False), "C4": ((9, 13, 4), False), "AC4": ((9, 13, 4), True)}
DTYPES = [np.uint8, np.uint16, np.int16, np.float32]
OUT_TYPES = {"convert": lambda dtype: np.int16 if dtype == np.float32 else np.float32}


@pytest.mark.parametrize("call", list(CALLS))
@pytest.mark.parametrize("layout", list(LAYOUTS))
@pytest.mark.parametrize("dtype", DTYPES)
def test_writes_stay_inside_the_output(rng, call, layout, dtype):
    shape, alpha = LAYOUTS[layout]
    image = random_image(rng, shape, dtype) // 2 if dtype != np.float32 else random_image(rng, shape, dtype)
    parent = np.full((shape[0] + 4, shape[1] + 6) + shape[2:], CANARY, OUT_TYPES.get(call, lambda d: d)(dtype))
    out = parent[2:-2, 3:-3]
    try:
        CALLS[call](image, out, alpha)
    except (Missing, ValueError) as refusal:
        if isinstance(refusal, ValueError) and "channels" not in str(refusal):
            raise
        pytest.skip(f"no member: {refusal}")
    outside = np.ones(parent.shape[:2], bool)
    outside[2:-2, 3:-3] = False
    assert (parent[outside] == CANARY).all()
    if alpha:
        assert (out[..., 3] == CANARY).all()
