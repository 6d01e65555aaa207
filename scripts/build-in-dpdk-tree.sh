#!/bin/sh
# Usage: build-in-dpdk-tree.sh TREE
#
# Builds the driver inside a DPDK source tree, with few other drivers, in TREE/build-vask1, where
# dpdk-testpmd then has net_vask1 built in. The tree gets links to this driver's folders and the changes
# that such a driver brings along: its entries in the lists of drivers, flags for C++, and the trailing
# `direction` field of struct rte_mtr_params. Can be run again.
set -eu

[ $# -eq 1 ] || { sed -n 's/^# Usage/usage/p' "$0" >&2; exit 2; }
here=$(cd "$(dirname "$0")/.." && pwd)
fail() { echo "build-in-dpdk-tree.sh: $*" >&2; exit 1; }
[ -f "$1/lib/ethdev/rte_mtr.h" ] || fail "$1 is not a DPDK source tree"
tree=$(cd "$1" && pwd)

"$here/scripts/install-packages" g++ meson ninja-build pkg-config python3-pyelftools libnuma-dev libpcap-dev

ln -sfn "$here/drivers/common/vask" "$tree/drivers/common/vask"
ln -sfn "$here/drivers/net/vask1" "$tree/drivers/net/vask1"
"$here/scripts/dpdk-mtr-direction" --in-place "$tree/lib/ethdev/rte_mtr.h"

# once FILE TEXT SCRIPT: runs a sed script on a file that lacks the text, which must bring it in
once() {
	grep -qF "$2" "$1" || sed -i "$3" "$1"
	grep -qF "$2" "$1" || fail "$1 does not look as expected: no place for $2"
}
once "$tree/drivers/common/meson.build" "'vask'," "/^drivers = \[/a\\        'vask',"
once "$tree/drivers/net/meson.build" "'vask1'," "/^drivers = \[/a\\        'vask1',"
once "$tree/drivers/meson.build" 'cpp_args: cflags' \
	'0,/^ *c_args: cflags)/s/c_args: cflags)/c_args: cflags, cpp_args: cflags)/'
# what holds a C++ driver is linked by the C++ compiler
once "$tree/config/meson.build" "language: ['c', 'cpp']" \
	"s/\(add_project_link_arguments(.*\)language: 'c'/\1language: ['c', 'cpp']/"

build=$tree/build-vask1
if [ ! -f "$build/build.ninja" ]; then
	if command -v ccache >/dev/null; then
		export CC="ccache ${CC:-gcc}" CXX="ccache ${CXX:-g++}"
	fi
	rm -rf "$build"
	meson setup "$build" "$tree" --buildtype debugoptimized -Dcpp_std=gnu++20 \
		"-Dcpp_args=-fno-rtti -Wno-volatile -Wno-ignored-qualifiers" -Dtests=false \
		-Denable_apps=test-pmd -Denable_drivers=common/vask,net/vask1,net/pcap,net/ring,net/null
fi
ninja -C "$build" app/dpdk-testpmd
echo "$build/app/dpdk-testpmd"
