"""Two-dimensional fast Fourier transforms of images whose sides are powers of two.

fft2 / ifft2 transform complex64 images like np.fft.fft2 / ifft2 (in single precision).
rfft2_packed transforms a float32 image into the packed real spectrum of the same shape;
unpack turns that into np.fft.rfft2's layout and pack back. norm follows numpy: "backward"
(the inverse scaled by 1/(h w)), "ortho" (both by 1/sqrt(h w)), "forward" (the forward scaled),
and "none" (neither)."""
import ctypes

import numpy as np

from . import _types
from ._doc import documented
from ._image import find, output, run, source
from .geometry import _complex_output, _complex_view

# numpy's norm names -> the scaling flag of the specs
NORM = {"backward": 2, None: 2, "ortho": 4, "forward": 1, "none": 8}

_SPECS = {}


def _order(n, what):
    if n < 1 or n & (n - 1):
        raise ValueError(f"keli: the FFT {what} must be a power of two, not {n}")
    return n.bit_length() - 1


def _flag(norm):
    try:
        return NORM[norm]
    except (KeyError, TypeError):
        raise ValueError(f"keli: norm is one of 'backward', 'ortho', 'forward', 'none', not {norm!r}") from None


class Spec:
    """A prepared transform of one kind ("R" real, "C" complex), size and scaling: the spec
    block and the size of the work buffer each transform needs."""

    def __init__(self, kind, height, width, flag):
        token = "R_32f" if kind == "R" else "C_32fc"
        order_x, order_y = _order(width, "width"), _order(height, "height")
        sizes = [ctypes.c_int() for _ in range(3)]
        hint = _types.KelHintAlgorithm.kelAlgHintNone
        name, function = find("keliFFTGetSize_{k}", k=token)
        run(name, function, order_x, order_y, flag, hint, *[ctypes.byref(s) for s in sizes])
        spec_size, init_size, self.buffer_size = (s.value for s in sizes)
        self.spec = np.zeros(max(spec_size, 1), np.uint8)
        init = np.zeros(init_size, np.uint8) if init_size > 0 else None
        name, function = find("keliFFTInit_{k}", k=token)
        run(name, function, order_x, order_y, flag, hint, self.spec.ctypes.data,
            None if init is None else init.ctypes.data)
        self.shape = (height, width)

    def buffer(self):
        """A fresh work buffer (address, keeper), or (None, None) when none is needed."""
        if self.buffer_size <= 0:
            return None, None
        block = np.empty(self.buffer_size, np.uint8)
        return block.ctypes.data, block


def spec(kind, height, width, norm="backward"):
    """The Spec of a kind, shape and norm, prepared once and kept."""
    key = (kind, height, width, _flag(norm))
    found = _SPECS.get(key)
    if found is None:
        if len(_SPECS) > 64:
            _SPECS.clear()
        found = _SPECS[key] = Spec(kind, height, width, key[3])
    return found


def _real(direction, a, norm, out, keep_alpha):
    src = source(a, keep_alpha)
    s = spec("R", src.height, src.width, norm)
    dst = output(out, src.array.shape, src.array.dtype, like=src)
    buffer, keeper = s.buffer()
    pattern = "keliFFTFwd_RToPack_{t}_{l}{i}R" if direction == "fwd" else "keliFFTInv_PackToR_{t}_{l}{i}R"
    if dst.same_memory(src):
        name, function = find(pattern, t=src.token, l=src.layout, i="I")
        run(name, function, dst.ptr, dst.step, s.spec.ctypes.data, buffer)
    else:
        if np.may_share_memory(dst.array, src.array):
            raise ValueError("keli: out overlaps the input without being it")
        name, function = find(pattern, t=src.token, l=src.layout, i="")
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, s.spec.ctypes.data, buffer)
    del keeper
    return dst.array


@documented("frequency/fft")
def rfft2_packed(a, *, norm="backward", out=None, keep_alpha=False):
    """The 2-D spectrum of a float32 image (h, w[, c]) in the packed real layout, same shape:
    each channel transformed alone (AC4 leaves the fourth). In place with out=a.
    unpack(result) equals np.fft.rfft2(a, axes=(0, 1), norm=norm) to single precision."""
    return _real("fwd", a, norm, out, keep_alpha)


