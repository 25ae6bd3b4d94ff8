#!/bin/bash
# A bridge of the kernel's with kvbridged and the agent beside it, and the same bridge without them, in turn: session
# frames, and the whole road of a PADI from the client's send to the server's receipt.
# Usage: kernel_bridge_bench.sh BIN_DIR. ROUNDS=7 and SECONDS_EACH=1 may be set. Needs root, eBPF, FUSE, TAP and python3.
. "$(dirname "$0")/../../tests/system/node.sh"

rounds=${ROUNDS:-7}
each=${SECONDS_EACH:-1}
ip link add br0 type bridge
ip link set br0 up
for port in line uplink; do ip link set "$port" master br0; done
for host in near:1 far:2; do
  ip netns add "${host%:*}"
  ip link add "tcp${host#*:}" type veth peer name eth0 netns "${host%:*}"
  ip link set "tcp${host#*:}" master br0 up
  ip -n "${host%:*}" addr add "10.9.0.${host#*:}/24" dev eth0
  ip -n "${host%:*}" link set eth0 up
done

beside_start() {
  start kvbridged "$bin/kvbridged" run --kernel-bridge br0 --uplink uplink --uplink tcp2 --port line=3 --port uplink=9
  wait_for test -e "$tree/mng/config" || fail "kvbridged does not start"
  agent_start
  ctl -batch - <<'BATCH' || fail "the agent cannot be configured"
init
bridge add br0 16
bridge vlan set-all br0 on
port trust set-all br0 untrusted
port add br0 3 line line --type eth
port state set br0 3 subscriber
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
# Bytes a second between two hosts behind the bridge.
tcp() {
  python3 - "$each" <<'PYTHON'
import ctypes, os, socket, sys, threading, time
def enter(name): assert ctypes.CDLL(None).setns(os.open("/run/netns/" + name, os.O_RDONLY), 0x40000000) == 0
def serve(listener):
    peer, _ = listener.accept()
    buffer = bytearray(1 << 20)
    while peer.recv_into(buffer): pass
enter("far"); listener = socket.create_server(("10.9.0.2", 7000))
enter("near"); out = socket.create_connection(("10.9.0.2", 7000))
threading.Thread(target=serve, args=(listener,)).start()
block, sent, begin = bytes(1 << 20), 0, time.monotonic()
while time.monotonic() - begin < float(sys.argv[1]): sent += out.send(block)
out.close()
print("%d bytes/s, %.3f ns of CPU a byte" % (sent / (time.monotonic() - begin), time.process_time() * 1e9 / sent))
PYTHON
}

# Of each pair of rounds: how many a second and CPU a piece, beside the bare bridge.
compare() {  # WHAT
  local words
  words=$(awk '{ print NF; exit }' "$work/bare.$1")
  paste -d ' ' "$work/bare.$1" "$work/beside.$1" | awk -v n="$words" '{ print $(n + 1) / $1, $(n + 3) / $3 }' >"$work/ratios"
  echo "$1 beside the bare bridge, medians of $rounds rounds: a second $(median 1), CPU each $(median 2)"
}
median() { cut -d ' ' -f "$1" "$work/ratios" | sort -g | sed -n "$(((rounds + 1) / 2))p"; }

for ((round = 0; round < rounds; round++)); do
  for size in 64 1492; do load session sub peer $size "$each" >>"$work/bare.$size"; done
  tcp >>"$work/bare.tcp"
  load discovery sub peer 1000 "$each" >>"$work/bare.road"
  beside_start
  for size in 64 1492; do load session sub peer $size "$each" >>"$work/beside.$size"; done
  tcp >>"$work/beside.tcp"
  load discovery sub peer 1000 "$each" >>"$work/beside.road"
  load storm sub peer 10000 >>"$work/beside.storm"
  load discovery sub peer 50000 "$each" >>"$work/beside.fast"
  beside_end
done
for what in bare.64 beside.64 bare.1492 beside.1492 bare.tcp beside.tcp bare.road beside.road beside.storm beside.fast; do
  sed "s/^/$what: /" "$work/$what"
done
for what in 64 1492 tcp; do compare $what; done
