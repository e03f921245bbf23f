#!/usr/bin/python3
"""Version 7 over many files: peak memory, and wall time against the sqlite3 shell."""

import measure


def fill(device, rows):
    device.run(measure.PROGRAM, "6")
    device.sql(f"""
        DELETE FROM files;
        WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {rows})
        INSERT INTO files SELECT n, 'uuid-' || n, 'Südhang ' || n,
            '/data/old/userFiles/coverage/2013/' || n || '/Südhang.cov', n * 37, 3, '2013-08-12',
            1, 2, 1 FROM number;""")


def megabytes(rows):
    with measure.device(measure.RAM_DISK) as device:
        fill(device, rows)
        peak = device.megabytes(measure.STEP, "7")
        table.add(f"MB at the peak over {rows:,} files", peak, digits=1)
        return peak


measure.build()
table = measure.Table("Version 7")
few = megabytes(1_000)
many = megabytes(200_000)
table.add("difference in MB", many - few, digits=1, at_most=10)

with measure.device(measure.RAM_DISK) as device:
    fill(device, 20_000)
    program, shell = device.against_shell(device.seconds, 11, measure.STEP, "7")
table.add_seconds("20,000 files", program, shell)
table.end()
