"""A rehearsal runs the program of another root file system on this device's database."""

import json
import os
import shutil
import subprocess

import pytest
from conftest import KNOWN_VERSIONS, PROGRAM, TOOLS, contents
from rehearsals import Untouched, rehearse
from support.places import DEMO, ROOT
from support.versions import NEWEST
from test_rehearsal import ended, predicted

# The other system has this one's libraries, but only below its own root.
LIBRARIES = ("--ro-bind /usr/lib /other/usr/lib --ro-bind-try /usr/lib64 /other/usr/lib64 "
             + " ".join(f"--ro-bind /usr/bin/{tool} /other/usr/bin/{tool}" for tool in TOOLS))
LOSING = """/app/migrator "$@"
sqlite3 /app/databases/my.db.sqlite "DELETE FROM growers WHERE rowid = 1"
"""


class OtherRoot:
    """A root file system with the program, mounted at /other."""

    def __init__(self, path):
        self.path = path
        self.app = path / "app"
        for name in ("app/quillmoor", "usr/lib", "usr/lib64", "usr/bin", "etc", "proc", "dev",
                     "tmp"):
            (path / name).mkdir(parents=True)
        for name in ("lib", "lib64", "bin"):
            (path / name).symlink_to(f"usr/{name}")
        for tool in TOOLS:
            # A place to mount on.
            (path / "usr" / "bin" / tool).touch()
        shutil.copy2(PROGRAM, self.app)
        shutil.copy(KNOWN_VERSIONS, self.app)
        (self.app / "quillmoor" / "softwareversion.txt").write_text("9.9.9\n")
        for name in ("refMachines.sql", "refProducts.sql"):
            shutil.copy(DEMO / name, self.app)

    @property
    def options(self):
        return f"--ro-bind {self.path} /other {LIBRARIES}"

    def replace_program(self, script):
        program = self.app / "database-migrator"
        program.rename(self.app / "migrator")
        program.write_text("#!/usr/bin/dash\n" + script)
        program.chmod(0o755)


@pytest.fixture
def other(device):
    """This device's own program cannot run."""
    device.install(33)
    device.replace_program("exit 1")
    return OtherRoot(device.root / "other")


def rehearse_other(device, other, *arguments):
    before = Untouched(device.root)
    done = rehearse(device, *arguments, "--root", "/other", options=other.options)
    before.check()
    return done


def plain(other):
    (other.app / "databases").mkdir()


def no_databases(_):
    pass


def link_to_a_partition(other):
    """It is not mounted where the other system is."""
    (other.path / "data").mkdir()
    (other.app / "databases").symlink_to("/data/fieldcomputer/databases")


def link_to_nowhere(other):
    (other.app / "databases").symlink_to("../data/databases")


@pytest.mark.parametrize("arrange", [plain, no_databases, link_to_a_partition, link_to_nowhere])
def test_the_other_program_on_this_database(device, other, arrange):
    arrange(other)
    done = rehearse_other(device, other, NEWEST)
    report = done.report
    assert (done.status, report["to"], report["way"]) == (0, NEWEST, "guarded"), done.errors
    assert report["given"] == {"platform": "TORVIK", "softwareVersion": "9.9.9"}
    assert report["assumed"] == []
    assert report["database"]["path"] == "/app/databases/my.db.sqlite"
    # Without the option the device's own program is what ends.
    assert rehearse(device, NEWEST).report["reason"] == "program-broken"


def test_its_result_is_what_it_makes_here(device, other, other_device):
    plain(other)
    out = device.root / "out"
    out.mkdir()
    rehearse(device, NEWEST, "--root", "/other", "--result", "/out/result.sqlite",
             options=f"{other.options} --bind {out} /out")
    other_device.install(33)
    (other_device.app / "quillmoor" / "softwareversion.txt").write_text("9.9.9\n")
    assert other_device.migrate(NEWEST) == 0
    assert contents(out / "result.sqlite") == contents(other_device.database)


def test_an_update_that_would_lose_rows_is_told(device, other):
    plain(other)
    other.replace_program(LOSING)
    done = rehearse_other(device, other, NEWEST)
    assert (done.status, done.report["reason"]) == (4, "rows-lost")
    assert "rows-lost:growers" in done.codes()
    assert rehearse_other(device, other, NEWEST, "--strict").status == 3


def test_its_table_of_versions_judges(device, other):
    plain(other)
    known = json.loads((other.app / "schema-versions.json").read_text())
    known["newest"] = 20
    (other.app / "schema-versions.json").write_text(json.dumps(known))
    done = rehearse_other(device, other, NEWEST)
    assert (done.status, done.report["reason"]) == (3, "newer-than-program")
    assert done.report["software"]["program"] == 20


def test_what_is_the_other_systems_comes_before_what_is_the_devices(device, other):
    plain(other)
    (other.path / "etc" / "harlo").mkdir()
    (other.path / "etc" / "harlo" / "platform").write_text("TORVIKMAX\n")
    assert rehearse_other(device, other, NEWEST).report["given"]["platform"] == "TORVIKMAX"
    done = rehearse_other(device, other, NEWEST, "--platform", "TORVIK")
    assert done.report["given"]["platform"] == "TORVIK"


@pytest.mark.parametrize("end", ["", "\n", "\r\nx\n"])
def test_lines_are_read_as_the_program_does(device, other, end):
    plain(other)
    (device.root / "etc" / "harlo" / "platform").write_bytes(f"TORVIKMAX{end}".encode())
    (other.app / "quillmoor" / "softwareversion.txt").write_bytes(f"9.9.9{end}".encode())
    assert rehearse_other(device, other, NEWEST).report["given"] == {
        "platform": "TORVIKMAX", "softwareVersion": "9.9.9"}


