#!/bin/bash
# Every installed header compiles by itself without a warning: the framework's as C++17 and as C++20, the client library's as
# C++20. With clang, which has the same standard library, all are compiled together. And a client links and runs.
# Usage: headers_test.sh PREFIX
set -euo pipefail
prefix=$1
work=$(mktemp -d /tmp/headers.XXXXXX)
trap 'rm -rf "$work"' EXIT
# What a plug-in needs that serves an RPC program of its own.
ls "$prefix"/include/rte/BLL/core/rpc_{register,bll_service}.h >/dev/null
tirpc=$(pkg-config --cflags libtirpc | sed 's/-I/-isystem /g')

# compile COMPILER STANDARD ROOT HEADER...
compile() {
  printf '#include "%s"\n' "${@:4}" > "$work/source.cc"
  # shellcheck disable=SC2086
  "$1" "-std=$2" -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -I "$3" $tirpc \
    "$work/source.cc" || { echo "$1 -std=$2: $4 ..."; exit 1; }
}

# headers_check ROOT FOLDER STANDARD...: all headers in the folder, included by their paths below the root.
headers_check() {
  local headers
  mapfile -t headers < <(cd "$1" && find "$2" -name '*.h' | sort)
  [ ${#headers[@]} -gt 0 ] || { echo "no headers in $1/$2"; exit 1; }
  for standard in "${@:3}"; do
    for header in "${headers[@]}"; do
      compile g++ "$standard" "$1" "$header"
    done
    if command -v clang++ >/dev/null; then
      compile clang++ "$standard" "$1" "${headers[@]}"
    else
      echo "clang++ is not installed: g++ alone"
    fi
  done
}

headers_check "$prefix/include" rte c++17 c++20
headers_check "$prefix/include/pppoeia-client" . c++20

cat >"$work/client.cc" <<'CC'
#include "tools/agent_client/agent_client.h"
int main()
{
  agent_client::connection agent("/nonexistent", std::chrono::seconds(1));
  return agent.call(3, {std::vector<unsigned char>(4)}).error == ippc::call_error::no_server ? 0 : 1;
}
CC
export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name pppoeia-client.pc)")
# shellcheck disable=SC2046
g++ ${SANITIZE:+-fsanitize="$SANITIZE"} "$work/client.cc" $(pkg-config --define-prefix --cflags --libs pppoeia-client) -o "$work/client"
"$work/client"
