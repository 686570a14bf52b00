#!/usr/bin/env bash
# A private sound server for the simulated boxes: one input described "TK USB3 Audio" per box,
# each carrying a test tone (box N: 440 Hz times N), and a null speaker as the default output.
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

for tool in pulseaudio pactl pacat; do
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
        echo "load-module module-sine-source source_name=tkaudio$n frequency=$((440 * n)) rate=48000 source_properties=device.description=\"TK\\ USB3\\ Audio\""
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
echo "$PULSE_SERVER"
