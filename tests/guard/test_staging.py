"""Where the program works: a staging area that is full must never look like success."""

import os

import pytest
from conftest import contents
from support.versions import NEWEST

MIB = 1 << 20
# Fills the staging area until only this many bytes are free, runs the program, and gives the room
# back.
WITHOUT_ROOM = """
free=$(($(stat -f -c '%a * %S' "$TMPDIR")))
if [ $free -lt 100000000 ]; then
    [ $free -le {room} ] || fallocate -l $((free - {room})) "$TMPDIR/ballast"
fi
/app/migrator "$@"
rm -f "$TMPDIR/ballast"
"""


def small(size):
    return f"--size {size} --tmpfs /small"


def test_staging_is_memory_of_its_own(device):
    device.install(1)
    device.replace_program('stat -f -c %T "$TMPDIR" >/app/type; /app/migrator "$@"')
    assert device.migrate(NEWEST) == 0
    assert (device.app / "type").read_text() == "tmpfs\n"
    assert device.last_run()["staging"] == "memory"


# The scratch device is in memory; the directories of pytest are on the disk.


def test_staging_can_be_on_the_disk(device, expected, tmp_path):
    device.install(1)
    options = f"--bind {tmp_path} /app/work"
    assert device.migrate(NEWEST, "--staging", "/app/work", options=options) == 0
    assert device.last_run()["staging"] == "disk"
    assert device.contents() == expected(1, NEWEST)[0]
    assert list(tmp_path.iterdir()) == []


def test_a_directory_that_is_only_called_memory_is_the_disk(device, tmp_path):
    """Early in the boot /dev/shm may be a directory on flash."""
    device.install(1)
    options = f"--bind {tmp_path} /dev/shm"
    assert device.migrate(NEWEST, "--staging", "/dev/shm", options=options) == 0
    assert device.last_run()["staging"] == "disk"


def test_it_does_without_shared_memory(device):
    device.install(1)
    assert device.migrate(NEWEST, options="--perms 0000 --size 4096 --tmpfs /dev/shm") == 0
    assert device.last_run()["staging"] == "memory"


@pytest.mark.parametrize("room", [0, 4096, 20_000, 40_000, 80_000, 160_000, 320_000, 640_000, MIB,
                                  1_300_000, 2 * MIB, 4 * MIB])
@pytest.mark.parametrize("strict", [(), ("--strict",)])
def test_a_result_without_room_is_never_committed(device, expected, room, strict):
    device.install(1)
    device.replace_program(WITHOUT_ROOM.format(room=room))
    assert device.migrate(NEWEST, "--staging", "/small", *strict, options=small(16 * MIB)) == 0
    content, log = expected(1, NEWEST)
    assert device.contents() == content
    assert device.log() == log
    assert device.last_run()["staging"] == ("memory" if room >= 2 * MIB else "disk")


@pytest.mark.parametrize("size", [64 * 1024, 300_000, 400_000, 740_000, 780_000, MIB, 3 * MIB,
                                  6 * MIB, 7 * MIB, 16 * MIB])
def test_a_small_staging_area_is_not_used(device, expected, size):
    device.install(1)
    assert device.migrate(NEWEST, "--staging", "/small", options=small(size)) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert device.last_run()["staging"] == ("memory" if size >= 7 * MIB else "disk")


def test_without_room_anywhere_nothing_is_changed(device):
    """Neither memory nor the disk has room for staging, and the disk has none for a direct run."""
    device.install(1)
    before = device.contents()
    options = ("--ro-bind {0}/meminfo /proc/meminfo --size 1300000 --tmpfs /app/databases "
               "--ro-bind {0}/shell /app/shell --ro-bind /usr/bin/dash /usr/bin/dash")
    (device.app / "meminfo").write_text("MemTotal: 60000 kB\nMemAvailable:      60000 kB\n")
    (device.app / "start").mkdir()
    device.database.rename(device.app / "start" / "my.db.sqlite")
    (device.app / "shell").write_text(
        "#!/usr/bin/dash\ncp /app/start/my.db.sqlite /app/databases/\n"
        'cd /app && ./migration-guard run "$@"; status=$?\n'
        "cp /app/databases/my.db.sqlite /app/start/; exit $status\n")
    (device.app / "shell").chmod(0o755)
    run = device.run(NEWEST, guard="/app/shell", options=options.format(device.app))
    assert run.returncode == 3, run.stderr
    assert "not changed, no-room (for staging)" in run.stderr
    assert contents(device.app / "start" / "my.db.sqlite") == before


@pytest.mark.parametrize("words", ["database or disk is full", "disk I/O error", "out of memory"])
def test_words_of_lack_of_room_in_the_log_throw_the_result_away(device, expected, words):
    device.install(1)
    before = device.contents()
    device.replace_program(
        f'/app/migrator "$@"; echo "{words} Unable to fetch row" '
        '>>/app/databases/sqlMigrationErrorLog.txt')
    assert device.migrate(NEWEST, "--strict") == 3
    assert device.last_run()["reason"] == "no-room"
    assert (device.contents(), device.log()) == (before, "")


