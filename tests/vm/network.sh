#!/bin/bash
# What is around the machine under test: lines and a server in namespaces of their own, at the ends of its interfaces. Line
# 1 sends without tags, line 2 behind a C-tag (100), line 3 behind two (200, 30).
set -e
join() {  # PORT NAMESPACE
  ip netns add "$2"
  ip -n "$2" link set lo up
  ip link add "$1" type veth peer name eth0 netns "$2"
  ip -n "$2" link set eth0 up
}
for number in 1 2 3; do
  join "lan$number" "client$number"
done
join wan0 server
tag() {  # NAMESPACE VLAN...: makes eth0.VLAN.VLAN...
  local namespace=$1 link=eth0; shift
  for vlan in "$@"; do
    ip -n "$namespace" link add link "$link" name "$link.$vlan" type vlan id "$vlan"
    ip -n "$namespace" link set "$link.$vlan" up
    link=$link.$vlan
  done
}
tag client2 100
tag client3 200 30
tag server 100
tag server 200 30
ip link add mng0 type dummy
ip link set mng0 up
