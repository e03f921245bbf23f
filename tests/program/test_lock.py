"""Another process holds the database for longer than the program waits for it."""

import sqlite3
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import closing

from conftest import expected_log


def test_version_that_cannot_be_read_in_time_counts_as_0(device):
    device.install(version=2)
    contents = device.contents()
    with closing(sqlite3.connect(device.database, isolation_level=None)) as other, \
            ThreadPoolExecutor() as thread:
        other.execute("BEGIN EXCLUSIVE")
        run = thread.submit(device.run, "2")
        # The log is opened right before the database. Every statement waits up to 5 seconds: the
        # lock is released while the second one waits.
        while not device.log_file.exists() and not run.done():
            time.sleep(0.01)
        time.sleep(7)
        other.execute("ROLLBACK")
        run.result()
    assert device.log() == expected_log(
        0, 2, "Database migration to version 2 completed successfully!\n", (2, "1.2.3"))
    assert device.versions() == "mainSqlDb|2|'1.2.3'\naltSqlDb|0|NULL\n"
    assert device.contents() == contents
