#!/usr/bin/env bash
# scripts/demo.sh FERNCAST: a short tour of the ferncast command on the samples in tests/data.
set -euo pipefail
ferncast=${1:?usage: scripts/demo.sh PATH_TO_FERNCAST}
data=$(cd "$(dirname "$0")/../tests/data" && pwd)
run() { printf '\n$ ferncast %s\n' "$*"; "$ferncast" "$@"; }

run markup decode --report "$data/sample.html"
run markup tags "$data/sample.html" | head -n 4
run html title "$data/sample.html"
run html links "$data/sample.html"
printf 'Ca\xcc\x88fe\xcc\x81  \xef\xac\x81ne\n' | run text normalize --lowercase
printf 'Cr\xc3\xa8me br\xc3\xbbl\xc3\xa9e\n' | run text fold --ascii
printf '&lt;&eacute;t&eacute;&gt; &#8364;\n' | run entities decode
run url params 'https://example.org/search?q=caf%C3%A9&page=2'
printf 'Hello, Ferncast!\n' | "$ferncast" data gzip | run data inflate

# The main job: a helper answering requests for the sample files. A negative answer (nil or NO)
# exits with 1 and is part of the tour; any other failure ends the demo with its status.
ask() { run helper "$@" || [ $? -eq 1 ]; }
helper="$(dirname "$ferncast")/ferncast-helper"
if [ -x "$helper" ]; then
  "$helper" &
  helper_pid=$!
  trap 'kill "$helper_pid" 2>/dev/null; wait "$helper_pid" 2>/dev/null' EXIT
  # The helper is ready once its name is listed among the listening sockets (2 s at most).
  for _ in $(seq 100); do
    grep -q "@FerncastHelper32/" /proc/net/unix && break
    kill -0 "$helper_pid" || { echo "ferncast-helper ended at start" >&2; exit 3; }
    sleep 0.02
  done
  ask supportsFile "$data/sample.html"
  ask metaDataForFile "$data/sample.html"
  ask searchableTextOfWebArchive "$data/sample.html"
fi
