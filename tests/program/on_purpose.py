"""What a version takes away on purpose, as far as a run on tests/data cannot show it.

losses.py finds dropped and renamed tables and columns by itself, and tables that lose all their
rows. It cannot find out which rows go when only some do, nor how a rewritten value is made. This
file says that, as SQL over the database before the run: unqualified columns are those of the row,
and a subquery refers to the row's table by its name. docs/schema-versions.md has the rules.
test_losses.py checks every line on random devices: exactly these rows go, and values become exactly
this.
"""

FORWARD, BACKWARD = "forward", "backward"


def six_digits(column):
    """A number of version 2: written with six digits; NULL becomes 0."""
    return {"becomes": f"CAST(printf('%.6g', ifnull({column}, 0)) AS REAL)",
            # The program rounds a tie up, SQLite may not, so half a unit of the sixth digit is
            # allowed.
            "within": 5e-6}


def empty_text(column):
    return {"becomes": f"ifnull({column}, '')"}


def zero(column):
    return {"becomes": f"ifnull({column}, 0)"}


def whole_number(column):
    """NULL becomes 0, and a fraction is rounded: a half goes up, as in Qt."""
    up = f"CAST({column} + 0.5 AS INTEGER)"
    return {"becomes": f"CASE typeof({column}) WHEN 'null' THEN 0"
                       f" WHEN 'real' THEN {up} - ({column} + 0.5 < {up}) ELSE {column} END"}


def replaced(column, replacements):
    cases = " ".join(f"WHEN '{old}' THEN '{new}'" for old, new in replacements.items())
    return {"becomes": f"CASE {column} {cases} ELSE {column} END"}


def replaced_by_a_later_row(table, **key):
    """Rows that INSERT OR REPLACE takes away: a later one has the same key."""
    same = " AND ".join(f"ifnull(later.{column}, {null}) = ifnull({table}.{column}, {null})"
                        for column, null in key.items())
    return (f"EXISTS (SELECT 1 FROM {table} AS later"
            f" WHERE later.rowid > {table}.rowid AND {same})")


def on_board_port(column):
    return {"becomes": f"CASE WHEN instr({column}, 'USB') THEN replace({column}, 'USB', 'S')"
                       f" ELSE replace(ifnull({column}, ''), 'ttymxc2', 'gps1') END"}


def usb_port(column):
    return {"becomes": f"CASE WHEN instr({column}, 'ttyS') THEN replace({column}, 'ttyS', 'ttyUSB')"
                       f" ELSE replace(ifnull({column}, ''), 'gps1', 'ttymxc2') END"}


def random_identifier(defaults=None):
    """Version 31 makes random identifiers, except for those of the default carriers."""
    cases = "".join(f" WHEN {id} THEN '{uuid}'" for id, uuid in (defaults or {}).items())
    return ({"becomes": f"CASE id{cases} ELSE uuid END"} if cases else {}) | {"any": "uuid IS NULL"}


SETTINGS = "productControl_productSettings"
PRODUCT_SETTINGS = {
    "productId": empty_text("productId"), "displayName": empty_text("displayName"),
    **{column: six_digits(column) for column in
       ("tankCapacity", "maxAchievableRate", "timeToApplication", "lastAppliedRate")}}
WORK_ORDER_MAPS = {
    **{column: empty_text(column) for column in ("rateColumn", "pid", "mapName", "units")},
    "uniqueProdId": whole_number("uniqueProdId")}
LANGUAGES = {"en": "en-US", "es": "es-ES", "fr": "fr-FR", "de": "de-DE", "ru": "ru-RU",
             "pt": "pt-BR"}

DEFAULT_CARRIERS = {
    1: "6925f16e-e25c-4768-bc50-8885c4baaa8f", 2: "6f5e4750-b686-4d5a-ac6f-0dc2e3099b34",
    3: "0cdc8424-a0a6-4b01-aa23-8a6fe777f9db", 4: "b502fba8-3905-4e80-a9e4-25656ee30ac2",
    5: "f036f28b-08cc-46c2-bfa7-1622ccc13636", 6: "a35c4042-30d1-4c80-9f89-350805a41ed1",
    8: "9457de07-8236-4840-81d8-e8c9011c0f56"}

