"""Runs on a scratch device, in the sandbox of the subject.

    worker.py SUBJECT

SUBJECT is a module with a function prepare and a class Cases: alone, guarded, mended. The worker
reads tasks as lines of JSON and answers each with a line. A task prepares a scenario, or runs some
of its cases.
"""

import importlib
import json
import pathlib
import shutil
import sys

KEPT = pathlib.Path("/kept")  # the folder that all workers share


def main():
    subject = importlib.import_module(sys.argv[1])
    prepared = {}
    for line in sys.stdin:
        task = json.loads(line)
        name = task["scenario"]
        folder = KEPT / name
        if task["kind"] == "prepare":
            prepared.pop(name, None)
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir()
            answer = subject.prepare(task, folder)
        else:
            if name not in prepared:
                prepared[name] = subject.Cases(folder)
            answer = prepared[name].run(task)
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
