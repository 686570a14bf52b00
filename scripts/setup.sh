#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages.txt (build and tests) and
# dist/linux/runtime-packages.txt (what the console loads at run time) that are not installed yet.
# Idempotent: with everything present it changes nothing and needs no network.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

wanted=$(grep -h -v -E '^\s*(#|$)' "$here/packages.txt" "$here/../dist/linux/runtime-packages.txt")
missing=()
for pkg in $wanted; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$pkg")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: all packages present"
    exit 0
fi

echo "setup: installing ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "setup: need root (or sudo) to install: ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
