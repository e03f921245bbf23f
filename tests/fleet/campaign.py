#!/usr/bin/python3
"""Updates a device with real update engines, and cuts its power at every step.

    campaign.py [--minutes M] [--cuts N]

RAUC and Mender's client run in an old system and install a new one on loop devices. The boot loader
and the start-up are simulated. A power cut ends all processes, and data that was not flushed to the
devices is lost. The power is cut at every point between two steps and N times within each command:
in an update, in a fall-back that no hook sees, and in a deliberate return. At the end the farmer's
rows must be there, the database must be the same as without a cut, and no old program may have run
on a newer database. Answers are kept in build/fleet/. The campaign needs root and a build of the
preset dev.
"""

import os
import pathlib
import signal
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

import mender
import rauc
import systems
from journey import Journey
from loop_computer import make_image
from power import Moment, Power
from support.campaign import Campaign, fingerprint, parser
from support.places import scratch_directory
from systems import ENGINES, NEWEST, OLD_VERSION

HERE = pathlib.Path(__file__).resolve().parent
HARNESS = ("campaign.py", "computer.py", "journey.py", "loop_computer.py", "mender.py", "power.py",
           "rauc.py", "system", "systems.py")
START = ("started", "the first start", "migrated", "finding it good", "found good")
# The stages of an update, a fall-back and a return: commands, and points between them.
UPDATE = ("before the installation", "the installation", "installed", *START)
FALL_BACK = ("started", "an ordinary start", "migrated", "finding it good", "found good")
RETURN = ("before the return", "the return", "brought back", "the activation", *START)


class Bench:
    """An engine with its systems and updates, and computers on which they are tried."""

    def __init__(self, folder, module, engine):
        self.folder, self.module, self.engine = folder, module, engine
        self.images, self.updates = {}, {}
        for name, make in (("old", systems.old_system), ("new", systems.new_system),
                           ("faulty", systems.faulty_system)):
            system = make(folder / name, module.COMMANDS)
            module.configure(system, name)
            self.images[name] = folder / f"{name}.img"
            make_image(self.images[name], system.root)
        for name in ("new", "faulty"):
            self.updates[name] = module.make_update(folder, self.images[name], name)

    def try_journey(self, travel, durations=None):
        """Calls travel(journey, bench) on a computer with the old system; returns its result."""
        with scratch_directory(self.folder) as folder:
            computer = self.module.make_computer(folder, Power(durations=durations),
                                                 self.images["old"], OLD_VERSION)
            try:
                journey = Journey(computer, self.engine(computer))
                journey.start()
                return travel(journey, self)
            finally:
                computer.close()


def update(journey, bench):
    journey.repeat(journey.update, bench.updates["new"], until=NEWEST)


def undisturbed(journey, bench):
    update(journey, bench)
    new = journey.content_after_another_start()
    # A good system does not use up its attempts.
    for _ in range(journey.engine.attempts):
        journey.start()
    journey.repeat(journey.go_back, until=OLD_VERSION)
    old = journey.content_after_another_start()
    return {"new": new, "old": old, "durations": journey.computer.power.durations}


def plan(journey, *cuts):
    journey.computer.power.cuts = list(cuts)


def noted(travel):
    """The same; a mistake that the journey finds on its way becomes a part of the result."""
    def journey(*arguments):
        try:
            return travel(*arguments)
        except AssertionError as error:
            return [str(error)]
    return journey


def in_update(known, moment):
    def travel(journey, bench):
        plan(journey, moment)
        update(journey, bench)
        return journey.violations(NEWEST, known["new"])
    return travel


def in_fall_back(known, moment):
    """At every start of the new system the power is lost after the migration."""
    def travel(journey, bench):
        plan(journey, *[Moment("migrated")] * journey.engine.attempts, moment)
        journey.update(bench.updates["new"])
        wrong = [] if journey.computer.recorded_version() == OLD_VERSION else ["no fall-back"]
        update(journey, bench)
        return wrong + journey.violations(NEWEST, known["new"])
    return travel


def in_return(known, moment):
    def travel(journey, bench):
        update(journey, bench)
        plan(journey, moment)
        journey.repeat(journey.go_back, until=OLD_VERSION)
        return journey.violations(OLD_VERSION, known["old"])
    return travel


def harmful_update(journey, bench):
    """An update that would lose a row is not installed."""
    before = journey.computer.database.read_bytes()
    status = journey.engine.install(journey.running, bench.updates["faulty"])
    wrong = [] if status else ["it is installed"]
    if before != journey.computer.database.read_bytes():
        wrong.append("the database has changed")
    journey.start()
    if journey.running != "A" or journey.lost_rows():
        wrong.append(f"the old system does not go on: {journey.starts}")
    return wrong


def moments(steps, cuts, known):
    """The places to cut: each point, and a number of moments within each command."""
    for step in steps:
        if step in known["durations"]:
            yield from (Moment(step, (number + 0.5) / cuts) for number in range(cuts))
        else:
            yield Moment(step)


def try_engine(campaign, bench, name, of, cuts):
    """Tries an engine; returns true when something is wrong."""
    def answer(task, travel, durations=None):
        if campaign.answer(task) is None and not campaign.is_over():
            campaign.note(task, bench.try_journey(travel, durations))
        return campaign.answer(task)

    known = answer([name, of, "undisturbed"], undisturbed)
    broken = False
    if known is None:
        return False
    wrong = answer([name, of, "harmful"], noted(harmful_update))
    print(f"{name}, a harmful update: {'not tried' if wrong is None else wrong or 'as it should'}")
    broken = broken or bool(wrong)
    for what, steps, travel in (("update", UPDATE, in_update), ("return", RETURN, in_return),
                                ("fall-back", FALL_BACK, in_fall_back)):
        tried = 0
        for moment in moments(steps, cuts, known):
            wrong = answer([name, of, what, *moment], noted(travel(known, moment)),
                           known["durations"])
            tried += wrong is not None
            if wrong:
                broken = True
                print(f"{name}, {what}, power cut at {moment}: {'; '.join(wrong)}", flush=True)
        print(f"{name}, {what}: {tried} power cuts", flush=True)
    return broken


def main():
    options = parser(__doc__)
    options.add_argument("--cuts", type=int, default=24, help="within each command")
    arguments = options.parse_args()
    if os.geteuid() != 0:
        print("Not tried: loop devices take root.")
        return 0
    # The exit unmounts everything that is mounted.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    campaign = Campaign("fleet", arguments.minutes)
    of = fingerprint(ENGINES, *(HERE / name for name in HARNESS), systems.PROGRAM,
                     systems.OLD_PROGRAM, systems.GUARD)
    broken = False
    for name, module, engine in (("RAUC", rauc, rauc.Rauc), ("Mender", mender, mender.Mender)):
        with scratch_directory() as folder:
            bench = Bench(folder, module, engine)
            broken = try_engine(campaign, bench, name, of, arguments.cuts) or broken
    return broken


if __name__ == "__main__":
    sys.exit(main())
