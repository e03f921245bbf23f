#!/usr/bin/python3
"""Writes docs/versions.md, docs/probes.md and guard/schema-versions.json again, from what the built
program does, and report/words.json from docs/versions.md.

    tests/program/regenerate_documents.py build/dev/database-migrator

The tests compare with these files: review every line that changes.
"""

import os
import pathlib
import sys

# The next imports need both paths.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
os.environ["DATABASE_MIGRATOR"] = str(pathlib.Path(sys.argv[1]).resolve())

from ledger import LEDGER, ledger
from losses import SCHEMA_VERSIONS, Unexplained, schema_versions
from probes import PROBES, probes_document
from report.regenerate_words import WORDS, words

if __name__ == "__main__":
    LEDGER.write_text(ledger(), encoding="utf-8")
    PROBES.write_text(probes_document(), encoding="utf-8")
    WORDS.write_text(words(), encoding="utf-8")
    try:
        SCHEMA_VERSIONS.write_text(schema_versions(), encoding="utf-8")
    except Unexplained as error:
        sys.exit(str(error))
