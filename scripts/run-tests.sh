#!/usr/bin/env bash
# Sets up, builds and runs every test. One clang build with AddressSanitizer and
# UndefinedBehaviorSanitizer serves both the GoogleTest suites (run by ctest) and the libFuzzer
# targets, which then each run for a short time; the demo runs on the same build. The layering
# check runs first. Every step runs even when an earlier one fails; the test count closes the
# output, and the exit status is that of the first step that failed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-check"
"$root/scripts/setup.sh"
CC=clang-14 CXX=clang++-14 "$root/scripts/build.sh" "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
  -DFERNCAST_SANITIZE=ON -DFERNCAST_FUZZ=ON -DFERNCAST_BENCH=OFF

status=0
step() { "$@" || { local s=$?; [ "$status" -ne 0 ] || status=$s; echo "FAILED ($s): $*" >&2; }; }

step "$root/scripts/check-layers.py" "$root"
log="$build/ctest.log"
step bash -c 'cd "$1" && ctest --output-on-failure -j "$(nproc)" | tee "$2"; exit "${PIPESTATUS[0]}"' \
  ctest "$build" "$log"
step "$root/scripts/demo.sh" "$build/tools/ferncast" >/dev/null
step "$root/scripts/fuzz.sh" "${FERNCAST_FUZZ_SECONDS:-15}" "$build"

# The test count again, last, so that it closes the output.
counts=$(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests failed out of ([0-9]+)$/\2 \1/p' "$log")
if [ -n "$counts" ]; then
  read -r total failed <<<"$counts"
  echo "tests: $((total - failed)) passed, $failed failed"
else
  echo "tests: ctest gave no count"
fi
exit "$status"
