"""An update of a device and the way back, with power cuts at every step.

Both systems are real ones, with the guard and their own program; the update engine and the boot
loader are simulated. campaign.py has real engines.
"""

import os

import pytest
from computer import ATTEMPTS
from journey import RESTORE
from power import Moment
from systems import APPLICATION, NEWEST, OLD_VERSION

PARTS = [number / 40 for number in range(1, 40)] if os.environ.get("CAMPAIGN") else (0.55,)


def update(journey, system):
    journey.repeat(journey.update, system, until=system.version)


def go_back(journey, *command):
    journey.repeat(journey.go_back, *command, until=OLD_VERSION)


@pytest.fixture(scope="module")
def undisturbed():
    """The results of an update and of a return, and the moments in them, by name."""
    return {}


@pytest.fixture
def known(undisturbed, begin, new_system):
    if not undisturbed:
        journey = begin()
        power = journey.computer.power
        for name, change in (("update", lambda: update(journey, new_system)),
                             ("return", lambda: go_back(journey))):
            power.points.clear()
            change()
            undisturbed[name] = list(power.points), journey.content_after_another_start()
        undisturbed["durations"] = power.durations
        assert journey.starts == [("A", False, 0), ("B", True, 0), ("B", False, 0),
                                  ("A", True, 0), ("A", False, 0)]
        journey = begin()
        before = journey.content_after_another_start()
        update(journey, new_system)
        go_back(journey, RESTORE)
        undisturbed["return by the kept database"] = journey.content_after_another_start()
        assert undisturbed["return by the kept database"] == before
    return undisturbed


def test_points_are_those_of_a_whole_update_and_return(known):
    assert known["update"][0] == POINTS_OF_UPDATE
    assert known["return"][0] == POINTS_OF_RETURN


START = ["started", "migrated", "half found good", "found good"]
POINTS_OF_UPDATE = [
    "before the installation", "half of the old system is gone", "half of the new system is there",
    "the new system is written", "rehearsed", "activated", "installed", *START]
POINTS_OF_RETURN = ["before the return", "brought back", "activated", *START]


def moments(points, *commands):
    return [pytest.param(moment, id=str(moment)) for moment in (
        *map(Moment, points), *(Moment(name, part) for name in commands for part in PARTS))]


@pytest.mark.parametrize("moment", moments(
    POINTS_OF_UPDATE, "the rehearsal", "the first start"))
def test_power_cut_in_an_update(known, begin, new_system, moment):
    journey = begin([moment], known["durations"])
    update(journey, new_system)
    assert journey.violations(NEWEST, known["update"][1]) == []


@pytest.mark.parametrize("moment", moments(START, "an ordinary start"))
def test_power_cut_in_a_fall_back_that_no_hook_sees(known, begin, new_system, moment):
    """The key is turned off after the migration, before the update is found good."""
    journey = begin([Moment("migrated"), moment], known["durations"], attempts=1)
    journey.update(new_system)
    assert journey.computer.version_of(journey.running) == OLD_VERSION
    assert journey.computer.recorded_version() == OLD_VERSION
    update(journey, new_system)
    assert journey.violations(NEWEST, known["update"][1]) == []


@pytest.mark.parametrize("moment", moments(POINTS_OF_RETURN, "the return", "the first start"))
def test_power_cut_in_a_deliberate_return(known, begin, new_system, moment):
    journey = begin()
    update(journey, new_system)
    power = journey.computer.power
    power.cuts, power.known = [moment], known["durations"]
    go_back(journey)
    assert journey.violations(OLD_VERSION, known["return"][1]) == []


@pytest.mark.parametrize("moment", moments(POINTS_OF_RETURN, "the return", "the first start"))
def test_power_cut_in_a_return_by_the_kept_database(known, begin, new_system, moment):
    """Rows that were entered on the new system, and only those, are put aside."""
    journey = begin()
    update(journey, new_system)
    entered = set(journey.entered)
    power = journey.computer.power
    power.cuts, power.known = [moment], known["durations"]
    go_back(journey, RESTORE)
    assert power.cuts == []
    assert journey.computer.recorded_version() == OLD_VERSION
    put_aside = {name for name in journey.entered if name.endswith("in B")}
    assert set(journey.lost_rows()) == put_aside
    assert entered & put_aside
    assert journey.content_after_another_start() == known["return by the kept database"]
    assert max(journey.versions_for_old_program()) == OLD_VERSION


def test_good_system_does_not_use_up_its_attempts(begin):
    journey = begin()
    for _ in range(2 * ATTEMPTS):
        journey.start()
    assert set(journey.starts) == {("A", False, 0)}


def test_power_cuts_at_ordinary_starts_cost_attempts(begin):
    """As many as there are; then the other system would start."""
    journey = begin([Moment("migrated")] * (ATTEMPTS - 1))
    journey.start()
    assert journey.computer.environment.read()["BOOT_A_LEFT"] == str(ATTEMPTS)


