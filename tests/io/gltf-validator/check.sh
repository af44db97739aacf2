#!/usr/bin/env bash
# Holds the glTF and GLB files that the program writes against gltf-validator. Skipped (77) where that cannot be had.
# Usage: check.sh PROGRAM WORK_FOLDER MODEL_FOLDER...
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
program=$1 work=$2
shift 2
skip() { echo "skipped: $1"; exit 77; }

command -v node >/dev/null && command -v npm >/dev/null || skip 'there is no node or npm'
mkdir -p "$work"
if ! cmp -s "$here/package-lock.json" "$work/installed.json"; then
  cp "$here/package.json" "$here/package-lock.json" "$work/"
  (cd "$work" && npm ci --silent --no-audit --no-fund --fetch-retries 0) || skip 'gltf-validator cannot be installed'
  cp "$here/package-lock.json" "$work/installed.json"
fi
cp "$here/validate.js" "$work/"

rm -rf "$work/files"
mkdir "$work/files"
count=0
while IFS= read -r model; do
  count=$((count + 1))
  for end in gltf glb; do
    "$program" convert "$model" "$work/files/$count-$(basename "$model").$end" >/dev/null
  done
done < <(find "$@" -name '*.obj' -o -name '*.ply' -o -name '*.off' 2>/dev/null | sort)
node "$work/validate.js" "$work"/files/*
