"""What a rebuild deletes along with a table when foreign keys could not be turned off before."""

import re

REASON = ("a rebuild does not look whether foreign keys could be turned off; where SQLite had no"
          " memory for that, dropping the table deletes the rows that refer to it")

REFERENCE = re.compile(r"REFERENCES\s*\"?(\w+)", re.IGNORECASE)
# The repair at the next start takes the product configurations that have lost their rows there.
PRODUCT_CONFIGURATION = "pc_productconfig"
PARTS_OF_IT = ("pc_mixtoproductconfigbridge", "pc_plantervarietytoproductconfigbridge")


def rebuilt_with_foreign_keys(events, begun):
    """The tables that were dropped after a failure to turn foreign keys off; begun is the statement
    that the first event can be about."""
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
    """Which tables change when others lose rows, by the foreign keys of some databases."""

    def __init__(self, *databases):
        self._children = {}
        for contents in databases:
            for kind, name, _, text in contents.schema:
                for reference in REFERENCE.finditer(text or "") if kind == "table" else ():
                    self._children.setdefault(reference[1].lower(), set()).add(name.lower())
        for part in PARTS_OF_IT:
            self._children.setdefault(part, set()).add(PRODUCT_CONFIGURATION)

    def below(self, tables):
        found, left = set(), list(tables)
        while left:
            new = self._children.get(left.pop(), set()) - found
            found |= new
            left += new
        return found