def test_too_little_memory_stages_on_the_disk(device):
    device.install(1)
    (device.app / "meminfo").write_text("MemTotal: 60000 kB\nMemAvailable:      60000 kB\n")
    options = f"--ro-bind {device.app}/meminfo /proc/meminfo"
    run = device.run("run", NEWEST, options=options)
    assert run.returncode == 0
    assert device.last_run()["staging"] == "disk"
    assert "not enough memory" in run.stderr


def test_a_run_that_died_in_memory_is_followed_by_one_on_the_disk(device):
    device.install(1)
    before = device.contents()
    device.replace_program("[ -e /app/healthy ] || kill -9 $$; exec /app/migrator \"$@\"")
    for staging in ("memory", "disk"):
        assert device.migrate(NEWEST) == 3
        assert (device.last_run()["reason"], device.contents()) == ("program-broken", before)
        assert f'"staging":"{staging}"' in device.note.read_text()
    (device.app / "healthy").touch()
    assert device.migrate("--strict", NEWEST, "--wait", "1") == 0
    assert device.last_run()["staging"] == "disk"
    assert not device.note.exists()


def test_after_two_failures_the_program_is_run_directly(device, expected):
    device.install(1)
    device.replace_program("[ -e /app/healthy ] || kill -9 $$; exec /app/migrator \"$@\"")
    for _ in range(2):
        assert device.migrate(NEWEST) == 3
    (device.app / "healthy").touch()
    assert device.migrate(NEWEST) == 4
    assert device.last_run()["way"] == "direct"
    assert device.last_run()["reason"] == "earlier-runs-failed"
    assert device.contents() == expected(1, NEWEST)[0]
    assert device.migrate(NEWEST) == 0
    assert device.last_run()["staging"] == "memory"


def test_a_power_cut_does_not_lead_to_a_direct_run(device):
    """The note is that of a run on the disk, before the device was started again."""
    device.install(1)
    device.note.write_text('{"staging":"disk","failed":false,"boot":"another","schemaCookie":-1}')
    assert device.migrate(NEWEST) == 0
    assert device.last_run()["staging"] == "disk"


def test_a_boot_that_cannot_be_told_is_another_one(device):
    """Two runs that both could not read the boot's identifier do not count as runs of one boot."""
    device.install(1)
    device.note.write_text('{"staging":"disk","failed":false,"boot":"","runsInARow":2}')
    options = "--ro-bind /dev/null /proc/sys/kernel/random/boot_id"
    assert device.migrate(NEWEST, options=options) == 0
    assert device.last_run()["way"] == "guarded"


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_files_of_others_in_the_staging_directory_are_left_alone(device):
    device.install(1)
    (device.app / "work").mkdir()
    precious = device.app / "precious"
    precious.mkdir()
    (precious / "file").write_text("x")
    # There is a link where the guard would make its directory.
    probe = device.start("run", NEWEST, "--staging", "/app/work")
    probe.communicate()
    import hashlib
    name = "migration-guard." + hashlib.sha1(b"/app/databases").hexdigest()
    (device.app / "work" / name).symlink_to("../precious")
    device.migrate(1, "--staging", "/app/work")
    assert (precious / "file").exists()


@pytest.mark.parametrize("place", ["/app/missing", "/app/database-migrator"])
def test_staging_that_is_no_directory_is_a_wrong_call(device, place):
    device.install(1)
    before = device.contents()
    assert device.migrate(NEWEST, "--staging", place) == 2
    assert (device.contents(), device.log()) == (before, "")


def test_one_failure_on_the_disk_is_followed_by_another_guarded_run(device, expected):
    device.install(1)
    (device.app / "work").mkdir()
    device.replace_program("[ -e /app/healthy ] || kill -9 $$; exec /app/migrator \"$@\"")
    assert device.migrate(NEWEST, "--staging", "/app/work") == 3
    (device.app / "healthy").touch()
    assert device.migrate(NEWEST, "--staging", "/app/work") == 0
    assert device.last_run()["way"] == "guarded"
    assert device.contents() == expected(1, NEWEST)[0]


def test_a_note_cannot_name_a_file_outside_the_pool(device):
    device.install(1)
    outside = "..%2F..%2F..%2F..%2Fapp%2FrefMachines.sql"
    device.note.write_text('{"staging":"memory","boot":"another","schemaCookie":-1,'
                           f'"poolFiles":["{outside}","readme.txt"]}}')
    assert device.migrate(NEWEST) == 0
    assert (device.app / "refMachines.sql").exists()
    assert "readme.txt" not in device.pool_files()
