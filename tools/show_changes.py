#!/usr/bin/python3
"""Shows what changed in a database, for a person to read: the recorded versions, the tables with
another structure and the tables with other rows.

    show_changes.py BEFORE AFTER
"""

import contextlib
import pathlib
import sqlite3
import sys
import textwrap

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests"))

from support.contents import definitions, difference, in_the_spelling_of, read


def contents_and_versions(path):
    """The contents of a database, and its version rows: name, version, software version."""
    with contextlib.closing(sqlite3.connect(path)) as database:
        contents = read(database, without=("sqlite_sequence",))
        # Version 1 has no column for the software version yet.
        software = "MirelVersion" if "MirelVersion" in contents["tableVersion"].columns else "NULL"
        return contents, database.execute(
            f"SELECT tableName, version, {software} FROM tableVersion").fetchall()


def section(title, header, rows):
    """A heading and a table; the texts of the last column are wrapped."""
    lines = []
    for *cells, last in ([str(cell) for cell in row] for row in rows):
        for text in textwrap.wrap(last, 80) or [""]:
            lines.append([*cells, text])
            cells = [""] * len(cells)
    widths = [max(map(len, column)) for column in zip(header, *lines)]
    lines = [header, ["-" * width for width in widths], *lines] if lines else [["no change"]]
    print(f"\n{title}\n")
    for line in lines:
        print("  " + "  ".join(map(str.ljust, line, widths)).rstrip())


def changes_of_structure(before, after, found):
    """(table, change) for every table, column, constraint, index, trigger and view."""
    for name, table in found.come.items():
        yield name, f"+ new table: {', '.join(table.columns)}"
    for name in found.gone:
        yield name, "- table is gone"
    for old, new in found.renamed.items():
        yield new, f"~ renamed from {old}"
    views = {name for name in after if after[name].sql.startswith("CREATE VIEW")}
    for name in views & before.keys():
        if before[name].sql != after[name].sql:
            yield name, f"~ {before[name].sql} -> {after[name].sql}"
    for name, changes in found.changed.items():
        if name in views:
            continue
        yield from ((name, f"+ column {column}") for column in definitions(changes.gained))
        yield from ((name, f"- column {column}") for column in changes.lost)
        yield from ((name, f"~ column {old} is now {new}") for old, new in changes.renamed.items())
        yield from ((name, f"~ column {column}: {old} -> {new}")
                    for column, (old, new) in changes.redefined.items())
        yield from ((name, f"+ {text}") for text in
                    [*changes.constraints_gained, *changes.attached_gained])
        yield from ((name, f"- {text}") for text in
                    [*changes.constraints_lost, *changes.attached_lost])
        yield from ((name, f"~ {part}: {old} -> {new}")
                    for part, (old, new) in changes.attached_changed.items())


def changes_of_rows(before, after):
    """(table, rows before, rows after, rows whose values the same columns did not hold before)."""
    for name in sorted({*before, *after}, key=str.lower):
        old, new = before.get(name), after.get(name)
        changed = "-"
        if old and new:
            kept = [column for column in new.columns if column in old.columns]
            changed = len(set(projected(new, kept)) - set(projected(old, kept)))
        yield name, len(old.rows) if old else "-", len(new.rows) if new else "-", changed


def projected(table, columns):
    places = [[*table.columns].index(column) for column in columns]
    return [tuple(row[place] for place in places) for row in table.rows]


def main(before_path, after_path):
    after, versions = contents_and_versions(after_path)
    before, versions_before = contents_and_versions(before_path)
    before = in_the_spelling_of(after, before)
    known = {name: version for name, version, _ in versions_before}
    section("Recorded versions",
            ["row", "version before", "version after", "software version after"],
            [(name, known.get(name, ""), version, software or "")
             for name, version, software in versions])

    found = difference(before, after)
    lines = sorted(changes_of_structure(before, after, found),
                   key=lambda line: (line[0].lower(), line[1][0]))
    section("Tables and columns: new (+), gone (-), changed (~)", ["table", "change"],
            [("" if number and lines[number - 1][0] == name else name, change)
             for number, (name, change) in enumerate(lines)])

    rows = [*changes_of_rows(before, after)]
    totals = [sum(row[place] for row in rows if row[place] != "-") for place in (1, 2, 3)]
    section("Rows of the tables that changed, and of all",
            ["table", "rows before", "rows after", "with new values"],
            [row for row in rows if row[1] != row[2] or row[3] != 0] + [("all tables", *totals)])


if __name__ == "__main__":
    main(*sys.argv[1:])
