"""Whole verdicts on small runs: every sentence, number, row and order is that of verdicts.txt."""

import pytest
from situations import SITUATIONS
from verdicts import VERDICTS, as_text, verdict_on

HINT = "if that is right: tests/verdict/regenerate_verdicts.py build/dev/tests/verdict_of"
EXPECTED = dict(part.partition("\n")[::2] for part in
                VERDICTS.read_text(encoding="utf-8").split("\n== ")[1:])


def test_every_verdict_has_its_situation():
    assert [*EXPECTED] == [*SITUATIONS]


@pytest.mark.parametrize("name", SITUATIONS)
def test_verdict_on(bench, name):
    assert as_text(verdict_on(bench, name)).splitlines() == EXPECTED[name].splitlines(), HINT
    # The judgement has removed its own files.
    assert {path.name for path in bench.folder.iterdir()} - {
        "script0", "script1"} == {"before.sqlite", "after.sqlite", "log", "versions"}
