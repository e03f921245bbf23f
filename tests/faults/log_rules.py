"""The rules for the log of a run whose statements failed: which lines it must and may have.

An example. Step 4 adds a column, and the disk fails at that statement:

    ALTER TABLE systemControl ADD COLUMN languageSelected BOOLEAN DEFAULT 0    disk I/O error

ANSWERS has the lines that a failed statement must lead to. The first entry that fits is the
toolkit's:

    DatabaseMigrator::addColumn - Failed to add column named languageSelected to systemControl
    DatabaseMigrator::addColumn - disk I/O error Unable to fetch row

CLOSINGS has the line with which the step ends. Version 4 logs one only when it succeeds:

    Database migration to version 4 completed successfully!

So the log must have the first two lines in step 4 and must not have the third. It is wrong if one
of the two is missing, if it reports success, or if it has a line that the undisturbed run does not
have and that no failure explains.

The rules:

- Before the first failure the log is that of the undisturbed run.
- Every failed statement has its lines, if its failure is logged at all: ANSWERS.
- A step with a failed statement that counts logs its failure line, if it has one, and not its
  success line: CLOSINGS. Any other step logs one of the two.
- Any further line is one of the undisturbed run, one that a failed statement can cause indirectly
  (CONSEQUENCES), or the closing line of a step after the first failure.

A step here is a number, negative on the way back. "before" and "after" are what comes before and
after the walk. The lines are written out here, and not taken from the program.
"""

import re
from collections import Counter, defaultdict
from difflib import SequenceMatcher
from typing import NamedTuple

from support.versions import NEWEST

MIGRATED = "Database migration to version {} completed successfully!"
SUCCESS = "Migration to version {} was successful."
FAILURE = "Migration to version {} FAILED!"

# step: the success line, and the failure lines, of which the step logs one
CLOSINGS = {
    **{version: (MIGRATED.format(version), ()) for version in range(2, 10)},
    3: (MIGRATED.format(3), ("Database migration to version 3 failed! Error was: ",)),
    10: (SUCCESS.format(10), ()),
    **{version: (SUCCESS.format(version), (FAILURE.format(version),))
       for version in range(11, 31)},
    29: (SUCCESS.format(29), ()),
    31: (SUCCESS.format(31),
         tuple(f"Migration to version 31 FAILED! Failed to add and populate {table} uuid column"
               for table in ("PC_Carrier", "PC_Mix", "PC_PlanterVariety"))
         + ("Migration to version 31 FAILED! Failed to synch default carrier uuids",)),
    **{version: (SUCCESS.format(version), (f"Migration to version {version} failed",))
       for version in range(32, NEWEST + 1)},
    -24: (None, ("Failed to revert from version 24 to 23",)),
    -26: (None, ("Reverting from version 26 FAILED!!",)),
    **{-version: (f"Reverting from version {version} was successful.",
                  (f"Reverting from version {version} FAILED!!",)) for version in (28, 29)},
}
ALL_CLOSINGS = {line for success, failures in CLOSINGS.values() for line in (success, *failures)}
# These steps succeed although a statement failed, always or sometimes.
SUCCESSFUL_ALL_THE_SAME = (6, 8, 9, 29)
# If this statement fails, the step finds no table and succeeds without doing anything.
LOOKS_FOR_TABLE = {-24: "SELECT name FROM sqlite_master "}


class Answer(NamedTuple):
    """The lines that a failed statement must lead to. {error} is the error's text, {text} is that
    text with the words of the SQL layer, {1} is the statement's first group, {any} is anything."""

    steps: tuple  # empty means all steps
    statement: str
    lines: tuple
    counts: bool = True  # true if the step fails because of it


def toolkit(operation, line):
    return (f"DatabaseMigrator::{operation} - {line}", f"DatabaseMigrator::{operation} - {{text}}")


