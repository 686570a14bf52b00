#!/usr/bin/env bash
# Starts the console against the simulated box: tavrokvm-boxsim plays its serial side on a
# pseudo-terminal declared as the box's "TK CDC" port, and keeps the state of a target computer
# behind it; the virtual camera (a GStreamer plugin of this build) shows that target's screen, so
# what is typed and clicked in the console shows up in the picture. Ctrl+C or closing the window
# stops both.
#
#   TAVROKVM_DEMO_BOX_ARGS   more options for the box, e.g. "--borders 4:3 --screen 1024x768"
#                            or "--hid-poll-ms 8 --capture-delay-ms 30" (tavrokvm-boxsim --help)
#   TAVROKVM_DEMO_PATTERN=1  the plain test pattern instead of the target's screen
set -euo pipefail
build=${1:-build}
shift || true
build=$(cd "$build" && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/tavrokvm-sim.XXXXXX")
link="$work/tk-box"
# The first box camera's serial: its picture is the simulated target's screen.
mkdir -p "$work/targets"
screen=()
if [ "${TAVROKVM_DEMO_PATTERN:-0}" != 1 ]; then
    screen=(--screen-file "$work/targets/TK3V0001.screen")
    export TAVROKVM_VCAM_TARGETS="$work/targets"
fi
# shellcheck disable=SC2086 # the extra options are words on purpose
"$build/bin/tavrokvm-boxsim" --link "$link" "${screen[@]}" ${TAVROKVM_DEMO_BOX_ARGS:-} \
    >"$work/boxsim.log" &
boxsim=$!
tone_module=
tone=
cleanup() {
    kill "$boxsim" $tone 2>/dev/null || true
    wait "$boxsim" 2>/dev/null || true
    [ -n "$tone_module" ] && pactl unload-module "$tone_module" 2>/dev/null
    "$(dirname "$0")/virtual-audio.sh" stop "$work/audio" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM
for _ in $(seq 200); do
    [ -e "$link" ] && break
    sleep 0.05
done
[ -e "$link" ] || { echo "run-simulated: the simulated box did not start" >&2; exit 1; }

# The box's sound: a tone on an input described "TK USB3 Audio". With a sound server of the user's
# it is heard on the speakers (quietly); otherwise a private server carries it unheard, one input
# per simulated box. The input is a pipe fed 10 ms at a time, as a USB sound input delivers.
boxes=$(printf '%s\n' "${TAVROKVM_VCAM_DEVICES:-box}" | tr ',' '\n' | grep -c '^ *box' || true)
if command -v pactl >/dev/null 2>&1 && pactl info >/dev/null 2>&1; then
    tone_module=$(pactl load-module module-pipe-source source_name=tk_usb3_audio_sim \
        file="$work/tone" format=s16le rate=48000 channels=2 \
        'source_properties=device.description="TK USB3 Audio"' || true)
    if [ -n "$tone_module" ]; then
        gst-launch-1.0 -q audiotestsrc is-live=true freq=440 volume=0.08 samplesperbuffer=480 \
            ! audio/x-raw,format=S16LE,rate=48000,channels=2 \
            ! filesink location="$work/tone" buffer-mode=unbuffered >/dev/null 2>&1 &
        tone=$!
        echo "run-simulated: the box's sound is a quiet 440 Hz tone on your speakers"
    fi
elif server=$("$(dirname "$0")/virtual-audio.sh" start "$work/audio" "${boxes:-1}" 2>/dev/null); then
    export PULSE_SERVER="$server"
    echo "run-simulated: no sound server of yours; the box's sound plays on a private one (unheard)"
else
    echo "run-simulated: video only; install pulseaudio and pulseaudio-utils for the box's sound"
fi

export GST_PLUGIN_PATH="$build/gst-plugins${GST_PLUGIN_PATH:+:$GST_PLUGIN_PATH}"
export QT_MEDIA_BACKEND=gstreamer
export TAVROKVM_VCAM_DEVICES="${TAVROKVM_VCAM_DEVICES:-box}"
export TAVROKVM_EXTRA_SERIAL_PORTS="$link=TK CDC"
echo "run-simulated: box link $link, cameras: $TAVROKVM_VCAM_DEVICES (box events in $work/boxsim.log)"
# Not exec: the trap must outlive the console to stop the simulated box.
"$(dirname "$0")/run-console.sh" "$build" "$@"
