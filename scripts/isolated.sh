#!/usr/bin/env bash
# Runs a command with mounts, network and processes of its own, so that a recorder started there meets no other:
# private /dev/shm, lock folder, stock-clip folder and loopback. Without root it runs the command as it is.
set -eu
if [ "$(id -u)" -ne 0 ]; then
    exec "$@"
fi
exec unshare --mount --net --ipc --pid --fork --mount-proc --kill-child bash -c '
    mount --make-rprivate /
    mount -t tmpfs tmpfs /dev/shm
    mount -t tmpfs -o mode=1777 tmpfs /run/lock
    ip link set lo up
    exec "$@"
' isolated "$@"
