"""guard/schema-versions.json: what every version takes away on purpose, forward and back."""

import collections
import json

from ledger import ON_BOARD_PORTS, all_steps, title_of
from on_purpose import BACKWARD, DROPPED_IF_THERE, EVERY_RUN, FORWARD, ROWS, VALUES
from support.contents import compare
from support.places import ROOT
from support.versions import NEWEST

SCHEMA_VERSIONS = ROOT / "guard" / "schema-versions.json"
FORMAT = 1
WIDTH = 100


class Unexplained(Exception):
    """A run has taken rows or values, and on_purpose.py does not say which."""


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


def entry_of(version, direction, found, found_on_board):
    """What a version takes in one direction, by table."""
    step = version, direction
    rows, values = ROWS.get(step, {}), VALUES.get(step, {})
    result = collections.defaultdict(dict)

    for name in [*found.gone, *DROPPED_IF_THERE.get(step, ())]:
        if name not in renamed_with_fewer_columns(found):
            result[name]["dropped"] = True
    for name, new, changes in changed_tables(found):
        if new != name:
            result[name]["renamed"] = new
        if changes is None:
            continue
        if changes.lost:
            result[name]["columnsDropped"] = changes.lost
        if changes.renamed:
            result[name]["columnsRenamed"] = changes.renamed
        if changes.rows_lost and name not in rows:
            if changes.rows_lost < changes.rows:
                raise Unexplained(f"version {version}, {direction}: say which rows of {name} go,"
                                  " in ROWS of tests/program/on_purpose.py")
            result[name]["rows"] = "TRUE"
    for name, condition in rows.items():
        result[name]["rows"] = condition

    on_any = {(name, column) for name, _, changes in changed_tables(found) if changes
              for column in changes.values if column not in changes.gained}
    on_board = {(name, column) for name, _, changes in changed_tables(found_on_board) if changes
                for column in changes.values if column not in changes.gained}
    for name, column in sorted(on_any | on_board):
        if column not in values.get(name, {}):
            raise Unexplained(f"version {version}, {direction}: say what {name}.{column} becomes,"
                              " in VALUES of tests/program/on_purpose.py")
    for name, columns in values.items():
        result[name]["values"] = {
            column: expression | ({} if (name, column) in on_any or (name, column) not in on_board
                                  else {"platform": ON_BOARD_PORTS})
            for column, expression in columns.items()}
    return {name: result[name] for name in sorted(result, key=str.lower)}


def table_of_losses():
    titles = title_of()
    return {"format": FORMAT, "newest": NEWEST, "everyRun": EVERY_RUN, "versions": {
        str(version): {
            "title": titles[version],
            FORWARD: entry_of(version, FORWARD, steps.forward, steps.forward_on_board),
            BACKWARD: entry_of(version, BACKWARD, steps.backward, steps.backward_on_board)}
        for version, steps in all_steps().items()}}


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
