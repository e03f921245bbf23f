"""The copies of tables that a version's step makes and removes again. A step that is cut leaves
one.

They are found because they get in the way. A table with each possible name is put beside every
table. If a step complains about it, fills it or removes it, it has the name of one of the step's
copies.
"""

import collections
import concurrent.futures
import contextlib
import os
import re
import sqlite3

from on_purpose import BACKWARD, FORWARD
from support.versions import VERSIONS, dump_of
from walks import device_with

SUFFIXES = ("_temp", "_old")
NAME = re.compile(r"\w+")


def planted(version):
    """The dump of a version with a table of every name that a copy could have, and the tables by
    those names."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump_of(version))
        tables = [name for name, in database.execute(
            "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'")]
    copies = {f"{table}{suffix}": table for table in tables for suffix in SUFFIXES}
    tables = "".join(f"CREATE TABLE {name} (planted);\n" for name in copies)
    return dump_of(version) + tables, copies


def disturbances(version, target):
    """How often a run uses each of the planted tables."""
    dump, copies = planted(version)
    with device_with(dump) as device:
        device.run(str(target))
        met = collections.Counter(NAME.findall(device.log()))
        left = {*device.sql(
            "SELECT name FROM sqlite_master WHERE sql LIKE '%(planted)';").split()}
    return collections.Counter({
        name: met[name] + (name not in left) for name in copies}), copies


def copies_of_steps():
    """The entry of every copy, by its name."""
    steps = [(version - 1, version) for version in VERSIONS[1:]]
    steps += [(version, version - 1) for version in VERSIONS[1:]]
    idle = [(version, version) for version in VERSIONS]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as executor:
        found = dict(zip([*steps, *idle],
                         executor.map(lambda run: disturbances(*run), [*steps, *idle])))
    result = {}
    for version, target in steps:
        met, copies = found[version, target]
        # Some versions are applied again in every run.
        for name in met - found[version, version][0]:
            entry = result.setdefault(name, {"table": copies[name]})
            direction = FORWARD if target > version else BACKWARD
            entry.setdefault(direction, []).append(max(version, target))
    return {name: result[name] for name in sorted(result, key=str.lower)}
