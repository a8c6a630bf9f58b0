#!/usr/bin/env bash
# bench/feeds_peers.sh [BUILD_DIR]: feeds and articles, ours beside peers in one run.
#   1. Expectations: the feeds of shared/corpus/feeds carry an "Expect:" line written for Python
#      feedparser's result. Our items (ferncast feed items) are mapped onto that shape where the
#      meaning is the same (title, link, summary/description, content, author, dates and their
#      UTC tuples, tags, enclosure href/url/length); only expectations about entries and such
#      fields count, and only when the first item holds an element we read that field from (two
#      expectations that encode feedparser's own policies are set aside, named in the script).
#      Pass rates per field, ours and python3-feedparser's, and each failure of ours.
#   2. Feed throughput: the corpus feeds plus generated RSS 2.0, RDF, Atom and broken RSS feeds
#      (item texts from the article corpus), read by ours (BUILD_DIR/bench/feeds_benchmark, UTF-16
#      decoded beforehand), python3-feedparser (bytes) and npm rss-parser (decoded strings).
#      MB/s of the UTF-8 bytes, items, feeds that gave items, and our ratio to each.
#   3. Articles (shared/corpus/articles): pages accepted by possibleArticle and by Readability's
#      isProbablyReaderable; word F1 against the ground truth of stripToArticle's body text
#      (ferncast article strip | ferncast html text --only-body; a refused page scores 0) and of
#      npm @mozilla/readability over linkedom; decision throughput of both.
# npm packages go to BUILD_DIR/peers (git-ignored) on first use; linkedom stays at 0.16, whose
# dependencies the registry still serves.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build}" && pwd)
shared="$root/../shared/corpus"
ours="$build/bench/feeds_benchmark"
ferncast="$build/tools/ferncast"
python=/usr/bin/python3
for f in "$ours" "$ferncast"; do
  [ -x "$f" ] || { echo "feeds_peers: build $f first" >&2; exit 2; }
done
[ -d "$shared/feeds" ] && [ -d "$shared/articles" ] || { echo "feeds_peers: no corpus" >&2; exit 2; }
"$python" -c 'import feedparser' 2>/dev/null || { echo "feeds_peers: python3-feedparser missing" >&2; exit 2; }

peers="$build/peers"
if [ ! -d "$peers/node_modules/rss-parser" ] || [ ! -d "$peers/node_modules/@mozilla/readability" ] ||
  [ ! -d "$peers/node_modules/linkedom" ]; then
  mkdir -p "$peers"
  (cd "$peers" && npm install --silent --no-audit --no-fund --prefix . rss-parser \
    @mozilla/readability linkedom@0.16 >/dev/null)
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== 1. feedparser expectations, per field (assertions passed / counted)"
"$python" - "$shared/feeds" "$ferncast" <<'EOF'
import json, os, re, subprocess, sys, time
import feedparser

folder, ferncast = sys.argv[1], sys.argv[2]
OURS = {"title": "title", "link": "link", "summary": "description", "description": "description",
        "content": "content", "author": "author", "tags": "tags", "enclosures": "enclosures"}
DATES = ["updated", "published", "created", "issued", "modified"]
for d in DATES:
    OURS[d] = "date"
    OURS[d + "_parsed"] = "date"

def entries_of(items):
    entries = []
    for item in items:
        e = {}
        for key in ("title", "link", "author"):
            if item[key]:
                e[key] = item[key]
        if item["description"]:
            e["summary"] = e["description"] = item["description"]
        if item["content"]:
            e["content"] = [{"value": item["content"]}]
        if item["date"]:
            for d in DATES:
                e[d] = item["date"]
        if "calendarDate" in item:
            iso = item["calendarDate"]["date"]
            parsed = time.strptime(iso[:19], "%Y-%m-%dT%H:%M:%S")
            for d in DATES:
                e[d + "_parsed"] = time.struct_time(tuple(parsed)[:8] + (0,))
        if "tags" in item:
            e["tags"] = [{"term": t} for t in item["tags"]]
        if "enclosures" in item:
            e["enclosures"] = [{"href": x.get("url"), "url": x.get("url"), "length": x.get("length")}
                               for x in item["enclosures"]]
        entries.append(e)
    return entries

