#!/usr/bin/env bash
# Compares all symbols that the library exports with the list of what hosts may use.
# Usage: check_exports.sh LIBRARY ALLOW_LIST
set -euo pipefail
library=$1 allowed=$2
exported=$(nm -DC --defined-only "$library" | cut -d' ' -f3- | LC_ALL=C sort -u)
diff <(grep -vE '^(#|$)' "$allowed" | LC_ALL=C sort -u) <(printf '%s\n' "$exported") ||
  { echo "exported symbols differ from the list ('<' missing, '>' not allowed)"; exit 1; }
