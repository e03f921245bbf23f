"""Mender's real client, in standalone mode: artifacts, and the installation on loop devices."""

import re
import shutil

from computer import OTHER
from loop_computer import LoopComputer, run
from support.places import TESTS
from systems import ENGINES

COMMANDS = ("mender", "mount", "umount", "cp", "grep", "mv", "sync", "sed", "mktemp", "rmdir",
            "stat", "rm")
FILES = TESTS / "fleet" / "system"
EXAMPLES = ENGINES / "mender"
DEVICE_TYPE = "field-computer"
# How often the boot loader starts a system that was not found good yet.
BOOT_LIMIT = 1


def configure(system, name):
    """Adds the files that an image builder adds to a system for Mender."""
    etc = system.root / "etc" / "mender"
    etc.mkdir()
    shutil.copy(EXAMPLES / "mender.conf", etc)
    (etc / "artifact_info").write_text(f"artifact_name={name}\n")
    (system.root / "var/lib").mkdir(parents=True)
    (system.root / "var/lib/mender").symlink_to("/data/mender")
    for tool in ("fw_printenv", "fw_setenv"):
        shutil.copy(FILES / tool, system.root / "usr/bin")


def make_update(folder, image, name):
    """An artifact with the state scripts."""
    artifact = folder / f"{name}.mender"
    scripts = sorted(EXAMPLES.glob("Artifact*"))
    run("mender-artifact", "write", "rootfs-image", f"--file={image}", f"--artifact-name={name}",
        f"--device-type={DEVICE_TYPE}", "--compression=none", "--no-progress",
        f"--output-path={artifact}", *(f"--script={script}" for script in scripts))
    return artifact


def make_computer(folder, power, image, version):
    computer = LoopComputer(folder, power, image, version)
    part = number(computer, "A")
    computer.environment.set(mender_boot_part=part, mender_boot_part_hex=f"{part:x}",
                             upgrade_available=0, bootcount=0)
    (computer.data / "mender").mkdir()
    (computer.data / "mender/device_type").write_text(f"device_type={DEVICE_TYPE}\n")
    return computer


def number(computer, slot):
    """The number of a slot's partition, as the boot loader knows it."""
    return int(re.search(r"\d+$", computer.slots[slot].device)[0])


class Mender:
    """The client of a computer on loop devices."""

    attempts = BOOT_LIMIT

    def __init__(self, computer):
        self.computer = computer
        self.output = ""

    def choose_slot(self):
        """Does the work of U-Boot: it counts the starts of an update, and goes back after too
        many."""
        variables = self.computer.environment.read()
        slots = {number(self.computer, slot): slot for slot in "AB"}
        slot = slots[int(variables["mender_boot_part"])]
        is_trial = variables["upgrade_available"] == "1"
        count = int(variables["bootcount"]) + 1
        if not is_trial:
            return slot, False
        if count <= BOOT_LIMIT:
            self.computer.environment.set(bootcount=count)
            return slot, True
        part = number(self.computer, OTHER[slot])
        self.computer.environment.set(mender_boot_part=part, mender_boot_part_hex=f"{part:x}",
                                      upgrade_available=0, bootcount=0)
        return OTHER[slot], False

    def _run(self, name, slot, *command, options=()):
        configuration = self.computer.folder / "mender.conf"
        text = (EXAMPLES / "mender.conf").read_text()
        for letter, partition in zip("AB", re.findall(r"/dev/\w+", text)):
            text = text.replace(partition, self.computer.slots[letter].device)
        configuration.write_text(text)
        self.computer.slots[OTHER[slot]].unmount()
        status, self.output = self.computer.run_engine(
            name, slot, *command,
            options=("--ro-bind", configuration, "/etc/mender/mender.conf", *options))
        return status

    def install(self, running, artifact):
        self.computer.power.point("before the installation")
        return self._run("the installation", running, "mender", "--no-syslog", "install",
                         "/run/update.mender",
                         options=("--ro-bind", artifact, "/run/update.mender"))

    def activate(self, slot):
        part = number(self.computer, slot)
        variables = (f"mender_boot_part {part}\nmender_boot_part_hex {part:x}\n"
                     "upgrade_available 1\nbootcount 0\n")
        self._run("the activation", OTHER[slot], "sh", "-c",
                  f"printf '{variables}' | fw_setenv -s -")

    def find_good(self, slot):
        """Commits the update. An ordinary start costs no attempt, so it has nothing to commit."""
        if self.computer.environment.read()["upgrade_available"] == "0":
            return
        status = self._run("finding it good", slot, "mender", "--no-syslog", "commit")
        assert status == 0, self.output
