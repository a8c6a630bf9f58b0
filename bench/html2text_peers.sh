#!/usr/bin/env bash
# bench/html2text_peers.sh [FERNCAST] [COPIES]: HTML to plain text, ours against the usual peers,
# side by side in one run:
#   ours           ferncast html text --charset UTF-8 (all files in one process)
#   ours-junk      the same with --remove-junk (boilerplate, hidden text and the title left out)
#   html2text      Debian's html2text -utf8 -nobs (one process per file: it ignores <meta
#                  charset> and grows without bound when given many files)
#   lynx           lynx -dump -nolist (one process per file)
#   w3m            w3m -dump (one process per file)
#   python         python3-html2text, links and images left out, no wrapping (one process)
#   html-to-text   npm html-to-text, link targets and images left out, no wrapping (one process)
#
# Quality: the 60 news and blog pages of ../shared/corpus/articles, each converted whole; word
# recall (how many words of the human-checked article text the page text keeps) and word
# precision (how many page words belong to the article), both over lower-cased \w+ word multisets
# and averaged over pages. Speed: COPIES (default 3) copies of those pages, about 10 MB each time,
# converted by each tool in one timed run; MB/s of input per second of processor time (and of
# elapsed time). Ratios are ours to each peer.
#
# Missing peers are installed: the Debian packages with apt-get (as root), html-to-text with npm
# into ~/.cache/ferncast-bench. Needs the ferncast tool built (default build-bench/tools/ferncast:
# cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release && cmake --build build-bench
# --target ferncast).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
ferncast=$(realpath "${1:-$root/build-bench/tools/ferncast}")
copies=${2:-3}
articles="$root/../shared/corpus/articles"
[ -x "$ferncast" ] || { echo "no ferncast tool at $ferncast" >&2; exit 2; }
[ -f "$articles/ground-truth.json" ] || { echo "no corpus at $articles" >&2; exit 2; }

missing=()
for tool in lynx w3m html2text; do command -v "$tool" >/dev/null || missing+=("$tool"); done
/usr/bin/python3 -c 'import html2text' 2>/dev/null || missing+=(python3-html2text)
if [ ${#missing[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q "${missing[@]}" >/dev/null
fi
npm_dir="$HOME/.cache/ferncast-bench"
if [ ! -d "$npm_dir/node_modules/html-to-text" ]; then
  mkdir -p "$npm_dir"
  (cd "$npm_dir" && npm install --silent --no-audit --no-fund html-to-text@9 >/dev/null)
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/peer.py" <<'EOF'
import sys, html2text
h = html2text.HTML2Text()
h.ignore_links = True
h.ignore_images = True
h.body_width = 0
out = open(sys.argv[1], "w", encoding="utf-8")
for path in sys.argv[2:]:
    out.write(h.handle(open(path, encoding="utf-8", errors="replace").read()))
    out.write("\f\n")
EOF
cat >"$work/peer.js" <<'EOF'
const fs = require("fs");
const { convert } = require(process.env.NPM_DIR + "/node_modules/html-to-text");
const options = {
  wordwrap: false,
  selectors: [{ selector: "a", options: { ignoreHref: true } }, { selector: "img", format: "skip" }],
};
const out = fs.openSync(process.argv[2], "w");
for (const path of process.argv.slice(3)) {
  fs.writeSync(out, convert(fs.readFileSync(path, "utf8"), options) + "\f\n");
}
EOF

# run TOOL OUTPUT FILES...: converts every file with one tool; the texts end with "\f\n".
run() {
  local tool=$1 output=$2
  shift 2
  case $tool in
    ours) "$ferncast" html text --charset UTF-8 "$@" >"$output" ;;
    ours-junk) "$ferncast" html text --charset UTF-8 --remove-junk "$@" >"$output" ;;
    html2text) for f in "$@"; do html2text -utf8 -nobs "$f"; printf '\f\n'; done >"$output" ;;
    lynx)
      for f in "$@"; do
        lynx -dump -nolist -force_html -assume_charset=utf-8 -display_charset=utf-8 "$f"
        printf '\f\n'
      done >"$output"
      ;;
    w3m) for f in "$@"; do w3m -dump -T text/html -I UTF-8 -O UTF-8 "$f"; printf '\f\n'; done >"$output" ;;
    python) /usr/bin/python3 "$work/peer.py" "$output" "$@" ;;
    html-to-text) NPM_DIR="$npm_dir" node "$work/peer.js" "$output" "$@" ;;
  esac
}

