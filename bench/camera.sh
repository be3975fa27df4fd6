#!/usr/bin/env bash
# Camera benchmark (not a test): examples/pipelines/camera.json on the
# platform model for a fixed time (sensor test pattern, tee, H.265 main
# stream, H.264 sub stream, snapshots, a recording; the SRT outputs are
# left without receivers) against ffmpeg doing the same work (test source,
# split, scale, libx265 and libx264, files) for as many frames. Prints the
# CPU time (user + sys) of each, per encoded main-stream frame, and their
# ratio, measured in the same run. The model encodes with the same
# libraries at the model's preset (veryfast, zerolatency), so the ratio shows the framework's and
# the model's overhead, not the board's speed.
#
# Usage: bench/camera.sh <build-dir> [seconds (default 10)] [WxH (default 1920x1080)]
set -euo pipefail

[ $# -ge 1 ] || { echo "usage: $0 <build-dir> [seconds] [WxH]" >&2; exit 2; }
build=$(cd "$1" && pwd)
seconds=${2:-10}
size=${3:-1920x1080}
w=${size%x*}
h=${size#*x}
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
launch=$build/tools/vexa-launch
[ -x "$launch" ] || { echo "camera.sh: $launch not found; build first" >&2; exit 2; }
command -v ffmpeg >/dev/null || { echo "camera.sh: ffmpeg is needed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "camera.sh: /usr/bin/time is needed (Debian package time)" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vexa-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/vexa" "$work/ffmpeg"

cpu() { awk '{ print $1 + $2 }' "$1"; }

echo "camera.json for ${seconds} s at ${w}x${h}..."
(cd "$work/vexa" && /usr/bin/time -f "%U %S" -o "$work/vexa.time" "$launch" "$repo/examples/pipelines/camera.json" \
    -q -d "$seconds" --set cam.width="$w" --set cam.height="$h" >/dev/null 2>&1)
frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 "$work/vexa/camera.mp4")
echo "  main-stream frames encoded: $frames"

echo "ffmpeg, the same work for $frames frames..."
(cd "$work/ffmpeg" && /usr/bin/time -f "%U %S" -o "$work/ffmpeg.time" ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i "testsrc2=size=${w}x${h}:rate=30:duration=$(awk -v n="$frames" 'BEGIN { print n / 30 }')" \
    -filter_complex "[0:v]split=3[a][b][c];[b]scale=640:360[s];[c]fps=1/5[j]" \
    -map "[a]" -c:v libx265 -preset veryfast -tune zerolatency -b:v 4M -x265-params log-level=error camera.mp4 \
    -map "[s]" -c:v libx264 -preset veryfast -tune zerolatency -b:v 800k sub.ts \
    -map "[j]" -q:v 3 snapshot-%d.jpg >/dev/null 2>&1)

v=$(cpu "$work/vexa.time")
f=$(cpu "$work/ffmpeg.time")
awk -v v="$v" -v f="$f" -v n="$frames" 'BEGIN {
    printf "CPU s: vexa %.2f, ffmpeg %.2f; per frame: vexa %.1f ms, ffmpeg %.1f ms; ratio vexa/ffmpeg %.2fx\n",
           v, f, 1000 * v / n, 1000 * f / n, v / f }'
