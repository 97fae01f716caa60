# SPDX-License-Identifier: MIT
"""The examples in the descriptions."""

import doctest
import importlib

import pytest

MODULES = ("raw", "filters", "shapes", "files", "blending", "measuring", "mosaic", "panorama", "store", "tasks")


@pytest.mark.parametrize("name", MODULES)
def test_examples_in_descriptions_give_what_they_say(name):
    module = importlib.import_module(f"panoval.{name}")
    result = doctest.testmod(module)
    assert result.attempted > 0 and result.failed == 0
