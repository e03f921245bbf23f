"""A run works with any version rows: with odd values, and with missing rows."""

import pytest
from conftest import (NO_VERSION_TABLE, PRODUCT_ROWS, PRODUCT_SETTINGS, Trouble, column_not_added,
                      expected_log, opening_line)

STEP_2_DONE = "Database migration to version 2 completed successfully!\n"


@pytest.mark.parametrize("statement, trouble, versions", [
    pytest.param("DROP TABLE tableVersion;", NO_VERSION_TABLE, None, id="no table of versions"),
    pytest.param("DELETE FROM tableVersion;", Trouble(), "", id="the table stays without rows"),
    pytest.param("DELETE FROM tableVersion WHERE tableName = 'mainSqlDb';", Trouble(),
                 "altSqlDb|0|NULL\n", id="a missing main row is not added"),
])
def test_without_a_main_row_the_walk_begins_at_0(device, statement, trouble, versions):
    device.install(version=2)
    device.sql(statement)
    contents = device.contents()
    device.run("2")
    assert device.log() == expected_log(0, 2, STEP_2_DONE, (2, "1.2.3"), trouble)
    if versions is not None:
        assert device.versions() == versions
    assert device.contents() == contents


def store(device, row, literal):
    """Gives a row exactly this value. The column gets no type, since that would convert it."""
    device.sql("ALTER TABLE tableVersion RENAME TO typed;"
               "CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version, MirelVersion TEXT);"
               "INSERT INTO tableVersion SELECT * FROM typed; DROP TABLE typed;"
               f"UPDATE tableVersion SET version = {literal} WHERE tableName = '{row}';")


ODD_VERSIONS = pytest.mark.parametrize("literal, version", [
    pytest.param("NULL", 0, id="NULL is 0"),
    pytest.param("'two'", 0, id="a text is 0"),
    pytest.param("'2nd'", 0, id="a number with letters after it is 0"),
    pytest.param("''", 0, id="an empty text is 0"),
    pytest.param("-2147483648", -2147483648, id="the smallest number"),
    pytest.param("4294967297", 1, id="of a number beyond 32 bits the lower 32 count"),
    pytest.param("'4294967297'", 1, id="of the text of such a number as well"),
    pytest.param("'1'", 1, id="the text of a number is the number"),
])


@ODD_VERSIONS
def test_stored_version_below_2_meets_the_step_to_2(device, literal, version):
    device.install(version=2)
    contents = device.contents()
    store(device, "mainSqlDb", literal)
    device.run("2")
    assert device.log() == expected_log(version, 2, STEP_2_DONE, (2, "1.2.3"))
    assert device.versions() == f"mainSqlDb|2|'1.2.3'\naltSqlDb|{version}|NULL\n"
    assert device.contents() == contents


def test_version_that_the_tables_have_not_reached_is_applied_again(device):
    device.install(version=2)
    contents = device.contents()
    device.sql("DROP TABLE productControl_productSettings;" + PRODUCT_SETTINGS[1] + PRODUCT_ROWS)
    device.run("2")
    assert device.log() == expected_log(
        2, 2, "Corruption detected: applying update to db for version 2\n" + STEP_2_DONE)
    assert device.versions() == "mainSqlDb|2|'1.2.3'\naltSqlDb|1|NULL\n"
    assert device.contents() == contents


@pytest.mark.parametrize("target, alternate", [
    pytest.param(2147483647, 1, id="where nothing is recorded"),
    pytest.param(2, 2147483647, id="down to version 2"),
])
def test_largest_number_as_version_leaves_version_2_alone(device, target, alternate):
    device.install(version=2)
    device.sql("UPDATE tableVersion SET version = 2147483647 WHERE tableName = 'mainSqlDb';"
               "UPDATE productControl_productSettings SET calibratedInUsUnits = 1;")
    kept = device.dump("productControl_productSettings", "soilSamples")
    device.run(str(target), cpu_seconds=2)
    assert device.log().startswith(opening_line(2147483647, target))
    assert device.versions().endswith(f"\naltSqlDb|{alternate}|NULL\n")
    assert device.dump("productControl_productSettings", "soilSamples") == kept


