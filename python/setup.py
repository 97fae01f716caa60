# SPDX-License-Identifier: MIT
"""The parts of the package's description that depend on the tree: its version, and the tag of its wheel.

tools/build_wheel.py copies the libraries beside the sources and says in PANOVAL_WHEEL_PLATFORM what they run on. Without it
(a distribution's package, an editable install) the package is sources alone and uses the system's libraries.
"""

import os
import re
from pathlib import Path

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel

HERE = Path(__file__).resolve().parent


def version() -> str:
    """That of include/panoval_version.h, which build_wheel.py copies beside this file."""
    beside = HERE / "panoval_version.h"
    text = (beside if beside.exists() else HERE.parent / "include" / "panoval_version.h").read_text()
    parts = [re.search(rf"define PANOVAL_VERSION_{part} (\d+)", text) for part in ("MAJOR", "MINOR", "PATCH")]
    return ".".join(part.group(1) for part in parts if part)


class Wheel(bdist_wheel):
    """One wheel for every Python of a platform: there is no extension module, only libraries."""

    def finalize_options(self) -> None:
        super().finalize_options()
        self.root_is_pure = "PANOVAL_WHEEL_PLATFORM" not in os.environ

    def get_tag(self):
        return "py3", "none", os.environ.get("PANOVAL_WHEEL_PLATFORM", "any")


class Binary(Distribution):
    """Has libraries in it, which makes the package's folder one of the platform's."""

    def has_ext_modules(self) -> bool:
        return "PANOVAL_WHEEL_PLATFORM" in os.environ


setup(distclass=Binary, version=version(), cmdclass={"bdist_wheel": Wheel})
