"""A field computer whose systems and data are file systems on loop devices."""

import shutil
import subprocess
import time

from computer import Computer, make_database

SYSTEM_SIZE, DATA_SIZE = "160M", "32M"
SECONDS_FOR_DETACHING = 60


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def make_image(path, content, size=SYSTEM_SIZE):
    """A file system with these files."""
    run("mkfs.ext4", "-q", "-F", "-d", content, path, size)


class Partition:
    """A file as a block device, with a place where it can be mounted.

    Data that the kernel has not written to the device is not in the file.
    """

    def __init__(self, image):
        self.image = image
        self.device = run("losetup", "--find", "--show", image)
        self.place = image.with_suffix(".mounted")
        self.place.mkdir()
        self._options = None

    def mounted(self, options):
        """Mounts the device unless it is mounted; returns the place."""
        if not self._options:
            run("mount", "-o", options, self.device, self.place)
            self._options = options
        return self.place

    def unmount(self):
        if self._options:
            run("umount", self.place)
            self._options = None

    def lose_power(self):
        """Loses the data that is not in the file. The device keeps its name."""
        copy = self.image.with_suffix(".copy")
        run("cp", "--sparse=always", self.image, copy)
        self.close()
        copy.rename(self.image)
        self._attach_again()

    def _attach_again(self):
        """Waits, since the kernel keeps the old file until the last of the old processes ends."""
        for _ in range(SECONDS_FOR_DETACHING * 50):
            attached = subprocess.run(["losetup", self.device, self.image], capture_output=True,
                                      check=False)
            if attached.returncode == 0:
                return
            time.sleep(0.02)
        raise TimeoutError(f"{self.device} is not free")

    def close(self):
        self.unmount()
        run("losetup", "--detach", self.device)


class LoopComputer(Computer):
    """Two systems and the data on devices. A power cut loses data that was not flushed."""

    def __init__(self, folder, power, image, version, **variables):
        """image: of the system in slot A
        version: of the database"""
        super().__init__(folder, power, **variables)
        make_database(folder / "content", version)
        make_image(folder / "data.img", folder / "content", DATA_SIZE)
        run("cp", "--sparse=always", image, folder / "system-A.img")
        run("truncate", f"--size={SYSTEM_SIZE}", folder / "system-B.img")
        self.slots = {}
        self._data = Partition(folder / "data.img")
        for slot in "AB":
            self.slots[slot] = Partition(folder / f"system-{slot}.img")

    @property
    def data(self):
        return self._data.mounted("rw")

    def root_of(self, slot):
        return self.slots[slot].mounted("ro")

    def run_engine(self, name, slot, *command, options=()):
        """Runs a command that may mount and write devices in a system."""
        return self.run(name, slot, *command, options=(
            "--dev-bind", "/dev", "/dev", "--ro-bind", "/sys", "/sys", "--cap-add", "ALL",
            *options))

    def lose_power(self):
        for partition in (self._data, *self.slots.values()):
            partition.lose_power()
        super().lose_power()

    def close(self):
        for partition in (self._data, *self.slots.values()):
            partition.close()
        shutil.rmtree(self.folder / "content")
