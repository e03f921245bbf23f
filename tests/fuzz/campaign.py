#!/usr/bin/python3
"""Feeds damaged and hostile input to the program and to three of its parts, and reports the
outcomes.

    campaign.py [--minutes M] [--runs N] [--fuzzer-minutes M]
    campaign.py --seed N

The whole program runs under the address and undefined-behaviour sanitizers, on devices that
cases.py damages. libFuzzer makes the input for the parts. Answers, findings and the fuzzers'
corpora are kept in build/fuzz/. A campaign goes on where the last one stopped; it starts over when
the program or the cases have changed. --seed repeats one run, shows its result and leaves the
device as it was before the run in build/fuzz/. packages.txt lists what a campaign needs.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import time
from collections import Counter
from dataclasses import dataclass

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from cases import KINDS, case, kind_of
from runs import QUICKEST_SANITIZERS, runner
from support.campaign import Campaign, fingerprint, parser
from support.device import Device
from support.places import DATA, ROOT, product_sources
from support.versions import VERSIONS, file_of

HERE = pathlib.Path(__file__).resolve().parent
# The sources that decide which device a seed makes.
CASES = (HERE / "cases.py", HERE / "devices.py", HERE / "words.py", DATA / "blemishes.sql",
         *map(file_of, VERSIONS))


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
# Runs and fuzzers take turns, so a campaign that ends early has tried some of both.
ROUNDS = 10
RUNS_IN_A_TASK = 20


def build(programs):
    if not shutil.which("clang++"):
        sys.exit("Takes clang: see packages.txt")
    targets = ["fork_server", *(f"{name}_fuzzer" for name in FUZZERS)]
    for command in (["--preset", "fuzz"], ["--build", "--preset", "fuzz", "--target", *targets]):
        subprocess.run(["cmake", *command], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    return programs / "fork_server"


class Runs:
    """Runs of the whole program, in tasks of some seeds each."""

    def __init__(self, campaign):
        self.campaign = campaign
        self.of = fingerprint(*product_sources(), *CASES)

    def task(self, first):
        return ["runs", self.of, first]

    def go_on(self, server, end):
        with runner(server, QUICKEST_SANITIZERS) as started:
            for first in range(0, end, RUNS_IN_A_TASK):
                if self.campaign.is_over():
                    return
                if self.campaign.answer(self.task(first)) is None:
                    seeds = range(first, first + RUNS_IN_A_TASK)
                    self.campaign.note(self.task(first), self.answer(started, seeds))

    @staticmethod
    def answer(started, seeds):
        answer = {"runs": [], "findings": []}
        for seed in seeds:
            run = started.run(case(seed))
            verdict = run.verdict()
            answer["runs"].append((kind_of(seed), verdict, run.milliseconds, run.kilobytes))
            if verdict:
                print(f"seed {seed}, {kind_of(seed)}: {verdict}", flush=True)
                answer["findings"].append(
                    {"seed": seed, "verdict": verdict, "output": run.output[:4000]})
        return answer

    def answers(self):
        return [answer for task, answer in self.campaign.answers() if task[:2] == ["runs", self.of]]

    def findings(self):
        return [finding for answer in self.answers() for finding in answer["findings"]]

    def print_figures(self):
        columns = ("runs", *VERDICTS)
        print(f"{'kind of input':25}" + "".join(f"{column:>13}" for column in columns)
              + f"{'longest, s':>13}{'largest, MB':>13}")
        runs = [run for answer in self.answers() for run in answer["runs"]]
        for kind in (*KINDS, "all"):
            of_kind = [run for run in runs if kind in (run[0], "all")]
            verdicts = Counter(run[1] for run in of_kind)
            print(f"{kind:25}{len(of_kind):>13}"
                  + "".join(f"{verdicts[column]:>13}" for column in VERDICTS)
                  + f"{max((run[2] for run in of_kind), default=0) / 1000:>13.1f}"
                  + f"{max((run[3] for run in of_kind), default=0) / 1024:>13.0f}")
        for finding in self.findings():
            print(f"  seed {finding['seed']}: {finding['verdict']}")


class FuzzerRuns:
    """Runs of one of libFuzzer's programs."""

    def __init__(self, campaign, name):
        self.campaign, self.name = campaign, name
        self.corpus = campaign.folder / "corpus" / name
        self.of = fingerprint(HERE / f"{name}_fuzzer.cpp",
                              *(ROOT / part for part in FUZZERS[name].parts))

    def answers(self):
        return [answer for task, answer in self.campaign.answers()
                if task[:3] == ["fuzzer", self.name, self.of]]

    def total(self, figure):
        return sum(answer[figure] for answer in self.answers())

    def go_on(self, programs, findings, end):
        """Runs the fuzzer until it has run for so many seconds in all."""
        seconds = round(min(end - self.total("seconds"), self.campaign.end - time.monotonic()))
        if seconds < 1:
            return
        self.corpus.mkdir(parents=True, exist_ok=True)
        findings.mkdir(exist_ok=True)
        begin = time.monotonic()
        ended = subprocess.run(
            [programs / f"{self.name}_fuzzer", f"-max_total_time={seconds}", "-timeout=10",
             f"-max_len={FUZZERS[self.name].longest_input}", f"-dict={HERE / self.name}.dict",
             f"-artifact_prefix={findings}/{self.name}-", "-rss_limit_mb=4096",
             "-print_final_stats=1", self.corpus, HERE / "corpus" / self.name],
            stdin=subprocess.DEVNULL, capture_output=True, check=False)
        output = ended.stderr.decode(errors="replace")
        units = re.search(r"number_of_executed_units: (\d+)", output)
        if ended.returncode != 0:
            (findings / f"{self.name}.txt").write_text(output[-10_000:])
            print(f"{self.name}: see {findings}", flush=True)
        self.campaign.note(
            ["fuzzer", self.name, self.of, len(self.answers())],
            {"seconds": round(time.monotonic() - begin), "inputs": int(units[1]) if units else 0,
             "findings": int(ended.returncode != 0)})

    def print_figures(self):
        files = len(list(self.corpus.iterdir())) if self.corpus.exists() else 0
        print(f"{self.name:25}{self.total('seconds') / 60:>13.1f}{self.total('inputs'):>13}"
              f"{self.total('findings'):>13}{files:>13}")


