"""The dumps of the device database are what the program makes of version 1."""

import re

import pytest
from dumps import with_stand_ins
from steps import STEPS, taken_out
from support.versions import VERSIONS, dump_of
from walks import assert_same, device_with, walk

TABLES_WITH_IDENTIFIERS = ("PC_Carrier", "PC_Mix", "PC_PlanterVariety")


def test_every_version_of_the_registry_has_its_row():
    assert ([*STEPS], [*taken_out()]) == ([*VERSIONS[1:]], [*VERSIONS[1:]])


@pytest.mark.parametrize("version", VERSIONS[1:])
def test_walk_forward_leaves_the_dump_of_the_version(version):
    assert_same(walk(dump_of(1), version).dump, dump_of(version))


@pytest.mark.parametrize("version", VERSIONS)
def test_dump_is_whole(version):
    with device_with(dump_of(version)) as device:
        assert_same(device.dump(), dump_of(version))


def test_identifiers_of_version_31_are_new_in_every_run():
    def identifiers():
        with device_with(dump_of(30)) as device:
            device.run("31")
            return device.sql("".join(f"SELECT uuid FROM {table} WHERE uuid LIKE '{{%';"
                                      for table in TABLES_WITH_IDENTIFIERS)).split()

    first, second = identifiers(), identifiers()
    # Seven of the eleven carriers have fixed identifiers, without braces.
    assert (len(first), len(second)) == (4 + 15 + 11, 4 + 15 + 11)
    assert len({*first, *second}) == len(first) + len(second)
    form = re.compile(r"\{[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\}")
    assert all(form.fullmatch(identifier) for identifier in first + second)


@pytest.mark.parametrize("identifier", (
    "{7B29DB60-6867-421a-9e7d-22675ba1b47d}", "7b29db60-6867-421a-9e7d-22675ba1b47d",
    "{7b29db60-6867-121a-9e7d-22675ba1b47d}", "{7b29db60-6867-421a-ce7d-22675ba1b47d}"))
def test_stand_in_is_for_random_identifiers_only(identifier):
    row = f"INSERT INTO PC_Mix VALUES(1,'Mix','{identifier}');\n"
    assert with_stand_ins(row) == row


def test_stand_in_is_for_the_first_of_equal_identifiers_only():
    identifier = "{7b29db60-6867-421a-9e7d-22675ba1b47d}"
    rows = [f"INSERT INTO PC_Mix VALUES({row},'Mix','{identifier}',NULL);\n" for row in (3, 4)]
    assert with_stand_ins("".join(rows)) == (
        "INSERT INTO PC_Mix VALUES(3,'Mix','{00000002-0000-4000-8000-000000000003}',NULL);\n"
        + rows[1])
