"""The command line on a real photograph, against the numpy layer it runs."""
import os
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest

import keli
from keli import cli, imageio

PACKAGE_ROOT = pathlib.Path(__file__).resolve().parents[1]
skimage = pytest.importorskip("skimage", reason="the photographs ship with python3-skimage")
PHOTO = pathlib.Path(skimage.data_dir) / "astronaut.png"
GREY = pathlib.Path(skimage.data_dir) / "camera.png"


def keli_cli(*args, check=True):
    env = dict(os.environ, PYTHONPATH=str(PACKAGE_ROOT))
    done = subprocess.run([sys.executable, "-m", "keli", *map(str, args)], capture_output=True, text=True, env=env)
    if check:
        assert done.returncode == 0, done.stderr
    return done


def test_help_lists_every_operation_on_one_line():
    lines = keli_cli("--help").stdout.splitlines()
    for name, (summary, _, _) in cli.OPERATIONS.items():
        assert any(line.split() == [name, *summary.split()] for line in lines), name


@pytest.mark.parametrize("args,expected", [
    (["add", "--value", "40"], lambda p: keli.add(p, 40)),
    (["sub", "--value", "10,20,30"], lambda p: keli.subtract(p, (10, 20, 30))),
    (["threshold", "--level", "100", "--op", "gt", "--value", "0"], lambda p: np.where(p > 100, 0, p)),
    (["border", "--pad", "5,6,7,8", "--mode", "reflect"], lambda p: np.pad(p, ((5, 7), (6, 8), (0, 0)), "reflect")),
    (["invert"], lambda p: 255 - p),
    (["channels"], lambda p: p[..., ::-1]),
    (["sharpen"], lambda p: keli.sharpen(p)),
    (["equalize"], lambda p: keli.equalize(p)),
    (["curve", "--levels", "0,256", "--values", "0,255"], lambda p: keli.lut(p, [0, 256], [0, 255])),
])
def test_a_photograph_round_trips_through_the_command_line(tmp_path, args, expected):
    out = tmp_path / "out.png"
    assert cli.main([args[0], str(PHOTO), str(out), *args[1:]]) == 0  # in-process: the same main()
    photo = imageio.read(PHOTO)
    assert photo.shape == (512, 512, 3)
    assert np.array_equal(imageio.read(out), expected(photo))


def test_binarize_at_otsus_level_and_convert_to_float(tmp_path):
    assert cli.main(["binarize", str(GREY), str(tmp_path / "bw.png")]) == 0
    grey = imageio.read(GREY)
    level = keli.otsu_threshold(grey)
    assert np.array_equal(imageio.read(tmp_path / "bw.png"), np.where(grey < level, 0, 255))
    assert cli.main(["convert", str(GREY), str(tmp_path / "grey.tiff"), "--to", "float32"]) == 0
    assert np.array_equal(imageio.read(tmp_path / "grey.tiff"), grey.astype(np.float32))


def test_a_directory_of_images_with_a_progress_bar(tmp_path):
    folder = tmp_path / "in"
    folder.mkdir()
    shutil.copy(PHOTO, folder / "a.png")
    shutil.copy(GREY, folder / "b.png")
    done = keli_cli("invert", folder, tmp_path / "out")
    assert "2/2" in done.stderr
    for name, source in (("a.png", PHOTO), ("b.png", GREY)):
        assert np.array_equal(imageio.read(tmp_path / "out" / name), 255 - imageio.read(source))
    listing = keli_cli("stats", str(folder / "*.png")).stdout.splitlines()
    assert len(listing) == 2 and "max" in listing[0]


def test_failures_exit_non_zero_with_a_message(tmp_path):
    done = keli_cli("convert", PHOTO, tmp_path / "x.png", "--to", "float32", check=False)
    assert done.returncode == 1 and "write .npy" in done.stderr
    done = keli_cli("invert", tmp_path / "missing*.png", tmp_path / "o", check=False)
    assert done.returncode == 2 and "no image matches" in done.stderr


def test_sixteen_bit_grey_files_keep_their_type(tmp_path):
    wide = (np.arange(12 * 20, dtype=np.uint32) * 257 % 65536).astype(np.uint16).reshape(12, 20)
    for name in ("wide.png", "wide.tiff"):
        imageio.write(tmp_path / name, wide)
        assert cli.main(["invert", str(tmp_path / name), str(tmp_path / f"inverted-{name}")]) == 0
        back = imageio.read(tmp_path / f"inverted-{name}")
        assert back.dtype == np.uint16 and np.array_equal(back, 65535 - wide)
