"""What the scripts of this directory share: the build, scratch devices, measuring and the table."""

import contextlib
import hashlib
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "bench"
PROGRAM = BUILD / "database-migrator"
MINIMAL_RUN = BUILD / "bench" / "minimal_run"
RECORD_STATEMENTS = BUILD / "bench" / "librecord_statements.so"
REBUILD = BUILD / "bench" / "rebuild"
STEP = BUILD / "bench" / "step"
SHELL = pathlib.Path("/usr/bin/sqlite3")
RAM_DISK = "/dev/shm"
DISK = BUILD


def build():
    """Builds the program as it is shipped, and the programs of this directory."""
    def run(*command):
        result = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            sys.exit(result.stdout.decode())

    run("bash", "-euc", ". tools/packages.sh; install_packages bench")
    run("cmake", "--preset", "release", "-B", BUILD, "-DDATABASE_MIGRATOR_TESTS=ON")
    run("cmake", "--build", BUILD, "--target", "database-migrator", "minimal_run",
        "record_statements", "rebuild", "step", "duplicate_names", "migration-guard")


class Device:
    """A scratch device with a database at version 1."""

    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.app = self.root / "app"
        self.database = self.app / "databases" / "my.db.sqlite"
        self.database.parent.mkdir(parents=True)
        (self.app / "quillmoor").mkdir()
        (self.app / "quillmoor" / "softwareversion.txt").write_text("4.2.0\n")
        self.sql((ROOT / "tests" / "data" / "version_01.sql").read_text(encoding="utf-8"))

    def sql(self, statements):
        """Runs statements and returns what they yield."""
        return subprocess.run([SHELL, "-bail", self.database], input=statements, check=True,
                              stdout=subprocess.PIPE, encoding="utf-8").stdout

    def set_platform(self, name):
        (self.root / "etc" / "harlo").mkdir(parents=True, exist_ok=True)
        (self.root / "etc" / "harlo" / "platform").write_text(name + "\n")

    def run(self, program, *arguments, options=""):
        """Runs a program; the options are further ones for the sandbox."""
        subprocess.run(
            [ROOT / "tests" / "support" / "on_device.sh", self.root, program, *arguments],
            env=dict(os.environ, DEVICE_OPTIONS=options),
            check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def record_statements(self, program, *arguments):
        """Runs a program and returns the file with the statements that it ran."""
        shutil.copy(RECORD_STATEMENTS, self.app)
        self.run(program, *arguments, options="--setenv RECORDED_STATEMENTS /app/statements "
                 "--setenv LD_PRELOAD /app/" + RECORD_STATEMENTS.name)
        return "/app/statements"

    def run_under(self, tool, *options_program_arguments):
        """Runs a program under a tool that writes /app/report, and returns the report."""
        words = list(options_program_arguments)
        for position, word in enumerate(words):
            if isinstance(word, pathlib.Path):
                shutil.copy(word, self.app)
                words[position] = "/app/" + word.name
        self.run(tool, *words, options="--ro-bind-try /usr/libexec /usr/libexec")
        return (self.app / "report").read_text()

    def instructions(self, program, *arguments):
        report = self.run_under("/usr/bin/valgrind.bin", "--tool=callgrind", "--quiet",
                                "--callgrind-out-file=/app/report", program, *arguments)
        return int(re.search(r"^totals: (\d+)", report, re.MULTILINE)[1])

    def system_calls(self, names, program, *arguments):
        report = self.run_under("/usr/bin/strace", "-f", "-e", "trace=" + names, "-e", "signal=none",
                                "-o", "/app/report", program, *arguments)
        return len(re.findall(r"^\d+ +\w+\(", report, re.MULTILINE))

    def megabytes(self, program, *arguments):
        """The peak of a run's memory."""
        report = self.run_under("/usr/bin/time", "-f", "%M", "-o", "/app/report",
                                program, *arguments)
        return int(report) / 1024

    def seconds(self, program, *arguments):
        begin = time.monotonic()
        self.run(program, *arguments)
        return time.monotonic() - begin

    def against_shell(self, figure, runs, program, *arguments):
        """A figure of a program and of the sqlite3 shell that runs the same statements from a file.

        Both begin with the database as it is now, in turn, and have to end with the same one.
        Returns the medians."""
        original = self.root / "original.sqlite"
        shutil.copy(self.database, original)
        self.record_statements(program, *arguments)
        statements = (self.app / "statements").read_text(encoding="utf-8")
        script = self.app / "statements.sql"
        script.write_text(statements.replace("\0", ";\n"), encoding="utf-8")
        content = self.content()

        def measure(*run):
            shutil.copy(original, self.database)
            os.sync()
            return figure(*run)

        program_figures, shell_figures = [], []
        for _ in range(runs):
            program_figures.append(measure(program, *arguments))
            shell_figures.append(measure(SHELL, "-init", "/dev/null", "-bail",
                                         "/app/databases/my.db.sqlite", ".read /app/statements.sql"))
        if self.content() != content:
            sys.exit("The sqlite3 shell did not end with the database of the program.")
        return statistics.median(program_figures), statistics.median(shell_figures)

    def content(self):
        dump = subprocess.run([SHELL, self.database, ".dump"], check=True, capture_output=True)
        return hashlib.sha256(dump.stdout).digest()


@contextlib.contextmanager
def device(directory):
    with tempfile.TemporaryDirectory(prefix="device.", dir=directory) as root:
        yield Device(root)


class Table:
    """Figures with their bounds, printed as they come."""

    def __init__(self, title):
        self.met = True
        print(f"{title}\n\n  {'':64} {'measured':>14} {'at most':>8}")

    def add(self, name, value, digits=0, at_most=None):
        bound = verdict = ""
        if at_most is not None:
            bound = f"{at_most:.{digits}f}"
            verdict = "  met" if value <= at_most else "  MISSED"
            self.met = self.met and value <= at_most
        print(f"  {name:64} {value:14,.{digits}f} {bound:>8}{verdict}", flush=True)

    def add_seconds(self, what, program, shell):
        """The wall times that against_shell returns."""
        self.add(f"{what}: seconds of the program", program, digits=2)
        self.add(f"{what}: seconds of the sqlite3 shell", shell, digits=2)
        self.add(f"{what}: ratio", program / shell, digits=2, at_most=1.10)

    def end(self):
        """Ends the script, with exit status 1 when a bound was missed."""
        sys.exit(0 if self.met else 1)
