"""A sentence for a finding, made from its kind and numbers."""

from markupsafe import Markup, escape

from reading import Copy
from texts import counted, number, shown, visible

LOSSES = ("rows-lost", "values-lost", "table-lost", "column-lost")


class Sentences:
    """Sentences in the past tense for a run, in the conditional for a rehearsal.

    Everything that comes from a device goes through Markup.format or `visible`, which escape it.
    """

    def __init__(self, words, is_past):
        self.words = words
        self.is_past = is_past
        self.is_or_was = "was" if is_past else "is"

    def would(self, infinitive, past):
        return past if self.is_past else f"would {infinitive}"

    def were(self, count, participle):
        was = "was" if count == 1 else "were"
        return f"{was} {participle}" if self.is_past else f"would be {participle}"

    def contents(self, table):
        """What a user calls the contents of a table, or its name."""
        return escape(self.words.table(table) or shown(table))

    def some_of(self, finding):
        """ "3 of 41 mixes", or "3 of 41 rows of x" without a word in the plural."""
        count = rows_of(finding)
        every = finding.numbers.get("rowsBefore", count)
        counts = f"{number(count)} of {number(every)}" if "rowsBefore" in finding.numbers else (
            number(count))
        word = self.words.table(finding.object)
        if word and word.endswith("s"):
            return Markup("{} {}").format(counts, word)
        return Markup("{} {} of {}").format(
            counts, "row" if every == 1 else "rows", self.contents(finding.object))

    def finding(self, finding):
        """The sentence of a finding. For a kind that is not known here, the JSON's own."""
        if finding.kind in BY_KIND:
            return BY_KIND[finding.kind](self, finding)
        return visible(finding.sentence or finding.code)

    def target_missed(self, finding):
        ends_at = ("no version" if finding.object == "none"
                   else Markup("version {}").format(shown(finding.object)))
        return Markup("The database {} {}, not at version {}.").format(
            self.would("stop at", "is at"), ends_at, finding.numbers.get("target", "?"))

    def step_failed(self, finding):
        step = ("A step" if finding.object == "unknown"
                else Markup("The step of version {}").format(shown(finding.object)))
        why = ", as it would have before: what it needs is not there" if finding.before else ""
        return Markup("{} {}{}.").format(step, self.would("fail", "failed"), why)

    def left_behind(self, finding):
        how = ("is left from an earlier run" if finding.before
               else self.would("be left behind", "was left behind"))
        return Markup("A copy of a table {}: {}, with {}.").format(
            how, shown(finding.object), counted(rows_of(finding), "row", "rows"))

    def rows_lost(self, finding):
        how = "lost" if finding.on_purpose is None else "removed"
        return Markup("{} {}.").format(
            self.some_of(finding), self.were(rows_of(finding), how))

    def values_lost(self, finding):
        return Markup("{} of {} in {} {}.").format(
            counted(rows_of(finding), "value", "values"), shown(finding.column),
            self.contents(finding.object), self.would("change", "changed"))

    def table_lost(self, finding):
        return Markup("The table of {} {}, with {}.").format(
            self.contents(finding.object), self.would("go", "is gone"),
            counted(rows_of(finding), "row", "rows"))

    def column_lost(self, finding):
        count = rows_of(finding)
        return Markup("The column {} of {} {}, with {}.").format(
            shown(finding.column), self.contents(finding.object), self.would("go", "is gone"),
            counted(count, "value", "values") if count else "no values in it")

    def damaged(self, finding):
        return Markup("The database {} damaged{}.").format(
            self.would("be", "is"), ", as before this run" if finding.before else "")

    def unreadable(self, finding):
        how = ("cannot be read already, and so cannot be compared" if finding.before
               else self.would("not be readable any more", "cannot be read any more"))
        return Markup("{} {}.").format(
            self.contents(finding.object) if finding.object else "The tables", how)

    def violations_removed(self, finding):
        count = rows_of(finding)
        return Markup("{} {}: what {} to {} not there.").format(
            self.some_of(finding), self.were(count, "removed"),
            "it belongs" if count == 1 else "they belong", self.is_or_was)

    def orphans_removed(self, finding):
        count = rows_of(finding)
        return Markup("{} of product configurations that nothing refers to {}.").format(
            counted(count, "row", "rows"), self.were(count, "removed"))

    def reapplied(self, finding):
        return Markup("Version {} {} again: its change {} missing.").format(
            shown(finding.object), self.were(1, "applied"), self.is_or_was)

    def renamed(self, finding):
        return Markup("{} {} {}: there {} equal names.").format(
            self.some_of(finding), self.would("get", "got"),
            "another name" if rows_of(finding) == 1 else "other names",
            "were" if self.is_past else "are")

    def direct(self, finding):
        return Markup("The program {} without the guard's protection. {}").format(
            self.would("run", "ran"), self.words.reason(finding.object, "means"))

    def newer_than_program(self, finding):
        return Markup(
            "The database is at version {}, and the program knows versions up to {}.").format(
                finding.numbers.get("recorded", "?"), finding.numbers.get("newest", "?"))

    def library_unfit(self, finding):
        if finding.object:
            return Markup("The guard needs SQLite 3.33 or newer with {}, which this library does "
                          "not have.").format(shown(finding.object))
        return Markup(
            "The SQLite library refuses texts in double quotes, and versions 6 and 16 need them.")

    def direct_run_cut(self, _):
        return Markup("An earlier run without the guard's protection was cut. "
                      "It may have left the database half migrated.")

    def mended(self, finding):
        return self.mending(Copy(
            finding.object, finding.table, finding.mending, finding.numbers.get("rows"),
            finding.numbers.get("rowsReturned"), ""))

    def mending(self, copy):
        """What `run --mend` does with a copy of a table."""
        name, table = shown(copy.copy), self.contents(copy.table)
        rows = "rows" if copy.rows is None else counted(copy.rows, "row", "rows")
        if copy.kind == "copy-removed":
            return Markup("The copy {} {}: {} already {} each of its {}.").format(
                name, self.would("go", "is gone"), table, "had" if self.is_past else "has", rows)
        if copy.kind == "name-given":
            return Markup("The copy {} {} the table {} again, with its {}.").format(
                name, self.would("be", "is"), shown(copy.table), rows)
        if copy.kind == "rows-returned" and copy.rows_returned is not None:
            return Markup("{} of the copy {} {} back into {}, and the copy {}.").format(
                counted(copy.rows_returned, "row", "rows"), name, self.would("come", "came"),
                table, self.would("go", "is gone"))
        why = Markup(": {}").format(visible(copy.reason)) if copy.reason else ""
        return Markup("Nothing {} with the copy {} and its {}{}.").format(
            self.were(1, "done"), name, rows, why)


BY_KIND = {method.__name__.replace("_", "-"): method for method in (
    Sentences.target_missed, Sentences.step_failed, Sentences.left_behind, Sentences.rows_lost,
    Sentences.values_lost, Sentences.table_lost, Sentences.column_lost, Sentences.damaged,
    Sentences.unreadable, Sentences.violations_removed, Sentences.orphans_removed,
    Sentences.reapplied, Sentences.renamed, Sentences.mended, Sentences.direct,
    Sentences.newer_than_program, Sentences.library_unfit, Sentences.direct_run_cut)}


def rows_of(finding):
    """How many rows or values a finding is about."""
    return finding.numbers.get("rows", 0)


def purpose(finding):
    """Whether a loss is on purpose: (words, class of the mark). None if the finding is no loss."""
    if finding.kind not in LOSSES:
        return None
    if finding.on_purpose is None:
        return "only here", "only-here"
    if finding.on_purpose == "script":
        return "perhaps by reference data", "uncertain"
    if finding.on_purpose == "unknown":
        return "nobody can say: unknown version", "uncertain"
    return visible(f"on purpose: version {finding.on_purpose}"), "on-purpose"
