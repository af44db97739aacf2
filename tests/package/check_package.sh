#!/usr/bin/env bash
# Installs the library into an empty prefix and builds a host against it, by find_package and by pkg-config.
# Usage: check_package.sh BUILD_DIRECTORY SOURCE_DIRECTORY COMPILER
set -euo pipefail
build=$1 source=$2 compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" --component facetbox >/dev/null
cmake --install "$build" --prefix "$work/first" --component io >/dev/null
# The tree must work where it is found, not only where it was installed.
mv "$work/first" "$work/prefix"
libdir=$(dirname "$(find "$work/prefix" -name libfacetbox.so)")

cmake -S "$source/tests/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
cmake --build "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
"$work/build/consumer"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
"$compiler" -std=c++20 "$source/tests/consumer/main.cpp" -o "$work/by_pkg_config" \
  $(pkg-config --cflags --libs facetbox-io) -Wl,-rpath,"$libdir"
"$work/by_pkg_config"

# Nothing but the public headers, and none of them may need a header of ours that is not there, or Boost.
for header in $(cd "$work/prefix/include" && find facetbox -name '*.h'); do
  echo "#include <$header>" | "$compiler" -std=c++20 -x c++ -fsyntax-only -I"$work/prefix/include" -
  if grep -n 'boost' "$work/prefix/include/$header"; then echo "$header shows Boost"; exit 1; fi
done
