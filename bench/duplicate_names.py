#!/usr/bin/python3
"""Equal names: instructions of the search for them, against the sqlite3 shell, and their growth."""

import measure

DUPLICATE_NAMES = measure.BUILD / "bench" / "duplicate_names"
SIZES = (1_000, 10_000, 100_000)

# Every file and every field has a name of its own at first. Then some get the name of another.
CASES = {
    "none": "",
    "one pair": "UPDATE {table} SET displayName = (SELECT displayName FROM {table} WHERE id = 1) "
                "WHERE id = 2;",
    "1 in 100": "UPDATE {table} SET displayName = (SELECT displayName FROM {table} AS other "
                "WHERE other.id = {table}.id + 1) WHERE id % 100 = 1;",
    "one quote": "UPDATE {table} SET displayName = 'O''Brien' WHERE id = 3;",
}

# The grouping that finds equal names, for the sqlite3 shell.
GROUPING = """
    SELECT count(*) FROM (SELECT 1 FROM files WHERE typeId BETWEEN 1 AND 11
        GROUP BY displayName, typeId, growerId, farmId, fieldId HAVING count(*) > 1);
    SELECT count(*) FROM (SELECT 1 FROM growers GROUP BY displayName HAVING count(*) > 1);
    SELECT count(*) FROM (SELECT 1 FROM farms GROUP BY displayName, growerId HAVING count(*) > 1);
    SELECT count(*) FROM (SELECT 1 FROM fields GROUP BY displayName, farmId HAVING count(*) > 1);"""


def fill(device, size, changes):
    """Gives the device size fields, 100 on a farm, and size files, 100 of a type and field."""
    device.sql(f"""
        DELETE FROM files; DELETE FROM fields; DELETE FROM farms; DELETE FROM growers;
        CREATE TEMP TABLE numbers AS
            WITH RECURSIVE number(n) AS (VALUES(0) UNION ALL SELECT n + 1 FROM number)
            SELECT n FROM number LIMIT {size};
        INSERT INTO growers (id, displayName)
            SELECT n + 1, 'Grower_' || (n + 1) FROM numbers WHERE n < {size} / 1000;
        INSERT INTO farms (id, displayName, growerId)
            SELECT n + 1, 'Farm_' || (n % 10 + 1), n / 10 + 1 FROM numbers WHERE n < {size} / 100;
        INSERT INTO fields (id, displayName, farmId)
            SELECT n + 1, 'Field_' || (n % 100 + 1), n / 100 + 1 FROM numbers;
        INSERT INTO files (id, displayName, typeId, growerId, farmId, fieldId)
            SELECT n + 1, 'Field_' || (n % 100 + 1), n / 100 % 11 + 1, n / 1000 + 1, n / 100 + 1,
            n + 1 - n % 100 FROM numbers;""")
    for table in ("files", "fields"):
        device.sql(changes.format(table=table))


def instructions(size, changes, *program):
    with measure.device(measure.RAM_DISK) as device:
        fill(device, size, changes)
        return device.instructions(*program)


def beyond_empty_tables(changes, *program):
    """Instructions for each size, minus those for empty tables."""
    empty = instructions(0, "", *program)
    return [instructions(size, changes, *program) - empty for size in SIZES]


measure.build()
table = measure.Table("Equal names among so many files and as many fields")
shell = beyond_empty_tables("", measure.SHELL, "-init", "/dev/null",
                            "/app/databases/my.db.sqlite", GROUPING)
for name, changes in CASES.items():
    figures = beyond_empty_tables(changes, DUPLICATE_NAMES)
    for size, figure in zip(SIZES, figures):
        table.add(f"{name}, {size:,}: instructions", figure)
    for size, few, many in zip(SIZES, figures, figures[1:]):
        table.add(f"{name}: growth from {size:,} to ten times as many", many / few, digits=1,
                  at_most=13)
    if not changes:
        for size, figure, baseline in zip(SIZES, figures, shell):
            table.add(f"{name}, {size:,}: ratio to the sqlite3 shell", figure / baseline, digits=2,
                      at_most=1.5)
table.end()
