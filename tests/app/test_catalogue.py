"""The catalogue's files name their versions as the class header does, in the same order."""

import re

from support.places import ROOT
from support.versions import VERSIONS

HEADING = re.compile(r"// (?:---- )?Version (\d+): (.+?\.)(?: -+)?$", re.MULTILINE)
OPERATIONS = re.compile(
    r"DatabaseMigrator::(?:updateToVersion|revertFromVersion|getUpdate)(\d+)(?:Applied)?\(")


def headings(text):
    return [(int(version), sentence) for version, sentence in HEADING.findall(text)]


HEADER = headings((ROOT / "app" / "database_migrator.h").read_text(encoding="utf-8"))
FILES = sorted((ROOT / "migrations").glob("*.cpp"))


def test_header_names_every_version_of_the_registry():
    assert [version for version, _ in HEADER] == [*VERSIONS[1:]]


def test_files_in_the_order_of_their_names_have_the_headings_of_the_header():
    assert [heading for file in FILES
            for heading in headings(file.read_text(encoding="utf-8"))] == HEADER


def test_every_operation_is_below_the_heading_of_its_version():
    for file in FILES:
        version = None
        for line in file.read_text(encoding="utf-8").splitlines():
            heading = headings(line)
            if heading:
                version = heading[0][0]
            operation = OPERATIONS.search(line)
            if operation and not line.startswith(" "):
                assert int(operation[1]) == version, f"{file.name}: {line}"


def test_files_are_built_in_the_order_of_their_names():
    sources = re.findall(r"^ *migrations/(.+)$",
                         (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.MULTILINE)
    assert sources == [file.name for file in FILES]
