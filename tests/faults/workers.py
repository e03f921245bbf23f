"""Workers on scratch devices of their own, and the tasks that they share."""

import json
import queue
import shutil
import subprocess
import threading
from contextlib import ExitStack, contextmanager, suppress

from support.device import Device
from support.places import DEMO, ROOT, TESTS, scratch_directory

PYTHON = "/usr/bin/python3"
SMALL_DISK = 16 * 1024 * 1024  # bytes for the largest database, its journal and the log


class Worker:
    def __init__(self, root, kept, subject, files):
        """kept: the folder that all workers share. subject: the module that worker.py runs. files:
        the files that it needs, by their place in the sandbox"""
        device = Device(root).make_folders()
        for file in (device.machines, device.products, device.registration):
            shutil.copy2(DEMO / file.name, file)
        options = [
            *(part for place, file in files.items() for part in ("--ro-bind", file, place)),
            "--ro-bind", TESTS, "/tests",
            # The worker reads the newest version from the registry.
            "--ro-bind", ROOT / "app" / "registry.cpp", "/app/registry.cpp",
            "--bind", kept, "/kept",
            "--size", SMALL_DISK, "--tmpfs", "/disk",
            "--setenv", "PYTHONPATH", "/tests:/tests/faults",
            "--setenv", "PYTHONDONTWRITEBYTECODE", "1"]
        self.busy = False
        self.process = device.start(
            PYTHON, "/tests/faults/worker.py", subject, options=" ".join(map(str, options)),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

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
def workers(number, *arguments):
    """This many workers. The arguments are those of a Worker, without its root."""
    with ExitStack() as started:
        devices = [started.enter_context(scratch_directory()) for _ in range(number)]
        running = []
        for device in devices:
            running.append(Worker(device, *arguments))
            started.callback(running[-1].end)
        yield running


def answers(started, tasks, is_over=lambda: False):
    """Each task with its answer, as they come. Once is_over() is true, no further task begins."""
    waiting, done = queue.SimpleQueue(), queue.SimpleQueue()
    for task in tasks:
        waiting.put(task)

    def work(worker):
        try:
            while not is_over():
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
