"""The text in which verdicts.txt keeps a verdict."""

import json
import pathlib

from situations import SITUATIONS, TABLE

VERDICTS = pathlib.Path(__file__).resolve().parent / "verdicts.txt"


def verdict_on(bench, name):
    before, after, options = SITUATIONS[name]
    after = after[1:] if after.startswith("=") else before + after
    return bench.verdict(before, after, **{"table": TABLE, **options})


def as_text(verdict):
    """A line for everything outside the lists, and a line for every entry of a list."""
    lists = {name: verdict.pop(name) for name in ("findings", "tables", "lines")}
    verdict.pop("peakMemory")
    lines = [json.dumps(verdict, sort_keys=True)]
    for name, entries in lists.items():
        lines += [f"{name}: {json.dumps(entry, sort_keys=True, ensure_ascii=False)}"
                  for entry in entries]
    return "\n".join(lines)