# (version, direction): {table: condition}. A row for which the condition is true goes.
ROWS = {
    (2, FORWARD): {SETTINGS: replaced_by_a_later_row(
        SETTINGS, productId="''", machineConfigId="0")},
    (2, BACKWARD): {SETTINGS: replaced_by_a_later_row(SETTINGS, productId="''")},
    (9, FORWARD): {"MC_MachineSystem": "lastUsedConfigId IS NULL"},
    (12, FORWARD): {"switchToSectionBridge": replaced_by_a_later_row(
        "switchToSectionBridge", machineConfigId="0", sectionId="0")},
}

# (version, direction): {table: {column: what it becomes}}. The expression holds for every row; for
# a row that the version does not change it is the old value. Versions 20, 23 and 31 add their
# columns unless they are there, and set them in any case.
VALUES = {
    (2, FORWARD): {SETTINGS: PRODUCT_SETTINGS},
    (2, BACKWARD): {SETTINGS: PRODUCT_SETTINGS},
    (7, FORWARD): {"files": {"absolutePath": {
        "becomes": "'/usr/bin/harlo/' ||"
                   " ifnull(substr(absolutePath, max(instr(absolutePath, 'userFiles'), 1)), '')"}}},
    (11, FORWARD): {"userProfiles": {"dateFormat": replaced(
        "dateFormat", {"m/dd/yyyy": "M/d/yyyy", "dd/m/yyyy": "d/M/yyyy"})}},
    (11, BACKWARD): {"userProfiles": {"dateFormat": replaced(
        "dateFormat", {"M/dd/yyyy": "m/d/yyyy", "dd/M/yyyy": "d/m/yyyy"})}},
    (12, FORWARD): {"switchToSectionBridge": {
        "sectionId": zero("sectionId"), "switchId": whole_number("switchId")}},
    (16, FORWARD): {"userProfiles": {"language": replaced("language", LANGUAGES)}},
    (16, BACKWARD): {"userProfiles": {"language": replaced(
        "language", {new: old for old, new in LANGUAGES.items()} | {"fr-CA": "fr"})}},
    (20, FORWARD): {"userProfiles": {"audibleBackingUpWarningEnabled": {"becomes": "1"},
                                     "audioVolumePercent": {"becomes": "0.75"}}},
    (23, FORWARD): {
        "PC_Ingredient": {"unit": {"becomes": "CASE unit WHEN 1 THEN 2 ELSE unit END"}},
        "PC_IngredientToMixBridge": {"displayUnit": {
            "becomes": "(SELECT CASE unit WHEN 1 THEN 2 ELSE unit END FROM PC_Ingredient"
                       " WHERE PC_Ingredient.id = PC_IngredientToMixBridge.productId)"}},
        "PC_Mix": {"modified": {
            "becomes": "CASE WHEN carrierVolume != 0 OR"
                       " (SELECT quantity FROM PC_IngredientToMixBridge WHERE quantity != 0"
                       " AND PC_IngredientToMixBridge.mixId = PC_Mix.id)"
                       " THEN 1 ELSE modified END"}},
        "productControl_userProfile": {"mixSetupMode": {"becomes": "0"}}},
    (23, BACKWARD): {"PC_Ingredient": {
        "unit": {"becomes": "CASE unit WHEN 1 THEN 0 WHEN 2 THEN 1 ELSE unit END"}}},
    (25, FORWARD): {
        "serialDevices": {"portName": on_board_port("portName")},
        "gpsReceivers": {"receiverId": on_board_port("receiverId"),
                         "serialPortName": on_board_port("serialPortName")}},
    (25, BACKWARD): {
        "serialDevices": {"portName": usb_port("portName")},
        "gpsReceivers": {"receiverId": usb_port("receiverId"),
                         "serialPortName": usb_port("serialPortName")}},
    (31, FORWARD): {"PC_Carrier": {"uuid": random_identifier(DEFAULT_CARRIERS)},
                    "PC_Mix": {"uuid": random_identifier()},
                    "PC_PlanterVariety": {"uuid": random_identifier()}},
    (32, FORWARD): {"workOrderRxMaps": WORK_ORDER_MAPS},
    (32, BACKWARD): {"workOrderRxMaps": WORK_ORDER_MAPS},
}

