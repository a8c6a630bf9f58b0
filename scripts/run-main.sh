#!/usr/bin/env bash
# Sets up, builds and runs the main job: a short tour of the ferncast command on bundled samples.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" "$root/build" -DCMAKE_BUILD_TYPE=Release -DFERNCAST_TESTS=OFF -DFERNCAST_BENCH=OFF
"$root/scripts/demo.sh" "$root/build/tools/ferncast"
