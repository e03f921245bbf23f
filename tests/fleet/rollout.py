#!/usr/bin/python3
"""How many devices a harmful update reaches before its roll-out stops.

    rollout.py          prints the figures
    rollout.py --write  writes them into docs/fleet.md

This is a model: fleets of random devices, a fault that the migration has on some of them, and a
rule that stops the roll-out by the devices' answers. A device behaves as the guard does;
test_updates.py tests that.
"""

import argparse
import heapq
import pathlib
import random
import statistics
import sys
from dataclasses import dataclass

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from support.places import ROOT

PAGE = ROOT / "docs" / "fleet.md"
BEGIN, END = "<!-- tests/fleet/rollout.py writes this part -->\n", "<!-- the end of this part -->"

DEVICES, FLEETS = 10_000, 100
HIT = 0.02  # of the devices: the migration would lose rows there
TROUBLE = 0.002  # of the devices: they refuse every update for a reason of their own
# How many devices get the update in each stage.
STAGES = (50, 200, 1_000, 3_000, 5_750)
ANSWERED = 0.9  # the part of a stage that must have answered before the next stage begins
# It stops when this many devices have refused the update, and this part of those that answered.
REFUSALS, REFUSED = 3, 0.01
# The longest times in hours: until a device installs an offered update, and until its key is turned
# again.
INSTALLS, RESTARTS = 48, 72


@dataclass(frozen=True)
class RollOut:
    """The results of the updates that were offered before the roll-out stopped."""

    installed: int  # devices that start the new system when their key is turned
    went_back: int  # of these, the devices with the fault: they give the new system up at its start
    refused: int  # devices that refused the update before anybody saw a restart
    hours: int  # until the roll-out stopped


def roll_out(stages, rehearses, chance):
    """Offers a harmful update to a fleet of random devices.

    stages: how many devices get it in each stage
    rehearses: whether a device finds the fault at the installation instead of at its first start
    chance: the source of random numbers
    """
    events, waiting = [], list(stages)
    offered = answers = failures = installed = went_back = refused = 0

    def begin_stage(hour):
        count = waiting.pop(0)
        for _ in range(count):
            heapq.heappush(events, (hour + chance.uniform(0, INSTALLS), chance.random(), False))
        return count

    offered += begin_stage(0)
    while events:
        hour, luck, is_start = heapq.heappop(events)
        fails = luck < HIT + TROUBLE
        if not is_start and not (fails and rehearses):
            installed += 1
            went_back += luck < HIT
            heapq.heappush(events, (hour + chance.uniform(0, RESTARTS), luck, True))
            continue
        refused += not is_start
        answers += 1
        failures += fails
        if failures >= REFUSALS and failures > REFUSED * answers:
            break
        if waiting and answers >= ANSWERED * offered:
            offered += begin_stage(hour)
    return RollOut(installed, went_back, refused, round(hour))


def figures():
    """The outcomes for many fleets, by way."""
    return {(way, rehearses): [roll_out(stages, rehearses, random.Random(seed))
                               for seed in range(FLEETS)]
            for way, stages in (("in stages", STAGES), ("to everybody at once", (DEVICES,)))
            for rehearses in (False, True)}


def part_of_page():
    lines = [
        f"{DEVICES:,} devices; the fault hits {HIT:.0%} of them, and {TROUBLE:.1%} refuse every"
        f" update for a reason of their own.",
        f"A device installs within {INSTALLS} hours, and its key is turned again within"
        f" {RESTARTS}.",
        f"Stages of {', '.join(f'{stage:,}' for stage in STAGES)} devices; the next one begins when"
        f" {ANSWERED:.0%} have answered.",
        f"The roll-out stops at {REFUSALS} refusals if they are more than {REFUSED:.0%} of the"
        f" answers.",
        f"The middle of {FLEETS} fleets, and the worst one:",
        "",
        "| Offered | Rehearsed | Start the new system | Of these go back |"
        " Refused before a restart | Hours until it stops |",
        "|---|---|---|---|---|---|"]
    for (way, rehearses), outcomes in figures().items():
        cells = [f"{round(statistics.median(values)):,}, {max(values):,}" for values in (
            [getattr(outcome, name) for outcome in outcomes]
            for name in ("installed", "went_back", "refused", "hours"))]
        lines.append(f"| {way} | {'yes' if rehearses else 'no'} | {' | '.join(cells)} |")
    return "\n".join(lines) + "\n"


def part_in(page):
    """The part of the page between the two marks."""
    return page[page.index(BEGIN) + len(BEGIN):page.index(END)]


def main():
    options = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--write", action="store_true")
    if options.parse_args().write:
        page = PAGE.read_text(encoding="utf-8")
        begin, _, end = page.partition(BEGIN + part_in(page))
        PAGE.write_text(begin + BEGIN + part_of_page() + end, encoding="utf-8")
    else:
        print(part_of_page())


if __name__ == "__main__":
    main()
