#!/usr/bin/env bash
# bench/rtf_peers.sh [FERNCAST] [COPIES]: RTF to plain text, ours against unrtf, side by side in
# one run:
#   ours           ferncast rtf text (all files in one process)
#   ours-per-file  ferncast rtf text, one process per file (start-up included, as unrtf's is)
#   unrtf          unrtf --text, one process per file (it takes one file)
#
# The RTF files are made from the 60 news and blog pages of ../shared/corpus/articles: each
# page's text (ferncast html text --reformat) is written twice, once in the form the platform
# writes (\cocoartf header, \'xx and \uc0\uN escapes, bold runs, paragraphs as backslash-newline)
# and once in a word processor's form (font and style tables, a group per run, \uN with \'3f
# fallbacks, \par). Speed: COPIES (default 5) copies of those 120 files, converted by each tool
# in one timed run; MB/s of RTF per second of processor time (user and system), and the ratio of
# ours to unrtf. Agreement: the share of files whose ASCII words are the same in both texts
# (unrtf writes other characters as Latin-1 bytes or leaves them out).
#
# Needs the ferncast tool built (default build/tools/ferncast: scripts/build.sh build) and unrtf
# (scripts/packages.txt; installed with apt-get when missing).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
ferncast=$(realpath "${1:-$root/build/tools/ferncast}")
copies=${2:-5}
articles="$root/../shared/corpus/articles"
[ -x "$ferncast" ] || { echo "no ferncast tool at $ferncast" >&2; exit 2; }
[ -d "$articles/html" ] || { echo "no corpus at $articles" >&2; exit 2; }
command -v unrtf >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -q unrtf >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/text" "$work/rtf" "$work/corpus"
for gz in "$articles"/html/*.html.gz; do
  name=$(basename "$gz" .html.gz)
  gzip -dc "$gz" >"$work/page.html"
  "$ferncast" html text --reformat "$work/page.html" >"$work/text/$name.txt"
done

/usr/bin/python3 - "$work/text" "$work/rtf" <<'EOF'
import os, sys
source, target = sys.argv[1], sys.argv[2]

def escape(text, fallback):
    out = []
    for c in text:
        o = ord(c)
        if c in "\\{}":
            out.append("\\" + c)
        elif c == "\t":
            out.append("\\tab ")
        elif 32 <= o < 127:
            out.append(c)
        elif o < 32:
            continue
        else:
            try:
                b = c.encode("cp1252")
                out.append("\\'%02x" % b[0])
            except UnicodeEncodeError:
                for unit in range(0, len(c.encode("utf-16-le")), 2):
                    u = int.from_bytes(c.encode("utf-16-le")[unit:unit + 2], "little")
                    n = u - 65536 if u > 32767 else u
                    out.append("\\uc0\\u%d " % n if fallback == "" else "\\u%d%s" % (n, fallback))
    return "".join(out)

for name in sorted(os.listdir(source)):
    paragraphs = [p for p in open(os.path.join(source, name), encoding="utf-8").read().split("\n")]
    base = name[:-4]
    # The platform's form.
    body = []
    for i, p in enumerate(paragraphs):
        words = p.split(" ")
        runs = []
        for j, w in enumerate(words):
            e = escape(w, "")
            runs.append("\\b " + e + "\\b0 " if j % 7 == 3 else e)
        body.append(" ".join(runs))
    rtf = ("{\\rtf1\\ansi\\ansicpg1252\\cocoartf2761\n\\cocoatextscaling0\\cocoaplatform0"
           "{\\fonttbl\\f0\\fswiss\\fcharset0 Helvetica;}\n{\\colortbl;\\red255\\green255\\blue255;}\n"
           "{\\*\\expandedcolortbl;;}\n\\paperw11900\\paperh16840\\margl1440\\margr1440"
           "\\vieww11520\\viewh8400\\viewkind0\n\\pard\\tx566\\tx1133\\tx1700\\pardirnatural"
           "\\partightenfactor0\n\n\\f0\\fs24 \\cf0 " + "\\\n".join(body) + "}")
    open(os.path.join(target, base + "-platform.rtf"), "w", encoding="ascii").write(rtf)
    # A word processor's form.
    body = []
    for p in paragraphs:
        words = p.split(" ")
        runs = []
        for j in range(0, len(words), 5):
            chunk = escape(" ".join(words[j:j + 5]) + " ", "\\'3f")
            style = "\\i" if (j // 5) % 4 == 1 else ""
            runs.append("{\\rtlch\\af1\\afs24 \\ltrch\\hich\\af1\\loch\\f1%s %s}" % (style, chunk))
        body.append("\\pard\\plain \\s0\\ql\\widctlpar\\hyphpar0\\ltrpar\\cf0\\f1\\fs24\\lang2057"
                    "\\sb0\\sa140" + "".join(runs) + "\n\\par ")
    rtf = ("{\\rtf1\\ansi\\deff0\\adeflang1025\n{\\fonttbl{\\f0\\froman\\fprq2\\fcharset0 Times New "
           "Roman;}{\\f1\\fswiss\\fprq2\\fcharset0 Liberation Sans{\\*\\falt Arial};}}\n"
           "{\\colortbl;\\red0\\green0\\blue0;\\red128\\green128\\blue128;}\n"
           "{\\stylesheet{\\s0\\snext0\\ltrch\\f1\\fs24 Normal;}{\\*\\cs15\\snext15 Link;}}"
           "{\\*\\generator LibreOffice/7.4.7.2}{\\info{\\title " + escape(base, "\\'3f") + "}}"
           "\\deftab709\n\\paperh16838\\paperw11906\\margl1134\\margr1134\\sectd\\sbknone\n"
           "\\uc1" + "".join(body) + "}")
    open(os.path.join(target, base + "-word.rtf"), "w", encoding="ascii").write(rtf)
EOF

files=("$work"/rtf/*.rtf)
for ((copy = 0; copy < copies; ++copy)); do
  for f in "${files[@]}"; do cp "$f" "$work/corpus/$copy-$(basename "$f")"; done
done
corpus=("$work"/corpus/*.rtf)

# run TOOL OUTPUT FILES...: converts every file with one tool; each text ends with "\f\n".
run() {
  local tool=$1 output=$2
  shift 2
  case $tool in
    ours) "$ferncast" rtf text "$@" >"$output" ;;
    ours-per-file) for f in "$@"; do "$ferncast" rtf text "$f"; printf '\f\n'; done >"$output" ;;
    unrtf) for f in "$@"; do unrtf --text "$f"; printf '\f\n'; done >"$output" ;;
  esac
}

tools=(ours ours-per-file unrtf)
TIMEFORMAT="%R %U %S"
for tool in "${tools[@]}"; do
  run "$tool" "$work/$tool.txt" "${files[@]}" 2>/dev/null
  { time run "$tool" "$work/$tool.speed" "${corpus[@]}" 2>/dev/null; } 2>"$work/$tool.time"
done

/usr/bin/python3 - "$work" "${#files[@]}" "${tools[@]}" <<'EOF'
import os, re, sys
work, count, tools = sys.argv[1], int(sys.argv[2]), sys.argv[3:]
corpus_bytes = sum(os.path.getsize(os.path.join(work, "corpus", n))
                   for n in os.listdir(os.path.join(work, "corpus")))
speed = {}
for tool in tools:
    real, user, system = map(float, open(os.path.join(work, tool + ".time")).read().split())
    speed[tool] = (corpus_bytes / 1e6 / (user + system), corpus_bytes / 1e6 / real)

def texts(tool):
    raw = open(os.path.join(work, tool + ".txt"), "rb").read().decode("latin-1")
    parts = raw.split("\f\n")[:count]
    if tool == "unrtf":  # its header ends with a line of dashes
        parts = [p.split("\n-----------------\n", 1)[-1] for p in parts]
    return [re.findall(r"[A-Za-z0-9]+", p) for p in parts]

ours, theirs = texts("ours"), texts("unrtf")
same = sum(1 for a, b in zip(ours, theirs) if a == b)
print(f"{count} RTF files ({count // 2} platform form, {count // 2} word-processor form); "
      f"speed over {corpus_bytes / 1e6:.1f} MB in {len(os.listdir(os.path.join(work, 'corpus')))} files")
print(f"{'tool':<15}{'MB/s cpu':>10}{'MB/s wall':>11}{'ours/tool (cpu)':>17}")
for tool in tools:
    cpu, wall = speed[tool]
    print(f"{tool:<15}{cpu:>10.1f}{wall:>11.1f}{speed['ours'][0] / cpu:>17.1f}")
print(f"ours is {speed['ours'][0] / speed['unrtf'][0]:.1f}x unrtf's speed (cpu), "
      f"{speed['ours-per-file'][0] / speed['unrtf'][0]:.1f}x with a process per file; "
      f"same ASCII words in {same} of {count} files")
EOF
