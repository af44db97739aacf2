#!/usr/bin/env bash
# Compares our own names among the exported symbols with the list of what hosts may use.
# Usage: check_exports.sh LIBRARY ALLOW_LIST
set -euo pipefail
library=$1 allowed=$2
# Weak instances of library templates show up even with hidden visibility: only our own names count.
exported=$(nm -DC --defined-only "$library" | cut -d' ' -f3- |
  grep -E '(^|[^:[:alnum:]_])(Cleanup|Picker|Intersector|util|facetbox)::' | grep -vE '^((vtable|typeinfo|typeinfo name) for )?(std|boost|__gnu_cxx)::|^(void|bool|char|int|auto|decltype).* (std|boost)::' | LC_ALL=C sort -u)
diff <(grep -vE '^(#|$)' "$allowed" | LC_ALL=C sort -u) <(printf '%s\n' "$exported") ||
  { echo "exported symbols differ from the list ('<' missing, '>' not allowed)"; exit 1; }
