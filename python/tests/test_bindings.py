"""The generated low layer: every export bound with its prototype, statuses as classes."""
import ctypes
import shutil
import subprocess

import pytest

import keli
from keli._exports import EXPORTS
from keli._types import KelStatusCode


def exported_symbols():
    nm = shutil.which("nm")
    if nm is None:
        pytest.skip("nm is not installed")
    listing = subprocess.run([nm, "-D", "--defined-only", str(keli.lib.path)], capture_output=True,
                             text=True, check=True).stdout
    return {line.split()[-1] for line in listing.splitlines() if line.split()[-1].startswith(("keli", "kelr"))}


def test_the_table_names_exactly_the_library_exports():
    assert set(EXPORTS) == exported_symbols()


def test_every_export_binds_with_its_prototype():
    for name, (restype, argtypes, names) in EXPORTS.items():
        function = getattr(keli.lib, name)
        assert function.restype is restype, name
        assert tuple(function.argtypes) == argtypes, name
        assert len(names.split()) == len(argtypes), name


def test_prototypes_translate_values_records_and_pointers():
    restype, argtypes, names = EXPORTS["keliAddC_16s_C1RSfs"]
    assert restype is keli.KelStatus
    assert argtypes == (ctypes.c_void_p, ctypes.c_int, keli.Kel16s, ctypes.c_void_p, ctypes.c_int, keli.KeliSize, ctypes.c_int)
    assert names.split() == ["pSrc", "srcStep", "value", "pDst", "dstStep", "roiSize", "scaleFactor"]
    assert EXPORTS["keliCopy_8u_C1R_L"][1][-1] is keli.KeliSizeL
    assert EXPORTS["keliFree"][0] is None


def test_a_raw_call_runs_and_reports_its_status():
    version = keli.lib.keliGetLibVersion().contents
    assert version.major == 2022
    assert keli.lib.keliAbs_16s_C1IR(None, 2, keli.KeliSize(1, 1)) == KelStatusCode.kelStatusNullPtr


def test_every_status_has_a_class_named_after_it():
    for code in KelStatusCode:
        if code == 0:
            continue
        cls = getattr(keli, code.name[len("kelStatus"):])
        assert issubclass(cls, keli.Error if code < 0 else keli.KeliWarning)
    assert keli.errors.BY_CODE[-6] is keli.BadSize


def test_enumerations_carry_the_header_values():
    assert keli.KeliBorderType.kelBorderInMem == 240
    assert keli.KelRoundMode.kelRndFinancial == 2
    assert keli.KelStatusCode.kelStatusBadTransformKind == -233
    assert ctypes.sizeof(keli.KeliRectL) == 32


def test_every_export_has_its_family_contract():
    """keli.reference() finds the contract of every export, and the numpy calls carry it."""
    for name in EXPORTS:
        text = keli.reference(name)
        assert "Checks" in text or "Failures" in text, name
    assert "Saturating add and subtract" in keli.add.__doc__
    assert "kelStatusBadScaleRange" in keli.rescale.__doc__
    with pytest.raises(KeyError):
        keli.reference("keliNoSuchThing")
