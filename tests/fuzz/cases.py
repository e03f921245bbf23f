"""Damaged and hostile inputs of whole runs: the case of a seed is always the same."""

import functools
import pathlib
import random
import sqlite3
import tempfile
from contextlib import closing, suppress
from dataclasses import dataclass, field

DATA = pathlib.Path(__file__).parent.parent / "data"
MEMORY = "/dev/shm"

DATABASE = "app/databases/my.db.sqlite"
JOURNAL = f"{DATABASE}-journal"
LOG = "app/databases/sqlMigrationErrorLog.txt"
MACHINES = "app/refMachines.sql"
PRODUCTS = "app/refProducts.sql"
SOFTWARE_VERSION = "app/quillmoor/softwareversion.txt"
PLATFORM = "etc/harlo/platform"
REGISTRATION = "Harlo/registration.xml"

NEWEST = 34
DEMO = {path: (DATA / "demo" / pathlib.Path(path).name).read_bytes()
        for path in (MACHINES, PRODUCTS, REGISTRATION)}

# What the start and the maintenance read in every run, and what the steps change most.
BUSY_TABLES = ("tableVersion", "registrationInfo", "growers", "farms", "fields", "files", "systemFiles",
               "languages", "userProfiles", "MC_MachineConfig", "serialDevices",
               "preferredGpsSolutions", "onScreenSwitchboxSettings", "switchToSectionBridge",
               "productControl_productSettings", "PC_Carrier", "PC_Mix", "PC_ProductConfig",
               "PC_MixToProductConfigBridge", "PC_ProductConfigToMachineConfigBridge")

SMALL_DATABASE = """
CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);
INSERT INTO tableVersion VALUES('mainSqlDb', 1, '1.2.3'), ('altSqlDb', 1, NULL);
CREATE TABLE registrationInfo (fieldComputerId INTEGER PRIMARY KEY, partNumber TEXT);
INSERT INTO registrationInfo VALUES(40117, '94071A');
CREATE TABLE growers (id INTEGER PRIMARY KEY, displayName TEXT);
INSERT INTO growers VALUES(1, 'Miller'), (2, 'Miller'), (3, 'O''Brien');
CREATE TABLE farms (id INTEGER PRIMARY KEY, displayName TEXT, growerId INTEGER);
INSERT INTO farms VALUES(1, 'Home', 1), (2, 'Home', 1), (3, 'Home', 2);
CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, farmId INTEGER);
INSERT INTO fields VALUES(1, 'North 40', 1), (2, 'North 40', 1), (3, NULL, 2);
CREATE TABLE files (id INTEGER PRIMARY KEY, uuid TEXT UNIQUE, displayName TEXT, path TEXT,
    size INTEGER, typeId INTEGER, date TEXT, growerId INTEGER, farmId INTEGER, fieldId INTEGER);
INSERT INTO files VALUES(1, '5d0c', 'Boundary', 'a/b.shp', 4096, 3, '2012-05-01', 1, 1, 1),
    (2, '5d0d', 'Boundary', 'a/c.shp', 4096, 3, '2012-05-01', 1, 1, 1);
"""

SQL_TOKENS = [token.encode() for token in (
    "'", "''", "\"", "`", "[", "]", "(", ")", ",", ";", "--", "/*", "*/", "%1", "%2", "%99", ":uuid", "?",
    "\0", "\n", "\r\n", "\ufeff", "\ufffe", "\uffff", "🚜", "FOREIGN KEY", "foreign key",
    "FOREIGN KEY (a, b) REFERENCES growers(id, b), ", " REFERENCES growers(id) ON DELETE CASCADE",
    " PRIMARY KEY", "PRIMARY KEY (id)", " UNIQUE", " NOT NULL", " DEFAULT (1)", " DEFAULT 'a''b'",
    " DEFAULT NULL", " CHECK (0)", " COLLATE NOCASE", " COLLATE nowhere", " AUTOINCREMENT",
    " WITHOUT ROWID", " STRICT", " GENERATED ALWAYS AS (1)", "CREATE TABLE ", "CREATE TEMP TABLE ",
    "CREATE VIEW ", "CREATE INDEX ", "CREATE VIRTUAL TABLE ", " USING fts3(a)", " AS SELECT 1",
    "TABLE", "INTEGER", "TEXT", "BLOB", "REAL", "VARCHAR(40)", "id", "displayName", "tableVersion",
    "sqlite_master", "_temp", "_old", "-9223372036854775808", "9223372036854775807", "1e999",
    "x'00'", "NULL")]