@pytest.mark.parametrize("stored, target", [
    pytest.param(2147483647, -2147483648, id="downwards"),
    pytest.param(-2147483648, 2147483647, id="upwards"),
])
def test_walk_between_the_ends_of_the_numbers_ends_at_once(device, stored, target):
    device.install(version=2)
    device.sql(f"UPDATE tableVersion SET version = {stored} WHERE tableName = 'mainSqlDb';")
    samples = device.dump("soilSamples")
    device.run(str(target), cpu_seconds=2)
    assert device.log().startswith(opening_line(stored, target))
    assert device.versions().endswith(f"\naltSqlDb|{stored}|NULL\n")
    assert device.dump("soilSamples") == samples


def test_smallest_number_as_version_and_target_changes_nothing(device):
    device.install(version=2)
    device.sql("UPDATE tableVersion SET version = -2147483648;")
    database = device.database.read_bytes()
    device.run("-2147483648")
    assert device.log() == expected_log(-2147483648, -2147483648)
    assert device.database.read_bytes() == database


@ODD_VERSIONS
def test_alternate_version_is_the_target_without_an_argument(device, literal, version):
    device.install(version=1)
    contents = device.contents()
    store(device, "altSqlDb", literal)
    device.run()
    assert device.log() == expected_log(1, version, update=(1, ""))
    assert device.versions() == "mainSqlDb|1|''\naltSqlDb|1|NULL\n"
    assert device.contents() == contents


def test_missing_alternate_row_is_target_0_and_is_not_added(device):
    device.install(version=1)
    device.sql("DELETE FROM tableVersion WHERE tableName = 'altSqlDb';")
    contents = device.contents()
    device.run()
    assert device.log() == expected_log(1, 0, update=(1, ""))
    assert device.versions() == "mainSqlDb|1|''\n"
    assert device.contents() == contents


def test_largest_number_as_alternate_version_ends_at_once(device):
    device.install(version=2, alternate=2147483647)
    kept = device.dump("productControl_productSettings", "soilSamples")
    device.run(cpu_seconds=2)
    assert device.log().startswith(opening_line(2, 2147483647))
    assert device.versions().endswith("\naltSqlDb|2|NULL\n")
    assert device.dump("productControl_productSettings", "soilSamples") == kept


def version_table(device):
    return device.sql("SELECT sql FROM sqlite_master WHERE name = 'tableVersion';")


def test_missing_software_version_column_is_added(device):
    device.install(version=2)
    device.sql("ALTER TABLE tableVersion DROP COLUMN MirelVersion;")
    assert version_table(device) == (
        "CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER)\n")
    contents = device.contents()
    device.run("2")
    assert device.log() == expected_log(2, 2, update=(2, "1.2.3"))
    assert version_table(device) == ("CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, "
                                     "version INTEGER, MirelVersion TEXT)\n")
    assert device.versions() == "mainSqlDb|2|'1.2.3'\naltSqlDb|2|NULL\n"
    assert device.contents() == contents


def test_added_software_version_column_equals_a_missing_software_version(device):
    device.install(version=2)
    device.software_version.unlink()
    device.sql("ALTER TABLE tableVersion DROP COLUMN MirelVersion;")
    device.run("2")
    assert device.log() == expected_log(2, 2)
    assert device.versions() == "mainSqlDb|2|NULL\naltSqlDb|1|NULL\n"


def test_software_version_column_in_other_letters_is_read_all_the_same(device):
    device.install(version=2)
    device.sql("ALTER TABLE tableVersion RENAME COLUMN MirelVersion TO mirelversion;")
    database = device.database.read_bytes()
    device.run("2")
    assert device.log() == expected_log(2, 2, trouble=Trouble(
        start_up=column_not_added("duplicate column name: MirelVersion")))
    assert device.database.read_bytes() == database
