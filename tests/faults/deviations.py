"""What a second run leaves otherwise than an undisturbed one, with the cause: a list that may only
get shorter."""

import json
import pathlib
import re
from collections import defaultdict

FILE = pathlib.Path(__file__).parent / "deviations.json"

# The first that fits what differs, on the way forward (+), back (-) or both ways.
CAUSES = ()


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

    def unlisted(self, scenario, answer):
        """As violations; a difference has no number of a case."""
        walk = walk_of(scenario)
        return [f"0: not in the list after a fault in step {step}: {line}"
                for step, lines in answer["differences"].items() for line in lines
                if (walk, line, step) not in self]

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
                for line in lines:
                    met[walk_of(task["scenario"]), line].add(step)
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
        self._file.write_text(
            "[\n" + ",\n".join(json.dumps(entry, ensure_ascii=False) for entry in entries) + "\n]\n",
            encoding="utf-8")


def in_order(step):
    return (0, int(step)) if step.isdigit() else (1, step)
