"""The page in a browser: what a technician reads there, on a desktop, a phone and on paper."""

import os
import re

import pytest
from conftest import DESKTOP, PHONE, paper_sizes
from rehearsals import (HOSTILE, failing, finding, hostile, keys, mended, of_device, record,
                        refused, rehearsal, run, steps, values, verdict, with_numbers)
from runs_to_judge import Judge
from support.places import DEMO, scratch_directory
from support.versions import NEWEST
from texts import Words

A4 = {(595, 842)}
SEEDS = range(300 if "CAMPAIGN" in os.environ else 6)
NUMBER = re.compile(r"\d[\d,]*(?:\.\d+)?")
WORDS = Words()


@pytest.fixture(scope="module")
def real():
    """A rehearsal with a verdict of the guard on a run of the program."""
    with scratch_directory() as folder, Judge() as judge:
        return of_device(os.environ["DATABASE_MIGRATOR"], judge, folder, NEWEST,
                         DEMO / "repairs.sql")


def numbers_in(text):
    return [float(number.replace(",", "").rstrip(".")) for number in NUMBER.findall(text)]


def headline(browser, *documents):
    return browser.show(*documents).text("h1")


# The verdict


def taking(*versions):
    return verdict(16, 34, 34, [finding("rows-lost:fields", 3, 41, on_purpose=version)
                                for version in versions])


def failing_at(*lines):
    """A rehearsal in which step 25 fails, with these lines in the log."""
    return rehearsal(24, 25, 24, verdict(24, 24, 25, [finding("step-failed:25", counts=True)]),
                     status=4, reason="step-failed", versions=steps(24, 25, 25, lines))


def not_rehearsed(reason):
    return rehearsal(None, 34, None, status=3, reason=reason, changed=False, versions=[],
                     log=None) | {"verdict": None, "to": None}


