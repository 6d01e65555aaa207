# SPDX-License-Identifier: BSD-3-Clause
"""A fresh Debian root of the machine's own release, to install and work in."""

import os
import pathlib
import re
import shutil
import subprocess

ENTER = """set -e
mount -t proc proc "$1/proc"
mount --rbind /sys "$1/sys"
cd "$1$2"
shift 2
exec "$@"
"""


def sources():
    """Where the machine has Debian from: (URI, suite, component)."""
    done = subprocess.run(["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT)",
                           "Created-By: Packages", "Origin: Debian"],
                          capture_output=True, text=True, check=True)
    return sorted({tuple(line.split()) for line in done.stdout.splitlines()})


def codename():
    return re.search(r"^VERSION_CODENAME=(\w+)", pathlib.Path("/etc/os-release").read_text(encoding="utf-8"),
                     re.MULTILINE)[1]


class Root:
    """A root of its own below a folder, copied from one that debootstrap makes there when there is none."""

    def __init__(self, folder, name):
        base = pathlib.Path(folder) / "base"
        if not (base / ".complete").exists():
            self._bootstrap(base)
        self.path = pathlib.Path(folder) / name
        subprocess.run(["rm", "-rf", "--one-file-system", self.path], check=True)
        subprocess.run(["cp", "-a", "--reflink=auto", base, self.path], check=True)

    @staticmethod
    def _bootstrap(base):
        subprocess.run(["rm", "-rf", "--one-file-system", base], check=True)
        base.parent.mkdir(parents=True, exist_ok=True)
        mirrors = [uri for uri, suite, component in sources() if (suite, component) == (codename(), "main")]
        if not mirrors:
            raise RuntimeError(f"the package lists have no {codename()}; apt-get update brings them")
        subprocess.run(["debootstrap", "--variant=minbase", codename(), base, mirrors[0]],
                       stdout=subprocess.DEVNULL, check=True)
        (base / "etc/apt/sources.list").write_text(
            "".join(f"deb {uri} {suite} {component}\n" for uri, suite, component in sources()), encoding="utf-8")
        shutil.copy("/etc/resolv.conf", base / "etc/resolv.conf")
        base.chmod(0o755)
        (base / ".complete").touch()

    def remove(self):
        subprocess.run(["rm", "-rf", "--one-file-system", self.path], check=True)

    def command(self, *command, folder="/"):
        """The words that run a command in the root; what it mounts and starts ends with it."""
        return ["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", ENTER, "sh", str(self.path),
                folder, "chroot", str(self.path), "env", "-i", *self.environment(), "sh", "-c",
                'cd "$1" && shift && exec "$@"', "sh", folder, *command]

    @staticmethod
    def environment():
        kept = [f"{name}={os.environ[name]}" for name in ("http_proxy", "https_proxy", "no_proxy")
                if name in os.environ]
        return ["PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8",
                "TERM=dumb", "DEBIAN_FRONTEND=noninteractive", *kept]

    def run(self, *command, folder="/", check=True):
        done = subprocess.run(self.command(*command, folder=folder), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if check and done.returncode != 0:
            raise RuntimeError(f"{command} ended with {done.returncode}:\n{done.stdout}")
        return done.stdout

    def files(self):
        """All paths of the root, but for what is mounted."""
        found = subprocess.run(["find", self.path, "-xdev", "-printf", "/%P\\n"], capture_output=True,
                               text=True, check=True)
        return set(found.stdout.splitlines())

    def testpmd(self, script, *before):
        """A script that runs the root's testpmd, with some words before its arguments."""
        quoted = " ".join("'" + word.replace("'", "'\\''") + "'" for word in self.command(*before))
        pathlib.Path(script).write_text(f"#!/bin/sh\nexec {quoted} \"$@\"\n", encoding="utf-8")
        os.chmod(script, 0o755)
