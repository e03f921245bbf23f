"""What every state of an undisturbed run has, and so every state after a fault must have too."""

from states import COUNTERS

# Where a step gives up a table on purpose if it cannot be rebuilt: by step and table, the reason.
REQUIRED_LOSSES = {
    ("29", "reverseSenseSettings"): "if nothing else is left to try, both tables are dropped: the"
                                    " device software creates a new, empty one",
    ("21", "preferredGpsSolutions"): "the old table is dropped even if its rows could not be"
                                     " carried over",
    ("27", "PC_IngredientToMixBridge"): "the old table is dropped even if its rows could not be"
                                        " copied",
}

# Values that only a disturbed step writes: by step, table and column, the reason.
REQUIRED_VALUES = {
    ("23", "PC_IngredientToMixBridge", "displayUnit"):
        "the unit of the ingredient, if that could not be renumbered before",
    ("33", "systemControl", "apSsid"): "the prefix alone, if the registration could not be read",
    ("33", "systemControl", "apPassword"):
        "the prefix alone, if the registration could not be read",
}
MISREAD = "a text reads as empty if SQLite has no memory to return it"

NULL, EMPTY = "NULL", "''"


class Invariant:
    """What is in every state of an undisturbed run. gather() takes the states one by one and keeps
    the tables that no state changes, the columns and the keys of rows that the table or a copy of
    it always has, and by column every value that was ever there."""

    def __init__(self, start):
        self.untouched = {name: table.rows for name, table in start.tables.items()}
        self.columns = {name: set(table.columns) for name, table in start.tables.items()}
        self.keys = {}
        self.key_columns = {}
        self.values = {}
        self._last = {}
        for name, table in start.tables.items():
            self.key_columns[name] = tuple(table.columns[i] for i in table.key)
            self.keys[name] = self._keys(start, name)

    @staticmethod
    def _with_copies(state, name):
        return [state.tables[copy] for copy in (name, f"{name}_temp", f"{name}_old")
                if copy in state.tables]

    def _keys(self, state, name):
        found = set()
        for table in self._with_copies(state, name):
            if set(self.key_columns[name]) <= set(table.columns):
                key = [table.columns.index(column) for column in self.key_columns[name]]
                found.update(tuple(row[i] for i in key) for row in table.rows)
        return found

    def _columns(self, state, name):
        return {column for table in self._with_copies(state, name) for column in table.columns}

    def gather(self, state):
        changed = {name for name in state.tables.keys() | self._last.keys()
                   if state.tables.get(name) != self._last.get(name)}
        self._last = state.tables
        for name in list(self.untouched):
            table = state.tables.get(name)
            if name in changed and (table is None or table.rows != self.untouched[name]):
                del self.untouched[name]
        for name in self.keys:
            if not changed.isdisjoint((name, f"{name}_temp", f"{name}_old")):
                self.keys[name] &= self._keys(state, name)
                self.columns[name] &= self._columns(state, name)
        for name in changed & state.tables.keys():
            for column, values in state.tables[name].values():
                # Steps rename tables; a column's values go with it.
                self.values.setdefault(column, {NULL}).update(values)

    def lost_for_a_time(self, start, end):
        """The tables with rows of the start that the end has, but not every state between."""
        return [name for name, keys in self.keys.items()
                if self._keys(start, name) & self._keys(end, name) - keys]

    def losses(self, state, step, cascaded=frozenset()):
        """What the state lacks after a fault in a step. From the tables in cascaded, rows were
        deleted along with those that they refer to."""
        found = [f"untouched table {name} changed" for name, rows in self.untouched.items()
                 if name not in cascaded
                 and (name not in state.tables or state.tables[name].rows != rows)]
        given_up = cascaded | {
            name.lower() for of, name in REQUIRED_LOSSES if step in (of, "any")}
        for name, keys in self.keys.items():
            if name in given_up:
                continue
            if keys - self._keys(state, name):
                found.append(f"{name}: rows without a copy")
            if self.columns[name] - self._columns(state, name):
                found.append(f"{name}: columns without a copy")
        return found

    def violations(self, state, step, cascaded=frozenset(), memory_lacks=False):
        """The losses, and the values that no undisturbed run has."""
        found = self.losses(state, step, cascaded)
        misread = {EMPTY} if memory_lacks else set()
        required = {(name.lower(), column.lower()) for of, name, column in REQUIRED_VALUES
                    if step in (of, "any")}
        for name, table in state.tables.items():
            if name in ("tableversion", COUNTERS):
                continue  # The step that fails may be the one that would have written them.
            for column, values in table.values():
                if (not self.values.get(column, {NULL}).issuperset(set(values) - misread)
                        and (name, column) not in required):
                    found.append(f"{name}: {column} has a value of its own")
        return found
