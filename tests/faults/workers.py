"""Workers on scratch devices of their own, and the tasks that they share."""

import json
import os
import pathlib
import queue
import shutil
import subprocess
import tempfile
import threading
import time
from contextlib import contextmanager, suppress

TESTS = pathlib.Path(__file__).parent.parent
MEMORY = pathlib.Path("/dev/shm")
PYTHON = "/usr/bin/python3"
SMALL_DISK = 16 * 1024 * 1024  # room for the largest database, its journal and the log


class Worker:
    def __init__(self, device, kept, program, shim):
        for file in ("refMachines.sql", "refProducts.sql"):
            (device / "app").mkdir(exist_ok=True)
            shutil.copy2(TESTS / "data" / "demo" / file, device / "app")
        (device / "Harlo").mkdir(exist_ok=True)
        shutil.copy2(TESTS / "data" / "demo" / "registration.xml", device / "Harlo")
        shutil.copy2(shim, device / "shim.so")
        options = [
            "--ro-bind", program, "/app/database-migrator", "--ro-bind", TESTS / "faults", "/code",
            "--ro-bind", device / "shim.so", "/faults/shim.so", "--bind", kept, "/kept",
            "--size", SMALL_DISK, "--tmpfs", "/disk",
            "--setenv", "PYTHONPATH", "/code", "--setenv", "PYTHONDONTWRITEBYTECODE", "1"]
        environment = dict(os.environ, DEVICE_OPTIONS=" ".join(map(str, options)))
        self.busy = False
        self.process = subprocess.Popen(
            [TESTS / "support" / "on_device.sh", device, PYTHON, "/code/worker.py"],
            env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def answer(self, task):
        self.busy = True
        self.process.stdin.write(json.dumps(task) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        self.busy = False
        if not line:
            raise ChildProcessError(f"a worker ended in {task}")
        return json.loads(line)

    def end(self):
        if self.busy:
            self.process.terminate()  # Nobody waits for the answer any more.
        with suppress(BrokenPipeError):
            self.process.stdin.close()
        self.process.wait()


@contextmanager
def workers(number, kept, program, shim):
    with tempfile.TemporaryDirectory(prefix="faults.", dir=MEMORY) as devices:
        started = []
        try:
            for i in range(number):
                device = pathlib.Path(devices, str(i))
                device.mkdir()
                started.append(Worker(device, kept, program, shim))
            yield started
        finally:
            for worker in started:
                worker.end()


def answers(started, tasks, end=float("inf")):
    """Yields each task with its answer, as they come; none is begun after the end."""
    waiting, done = queue.SimpleQueue(), queue.SimpleQueue()
    for task in tasks:
        waiting.put(task)

    def work(worker):
        try:
            while time.monotonic() < end:
                task = waiting.get_nowait()
                done.put((task, worker.answer(task)))
        except queue.Empty:
            pass
        except ChildProcessError as error:
            done.put(error)
        done.put(None)

    threads = [threading.Thread(target=work, args=(worker,), daemon=True) for worker in started]
    for thread in threads:
        thread.start()
    running = len(threads)
    while running:
        item = done.get()
        if item is None:
            running -= 1
        elif isinstance(item, Exception):
            raise item
        else:
            yield item
