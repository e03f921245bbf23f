"""Damaged and hostile devices: a seed always makes the same case."""

import pathlib
import random
import sqlite3
from contextlib import closing, suppress

import words
from devices import (
    DATABASE, DATABASES, DEMO_FILES, LOG, MACHINES, PLATFORM, PRODUCTS, REGISTRATION,
    SOFTWARE_VERSION, broken_off, database_of, good_device)
from support.versions import NEWEST

# The tables that every run reads, and those that the steps change most.
BUSY_TABLES = (
    "tableVersion", "registrationInfo", "growers", "farms", "fields", "files", "systemFiles",
    "languages", "userProfiles", "MC_MachineConfig", "serialDevices", "preferredGpsSolutions",
    "onScreenSwitchboxSettings", "switchToSectionBridge", "productControl_productSettings",
    "PC_Carrier", "PC_Mix", "PC_ProductConfig", "PC_MixToProductConfigBridge",
    "PC_ProductConfigToMachineConfigBridge")


# ---- Parts of the kinds -------------------------------------------------------------------------

def times(chance):
    return range(chance.choice((1, 1, 2, 4, 16)))


def mutated(chance, data, tokens):
    """A text with pieces removed, added, repeated or moved."""
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
    """Something else in place of a file."""
    return chance.choice((b"", None, pathlib.Path("/nowhere/file"), pathlib.Path("/dev/null"),
                          pathlib.Path("loop"), chance.randbytes(5000)))


def table_of(chance, database):
    tables = [name for name, in database.run("SELECT name FROM sqlite_master WHERE type = 'table'")
              if not name.startswith("sqlite_")]
    busy = [name for name in tables if name in BUSY_TABLES]
    return chance.choice(chance.choice((tables, busy)) or tables or ["growers"])


def column_of(chance, database, table):
    columns = database.run(f"SELECT name FROM pragma_table_info('{table}')")
    return chance.choice(columns)[0] if columns else "id"


# ---- The kinds: each takes a random generator and a device in good order, and damages it --------

def bytes_of_the_database(chance, device):
    database = bytearray(device.database)
    for _ in range(chance.choice((1, 10, 100))):
        at = chance.randrange(100, len(database))
        # A page's first bytes say how to read the rest.
        if chance.random() < 0.5:
            at = min(max(100, at // 4096 * 4096 + chance.randrange(64)), len(database) - 1)
        database[at] = chance.choice(
            (chance.randrange(256), database[at] ^ 1 << chance.randrange(8), 0, 255))
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
                # A page that points to any other: reading could go round in circles.
                at = page + chance.choice((8, 12, chance.randrange(4092)))
                database[at:at + 4] = chance.randrange(1, pages + 1).to_bytes(4, "big")
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
            (0, 1), (15, 1), (16, 2), *((at, 1) for at in range(18, 24)),
            *((at, 4) for at in range(24, 72, 4)), (72, 1), (92, 4), (96, 4), (100, 1), (103, 2),
            (105, 2)))
        number = chance.choice((*words.NUMBERS, chance.randrange(100)))
        database[at:at + size] = (number % 256 ** size).to_bytes(size, "big")
    device.database = database


def schema_of_the_database(chance, device):
    before = device.database
    edit_schema(chance, device)
    # The program sees nothing of a schema that SQLite does not read.
    while not is_readable(device.database) and chance.random() < 0.8:
        device.database = before
        edit_schema(chance, device)


def is_readable(database):
    with closing(sqlite3.connect(":memory:")) as connection:
        try:
            connection.deserialize(database)
            connection.execute("SELECT 1 FROM growers")
        except (sqlite3.Error, UnicodeDecodeError):  # The latter in an error's text.
            return False
    return True


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
            column, value = "sql", None
            match chance.randrange(9):
                case 0 | 1:
                    value = mutated(chance, (text or "").encode(), words.SQL)
                case 2 | 3 | 4:
                    value = odd_text(chance, text or "", name)
                case 5:
                    columns = ", ".join(f"c{i} TEXT" for i in range(chance.choice((1, 500, 2500))))
                    value = f"CREATE TABLE {other[2]} ({columns})"
                case 6:
                    column = chance.choice(("name", "tbl_name", "type", "sql"))
                    value = chance.choice((
                        None, 7, "", other[1], other[2], "a b", "a'b", 'a"b', "a%1b", "sqlite_a",
                        "GROWERS", "a" * 100_000, "a\0b", "view"))
                case 7:
                    column = "rootpage"
                    value = chance.choice((other[3], 0, 1, 2, -1, 10 ** 6, 2 ** 40, None, "a"))
                case 8:
                    database.run(chance.choice((
                        "DELETE FROM sqlite_master WHERE rowid = ?",
                        "INSERT INTO sqlite_master SELECT * FROM sqlite_master WHERE rowid = ?")),
                        rowid)
                    continue
            place = "CAST(? AS TEXT)" if isinstance(value, bytes) else "?"
            database.run(
                f"UPDATE sqlite_master SET {column} = {place} WHERE rowid = ?", value, rowid)


