"""An emulated computer that starts Debian, the units of packaging with the drop-ins for two
systems, and stand-ins for the device software and the update engine."""

import contextlib
import copy
import pathlib
import shutil
import sqlite3
import subprocess
import time

from support.places import DEMO, ROOT
from support.versions import NEWEST, dump_of

HERE = pathlib.Path(__file__).resolve().parent
STAND_INS = HERE / "stand-ins"
UNITS = ROOT / "packaging" / "systemd"
ENGINES = ROOT / "packaging" / "update-engines"
BUILD = ROOT / "build" / "dev"
APPLICATION = "usr/lib/fieldcomputer"
PACKAGES = ("systemd", "systemd-sysv", "udev", "linux-image-cloud-amd64", "initramfs-tools",
            "libqt5core5a", "libqt5sql5", "libqt5xml5", "libqt5sql5-sqlite", "libsqlite3-0",
            "bubblewrap", "sqlite3")
# The units' messages come over the serial line. A restart ends the machine.
KERNEL_OPTIONS = ("root=/dev/vda ro console=ttyS0 quiet panic=-1 systemd.show_status=0"
                  " systemd.journald.forward_to_console=1 rauc.slot=A")
FILE_SYSTEMS = """\
/dev/vda / ext4 ro 0 1
/dev/vdb /data ext4 nofail 0 2
tmpfs /tmp tmpfs defaults 0 0
tmpfs /var tmpfs defaults 0 0
"""
# Units that only cost time here.
UNUSED_UNITS = ("dbus.service", "e2scrub_reap.service", "getty.target", "systemd-logind.service",
                "systemd-random-seed.service")
SECONDS = 600  # for a start on a busy machine


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def debian(folder):
    """A Debian with what the programs need, made once; returns its root directory."""
    root = folder / "debian"
    if not root.exists():
        begun = folder / "debian.begun"
        shutil.rmtree(begun, ignore_errors=True)
        mirror = run("apt-get", "indextargets", "--format", "$(SITE)", "Created-By: Packages",
                     "Codename: bookworm").splitlines()[0]
        run("debootstrap", "--variant=minbase", f"--include={','.join(PACKAGES)}", "bookworm",
            begun, mirror)
        begun.rename(root)
    return root


def install(root):
    """Installs what an image has: the programs, the units and the device software."""
    application = root / APPLICATION
    application.mkdir(parents=True)
    for file in (BUILD / "database-migrator", BUILD / "guard" / "migration-guard",
                 BUILD / "schema-versions.json", DEMO / "refMachines.sql",
                 DEMO / "refProducts.sql", ENGINES / "update-check",
                 ENGINES / "rauc" / "update-good", STAND_INS / "device-software"):
        shutil.copy2(file, application)
    (application / "schemaversion.txt").write_text(f"{NEWEST}\n")
    (application / "databases").symlink_to("/data/databases")
    (root / "usr/bin/harlo/pool").mkdir(parents=True)
    (root / "data").mkdir()
    (root / "etc/fstab").write_text(FILE_SYSTEMS)
    system = root / "etc/systemd/system"
    for unit, drop_in in (("migration-guard", "fall-back"),
                          ("migration-guard-trial", "first-start")):
        shutil.copy(UNITS / f"{unit}.service", system)
        (system / f"{unit}.service.d").mkdir()
        for file in (UNITS / "sandbox.conf", ENGINES / "systemd" / f"{drop_in}.conf"):
            shutil.copy(file, system / f"{unit}.service.d")
    stand_ins = sorted(STAND_INS.glob("*.service"))
    for unit in (ENGINES / "systemd" / "update-good.service", *stand_ins):
        shutil.copy(unit, system)
    for tool in ("rauc", "fw_printenv", "fw_setenv"):
        shutil.copy2(STAND_INS / tool, root / "usr/bin")
    run("systemctl", f"--root={root}", "mask", *UNUSED_UNITS)
    run("systemctl", f"--root={root}", "enable", "migration-guard", "migration-guard-trial",
        "update-good", *(unit.stem for unit in stand_ins))


class Machine:
    """The disk of the system, which no start changes, and how to start it."""

    def __init__(self, folder):
        """folder: the place of the disk, the kernel and the files made from them"""
        self.folder = folder
        folder.mkdir(parents=True, exist_ok=True)
        root = debian(folder)
        self.kernel, = (root / "boot").glob("vmlinuz-*")
        self.initial_disk, = (root / "boot").glob("initrd.img-*")
        self.disk = folder / "system.ext4"
        self.root = folder / "system"
        shutil.rmtree(self.root, ignore_errors=True)
        run("cp", "--archive", root, self.root)
        install(self.root)
        self.disk.unlink(missing_ok=True)
        run("mkfs.ext4", "-q", "-d", self.root, self.disk, "900M")

    def without(self, file):
        """The same machine without one file of its system."""
        other = copy.copy(self)
        other.disk = self.folder / "changed.ext4"
        run("cp", "--sparse=always", self.disk, other.disk)
        run("debugfs", "-w", "-R", f"rm /{file}", other.disk)
        return other

    @contextlib.contextmanager
    def started(self, data, options=""):
        """A machine that starts with this data disk. At the end it is killed, as by a power cut:
        data that the emulated kernel has not written is lost."""
        with subprocess.Popen(
                ["qemu-system-x86_64", "-machine", "q35,accel=tcg", "-m", "512", "-no-reboot",
                 "-display", "none", "-monitor", "none", "-serial", "stdio", "-nic", "none",
                 "-kernel", self.kernel, "-initrd", self.initial_disk,
                 "-append", f"{KERNEL_OPTIONS} {options}",
                 "-drive", f"file={self.disk},if=virtio,format=raw,snapshot=on",
                 "-drive", f"file={data},if=virtio,format=raw"],
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, text=True, errors="replace") as process:
            try:
                yield process
            finally:
                process.kill()

    def run(self, data, options=""):
        """Starts the machine and waits until it ends by itself; returns what it printed."""
        with self.started(data, options) as process:
            text, _ = process.communicate(timeout=SECONDS)
            return text

    def cut(self, data, after, delay):
        """Starts the machine and cuts its power so many seconds after it has printed a text."""
        with self.started(data) as process:
            for line in process.stdout:
                if after in line:
                    time.sleep(delay)
                    return


class DataDisk:
    """A data partition with the directory of the database, as a file."""

    size = "32M"

    def __init__(self, folder, statements=""):
        """The database is at version 1, with statements executed in it."""
        self.folder = folder
        self.path = folder / "data.ext4"
        databases = folder / "data" / "databases"
        databases.mkdir(parents=True)
        with contextlib.closing(sqlite3.connect(databases / "my.db.sqlite")) as database:
            database.executescript(dump_of(1) + statements)
        run("mkfs.ext4", "-q", "-d", databases.parent, self.path, self.size)

    def destroy(self):
        """Overwrites the file system, so it cannot be mounted."""
        self.path.unlink()
        run("truncate", f"--size={self.size}", self.path)

    def files(self):
        """The directory of the database as the next start finds it; returns where it is."""
        found = self.folder / "found"
        shutil.rmtree(found, ignore_errors=True)
        found.mkdir()
        image = found / "data.ext4"
        shutil.copy(self.path, image)
        # As at a start, the file system's own journal is replayed first.
        subprocess.run(["e2fsck", "-fy", image], capture_output=True, check=False)
        run("debugfs", "-R", f"rdump /databases {found}", image)
        return found / "databases"
