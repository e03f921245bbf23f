"""The generated pages and the table of losses say what the program does."""

import difflib

import pytest
from ledger import LEDGER, ledger
from losses import SCHEMA_VERSIONS, schema_versions
from probes import PROBES, probes_document

WRITTEN_BY = "tests/program/regenerate_documents.py build/dev/database-migrator"


@pytest.mark.parametrize("file, text", [
    (LEDGER, ledger), (SCHEMA_VERSIONS, schema_versions), (PROBES, probes_document)],
    ids=["versions", "losses", "probes"])
def test_file_is_current(file, text):
    difference = "\n".join(difflib.unified_diff(
        file.read_text(encoding="utf-8").splitlines(), text().splitlines(),
        str(file), "what the program does", n=0, lineterm=""))
    if difference:
        pytest.fail(f"{difference}\n\nThis writes it again: {WRITTEN_BY}", pytrace=False)
