#!/usr/bin/python3
"""A run with nothing to do: instructions of the whole process and writes that wait for the disk."""

import measure

# The newest version at which a run has nothing to do. Version 33 removes the column that the probe
# of 30 looks for, so from 33 on every run applies both again.
VERSION = "32"

measure.build()
table = measure.Table("A run with nothing to do")
with measure.device(measure.DISK) as device:
    device.run(measure.PROGRAM, VERSION)
    statements = device.record_statements(measure.PROGRAM, VERSION)
    program = device.instructions(measure.PROGRAM, VERSION)
    minimal = device.instructions(measure.MINIMAL_RUN, "/app/databases/my.db.sqlite", statements)
    table.add("instructions of the program", program)
    table.add("instructions of minimal_run", minimal)
    table.add("ratio", program / minimal, digits=2, at_most=1.10)
    table.add("fsync and fdatasync calls",
              device.system_calls("fsync,fdatasync", measure.PROGRAM, VERSION), at_most=0)
table.end()