SCRIPT_TOKENS = SQL_TOKENS + [token.encode() for token in (
    "BEGIN;", "BEGIN EXCLUSIVE;", "COMMIT;", "ROLLBACK;", "SAVEPOINT a;", "VACUUM;", "REINDEX;", "ANALYZE;",
    "PRAGMA writable_schema = ON;", "PRAGMA foreign_keys = OFF;", "PRAGMA journal_mode = WAL;",
    "PRAGMA journal_mode = OFF;", "PRAGMA locking_mode = EXCLUSIVE;", "PRAGMA query_only = ON;",
    "PRAGMA max_page_count = 1;", "PRAGMA encoding = 'UTF-16';", "PRAGMA cell_size_check = ON;",
    "PRAGMA page_size = 512;", "PRAGMA recursive_triggers = ON;", "PRAGMA case_sensitive_like = ON;",
    "ATTACH '/app/other.sqlite' AS other;", "ATTACH ':memory:' AS main;", "DETACH main;",
    "UPDATE sqlite_master SET sql = 'CREATE TABLE t (a';", "DELETE FROM sqlite_master;",
    "DROP TABLE growers;", "DROP TABLE files;", "CREATE TABLE growers (id);", "DELETE FROM tableVersion;",
    "ALTER TABLE growers RENAME TO farms;", "ALTER TABLE farms DROP COLUMN growerId;",
    "CREATE TEMP TABLE growers (id, displayName);", "CREATE TEMP VIEW files AS SELECT 1;",
    "INSERT INTO growers (displayName) SELECT displayName FROM growers;",
    "UPDATE growers SET displayName = 'a';", "UPDATE files SET displayName = 'a';",
    "UPDATE growers SET displayName = 'it''s';", "SELECT load_extension('libm.so.6');",
    "SELECT * FROM growers, farms, fields;", "EXPLAIN SELECT 1;", "CREATE TRIGGER t AFTER UPDATE ON growers "
    "BEGIN DELETE FROM growers WHERE id = new.id", "END;", ";;;;;;;;")]
XML_TOKENS = [token.encode() for token in (
    "<", ">", "/>", "&", "&amp;", "&#0;", "&#1114111;", "&#x110000;", "&a;", "&series;", "%a;", "'", "\"", "]]>",
    "<![CDATA[", "<!--", "-->", "<?a ", "?>", "<?xml version='1.0' encoding='UTF-16'?>",
    "<?xml version='1.1'?>", "<?xml version='1.0' encoding='UTF-7'?>",
    "<?xml version='1.0' encoding='IBM037'?>", "<!DOCTYPE LVData [", "<!ENTITY a '&a;'>",
    "<!ENTITY b '&a;&a;'>", "<!ENTITY a SYSTEM '/etc/harlo/platform'>", "<!ENTITY % a '<b>'>",
    "<!ELEMENT a (b|c)*>", "<!ATTLIST a b (c|d) #IMPLIED>", "<!NOTATION n PUBLIC 'n'>", "<LVData>",
    "</LVData>", "<lvdata>", "<PartNumber>", "</PartNumber>", "<PARTNUMBERSUFFIX>9</PARTNUMBERSUFFIX>",
    "<fieldComputerId>0 OR 1</fieldComputerId>", "<fieldComputerId>1;--</fieldComputerId>",
    "<a:b xmlns:a='c'>", "<a b='1' b='2'>", "xmlns=''", "\0", "\ufeff", "\ufffe", "🚜")] + [
        b"\xff\xfe", b"\xfe\xff", b"\xff", b"\x80", b"\xed\xa0\x80", b"\x00\x00\xfe\xff"]