@pytest.mark.parametrize("text", ["../data/refProducts.sql", "/data/refProducts.sql"])
def test_links_beside_the_program(device, other, text):
    """Where the directory is made again, because it lacks that of the databases."""
    (other.path / "data").mkdir()
    script = other.app / "refProducts.sql"
    script.rename(other.path / "data" / script.name)
    script.symlink_to(text)
    report = rehearse_other(device, other, NEWEST).report
    plain(other)
    assert report["log"] == rehearse_other(device, other, NEWEST).report["log"]
    script.unlink()
    assert report["log"] != rehearse_other(device, other, NEWEST).report["log"]


def test_no_number_of_links_leads_out(device, other):
    plain(other)
    (device.root / "Harlo" / "secret").write_text("Secret\n")
    directory = other.path / "etc" / "harlo"
    directory.mkdir()
    for number in range(1, 41):
        (directory / str(number)).symlink_to(str(number - 1))
    (directory / "0").symlink_to("/Harlo/secret")
    (directory / "platform").symlink_to("40")
    done = rehearse_other(device, other, NEWEST)
    assert "Secret" not in json.dumps(done.report)


def test_another_application_directory(device, other):
    other.app.rename(other.path / "opt")
    assert rehearse_other(device, other, NEWEST).report["reason"] == "program-broken"
    done = rehearse_other(device, other, NEWEST, "/app/databases/my.db.sqlite",
                          "--app-dir", "/opt")
    assert (done.status, done.report["to"]) == (0, NEWEST), done.errors


def test_no_other_root(device):
    device.install(33)
    run = device.run("rehearse", NEWEST, "--root", "/nowhere")
    assert (run.returncode, run.stdout) == (2, "")


CAMPAIGN = pytest.mark.skipif("CAMPAIGN" not in os.environ,
                              reason="makes a whole Debian and builds a program")


@pytest.fixture(scope="module")
def debian(tmp_path_factory):
    """A Debian with this program at two places. Its databases are on a partition that is not
    mounted."""
    if os.geteuid() != 0:
        pytest.skip("debootstrap needs root")
    root = tmp_path_factory.mktemp("other") / "debian"
    subprocess.run(
        ["debootstrap", "--variant=minbase",
         "--include=libqt5core5a,libqt5sql5,libqt5sql5-sqlite,libqt5xml5", "bookworm", root],
        check=True, stdout=subprocess.DEVNULL)
    for app in (root / "app", root / "opt" / "fieldcomputer"):
        (app / "quillmoor").mkdir(parents=True)
        (app / "databases").symlink_to("/data/databases")
        (app / "quillmoor" / "softwareversion.txt").write_text("9.9.9\n")
        for file in (PROGRAM, KNOWN_VERSIONS):
            shutil.copy2(file, app)
    return root


@pytest.fixture(scope="module")
def older_program(tmp_path_factory):
    """The program of these sources without their newest version."""
    sources = tmp_path_factory.mktemp("sources") / "older"
    shutil.copytree(ROOT, sources, ignore=shutil.ignore_patterns("build", ".git", "tests"))
    registry = sources / "app" / "registry.cpp"
    lines = registry.read_text(encoding="utf-8").splitlines(keepends=True)
    kept = [line for line in lines if not line.startswith(f"    {{{NEWEST}, &M::")]
    assert len(kept) == len(lines) - 1
    registry.write_text("".join(kept), encoding="utf-8")
    build = sources / "build"
    for command in (["-S", sources, "-B", build, "-DMIGRATION_GUARD=OFF"],
                    ["--build", build, "--target", PROGRAM.name]):
        subprocess.run(["cmake", *command], check=True, stdout=subprocess.DEVNULL)
    return build / PROGRAM.name


@pytest.fixture
def older_device(device, older_program):
    """A device that is at the newest version which its own program knows."""
    shutil.copy2(older_program, device.program)
    known = json.loads(KNOWN_VERSIONS.read_text())
    known["newest"] = NEWEST - 1
    del known["versions"][str(NEWEST)]
    (device.app / KNOWN_VERSIONS.name).write_text(json.dumps(known))
    device.install(1)
    assert device.run("run", NEWEST - 1).returncode == 0
    return device


def update(device, root):
    """Puts the other system's program and files into the place of this one's."""
    shutil.copytree(root / "app", device.app, symlinks=True, dirs_exist_ok=True,
                    ignore=shutil.ignore_patterns("databases"))
    for name in ("refMachines.sql", "refProducts.sql"):
        (device.app / name).unlink()


CALLS = [pytest.param((), id="as a hook calls it"),
         pytest.param(("/app/databases/my.db.sqlite", "--app-dir", "/opt/fieldcomputer"),
                      id="where the application has moved")]


@CAMPAIGN
@pytest.mark.parametrize("arguments", CALLS)
def test_a_debian_with_a_newer_program(older_device, debian, arguments):
    """The older program cannot reach the version, and its libraries are another system's."""
    own = rehearse(older_device, NEWEST).report
    assert (own["to"], own["reason"]) == (NEWEST - 1, "target-missed")
    assert own["software"]["program"] == NEWEST - 1
    before = Untouched(older_device.root)
    done = rehearse(older_device, NEWEST, *arguments, "--root", "/other",
                    options=f"--ro-bind {debian} /other")
    before.check()
    report = done.report
    assert (done.status, report["from"], report["to"]) == (0, NEWEST - 1, NEWEST), done.errors
    assert report["software"]["program"] == NEWEST
    assert report["given"]["softwareVersion"] == "9.9.9"
    update(older_device, debian)
    earlier = older_device.log_file.read_bytes()
    run = older_device.run("run", NEWEST)
    assert predicted(done) == ended(older_device, run, earlier)
