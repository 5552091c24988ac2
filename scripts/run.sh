#!/usr/bin/env bash
# Starts the whole recorder on this machine and stops all of it on Ctrl-C.
#   scripts/run.sh BIN_FOLDER
#   INPUT=url     a live source of yours instead of the moving test signal: anything FFmpeg opens
#   MEDIA=path    record there instead of on a medium of our own; must not lie on the root file system
#   FORMAT=text   raster and rate of the test signal, such as 1920x1080p25
#   SECOND=path   a second slot to roll over to, where a medium may be mounted at any time
set -u
bin=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
mkdir -p out/run
state=$PWD/out/run
log=$state/rvd.log

die() { echo "run: $*" >&2; exit 1; }

# A medium: a file system of its own. Root gets a loop image that keeps its clips, else a tmpfs; others
# get a folder in /dev/shm.
mounted=
prepare_medium() {
    if [ -n "${MEDIA:-}" ]; then
        mkdir -p "$MEDIA" && medium=$(cd "$MEDIA" && pwd) || die "can't use $MEDIA"
        [ "$(stat -f -c %i "$medium")" != "$(stat -f -c %i /)" ] ||
            die "$medium lies on the root file system; the recorder wants a medium mounted there"
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        medium=/dev/shm/rvd-media-$(id -un)
        mkdir -p "$medium"
        return
    fi
    medium=$state/medium
    mkdir -p "$medium"
    if mountpoint -q "$medium"; then
        return
    fi
    image=$state/medium.img
    if [ ! -f "$image" ]; then
        truncate -s 16G "$image" && mkfs.ext4 -q -m 0 "$image" 2>/dev/null || rm -f "$image"
    fi
    if [ -f "$image" ] && mount -o loop,nosuid,nodev,noexec "$image" "$medium" 2>/dev/null; then
        mounted=$medium
    elif mount -t tmpfs -o size=4g,nosuid,nodev,noexec tmpfs "$medium"; then
        mounted=$medium
    else
        die "can't mount a medium; name one with MEDIA=path"
    fi
}

pids=()
rvd=0
stop_all() {
    trap - INT TERM EXIT
    local pid i
    # The recorder leaves its media in order when it is asked to shut down.
    "$bin/rvctl" shutdown >/dev/null 2>&1 && wait_gone 10 "$rvd"
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        pid=${pids[i]}
        kill -TERM "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    done
    [ -z "$mounted" ] || umount "$mounted" 2>/dev/null || umount -l "$mounted"
    echo
    echo "Stopped."
}

wait_gone() { # wait_gone SECONDS PID
    local end=$((SECONDS + $1))
    while kill -0 "$2" 2>/dev/null && [ $SECONDS -lt $end ]; do
        sleep 0.05
    done
}

wait_for() { # wait_for SECONDS COMMAND...: until the command succeeds
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.1
    done
}

prepare_medium
trap 'stop_all; exit 0' INT TERM
trap stop_all EXIT

# What is recorded and shown when the input is lost.
"$bin/rvstock" --missing /usr/local/share/media 2>"$state/rvstock.log" ||
    echo "run: no stock clips in /usr/local/share/media, see $state/rvstock.log; without them a lost input gives black" >&2

export RVD_INPUT=${INPUT:-pattern}
export RVD_INPUT_FORMAT=${FORMAT:-1920x1080p25}
export ORB_LOG=$log

setsid "$bin/rvstore" --db "$state/rvstore.db" 2>"$state/rvstore.log" &
pids+=($!)
# Only what is mounted can be a slot; a folder is named and stays.
slots=(--slot "${SECOND:-/media/slot2}")
! mountpoint -q "$medium" || slots=(--slot "$medium" "${slots[@]}")
setsid "$bin/rvmedia" --known "$state/rvmedia.clips" --active "$medium" "${slots[@]}" 2>"$state/rvmedia.log" &
pids+=($!)
setsid "$bin/rvd" -d >"$state/rvd.out" 2>&1 &
rvd=$!
pids+=($rvd)
wait_for 10 "$bin/rvctl" status || die "the recorder does not start; see $state"

cat <<TEXT
The recorder runs.
  input    $RVD_INPUT ($([ "$RVD_INPUT" = pattern ] && echo "moving test signal with tone, $RVD_INPUT_FORMAT" || echo "live"))
  clips    $medium
  log      $log
Try, in another terminal:
  $bin/rvctl record      and after a while   $bin/rvctl stop
  $bin/rvctl play        $bin/rvctl rew      $bin/rvctl status
  $bin/rvmonitor --still picture.png
Ctrl-C stops it.
TEXT

wait -n "${pids[@]}"
echo "run: a process of the recorder ended; see $state" >&2
