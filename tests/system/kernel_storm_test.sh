#!/bin/bash
# A PADI of each of 10,000 lines at once, 50 ports with 200 VLANs each, through a bridge of the kernel's: none is lost, and
# each has its own identifiers. Usage: kernel_storm_test.sh BIN_DIR. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"

"$bin/kvbridged" status >"$work/status.log" 2>&1 || skip "$(cat "$work/status.log")"
ports=50
ip link add br0 type bridge
ip link set uplink master br0
for ((port = 1; port <= ports; port++)); do
  echo "link add port$port type veth peer name host$port"
  echo "link set port$port master br0 up"
  echo "link set host$port up"
done | ip -batch -
ip link set br0 up
kvbridged_start_on_kernel --port uplink=99
export PPPOEIA_RING_KIB=4096  # a node with one bridge of many lines, as its manual has it
agent_start
{
  cat <<'BATCH'
init
bridge add br0 128
port trust set-all br0 untrusted
bridge vlan set-all br0 on
format circuit-id set br0 "line $PORT:$VLAN"
format remote-id set br0 "$PORT_REM_ID"
port add br0 99 uplink uplink --kind 1
port trust set br0 99 trusted
port state set br0 99 network
BATCH
  for ((port = 1; port <= ports; port++)); do
    cat <<BATCH
port add br0 $port port$port port$port --type eth
port circuit-id-mode set br0 $port custom
port remote-id set br0 $port customer-$port
port state set br0 $port subscriber
BATCH
  done
} | ctl -batch - || fail "the agent cannot be configured"
"$bin/lines_storm" host "$ports" 200 peer || { "$bin/kvbridged" status; kill -USR1 "${pid[kvbridged]}"; sleep 0.2; fail "the storm"; }
no_sanitizer_complains
echo "passed"
