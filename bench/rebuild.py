#!/usr/bin/python3
"""The rebuild of a table without a column: wall time against the sqlite3 shell."""

import measure

ROWS = 1_000_000

measure.build()
table = measure.Table(f"Rebuild of a table of {ROWS:,} rows")
with measure.device(measure.RAM_DISK) as device:
    device.sql(f"""
        CREATE TABLE measured (id INTEGER, name TEXT NOT NULL, amount REAL DEFAULT 1.5,
            obsolete TEXT, note TEXT, PRIMARY KEY(id));
        WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {ROWS})
        INSERT INTO measured SELECT n, 'Feld №' || n, n / 7.0, 'obsolete', 'note' || n FROM number;
        ALTER TABLE tableVersion ADD COLUMN MirelVersion TEXT;""")
    program, shell = device.against_shell(21, measure.REBUILD)
table.add("seconds of the program", program, digits=2)
table.add("seconds of the sqlite3 shell", shell, digits=2)
table.add("ratio", program / shell, digits=2, at_most=1.10)
table.end()
