"""One run of the built program over everything that a device can have wrong."""

import os
import shutil

import pytest

from conftest import scratch_device
from support.places import DATA, DEMO
from support.versions import dump_of

VERSION_1 = dump_of(1)
BLEMISHES = (DATA / "blemishes.sql").read_text(encoding="utf-8")

# What the run does to the database, in its order.
EVERYTHING_DONE = """
-- at the start
ALTER TABLE tableVersion ADD COLUMN MirelVersion TEXT;
-- the part number
UPDATE registrationInfo SET partNumber = '94071B' WHERE fieldComputerId = 40117;
-- rows that break foreign keys, and what goes with them
DELETE FROM farms WHERE id = 50;
DELETE FROM fields WHERE id = 150;
DELETE FROM guidanceLines WHERE id IN (90, 5000000000);
DELETE FROM JP_JobProfile WHERE id = 90;
DELETE FROM switchToSectionBridge WHERE machineConfigId = 99;
DELETE FROM productControl_productSettings WHERE machineConfigId = 99;
DELETE FROM OutgoingFiles WHERE id = 90;
-- product configurations that nothing refers to
DELETE FROM PC_ProductConfig WHERE id IN (50, 51);
DELETE FROM PC_MixToProductConfigBridge WHERE productConfigId IN (51, 98);
DELETE FROM PC_PlanterVarietyToProductConfigBridge WHERE productConfigId = 98;
-- version 2 once more; its copy rounds to six digits and knows no NULL
ALTER TABLE productControl_productSettings RENAME TO productControl_productSettings_old;
CREATE TABLE productControl_productSettings (productId varchar(40), displayName varchar(40), \
tankCapacity REAL, machineConfigId INTEGER, maxAchievableRate REAL, timeToApplication REAL, \
lastAppliedRate REAL, calibratedInUsUnits BOOLEAN DEFAULT 0, \
PRIMARY KEY (productId, machineConfigId),\
FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE);
INSERT INTO productControl_productSettings SELECT productId, ifnull(displayName, ''),
    printf('%.6g', tankCapacity), machineConfigId, printf('%.6g', maxAchievableRate),
    printf('%.6g', timeToApplication), printf('%.6g', lastAppliedRate), 0
    FROM productControl_productSettings_old ORDER BY rowid;
DROP TABLE productControl_productSettings_old;
-- the migration to version 4
ALTER TABLE ombrixMasterSettings ADD COLUMN ombrixEnabled BOOLEAN DEFAULT 1;
ALTER TABLE systemControl ADD COLUMN languageSelected BOOLEAN DEFAULT 0;
UPDATE tableVersion SET version = 4, MirelVersion = '4.2.0' WHERE tableName = 'mainSqlDb';
UPDATE tableVersion SET version = 2 WHERE tableName = 'altSqlDb';
-- the statements of the scripts that do not fail
INSERT INTO MC_Machine (id, displayName, machineType) VALUES (101, 'Mähdrescher 9 m', 4),
    (102, 'Forage harvester', 4), (103, 'Self-propelled sprayer', 2);
INSERT INTO PC_Ingredient (id, displayName, category) VALUES (101, 'Kieserit', 2);
INSERT INTO PC_Carrier (id, displayName) VALUES (101, 'Gülle');
-- names that were there already; the third Smith is renamed twice, since Smith_2 exists too
UPDATE files SET displayName = 'North 80 Boundary_2' WHERE id = 250;
UPDATE growers SET displayName = 'Smith_2_2' WHERE id = 18;
UPDATE growers SET displayName = 'Müller Landwirtschaft_2' WHERE id = 19;
UPDATE farms SET displayName = 'Home_2' WHERE id = 51;
UPDATE fields SET displayName = 'North 80_2' WHERE id = 151;
"""

UNREPAIRED = "no such column: rowid\nIntegrity check passed.\n"
MAINTENANCE = ("no such table: MC_MachineType Unable to execute statement\n"
               "\n"
               "unrecognized token: \"'Lime\" Unable to execute statement\n"
               "near \"fine\": syntax error Unable to execute statement\n"
               "UNIQUE constraint failed: PC_Ingredient.id Unable to fetch row\n"
               "\n"
               "duplicate file query failed\n"
               "Query for duplicate grower names failed\n"
               "Query for duplicate farm names failed\n"
               "Query for duplicate field names failed\n")
NOTHING_TO_DO = ("\n*****Beginning database migration from version: 1 to version: 1\n"
                 "Integrity check passed.\n")


def install_everything(device):
    device.sql(VERSION_1 + BLEMISHES)
    device.software_version.write_text("4.2.0\n", encoding="utf-8")
    for file in (device.machines, device.products, device.registration):
        shutil.copy(DEMO / file.name, file)


def test_one_run_meets_everything(device):
    install_everything(device)
    with scratch_device() as expected:
        expected.sql(VERSION_1 + BLEMISHES + EVERYTHING_DONE)
        expected_dump = expected.dump()

    device.run("4")

    assert device.log() == (
        "\n*****Beginning database migration from version: 2 to version: 4\n" + UNREPAIRED +
        "Corruption detected: applying update to db for version 2\n"
        "Database migration to version 2 completed successfully!\n"
        "Database migration to version 3 completed successfully!\n"
        "Database migration to version 4 completed successfully!\n"
        "\n*****Updating version in DB to: 4 with software version: 4.2.0\n" + MAINTENANCE)
    assert device.dump() == expected_dump


def test_a_second_run_finds_only_what_cannot_be_repaired(device):
    install_everything(device)
    device.run("4")
    after_the_first = device.dump()
    device.log_file.unlink()

    device.run("4")

    assert device.log() == ("\n*****Beginning database migration from version: 4 to version: 4\n" +
                            UNREPAIRED + MAINTENANCE)
    assert device.dump() == after_the_first


def entity_of(size):
    return f"<!DOCTYPE LVData [<!ENTITY a '{'x' * size}'>]>"


HOSTILE_FILES = {
    "30,000 nested elements": "<a>" * 30_000 + "</a>" * 30_000,
    "65,000 nested groups": "<!DOCTYPE LVData [<!ELEMENT a " + "(" * 65_490,
    "a large entity in a text":
        entity_of(30_000) + "<LVData><PartNumber>" + "&a;" * 5_000 + "</PartNumber></LVData>",
    "a large entity in an attribute":
        entity_of(30_000) + "<LVData b='" + "&a;" * 5_000 + "'/>",
    "a large parameter entity":
        f"<!DOCTYPE LVData [<!ENTITY % a '{'<!-- -->' * 3_000}'>{'%a;' * 5_000}]><LVData/>",
    "38 MB": "<LVData>" + "<a>x</a>" * 4_750_000 + "</LVData>",
}


@pytest.mark.parametrize("content", HOSTILE_FILES.values(), ids=HOSTILE_FILES.keys())
def test_hostile_registration_file_does_not_stop_the_run(device, content):
    device.sql(VERSION_1)
    device.registration.write_text(content, encoding="utf-8")

    device.run("1")

    assert device.log() == NOTHING_TO_DO


def test_pipe_for_a_registration_file_does_not_hold_up_the_run(device):
    device.sql(VERSION_1)
    os.mkfifo(device.registration)

    device.run("1")

    assert device.log() == NOTHING_TO_DO
