"""The computer on loop devices loses the data that a real power cut would lose."""

import os

import pytest
from loop_computer import Partition, make_image
from support.places import scratch_directory

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="loop devices take root")


def test_power_cut_loses_what_was_not_flushed():
    with scratch_directory() as folder:
        (folder / "content").mkdir()
        make_image(folder / "disk.img", folder / "content", "8M")
        partition = Partition(folder / "disk.img")
        try:
            place = partition.mounted("rw")
            (place / "flushed").write_text("x")
            descriptor = os.open(place / "flushed", os.O_RDONLY)
            os.fsync(descriptor)
            os.close(descriptor)
            (place / "not flushed").write_text("x")
            partition.lose_power()
            found = {path.name for path in partition.mounted("rw").iterdir()}
            assert found - {"lost+found"} == {"flushed"}
        finally:
            partition.close()
