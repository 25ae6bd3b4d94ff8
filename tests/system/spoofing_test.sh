#!/bin/bash
# Forged discovery frames of a subscriber through kvbridged and the agent, judged where the server is: by two readers of
# the test's own and by tshark. Usage: spoofing_test.sh BIN_DIR. Exit status 77: skipped. COUNT and SEED may be set.
. "$(dirname "$0")/node.sh"

command -v tshark >/dev/null || skip "needs tshark"
ip link add mng0 type veth peer name mng0peer
kvbridged_start
agent_start
line_and_uplink_add

# What tshark shows of each PADI and PADR: how many there are, and the identifiers that come first.
decoded() {
  tshark -r "$1" -Y 'eth && (pppoe.code == 0x09 || pppoe.code == 0x19)' -T fields -E occurrence=f \
    -e pppoed.tags.circuit_id -e pppoed.tags.remote_id 2>/dev/null | sort | uniq -c | sed 's/^ *//'
}
for side in subscriber any; do
  ctl port state set br0 1 "$side"
  echo "--- the line's side: $side"
  "$bin/spoofing_wire" sub peer "the line's own" customer-0001 "${COUNT:-50000}" "$work/sample" | tee "$work/report" ||
    fail "what came through is wrong"
  expected="$(awk '/^in the sample/ { print $NF }' "$work/report") the line's own"$'\t'customer-0001
  [ "$(decoded "$work/sample")" = "$expected" ] || { decoded "$work/sample"; fail "tshark reads another"; }
done
no_sanitizer_complains
echo "passed"
