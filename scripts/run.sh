#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the program in Release mode and starts it. Without a display it starts
# the program on a virtual X display (Xvfb) with a virtual audio sink (a private
# PulseAudio null sink), saves a screenshot of the window and keeps running
# until interrupted; Ctrl-C stops the program and everything started here.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

scripts/deps.sh
export CCACHE_BASEDIR="$root"
cmake -S . -B build/run -DCMAKE_BUILD_TYPE=Release -DVELTRANE_TESTS=OFF >/dev/null
cmake --build build/run -j2 --target veltrane simulate-listener veltrane-summary
program="$root/build/run/veltrane"

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    exec "$program"
fi

echo "No display found (neither DISPLAY nor WAYLAND_DISPLAY is set):"
echo "starting the program on a virtual X display (Xvfb) with a virtual audio sink."

display_number=99
while [ -e "/tmp/.X11-unix/X$display_number" ] || [ -e "/tmp/.X$display_number-lock" ]; do
    display_number=$((display_number + 1))
done
export DISPLAY=":$display_number"
screenshot="$root/build/run/screenshot.png"

Xvfb "$DISPLAY" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 &
xvfb_pid=$!
stop_all() {
    trap - EXIT INT TERM
    # The session runs in its own process group: the daemon, the program and
    # the shell around them stop together.
    [ -n "${session_pid:-}" ] && kill -- "-$session_pid" 2>/dev/null
    kill "$xvfb_pid" 2>/dev/null
    wait 2>/dev/null
}
trap stop_all EXIT
trap 'echo; echo "Stopping."; exit 130' INT TERM

for _ in $(seq 100); do
    xdpyinfo >/dev/null 2>&1 && break
    sleep 0.1
done

export VELTRANE_PROGRAM="$program" VELTRANE_SCREENSHOT="$screenshot"
setsid scripts/pulse-session.sh bash -c '
    "$VELTRANE_PROGRAM" &
    program_pid=$!
    window=""
    for _ in $(seq 200); do
        window=$(xwininfo -root -tree 2>/dev/null | awk "/Main Window\"/ {print \$1; exit}")
        [ -n "$window" ] && break
        sleep 0.1
    done
    sleep 1
    if [ -n "$window" ] && import -window "$window" "$VELTRANE_SCREENSHOT" 2>/dev/null; then
        echo "Screenshot of the window: $VELTRANE_SCREENSHOT"
    else
        echo "Could not save a screenshot." >&2
    fi
    echo "The program is running on display $DISPLAY; press Ctrl-C to stop it."
    wait $program_pid
' &
session_pid=$!
wait "$session_pid"
