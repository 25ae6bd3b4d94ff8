#!/bin/bash
# A large card on an agent whose kernel is in memory: time to configure, save and show it, and the agent's resident
# memory with and without; then, medians of ROUNDS=5 rounds in turn, a batch beside apply, and apply of one changed line.
# Fails when configuring takes more than 2 seconds, the saved card is not the same, apply takes more than 1.5 times the
# batch's time, or the changed line more than a second.
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

rounds=${ROUNDS:-5}
sed '0,/C-br0-0001/s//changed/' "$work/card.batch" >"$work/changed.batch"
for ((round = 0; round < rounds; round++)); do
  agent_start
  timed "batch" ctl -batch "$work/card.batch"
  echo "$taken" >>"$work/batch"
  agent_end
  agent_start
  timed "apply" ctl apply "$work/card.batch"
  echo "$taken" >>"$work/apply"
  timed "apply, one line changed" ctl apply "$work/changed.batch"
  echo "$taken" >>"$work/changed"
  agent_end
done
median() { sort -n "$work/$1" | sed -n "$(((rounds + 1) / 2))p"; }
echo "medians: batch $(median batch) ms, apply $(median apply) ms, one line changed $(median changed) ms"
[ $((2 * $(median apply))) -le $((3 * $(median batch))) ] || { echo "apply is too slow"; exit 1; }
[ "$(median changed)" -le 1000 ] || { echo "apply of one line is too slow"; exit 1; }
