#!/usr/bin/python3
"""Feeds the program, and three of its parts, damaged and hostile input, and tells what came of it.

    campaign.py [--minutes M] [--runs N] [--fuzzer-minutes M]
    campaign.py --seed N

The whole program runs under the address and undefined-behaviour sanitizers on devices that
cases.py damages; libFuzzer makes the input of the parts. Figures, findings and the fuzzers' corpora
are kept in build/fuzz/: a campaign goes on where the last one stopped, and starts anew with
another program or other cases. --minutes ends it early. --seed repeats one run, shows what came of
it and leaves the device as it was before in build/fuzz/. Takes the packages that packages.txt lists
for a campaign.
"""

import argparse
import hashlib
import json
import pathlib
import re
import shutil
import subprocess
import sys
import time
from collections import Counter
from dataclasses import dataclass

from cases import KINDS, case, kind_of
from runs import QUICKEST_SANITIZERS, fill, runner

HERE = pathlib.Path(__file__).parent
ROOT = HERE.parent.parent
KEPT = ROOT / "build" / "fuzz"
PROGRAMS = KEPT / "tests" / "fuzz"
STATE = KEPT / "campaign.json"
FINDINGS = KEPT / "findings"
SERVER = PROGRAMS / "fork_server"
PRODUCT = ("app", "maintenance", "migrations", "schema")
# What a seed means is written here.
CASES = ("cases.py", "devices.py", "words.py")


@dataclass(frozen=True)
class Fuzzer:
    longest_input: int
    parts: tuple


FUZZERS = {
    "script": Fuzzer(4096, ("maintenance/reference_scripts.cpp", "app/text_file_reader.h")),
    "clauses": Fuzzer(4096, ("schema/foreign_key_clauses.cpp",)),
    "registration": Fuzzer(
        70_000, ("maintenance/part_number.cpp", "maintenance/registration_file.cpp")),
}
VERDICTS = ("signal", "report", "over 10 s", "exit status")
# Runs and fuzzers take turns, so that a campaign that ends early has seen something of both.
ROUNDS = 10


