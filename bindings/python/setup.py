"""Builds the extension module by the tree's own CMake files; all else stands in pyproject.toml."""

import os
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent
TREE = HERE.parent.parent


class CMakeBuild(build_ext):
    """The module, and beside it the library that it needs."""

    def build_extension(self, ext: Extension) -> None:
        """Builds both in the folder for temporary files, and installs them into that of the package."""
        if not (TREE / "lib" / "CMakeLists.txt").exists():
            sys.exit("korvex is built from a checkout of korvex_util: pip install CHECKOUT/bindings/python")
        build = Path(self.build_temp).resolve() / "cmake"
        root = Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        settings = {
            "CMAKE_BUILD_TYPE": "Release",
            "CMAKE_INSTALL_PREFIX": root,
            "CMAKE_INSTALL_LIBDIR": "korvex",
            "CMAKE_INSTALL_RPATH": "$ORIGIN",
            "KORVEX_BUILD_EXAMPLES": "OFF",
            "KORVEX_BUILD_MAN": "OFF",
            "KORVEX_BUILD_PYTHON": "ON",
            "KORVEX_BUILD_TESTS": "OFF",
            "KORVEX_BUILD_TOOLS": "OFF",
            "KORVEX_PYTHON": sys.executable,
            "KORVEX_PYTHON_DIR": ".",
        }
        configure = ["cmake", "-G", "Ninja", "-S", TREE, "-B", build]
        subprocess.run(configure + [f"-D{name}={value}" for name, value in settings.items()], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "korvex_python"], check=True)
        install = ["cmake", "--install", build, "--strip", "--component"]
        subprocess.run([*install, "python"], check=True)
        # The module asks for the library by its SONAME: one file by that name, since a wheel has no links.
        library = os.path.realpath(build / "lib" / "libkorvex_util.so.1")
        self.copy_file(library, str(root / "korvex" / "libkorvex_util.so.1"))
        subprocess.run(["strip", "--strip-unneeded", root / "korvex" / "libkorvex_util.so.1"], check=True)


setup(ext_modules=[Extension("korvex._korvex", sources=[])], cmdclass={"build_ext": CMakeBuild})
