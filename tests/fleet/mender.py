"""Mender's client as it is, in standalone mode: artifacts, and the installation on loop devices."""

import re
import shutil

from computer import OTHER
from loop_computer import SYSTEM_SIZE, LoopComputer, make_image, run
from support.places import TESTS
from systems import ENGINES

COMMANDS = ("mender", "mount", "umount", "cp", "grep", "mv", "sync", "sed", "mktemp", "rmdir",
            "stat", "rm")
FILES = TESTS / "fleet" / "system"
EXAMPLES = ENGINES / "mender"
DEVICE_TYPE = "field-computer"
BOOT_LIMIT = 1


def configure(system, name):
    """What an image builder adds to a system for Mender."""
    etc = system.root / "etc" / "mender"
    etc.mkdir()
    shutil.copy(EXAMPLES / "mender.conf", etc)
    (etc / "artifact_info").write_text(f"artifact_name={name}\n")
    (system.root / "var/lib").mkdir(parents=True)
    (system.root / "var/lib/mender").symlink_to("/data/mender")
    for tool in ("fw_printenv", "fw_setenv"):
        shutil.copy(FILES / tool, system.root / "usr/bin")


def make_artifact(folder, image, name, has_scripts):
    artifact = folder / f"{name}.mender"
    scripts = [f"--script={file}" for file in sorted(EXAMPLES.glob("Artifact*"))] \
        if has_scripts else []
    run("mender-artifact", "write", "rootfs-image", f"--file={image}", f"--artifact-name={name}",
        f"--device-type={DEVICE_TYPE}", "--compression=none", "--no-progress",
        f"--output-path={artifact}", *scripts)
    return artifact