@pytest.mark.parametrize("document, sentence, badge", [
    pytest.param(rehearsal(found=taking(21, 33)),
                 "This database can go from 16 to 34. Nothing is lost besides what versions 21 and"
                 " 33 take on purpose.", "Can be installed", id="on purpose"),
    pytest.param(rehearsal(), "This database can go from 16 to 34. Nothing is lost.",
                 "Can be installed", id="nothing is lost"),
    pytest.param(rehearsal(34, 16, found=verdict(34, 16, 16, [
        finding("column-lost:farms.isoId", 0, 29, on_purpose=22)])),
        "This database can go back from 34 to 16. Nothing is lost.", "Can be installed",
        id="a way back that takes an empty column"),
    pytest.param(rehearsal(34, 34, changed=False),
                 "This database stays at version 34. Nothing would change.", "Can be installed",
                 id="nothing to do"),
    pytest.param(rehearsal(None, 34, found=verdict(None, 34, 34)),
                 "This database records no version, and can go to version 34. Nothing is lost.",
                 "Can be installed", id="no version"),
    pytest.param(rehearsal(found=taking(7, "script", "unknown")),
                 "This database can go from 16 to 34. Nothing is lost besides what version 7 takes"
                 " on purpose, what reference data may replace and what versions take that are not"
                 " known here.", "Can be installed", id="not only versions"),
    pytest.param(rehearsal(found=verdict(16, 34, 34, [
        finding("rows-lost:fields", 3, 41, accepted=True)])),
        "This database can go from 16 to 34. Nothing is lost besides 1 finding that was accepted.",
        "Can be installed", id="accepted"),
    pytest.param(rehearsal(status=4, found=verdict(16, 34, 34, [
        finding("rows-lost:PC_Mix", 3, 41, counts=True)])),
        "3 of 41 mixes would be lost.", "Do not install yet", id="rows lost"),
    pytest.param(rehearsal(status=4, found=verdict(16, 34, 34, [
        finding("rows-lost:Own", 1, 41, counts=True)])),
        "1 of 41 rows of Own would be lost.", "Do not install yet", id="a table without a word"),
    pytest.param(failing(),
                 "Step 27 fails here: a copy that an earlier run left behind is in the way. The"
                 " database would stop at version 26, not at version 34.", "Do not install yet",
                 id="a step fails"),
    pytest.param(failing_at("table fields_temp already exists"),
                 "Step 25 fails here: a copy that an earlier run left behind is in the way.",
                 "Do not install yet", id="a copy is in the way"),
    pytest.param(failing_at("table fields_old already exists"),
                 "Step 25 fails here: a copy that an earlier run left behind is in the way.",
                 "Do not install yet", id="an old table is in the way"),
    pytest.param(failing_at("table fields already exists"),
                 "Step 25 fails here: the step adds something that is already there, perhaps left"
                 " by an earlier run.", "Do not install yet", id="something is there already"),
    pytest.param(failing_at("", " "), "Step 25 fails here.", "Do not install yet",
                 id="a step fails, and the log has only empty lines"),
    pytest.param(not_rehearsed("no-database"),
                 "This database cannot be migrated. There is no such file.", "Would not run",
                 id="a path that is wrong"),
    pytest.param(not_rehearsed("newer-than-program"),
                 "This database cannot be migrated. The database has a version that the program"
                 " does not know. The program was not started.", "Would not run",
                 id="a reason that means the same in a rehearsal"),
    pytest.param(rehearsal(None, 34, way="direct", reason="no-database", found=verdict(
        None, None, 34, [finding("direct:no-database")])) | {"to": None},
        "There is no database yet. The program makes one.", "Can be installed",
        id="a database of 0 bytes"),
    pytest.param({"format": 1, "lastRun": run(None, 34, verdict(None, 34, 34, [
        finding("direct:no-database")]), way="direct", reason="no-database")},
        "This database records no version, and went to version 34. What became of its contents was"
        " not compared.", "In order", id="a run that made a database"),
    pytest.param(rehearsal(16, 34, 16, verdict(16, 16, 34), status=3, reason="no-room"),
                 "This database cannot be migrated. There was too little room on the disk or in"
                 " memory.", "Would not run", id="no room for the commit"),
    pytest.param(refused(),
                 "This database cannot be migrated. The database has a version that the program"
                 " does not know. The program was not started.", "Would not run", id="refused"),
    pytest.param(rehearsal(status=3, reason="new-reason", verdict=None),
                 "This database cannot be migrated. The reason is new-reason.", "Would not run",
                 id="a reason that is not known"),
    pytest.param({"format": 1, "lastRun": run(16, 34, taking(21))},
                 "This database went from 16 to 34. Nothing was lost besides what version 21 takes"
                 " on purpose.", "In order", id="a run"),
    pytest.param({"format": 1, "lastRun": run(16, 26, verdict(16, 26, 34, [
        finding("step-failed:27", counts=True),
        finding("target-missed:26", counts=True, numbers={"target": 34})]),
        status=4, reason="step-failed")},
        "Step 27 failed here. The database is at version 26, not at version 34.", "Look at it",
        id="a run that failed"),
    pytest.param({"format": 1, "lastRun": run(16, 16, verdict(16, 34, 34, [
        finding("rows-lost:fields", 3, 41, counts=True)]), status=3, reason="rows-lost",
        changed=False)},
        "Nothing was changed. 3 of 41 fields would be lost.", "Nothing changed",
        id="a strict run"),
    pytest.param({"format": 1, "lastRun": run(16, None, None, status=3, reason="commit-unknown",
                                              changed=None)},
                 "The disk failed during the last write. Whether the database is the old or the"
                 " new one is not known until it can be read again.", "Nobody can tell yet",
                 id="nobody can tell"),
    pytest.param({"format": 1, "lastRun": run(20, None, None, way="direct", status=4, changed=None,
                                              reason="direct-run-cut")},
                 WORDS.texts["findings"]["direct-run-cut"]["means"], "Look at it",
                 id="a direct run that was cut"),
    pytest.param({"format": 1, "lastRun": run(16, 34, verdict(16, 34, 34, [
        finding("direct:no-lock", accepted=True)]), way="direct")},
        "This database went from 16 to 34. What became of its contents was not compared.",
        "In order", id="a direct run that was accepted"),
    pytest.param({"format": 1, "lastRun": run(34, 16, None, command="restore")},
                 "The kept database of version 16 was brought back in place of version 34."
                 " What became of its contents was not compared.", "In order", id="a restore"),
])
def test_verdict_is_a_sentence(browser, document, sentence, badge):
    browser.show(document)
    assert (browser.text("h1"), browser.text(".badge")) == (sentence, badge)


