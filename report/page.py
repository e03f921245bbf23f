"""The content of the page: each run's parts in the order in which a technician needs them."""

import functools
import itertools
import pathlib

import jinja2
from markupsafe import Markup

from sentences import LOSSES, purpose
from texts import Words, counted, duration, number, shown, size, version, visible
from verdict import KINDS, LOOK, OK, REFUSED, VerdictWording

# A page shows no more rows of a finding; the JSON file has the others.
ROWS_SHOWN = 20
REPAIRS = ("mended", "violations-removed", "orphans-removed", "reapplied")
PARTS = (("copy", "copy"), ("program", "program"), ("comparison", "comparison"),
         ("commit", "commit"))
OUTCOMES = {"done": "done", "failed": "failed", "not-reached": "not reached"}


class RunParts:
    """A rehearsal or a run as the page shows it."""

    def __init__(self, run, words, place):
        self.run = run
        self.words = words
        self.place = place  # its number in the file, which makes the names of its parts unique
        self.verdict = VerdictWording(run, words)
        self.sentences = self.verdict.sentences
        self.counting = self.verdict.counting
        self.repairs, self.left_before, self.renamed = [], [], []
        self.losses, self.others = [], []
        for finding in run.verdict.findings if run.verdict else ():
            if not finding.counts:
                self.part_of(finding).append(finding)

    def part_of(self, finding):
        if finding.kind in REPAIRS:
            return self.repairs
        if finding.kind == "left-behind" and finding.before:
            return self.left_before
        if finding.kind == "renamed":
            return self.renamed
        return self.losses if finding.kind in LOSSES else self.others

    @property
    def name(self):
        """What to call the database: the end of its path."""
        path = self.run.path.rstrip("/")
        if path:
            return shown(path.rsplit("/", 1)[-1])
        return Markup("Database {}").format(self.place)

    def movement(self):
        """The versions before and after, in short form."""
        source, to = ("no version" if recorded is None else str(recorded)
                      for recorded in (self.run.source, self.run.to))
        if not self.run.end_is_known:
            to = "unknown"
        return source if source == to else Markup("{} → {}").format(source, to)

    def facts(self):
        """(label, value, whether it was only assumed) for each fact that is known."""
        run, in_bytes = self.run, self.run.bytes
        to = version(run.to) if run.end_is_known else "unknown"
        facts = [("From", version(run.source), False), ("To", to, False)]
        if run.target is not None and run.target != run.to:
            facts.append(("Asked for", version(run.target), False))
        for label, value, field in (("Device software", run.software_version, "softwareVersion"),
                                    ("Platform", run.platform, "platform")):
            if value or field in run.assumed:
                facts.append((label, shown(value) if value else "none", field in run.assumed))
        for label, field in (("Size before", "before"), ("Size after", "after"),
                             ("Text in the log", "log"),
                             ("Most memory", "peakMemory"), ("Most room on the disk", "peakDisk")):
            if field in in_bytes:
                facts.append((label, size(in_bytes[field]), False))
        times = [(label, run.milliseconds[field]) for field, label in PARTS
                 if field in run.milliseconds]
        if times:
            facts.append(("Time", Markup('{} <span class="exact">({})</span>').format(
                duration(sum(time for _, time in times)),
                ", ".join(f"{label} {number(time)} ms" for label, time in times)), False))
        if run.flushes and not run.is_rehearsal:
            facts.append(("Flushes of the disk", number(run.flushes), False))
        if run.journal_mode:
            facts.append(("Journal", shown(run.journal_mode), False))
        if run.way:
            facts.append(("How", {"guarded": "on a copy, under the guard",
                                  "direct": "on the database itself, without the guard"}.get(
                                      run.way, visible(run.way)), False))
        if run.program is not None:
            facts.append(("Migrator knows", f"versions up to {run.program}", False))
        programs = [Markup("{} {}").format(label, shown(value)) for label, value in
                    (("migration-guard", run.guard), ("SQLite", run.sqlite)) if value]
        if programs:
            facts.append(("Made with", Markup(", ").join(programs), False))
        return facts

    def assumed(self):
        """The inputs that were not given, in words."""
        names = {"platform": "platform", "softwareVersion": "software version",
                 "registration": "registration file", "referenceData": "reference data"}
        return Markup(", ").join(names.get(name, visible(name)) for name in self.run.assumed)

    @staticmethod
    def tables_with_other_rows(verdict):
        return [table for table in verdict.tables if has_other_rows(table)]

    @staticmethod
    def tables_with_the_same_rows(verdict):
        """Something else differs there: a column or a value."""
        return [table for table in verdict.tables if not has_other_rows(table)]

    def things_to_look_at(self):
        return counted(len(self.counting), "thing", "things")

    @staticmethod
    def has_values(finding):
        return any(row.before is not None for row in finding.rows or ())

    @staticmethod
    def shown_rows(finding):
        return finding.rows[:ROWS_SHOWN]

    @staticmethod
    def has_other_tables(finding):
        """Whether a row is of another table than the finding, which the page then names."""
        return any(row.table != finding.object for row in finding.rows)

    def keys_by_table(self, finding):
        """(table, keys) of the rows that are shown."""
        return [(table, [row.key for row in rows]) for table, rows in itertools.groupby(
            self.shown_rows(finding), lambda row: row.table)]

    def key_label(self, finding, table, keys):
        label = "Key:" if len(keys) == 1 else "Keys:"
        return (Markup("{}, {}").format(self.sentences.contents(table), label.lower())
                if self.has_other_tables(finding) else label)

    @staticmethod
    def how_many_shown(finding):
        """How many rows are shown, of how many."""
        shown_count = min(len(finding.rows), ROWS_SHOWN)
        total = max(finding.numbers.get("rows", 0), len(finding.rows))
        if total > shown_count:
            return f"The first {number(shown_count)} of {number(total)} rows"
        return "The row" if total == 1 else f"All {number(total)} rows"

    @staticmethod
    def where_the_rest_is(finding):
        """A sentence on the rows that are not shown; empty if all are."""
        if len(finding.rows) > ROWS_SHOWN:
            return (f"The first {ROWS_SHOWN} are shown. " + (
                "All are in the JSON file." if finding.has_all_rows
                else f"The JSON file has the first {number(len(finding.rows))}."))
        return "" if finding.has_all_rows else "The others were too many for the JSON file."

    def by_taker(self, findings):
        """(title, findings) for all that take something: only here first, then by version."""
        titles = {None: "Only here", "script": "Perhaps by reference data",
                  "unknown": "By versions that are not known here"}
        order = {None: -3, "script": -2, "unknown": -1}
        groups = {}
        for finding in findings:
            groups.setdefault(finding.on_purpose, []).append(finding)
        for taker in sorted(groups, key=lambda taker: (
                order.get(taker, 0), taker if isinstance(taker, int) else 0)):
            what_for = self.words.version(taker)
            title = titles.get(taker, visible(f"Version {taker}"))
            yield (f"{title}: {what_for}" if what_for else title), groups[taker]

    def steps_of(self, finding):
        """The failed step that a finding is about."""
        return [step for step in self.failed_steps()
                if finding.kind == "step-failed" and finding.object == str(step.version)]

    def failed_steps(self):
        return [step for step in self.run.steps if step.outcome == "failed"]

    def failed_steps_besides(self):
        """The failed steps that no finding that counts has shown."""
        told = [step for finding in self.counting for step in self.steps_of(finding)]
        return [step for step in self.failed_steps() if step not in told]

    def all_steps_are_done(self):
        return all(step.outcome == "done" for step in self.run.steps)

    def steps_sentence(self):
        steps = self.run.steps
        if self.all_steps_are_done():
            return "The step is done" if len(steps) == 1 else f"All {len(steps)} steps are done"
        counts = [(sum(step.outcome == outcome for step in steps), words)
                  for outcome, words in OUTCOMES.items()]
        return ", ".join(f"{number(count)} {words}" for count, words in counts if count)

    def outcome(self, step):
        return OUTCOMES.get(step.outcome, visible(step.outcome))

    def way_back_sentence(self):
        """The sentence about the way back: whether it reaches its version and what it restores."""
        way_back = self.run.way_back
        gets = ("gets there" if way_back.reached else
                f"does not get there: it would stop at {version(way_back.to)}")
        found = way_back.losses.findings
        if any(not finding.before for finding in found):
            restores = "It would not restore everything:"
        else:
            restores = "It would restore everything that was compared."
            if found:
                restores += " This was so before:"
        return Markup("A run back to {} {}. {}").format(version(way_back.target), gets, restores)