# Dropped tables that tests/data does not have at that version: the device software makes them.
DROPPED_IF_THERE = {
    (19, BACKWARD): ("onScreenSwitchboxConfig", "onScreenSwitchboxSwitchLabels"),
    (21, BACKWARD): ("implementToGpsReceiverMapping",),
}

# The rows that every run takes, whatever its versions.
USED_BY_NOTHING = (
    "NOT EXISTS (SELECT 1 FROM PC_MixToProductConfigBridge"
    " WHERE productConfigId = PC_ProductConfig.id AND mixId IS NOT NULL)"
    " AND NOT EXISTS (SELECT 1 FROM PC_PlanterVarietyToProductConfigBridge"
    " WHERE productConfigId = PC_ProductConfig.id AND varietyId IS NOT NULL)"
    " AND NOT EXISTS (SELECT 1 FROM PC_ProductConfigToMachineConfigBridge"
    " WHERE activeProductConfigId = PC_ProductConfig.id AND machineConfigId IS NOT NULL)")
OF_NO_CONFIGURATION = "productConfigId NOT IN (SELECT id FROM PC_ProductConfig)"
EVERY_RUN = {
    "rows": [
        {"table": "PC_ProductConfig", "rows": USED_BY_NOTHING},
        {"table": "PC_MixToProductConfigBridge", "rows": OF_NO_CONFIGURATION},
        {"table": "PC_PlanterVarietyToProductConfigBridge", "rows": OF_NO_CONFIGURATION}],
    "names": {table: "displayName" for table in ("files", "growers", "farms", "fields")},
    "values": {"tableVersion": ["version", "MirelVersion"], "registrationInfo": ["partNumber"]},
    "scripts": ["refMachines.sql", "refProducts.sql"],
}

# The tables without which a version's step forward fails. A step that drops a table only if it is
# there does not need it.
NEEDED = {
    2: ("MC_MachineConfig", "productControl_productSettings"),
    3: ("ombrixMasterSettings",),
    4: ("systemControl",),
    5: ("MC_EquipmentSection",),
    6: ("MC_EquipmentSectionGroup",),
    7: ("FileTransferHistory", "IncomingFiles", "OutgoingFiles", "files", "systemFiles"),
    8: ("userProfiles",),
    10: ("boomCapacity",),
    11: ("FileTransferHistory", "IncomingFiles", "OutgoingFiles"),
    12: ("MC_EquipmentSection", "MC_EquipmentSectionGroup", "MC_MachineConfig",
         "switchToSectionBridge"),
    13: ("userProfiles",),
    14: ("preferredGpsSolutions",),
    15: ("MC_EquipmentSectionGroup",),
    16: ("languages", "userProfiles"),
    17: ("internalGpsReceiverSettings",),
    18: ("JP_JobProfile",),
    19: ("MC_MachineConfig",),
    20: ("userProfiles",),
    21: ("MC_Machine", "MC_MachineConfig", "preferredGpsSolutions", "serialDevices"),
    22: ("farms", "fields", "growers"),
    23: ("PC_Ingredient", "PC_IngredientToMixBridge", "PC_Mix", "productControl_userProfile"),
    25: ("farms", "fields", "growers"),
    26: ("supportedHarloReceiverSettings",),
    27: ("PC_Ingredient", "PC_IngredientToMixBridge", "PC_Mix"),
    28: ("VideoCaptureConfigurationSetup",),
    30: ("systemControl",),
    31: ("PC_Carrier", "PC_Mix", "PC_PlanterVariety"),
    32: ("SM_Preferences", "files"),
    33: ("systemControl",),
}
