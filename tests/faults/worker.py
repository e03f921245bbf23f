"""Runs on a scratch device, in the sandbox of the subject.

    worker.py SUBJECT

SUBJECT is a module with a class Subject: migrator. The worker reads tasks as lines of JSON and
answers each with a line. A task prepares a scenario, or runs some of its cases.
"""

import importlib
import json
import pathlib
import pickle
import shutil
import sys

from cases import Cases
from scenario import Scenario

KEPT = pathlib.Path("/kept")  # what all workers share


def prepare(subject, task):
    """Records the undisturbed run of a scenario, for all workers."""
    name = task["scenario"]
    folder = KEPT / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    scenario = Scenario(name, pathlib.Path(task["start"]), task["switches"],
                        subject(name, task["target"]))
    (folder / "final.sqlite").write_bytes(scenario.final)
    (folder / "statements.json").write_text(json.dumps(scenario.recording.statements))
    (folder / "scenario").write_bytes(pickle.dumps(scenario))
    return {"operations": len(scenario.recording.operations),
            "allocations": scenario.recording.allocations,
            "lost for a time": scenario.lost_for_a_time}


def main():
    subject = importlib.import_module(sys.argv[1]).Subject
    prepared = {}
    for line in sys.stdin:
        task = json.loads(line)
        name = task["scenario"]
        if task["kind"] == "prepare":
            prepared.pop(name, None)
            answer = prepare(subject, task)
        else:
            if name not in prepared:
                scenario = pickle.loads((KEPT / name / "scenario").read_bytes())
                prepared[name] = Cases(scenario, KEPT / name)
            answer = prepared[name].run(task["kind"], range(*task["numbers"]))
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
