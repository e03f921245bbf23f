"""Long series of trials that go on where they stopped."""

import argparse
import hashlib
import json
import shutil
import time

from support.places import ROOT


def fingerprint(*files):
    """A short text that changes when one of the files or folders does."""
    contents = hashlib.sha256()
    for path in files:
        for file in sorted(path.rglob("*")) if path.is_dir() else [path]:
            if file.is_file() and "__pycache__" not in file.parts:
                contents.update(file.read_bytes())
    return contents.hexdigest()[:16]


def parser(description):
    """The command line of a campaign; every campaign has the option --minutes."""
    result = argparse.ArgumentParser(
        description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    result.add_argument("--minutes", type=float, default=float("inf"), help="end after so long")
    return result


class Campaign:
    """The answers to tasks, kept in build/NAME/trials.jsonl.

    A task and its answer are anything that JSON can hold. An answer is written as soon as it is
    there, so a campaign that was stopped loses nothing. A task that contains a fingerprint becomes
    a new task when the files change.
    """

    def __init__(self, name, minutes=float("inf")):
        self.folder = ROOT / "build" / name
        self.folder.mkdir(parents=True, exist_ok=True)
        self.end = time.monotonic() + minutes * 60
        self._file = self.folder / "trials.jsonl"
        self._answers = {}
        if self._file.exists():
            for line in self._file.read_text(encoding="utf-8").splitlines():
                task, answer = json.loads(line)
                self._answers[json.dumps(task)] = answer

    def start_over_unless(self, of):
        """Empties the folder if its answers belong to another fingerprint than this one."""
        note = self.folder / "fingerprint"
        if not note.exists() or note.read_text() != of:
            for path in self.folder.iterdir():
                shutil.rmtree(path) if path.is_dir() else path.unlink()
            self._answers = {}
            note.write_text(of)

    def is_over(self):
        """True when the time is up. No further task may begin then."""
        return time.monotonic() > self.end

    def answer(self, task, default=None):
        return self._answers.get(json.dumps(task), default)

    def answers(self):
        """All tasks with their answers, in the order in which they came."""
        return [(json.loads(task), answer) for task, answer in self._answers.items()]

    def note(self, task, answer):
        """Keeps the answer to a task; a later answer replaces an earlier one."""
        self._answers[json.dumps(task)] = answer
        with self._file.open("a", encoding="utf-8") as file:
            file.write(json.dumps((task, answer)) + "\n")

    def forget(self, condition):
        """Drops the answers for which condition(task, answer) is true."""
        kept = [entry for entry in self.answers() if not condition(*entry)]
        self._answers = {json.dumps(task): answer for task, answer in kept}
        self._file.write_text("".join(json.dumps(entry) + "\n" for entry in kept),
                              encoding="utf-8")
