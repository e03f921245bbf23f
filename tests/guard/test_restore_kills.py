"""Kills of the guard while it brings the kept database back in a damaged one's place."""

import os
import pathlib
import shutil
import sqlite3
from contextlib import closing

import pytest
from conftest import DAMAGES, guarded_device
from support.versions import NEWEST

SHIM = pathlib.Path(os.environ["FAULT_SHIM"])
WHOLE = "CAMPAIGN" in os.environ


def whole_pages(content):
    return content + bytes(-len(content) % 4096)


@pytest.mark.parametrize("damage", ["without a header", "cut within a page", "empty"])
def test_a_kill_leaves_the_old_file_or_the_kept_database(damage):
    with guarded_device() as device:
        device.install(1)
        before = device.contents()
        assert device.migrate(NEWEST) == 0
        shutil.copy(SHIM, device.app / "shim.so")
        damaged = DAMAGES[damage](device.database.read_bytes())
        outcomes = set()
        number = 1
        while "whole" not in outcomes:
            device.database.write_bytes(damaged)
            device.replaced.unlink(missing_ok=True)
            options = (f"--setenv LD_PRELOAD /app/shim.so --setenv FAULT_AT {number} "
                       "--setenv FAULT_ACTION kill")
            status = device.run("restore", options=options).returncode
            run = device.run("restore", "--dry-run")
            if status == 0:
                outcomes.add("whole")
            elif "cannot be read" in run.stdout:
                # The next process that opens the database rolls back the journal that a kill
                # leaves.
                with closing(sqlite3.connect(device.database)) as database:
                    try:
                        database.execute("SELECT count(*) FROM sqlite_schema").fetchone()
                    except sqlite3.DatabaseError:
                        pass
                left = device.database.read_bytes()
                assert whole_pages(left) == whole_pages(damaged), number
                outcomes.add("old")
                assert device.run("restore").returncode == 0, number
            else:
                outcomes.add("new")
            assert device.contents() == before, number
            if "old" in outcomes and device.replaced.exists():
                assert whole_pages(device.replaced.read_bytes()) == whole_pages(damaged), number
            number += 1 if WHOLE else 17
        assert outcomes == {"old", "new", "whole"} or not WHOLE and outcomes == {"old", "whole"}
