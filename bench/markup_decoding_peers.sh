#!/usr/bin/env bash
# bench/markup_decoding_peers.sh [BUILD_DIR]: the markup decoder against uchardet + iconv over the
# same sixteen-charset page set (made by BUILD_DIR/bench/markup_decoding_benchmark, default build/),
# in one run, twice:
#  - in-process: our decoder, libuchardet's guess followed by glibc's iconv, and one ICU
#    conversion with the right charset named (the floor); MB/s, the share of pages decoded right,
#    and our speed ratio to each;
#  - as commands, one process per page: "ferncast markup decode -" against "uchardet FILE" piped
#    into "iconv -f GUESS -t UTF-8 FILE"; pages per second and the ratio.
# Needs the Debian packages uchardet and libuchardet-dev (scripts/packages.txt).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
bench="$build/bench/markup_decoding_benchmark"
ferncast="$build/tools/ferncast"
for program in "$bench" "$ferncast"; do
  [ -x "$program" ] || { echo "markup_decoding_peers: build $program first" >&2; exit 2; }
done
command -v uchardet >/dev/null || { echo "markup_decoding_peers: install uchardet" >&2; exit 2; }

"$bench" --benchmark_min_time=1 --benchmark_format=json 2>/dev/null | python3 -c '
import json, sys
runs = {b["name"]: b for b in json.load(sys.stdin)["benchmarks"]}
ours = runs["BM_MarkupDecoder"]
print("in-process, %d-page set:" % 16)
for name, label in (("BM_MarkupDecoder", "ours (markup decoder)"),
                    ("BM_UchardetIconv", "uchardet + iconv"),
                    ("BM_IcuKnownCharset", "ICU, charset known")):
    if name not in runs:
        print("  %-24s (not built: libuchardet-dev missing?)" % label)
        continue
    run = runs[name]
    right = " right %3.0f%%" % (100 * run["right"]) if "right" in run else ""
    ratio = ours["bytes_per_second"] / run["bytes_per_second"]
    print("  %-24s %8.1f MB/s%s   ours/this = %.2f" % (label, run["bytes_per_second"] / 1e6, right, ratio))
'

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bench" --write-pages "$work"
files=("$work"/*.html)
rounds=5
start=$(date +%s.%N)
for ((r = 0; r < rounds; ++r)); do
  for f in "${files[@]}"; do "$ferncast" markup decode - <"$f" >/dev/null; done
done
ours_seconds=$(awk -v s="$start" -v e="$(date +%s.%N)" 'BEGIN { print e - s }')
start=$(date +%s.%N)
for ((r = 0; r < rounds; ++r)); do
  for f in "${files[@]}"; do
    guess=$(uchardet "$f")
    iconv -f "$guess" -t UTF-8 "$f" >/dev/null 2>&1 || true
  done
done
peer_seconds=$(awk -v s="$start" -v e="$(date +%s.%N)" 'BEGIN { print e - s }')
pages=$((rounds * ${#files[@]}))
awk -v n="$pages" -v o="$ours_seconds" -v p="$peer_seconds" 'BEGIN {
  printf "as commands, %d page runs:\n", n
  printf "  ferncast markup decode   %8.1f pages/s\n", n / o
  printf "  uchardet | iconv         %8.1f pages/s\n", n / p
  printf "  ratio ours/peer          %8.2f\n", p / o
}'
