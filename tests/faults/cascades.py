"""The rows that a rebuild deletes with a table if foreign keys could not be turned off."""

import re

REASON = ("a rebuild does not check that foreign keys are off; if SQLite had no memory to turn them"
          " off, dropping the table deletes the rows that refer to it")

REFERENCE = re.compile(r"REFERENCES\s*\"?(\w+)", re.IGNORECASE)
# The next start removes the product configurations that have lost their rows there.
PRODUCT_CONFIGURATION = "pc_productconfig"
PARTS_OF_IT = ("pc_mixtoproductconfigbridge", "pc_plantervarietytoproductconfigbridge")


def rebuilt_with_foreign_keys(events, begun):
    """The tables that were dropped after foreign keys could not be turned off. begun: the statement
    that runs when the first event comes."""
    tables, on = set(), False
    for event in events:
        if event.kind == "E" and (event.statement or begun) == "PRAGMA foreign_keys = OFF":
            on = True
        elif event.kind == "S" and event.text == "PRAGMA foreign_keys = ON":
            on = False
        elif event.kind == "S" and on and event.text.startswith("DROP TABLE "):
            tables.add(event.text.split()[-1].lower())
        begun = ""
    return tables


class Cascades:
    """Which tables change when others lose rows, by the foreign keys of some states."""

    def __init__(self, *states):
        self._children = {}
        for state in states:
            for name, table in state.tables.items():
                for reference in REFERENCE.finditer(table.sql or ""):
                    self._children.setdefault(reference[1].lower(), set()).add(name)
        for part in PARTS_OF_IT:
            self._children.setdefault(part, set()).add(PRODUCT_CONFIGURATION)

    def below(self, tables):
        found, left = set(), list(tables)
        while left:
            new = self._children.get(left.pop(), set()) - found
            found |= new
            left += new
        return found