def repeat(server, seed, folder):
    device = case(seed)
    Device(folder / f"seed-{seed}").fill(device.files)
    with runner(server) as started:
        run = started.run(device)
    print(f"{kind_of(seed)}, arguments {device.arguments}: {run.verdict() or 'nothing'}; "
          f"status {run.status}, {run.milliseconds} ms, {run.kilobytes} kB\n{run.output}")
    return bool(run.verdict())


def main():
    options = parser(__doc__)
    options.add_argument("--runs", type=int, default=100_000)
    options.add_argument("--fuzzer-minutes", type=float, default=15)
    options.add_argument("--seed", type=int)
    arguments = options.parse_args()
    campaign = Campaign("fuzz", arguments.minutes)
    programs = campaign.folder / "tests" / "fuzz"
    server = build(programs)
    if arguments.seed is not None:
        return repeat(server, arguments.seed, campaign.folder)
    runs = Runs(campaign)
    fuzzers = [FuzzerRuns(campaign, name) for name in FUZZERS]
    for part in range(1, ROUNDS + 1):
        runs.go_on(server, arguments.runs * part // ROUNDS)
        for fuzzer in fuzzers:
            fuzzer.go_on(programs, campaign.folder / "findings",
                         arguments.fuzzer_minutes * 60 * part / ROUNDS)
    runs.print_figures()
    print(f"\n{'fuzzer':25}{'minutes':>13}{'inputs':>13}{'findings':>13}{'corpus':>13}")
    for fuzzer in fuzzers:
        fuzzer.print_figures()
    return bool(runs.findings()) or any(fuzzer.total("findings") for fuzzer in fuzzers)


if __name__ == "__main__":
    sys.exit(main())
