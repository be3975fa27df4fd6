#!/usr/bin/env bash
# Installs Debian packages that are missing, skipping those already there.
#   scripts/install-deps.sh               what building, testing and running VexaBase needs
#   scripts/install-deps.sh PKG [PKG...]  just these (the cross-build scripts use this)
# Run as root (or with sudo).
set -euo pipefail

if [ $# -gt 0 ]; then
    packages=("$@")
else
    packages=(
        g++ cmake make pkg-config
        qtbase5-dev qtbase5-dev-tools
        qtbase5-private-dev   # QMetaCallEvent for the ThreadSanitizer annotations (instruments/tsan)
        libavformat-dev libavdevice-dev libavcodec-dev libavutil-dev libswscale-dev
        ffmpeg      # ffmpeg/ffprobe: sample media and the remux checks
        graphviz    # dot: pipeline graphs as SVG
        time        # /usr/bin/time: CPU time and peak memory in bench/remux.sh
        clang-14 libclang-rt-14-dev   # libFuzzer for the fuzz targets (scripts/fuzz.sh)
        libnginx-mod-rtmp   # nginx with its RTMP module: a real media server in the network tests
        gstreamer1.0-tools  # gst-launch-1.0: the baseline of bench/queue.cpp (not used by the tests)
        # The RtspServer example module (built only when these are found):
        libgstrtspserver-1.0-dev libgstreamer-plugins-base1.0-dev   # RTSP server library, application source
        gstreamer1.0-plugins-base   # appsrc
        gstreamer1.0-plugins-good   # RTP payloaders, AAC parser, RTP session and UDP elements
        gstreamer1.0-plugins-bad    # H.264 and H.265 parsers
    )
fi

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
# Wait for another apt run (a second script, an unattended upgrade) rather than fail.
$SUDO apt-get -o DPkg::Lock::Timeout=600 update -qq
$SUDO apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
