#!/bin/bash
# A bridge of the kernel's with kvbridged and the agent beside it, and the same bridge without them, in turn: session
# frames, and the whole road of a PADI from the client's send to the server's receipt.
# Usage: kernel_bridge_bench.sh BIN_DIR. ROUNDS=7 and SECONDS_EACH=1 may be set. Needs root, eBPF, FUSE and TAP.
. "$(dirname "$0")/../../tests/system/node.sh"

rounds=${ROUNDS:-7}
each=${SECONDS_EACH:-1}
ip link add br0 type bridge
ip link set br0 up
for port in line uplink; do ip link set "$port" master br0; done

beside_start() {
  start kvbridged "$bin/kvbridged" run --kernel-bridge br0 --uplink uplink --port line=1 --port uplink=9
  wait_for test -e "$tree/mng/config" || fail "kvbridged does not start"
  agent_start
  ctl -batch - <<'BATCH' || fail "the agent cannot be configured"
init
bridge add br0 16
bridge vlan set-all br0 on
port trust set-all br0 untrusted
port add br0 1 line line --type eth
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH
}
beside_end() {
  for name in agent kvbridged; do
    kill -TERM "${pid[$name]}"
    wait "${pid[$name]}" || fail "$name did not end in order"
    pid[$name]=
  done
}
load() { "$bin/road_load" "$@"; }
# Of each pair of rounds: frames a second and CPU a frame, beside the bare bridge.
compare() {  # SIZE
  paste -d ' ' "$work/bare.$1" "$work/beside.$1" | awk '{ print $7 / $1, $9 / $3 }' >"$work/ratios"
  echo "$1 bytes beside the bare bridge, medians of $rounds rounds: frames a second $(median 1), CPU a frame $(median 2)"
}
median() { cut -d ' ' -f "$1" "$work/ratios" | sort -g | sed -n "$(((rounds + 1) / 2))p"; }

for ((round = 0; round < rounds; round++)); do
  for size in 64 1492; do load session sub peer $size "$each" >>"$work/bare.$size"; done
  load discovery sub peer 1000 "$each" >>"$work/bare.road"
  beside_start
  for size in 64 1492; do load session sub peer $size "$each" >>"$work/beside.$size"; done
  load discovery sub peer 1000 "$each" >>"$work/beside.road"
  load storm sub peer 10000 >>"$work/beside.storm"
  load discovery sub peer 50000 "$each" >>"$work/beside.fast"
  beside_end
done
for what in bare.64 beside.64 bare.1492 beside.1492 bare.road beside.road beside.storm beside.fast; do
  sed "s/^/$what: /" "$work/$what"
done
compare 64
compare 1492
