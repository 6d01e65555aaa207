#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every header of the driver compiles alone: those that C may include as C11, all as C++20."""

import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
DRIVERS = SOURCE / "drivers"
DPDK = shlex.split(subprocess.run(["pkg-config", "--cflags", "libdpdk"], check=True,
                                  capture_output=True, text=True).stdout.replace("-I", "-isystem"))
FLAGS = shlex.split(os.environ["VASK_CPPFLAGS"]) + DPDK + [
    "-Wall", "-Wextra", "-Werror", "-DALLOW_INTERNAL_API", "-DALLOW_EXPERIMENTAL_API",
    "-DRTE_LOG_DEFAULT_LOGTYPE=pmd.net.vask1"]
# a C driver includes these; what else asks for __cplusplus says itself that it is for C as well
FOR_C = {"common/vask", "net/vask1/vask_p4"}
CPP_ONLY = {"vask_p4_enum.h", "vask_p4_meter_internal.h"}


def is_for_c(header):
    if header.name in CPP_ONLY:
        return False
    below = header.relative_to(DRIVERS).as_posix()
    return any(below.startswith(f"{room}/") for room in FOR_C) or "__cplusplus" in header.read_text()


def compile_alone(command, header):
    """What the compiler says about a file that includes the header twice and nothing else."""
    suffix = ".cpp" if "++" in command[0] else ".c"
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / f"alone{suffix}"
        source.write_text(f'#include "{header}"\n#include "{header}"\n')
        run = subprocess.run(command + FLAGS + ["-fsyntax-only", str(source)],
                             capture_output=True, text=True, check=False)
    return run.returncode, run.stderr


class Headers(unittest.TestCase):
    """One case for each header and compiler, made below."""

    def test_headers_were_found(self):
        self.assertIn(DRIVERS / "net/vask1/vask_p4/vask_p4_meter.h", HEADERS)

    def test_both_compilers_are_there(self):
        if len(COMPILERS) < 2:
            self.skipTest("one of gcc and clang is not installed")


def add_case(compiler, standard, header):
    def case(self):
        code, said = compile_alone([compiler, f"-std={standard}"], header)
        if code != 0 or said:
            self.fail(said)
    label = header.relative_to(DRIVERS).as_posix().replace("/", "_").replace(".", "_")
    setattr(Headers, f"test_{label}_compiles_alone_as_{standard}_by_{compiler}", case)


HEADERS = sorted(DRIVERS.rglob("*.h"))
COMPILERS = [pair for pair in (("gcc", "g++"), ("clang", "clang++")) if shutil.which(pair[1])]
for found in HEADERS:
    for cc, cxx in COMPILERS:
        add_case(cxx, "c++20", found)
        if is_for_c(found):
            add_case(cc, "c11", found)

if __name__ == "__main__":
    unittest.main()