def test_what_to_do_is_in_the_words_of_the_page_of_findings(browser):
    browser.show(failing())
    plain = [re.sub("`", "", WORDS.texts[part][name][field]) for part, name, field in (
        ("statuses", "4", "rehearsal"), ("findings", "step-failed", "advice"),
        ("findings", "rows-lost", "advice"))]
    assert plain[0] in browser.text(".advice")
    assert all(any(text in card for card in browser.texts(".finding.counts"))
               for text in plain[1:])
    assert "migration-guard run --mend takes care of them first" in browser.text(".advice")


# What is on it


def test_a_real_rehearsal_is_shown_as_it_is(browser, real):
    browser.show(real)
    takers = sorted({found["onPurpose"] for found in real["verdict"]["findings"]
                     if isinstance(found["onPurpose"], int) and found["numbers"]["rows"]})
    listed = f"{', '.join(map(str, takers[:-1]))} and {takers[-1]}"
    assert browser.text("h1") == (f"This database can go from 1 to {NEWEST}. Nothing is lost"
                                  f" besides what versions {listed} take on purpose.")
    assert_numbers_are_those_of(browser, real)
    assert browser.run("return document.querySelector('.log pre').textContent") == real["log"]
    assert [row[:1] + row[2:] for row in browser.rows(".steps")] == [
        [str(version), "done"] for version in range(2, NEWEST + 1)]
    assert browser.errors() == []


@pytest.mark.parametrize("seed", SEEDS)
def test_every_number_is_that_of_the_json(browser, seed):
    document = with_numbers(seed)
    browser.show(document)
    assert_numbers_are_those_of(browser, document)


def assert_numbers_are_those_of(browser, document):
    """Every number of the JSON is where it belongs, and no other number is on the page."""
    for part, found in (("tables", document["verdict"]), ("back", document["wayBack"])):
        shown = [[row[0].split("\n")[-1], *row[1:]]
                 for row in browser.rows(f"#run-1-{part} ~ table.counts")]
        assert shown == [
            [table["table"], *(f"{table[name]:,}" for name in (
                "rowsBefore", "rowsAfter", "rowsGone", "rowsNew"))]
            for table in found["tables"] if table["rowsGone"] or table["rowsNew"]
            or table["rowsBefore"] != table["rowsAfter"]]
    in_back = "section[aria-labelledby='run-1-back']"
    assert_findings_are_those_of(browser, f":not({in_back}) > ul > ", document["verdict"])
    assert_findings_are_those_of(browser, f"{in_back} > ul > ", document["wayBack"])
    facts = browser.text("dl.facts")
    for part in ("milliseconds", "bytes"):
        assert all(f"{count:,}" in facts for count in document["measured"][part].values())
    assert_no_other_numbers(browser, document)


def assert_findings_are_those_of(browser, place, found):
    """Every finding is on the page, with its numbers and its first twenty rows."""
    items = browser.run("""
        return [...document.querySelectorAll(arguments[0] + '.finding[data-code]')].map(
            one => [one.dataset.code, one.querySelector('.sentence').innerText,
                    [...one.querySelectorAll('.keys code, .values tbody td:first-child')]
                        .map(key => key.innerText)])""", place)
    shown = {code: (sentence, shown_keys) for code, sentence, shown_keys in items}
    assert sorted(code for code, *_ in items) == sorted(one["code"] for one in found["findings"])
    for one in found["findings"]:
        sentence, shown_keys = shown[one["code"]]
        tables = {row["table"] for row in one.get("rows", ())}
        if tables <= {one.get("object")}:
            assert shown_keys == [row["key"] for row in one.get("rows", ())[:20]]
        # The sentence of an unknown kind is the JSON's own.
        if one["kind"] != "mystery" and one["numbers"].get("rows"):
            assert one["numbers"]["rows"] in numbers_in(sentence)
        if one["kind"] in ("rows-lost", "violations-removed", "renamed"):
            assert one["numbers"]["rowsBefore"] in numbers_in(sentence)