TEXT_TOKENS = [b"\n", b"\r", b"\r\n", b"\0", b"'", b"\"", b"%1", b"%2", b"TORVIKMAX", b"TORVIK", b"1.2.3", b"\xff",
               b"\xef\xbb\xbf", b"\xff\xfe", b"\xed\xa0\x80", "🚜".encode(), b"a" * 5000, b" ", b"\\"]
NUMBERS = (0, 1, 2, 7, 127, 128, 255, 256, 32767, 65535, 65536, 2 ** 31 - 1, 2 ** 31, 2 ** 32 - 1)
ARGUMENTS = [token.encode() for token in (
    "", " ", "0", "-1", "1", "34", "35", "+34", " 34", "34 ", "0x22", "034", "3e1", "34.0", "2147483647",
    "-2147483648", "2147483648", "-2147483649", "9" * 400, "abc", "--help", "-version", "-h", "--", "-",
    "-platform", "-qmljsdebugger=port:1", "-style", "'", "34'; DROP TABLE growers", "%1", "٣٤", "34\n")] + [
        b"\xff", b"\xed\xa0\x80", b"3" * 100000]


@dataclass
class Device:
    """What a run finds: files by their path, None for a directory, a Path for a link's target."""

    version: int
    files: dict
    arguments: list

    @property
    def database(self):
        return self.files.get(DATABASE)

    @database.setter
    def database(self, content):
        self.files[DATABASE] = bytes(content)

    def edit(self):
        return Edit(self)


class Edit:
    """A connection to the device's database; statements that fail are left out."""

    def __init__(self, device):
        self.device = device

    def __enter__(self):
        self.connection = sqlite3.connect(":memory:", isolation_level=None)
        self.connection.deserialize(self.device.database)
        return self

    def __exit__(self, *_):
        self.device.database = self.connection.serialize()
        self.connection.close()

    def run(self, statement, *values):
        with suppress(sqlite3.Error, sqlite3.Warning, ValueError, OverflowError):
            return self.connection.execute(statement, values).fetchall()
        return []


@functools.cache
def database_of(version, *pragmas):
    """The bytes of a version's database; version 0 is a small one, which is quick to read."""
    if version == 0:
        dump = SMALL_DATABASE
    else:
        dump = (DATA / f"version_{version:02}.sql").read_text(encoding="utf-8")
        if version == 1 and "blemishes" in pragmas:
            dump += (DATA / "blemishes.sql").read_text(encoding="utf-8")
    with tempfile.NamedTemporaryFile(dir=MEMORY, prefix="fuzz.") as file:
        with closing(sqlite3.connect(file.name)) as database:
            for pragma in pragmas:
                if pragma != "blemishes":
                    database.execute(f"PRAGMA {pragma}")
            database.executescript(dump)
        return pathlib.Path(file.name).read_bytes()


# ---- Parts of all kinds -------------------------------------------------------------------------

def times(chance):
    return range(chance.choice((1, 1, 2, 4, 16)))


def mutated(chance, data, tokens):
    """A text with pieces gone, come, doubled or in another place."""
    data = bytearray(data)
    for _ in times(chance):
        at = chance.randrange(len(data) + 1)
        end = min(len(data), at + chance.choice((0, 1, 4, 16, 64, 256)))
        match chance.randrange(8):
            case 0:
                del data[at:end]
            case 1 | 2:
                data[at:end] = chance.choice(tokens)
            case 3:
                data[at:at] = data[at:end] * chance.choice((1, 2, 50, 1000))
            case 4:
                data[at:end] = bytes(byte ^ 1 << chance.randrange(8) for byte in data[at:end])
            case 5:
                data[at:at] = chance.randbytes(chance.choice((1, 4, 100)))
            case 6:
                other = chance.randrange(len(data) + 1)
                data[other:other] = data[at:end]
            case 7 if chance.random() < 0.2:
                del data[at:]
        del data[1_000_000:]
    return bytes(data)


def strange_file(chance):
    """Something else in a file's place."""
    return chance.choice((b"", None, pathlib.Path("/nowhere/file"), pathlib.Path("/dev/null"),
                          pathlib.Path("loop"), chance.randbytes(5000)))


