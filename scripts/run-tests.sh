#!/usr/bin/env bash
# Runs the CTest suite of a build folder. Starts a private Xvfb for the tests that need a
# real X server (OpenGL) when no display is available. Extra arguments go to ctest.
set -uo pipefail
build=${1:-build}
shift || true

xvfb_pid=
cleanup() { [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null; }
trap cleanup EXIT

if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null 2>&1; then
    for n in $(seq 90 120); do
        [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ] && continue
        Xvfb ":$n" -screen 0 1920x1080x24 -nolisten tcp >/dev/null 2>&1 &
        xvfb_pid=$!
        export DISPLAY=":$n"
        for _ in $(seq 50); do [ -e "/tmp/.X11-unix/X$n" ] && break; sleep 0.1; done
        break
    done
fi

ctest --test-dir "$build" --output-on-failure "$@"
