#!/usr/bin/env bash
# Installs the Debian packages that building and testing need; asks the package manager only when one is missing.
# Usage: scripts/install-deps.sh [build] [test] [ci]   (default: build test)
set -euo pipefail

build=(g++ make cmake ninja-build pkg-config git
       libboost-dev libboost-thread-dev libboost-system-dev libglu1-mesa-dev libmd-dev libtbb-dev
       libcli11-dev nlohmann-json3-dev libfmt-dev libassimp-dev libpng-dev)
test=(libgtest-dev libgmock-dev libbenchmark-dev)
ci=(clang clang-format lld libclang-rt-14-dev binutils zsh python3-vtk9 python3-open3d)
# Other distributions of node bring npm along, and Debian's does not go with them.
command -v npm >/dev/null || ci+=(npm)

wanted=()
for group in "${@:-build}"; do
  case "$group" in
    build) wanted+=("${build[@]}") ;;
    test) wanted+=("${test[@]}") ;;
    ci) wanted+=("${ci[@]}") ;;
    *) echo "install-deps.sh: unknown group '$group' (build, test, ci)" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "install-deps.sh: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
