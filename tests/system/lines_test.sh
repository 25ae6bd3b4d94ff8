#!/bin/bash
# Real PPPoE clients and servers at the two sides of the agent: what the line table tells of each dial-in is held against
# what tshark saw at the server's side. Usage: lines_test.sh BIN_DIR. Exit status 77: skipped.
. "$(dirname "$0")/node.sh"

for program in pppoe pppoe-server tshark dumpcap python3; do
  command -v "$program" >/dev/null || skip "needs $program"
done

kvbridged_start
agent_start
line_and_uplink_add
mac_of() { ip -br link show "$1" | awk '{print $3}'; }
mac=$(mac_of sub)
start capture dumpcap -q -i peer -f 'ether proto 0x8863' -w "$work/peer.pcap"
wait_for test -s "$work/peer.pcap" || fail "no capture"

# In pppd's place: a session that stays until its process is ended.
printf '#!/bin/sh\nexec sleep 61\n' >"$work/session"
chmod +x "$work/session"

line() { ctl --json lines --client "$mac" | python3 -c "import json,sys; print(json.load(sys.stdin)[0].get('$1', ''))" 2>/dev/null; }
line_is() { [ "$(line "$1")" = "$2" ]; }
expect() { for _ in $(seq 60); do line_is "$1" "$2" && return 0; sleep 0.05; done; fail "$1 is '$(line "$1")', not '$2': $(ctl lines --client "$mac")"; }
# tshark shows a frame like that.
captured() {
  for _ in $(seq 10); do
    [ -z "$(tshark -r "$work/peer.pcap" -Y "$1" 2>/dev/null)" ] || return 0
    sleep 0.2
  done
  fail "tshark does not show: $1"
}
server() {  # ARGUMENT...
  start server pppoe-server -F -I peer -C bras-1 -q "$work/session" "$@"
}
server_end() { kill "${pid[server]}"; wait "${pid[server]}" 2>/dev/null || true; pid[server]=; }
# A client whose PPP side says nothing, until it is hung up.
dial() { start client sh -c "sleep 60 | pppoe -I sub $*"; }
hang_up() { pkill -P "${pid[client]}" -x sleep; }

echo "-- nobody answers"
dial -S internet
expect state discovering
expect service_name internet

echo "-- a session comes up"
server -S internet
expect state up
expect ac_name bras-1
expect server "$(mac_of peer)"
session=$(line session_id)
captured "pppoe.code == 0x65 && pppoe.session_id == $session && eth.dst == $mac"
[ -n "$(line circuit_id)" ] || fail "no circuit id told"
captured "pppoe.code == 0x19 && eth.src == $mac && frame contains \"$(line circuit_id)\""

echo "-- the client ends it"
hang_up
expect state ended
expect padt_from client
captured "pppoe.code == 0xa7 && pppoe.session_id == $session && eth.src == $mac"

echo "-- the server ends it"
dial -S internet
expect state up
session=$(line session_id)
pkill -P "${pid[server]}" -x sleep
expect state ended
expect padt_from server
captured "pppoe.code == 0xa7 && pppoe.session_id == $session && eth.dst == $mac"
server_end

# A server that offers, and refuses each request with an error tag.
cat >"$work/refuser.py" <<'PYTHON'
import socket, struct, sys
tag, text = int(sys.argv[1], 16), sys.argv[2].encode()
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8863))
wire.bind(("peer", 0))
own = wire.getsockname()[4]
def tags_of(payload):
    while len(payload) >= 4:
        kind, size = struct.unpack(">HH", payload[:4])
        yield kind, payload[4:4 + size]
        payload = payload[4 + size:]
while True:
    frame = wire.recv(2000)
    code, size = frame[15], struct.unpack(">H", frame[18:20])[0]
    if code not in (0x09, 0x19):
        continue
    answer = [(0x0102, b"refuser")] if code == 0x09 else [(tag, text)]
    answer += [one for one in tags_of(frame[20:20 + size]) if one[0] in (0x0101, 0x0103)]
    body = b"".join(struct.pack(">HH", kind, len(value)) + value for kind, value in answer)
    wire.send(frame[6:12] + own + b"\x88\x63\x11" + bytes([0x07 if code == 0x09 else 0x65]) +
              struct.pack(">HH", 0, len(body)) + body)
PYTHON
for error in 0201:Service-Name-Error 0202:AC-System-Error 0203:Generic-Error; do
  name=${error#*:}
  echo "-- $name"
  start refuser python3 "$work/refuser.py" "${error%:*}" "refused by $name"
  dial -S internet
  expect error "$name"
  expect error_text "refused by $name"
  expect state ended
  expect ac_name refuser
  captured "pppoe.code == 0x65 && pppoe.session_id == 0 && eth.dst == $mac && frame contains \"refused by $name\""
  kill "${pid[refuser]}"
  wait "${pid[refuser]}" 2>/dev/null || true
  pid[refuser]=
  hang_up
done

no_sanitizer_complains
echo "passed"
