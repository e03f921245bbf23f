"""A run applies again every version whose change the database should have but lacks."""

import functools

import pytest
from conftest import expected_log
from dumps import departures
from steps import ALWAYS_REAPPLIED, as_at, taken_out, without
from support.versions import NEWEST, dump_of
from walks import (assert_same, database_at, device_with, log_of_repairs, outcome_of,
                   version_rows, walk)

# (the version whose change is missing, the version of the database). At the newest versions nothing
# is left of 14 and 30: version 21 has dropped the table of 14, and version 33 the column of 30.
MISSING = [*((version, 20) for version in range(2, 21)), (30, 32),
           *((version, NEWEST) for version in range(2, NEWEST + 1) if version not in (14, 30))]

# The versions that are applied again, if it is not the missing one alone.
REAPPLIED = {
    # Nothing looks for the changes of these two.
    7: (),
    9: (),
    # The step brings the tables back that version 19 has replaced.
    12: (12, 19),
    # The step brings the columns back that version 25 has replaced.
    22: (22, 25),
    # The step makes a new table, without the columns of version 34.
    32: (32, 34),
}


def last(table, *columns):
    """The columns moved to the end of the table."""
    return (without(table, *(column.split()[0] for column in columns)) +
            "".join(f"ALTER TABLE {table} ADD COLUMN {column};\n" for column in columns))


def remade(table, definition, columns):
    return (f"CREATE TABLE {table}_new ({definition});\n"
            f"INSERT INTO {table}_new SELECT {columns} FROM {table};\n"
            f"DROP TABLE {table};\n"
            f"ALTER TABLE {table}_new RENAME TO {table};\n")


@functools.cache
def left_by_repair():
    """The differences that a repair leaves, compared with a database where nothing was missing."""
    return {
        # A column that comes back is after those of later versions.
        3: last("ombrixMasterSettings", "ombrixEnabled BOOLEAN DEFAULT 1"),
        (4, NEWEST): remade(
            "systemControl",
            "id INTEGER , brightness INTEGER NOT NULL  DEFAULT 80 , "
            "nightBrightness INTEGER NOT NULL  DEFAULT 25 , keyClickEnabled BOOLEAN DEFAULT 1 , "
            "screenTimeout INTEGER DEFAULT -1 , timeZone TEXT NOT NULL  DEFAULT 'UTC' , "
            "activeUserProfileId INTEGER , shutdownDelay REAL DEFAULT 7.5 , "
            "networkingMode INTEGER DEFAULT 0 , apSsid TEXT DEFAULT 'TK-2047318' , "
            "apPassword TEXT DEFAULT 'tk629537' , languageSelected BOOLEAN DEFAULT 0 , "
            "PRIMARY KEY(id) ",
            "id, brightness, nightBrightness, keyClickEnabled, screenTimeout, timeZone, "
            "activeUserProfileId, shutdownDelay, networkingMode, apSsid, apPassword, "
            "languageSelected"),
        5: last("MC_EquipmentSection", "fence INTEGER DEFAULT 0"),
        6: last("MC_EquipmentSectionGroup", "isoNodeName TEXT") +
           "UPDATE MC_EquipmentSectionGroup SET isoNodeName = '';\n",
        8: last("userProfiles", "decimalMark VARCHAR(1)") +
           "UPDATE userProfiles SET decimalMark = '.';\n",
        12: last("MC_EquipmentSectionGroup", "hashForIsoBoom TEXT"),
        13: last("userProfiles", "acceptedEULA BOOLEAN DEFAULT 0"),
        17: last("supportedHarloReceiverSettings", "firmwareVersion VARCHAR[40]"),
        22: remade(
            "growers",
            "id INTEGER , displayName TEXT NOT NULL  , contactName TEXT , phone VARCHAR(24) , "
            "notes TEXT , originalName TEXT , isoId TEXT , PRIMARY KEY(id) ",
            "id, displayName, contactName, phone, notes, originalName, isoId") + remade(
            "farms",
            "id INTEGER , displayName TEXT NOT NULL  , growerId INTEGER NOT NULL  , "
            "totalArea REAL , originalName TEXT , isoId TEXT , PRIMARY KEY(id) , "
            "FOREIGN KEY (growerId) REFERENCES growers(id) ON DELETE CASCADE",
            "id, displayName, growerId, totalArea, originalName, isoId") + remade(
            "fields",
            "id INTEGER , displayName TEXT NOT NULL  , farmId INTEGER NOT NULL  , area REAL , "
            "notes TEXT , originalName TEXT , isoId TEXT , partfieldCode TEXT , PRIMARY KEY(id) , "
            "FOREIGN KEY (farmId) REFERENCES farms(id) ON DELETE CASCADE",
            "id, displayName, farmId, area, notes, originalName, isoId, partfieldCode"),
        23: last("PC_Mix", "modified INTEGER DEFAULT 0", "configMode INTEGER DEFAULT 0",
                 "displayUnit INTEGER DEFAULT 0", "totalRate REAL") +
            last("PC_IngredientToMixBridge", "rate REAL", "displayUnit INTEGER DEFAULT 0") +
            "UPDATE PC_Mix SET modified = 1 WHERE carrierVolume != 0"
            " OR id IN (SELECT mixId FROM PC_IngredientToMixBridge WHERE quantity != 0);\n"
            "UPDATE PC_IngredientToMixBridge SET displayUnit ="
            " (SELECT unit FROM PC_Ingredient WHERE id = productId);\n",
        # The second run applies 30 and 33 again, as every run does; the first one did not.
        33: as_at(33, "systemControl"),
        # Nothing is repaired.
        7: taken_out()[7],
        9: taken_out()[9],
    }


