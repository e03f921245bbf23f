"""The units of packaging are correct, and expose no more than they have to."""

import re
import subprocess

import pytest
from support.places import ROOT

UNITS = ROOT / "packaging" / "systemd"
# From 0, safe, to 100. The rest is needed: the guard mounts, and reads /proc of all processes.
GREATEST_EXPOSURE = 30


DROP_INS = ROOT / "packaging" / "update-engines" / "systemd"
PROGRAM = re.compile(r"/usr/lib/fieldcomputer/([\w-]+)(?= |$)", re.MULTILINE)


def with_programs(text, folder):
    """A unit whose programs exist, in a folder of their own."""
    for name in PROGRAM.findall(text):
        (folder / name).touch(mode=0o755)
    return PROGRAM.sub(rf"{folder}/\1", text)


@pytest.fixture(params=["migration-guard", "migration-guard-trial",
                        "migration-guard with fall-back", "migration-guard-trial with first-start"])
def unit(request, tmp_path):
    """A unit with what its drop-ins add."""
    name, _, drop_in = request.param.partition(" with ")
    text = (UNITS / f"{name}.service").read_text() + (UNITS / "sandbox.conf").read_text()
    if drop_in:
        text += (DROP_INS / f"{drop_in}.conf").read_text()
    path = tmp_path / f"{name}.service"
    path.write_text(with_programs(text, tmp_path))
    return path


def analyze(*arguments):
    return subprocess.run(["systemd-analyze", *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)


def test_unit_is_correct(unit):
    result = analyze("verify", "--man=no", unit)
    assert (result.stdout, result.returncode) == ("", 0)


def test_misspelt_setting_is_noticed(unit):
    unit.write_text(unit.read_text().replace("ProtectSystem", "ProtectSytem"))
    assert "ProtectSytem" in analyze("verify", "--man=no", unit).stdout


def test_exposure_has_a_bound(unit):
    result = analyze("security", "--offline=true", f"--threshold={GREATEST_EXPOSURE}", unit)
    assert result.returncode == 0, result.stdout


def test_exposure_without_the_drop_in_is_noticed(unit):
    unit.write_text((UNITS / unit.name).read_text())
    result = analyze("security", "--offline=true", f"--threshold={GREATEST_EXPOSURE}", unit)
    assert result.returncode != 0


def test_unit_that_finds_an_update_good_is_correct(tmp_path):
    path = tmp_path / "update-good.service"
    path.write_text(with_programs((DROP_INS / path.name).read_text(), tmp_path))
    result = analyze("verify", "--man=no", path)
    assert (result.stdout, result.returncode) == ("", 0)
