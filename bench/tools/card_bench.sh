#!/bin/bash
# Configures a large card in a running agent, on kvbridged: the time that the batch file takes, the agent's memory with it,
# and whether what `save` prints brings a fresh agent to the same state. Needs root, FUSE, TAP devices and python3.
# Usage: card_bench.sh BIN_DIR [options of card_batch.py]
set -euo pipefail

bin=$(realpath "$1"); shift
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
tree=/run/kvbridged/card$$
ns=card$$
pids=()
cleanup() {
  local status=$?
  trap - EXIT
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    kill "${pids[i]}" 2>/dev/null || true
    wait "${pids[i]}" 2>/dev/null || true
  done
  ip netns del "$ns"
  rm -rf "$work"
  exit "$status"
}
ip netns add "$ns"
trap cleanup EXIT

start() { nsenter --net="/run/netns/$ns" "${@:2}" >"$work/$1.log" 2>&1 & pids+=($!); last=$!; }
ctl() { "$bin/pppoeiactl" -t 20 "$@"; }
wait_for() { for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done; return 1; }
agent_start() {
  start agent "$bin/kvbridged" --tree "$tree" exec -- "$bin/pppoeia"
  agent=$last
  wait_for ctl log level get
}
memory() { awk '/^VmRSS/ {print $2}' "/proc/$agent/status"; }
seconds() { local begin=$EPOCHREALTIME; "$@"; awk -v b="$begin" -v e="$EPOCHREALTIME" 'BEGIN {printf "%.2f", e - b}'; }
python3 "$here/card_batch.py" "$@" >"$work/card.batch"
bridges=$(grep -c '^bridge add' "$work/card.batch")
modules=()
for number in $(seq 0 $((bridges - 1))); do modules+=(--bridge "br$number"); done
start kvbridged "$bin/kvbridged" --tree "$tree" run "${modules[@]}"
wait_for test -e "$tree/mng/config"

agent_start
empty=$(memory)
echo "$(wc -l <"$work/card.batch") lines in $(seconds ctl -batch "$work/card.batch") s"
echo "resident memory: $empty KiB empty, $(memory) KiB with the card"
ctl save >"$work/saved.batch"
ctl --json show >"$work/first.json"
kill -TERM "$agent"; wait "$agent"

agent_start
ctl -batch "$work/saved.batch"
ctl --json show >"$work/second.json"
cmp "$work/first.json" "$work/second.json" && echo "saved and replayed: the same $(wc -c <"$work/first.json") bytes of JSON"
