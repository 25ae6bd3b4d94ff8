#!/bin/bash
# What kvbridged costs session frames (0x8864) through a bridge of the kernel's: raw ones, and TCP through a PPPoE session
# whose ends are programs at the hosts' interfaces. Two bridges of the same kind, one of which it serves, have traffic in
# many short turns, so that whatever else the machine does meets both; then it serves the other one. CPU time, the kernel's
# for the frames included, is told of the bare bridge and the one beside it, with the ratio bare / beside.
# Usage: session_bench.sh BIN_DIR. TURNS=500 and CYCLES=2 may be set. Needs root, eBPF, FUSE, TAP and clang.
. "$(dirname "$0")/../../tests/system/node.sh"

turns=${TURNS:-500}
clang -O2 -g -target bpf -idirafter "/usr/include/$(uname -m)-linux-gnu" -c "$(dirname "$0")/session_ends.bpf.c" -o "$work/ends.o"
ip netns add near
ip netns add far
host_add() {  # BRIDGE NAMESPACE NUMBER NUMBER_OF_THE_OTHER
  local address=02:00:00:00:0$1:0 end=eth$1
  ip link add "tcp$1$3" type veth peer name "$end" address "$address$3" netns "$2"
  ip link set "tcp$1$3" master "br$1" up
  ip -n "$2" addr add "10.9.$1.$3/24" dev "$end"
  ip -n "$2" link set "$end" gso_max_segs 1 up
  ip -n "$2" neigh add "10.9.$1.$4" lladdr "$address$4" dev "$end"
  ip -n "$2" route replace "10.9.$1.0/24" dev "$end" mtu lock 1492
  tc -n "$2" qdisc add dev "$end" clsact
  ip netns exec "$2" tc filter add dev "$end" egress bpf da obj "$work/ends.o" sec tc
  ip -n "$2" link set "$end" xdpgeneric obj "$work/ends.o" sec xdp
}
for one in 1 2; do
  ip link add "br$one" type bridge
  ip link set "br$one" up
  for side in line up; do
    ip link add "$side$one" type veth peer name "far$side$one"
    ip link set "$side$one" master "br$one" up
    ip link set "far$side$one" up
  done
  host_add "$one" near 1 2
  host_add "$one" far 2 1
done
has_programs() { tc filter show dev "$1" "$2" | grep kvb_ >/dev/null; }  # to its end: tc must not fail

for ((cycle = 0; cycle < ${CYCLES:-2}; cycle++)); do
  served=$((2 - cycle % 2)) bare=$((1 + cycle % 2))
  start kvbridged "$bin/kvbridged" run --kernel-bridge br$served --uplink up$served --uplink tcp${served}2 \
    --port line$served=1 --port up$served=2 --port tcp${served}1=3 --port tcp${served}2=4
  wait_for has_programs tcp${served}2 egress || fail "kvbridged does not start"
  echo "br$bare bare, br$served beside kvbridged, $turns turns:"
  nice -n -20 taskset -c 0 "$bin/road_load" turns "$turns" farline$bare farup$bare 10.9.$bare.2 \
    farline$served farup$served 10.9.$served.2
  has_programs line$served ingress || fail "there were no programs"
  kill -TERM "${pid[kvbridged]}"
  wait "${pid[kvbridged]}" || fail "kvbridged did not end in order"
  pid[kvbridged]=
  ! has_programs line$served ingress || fail "programs are left behind"
done
