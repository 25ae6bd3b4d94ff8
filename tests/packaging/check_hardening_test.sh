#!/bin/bash
# A program with everything passes the check; without one protection, it says which. Usage: check_hardening_test.sh CHECK CXX
set -euo pipefail

check=$1 compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat >"$work/program.cc" <<'CODE'
#include <cstdio>
#include <cstring>
int told(const char* name)
{
  char text[64];
  std::strcpy(text, name);
  return std::puts(text);
}
int main(int, char** arguments) { return told(arguments[0]) < 0; }
CODE
case $("$compiler" -dumpmachine) in
  x86_64*) branches=(-fcf-protection=full) none=-fcf-protection=none ;;
  aarch64*) branches=(-mbranch-protection=standard) none=-mbranch-protection=none ;;
  *) echo "no control-flow protection is known for this machine"; exit 0 ;;
esac
all=(-O2 -fPIE -pie -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong "${branches[@]}"
  -Wl,-z,relro,-z,now,-z,noexecstack)

failed=0
build() { "$compiler" "$work/program.cc" "${all[@]}" "$@" -o "$work/program"; }
lacks() {  # WHAT FLAG...
  build "${@:2}"
  local said status=0
  said=$("$check" "$work/program") || status=$?
  [ "$status" = 1 ] && [ "$said" = "$work/program: $1" ] || { echo "without ($1): status $status, $said"; failed=1; }
}
build && "$check" "$work/program" || { echo "complains without a reason"; failed=1; }
lacks "no position-independent executable" -fno-pie -no-pie
lacks "no GNU_RELRO: tables stay writable" -Wl,-z,norelro
lacks "no BIND_NOW: relocations stay writable" -Wl,-z,lazy
lacks "an executable stack" -Wl,-z,execstack
lacks "no stack protector" -fno-stack-protector
lacks "no fortified library call" -U_FORTIFY_SOURCE
lacks "a path to look for libraries" -Wl,-rpath,"$work"
lacks "no guarded control flow, in main" "$none"
"$check" "$work/nothing" >/dev/null 2>&1 && { echo "passes what is not there"; failed=1; }
exit $failed
