"""What a database holds, and in what another one differs from it."""

import collections
import contextlib
import dataclasses
import re
import sqlite3

# A row of the run and SQLite's own notes: they are not what a step changes.
LEFT_OUT = ("tableVersion", "sqlite_sequence")
CHECK = re.compile(r"CHECK\s*\((?:[^()]|\([^()]*\))*\)")
COLLATION = re.compile(r"(\w+)[^,()]*(COLLATE \w+)")


@dataclasses.dataclass
class Table:
    """A table: its definition as texts, in what form ever it was written, and its rows."""

    columns: dict  # name: definition
    key: tuple
    constraints: tuple
    attached: tuple  # the names of its indexes and triggers
    rows: list  # {column: value as an SQL literal}, also of "rowid"

    def by_key(self, key):
        return {tuple(row[column] for column in key): row for row in self.rows}


def contents(database):
    """The tables of a database by name, its views with them."""
    def rows(query):
        return database.execute(query).fetchall()

    def table(name, text, kind):
        info = rows(f"PRAGMA table_info({name})")
        columns = {column: f"{column} {declared}" + " NOT NULL" * not_null +
                   (f" DEFAULT {default}" if default is not None else "")
                   for _, column, declared, not_null, default, _ in info}
        key = tuple(column for _, column in sorted((line[5], line[1]) for line in info if line[5]))
        has_row_ids = kind == "table" and "WITHOUT ROWID" not in text
        values = ", ".join(f"quote({column})" for column in ("rowid",) * has_row_ids + (*columns,))
        return Table(
            columns, key, tuple(constraints(name, text, key)),
            tuple(line[0] for line in rows("SELECT name FROM sqlite_master WHERE sql IS NOT NULL"
                                           f" AND tbl_name = '{name}' AND name != '{name}'")),
            [dict(zip((*("rowid",) * has_row_ids, *columns), row))
             for row in rows(f"SELECT {values} FROM {name}")] if kind == "table" else [])

    def constraints(name, text, key):
        if key:
            yield f"PRIMARY KEY ({', '.join(key)})"
        if "AUTOINCREMENT" in text:
            yield "AUTOINCREMENT"
        for index in rows(f"PRAGMA index_list({name})"):
            if index[3] == "u":
                columns = ", ".join(line[2] for line in rows(f"PRAGMA index_info({index[1]})"))
                yield f"UNIQUE ({columns})"
        foreign_keys = collections.defaultdict(list)
        for line in rows(f"PRAGMA foreign_key_list({name})"):
            foreign_keys[line[0]].append(line)
        for lines in foreign_keys.values():
            _, _, parent, _, _, update, delete, _ = lines[0]
            own, others = (", ".join(line[column] for line in lines) for column in (3, 4))
            yield (f"FOREIGN KEY ({own}) REFERENCES {parent}({others})" +
                   f" ON UPDATE {update}" * (update != "NO ACTION") +
                   f" ON DELETE {delete}" * (delete != "NO ACTION"))
        yield from (" ".join(check.split()) for check in CHECK.findall(text))
        yield from (f"{collation} ({column})" for column, collation in COLLATION.findall(text))

    return {name: table(name, text, kind) for name, text, kind in rows(
        "SELECT name, sql, type FROM sqlite_master WHERE type IN ('table', 'view')")
        if name not in LEFT_OUT}


def contents_of_dump(dump):
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump)
        return contents(database)


def contents_of_file(path):
    with contextlib.closing(sqlite3.connect(path)) as database:
        return contents(database)


@dataclasses.dataclass(frozen=True)
class Values:
    """The values of a column that are others: in how many rows of how many, and of one row."""

    changed: int
    rows: int
    before: str
    after: str


@dataclasses.dataclass
class Changes:
    """What became of a table that is there before and after."""

    gained: list  # definitions of columns
    lost: list  # names of columns
    renamed: dict  # name: new name
    redefined: list  # (definition, new definition)
    constraints_gained: list
    constraints_lost: list
    attached_lost: list
    moved: bool  # the columns stand in another order
    rows_gained: int
    rows_lost: int
    rows: int
    values: dict  # column: Values

    def __bool__(self):
        return any(value for field, value in vars(self).items() if field != "rows")


def compare(before, after):
    """What becomes of a table."""
    gone = [column for column in before.columns if column not in after.columns]
    come = [column for column in after.columns if column not in before.columns]
    kept = [column for column in before.columns if column in after.columns]
    key = next((key for key in (before.key, after.key)
                if key and {*key} <= {*before.columns} & {*after.columns}), ("rowid",))
    rows, rows_after = before.by_key(key), after.by_key(key)
    both = [(row, rows_after[number]) for number, row in rows.items() if number in rows_after]

    renamed = {}
    for column in gone:
        for other in come:
            if other not in renamed.values() and any(row[column] != "NULL" for row, _ in both) and \
                    all(row[column] == row_after[other] for row, row_after in both):
                renamed[column] = other
                break

    values = {}
    for column in [*kept, *(column for column in come if column not in renamed.values())]:
        # A column that comes is as good as one that had its default everywhere.
        default = after.columns[column].partition(" DEFAULT ")[2] or "NULL"
        changed = [(row.get(column, default), row_after[column]) for row, row_after in both
                   if row.get(column, default) != row_after[column]]
        if changed:
            values[column] = Values(len(changed), len(both), *changed[0])

    return Changes(
        gained=[after.columns[column] for column in come if column not in renamed.values()],
        lost=[column for column in gone if column not in renamed],
        renamed=renamed,
        redefined=[(before.columns[column], after.columns[column]) for column in kept
                   if before.columns[column] != after.columns[column]],
        constraints_gained=[one for one in after.constraints if one not in before.constraints],
        constraints_lost=[one for one in before.constraints if one not in after.constraints],
        attached_lost=[name for name in before.attached if name not in after.attached],
        moved=kept != [column for column in after.columns if column in kept],
        rows_gained=len(rows_after.keys() - rows.keys()),
        rows_lost=len(rows.keys() - rows_after.keys()), rows=len(rows), values=values)


@dataclasses.dataclass
class Difference:
    """In what a database differs from an earlier one."""

    gone: dict  # name: Table
    come: dict  # name: Table
    renamed: dict  # name: new name
    changed: dict  # name, the new one if there is one: Changes

    def __bool__(self):
        return bool(self.gone or self.come or self.renamed or self.changed)


def difference(before, after):
    gone = {name: before[name] for name in before if name not in after}
    come = {name: after[name] for name in after if name not in before}
    renamed = {}
    for old, table in gone.items():
        for new, other in come.items():
            if table.rows and {*table.columns} <= {*other.columns} and not compare(
                    table, other).rows_lost and len(table.rows) == len(other.rows):
                renamed[old] = new
    changed = {}
    for name in before:
        new = renamed.get(name, name)
        if new in after:
            changes = compare(before[name], after[new])
            if changes:
                changed[new] = changes
    return Difference({name: table for name, table in gone.items() if name not in renamed},
                      {name: table for name, table in come.items()
                       if name not in renamed.values()}, renamed, changed)
