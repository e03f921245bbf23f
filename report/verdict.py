"""The verdict on a run in a sentence, and what to do about it."""

from markupsafe import Markup

from sentences import LOSSES, Sentences, rows_of
from texts import counted, listed, marked, shown, version

OK, REFUSED, LOOK = 0, 3, 4
REHEARSAL_BADGES = {OK: "Can be installed", REFUSED: "Would not run", LOOK: "Do not install yet"}
RUN_BADGES = {OK: "In order", REFUSED: "Nothing changed", LOOK: "Look at it"}
KINDS = {OK: "ok", REFUSED: "refused", LOOK: "look"}


class VerdictWording:
    """What would be, in a rehearsal, or what was."""

    def __init__(self, run, words):
        self.run = run
        self.words = words
        # If the result was not taken over, the sentences say what would have been.
        self.sentences = Sentences(words, not run.is_rehearsal and run.status != REFUSED)
        self.counting = [finding for finding in run.verdict.findings if finding.counts
                         ] if run.verdict else []
        # The mending that `run --mend` would do in addition to this run.
        is_mended = run.verdict and any(
            finding.kind == "mended" for finding in run.verdict.findings)
        self.copies = () if is_mended else run.copies
        failed = [finding for finding in self.counting if finding.kind == "step-failed"]
        # If steps failed, the headline names them first, and the version where the run ends.
        self.first = failed + [finding for finding in self.counting
                               if finding.kind == "target-missed"] if failed else self.counting[:1]

    def copies_to_mend(self):
        return [copy for copy in self.copies if copy.kind != "only-reported"]

    def copies_to_look_at(self):
        """Those that `run --mend` leaves as they are."""
        return [copy for copy in self.copies if copy.kind == "only-reported"]

    def badge(self):
        """The verdict in a few words, and its kind."""
        if self.run.reason == "commit-unknown":
            return "Nobody can tell yet", KINDS[REFUSED]
        badges = REHEARSAL_BADGES if self.run.is_rehearsal else RUN_BADGES
        return badges[self.run.status], KINDS[self.run.status]

    def headline(self):
        """The verdict in a sentence or two."""
        is_without_database = self.found_no_database() and not self.counting
        if is_without_database or not self.run.end_is_known:
            return self.why()
        if self.run.status == OK:
            return joined(self.movement(), self.besides())
        if self.run.status == REFUSED:
            return self.refusal()
        return self.what_counts() or joined(self.movement(), self.why())

    def found_no_database(self):
        """Whether the program started without a database, and recorded no version."""
        return (self.run.reason == "no-database" and self.run.way == "direct"
                and self.run.to is None)

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
        """The sentence on losses when no finding counts: those that do not count."""
        run, verdict = self.run, self.run.verdict
        if run.changed is False:
            return "Nothing would change." if run.is_rehearsal else "Nothing was changed."
        if verdict is None or run.way == "direct":
            return ("What would become of its contents is not known." if run.is_rehearsal
                    else "What became of its contents was not compared.")
        losses = [finding for finding in verdict.findings
                  if finding.kind in LOSSES and rows_of(finding)]
        takers = sorted({finding.on_purpose for finding in losses
                         if isinstance(finding.on_purpose, int)})
        accepted = sum(finding.accepted for finding in verdict.findings)
        parts = []
        if takers:
            parts.append(Markup("what {} {} on purpose").format(
                joined("versions" if len(takers) > 1 else "version", listed(takers)),
                "take" if len(takers) > 1 else "takes"))
        if any(finding.on_purpose == "script" for finding in losses):
            parts.append("what reference data may replace")
        if any(finding.on_purpose == "unknown" for finding in losses) or verdict.unknown_versions:
            parts.append("what versions take that are not known here")
        if any(finding.on_purpose is None and finding.before for finding in losses):
            parts.append("what was lost before")
        if accepted:
            parts.append(counted(accepted, "finding that was accepted",
                                 "findings that were accepted"))
        return Markup("Nothing {} lost{}.").format(
            "is" if run.is_rehearsal else "was",
            Markup(" besides {}").format(listed(parts)) if parts else "")

    def refusal(self):
        """Why nothing changes."""
        if self.counting:
            return joined("Nothing would be changed." if self.run.is_rehearsal
                          else "Nothing was changed.", self.what_counts())
        if self.run.command == "restore":
            return joined("The kept database was not brought back.", self.why())
        return joined("This database cannot be migrated." if self.run.is_rehearsal
                      else "This database was not migrated.", self.why())

    def why(self):
        """What the reason means; empty without one."""
        return self.of_reason("means") if self.run.reason else ""

    def of_reason(self, part):
        """The words for the reason of this run or rehearsal."""
        return self.words.reason(self.run.reason, part,
                                 self.run.is_rehearsal and self.run.verdict is None)

    def what_counts(self):
        """The first finding that counts, in words; empty if none does."""
        failed = [finding for finding in self.first if finding.kind == "step-failed"]
        rest = [self.sentences.finding(finding) for finding in self.first[len(failed):]]
        return joined(self.failed_steps(failed) if failed else "", *rest)

    def more(self):
        """How many findings count besides those in the headline; empty if none does."""
        more = len(self.counting) - len(self.first)
        if not more:
            return ""
        return (f"{counted(more, 'more thing', 'more things')} to look at"
                f" {'is' if more == 1 else 'are'} below.")

    def failed_steps(self, failed):
        numbers = [finding.object for finding in failed if finding.object != "unknown"]
        if not numbers:
            return "A step fails here." if self.run.is_rehearsal else "A step failed here."
        if len(numbers) == 1:
            return Markup("Step {} {} here{}").format(
                shown(numbers[0]), "fails" if self.run.is_rehearsal else "failed",
                self.why_failed(numbers[0]))
        return Markup("Steps {} {} here.").format(
            listed(map(shown, numbers)), "fail" if self.run.is_rehearsal else "failed")

    def why_failed(self, number):
        """The end of the sentence on a failed step: the reason, plain or from the log."""
        lines = next((step.lines for step in self.run.steps
                      if str(step.version) == number and step.lines), None)
        if not lines:
            return "."
        plain = self.words.of_sqlite(lines)
        if plain:
            return f": {plain[0].lower()}{plain[1:]}"
        return Markup(": “{}”.").format(shown(lines[0].rstrip(".")))

    def advice(self):
        """What to do, in paragraphs."""
        run = self.run
        paragraphs = [self.words.status(run.status, run.is_rehearsal)]
        if run.status == LOOK and self.copies_to_mend():
            paragraphs.append(marked(
                "A cut run has left copies of tables, which can be in the way."
                " `migration-guard run --mend` takes care of them first."))
        if run.status == REFUSED and run.reason and not self.counting:
            paragraphs.append(self.of_reason("advice"))
        if not run.is_in_order:
            paragraphs.append(marked(
                "The last run that changed this database did not end well. If the database of"
                " before is kept, `migration-guard restore` brings it back."))
        return paragraphs


def joined(*sentences):
    """Sentences in a row, without the empty ones."""
    return Markup(" ").join(filter(None, sentences))
