"""A simulated update engine. It works in the same order as RAUC: it writes the other slot, calls
the hook of the bundle, and then sets the boot loader's variables."""

from computer import ATTEMPTS, OTHER, choose_slot


class Engine:
    def __init__(self, computer, attempts=ATTEMPTS, rehearses=True):
        """attempts: how often the boot loader starts a system that was not found good yet"""
        self.computer = computer
        self.attempts, self.rehearses = attempts, rehearses

    def choose_slot(self):
        """The slot that the boot loader starts, and whether that is a trial boot."""
        return choose_slot(self.computer.environment)

    def install(self, running, system):
        """Installs a system; returns 0, or the status with which the hook refused it."""
        point = self.computer.power.point
        target = OTHER[running]
        point("before the installation")
        self.computer.environment.set(**{f"BOOT_{target}_LEFT": 0})
        self.computer.write(system, target, point)
        point("the new system is written")
        if self.rehearses:
            status, _ = self.computer.run(
                "the rehearsal", running, "/opt/rauc/hook", "slot-post-install", mounted=target,
                options=("--setenv", "RAUC_SLOT_MOUNT_POINT", "/mnt"))
            point("rehearsed")
            if status:
                return status
        self.activate(target)
        return 0

    def activate(self, slot):
        self.computer.environment.set(**{"BOOT_ORDER": f"{slot} {OTHER[slot]}",
                                         f"BOOT_{slot}_LEFT": self.attempts})
        self.computer.power.point("activated")

    def find_good(self, slot):
        """Marks the running system as good, at every start."""
        self.computer.environment.set(**{f"BOOT_{slot}_LEFT": ATTEMPTS})
        self.computer.power.point("half found good")
        self.computer.environment.set(good_slot=slot)
