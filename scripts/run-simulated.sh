#!/usr/bin/env bash
# Starts the console against the simulated box: the virtual camera (a GStreamer plugin of this
# build) shows a box's picture, and tavrokvm-boxsim plays its serial side on a pseudo-terminal
# declared as the box's "TK CDC" port. Ctrl+C or closing the window stops both.
set -euo pipefail
build=${1:-build}
shift || true
build=$(cd "$build" && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/tavrokvm-sim.XXXXXX")
link="$work/tk-box"
"$build/bin/tavrokvm-boxsim" --link "$link" >"$work/boxsim.log" &
boxsim=$!
cleanup() {
    kill "$boxsim" 2>/dev/null || true
    wait "$boxsim" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM
for _ in $(seq 200); do
    [ -e "$link" ] && break
    sleep 0.05
done
[ -e "$link" ] || { echo "run-simulated: the simulated box did not start" >&2; exit 1; }

export GST_PLUGIN_PATH="$build/gst-plugins${GST_PLUGIN_PATH:+:$GST_PLUGIN_PATH}"
export QT_MEDIA_BACKEND=gstreamer
export TAVROKVM_VCAM_DEVICES="${TAVROKVM_VCAM_DEVICES:-box}"
export TAVROKVM_EXTRA_SERIAL_PORTS="$link=TK CDC"
echo "run-simulated: box link $link, cameras: $TAVROKVM_VCAM_DEVICES (box events in $work/boxsim.log)"
# Not exec: the trap must outlive the console to stop the simulated box.
"$(dirname "$0")/run-console.sh" "$build" "$@"
