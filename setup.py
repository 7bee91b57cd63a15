"""Builds the Python module with the project's own CMake build and ships the shared library
beside the extension, which finds it there ($ORIGIN)."""

import glob
import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        subprocess.check_call([
            "cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
            "-DQK_TESTS=OFF", "-DQK_BENCH=OFF", "-DQK_TOOLS=OFF", "-DQK_PYTHON_WHEEL=ON",
            "-DPython3_EXECUTABLE=" + sys.executable])
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 2))
        subprocess.check_call(["cmake", "--build", build, "-j", jobs,
                               "--target", "quendarik_python"])
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        built = glob.glob(os.path.join(build, "python", "quendarik", "_quendarik*.so"))
        if len(built) != 1:
            raise RuntimeError("the CMake build made no single _quendarik module: %s" % built)
        shutil.copy2(built[0], target)
        # The library under its soname, which is what the extension asks for.
        for lib in glob.glob(os.path.join(build, "libquendarik.so.*")):
            if lib.count(".so.") == 1 and lib.rsplit(".so.", 1)[1].isdigit():
                shutil.copy2(lib, os.path.dirname(target))


setup(
    packages=["quendarik"],
    package_dir={"": "python"},
    ext_modules=[Extension("quendarik._quendarik", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
)
