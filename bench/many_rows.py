#!/usr/bin/python3
"""Versions 2 and 7 over many rows: peak memory, and wall time against the sqlite3 shell."""

import measure

NUMBERS = """
    WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {rows})"""


def fill_products(device, rows):
    device.sql(f"""
        DELETE FROM productControl_productSettings;
        {NUMBERS.format(rows=rows)}
        INSERT INTO productControl_productSettings
        SELECT format('product-%07d', n), 'Produkt №' || n, n % 5000 + 0.5,
            (SELECT max(id) FROM MC_MachineConfig), 40.25, n / 1000 + 0.125, n % 70 FROM number;""")


def fill_files(device, rows):
    device.run(measure.PROGRAM, "6")
    device.sql(f"""
        DELETE FROM files;
        {NUMBERS.format(rows=rows)}
        INSERT INTO files SELECT n, 'uuid-' || n, 'Südhang ' || n,
            '/data/old/userFiles/coverage/2013/' || n || '/Südhang.cov', n * 37, 3, '2013-08-12',
            1, 2, 1 FROM number;""")


# The version, how its tables are filled, the large number of rows, what runs; for the wall time,
# the folder of the device and the number of runs.
STEPS = (("2", fill_products, 500_000, measure.PROGRAM, measure.DISK, 5),
         ("7", fill_files, 200_000, measure.STEP, measure.RAM_DISK, 11))

measure.build()
table = measure.Table("Versions 2 and 7 over many rows")
for version, fill, many, program, place, runs in STEPS:
    peaks = []
    for rows in (1_000, many):
        with measure.device(measure.RAM_DISK) as device:
            fill(device, rows)
            peaks.append(device.megabytes(program, version))
        table.add(f"version {version}: MB at the peak over {rows:,} rows", peaks[-1], digits=1)
    table.add("difference in MB", peaks[1] - peaks[0], digits=1, at_most=10)
    with measure.device(place) as device:
        fill(device, 20_000)
        table.add_seconds(f"version {version}, 20,000 rows",
                          *device.against_shell(device.seconds, runs, program, version))
table.end()
