"""The program works on the database beside itself, in any directory."""

import pytest
from conftest import expected_log

STEP_2_DONE = "Database migration to version 2 completed successfully!\n"


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
@pytest.mark.parametrize("folder", ["copy", "two words", "größer/版"])
def test_copied_program_uses_the_files_beside_it(device, folder, locale):
    device.install(version=1, stored="1.0", software="1.0")
    contents = device.contents()
    copy = device.with_program_in(folder)
    copy.install(version=1, stored="2.0", software="2.1")
    for place in (device, copy):
        (place.app / "refProducts.sql").write_text(
            f"INSERT INTO soilSamples (place) VALUES('{place.app.name}')", encoding="utf-8")
    copy.run("2", locale=locale)
    assert copy.log() == expected_log(1, 2, STEP_2_DONE, (2, "2.1"))
    assert copy.versions() == "mainSqlDb|2|'2.1'\naltSqlDb|1|NULL\n"
    assert copy.sql("SELECT place FROM soilSamples WHERE id > 2;") == f"{copy.app.name}\n"
    assert not device.log_file.exists()
    assert device.versions() == "mainSqlDb|1|'1.0'\naltSqlDb|1|NULL\n"
    assert device.contents() == contents


def test_every_run_appends_to_the_log(device):
    device.install(version=1)
    device.log_file.write_bytes(b"Written by an older program \xff\n")
    device.run("2")
    device.run("2")
    assert device.log_file.read_bytes() == (
        b"Written by an older program \xff\n" +
        (expected_log(1, 2, STEP_2_DONE, (2, "1.2.3")) + expected_log(2, 2)).encode())
