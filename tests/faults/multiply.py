"""More rows for a device database."""

from collections import defaultdict

STEP = 100_000  # Keys of the device database are smaller.
NAMES = ("displayname", "name", "uuid")
LEFT_ALONE = ("tableVersion", "sqlite_sequence")


def keys_of(database, tables):
    """By table, the columns that identify rows or refer to columns that do."""
    keys = defaultdict(set)
    for table in tables:
        for index in database.execute(f"PRAGMA index_list({table})").fetchall():
            if index[2]:
                keys[table].update(
                    row[2].lower() for row in database.execute(f"PRAGMA index_info({index[1]})"))
        keys[table].update(row[1].lower() for row in database.execute(f"PRAGMA table_info({table})")
                           if row[5] or row[1].lower() in NAMES
                           # References that the database does not declare.
                           or row[1].lower() in ("growerid", "farmid", "fieldid"))
        keys[table].update(
            row[3].lower() for row in database.execute(f"PRAGMA foreign_key_list({table})"))
    # A column that others refer to is a key, and so is one that refers to a key.
    for table in tables:
        for row in database.execute(f"PRAGMA foreign_key_list({table})").fetchall():
            keys[row[2]].add((row[4] or "id").lower())
    return keys


def another(value, number):
    if isinstance(value, int):
        return value + number * STEP
    return f"{value} {number}" if isinstance(value, str) and value else value


def multiply(database, times):
    """Adds rows until every table has so many times as many. New rows get keys of their own."""
    tables = [name for name, in database.execute(
        "SELECT name FROM sqlite_master WHERE type = 'table'") if name not in LEFT_ALONE]
    keys = keys_of(database, tables)
    triggers = database.execute(
        "SELECT name, sql FROM sqlite_master WHERE type = 'trigger'").fetchall()
    for name, _ in triggers:
        database.execute(f"DROP TRIGGER {name}")
    for table in tables:
        rows = database.execute(f"SELECT * FROM {table}")
        columns = [column[0].lower() for column in rows.description]
        places = {i for i, column in enumerate(columns) if column in keys[table]}
        old = rows.fetchall()
        new = [[another(value, number) if i in places else value for i, value in enumerate(row)]
               for number in range(1, times) for row in old]
        database.executemany(
            f"INSERT INTO {table} VALUES({', '.join('?' * len(columns))})", new)
    for _, text in triggers:
        database.execute(text)
    database.commit()
