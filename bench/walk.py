#!/usr/bin/python3
"""The walk from version 1 to the newest: waits for the disk, compared with the shell's."""

import functools

import measure

measure.build()
table = measure.Table(f"The walk from version 1 to {measure.NEWEST}")
for platform in ("TORVIK", "TORVIKMAX"):
    for call in ("fdatasync", "fsync"):
        with measure.device(measure.DISK) as device:
            device.platform.write_text(platform + "\n")
            program, shell = device.against_shell(
                functools.partial(device.system_calls, call), 1, measure.PROGRAM,
                str(measure.NEWEST))
        table.add(f"{platform}: {call} calls of the program", program)
        table.add(f"{platform}: {call} calls of the sqlite3 shell", shell)
        table.add("difference", abs(program - shell), at_most=0)
table.end()