def recreation(version, table, way):
    """The answers of a version that creates a table again and copies it row by row."""
    operation = f"{way}Version{version}()"
    query = f"query in {operation} failed!  The query error was: {{error}}"
    return [
        Answer((), rf"ALTER TABLE {table} RENAME TO {table}_old$",
               (f"The ALTER TABLE RENAME {query}",)),
        Answer((), rf"CREATE TABLE IF NOT EXISTS {table} ",
               (f"The CREATE TABLE IF NOT EXISTS {query}",)),
        Answer((), rf"SELECT \* FROM {table}_old$", (f"SELECT * FROM {table}_old {query}",)),
        Answer((), rf"INSERT OR REPLACE INTO {table} ",
               (f"Database migration failed in {operation}!  The error was: {{error}}",)),
        # After a failed insertion the old table gets its name back.
        Answer((), rf"ALTER TABLE {table}_old RENAME TO {table}$", ()),
    ]


def for_steps(steps, answers):
    return [answer._replace(steps=steps) for answer in answers]


ADD_COLUMN = "ALTER TABLE (\\w+) ADD COLUMN (\\w+)"
COLUMN_NOT_ADDED = toolkit("{addColumn}", "Failed to add column named {2} to {1}")

ANSWERS = [
    Answer((), "UPDATE tableVersion SET version", ("{text}",), False),
    Answer(("before",), "SELECT \\w+ FROM tableVersion", (), False),
    Answer(("before",), "PRAGMA foreign_key_check|DELETE FROM \\w+ WHERE rowid", ("{error}",)),
    *(Answer(("before",), f"DELETE FROM {table} WHERE \\w+ (?:NOT )?IN",
             (f"Failure {number} while removing extraneous product config data."
              " Error was: {error}",))
      for number, table in enumerate(
          ("PC_ProductConfig", "PC_MixToProductConfigBridge",
           "PC_PlanterVarietyToProductConfigBridge"), 1)),
    *for_steps((2,), recreation(2, "productControl_productSettings", "updateTo")),
    *for_steps((-2,), recreation(2, "productControl_productSettings", "revertFrom")),
    # Without the table this is the only statement, and its failure has no line of its own.
    Answer((32,), "CREATE TABLE IF NOT EXISTS workOrderRxMaps ", ()),
    *for_steps((32,), recreation(32, "workOrderRxMaps", "updateTo")),
    *for_steps((-32,), recreation(32, "workOrderRxMaps", "revertFrom")),
    Answer((6, 8), "UPDATE ", (), False),
    Answer((7,), "SELECT \\* FROM files|UPDATE files|DELETE FROM|DROP TABLE systemFiles", ()),
    Answer((9,), "DELETE FROM", (), False),
    Answer((11, -11), "UPDATE userProfiles set", (), False),
    Answer((12,), "CREATE TABLE (?:IF NOT EXISTS )?onScreenSwitchboxConfig",
           ("The CREATE TABLE query in updateToVersion12() failed!"
            "  The query error was: {error}",)),
    Answer((12,), "SELECT \\* FROM switchToSectionBridge$",
           ("SELECT * FROM switchToSectionBridge query in updateToVersion12() failed!"
            "  The query error was: {error}",)),
    Answer((12,), "INSERT OR REPLACE INTO onScreenSwitchboxConfig",
           ("Database migration failed in updateToVersion12() while copying data from old table: "
            "switchToSectionBridge to new table: onScreenSwitchboxConfig...  The error was: "
            "{error}",)),
    Answer((12,), "CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels",
           ("The CREATE TABLE IF NOT EXISTS onScreenSwitchboxSwitchLabels query in "
            "updateToVersion12() failed!  The query error was: {error}",)),
    Answer((12,), "SELECT \\* FROM onScreenSwitchboxConfig$",
           ("The SELECT * FROM onScreenSwitchboxConfig query in updateToVersion12() failed!"
            "  The query error was: {error}",)),
    Answer((12,), "INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels",
           ("The INSERT OR REPLACE INTO onScreenSwitchboxSwitchLabels query in "
            "updateToVersion12() failed!  The query error was: {error}",)),
    Answer((16, -16), "UPDATE UserProfiles|DROP TABLE languages", ()),
    Answer((17, -17), "ALTER TABLE \\w+ReceiverSettings RENAME TO", ()),
    Answer((19,), "CREATE TABLE|INSERT OR REPLACE", ()),
    Answer((19,), "SELECT DISTINCT", (), False),
    Answer((21,), "CREATE TABLE IF NOT EXISTS (gpsReceivers|machineToGpsReceiverMapping)",
           ("updateToVersion21 - Failed to create {1} table.",)),
    Answer((21,), "SELECT mc_id,",
           ("updateToVersion21 - Failed to select entries from preferredGpsSolutions",)),
    # There is no line if reading stops on an error after the first row.
    Answer((21, -21), "SELECT portName", ()),
    Answer((21,), "INSERT INTO gpsReceivers",
           ("updateToVersion21 - Failed to populate gpsReceivers table with new entries",)),
    Answer((21,), "SELECT last_insert_rowid",
           ("updateToVersion21 - Failed to retrieve the last inserted rowid",)),
    Answer((21,), "SELECT machineId",
           ("updateToVersion21 - Failed to select machineId from MC_MachineConfig",)),
    Answer((21,), "INSERT INTO machineToGpsReceiverMapping",
           ("updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping",)),
    Answer((21,), "DROP TABLE IF EXISTS preferredGpsSolutions",
           (*toolkit("dropTable", "Failed to drop table named preferredGpsSolutions"),
            "updateToVersion21 - failed to drop preferredGpsSolutions table"), False),
    Answer((-21,), "CREATE TABLE", ("Failed to create preferredGpsSolutions table.",)),
    Answer((-21,), "SELECT gpsReceivers",
           ("Failed to determine preferredGpsSolutions table entries.",)),
    Answer((-21,), "INSERT OR REPLACE",
           ("Failed to insert preferredGpsSolutions table entries.",)),
    Answer((25,), "SELECT (?!sql )|UPDATE (?:serialDevices|gpsReceivers) ",
           ("Error while updating to version 25. Error was: {error}",)),
    Answer((-25,), "SELECT (?!sql )|UPDATE (?:serialDevices|gpsReceivers) ",
           ("Error while reverting to version 24. Error was: {error}",)),
    Answer((27,), "(?:CREATE|INSERT|DROP|ALTER) ", ()),
    Answer((29, -29), "ALTER TABLE reverseSenseSettings RENAME",
           ("Could not rename table to reverseSenseSettings_temp.{any}",)),
    Answer((29, -29), "CREATE TABLE", ()),
    Answer((29, -29), "ALTER TABLE reverseSenseSettings_temp RENAME",
           ("Could not rename table back to reverseSenseSettings while attempting to clean up"
            "{any}",)),
    Answer((29,), "INSERT INTO",
           ("Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings."
            "  Error was {error}",)),
    Answer((-29,), "INSERT INTO",
           ("Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings",)),
    Answer((31,), "SELECT |UPDATE ", (), False),
    # Without the column there is nothing to fill: the step succeeds.
    Answer((31,), ADD_COLUMN, COLUMN_NOT_ADDED, False),
    Answer(("after",), "UPDATE (?:files|growers|farms|fields) ",
           ("Failed to rename {any}",)),
    Answer(("after",), "SELECT |PRAGMA ", ()),
    Answer(("after",), "", ("{text}",)),  # the scripts' statements
    # The toolkit's operations.
    Answer((), ADD_COLUMN, COLUMN_NOT_ADDED),
    Answer((), "UPDATE (\\w+) SET (\\w+)=", toolkit(
        "setColumnValue", "Failed to set column named {2} to {any}")),
    Answer((), "DROP TABLE IF EXISTS (\\w+)$", toolkit(
        "dropTable", "Failed to drop table named {1}"), False),
    *(Answer((), statement, toolkit(
        "dropColumnSaveParameters", "Failed to drop column named {any} to {1}"))
      for statement in ("CREATE TABLE (\\w+)_temp \\(", "INSERT INTO (\\w+)_temp SELECT",
                        "DROP TABLE (\\w+)$", "ALTER TABLE (\\w+)_temp RENAME TO \\w+$")),
    Answer((), "PRAGMA |SELECT |DELETE FROM|UPDATE ", (), False),
]

