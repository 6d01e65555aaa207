#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What may befall vask-meter while it runs: one line, an exit code, and no file left."""

import os
import pathlib
import pty
import re
import select
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from program_folder import IMAGE, VASK_METER, Folder  # noqa: E402

SUPPRESSIONS = pathlib.Path(__file__).resolve().parents[1] / "lsan.supp"
SANITIZED = os.environ.get("VASK_SANITIZE", "none") != "none"


class StandardStreams(Folder):
    def test_output_that_nobody_reads(self):
        for args in (["units", "1B"], ["--help"], ["tune", "in.pcap"], ["p4", "decode", "policer", "000000"],
                     ["testpmd", "c.cfg"], ["replay", "c.cfg", "in.pcap", "-o", "out.pcap"]):
            with self.subTest(args=args):
                read, write = os.pipe()
                os.close(read)
                try:
                    self.refused(1, re.compile("(standard output: )?cannot (be written|write to file): Broken pipe"),
                                 *args, stdout=write)
                finally:
                    os.close(write)
                with open("/dev/full", "w", encoding="ascii") as full:
                    self.refused(1, re.compile("(standard output: )?cannot (be written|write to file): "
                                               "No space left on device"), *args, stdout=full)

    def test_closed_descriptors_are_not_written_to(self):
        command = f"{VASK_METER} replay c.cfg in.pcap -o out.pcap >&-"
        done = subprocess.run(["sh", "-c", command], cwd=self.folder, check=False, text=True, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, done.stderr),
                         (1, "vask-meter: standard output: cannot be written: Bad file descriptor\n"))
        self.assertFalse((self.folder / "out.pcap").exists())

    def test_input_that_cannot_be_read(self):
        folder = os.open(self.folder, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        self.refused(1, "standard input: cannot be read: Is a directory", "p4", "decode", "policer", "-", stdin=folder)

    def test_a_wrong_line_of_standard_input_is_named(self):
        done = self.run_("p4", "encode", "--brief", "policer", "-", stdin=None, input="red_dscp=1\nred_dscp=64\n")
        self.assertEqual((done.returncode, done.stderr),
                         (2, "vask-meter: standard input:2: policer.red_dscp: 64 does not fit 6 bits; accepted is 0 "
                             "to 63\n"))


class Interrupted(Folder):
    def interrupt(self, args, number):
        fifo = self.folder / "fifo"
        if not fifo.exists():
            os.mkfifo(fifo)
        before = set(os.listdir(self.folder))
        with subprocess.Popen([VASK_METER, *args], cwd=self.folder, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True) as process:
            with open(fifo, "wb", buffering=0) as feed:
                feed.write(IMAGE[:100_000])  # more than a pipe holds: the program is reading
                process.send_signal(number)
                try:
                    feed.write(IMAGE[100_000:])
                except BrokenPipeError:
                    pass
            stderr = process.stderr.read()
        self.assertEqual(process.returncode, 1)
        self.assertEqual(set(os.listdir(self.folder)), before)
        return stderr

    def test_nothing_stays(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                self.assertRegex(self.interrupt(["replay", "c.cfg", "fifo", "-o", "a", "--csv", "b"], number),
                                 r"^vask-meter: fifo: interrupted at frame \d+\n$")
                self.assertRegex(self.interrupt(["tune", "fifo", "--csv", "b"], number),
                                 r"^vask-meter: fifo: interrupted at frame \d+\n$")


@unittest.skipIf(SANITIZED, "a sanitizer needs more by itself")
class Memory(Folder):
    def test_too_little_of_it(self):
        ended = set()
        for mib in range(50, 900, 50):
            args = ["replay", "c.cfg", "in.pcap", "-o", "out.pcap"]
            done = subprocess.run(["prlimit", f"--as={mib << 20}", VASK_METER, *args], cwd=self.folder, check=False,
                                  capture_output=True, text=True)
            with self.subTest(mib=mib, stderr=done.stderr):
                if done.returncode == 127:  # not even its libraries fit
                    continue
                ended.add(done.returncode)
                self.assertIn(done.returncode, (0, 1))
                if done.returncode == 1:
                    self.assertRegex(done.stderr, r"^vask-meter: [^\n]+\n$")
                    self.assertEqual(sorted(os.listdir(self.folder)), ["c.cfg", "in.pcap"])
                else:
                    self.assertEqual(done.stderr, "")
                    os.unlink(self.folder / "out.pcap")
        self.assertEqual(ended, {0, 1})  # the limits reach from too little to enough


class Telemetry(Folder):
    """watch, on sockets that are no DPDK process."""

    def setUp(self):
        super().setUp()
        self.env = dict(os.environ, RUNTIME_DIRECTORY=str(self.folder))
        (self.folder / "dpdk" / "x").mkdir(parents=True)
        self.path = self.folder / "dpdk" / "x" / "dpdk_telemetry.v2"
        self.shown = re.escape(str(self.path))

    def watch(self, line, **options):
        self.refused(1, line, "watch", "--file-prefix", "x", env=self.env, **options)

    def serve(self, *messages, wait=0):
        """Sends these to the first who connects, and hangs up."""
        server = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        server.bind(str(self.path))
        server.listen(1)

        def answer():
            client, _ = server.accept()
            with client, server:
                for number, message in enumerate(messages):
                    if number > 0:
                        client.recv(1024)
                    client.send(message)
                time.sleep(wait)
            os.unlink(self.path)
        thread = threading.Thread(target=answer)
        thread.start()
        self.addCleanup(thread.join)
        return thread

    def test_nobody_there(self):
        accepted = "accepted is the --file-prefix of a running DPDK process with telemetry"
        self.watch(re.compile(f"{self.shown}: No such file or directory; {accepted}"))
        self.write(self.path, "x")
        self.watch(re.compile(f"{self.shown}: Connection refused; {accepted}"))
        self.refused(2, re.compile('--file-prefix "x+": .* is too long for a socket; accepted are shorter ones'),
                     "watch", "--file-prefix", "x" * 200, env=self.env)

    def test_somebody_else(self):
        for message in (b"hello", b"[1, 2]", b'{"max_output_len": "x"}'):
            with self.subTest(message=message):
                thread = self.serve(message)
                self.watch(re.compile(f"{self.shown}: what listens there does not speak DPDK's telemetry"))
                thread.join()

    def test_somebody_who_goes_or_is_silent(self):
        thread = self.serve()
        self.watch(re.compile(f"{self.shown}: the process has gone"))
        thread.join()
        self.serve(wait=6)
        self.watch(re.compile(f"{self.shown}: the process does not answer within 5 s"))

    def test_a_process_without_the_port(self):
        self.serve(b'{"max_output_len": 16384}', b'{"/net_vask1/meters,0,100": null}')
        self.watch("the process has no net_vask1 port; accepted is the --file-prefix of one that has")

    def test_an_unknown_terminal(self):
        self.serve(b'{"max_output_len": 16384}')
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        env = dict(self.env, TERM="nonesuch",
                   LSAN_OPTIONS=f"suppressions={SUPPRESSIONS}:print_suppressions=0")
        with subprocess.Popen([VASK_METER, "watch", "--file-prefix", "x"], stdin=slave, stdout=slave,
                              stderr=subprocess.PIPE, text=True, env=env) as process:
            os.close(slave)
            stderr = process.stderr.read()
            while select.select([master], [], [], 0)[0]:
                try:
                    os.read(master, 4096)
                except OSError:
                    break
        self.assertEqual((process.returncode, stderr),
                         (1, 'vask-meter: TERM="nonesuch": unknown terminal; accepted are those of terminfo(5)\n'))


if __name__ == "__main__":
    unittest.main()
