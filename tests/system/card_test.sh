#!/bin/bash
# A card of 64 lines with 8 VLANs: written, checked, applied, changed, applied again, saved and restored, while PADIs of
# all lines are sent; each reaches the server exactly once, with the identifiers of the moment before or after. Only exit
# statuses and JSON are read.
# Usage: card_test.sh BIN_DIR. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"

ports=64 vlans=8
for ((port = 1; port <= ports; port++)); do
  echo "link add port$port type veth peer name host$port"
  echo "link set port$port up"
  echo "link set host$port up"
done | ip -batch -
lines=()
for ((port = 1; port <= ports; port++)); do lines+=(--port "br0,$port,subscriber,port$port"); done
start kvbridged "$bin/kvbridged" run --bridge br0 "${lines[@]}" --port br0,99,network,uplink
wait_for test -e "$tree/mng/config" || fail "kvbridged does not start"
agent_start

card() {  # REMOTE_ID
  cat <<CARD
init
bridge add br0 128
port trust set-all br0 untrusted
format circuit-id set br0 "line \$PORT:\$VLAN"
format remote-id set br0 "\$PORT_REM_ID"
port add br0 99 uplink uplink --kind 1
port trust set br0 99 trusted
port state set br0 99 network
CARD
  for ((vlan = 1; vlan <= vlans; vlan++)); do echo "bridge vlan set br0 $vlan on"; done
  for ((port = 1; port <= ports; port++)); do
    cat <<CARD
port add br0 $port port$port port$port --type eth --location panel=P1,reserved=$port
port circuit-id-mode set br0 $port custom
port remote-id set br0 $port $1-$port
port state set br0 $port subscriber
CARD
  done
}
json() { python3 -c 'import json, sys; told = json.load(sys.stdin); sys.exit(0 if eval(sys.argv[1], {}, {"told": told}) else 1)' "$1"; }
ends_with() {  # STATUS COMMAND...: its output is left in $work/told
  local status=0
  "${@:2}" >"$work/told" 2>>"$work/ctl.log" || status=$?
  [ "$status" = "$1" ] || fail "status $status, not $1: ${*:2}"
}
told() { json "$1" <"$work/told" || fail "not so: $1: $(head -c 400 "$work/told")"; }
apply() { ends_with 0 ctl --json apply "$@"; }

card old >"$work/old.conf"
card new >"$work/new.conf"
{ card new; echo "port trust set br0 70 untrusted"; } >"$work/wrong.conf"
ends_with 0 ctl --json check "$work/old.conf"
told 'told["findings"] == []'
ends_with 2 ctl --json check "$work/wrong.conf"
told "told['findings'][0]['line'] == $(wc -l <"$work/wrong.conf")"

ends_with 7 ctl --json diff "$work/old.conf"
apply "$work/old.conf"
told 'told["changed"] and told["assumed"] == []'

coproc padis { exec "$bin/card_padis" host "$ports" "$vlans" peer 2>>"$work/padis.log"; }
pid[padis]=$padis_PID
say() { local answer=; echo "$*" >&"${padis[1]}"; read -r -t 60 answer <&"${padis[0]}" && [ "$answer" = ok ] || fail "PADIs: $*"; }

say expect old
apply "$work/old.conf"
told 'not told["changed"] and told["commands"] == []'
ends_with 2 ctl --json apply "$work/wrong.conf"
say expect old new
apply --dry-run "$work/new.conf"
told "len(told['commands']) == $ports and all(one.startswith('port remote-id set') for one in told['commands'])"
apply "$work/new.conf"
told "told['changed'] and len(told['commands']) == $ports"
say expect new
ends_with 0 ctl --json save
python3 -c 'import json, sys; sys.stdout.write(json.load(sys.stdin)["batch"])' <"$work/told" >"$work/saved.conf"
apply "$work/saved.conf"
told 'not told["changed"]'
say expect old new
apply "$work/old.conf"
say expect old
say expect old new
apply "$work/saved.conf"
told "told['changed'] and len(told['commands']) == $ports"
say expect new

# Back, unless it is confirmed.
say expect new old
apply --confirm 1 "$work/old.conf"
restored() { ctl --json diff "$work/new.conf"; }
wait_for restored || fail "the card does not go back"
say expect new

say rest
ends_with 0 ctl fini
apply "$work/saved.conf"
told 'told["changed"]'
say expect new
ends_with 0 ctl --json diff "$work/new.conf"
say rest
exec {padis[1]}>&-
wait "${pid[padis]}" || fail "PADIs: $(tail -n 3 "$work/padis.log")"
pid[padis]=
no_sanitizer_complains
echo "passed"
