"""Databases of a few rows before and after, and the verdict on them."""

import json
import sqlite3
from contextlib import closing

VERSION = ("CREATE TABLE tableVersion "
           "(tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);")
FIELDS = ("CREATE TABLE fields (id INTEGER PRIMARY KEY, displayName TEXT, area REAL);"
          "INSERT INTO fields VALUES (1, 'North', 1.5), (2, 'South', 2.5), (3, 'Südhang', 3.5);")
OPENING = "\n*****Beginning database migration from version: {} to version: {}\n"
CLOSING = "\n*****Updating version in DB to: {} with software version: 4.2.0\n"

# A separate table of versions: 2 takes rows, 3 values, 4 a column, 5 a table; 6 renames; 7 takes
# what may be missing; 8 may give a column any value.
TABLE = {
    "format": 1, "newest": 9,
    "everyRun": {
        "rows": [{"table": "orphans", "rows": "parent NOT IN (SELECT id FROM parents)"}],
        "names": {"fields": "displayName"},
        "values": {"tableVersion": ["version", "MirelVersion"]}},
    "versions": {
        "2": {"forward": {"fields": {"rows": "area < 2"}}, "backward": {}},
        "3": {"forward": {"FIELDS": {"values": {"Area": {"becomes": "round(area)"}}}},
              "backward": {"fields": {"values": {"area": {"becomes": "area", "within": 0.1}}}}},
        "4": {"forward": {"fields": {"columnsDropped": ["area"]}}, "backward": {}},
        "5": {"forward": {"fields": {"dropped": True}}, "backward": {}},
        "6": {"forward": {"fields": {"renamed": "plots", "columnsRenamed": {"area": "size"}}},
              "backward": {"plots": {"renamed": "fields"}}},
        "7": {"forward": {"systemFiles": {"dropped": True}}, "backward": {}},
        "8": {"forward": {"fields": {"values": {"area": {"any": "id = 2"}}}}, "backward": {}}}}


def log_of(source, target, *lines, reached=None):
    steps = [f"Migration to version {version} was successful.\n"
             for version in range(source + 1, target + 1)]
    return (OPENING.format(source, target) + "".join(lines or steps)
            + CLOSING.format(reached or target))


class Bench:
    def __init__(self, folder, judge):
        self.folder, self.judge = folder, judge
        self.request = {}

    def verdict(self, before, after, source=1, target=1, log=None, reached=None, table=None,
                scripts=(), encoding="UTF-8", patches=None, **others):
        """before, after: statements, or the bytes of a file; after=None repeats those of before.

        patches: by "before" or "after", places in the file, or the bytes there, and what replaces
            as many bytes
        """
        paths = {}
        for name, statements in (("before", before), ("after", before if after is None
                                                      else after)):
            paths[name] = self.folder / f"{name}.sqlite"
            paths[name].unlink(missing_ok=True)
            if isinstance(statements, bytes):
                paths[name].write_bytes(statements)
                continue
            with closing(sqlite3.connect(paths[name])) as database:
                database.executescript(f"PRAGMA encoding = '{encoding}';" + VERSION + statements)
            for old, new in (patches or {}).get(name, ()):
                content = bytearray(paths[name].read_bytes())
                place = old if isinstance(old, int) else content.index(old)
                content[place:place + len(new)] = new
                paths[name].write_bytes(content)
        for name, content in (("log", log or log_of(source, target)),
                              ("versions", json.dumps(table or TABLE))):
            paths[name] = self.folder / name
            paths[name].write_text(content, encoding="utf-8")
        places = []
        for number, script in enumerate(scripts):
            places.append(str(self.folder / f"script{number}"))
            (self.folder / f"script{number}").write_text(script, encoding="utf-8")
        self.request = {
            **{name: str(path) for name, path in paths.items()}, "from": source,
            "to": target if reached is None else reached, "target": target,
            "platform": "TORVIK", "scratch": str(self.folder), "scripts": places, **others}
        return self.judge.verdict(self.request)

    def findings(self, *arguments, **options):
        return [(finding["code"], finding["onPurpose"], finding["numbers"].get("rows"),
                 finding["before"], finding["counts"])
                for finding in self.verdict(*arguments, **options)["findings"]]
