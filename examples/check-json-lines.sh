#!/usr/bin/env bash
# Every example and pitfall scenario, and the malformed one, run with --json and with -q --json:
# each line of standard output must be one JSON object, as a program reading it line by line
# expects, whatever the scenario says on standard error.
#   check-json-lines.sh EXAMPLES_DIR HALBD_SIM [EMULATOR...]
set -euo pipefail
examples=$1
shift
command -v jq >/dev/null || { echo "jq is needed (Debian package jq)" >&2; exit 1; }

cd "$examples"
failures=0
for scenario in ./*.scn pitfalls/*.scn malformed/*.scn; do
  for options in --json "--strict -q --json"; do
    # shellcheck disable=SC2086 # the options are two words
    output=$("$@" $options "$scenario" 2>/dev/null) || true
    if [ -z "$output" ]; then
      echo "FAIL: $scenario $options: no output" >&2
      failures=$((failures + 1))
      continue
    fi
    # Each line on its own: -R reads it as text, fromjson parses it whole.
    if ! jq -R 'fromjson | if type == "object" then empty else error("not an object") end' \
      <<<"$output" >/dev/null; then
      echo "FAIL: $scenario $options: a line of its output is not one JSON object" >&2
      failures=$((failures + 1))
    fi
  done
done
exit $((failures > 0))
