"""Counts the changes that a run made to a database: the numbers that the guard's verdict must have.

It is independent of the guard: whole tables in dictionaries, no order, no bounds. It is also
independent of tests/support/judge.py, which says why there are two.
"""

import collections
import hashlib
import json
import os
import re
import shutil
import sqlite3
import urllib.parse
from contextlib import closing, suppress

COPY = re.compile(r"(.*)(_temp|_old)", re.DOTALL)
CHANGING = {"update", "replace", "delete", "drop", "alter"}
LONGEST_NAME = 64
SQLITE_ERRORS = (sqlite3.Error, OverflowError, UnicodeError)


# ---- Names --------------------------------------------------------------------------------------

def fold(name):
    return "".join(chr(ord(letter) + 32) if "A" <= letter <= "Z" else letter for letter in name)


def printable(name):
    encoded = urllib.parse.quote(name.encode("utf-8", "surrogateescape"), safe="")
    encoded = encoded.replace(".", "%2E") or '""'
    if len(encoded) <= LONGEST_NAME:
        return encoded
    digest = hashlib.sha1(name.encode("utf-8", "surrogateescape")).hexdigest()
    return encoded[:LONGEST_NAME] + "~" + digest[:8]


def quoted(name):
    return '"' + name.replace('"', '""') + '"'


# ---- Reading ------------------------------------------------------------------------------------

class Text(bytes):
    """A text, in UTF-8; a BLOB is plain bytes."""

    def __eq__(self, other):
        return isinstance(other, Text) and bytes(self) == bytes(other)

    def __hash__(self):
        return hash(("text", bytes(self)))


def same(left, right):
    """Whether two values have the same storage class and the same bytes."""
    return type(left) is type(right) and (
        repr(left) == repr(right) if isinstance(left, float) else left == right)


def opened(path):
    database = sqlite3.connect(f"file:{path}?immutable=1", uri=True, isolation_level=None)
    database.execute("PRAGMA trusted_schema = OFF")
    database.text_factory = Text
    return database


def string(value):
    return bytes(value).decode("utf-8", "surrogateescape")


def tables_of(database):
    """The tables with rows of their own, by folded name."""
    return {fold(string(name)): string(name) for name, in database.execute(
        "SELECT name FROM sqlite_schema WHERE type = 'table' AND rootpage > 0")}


class Table:
    def __init__(self, database, name):
        self.database = database
        self.name = name
        info = database.execute("SELECT name, pk, hidden FROM pragma_table_xinfo(?) "
                                "ORDER BY cid", (name,)).fetchall()
        stored = [(string(column), key) for column, key, hidden in info if hidden != 2]
        if not stored:
            raise sqlite3.DatabaseError("no columns")
        self.columns = [column for column, _ in stored]
        self.key = [column for key, column in sorted((key, column) for column, key in stored
                                                     if key)]
        names = {fold(column) for column in self.columns}
        self.rowid = None
        for candidate in ("rowid", "_rowid_", "oid"):
            if candidate not in names:
                with suppress(sqlite3.OperationalError):
                    database.execute(f"SELECT {candidate} FROM {quoted(name)} LIMIT 0")
                    self.rowid = candidate
                    break

    def has(self, column):
        return next((own for own in self.columns if fold(own) == fold(column)), None)

    def select(self, expressions):
        """Every row, in the order of the row ids."""
        order = f" ORDER BY {self.rowid}" if self.rowid else ""
        return self.database.execute(f"SELECT {', '.join(expressions) or '1'} "
                                     f"FROM {quoted(self.name)} NOT INDEXED{order}").fetchall()

    def ask(self, expression):
        """The expression of every row; None when SQLite does not understand it."""
        try:
            self.database.execute(f"SELECT ({expression}) FROM {quoted(self.name)} LIMIT 0")
        except sqlite3.Error:
            return None
        return [value for value, in self.select([f"({expression})"])]


