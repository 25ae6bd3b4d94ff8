#!/bin/bash
# A real PPPoE client and a real server at the two sides of a bridge of the kernel's: untagged, and where the kernel has
# VLANs also behind a C-tag and behind two tags, the bridge filtering them. Each PADI has the line's tag at the server, and
# each PADO comes back. Usage: kernel_pppoe_test.sh BIN_DIR. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"

for program in pppoe-server pppoe-discovery; do
  command -v "$program" >/dev/null || skip "needs $program"
done
"$bin/kvbridged" status >"$work/status.log" 2>&1 || skip "$(cat "$work/status.log")"

roads=(sub:peer)
if ip link add br0 type bridge vlan_filtering 1 2>/dev/null && ip link add link sub name sub.100 type vlan id 100; then
  ip link add link peer name peer.100 type vlan id 100
  for side in sub peer; do
    ip link add link $side name $side.200 type vlan id 200
    ip link add link $side.200 name $side.200.30 type vlan id 30
  done
  roads+=(sub.100:peer.100 sub.200.30:peer.200.30)
else
  echo "this kernel has no VLANs: only without tags"
  ip link show br0 >/dev/null 2>&1 || ip link add br0 type bridge
fi
ip link set br0 up
for port in line uplink; do
  ip link set "$port" master br0
  for vid in 100 200; do
    [ ${#roads[@]} = 1 ] || bridge vlan add dev "$port" vid "$vid"
  done
done
for link in $(ip -o link show type vlan | sed -E 's/^[0-9]+: ([^@]*)@.*/\1/'); do ip link set "$link" up; done

kvbridged_start_on_kernel --port line=1 --port uplink=9
agent_start
line_and_uplink_add
start check "$bin/padi_check" peer "the line's own" customer-0001 "$work/arrived.log"
wait_for test -s "$work/arrived.log" || fail "padi_check does not start"

count=0
for road in "${roads[@]}"; do
  count=$((count + 1))
  start "server$count" pppoe-server -F -I "${road#*:}" -C "ac$count" -S internet
  wait_for sh -c "pppoe-discovery -I ${road%:*} -t 1 >'$work/client$count.log' 2>&1; grep -q 'ac$count' '$work/client$count.log'" ||
    fail "no PADO at ${road%:*}"
  cat "$work/client$count.log"
done
read -r _ tagged _ other <"$work/arrived.log"
[ "$((10#$tagged))" -ge "${#roads[@]}" ] && [ "$((10#$other))" = 0 ] || fail "at the server: $(cat "$work/arrived.log")"
wait_for sh -c "'$bin/kvbridged' status --json | grep -q '\"road\": \"open\"'" || fail "status: $("$bin/kvbridged" status)"
no_sanitizer_complains
echo "passed: ${#roads[@]} roads, $(cat "$work/arrived.log")"