def assert_no_other_numbers(browser, document):
    allowed = {20.0}

    def note(value):
        if isinstance(value, str):
            allowed.update(numbers_in(value))
            allowed.update(numbers_in(" ".join(re.findall(r"\d+", value))))
        elif isinstance(value, dict):
            for name, inner in value.items():
                note(name)
                note(inner)
        elif isinstance(value, list):
            allowed.add(float(len(value)))
            for inner in value:
                note(inner)
        elif isinstance(value, (int, float)):
            allowed.add(float(value))

    note(document)
    verdicts = [document["verdict"]]
    # The headline names one finding, and says how many more there are.
    allowed.update(float(found["counting"] - 1) for found in verdicts)
    note(list(WORDS.texts["versions"].values()))
    # How many of the JSON's keys are shown.
    for found in document["verdict"]["findings"]:
        allowed.add(float(min(20, len(found.get("rows", ())))))
    # Sizes and times for a person; the exact ones are beside them.
    for size in document["measured"]["bytes"].values():
        for divisor in (1e3, 1e6, 1e9):
            allowed.update({round(size / divisor, 1), float(round(size / divisor))})
    allowed.add(round(sum(document["measured"]["milliseconds"].values()) / 1000, 1))
    text = browser.text()
    foreign = {number for number in numbers_in(text)} - allowed
    assert not foreign, [line for line in text.splitlines()
                         if foreign & {*numbers_in(line)}]


def test_first_twenty_rows_are_shown_and_the_rest_is_named(browser):
    lost = finding("rows-lost:fields", 31, 41, counts=True,
                   **keys("fields", *map(str, range(101, 132))))
    taken = finding("values-lost:farms.name", 25, 41, on_purpose=2, **values(
        "farms", *((str(key), "'a'", "'b'") for key in range(201, 226))))
    cut = finding("rows-lost:files", 99, 99, on_purpose=2,
                  **{**keys("files", *map(str, range(301, 326))), "hasAllRows": False})
    browser.show(rehearsal(status=4, found=verdict(16, 34, 34, [lost, taken, cut])))
    assert browser.texts(".counts .keys code") == [str(key) for key in range(101, 121)]
    assert "The first 20 are shown. All are in the JSON file." in browser.text(".counts")
    assert browser.rows(".values") == [[str(key), "'a'", "'b'"] for key in range(201, 221)]
    assert "The first 20 of 25 rows" in browser.text()
    assert "The first 20 are shown. The JSON file has the first 25." in browser.text()


def test_a_run_without_the_guard_has_the_advice_of_its_reason(browser):
    browser.show(rehearsal(None, 34, None, verdict(None, None, 34, [
        finding("direct:not-copied", counts=True)]), status=4, reason="not-copied", way="direct",
        detail="file is <not> a database"))
    assert browser.text("h1") == "The program would run without the guard's protection. " + (
        WORDS.texts["reasons"]["not-copied"]["means"])
    assert WORDS.texts["reasons"]["not-copied"]["advice"] in browser.text(".counts")
    assert "In detail: file is <not> a database" in browser.text(".advice")


def test_losses_are_marked_as_on_purpose_or_only_here(browser):
    found = [finding("rows-lost:a", 1, 9, counts=True), finding("rows-lost:b", 1, 9, on_purpose=7),
             finding("column-lost:c.d", 1, 9, on_purpose="unknown"),
             finding("values-lost:e.f", 1, 9, on_purpose="script")]
    browser.show(rehearsal(status=4, found=verdict(16, 34, 34, found)))
    marks = browser.run("return [...document.querySelectorAll('.finding')].map("
                        "one => [one.dataset.code, one.querySelector('.badge').innerText])")
    assert dict(marks) == {
        "rows-lost:a": "only here", "rows-lost:b": "on purpose: version 7",
        "column-lost:c.d": "nobody can say: unknown version",
        "values-lost:e.f": "perhaps by reference data"}


