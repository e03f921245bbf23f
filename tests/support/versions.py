"""The versions of the catalogue, as the program's registry lists them, and their dumps."""

import re

from support.places import DATA, ROOT

ROW = re.compile(r"^\s*\{(\d+), &M::updateToVersion\d+,", re.MULTILINE)


def newest_of(registry):
    """The newest version of a registry's source."""
    return max(map(int, ROW.findall(registry.read_text(encoding="utf-8"))))


# Tests, campaigns and benchmarks all take the newest version from here.
NEWEST = newest_of(ROOT / "app" / "registry.cpp")
VERSIONS = range(1, NEWEST + 1)


def file_of(version):
    return DATA / f"version_{version:02}.sql"


def dump_of(version):
    """The whole device database at a version, as the walk from version 1 leaves it."""
    return file_of(version).read_text(encoding="utf-8")
