#!/bin/bash
# The whole road with real PPPoE clients and a real server, by this build's programs. Usage: demo_test.sh BIN_DIR
# Exit status 77: skipped.
set -euo pipefail
skip() { echo "skipped: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root"
[ -w /dev/fuse ] && [ -w /dev/net/tun ] || skip "needs FUSE and TAP devices"
for program in pppoe-server pppoe-discovery tshark dumpcap ip; do
  command -v "$program" >/dev/null || skip "needs $program"
done
ip netns add piaprobe$$ 2>/dev/null || skip "needs network namespaces"
ip netns del piaprobe$$
exec "$(dirname "$0")/../../scripts/demo" --bin "$1"
