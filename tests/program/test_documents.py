"""The generated pages say what the program does."""

import pytest
from ledger import LEDGER, ledger
from probes import PROBES, probes_document
from walks import assert_same


@pytest.mark.parametrize("page, text", [(LEDGER, ledger), (PROBES, probes_document)],
                         ids=["versions", "probes"])
def test_page_is_current(page, text):
    assert_same(text(), page.read_text(encoding="utf-8"))
