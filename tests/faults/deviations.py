"""The differences that a second run leaves, compared with an undisturbed one, and their causes. The
list may only get shorter."""

import json
import pathlib
import re
from collections import defaultdict

import cascades
from support.versions import NEWEST

FILE = pathlib.Path(__file__).parent / "deviations.json"

RECREATED = ("Version {} keeps the old table as `_old` and cannot do so again while that is there:"
             " the rows stay in `_old`.")
REBUILT = ("A rebuild that stopped half-way leaves its `_temp` copy. Every later rebuild of the"
           " table then fails: the rows stay in the copy, or the column stays in the table.")

# The first entry that fits a difference is its cause, on the way forward (+), back (-) or both
# ways.
CAUSES = (
    ("+-", "^tableVersion",
     "A step that fails, or that cannot be done twice, leaves an earlier version recorded; the next"
     " run starts from there."),
    ("+-", "^files other values",
     "Version 7 puts its prefix before every path. A walk that starts over does so twice with paths"
     " without userFiles."),
    ("+-", "^productControl_productSettings", RECREATED.format(2)),
    ("+-", "^workOrderRxMaps(_old| rows| missing| other definition)", RECREATED.format(32)),
    ("+", "^(outgoingFiles|incomingFiles|fileTransferHistory) (other values|rows)",
     "Version 7 deletes rows once: its probe answers true even if that failed."),
    ("+", "^MC_MachineSystem", "Version 9 counts a deletion that failed as done."),
    ("+", "^onScreenSwitchboxToMachineMapping rows",
     "Version 19 drops switches that it cannot read; version 12 copies switches until one fails and"
     " cannot start again."),
    ("+", "^(switchToSectionBridge|onScreenSwitchbox)",
     "Version 12 copies switches until one fails and cannot start again. In the next run version 19"
     " maps what was copied."),
    ("+", "^(gpsReceivers|machineToGpsReceiverMapping|preferredGpsSolutions)",
     "Version 21 drops the preferred solutions even if their receivers could not be inserted. If it"
     " is stopped before that, the next run inserts the receivers again under other numbers."),
    ("-", "^(gpsReceivers|machineToGpsReceiverMapping|preferredGpsSolutions)",
     "Version 21 keeps the receivers if it could not turn all of them into preferred solutions, and"
     " the walk goes on. A rebuild for version 14 that stopped leaves its `_temp` copy."),
    ("+", "^PC_Mix other values",
     "Version 23 marks the mixes in use once; version 31 gives mixes without an identifier a random"
     " one."),
    ("+", "^(PC_Ingredient|productControl_userProfile) other values",
     "Version 23 renumbers units and sets values once: its probe looks at columns only."),
    ("+", "^PC_IngredientToMixBridge",
     "Version 27 runs its four statements whatever fails: the table is dropped even if its rows"
     " could not be copied. Version 23 copies the unit of an ingredient as it is."),
    ("+-", "^reverseSenseSettings",
     "Version 29 drops what it cannot move. The device software creates an empty table."),
    ("+", "^(PC_Carrier|PC_PlanterVariety) other values",
     "Version 31 gives identifiers to rows without one. If that failed, the next run gives them a"
     " random one, or none."),
    ("+", "^(userProfiles|MC_EquipmentSectionGroup) other values",
     "Versions 6, 8, 11, 16 and 20 set values once: their probes look at columns and tables only."),
    ("+", "^(softwareUpdateTable|languages|systemFiles) left over",
     "The table could not be dropped, and the probe of its version does not look for it."),
    ("+", "^systemControl other values",
     "Version 33 adds its columns once, with the registration as it could be read then."),
    ("+-", "^sqlite_sequence",
     "The counter of a table with AUTOINCREMENT counts rows that were inserted twice, or stays with"
     " a copy of the table."),
    ("+-", "_temp left over|missing with its rows$|^\\w+ missing$| column \\w+ more$", REBUILT),
    ("+", " column \\w+ missing$",
     "The column could not be added, and the probe of its version looks for another column or for"
     " none."),
    ("+", "other order of columns$|other definition$",
     "A column that could not be added or removed at its version is so in the next run: it comes"
     " after those of later versions, or the table has another text."),
    ("-", "other order of columns$|other definition$| column \\w+ missing$",
     "The table is rebuilt once more or once less than in an undisturbed walk, or steps are applied"
     " again before that: its columns have another order or text."),
    ("-", "^\\w+ left over",
     "The table could not be dropped; the step back that drops it is done once."),
    ("+-", "^(JP_JobProfile|PC_Mix) other values| rows( missing| in no table)$",
     f"Lack of memory: {cascades.REASON}. The next start removes product configurations without"
     " rows."),
    ("-", "other values", "A step back converts values once more, or not at all."),
)


