#!/usr/bin/python3
"""The whole walk from version 1 to 34: waits for the disk against the sqlite3 shell."""

import functools

import measure

measure.build()
table = measure.Table("The walk from version 1 to 34")
for platform in ("TORVIK", "TORVIKMAX"):
    for call in ("fdatasync", "fsync"):
        with measure.device(measure.DISK) as device:
            device.set_platform(platform)
            program, shell = device.against_shell(
                functools.partial(device.system_calls, call), 1, measure.PROGRAM, "34")
        table.add(f"{platform}: {call} calls of the program", program)
        table.add(f"{platform}: {call} calls of the sqlite3 shell", shell)
        table.add("difference", abs(program - shell), at_most=0)
table.end()