@documented("frequency/fft")
def irfft2_packed(a, *, norm="backward", out=None, keep_alpha=False):
    """The real float32 image of a packed spectrum (the inverse of rfft2_packed with the same
    norm). In place with out=a."""
    return _real("inv", a, norm, out, keep_alpha)


def _complex(direction, a, norm, out):
    src = _complex_view(a)
    s = spec("C", src.height, src.width, norm)
    dst = _complex_output(out, src.array.shape)
    buffer, keeper = s.buffer()
    pattern = "keliFFT{d}_CToC_32fc_C1{i}R"
    d = "Fwd" if direction == "fwd" else "Inv"
    if dst.same_memory(src):
        name, function = find(pattern, d=d, i="I")
        run(name, function, dst.ptr, dst.step, s.spec.ctypes.data, buffer)
    else:
        if np.may_share_memory(dst.array, src.array):
            raise ValueError("keli: out overlaps the input without being it")
        name, function = find(pattern, d=d, i="")
        run(name, function, src.ptr, src.step, dst.ptr, dst.step, s.spec.ctypes.data, buffer)
    del keeper
    return dst.array


@documented("frequency/fft")
def fft2(a, *, norm="backward", out=None):
    """np.fft.fft2 of a 2-D complex64 image with power-of-two sides, in single precision.
    In place with out=a."""
    return _complex("fwd", a, norm, out)


@documented("frequency/fft")
def ifft2(a, *, norm="backward", out=None):
    """np.fft.ifft2 of a 2-D complex64 image with power-of-two sides, in single precision.
    In place with out=a."""
    return _complex("inv", a, norm, out)


def _unpack_column(c):
    """The full spectrum of a real sequence from its packed form, along axis 0."""
    n = c.shape[0]
    full = np.zeros(c.shape, np.complex128 if c.dtype == np.float64 else np.complex64)
    full[0] = c[0]
    if n >= 2:
        full[n // 2] = c[n - 1]
        k = np.arange(1, n // 2)
        full[k] = c[2 * k - 1] + 1j * c[2 * k]
        full[n - k] = np.conj(full[k])
    return full


def unpack(packed):
    """A packed real spectrum (h, w[, c]) as np.fft.rfft2's complex layout (h, w // 2 + 1[, c])."""
    p = np.asarray(packed)
    if p.ndim not in (2, 3):
        raise ValueError(f"keli: a packed spectrum is (h, w) or (h, w, c), not {p.shape}")
    h, w = p.shape[:2]
    _order(w, "width"), _order(h, "height")
    dtype = np.complex128 if p.dtype == np.float64 else np.complex64
    full = np.zeros((h, w // 2 + 1) + p.shape[2:], dtype)
    full[:, 0] = _unpack_column(p[:, 0])
    if w >= 2:
        full[:, w // 2] = _unpack_column(p[:, w - 1])
        u = np.arange(1, w // 2)
        full[:, u] = p[:, 2 * u - 1] + 1j * p[:, 2 * u]
    return full


def _pack_column(f):
    n = f.shape[0]
    col = np.zeros(f.shape, f.real.dtype)
    col[0] = f[0].real
    if n >= 2:
        col[n - 1] = f[n // 2].real
        k = np.arange(1, n // 2)
        col[2 * k - 1] = f[k].real
        col[2 * k] = f[k].imag
    return col


def pack(spectrum, width=None):
    """np.fft.rfft2's layout (h, w // 2 + 1[, c]) in the packed real layout (h, w[, c]), float32
    (float64 from complex128). width: the image width, 2 * (columns - 1) by default."""
    f = np.asarray(spectrum)
    if f.ndim not in (2, 3):
        raise ValueError(f"keli: a spectrum is (h, n) or (h, n, c), not {f.shape}")
    h, n = f.shape[:2]
    w = (2 * (n - 1) or 1) if width is None else int(width)
    if w // 2 + 1 != n:
        raise ValueError(f"keli: {n} columns do not hold the spectrum of width {w}")
    _order(w, "width"), _order(h, "height")
    dtype = np.float64 if f.dtype == np.complex128 else np.float32
    p = np.zeros((h, w) + f.shape[2:], dtype)
    p[:, 0] = _pack_column(f[:, 0])
    if w >= 2:
        p[:, w - 1] = _pack_column(f[:, w // 2])
        u = np.arange(1, w // 2)
        p[:, 2 * u - 1] = f[:, u].real
        p[:, 2 * u] = f[:, u].imag
    return p
