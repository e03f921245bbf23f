"""The second and the third run after a fault. Equal states are recovered once, by any worker."""

import json
import os

import device


class Recoveries:
    def __init__(self, scenario, readings, folder):
        """folder: what all workers share."""
        self._scenario, self._readings, self._folder = scenario, readings, folder
        self._folder.mkdir(exist_ok=True)
        self._known = {}

    def of(self, state, step, cascaded):
        """What the next runs make of the device as it is: outcome, violations and differences.

        state: the hash of its database, None for one that is not sound; cascaded: the tables that
        the fault has cost rows, as it must.
        """
        if state is None:
            return self._recover(step, cascaded)
        journal = "-journal" if device.JOURNAL.exists() else ""
        return self._kept(f"{step}-{state}{journal}", lambda: self._recover(step, cascaded))

    def _kept(self, name, make):
        if name not in self._known:
            file = self._folder / f"{name}.json"
            if not file.exists():
                new = file.with_suffix(f".{os.getpid()}")
                new.write_text(json.dumps(make()))
                new.rename(file)
            self._known[name] = json.loads(file.read_text())
        return self._known[name]

    def _recover(self, step, cascaded):
        scenario, subject = self._scenario, self._scenario.subject
        log = device.log()
        status, operations = scenario.run()
        violations = device.further_files()
        if status != 0:
            violations.append(f"second run ended with {status}")
        # Unlike time, the same on every machine.
        if operations > 2 * len(scenario.recording.operations):
            violations.append("second run did more than twice as much")
        if not device.log().startswith(log):
            violations.append("second run lost lines of the log")
        state = self._readings.read()
        if state is None:
            violations.append("not sound after the second run")
            return {"outcome": "not sound", "violations": violations, "differences": []}
        violations += [f"{text} after the second run"
                       for text in subject.losses(state, step, cascaded)]
        outcome, differences = subject.outcome(state)
        third = self._kept(f"third-{state.hash}", lambda: self._third_run(state))
        return {"outcome": outcome, "violations": violations + third["violations"],
                "differences": differences + third["differences"]}

    def _third_run(self, state):
        violations = []
        status, _ = self._scenario.run()
        if status != 0:
            violations.append(f"third run ended with {status}")
        again = self._readings.read()
        if again is None:
            return {"violations": [*violations, "not sound after the third run"],
                    "differences": []}
        return {"violations": violations,
                "differences": self._scenario.subject.changes_of_third_run(state, again)}
