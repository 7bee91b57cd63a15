"""The tests run against the package in the build tree (PYTHONPATH, set by ctest), with the
HRTF set the build made (QK_TEST_HRTF) and a common folder of their own (QK_COMMON_ROOT),
into which that set is copied where the library looks for its default set."""

import os
import shutil

import pytest

HRTF = os.environ.get("QK_TEST_HRTF", "")


def pytest_configure(config):
    root = os.environ.get("QK_COMMON_ROOT")
    if root and os.path.isfile(HRTF):
        folder = os.path.join(root, "TORVELLAN", "Common", "QKHRTF")
        os.makedirs(folder, exist_ok=True)
        shutil.copyfile(HRTF, os.path.join(folder, os.path.basename(HRTF)))


@pytest.fixture
def hrtf():
    if not os.path.isfile(HRTF):
        pytest.skip("the build made no HRTF set")
    return HRTF
