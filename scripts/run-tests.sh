#!/usr/bin/env bash
# Sets up, builds and runs every test. One clang build with AddressSanitizer and
# UndefinedBehaviorSanitizer serves both the GoogleTest suites (run by ctest) and the libFuzzer
# targets, which then each run for a short time; the demo runs on the same build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-check"
"$root/scripts/setup.sh"
CC=clang-14 CXX=clang++-14 "$root/scripts/build.sh" "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
  -DFERNCAST_SANITIZE=ON -DFERNCAST_FUZZ=ON -DFERNCAST_BENCH=OFF
log="$build/ctest.log"
(cd "$build" && ctest --output-on-failure -j "$(nproc)") | tee "$log"
"$root/scripts/demo.sh" "$build/tools/ferncast" >/dev/null
"$root/scripts/fuzz.sh" "${FERNCAST_FUZZ_SECONDS:-15}" "$build"
# The test count again, last, so that it closes the output.
sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests failed out of ([0-9]+)$/\2 \1/p' "$log" |
  { read -r total failed && echo "tests: $((total - failed)) passed, $failed failed"; }
