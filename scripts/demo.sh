#!/usr/bin/env bash
# Inspects a model, cleans it, inspects the result and draws both.
# Usage: scripts/demo.sh PROGRAM MODEL OUTPUT_DIRECTORY
# UP=0,0,1 draws models whose z axis points up.
set -euo pipefail
program=$1 model=$2 out=$3
name=$(basename "${model%.*}")
cleaned="$out/${name}_cleaned.obj"
mkdir -p "$out"

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
say "Before: $model"
"$program" info "$model"
say "Cleaning"
"$program" clean "$model" -o "$cleaned" --all "${LENGTH_TOLERANCE:-0.01}"
say "After: $cleaned"
"$program" info "$cleaned"

say "Pictures: drawn by rays of the picker, with the edges of the faces"
draw() {
  "$program" render "$2" -o "$3" --up "${UP:-0,1,0}" --wireframe --by "$4"
  printf '  %-44s %s\n' "$3" "$1"
}
draw "before" "$model" "$out/$name.png" object
draw "after" "$cleaned" "$out/${name}_cleaned.png" object
draw "after, a color for each material" "$cleaned" "$out/${name}_materials.png" material

say "A mask of the cleaned model, and a closer view compared with it: red edges lie outside the mask"
mask="$out/${name}_mask.png" verdict="$out/${name}_verdict.png"
view=(--up "${UP:-0,1,0}" --by material)
"$program" query "$cleaned" "${view[@]}" --write-mask "$mask"
printf '  %-44s %s\n' "$mask" "the mask"
"$program" query "$cleaned" "${view[@]}" --raster "$mask"
"$program" query "$cleaned" "${view[@]}" --fov 75 --raster "$mask" -o "$verdict"
printf '  %-44s %s\n' "$verdict" "a closer view, on the same mask"
