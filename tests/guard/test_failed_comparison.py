"""A comparison that fails: the run is made again on the disk, and after that nothing changes."""

from support.versions import NEWEST

# The guard compares nothing that has a journal beside it.
NOT_AT_REST = """
/app/migrator "$@"
[ -e /app/once ] && [ -e /app/tried ] && exit
touch /app/tried
cp /app/databases/my.db.sqlite /app/databases/my.db.sqlite-journal
"""


def test_a_comparison_that_fails_in_memory_is_made_on_the_disk(device, expected):
    device.install(1)
    device.replace_program(NOT_AT_REST)
    (device.app / "once").touch()
    run = device.run("run", NEWEST)
    assert (run.returncode, device.last_run()["staging"]) == (0, "disk"), run.stderr
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert not device.note.exists()


def test_a_comparison_that_fails_on_the_disk_changes_nothing(device):
    device.install(1)
    before = device.contents()
    device.replace_program(NOT_AT_REST)
    assert device.migrate(NEWEST) == 3
    last = device.last_run()
    assert (last["reason"], last["staging"]) == ("comparison-failed", "disk")
    assert (device.contents(), device.log()) == (before, "")
    assert not device.note.exists()
