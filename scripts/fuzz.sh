#!/usr/bin/env bash
# scripts/fuzz.sh [SECONDS]: builds every fuzz/*_fuzzer.cpp with clang 14 (libFuzzer, ASan, UBSan)
# and runs each for SECONDS (default 20), starting from fuzz/corpus/<name>/ and fuzz/<name>.dict
# when present. Fails when a fuzzer finds a crash, a leak or a time-out.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
build="$root/build-fuzz"
CC=clang-14 CXX=clang++-14 "$root/scripts/build.sh" "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFERNCAST_FUZZ=ON -DFERNCAST_SANITIZE=ON -DFERNCAST_TESTS=OFF -DFERNCAST_BENCH=OFF
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
