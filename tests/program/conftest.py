"""The device on which the tests run the built program."""

import os
import pathlib
import subprocess
import tempfile

import pytest

SUPPORT = pathlib.Path(__file__).parent.parent / "support"
DATA = pathlib.Path(__file__).parent.parent / "data"


class Device:
    """A scratch device: its files, its database and runs of the program on it."""

    def __init__(self, root):
        self.root = root
        self.app = root / "app"
        self.database = self.app / "databases" / "my.db.sqlite"
        self.log_file = self.app / "databases" / "sqlMigrationErrorLog.txt"
        self.software_version = self.app / "quillmoor" / "softwareversion.txt"
        self.platform = root / "etc" / "harlo" / "platform"
        self.registration = root / "Harlo" / "registration.xml"
        self.pool = root / "pool"
        for directory in (self.database.parent, self.software_version.parent,
                          self.platform.parent, self.registration.parent, self.pool):
            directory.mkdir(parents=True)

    def sql(self, statements):
        """Runs statements with the sqlite3 shell and returns what it prints."""
        return subprocess.run(["sqlite3", "-bail", self.database], input=statements, text=True,
                              encoding="utf-8", check=True, capture_output=True).stdout

    def dump(self):
        return self.sql(".dump")

    def run(self, *arguments, locale="C", options="", timeout=60):
        """Runs the program; it must end with 0 and leave the terminal alone."""
        environment = dict(os.environ, DEVICE_LOCALE=locale, DEVICE_OPTIONS=options)
        run = subprocess.run(
            [SUPPORT / "on_device.sh", self.root, os.environ["DATABASE_MIGRATOR"], *arguments],
            env=environment, stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
        assert (run.returncode, run.stdout, run.stderr) == (0, b"", b"")

    def log(self):
        return self.log_file.read_text(encoding="utf-8")


@pytest.fixture
def device():
    with tempfile.TemporaryDirectory(prefix="device.") as root:
        yield Device(pathlib.Path(root))
