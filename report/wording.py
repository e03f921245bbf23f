"""What the page says in sentences, made from codes and numbers.

Everything that comes from a device goes through `shown` or Markup.format, which escape it.
"""

import json
import pathlib
import re
import unicodedata

from markupsafe import Markup, escape

OK, REFUSED, LOOK = 0, 3, 4
LOSSES = ("rows-lost", "values-lost", "table-lost", "column-lost")
# Joiners belong to the writing of some languages and to emoji.
JOINERS = "\u200c\u200d"
INVISIBLE = ("Cc", "Cf", "Cs", "Zl", "Zp")


class Words:
    """The texts of words.json."""

    def __init__(self):
        place = pathlib.Path(__file__).resolve().parent / "words.json"
        self.texts = json.loads(place.read_text(encoding="utf-8"))
        self.tables = {name.lower(): word for name, word in self.texts["tables"].items()}

    def table(self, name):
        """What a user calls the contents of a table; None if there is no word for it."""
        return self.tables.get(name.lower())

    def version(self, number):
        return self.texts["versions"].get(str(number), "")

    def status(self, status, is_rehearsal):
        return marked(self.texts["statuses"][str(status)]["rehearsal" if is_rehearsal else "run"])

    def advice(self, finding):
        """What to do about a finding; empty for a kind that is not known here."""
        if finding.kind == "direct":
            return self.reason(finding.object, "advice")
        return marked(self.texts["findings"].get(finding.kind, {}).get("advice", ""),
                      finding.object)

    def reason(self, reason, part):
        """Of a reason; a kind of findings is one too."""
        entry = self.texts["reasons"].get(reason) or self.texts["findings"].get(reason)
        if entry:
            return marked(entry[part])
        return {"means": Markup("The reason is <code>{}</code>.").format(visible(reason)),
                "advice": "docs/guard.md explains it."}[part]

    def of_sqlite(self, line):
        """What SQLite's words in a line of the log mean; empty without any."""
        return next((plain for words, plain in self.texts["sqlite"].items()
                     if words.lower() in line.lower()), "")


def visible(text, kept=""):
    """Escapes a text and makes every character visible that is not: controls and bidi marks.

    kept: characters that stay as they are
    """
    def mark(match):
        return f'<span class="code-point">U+{ord(match[0]):04X}</span>'

    hidden = {char for char in set(text)
              if unicodedata.category(char) in INVISIBLE and char not in JOINERS + kept}
    if not hidden:
        return escape(text)
    # Escaping leaves all of them alone.
    return Markup(re.sub(f"[{re.escape(''.join(sorted(hidden)))}]", mark, str(escape(text))))


def shown(name):
    """A name or a value of a device, apart from the writing direction of what is around it."""
    return Markup("<bdi>{}</bdi>").format(visible(name))


def marked(text, object_name=""):
    """A text of words.json: `names` in another font, {object} filled in."""
    parts = str(escape(text)).split("`")
    texts = [part if number % 2 == 0 else f"<code>{part}</code>"
             for number, part in enumerate(parts)]
    return Markup("".join(texts).replace("{object}", str(visible(object_name))))


def number(count):
    return f"{count:,}"


def counted(count, one, several):
    return f"{number(count)} {one if count == 1 else several}"


def size(count):
    """A size in bytes for a person, with the bytes."""
    if count < 1000:
        return counted(count, "byte", "bytes")
    unit, divisor = next((unit, divisor) for unit, divisor in (
        ("GB", 10 ** 9), ("MB", 10 ** 6), ("kB", 1000)) if count >= divisor)
    amount = count / divisor
    return Markup('{} {} <span class="exact">({} bytes)</span>').format(
        f"{amount:,.{0 if amount >= 100 else 1}f}", unit, number(count))


def duration(milliseconds):
    return (f"{milliseconds / 1000:,.1f} s" if milliseconds >= 1000
            else f"{number(milliseconds)} ms")


def listed(items):
    """ "1", "1 and 2", or "1, 2 and 3"; escaped."""
    items = [escape(item) for item in items]
    if len(items) < 2:
        return Markup("").join(items)
    return Markup("{} and {}").format(Markup(", ").join(items[:-1]), items[-1])


