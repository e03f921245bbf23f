"""The faults that campaign.py would make."""

import pytest
from campaign import explanations
from mutants import Source, all_mutants, sources
from support.places import ROOT

MUTANTS = all_mutants(ROOT)

STEP = '''
void M::updateToVersion4()
{
    // "a comment"
    if (!addColumn("t", "fence") && m_count > 0) {
        m_currentVersion = 4;
        logMessage("Done!");
        return;
    }
    const bool succeeded = allSucceeded({
        dropTable("a"),
        dropTable("b"),
    });
    return fail(7, "x");
}
'''
# What replaces a line, or several.
FAULTS = {
    "statement dropped": ["", "", "", "", ""],
    "statements swapped": ['return; logMessage("Done!");', 'dropTable("b"), dropTable("a"),'],
    "run-all list": ['const bool succeeded = ( dropTable("a") && dropTable("b"));'],
    "condition": ['if (!addColumn("t", "fence") || m_count > 0) {',
                  'if (!addColumn("t", "fence") && m_count >= 0) {',
                  'if (!(!addColumn("t", "fence") && m_count > 0)) {',
                  'if (addColumn("t", "fence") && m_count > 0) {'],
    "number": ['if (!addColumn("t", "fence") && m_count > 1) {', 'return fail(8, "x");'],
    "version number": ["m_currentVersion = 5;", "m_currentVersion = 3;"],
    "returned value": ['return !(fail(7, "x"));'],
    "argument order": ['if (!addColumn("fence", "t") && m_count > 0) {', 'return fail("x", 7);'],
}


def faults(kind):
    return [mutant for mutant in Source("step.cpp", STEP).mutants() if mutant.kind == kind]


def test_faults_are_the_same_every_time():
    assert all_mutants(ROOT) == MUTANTS


@pytest.mark.parametrize("kind", FAULTS)
def test_faults_of_a_step(kind):
    assert [mutant.after for mutant in faults(kind)] == FAULTS[kind]


@pytest.mark.parametrize("kind, count", {"text": 6, "letter case": 5}.items())
def test_a_character_of_every_text(kind, count):
    mutants = faults(kind)
    assert len(mutants) == count
    for mutant in mutants:
        assert mutant.function == "updateToVersion4"
        pairs = list(zip(mutant.before, mutant.after))
        changed = [old + new for old, new in pairs if old != new]
        if mutant.kind == "letter case":
            assert len(changed) == 1 and changed[0][0] == changed[0][1].swapcase()
        else:
            assert len(changed) == 1 or len(mutant.after) == len(mutant.before) - 1


def test_every_beginning_is_spread_over_files_and_kinds():
    assert {mutant.file for mutant in MUTANTS[:400]} == {mutant.file for mutant in MUTANTS}
    assert {mutant.kind for mutant in MUTANTS[:400]} == {mutant.kind for mutant in MUTANTS}


def test_a_fault_leaves_the_brackets_in_pairs():
    texts = {source.file: source.text for source in sources(ROOT)}
    for mutant in MUTANTS:
        text = mutant.text(texts[mutant.file])
        assert text != texts[mutant.file]
        code = Source(mutant.file, text).code
        for opening, closing in "()", "{}", "[]":
            assert code.count(opening) == code.count(closing), mutant


def test_survivors_are_faults():
    assert set(explanations()) - {mutant.key() for mutant in MUTANTS} == set()
