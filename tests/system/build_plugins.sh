#!/bin/bash
# Installs the build and builds the example plug-ins against it, outside the tree, as their authors do: hello from the
# listings of the guide, which are the example's files.
# Usage: build_plugins.sh BUILD_DIR SOURCE_DIR OUTPUT_DIR [C++ FLAGS]
set -euo pipefail
build=$1 source=$2 output=$3 flags=${4:-}
rm -rf "$output"
cmake --install "$build" --prefix "$output/prefix" >/dev/null
mkdir -p "$output/lib" "$output/page"

listing() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{//!p;/^\`\`\`\$/q}" "$source/docs/framework.md" > "$output/page/$2"; }
listing cpp hello.cc
listing cmake CMakeLists.txt
listing xml bll_config.xml
for file in hello.cc CMakeLists.txt; do
  diff "$source/examples/plugin-hello/$file" "$output/page/$file"
done

for plugin in "$output/page" "$source/examples/plugin-depends"; do
  folder=$output/build/$(basename "$plugin")
  cmake -S "$plugin" -B "$folder" -DCMAKE_PREFIX_PATH="$output/prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
  cmake --build "$folder" >/dev/null
  cp "$folder"/lib*.so "$output/lib/"
done