def test_repairs_come_with_tables_and_keys(browser):
    browser.show(failing())
    assert browser.texts("#run-1-repairs ~ ul > li") == [
        "2 of 42 guidance lines would be removed: what they belong to is not there.\n"
        "Keys: 90 5000000000",
        "3 rows of product configurations that nothing refers to would be removed.\n"
        "mixes of product configurations, key: 15\nproduct configurations, keys: 50 51",
        "Version 17 would be applied again: its change is missing."]


def test_copies_that_are_left_are_no_repairs(browser):
    """Something has to be done about them, and only some can be mended."""
    document = failing()
    document["mending"].append({
        "copy": "fields_temp", "table": "fields", "kind": "only-reported", "rowsOfCopy": 1,
        "rowsReturned": 0, "reason": "it has other columns"})
    left = "A cut run has left copies of tables. A step that needs the name of such a copy fails."
    found = ("A copy of a table is left from an earlier run: PC_Mix_temp, with 41 rows."
             " was so before")
    mended = "The copy PC_Mix_temp would go: mixes already has each of its 41 rows."
    reported = ("Nothing would be done with the copy fields_temp and its 1 row: it has other"
                " columns.")
    to_mend = "migration-guard run --mend would take care of them:"
    to_look_at = ("migration-guard run --mend would leave these as they are. Compare them with"
                  " their tables by hand:")
    parts = "#run-1-copies ~ p, #run-1-copies ~ ul > li"
    assert browser.show(document).texts(parts) == [
        left, found, to_mend, mended, to_look_at, reported]
    document["mending"] = document["mending"][1:]
    assert browser.show(document).texts(parts) == [left, found, to_look_at, reported]
    document["mending"] = []
    assert browser.show(document).texts(parts) == [left, found]


@pytest.mark.parametrize("found, sentence", [
    pytest.param([finding("rows-lost:a", 1, 9, counts=True), finding("damaged", before=True)],
                 "It would not restore everything:", id="a loss"),
    pytest.param([finding("damaged", before=True)],
                 "It would restore everything that was compared. This was so before:",
                 id="only what was so before"),
    pytest.param([], "It would restore everything that was compared.", id="nothing")])
def test_way_back_says_what_it_would_not_restore(browser, found, sentence):
    browser.show(rehearsal(wayBack={
        "target": 16, "to": 16, "reached": True, **verdict(16, 16, 16, found)}))
    assert browser.texts("#run-1-back ~ p")[0] == f"A run back to version 16 gets there. {sentence}"


@pytest.mark.parametrize("reason", [*WORDS.texts["reasonsForNoRehearsal"]])
def test_reasons_for_no_rehearsal_have_words_of_their_own(browser, reason):
    words, of_run = (re.sub("`", "", " ".join(WORDS.texts[part][reason].values()))
                     for part in ("reasonsForNoRehearsal", "reasons"))
    assert words != of_run
    means, advice = (re.sub("`", "", WORDS.texts["reasonsForNoRehearsal"][reason][part])
                     for part in ("means", "advice"))
    browser.show(not_rehearsed(reason))
    assert browser.text("h1") == f"This database cannot be migrated. {means}"
    assert advice in browser.text(".advice")
    browser.show({"format": 1, "lastRun": run(16, 16, None, status=3, reason=reason)})
    assert WORDS.texts["reasons"][reason]["means"] in browser.text("h1")


def test_mended_copies_are_told_once(browser):
    sentences = ["The copy farms_temp would go: farms already has each of its 30 rows.",
                 "The copy growers_old would be the table growers again, with its 30 rows.",
                 "3 rows of the copy fields_temp would come back into fields, and the copy would"
                 " go."]
    assert browser.show(mended()).texts("#run-1-repairs ~ ul > li") == sentences
    has_been = run(16, 34, mended()["verdict"])
    assert browser.show({"format": 1, "lastRun": has_been}).texts("#run-1-repairs ~ ul > li") == [
        "The copy farms_temp is gone: farms already had each of its 30 rows.",
        "The copy growers_old is the table growers again, with its 30 rows.",
        "3 rows of the copy fields_temp came back into fields, and the copy is gone."]


