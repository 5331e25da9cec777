"""The package installs with pip from its folder and brings the `keli` console script."""
import os
import pathlib
import subprocess
import sys

import pytest

import keli

PACKAGE_ROOT = pathlib.Path(__file__).resolve().parents[1]


def test_pip_installs_the_package_and_its_console_script(tmp_path):
    pip = subprocess.run([sys.executable, "-m", "pip", "--version"], capture_output=True)
    if pip.returncode != 0:
        pytest.skip("pip is not installed")
    work = tmp_path / "source"
    subprocess.run(["cp", "-r", str(PACKAGE_ROOT), str(work)], check=True)  # pip builds in place
    target = tmp_path / "site"
    done = subprocess.run(
        [sys.executable, "-m", "pip", "install", "--quiet", "--no-build-isolation", "--no-deps",
         "--no-index", "--target", str(target), str(work)],
        capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    env = dict(os.environ, PYTHONPATH=str(target), KELI_LIBRARY=str(keli.lib.path))
    script = subprocess.run([str(target / "bin" / "keli"), "--help"], capture_output=True, text=True, env=env)
    assert script.returncode == 0 and "equalize" in script.stdout
    where = subprocess.run([sys.executable, "-c", "import keli; print(keli.__file__)"], capture_output=True,
                           text=True, env=env, cwd=tmp_path)
    assert where.stdout.startswith(str(target))
