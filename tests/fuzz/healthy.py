"""Devices with random rows on which every step succeeds; the same seed always makes the same
device. A run takes from them only what its versions take on purpose, and what every run repairs."""

import random

from devices import (
    DATABASE, DEMO_FILES, PLATFORM, REGISTRATION, SOFTWARE_VERSION, Device, database_of)

# Texts that the steps look for; all other texts are made of words.
TEXTS = (
    "", " ", "m/dd/yyyy", "dd/m/yyyy", "M/dd/yyyy", "dd/M/yyyy", "yyyy-MM-dd", "en", "es", "fr",
    "de", "ru", "pt", "pl", "en-US", "es-ES", "fr-FR", "fr-CA", "de-DE", "ru-RU", "pt-BR",
    "ttyUSB0", "ttyS1", "ttymxc2", "gps1", "gps11", "USBttyS", "ttyusb0", "/userFiles/a.shp",
    "/data/userFiles/userFiles/b", "/media/usb0/c.shp", "userfiles/d", "Müller", "Home", "Home_2")
NUMBERS = (0, 1, 2, 3, 7, -1, 2 ** 31, 901)
FRACTIONS = (1.5, 2.25, -2.5, -2.75)  # values where whole numbers are expected
# The last ones have a tie in the seventh digit.
REALS = (0.0, 1.5, -12.75, 1e-07, 1e20, 3.14159265, 98765.4321, 1234565.0, 1234575.0, 0.1234565,
         12.34565, -1234.565)
# Tables that the device software makes at some versions.
OF_THE_SOFTWARE = {
    19: "CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels (machineConfigId INTEGER,"
        " switchId INTEGER, switchLabel TEXT, switchState INTEGER)",
    20: "CREATE TABLE IF NOT EXISTS onScreenSwitchboxConfig (machineConfigId INTEGER,"
        " sectionId INTEGER, switchId INTEGER)",
    21: "CREATE TABLE IF NOT EXISTS implementToGpsReceiverMapping (implementId INTEGER PRIMARY KEY,"
        " gpsId INTEGER)",
}
# Columns that may be there before the version that adds them.
ADDED_BY = {
    20: "ALTER TABLE userProfiles ADD COLUMN audibleBackingUpWarningEnabled BOOLEAN;"
        "ALTER TABLE userProfiles ADD COLUMN audioVolumePercent REAL",
    23: "ALTER TABLE PC_Mix ADD COLUMN modified INTEGER DEFAULT 0;"
        "ALTER TABLE PC_IngredientToMixBridge ADD COLUMN displayUnit INTEGER DEFAULT 0;"
        "ALTER TABLE productControl_userProfile ADD COLUMN mixSetupMode INTEGER",
    31: "ALTER TABLE PC_Carrier ADD COLUMN uuid TEXT;"
        "ALTER TABLE PC_Mix ADD COLUMN uuid TEXT;"
        "ALTER TABLE PC_PlanterVariety ADD COLUMN uuid TEXT;"
        "UPDATE PC_Carrier SET uuid = 'carrier ' || id WHERE id % 2",
}
# A reference that is NULL becomes 0, which no row has, and the step fails.
NEVER_NULL = {"productControl_productSettings": "machineConfigId",
              "switchToSectionBridge": "machineConfigId",
              "onScreenSwitchboxConfig": "machineConfigId",
              "gpsReceivers": "machineConfigId"}
# Version 27 makes these columns a key.
KEY_OF_27 = "PC_IngredientToMixBridge", "mixId, productId"
KEPT = ("tableVersion", "registrationInfo")


