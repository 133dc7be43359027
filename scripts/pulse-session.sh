#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Runs a command with a private PulseAudio daemon whose default sink is a null
# sink with a short latency, so that audio output really plays, and reports
# the end of each sound in time, without a sound card. PULSE_SERVER
# points the command at it; the daemon is stopped when the command ends, also
# on failure or interruption. The command's exit status is returned.
set -uo pipefail

dir=$(mktemp -d /tmp/veltrane-pulse.XXXXXX)
socket="$dir/native"
cat >"$dir/default.pa" <<PA
load-module module-native-protocol-unix socket=$socket auth-anonymous=1
load-module module-null-sink sink_name=veltrane_null rate=40000 format=float32le channels=1
set-default-sink veltrane_null
PA

export XDG_RUNTIME_DIR="$dir" PULSE_RUNTIME_PATH="$dir" HOME="${HOME:-$dir}"
pulseaudio -n -F "$dir/default.pa" --daemonize=no --exit-idle-time=-1 --disallow-exit \
    --use-pid-file=no --log-target=file:"$dir/pulse.log" &
pulse_pid=$!
recorder_pid=
cleanup() {
    [ -n "$recorder_pid" ] && kill "$recorder_pid" 2>/dev/null
    kill "$pulse_pid" 2>/dev/null
    wait "$pulse_pid" 2>/dev/null
    rm -rf "$dir"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

export PULSE_SERVER="unix:$socket"
for _ in $(seq 100); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.1
done
if ! pactl info >/dev/null 2>&1; then
    echo "pulse-session: the private PulseAudio daemon did not start" >&2
    cat "$dir/pulse.log" >&2
    exit 1
fi

# Left to itself a null sink buffers 2 s, and an output then reports the end
# of its sound about a second late. A recorder on its monitor asking for 10 ms
# makes it render in 10 ms blocks, like a sound card with a short latency.
parec -d veltrane_null.monitor --latency-msec=10 >/dev/null &
recorder_pid=$!

"$@"
