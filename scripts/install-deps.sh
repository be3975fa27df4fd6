#!/usr/bin/env bash
# Installs what building, testing and running VexaBase needs on Debian 12,
# skipping packages that are already there. Run as root (or with sudo).
set -euo pipefail

packages=(
    g++ cmake make pkg-config
    qtbase5-dev qtbase5-dev-tools
    libavformat-dev libavdevice-dev libavcodec-dev libavutil-dev
    ffmpeg      # ffmpeg/ffprobe: sample media and the remux checks
    graphviz    # dot: pipeline graphs as SVG
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: everything needed is installed"
    exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
