"""The real RAUC: bundles, and the engine that installs them on loop devices."""

import shutil

from computer import ATTEMPTS, OTHER, choose_slot
from loop_computer import LoopComputer, run
from support.places import TESTS
from systems import APPLICATION, ENGINES

COMMANDS = ("rauc", "dbus-daemon", "mount", "umount", "sleep", "cp", "grep", "mv", "sync", "sed",
            "tr", "timeout")
FILES = TESTS / "fleet" / "system"
EXAMPLES = ENGINES / "rauc"
KEY, CERTIFICATE = "key.pem", "certificate.pem"


def configure(system, _name):
    """Adds the files that an image builder adds to a system for RAUC. Systems in the same folder
    have the same key."""
    etc = system.root / "etc"
    (etc / "rauc").mkdir()
    (etc / "bus-services").mkdir()
    example = (EXAMPLES / "system.conf").read_text()
    (etc / "rauc/system.conf").write_text(
        example.replace("/dev/disk/by-partlabel/", "/run/partitions/"))
    certificate = system.root.parent / CERTIFICATE
    if not certificate.exists():
        make_key(certificate.parent)
    shutil.copy(certificate, etc / "rauc/keyring.pem")
    (etc / "passwd").write_text("root:x:0:0:root:/:/bin/sh\n")
    shutil.copy(FILES / "bus.conf", etc)
    shutil.copy(FILES / "rauc.service", etc / "bus-services")
    for tool in ("fw_printenv", "fw_setenv", "systemctl", "with-bus"):
        shutil.copy(FILES / tool, system.root / "usr/bin")
    shutil.copy(EXAMPLES / "update-good", system.application)


def make_key(folder):
    """A key for bundles and its certificate."""
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=test",
        "-days", "3650", "-keyout", folder / KEY, "-out", folder / CERTIFICATE)


def make_update(folder, image, name):
    """A bundle made by the example of a manifest."""
    content = folder / f"{name}-bundle"
    content.mkdir()
    for file in ("hook", "manifest.raucm"):
        shutil.copy(EXAMPLES / file, content)
    shutil.copy(image, content / "system.ext4")
    bundle = folder / f"{name}.raucb"
    run("rauc", "bundle", f"--key={folder / KEY}", f"--cert={folder / CERTIFICATE}",
        "--mksquashfs-args=-noD -noF -noI -no-progress", content, bundle)
    shutil.rmtree(content)
    return bundle


class Rauc:
    """The engine of a computer on loop devices."""

    attempts = ATTEMPTS

    def __init__(self, computer):
        self.computer = computer
        self.output = ""
        self.is_trial = False

    def choose_slot(self):
        slot, self.is_trial = choose_slot(self.computer.environment)
        return slot, self.is_trial

    def _run(self, name, slot, *command, options=()):
        partitions = self.computer.folder / "partitions"
        shutil.rmtree(partitions, ignore_errors=True)
        partitions.mkdir()
        for letter in "AB":
            (partitions / f"system-{letter.lower()}").symlink_to(
                self.computer.slots[letter].device)
        line = self.computer.folder / "cmdline"
        trial = " trial-boot" if self.is_trial else ""
        line.write_text(f"quiet rauc.slot={slot}{trial}\n")
        # RAUC unmounts only what it has mounted.
        self.computer.slots[OTHER[slot]].unmount()
        status, self.output = self.computer.run_engine(
            name, slot, "/usr/bin/with-bus", *command,
            options=("--ro-bind", partitions, "/run/partitions", "--ro-bind", line,
                     "/proc/cmdline", *options))
        return status

    def install(self, running, bundle):
        self.computer.power.point("before the installation")
        return self._run("the installation", running, "rauc", "install", "/run/update.raucb",
                         options=("--ro-bind", bundle, "/run/update.raucb"))

    def activate(self, slot):
        self._run("the activation", OTHER[slot], "rauc", "status", "mark-active", "other")

    def find_good(self, slot):
        status = self._run("finding it good", slot, f"/{APPLICATION}/update-good")
        assert status == 0, self.output


def make_computer(folder, power, image, version):
    return LoopComputer(folder, power, image, version, BOOT_ORDER="A", BOOT_A_LEFT=ATTEMPTS,
                        BOOT_B_LEFT=0)
