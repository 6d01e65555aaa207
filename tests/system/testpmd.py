# SPDX-License-Identifier: BSD-3-Clause
"""Drives the distribution's dpdk-testpmd, command by command, on a pseudo terminal."""

import os
import pty
import re
import select
import shutil
import subprocess
import tempfile
import time

PROMPT = "testpmd> "
ESCAPES = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]")


class Testpmd:
    """A running testpmd; a context manager that ends it with `quit`.

    The distribution's with the plugin, or the one that VASK_TESTPMD names, which has the driver built in.
    """

    def __init__(self, vdevs, options=(), plugin=None, eal=(), mbufs=8192, timeout=60):
        self.prefix = f"testpmd{os.getpid()}_{time.monotonic_ns()}"
        self.timeout = timeout
        self.master, slave = pty.openpty()
        built_in = os.environ.get("VASK_TESTPMD")
        plugin = plugin or os.environ["VASK_PLUGIN"]
        cpus = sorted(os.sched_getaffinity(0))
        command = [
            built_in or shutil.which("dpdk-testpmd"), "--no-huge", "--no-pci", "-m", "256",
            "--lcores", f"0@{cpus[0]},1@{cpus[-1]}", "--file-prefix", self.prefix,
            *([] if built_in else ["-d", os.path.basename(plugin)]),
            *eal, *(f"--vdev={v}" for v in vdevs),
            "--", "-i", "--no-flush-rx", f"--total-num-mbufs={mbufs}", *options]
        environment = dict(os.environ, TERM="dumb")
        if not built_in:
            # by its bare name: EAL refuses a path below a folder that everybody may write to
            environment["LD_LIBRARY_PATH"] = os.path.dirname(plugin)
            environment.update(sanitizer_environment(plugin))
        self.process = subprocess.Popen(
            command, stdin=slave, stdout=slave, stderr=slave, close_fds=True, env=environment)
        os.close(slave)
        self.log = ""
        self.banner = self._until_prompt()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        if self.process.poll() is None:
            if kind is None:
                self.quit()
            else:
                self.process.kill()
                self.process.wait()
        os.close(self.master)

    def _read(self, deadline):
        """What has come, or None at the end of the output."""
        ready, _, _ = select.select([self.master], [], [], max(0, deadline - time.monotonic()))
        if not ready:
            raise TimeoutError("testpmd is silent; so far it said:\n" + self.log)
        try:
            text = os.read(self.master, 65536).decode(errors="replace")
        except OSError:
            text = ""
        self.log += text
        return text or None

    def _until_prompt(self, after=""):
        """The output up to the next prompt, or the first one after some text, or to the end."""
        deadline, parts, tail, passed = time.monotonic() + self.timeout, [], "", not after
        while not (passed and tail.endswith(PROMPT)):
            part = self._read(deadline)
            if part is None:
                break
            parts.append(part)
            tail = ESCAPES.sub("", tail[-len(after) - 64:] + part)
            passed = passed or after in tail
        return ESCAPES.sub("", "".join(parts)).removesuffix(PROMPT)

    def run(self, command):
        """Runs a command; the lines that it printed, without those that are blank."""
        os.write(self.master, (command + "\n").encode())
        text = self._until_prompt()
        lines = [line.rstrip() for line in text.replace("\r", "\n").split("\n")]
        lines = [line for line in lines if line]
        while lines and lines[0].removeprefix(PROMPT) == command:  # its echo
            lines.pop(0)
        return lines

    def forward(self, port, frames):
        """Forwards until the port has received, or dropped at its receive meter, so many frames."""
        self.run("start")
        deadline, seen = time.monotonic() + self.timeout, 0
        while seen < frames:
            if time.monotonic() > deadline:
                raise TimeoutError(f"{seen} of {frames} frames have come")
            stats = self.run(f"show port xstats {port}")
            seen = number(stats, "rx_good_packets") + number(stats, "rx_meter_dropped_packets")
        self.run("stop")
        return seen

    def load(self, commands):
        """Runs many commands without looking at what they print."""
        with tempfile.NamedTemporaryFile("w") as script:
            script.write("\n".join(commands) + "\n")
            script.flush()
            os.write(self.master, f"load {script.name}\n".encode())
            self._until_prompt(after="Read CLI commands from")

    def quit(self):
        """Ends testpmd; returns its exit status, after which self.log holds all that it said."""
        os.write(self.master, b"quit\n")
        deadline = time.monotonic() + self.timeout
        while self._read(deadline) is not None:
            pass
        return self.process.wait(timeout=self.timeout)


def sanitizer_environment(plugin):
    """A plugin built with AddressSanitizer needs the library to be loaded first."""
    needed = subprocess.run(["ldd", plugin], capture_output=True, text=True, check=True).stdout
    found = re.search(r"libasan\S* => (\S+)", needed)
    if not found:
        return {}
    return {"LD_PRELOAD": found[1], "ASAN_OPTIONS": "detect_leaks=0:verify_asan_link_order=0"}


def number(lines, label):
    """The number after a label, say in `Pkts DROPPED: 12`."""
    for line in lines:
        found = re.search(re.escape(label) + r"\s*:?\s*(-?\d+)", line)
        if found:
            return int(found[1])
    raise AssertionError(f"no {label!r} in {lines}")
