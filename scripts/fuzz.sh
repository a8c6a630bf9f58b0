#!/usr/bin/env bash
# scripts/fuzz.sh [SECONDS [BUILD_DIR]]: runs every fuzz/*_fuzzer.cpp for SECONDS (default 20),
# starting from fuzz/corpus/<name>/ and fuzz/<name>.dict when present. Without BUILD_DIR it first
# builds them with clang 14 (libFuzzer, ASan, UBSan) into build-fuzz; a BUILD_DIR given must hold
# such a build already. Fails when a fuzzer finds a crash, a leak or a time-out.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
build=${2:-}
if [ -z "$build" ]; then
  build="$root/build-fuzz"
  CC=clang-14 CXX=clang++-14 "$root/scripts/build.sh" "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DFERNCAST_FUZZ=ON -DFERNCAST_SANITIZE=ON -DFERNCAST_TESTS=OFF -DFERNCAST_BENCH=OFF
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
for source in "$root"/fuzz/*_fuzzer.cpp; do
  [ -e "$source" ] || continue
  name=$(basename "$source" .cpp)
  corpus="$work/$name"
  mkdir -p "$corpus"
  [ -d "$root/fuzz/corpus/$name" ] && cp -r "$root/fuzz/corpus/$name/." "$corpus/"
  args=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=0 "-artifact_prefix=$work/$name-")
  [ -f "$root/fuzz/$name.dict" ] && args+=("-dict=$root/fuzz/$name.dict")
  if "$build/fuzz/$name" "${args[@]}" "$corpus" >"$work/$name.log" 2>&1; then
    echo "fuzz: $name ok ($(grep -c . "$corpus"/* 2>/dev/null | wc -l) corpus files)"
  else
    echo "fuzz: $name FAILED" >&2
    tail -n 40 "$work/$name.log" >&2
    status=1
  fi
done
exit $status
