#!/usr/bin/env bash
# bench/html_rtfd_peers.sh [FERNCAST] [ROUNDS]: HTML to rich text, ours against pandoc, side by side
# in one run, one process per file for both (as a caller converting pages one at a time would):
#   ours     ferncast html rtfd FILE -o OUT.rtfd (remote requests refused, no base URL: images
#            show their alternative text, nothing is fetched)
#   pandoc   pandoc -f html -t rtf FILE -o OUT.rtf (Debian's pandoc)
# Input: the 60 article pages of ../shared/corpus/articles, inflated once. ROUNDS (default 3)
# passes over all pages per tool, alternating tools. Reported: processor seconds (user + system
# of the children) and elapsed seconds per tool, and the ratios pandoc / ours.
#
# Missing pandoc is installed with apt-get (as root). Needs the ferncast tool built (default
# build-bench/tools/ferncast: cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release &&
# cmake --build build-bench --target ferncast).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
ferncast=$(realpath "${1:-$root/build-bench/tools/ferncast}")
rounds=${2:-3}
articles="$root/../shared/corpus/articles/html"
[ -x "$ferncast" ] || { echo "no ferncast tool at $ferncast" >&2; exit 2; }
[ -d "$articles" ] || { echo "no corpus at $articles" >&2; exit 2; }
command -v pandoc >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -q pandoc >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/in" "$work/out"
for f in "$articles"/*.html.gz; do
  name=$(basename "$f" .gz)
  gzip -dc "$f" >"$work/in/$name"
done
pages=$(ls "$work/in" | wc -l)

calc() { awk "BEGIN { print $* }"; }

# convert TOOL: every page once, one process each.
convert() {
  local tool=$1 f name
  for f in "$work"/in/*.html; do
    name=$(basename "$f" .html)
    case $tool in
      ours) "$ferncast" html rtfd "$f" -o "$work/out/$name.rtfd" 2>/dev/null ;;
      pandoc) pandoc -f html -t rtf "$f" -o "$work/out/$name.rtf" ;;
    esac
  done
}

# measure TOOL: prints "CPU ELAPSED" in seconds for one pass, the children's times from `times`.
measure() {
  local tool=$1
  ( start=$(date +%s.%N)
    convert "$tool"
    end=$(date +%s.%N)
    read -r _ _ cu cs < <(times | tr 'ms\n' '  ' | awk '{print $1*60+$2, $3*60+$4, $5*60+$6, $7*60+$8}')
    echo "$(calc "$cu + $cs") $(calc "$end - $start")" )
}

declare -A cpu=([ours]=0 [pandoc]=0) elapsed=([ours]=0 [pandoc]=0)
for ((r = 0; r < rounds; r++)); do
  for tool in ours pandoc; do
    read -r c e < <(measure "$tool")
    cpu[$tool]=$(calc "${cpu[$tool]} + $c")
    elapsed[$tool]=$(calc "${elapsed[$tool]} + $e")
  done
done

ok=$(ls -d "$work"/out/*.rtfd 2>/dev/null | wc -l)
echo "HTML to RTF(D), $pages article pages x $rounds rounds, one process per file"
printf '%-8s %10s %10s\n' tool cpu-s elapsed-s
for tool in ours pandoc; do
  printf '%-8s %10.2f %10.2f\n' "$tool" "${cpu[$tool]}" "${elapsed[$tool]}"
done
echo "pages rendered by ours: $ok of $pages"
printf 'ratio pandoc/ours: cpu %.1fx, elapsed %.1fx\n' \
  "$(calc "${cpu[pandoc]} / ${cpu[ours]}")" "$(calc "${elapsed[pandoc]} / ${elapsed[ours]}")"
