#!/usr/bin/env bash
# A private sound server for the simulated boxes: one input described "TK USB3 Audio" per box,
# each carrying a test tone (box N: 440 Hz times N), and a null speaker as the default output.
# Like a USB sound input, each input delivers its sound in short periods: the input is a pipe
# source fed 10 ms at a time by a live tone.
#
#   scripts/virtual-audio.sh start <folder> [boxes]   prints the PULSE_SERVER value to use
#   scripts/virtual-audio.sh stop <folder>
#
# Everything lives in <folder> (socket, configuration, pids); nothing of the user's sound setup
# is touched. Needs pulseaudio and pulseaudio-utils.
set -euo pipefail
action=${1:-}
dir=${2:-}
boxes=${3:-1}
[ -n "$action" ] && [ -n "$dir" ] || { echo "usage: $0 start|stop <folder> [boxes]" >&2; exit 2; }

stop() {
    if [ -f "$dir/pids" ]; then
        while read -r pid; do kill "$pid" 2>/dev/null || true; done <"$dir/pids"
        rm -f "$dir/pids"
    fi
}

case "$action" in
stop)
    stop
    exit 0
    ;;
start) ;;
*)
    echo "usage: $0 start|stop <folder> [boxes]" >&2
    exit 2
    ;;
esac

for tool in pulseaudio pactl pacat gst-launch-1.0; do
    command -v "$tool" >/dev/null || { echo "virtual-audio: $tool is missing" >&2; exit 1; }
done
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
stop
socket="$dir/native"
rm -f "$socket"
{
    echo "load-module module-native-protocol-unix auth-anonymous=1 socket=$socket"
    echo 'load-module module-null-sink sink_name=speaker sink_properties=device.description="Virtual\ Speaker"'
    for n in $(seq "$boxes"); do
        rm -f "$dir/tone$n"
        echo "load-module module-pipe-source source_name=tkaudio$n file=$dir/tone$n format=s16le rate=48000 channels=2 source_properties=device.description=\"TK\\ USB3\\ Audio\""
    done
    echo "set-default-sink speaker"
} >"$dir/server.pa"

# The server keeps its runtime files in the folder; it runs until stopped.
HOME="$dir" XDG_RUNTIME_DIR="$dir" XDG_CONFIG_HOME="$dir" \
    pulseaudio -n -F "$dir/server.pa" --daemonize=no --exit-idle-time=-1 --system=false \
    --disable-shm=true --log-target=file:"$dir/server.log" >/dev/null 2>&1 &
echo $! >>"$dir/pids"
export PULSE_SERVER="unix:$socket"
for _ in $(seq 100); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.05
done
pactl info >/dev/null 2>&1 || { echo "virtual-audio: the sound server did not start" >&2; stop; exit 1; }

# A null sink works in long blocks unless something plays into it with a short latency.
pacat --playback --latency-msec=20 --device=speaker --raw --format=s16le --rate=48000 \
    --channels=2 </dev/zero >/dev/null 2>&1 &
echo $! >>"$dir/pids"
for n in $(seq "$boxes"); do
    # Only the system's plugins: a test's GST_PLUGIN_PATH may hold sanitizer-built ones that a
    # plain gst-launch cannot load.
    env -u GST_PLUGIN_PATH -u GST_REGISTRY -u GST_REGISTRY_FORK -u LD_PRELOAD \
        gst-launch-1.0 -q audiotestsrc is-live=true freq=$((440 * n)) volume=0.5 samplesperbuffer=480 \
        ! audio/x-raw,format=S16LE,rate=48000,channels=2 \
        ! filesink location="$dir/tone$n" buffer-mode=unbuffered >/dev/null 2>&1 &
    echo $! >>"$dir/pids"
done
echo "$PULSE_SERVER"
