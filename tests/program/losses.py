"""Makes guard/schema-versions.json: what every version takes away on purpose, forward and back."""

import collections
import json

from copies import copies_of_steps
from ledger import ON_BOARD_PORTS, all_steps, title_of
from on_purpose import BACKWARD, DROPPED_IF_THERE, EVERY_RUN, FORWARD, NEEDED, ROWS, VALUES
from support.contents import compare
from support.places import ROOT
from support.versions import NEWEST

SCHEMA_VERSIONS = ROOT / "guard" / "schema-versions.json"
FORMAT = 1
WIDTH = 100


class Unexplained(Exception):
    """A run took rows or values that on_purpose.py does not name."""


def renamed_with_fewer_columns(found):
    """Tables that only have a new name and fewer columns: {name: (new name, what changed)}."""
    pairs = ((old, new, compare(table, other)) for old, table in found.gone.items()
             for new, other in found.come.items()
             if {*other.columns} <= {*table.columns} and table.key == other.key)
    return {old: (new, changes) for old, new, changes in pairs
            if not (changes.rows_lost or changes.rows_gained or changes.values)}


def changed_tables(found):
    """(name before, new name, what changed) of every table that is there before and after."""
    old_names = {new: old for old, new in found.renamed.items()}
    for new, changes in found.changed.items():
        yield old_names.get(new, new), new, changes
    for old, new in found.renamed.items():
        if new not in found.changed:
            yield old, new, None
    for old, (new, changes) in renamed_with_fewer_columns(found).items():
        yield old, new, changes


def tables_and_columns(step, found):
    """The tables and columns that go or get another name, by table."""
    result = collections.defaultdict(dict)
    for name in [*found.gone, *DROPPED_IF_THERE.get(step, ())]:
        if name not in renamed_with_fewer_columns(found):
            result[name]["dropped"] = True
    for name, new, changes in changed_tables(found):
        if new != name:
            result[name]["renamed"] = new
        if changes and changes.lost:
            result[name]["columnsDropped"] = changes.lost
        if changes and changes.renamed:
            result[name]["columnsRenamed"] = changes.renamed
    return result


def rows(step, found):
    """Which rows go, by table."""
    conditions = ROWS.get(step, {})
    result = {name: {"rows": condition} for name, condition in conditions.items()}
    for name, _, changes in changed_tables(found):
        if changes and changes.rows_lost and name not in conditions:
            if changes.rows_lost < changes.rows:
                raise Unexplained(f"version {step[0]}, {step[1]}: say which rows of {name} go,"
                                  " in ROWS of tests/program/on_purpose.py")
            result[name] = {"rows": "TRUE"}
    return result


def rewritten(found):
    """The columns with other values, as (table, column)."""
    return {(name, column) for name, _, changes in changed_tables(found) if changes
            for column in changes.values if column not in changes.gained}


def values(step, found, found_on_board):
    """What values become, by table."""
    expressions = VALUES.get(step, {})
    only_on_board = rewritten(found_on_board) - rewritten(found)
    for name, column in sorted(rewritten(found) | only_on_board):
        if column not in expressions.get(name, {}):
            raise Unexplained(f"version {step[0]}, {step[1]}: say what {name}.{column} becomes,"
                              " in VALUES of tests/program/on_purpose.py")

    def with_platform(name, column, value):
        platform = {"platform": ON_BOARD_PORTS} if (name, column) in only_on_board else {}
        return value | platform

    return {name: {"values": {column: with_platform(name, column, value)
                              for column, value in columns.items()}}
            for name, columns in expressions.items()}


def entry_of(version, direction, found, found_on_board):
    """What a version takes in one direction, by table."""
    step = version, direction
    result = tables_and_columns(step, found)
    for part in rows(step, found), values(step, found, found_on_board):
        for name, keys in part.items():
            result[name].update(keys)
    return {name: result[name] for name in sorted(result, key=str.lower)}


def table_of_losses():
    titles = title_of()
    return {"format": FORMAT, "newest": NEWEST, "everyRun": EVERY_RUN, "versions": {
        str(version): {
            "title": titles[version],
            "needs": sorted(NEEDED.get(version, ()), key=str.lower),
            FORWARD: entry_of(version, FORWARD, steps.forward, steps.forward_on_board),
            BACKWARD: entry_of(version, BACKWARD, steps.backward, steps.backward_on_board)}
        for version, steps in all_steps().items()}, "copies": copies_of_steps()}


def as_text(value, indent=0):
    """JSON in which everything that fits into a line is one."""
    text = json.dumps(value, ensure_ascii=False)
    if indent + len(text) <= WIDTH and indent > 4 or not isinstance(value, (dict, list)):
        return text
    if isinstance(value, list):
        brackets, lines = "[]", [as_text(one, indent + 2) for one in value]
    else:
        brackets, lines = "{}", [f"{json.dumps(name)}: {as_text(one, indent + 2)}"
                                 for name, one in value.items()]
    margin = " " * indent
    return (f"{brackets[0]}\n" + ",\n".join(f"{margin}  {line}" for line in lines) +
            f"\n{margin}{brackets[1]}")


def schema_versions():
    return as_text(table_of_losses()) + "\n"
