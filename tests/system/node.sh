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
agent_start() {
  start agent "$bin/kvbridged" exec -- "$bin/pppoeia"
  wait_for ctl log level get || fail "the agent does not answer"
}
no_sanitizer_complains() { ! grep -qE 'Sanitizer|runtime error' "$work"/*.log || fail "a sanitizer complains"; }

mount -t tmpfs tmpfs /run
echo 1 2>/dev/null >/proc/sys/net/ipv6/conf/default/disable_ipv6 || true  # the cables carry what the test sends
ip link set lo up
ip link add sub type veth peer name line
ip link add uplink type veth peer name peer
for link in sub line uplink peer; do ip link set "$link" up; done
