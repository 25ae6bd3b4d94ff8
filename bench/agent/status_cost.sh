#!/bin/bash
# What it costs the worker to tell of frames while nobody looks: whole_path_bench of a build with that beside one of a
# build without (-DPPPOEIA_STATUS=OFF), in turn, for clients that repeat themselves, a thousand, and ever new ones. Prints
# medians of CPU time a frame, their ratio, and the frames that were lost in front of each. Needs root.
# Usage: status_cost.sh WITH WITHOUT [ROUNDS [SECONDS]]      the two whole_path_bench; 21 rounds of 1.2 s
set -euo pipefail
with=$1 without=$2 rounds=${3:-21} seconds=${4:-1.2}

median() { sort -n | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'; }

# CLIENTS RATE TEXT; a rate of 0 is as fast as it goes.
compare() {
  local round build
  local -A cpu lost
  for ((round = 0; round < rounds; ++round)); do
    for build in with without; do
      read -r ns _ missing < <("${!build}" --worker "$1" --rate "$2" --seconds "$seconds")
      cpu[$build]+="$ns "
      lost[$build]=$((${lost[$build]:-0} + missing))
    done
  done
  local a b
  a=$(printf '%s\n' ${cpu[with]} | median)
  b=$(printf '%s\n' ${cpu[without]} | median)
  printf '%-44s %7.1f ns beside %7.1f ns: %+.1f %%; lost %d beside %d\n' "$3" "$a" "$b" \
    "$(awk "BEGIN { print ($a / $b - 1) * 100 }")" "${lost[with]}" "${lost[without]}"
}

compare 64 0 "a client a port, full speed"
compare 1000 0 "1,000 clients on 64 ports, full speed"
compare 1000000 0 "ever new clients on 64 ports, full speed"
compare 10000 300000 "10,000 clients, 300,000 frames a second"
