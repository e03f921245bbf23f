"""The man pages say what the programs and the page for the builder of an image say."""

import os
import re
import subprocess

import pytest
from support.places import ROOT

GUARD = os.environ["MIGRATION_GUARD"]
FONT = re.compile(r"\\f[BIR]")
# A description in the help text begins after two spaces.
OPTION = re.compile(r"^  (-.*?)(?:  +(.*))?$")


def section(name, title):
    """{term: text} of a section of a man page, without the fonts."""
    page, = (ROOT / "packaging" / "man").glob(f"{name}.*")
    page = page.read_text(encoding="utf-8")
    lines = re.search(rf"^\.SH {title}\n(.*?)(?=^\.SH|\Z)", page, re.DOTALL | re.MULTILINE)[1]
    entries = {}
    for entry in re.split(r"^\.PP$", lines, flags=re.MULTILINE)[0].split(".TP\n")[1:]:
        tag, *text = entry.splitlines()
        entries[plain(tag)] = plain(" ".join(text))
    return entries


def plain(text):
    macro = re.match(r"\.([BIR]+) ", text)
    if macro:
        words = [quoted or bare for quoted, bare in
                 re.findall(r'"([^"]*)"|(\S+)', text[macro.end():])]
        # A macro of two fonts joins its words.
        text = ("" if len(macro[1]) == 2 else " ").join(words)
    return FONT.sub("", text).replace("\\-", "-")


@pytest.fixture(scope="module")
def help_text():
    return subprocess.run([GUARD, "--help"], capture_output=True, text=True, check=True).stdout


def options_of(help_text):
    options, last = {}, None
    for line in re.search(r"Options:\n(.*?)\n\n", help_text, re.DOTALL)[1].splitlines():
        found = OPTION.match(line)
        if found:
            last = found[1].replace("<", "").replace(">", "")
            options[last] = found[2]
        else:
            options[last] += f" {line.strip()}"
    return options


def commands_of(help_text):
    found = re.findall(r"^  migration-guard (.+)\n((?:      .+\n)+)", help_text, re.MULTILINE)
    return {command: " ".join(text.split()) for command, text in found}


def statuses_of(help_text):
    found = re.findall(r"^  (\d)  (.+\n(?:     .+\n)*)", help_text, re.MULTILINE)
    return {status: " ".join(text.split()) for status, text in found}


def test_page_of_the_guard_has_the_options_of_its_help_text(help_text):
    assert section("migration-guard", "OPTIONS") == options_of(help_text)


def test_page_of_the_guard_has_the_commands_of_its_help_text(help_text):
    assert section("migration-guard", "COMMANDS") == commands_of(help_text)


def test_page_of_the_guard_has_the_exit_statuses_of_its_help_text(help_text):
    assert section("migration-guard", "EXIT STATUS") == statuses_of(help_text)


def test_page_of_the_report_has_what_its_help_text_says():
    help_text = subprocess.run([ROOT / "report" / "migration_report.py", "--help"],
                               capture_output=True, text=True, check=True).stdout
    assert section("migration-report", "EXIT STATUS") == statuses_of(help_text)
    assert section("migration-report", "OPTIONS")["FILE.json"] in " ".join(help_text.split())


def test_page_of_the_program_has_the_files_that_the_builder_of_an_image_is_told():
    page = (ROOT / "packaging" / "README.md").read_text(encoding="utf-8")
    table = re.search(r"## The files on the device\n(.*?)\n\n[^|\n]", page, re.DOTALL)[1]
    rows = [row.strip("|").split(" | ") for row in table.strip().splitlines()[2:]]
    assert section("database-migrator", "FILES") == {
        path.strip().replace("`", ""): text.strip().replace("`", "") for path, text in rows}
