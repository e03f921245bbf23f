"""Text files, the log and the database's texts are UTF-8 in every locale."""

import pytest
from conftest import expected_log

locales = pytest.mark.parametrize("locale", ["C", "POSIX", "C.UTF-8", "no_SUCH.locale"])


@locales
def test_walk_keeps_every_script(device, locale):
    device.install(version=1, stored="1.0", software="1.2.3-größer-版")
    contents = device.contents()
    device.run("2", locale=locale)
    device.run("1", locale=locale)
    assert device.log() == expected_log(
        1, 2, "Database migration to version 2 completed successfully!\n",
        (2, "1.2.3-größer-版")) + expected_log(2, 1, update=(1, "1.2.3-größer-版"))
    assert device.versions() == "mainSqlDb|1|'1.2.3-größer-版'\naltSqlDb|2|NULL\n"
    assert device.contents() == contents


@locales
def test_stored_software_version_is_compared_in_every_script(device, locale):
    device.install(version=2, stored="größer-版", software="größer-版")
    device.run("2", locale=locale)
    assert device.log() == expected_log(2, 2)


@locales
def test_error_text_of_a_step_is_in_latin_1_written_as_utf_8(device, locale):
    device.install(version=1)
    device.sql("UPDATE productControl_productSettings SET displayName = 'x''größer版'"
               " WHERE productId = 'c9';")
    rows = device.sql("SELECT * FROM productControl_productSettings;")
    device.run("2", locale=locale)
    assert device.log() == expected_log(
        1, 2, "Database migration failed in updateToVersion2()!  The error was: "
              "near \"größer?\": syntax error\n", (1, "1.2.3"))
    assert device.versions() == "mainSqlDb|1|'1.2.3'\naltSqlDb|1|NULL\n"
    assert device.sql("SELECT * FROM productControl_productSettings;") == rows
