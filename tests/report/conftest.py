"""One browser for all pages."""

import base64
import json
import pathlib
import re
import subprocess
import sys

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from support.places import ROOT, TESTS, scratch_directory

sys.path.insert(0, str(TESTS / "verdict"))
sys.path.insert(0, str(ROOT / "report"))

PROGRAM = ROOT / "report" / "migration_report.py"
PHONE = 360
DESKTOP = 1200
# What the margins of an A4 page leave, in CSS pixels: 180 mm.
PAPER = 680


def make_page(*documents):
    """The ended program with the page of JSON objects, one per line."""
    lines = "".join(json.dumps(document) + "\n" for document in documents)
    return subprocess.run([PROGRAM, "-"], input=lines.encode(), capture_output=True, check=False)


class Browser:
    """Shows pages, and tells what a reader sees there."""

    def __init__(self, folder):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        # Root, as in a container, cannot have Chromium's sandbox.
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                         "--disable-gpu", "--hide-scrollbars", "--disable-background-networking",
                         "--disable-component-update", "--no-first-run",
                         f"--user-data-dir={folder / 'profile'}"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.folder = folder
        self.driver = webdriver.Chrome(
            service=Service("/usr/bin/chromedriver", log_path=str(folder / "driver.log")),
            options=options)

    def close(self):
        self.driver.quit()

    def command(self, name, **parameters):
        return self.driver.execute_cdp_cmd(name, parameters)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def open(self, *documents, width=DESKTOP, unfolded=True):
        """Shows the page of JSON objects, with everything unfolded unless it is not to be."""
        made = make_page(*documents)
        assert (made.returncode, made.stderr) == (0, b"")
        page = self.folder / "page.html"
        page.write_bytes(made.stdout)
        self.command("Emulation.setEmulatedMedia", media="screen")
        self.resize(width)
        self.driver.get_log("browser")
        self.driver.get(page.as_uri())
        if unfolded:
            self.run("document.querySelectorAll('details').forEach(one => one.open = true)")
        return self

    def resize(self, width):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=800,
                     deviceScaleFactor=1, mobile=False)

    def errors(self):
        """What the browser complains about: scripts, loads and violated rules."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

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
        started = Browser(pathlib.Path(folder))
        yield started
        started.close()
