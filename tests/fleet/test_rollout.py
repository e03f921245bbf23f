"""The model of a roll-out, and its figures in docs/fleet.md."""

import random

import pytest
import rollout


def test_page_has_the_figures():
    page = rollout.PAGE.read_text(encoding="utf-8")
    assert rollout.part_in(page) == rollout.part_of_page(), "tests/fleet/rollout.py --write"


@pytest.mark.parametrize("rehearses", [False, True])
def test_good_update_reaches_everybody(monkeypatch, rehearses):
    monkeypatch.setattr(rollout, "HIT", 0)
    monkeypatch.setattr(rollout, "TROUBLE", 0)
    outcome = rollout.roll_out(rollout.STAGES, rehearses, random.Random(1))
    assert (outcome.installed, outcome.went_back, outcome.refused) == (rollout.DEVICES, 0, 0)


def test_device_with_a_trouble_of_its_own_does_not_stop_an_update(monkeypatch):
    monkeypatch.setattr(rollout, "HIT", 0)
    outcome = rollout.roll_out(rollout.STAGES, True, random.Random(1))
    assert outcome.installed + outcome.refused == rollout.DEVICES
    assert outcome.refused > rollout.REFUSALS


def test_fault_on_every_device_stops_at_once(monkeypatch):
    monkeypatch.setattr(rollout, "HIT", 1)
    outcome = rollout.roll_out(rollout.STAGES, True, random.Random(1))
    assert (outcome.installed, outcome.refused) == (0, rollout.REFUSALS)


def test_stages_are_the_whole_fleet():
    assert sum(rollout.STAGES) == rollout.DEVICES