def odd_text(chance, text, name):
    """An unusual CREATE text that SQLite can mostly read."""
    beginning, _, rest = text.partition("(")
    match chance.randrange(7):
        case 0:
            return f"{beginning}({chance.choice(words.COLUMNS)}, {rest}"
        case 1:
            return f"{text[:-1]}, {chance.choice(words.CONSTRAINTS)})"
        case 2:
            return text + chance.choice((" STRICT", " WITHOUT ROWID", " -- end", ";", " /* , */ "))
        case 3:
            return chance.choice(
                (text.lower(), text.upper(), text.replace("FOREIGN KEY", "Foreign Key")))
        case 4:
            return text.replace(" ", chance.choice(("\n", "\t", "  ", " /* ,( */ ", " -- (,\n")))
        case 5:
            names = f'"{name}"', f"[{name}]", f"main.{name}", name.upper()
            return text.replace(name, chance.choice(names), 1)
        case _:
            types = chance.choice((" INTEGER", " TEXT", " REAL", " varchar(40)"))
            others = "", " BLOB", " [a,b]", ' "a (,"', " NUMERIC(10, 5)"
            return text.replace(types, chance.choice(others))


def rows_of_the_database(chance, device):
    with device.edit() as database:
        for _ in times(chance):
            table = table_of(chance, database)
            column = column_of(chance, database, table)
            where = chance.choice(("", f"WHERE rowid % 3 = {chance.randrange(3)}"))
            match chance.randrange(6):
                case 0 | 1 | 2:
                    database.run(f"UPDATE OR IGNORE {table} SET {column} = ? {where}",
                                 chance.choice(words.VALUES))
                case 3:
                    # The encoding and the end of the text are wrong.
                    database.run(
                        f"UPDATE OR IGNORE {table} SET {column} = CAST(? AS TEXT) {where}",
                        mutated(chance, b"Miller", words.TEXT))
                case 4:
                    others = [name for name, in database.run(
                        f"SELECT name FROM pragma_table_info('{table}') WHERE pk = 0")]
                    names = ", ".join(others)
                    database.run(
                        f"INSERT INTO {table} ({names}) SELECT {names} FROM {table} LIMIT 200")
                case 5:
                    database.run(f"DELETE FROM {table} {where}")


def tables_of_the_database(chance, device):
    with device.edit() as database:
        database.run("PRAGMA legacy_alter_table = ON")
        for number in times(chance):
            table, other = table_of(chance, database), table_of(chance, database)
            column = column_of(chance, database, table)
            new_name = chance.choice(("a b", "x", "A'b", "%1"))
            database.run(chance.choice((
                f"DROP TABLE {table}",
                f"ALTER TABLE {table} RENAME TO {table}_gone",
                f'ALTER TABLE {table} RENAME COLUMN {column} TO "{new_name}"',
                f"ALTER TABLE {table} DROP COLUMN {column}",
                f"ALTER TABLE {table} ADD COLUMN extra TEXT DEFAULT 'a;b'",
                f"CREATE TABLE {table}_temp (a)",
                f"CREATE TABLE {table}_old (a)",
                f"CREATE TABLE {table}_temp AS SELECT * FROM {table}",
                f"CREATE INDEX i{number} ON {table} ({column})",
                f"CREATE UNIQUE INDEX i{number} ON {table} ({column} COLLATE NOCASE)",
                f"CREATE INDEX i{number} ON {table} (lower({column})) WHERE {column} > 1",
                *(f"CREATE TRIGGER t{number} {when} ON {table} BEGIN {what}; END"
                  for when, what in (
                    ("BEFORE UPDATE", "SELECT RAISE(ABORT, 'refused')"),
                    ("BEFORE INSERT", "SELECT RAISE(IGNORE)"),
                    ("AFTER UPDATE", f"DELETE FROM {other}"),
                    ("AFTER DELETE", f"UPDATE {other} SET {column} = 1"),
                    ("AFTER UPDATE OF displayName",
                     f"INSERT INTO {table} (displayName) VALUES (new.displayName)"))))))
            if chance.random() < 0.2:
                database.run(f"ALTER TABLE {table} RENAME TO {table}_kept")
                database.run(chance.choice((
                    f"CREATE VIEW {table} AS SELECT * FROM {table}_kept",
                    f"CREATE VIEW {table} AS SELECT 1",
                    f"CREATE TABLE {table} AS SELECT * FROM {table}_kept",
                    f"CREATE VIRTUAL TABLE {table} USING fts3(id, displayName)")))


