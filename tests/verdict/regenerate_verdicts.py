#!/usr/bin/python3
"""Writes verdicts.txt again, from what the guard's judgement says of situations.py.

    tests/verdict/regenerate_verdicts.py build/dev/tests/verdict_of

The test compares with this file: review every line that changes.
"""

import os
import pathlib
import sys

# The next imports need both paths.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
os.environ["VERDICT_OF"] = str(pathlib.Path(sys.argv[1]).resolve())

from bench import Bench
from runs_to_judge import Judge
from situations import SITUATIONS
from support.places import scratch_directory
from verdicts import VERDICTS, as_text, verdict_on

if __name__ == "__main__":
    with scratch_directory() as folder, Judge() as judge:
        bench = Bench(folder, judge)
        parts = [f"\n== {name}\n{as_text(verdict_on(bench, name))}\n" for name in SITUATIONS]
    VERDICTS.write_text("What the judgement says of situations.py, by regenerate_verdicts.py.\n"
                        + "".join(parts), encoding="utf-8")
