#!/usr/bin/env bash
# Usage: build-deb.sh [OUTDIR]
#
# Builds the Debian packages librte-net-vask1 (the driver), librte-net-vask1-dev and vask-meter from the files
# that git tracks, as they stand in the working tree, into OUTDIR (build-deb). Installs what that needs (Debian;
# root or sudo); beside packages it fetches only the distribution's source of the installed DPDK, for its driver
# headers. Prints the packages' paths.
set -euo pipefail

case $#-${1-} in
0-) set -- build-deb ;;
1-[!-]*) ;;
1--h | 1---help)
	sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
	exit 0
	;;
*)
	sed -n 's/^# Usage/usage/p' "$0" >&2
	exit 2
	;;
esac
mkdir -p "$1"
out=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."

scripts/install-packages git dpkg-dev debhelper g++ meson ninja-build pkg-config python3-docutils \
	libdpdk-dev libpcap-dev libcli11-dev libfmt-dev libncurses-dev nlohmann-json3-dev

rm -rf "$out/source" "$out"/*.deb "$out"/*.buildinfo "$out"/*.changes
mkdir "$out/source"
git ls-files -z | tar --create --null --files-from - | tar --extract --directory "$out/source"
if command -v ccache >/dev/null; then
	export CC="ccache ${CC:-gcc}" CXX="ccache ${CXX:-g++}"
fi
if ! (cd "$out/source" && dpkg-buildpackage --build=binary --unsigned-changes) >"$out/log" 2>&1; then
	tail -n 40 "$out/log" >&2
	echo "build-deb.sh: dpkg-buildpackage failed; all that it said: $out/log" >&2
	exit 1
fi
ls "$out"/*.deb