# ---- The log ------------------------------------------------------------------------------------

def newest_of(table, after, log):
    """The newest version that the walk can have reached: the table can be older than the program.
    A version that ends in the log, or that is recorded then, was walked."""
    try:
        recorded = after.execute("SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'"
                                 ).fetchone()
    except sqlite3.Error:
        recorded = None
    ended = [int(number) for number in re.findall(
        rb"^(?:Database migration|Migration) to version (\d+)", log, re.MULTILINE)]
    version = recorded[0] if recorded and isinstance(recorded[0], int) else 0
    return min(max(table, version, *ended), 1000)


def walk_of(before, target, newest):
    start, end = (min(max(version, 1), newest) for version in (before or 0, target))
    return ([(version, "forward") for version in range(start + 1, end + 1)]
            or [(version, "backward") for version in range(start, end, -1)])


def reapplied_in(log):
    found = []
    for line in log.split(b"\n"):
        if line.startswith(b"*****Updating version in DB to: "):
            break  # A run repairs nothing after this line.
        match = re.match(rb"Corruption detected: applying update to db for version (\d+)", line)
        if match:
            found.append(int(match[1]))
    return found


# ---- Computed values ----------------------------------------------------------------------------

LITERAL = re.compile(rb"""[-+]?\w[\w.]*|[xX]?'[^']*(''[^']*)*'|"[^"]*(""[^"]*)*\"""")


def never_computed(database):
    """Lets SQLite refuse removals that would compute a value. Returns the tables with columns that
    are computed when they are read, and those of them that have one in a foreign key or an
    index."""
    columns, with_key, updated = set(), set(), set()
    for name in tables_of(database):
        keys = {fold(string(column)) for sql in (
            'SELECT "from" FROM pragma_foreign_key_list(?1)',
            "SELECT x.name FROM pragma_index_list(?1) i, pragma_index_xinfo(i.name) x"
            " WHERE x.name IS NOT NULL") for column, in database.execute(sql, (name,))}
        for column, hidden, default in database.execute(
                "SELECT name, hidden, dflt_value FROM pragma_table_xinfo(?)", (name,)):
            if hidden == 2:
                columns.add((name, fold(string(column))))
                with_key |= {name} if fold(string(column)) in keys else set()
            if hidden in (2, 3) or default is not None and not LITERAL.fullmatch(default):
                updated.add(name)

    def decide(action, first, second, *_):
        refused = (action == sqlite3.SQLITE_READ and (fold(first), fold(second)) in columns
                   or action == sqlite3.SQLITE_DELETE and fold(first) in with_key
                   or action == sqlite3.SQLITE_UPDATE and fold(first) in updated)
        return sqlite3.SQLITE_DENY if refused else sqlite3.SQLITE_OK

    database.set_authorizer(decide)
    return {name for name, _ in columns}, with_key


# ---- The judgement ------------------------------------------------------------------------------

def column_path(column, steps):
    """What the walk does to a column: its names, its rules, and the steps that drop it."""
    names, rules, dropped = [fold(column)], [], None
    for version, entry in steps:
        values = {fold(name): rule for name, rule in entry.get("values", {}).items()}
        if names[-1] in values:
            rules.append((version, values[names[-1]]))
        if names[-1] in map(fold, entry.get("columnsDropped", ())):
            dropped = version
            break
        renamed = {fold(old): fold(new) for old, new in entry.get("columnsRenamed", {}).items()}
        names.append(renamed.get(names[-1], names[-1]))
    return names, rules, dropped


def words_of(scripts):
    words = set()
    for script in scripts:
        for statement in script.replace(b"\n", b"").split(b";"):
            own = {fold(word.decode(errors="surrogateescape"))
                   for word in re.findall(rb"[A-Za-z0-9_\x80-\xff]+", statement)}
            if own & CHANGING:
                words |= own
    return words


