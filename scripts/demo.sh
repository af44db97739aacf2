#!/usr/bin/env bash
# Our main job on one model: what it is, what cleaning removes, what comes out.
# Usage: scripts/demo.sh PROGRAM MODEL OUTPUT_DIRECTORY
set -euo pipefail
program=$1 model=$2 out=$3
name=$(basename "${model%.*}")
mkdir -p "$out"

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
say "Before: $model"
"$program" info "$model"
say "Cleaning"
"$program" clean "$model" -o "$out/${name}_cleaned.obj" --all "${LENGTH_TOLERANCE:-0.01}"
say "After: $out/${name}_cleaned.obj"
"$program" info "$out/${name}_cleaned.obj"