# Lines that a failed read can lead to: the program takes its result for an empty one.
CONSEQUENCES = [
    "DatabaseMigrator::addColumn(?:IfNotExists)? - .*",
    "DatabaseMigrator::dropColumnSaveParameters - .*",
    "DatabaseMigrator::setColumnValue - .*",
    "Integrity check FAILED! Integrity check results\\.\\.\\.",
    "Corruption detected: applying update to db for version \\d+",
    "\\*\\*\\*\\*\\*Beginning database migration from version: 0 to version: \\d+",
    "\\*\\*\\*\\*\\*Updating version in DB to: \\d+ with software version: .*",
    "Switch to section mapping data copied successfully while migrating database to version 12!",
    "updateToVersion21 - Failed to .*", "Failed to determine instance numbers\\.",
    "The CREATE TABLE IF NOT EXISTS query in updateToVersion32\\(\\) failed!"
    "  The query error was: .*",
    "SELECT \\* FROM \\w+_old query in \\w+\\(\\) failed!  The query error was: .*",
    " ?Unable to execute statement",  # There was no memory for the error's text.
    "duplicate file query failed", "Query for .* failed",
]

READING_STOPPED = "reading stopped on an error while other statements ran"


class LogRules:
    def __init__(self, recording, step, forward):
        self._events = recording.events
        self._step, self._forward = step, forward
        self._known = {}

    def violations(self, position, events, memory_lacks=False):
        """What is wrong with the log of a run. Up to a position the run had the events of the
        undisturbed run, then it had these. memory_lacks: SQLite may have failed without an
        error."""
        key = position, tuple(events), memory_lacks
        if key not in self._known:
            self._known[key] = self._violations(*key)
        return self._known[key]

    def _violations(self, position, events, memory_lacks):
        if any(event.kind == "L" and not event.text for event in events):
            return []  # The log itself could not be written.
        if position == 0 and not any(event.kind == "S" for event in events):
            return []  # The database could not be opened: no statement shows how far the run got.
        begun = [event.text for event in self._events[:position] if event.kind == "S"]
        expected = self._by_step(begun, self._events[position:], self._steps_as_usual(len(begun)))
        actual = self._by_step(begun, events, self._steps_of(len(begun), events))
        found, changed = [], memory_lacks
        for step in [*actual, *(step for step in expected if step not in actual)]:
            failures = list((Counter(actual[step].failures)
                             - Counter(expected[step].failures)).elements())
            if failures:
                found += self._of_a_step_that_failed(step, actual[step], expected[step], failures)
            elif not changed and actual[step].lines != expected[step].lines:
                found.append(f"log of {step}: other lines though nothing failed")
            elif changed:
                found += self._of_a_later_step(step, actual[step], expected[step])
            changed = changed or bool(failures)
        return found

    def _of_a_step_that_failed(self, step, actual, expected, failures):
        found = []
        lines = Counter(actual.lines)
        answers = [(answers_to(step, statement), statement) for statement, _ in failures]
        errors = {error for _, error in failures}
        for possible, statement in answers:
            if not any(take(answer, match, lines, errors) for answer, match in possible):
                found.append(f"log of {step}: nothing says that {statement[:60]} failed")
        lines -= Counter(expected.lines)
        success, closings = CLOSINGS.get(step, (None, ()))
        found += [f"log of {step}: {line[:80]} has no reason"
                  for line in lines.elements()
                  if line not in closings and not self._can_follow(step, line, errors)]
        counts = step != "before" and any(possible[0][0].counts for possible, _ in answers)
        look = LOOKS_FOR_TABLE.get(step)
        found_no_table = look and any(statement.startswith(look) for _, statement in answers)
        if counts and not found_no_table and step not in SUCCESSFUL_ALL_THE_SAME:
            if success in actual.lines:
                found.append(f"log of {step}: success in spite of a failure")
            if closings and not set(closings) & set(actual.lines):
                found.append(f"log of {step}: no failure line")
        return found

    def _can_follow(self, step, line, errors):
        if any(re.fullmatch(pattern, line) for pattern in CONSEQUENCES):
            return True
        # Steps are applied again when their probe fails, before the walk or at its beginning.
        if (step == "before" or not self._forward) and line in ALL_CLOSINGS:
            return True
        # If a step fails at its first statement, its lines count for the step before.
        return any(matches(due, line, None, errors)
                   for answer in ANSWERS for due in answer.lines if "{error}" in due)

    def _of_a_later_step(self, step, actual, expected):
        """Nothing failed in this step, but it may have begun from another state."""
        _, failures = CLOSINGS.get(step, (None, ()))
        lines = Counter(actual.lines) - Counter(expected.lines)
        return [f"log of {step}: {line[:80]} has no reason"
                for line in lines
                if line not in failures and not self._can_follow(step, line, ())]

    def _steps_as_usual(self, begun):
        number = begun
        while True:
            number += 1
            yield self._signed(self._step(number))

    def _steps_of(self, begun, events):
        """The steps of statements, found by the statements that the undisturbed run has too."""
        usual = [event.text for event in self._events if event.kind == "S"][begun:]
        actual = [event.text for event in events if event.kind == "S"]
        step, place = self._signed(self._step(begun)), 0
        for block in SequenceMatcher(None, usual, actual, autojunk=False).get_matching_blocks():
            for _ in range(place, block.b):
                yield step
            for i in range(block.size):
                step = self._signed(self._step(begun + block.a + i + 1))
                yield step
            place = block.b + block.size

    def _signed(self, step):
        return step if not step.isdigit() else int(step) if self._forward else -int(step)

    def _by_step(self, begun, events, steps):
        found = defaultdict(Part)
        step = self._signed(self._step(len(begun)))
        statement = begun[-1] if begun else ""
        for event in events:
            if event.kind == "S":
                step, statement = next(steps), event.text
            elif event.kind == "E":
                reading = event.statement not in ("", statement)
                found[step].failures.append(
                    (READING_STOPPED if reading else statement, event.text))
            else:
                found[step].lines += filter(None, event.text.split("\n"))
        return found


