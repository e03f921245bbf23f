"""The scratch device: a directory in place of the field computer's file system."""

import os
import pathlib
import shutil
import subprocess

from support.places import TESTS

ON_DEVICE = TESTS / "support" / "on_device.sh"
PROGRAM_NAME = "database-migrator"
SHELL = pathlib.Path("/usr/bin/sqlite3")


class Device:
    """The places of a device's files, its database, and programs that run on it.

    Device("") has the paths relative to any device. Device("/", pool="usr/bin/harlo/pool") is the
    device as a program inside the sandbox sees it.
    """

    def __init__(self, root, app="app", pool="pool"):
        self.root = pathlib.Path(root)
        self.app = self.root / app
        self.databases = self.app / "databases"
        self.database = self.databases / "my.db.sqlite"
        self.log_file = self.databases / "sqlMigrationErrorLog.txt"
        self.software_version = self.app / "quillmoor" / "softwareversion.txt"
        self.machines = self.app / "refMachines.sql"
        self.products = self.app / "refProducts.sql"
        self.platform = self.root / "etc" / "harlo" / "platform"
        self.registration = self.root / "Harlo" / "registration.xml"
        self.pool = self.root / pool

    def make_folders(self):
        """Makes the folders of all files; returns the device."""
        for folder in (self.databases, self.software_version.parent, self.platform.parent,
                       self.registration.parent, self.pool):
            folder.mkdir(parents=True, exist_ok=True)
        return self

    def fill(self, files):
        """Makes a device of these files and no others; the program in app/ stays.

        files: the content by the path on the device, None for a folder, a Path for a link to it.
        """
        # The sandbox mounts these four.
        for folder in (self.app, self.registration.parent, self.platform.parent, self.pool):
            folder.mkdir(parents=True, exist_ok=True)
            for path in folder.iterdir():
                if path.is_dir() and not path.is_symlink():
                    shutil.rmtree(path)
                elif path.name != PROGRAM_NAME:
                    path.unlink()
        for path, content in files.items():
            place = self.root / path
            place.parent.mkdir(parents=True, exist_ok=True)
            if content is None:
                place.mkdir()
            elif isinstance(content, pathlib.Path):
                place.symlink_to(content)
            else:
                place.write_bytes(content)

    def start(self, program, *arguments, locale="C", options="", environment=None,
              cpu_seconds=None, **streams):
        """Starts a program in the sandbox and returns its process.

        options: further options for bubblewrap, as one text; environment: variables for
        on_device.sh; cpu_seconds: the most processor time; streams: for subprocess.Popen.
        """
        limit = ["prlimit", f"--cpu={cpu_seconds}"] if cpu_seconds else []
        return subprocess.Popen(
            [*limit, ON_DEVICE, self.root, program, *arguments],
            env={**os.environ, "DEVICE_LOCALE": locale, "DEVICE_OPTIONS": options,
                 **(environment or {})}, **streams)

    def sql(self, statements):
        """Runs statements with the sqlite3 shell and returns what it prints."""
        # A scratch device need not survive a power cut.
        return subprocess.run(
            [SHELL, "-bail", "-cmd", "PRAGMA synchronous = OFF", self.database],
            input=statements, text=True, encoding="utf-8", check=True, capture_output=True).stdout

    def dump(self, *tables):
        """The dump of these tables; of the whole database if none is named."""
        return self.sql(f".dump {' '.join(tables)}")

    def versions(self):
        """The version rows, their values as SQL literals."""
        return self.sql("SELECT tableName, quote(version), quote(MirelVersion) FROM tableVersion;")

    def log(self):
        return self.log_file.read_bytes().decode("utf-8")
