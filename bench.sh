#!/usr/bin/env bash
# Usage: ./bench.sh [--check | --help]
#
# Installs what is needed (Debian; root or sudo), builds for release in build-bench, runs every benchmark, prints
# tables, and leaves build-bench/bench.json and a picture, build-bench/bench.svg. Times are compared with
# bench/baseline.json. For figures that mean something the machine must have nothing else to do.
#
#   --check  counts instructions instead, a packet and an operation, under callgrind; fails when one grew by more
#            than 3 % over the baseline. Does not depend on what else the machine does.
set -euo pipefail
cd "$(dirname "$0")"

dir=build-bench
check=
case ${1-} in
"") ;;
--check) check=yes ;;
-h | --help)
	sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
	exit 0
	;;
*)
	sed -n 's/^# Usage/usage/p' "$0" >&2
	exit 2
	;;
esac

scripts/install-packages dpdk libbenchmark-dev valgrind gnuplot-nox
scripts/build "$dir" --buildtype=release -- benchmarks

baseline=()
[ ! -f bench/baseline.json ] || baseline=(--baseline bench/baseline.json)

if [ -n "$check" ]; then
	dumps=$dir/instructions
	rm -rf "$dumps"
	mkdir "$dumps"
	count() {
		local program=$1
		shift
		valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$dumps/$program" \
			"$dir/bench/$program" "$@" >"$dumps.$program.log" 2>&1 ||
			{ tail -n 20 "$dumps.$program.log" >&2; echo "bench.sh: $program failed" >&2; exit 1; }
	}
	count packet_bench &
	packets=$!
	count control_bench --benchmark_filter='^[a-z].*/meters:(1|4095)/.*in_order'
	count port_control_bench --benchmark_filter='^[a-oq-z].*/meters:(1|4095)/profiles:1/policies:1/in_order'
	wait "$packets"
	bench/report.py --instructions "$dumps" --out "$dir/bench.json" "${baseline[@]}"
	exit
fi

run() {
	local program=$1
	shift
	echo "$program ..." >&2
	"$dir/bench/$program" --benchmark_enable_random_interleaving=true --benchmark_out="$dir/$program.json" \
		--benchmark_out_format=json "$@" >"$dir/$program.log" 2>&1 ||
		{ tail -n 20 "$dir/$program.log" >&2; echo "bench.sh: $program failed" >&2; exit 1; }
}
run control_bench
run port_control_bench --benchmark_filter=-p4_
run packet_bench
echo "replay ..." >&2
bench/replay.py --vask-meter "$dir/app/vask-meter/vask-meter" --capture-tool "$dir/tests/app/capture_tool" \
	--out "$dir/replay.json"
"$dir/bench/footprint" >"$dir/footprint.json" 2>"$dir/footprint.log"

bench/report.py --control "$dir/control_bench.json" --port "$dir/port_control_bench.json" \
	--packets "$dir/packet_bench.json" --replay "$dir/replay.json" --footprint "$dir/footprint.json" \
	--out "$dir/bench.json" --picture "$dir/bench.svg" "${baseline[@]}"
