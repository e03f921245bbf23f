"""What a second run leaves otherwise than an undisturbed one, with the cause: a list that may only
get shorter."""

import json
import pathlib
import re
from collections import defaultdict

import cascades

FILE = pathlib.Path(__file__).parent / "deviations.json"

RECREATED = ("Version {} moves the table aside, and cannot a second time while the table aside is"
             " there: the rows stay in the `_old` copy.")
REBUILT = ("A rebuild that stopped on its way leaves its `_temp` copy, and with it every later"
           " rebuild of the table fails: the rows stay in the copy, or the column in the table.")

# The first that fits what differs, on the way forward (+), back (-) or both ways.
CAUSES = (
    ("+-", "tableversion",
     "A step that fails, or that cannot be done a second time, leaves an earlier version recorded;"
     " the next run starts from there."),
    ("+-", "^files other values",
     "Version 7 sets its prefix before every path: a walk that starts over sets it twice before"
     " paths without userFiles."),
    ("+-", "productcontrol_productsettings", RECREATED.format(2)),
    ("+-", "workorderrxmaps(_old| rows| missing| other definition)", RECREATED.format(32)),
    ("+", "^(outgoingfiles|incomingfiles|filetransferhistory) (other values|rows)",
     "Version 7 deletes once: its probe answers true also when that failed."),
    ("+", "^mc_machinesystem", "Version 9 counts a deletion that failed as done."),
    ("+", "^onscreenswitchboxtomachinemapping rows",
     "Version 19 takes switches that cannot be read for none, and drops them; version 12 copies the"
     " switches until one fails and cannot begin again."),
    ("+", "switchtosectionbridge|onscreenswitchbox",
     "Version 12 copies the switches until one fails and cannot begin again; the next run's"
     " version 19 maps what was copied."),
    ("+", "^gpsreceivers|gpsreceivermapping|preferredgpssolutions",
     "Version 21 drops the preferred solutions also when their receivers could not be inserted;"
     " when it is stopped before, it inserts them again under further numbers."),
    ("-", "^gpsreceivers|gpsreceivermapping|preferredgpssolutions",
     "Version 21 leaves the receivers where it could not turn all of them into preferred solutions,"
     " and the walk goes on. A rebuild for version 14 that stopped leaves its `_temp` copy."),
    ("+", "^pc_mix other values",
     "Version 23 marks the mixes that are in use once; version 31 gives identifiers at random to"
     " mixes that have none."),
    ("+", "^(pc_ingredient|productcontrol_userprofile) other values",
     "Version 23 renumbers units and sets values once: its probe looks for columns alone."),
    ("+", "pc_ingredienttomixbridge",
     "Version 27 runs its four statements whatever fails, so that the table is dropped also when"
     " its rows could not be copied. Version 23 takes the unit of an ingredient as it stands."),
    ("+-", "reversesensesettings",
     "Version 29 drops what it cannot move, for the device software to create anew."),
    ("+", "^pc_(carrier|plantervariety) other values",
     "Version 31 gives identifiers to rows that have none: those that it could not write are given"
     " at random by the next run, or not at all."),
    ("+", "^(userprofiles|mc_equipmentsectiongroup) other values",
     "The values that versions 6, 8, 11, 16 and 20 set are set once: their probes look for columns"
     " and tables alone."),
    ("+", "^(softwareupdatetable|languages|systemfiles) left behind",
     "The table could not be dropped, and the probe of its version does not look for it."),
    ("+", "^systemcontrol other values",
     "Version 33 adds its columns once, with the registration as it could be read then."),
    ("+-", "sqlite_sequence",
     "The counter of a table with AUTOINCREMENT goes on from rows that were inserted twice, or"
     " stays with the copy of a table."),
    ("+-", "_temp left behind|missing with its rows$|^\\w+ missing$| column \\w+ more$", REBUILT),
    ("+-", "^index ",
     "A rebuild loses the constraints that bring indexes along, and a copy has them as well."),
    ("+", " column \\w+ missing$",
     "The column could not be added, and the probe of its version looks for another one or none."),
    ("+", "other columns$|other definition$",
     "A column that could not be added, or not be removed, is by the next run: it stands behind"
     " those of later versions, or the table has another text."),
    ("-", "other columns$|other definition$",
     "The table is rebuilt once more or once less than in an undisturbed walk, or steps are applied"
     " again before it: its columns have another order or text."),
    ("-", "^\\w+ left behind",
     "The table could not be dropped; the step back that drops it is done once."),
    ("+-", "^(jp_jobprofile|pc_mix) other values| rows( missing| in no table)$",
     f"Lack of memory: {cascades.REASON}. Product configurations without their rows go at the next"
     " start."),
    ("-", "other values",
     "A step back converts values once more, or not at all."),
)


def single(line):
    """A difference in several columns as one for each."""
    table, others, columns = line.partition(" other columns, ")
    if not others:
        return [line]
    return [f"{table} column {column[1:]} {'more' if column[0] == '+' else 'missing'}"
            for column in columns.split(", ")]


def cause_of(walk, difference):
    start, _, end = walk.split()
    way = "+" if int(start) < int(end) else "-"
    return next((cause for ways, pattern, cause in CAUSES
                 if way in ways and re.search(pattern, difference)), None)


def walk_of(scenario):
    """Other data and other switches of SQLite leave nothing else."""
    return scenario.split(",")[0]


class Deviations:
    def __init__(self, file=FILE):
        self._file = file
        entries = json.loads(file.read_text(encoding="utf-8")) if file.exists() else []
        self.entries = {(entry["walk"], entry["difference"]): entry for entry in entries}

    def __contains__(self, key):
        walk, difference, step = key
        entry = self.entries.get((walk, difference))
        # Of some faults nobody can say in which step they were.
        return entry is not None and (step == "any" or step in entry["steps"])

    def of(self, walk):
        return [entry for (of, _), entry in self.entries.items() if of == walk]

    def unlisted(self, scenario, answer):
        """As violations; a difference has no number of a case."""
        walk = walk_of(scenario)
        return [f"0: not in the list after a fault in step {step}: {difference}"
                for step, lines in answer["differences"].items() for line in lines
                for difference in single(line) if (walk, difference, step) not in self]

    def no_longer_met(self, done):
        met = self._of(done)
        return [f"{walk}: {difference} after a fault in step {', '.join(gone)}"
                for (walk, difference), entry in self.entries.items()
                for gone in [[step for step in entry["steps"]
                              if step not in met[walk, difference]]] if gone]

    @staticmethod
    def _of(done):
        met = defaultdict(set)
        for task, answer in done:
            for step, lines in answer["differences"].items():
                for difference in (found for line in lines for found in single(line)):
                    met[walk_of(task["scenario"]), difference].add(step)
        return met

    def pin(self, done):
        """Adds what was met to the list; what no cause is known for stays out."""
        for (walk, difference), steps in self._of(done).items():
            cause = cause_of(walk, difference)
            if cause:
                entry = self.entries.setdefault(
                    (walk, difference), {"walk": walk, "difference": difference, "steps": []})
                entry["cause"] = cause
                entry["steps"] = sorted({*entry["steps"], *steps}, key=in_order)
        entries = sorted(self.entries.values(),
                         key=lambda entry: (entry["walk"], entry["cause"], entry["difference"]))
        lines = ",\n".join(json.dumps(entry, ensure_ascii=False) for entry in entries)
        self._file.write_text(f"[\n{lines}\n]\n", encoding="utf-8")


def in_order(step):
    return (0, int(step)) if step.isdigit() else (1, step)
