#!/usr/bin/env bash
# Starts the console; without a display it runs on a private Xvfb so the start-up still happens.
set -euo pipefail
build=${1:-build}
shift || true
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "run: no display, starting the console under xvfb-run"
    exec xvfb-run -a -s "-screen 0 1920x1080x24" "$build/bin/tavrokvm" "$@"
fi
exec "$build/bin/tavrokvm" "$@"
