#!/usr/bin/env bash
# Usage: ./test.sh [--clang | --sanitize | --tsan | --valgrind | --coverage | --dpdk-tree | --page | --arm64 |
#                  --package] [--help] [TEST...]
#        ./test.sh --analyse [FILE...] | --model [SECONDS] | --fuzz [SECONDS] | --faults [STEPS] | --mutations |
#                  --all [PART...]
#
# Installs what is needed (Debian; root or sudo), builds, runs every test, or those named, and ends with
# "N passed, N failed, N skipped".
#
#   --clang      in a build by clang, of benchmarks too (build-clang)
#   --sanitize   in a build with AddressSanitizer and UndefinedBehaviorSanitizer (build-sanitize)
#   --tsan       the tests of the card and of the port in a build with ThreadSanitizer (build-tsan)
#   --valgrind   the tests of the module, of its records and of the card under memcheck, which sees reads of memory
#                that nobody has written
#   --coverage   in a build that counts (build-coverage); prints line and branch coverage of the module
#   --dpdk-tree  testpmd's tests in a testpmd that has the driver built in: the distribution's DPDK source with
#                the driver linked into it (build-dpdk)
#   --page       the pages of vask-meter in a browser without a window; leaves pictures of them in build/pages
#   --arm64      the tests of the module, of the card and of the port, compiled for 64-bit Arm and run under
#                QEMU's user emulation, with the distribution's arm64 libraries in a folder (build-arm64)
#   --package    the Debian packages, built, checked, and installed, used and purged in a fresh root of
#                debootstrap (root only); and each tutorial from its first line in such a root with a clean clone
#
# Instead of the tests:
#
#   --analyse    clang-tidy and cppcheck over every source, or those named
#   --model      random scenarios against the reference model of the module, for so many seconds, or 1,000,000
#                operations; prints what was compared
#   --fuzz       the fuzz targets, in a build by clang with sanitizers (build-fuzz), for so many seconds each (20)
#   --faults     every fault, singly and in pairs, in every state that so many steps reach (5), against the model
#   --mutations  the kept one-line changes of the module: which tests notice each
#   --all        every mode above and the long forms of some tests, or the parts named; prints a table
set -euo pipefail
cd "$(dirname "$0")"

dir=build
options=()
targets=()
select=()
patience=5
wrapper=()
packages=(dpdk dpdk-dev groff-base python3-pyelftools)
clang() {
	dir=build-clang
	export CC=clang CXX=clang++
	packages+=(clang libbenchmark-dev valgrind)
}
while [ $# -gt 0 ]; do
	case $1 in
	--clang)
		clang
		targets=(-- all benchmarks)
		;;
	--analyse)
		clang
		scripts/install-packages "${packages[@]}" clang-tidy cppcheck
		scripts/build "$dir" -- drivers/librte_net_vask1.so
		shift
		exec scripts/analyse "$dir" "$@"
		;;
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
	--valgrind)
		packages+=(valgrind)
		patience=60
		export VASK_RANDOM_CALLS=${VASK_RANDOM_CALLS:-1000}
		wrapper=(--wrapper "valgrind --quiet --error-exitcode=1 --leak-check=full
			--show-leak-kinds=definite,possible --suppressions=$PWD/tests/valgrind.supp")
		select=(--suite unit --suite layout --suite card)
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
		select=(testpmd_meter_test testpmd_live_profile_test testpmd_reference_test telemetry_test hotplug_test)
		;;
	--page)
		packages+=(chromium chromium-driver)
		select=(page_test)
		;;
	--arm64)
		dir=build-arm64
		patience=30
		options=(--cross-file "$(scripts/cross-file arm64 "$dir")")
		select=(--suite layout --suite unit --suite model --suite card --suite port --no-suite timed)
		;;
	--package)
		packages+=(debhelper debootstrap git lintian)
		select=(--suite package)
		;;
	--model)
		scripts/build "$dir" -- tests/model/runner
		[ $# -gt 1 ] && length=(--seconds "$2") || length=(--operations 1000000)
		exec tests/model/run.py --runner "$dir"/tests/model/runner "${length[@]}"
		;;
	--fuzz)
		dir=build-fuzz
		scripts/install-packages clang libclang-rt-dev
		CC=clang CXX=clang++ scripts/build "$dir" -Dfuzz=true -Db_sanitize=address,undefined \
			-Db_lundef=false -- fuzz-targets
		exec scripts/fuzz "$dir" "${2:-20}"
		;;
	--faults)
		scripts/build "$dir" -- tests/model/runner
		exec tests/model/exhaustive.py --runner "$dir"/tests/model/runner --depth "${2:-5}"
		;;
	--mutations)
		scripts/build "$dir"
		exec scripts/mutate --build "$dir"
		;;
	--all)
		shift
		exec scripts/test-all "$@"
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
[ ${#select[@]} -eq 0 ] || targets=(-- drivers/librte_net_vask1.so)
scripts/build "$dir" "${options[@]}" "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$PWD/tests/tsan.supp}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
if [ "$dir" = build-coverage ]; then
	find "$dir" -name '*.gcda' -delete
fi
rm -f "$dir"/meson-logs/testlog*
# a test's time limit is for a machine that does nothing else, and for a plain build
meson test -C "$dir" --timeout-multiplier "$patience" "${wrapper[@]}" --print-errorlogs "${select[@]}" || true

if [ "$dir" = build-coverage ]; then
	gcovr --root . --object-directory "$dir" --filter 'drivers/net/vask1/vask_p4/' --exclude-throw-branches
	gcovr --root . --object-directory "$dir" --filter 'drivers/net/vask1/vask_p4/' --exclude-throw-branches \
		--branches
fi
scripts/test-tally "$dir"
