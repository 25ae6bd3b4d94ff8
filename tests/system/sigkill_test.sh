#!/bin/bash
# kvbridged and the agent are killed at random under traffic and started again as their units would; the pseudo device is
# deleted under them, and kvbridged is started again in order. Nobody does anything else about it, no PADI reaches the
# server without the line's tag, and nothing is left behind.
#
# With "kernel" the bridge is the kernel's own, served beside it in closed mode; then also its programs are taken off by
# somebody, the port leaves it and comes back, and what an agent in order gives back stays stopped.
#
# RANDOM_SEED=N repeats the order of a run.
# Usage: sigkill_test.sh BIN_DIR [kernel]. KILLS=50 for more than the few of a common test run. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"

kills=${KILLS:-6}
kind_of_bridge=${2:-own}
devices=1
kinds=(kvbridged agent both device end kvbridged agent)
if [ "$kind_of_bridge" = kernel ]; then
  "$bin/kvbridged" status >"$work/status.log" 2>&1 || skip "$(cat "$work/status.log")"
  devices=2
  kinds+=(qdisc uplink_qdisc helper port)
  ip link add br0 type bridge
  for link in br0 line uplink; do
    ip link set "$link" up
    [ "$link" = br0 ] || ip link set "$link" master br0
  done
  kvbridged_start() {
    start kvbridged "$bin/kvbridged" run --kernel-bridge br0 --uplink uplink --port line=1 --port uplink=9
    wait_for test -e "$tree/mng/config" && return
    ! grep -q eBPF "$work/kvbridged.log" || skip "$(tail -n 1 "$work/kvbridged.log")"
    fail "kvbridged does not start"
  }
