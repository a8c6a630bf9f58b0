#!/usr/bin/env bash
# scripts/demo.sh FERNCAST: a short tour of the ferncast command on the samples in tests/data.
set -euo pipefail
ferncast=${1:?usage: scripts/demo.sh PATH_TO_FERNCAST}
"$ferncast" --help
