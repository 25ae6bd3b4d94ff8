#!/bin/bash
# Runs in the machine that scripts/test-vm boots, once before its reboot and once after, or only a short part where there
# is a file "short". Prints "ok" or "not ok" and a name for each check, and DONE at the end.
cd /vm
export PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive

check() {  # NAME COMMAND...
  local name=$1; shift
  if "$@" >/tmp/check.log 2>&1; then
    echo "ok $name ($(cut -d. -f1 /proc/uptime) s)"
  else
    echo "not ok $name ($(cut -d. -f1 /proc/uptime) s)"
    tail -12 /tmp/check.log | sed 's/^/# /'
    journalctl -b -n 25 --no-pager -o cat -u kvbridged -u pppoeia -u pppoeia-card | sed 's/^/# journal: /'
  fi
}
within() {  # SECONDS COMMAND...: until it succeeds
  local end=$(($(date +%s) + $1)); shift
  until "$@"; do
    [ "$(date +%s)" -lt "$end" ] || return 1
    sleep 0.2
  done
}
in_ns() { ip netns exec "$@"; }
fails() { ! "$@"; }

# --- What stands on the wire at the server, for all the time.
capture_start() {
  in_ns server tcpdump -i eth0 -U -s 0 -w /tmp/wire.pcap '(ether[12:2] = 0x8863) or (vlan and ether[16:2] = 0x8863) or (vlan and ether[20:2] = 0x8863)' 2>/tmp/tcpdump.log &
  within 20 test -s /tmp/wire.pcap
}
# The PADIs among that, behind none to two tags, and how many of them bear a Remote ID of a line of this card.
wire() { tcpdump -r /tmp/wire.pcap -U -w - "(ether[12:2] = 0x8863 and ether[15] = 9) or
  (ether[16:2] = 0x8863 and ether[19] = 9) or (ether[20:2] = 0x8863 and ether[23] = 9)" 2>/dev/null; }
padis() { wire | tcpdump -r - -nn 2>/dev/null | grep -c PADI; }
tagged() { wire | grep -ao 'customer-000[123]' | wc -l; }
all_treated() {
  echo "$(padis) PADIs, $(tagged) with a Remote ID"
  [ "$(padis)" -gt 0 ] && [ "$(padis)" = "$(tagged)" ]
}

configured() { pppoeiactl port remote-id get br0 3 2>/dev/null | grep -q customer-0003 && [ "$(pppoeiactl --json port state get br0 9 2>/dev/null | grep -c network)" = 1 ]; }
discovers() { in_ns "$1" pppoe-discovery -I "$2" -t 2 2>/dev/null | grep -q "$3"; }
pid_of() { systemctl show -p MainPID --value "$1"; }
killed_comes_back() {  # UNIT
  local before; before=$(pid_of "$1")
  kill -9 "$before"
  within 30 sh -c "[ \"\$(systemctl show -p MainPID --value $1)\" != $before ] && [ \"\$(systemctl show -p MainPID --value $1)\" != 0 ]" &&
    within 30 configured && within 20 discovers client1 eth0 ac1
}

# --- A session: pppd with the kernel's PPPoE; IP through it; its end seen by the other side.
session() {  # NUMBER LINK
  ip netns exec "client$1" pppd plugin pppoe.so "$2" noauth nodefaultroute noipdefault nodetach user c password c \
    lcp-echo-interval 5 lcp-echo-failure 3 >"/tmp/pppd$1.log" 2>&1 &
  local pppd=$!
  within 30 sh -c "ip -n client$1 -4 addr show dev ppp0 2>/dev/null | grep -q 'inet 10'" || { cat "/tmp/pppd$1.log"; kill $pppd; return 1; }
  in_ns "client$1" ping -c 3 -i 0.2 -W 5 "10.$1.0.1" || { kill $pppd; return 1; }
  kill -TERM "$pppd"
  wait "$pppd"
  within 30 sh -c "! ip -n server -o link show type ppp 2>/dev/null | grep -q ." && return
  ip -n server link show
  tail -n 5 "/tmp/server$1.log" "/tmp/pppd$1.log"
  in_ns server ps -eo pid,args | grep -a '[p]pp'
  return 1
}
servers_start() {
  printf 'noauth\nlcp-echo-interval 5\nlcp-echo-failure 3\n' >/etc/ppp/pppoe-server-options
  in_ns server pppoe-server -k -F -I eth0 -C ac1 -L 10.1.0.1 -R 10.1.0.2 >/tmp/server1.log 2>&1 &
  in_ns server pppoe-server -k -F -I eth0.100 -C ac2 -L 10.2.0.1 -R 10.2.0.2 >/tmp/server2.log 2>&1 &
  in_ns server pppoe-server -k -F -I eth0.200.30 -C ac3 -L 10.3.0.1 -R 10.3.0.2 >/tmp/server3.log 2>&1 &
}

packages_install() { dpkg -i ./*.deb; }
# The commands of docs/deployment.md, as they stand there.
manual() { awk -v which="$1" '$1 == "```sh" && $2 == which { on = 1; next } $1 == "```" { on = 0 } on' deployment.md; }
everything_is_up() {
  for unit in kvbridged pppoeia pppoeia-card; do
    systemctl is-active -q "$unit" || { systemctl status --no-pager -n 5 "$unit" | tail -6; return 1; }
  done
  configured
}
# All files but those that a running system writes, and what the tests themselves put there.
files() {
  find / -xdev \( -path /proc -o -path /sys -o -path /tmp -o -path /run -o -path /vm -o -path /var/log -o -path /var/lib/dpkg \
    -o -path /var/cache -o -path /var/lib/systemd -o -path /etc/ppp -o -path '/root/.*' \) -prune -o -print | sort
}

closed_without_agent() {
  local before; before=$(padis)
  systemctl stop pppoeia
  sleep 2
  in_ns client1 pppoe-discovery -I eth0 -t 2 >/dev/null 2>&1
  sleep 1
  [ "$(padis)" = "$before" ] || { echo "$(padis) PADIs after $before"; return 1; }
  systemctl start pppoeia
  within 30 configured && within 20 discovers client1 eth0 ac1
}
open_without_agent() {
  sed -i 's/--uplink/--when-down open --uplink/' /etc/default/kvbridged
  systemctl restart kvbridged && within 30 configured
  systemctl stop pppoeia
  within 20 discovers client1 eth0 ac1
  local passed=$?
  sed -i 's/--when-down open //' /etc/default/kvbridged
  systemctl restart kvbridged
  systemctl start pppoeia
  within 30 configured && return $passed
}
hung_agent_is_replaced() {
  local before; before=$(pid_of pppoeia)
  kill -STOP "$before"
  within 150 sh -c "[ \"\$(systemctl show -p MainPID --value pppoeia)\" != $before ]"
  local replaced=$?
  kill -CONT "$before" 2>/dev/null
  within 30 configured && return $replaced
}
upgrade() { dpkg -i ./*.deb && within 30 everything_is_up && within 20 discovers client1 eth0 ac1; }
journal_stopped() {
  kill -STOP "$(pid_of systemd-journald)"
  within 20 discovers client1 eth0 ac1
  local status=$?
  kill -CONT "$(pid_of systemd-journald)"
  return $status
}
purge() {
  dpkg --purge pppoeia-kvbridged pppoeia bll-framework pppoeia-doc || return 1
  systemctl daemon-reload
  files >/var/tmp/after
  sed -i '\#^/var/tmp/#d' /var/tmp/before /var/tmp/after
  diff /var/tmp/before /var/tmp/after || return 1
  ! getent group pppoeia && [ -z "$(tc filter show dev lan1 ingress 2>/dev/null)" ] && ! ip link show br0_pppoe 2>/dev/null
}

# From a machine with nothing to one with lines, a server and somebody who watches.
set_up() {
  echo "# $(uname -rm), up after $(cut -d. -f1 /proc/uptime) s"
  files >/var/tmp/before
  check "the packages install" packages_install
  bash network.sh
  manual bridge >/vm/bridge.sh
  check "the manual's bridge is made" bash -e /vm/bridge.sh
  manual services >/vm/services.sh
  check "the manual's services start" bash -e /vm/services.sh
  check "the lines are configured" within 60 everything_is_up
  servers_start
  check "the wire is watched" capture_start
}
finish() {
  echo DONE
  sync
  systemctl poweroff
}

if [ -e short ]; then
  set_up
  check "a PPP session behind a C-tag" session 2 eth0.100
  check "the agent, killed, comes back with its lines" killed_comes_back pppoeia
  check "every PADI at the server was treated: $(padis)" all_treated
  finish
elif [ ! -e /var/lib/rebooted ]; then
  set_up
  check "PADI and PADO pass without tags" within 20 discovers client1 eth0 ac1
  check "a PPP session without tags" session 1 eth0
  check "a PPP session behind a C-tag" session 2 eth0.100
  check "a PPP session behind two tags" session 3 eth0.200.30
  check "the agent, killed, comes back with its lines" killed_comes_back pppoeia
  check "kvbridged, killed, comes back" killed_comes_back kvbridged
  check "discovery passes while the journal is stopped" journal_stopped
  check "without an agent nothing passes" closed_without_agent
  check "an upgrade keeps the lines" upgrade
  check "an agent that hangs is replaced" hung_agent_is_replaced
  check "every PADI at the server was treated: $(padis)" all_treated
  check "without an agent everything passes where that is wanted" open_without_agent
  touch /var/lib/rebooted
  # The network comes up before the services, as on a machine that has one.
  cat >/etc/systemd/system/vm-network.service <<'UNIT'
[Unit]
Description=The network of the test
DefaultDependencies=no
After=sysinit.target
Before=network.target kvbridged.service
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/bash /vm/network.sh
ExecStart=/bin/bash -e /vm/bridge.sh
[Install]
WantedBy=multi-user.target
UNIT
  systemctl enable -q vm-network.service
  sync
  # As a power cut would.
  echo b >/proc/sysrq-trigger
  sleep 60
else
  check "everything is back after the power cut" within 120 everything_is_up
  servers_start
  check "the wire is watched again" capture_start
  check "a PPP session after the power cut" session 2 eth0.100
  check "every PADI at the server was treated: $(padis)" all_treated
  systemctl disable -q --now vm-network.service
  rm -f /etc/systemd/system/vm-network.service /var/lib/rebooted
  pkill tcpdump
  pkill pppoe-server
  check "a purge leaves nothing" purge
  finish
fi
