"""The faults that campaign.py and verdict_campaign.py would make."""

import pytest
from campaign import explanations, program
from mutants import Source, all_mutants
from support.places import ROOT
from verdict_campaign import Judgement, verdict

MUTANTS = all_mutants(ROOT)
SUBJECTS = program(), verdict()

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


JUDGEMENT = '''
namespace
{
class Judge
{
public:
    int count(const Rows &before, const Rows &after)
    {
        while (before.next()) { // before the rows after
            ++m_rowsBefore;
            m_rowsAfter += countsRows;
        }
        json.insert("rowsBefore", numbers.rowsBefore);
        return after.size();
    }
};

bool isLost()
{
    if (m_damage) {
        note("rows-lost", 7);
    }
    if (m_other) {
        return false;
    }
}
} // namespace
'''
FAULTS_OF_JUDGEMENT = {
    "before and after": [
        ("count", "while (after.next()) { // before the rows after"),
        ("count", "++m_rowsAfter;"),
        ("count", "m_rowsBefore += countsRows;"),
        ("count", "return before.size();")],
    "count": [
        ("count", "m_rowsBefore += 2;"),
        ("count", "m_rowsAfter += countsRows + 1;"),
        ("count", 'json.insert("rowsBefore", numbers.rowsBefore + 1);')],
    "finding missing": [("isLost", "if (false) {")],
}


def faults(kind):
    return [mutant for mutant in Source("step.cpp", STEP).mutants() if mutant.kind == kind]


def test_faults_are_the_same_every_time():
    assert all_mutants(ROOT) == MUTANTS


@pytest.mark.parametrize("kind", FAULTS)
def test_faults_of_a_step(kind):
    assert [mutant.after for mutant in faults(kind)] == FAULTS[kind]


@pytest.mark.parametrize("kind", FAULTS_OF_JUDGEMENT)
def test_faults_of_a_judgement(kind):
    assert [(mutant.function, mutant.after) for mutant in Judgement("a.cpp", JUDGEMENT).mutants()
            if mutant.kind == kind] == FAULTS_OF_JUDGEMENT[kind]


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


@pytest.mark.parametrize("subject", SUBJECTS, ids=lambda subject: subject.name)
def test_every_beginning_is_spread_over_files_and_kinds(subject):
    beginning = subject.mutants[:400]
    assert {mutant.file for mutant in beginning} == {mutant.file for mutant in subject.mutants}
    assert {mutant.kind for mutant in beginning} == {mutant.kind for mutant in subject.mutants}


@pytest.mark.parametrize("subject", SUBJECTS, ids=lambda subject: subject.name)
def test_a_fault_leaves_the_brackets_in_pairs(subject):
    texts = {mutant.file: (ROOT / mutant.file).read_text(encoding="utf-8")
             for mutant in subject.mutants}
    for mutant in subject.mutants:
        text = mutant.text(texts[mutant.file])
        assert text != texts[mutant.file]
        code = Source(mutant.file, text).code
        for opening, closing in "()", "{}", "[]":
            assert code.count(opening) == code.count(closing), mutant


@pytest.mark.parametrize("subject", SUBJECTS, ids=lambda subject: subject.name)
def test_survivors_are_faults(subject):
    keys = {mutant.key() for mutant in subject.mutants}
    assert set(explanations(subject.survivors)) - keys == set()
