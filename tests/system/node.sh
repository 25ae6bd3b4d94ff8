# What tests in shell share: namespaces of their own with two cables, sub - line and uplink - peer, and the programs
# in the background. To be sourced with the test's arguments, the first of which is the programs' folder.
set -euo pipefail

skip() { echo "skipped: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root"
[ -w /dev/fuse ] && [ -w /dev/net/tun ] || skip "needs FUSE and TAP devices"
if [ -z "${IN_NAMESPACES:-}" ]; then
  unshare --mount --net true 2>/dev/null || skip "needs namespaces"
  IN_NAMESPACES=1 exec unshare --mount --net --propagation private "$0" "$@"
fi

bin=$1
tree=/run/kvbridged/tree
work=$(mktemp -d)
declare -A pid=()
cleanup() {
  local status=$?
  trap - EXIT
  for one in "${pid[@]}"; do
    [ -z "$one" ] || kill -KILL "$one" 2>/dev/null || true
  done
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT

fail() { echo "FAILED: $*"; tail -n 5 "$work"/*.log; exit 1; }
start() { local name=$1; shift; "$@" >>"$work/$name.log" 2>&1 & pid[$name]=$!; }
ctl() { "$bin/pppoeiactl" -t 20 "$@"; }
wait_for() { for _ in $(seq 500); do "$@" >/dev/null 2>&1 && return 0; sleep 0.02; done; return 1; }
kvbridged_start() {
  start kvbridged "$bin/kvbridged" run --bridge br0 --port br0,1,subscriber,line --port br0,9,network,uplink
  wait_for test -e "$tree/mng/config" || fail "kvbridged does not start"
}
# With a bridge of the kernel's, br0, in the place of its own.
kvbridged_start_on_kernel() {
  start kvbridged "$bin/kvbridged" run --kernel-bridge br0 --uplink uplink "$@"
  wait_for test -e "$tree/mng/config" && return
  grep -q eBPF "$work/kvbridged.log" && skip "$(cat "$work/kvbridged.log")"
  fail "kvbridged does not start"
}
agent_start() {
  start agent "$bin/kvbridged" exec -- "$bin/pppoeia"
  wait_for ctl log level get || fail "the agent does not answer"
}
# Port 1 is a line with identifiers of its own, port 9 the uplink.
line_and_uplink_add() {
  ctl -batch - <<'BATCH' || fail "the agent cannot be configured"
init
bridge add br0 16
bridge vlan set-all br0 on
format circuit-id set br0 "the line's own"
format remote-id set br0 "$PORT_REM_ID"
port add br0 1 line line --type eth
port circuit-id-mode set br0 1 custom
port remote-id set br0 1 customer-0001
port trust set br0 1 untrusted
port state set br0 1 subscriber
port add br0 9 uplink uplink --kind 1
port trust set br0 9 trusted
port state set br0 9 network
BATCH
}
no_sanitizer_complains() { ! grep -qE 'Sanitizer|runtime error' "$work"/*.log || fail "a sanitizer complains"; }

mount -t tmpfs tmpfs /run
echo 1 2>/dev/null >/proc/sys/net/ipv6/conf/default/disable_ipv6 || true  # the cables carry what the test sends
ip link set lo up
ip link add sub type veth peer name line
ip link add uplink type veth peer name peer
for link in sub line uplink peer; do ip link set "$link" up; done