mkdir -p "$work/pages" "$work/corpus"
for gz in "$articles"/html/*.html.gz; do
  gzip -dc "$gz" >"$work/pages/$(basename "$gz" .gz)"
done
pages=("$work"/pages/*.html)
for ((copy = 0; copy < copies; ++copy)); do
  for page in "${pages[@]}"; do cp "$page" "$work/corpus/$copy-$(basename "$page")"; done
done
corpus=("$work"/corpus/*.html)

tools=(ours ours-junk html2text lynx w3m python html-to-text)
TIMEFORMAT="%R %U %S"
for tool in "${tools[@]}"; do
  run "$tool" "$work/$tool.txt" "${pages[@]}" 2>/dev/null
  { time run "$tool" "$work/$tool.speed" "${corpus[@]}" 2>/dev/null; } 2>"$work/$tool.time"
done

/usr/bin/python3 - "$work" "$articles/ground-truth.json" "${tools[@]}" <<'EOF'
import collections, json, os, re, sys
work, truth_path, tools = sys.argv[1], sys.argv[2], sys.argv[3:]
truth = json.load(open(truth_path, encoding="utf-8"))
ids = sorted(name[:-5] for name in os.listdir(os.path.join(work, "pages")))
corpus_bytes = sum(os.path.getsize(os.path.join(work, "corpus", n))
                   for n in os.listdir(os.path.join(work, "corpus")))
# Speed by processor time (user and system, children included), which other work on the machine
# disturbs less than the elapsed time; both are printed.
cpu, wall = {}, {}
for tool in tools:
    real, user, system = map(float, open(os.path.join(work, tool + ".time")).read().split())
    cpu[tool], wall[tool] = user + system, real

def words(text):
    return collections.Counter(re.findall(r"\w+", text.lower()))

scores = {}
for tool in tools:
    texts = open(os.path.join(work, tool + ".txt"), encoding="utf-8", errors="replace").read()
    texts = texts.split("\f\n")
    recall = precision = 0.0
    for page_id, text in zip(ids, texts):
        article, page = words(truth[page_id]["articleBody"]), words(text)
        common = sum((article & page).values())
        recall += common / max(1, sum(article.values()))
        precision += common / max(1, sum(page.values()))
    megabytes = corpus_bytes / 1e6
    scores[tool] = (recall / len(ids), precision / len(ids), megabytes / cpu[tool],
                    megabytes / wall[tool])

ours = scores["ours"]
print(f"{len(ids)} pages; speed over {corpus_bytes / 1e6:.1f} MB in {len(os.listdir(os.path.join(work, 'corpus')))} files")
print(f"{'tool':<14}{'recall':>8}{'precision':>11}{'MB/s cpu':>10}{'MB/s wall':>11}"
      f"{'ours/tool speed':>17}{'recall ours-tool':>18}")
for tool in tools:
    r, p, s, w = scores[tool]
    print(f"{tool:<14}{r:>8.4f}{p:>11.4f}{s:>10.1f}{w:>11.1f}{ours[2] / s:>17.1f}{ours[0] - r:>+18.4f}")
fastest = max((t for t in tools if not t.startswith("ours")), key=lambda t: scores[t][2])
print(f"fastest peer: {fastest}; ours is {ours[2] / scores[fastest][2]:.1f}x its speed (cpu), "
      f"recall {ours[0]:.4f} vs {scores[fastest][0]:.4f}")
EOF
