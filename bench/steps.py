#!/usr/bin/python3
"""Steps that write row by row, over many rows: wall time compared with the sqlite3 shell."""

import measure


def numbered(rows, insertion):
    return f"""
        WITH RECURSIVE number(n) AS (VALUES(1) UNION ALL SELECT n + 1 FROM number WHERE n < {rows})
        {insertion} FROM number;"""


STEPS = [
    ("25", "TORVIKMAX", "5,000 devices, 5,000 receivers",
     "DELETE FROM serialDevices; DELETE FROM gpsReceivers;"
     + numbered(5_000, """INSERT INTO serialDevices
            SELECT n, 1, 'ttyUSB' || n, 'BePluginGPS', 38400""")
     + numbered(5_000, """INSERT INTO gpsReceivers
            SELECT n, 1, 'gps-USB' || n, 'ttymxc2', 1, 'Empfänger №' || n""")),
    ("31", "TORVIK", "3 x 10,000 rows",
     "".join(f"DELETE FROM {table};" + numbered(
         10_000, f"INSERT INTO {table}(id, displayName) SELECT n, 'Süd №' || n")
         for table in ("PC_Carrier", "PC_Mix", "PC_PlanterVariety"))),
    ("32", "TORVIK", "20,000 maps",
     "DELETE FROM workOrderRxMaps;"
     + numbered(20_000, """INSERT INTO workOrderRxMaps
            SELECT n, 'uuid-' || n, (SELECT min(uuid) FROM files),
                '/data/old/userFiles/prescriptions/' || n || '/Südhang.shp',
                'Rate', NULL, 'Karte ' || n, 'kg/ha', n % 50""")),
]

measure.build()
table = measure.Table("Steps over many rows")
for version, platform, rows, filling in STEPS:
    with measure.device(measure.RAM_DISK) as device:
        device.platform.write_text(platform + "\n")
        device.run(measure.PROGRAM, str(int(version) - 1))
        device.sql(filling)
        program, shell = device.against_shell(device.seconds, 11, measure.STEP, version)
    table.add_seconds(f"version {version}, {rows}", program, shell)
table.end()
