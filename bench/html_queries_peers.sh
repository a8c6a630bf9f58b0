#!/usr/bin/env bash
# bench/html_queries_peers.sh [BUILD_DIR]: link extraction and tag stripping over the same real
# pages (shared/corpus/articles/html/*.html.gz, read as UTF-8), side by side in one run:
#   ours         BUILD_DIR/bench/html_queries_benchmark (default build/): htmlLinksBaseURL and
#                stripTags over pages decoded to UTF-16 beforehand
#   htmlparser2  npm htmlparser2's streaming Parser over the decoded page strings: the hrefs of
#                a and area tags, each once, in document order; and the text runs joined by
#                spaces (its fastest way to the same answers, no DOM)
#   lynx         lynx -dump -listonly, one process per page, when lynx is installed
# Each is timed in-process for about two seconds; prints MB/s of the pages' UTF-8 bytes and our
# ratio to each peer. The npm package is installed into BUILD_DIR/peers (git-ignored) on first use.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
corpus="$root/../shared/corpus/articles/html"
[ -d "$corpus" ] || { echo "html_queries_peers: no corpus at $corpus" >&2; exit 2; }
ours="$build/bench/html_queries_benchmark"
[ -x "$ours" ] || { echo "html_queries_peers: build $ours first" >&2; exit 2; }

peers="$build/peers"
if [ ! -d "$peers/node_modules/htmlparser2" ]; then
  mkdir -p "$peers"
  (cd "$peers" && npm install --silent --no-audit --no-fund --prefix . htmlparser2 >/dev/null)
fi

read -r ours_links ours_strip < <("$ours" --benchmark_min_time=2 --benchmark_format=json \
  2>/dev/null | python3 -c '
import json, sys
rates = {b["name"]: b["bytes_per_second"] / 1e6 for b in json.load(sys.stdin)["benchmarks"]}
print(rates["BM_htmlLinksBaseURL"], rates["BM_stripTags"])')

read -r node_links node_strip < <(NODE_PATH="$peers/node_modules" node - "$corpus" <<'EOF'
const fs = require("fs"), path = require("path"), zlib = require("zlib");
const { Parser } = require("htmlparser2");
const folder = process.argv[2];
const pages = fs.readdirSync(folder).filter((f) => f.endsWith(".html.gz")).sort()
  .map((f) => zlib.gunzipSync(fs.readFileSync(path.join(folder, f))));
const size = pages.reduce((sum, p) => sum + p.length, 0);
const texts = pages.map((p) => p.toString("utf8"));

function links(html) {
  const seen = new Set(), result = [];
  const parser = new Parser({
    onopentag(name, attributes) {
      if ((name === "a" || name === "area") && attributes.href !== undefined) {
        const href = attributes.href.trim();
        if (href && !seen.has(href)) { seen.add(href); result.push(href); }
      }
    },
  }, { decodeEntities: true });
  parser.end(html);
  return result.length;
}

function stripTags(html) {
  const parts = [];
  let last = " ";  // nothing yet: no leading space
  const parser = new Parser({
    ontext(text) {
      if (!text) return;
      if (!/\s/.test(last)) parts.push(" ");
      parts.push(text);
      last = text[text.length - 1];
    },
  }, { decodeEntities: false });
  parser.end(html);
  return parts.join("").length;
}

function rate(work) {
  let rounds = 0, sink = 0;
  const start = process.hrtime.bigint();
  const seconds = () => Number(process.hrtime.bigint() - start) / 1e9;
  while (seconds() < 2 || rounds < 3) {
    for (const text of texts) sink += work(text);
    rounds++;
  }
  return sink > 0 ? (size * rounds) / seconds() / 1e6 : 0;
}
console.log(rate(links), rate(stripTags));
EOF
)

lynx_links=""
if command -v lynx >/dev/null; then
  lynx_links=$(python3 - "$corpus" <<'EOF'
import glob, gzip, os, subprocess, sys, tempfile, time
pages = [gzip.open(p).read() for p in sorted(glob.glob(sys.argv[1] + "/*.html.gz"))]
with tempfile.TemporaryDirectory() as folder:
    files = []
    for i, page in enumerate(pages):
        files.append(os.path.join(folder, f"{i}.html"))
        with open(files[-1], "wb") as f:
            f.write(page)
    rounds, start = 0, time.perf_counter()
    while time.perf_counter() - start < 2 or rounds < 1:
        for name in files:
            subprocess.run(["lynx", "-dump", "-listonly", "-force_html", "-assume_charset=utf-8",
                            name], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        rounds += 1
    print(sum(map(len, pages)) * rounds / (time.perf_counter() - start) / 1e6)
EOF
)
fi

version=$(node -p "require('$peers/node_modules/htmlparser2/package.json').version")
python3 - "$ours_links" "$ours_strip" "$node_links" "$node_strip" "$version" "$lynx_links" <<'EOF'
import sys
ours_links, ours_strip, node_links, node_strip = map(float, sys.argv[1:5])
version, lynx = sys.argv[5], sys.argv[6]
print("HTML queries over whole pages, MB/s of UTF-8 input")
print(f"  links:  ferncast htmlLinksBaseURL         {ours_links:8.1f}")
print(f"          htmlparser2 {version:<8} hrefs        {node_links:8.1f}   ours/htmlparser2 = {ours_links / node_links:.1f}x")
if lynx:
    print(f"          lynx -dump -listonly            {float(lynx):8.1f}   ours/lynx        = {ours_links / float(lynx):.1f}x")
print(f"  strip:  ferncast stripTags                {ours_strip:8.1f}")
print(f"          htmlparser2 {version:<8} text runs    {node_strip:8.1f}   ours/htmlparser2 = {ours_strip / node_strip:.1f}x")
print("  goal: 3x the peer")
EOF