fi
has_programs() { tc filter show dev "$1" "$2" 2>/dev/null | grep kvb_ >/dev/null; }  # to its end: tc must not fail
arrived() {  # tagged|other
  local _ tagged other
  read -r _ tagged _ other <"$work/arrived.log"
  echo $((10#${!1}))
}
count_of() { ls "/proc/${pid[$1]}/fd" | wc -l; }
mounts_of() { wc -l <"/proc/${pid[$1]}/mountinfo"; }
padi_count() { ctl --json bridge stats get br0 | grep -o '"padi":[0-9]*' | cut -d: -f2; }
no_more_descriptors() { [ "$(count_of kvbridged)" -le "$fds" ] && [ "$(count_of agent)" -le "$agent_fds" ]; }
more_than() { [ "$(arrived tagged)" -gt "$1" ]; }
nap() { sleep "0.$(printf %03d $((RANDOM % $1)))"; }

mounts=$(wc -l </proc/self/mountinfo)

agent_configured_start() {
  agent_start
  # A port passes everything from its adding until its state is set: the line is down meanwhile. What was on its way
  # before is dropped by kvbridged while it serves the first requests, still without the filter.
  ip link set line down
  ctl -batch - <<BATCH || fail "the agent cannot be configured"
init
bridge add br0 16
bridge vlan set-all br0 on
format circuit-id set br0 "the line's own"
format remote-id set br0 "\$PORT_REM_ID"
port add br0 1 line line --type eth
port circuit-id-mode set br0 1 custom
port state set br0 1 subscriber
port trust set br0 1 untrusted
port remote-id set br0 1 customer-0001
port add br0 9 uplink uplink --kind 1
port state set br0 9 network
BATCH
  ip link set line up
}
killed() { killings=$((killings + 1)); kill -KILL "${pid[$1]}"; wait "${pid[$1]}" 2>/dev/null || true; pid[$1]=; }
flows() {
  wait_for more_than "$(arrived tagged)" || fail "no traffic $*"
  [ "$(arrived other)" = 0 ] || fail "PADIs without the line's tag arrived $*"
}
nothing_passes() {
  sleep 0.1  # what was on its way
  local before
  before=$(arrived tagged)
  sleep 0.1
  [ "$(arrived tagged) $(arrived other)" = "$before 0" ] || fail "PADIs arrive while the agent is away"
}

start check "$bin/padi_check" peer "the line's own" customer-0001 "$work/arrived.log"
wait_for test -s "$work/arrived.log" || fail "padi_check does not start"
kvbridged_start
agent_configured_start
start flood "$bin/padi_flood" sub 1000
flows "at first"
fds=$(count_of kvbridged) agent_fds="$(count_of agent)" agent_mounts=$(mounts_of agent)

echo "seed ${RANDOM_SEED:=$$}"
RANDOM=$RANDOM_SEED
longest=0
killings=0
for ((round = 0; killings < kills; round++)); do
  nap 150
  # Each kind once, then at random.
  kind=${kinds[$((round < 5 ? round : RANDOM % ${#kinds[@]}))]}
  case $kind in
    kvbridged | end)
      before=$(padi_count)
      if [ "$kind" = end ]; then
        kill -TERM "${pid[kvbridged]}"
        wait "${pid[kvbridged]}" || fail "kvbridged did not end in order"
      else
        killed kvbridged
        nap 300
      fi
      begin=$(date +%s%N)
      kvbridged_start
      flows "after kvbridged was started again"
      took=$((($(date +%s%N) - begin) / 1000000))
      [ "$took" -le "$longest" ] || longest=$took
      [ "$(padi_count)" -gt "$before" ] || fail "the agent lost its counters"
      ;;
    agent)
      killed agent
      nothing_passes
      agent_configured_start
      ;;
    both)
      killed agent
      killed kvbridged
      kvbridged_start
      nothing_passes
      agent_configured_start
      ;;
    device)
      ip link del br0_pppoe
      wait_for ip link show br0_pppoe || fail "the device is not made anew"
      ;;
    qdisc) tc qdisc del dev line clsact && wait_for has_programs line ingress || fail "the line's programs are not back" ;;
    uplink_qdisc)
      tc qdisc del dev uplink clsact && wait_for has_programs uplink egress || fail "the uplink's programs are not back"
      ;;
    helper) ip link del br0_back && wait_for ip link show br0_back || fail "the helper device is not made anew" ;;
    port) ip link set line nomaster && nap 200 && ip link set line master br0 ;;
  esac
  flows "after the loss of $kind"
  wait_for no_more_descriptors ||
    fail "descriptors: kvbridged $fds -> $(count_of kvbridged), agent $agent_fds -> $(count_of agent)"
  [ "$(mounts_of agent)" -le "$agent_mounts" ] || fail "the agent's mounts have grown to $(mounts_of agent)"
  [ "$(ip -o link show type tun | wc -l)" = "$devices" ] || fail "there are more devices than $devices"
  [ "$(grep -c kvbridged /proc/self/mountinfo)" -le 2 ] || fail "dead mounts pile up"
  echo "$round: lost $kind, $(arrived tagged) PADIs tagged, $(arrived other) not"
done

kill -TERM "${pid[agent]}"
wait "${pid[agent]}" || fail "the agent did not end in order"
before=$(arrived other)
given_back() { [ "$(arrived other)" -gt "$before" ]; }
kvbridged_end() { kill -TERM "${pid[kvbridged]}" && wait "${pid[kvbridged]}" || fail "kvbridged did not end in order"; }
if [ "$kind_of_bridge" = kernel ]; then
  nothing_passes
  kvbridged_end
  ! has_programs line ingress && ! has_programs uplink egress || fail "programs are left behind"
  wait_for given_back || fail "the bridge does not forward as before"
  tc qdisc show | grep clsact && fail "qdiscs are left behind"
else
  wait_for given_back || fail "discovery does not pass after the bridge was deleted in order"
  kvbridged_end
fi
[ ! -e /run/kvbridged ] || fail "left behind: $(ls -R /run/kvbridged)"
[ "$(wc -l </proc/self/mountinfo)" = "$mounts" ] || fail "mounts are left behind: $(grep kvbridged /proc/self/mountinfo)"
ip link show br0_pppoe >/dev/null 2>&1 && fail "the device is left behind"
no_sanitizer_complains
echo "passed: $killings kills in $round rounds, traffic back at most $longest ms after kvbridged was started again"
