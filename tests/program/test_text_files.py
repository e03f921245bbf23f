"""The device's text files may be missing or hold anything."""

import pytest
from conftest import Trouble, expected_log, scratch_device
from support.versions import dump_of

MEGABYTE = "7" * 1024 * 1024

# A byte order mark tells the encoding; č and ഁ hold the bytes of an end of line in UTF-16.
ENCODINGS_WITH_MARK = ["utf-8", "utf-16-le", "utf-16-be", "utf-32-le", "utf-32-be"]


def with_mark(text, encoding):
    return f"\ufeff{text}".encode(encoding)


# The content of a text file, and its first line.
TEXTS = [
    pytest.param(None, "", id="missing"),
    pytest.param(b"", "", id="empty"),
    pytest.param(b"\n1.2.3\n", "", id="empty first line"),
    pytest.param(b"1.2.3\r\nold\r\n", "1.2.3", id="CRLF"),
    pytest.param(b"1.2.3", "1.2.3", id="no final newline"),
    pytest.param(b" 1.2.3 \n", " 1.2.3 ", id="blanks are kept"),
    pytest.param("1.2.3-größer-版\n".encode(), "1.2.3-größer-版", id="several scripts"),
    pytest.param(b"1.2\xff.3\n", "1.2\N{REPLACEMENT CHARACTER}.3", id="not valid UTF-8"),
    pytest.param(b"%1 %2 %3\n", "%1 %2 %3", id="markers of the messages"),
    pytest.param(MEGABYTE.encode() + b"\n", MEGABYTE, id="a megabyte on one line"),
    *(pytest.param(with_mark("1.2.3-č-ഁ-größer\r\nold\r\n", encoding), "1.2.3-č-ഁ-größer",
                   id=f"{encoding} with a byte order mark") for encoding in ENCODINGS_WITH_MARK),
]
CONTENTS = [pytest.param(text.values[0], id=text.id) for text in TEXTS]


def write(path, content):
    path.unlink(missing_ok=True)
    if content is not None:
        path.write_bytes(content)


@pytest.mark.parametrize("content, first_line", TEXTS)
def test_first_line_is_the_software_version(device, content, first_line):
    device.install(version=2, stored="1.0")
    contents = device.contents()
    write(device.software_version, content)
    device.run("2")
    assert device.log() == expected_log(2, 2, update=(2, first_line))
    assert device.versions() == f"mainSqlDb|2|'{first_line}'\naltSqlDb|2|NULL\n"
    assert device.contents() == contents


@pytest.mark.parametrize("content, first_line", TEXTS)
def test_equal_software_version_is_not_recorded_again(device, content, first_line):
    device.install(version=2, stored=first_line)
    write(device.software_version, content)
    database = device.database.read_bytes()
    device.run("2")
    assert device.log() == expected_log(2, 2)
    assert device.database.read_bytes() == database


def test_software_versions_differ_by_their_letter_case(device):
    device.install(version=2, stored="1.2.3a", software="1.2.3A")
    device.run("2")
    assert device.log() == expected_log(2, 2, update=(2, "1.2.3A"))
    assert device.versions() == "mainSqlDb|2|'1.2.3A'\naltSqlDb|2|NULL\n"


def test_single_quote_in_the_software_version_leaves_the_main_row_alone(device):
    device.install(version=1, stored="1.0", software="1.2'3")
    device.run("2")
    assert device.log() == expected_log(
        1, 2, "Database migration to version 2 completed successfully!\n", (2, "1.2'3"),
        Trouble(update="near \"3\": syntax error Unable to execute statement\n"))
    assert device.versions() == "mainSqlDb|1|'1.0'\naltSqlDb|1|NULL\n"


def test_directory_in_place_of_the_software_version_is_an_empty_version(device):
    device.install(version=2, stored="")
    device.software_version.unlink()
    device.software_version.mkdir()
    device.run("2")
    assert device.log() == expected_log(2, 2)


