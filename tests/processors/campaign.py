#!/usr/bin/python3
"""Builds the program and its guard for the processors of field computers, runs them under qemu,
and compares the results with the same dumps and logs as on this machine.

    campaign.py [--minutes M] [--architecture arm64|armhf] [--tasks N]

First some commands of the guard, then a sample of the walks, then the tests of tests/program, then
all walks from any version to any other on both platforms; --tasks stops after the first N of all
that. The sandbox is this machine's: only the program and the guard are for the other processor.
Answers are kept in build/processors-ARCHITECTURE/; a campaign goes on where the last one stopped,
and starts over when the program or the expected results have changed. After a change of the guard
only its commands are tried again. The other architecture's libraries come from
tools/make_sysroot.sh. packages.txt lists the packages that it needs.
"""

import os
import pathlib
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor, as_completed

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
PROGRAM_TESTS = ROOT / "tests" / "program"
sys.path[:0] = [str(HERE.parent), str(PROGRAM_TESTS)]

from support.campaign import Campaign, fingerprint, parser
from support.places import DATA, product_sources

# The architecture as Debian calls it, its compiler and its emulator.
ARCHITECTURES = {
    "arm64": ("aarch64-linux-gnu-g++", "qemu-aarch64-static"),
    "armhf": ("arm-linux-gnueabihf-g++", "qemu-arm-static"),
}


def build(architecture):
    for tool in (*ARCHITECTURES[architecture], "mmdebstrap"):
        if not shutil.which(tool):
            sys.exit(f"Takes {tool}: see packages.txt")
    for command in ([ROOT / "tools" / "make_sysroot.sh", architecture],
                    ["cmake", "--preset", architecture],
                    ["cmake", "--build", "--preset", architecture]):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def use(architecture):
    """Lets the tests of the folder "program", here and in child processes, run this program."""
    os.environ["DATABASE_MIGRATOR"] = str(ROOT / "build" / architecture / "database-migrator")
    os.environ["DEVICE_SYSTEM"] = str(ROOT / "build" / "sysroots" / architecture)
    os.environ["DEVICE_EMULATOR"] = shutil.which(ARCHITECTURES[architecture][1])


def tasks():
    """("guard", case), ("walk", start, end, platform) and ("tests", file), the most telling ones
    first."""
    import guarded
    from walks import PAIRS, PLATFORMS, sample_of_walks

    for case in guarded.CASES:
        yield "guard", case
    sample = [("walk", *walk) for walk in sample_of_walks()]
    yield from sample
    for file in sorted(PROGRAM_TESTS.glob("test_*.py")):
        yield "tests", file.name
    for platform in PLATFORMS:
        for pair in PAIRS:
            if ("walk", *pair, platform) not in sample:
                yield "walk", *pair, platform


def answer(kind, *case):
    """The differences as a text, which must be empty."""
    import guarded
    from walks import expected_of_walk, outcome_of_walk

    if kind == "tests":
        run = subprocess.run(["pytest-3", PROGRAM_TESTS / case[0]], capture_output=True, text=True,
                             stdin=subprocess.DEVNULL)
        return "" if run.returncode == 0 else run.stdout[-4000:]
    expected, actual = (guarded.CASES[case[0]]() if kind == "guard" else
                        (expected_of_walk(*case), outcome_of_walk(*case)))
    return "" if actual == expected else actual


def try_architecture(architecture, minutes, most_tasks):
    build(architecture)
    use(architecture)
    campaign = Campaign(f"processors-{architecture}", minutes)
    campaign.start_over_unless(fingerprint(
        *product_sources(), DATA, PROGRAM_TESTS, HERE.parent / "support"))
    of_guard = fingerprint(ROOT / "guard", HERE / "guarded.py")

    def noted(task):
        return [*task, of_guard] if task[0] == "guard" else [*task]

    chosen = [*tasks()][:most_tasks]
    left = [task for task in chosen if campaign.answer(noted(task)) is None]

    def try_task(task):
        return None if campaign.is_over() else answer(*task)

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        futures = {pool.submit(try_task, task): task for task in left}
        for future in as_completed(futures):
            if future.result() is not None:
                campaign.note(noted(futures[future]), future.result())
    tried = {task: campaign.answer(noted(task)) for task in chosen
             if campaign.answer(noted(task)) is not None}
    for task, difference in tried.items():
        if difference:
            print(f"{architecture} {task}:\n{difference}\n")
    for kind in ("guard", "walk", "tests"):
        answers = [difference for task, difference in tried.items() if task[0] == kind]
        print(f"{architecture}, {kind}: {answers.count('')} of {len(answers)} as on this machine",
              flush=True)
    return any(tried.values())


def main():
    options = parser(__doc__)
    options.add_argument("--architecture", choices=ARCHITECTURES)
    options.add_argument("--tasks", type=int)
    arguments = options.parse_args()
    if arguments.architecture:
        return try_architecture(arguments.architecture, arguments.minutes, arguments.tasks)
    # The tests take the program of one architecture when they are imported.
    return max(subprocess.run(
        [sys.executable, __file__, "--architecture", architecture, *sys.argv[1:]]).returncode
        for architecture in ARCHITECTURES)


if __name__ == "__main__":
    sys.exit(main())
