#!/bin/bash
# A large card on an agent whose kernel is in memory: seconds to configure, save and show it, and the agent's resident
# memory with and without. Fails when configuring takes more than 2 seconds or the saved card is not the same.
# Usage: card_bench.sh BIN_DIR (of a release build with tests) [option of card_batch.py...]
set -euo pipefail

bin=$1
shift
here=$(dirname "$0")
work=$(mktemp -d)
trap 'exec 9>&-; rm -rf "$work"' EXIT

agent_start() {
  rm -f "$work/in" && mkfifo "$work/in"
  "$bin/fake_agent" "$work/socket" <"$work/in" >"$work/ready" & agent=$!
  exec 9>"$work/in"
  until grep -q ready "$work/ready"; do sleep 0.02; done
}
agent_end() { exec 9>&-; wait "$agent"; }
ctl() { "$bin/pppoeiactl" -t 60 --socket "$work/socket" "$@"; }
resident() { awk '/^VmRSS/ { print $2 " KiB" }' "/proc/$agent/status"; }
timed() {  # NAME COMMAND...; tells on standard error
  local begin end
  begin=$(date +%s%N)
  "${@:2}"
  end=$(date +%s%N)
  taken=$(((end - begin) / 1000000))
  echo "$1: $taken ms" >&2
}

"$here/card_batch.py" "$@" >"$work/card.batch"
echo "lines: $(wc -l <"$work/card.batch")"
agent_start
echo "resident, empty: $(resident)"
timed "configure" ctl -batch "$work/card.batch"
configured=$taken
echo "resident, configured: $(resident)"
timed "save" ctl save >"$work/saved.batch"
timed "show" ctl --json show >"$work/before.json"
agent_end
agent_start
timed "configure again" ctl -batch "$work/saved.batch"
ctl --json show >"$work/after.json"
cmp "$work/before.json" "$work/after.json" || { echo "the saved card is another one"; exit 1; }
agent_end
[ "$configured" -le 2000 ] || { echo "too slow"; exit 1; }
