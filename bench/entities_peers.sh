#!/usr/bin/env bash
# bench/entities_peers.sh [BUILD_DIR]: entity decoding over the same whole pages
# (shared/corpus/articles/html/*.html.gz, read as UTF-8) by ours (BUILD_DIR/bench/entities_benchmark,
# default build/), Python's html.unescape and npm entities' decodeHTML, each timed in-process in
# one run; prints MB/s (of the pages' UTF-8 bytes per second of CPU time, which holds up better than
# wall time on a busy machine) and our ratio to each peer.
# The npm package is installed into BUILD_DIR/peers (git-ignored) on first use.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
corpus="$root/../shared/corpus/articles/html"
[ -d "$corpus" ] || { echo "entities_peers: no corpus at $corpus" >&2; exit 2; }
ours="$build/bench/entities_benchmark"
[ -x "$ours" ] || { echo "entities_peers: build $ours first" >&2; exit 2; }

peers="$build/peers"
if [ ! -d "$peers/node_modules/entities" ]; then
  mkdir -p "$peers"
  (cd "$peers" && npm install --silent --no-audit --no-fund --prefix . entities >/dev/null)
fi

ours_mbs=$("$ours" --benchmark_filter='^BM_DecodeEntities$' --benchmark_min_time=2 \
  --benchmark_format=json 2>/dev/null |
  python3 -c 'import json, sys; print(json.load(sys.stdin)["benchmarks"][0]["bytes_per_second"] / 1e6)')

python_mbs=$(python3 - "$corpus" <<'EOF'
import glob, gzip, html, sys, time
pages = [gzip.open(p).read() for p in sorted(glob.glob(sys.argv[1] + "/*.html.gz"))]
size = sum(len(p) for p in pages)
texts = [p.decode("utf-8", "replace") for p in pages]
rounds, start = 0, time.process_time()
while time.process_time() - start < 2 or rounds < 3:
    for text in texts:
        html.unescape(text)
    rounds += 1
print(size * rounds / (time.process_time() - start) / 1e6)
EOF
)

node_mbs=$(NODE_PATH="$peers/node_modules" node - "$corpus" <<'EOF'
const fs = require("fs"), path = require("path"), zlib = require("zlib");
const { decodeHTML } = require("entities");
const folder = process.argv[2];
const pages = fs.readdirSync(folder).filter((f) => f.endsWith(".html.gz")).sort()
  .map((f) => zlib.gunzipSync(fs.readFileSync(path.join(folder, f))));
const size = pages.reduce((sum, p) => sum + p.length, 0);
const texts = pages.map((p) => p.toString("utf8"));
let rounds = 0, sink = 0;
const start = process.cpuUsage();
const seconds = () => {
  const used = process.cpuUsage(start);
  return (used.user + used.system) / 1e6;
};
while (seconds() < 2 || rounds < 3) {
  for (const text of texts) {
    // decodeHTML joins slices into a rope; reading a character flattens it, as any consumer would.
    const decoded = decodeHTML(text);
    sink += decoded.charCodeAt(decoded.length >> 1);
  }
  rounds++;
}
console.log(sink > 0 ? (size * rounds) / seconds() / 1e6 : 0);
EOF
)

entities_version=$(node -p "require('$peers/node_modules/entities/package.json').version")
python3 - "$ours_mbs" "$python_mbs" "$node_mbs" "$entities_version" <<'EOF'
import sys
ours, python, node = map(float, sys.argv[1:4])
print(f"entity decoding over whole pages, MB/s of UTF-8 input")
print(f"  ferncast stringByConvertingEntitiesToCharacters  {ours:9.1f}")
print(f"  python html.unescape                             {python:9.1f}   ours/python = {ours / python:.1f}x")
print(f"  npm entities {sys.argv[4]:<8} decodeHTML               {node:9.1f}   ours/npm    = {ours / node:.1f}x")
print(f"  ours / faster peer = {ours / max(python, node):.1f}x (goal: 2x)")
EOF
