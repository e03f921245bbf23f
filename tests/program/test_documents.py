"""The generated pages and the table of losses say what the program does."""

import difflib

import losses
import pytest
from ledger import LEDGER, ledger
from losses import SCHEMA_VERSIONS, Unexplained, schema_versions
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


@pytest.mark.parametrize("unwritten, message", [
    ("ROWS", "version 9, forward: say which rows of MC_MachineSystem go,"
             " in ROWS of tests/program/on_purpose.py"),
    ("VALUES", "version 2, forward: say what productControl_productSettings.displayName becomes,"
               " in VALUES of tests/program/on_purpose.py")])
def test_what_a_run_cannot_tell_is_asked_for(monkeypatch, unwritten, message):
    monkeypatch.setattr(losses, unwritten, {})
    with pytest.raises(Unexplained, match=message):
        schema_versions()
