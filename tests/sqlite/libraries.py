"""SQLite libraries of other versions, built from the sources that npm packages of SQLite bindings
carry. The packages and the libraries are kept in build/sqlite/."""

import dataclasses
import os
import re
import shutil
import subprocess
import sys
import tarfile

# SQLite's version: the npm package that carries its source.
PACKAGES = {
    "3.8.7.1": "sqlite3@3.0.5",
    "3.9.1": "sqlite3@3.1.4",
    "3.15.0": "sqlite3@4.0.0",
    "3.24.0": "sqlite3@4.0.2",
    "3.25.2": "better-sqlite3@5.0.0",
    "3.26.0": "sqlite3@4.0.6",
    "3.28.0": "sqlite3@4.1.0",
    "3.29.0": "better-sqlite3@5.4.1",
    "3.31.1": "better-sqlite3@6.0.1",
    "3.32.0": "better-sqlite3@7.1.0",
    "3.33.0": "better-sqlite3@7.1.1",
    "3.35.2": "better-sqlite3@7.4.0",
    "3.38.5": "better-sqlite3@7.5.3",
    "3.40.1": "better-sqlite3@8.1.0",
    "3.42.0": "better-sqlite3@8.5.2",
    "3.44.2": "better-sqlite3@9.2.2",
    "3.46.0": "better-sqlite3@11.0.0",
    "3.47.2": "better-sqlite3@11.7.2",
    "3.50.4": "better-sqlite3@12.4.1",
    "3.54.1": "better-sqlite3@13.2.0",
}
# Debian 12's version. The golden dumps were made with it, and the other versions are compared with
# them.
REFERENCE = "3.40.1"
# Before this version a library accepts texts in double quotes, whatever it was built with.
FIRST_WITH_DQS = (3, 29)
# The guard refuses an older library.
FIRST_FOR_GUARD = (3, 33)
# Compile options that are tried with the reference.
REFUSING_TEXTS = ("SQLITE_DQS=0", "SQLITE_DQS=2")
OPTIONS = ("SQLITE_DQS=1", "SQLITE_DQS=2", "SQLITE_DEFAULT_LEGACY_ALTER_TABLE")
VERSION = re.compile(r'^#define SQLITE_VERSION +"([\d.]+)"', re.MULTILINE)


@dataclasses.dataclass(frozen=True)
class Library:
    version: str
    option: str = ""  # a compile option

    def __str__(self):
        return f"{self.version} {self.option}".strip()

    def build(self, folder):
        """Builds the library unless it is there; returns its folder."""
        place = folder / "libraries" / str(self).replace(" ", "-")
        library = place / "libsqlite3.so.0"
        if not library.exists():
            place.mkdir(parents=True, exist_ok=True)
            built = place / "unfinished.so"
            # Qt's driver asks for the table of a column.
            options = ["-DSQLITE_ENABLE_COLUMN_METADATA"]
            options += [f"-D{self.option}"] if self.option else []
            subprocess.run(
                ["cc", "-w", "-shared", "-fPIC", "-Wl,-soname,libsqlite3.so.0", *options,
                 "-o", built, source(self.version, folder), "-lpthread", "-ldl", "-lm"],
                check=True)
            built.rename(library)
        return place


def as_numbers(version):
    return tuple(map(int, version.split(".")))


def libraries():
    """All libraries: those without an option first, those that refuse double-quoted texts last."""
    yield from map(Library, PACKAGES)
    for option in OPTIONS:
        yield Library(REFERENCE, option)
    for version in PACKAGES:
        if as_numbers(version) >= FIRST_WITH_DQS:
            yield Library(version, "SQLITE_DQS=0")


def source(version, folder):
    """The amalgamation of a version; its package is fetched if it is not there."""
    place = folder / "sources" / version
    amalgamation = place / "sqlite3.c"
    if not amalgamation.exists():
        if not shutil.which("npm"):
            sys.exit("Takes npm: see packages.txt")
        place.mkdir(parents=True, exist_ok=True)
        packed = subprocess.run(
            ["npm", "pack", "--silent", PACKAGES[version]], cwd=place, check=True, text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE).stdout.split()[-1]
        text = amalgamation_in(place / packed)
        (place / packed).unlink()
        if VERSION.search(text)[1] != version:
            sys.exit(f"{PACKAGES[version]} carries SQLite {VERSION.search(text)[1]}")
        unfinished = place / "unfinished.c"
        unfinished.write_text(text, encoding="utf-8")
        os.replace(unfinished, amalgamation)
    return amalgamation


def amalgamation_in(package):
    """The text of the sqlite3.c in an archive, or in an archive in it."""
    with tarfile.open(package) as archive:
        return search(archive)


def search(archive):
    for member in archive:
        name = member.name.rpartition("/")[2]
        if name == "sqlite3.c":
            return archive.extractfile(member).read().decode()
        if "sqlite" in name and name.endswith(".tar.gz"):
            with tarfile.open(fileobj=archive.extractfile(member)) as inner:
                return search(inner)
    return None
