"""Installation by pip, without a network, into a folder and into a virtual environment. It builds everything anew, so it
runs where SKOKLANA_TEST_ALL is set, as scripts/test --all does."""

import os
import pathlib
import shutil
import subprocess
import sys

import pytest

SOURCE = pathlib.Path(os.environ.get("SKOKLANA_SOURCE", pathlib.Path(__file__).parents[2]))

pytestmark = [
    pytest.mark.skipif("SKOKLANA_TEST_ALL" not in os.environ, reason="builds everything anew"),
    pytest.mark.skipif("SKOKLANA_SANITIZED" in os.environ, reason="the plain build tells"),
]

PROGRAM = """
import pathlib, sys
import numpy as np, skoklana as sk
assert pathlib.Path(sk.__file__).is_relative_to(sys.argv[1]), sk.__file__
x, y, z = np.meshgrid(*[np.linspace(-1, 1, 20)] * 3, indexing="ij")
mesh = sk.uniform((20, 20, 20), 2 / 19, (-1, -1, -1))
surface = mesh.isosurface(x**2 + y**2 + z**2, 0.5, threads=2)
assert abs(surface.to_mesh().measure().area.measure / (4 * np.pi * 0.5) - 1) < 0.01
print(len(surface.triangles), (pathlib.Path(sk.__file__).parent / "py.typed").exists(), len(sk.__doc__) > 1000)
"""


def run(*command, cwd, **more):
    env = {name: value for name, value in os.environ.items() if name not in ("PYTHONPATH", "PYTHONDONTWRITEBYTECODE")}
    env.update(PIP_NO_INDEX="1", PIP_DISABLE_PIP_VERSION_CHECK="1", **more)
    done = subprocess.run([str(word) for word in command], cwd=cwd, env=env, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout[-4000:] + done.stderr[-4000:]
    return done.stdout


def files_in(folder):
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file()}


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """The source tree as it is checked out, and how to build from it."""
    copy = tmp_path_factory.mktemp("install") / "tree"
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, capture_output=True, text=True)
    if listed.returncode != 0:
        shutil.copytree(SOURCE, copy, ignore=shutil.ignore_patterns("build", "*.egg-info", "__pycache__"))
    for name in filter(None, listed.stdout.split("\0")):
        if (SOURCE / name).is_file():
            (copy / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(SOURCE / name, copy / name)
    how = {"SKOKLANA_PYTHON_BUILD": str(copy.parent / "objects")}
    if shutil.which("ccache"):
        how.update(CMAKE_C_COMPILER_LAUNCHER="ccache", CMAKE_CXX_COMPILER_LAUNCHER="ccache")
        how.update(CCACHE_BASEDIR=str(copy), CCACHE_NOHASHDIR="1")
    return copy, how


def test_into_a_folder(tree, tmp_path):
    copy, how = tree
    before, target = files_in(copy), tmp_path / "packages"
    pip = (sys.executable, "-m", "pip", "install", ".", "--no-build-isolation", "--no-deps")
    run(*pip, "--target", target, cwd=copy, **how)
    assert files_in(copy) == before  # nothing is left behind
    there = files_in(target / "skoklana")
    assert {"__init__.py", "py.typed", "_core.pyi", "libskoklana.so.0", "libskoklana_host.so.0"} <= there
    assert sum(".so" in name for name in there) == 3
    said = run(sys.executable, "-c", PROGRAM, target, cwd=tmp_path, PYTHONPATH=str(target))
    count, typed, text = said.split()
    assert int(count) > 500 and typed == text == "True"


def test_into_a_virtual_environment(tree, tmp_path):
    copy, how = tree
    before, folder = files_in(copy), tmp_path / "env"
    run(sys.executable, "-m", "venv", "--system-site-packages", folder, cwd=tmp_path)
    python = folder / "bin" / "python"
    run(python, "-m", "pip", "install", ".", "--no-build-isolation", "--no-deps", cwd=copy, **how)
    assert files_in(copy) == before
    assert int(run(python, "-c", PROGRAM, folder, cwd=tmp_path).split()[0]) > 500
    listed = run(python, "-m", "pip", "show", "-f", "skoklana", cwd=tmp_path)
    assert "Version: 0.1.0" in listed and "Requires: numpy" in listed
    run(python, "-m", "pip", "uninstall", "-y", "skoklana", cwd=tmp_path)
    assert not list(folder.glob("lib/python*/site-packages/skoklana*"))
