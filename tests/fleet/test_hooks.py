"""The commands that the hooks of update engines call, and how they act on the guard's exit
status."""

import json
import shutil
import subprocess

import pytest
import systems
from systems import APPLICATION, ENGINES, NEWEST, OLD_VERSION

TOOLS = ("cp", "grep", "jq", "mktemp", "rm", "rmdir", "sed", "timeout", "tr", "wc")
# It ends with its statuses in turn, and after the last one with that one again.
GUARD = '''#!/bin/sh
echo "$@" >>/data/calls
read -r status </data/status
[ "$(wc -l </data/status)" -eq 1 ] || sed -i 1d /data/status
exit "$status"
'''
# Pretends that the new system, which stays at /mnt, is on a device.
MOUNT = '#!/bin/sh\necho "mount $*" >>/data/calls\n[ ! -e /data/broken ] && cp -r /mnt/. "$4"\n'
UMOUNT = '#!/bin/sh\necho "umount" >>/data/calls\nrm -r "$1"/*\n'
PRINTENV = '#!/bin/sh\necho "$1=$(cat /data/part)"\n'
CONFIGURATION = (ENGINES / "mender" / "mender.conf").read_text()


@pytest.fixture(scope="module")
def root(folder):
    system = systems.System(folder / "system-of-hooks", OLD_VERSION, TOOLS)
    (system.root / "etc/mender").mkdir()
    (system.root / "etc/mender/mender.conf").write_text(CONFIGURATION)
    return system.root