def form_of_the_database(chance, device):
    match chance.randrange(10):
        case 0 | 1:
            device.files[DATABASE] = strange_file(chance)
        case 2:
            del device.files[DATABASE]
            if chance.random() < 0.5:
                device.files[DATABASES] = strange_file(chance)
        case _:
            device.database = database_of(device.version, chance.choice(words.PRAGMAS))
            if chance.random() < 0.3:
                # The versions of the file format; 2 means a write-ahead log.
                form = chance.choice((b"\1\2", b"\2\1", b"\2\2", b"\3\3"))
                device.database = device.database[:18] + form + device.database[20:]
            if chance.random() < 0.5:
                bytes_of_the_database(chance, device)


def journal_of_the_database(chance, device):
    version = chance.choice((1, 12, 21, 33, NEWEST))
    device.arguments = [str(version + chance.choice((-1, 0, 0, 0, 1))).encode()]
    device.files |= broken_off(version, chance.choice(("DELETE", "DELETE", "WAL")))
    if chance.random() < 0.2:
        device.database = database_of(chance.randint(1, NEWEST))
    beside = [path for path in device.files if path.startswith(f"{DATABASE}-")]
    for _ in times(chance):
        path = chance.choice(beside)
        data = bytearray(device.files[path])
        if not data:
            continue
        match chance.randrange(5):
            case 0:
                at = chance.choice((8, 12, 16, 20, 24))
                data[at:at + 4] = chance.choice(words.NUMBERS).to_bytes(4, "big")
            case 1:
                data[chance.randrange(len(data))] = chance.randrange(256)
            case 2:
                del data[chance.randrange(len(data)):]
            case 3:
                at, other = chance.randrange(len(data)), chance.randrange(len(data))
                data[at:at + 4100] = data[other:other + 4100]
            case 4:
                data += super_journal(chance)
        device.files[path] = bytes(data)
    if chance.random() < 0.1:
        # Not the shared memory: if that is no file, every statement waits for ten seconds.
        device.files[next(path for path in beside if not path.endswith("-shm"))] = (
            strange_file(chance))
    if chance.random() < 0.3:
        bytes_of_the_database(chance, device)


def super_journal(chance):
    """The end of a journal that belongs to another one: its name, its length and its sum."""
    name = chance.choice((f"/app/databases/{'x' * 9}-mj9", "a'b", "/nowhere/mj")).encode()
    return (b"\x00\x04\x00\x01" + name + len(name).to_bytes(4, "big")
            + sum(name).to_bytes(4, "big") + b"\xd9\xd5\x05\xf9\x20\xa1\x63\xd7")


def registration_file(chance, device):
    content = mutated(chance, device.files[REGISTRATION], words.XML)
    match chance.randrange(10):
        case 0 | 1:
            codec = chance.choice(("utf-16", "utf-16-be", "utf-32", "utf-7", "cp037", "latin-1"))
            content = content.decode(errors="replace").encode(codec, errors="replace")
        case 2:
            content = strange_file(chance)
        case 3:
            piece = chance.choice(words.XML)
            content = b"<LVData>" + piece * (chance.choice((65_000, 70_000)) // len(piece))
    device.files[REGISTRATION] = content


def scripts(chance, device):
    for path in (MACHINES, PRODUCTS):
        data = mutated(chance, DEMO_FILES[path], words.SCRIPT)
        device.files[path] = strange_file(chance) if chance.random() < 0.05 else data


def version_and_platform(chance, device):
    for path in (SOFTWARE_VERSION, PLATFORM):
        data = mutated(chance, device.files[path], words.TEXT)
        device.files[path] = strange_file(chance) if chance.random() < 0.2 else data
    if chance.random() < 0.05:
        del device.files[SOFTWARE_VERSION]
        device.files[str(pathlib.PurePath(SOFTWARE_VERSION).parent)] = strange_file(chance)


def arguments(chance, device):
    device.arguments = [chance.choice(words.ARGUMENTS)
                        for _ in range(chance.choice((0, 1, 1, 2, 5)))]
    if chance.random() < 0.3:
        argument = mutated(chance, str(NEWEST).encode(), words.ARGUMENTS)
        device.arguments[:1] = [argument.replace(b"\0", b"")[:100_000]]


def log(chance, device):
    content = mutated(chance, b"Integrity check passed.\n", words.TEXT) * chance.choice((1, 100))
    device.files[LOG] = chance.choice(
        (content, content, strange_file(chance), pathlib.Path("/dev/full")))


def several(chance, device):
    for kind in chance.sample([kind for kind in KINDS.values() if kind is not several], 3):
        # An earlier kind may have left no file, or none that can be edited.
        with suppress(TypeError, LookupError, ValueError, MemoryError, sqlite3.Error):
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


def case(seed, newest=NEWEST):
    """The device of a seed. A seed means another device for every newest version."""
    chance = random.Random(seed)
    kind = kind_of(seed)
    small = not kind.startswith("database") and chance.random() < 0.8
    device = good_device(chance, small, newest)
    KINDS[kind](chance, device)
    # A folder that became something else holds no files.
    device.files = {path: content for path, content in device.files.items()
                    if str(pathlib.PurePath(path).parent) not in device.files}
    return device