def healthy_device(seed, version, target, platform, busy=()):
    """A device at a version, with random rows.

    busy: tables that change most
    """
    chance = random.Random(seed)
    files = {DATABASE: database_of(version), SOFTWARE_VERSION: b"1.2.3\n",
             PLATFORM: f"{platform}\n".encode(), "pool/readme.txt": b"",
             REGISTRATION: DEMO_FILES[REGISTRATION]}
    device = Device(version, files, [str(target).encode()])
    with device.edit() as database:
        for first, statement in OF_THE_SOFTWARE.items():
            if version >= first and chance.random() < 0.8:
                database.run(statement)
        for later, statements in ADDED_BY.items():
            if version < later and chance.random() < 0.5:
                for statement in statements.split(";"):
                    database.run(statement)
        for table in RandomTable.all_of(database, chance):
            for _ in range(60 if table.name in busy else chance.choice((0, 2, 6, 12))):
                table.change_rows()
        if chance.random() < 0.7:
            remove_violations(database)
        for table, column in NEVER_NULL.items():
            database.run(f"DELETE FROM {table} WHERE {column} IS NULL")
        table, key = KEY_OF_27
        database.run(f"DELETE FROM {table} WHERE rowid NOT IN"
                     f" (SELECT min(rowid) FROM {table} GROUP BY {key})")
    return device


def remove_violations(database):
    while rows := database.run("PRAGMA foreign_key_check"):
        for table, rowid, *_ in rows:
            database.run(f"DELETE FROM {table} WHERE rowid = ?", rowid)


class RandomTable:
    """A table whose rows are changed at random."""

    def __init__(self, database, chance, name):
        self.database, self.chance, self.name = database, chance, name
        lines = database.run(f"PRAGMA table_info({name})")
        self.columns = {column: declared for _, column, declared, *_ in lines}
        self.key = [line[1] for line in lines if line[5]]
        self.parents = {line[3]: (line[2], line[4]) for line in
                        database.run(f"PRAGMA foreign_key_list({name})")}

    @classmethod
    def all_of(cls, database, chance):
        names = database.run("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name")
        return [cls(database, chance, name) for name, in names
                if name not in KEPT and not name.startswith("sqlite_")]

    def change_rows(self):
        columns = self.chance.sample([*self.columns], self.chance.randint(1, len(self.columns)))
        values = [self.value(column) for column in columns]
        match self.chance.randrange(5):
            case 0 | 1:
                # A value that its column does not allow is left out.
                self.database.run(f"INSERT OR IGNORE INTO {self.name} ({', '.join(columns)})"
                                  f" VALUES ({', '.join('?' * len(columns))})", *values)
            case 2:
                self.database.run(f"INSERT OR IGNORE INTO {self.name} ({', '.join(columns)})"
                                  f" SELECT {', '.join(columns)} FROM {self.name} LIMIT 3")
            case 3:
                self.database.run(f"UPDATE OR IGNORE {self.name} SET {columns[0]} = ?"
                                  f" WHERE rowid % 3 = ?", values[0], self.chance.randrange(3))
            case 4 if self.chance.random() < 0.3:
                self.database.run(f"DELETE FROM {self.name} WHERE rowid % 5 = ?",
                                  self.chance.randrange(5))

    def value(self, column):
        if column in self.parents:
            return self.reference(column)
        if self.chance.random() < 0.2:
            return None
        declared = self.columns[column]
        if "BOOL" in declared:
            return self.chance.randrange(2)
        if "INT" in declared:
            fractions = () if column in self.key else FRACTIONS
            return self.chance.choice((*NUMBERS, *fractions, self.chance.randrange(10 ** 6)))
        if "REAL" in declared:
            return self.chance.choice(
                (*REALS, self.chance.uniform(-1e5, 1e5), self.chance.random()))
        if declared == "BLOB":
            return self.chance.randbytes(4)
        return self.chance.choice(TEXTS)

    def reference(self, column):
        if self.chance.random() < 0.2:
            return None
        if self.chance.random() < 0.05:
            return 999
        parent, key = self.parents[column]
        rows = self.database.run(f"SELECT {key} FROM {parent} ORDER BY 1")
        return self.chance.choice(rows)[0] if rows else None
