# SPDX-License-Identifier: BSD-3-Clause
"""What a document tells its reader to type, and what it says that is printed.

A fenced block of kind `console` has commands after "$ ", a backslash continues one, and their output. One of
kind `testpmd` has the same after testpmd's prompt. One of kind `sh` has commands that only prepare.
"""

import os
import re
import select
import subprocess
import time

BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
PROMPT = {"console": "$ ", "testpmd": "testpmd> "}
MARKER = "-- end of a command --"


def blocks(text):
    """(kind, text) of all fenced blocks, in order."""
    return BLOCK.findall(text)


def commands(kind, block):
    """(command, lines that it prints) of a block of one of the kinds above."""
    if kind == "sh":
        for command in block.replace("\\\n", "").splitlines():
            yield command, ["..."]
        return
    for part in re.split("^" + re.escape(PROMPT[kind]), block, flags=re.MULTILINE)[1:]:
        command, *lines = part.split("\n")
        while command.endswith("\\"):
            command = command[:-1] + lines.pop(0).lstrip("> ")
        yield command, lines[:-1]


def matches(printed, documented):
    """Line by line; a line of three dots stands for any number of lines."""
    pattern = "".join("(?:.*\n)*" if line == "..." else re.escape(line) + "\n" for line in documented)
    return re.fullmatch(pattern, printed) is not None


class Shell:
    """One bash that is given a document's commands, so that what one sets the next one has."""

    def __init__(self, prefix=(), timeout=120, **options):
        script, self.script = os.pipe()
        self.timeout = timeout
        self.process = subprocess.Popen(
            [*prefix, "bash", "--norc", f"/dev/fd/{script}"], pass_fds=[script], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, **options)
        os.close(script)
        self.printed = ""
        self.status = 0

    def close(self):
        """Ends the shell, which ends its background commands first."""
        os.write(self.script, b"kill $(jobs -p) 2>/dev/null; wait\n")
        os.close(self.script)
        self.process.communicate(timeout=self.timeout)

    def run(self, command, documented):
        """What the command printed; of one that goes on in the background, what it printed until that is as
        documented, or until time is up. Leaves its exit status in `status`."""
        deadline = time.monotonic() + self.timeout
        os.write(self.script, f"{command}\necho '{MARKER}' $?\n".encode())
        while not (end := re.search(MARKER + r" (\d+)\n", self.printed)):
            self._read(deadline)
        self.status = int(end[1])
        printed, self.printed = self.printed[:end.start()], self.printed[end.end():]
        if command.endswith("&"):
            self.printed = printed + self.printed
            while not matches(self.printed, documented):
                self._read(deadline)
            printed, self.printed = self.printed, ""
        return printed

    def _read(self, deadline):
        ready, _, _ = select.select([self.process.stdout], [], [], max(0, deadline - time.monotonic()))
        part = os.read(self.process.stdout.fileno(), 65536).decode(errors="replace") if ready else ""
        if not part:
            raise TimeoutError("the shell is silent; since the last command it said:\n" + self.printed)
        self.printed += part
