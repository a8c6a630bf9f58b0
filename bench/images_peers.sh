#!/usr/bin/env bash
# bench/images_peers.sh [BUILD_DIR] [FILES] [ROUNDS]: image thumbnails and PostScript conversion,
# ours against vipsthumbnail and gs side by side in one run (bench/images_benchmark.cpp --peers):
#   thumbnails  12-megapixel JPEGs -> 256-pixel TIFF with properties, all files in one process,
#               against `vipsthumbnail -s 256 -o %s.tif` over the same files (goal: ratio <= 1.0)
#   embedded    the same files with an embedded EXIF thumbnail (goal: vipsthumbnail >= 20x slower)
#   eps         EPS -> PDF per file against the gs command per file (goal: ratio <= 0.5)
# Prints milliseconds per file (elapsed, and processor time including children) and the ratios.
# Needs an optimised build (default build/: scripts/build.sh build) with images_benchmark, and
# vipsthumbnail (libvips-tools) and gs (ghostscript) from scripts/packages.txt.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath "${1:-$root/build}")
files=${2:-8}
rounds=${3:-3}
program="$build/bench/images_benchmark"
[ -x "$program" ] || { echo "no images_benchmark in $build/bench" >&2; exit 2; }
for tool in vipsthumbnail gs; do
  command -v "$tool" >/dev/null || { echo "$tool is missing (scripts/setup.sh installs it)" >&2; exit 2; }
done
"$program" --peers "$files" "$rounds"
