#!/usr/bin/env bash
# Usage: ./test.sh [--sanitize | --tsan | --coverage | --dpdk-tree] [--help] [TEST...]
#        ./test.sh --model [SECONDS]
#
# Installs what is needed (Debian; root or sudo), builds, runs every test, or those named, and ends with
# "N passed, N failed, N skipped".
#
#   --sanitize   in a build with AddressSanitizer and UndefinedBehaviorSanitizer (build-sanitize)
#   --tsan       the tests of the card and of the port in a build with ThreadSanitizer (build-tsan)
#   --coverage   in a build that counts (build-coverage); prints line and branch coverage of the module
#   --dpdk-tree  testpmd's tests in a testpmd that has the driver built in: the distribution's DPDK source with
#                the driver linked into it (build-dpdk)
#   --model      random scenarios against the reference model of the module instead of the tests, for so many
#                seconds, or 1,000,000 operations; prints what was compared
set -euo pipefail
cd "$(dirname "$0")"

dir=build
options=()
select=()
packages=(dpdk dpdk-dev python3-pyelftools)
while [ $# -gt 0 ]; do
	case $1 in
	--sanitize)
		dir=build-sanitize
		options=("-Db_sanitize=address,undefined" -Db_lundef=false)
		;;
	--tsan)
		dir=build-tsan
		# else DPDK's locks are assembler and its rings fences, which ThreadSanitizer cannot see through
		options=(-Db_sanitize=thread -Db_lundef=false
			"-Dcpp_args=-DRTE_FORCE_INTRINSICS -DRTE_USE_C11_MEM_MODEL -Wno-tsan")
		select=(--suite card --suite port)
		;;
	--coverage)
		dir=build-coverage
		options=(-Db_coverage=true -Dbuildtype=debug)
		packages+=(gcovr)
		;;
	--dpdk-tree)
		[ -d build-dpdk ] || scripts/dpdk-source build-dpdk
		scripts/build-in-dpdk-tree.sh build-dpdk
		export VASK_TESTPMD=$PWD/build-dpdk/build-vask1/app/dpdk-testpmd
		select=(testpmd_meter_test)
		;;
	--model)
		scripts/build "$dir" -- tests/model/runner
		[ $# -gt 1 ] && length=(--seconds "$2") || length=(--operations 1000000)
		exec tests/model/run.py --runner "$dir"/tests/model/runner "${length[@]}"
		;;
	-h | --help)
		sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
		exit 0
		;;
	-*)
		sed -n 's/^# Usage/usage/p' "$0" >&2
		exit 2
		;;
	*) break ;;
	esac
	shift
done

scripts/install-packages "${packages[@]}"
select+=("$@")
# tests that were asked for by name bring what they need
[ ${#select[@]} -eq 0 ] && targets=() || targets=(-- drivers/librte_net_vask1.so)
scripts/build "$dir" "${options[@]}" "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$PWD/tests/tsan.supp}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
if [ "$dir" = build-coverage ]; then
	find "$dir" -name '*.gcda' -delete
fi
rm -f "$dir"/meson-logs/testlog*
# a test's time limit is for a machine that does nothing else, and for a plain build
meson test -C "$dir" --timeout-multiplier 5 --print-errorlogs "${select[@]}" || true

if [ "$dir" = build-coverage ]; then
	gcovr --root . --object-directory "$dir" --filter 'drivers/net/vask1/vask_p4/' --exclude-throw-branches
	gcovr --root . --object-directory "$dir" --filter 'drivers/net/vask1/vask_p4/' --exclude-throw-branches \
		--branches
fi
scripts/test-tally "$dir"