def test_good_system_comes_back_after_its_attempts(known, begin, new_system):
    """The key is turned off so early and so often that the old system is tried. It refuses the
    newer database."""
    journey = begin()
    update(journey, new_system)
    begun = len(journey.starts)
    journey.computer.power.cuts = [Moment("started")] * ATTEMPTS
    journey.start()
    assert journey.starts[begun:] == [("A", True, 3)] * ATTEMPTS + [("B", False, 0)]
    assert journey.violations(NEWEST, known["update"][1]) == []


def test_factory_new_computer_without_a_database(begin):
    """Its first start is an ordinary one, which makes the database. A trial boot could not."""
    journey = begin(is_started=False)
    journey.computer.database.unlink()
    slot, is_trial = journey.engine.choose_slot()
    assert (slot, is_trial) == ("A", False)
    assert journey.computer.run("the first start", slot, *journey.first_start)[0] == 3
    assert journey.computer.run("an ordinary start", slot, *journey.ordinary_start)[0] == 0
    assert journey.computer.database.exists()


def test_first_update_of_a_factory_new_computer(begin, new_system):
    journey = begin(is_started=False)
    assert "good_slot" not in journey.computer.environment.read()
    journey.start()
    assert journey.computer.environment.read()["good_slot"] == "A"
    update(journey, new_system)
    assert journey.starts == [("A", False, 0), ("B", True, 0)]


def test_trial_boot_is_tried_again_while_it_has_attempts(known, begin, new_system):
    cut = Moment("the first start", 0.5)
    journey = begin([cut, cut], known["durations"], attempts=3)
    journey.update(new_system)
    assert journey.running == "B"
    assert journey.violations(NEWEST, known["update"][1]) == []


def test_harmful_update_that_was_not_rehearsed_ends_in_the_old_system(begin, faulty_system):
    journey = begin(rehearses=False)
    before = journey.computer.database.read_bytes()
    journey.update(faulty_system)
    assert [start[0::2] for start in journey.starts[1:]] == [("B", 3)] * 3 + [("A", 0)]
    assert journey.lost_rows() == []
    # The farmer has entered a row since.
    assert before != journey.computer.database.read_bytes()
    assert journey.computer.recorded_version() == OLD_VERSION


def test_harmful_update_is_refused_before_a_restart(begin, faulty_system):
    journey = begin()
    before = journey.computer.database.read_bytes()
    assert journey.update(faulty_system) == 4
    assert len(journey.starts) == 1
    assert journey.computer.database.read_bytes() == before
    assert journey.computer.environment.read()["BOOT_ORDER"] == "A"


@pytest.mark.parametrize("empty", [False, True], ids=["no database", "a database of 0 bytes"])
def test_device_without_a_database_is_not_restarted_for_an_update(begin, new_system, empty):
    """A first start would change nothing there, and the device would go back to the old system."""
    journey = begin()
    database = journey.computer.database
    database.unlink()
    if empty:
        database.touch()
    assert journey.update(new_system) == 3
    assert len(journey.starts) == 1
    assert database.exists() == empty and (not empty or database.stat().st_size == 0)
    assert journey.computer.environment.read()["BOOT_ORDER"] == "A"


def test_accepted_finding_passes_the_rehearsal_and_the_first_start(begin, faulty_system):
    accepted = faulty_system.application / "accepted-findings"
    accepted.write_text("rows-lost:growers\n")
    try:
        journey = begin()
        update(journey, faulty_system)
        assert [start[0::2] for start in journey.starts] == [("A", 0), ("B", 0)]
    finally:
        accepted.unlink()


@pytest.mark.parametrize("start, found", [
    pytest.param(("migration-guard", "run"), [], id="the guard without --fall-back"),
    pytest.param(("database-migrator", str(OLD_VERSION)), [NEWEST], id="the program alone"),
])
def test_old_system_on_a_newer_database_is_noticed(begin, new_system, start, found):
    journey = begin([Moment("migrated")], attempts=1)
    journey.ordinary_start = (f"/{APPLICATION}/{start[0]}", *start[1:])
    with pytest.raises(AssertionError, match=f"for {OLD_VERSION} finds {NEWEST}"):
        journey.update(new_system)
    assert journey.versions_for_old_program()[1:] == found


def test_lost_rows_are_noticed(begin, faulty_system):
    """A first start that does not ask for the verdict."""
    journey = begin(rehearses=False)
    journey.entered.append("Hofgut Größenwörth")
    journey.first_start = (f"/{APPLICATION}/database-migrator", str(NEWEST))
    journey.update(faulty_system)
    assert journey.lost_rows() == ["Hofgut Größenwörth"]