# The elements each field of ours is read from; an expectation counts only when the feed's first
# item holds one of them (feedparser also reads dc:title, dcterms:*, Atom 0.3 created/modified...).
SOURCES = {"title": r"<title\b", "link": r"<(link|guid)\b", "description": r"<(description|summary)\b",
           "content": r"<content(:encoded)?\b", "author": r"<(author|dc:creator)\b",
           "date": r"<(pubDate|dc:date|issued|updated|published)\b", "tags": r"<category\b",
           "enclosures": r"<enclosure\b"}
# Expectations that encode feedparser's own policies rather than the feed's content.
POLICIES = {"item_description_not_a_doctype.xml": "its sanitiser re-escapes a bogus declaration",
            "item_madeup_tags_element.xml": "it maps a made-up <tags> element to tags"}

def first_item(text):
    m = re.search(r"<(item|entry)\b.*?(</(item|entry)>|$)", text, re.S)
    return m.group(0) if m else ""

def field_of(expect):
    """The one field of ours an expectation is about, or None when it concerns anything else."""
    if re.search(r"\bfeed\b|version|\.has_key|_detail|links|guid|contributors|source|type|scheme|href'\s*:", expect):
        return None
    keys = re.findall(r"entries\[\d+\]\['(\w+)'\]", expect)
    if not keys or any(k not in OURS for k in keys) or len({OURS[k] for k in keys}) != 1:
        return None
    return OURS[keys[0]]

counts = {}
for dirpath, _, names in sorted(os.walk(folder)):
    for name in sorted(names):
        if not name.endswith(".xml"):
            continue
        path = os.path.join(dirpath, name)
        head = open(path, "rb").read(2000).decode("utf-8", "replace")
        m = re.search(r"Expect:\s*(.*)", head)
        if not m:
            continue
        expect = m.group(1).strip()
        field = field_of(expect)
        if not field:
            continue
        ours_expr = re.sub(r"^not bozo and\s*", "", expect)
        run = subprocess.run([ferncast, "feed", "items", path], capture_output=True)
        try:
            ok = bool(eval(ours_expr, {}, {"entries": entries_of(json.loads(run.stdout)), "bozo": False}))
        except Exception:
            ok = False
        parsed = feedparser.parse(path)
        try:
            theirs = bool(eval(expect, {}, {"entries": parsed.entries, "bozo": parsed.bozo,
                                              "feed": parsed.feed}))
        except Exception:
            theirs = False
        body = open(path, "rb").read().decode("utf-8", "replace")
        counted = name not in POLICIES and re.search(SOURCES[field], first_item(body))
        c = counts.setdefault(field, [0, 0, 0, 0, 0])
        if counted:
            c[0] += ok
            c[1] += theirs
            c[2] += 1
        else:
            c[3] += ok
            c[4] += 1
        if counted and not ok:
            print("  ours fails %s: %s" % (os.path.relpath(path, folder), expect))
total = [sum(c[i] for c in counts.values()) for i in range(5)]
pct = lambda a, n: 100.0 * a / n if n else 0.0
print("%-12s %14s %14s   %s" % ("field", "ours", "feedparser", "not counted: elements we do not read, policies"))
for field, (ok, theirs, n, other_ok, other) in sorted(counts.items()):
    print("%-12s %8d/%-3d %3.0f%% %8d/%-3d %3.0f%%   ours %d/%d" % (
        field, ok, n, pct(ok, n), theirs, n, pct(theirs, n), other_ok, other))
print("%-12s %8d/%-3d %3.0f%% %8d/%-3d %3.0f%%   ours %d/%d" % (
    "all", total[0], total[2], pct(total[0], total[2]), total[1], total[2], pct(total[1], total[2]),
    total[3], total[4]))