class Place:
    """A running system and a new one at /mnt, with a guard that only notes how it was called."""

    def __init__(self, folder, root):
        self.root, self.data = root, folder / "data"
        self.running, self.new = folder / "application", folder / "new"
        self.stubs = folder / "stubs"
        for path in (self.data / "databases", self.running, self.new / APPLICATION, self.stubs):
            path.mkdir(parents=True)
        for application, version in ((self.running, OLD_VERSION),
                                     (self.new / APPLICATION, NEWEST)):
            shutil.copy2(ENGINES / "update-check", application)
            (application / "schemaversion.txt").write_text(f"{version}\n")
            self.script(application / "migration-guard", GUARD)
        (self.running / "databases").symlink_to("/data/databases")
        for name, text in (("mount", MOUNT), ("umount", UMOUNT), ("fw_printenv", PRINTENV)):
            self.script(self.stubs / name, text)
        (self.data / "part").write_text("2")

    def script(self, path, text):
        path.write_text(text)
        path.chmod(0o755)

    def run(self, *command, guard=0, variables=(), options=()):
        """Runs a command of the running system; returns its status and what it has printed.

        guard: the status with which the guard ends, or those of its calls
        options: more options for bubblewrap
        """
        statuses = guard if isinstance(guard, tuple) else (guard,)
        (self.data / "status").write_text("".join(f"{status}\n" for status in statuses))
        settings = [option for variable in variables for option in ("--setenv", *variable)]
        result = subprocess.run(
            ["bwrap", "--die-with-parent", "--unshare-pid", "--clearenv",
             "--setenv", "PATH", "/tmp/stubs:/usr/bin", *settings,
             "--ro-bind", self.root, "/", "--ro-bind", self.running, f"/{APPLICATION}",
             "--ro-bind", self.new, "/mnt", "--bind", self.data, "/data",
             "--ro-bind", ENGINES, "/opt", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp",
             "--ro-bind", self.stubs, "/tmp/stubs", *options, "--", *command],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return result.returncode, result.stdout

    def calls(self):
        file = self.data / "calls"
        return file.read_text().splitlines() if file.exists() else []


@pytest.fixture
def place(tmp_path, root):
    return Place(tmp_path, root)


INSTALL = (f"/mnt/{APPLICATION}/update-check", "install", "/mnt")
START = (f"/{APPLICATION}/update-check", "start")
RETURN = (f"/{APPLICATION}/update-check", "return", "/mnt")
REHEARSE = f"rehearse --strict --root /mnt {NEWEST}"
REHEARSE_HARM = f"rehearse --root /mnt --accept direct:no-room {NEWEST}"


@pytest.mark.parametrize("guard, status", [
    (0, 0), (1, 1), (2, 4), ((3, 0), 3), ((3, 1), 1), ((3, 2), 4), ((3, 3), 3), ((3, 4), 4), (4, 4),
    (127, 127)])
def test_status_of_the_rehearsals(place, guard, status):
    """The first one cannot tell an update that does harm from a device that cannot migrate now."""
    assert place.run(*INSTALL, guard=guard)[0] == status
    assert place.calls() == [REHEARSE, REHEARSE_HARM][:2 if isinstance(guard, tuple) else 1]


def test_what_the_first_start_would_not_do_is_told(place):
    assert place.run(*INSTALL, guard=(3, 0)) == (
        3, "update-check: not now: the first start would change nothing and end with 3\n")


@pytest.mark.parametrize("command, call", [
    pytest.param(START, "run --strict", id="start"),
    pytest.param(RETURN, f"run --strict {NEWEST}", id="return"),
])
@pytest.mark.parametrize("guard, status", [(0, 0), (1, 1), (2, 4), (3, 3), (4, 4), (127, 127)])
def test_status_of_the_guard(place, command, call, guard, status):
    assert place.run(*command, guard=guard)[0] == status
    assert place.calls() == [call]


def test_accepted_findings_are_those_of_the_new_system(place):
    (place.new / APPLICATION / "accepted-findings").write_text("rows-lost:growers\n\ndamaged\n")
    assert place.run(*INSTALL)[0] == 0
    (place.running / "accepted-findings").write_text("rows-lost:farms")
    assert place.run(*START)[0] == 0
    assert place.run(*RETURN)[0] == 0
    assert place.calls() == [
        f"rehearse --strict --root /mnt --accept rows-lost:growers --accept damaged {NEWEST}",
        "run --strict --accept rows-lost:farms", f"run --strict {NEWEST}"]


@pytest.mark.parametrize("version, status", [
    pytest.param(None, 4, id="no word about them"),
    pytest.param(OLD_VERSION, 4, id="they have another version"),
    pytest.param(NEWEST, 0, id="they have the same version"),
])
def test_update_of_a_system_without_a_guard(place, version, status):
    (place.running / "migration-guard").unlink()
    (place.data / "databases/my.db.sqlite").write_text("rows")
    if version:
        (place.new / APPLICATION / "version-without-guard").write_text(f"{version}\n")
    assert place.run(*INSTALL)[0] == status
    assert place.calls() == []


@pytest.mark.parametrize("empty", [False, True], ids=["no database", "a database of 0 bytes"])
def test_system_without_a_guard_and_without_a_database(place, empty):
    """The first start of the new system would end with 3 there."""
    (place.running / "migration-guard").unlink()
    (place.new / APPLICATION / "version-without-guard").write_text(f"{NEWEST}\n")
    if empty:
        (place.data / "databases/my.db.sqlite").touch()
    assert place.run(*INSTALL)[0] == 3
    assert place.calls() == []


def test_two_missing_versions_are_not_the_same(place):
    (place.running / "migration-guard").unlink()
    (place.new / APPLICATION / "schemaversion.txt").unlink()
    assert place.run(*INSTALL)[0] == 4


def test_the_running_systems_own_file_is_refused(place):
    """As where a link in the new system leads out of it."""
    assert place.run(START[0], "install", "/mnt")[0] == 4
    assert place.calls() == []


@pytest.mark.parametrize("running, new", [("2", "/dev/mmcblk0p12"), ("12", "/dev/mmcblk0p2")])
def test_partitions_whose_numbers_end_alike(place, root, running, new):
    configuration = root / "etc/mender/mender.conf"
    configuration.write_text(CONFIGURATION.replace("mmcblk0p3", "mmcblk0p2").replace(
        "mmcblk0p2", "mmcblk0p12", 1))
    try:
        (place.data / "part").write_text(running)
        assert place.run(MENDER_INSTALL)[0] == 0
    finally:
        configuration.write_text(CONFIGURATION)
    assert place.calls()[0].startswith(f"mount -o ro {new} ")


@pytest.mark.parametrize("arguments", [(), ("install",), ("start", "/mnt"), ("return",), ("x",)])
def test_wrong_call_is_refused(place, arguments):
    status, output = place.run(START[0], *arguments)
    assert (status, output.startswith("update-check: usage:")) == (4, True)
    assert place.calls() == []


def test_accepted_findings_are_those_of_both_rehearsals(place):
    (place.new / APPLICATION / "accepted-findings").write_text("damaged\n")
    assert place.run(*INSTALL, guard=(3, 4))[0] == 4
    assert place.calls() == [
        f"rehearse --strict --root /mnt --accept damaged {NEWEST}",
        f"rehearse --root /mnt --accept direct:no-room --accept damaged {NEWEST}"]


@pytest.mark.parametrize("guard, status, output", [
    (0, 0, ""), (1, 1, "the update could not be rehearsed: try again later\n"),
    (3, 3, "the update could not be rehearsed: try again later\n"),
    ((3, 4), 4, "this update is not for the database of this device\n"),
    (4, 4, "this update is not for the database of this device\n"),
    (137, 137, "the update could not be rehearsed: try again later\n")])
def test_hook_of_a_rauc_bundle(place, guard, status, output):
    assert place.run("/opt/rauc/hook", "slot-post-install", guard=guard, variables=[
        ("RAUC_SLOT_MOUNT_POINT", "/mnt")]) == (status, output)
    assert place.calls()[0] == REHEARSE


def test_hook_of_a_rauc_bundle_refuses_a_system_without_update_check(place):
    (place.new / APPLICATION / "update-check").unlink()
    assert place.run("/opt/rauc/hook", "slot-post-install", variables=[
        ("RAUC_SLOT_MOUNT_POINT", "/mnt")]) == (4, "the new system has no update-check\n")


def test_hook_of_a_rauc_bundle_knows_no_other_call(place):
    assert place.run("/opt/rauc/hook", "x") == (1, "unknown hook: x\n")


MENDER_INSTALL = "/opt/mender/ArtifactInstall_Enter_50_rehearse"
MENDER_COMMIT = "/opt/mender/ArtifactCommit_Enter_50_database"


@pytest.mark.parametrize("guard, status", [
    (0, 0), (1, 21), (2, 1), (3, 21), ((3, 4), 1), (137, 21)])
@pytest.mark.parametrize("running, new", [("2", "/dev/mmcblk0p3"), ("3", "/dev/mmcblk0p2")])
def test_mender_rehearses_in_the_other_partition(place, running, new, guard, status):
    (place.data / "part").write_text(running)
    assert place.run(MENDER_INSTALL, guard=guard)[0] == status
    mounted, rehearsed, *_, unmounted = place.calls()
    path = mounted.split()[-1]
    assert mounted == f"mount -o ro {new} {path}"
    assert (rehearsed, unmounted) == (f"rehearse --strict --root {path} {NEWEST}", "umount")


def test_mender_refuses_a_system_without_update_check(place):
    (place.new / APPLICATION / "update-check").unlink()
    assert place.run(MENDER_INSTALL) == (1, "the new system has no update-check\n")
    assert place.calls()[-1] == "umount"


def test_mender_does_not_commit_a_system_without_update_check(place):
    (place.running / "update-check").unlink()
    assert place.run(MENDER_COMMIT) == (1, "this system has no update-check\n")


def test_mender_tries_later_when_the_new_system_cannot_be_mounted(place):
    (place.data / "broken").touch()
    assert place.run(MENDER_INSTALL)[0] == 21


def test_mender_tries_later_when_the_boot_loader_does_not_answer(place):
    place.script(place.stubs / "fw_printenv", "#!/bin/sh\nexit 1\n")
    assert place.run(MENDER_INSTALL)[0] == 21
    assert place.calls() == []


@pytest.mark.parametrize("guard, status", [(0, 0), (1, 21), (2, 1), (3, 21), (137, 21)])
def test_mender_commits_what_the_guard_finds_good(place, guard, status):
    assert place.run(MENDER_COMMIT, guard=guard)[0] == status
    assert place.calls() == ["run --strict"]


class Start:
    """A start of a system with RAUC, whose command and U-Boot's tools note how they are called."""

    def __init__(self, place, options):
        """options: of the kernel"""
        self.place = place
        for name in ("rauc", "systemctl", "fw_printenv", "fw_setenv"):
            self.answer(name)
        self.line = place.data / "cmdline"
        self.line.write_text(f"quiet {options}\n")

    def answer(self, name, status=0, output=""):
        """Sets how a tool ends and what it prints."""
        self.place.script(self.place.stubs / name,
                          f'#!/bin/sh\necho "{name} $*" >>/data/calls\n'
                          f'echo "{output}"\nexit {status}\n')

    def find_good(self):
        return self.place.run("/opt/rauc/update-good", options=(
            "--ro-bind", self.line, "/proc/cmdline"))[0]


ASKS = "systemctl --quiet is-active boot-complete.target"
FINDS = ["rauc status mark-good", "fw_printenv good_slot"]
SETS = "fw_setenv good_slot B"
ORDINARY, TRIAL = "rauc.slot=B", "rauc.slot=B trial-boot"


@pytest.mark.parametrize("options, good, calls", [
    pytest.param(ORDINARY, "", [*FINDS, SETS], id="a factory-new device"),
    pytest.param(ORDINARY, "good_slot=B", FINDS, id="an ordinary start"),
    pytest.param(TRIAL, "good_slot=A", [ASKS, *FINDS, SETS], id="a trial boot"),
    pytest.param(TRIAL, "good_slot=B", [ASKS, *FINDS], id="a trial boot of the good system"),
])
def test_start_is_found_good(place, options, good, calls):
    start = Start(place, options)
    start.answer("fw_printenv", 0 if good else 1, good)
    assert start.find_good() == 0
    assert place.calls() == calls


@pytest.mark.parametrize("tool, calls", [
    ("systemctl", [ASKS]), ("rauc", [ASKS, *FINDS[:1]]), ("fw_setenv", [ASKS, *FINDS, SETS])])
def test_only_a_trial_boot_fails(place, tool, calls):
    trial = Start(place, TRIAL)
    trial.answer(tool, 1)
    assert (trial.find_good(), place.calls()) == (1, calls)
    ordinary = Start(place, ORDINARY)
    ordinary.answer(tool, 1)
    assert ordinary.find_good() == 0


@pytest.mark.parametrize("options, status", [("", 0), ("trial-boot", 1), ("no-trial-boot", 0)])
def test_start_without_a_slot(place, options, status):
    assert Start(place, options).find_good() == status
    assert "rauc status mark-good" not in place.calls()


def run_of(status, **more):
    return {"command": "run", "from": 30, "to": 34, "target": 34, "way": "guarded",
            "changed": True, "status": status, "software": {"guard": "1.0.0", "program": 34},
            "measured": {}, **more}


def test_inventory_has_the_ends_of_runs_and_what_counts(place):
    findings = [{"code": "rows-lost:growers", "counts": True}, {"code": "damaged", "counts": True},
                {"code": "reapplied:30", "counts": False}]
    (place.data / "databases" / "lastMigration.json").write_text(json.dumps({
        "format": 1, "lastRun": run_of(0),
        "lastChange": run_of(4, reason="rows-lost", verdict={"findings": findings})}))
    assert place.run("/opt/mender/mender-inventory-migration") == (0, """\
last_run_from=30
last_run_to=34
last_run_target=34
last_run_way=guarded
last_run_status=0
last_migration_from=30
last_migration_to=34
last_migration_target=34
last_migration_way=guarded
last_migration_status=4
last_migration_reason=rows-lost
last_migration_finding=rows-lost:growers
last_migration_finding=damaged
migration_software_guard=1.0.0
migration_software_program=34
""")


def test_inventory_of_a_new_device_is_empty(place):
    assert place.run("/opt/mender/mender-inventory-migration") == (0, "")
