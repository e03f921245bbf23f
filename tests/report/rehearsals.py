"""The input of the pages: rehearsals and records as migration-guard writes them."""

import itertools
import random
import shutil

from runs_to_judge import Judged, at_rest, recorded_version
from support.device import Device
from support.places import DATA, DEMO

FORWARD, BACKWARD = "forward", "backward"
SOFTWARE = {"guard": "1.0.0", "sqlite": "3.40.1", "program": 34}


def finding(code, count=None, of=None, on_purpose=None, counts=False, **others):
    """A finding about some rows of a table. others: further fields"""
    kind, _, named = code.partition(":")
    table, _, column = named.partition(".")
    numbers = {} if count is None else {"rows": count}
    if of is not None:
        numbers |= {"rowsBefore": of, "rowsAfter": of - count}
    made = {"code": code, "kind": kind, "numbers": numbers, "sentence": f"about {code}",
            "before": False, "onPurpose": on_purpose, "accepted": False, "counts": counts}
    made |= {"object": table} if table else {}
    made |= {"column": column} if column else {}
    return made | others


def keys(table, *values):
    """Rows of a table that are gone."""
    return {"rows": [{"table": table, "key": value} for value in values], "hasAllRows": True}


def values(table, *changes):
    """Values of a table: (key, before, after)."""
    return {"rows": [{"table": table, "key": key, "before": before, "after": after}
                     for key, before, after in changes], "hasAllRows": True}


def verdict(source, to, target, findings=(), tables=(), unknown=()):
    return {"format": 1, "from": source, "to": to, "target": target,
            "counting": sum(found["counts"] for found in findings), "findings": list(findings),
            "tables": [dict(zip(("table", "rowsBefore", "rowsAfter", "rowsGone", "rowsNew"), table))
                       for table in tables],
            "unknownVersions": list(unknown)}


def steps(source, target, failed=None, lines=()):
    """The steps of a walk; those after a failed one are not reached. No version counts as 1."""
    source = source or 1
    forward = target > source
    walk = range(source + 1, target + 1) if forward else range(source, target, -1)
    made = []
    for version in walk:
        outcome = "done"
        if failed is not None and version >= failed:
            outcome = "failed" if version == failed else "not-reached"
        made.append({"version": version, "direction": FORWARD if forward else BACKWARD,
                     "outcome": outcome, "lines": list(lines) if outcome == "failed" else []})
    return made


def rehearsal(source=16, target=34, to=None, found=None, path="/media/stick/my.db.sqlite",
              **others):
    """A rehearsal. found: its verdict; others: fields with other values"""
    to = target if to is None else to
    return {
        "format": 1, "rehearsal": True,
        "database": {"path": path, "bytes": 315392, "journalMode": "delete"}, "withRows": True,
        "from": source, "to": to, "target": target, "status": 0, "way": "guarded",
        "changed": True, "assumed": ["platform"],
        "given": {"platform": "TORVIKMAX", "softwareVersion": "4.2.0"}, "software": SOFTWARE,
        "measured": {"milliseconds": {"copy": 12, "program": 1745, "comparison": 31},
                     "bytes": {"before": 315392, "after": 352256, "log": 1870, "peakDisk": 0,
                               "peakMemory": 13801472}, "flushes": 0},
        "verdict": verdict(source, to, target) if found is None else found,
        "versions": steps(source, target), "mending": [], "wayBack": None,
        "log": f"\n*****Beginning database migration from version: {source} to version: {target}\n",
        **others}


def failing():
    """A rehearsal in which a step fails, rows would be lost, and a copy is in the way."""
    refused = ("DatabaseMigrator::renameTable failed:"
               " there is already another table or index with this name: PC_Mix_temp")
    return rehearsal(
        16, 34, 26, verdict(16, 26, 34, [
            finding("rows-lost:PC_Mix", 3, 41, counts=True, **keys("PC_Mix", "4", "9", "11")),
            finding("step-failed:27", counts=True),
            finding("target-missed:26", counts=True, numbers={"target": 34}),
            finding("left-behind:PC_Mix_temp", 41, before=True),
            finding("violations-removed:guidanceLines", 2, 42,
                    **keys("guidanceLines", "90", "5000000000")),
            finding("orphans-removed", 3, rows=[
                {"table": "PC_MixToProductConfigBridge", "key": "15"},
                {"table": "PC_ProductConfig", "key": "50"},
                {"table": "PC_ProductConfig", "key": "51"}], hasAllRows=True),
            finding("reapplied:17")],
            [("PC_Mix", 41, 38, 3, 0), ("guidanceLines", 42, 40, 2, 0), ("farms", 30, 30, 0, 0)]),
        status=4, reason="rows-lost", versions=steps(16, 34, 27, [refused]),
        mending=[{"copy": "PC_Mix_temp", "table": "PC_Mix", "kind": "copy-removed",
                  "rowsOfCopy": 41, "rowsReturned": 0}])