EOF

echo
echo "== 2. feed throughput (corpus feeds and generated feeds)"
mkdir -p "$work/feeds"
cp -r "$shared/feeds/." "$work/feeds/"
"$python" - "$shared/articles/ground-truth.json" "$work/feeds" <<'EOF'
import html, json, os, sys
truth = json.load(open(sys.argv[1]))
texts = [v["articleBody"] for _, v in sorted(truth.items())]
out = sys.argv[2]
def paragraphs(i):
    body = texts[i % len(texts)][:1500]
    return "".join("<p>%s</p>" % p for p in body.split("\n") if p.strip())
def write(name, text):
    open(os.path.join(out, name), "w", encoding="utf-8").write(text)
n = 300
rss = ['<?xml version="1.0" encoding="utf-8"?><rss version="2.0" xmlns:dc="http://purl.org/dc/elements/1.1/"><channel><title>Generated</title><link>http://example.com/</link>']
for i in range(n):
    rss.append('<item><title>Item %d &amp; more</title><link>http://example.com/%d</link><guid>http://example.com/%d</guid>'
               '<description>%s</description><dc:creator>Writer %d</dc:creator><pubDate>Mon, 0%d Jan 2024 12:00:00 +0000</pubDate>'
               '<category>news</category><enclosure url="http://example.com/%d.mp3" length="%d" type="audio/mpeg"/></item>'
               % (i, i, i, html.escape(paragraphs(i)), i, 1 + i % 9, i, 1000 + i))
rss.append("</channel></rss>")
write("generated-rss.xml", "".join(rss))
atom = ['<?xml version="1.0" encoding="utf-8"?><feed xmlns="http://www.w3.org/2005/Atom"><title>Generated</title>']
for i in range(n):
    atom.append('<entry><title>Entry %d</title><link rel="alternate" href="http://example.com/%d"/><id>urn:x:%d</id>'
                '<updated>2024-01-0%dT12:00:00Z</updated><author><name>Writer %d</name><email>w%d@example.com</email></author>'
                '<summary>Summary %d</summary><content type="html"><![CDATA[%s]]></content></entry>'
                % (i, i, i, 1 + i % 9, i, i, i, paragraphs(i)))
atom.append("</feed>")
write("generated-atom.xml", "".join(atom))
rdf = ['<?xml version="1.0" encoding="utf-8"?><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#" '
       'xmlns="http://purl.org/rss/1.0/" xmlns:dc="http://purl.org/dc/elements/1.1/"><channel><title>Generated</title></channel>']
for i in range(n):
    rdf.append('<item rdf:about="http://example.com/%d"><title>Item %d</title><link>http://example.com/%d</link>'
               '<description>%s</description><dc:date>2024-01-0%dT12:00:00Z</dc:date></item>'
               % (i, i, i, html.escape(paragraphs(i)), 1 + i % 9))
rdf.append("</rdf:RDF>")
write("generated-rdf.xml", "".join(rdf))
# Broken: unescaped ampersands, an unclosed description in every tenth item, no closing root.
broken = ['<rss version="2.0"><channel><title>Broken & co</title>']
for i in range(n):
    close = "" if i % 10 == 0 else "</description>"
    broken.append('<item><title>Item %d & more</title><link>http://example.com/%d</link><description>%s%s</item>'
                  % (i, i, html.escape(paragraphs(i)), close))