@functools.cache
def left_intact(version):
    """The content that a run leaves of a version's database where nothing is missing."""
    return walk(dump_of(version), version).dump


def changed(dump, statements):
    with device_with(dump + statements) as device:
        return device.dump()


def assert_same_contents(actual, expected):
    assert_same("".join(f"== {table}\n{difference}\n"
                        for table, difference in departures(expected, actual).items()), "")


@pytest.mark.parametrize("missing, at", MISSING)
def test_one_run_repairs_and_the_next_finds_nothing_to_repair(missing, at):
    with device_with(dump_of(at) + taken_out()[missing]) as device:
        first = outcome_of(device, str(at))
        # Where 33 is missing, the column of 30 is there for once.
        always = ALWAYS_REAPPLIED[at] if missing != 33 else ()
        reapplied = sorted({*REAPPLIED.get(missing, (missing,)), *always})
        assert_same(first.log, expected_log(at, at, log_of_repairs(reapplied)))
        assert first.versions == version_rows(at, 1)
        assert first.pool == (("readme.txt",) if missing == 26
                              else ("implement.iop", "readme.txt"))
        different = left_by_repair().get((missing, at)) or left_by_repair().get(missing, "")
        assert_same_contents(first.dump, changed(left_intact(at), different))

        second = outcome_of(device, str(at))
        assert_same(second.log, expected_log(at, at, log_of_repairs(ALWAYS_REAPPLIED[at])))
        # Where 33 was missing, the second run is the first to find 30 missing.
        assert_same(second.dump, first.dump if missing != 33 else left_intact(at))


def parts():
    """Statements that take out a part of a change, and the versions that are applied again."""
    for version, table, *columns in (
            (20, "userProfiles", "audibleBackingUpWarningEnabled", "audioVolumePercent"),
            (23, "PC_Mix", "modified", "configMode", "displayUnit", "totalRate"),
            (23, "PC_IngredientToMixBridge", "rate", "displayUnit"),
            (23, "productControl_userProfile", "mixSetupMode"),
            (24, "ombrixMasterSettings",
             "onCorrectedCoverageEnabled", "offCorrectedCoverageEnabled"),
            (26, "supportedHarloReceiverSettings",
             "ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"),
            (31, "PC_Carrier", "uuid"),
            (31, "PC_Mix", "uuid"),
            (31, "PC_PlanterVariety", "uuid"),
            (34, "workOrderRxMaps", "woConvRate", "userConvRate")):
        for column in columns:
            yield without(table, column), (version,)
    # 22 brings back what 25 has replaced.
    for table, *columns in (
            ("growers", "isoId", "originalName"),
            ("farms", "isoId", "originalName"),
            ("fields", "isoId", "originalName", "partfieldCode")):
        for column in columns:
            yield without(table, column), (22, 25)
        yield f"ALTER TABLE {table} ADD COLUMN isoName TEXT;\n", (25,)
    yield as_at(20, "preferredGpsSolutions"), (21,)
    # 32 makes a new table, without the columns of 34.
    yield without("SM_Preferences", "enableCloudJobs"), (32, 34)

    # Nothing looks for these.
    for table, *columns in (
            ("IncomingFiles", "startDate", "endDate"),
            ("FileTransferHistory", "startDate", "endDate"),
            ("MC_EquipmentSection", "sectionType", "fullName"),
            ("MC_EquipmentSectionGroup", "hashForIsoBoom"),
            ("supportedHarloReceiverSettings", "firmwareVersion")):
        for column in columns:
            yield without(table, column), ()
    yield as_at(11, "switchToSectionBridge", "onScreenSwitchboxSettings"), ()
    yield as_at(12, "SoftwareUpdateTable"), ()
    yield "UPDATE userProfiles SET language = 'en' WHERE language = 'en-US';\n", ()


