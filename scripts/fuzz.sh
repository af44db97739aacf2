#!/usr/bin/env bash
# Runs every fuzz target for some seconds, starting from its small corpus; a crash or a sanitizer report fails.
# Usage: scripts/fuzz.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset fuzz
cmake --build build/fuzz -j "$(nproc)"
for target in build/fuzz/fuzz/fuzz_*; do
  [ -x "$target" ] && [ -f "$target" ] || continue
  name=$(basename "$target")
  work=$(mktemp -d)
  echo "--- $name"
  "$target" "$work" "fuzz/corpus/$name" -max_total_time="$seconds" -max_len=2048 -timeout=20 -rss_limit_mb=4096 \
    -print_final_stats=1 2>&1 | tail -n 12
  [ "${PIPESTATUS[0]}" -eq 0 ]
  rm -rf "$work"
done
