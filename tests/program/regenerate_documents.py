#!/usr/bin/python3
"""Writes docs/versions.md and docs/probes.md anew from what the built program does.

    tests/program/regenerate_documents.py build/dev/database-migrator

The tests compare with these files: review every line that changes.
"""

import os
import pathlib
import sys

os.environ["DATABASE_MIGRATOR"] = str(pathlib.Path(sys.argv[1]).resolve())

from ledger import LEDGER, ledger  # noqa: E402 (the program is to be known first)
from probes import PROBES, probes_document  # noqa: E402

if __name__ == "__main__":
    LEDGER.write_text(ledger(), encoding="utf-8")
    PROBES.write_text(probes_document(), encoding="utf-8")
