#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""The manual pages say what the programs take, and render without a warning."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
PAGES = SOURCE / "doc" / "man"
BUILT = [pathlib.Path(page) for page in os.environ["MANUAL_PAGES"].split()]
COMMANDS = ["replay", "tune", "units", "testpmd", "watch", "p4 encode", "p4 decode"]


def help_of(command):
    return subprocess.run([os.environ["VASK_METER"], *command.split(), "--help"], capture_output=True,
                          text=True, check=True).stdout


def options_of_help(text):
    """{names: what is said} of a program's --help."""
    found = re.findall(r"^  (-\S+)(?: [^ \n]+(?: in \[[^\]]*\])?\S*)?(?:  +|\n  +)(\S.*)$", text, re.MULTILINE)
    return {frozenset(names.split(",")): said for names, said in found if "--help" not in names}


def sections(text):
    """{title: text} of a page's sections."""
    titles = list(re.finditer(r"^(\S.*)\n(=+)\n\n", text, re.MULTILINE))
    return {t[1]: text[t.end():u.start() if u else len(text)]
            for t, u in zip(titles, titles[1:] + [None])}


def options_of_page(section):
    """{names: what is said} of a section's option list."""
    found = re.findall(r"^(-.*)\n((?:   \S.*\n)+)", section, re.MULTILINE)
    return {frozenset(re.findall(r"--?\w[\w-]*", names)): " ".join(said.split())
            for names, said in found}


class VaskMeter(unittest.TestCase):
    def setUp(self):
        self.page = sections((PAGES / "vask-meter.1.rst").read_text(encoding="utf-8"))

    def test_options_are_those_of_help_and_begin_with_its_words(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                told, written = options_of_help(help_of(command)), options_of_page(self.page[command])
                self.assertEqual(set(written), set(told))
                self.assertEqual({k: v[:len(told[k])] for k, v in written.items()}, told)

    def test_commands_are_those_of_help(self):
        told = re.findall(r"^  (\w+)  +\S", help_of("").partition("Subcommands:")[2].partition("\n\n")[0],
                          re.MULTILINE)
        self.assertEqual(sorted(told), sorted({c.split()[0] for c in COMMANDS}))
        for command in COMMANDS:
            self.assertIn(f"**vask-meter {command}**", self.page["SYNOPSIS"])

    def test_exit_codes_are_those_of_help(self):
        told = re.findall(r"^  (\d)  (.*)$", help_of("").partition("Exit codes:")[2], re.MULTILINE)
        self.assertEqual(len(told), 3)
        self.assertEqual(re.findall(r"^(\d)\n   (.*)$", self.page["EXIT STATUS"], re.MULTILINE), told)


class Configuration(unittest.TestCase):
    def test_keys_are_those_that_the_program_accepts(self):
        """The program is asked: it answers an unknown key with those that it knows."""
        page = sections((PAGES / "vask-meter-config.5.rst").read_text(encoding="utf-8"))
        need = {
            "setup": [""],
            "profile N": [f"algorithm = {a}\ncir = 1Mbit/s\npir = 1Mbit/s\neir = 1Mbit/s\ncbs = 1KiB\n"
                          "ebs = 1KiB\npbs = 1KiB\n" for a in ("rfc2697", "rfc2698", "rfc4115")],
            "policy N": [""], "meter N": ["direction = rx\nprofile = 1\n"], "flow N": ["meter = 1\n"]}
        base = ("[profile 1]\nalgorithm = rfc2697\ncir = 1Mbit/s\ncbs = 1KiB\nebs = 1KiB\n"
                "[meter 1]\ndirection = rx\nprofile = 1\n")
        for title, attempts in need.items():
            with self.subTest(section=title):
                accepted = set()
                for keys in attempts:
                    accepted.update(self.accepted(base + f"[{title.replace('N', '77')}]\n{keys}unknown = 1\n"))
                written = re.findall(r"^([a-z][\w, ]*)\n   \S", page[f"[{title}]"], re.MULTILINE)
                self.assertEqual({k for line in written for k in line.split(", ")}, accepted)

    def accepted(self, text):
        with tempfile.NamedTemporaryFile("w") as config:
            config.write(text)
            config.flush()
            done = subprocess.run([os.environ["VASK_METER"], "testpmd", config.name],
                                  capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2, done)
        found = re.search(r"accepted are (.*)$", done.stderr)
        self.assertIsNotNone(found, done.stderr)
        return found[1].split(", ")


class Port(unittest.TestCase):
    def test_arguments_are_those_that_the_driver_takes(self):
        guide = (SOURCE / "doc/guides/nics/vask1.rst").read_text(encoding="utf-8")
        driver = (SOURCE / "drivers/net/vask1/ethdev/vask_args.cpp").read_text(encoding="utf-8")
        listed = guide.partition("Device arguments\n---")[2].partition("\n---")[0]
        self.assertEqual(re.findall(r"^``(\w+)=", listed, re.MULTILINE),
                         re.findall(r'\{"(\w+)", (?:true|false), parse_', driver))

    def test_telemetry_is_what_the_driver_registers(self):
        guide = (SOURCE / "doc/guides/nics/vask1.rst").read_text(encoding="utf-8")
        registered = set()
        for file in (SOURCE / "drivers/net/vask1/ethdev").glob("*.cpp"):
            registered.update(re.findall(r'rte_telemetry_register_cmd\(\s*"([^"]+)"',
                                         file.read_text(encoding="utf-8")))
        self.assertGreater(len(registered), 5)
        self.assertEqual(set(re.findall(r"``(/net_vask1/\w+)", guide)), registered)


@unittest.skipUnless(BUILT, "needs rst2man (python3-docutils) when the build is set up")
class Rendering(unittest.TestCase):
    def test_groff_has_no_warning(self):
        for page in BUILT:
            for device in ("utf8", "ps"):
                with self.subTest(page=page.name, device=device):
                    done = subprocess.run(["groff", "-ww", "-mandoc", "-t", "-K", "utf8", "-T", device, page],
                                          capture_output=True, text=True, check=True, errors="replace")
                    self.assertEqual(done.stderr, "")
                    self.assertGreater(len(done.stdout), 1000)

    @unittest.skipUnless(shutil.which("mandoc"), "needs mandoc")
    def test_mandoc_finds_no_error(self):
        """Its warnings are about what rst2man writes in every page: a space after a heading, a font's name."""
        for page in BUILT:
            with self.subTest(page=page.name):
                done = subprocess.run(["mandoc", "-T", "lint", "-W", "error", page], capture_output=True,
                                      text=True, check=False)
                self.assertEqual(done.stdout, "")


if __name__ == "__main__":
    unittest.main()