def mended():
    """A rehearsal with --mend: three copies are put right."""
    done = (("farms_temp", "farms", "copy-removed", 0), ("growers_old", "growers", "name-given", 0),
            ("fields_temp", "fields", "rows-returned", 3))
    return rehearsal(
        found=verdict(16, 34, 34, [
            finding(f"mended:{copy}", numbers={"rows": 30, "rowsReturned": returned}, table=table,
                    mending=kind) for copy, table, kind, returned in done]),
        mending=[{"copy": copy, "table": table, "kind": kind, "rowsOfCopy": 30,
                  "rowsReturned": returned} for copy, table, kind, returned in done])


def refused():
    """A rehearsal in which nothing was started."""
    return rehearsal(35, 34, 35, status=3, reason="newer-than-program", changed=False,
                     verdict=None, versions=[], log="")


def run(source, to, found, **others):
    """A run in lastMigration.json."""
    return {"command": "run", "from": source, "to": to, "target": 34, "way": "guarded",
            "staging": "memory", "changed": True, "kept": True, "status": 0, "verdict": found,
            "software": SOFTWARE,
            "measured": {"milliseconds": {"copy": 11, "program": 1702, "comparison": 29,
                                          "commit": 87},
                         "bytes": {"before": 315392, "after": 352256, "log": 1870},
                         "flushes": 14}, **others}


def record():
    """lastMigration.json after a migration that lost rows and an ordinary boot."""
    lost = finding("rows-lost:fields", 3, 101, counts=True)
    taken = finding("table-lost:languages", 9, 9, on_purpose=16)
    return {"format": 1, "databaseInOrder": False,
            "lastRun": run(34, 34, verdict(34, 34, 34, [finding("reapplied:30")]), changed=False),
            "lastChange": run(1, 34, verdict(1, 34, 34, [lost, taken],
                                             [("fields", 101, 98, 3, 0)]),
                              status=4, reason="rows-lost"),
            "changes": [{"command": "restore", "from": 12, "to": 1, "way": "guarded",
                         "status": 0},
                        {"command": "run", "from": 1, "to": 34, "target": 34, "way": "guarded",
                         "status": 4, "reason": "rows-lost"}]}


def of_device(program, judge, folder, target, *blemishes):
    """A rehearsal with a verdict on a real run: the database of version 1 with blemishes."""
    device = Device(folder / "device").make_folders()
    shutil.copy(DEMO / "registration.xml", device.registration)
    for script in (DATA / "version_01.sql", *blemishes):
        device.sql(script.read_text(encoding="utf-8"))
    before, after, returned = (folder / name for name in ("before", "after", "returned"))
    at_rest(device.database, before)
    source = recorded_version(before)

    def walk(version, reached):
        device.start(program, str(version)).wait()
        at_rest(device.database, reached)
        judged = Judged(before, reached, source, recorded_version(reached), version,
                        device.log_file)
        return judge.verdict(judged.request(folder))

    found = walk(target, after)
    log = device.log()
    back = walk(source, returned)
    return rehearsal(
        source, target, found["to"], found, status=4 if found["counting"] else 0, log=log,
        wayBack={"target": source, "to": back["to"], "reached": back["to"] == source,
                 "counting": back["counting"], "findings": back["findings"],
                 "tables": back["tables"]})


