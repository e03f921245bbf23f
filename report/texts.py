"""Texts for the page: escaped, with numbers for people, and the words of words.json."""

import json
import pathlib
import re
import unicodedata

from markupsafe import Markup, escape

# Some languages and emoji are written with joiners.
JOINERS = "\u200c\u200d"
INVISIBLE = ("Cc", "Cf", "Cs", "Zl", "Zp")


def visible(text, kept=""):
    """Escapes a text and makes invisible characters visible: controls and bidi marks.

    kept: characters that stay as they are
    """
    def mark(match):
        return f'<span class="code-point">U+{ord(match[0]):04X}</span>'

    hidden = {char for char in set(text)
              if unicodedata.category(char) in INVISIBLE and char not in JOINERS + kept}
    if not hidden:
        return escape(text)
    # Escaping changes none of these characters.
    return Markup(re.sub(f"[{re.escape(''.join(sorted(hidden)))}]", mark, str(escape(text))))


def shown(name):
    """A name or a value from a device, which does not change the writing direction around it."""
    return Markup("<bdi>{}</bdi>").format(visible(name))


def marked(text, object_name=""):
    """A text of words.json, with `names` in another font and {object} filled in."""
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

    def reason(self, reason, part, is_of_no_rehearsal=False):
        """What a reason means; a kind of findings can be a reason too.

        is_of_no_rehearsal: whether it is the reason why nothing could be rehearsed
        """
        entry = (is_of_no_rehearsal and self.texts["reasonsForNoRehearsal"].get(reason)
                 or self.texts["reasons"].get(reason) or self.texts["findings"].get(reason))
        if entry:
            return marked(entry[part])
        return {"means": Markup("The reason is <code>{}</code>.").format(visible(reason)),
                "advice": "docs/guard.md explains it."}[part]

    def of_sqlite(self, lines):
        """What SQLite's words in the lines of a log mean; empty if there are none."""
        return next((plain for line in lines for words, plain in self.texts["sqlite"].items()
                     if words.lower() in line.lower()), "")
