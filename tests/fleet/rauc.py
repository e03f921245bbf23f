"""RAUC as it is: bundles, and the engine that installs them on loop devices."""

import shutil

from computer import OTHER, choose_slot
from loop_computer import SYSTEM_SIZE, LoopComputer, make_image, run
from support.places import TESTS
from systems import APPLICATION, ENGINES

COMMANDS = ("rauc", "dbus-daemon", "mount", "umount", "sleep", "cp", "grep", "mv", "sync", "sed",
            "tr")
FILES = TESTS / "fleet" / "system"
EXAMPLES = ENGINES / "rauc"


def configure(system, keyring):
    """What an image builder adds to a system for RAUC, and what takes the place of its start-up."""
    etc = system.root / "etc"
    (etc / "rauc").mkdir()
    (etc / "bus-services").mkdir()
    example = (EXAMPLES / "system.conf").read_text()
    (etc / "rauc/system.conf").write_text(
        example.replace("/dev/disk/by-partlabel/", "/run/partitions/"))
    shutil.copy(keyring, etc / "rauc/keyring.pem")
    (etc / "passwd").write_text("root:x:0:0:root:/:/bin/sh\n")
    shutil.copy(FILES / "bus.conf", etc)
    shutil.copy(FILES / "rauc.service", etc / "bus-services")
    for tool in ("fw_printenv", "fw_setenv", "with-bus"):
        shutil.copy(FILES / tool, system.root / "usr/bin")
    shutil.copy(EXAMPLES / "commit", system.application / "commit-update")


def make_keys(folder):
    """A key and its certificate; returns their files."""
    key, certificate = folder / "key.pem", folder / "certificate.pem"
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=test",
        "-days", "3650", "-keyout", key, "-out", certificate)
    return key, certificate


def make_bundle(folder, image, keys, has_hook):
    """A bundle as the example of a manifest has it."""
    content = folder / "bundle"
    content.mkdir()
    manifest = (EXAMPLES / "manifest.raucm").read_text()
    if has_hook:
        shutil.copy(EXAMPLES / "hook", content)
    else:
        manifest = manifest.replace("[hooks]\nfilename=hook\n", "").replace(
            "hooks=post-install\n", "")
    (content / "manifest.raucm").write_text(manifest)
    shutil.copy(image, content / "system.ext4")
    run("rauc", "bundle", f"--key={keys[0]}", f"--cert={keys[1]}",
        "--mksquashfs-args=-noD -noF -noI -no-progress", content, folder / "update.raucb")
    shutil.rmtree(content)
    return folder / "update.raucb"


class Rauc:
    """The engine of a computer on loop devices."""

    def __init__(self, computer):
        self.computer = computer

    def choose_slot(self):
        return choose_slot(self.computer.environment)

    def _run(self, name, slot, *command, options=()):
        partitions = self.computer.folder / "partitions"
        shutil.rmtree(partitions, ignore_errors=True)
        partitions.mkdir()
        for letter in "AB":
            (partitions / f"system-{letter.lower()}").symlink_to(
                self.computer.slots[letter].device)
        line = self.computer.folder / "cmdline"
        line.write_text(f"quiet rauc.slot={slot}\n")
        return self.computer.run_engine(
            name, slot, "/usr/bin/with-bus", *command,
            options=("--ro-bind", partitions, "/run/partitions", "--ro-bind", line,
                     "/proc/cmdline", *options))

    def install(self, running, bundle):
        point = self.computer.power.point
        point("before the installation")
        self.computer.slots[OTHER[running]].unmount()
        status, output = self._run(
            "the installation", running, "rauc", "install", "/run/update.raucb",
            options=("--ro-bind", bundle, "/run/update.raucb"))
        self.output = output
        return status

    def activate(self, slot):
        self._run("the activation", OTHER[slot], "rauc", "status", "mark-active", "other")

    def commit(self, slot):
        status, output = self._run("the commit", slot, f"/{APPLICATION}/commit-update")
        assert status == 0, output


def make_computer(folder, power, image, version):
    return LoopComputer(folder, power, image, version, BOOT_ORDER="A", BOOT_A_LEFT=3,
                        BOOT_B_LEFT=0, good_slot="A")


def make_system_image(path, system):
    make_image(path, SYSTEM_SIZE, system.root)
