#!/usr/bin/env bash
# scripts/build.sh BUILD_DIR [cmake options...]: configures (once) and builds the project.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: scripts/build.sh BUILD_DIR [cmake options...]}
shift
cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