@pytest.mark.parametrize("file", ["platform", "registration"])
@pytest.mark.parametrize("content", CONTENTS)
def test_other_files_leave_a_run_with_nothing_to_do_alone(device, file, content):
    device.install(version=2)
    write(getattr(device, file), content)
    database = device.database.read_bytes()
    device.run("2")
    assert device.log() == expected_log(2, 2)
    assert device.database.read_bytes() == database


@pytest.mark.parametrize("file", ["platform", "registration"])
def test_directory_in_place_of_another_file_leaves_the_run_alone(device, file):
    device.install(version=2)
    getattr(device, file).mkdir()
    device.run("2")
    assert device.log() == expected_log(2, 2)


@pytest.fixture(scope="module")
def database_at_version_24():
    with scratch_device() as device:
        device.sql(dump_of(1))
        device.run("24")
        return device.database.read_bytes()


@pytest.mark.parametrize("content, on_board", [
    pytest.param(b"TORVIKMAX\nold\n", True, id="first line"),
    pytest.param(b"TORVIKMAX\r\n", True, id="CRLF"),
    pytest.param(b"TORVIKMAX", True, id="no final newline"),
    pytest.param(b"torvikmax\n", False, id="in other letters"),
    pytest.param(b"TORVIKMAX \n", False, id="a blank after it"),
    pytest.param(b"TORVIKMAX\xff\n", False, id="not valid UTF-8"),
    pytest.param(b"\nTORVIKMAX\n", False, id="empty first line"),
    pytest.param(b"", False, id="empty"),
    pytest.param(None, False, id="missing"),
    pytest.param(b"TORVIKMAX" * 120000 + b"\n", False, id="a megabyte on one line"),
    *(pytest.param(with_mark("TORVIKMAX\nold\n", encoding), True,
                   id=f"{encoding} with a byte order mark") for encoding in ENCODINGS_WITH_MARK),
    pytest.param("TORVIKMAX\n".encode("utf-16-le"), False, id="UTF-16 without a mark"),
])
def test_only_the_platform_torvikmax_has_its_ports_on_board(
        device, database_at_version_24, content, on_board):
    device.database.write_bytes(database_at_version_24)
    write(device.platform, content)
    ports = device.sql("SELECT portName FROM serialDevices;")
    device.run("25")
    assert device.log() == expected_log(
        24, 25, "Migration to version 25 was successful.\n", (25, ""))
    if on_board:
        ports = ports.replace("USB", "S").replace("ttymxc2", "gps1")
    assert device.sql("SELECT portName FROM serialDevices;") == ports


INSERTION = b"INSERT INTO soilSamples (place) VALUES('Wegrain')"


@pytest.mark.parametrize("script", ["refMachines.sql", "refProducts.sql"])
@pytest.mark.parametrize("content, log, places", [
    pytest.param(None, "", [], id="missing"),
    pytest.param(b"", "\n", [], id="empty: an empty statement fails without a text"),
    pytest.param(b"\n" + INSERTION, "", ["Wegrain"], id="empty first line"),
    pytest.param(INSERTION + b";\r\n" + INSERTION + b"\r\n", "", ["Wegrain", "Wegrain"], id="CRLF"),
    pytest.param(INSERTION, "", ["Wegrain"], id="no final newline"),
    pytest.param(INSERTION.replace(b"rain", b"\xff"), "", ["Weg\N{REPLACEMENT CHARACTER}"],
                 id="not valid UTF-8"),
    pytest.param(INSERTION.replace(b"Wegrain", MEGABYTE.encode()), "", [MEGABYTE],
                 id="a megabyte on one line"),
    *(pytest.param(with_mark("INSERT INTO soilSamples (place)\r\n VALUES('Moč-ഁ');", encoding),
                   "\n", ["Moč-ഁ"], id=f"{encoding} with a byte order mark")
      for encoding in ENCODINGS_WITH_MARK),
])
def test_script_is_run_as_it_is_read(device, script, content, log, places):
    device.install(version=2)
    write(device.app / script, content)
    device.run("2")
    assert device.log() == expected_log(2, 2) + log
    stored = device.sql("SELECT place FROM soilSamples WHERE id > 2;")
    assert stored.splitlines() == places