def has_other_rows(table):
    return table.gone or table.new or table.before != table.after


class Overview:
    """Several databases on one page."""

    def __init__(self, parts):
        self.parts = parts
        self.worst_first = sorted(parts, key=lambda part: (LOOK, REFUSED, OK).index(
            part.run.status))

    def headline(self):
        """How many databases have which status."""
        counts = [(self.count(status), words) for status, words in (
            (OK, "in order"), (LOOK, "to look at"), (REFUSED, "not migrated"))]
        return f"{counted(len(self.parts), 'database', 'databases')}: " + ", ".join(
            f"{number(count)} {words}" for count, words in counts if count)

    def count(self, status):
        return sum(part.run.status == status for part in self.parts)

    def badge_class(self):
        return next(KINDS[status] for status in (LOOK, REFUSED, OK) if self.count(status))


@functools.cache
def template():
    folder = pathlib.Path(__file__).resolve().parent
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(folder), autoescape=True, trim_blocks=True,
        lstrip_blocks=True, undefined=jinja2.StrictUndefined)
    environment.filters.update(shown=shown, visible=visible, number=number)
    environment.globals["purpose"] = purpose
    environment.globals["style"] = Markup((folder / "style.css").read_text(encoding="utf-8"))
    return environment.get_template("page.html")


def render(runs):
    """The page of some runs, as HTML."""
    words = Words()
    parts = [RunParts(run, words, place) for place, run in enumerate(runs, 1)]
    since = runs[0].run_since if len(runs) == 1 else None
    return template().render(
        parts=parts, overview=Overview(parts) if len(parts) > 1 else None,
        since=RunParts(since, words, 2) if since else None)