@pytest.mark.parametrize("taken_out_part, reapplied", [
    pytest.param(*part, id=part[0].partition(";")[0]) for part in parts()])
def test_part_of_a_change_is_missing(taken_out_part, reapplied):
    outcome = walk(dump_of(NEWEST) + taken_out_part, NEWEST)
    assert_same(outcome.log, expected_log(
        NEWEST, NEWEST, log_of_repairs(sorted({*ALWAYS_REAPPLIED[NEWEST], *reapplied}))))
    if not reapplied:
        assert_same_contents(outcome.dump, changed(left_intact(NEWEST), taken_out_part))


def test_repair_of_32_loses_the_rates_of_34():
    rates = "UPDATE workOrderRxMaps SET woConvRate = 0.5, userConvRate = 2 WHERE id = 4;\n"
    with device_with(dump_of(34) + taken_out()[32] + rates) as device:
        outcome = outcome_of(device, "34")
        assert_same(outcome.log, expected_log(34, 34, log_of_repairs((30, 32, 33, 34))))
        assert_same_contents(outcome.dump, left_intact(34))


@pytest.mark.parametrize("at", (20, NEWEST))
def test_repair_of_12_fails_once_where_its_old_tables_have_gone(at):
    columns = (without("MC_EquipmentSection", "parentEquipmentSectionId", "sectionType", "fullName")
               + without("MC_EquipmentSectionGroup", "hashForIsoBoom"))
    with device_with(dump_of(at) + columns) as device:
        first = outcome_of(device, str(at))
        assert_same(first.log, expected_log(
            at, at,
            "Corruption detected: applying update to db for version 12\n"
            "SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!"
            "  The query error was: no such table: switchToSectionBridge\n"
            "Migration to version 12 FAILED!\n" +
            log_of_repairs((19, *ALWAYS_REAPPLIED[at]))))
        # The columns are back all the same, and 19 has removed the tables of 12 again.
        assert_same_contents(first.dump, changed(left_intact(at), left_by_repair()[12]))

        second = outcome_of(device, str(at))
        assert_same(second.log, expected_log(at, at, log_of_repairs(ALWAYS_REAPPLIED[at])))
        assert_same(second.dump, first.dump)


USB_PORTS = (
    "UPDATE serialDevices SET portName ="
    " replace(replace(portName, 'ttyS', 'ttyUSB'), 'gps1', 'ttymxc2') WHERE id < 12;\n"
    "UPDATE gpsReceivers SET serialPortName ="
    " replace(replace(serialPortName, 'ttyS', 'ttyUSB'), 'gps1', 'ttymxc2') WHERE id < 10;\n")


def test_nothing_looks_for_the_port_names_of_25():
    intact = database_at(34, "TORVIKMAX")
    with device_with(intact + USB_PORTS, "TORVIKMAX") as device:
        outcome = outcome_of(device, "34")
        assert_same(outcome.log, expected_log(34, 34, log_of_repairs((30, 33))))
        assert_same_contents(outcome.dump,
                             changed(walk(intact, 34, "TORVIKMAX").dump, USB_PORTS))


def test_repair_of_25_renames_the_ports_on_torvikmax_again():
    intact = database_at(34, "TORVIKMAX")
    with device_with(intact + taken_out()[25] + USB_PORTS, "TORVIKMAX") as device:
        outcome = outcome_of(device, "34")
        assert_same(outcome.log, expected_log(34, 34, log_of_repairs((25, 30, 33))))
        assert_same_contents(outcome.dump, walk(intact, 34, "TORVIKMAX").dump)


def test_run_from_33_on_applies_30_and_33_again_every_time():
    always = (
        "\n*****Beginning database migration from version: 34 to version: 34\n"
        "Integrity check passed.\n"
        "Corruption detected: applying update to db for version 30\n"
        "Migration to version 30 was successful.\n"
        "Corruption detected: applying update to db for version 33\n"
        "Migration to version 33 was successful.\n")
    with device_with(dump_of(34)) as device:
        runs = [outcome_of(device, "34") for _ in range(3)]
    assert [run.log for run in runs] == [always] * 3
    assert [run.dump for run in runs[1:]] == [runs[0].dump] * 2
