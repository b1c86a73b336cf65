"""Builds the package with CMake: the extension, the library it needs and that library's schemas."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import setuptools
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


def version():
    return re.search(r"project\(vela VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]


class CMakeBuild(build_ext):
    """Builds and installs into a folder of its own, then takes what belongs into the package."""

    def build_extension(self, extension):
        package = pathlib.Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = pathlib.Path(self.build_temp).resolve() / "cmake"
        stage = pathlib.Path(self.build_temp).resolve() / "stage"
        python_folder = "lib/python"
        subprocess.check_call([
            "cmake", "-S", ROOT, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
            "-DBUILD_TESTING=OFF", "-DVELA_PYTHON=ON", f"-DPython_EXECUTABLE={sys.executable}",
            f"-DVELA_PYTHON_INSTALL_DIR={python_folder}"])
        subprocess.check_call(["cmake", "--build", build])
        shutil.rmtree(stage, ignore_errors=True)
        subprocess.check_call(["cmake", "--install", build, "--prefix", stage])
        shutil.copytree(stage / python_folder / "vela", package, dirs_exist_ok=True)
        shutil.copytree(stage / "share" / "vela", package / "share" / "vela", dirs_exist_ok=True)
        # The name the extension asks for, the one with the major and minor version alone.
        library = min((stage / "lib").glob("libnexstore.so.*"), key=lambda path: len(path.name))
        (package / "lib").mkdir(parents=True, exist_ok=True)
        shutil.copy(os.path.realpath(library), package / "lib" / library.name)
        # The library looks for the program that reads data files beside itself.
        shutil.copy(stage / "lib" / "vela-filereader", package / "lib")


setuptools.setup(
    version=version(),
    ext_modules=[setuptools.Extension("vela._vela", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
