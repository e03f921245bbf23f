"""Chromium, driven through two pipes: it needs no network, not even inside the machine."""

import json
import os
import select
import subprocess

PROGRAM = "/usr/bin/chromium"
# A page is there in less than a second, but a busy machine may take longer.
SECONDS = 120
# It reads commands from descriptor 3 and writes answers to descriptor 4.
ON_PIPES = 'exec "$@" 3<&"$COMMANDS" 4>&"$ANSWERS"'
ARGUMENTS = (
    "--headless=new", "--remote-debugging-pipe", "--disable-gpu", "--hide-scrollbars",
    "--no-first-run", "--disable-background-networking", "--disable-component-update",
    "--disable-dev-shm-usage", "--disable-breakpad",
    # Chromium's sandbox does not work for root, as in a container.
    "--no-sandbox")


class Chromium:
    """A browser with one page, and commands of the Chrome DevTools Protocol."""

    def __init__(self, folder):
        """folder: for its files, which would otherwise be in the user's home directory"""
        commands, self.commands = os.pipe()
        self.answers, answers = os.pipe()
        self.process = subprocess.Popen(
            ["bash", "-c", ON_PIPES, "bash", PROGRAM, *ARGUMENTS, f"--user-data-dir={folder}"],
            pass_fds=(commands, answers), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": str(folder), "XDG_CONFIG_HOME": str(folder),
                 "XDG_CACHE_HOME": str(folder), "COMMANDS": str(commands),
                 "ANSWERS": str(answers)})
        os.close(commands)
        os.close(answers)
        self.last = 0
        self.read = b""
        self.events = []
        self.session = {}
        target = self.command("Target.createTarget", url="about:blank")["targetId"]
        self.session = {"sessionId": self.command(
            "Target.attachToTarget", targetId=target, flatten=True)["sessionId"]}
        for domain in ("Page", "Runtime", "Log"):
            self.command(f"{domain}.enable")

    def close(self):
        self.session = {}
        self.command("Browser.close")
        self.process.wait(SECONDS)
        os.close(self.commands)
        os.close(self.answers)

    def command(self, method, **parameters):
        """The result of a command."""
        self.last += 1
        message = {"id": self.last, "method": method, "params": parameters, **self.session}
        rest = json.dumps(message).encode() + b"\0"
        while rest:
            rest = rest[os.write(self.commands, rest):]
        while True:
            answer = self.message()
            if answer.get("id") == self.last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def message(self):
        """The next message of the browser."""
        while b"\0" not in self.read:
            if not select.select([self.answers], [], [], SECONDS)[0]:
                raise TimeoutError("the browser does not answer")
            piece = os.read(self.answers, 1 << 20)
            if not piece:
                raise EOFError("the browser has ended")
            self.read += piece
        message, _, self.read = self.read.partition(b"\0")
        return json.loads(message)

    def open(self, address):
        """Shows a page; forgets the messages about the page before."""
        self.events.clear()
        self.command("Page.navigate", url=address)
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.message())

    def errors(self):
        """The browser's complaints about this page: scripts, loads, violated rules."""
        return [event["params"] for event in self.events if event.get("method") in (
            "Log.entryAdded", "Runtime.exceptionThrown", "Runtime.consoleAPICalled")]

    def run(self, script, *arguments):
        """The result of a function in JavaScript."""
        answer = self.command(
            "Runtime.evaluate", returnByValue=True,
            expression=f"(function() {{ {script} }}).apply(null, {json.dumps(arguments)})")
        if "exceptionDetails" in answer:
            raise RuntimeError(answer["exceptionDetails"])
        return answer["result"].get("value")
