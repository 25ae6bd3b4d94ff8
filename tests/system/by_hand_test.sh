#!/bin/bash
# The lines of README.md's "Running it by hand", as they stand there but for the build. Usage: by_hand_test.sh BIN_DIR
# Exit status 77: skipped.
. "$(dirname "$0")/node.sh"
for program in pppoe-server pppoe-discovery; do
  command -v "$program" >/dev/null || skip "needs $program"
done
ip link del sub && ip link del uplink  # it makes its own
mkdir /run/netns

cd "$(dirname "$0")/../.."
awk '$0 == "```sh by-hand" { on = 1; next } $1 == "```" { on = 0 } on' README.md >"$work/lines"
sed -i -e '/cmake --preset/d' -e "s,^PATH=.*,PATH=$bin:\$PATH," "$work/lines"
bash -ex "$work/lines" >"$work/shown" 2>"$work/lines.log" || { cat "$work/shown"; fail "a line of it"; }
cat "$work/shown"
grep -q 'a-server' "$work/shown" || fail "the subscriber does not find the server"
grep -qE '^padi +1$' "$work/shown" || fail "the PADI is not counted"
gone() { ! ip link show "$1" >/dev/null 2>&1; }
wait_for gone line1 || fail "a cable is left"  # the kernel takes its time once the namespace is off
[ -z "$(ip netns list)" ] || fail "a namespace is left"
no_sanitizer_complains
