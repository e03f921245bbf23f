#!/usr/bin/python3
"""Writes tests/data again, from what the built program does: the dump of every version, and in the
*.diff files how other walks differ from it. It takes some minutes.

    tests/program/regenerate_dumps.py build/dev/database-migrator

The tests compare with these files: review every line that changes.
"""

import concurrent.futures
import os
import pathlib
import sys

# The next imports need both paths.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
os.environ["DATABASE_MIGRATOR"] = str(pathlib.Path(sys.argv[1]).resolve())

from dumps import departures
from support.versions import NEWEST, VERSIONS, dump_of, file_of
from walks import (PAIRS, WALKS, WALKS_AGAIN, WALKS_ON_TORVIKMAX, database_at, walk,
                   walked_back_to_1)


def by_key(function, keys):
    """{key: function(*key)}, worked out in parallel."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as executor:
        return dict(zip(keys, executor.map(lambda key: function(*key), keys)))


def write_dumps():
    def write(version):
        file_of(version).write_text(walk(dump_of(1), version).dump, encoding="utf-8")

    by_key(write, [(version,) for version in VERSIONS[1:]])


def unusual(by_walk, usual):
    """The departures that are not among the usual ones. A usual one that is missing is an empty
    text."""
    return {walked: {table: by_table.get(table, "") for table in {*by_table, *usual[walked]}
                     if by_table.get(table, "") != usual[walked].get(table, "")}
            for walked, by_table in by_walk.items()}


def write_walks():
    def on(platform):
        return lambda start, end: departures(
            dump_of(end), walk(database_at(start, platform), end, platform).dump)

    walks = by_key(on("TORVIK"), PAIRS)
    WALKS.write("How a walk departs from the walk from version 1 to the same version.\n"
                "FROM -> TO: - is what version_TO.sql has, + what there is instead.",
                walks, NEWEST)
    WALKS_ON_TORVIKMAX.write(
        "How a walk on TORVIKMAX departs, where that is not what walks.diff says.\n"
        "FROM -> TO: - is what version_TO.sql has, + what there is instead.",
        unusual(by_key(on("TORVIKMAX"), PAIRS), walks), NEWEST)

    again = by_key(lambda start, end: departures(dump_of(end), walk(walked_back_to_1(), end).dump),
                   [(1, version) for version in VERSIONS[1:]])
    WALKS_AGAIN.write(
        "How the second walk forward departs, after a walk from the newest version back to 1,\n"
        "where that is not what the walk back has left there (walks.diff).\n"
        "1 -> TO: - is what version_TO.sql has, + what there is instead. A heading without\n"
        "lines: the table is as in version_TO.sql.",
        unusual(again, {(1, end): walks[NEWEST, end] for _, end in again}), NEWEST)


if __name__ == "__main__":
    write_dumps()
    write_walks()
