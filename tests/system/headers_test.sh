#!/bin/bash
# Every installed header compiles by itself, as C++17 and as C++20, without a warning. With clang, which has the same
# standard library, all are compiled together.
# Usage: headers_test.sh PREFIX
set -euo pipefail
prefix=$1
work=$(mktemp -d /tmp/headers.XXXXXX)
trap 'rm -rf "$work"' EXIT
mapfile -t headers < <(cd "$prefix/include" && find . -name '*.h' -printf '%P\n' | sort)
[ ${#headers[@]} -gt 0 ] || { echo "no headers under $prefix"; exit 1; }
# What a plug-in needs that serves an RPC program of its own.
ls "$prefix"/include/rte/BLL/core/rpc_{register,bll_service}.h >/dev/null
tirpc=$(pkg-config --cflags libtirpc | sed 's/-I/-isystem /g')

# compile COMPILER STANDARD HEADER...
compile() {
  printf '#include "%s"\n' "${@:3}" > "$work/source.cc"
  # shellcheck disable=SC2086
  "$1" "-std=$2" -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -I "$prefix/include" $tirpc \
    "$work/source.cc" || { echo "$1 -std=$2: $3 ..."; exit 1; }
}

for standard in c++17 c++20; do
  for header in "${headers[@]}"; do
    compile g++ $standard "$header"
  done
  if command -v clang++ >/dev/null; then
    compile clang++ $standard "${headers[@]}"
  else
    echo "clang++ is not installed: g++ alone"
  fi
done
