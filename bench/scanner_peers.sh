#!/usr/bin/env bash
# bench/scanner_peers.sh [BUILD_DIR]: the tag scanner against the htmlparser2 Tokenizer (npm) over
# the same whole pages (shared/corpus/articles/html/*.html.gz, read as UTF-8), in one run, and
# against the bare search for every "<" (our physical bound). Ours is BUILD_DIR/bench/
# scanner_benchmark (default build/); the peer runs in Node with callbacks that do nothing and
# entity decoding off, its fastest setting. Prints MB/s of the pages' UTF-8 bytes per CPU second
# (both sides; the machine may be shared) and the ratios.
# The npm package is installed into BUILD_DIR/peers (git-ignored) on first use.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
corpus="$root/../shared/corpus/articles/html"
[ -d "$corpus" ] || { echo "scanner_peers: no corpus at $corpus" >&2; exit 2; }
ours="$build/bench/scanner_benchmark"
[ -x "$ours" ] || { echo "scanner_peers: build $ours first" >&2; exit 2; }

peers="$build/peers"
if [ ! -d "$peers/node_modules/htmlparser2" ]; then
  mkdir -p "$peers"
  (cd "$peers" && npm install --silent --no-audit --no-fund --prefix . htmlparser2 >/dev/null)
fi

# bytes_per_second of each benchmark, in MB/s, as "name value" lines.
ours_json=$("$ours" --benchmark_filter='^BM_(ScanTags|FindEveryLessThan)$' \
  --benchmark_min_time=2 --benchmark_format=json 2>/dev/null)
figure() {
  python3 -c 'import json, sys
for b in json.load(sys.stdin)["benchmarks"]:
    if b["name"] == sys.argv[1]: print(b["bytes_per_second"] / 1e6)' "$1" <<<"$ours_json"
}
scan_mbs=$(figure BM_ScanTags)
bound_mbs=$(figure BM_FindEveryLessThan)

node_mbs=$(node --input-type=module - "$corpus" "$peers/node_modules/htmlparser2/dist/index.js" <<'EOF'
import fs from "fs";
import path from "path";
import zlib from "zlib";
const [folder, module] = process.argv.slice(2);
const { Tokenizer } = await import(module);
const pages = fs.readdirSync(folder).filter((f) => f.endsWith(".html.gz")).sort()
  .map((f) => zlib.gunzipSync(fs.readFileSync(path.join(folder, f))));
const size = pages.reduce((sum, p) => sum + p.length, 0);
const texts = pages.map((p) => p.toString("utf8"));
let calls = 0;
const count = () => { calls++; };
const callbacks = {
  onattribdata: count, onattribentity: count, onattribend: count, onattribname: count,
  oncdata: count, onclosetag: count, oncomment: count, ondeclaration: count, onend: count,
  onopentagend: count, onopentagname: count, onprocessinginstruction: count,
  onselfclosingtag: count, ontext: count, ontextentity: count,
};
const pass = () => {
  for (const text of texts) {
    const tokenizer = new Tokenizer({ decodeEntities: false }, callbacks);
    tokenizer.write(text);
    tokenizer.end();
  }
};
for (let i = 0; i < 5; i++) pass();  // let the JIT settle
// CPU time, like Google Benchmark's figures: the machine may be shared.
let rounds = 0;
const start = process.cpuUsage();
const seconds = () => {
  const used = process.cpuUsage(start);
  return (used.user + used.system) / 1e6;
};
while (seconds() < 3 || rounds < 5) {
  pass();
  rounds++;
}
console.log(calls > 0 ? (size * rounds) / seconds() / 1e6 : 0);
EOF
)

version=$(node -p "require('$peers/node_modules/htmlparser2/package.json').version")
python3 - "$scan_mbs" "$bound_mbs" "$node_mbs" "$version" <<'EOF'
import sys
scan, bound, node = map(float, sys.argv[1:4])
print("tag scanning over whole pages, MB/s of UTF-8 input")
print(f"  ferncast GetTagsOfString (handler does nothing)  {scan:9.1f}")
print(f"  htmlparser2 {sys.argv[4]:<8} Tokenizer               {node:9.1f}   ours/htmlparser2 = {scan / node:.1f}x (goal: 3x)")
print(f"  search for every '<' (physical bound)           {bound:9.1f}   bound/ours       = {bound / scan:.2f}x")
EOF