def test_equal_names_are_shown_before_and_after(browser):
    browser.show(rehearsal(found=verdict(16, 34, 34, [
        finding("renamed:farms", 1, 30, **values("farms", ("51", "'Home'", "'Home_2'")))])))
    assert browser.rows("#run-1-names ~ ul table") == [["51", "'Home'", "'Home_2'"]]


def test_failed_step_has_the_words_of_the_log_and_what_they_mean(browser):
    document = failing()
    browser.show(document)
    card = next(text for text in browser.texts(".counts") if "step of version 27" in text)
    failed = document["versions"][10]
    assert failed["lines"][0] in card
    assert "A copy that an earlier run left behind is in the way." in card
    assert [row[2] for row in browser.rows(".steps")] == [
        "done"] * 10 + ["failed"] + ["not reached"] * 7
    assert browser.text(".steps summary") == "10 done, 1 failed, 7 not reached"


def test_steps_back_are_named_as_such(browser):
    browser.show(rehearsal(34, 32, found=verdict(34, 32, 32)))
    assert [row[0] for row in browser.rows(".steps")] == ["34 back", "33 back"]


def test_a_report_without_rows_has_none(browser):
    document = rehearsal(withRows=False, log=None, found=verdict(16, 34, 34, [
        finding("rows-lost:fields", 3, 41, on_purpose=7)]))
    document["database"]["path"] = None
    browser.show(document)
    assert "without names, keys and contents" in browser.text()
    assert browser.texts(".keys, .log") == []


def test_record_has_the_last_change_the_earlier_ones_and_the_last_run(browser):
    browser.show(record())
    assert browser.text("h1") == "3 of 101 fields were lost."
    assert browser.text("article + article h2") == (
        "This database stayed at version 34. Nothing was changed.")
    assert "brings it back" in browser.text(".advice")
    assert browser.rows("#run-1-changes ~ table") == [
        ["12", "1", "restore", "0", "none"], ["1", "34", "guarded", "4", "rows-lost"]]


def test_several_databases_have_an_overview_and_a_section_each(browser):
    browser.show(rehearsal(), failing(), refused())
    assert browser.text("h1") == "3 databases: 1 in order, 1 to look at, 1 not migrated"
    assert [[cell.split("\n")[0] for cell in row] for row in browser.rows(".overview")] == [
        ["my.db.sqlite", "16 → 26", "Do not install yet 3 things"],
        ["my.db.sqlite", "35", "Would not run"], ["my.db.sqlite", "16 → 34", "Can be installed"]]
    links = browser.run("return [...document.querySelectorAll('.overview a')].map("
                        "one => document.querySelector(one.hash).innerText)")
    assert links == [browser.texts("article h2[id^='run-']:first-of-type")[place]
                     for place in (1, 2, 0)]


# How it is shown


PAGES = {"in order": lambda: [rehearsal(found=taking(7, 21))], "failing": lambda: [failing()],
         "record": lambda: [record()], "several": lambda: [rehearsal(), failing(), refused()],
         "large numbers": lambda: [with_numbers(1)], "hostile": lambda: [hostile()]}


@pytest.mark.parametrize("name", PAGES)
def test_nothing_is_wider_than_a_phone_or_paper(browser, name):
    browser.show(*PAGES[name](), width=PHONE)
    assert browser.too_wide() == []
    browser.as_printed()
    assert browser.too_wide() == []
    assert browser.errors() == []


@pytest.mark.parametrize("name", ["failing", "several"])
def test_paper_is_a4_and_has_what_is_unfolded(browser, name):
    browser.show(*PAGES[name](), unfolded=False)
    assert paper_sizes(browser.print()) == A4
    browser.as_printed()
    assert "Show the whole log" not in browser.text()


