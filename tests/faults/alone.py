"""The part of a worker that runs the program alone."""

import json
import pathlib
import pickle

import cases
from migrator import Subject
from scenario import Scenario


def prepare(task, folder):
    """Records the undisturbed run of a scenario, for all workers."""
    name = task["scenario"]
    scenario = Scenario(name, pathlib.Path(task["start"]), task["switches"],
                        Subject(name, task["target"]))
    (folder / "final.sqlite").write_bytes(scenario.final)
    (folder / "statements.json").write_text(json.dumps(scenario.recording.statements))
    (folder / "scenario").write_bytes(pickle.dumps(scenario))
    return {"operations": len(scenario.recording.operations),
            "allocations": scenario.recording.allocations,
            "lost for a time": scenario.lost_for_a_time}


class Cases(cases.Cases):
    def __init__(self, folder):
        """folder: the scenario's files that all workers share."""
        super().__init__(pickle.loads((folder / "scenario").read_bytes()), folder)

    def run(self, task):
        return super().run(task["kind"], range(*task["numbers"]))
