#!/usr/bin/python3
"""Version 2 over many product rows: peak memory, and wall time against the sqlite3 shell."""

import measure


def fill(device, rows):
    device.sql(f"""
        DELETE FROM productControl_productSettings;
        WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {rows})
        INSERT INTO productControl_productSettings
        SELECT format('product-%07d', n), 'Produkt №' || n, n % 5000 + 0.5,
            (SELECT max(id) FROM MC_MachineConfig), 40.25, n / 1000 + 0.125, n % 70 FROM number;""")


def megabytes(rows):
    with measure.device(measure.RAM_DISK) as device:
        fill(device, rows)
        peak = device.megabytes(measure.PROGRAM, "2")
        table.add(f"MB at the peak over {rows:,} rows", peak, digits=1)
        return peak


measure.build()
table = measure.Table("Version 2")
few = megabytes(1_000)
many = megabytes(500_000)
table.add("difference in MB", many - few, digits=1, at_most=10)

with measure.device(measure.DISK) as device:
    fill(device, 20_000)
    program, shell = device.against_shell(device.seconds, 5, measure.PROGRAM, "2")
table.add_seconds("20,000 rows", program, shell)
table.end()