def test_real_page_fits_everywhere(browser, real):
    browser.show(real, width=PHONE)
    assert browser.too_wide() == []
    browser.as_printed()
    assert browser.too_wide() == []


def test_page_needs_nothing_else_and_runs_no_script(browser):
    browser.show(failing())
    assert browser.run("return performance.getEntriesByType('resource').length") == 0
    assert browser.run("return document.querySelectorAll("
                       "'script, link, img, iframe, object, [src], [onclick]').length") == 0


@pytest.mark.parametrize("name", PAGES)
def test_page_is_accessible(browser, name):
    browser.show(*PAGES[name]())
    assert browser.run("return document.documentElement.lang") == "en"
    levels = browser.run("return [...document.querySelectorAll('h1, h2, h3, h4')]"
                         ".map(one => Number(one.tagName[1]))")
    assert levels.count(1) == 1 and levels[0] == 1
    assert all(after - before <= 1 for before, after in zip(levels, levels[1:]))
    assert browser.run("return [...document.querySelectorAll('thead th')]"
                       ".filter(one => one.scope !== 'col').length") == 0
    assert browser.run("return [...document.querySelectorAll('table')]"
                       ".filter(one => !one.tHead).length") == 0
    ids = browser.run("return [...document.querySelectorAll('[id]')].map(one => one.id)")
    assert len(ids) == len({*ids})
    assert browser.run("""
        return [...document.querySelectorAll('[aria-labelledby]')].filter(
            one => !document.getElementById(one.getAttribute('aria-labelledby'))).length""") == 0


def test_contrast_is_enough(browser):
    browser.show(rehearsal(), failing(), refused())
    assert browser.run("""
        const channels = color => color.match(/[\\d.]+/g).map(Number);
        const linear = part => part <= 0.03928 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
        const light = color => {
            const [red, green, blue] = channels(color).map(one => linear(one / 255));
            return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
        };
        const behind = one => {
            for (; one; one = one.parentElement) {
                const color = getComputedStyle(one).backgroundColor;
                if (channels(color)[3] !== 0) return color;
            }
            return 'rgb(255, 255, 255)';
        };
        return [...document.querySelectorAll('body *')].filter(one => {
            const pair = [light(getComputedStyle(one).color), light(behind(one))];
            return (Math.max(...pair) + 0.05) / (Math.min(...pair) + 0.05) < 4.5;
        }).map(one => one.outerHTML.slice(0, 80));""") == []


# What a database may hold


def visible(text):
    """A text as the page has to show it: what cannot be seen is named."""
    return re.sub(r"[\x00-\x1f\x7f-\x9f\xad\u200b\u2028\u202e\u2066\u2069\ufeff\ud800]",
                  lambda found: f"U+{ord(found[0]):04X}", text)


def test_hostile_texts_are_shown_and_do_nothing(browser):
    browser.show(hostile())
    shown = browser.run("return [...document.querySelectorAll("
                        "'#run-1-names ~ ul .values td:nth-child(3)')].map("
                        "one => one.textContent)")
    renamed = [text for number, text in enumerate(HOSTILE) if number % 3]
    assert shown == [visible(text) for text in renamed]
    assert "U+0000" in browser.text(".log pre")
    assert browser.errors() == []
    assert "script" != browser.run("return document.title")


def test_names_do_not_turn_the_text_around_them(browser):
    browser.show(rehearsal(found=verdict(16, 34, 34, [
        finding("renamed:farms", 1, 30, **values(
            "farms", ("1", "'\u05d0\u05d1'", "'\u202etxt.exe\u2069\u202e'")))])),
        width=DESKTOP)
    isolated = browser.run("""
        return [...document.querySelectorAll('.values td')].map(
            one => [one.children.length, one.firstElementChild.tagName,
                    getComputedStyle(one.firstElementChild).unicodeBidi])""")
    assert isolated == [[1, "BDI", "isolate"]] * 3
    controls = "[\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]"
    assert not re.search(controls, browser.run("return document.documentElement.outerHTML"))
