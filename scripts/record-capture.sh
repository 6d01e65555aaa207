#!/bin/sh
# Records the traffic that the tests and the main job replay: iperf3 flows, TCP and UDP, over a veth pair
# between two network namespaces. Needs root, and iproute2, ethtool, iperf3 and tcpdump.
#
# usage: scripts/record-capture.sh [OUT.pcap]      (default: tests/data/iperf3.pcap)
set -eu

here=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$here/tests/data/iperf3.pcap}
seconds=3
client=vask-cap-c-$$
server=vask-cap-s-$$
work=$(mktemp -d)

for tool in ip ethtool iperf3 tcpdump; do
	command -v $tool >/dev/null || { echo "record-capture: $tool is not installed" >&2; exit 1; }
done
[ "$(id -u)" = 0 ] || { echo "record-capture: network namespaces need root" >&2; exit 1; }

dump=
cleanup()
{
	[ -z "$dump" ] || kill "$dump" 2>/dev/null || true
	for pid in $servers; do
		kill "$pid" 2>/dev/null || true
	done
	ip netns del "$client" 2>/dev/null || true
	ip netns del "$server" 2>/dev/null || true
	rm -rf "$work"
}
servers=
trap cleanup EXIT
trap 'exit 1' INT TERM

ip netns add "$client"
ip netns add "$server"
ip -n "$client" link add veth0 address 02:00:00:00:00:01 type veth \
	peer name veth0 address 02:00:00:00:00:02 netns "$server"
for side in "$client:10.0.0.1" "$server:10.0.0.2"; do
	ns=${side%:*}
	ip netns exec "$ns" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 2>/dev/null || true
	ip -n "$ns" address add "${side#*:}/24" dev veth0
	ip -n "$ns" link set lo up
	ip -n "$ns" link set veth0 up
	# As on a wire: frames of at most 1514 bytes (else whole segments of up to 64 KB cross the pair) and
	# real TCP and UDP checksums.
	ip netns exec "$ns" ethtool -K veth0 tso off gso off gro off tx off >/dev/null
done

# What the server's side of the wire sees, whole frames, nanoseconds.
ip netns exec "$server" tcpdump -i veth0 -s 0 -B 16384 -Z root --time-stamp-precision=nano \
	-w "$work/out.pcap" 2>"$work/tcpdump.log" &
dump=$!
until grep -q 'listening on' "$work/tcpdump.log"; do
	kill -0 $dump 2>/dev/null || { cat "$work/tcpdump.log" >&2; exit 1; }
	sleep 0.1
done

# One flow: server port, type of service, then what iperf3 is told.
flows=
flow()
{
	port=$1 tos=$2
	shift 2
	ip netns exec "$server" iperf3 -s -1 -p "$port" >"$work/server-$port.log" 2>&1 &
	servers="$servers $!"
	until ip netns exec "$server" ss -Hltn "sport = :$port" | grep -q .; do
		sleep 0.05
	done
	ip netns exec "$client" iperf3 -c 10.0.0.2 -p "$port" -S "$tos" -t $seconds "$@" \
		>"$work/client-$port.log" 2>&1 &
	flows="$flows $!"
}

flow 5201 0x00 -b 4M -l 8K       # TCP, best effort
flow 5202 0x28 -b 1500K -l 4K    # TCP, AF11
flow 5203 0x30 -u -b 1500K -l 1200 # UDP, AF12
flow 5204 0x38 -u -b 800K -l 400 # UDP, AF13
flow 5205 0xb8 -u -b 64K -l 160  # UDP, EF, the shape of one voice call
for pid in $flows; do
	wait "$pid" || { cat "$work"/client-*.log >&2; exit 1; }
done

sleep 2 # tcpdump takes what the kernel holds once a second
kill -INT $dump
wait $dump || true
dump=
grep -q '^0 packets dropped by kernel' "$work/tcpdump.log" ||
	{ cat "$work/tcpdump.log" >&2; exit 1; }
cp "$work/out.pcap" "$out.part"
mv "$out.part" "$out"
cat "$work/tcpdump.log"
ls -l "$out"
