#!/usr/bin/env bash
# Compares the library's exported dynamic symbols (demangled) with the committed list, so that an
# accidental export or a lost interface fails the suite.
# Usage: check_exports.sh <library.so> <expected-list>
set -euo pipefail
library=$1
expected=$2
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | grep -v '^$' | c++filt | LC_ALL=C sort -u)
if ! diff <(LC_ALL=C sort -u "$expected") <(echo "$actual"); then
  echo "exported symbols differ from $expected ('<' lost, '>' new)" >&2
  exit 1
fi
echo "exported symbols match $expected ($(echo "$actual" | wc -l) symbols)"