class Count:
    """findings: (code, onPurpose): numbers, with "before"."""

    def __init__(self, before, after, source, target, log, versions, platform, scripts, scratch):
        self.findings = {}
        self.unread = {}
        table = json.loads(versions)
        self.every_run = table["everyRun"]
        self.platform = platform
        self.words = words_of(scripts)
        self.versions = table["versions"]
        self.steps = [(version, "forward") for version in reapplied_in(log)]
        with closing(opened(after)) as new:
            newest = newest_of(table["newest"], new, log)
        self.steps += walk_of(source, target, newest)
        self.unknown = any(str(version) not in self.versions for version, _ in self.steps)
        for version in reapplied_in(log):
            self.note(f"reapplied:{version}", None, {})
        with closing(opened(before)) as old, closing(opened(after)) as new:
            self.count(old, new, before, scratch)

    def note(self, code, purpose, numbers, before=False):
        self.findings[code, purpose] = {**numbers, "before": before}

    def taker(self, dropped, name, column=False):
        if dropped:
            return dropped
        if self.unknown:
            return "unknown"
        return "script" if fold(name) in self.words and not column else None

    def count(self, old, new, before, scratch):
        old_tables = tables_of(old)
        everything = {fold(string(name)): string(name) for name, in new.execute(
            "SELECT name FROM sqlite_schema WHERE type = 'table'")}
        everything_before = {fold(string(name)) for name, in old.execute(
            "SELECT name FROM sqlite_schema WHERE type = 'table'")}
        if self.damage(new):
            self.note("damaged", None, {}, self.damage(old))
        for name, written in everything.items():
            copy = COPY.fullmatch(name)
            if copy and copy[1] and (copy[1] in everything or copy[1] in everything_before):
                rows, = new.execute(
                    f"SELECT count(*) FROM {quoted(written)} NOT INDEXED").fetchone()
                self.note(f"left-behind:{printable(written)}", None, {"rows": rows},
                          name in everything_before)
        first, second = (f"{scratch}/{stage}.sqlite" for stage in ("violations", "orphans"))
        self.repair(before, first, second)
        self.orphans = 0
        with closing(opened(first)) as half, closing(opened(second)) as base:
            for name in old_tables.values():
                if not fold(name).startswith("sqlite_"):
                    try:
                        self.count_table(name, old, half, base, new, everything)
                    except SQLITE_ERRORS as error:
                        self.unread[printable(name)] = error
        if self.orphans:
            self.note("orphans-removed", None, {"rows": self.orphans})

    @staticmethod
    def damage(database):
        database.execute("PRAGMA ignore_check_constraints = ON")
        computing, _ = never_computed(database)
        checks = ["PRAGMA quick_check(1000000)"]
        if computing:
            checks = ["PRAGMA quick_check('{}')".format(name.replace("'", "''"))
                      for name in tables_of(database).values()
                      if fold(name) not in computing and name[:1] not in "+-0123456789"]
        try:
            found = [row for check in checks for row in database.execute(check)]
        except sqlite3.Error:
            return True
        # A page that nothing uses is no damage.
        return any(line != b"ok" and not re.search(rb"^\*\*\* in database | is never used$", line)
                   for text, in found for line in bytes(text).split(b"\n"))

    def repair(self, before, first, second):
        for path, orphans in ((first, False), (second, True)):
            shutil.copyfile(before, path)
            os.chmod(path, 0o600)
            with open(path, "r+b") as file:
                file.seek(18)
                file.write(b"\1\1")
            with closing(sqlite3.connect(path, isolation_level=None)) as database:
                database.text_factory = Text
                database.execute("PRAGMA trusted_schema = OFF")
                database.execute("PRAGMA journal_mode = MEMORY")
                with suppress(sqlite3.Error):
                    for name, in database.execute("SELECT name FROM sqlite_schema "
                                                  "WHERE type = 'trigger'").fetchall():
                        database.execute(f"DROP TRIGGER {quoted(string(name))}")
                database.execute("PRAGMA foreign_keys = ON")
                _, with_key = never_computed(database)
                # Python loses the row before an error, so the rows that it would remove cannot be
                # counted.
                for table, rowid, *_ in database.execute("PRAGMA foreign_key_check"):
                    if rowid is not None and fold(string(table)) not in with_key:
                        with suppress(sqlite3.Error):
                            database.execute(f"DELETE FROM {quoted(string(table))} "
                                             "WHERE rowid = ?", (rowid,))
                if orphans:
                    for condition in self.every_run["rows"]:
                        with suppress(sqlite3.Error):
                            database.execute("DELETE FROM {table} WHERE {rows}".format(**condition))

    def count_table(self, name, old, half, base, new, everything):
        original, left = Table(old, name), Table(base, name)
        current, dropped, entries, names = name, None, [], [name]
        for version, direction in self.steps:
            entry = self.versions.get(str(version), {}).get(direction, {})
            entry = {fold(table): taken for table, taken in entry.items()}.get(fold(current), {})
            if entry.get("dropped"):
                dropped = version
                break
            entries.append((version, entry))
            current = entry.get("renamed", current)
            names.append(current)
        found = [everything[fold(one)] for one in reversed(names) if fold(one) in everything]
        own = {fold(column) for table, columns in self.every_run["values"].items()
               if fold(table) == fold(name) for column in columns}
        paths = {column: column_path(column, entries) for column in original.columns}
        paths = {column: (path, [rule for rule in rules if rule[1].get("platform") in
                                 (None, self.platform)], gone)
                 for column, (path, rules, gone) in paths.items()}
        if not found:
            rows = left.select([quoted(column) for column in left.key] or [left.rowid or "1"])
            gone = self.removed(original, Table(half, name), left, set())
            self.note(f"table-lost:{printable(name)}", self.taker(dropped, current),
                      {"rows": len(rows), "rowsBefore": len(original.select([])), "rowsAfter": 0})
            self.note_repairs(name, gone, len(original.select([])), 0)
            return
        after = Table(new, found[0])
        self.compare(name, current, original, Table(half, name), left, after, paths, entries,
                     dropped, own)

    @staticmethod
    def place(column, paths, after):
        return next((after.has(one) for one in reversed(paths[column][0]) if after.has(one)), None)

    def identity(self, left, after, paths):
        """The key of every row of before and of after: columns of before, expressions, columns."""
        key = left.key
        if not key or not all(self.place(column, paths, after) for column in key):
            key = []
            for wanted in after.key:
                key += [column for column in left.columns
                        if fold(self.place(column, paths, after) or "") == fold(wanted)][:1]
            if len(key) != len(after.key):
                key = []
        if not key:
            return ([[left.rowid], [left.rowid], [after.rowid]] if left.rowid and after.rowid
                    else [["1"], ["1"], ["1"]])
        plain = [quoted(column) for column in key]
        rewritten = list(plain)
        for place, column in enumerate(key):
            for _, rule in paths[column][1]:
                if left.ask(rule.get("becomes", "")) is not None:
                    rewritten[place] = f"({rule['becomes']})"
        return [plain, rewritten, [quoted(self.place(column, paths, after)) for column in key]]

    def compare(self, name, current, original, half, left, after, paths, entries, dropped, own):
        plain, rewritten, keys_after = self.identity(left, after, paths)
        rows_after = collections.defaultdict(list)
        for number, key in enumerate(after.select(keys_after)):
            rows_after[key].append(number)

        def matches(expressions):
            pairs, lost = [], []
            remaining = {key: list(rows) for key, rows in rows_after.items()}
            # If several rows get the same key, the last one is kept.
            for number, key in reversed([*enumerate(left.select(expressions))]):
                if remaining.get(key):
                    pairs.append((number, remaining[key].pop()))
                else:
                    lost.append(number)
            return pairs, lost

        best = plain
        if rewritten != plain and len(matches(rewritten)[1]) <= len(matches(plain)[1]):
            best = rewritten
        pairs, lost = matches(best)
        totals = {"rowsBefore": len(original.select([])), "rowsAfter": len(after.select([]))}

        claims = [(version, left.ask(entry["rows"])) for version, entry in entries
                  if "rows" in entry]
        takers = collections.Counter()
        for number in lost:
            claim = next((version for version, answers in claims
                          if answers is not None and answers[number]), None)
            takers[claim or self.taker(dropped, current)] += 1
        for taker, rows in takers.items():
            self.note(f"rows-lost:{printable(name)}", taker, {"rows": rows, **totals})

        for column in left.columns:
            if fold(column) not in own:
                self.compare_column(name, current, column, left, after, paths, pairs, totals)

        still = set(after.select(keys_after)) if best is plain else rows_after.keys()
        self.note_repairs(name, self.removed(original, half, left, still, best), *totals.values())

    def compare_column(self, name, current, column, left, after, paths, pairs, totals):
        place = self.place(column, paths, after)
        _, rules, dropped = paths[column]
        values = [value for value, in left.select([quoted(column)])]
        code = f"{printable(name)}.{printable(column)}"
        if place is None:
            filled = sum(values[number] is not None for number, _ in pairs)
            self.note(f"column-lost:{code}", self.taker(dropped, current, column=True),
                      {"rows": filled, **totals})
            return
        values_after = [value for value, in after.select([quoted(place)])]
        asked = [(version, rule, left.ask(rule.get("becomes", "")), left.ask(rule.get("any", "")))
                 for version, rule in rules]
        unique = {fold(table): fold(one) for table, one in self.every_run["names"].items()}
        takers, renamed = collections.Counter(), 0
        for number, number_after in pairs:
            value, value_after = values[number], values_after[number_after]
            if same(value, value_after):
                continue
            claim = next((version for version, rule, becomes, free in asked if
                          becomes and same(becomes[number], value_after) or free and free[number]
                          or is_near(rule, value, value_after)), None)
            if claim is None and unique.get(fold(name)) == fold(column) and \
                    is_made_unique(value, value_after):
                renamed += 1
            else:
                takers[claim or self.taker(dropped, current)] += 1
        for taker, rows in takers.items():
            self.note(f"values-lost:{code}", taker, {"rows": rows, **totals})
        if renamed:
            self.note(f"renamed:{printable(name)}", None, {"rows": renamed, **totals})

    @staticmethod
    def removed(original, half, left, still, key=None):
        """How many of the missing rows the first repair took, and how many the second one."""
        names = key or [quoted(column) for column in left.key] or [left.rowid or "1"]
        marks = [left.rowid] if left.rowid else [quoted(column) for column in left.key]
        counts = []
        for earlier, later in ((original, half), (half, left)):
            kept = collections.Counter(later.select(marks))
            gone = 0
            for mark, row in zip(earlier.select(marks), earlier.select(names)):
                if kept[mark]:
                    kept[mark] -= 1
                elif row not in still:
                    gone += 1
            counts.append(gone)
        return counts

    def note_repairs(self, name, removed, before, after):
        violations, orphans = removed
        self.orphans += orphans
        if violations:
            self.note(f"violations-removed:{printable(name)}", None,
                      {"rows": violations, "rowsBefore": before, "rowsAfter": after})


def is_near(rule, before, after):
    numbers = all(isinstance(value, (int, float)) for value in (before, after))
    return "within" in rule and numbers and \
        abs(float(after) - float(before)) <= rule["within"] * abs(float(before))


def is_made_unique(before, after):
    if before is None or not isinstance(after, Text):
        return False
    if not isinstance(before, bytes):
        before = str(before).encode()
    start, rest = bytes(after)[:len(before)], bytes(after)[len(before):]
    return start.lower() == bytes(before).lower() and bool(re.fullmatch(rb"(_[0-9]+)+", rest))
