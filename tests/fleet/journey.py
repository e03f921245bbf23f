"""What happens to a farmer's device: updates, starts, work, power cuts."""

import contextlib
import sqlite3

from computer import OTHER
from power import PowerCut
from support.contents import RANDOM_IDENTIFIER
from systems import APPLICATION, OLD_VERSION

MOST_STARTS = 12
MOST_TRIES = 3
ENTERED = "entered %"
# Two ways to bring the database to another system's version.
RETURN = (f"/{APPLICATION}/update-check", "return", "/mnt")
RESTORE = (f"/{APPLICATION}/migration-guard", "restore")


class Journey:
    # The command that a start-up calls.
    first_start = (f"/{APPLICATION}/update-check", "start")
    ordinary_start = (f"/{APPLICATION}/migration-guard", "run", "--fall-back")

    def __init__(self, computer, engine):
        self.computer, self.engine = computer, engine
        self.point = computer.power.point
        self.running = None
        self.entered = []
        self.starts = []  # (slot, is a trial boot, status of the guard)

    def start(self):
        """Starts the computer, again after power cuts, until the device software runs."""
        for _ in range(MOST_STARTS):
            try:
                if self._start_once():
                    return
            except PowerCut:
                self.computer.lose_power()
        raise AssertionError(f"the device software never runs: {self.starts}")

    def _start_once(self):
        slot, is_trial = self.engine.choose_slot()
        self.point("started")
        if is_trial:
            status, _ = self.computer.run("the first start", slot, *self.first_start)
        else:
            status, _ = self.computer.run("an ordinary start", slot, *self.ordinary_start)
        self.starts.append((slot, is_trial, status))
        self.point("migrated")
        if is_trial and status != 0:
            return False
        self.engine.find_good(slot)
        self.point("found good")
        self.running = slot
        self._work()
        return True

    def _work(self):
        """The device software, which only works with its own version. The farmer enters a row."""
        expected = self.computer.version_of(self.running)
        with contextlib.closing(sqlite3.connect(self.computer.database)) as database:
            database.execute("PRAGMA synchronous = EXTRA")
            found, = database.execute(
                "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'").fetchone()
            assert found == expected, f"device software for {expected} finds {found}"
            name = f"entered {len(self.entered)} in {self.running}"
            with database:
                database.execute("INSERT INTO growers (displayName) VALUES (?)", (name,))
        self.entered.append(name)

    def update(self, system):
        """Tries to install a system and to start it once. Returns the status of the installation,
        None after a power cut."""
        status = None
        try:
            status = self.engine.install(self.running, system)
            self.point("installed")
        except PowerCut:
            self.computer.lose_power()
        if status in (0, None):
            self.start()
        return status

    def go_back(self, command=RETURN):
        """A deliberate return to the system in the other slot, tried once.

        command: of the running system, which brings the database there; the other one is at /mnt
        """
        other = OTHER[self.running]
        status = None
        try:
            self.point("before the return")
            status, _ = self.computer.run("the return", self.running, *command, mounted=other)
            self.point("brought back")
            if status == 0:
                self.engine.activate(other)
        except PowerCut:
            self.computer.lose_power()
        self.start()
        return status

    def repeat(self, step, *arguments, until):
        """Repeats a step until the device software of a version runs, as a server offers an update
        again."""
        for _ in range(MOST_TRIES):
            step(*arguments)
            if self.computer.version_of(self.running) == until:
                return
        raise AssertionError(f"{step.__name__} does not come through: {self.starts}")

    def versions_for_old_program(self):
        """The versions that the old system's program found when it started."""
        note = self.computer.data / "found-by-old-program"
        return [int(line) for line in note.read_text().split()] if note.exists() else []

    def lost_rows(self):
        """The farmer's entries that are not in the database."""
        with contextlib.closing(sqlite3.connect(self.computer.database)) as database:
            there = {name for name, in database.execute("SELECT displayName FROM growers")}
        return [name for name in self.entered if name not in there]

    def content(self):
        """The whole database as text, without the farmer's entries and without random
        identifiers."""
        with contextlib.closing(sqlite3.connect(":memory:")) as copy:
            with contextlib.closing(sqlite3.connect(self.computer.database)) as database:
                database.backup(copy)
            copy.execute("DELETE FROM growers WHERE displayName LIKE ?", (ENTERED,))
            return RANDOM_IDENTIFIER.sub("{}", "\n".join(sorted(copy.iterdump())))

    def content_after_another_start(self):
        """Starts first: an ordinary start after a migration may change a definition once."""
        self.start()
        return self.content()

    def violations(self, version, content):
        """The mistakes found at the end; there must be none, wherever the power was cut.

        version: the one that the database should have
        content: that of the database after an undisturbed journey and another start
        """
        found = self.computer.recorded_version()
        tests = {"the power was not cut": bool(self.computer.power.cuts),
                 f"the database is at version {found}": found != version,
                 f"lost rows: {self.lost_rows()}": bool(self.lost_rows()),
                 "other content": self.content_after_another_start() != content,
                 "the old program met a newer database":
                     any(found > OLD_VERSION for found in self.versions_for_old_program())}
        return [text for text, is_wrong in tests.items() if is_wrong]
