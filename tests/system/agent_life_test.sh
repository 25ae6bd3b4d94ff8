#!/bin/bash
# The agent's process on kvbridged, with traffic: SIGTERM in every state, bridges made and deleted a hundred times.
# Usage: agent_life_test.sh BIN_DIR. Exit status 77: skipped.
set -euo pipefail

bin=$1
rounds=${ROUNDS:-100}
skip() { echo "skipped: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root"
[ -w /dev/fuse ] && [ -w /dev/net/tun ] || skip "needs FUSE and TAP devices"
ip netns add pialife$$ 2>/dev/null || skip "needs network namespaces"

work=$(mktemp -d)
tree=/run/kvbridged/life$$
pids=()
cleanup() {
  local status=$?
  trap - EXIT
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    kill "${pids[i]}" 2>/dev/null || true
    wait "${pids[i]}" 2>/dev/null || true
  done
  ip netns del pialife$$
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT

fail() { echo "FAILED: $*"; cat "$work"/*.log; exit 1; }
start() { nsenter --net=/run/netns/pialife$$ "${@:2}" >"$work/$1.log" 2>&1 & pids+=($!); last=$!; }
ctl() { "$bin/pppoeiactl" -t 20 "$@"; }
wait_for() { for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done; return 1; }
in_ns() { nsenter --net=/run/netns/pialife$$ "$@"; }

in_ns ip link add sub type veth peer name line
in_ns ip link add uplink type veth peer name peer
for link in sub line uplink peer; do in_ns ip link set "$link" up; done
start kvbridged "$bin/kvbridged" --tree "$tree" run --bridge br0 --port br0,1,subscriber,line --port br0,9,network,uplink
wait_for test -e "$tree/mng/config" || fail "kvbridged does not start"

agent_start() {
  start agent "$bin/kvbridged" --tree "$tree" exec -- "$bin/pppoeia"
  agent=$last
  wait_for ctl log level get || fail "the agent does not answer"
}
agent_end() {  # STATE
  local begin end status=0
  begin=$(date +%s%N)
  kill -TERM "$agent"
  wait "$agent" || status=$?
  end=$(date +%s%N)
  [ "$status" = 0 ] || fail "the agent ended with $status when $1"
  [ $(((end - begin) / 1000000)) -lt 3000 ] || fail "the agent took $(((end - begin) / 1000000)) ms to end when $1"
  in_ns ip link show br0_pppoe >/dev/null 2>&1 && fail "the device is still there after the end when $1"
  echo "ended in $(((end - begin) / 1000000)) ms when $1"
}
bridge_make() {
  ctl -batch - <<BATCH
bridge add br0 16
bridge vlan set-all br0 on
port add br0 1 line line --type eth
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH
}

agent_start
agent_end "idle"
agent_start
ctl init
agent_end "initialised"
agent_start
ctl init
bridge_make
start flood "$bin/padi_flood" sub 2000
counted() { [ "$(ctl --json bridge stats get br0 | grep -o '"padi":[0-9]*' | cut -d: -f2)" -gt 20 ]; }
wait_for counted || fail "no traffic comes through"
agent_end "under traffic"

agent_start
ctl init
bridge_make && ctl bridge del br0
count_of() { ls "/proc/$agent/$1" | wc -l; }
memory_of() { awk '/^VmRSS/ { print $2 }' "/proc/$agent/status"; }
fds=$(count_of fd) tasks=$(count_of task) memory=$(memory_of)
for _ in $(seq "$rounds"); do
  bridge_make
  ctl bridge del br0
done
in_ns ip link show br0_pppoe >/dev/null 2>&1 && fail "a deleted bridge's device is still there"
echo "$rounds rounds: descriptors $fds -> $(count_of fd), threads $tasks -> $(count_of task), resident KiB $memory -> $(memory_of)"
[ "$(count_of fd)" = "$fds" ] || fail "descriptors were left behind"
[ "$(count_of task)" = "$tasks" ] || fail "threads were left behind"
agent_end "after $rounds rounds"
grep -qE 'Sanitizer|runtime error' "$work"/*.log && fail "a sanitizer complains"
echo "passed"