def build():
    if not shutil.which("clang++"):
        sys.exit("Takes clang: see packages.txt")
    targets = ["fork_server", *(f"{name}_fuzzer" for name in FUZZERS)]
    for command in (["--preset", "fuzz"], ["--build", "--preset", "fuzz", "--target", *targets]):
        subprocess.run(["cmake", *command], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def fingerprint(*files):
    return hashlib.sha256(b"".join(file.read_bytes() for file in files)).hexdigest()


class State:
    """What a campaign has reached so far."""

    def __init__(self):
        known = json.loads(STATE.read_text()) if STATE.exists() else {}
        product = [file for folder in PRODUCT for file in sorted((ROOT / folder).iterdir())]
        data = sorted((ROOT / "tests" / "data").rglob("*.sql"))
        self.runs = self._same(
            known.get("runs"), *product, *data, *(HERE / name for name in CASES))
        self.runs = {"next": 0, "kinds": {}, "findings": [], **self.runs}
        self.fuzzers = {
            name: {"seconds": 0, "inputs": 0, "findings": 0,
                   **self._same(known.get("fuzzers", {}).get(name), HERE / f"{name}_fuzzer.cpp",
                                *(ROOT / part for part in fuzzer.parts))}
            for name, fuzzer in FUZZERS.items()}

    @staticmethod
    def _same(known, *files):
        """What is known of these files; of others nothing is."""
        current = fingerprint(*files)
        return known if known and known["of"] == current else {"of": current}

    def save(self):
        new = STATE.with_suffix(".new")
        new.write_text(json.dumps({"runs": self.runs, "fuzzers": self.fuzzers}, indent=1))
        new.rename(STATE)

    def note(self, seed, run):
        figures = Counter(self.runs["kinds"].get(kind_of(seed), {}))
        verdict = run.verdict()
        figures.update(["runs", verdict] if verdict else ["runs"])
        figures["milliseconds"] = max(figures["milliseconds"], run.milliseconds)
        figures["kilobytes"] = max(figures["kilobytes"], run.kilobytes)
        self.runs["kinds"][kind_of(seed)] = dict(figures)
        self.runs["next"] = seed + 1
        if verdict:
            print(f"seed {seed}, {kind_of(seed)}: {verdict}", flush=True)
            self.runs["findings"].append(
                {"seed": seed, "verdict": verdict, "output": run.output[:4000]})


def run_cases(state, end, deadline):
    with runner(SERVER, QUICKEST_SANITIZERS) as started:
        for seed in range(state.runs["next"], end):
            if time.monotonic() > deadline:
                break
            state.note(seed, started.run(case(seed)))
            if seed % 100 == 0:
                state.save()
    state.save()


def run_fuzzer(state, name, end, deadline):
    """Runs a fuzzer until it has run for so many seconds in all."""
    known = state.fuzzers[name]
    seconds = round(min(end - known["seconds"], deadline - time.monotonic()))
    if seconds < 1:
        return
    corpus = KEPT / "corpus" / name
    corpus.mkdir(parents=True, exist_ok=True)
    begin = time.monotonic()
    ended = subprocess.run(
        [PROGRAMS / f"{name}_fuzzer", f"-max_total_time={seconds}", "-timeout=10",
         f"-max_len={FUZZERS[name].longest_input}", f"-dict={HERE / f'{name}.dict'}",
         f"-artifact_prefix={FINDINGS}/{name}-", "-rss_limit_mb=4096", "-print_final_stats=1",
         corpus, HERE / "corpus" / name],
        stdin=subprocess.DEVNULL, capture_output=True, check=False)
    known["seconds"] += round(time.monotonic() - begin)
    output = ended.stderr.decode(errors="replace")
    units = re.search(r"number_of_executed_units: (\d+)", output)
    known["inputs"] += int(units[1]) if units else 0
    if ended.returncode != 0:
        known["findings"] += 1
        (FINDINGS / f"{name}.txt").write_text(output[-10_000:])
        print(f"{name}: see {FINDINGS}", flush=True)
    state.save()


def print_figures(state):
    columns = ("runs", *VERDICTS)
    print(f"{'kind of input':25}" + "".join(f"{column:>13}" for column in columns)
          + f"{'longest, s':>13}{'largest, MB':>13}")
    total = Counter()
    for kind in KINDS:
        figures = Counter(state.runs["kinds"].get(kind, {}))
        print(f"{kind:25}" + "".join(f"{figures[column]:>13}" for column in columns)
              + f"{figures['milliseconds'] / 1000:>13.1f}{figures['kilobytes'] / 1024:>13.0f}")
        total += Counter({column: figures[column] for column in columns})
    print(f"{'all':25}" + "".join(f"{total[column]:>13}" for column in columns))
    for finding in state.runs["findings"]:
        print(f"  seed {finding['seed']}: {finding['verdict']}")
    print(f"\n{'fuzzer':25}{'minutes':>13}{'inputs':>13}{'findings':>13}{'corpus':>13}")
    for name, known in state.fuzzers.items():
        corpus = KEPT / "corpus" / name
        files = len(list(corpus.iterdir())) if corpus.exists() else 0
        print(f"{name:25}{known['seconds'] / 60:>13.1f}{known['inputs']:>13}"
              f"{known['findings']:>13}{files:>13}")


def repeat(seed):
    device = case(seed)
    fill(KEPT / f"seed-{seed}", device.files)
    with runner(SERVER) as started:
        run = started.run(device)
    print(f"{kind_of(seed)}, arguments {device.arguments}: {run.verdict() or 'nothing'}; "
          f"status {run.status}, {run.milliseconds} ms, {run.kilobytes} kB\n{run.output}")
    return bool(run.verdict())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--runs", type=int, default=100_000)
    parser.add_argument("--fuzzer-minutes", type=float, default=15)
    parser.add_argument("--seed", type=int)
    arguments = parser.parse_args()
    build()
    if arguments.seed is not None:
        return repeat(arguments.seed)
    FINDINGS.mkdir(exist_ok=True)
    state = State()
    deadline = time.monotonic() + arguments.minutes * 60
    for part in range(1, ROUNDS + 1):
        run_cases(state, arguments.runs * part // ROUNDS, deadline)
        for name in FUZZERS:
            run_fuzzer(state, name, arguments.fuzzer_minutes * 60 * part / ROUNDS, deadline)
    print_figures(state)
    return any([state.runs["findings"], *(known["findings"] for known in state.fuzzers.values())])


if __name__ == "__main__":
    sys.exit(main())
