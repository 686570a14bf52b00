#!/usr/bin/env bash
# Re-makes the README's picture of the console: builds, then runs the screenshot test (the real
# program against the simulated box) on a private X server and keeps its PNG.
# Usage: scripts/make-screenshot.sh [build-folder] [output.png]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build}
out=${2:-$root/docs/console.png}
mkdir -p "$(dirname "$out")"
make -C "$root" build BUILD_DIR="$build" >/dev/null
# No DISPLAY: run-tests.sh starts its own Xvfb, so no desktop window gets into the picture.
env -u DISPLAY -u WAYLAND_DISPLAY TAVROKVM_SCREENSHOT_OUT="$out" \
    "$root/scripts/run-tests.sh" "$build" -R '^tst_consolescreenshot$'
echo "make-screenshot: $out"