def version(recorded):
    return "no version" if recorded is None else f"version {recorded}"


class Wording:
    """Sentences about a run: of what would be, in a rehearsal, or of what was."""

    def __init__(self, run, words):
        self.run = run
        self.words = words
        # A result that was not taken over would have been so.
        self.is_past = not run.is_rehearsal and run.status != REFUSED

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
        count = finding.numbers.get("rows", 0)
        all_rows = finding.numbers.get("rowsBefore")
        word = self.words.table(finding.object)
        counts = number(count) if all_rows is None else f"{number(count)} of {number(all_rows)}"
        if word and word.endswith("s"):
            return Markup("{} {}").format(counts, word)
        last = count if all_rows is None else all_rows
        return Markup("{} {} of {}").format(
            counts, "row" if last == 1 else "rows", self.contents(finding.object))

    def finding(self, finding):
        """The sentence of a finding."""
        count = finding.numbers.get("rows", 0)
        told = Markup.format
        name = shown(finding.object)
        table = self.contents(finding.object)
        column = shown(finding.column)
        again = ", as before this run" if finding.before else ""
        sentences = {
            "target-missed": lambda: told(
                Markup("The database {} {}, not at version {}."),
                self.would("stop at", "is at"),
                "no version" if finding.object == "none" else told(Markup("version {}"), name),
                finding.numbers.get("target", "?")),
            "step-failed": lambda: told(
                Markup("{} {}{}."),
                "A step" if finding.object == "unknown" else told(
                    Markup("The step of version {}"), name),
                self.would("fail", "failed"),
                ", as it would have before: what it needs is not there" if finding.before else ""),
            "left-behind": lambda: told(
                Markup("A copy of a table {}: {}, with {}."),
                "is left from an earlier run" if finding.before
                else self.would("be left behind", "was left behind"),
                name, counted(count, "row", "rows")),
            "rows-lost": lambda: told(
                Markup("{} {}."), self.some_of(finding),
                self.were(count, "lost" if finding.on_purpose is None else "removed")),
            "values-lost": lambda: told(
                Markup("{} of {} in {} {}."), counted(count, "value", "values"), column, table,
                self.would("change", "changed")),
            "table-lost": lambda: told(
                Markup("The table of {} {}, with {}."), table, self.would("go", "is gone"),
                counted(count, "row", "rows")),
            "column-lost": lambda: told(
                Markup("The column {} of {} {}, with {}."), column, table,
                self.would("go", "is gone"),
                counted(count, "value", "values") if count else "no values in it"),
            "damaged": lambda: f"The database {self.would('be', 'is')} damaged{again}.",
            "unreadable": lambda: told(
                Markup("{} {}."), table if finding.object else "The tables",
                "cannot be read already, and so cannot be compared" if finding.before
                else self.would("not be readable any more", "cannot be read any more")),
            "violations-removed": lambda: told(
                Markup("{} {}: what {} to {} not there."), self.some_of(finding),
                self.were(count, "removed"), "it belongs" if count == 1 else "they belong",
                "was" if self.is_past else "is"),
            "orphans-removed": lambda: told(
                Markup("{} of product configurations that nothing refers to {}."),
                counted(count, "row", "rows"), self.were(count, "removed")),
            "reapplied": lambda: told(
                Markup("Version {} {} again: its change {} missing."), name,
                self.were(1, "applied"), "was" if self.is_past else "is"),
            "renamed": lambda: told(
                Markup("{} {} {}: there {} equal names."), self.some_of(finding),
                self.would("get", "got"), "another name" if count == 1 else "other names",
                "were" if self.is_past else "are"),
            "direct": lambda: told(
                Markup("The program {} without the guard's protection. {}"),
                self.would("run", "ran"), self.words.reason(finding.object, "means")),
            "newer-than-program": lambda: told(
                Markup("The database is at version {}, and the program knows versions up to {}."),
                finding.numbers.get("recorded", "?"), finding.numbers.get("newest", "?")),
            "library-unfit": lambda: Markup(
                "The SQLite library refuses texts in double quotes,"
                " and versions 6 and 16 need them."),
        }
        if finding.kind in sentences:
            return sentences[finding.kind]()
        # A kind that is newer than this program.
        return visible(finding.sentence or finding.code)

    def purpose(self, finding):
        """Whether it is on purpose, for losses: (words, class of the mark)."""
        if finding.kind not in LOSSES:
            return None
        if finding.on_purpose is None:
            return "only here", "only-here"
        if finding.on_purpose == "script":
            return "perhaps by reference data", "uncertain"
        if finding.on_purpose == "unknown":
            return "nobody can say: unknown version", "uncertain"
        return visible(f"on purpose: version {finding.on_purpose}"), "on-purpose"

    def mending(self, copy):
        """What `run --mend` would do with a copy."""
        name, table = shown(copy.copy), self.contents(copy.table)
        rows = "its rows" if copy.rows is None else f"its {counted(copy.rows, 'row', 'rows')}"
        if copy.kind == "copy-removed":
            return Markup("The copy {} would go: {} already has {}.").format(
                name, table, rows.replace("its", "each of its"))
        if copy.kind == "name-given":
            return Markup("The copy {} would be the table {} again, with {}.").format(
                name, shown(copy.table), rows)
        if copy.kind == "rows-returned" and copy.rows_returned is not None:
            return Markup("{} of the copy {} would come back into {}, and the copy would go."
                          ).format(counted(copy.rows_returned, "row", "rows"), name, table)
        return Markup("Nothing would be done with the copy {} and {}.{}").format(
            name, rows, Markup(" {}").format(visible(copy.reason)) if copy.reason else "")

    # The verdict

    def badge(self):
        """The verdict in two or three words: (words, class)."""
        words = {True: ("Can be installed", "Would not run", "Do not install yet"),
                 False: ("In order", "Nothing changed", "Look at it")}[self.run.is_rehearsal]
        if self.run.reason == "commit-unknown":
            return "Nobody can tell yet", "refused"
        return {OK: (words[0], "ok"), REFUSED: (words[1], "refused"),
                LOOK: (words[2], "look")}[self.run.status]

    def counting(self):
        return [finding for finding in self.run.verdict.findings if finding.counts] \
            if self.run.verdict else []

    def headline(self):
        """The verdict in a sentence or two."""
        if self.run.status == OK:
            return self.movement() + " " + self.besides()
        if self.run.status == REFUSED:
            return self.refusal()
        return self.what_counts() or Markup("{} {}").format(
            self.movement(), self.words.reason(self.run.reason, "means") if self.run.reason else "")

    def movement(self):
        run = self.run
        if run.command == "restore":
            return Markup("The kept database of {} was brought back in place of {}.").format(
                version(run.to), version(run.source))
        if run.source == run.to:
            stays = "stays" if run.is_rehearsal else "stayed"
            return Markup("This database {} at {}.").format(stays, version(run.to))
        if run.source is None:
            return Markup("This database records no version, and {} to {}.").format(
                "can go" if run.is_rehearsal else "went", version(run.to))
        back = " back" if run.to is not None and run.to < run.source else ""
        return Markup("This database {}{} from {} to {}.").format(
            "can go" if run.is_rehearsal else "went", back, run.source,
            "no version" if run.to is None else run.to)

    def besides(self):
        """What is lost besides what versions take, when nothing counts."""
        verdict = self.run.verdict
        if self.run.changed is False:
            return Markup("Nothing {}.").format(
                "would change" if self.run.is_rehearsal else "was changed")
        if verdict is None:
            return Markup("What became of its contents was not compared.")
        losses = [finding for finding in verdict.findings
                  if finding.kind in LOSSES and finding.numbers.get("rows", 0)]
        takers = sorted({finding.on_purpose for finding in losses
                         if isinstance(finding.on_purpose, int)})
        accepted = sum(finding.accepted for finding in verdict.findings)
        parts = []
        if takers:
            parts.append(f"what version{'s' * (len(takers) > 1)} {listed(takers)}"
                         f" take{'s' * (len(takers) == 1)} on purpose")
        if any(finding.on_purpose == "script" for finding in losses):
            parts.append("what reference data may replace")
        if any(finding.on_purpose == "unknown" for finding in losses) or verdict.unknown_versions:
            parts.append("what versions take that are not known here")
        if any(finding.on_purpose is None and finding.before for finding in losses):
            parts.append("what was lost before")
        if accepted:
            parts.append(counted(accepted, "finding that was accepted",
                                 "findings that were accepted"))
        is_lost = "is lost" if self.run.is_rehearsal else "was lost"
        return (Markup("Nothing {} besides {}.").format(is_lost, listed(parts)) if parts
                else Markup("Nothing {}.").format(is_lost))

    def refusal(self):
        """Why nothing changes."""
        run = self.run
        counts = self.what_counts()
        if not counts:
            means = self.words.reason(run.reason, "means") if run.reason else ""
            start = ("This database cannot be migrated." if run.is_rehearsal
                     else "This database was not migrated.")
            if run.reason == "commit-unknown":
                return means
            return Markup("{} {}").format(
                "The kept database was not brought back." if run.command == "restore" else start,
                means)
        return Markup("{} {}").format(
            "Nothing would be changed." if run.is_rehearsal else "Nothing was changed.", counts)

    def first_things(self):
        """The findings that the headline is about: failed steps before all, and where it ends."""
        counting = self.counting()
        failed = [finding for finding in counting if finding.kind == "step-failed"]
        if not failed:
            return counting[:1]
        return failed + [finding for finding in counting if finding.kind == "target-missed"]

    def what_counts(self):
        """The first thing that counts in words; empty if nothing does."""
        first = self.first_things()
        failed = [finding for finding in first if finding.kind == "step-failed"]
        sentences = [self.failed_steps(failed)] if failed else []
        sentences += [self.finding(finding) for finding in first if finding not in failed]
        return Markup(" ").join(sentences)

    def more(self):
        """How many things count besides those of the headline; empty without any."""
        more = len(self.counting()) - len(self.first_things())
        if not more:
            return ""
        return (f"{counted(more, 'more thing', 'more things')} to look at"
                f" {'is' if more == 1 else 'are'} below.")

    def failed_steps(self, failed):
        if len(failed) > 1 or failed[0].object == "unknown":
            numbers = [shown(finding.object) for finding in failed if finding.object != "unknown"]
            steps = Markup("Steps {}").format(listed(numbers)) if numbers else "A step"
            return Markup("{} {}{}.").format(
                steps, "fail" if self.run.is_rehearsal and numbers else
                "fails" if self.run.is_rehearsal else "failed", " here")
        return Markup("Step {} {} here{}").format(
            shown(failed[0].object), "fails" if self.run.is_rehearsal else "failed",
            self.why_failed(failed[0].object))

    def why_failed(self, object_name):
        """The end of the sentence on a failed step: the reason in plain words, or the log's."""
        lines = next((step.lines for step in self.run.steps or ()
                      if str(step.version) == object_name and step.lines), None)
        if not lines:
            return "."
        plain = self.explanation(lines)
        if plain:
            return f": {plain[0].lower()}{plain[1:]}"
        return Markup(": “{}”.").format(shown(lines[0].rstrip(".")))

    def advice(self):
        """What to do, in paragraphs."""
        run = self.run
        paragraphs = [self.words.status(run.status, run.is_rehearsal)]
        if run.status == LOOK and any(copy.kind != "only-reported" for copy in run.copies):
            paragraphs.append(marked(
                "An earlier run has left copies of tables, which can be in the way."
                " `migration-guard run --mend` takes care of them first."))
        if run.status == REFUSED and run.reason and not self.counting():
            paragraphs.append(self.words.reason(run.reason, "advice"))
        if not run.is_in_order:
            paragraphs.append(marked(
                "The last run that changed this database did not end well. If the database of"
                " before is kept, `migration-guard restore` brings it back."))
        return paragraphs

    def explanation(self, lines):
        """What the log's words for a failed step mean."""
        return next(filter(None, map(self.words.of_sqlite, lines)), "")
