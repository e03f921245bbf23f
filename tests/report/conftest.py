"""One browser for all pages."""

import base64
import json
import re
import subprocess
import sys

import pytest
from chromium import Chromium
from support.places import ROOT, TESTS, scratch_directory

sys.path.insert(0, str(TESTS / "verdict"))
sys.path.insert(0, str(ROOT / "report"))

PROGRAM = ROOT / "report" / "migration_report.py"
PHONE = 360
DESKTOP = 1200
# The width that the margins of an A4 page leave, 180 mm, in CSS pixels.
PAPER = 680


def make_page(*documents):
    """Runs the program on JSON objects, one per line; returns the ended process."""
    lines = "".join(json.dumps(document) + "\n" for document in documents)
    return subprocess.run([PROGRAM, "-"], input=lines.encode(), capture_output=True, check=False)


class Browser(Chromium):
    """Shows the pages of JSON objects, and reads them as a person sees them."""

    def __init__(self, folder):
        super().__init__(folder / "profile")
        self.page = folder / "page.html"

    def show(self, *documents, width=DESKTOP, unfolded=True):
        """Shows the page of JSON objects, with every fold open unless told not to."""
        made = make_page(*documents)
        assert (made.returncode, made.stderr) == (0, b"")
        self.page.write_bytes(made.stdout)
        self.command("Emulation.setEmulatedMedia", media="screen")
        self.resize(width)
        self.open(self.page.as_uri())
        if unfolded:
            self.run("document.querySelectorAll('details').forEach(one => one.open = true)")
        return self

    def resize(self, width):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=800,
                     deviceScaleFactor=1, mobile=False)

    def text(self, selector="body"):
        return self.run("return document.querySelector(arguments[0]).innerText", selector)

    def texts(self, selector):
        """The texts of elements, without empty lines."""
        return self.run("return [...document.querySelectorAll(arguments[0])]"
                        ".map(one => one.innerText.replace(/\\n+/g, '\\n'))", selector)

    def rows(self, selector):
        """The cells of the rows of a table's body."""
        return self.run("return [...document.querySelectorAll(arguments[0] + ' tbody tr')]"
                        ".map(row => [...row.cells].map(cell => cell.innerText))", selector)

    def too_wide(self):
        """How far the page and its elements go beyond the right edge of the window."""
        return self.run("""
            const width = document.documentElement.clientWidth;
            const beyond = [...document.querySelectorAll('body *')]
                .filter(one => one.getBoundingClientRect().right > width + 1
                               || one.scrollWidth > one.clientWidth + 1
                                  && getComputedStyle(one).display !== 'inline')
                .map(one => one.tagName + '.' + one.className);
            const page = document.documentElement.scrollWidth - width;
            return page > 0 ? [page, ...beyond] : beyond;""")

    def print(self):
        """The printed page: a PDF."""
        return base64.b64decode(self.command(
            "Page.printToPDF", preferCSSPageSize=True, printBackground=True)["data"])

    def as_printed(self):
        """Lays the page out as on paper."""
        self.command("Emulation.setEmulatedMedia", media="print")
        self.resize(PAPER)


def paper_sizes(pdf):
    """The sizes of a PDF's pages in points."""
    return {tuple(round(float(number)) for number in box.split()[2:])
            for box in re.findall(rb"/MediaBox \[([^]]*)\]", pdf)}


@pytest.fixture(scope="session")
def browser():
    with scratch_directory() as folder:
        started = Browser(folder)
        yield started
        started.close()
