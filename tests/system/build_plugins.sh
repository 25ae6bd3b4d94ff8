#!/bin/bash
# Installs the build and builds the example plug-ins against it, outside the tree, as their authors do.
# Usage: build_plugins.sh BUILD_DIR EXAMPLES_DIR OUTPUT_DIR [C++ FLAGS]
set -euo pipefail
build=$1 examples=$2 output=$3 flags=${4:-}
rm -rf "$output"
cmake --install "$build" --prefix "$output/prefix" >/dev/null
mkdir -p "$output/lib"
for plugin in hello depends; do
  cmake -S "$examples/plugin-$plugin" -B "$output/$plugin" \
    -DCMAKE_PREFIX_PATH="$output/prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
  cmake --build "$output/$plugin" >/dev/null
  cp "$output/$plugin/lib$plugin.so" "$output/lib/"
done
