"""The subject of the campaign: the program alone.

The engine (scenario.py, cases.py, recovery.py) knows what it runs into faults by this class only:
how it is started, how one undisturbed run is divided, what must hold after a fault and what the
next run must reach. Another program gets a class of its own with the same operations.
"""

from bisect import bisect_left

import device
import runs
from cascades import Cascades, rebuilt_with_foreign_keys
from invariant import Invariant
from log_rules import LogRules
from states import COPY, differences, lost_rows

RECORDING_OF_VERSION = "UPDATE tableVersion SET version"
ANY_STEP = "any"  # of a fault that cannot be ascribed to a step


class Subject:
    """The program on one walk, which a scenario's name tells: "1 to 34"."""

    def __init__(self, name, target):
        self.target = target
        self._first_version = int(name.split()[0])
        self._invariant = None

    def command(self, target=None):
        """What a run starts; without a target, with that of the scenario."""
        return ["/app/database-migrator", str(target or self.target)]

    def prepare_device(self):
        """Makes what the device needs besides the database and what the worker provides."""
        device.software_version("1.2.3")

    def learn(self, scenario, first):
        """Takes what it needs from the undisturbed run; first is the state before it."""
        self._statements = scenario.recording.statements
        self._reference, self._settled = scenario.reference, scenario.settled
        self._settling = set(differences(self._settled, self._reference))
        self._cascades = Cascades(first, self._reference)
        self._find_steps(scenario)
        self._log_rules = LogRules(
            scenario.recording, self.step, self.target > self._first_version)

    def _find_steps(self, scenario):
        """Finds the step of every statement: walks to the versions between show where each ends."""
        device.software_version("other")
        direction = 1 if self.target > self._first_version else -1
        self._step_ends, self._steps = [], []
        for target in range(self._first_version, self.target + direction, direction):
            device.fill(scenario.start)
            _, what = runs.recorded_run(self.command(target), scenario.switches)
            end = next(i for i, text in enumerate(what.statements)
                       if text.startswith(RECORDING_OF_VERSION))
            self._step_ends.append(end)
            step = target if direction > 0 else target + 1
            self._steps.append("before" if target == self._first_version else str(step))
        self._steps.append("after")
        self.prepare_device()

    def gather(self, state):
        """Takes the states of the undisturbed run one by one."""
        self._invariant = self._invariant or Invariant(state)
        self._invariant.gather(state)

    def lost_for_a_time(self, first, last):
        """The tables with rows that the states at both ends have, but not every state between."""
        return self._invariant.lost_for_a_time(first, last)

    def step(self, statements):
        """The step of the last of this many statements; None if nobody can say how many."""
        if statements is None:
            return ANY_STEP
        return self._steps[bisect_left(self._step_ends, statements)]

    def cascaded(self, statements, events):
        """The tables that a run with these events has cost rows, as it must."""
        begun = self._statements[statements - 1] if statements else ""
        return self._cascades.below(rebuilt_with_foreign_keys(events, begun))

    def wrong_log(self, position, events, memory_lacks=False):
        """What is wrong with the log of a run that was undisturbed up to a position among its
        events."""
        return self._log_rules.violations(position, events, memory_lacks)

    def wrong_state(self, state, step, cascaded, memory_lacks=False):
        """What is wrong with the state that a fault left."""
        return self._invariant.violations(state, step, cascaded, memory_lacks)

    def losses(self, state, step, cascaded=frozenset()):
        """What the state lacks for good."""
        return self._invariant.losses(state, step, cascaded)

    def outcome(self, state):
        """What the second run has reached: an outcome, and how the state differs from what an
        undisturbed run leaves. Some probes never see the work of their own step: what a further
        run makes of that is as good."""
        found = min((differences(state, reference)
                     for reference in (self._reference, self._settled)), key=len)
        lost = lost_rows(state, self._reference)
        if lost:
            outcome = "rows lost"
        elif any(" left over" in line and COPY.match(line.split()[0]) for line in found):
            outcome = "copy left over"
        else:
            outcome = "other difference" if found else "recovered"
        return outcome, found + [f"{name} rows in no table" for name in lost]

    def changes_of_third_run(self, before, after):
        """What a third run changes, though the second has ended."""
        return [f"{line} in the third run" for line in differences(after, before)
                if line not in self._settling]
