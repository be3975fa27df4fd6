#!/usr/bin/env bash
# Remux demo: makes a short sample clip (H.264 + AAC) unless one is given,
# remuxes it through vexa-launch with examples/pipelines/remux.json and says
# where the output file and the pipeline graph are. Then the camera demo:
# examples/pipelines/camera.json for a few seconds on the platform model
# (at 640x360, so that a PC encodes it in real time), and where its
# recording and snapshots are.
#
# Usage: scripts/demo.sh <build-dir> [input-clip]
set -euo pipefail

usage() { echo "usage: $0 <build-dir> [input-clip]" >&2; exit 2; }
[ $# -ge 1 ] && [ $# -le 2 ] || usage

build=$1
clip=${2:-}
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
launch=$(cd "$(dirname "$build/tools/vexa-launch")" 2>/dev/null && pwd)/vexa-launch
pipeline=$repo/examples/pipelines/remux.json

if [ ! -x "$launch" ]; then
    echo "demo.sh: $launch not found; build first: cmake --build $build" >&2
    exit 2
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/vexa-demo.XXXXXX")

if [ -z "$clip" ]; then
    if ! command -v ffmpeg >/dev/null; then
        echo "demo.sh: ffmpeg is needed to make the sample clip (or pass a clip of your own)" >&2
        exit 2
    fi
    clip=$work/sample.mp4
    echo "Making a 5-second sample clip: $clip"
    ffmpeg -hide_banner -loglevel error -y \
        -f lavfi -i testsrc2=size=640x360:rate=25 \
        -f lavfi -i sine=frequency=440:sample_rate=48000 \
        -t 5 -c:v libx264 -preset veryfast -g 50 -pix_fmt yuv420p \
        -c:a aac -b:a 96k -shortest "$clip"
elif [ ! -f "$clip" ]; then
    echo "demo.sh: no such clip: $clip" >&2
    exit 2
fi

# Matroska takes nearly any codec, so any input clip can be remuxed into it.
out=$work/remuxed.mkv
graph=$work/pipeline.dot

echo "Running: vexa-launch $pipeline --set in.path=$clip --set out.path=$out --graph $graph"
status=0
"$launch" "$pipeline" --set "in.path=$clip" --set "out.path=$out" --graph "$graph" || status=$?
if [ $status -ne 0 ]; then
    echo "demo.sh: vexa-launch failed (exit code $status)" >&2
    exit $status
fi

echo
echo "Output file:    $out"
if [ -f "${graph%.dot}.svg" ]; then
    echo "Pipeline graph: ${graph%.dot}.svg (DOT source: $graph)"
else
    echo "Pipeline graph: $graph (install graphviz to get an SVG picture)"
fi
if command -v ffprobe >/dev/null; then
    echo
    ffprobe -v error -show_entries stream=index,codec_name,codec_type:format=duration -of compact "$out"
fi

# The camera pipeline on the platform model: capture, tee, H.265 and H.264
# encoders, a recording, two SRT outputs (nobody need watch) and snapshots.
camera=$work/camera
mkdir -p "$camera"
echo
echo "Running: vexa-launch $repo/examples/pipelines/camera.json -d 6 (at 640x360, in $camera)"
status=0
(cd "$camera" && "$launch" "$repo/examples/pipelines/camera.json" -q -d 6 \
    --set cam.width=640 --set cam.height=360 --set main.bitrate=1000 \
    --set sub.width=320 --set sub.height=180 --set snap.snapshot=2) || status=$?
if [ $status -ne 0 ]; then
    echo "demo.sh: the camera pipeline failed (exit code $status)" >&2
    exit $status
fi
echo
echo "Camera recording: $camera/camera.mp4"
echo "Snapshots:        $(ls "$camera"/snapshot-*.jpg | tr '\n' ' ')"
if command -v ffprobe >/dev/null; then
    ffprobe -v error -show_entries stream=codec_name,width,height,nb_frames:format=duration -of compact "$camera/camera.mp4"
fi
