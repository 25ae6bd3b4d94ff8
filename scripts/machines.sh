# shellcheck shell=bash
# For scripts that make whole Debians: sourced. Whoever does calls `apart_end` and `aarch64_end` when it ends.

# Runs a command of root's with mounts and processes of its own: none of them outlives it. In the background, so that the
# caller's traps need not wait for it.
apart_pid=
apart() {  # COMMAND...
  unshare --mount --pid --fork --kill-child -- "$@" </dev/null &
  apart_pid=$!
  local status=0
  wait "$apart_pid" || status=$?
  apart_pid=
  return "$status"
}
# With the first of its processes all of them end, and unshare then.
apart_end() {
  [ -n "$apart_pid" ] || return 0
  xargs -r kill -KILL <"/proc/$apart_pid/task/$apart_pid/children" 2>/dev/null || true
  wait "$apart_pid" 2>/dev/null || true
}

# The mirror that this machine takes its own Debian from, if it tells.
mirror() {
  sed -nE 's/^(URIs: *|deb +(\[[^]]*\] +)?)(https?:[^ ]*debian)\/?( .*)?$/\3/p' \
    /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null | head -1 || true
}

# Tells the kernel that qemu runs AArch64's programs, until aarch64_end: under a name of this script's own, so that scripts
# which run at the same time do not take it from each other. Fails where the kernel cannot be told.
formats=/proc/sys/fs/binfmt_misc
formats_mounted=
aarch64_runs() {
  if [ ! -e "$formats/register" ]; then
    mount -t binfmt_misc binfmt_misc "$formats" 2>/dev/null || return 1
    formats_mounted=yes
  fi
  sed "/^#/d; s/^:[^:]*/:qemu-aarch64-$$/" /usr/lib/binfmt.d/qemu-aarch64.conf >"$formats/register"
}
aarch64_end() {
  [ ! -e "$formats/qemu-aarch64-$$" ] || echo -1 >"$formats/qemu-aarch64-$$"
  [ -z "$formats_mounted" ] || [ "$(find "$formats" -type f | wc -l)" != 2 ] || umount "$formats"  # register and status
  formats_mounted=
}