def with_numbers(seed):
    """A rehearsal in which no number occurs twice, so none can be mistaken for another."""
    drawn = random.Random(seed)
    fresh = iter(drawn.sample(range(1000, 10 ** 9), 400))
    tables = [f"table{number}" for number in range(12)]
    findings, counts = [], []
    for kind, named in (("rows-lost", "{}"), ("values-lost", "{}.c"), ("table-lost", "{}"),
                        ("column-lost", "{}.c"), ("violations-removed", "{}"),
                        ("renamed", "{}"), ("left-behind", "{}_temp"), ("mystery", "{}")):
        for table in drawn.sample(tables, 2):
            findings.append(finding(
                f"{kind}:{named.format(table)}", next(fresh), next(fresh),
                on_purpose=drawn.choice([None, 2, 7, "script", "unknown"]),
                counts=drawn.random() < 0.5,
                **keys(table, *(str(next(fresh)) for _ in range(drawn.choice([0, 1, 20, 21]))))))
    for table in tables:
        counts.append((table, *itertools.islice(fresh, 4)))
    source, to, target = drawn.sample(range(1, 35), 3)
    back = verdict(source, to, target, [finding(
        f"rows-lost:{tables[0]}", next(fresh), next(fresh), on_purpose=9)],
        [(tables[1], *itertools.islice(fresh, 4))])
    return rehearsal(
        source, target, to, verdict(source, to, target, findings, counts),
        measured={"milliseconds": {part: next(fresh) for part in
                                   ("copy", "program", "comparison")},
                  "bytes": {part: next(fresh) for part in
                            ("before", "after", "log", "peakDisk", "peakMemory")},
                  "flushes": next(fresh)},
        status=4 if any(found["counts"] for found in findings) else 0,
        mending=[{"copy": "table0_temp", "table": "table0", "kind": kind,
                  "rowsOfCopy": next(fresh), "rowsReturned": next(fresh)}
                 for kind in ("copy-removed", "name-given", "rows-returned", "only-reported")],
        wayBack={"target": source, "to": target, "reached": False, **back})


# Texts that can be names in a database.
HOSTILE = (
    "<script>document.title = 'script'</script>", "<img src=x onerror=alert(1)>",
    "</pre></details>",
    "a & b &amp; c", "\"quoted\" 'twice' `thrice`", "{{ 7 * 7 }}{% raw %}", "-->", "]]>",
    "abc\u202edef", "\u2066open", "\u2069\u2069closed\u202e", "\u05d0\u05d1\u05d2 \u0627\u0628",
    "NUL\0after", "bell\x07 escape\x1b[31m delete\x7f", "line\nbreak\r\nand\ttab", "\x85\x9b",
    "soft\u00adhyphen\ufeffmark\u200bspace\u2028line", "lone\ud800surrogate",
    "\U0001f69c\u200d\U0001f33e", "W" * 10_000, "wide " * 2_000, "")


def hostile():
    """A rehearsal with every hostile text in every place that has texts."""
    findings, tables, copies, walk = [], [], [], []
    for number, text in enumerate(HOSTILE):
        named = {"object": text, "column": text, "detail": text, "sentence": text}
        row = {"table": text, "key": text, "before": text, "after": text}
        for kind in ("rows-lost", "values-lost", "renamed", "violations-removed", "left-behind",
                     "step-failed", "unheard-of", "direct"):
            findings.append(finding(f"{kind}:{number}", number, 9, counts=number % 3 == 0,
                                    on_purpose=text if number % 2 else None,
                                    **named, rows=[row], hasAllRows=True))
        findings.append(finding("table-lost:x", number) | named | {"code": text}
                        | keys(text, text))
        tables.append((text, 5, 4, 1, number))
        copies.append({"copy": text, "table": text, "kind": "only-reported", "rowsOfCopy": number,
                       "reason": text})
        walk.append({"version": number, "direction": text, "outcome": "failed", "lines": [text]})
    return rehearsal(
        16, 34, 34, verdict(16, 34, 34, findings, tables), path="/".join(HOSTILE), status=4,
        reason=HOSTILE[0], way=HOSTILE[1], given=dict.fromkeys(
            ("platform", "softwareVersion"), "".join(HOSTILE)), assumed=list(HOSTILE),
        software=dict.fromkeys(("guard", "sqlite"), "".join(HOSTILE)), versions=walk,
        mending=copies, log="\n".join(HOSTILE),
        wayBack={"target": 16, "to": 16, "reached": True, **verdict(16, 16, 16, findings, tables)})
