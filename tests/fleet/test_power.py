"""A power cut ends everything, whenever it comes."""

import pytest
from power import Moment, Power, PowerCut, children

COMMAND = ("bwrap", "--die-with-parent", "--unshare-pid", "--ro-bind", "/", "/", "--proc", "/proc",
           "--dev", "/dev", "sh", "-c", "sleep 1000 & sleep 1000")


def test_nothing_is_left_of_a_sandbox():
    for number in range(60):
        # Most of these come while bubblewrap prepares the sandbox.
        power = Power([Moment("a command", 1)], {"a command": 0.0002 * number})
        with pytest.raises(PowerCut):
            power.run("a command", COMMAND)
        assert children() == []
