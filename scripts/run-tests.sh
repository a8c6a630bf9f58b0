#!/usr/bin/env bash
# Sets up, builds and runs every test: the GoogleTest suites under AddressSanitizer and
# UndefinedBehaviorSanitizer with warnings as errors, the demo, and a short run of every fuzzer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" "$root/build-check" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFERNCAST_WERROR=ON -DFERNCAST_SANITIZE=ON
(cd "$root/build-check" && ctest --output-on-failure -j "$(nproc)")
"$root/scripts/demo.sh" "$root/build-check/tools/ferncast" >/dev/null
"$root/scripts/fuzz.sh" "${FERNCAST_FUZZ_SECONDS:-20}"