write("generated-broken.xml", "".join(broken))
EOF
read -r ours_rate ours_items ours_feeds ours_inputs < <(FERNCAST_BENCH_FEEDS="$work/feeds" "$ours" \
  --benchmark_filter='BM_getItemsOfFeed|BM_feedsWithItems' --benchmark_min_time=2 \
  --benchmark_format=json 2>/dev/null | "$python" -c '
import json, sys
b = {x["name"]: x for x in json.load(sys.stdin)["benchmarks"]}
i, f = b["BM_getItemsOfFeed"], b["BM_feedsWithItems"]
print(i["bytes_per_second"] / 1e6, int(i["items"]), int(f["feedsWithItems"]), int(i["inputs"]))')

read -r fp_rate fp_items fp_feeds < <("$python" - "$work/feeds" <<'EOF'
import os, sys, time, feedparser
files = []
for d, _, names in sorted(os.walk(sys.argv[1])):
    files += [open(os.path.join(d, n), "rb").read() for n in sorted(names) if n.endswith(".xml")]
size = sum(map(len, files))
results = [feedparser.parse(b) for b in files]
items = sum(len(r.entries) for r in results)
with_items = sum(1 for r in results if r.entries)
rounds, start = 0, time.perf_counter()
while time.perf_counter() - start < 2 or rounds < 1:
    for b in files:
        feedparser.parse(b)
    rounds += 1
print(size * rounds / (time.perf_counter() - start) / 1e6, items, with_items)
EOF
)

read -r rp_rate rp_items rp_feeds rp_failed < <(NODE_PATH="$peers/node_modules" node - "$work/feeds" <<'EOF'
const fs = require("fs"), path = require("path");
const Parser = require("rss-parser");
const files = [];
(function walk(d) {
  for (const n of fs.readdirSync(d).sort()) {
    const p = path.join(d, n);
    if (fs.statSync(p).isDirectory()) walk(p);
    else if (n.endsWith(".xml")) files.push(fs.readFileSync(p));
  }
})(process.argv[2]);
const size = files.reduce((s, b) => s + b.length, 0);
const texts = files.map((b) => b.toString("utf8"));
const parser = new Parser();
async function all() {
  let items = 0, withItems = 0, failed = 0;
  for (const t of texts) {
    try {
      const feed = await parser.parseString(t);
      items += feed.items.length;
      if (feed.items.length) withItems++;
    } catch (e) { failed++; }
  }
  return [items, withItems, failed];
}
(async () => {
  const [items, withItems, failed] = await all();
  let rounds = 0;
  const start = process.hrtime.bigint();
  const seconds = () => Number(process.hrtime.bigint() - start) / 1e9;
  while (seconds() < 2 || rounds < 1) { await all(); rounds++; }
  console.log(size * rounds / seconds() / 1e6, items, withItems, failed);
})();
EOF
)
"$python" - "$ours_rate" "$ours_items" "$ours_feeds" "$ours_inputs" "$fp_rate" "$fp_items" \
  "$fp_feeds" "$rp_rate" "$rp_items" "$rp_feeds" "$rp_failed" <<'EOF'
import sys
a = sys.argv[1:]
ours, n = float(a[0]), a[3]
print("%-22s %9s %7s %14s" % ("", "MB/s", "items", "feeds w/ items"))
print("%-22s %9.1f %7s %10s/%s" % ("ferncast", ours, a[1], a[2], n))
print("%-22s %9.1f %7s %10s/%s   ours %.1fx" % ("python3-feedparser", float(a[4]), a[5], a[6], n, ours / float(a[4])))
print("%-22s %9.1f %7s %10s/%s   ours %.1fx  (%s feeds threw)" % ("rss-parser", float(a[7]), a[8], a[9], n, ours / float(a[7]), a[10]))
EOF

echo
echo "== 3. articles: acceptance, word F1 against the ground truth, decision throughput"
mkdir -p "$work/pages" "$work/ours"
for page in "$shared/articles/html"/*.html.gz; do
  id=$(basename "$page" .html.gz)
  gzip -dc "$page" >"$work/pages/$id.html"
  if "$ferncast" article check "$work/pages/$id.html"; then echo "$id" >>"$work/accepted"; fi
  if "$ferncast" article strip "$work/pages/$id.html" >"$work/ours/$id.html"; then
    "$ferncast" html text --only-body "$work/ours/$id.html" >"$work/ours/$id.txt"
  fi
done
NODE_PATH="$peers/node_modules" node - "$work/pages" "$work/readability.json" <<'EOF'
const fs = require("fs"), path = require("path");
const { parseHTML } = require("linkedom");
const { Readability, isProbablyReaderable } = require("@mozilla/readability");
const folder = process.argv[2];
const names = fs.readdirSync(folder).filter((n) => n.endsWith(".html")).sort();
const pages = names.map((n) => fs.readFileSync(path.join(folder, n), "utf8"));
const size = pages.reduce((s, p) => s + Buffer.byteLength(p), 0);
const result = {};
names.forEach((n, i) => {
  let accepted = false, text = "";
  try {
    const { document } = parseHTML(pages[i]);
    accepted = isProbablyReaderable(document);
    const article = new Readability(document).parse();
    text = article ? article.textContent : "";
  } catch (e) {}
  result[n.replace(/\.html$/, "")] = { accepted, text };
});
let rounds = 0;
const start = process.hrtime.bigint();
const seconds = () => Number(process.hrtime.bigint() - start) / 1e9;
while (seconds() < 2 || rounds < 1) {
  for (const p of pages) {
    try { isProbablyReaderable(parseHTML(p).document); } catch (e) {}
  }
  rounds++;
}
result["__rate"] = size * rounds / seconds() / 1e6;
fs.writeFileSync(process.argv[3], JSON.stringify(result));
EOF
ours_article_rate=$("$ours" --benchmark_filter='BM_possibleArticle' --benchmark_min_time=2 \
  --benchmark_format=json 2>/dev/null | "$python" -c '
import json, sys
print(json.load(sys.stdin)["benchmarks"][0]["bytes_per_second"] / 1e6)')
"$python" - "$shared/articles/ground-truth.json" "$work" "$ours_article_rate" <<'EOF'
import collections, json, os, re, sys
truth = json.load(open(sys.argv[1]))
work = sys.argv[2]
theirs = json.load(open(os.path.join(work, "readability.json")))
accepted = set(open(os.path.join(work, "accepted")).read().split()) if os.path.exists(os.path.join(work, "accepted")) else set()
def words(text):
    return collections.Counter(re.findall(r"\w+", text.lower()))
def f1(found, expected):
    a, b = words(found), words(expected)
    common = sum((a & b).values())
    if not common:
        return 0.0
    p, r = common / sum(a.values()), common / sum(b.values())
    return 2 * p * r / (p + r)
ours_scores, their_scores, ours_kept = [], [], []
for pid, entry in sorted(truth.items()):
    path = os.path.join(work, "ours", pid + ".txt")
    text = open(path, encoding="utf-8", errors="replace").read() if os.path.exists(path) else ""
    ours_scores.append(f1(text, entry["articleBody"]))
    if text:
        ours_kept.append(ours_scores[-1])
    their_scores.append(f1(theirs.get(pid, {}).get("text", ""), entry["articleBody"]))
n = len(truth)
their_accepted = sum(1 for k, v in theirs.items() if k != "__rate" and v["accepted"])
mean = lambda xs: sum(xs) / len(xs) if xs else 0.0
print("%-34s %10s %12s" % ("", "ferncast", "Readability"))
print("%-34s %6d/%-3d %8d/%-3d" % ("accepted (possibleArticle / isPR)", len(accepted), n, their_accepted, n))
print("%-34s %6d/%-3d %8d/%-3d" % ("extracted (stripToArticle / parse)", len(ours_kept), n,
                                      sum(1 for s in their_scores if s > 0), n))
print("%-34s %10.3f %12.3f" % ("word F1, all pages", mean(ours_scores), mean(their_scores)))
print("%-34s %10.3f" % ("word F1, pages we extract", mean(ours_kept)))
ours_rate, their_rate = float(sys.argv[3]), theirs["__rate"]
print("%-34s %10.1f %12.1f   ours %.1fx" % ("decision MB/s", ours_rate, their_rate, ours_rate / their_rate))
EOF