class Part:
    """The statements of a step."""

    def __init__(self):
        self.lines = []
        self.failures = []  # statements with their errors


def answers_to(step, statement):
    """The answers that a failed statement can lead to, those with most lines first. Before the walk
    the statement can belong to any step that is applied again."""
    found = []
    for answer in ANSWERS:
        if (not answer.steps or step in answer.steps
                or step == "before" and any(isinstance(of, int) for of in answer.steps)):
            match = re.match(answer.statement, statement)
            if match:
                found.append((answer, match))
                if step != "before":
                    break
    found.sort(key=lambda entry: -len(entry[0].lines))
    return found or [(Answer((), "", (), False), None)]


def take(answer, match, lines, errors):
    """Takes the lines of an answer out of the lines of a step; false if one is missing."""
    taken = []
    for due in answer.lines:
        line = next((line for line in lines.elements() if matches(due, line, match, errors)), None)
        if line is not None:
            taken.append(line)
            lines[line] -= 1
        elif not matches(due, "", match, errors):  # There was no memory for the text.
            lines.update(taken)
            return False
    return True


def matches(line, actual, match, errors):
    """True if a line is the required one."""
    texts = [*errors]
    if any("memory" in error for error in errors):
        texts += ["out of memory", ""]  # There was no memory for the text either.
    text = f"(?:{'|'.join(map(re.escape, texts))})"
    placeholders = {
        "error": text, "text": f"{text}(?: ?Unable to (?:execute statement|fetch row))?",
        "any": ".*", "addColumn": "addColumn(?:IfNotExists)?",
        **{str(i): re.escape(group)
           for i, group in enumerate(match.groups() if match else (), 1)}}
    pattern = "".join(placeholders[part] if i % 2 else re.escape(part)
                      for i, part in enumerate(re.split(r"\{(\w+)\}", line)))
    return re.fullmatch(pattern, actual) is not None
