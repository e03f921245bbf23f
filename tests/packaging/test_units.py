"""The units of packaging/systemd are correct, and expose no more than they have to."""

import subprocess

import pytest
from support.places import ROOT

UNITS = ROOT / "packaging" / "systemd"
# From 0, safe, to 100. What is left: the guard mounts, and reads /proc of everything.
GREATEST_EXPOSURE = 30


@pytest.fixture(params=["migration-guard", "migration-guard-trial"])
def unit(request, tmp_path):
    """A unit with what its drop-in adds, whose guard exists."""
    guard = tmp_path / "migration-guard"
    guard.touch(mode=0o755)
    path = tmp_path / f"{request.param}.service"
    text = (UNITS / path.name).read_text() + (UNITS / "sandbox.conf").read_text()
    path.write_text(text.replace("/usr/lib/fieldcomputer/migration-guard", str(guard)))
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
