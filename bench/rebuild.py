#!/usr/bin/python3
"""The rebuild of a table without a column: wall time against the sqlite3 shell."""

import measure

ROWS = 1_000_000

measure.build()
table = measure.Table("Rebuild of a table")
with measure.device(measure.RAM_DISK) as device:
    device.sql(f"""
        CREATE TABLE measured (id INTEGER, name TEXT NOT NULL, amount REAL DEFAULT 1.5,
            obsolete TEXT, note TEXT, PRIMARY KEY(id));
        WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {ROWS})
        INSERT INTO measured
        SELECT n, 'Feld №' || n, n / 7.0, 'obsolete', 'note' || n FROM number;
        ALTER TABLE tableVersion ADD COLUMN MirelVersion TEXT;""")
    program, shell = device.against_shell(device.seconds, 21, measure.REBUILD)
table.add_seconds(f"{ROWS:,} rows", program, shell)
table.end()