# Every step takes its time, and is as well the first one.
DISTANCES = (0, 1, -1, 2, -2, 5, -5, NEWEST, -NEWEST)
DISTANCE_WEIGHTS = (60, 14, 14, 3, 3, 2, 2, 1, 1)


def good_device(chance, small):
    if small:
        version = target = 1
        database = database_of(0)
    else:
        version = chance.randint(1, NEWEST)
        target = version + chance.choices(DISTANCES, DISTANCE_WEIGHTS)[0]
        blemishes = ("blemishes",) if version == 1 and chance.random() < 0.5 else ()
        database = database_of(version, *blemishes)
    files = {**DEMO, DATABASE: database, SOFTWARE_VERSION: b"1.2.3\n", PLATFORM: b"TORVIK\n",
             "pool/implement.iop": b"", "pool/readme.txt": b""}
    for path in (MACHINES, PRODUCTS):
        if chance.random() < 0.5:
            del files[path]
    return Device(version, files, [] if chance.random() < 0.1 else [str(target).encode()])


# ---- The kinds: each takes the source of chance and a device in good order ----------------------

def bytes_of_the_database(chance, device):
    database = bytearray(device.database)
    for _ in range(chance.choice((1, 10, 100))):
        at = chance.randrange(100, len(database))
        # Where a page begins stands what the others hang on.
        if chance.random() < 0.5:
            at = min(max(100, at // 4096 * 4096 + chance.randrange(64)), len(database) - 1)
        database[at] = chance.choice((chance.randrange(256), database[at] ^ 1 << chance.randrange(8), 0, 255))
    device.database = database


def pages_of_the_database(chance, device):
    database = bytearray(device.database)
    pages = len(database) // 4096
    kind = chance.randrange(6)
    for _ in range(chance.randint(1, 4)):
        page, other = chance.randrange(1, pages) * 4096, chance.randrange(1, pages) * 4096
        match kind:
            case 0:
                database[page:page + 4096] = bytes(4096)
            case 1:
                database[page:page + 4096] = b"\xff" * 4096
            case 2:
                database[page:page + 4096] = chance.randbytes(4096)
            case 3:
                database[page:page + 4096] = database[other:other + 4096]
            case 4:
                # A page above others points to some page again: a walk could go round in circles.
                number = chance.randrange(1, pages + 1).to_bytes(4, "big")
                at = page + chance.choice((8, 12, chance.randrange(4092)))
                database[at:at + 4] = number
                database[page] = chance.choice((2, 5, 10, 13, database[page]))
            case 5:
                del database[chance.randrange(len(database)):]
                database += chance.randbytes(chance.choice((0, 0, 100, 4096)))
                break
    device.database = database


def header_of_the_database(chance, device):
    database = bytearray(device.database)
    for _ in times(chance):
        at, size = chance.choice((
            (0, 1), (15, 1), (16, 2), (18, 1), (19, 1), (20, 1), (21, 1), (22, 1), (23, 1), (24, 4), (28, 4),
            (32, 4), (36, 4), (40, 4), (44, 4), (48, 4), (52, 4), (56, 4), (60, 4), (64, 4), (68, 4),
            (72, 1), (92, 4), (96, 4), (100, 1), (103, 2), (105, 2)))
        number = chance.choice((*NUMBERS, chance.randrange(100)))
        database[at:at + size] = (number % 256 ** size).to_bytes(size, "big")
    device.database = database


ODD_COLUMNS = ("extra TEXT DEFAULT 'it''s FOREIGN KEY (a, b)'", "\"a b\" TEXT", "[x,y] INT", "`FOREIGN KEY` INT CHECK (1)",
               "'q' TEXT", "a.b", "extra", "extra TEXT /* , ( */", "extra INT DEFAULT (1 + (2))",
               "extra TEXT REFERENCES growers(id)", "extra AS (1)", "extra TEXT NOT NULL DEFAULT \"x,y\"")
ODD_CONSTRAINTS = ("FOREIGN KEY (id) REFERENCES growers(id, b)", "FOREIGN KEY(id)REFERENCES nowhere",
                   "FOREIGN KEY (id, displayName) REFERENCES growers(id, displayName)", "CHECK (1)",
                   "CHECK (length('FOREIGN KEY, (') > 1)", "UNIQUE (id)", "foreign key (id) references farms(id)",
                   "CONSTRAINT \"FOREIGN KEY (\" UNIQUE (id)", "FOREIGN KEY (id) REFERENCES farms /* ), */ (id)")


def odd_text(chance, text, name):
    """A CREATE text as nobody writes it, but mostly one that can be read."""
    beginning, _, rest = text.partition("(")
    match chance.randrange(7):
        case 0:
            return f"{beginning}({chance.choice(ODD_COLUMNS)}, {rest}"
        case 1:
            return f"{text[:-1]}, {chance.choice(ODD_CONSTRAINTS)})"
        case 2:
            return text + chance.choice((" STRICT", " WITHOUT ROWID", " -- end", ";", " /* , */ "))
        case 3:
            return chance.choice((text.lower(), text.upper(), text.replace("FOREIGN KEY", "Foreign Key")))
        case 4:
            return text.replace(" ", chance.choice(("\n", "\t", "  ", " /* ,( */ ", " -- (,\n")))
        case 5:
            return text.replace(name, chance.choice((f'"{name}"', f"[{name}]", f"main.{name}", name.upper())), 1)
        case _:
            types = chance.choice((" INTEGER", " TEXT", " REAL", " varchar(40)"))
            return text.replace(types, chance.choice(("", " BLOB", " [a,b]", " \"a (,\"", " NUMERIC(10, 5)")))


def is_readable(database):
    with closing(sqlite3.connect(":memory:")) as connection:
        try:
            connection.deserialize(database)
            connection.execute("SELECT 1 FROM growers")
        except (sqlite3.Error, UnicodeDecodeError):  # The latter in an error's text.
            return False
    return True


def schema_of_the_database(chance, device):
    before = device.database
    edit_schema(chance, device)
    # Of a schema that SQLite does not read the program sees nothing.
    while not is_readable(device.database) and chance.random() < 0.8:
        device.database = before
        edit_schema(chance, device)


def edit_schema(chance, device):
    with device.edit() as database:
        database.run("PRAGMA writable_schema = ON")
        for _ in range(chance.choice((1, 1, 2, 5))):
            rows = database.run("SELECT rowid, sql, name, rootpage FROM sqlite_master")
            if not rows:
                break
            busy = [row for row in rows if row[2] in BUSY_TABLES]
            rowid, text, name, _ = chance.choice(chance.choice((rows, busy)) or rows)
            other = chance.choice(rows)
            match chance.randrange(12):
                case 0 | 1 | 2 | 3:
                    new = mutated(chance, (text or "").encode(), SQL_TOKENS)
                    database.run("UPDATE sqlite_master SET sql = CAST(? AS TEXT) WHERE rowid = ?", new, rowid)
                case 4:
                    column = chance.choice(("name", "tbl_name", "type", "sql"))
                    value = chance.choice((None, b"x", 7, other[1], other[2], "", "a b", "a'b", "a\"b", "a%1b",
                                           "sqlite_a", "GROWERS", "a" * 100_000, "a\0b", "view"))
                    database.run(f"UPDATE sqlite_master SET {column} = ? WHERE rowid = ?", value, rowid)
                case 5:
                    page = chance.choice((other[3], 0, 1, 2, -1, 10 ** 6, 2 ** 40, None, "a"))
                    database.run("UPDATE sqlite_master SET rootpage = ? WHERE rowid = ?", page, rowid)
                case 6:
                    database.run("DELETE FROM sqlite_master WHERE rowid = ?", rowid)
                case 7:
                    database.run("INSERT INTO sqlite_master SELECT * FROM sqlite_master WHERE rowid = ?", rowid)
                case 8 | 9 | 10:
                    database.run("UPDATE sqlite_master SET sql = ? WHERE rowid = ?",
                                 odd_text(chance, text or "", name), rowid)
                case 11:
                    columns = ", ".join(f"c{i} TEXT" for i in range(chance.choice((1, 500, 2500))))
                    database.run("UPDATE sqlite_master SET sql = ? WHERE rowid = ?",
                                 f"CREATE TABLE {other[2]} ({columns})", rowid)


VALUES = (None, "", " ", "'", "''", "a'b", "\"", "%1", "%2", "%1%2%3", "a\0b", "\0", "\ufffe", "\ufeff", "🚜", "ttyS9",
          "ttyUSB", "34", "abc", "-1", "1e999", "x" * 70_000, "Miller", "miller ", "/", "../../x", 0, -1, 1,
          2, 34, 35, 2 ** 31 - 1, 2 ** 31, 2 ** 63 - 1, -2 ** 63, 1e308, -1e-308, float("inf"), 1.5, b"",
          b"\0", b"\xff\xfe", bytes(70_000))


def table_of(chance, database):
    tables = [name for name, in database.run("SELECT name FROM sqlite_master WHERE type = 'table'")
              if not name.startswith("sqlite_")]
    busy = [name for name in tables if name in BUSY_TABLES]
    return chance.choice(chance.choice((tables, busy)) or tables or ["growers"])


def column_of(chance, database, table):
    columns = database.run(f"SELECT name FROM pragma_table_info('{table}')")
    return chance.choice(columns)[0] if columns else "id"


def rows_of_the_database(chance, device):
    with device.edit() as database:
        for _ in times(chance):
            table = table_of(chance, database)
            column = column_of(chance, database, table)
            value = chance.choice(VALUES)
            where = chance.choice(("", f"WHERE rowid % 3 = {chance.randrange(3)}"))
            match chance.randrange(6):
                case 0 | 1 | 2:
                    database.run(f"UPDATE OR IGNORE {table} SET {column} = ? {where}", value)
                case 3:
                    # Neither the encoding nor the end of a text is as it should be.
                    database.run(f"UPDATE OR IGNORE {table} SET {column} = CAST(? AS TEXT) {where}",
                                 mutated(chance, b"Miller", TEXT_TOKENS))
                case 4:
                    others = [name for name, in database.run(
                        f"SELECT name FROM pragma_table_info('{table}') WHERE pk = 0")]
                    if others:
                        names = ", ".join(others)
                        database.run(f"INSERT INTO {table} ({names}) SELECT {names} FROM {table} LIMIT 200")
                case 5:
                    database.run(f"DELETE FROM {table} {where}")


def tables_of_the_database(chance, device):
    with device.edit() as database:
        database.run("PRAGMA legacy_alter_table = ON")
        for _ in times(chance):
            table, other = table_of(chance, database), table_of(chance, database)
            column = column_of(chance, database, table)
            statements = (
                f"DROP TABLE {table}", f"ALTER TABLE {table} RENAME TO {table}_gone",
                f"ALTER TABLE {table} RENAME COLUMN {column} TO \"{chance.choice(('a b', 'x', 'A''b', '%1'))}\"",
                f"ALTER TABLE {table} DROP COLUMN {column}",
                f"ALTER TABLE {table} ADD COLUMN extra TEXT DEFAULT 'a;b'",
                f"CREATE TABLE {table}_temp (a)", f"CREATE TABLE {table}_old (a)",
                f"CREATE TABLE {table}_temp AS SELECT * FROM {table}",
                f"CREATE INDEX i{chance.randrange(9)} ON {table} ({column})",
                f"CREATE UNIQUE INDEX u{chance.randrange(9)} ON {table} ({column} COLLATE NOCASE)",
                f"CREATE INDEX e{chance.randrange(9)} ON {table} (lower({column})) WHERE {column} > 1",
                f"CREATE TRIGGER t{chance.randrange(9)} BEFORE UPDATE ON {table} "
                "BEGIN SELECT RAISE(ABORT, 'refused'); END",
                f"CREATE TRIGGER t{chance.randrange(9)} BEFORE INSERT ON {table} "
                "BEGIN SELECT RAISE(IGNORE); END",
                f"CREATE TRIGGER t{chance.randrange(9)} AFTER UPDATE ON {table} BEGIN DELETE FROM {other}; END",
                f"CREATE TRIGGER t{chance.randrange(9)} AFTER DELETE ON {table} "
                f"BEGIN UPDATE {other} SET {column} = 1; END",
                f"CREATE TRIGGER t{chance.randrange(9)} AFTER UPDATE OF displayName ON {table} "
                f"BEGIN INSERT INTO {table} (displayName) VALUES (new.displayName); END")
            database.run(chance.choice(statements))
            if chance.random() < 0.2:
                database.run(f"ALTER TABLE {table} RENAME TO {table}_kept")
                database.run(chance.choice((
                    f"CREATE VIEW {table} AS SELECT * FROM {table}_kept", f"CREATE VIEW {table} AS SELECT 1",
                    f"CREATE TABLE {table} AS SELECT * FROM {table}_kept",
                    f"CREATE VIRTUAL TABLE {table} USING fts3(id, displayName)")))


PRAGMAS = ("page_size = 512", "page_size = 1024", "page_size = 65536", "encoding = 'UTF-16le'",
           "encoding = 'UTF-16be'", "auto_vacuum = FULL", "auto_vacuum = INCREMENTAL",
           "legacy_file_format = ON", "secure_delete = ON", "user_version = -1")


def form_of_the_database(chance, device):
    if chance.random() < 0.2:
        device.files[DATABASE] = strange_file(chance)
        return
    if chance.random() < 0.1:
        for path in list(device.files):
            if path.startswith("app/databases"):
                del device.files[path]
        if chance.random() < 0.5:
            device.files["app/databases"] = strange_file(chance)
        return
    device.database = database_of(device.version, chance.choice(PRAGMAS))
    if chance.random() < 0.3:
        database = bytearray(device.database)
        database[18:20] = chance.choice((b"\1\2", b"\2\1", b"\2\2", b"\3\3"))
        device.database = database
    if chance.random() < 0.5:
        bytes_of_the_database(chance, device)


@functools.cache
def broken_off(version, mode):
    """A database in the middle of a transaction, and the files that lie beside it then."""
    with tempfile.TemporaryDirectory(dir=MEMORY, prefix="fuzz.") as folder:
        path = pathlib.Path(folder, "my.db.sqlite")
        path.write_bytes(database_of(version))
        with closing(sqlite3.connect(path, isolation_level=None)) as database:
            database.execute(f"PRAGMA journal_mode = {mode}")
            database.execute("PRAGMA cache_size = 5")
            if mode == "DELETE":
                database.execute("BEGIN")
            tables = [name for name, in database.execute(
                "SELECT name FROM pragma_table_list WHERE type = 'table' AND wr = 0 AND name IN "
                "(SELECT name FROM sqlite_master WHERE name NOT IN ('tableVersion', 'sqlite_sequence'))")]
            for table in tables:
                database.execute(f"DELETE FROM {table} WHERE rowid % 2 = 0")
            database.execute("CREATE TABLE filler (a)")
            database.execute("INSERT INTO filler VALUES (zeroblob(100000))")
            return {f"app/databases/{file.name}": file.read_bytes()
                    for file in pathlib.Path(folder).iterdir()}


def journal_of_the_database(chance, device):
    version = chance.choice((1, 12, 21, 33, NEWEST))
    device.arguments = [str(version + chance.choice((-1, 0, 0, 0, 1))).encode()]
    device.files |= broken_off(version, chance.choice(("DELETE", "DELETE", "WAL")))
    if chance.random() < 0.2:
        device.database = database_of(chance.randint(1, NEWEST))
    beside = [path for path in device.files if path.startswith(DATABASE) and path != DATABASE]
    for _ in times(chance):
        path = chance.choice(beside)
        data = bytearray(device.files[path] or b"")
        if not data:
            continue
        match chance.randrange(5):
            case 0:
                at = chance.choice((8, 12, 16, 20, 24))
                data[at:at + 4] = chance.choice(NUMBERS).to_bytes(4, "big")
            case 1:
                data[chance.randrange(len(data))] = chance.randrange(256)
            case 2:
                del data[chance.randrange(len(data)):]
            case 3:
                # The name of a super-journal.
                name = chance.choice((b"/app/databases/other-mj", b"a'b", b"\xff", b"/nowhere/mj"))
                data += (1).to_bytes(4, "big") + name + len(name).to_bytes(4, "big") + (
                    sum(name).to_bytes(4, "big") + b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7")
            case 4:
                at, other = chance.randrange(len(data)), chance.randrange(len(data))
                data[at:at + 4100] = data[other:other + 4100]
        device.files[path] = bytes(data)
    if chance.random() < 0.1:
        device.files[chance.choice(beside)] = strange_file(chance)
    if chance.random() < 0.3:
        bytes_of_the_database(chance, device)


def registration_file(chance, device):
    device.files[REGISTRATION] = mutated(chance, device.files[REGISTRATION], XML_TOKENS)
    if chance.random() < 0.2:
        codec = chance.choice(("utf-16", "utf-16-be", "utf-32", "utf-7", "cp037", "latin-1"))
        text = device.files[REGISTRATION].decode(errors="replace")
        device.files[REGISTRATION] = text.encode(codec, errors="replace")
    if chance.random() < 0.1:
        device.files[REGISTRATION] = strange_file(chance)
    if chance.random() < 0.1:
        piece = chance.choice(XML_TOKENS)
        device.files[REGISTRATION] = (b"<LVData>" + piece * (chance.choice((65_000, 70_000)) // len(piece)))


def scripts(chance, device):
    for path in (MACHINES, PRODUCTS):
        data = mutated(chance, DEMO[path], SCRIPT_TOKENS)
        device.files[path] = strange_file(chance) if chance.random() < 0.05 else data


def version_and_platform(chance, device):
    for path in (SOFTWARE_VERSION, PLATFORM):
        data = mutated(chance, device.files[path], TEXT_TOKENS)
        device.files[path] = strange_file(chance) if chance.random() < 0.2 else data
    if chance.random() < 0.05:
        del device.files[SOFTWARE_VERSION]
        device.files["app/quillmoor"] = strange_file(chance)


def arguments(chance, device):
    device.arguments = [chance.choice(ARGUMENTS) for _ in range(chance.choice((0, 1, 1, 2, 5)))]
    if chance.random() < 0.3:
        device.arguments[:1] = [mutated(chance, b"34", ARGUMENTS).replace(b"\0", b"")[:100_000]]


def log(chance, device):
    device.files[LOG] = mutated(chance, b"Integrity check passed.\n", TEXT_TOKENS) * chance.choice((1, 100))
    if chance.random() < 0.5:
        device.files[LOG] = chance.choice((strange_file(chance), pathlib.Path("/dev/full")))


def several(chance, device):
    for kind in chance.sample([kind for kind in KINDS.values() if kind is not several], 3):
        with suppress(TypeError, LookupError, ValueError, sqlite3.Error):  # What an earlier one replaced by no file.
            kind(chance, device)


KINDS = {
    "database: bytes": bytes_of_the_database,
    "database: pages": pages_of_the_database,
    "database: header": header_of_the_database,
    "database: schema texts": schema_of_the_database,
    "database: rows": rows_of_the_database,
    "database: tables": tables_of_the_database,
    "database: form": form_of_the_database,
    "database: journal": journal_of_the_database,
    "registration file": registration_file,
    "scripts": scripts,
    "version and platform": version_and_platform,
    "arguments": arguments,
    "log": log,
    "several": several,
}


def kind_of(seed):
    return list(KINDS)[seed % len(KINDS)]


def case(seed):
    """The device of a seed."""
    chance = random.Random(seed)
    kind = kind_of(seed)
    small = not kind.startswith("database") and chance.random() < 0.8
    device = good_device(chance, small)
    KINDS[kind](chance, device)
    # Nothing lies below what has come in a folder's place.
    device.files = {path: content for path, content in device.files.items()
                    if str(pathlib.PurePath(path).parent) not in device.files}
    return device
