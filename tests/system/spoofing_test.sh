#!/bin/bash
# Forged discovery frames of a subscriber through kvbridged and the agent, judged where the server is: by two readers of
# the test's own and by tshark. Usage: spoofing_test.sh BIN_DIR. Exit status 77: skipped. COUNT and SEED may be set.
set -euo pipefail

bin=$1
count=${COUNT:-50000}
skip() { echo "skipped: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root"
[ -w /dev/fuse ] && [ -w /dev/net/tun ] || skip "needs FUSE and TAP devices"
command -v tshark >/dev/null || skip "needs tshark"
if [ -z "${SPOOFING_NODE:-}" ]; then
  unshare --net --mount true 2>/dev/null || skip "needs namespaces"
  SPOOFING_NODE=1 exec unshare --net --mount "$0" "$bin"
fi

mount -t tmpfs tmpfs /run
work=$(mktemp -d)
pids=()
cleanup() {
  local status=$?
  trap - EXIT
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    kill "${pids[i]}" 2>/dev/null || true
    wait "${pids[i]}" 2>/dev/null || true
  done
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT
fail() { echo "FAILED: $*"; tail -n 5 "$work"/*.log; exit 1; }
start() { "${@:2}" >"$work/$1.log" 2>&1 & pids+=($!); }
ctl() { "$bin/pppoeiactl" -t 20 "$@"; }
wait_for() { for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done; return 1; }

for pair in "sub line" "uplink server"; do
  read -r one other <<<"$pair"
  ip link add "$one" type veth peer name "$other"
  for link in $one $other; do
    sysctl -qw "net.ipv6.conf.$link.disable_ipv6=1" 2>/dev/null || true
    ip link set "$link" up
  done
done
ip link add mng0 type veth peer name mng0peer
start kvbridged "$bin/kvbridged" run --bridge br0 --port br0,1,subscriber,line --port br0,9,network,uplink
wait_for test -e /run/kvbridged/tree/mng/config || fail "kvbridged does not start"
start agent "$bin/kvbridged" exec -- "$bin/pppoeia"
wait_for ctl log level get || fail "the agent does not answer"
ctl -batch - <<'BATCH'
init
bridge add br0 16
bridge vlan set-all br0 on
format circuit-id set br0 "the line's own"
format remote-id set br0 "$PORT_REM_ID"
port add br0 1 line line --type eth
port circuit-id-mode set br0 1 custom
port remote-id set br0 1 customer-0001
port trust set br0 1 untrusted
port add br0 9 uplink uplink --kind 1
port trust set br0 9 trusted
port state set br0 9 network
BATCH

# What tshark shows of each PADI and PADR: how many there are, and the identifiers that come first.
decoded() {
  tshark -r "$1" -Y 'eth && (pppoe.code == 0x09 || pppoe.code == 0x19)' -T fields -E occurrence=f \
    -e pppoed.tags.circuit_id -e pppoed.tags.remote_id 2>/dev/null | sort | uniq -c | sed 's/^ *//'
}
for side in subscriber any; do
  ctl port state set br0 1 "$side"
  echo "--- the line's side: $side"
  "$bin/spoofing_wire" sub server "the line's own" customer-0001 "$count" "$work/sample" | tee "$work/report" ||
    fail "what came through is wrong"
  expected="$(awk '/^in the sample/ { print $NF }' "$work/report") the line's own"$'\t'customer-0001
  [ "$(decoded "$work/sample")" = "$expected" ] || { decoded "$work/sample"; fail "tshark reads another"; }
done
grep -qE 'Sanitizer|runtime error' "$work"/*.log && fail "a sanitizer complains"
echo "passed"
