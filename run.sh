#!/usr/bin/env bash
# Usage: ./run.sh [REPLAY-OPTION...] | ./run.sh testpmd [TESTPMD-OPTION...] | ./run.sh --help
#
# Installs what is needed (Debian; root or sudo), builds, and sends a recorded capture through metered
# ports on the software card: prints what each meter did, and where the outgoing packets and a page with charts lie.
#
#   testpmd   opens an interactive dpdk-testpmd on the same card instead, its port fed by the same capture
set -euo pipefail
cd "$(dirname "$0")"

capture=tests/data/iperf3.pcap
config=examples/metered-port.cfg

case ${1-} in
-h | --help)
	sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
	exit 0
	;;
esac

if [ "${1-}" != testpmd ]; then
	scripts/build build -- app/vask-meter/vask-meter
	exec build/app/vask-meter/vask-meter replay "$config" "$capture" -o build/out.pcap \
		--report build/report.html "$@"
fi
shift
scripts/install-packages dpdk-dev
scripts/build build -- drivers/librte_net_vask1.so app/vask-meter/vask-meter
build/app/vask-meter/vask-meter testpmd "$config" -o build/testpmd.commands

# testpmd wants two lcores; where the process may use one CPU only, both share it
allowed=$(awk '/^Cpus_allowed_list/ { print $2 }' /proc/self/status)
cat >&2 <<-END
	The meters of $config are set up by build/testpmd.commands; packets leave to build/testpmd-out.pcap.
	Type: start, stop, show port meter stats 0 9 no, quit
END
# by its bare name: EAL refuses a path below a folder that everybody may write to
export LD_LIBRARY_PATH=$PWD/build/drivers
exec dpdk-testpmd --lcores "0@${allowed%%[-,]*},1@${allowed##*[-,]}" --no-huge --no-pci -m 512 \
	--file-prefix "vask-$$" -d librte_net_vask1.so \
	--vdev net_vask1_0,uplink=net_pcap0,clock=capture \
	--vdev "net_pcap0,rx_pcap=$capture,tx_pcap=build/testpmd-out.pcap" \
	-- -i --no-flush-rx --total-num-mbufs=16384 --cmdline-file build/testpmd.commands "$@"