def walk_of(scenario):
    """The name of a walk by its ends: other data and other settings of SQLite leave no other
    differences."""
    return scenario.split(",")[0].replace(str(NEWEST), "newest")


def cause_of(walk, difference):
    """The text of the cause; None if no cause is known for the difference."""
    way = "+" if walk.startswith("1 ") else "-"
    return next((cause for ways, pattern, cause in CAUSES
                 if way in ways and re.search(pattern, difference, re.IGNORECASE)), None)


def rows_of_json(value, depth):
    """An object as JSON, with a line for each entry at this depth."""
    if depth == 0:
        return json.dumps(value, ensure_ascii=False)
    entries = (f"{json.dumps(key)}: {rows_of_json(entry, depth - 1)}"
               for key, entry in value.items())
    return "{\n" + ",\n".join(entries) + "\n}"


class Deviations:
    """The list: for each walk and difference, the steps in which a fault led to it."""

    def __init__(self, file=FILE):
        self._file = file
        tables = json.loads(file.read_text(encoding="utf-8")) if file.exists() else {}
        self.steps = {(walk, f"{table} {difference}"): steps.split()
                      for walk, by_table in tables.items()
                      for table, differences in by_table.items()
                      for difference, steps in differences.items()}

    def by_cause(self, walk):
        """The causes, each with its steps and tables."""
        found = {cause: (set(), set()) for _, _, cause in CAUSES}
        for (of, difference), steps in self.steps.items():
            if of == walk:
                all_steps, tables = found[cause_of(walk, difference)]
                all_steps.update(steps)
                tables.add(re.sub("_(temp|old)$", "", difference.split()[0]))
        return found

    def unlisted(self, scenario, answer):
        """The differences that are not in the list, as violations; they name no case. A case for
        which no step can be named may leave what any step leaves."""
        walk = walk_of(scenario)
        known = {key: ["any", *steps] for key, steps in self.steps.items()}
        return [f"0: not in the list after a fault in step {step}: {difference}"
                for step, differences in answer["differences"].items()
                for difference in differences if step not in known.get((walk, difference), ())]

    def no_longer_met(self, done, scenarios):
        """The differences that the list has for the walks of these scenarios, but the answers have
        not."""
        met, walks = self._met(done), set(map(walk_of, scenarios))
        return [f"{walk}: {difference} after a fault in step {', '.join(gone)}"
                for (walk, difference), steps in self.steps.items()
                for gone in [[step for step in steps if step not in met[walk, difference]]]
                if gone and walk in walks]

    @staticmethod
    def _met(done):
        met = defaultdict(set)
        for task, answer in done:
            for step, differences in answer["differences"].items():
                for difference in differences:
                    met[walk_of(task["scenario"]), difference].add(step)
        return met

    def pin(self, done):
        """Adds the differences that were met to the list, except those without a known cause."""
        for key, steps in self._met(done).items():
            if cause_of(*key):
                self.steps[key] = {*self.steps.get(key, ()), *steps}
        self.write()

    def write(self):
        tables = defaultdict(lambda: defaultdict(dict))
        for (walk, difference), steps in sorted(self.steps.items(), key=str):
            table, _, rest = difference.partition(" ")
            tables[walk][table][rest] = " ".join(sorted(steps, key=in_order))
        self._file.write_text(rows_of_json(tables, 2) + "\n", encoding="utf-8")


def in_order(step):
    return (0, int(step)) if step.isdigit() else (1, step)
