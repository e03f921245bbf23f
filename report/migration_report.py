#!/usr/bin/python3
"""Makes a page for a service technician from the JSON that migration-guard wrote."""

import argparse
import pathlib
import sys

# Python must not write its compiled files into the folder of an installed program.
sys.dont_write_bytecode = True

from page import render
from reading import Unreadable, read_runs

PROGRAM = "migration-report"
DESCRIPTION = """\
Makes a page for a service technician of a rehearsal (migration-guard rehearse
--json) or of a device's lastMigration.json. The page goes to the standard
output. It is one file that needs no network."""
STATUSES = """\
Exit status:
  0  The page is made.
  1  The file cannot be read or is not what it should be.
     A message says what is wrong and where.
  2  The call is wrong.
"""


def content_of(file):
    """The bytes of a file, or of the standard input for "-"."""
    return sys.stdin.buffer.read() if file == "-" else pathlib.Path(file).read_bytes()


def main():
    parser = argparse.ArgumentParser(
        prog=PROGRAM, usage=f"{PROGRAM} FILE.json > page.html", description=DESCRIPTION,
        epilog=STATUSES, allow_abbrev=False,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("file", metavar="FILE.json",
                        help="One JSON object, or several for one page with an overview."
                             " - is the standard input.")
    file = parser.parse_args().file
    try:
        page = render(read_runs(content_of(file)))
    except (OSError, ValueError) as error:
        return f"{PROGRAM}: {file}: {getattr(error, 'strerror', None) or error}"
    except Unreadable as error:
        return f"{PROGRAM}: {file}: {error}"
    sys.stdout.buffer.write(page.encode("utf-8"))
    return 0


if __name__ == "__main__":
    sys.exit(main())
