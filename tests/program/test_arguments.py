"""The first argument is the target version; without one a run goes back to the version before."""

import pytest
from conftest import expected_log, opening_line


@pytest.mark.parametrize("argument, target", [
    pytest.param("abc", 0, id="a text is 0"),
    pytest.param("", 0, id="an empty text is 0"),
    pytest.param("12abc", 0, id="a number with letters after it is 0"),
    pytest.param("1.5", 0, id="a number with a fraction is 0"),
    pytest.param("0x2", 0, id="a number in another base is 0"),
    pytest.param("-5", -5, id="a negative number"),
    pytest.param("-2147483648", -2147483648, id="the smallest number"),
    pytest.param("-2147483649", 0, id="one below the smallest number is 0"),
    pytest.param("2147483648", 0, id="one above the largest number is 0"),
    pytest.param("99999999999", 0, id="a number far beyond 32 bits is 0"),
])
def test_target_below_the_oldest_version_changes_no_table(device, argument, target):
    device.install(version=1)
    contents = device.contents()
    device.run(argument)
    assert device.log() == expected_log(1, target, update=(1, "1.2.3"))
    assert device.versions() == "mainSqlDb|1|'1.2.3'\naltSqlDb|1|NULL\n"
    assert device.contents() == contents


@pytest.mark.parametrize("argument, target", [
    pytest.param(" 12", 12, id="a blank before the number"),
    pytest.param("+5", 5, id="a number with a plus sign"),
    pytest.param("007", 7, id="a number with leading zeros"),
    pytest.param("40", 40, id="a number above the newest version"),
    pytest.param("2147483647", 2147483647, id="the largest number"),
])
def test_target_above_the_current_version_is_taken_whole(device, argument, target):
    device.install(version=2)
    device.sql("UPDATE productControl_productSettings SET calibratedInUsUnits = 1;")
    kept = device.dump("productControl_productSettings", "soilSamples")
    device.run(argument, cpu_seconds=2)
    assert device.log().startswith(opening_line(2, target))
    assert device.versions().endswith("\naltSqlDb|2|NULL\n")
    assert device.dump("productControl_productSettings", "soilSamples") == kept


@pytest.mark.parametrize("arguments", [
    pytest.param(["2"], id="the number alone"),
    pytest.param([" 2"], id="a blank before the number"),
    pytest.param(["2 "], id="a blank after the number"),
    pytest.param(["+2"], id="a plus sign"),
    pytest.param(["002"], id="leading zeros"),
    pytest.param(["2", "1"], id="further arguments are ignored"),
])
def test_target_that_is_the_current_version_changes_nothing(device, arguments):
    device.install(version=2)
    database = device.database.read_bytes()
    device.run(*arguments)
    assert device.log() == expected_log(2, 2)
    assert device.database.read_bytes() == database


def test_without_an_argument_every_run_goes_back_to_the_version_before(device):
    device.install(version=2, alternate=1)
    contents = device.contents()
    at_version_1 = expected_log(2, 1, update=(1, ""))
    device.run()
    assert device.log() == at_version_1
    assert device.versions() == "mainSqlDb|1|''\naltSqlDb|2|NULL\n"
    device.run()
    assert device.log() == at_version_1 + expected_log(
        1, 2, "Database migration to version 2 completed successfully!\n", update=(2, ""))
    assert device.versions() == "mainSqlDb|2|''\naltSqlDb|1|NULL\n"
    assert device.contents() == contents


def test_without_an_argument_the_same_version_before_is_recorded_again(device):
    device.install(version=2, alternate=2)
    contents = device.contents()
    device.run()
    assert device.log() == expected_log(2, 2, update=(2, ""))
    assert device.versions() == "mainSqlDb|2|''\naltSqlDb|2|NULL\n"
    assert device.contents() == contents
