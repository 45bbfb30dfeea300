# Builds the package with CMake, which needs a compiler, pybind11 and nothing from a network. The source tree stays as it is:
# what is made on the way goes into a folder that is gone at the end, or into the one that SKOKLANA_PYTHON_BUILD names.
import atexit
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).parent.resolve()
SCRATCH = tempfile.mkdtemp(prefix="skoklana-")
atexit.register(shutil.rmtree, SCRATCH, ignore_errors=True)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).parent.resolve()
        build = pathlib.Path(os.environ.get("SKOKLANA_PYTHON_BUILD") or self.build_temp).resolve()
        options = {
            "CMAKE_BUILD_TYPE": "Release",
            "Python3_EXECUTABLE": sys.executable,
            "SKOKLANA_PYTHON": "ON",
            "SKOKLANA_TESTS": "OFF",
            "SKOKLANA_EXAMPLES": "OFF",
            "SKOKLANA_PYTHON_DIR": "python",
        }
        build.mkdir(parents=True, exist_ok=True)
        subprocess.run(["cmake", "-S", ROOT, "-B", build, *(f"-D{k}={v}" for k, v in options.items())], check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.run(["cmake", "--build", build, "--target", "skoklana_python", "-j", jobs], check=True)
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run(["cmake", "--install", build, "--prefix", prefix, "--component", "python"], check=True)
            target.mkdir(parents=True, exist_ok=True)
            for path in (pathlib.Path(prefix) / "python" / "skoklana").iterdir():
                # Of a library's names the one that is asked for at run time is enough: lib.so.0, a link to lib.so.0.1.0.
                if ".so." in path.name and not path.is_symlink():
                    continue
                if ".so" in path.name:
                    shutil.copyfile(path, target / path.name, follow_symlinks=True)


setup(
    packages=["skoklana"],
    package_dir={"skoklana": "python/skoklana"},
    package_data={"skoklana": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("skoklana._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    options={"egg_info": {"egg_base": SCRATCH}, "build": {"build_base": SCRATCH}},
)
